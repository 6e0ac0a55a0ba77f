// JXMachine (stub).
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
bool JXMachine::addClass(const std::shared_ptr<JXClass>& refClass, bool printInfo) { return {}; }
std::shared_ptr<JXClass> JXMachine::getClassByName(const std::string& ClassName, bool addClass) { return {}; }
std::shared_ptr<JXClass> JXMachine::getClassByID(double ClassID, bool addClass) { return {}; }
std::shared_ptr<JXClass> JXMachine::addClassByName(const std::string& refClassName) { return {}; }
std::shared_ptr<JXClass> JXMachine::addClassByID(double refClassID, double refClassType, double refClassStatus) { return {}; }
double JXMachine::classIDFromObjectID(double ObjectID) { return {}; }
std::shared_ptr<JXClass> JXMachine::getClassByObjectID(double ObjectID) { return {}; }
std::shared_ptr<JXClass> JXMachine::getEventClassFromClass(const std::shared_ptr<JXClass>& refClass) { return {}; }
bool JXMachine::redefineClass(const std::string& ClassName, const std::string& ClassBytes) { return {}; }
bool JXMachine::isPossibleClass(const std::string& refName) const { return {}; }
std::vector<JDWPModifier> JXMachine::getExcludeModifier() const { return {}; }
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
void JXMachine::refreshFrameID(bool bIgnoreError) {}
int32_t JXMachine::getStackCount() { return {}; }
std::vector<std::vector<std::string>> JXMachine::getStackTrace() { return {}; }
bool JXMachine::PopFrame() { return {}; }
std::string JXMachine::getValue(const std::string& TargetVar, const std::string& PossibleStaticClass) { return {}; }
JDWPJVarValue JXMachine::getValueFromLocalTable(const std::string& TargetVar, const std::shared_ptr<JXMethod>& tmpMethod, const std::shared_ptr<JXClass>& tmpClass) { return {}; }
JDWPJVarValue JXMachine::getValueFromMethodCall(double ObjectID, double ClassID, double MethodID, bool MethodIsStatic, bool bForce) { return {}; }
int32_t JXMachine::classCount() const { return {}; }
void JXMachine::registerWaitingBreakpoints(const std::shared_ptr<JXClass>& refClass) {}
JDWPJVarValue JXMachine::evaluateElement(const std::string& name, double& objectID, const std::shared_ptr<JXMethod>& currentMethod, std::shared_ptr<JXClass>& currentClass, const std::string& PossibleStaticClass) { return {}; }
JDWPJVarValue JXMachine::getFieldValue(const std::string& name, const std::shared_ptr<JXClass>& cls, double objectID) { return {}; }
void JXMachine::holdOrRelease(bool hold, int16_t ErrCount) {}
} // namespace jdwpkrvdbg
