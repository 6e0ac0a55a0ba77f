// JXClass (stub).
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXField.h"
#include "jdwpkrvdbg/model/JXMethod.h"

namespace jdwpkrvdbg {
JXClass::JXClass() {}
void JXClass::redefine() {}
void JXClass::refreshSignature(bool OnlyIfUnknown) {}
std::string JXClass::ClassName() { return {}; }
bool JXClass::equalName(const std::string& refName) const { return {}; }
std::string JXClass::RealClassName() { return {}; }
std::shared_ptr<JXClass> JXClass::SuperClass() { return {}; }
bool JXClass::addField(const std::shared_ptr<JXField>& RefField) { return {}; }
bool JXClass::addMethod(const std::shared_ptr<JXMethod>& RefMethod) { return {}; }
std::shared_ptr<JXField> JXClass::JField(const std::string& FieldName) { return {}; }
std::shared_ptr<JXMethod> JXClass::JMethod(const std::string& MethodNameAndSig) { return {}; }
std::shared_ptr<JXMethod> JXClass::JMethodID(double MethodID) { return {}; }
std::shared_ptr<JXMethod> JXClass::JMethodWithoutParams(const std::string& MethodName) { return {}; }
bool JXClass::SrcLineToLocation(double LineNr, JDWPJLocation& ret) { return {}; }
std::vector<std::shared_ptr<JXMethod>> JXClass::methods() { return {}; }
std::vector<std::shared_ptr<JXField>> JXClass::fields() { return {}; }
bool JXClass::fieldsLoaded() { return {}; }
bool JXClass::methodsLoaded() { return {}; }
void JXClass::fetchSuperClass() {}
} // namespace jdwpkrvdbg
