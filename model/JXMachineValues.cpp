// JXMachine, part: value inspection and the stack (stub).
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThreadList.h"

namespace jdwpkrvdbg {
void JXMachine::refreshFrameID(bool bIgnoreError) {}
int32_t JXMachine::getStackCount() { return {}; }
std::vector<std::vector<std::string>> JXMachine::getStackTrace() { return {}; }
bool JXMachine::PopFrame() { return {}; }
std::string JXMachine::getValue(const std::string& TargetVar, const std::string& PossibleStaticClass) { return {}; }
JDWPJVarValue JXMachine::getValueFromLocalTable(const std::string& TargetVar, const std::shared_ptr<JXMethod>& tmpMethod, const std::shared_ptr<JXClass>& tmpClass) { return {}; }
JDWPJVarValue JXMachine::getValueFromMethodCall(double ObjectID, double ClassID, double MethodID, bool MethodIsStatic, bool bForce) { return {}; }
JDWPJVarValue JXMachine::evaluateElement(const std::string& name, double& objectID, const std::shared_ptr<JXMethod>& currentMethod, std::shared_ptr<JXClass>& currentClass, const std::string& PossibleStaticClass) { return {}; }
JDWPJVarValue JXMachine::getFieldValue(const std::string& name, const std::shared_ptr<JXClass>& cls, double objectID) { return {}; }
} // namespace jdwpkrvdbg
