// JXMachine: state, host events, whole-VM commands, session-start requests (stub).
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThreadList.h"

namespace jdwpkrvdbg {
JXMachine::JXMachine() {}
JXMachine::~JXMachine() {}
void JXMachine::cleanup() {}
void JXMachine::disconnectJVM() {}
bool JXMachine::exitVM() { return {}; }
bool JXMachine::isInvokeInProcess() const { return {}; }
void JXMachine::MsgBoxW(const std::string& Prompt, int32_t Buttons, const std::string& Title) {}
void JXMachine::GoBreakpoint(double BreakpointID, double threadID, const std::string& ClassName, double ClassID, double MethodID, double LineNr, double Offset) {}
void JXMachine::GoSingleStep(double BreakpointID, double threadID, const std::string& ClassName, double ClassID, double MethodID, double LineNr, double Offset) {}
void JXMachine::GoVMStateChange(VMState NewState, double newThreadID) {}
void JXMachine::GoOpenConnection() {}
void JXMachine::GoCloseConnection() {}
void JXMachine::printDebug(const std::string& s) {}
void JXMachine::printConsole(const std::string& s) {}
void JXMachine::GoException(const std::string& s) {}
void JXMachine::GoSilentBreak(double threadID, double ClassID, double MethodID) {}
void JXMachine::ResumeVM(bool unregisterLastStep) {}
bool JXMachine::SuspendVM() { return {}; }
void JXMachine::HoldEvents(int16_t ErrCount) {}
void JXMachine::ReleaseEvents(int16_t ErrCount) {}
bool JXMachine::registerPrepareClass() { return {}; }
bool JXMachine::registerException() { return {}; }
bool JXMachine::registerExceptionExpilcit(const std::shared_ptr<JXClass>& refClass) { return {}; }
bool JXMachine::registerDebugClass(const std::shared_ptr<JXClass>& refClass) { return {}; }
bool JXMachine::registerThreadStartAndThreadEnd() { return {}; }
void JXMachine::holdOrRelease(bool hold, int16_t ErrCount) {}
} // namespace jdwpkrvdbg
