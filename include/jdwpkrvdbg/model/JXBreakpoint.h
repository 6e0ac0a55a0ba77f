// A breakpoint (class + source line), a stop point (class + method + code
// offset), or the one-shot request that carries a single step. Each is
// registered in the VM as an event request once its class is known.
#pragma once

#include <memory>
#include <string>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"

namespace jdwpkrvdbg {

// Held by std::shared_ptr: a registered step request hands itself to the
// session as its last step event.
class JXBreakpoint : public std::enable_shared_from_this<JXBreakpoint> {
public:
    bool StopPoint = false;
    bool UsedByVM = false;
    std::string ClassName; // internal or signature form
    std::string MethodName;
    double LineNr = 0;
    double Offset = 0;
    double RequestEventID = 0; // 0: not registered
    double TargetThreadID = 0;
    double StepCount = 0;
    bool JustStepping = false;

    bool registerBreakPoint();
    bool registerStopPoint();
    bool unregisterBreakPoint();
    bool registerStepEvent(JDWPStepDepth stepDepth);
    bool unregisterStepEvent(bool async = false);

    const JDWPJLocation& location() const { return myLocation_; }

private:
    bool registerAt(const JDWPJLocation& location);
    JDWPJLocation myLocation_;
};

} // namespace jdwpkrvdbg
