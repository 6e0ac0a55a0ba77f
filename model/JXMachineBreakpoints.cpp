// JXMachine, part: breakpoints, stop points and stepping (stub).
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThreadList.h"

namespace jdwpkrvdbg {
bool JXMachine::addBreakpoint(const std::string& ClassName, double LineNr) { return {}; }
bool JXMachine::addStopPoint(const std::string& ClassName, const std::string& MethodName, double Offset) { return {}; }
bool JXMachine::addBreakpointByCollection(const JXBreakpointCollection& col) { return {}; }
std::shared_ptr<JXBreakpoint> JXMachine::getBreakPoint(const std::string& ClassName, double LineNr) { return {}; }
std::shared_ptr<JXBreakpoint> JXMachine::getStopPoint(const std::string& ClassName, const std::string& MethodName, double Offset) { return {}; }
std::shared_ptr<JXBreakpoint> JXMachine::getBreakPointByID(double BreakpointID) { return {}; }
bool JXMachine::removeBreakpoint(const std::string& ClassName, double LineNr) { return {}; }
bool JXMachine::removeStopPoint(const std::string& ClassName, const std::string& MethodName, double Offset) { return {}; }
std::vector<std::shared_ptr<JXBreakpoint>> JXMachine::removeBreakpointByClass(const std::string& ClassName) { return {}; }
bool JXMachine::ResumeVMStepByStep(bool IgnoreSuspend, double RefThreadID, JDWPStepDepth stepDepth) { return {}; }
void JXMachine::unregisterLastStepEvent() {}
bool JXMachine::SuspendNextStep() { return {}; }
void JXMachine::registerWaitingBreakpoints(const std::shared_ptr<JXClass>& refClass) {}
} // namespace jdwpkrvdbg
