// JXMachine, part: the class registry. Each class is entered twice in the
// class table, under its internal name + "NAME#" and under its id text +
// "ID#"; object ids are mapped to class ids in a cache. Classes enter the
// table from class-prepare events (addClass with printInfo) or on demand
// through the lookups with addClass true. Also the include/exclude class
// filters and the redefinition of a class.
#include "jdwpkrvdbg/model/JXMachine.h"

#include <algorithm>
#include <unordered_set>

#include "ModelText.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThreadList.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"

namespace jdwpkrvdbg {

using model_detail::replyOk;
using model_detail::requestSync;

namespace {

const char* const kDebugClassName = "VB/Debug";

std::string nameKey(const std::string& internalName)
{
    return internalName + "NAME#";
}

std::string idKey(double classID)
{
    return NumberText(classID) + "ID#";
}

// Internal form of a name given in signature form ("Lpkg/Name;"); a name
// that does not end with ";" is taken as internal already. Too short a
// signature gives the empty name.
std::string internalName(const std::string& name)
{
    if (name.empty() || name.back() != ';')
        return name;
    if (name.size() < 3)
        return {};
    return name.substr(1, name.size() - 2);
}

// Display form: "/" becomes "#" (the replacement character is intended).
std::string displayName(std::string name)
{
    std::replace(name.begin(), name.end(), '/', '#');
    return name;
}

} // namespace

cHive<std::shared_ptr<JXClass>>& JXMachine::classes()
{
    if (!myClasses)
        myClasses = std::make_unique<cHive<std::shared_ptr<JXClass>>>();
    return *myClasses;
}

cHive<double>& JXMachine::objectClasses()
{
    if (!myObjectClasses)
        myObjectClasses = std::make_unique<cHive<double>>();
    return *myObjectClasses;
}

bool JXMachine::addClass(const std::shared_ptr<JXClass>& refClass, bool printInfo)
{
    if (!refClass)
        return false;
    const std::string name = refClass->ClassName();
    if (refClass->ClassID == 0 && name.empty())
        return false;
    if (!name.empty()) {
        // A duplicate key keeps the first entry; not an error.
        classes().Add(refClass, nameKey(name));
        classes().Add(refClass, idKey(refClass->ClassID));
    } else if (!refClass->ClassSignature.empty()) {
        // An array of a primitive type ([I) has no name; kept under its id,
        // so that its signature, which never changes, is asked only once.
        classes().Add(refClass, idKey(refClass->ClassID));
    }
    if (name == kDebugClassName) {
        registerDebugClass(refClass);
    } else if (printInfo) {
        if (name.find('$') == std::string::npos)
            printDebug(" *** Load " + displayName(name));
        // Nested, local and anonymous classes hold lines of their file too:
        // a breakpoint set on one before it loads waits for its prepare.
        registerWaitingBreakpoints(refClass);
    }
    return true;
}

std::shared_ptr<JXClass> JXMachine::getClassByName(const std::string& ClassName, bool addClass)
{
    const std::string internal = internalName(ClassName);
    std::shared_ptr<JXClass> found;
    if (!internal.empty())
        found = classes().Item(nameKey(internal));
    if (!found && addClass)
        return addClassByName(ClassName);
    return found;
}

std::shared_ptr<JXClass> JXMachine::getClassByID(double ClassID, bool addClass)
{
    std::shared_ptr<JXClass> found = classes().Item(idKey(ClassID));
    // 0 and -1 name no class, so there is nothing to ask the VM about.
    if (!found && addClass && ClassID > 0)
        return addClassByID(ClassID);
    return found;
}

std::shared_ptr<JXClass> JXMachine::addClassByName(const std::string& refClassName)
{
    if (refClassName.size() < 3)
        return nullptr;
    if (auto found = getClassByName(refClassName, false))
        return found;
    // The VM knows classes by signature only, so an internal name (pkg/Name)
    // is asked as Lpkg/Name;. Sent bare it never matches: a class loaded
    // before an attach (whose prepare event never came) could not be found,
    // and its breakpoints would never be set.
    std::string signature = refClassName;
    if (signature.back() != ';' && signature.front() != '[')
        signature = "L" + signature + ";";
    auto reply = requestSync(getCurrentHandler()->myFactory()->createGetClassIDBySignatureMessage(signature));
    if (!replyOk(reply))
        return nullptr;
    const auto& data = reply->myDataContainer();
    // -1: no class of that signature is loaded.
    if (!(data->RequestClassID > 0))
        return nullptr;
    return addClassByID(data->RequestClassID, data->RequestClassTypeTag, data->RequestClassStatus);
}

std::shared_ptr<JXClass> JXMachine::addClassByID(double refClassID, double refClassType, double refClassStatus)
{
    // A class already in the table is handed out instead of a second object:
    // the reply decoders fill the registered object, so a twin would never
    // see its methods and fields.
    if (refClassID > 0)
        if (auto found = classes().Item(idKey(refClassID)))
            return found;
    auto cls = std::make_shared<JXClass>();
    cls->ClassID = refClassID;
    cls->ClassTypeTag = refClassType;
    cls->ClassStatus = refClassStatus;
    addClass(cls);
    return cls;
}

double JXMachine::classIDFromObjectID(double ObjectID)
{
    // 0 is the null object. The VM does not check it in ReferenceType: asked
    // about it, OpenJDK 17 crashes, so it is never sent.
    if (!(ObjectID > 0))
        return 0;
    const std::string key = NumberText(ObjectID);
    const int32_t index = objectClasses().getHashIndex(key);
    if (index > 0)
        return objectClasses().ItemIDX(index);
    auto reply = requestSync(getCurrentHandler()->myFactory()->createGetReferenceTypeMessage(ObjectID));
    if (!replyOk(reply))
        return 0;
    const double classID = reply->myDataContainer()->RequestClassID;
    if (!(classID > 0))
        return 0;
    objectClasses().Add(classID, key);
    addClassByID(classID);
    return classID;
}

std::shared_ptr<JXClass> JXMachine::getClassByObjectID(double ObjectID)
{
    return getClassByID(classIDFromObjectID(ObjectID), true);
}

std::shared_ptr<JXClass> JXMachine::getEventClassFromClass(const std::shared_ptr<JXClass>& refClass)
{
    if (!refClass)
        return nullptr;
    // A class keeps its signature for as long as its id is valid, so a
    // signature already known is not asked for again (one round trip less
    // per object in a dotted path).
    refClass->refreshSignature(true);
    // A generated inner class ("$") stands for the class it extends.
    if (refClass->ClassName().find('$') != std::string::npos)
        return getClassByName(refClass->RealClassName(), true);
    return refClass;
}

bool JXMachine::redefineClass(const std::string& ClassName, const std::string& ClassBytes)
{
    auto cls = getClassByName(ClassName, true);
    if (!cls)
        return false;
    auto reply = requestSync(getCurrentHandler()->myFactory()->createClassRedefineMessage(cls->ClassID, ClassBytes));
    if (!replyOk(reply))
        return false;
    cls->redefine();
    // The code indexes of the old breakpoints are stale: clear them and set
    // them again against the new line tables. Entries may name the class in
    // either form.
    const std::string internal = internalName(ClassName);
    std::vector<std::shared_ptr<JXBreakpoint>> entries = removeBreakpointByClass(internal);
    for (auto& bp : removeBreakpointByClass("L" + internal + ";"))
        entries.push_back(bp);
    for (const auto& bp : entries) {
        if (!bp)
            continue;
        if (bp->StopPoint)
            addStopPoint(bp->ClassName, bp->MethodName, bp->Offset);
        else
            addBreakpoint(bp->ClassName, bp->LineNr);
    }
    return true;
}

namespace {
// An include name with '*' at its start or end is a pattern as the VM's
// class filters know them ("com.acme.*", "*.Main", "*"), in either the
// dotted or the internal form; it matches the internal name of a class. Any
// other name matches exactly.
bool includeMatches(const std::string& include, const std::string& internalName)
{
    const bool leading = !include.empty() && include.front() == '*';
    const bool trailing = include.size() > 1 && include.back() == '*';
    if (!leading && !trailing)
        return include == internalName;
    std::string core = include.substr(leading ? 1 : 0, include.size() - (leading ? 1 : 0) - (trailing ? 1 : 0));
    std::replace(core.begin(), core.end(), '.', '/');
    if (core.size() > internalName.size())
        return false;
    if (leading && trailing)
        return internalName.find(core) != std::string::npos;
    if (trailing)
        return internalName.compare(0, core.size(), core) == 0;
    return internalName.compare(internalName.size() - core.size(), core.size(), core) == 0;
}
} // namespace

bool JXMachine::isPossibleClass(const std::string& refName) const
{
    if (refName == kDebugClassName)
        return false;
    return std::any_of(myIncludeClassNames.begin(), myIncludeClassNames.end(),
                       [&](const std::string& include) { return includeMatches(include, refName); });
}

std::vector<JDWPModifier> JXMachine::getExcludeModifier() const
{
    std::vector<JDWPModifier> out;
    out.reserve(myExcludeClassNames.size());
    for (const std::string& pattern : myExcludeClassNames) {
        JDWPModifier m;
        m.Kind = MK_ClassExclude;
        m.RefString = pattern;
        out.push_back(m);
    }
    return out;
}

int32_t JXMachine::classCount() const
{
    if (!myClasses)
        return 0;
    // Each class is entered under two keys; count the objects.
    std::unordered_set<const JXClass*> seen;
    for (int32_t i = 1; i <= myClasses->Count(); ++i)
        if (auto cls = myClasses->ItemIDX(i))
            seen.insert(cls.get());
    return static_cast<int32_t>(seen.size());
}

} // namespace jdwpkrvdbg
