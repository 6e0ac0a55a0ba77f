// JXMachine, part: the class registry (stub).
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThreadList.h"

namespace jdwpkrvdbg {
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
int32_t JXMachine::classCount() const { return {}; }
} // namespace jdwpkrvdbg
