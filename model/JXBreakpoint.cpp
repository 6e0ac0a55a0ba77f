// JXBreakpoint (stub).
#include "jdwpkrvdbg/model/JXBreakpoint.h"

namespace jdwpkrvdbg {
bool JXBreakpoint::registerBreakPoint() { return {}; }
bool JXBreakpoint::registerStopPoint() { return {}; }
bool JXBreakpoint::unregisterBreakPoint() { return {}; }
bool JXBreakpoint::registerStepEvent(JDWPStepDepth stepDepth) { return {}; }
bool JXBreakpoint::unregisterStepEvent(bool async) { return {}; }
bool JXBreakpoint::registerAt(const JDWPJLocation& location) { return {}; }
} // namespace jdwpkrvdbg
