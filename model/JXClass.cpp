// A debuggee class in the model: its name forms, its superclass (fetched
// once) and its methods and fields, fetched the first time one is asked for.
// The reply decoders fill the tables through addField / addMethod on the
// class registered under the reply's class id, so a lazy load re-reads the
// tables after its request instead of looking at the reply.
#include "jdwpkrvdbg/model/JXClass.h"

#include "ModelText.h"
#include "jdwpkrvdbg/model/JXField.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"

namespace jdwpkrvdbg {

using model_detail::lowerText;
using model_detail::replyOk;
using model_detail::requestSync;

namespace {
// A hand-made or corrupt hierarchy must not make a superclass walk endless.
constexpr int kMaxHierarchyDepth = 512;
} // namespace

JXClass::JXClass()
{
    redefine();
}

void JXClass::redefine()
{
    SuperClassID = -1;
    myFieldsByName_ = std::make_unique<cHive<std::shared_ptr<JXField>>>();
    myFieldsByID_ = std::make_unique<cHive<std::shared_ptr<JXField>>>();
    myMethodsByName_ = std::make_unique<cHive<std::shared_ptr<JXMethod>>>();
    myMethodsByID_ = std::make_unique<cHive<std::shared_ptr<JXMethod>>>();
    bFieldsKnown_ = false;
}

void JXClass::refreshSignature(bool OnlyIfUnknown)
{
    if (!ClassSignature.empty() && OnlyIfUnknown)
        return;
    // Id 0 names no class; asking the VM about it only costs a time-out.
    if (ClassID == 0)
        return;
    auto reply = requestSync(getCurrentHandler()->myFactory()->createGetSignatureMessage(ClassID));
    if (!reply)
        return;
    const std::string signature = reply->myDataContainer()->RequestUTF8String;
    if (!signature.empty())
        ClassSignature = signature;
}

std::string JXClass::ClassName()
{
    refreshSignature(true);
    // Intended: no check that the signature starts with "L".
    if (ClassSignature.size() < 2)
        return {};
    return ClassSignature.substr(1, ClassSignature.size() - 2);
}

bool JXClass::equalName(const std::string& refName) const
{
    return ClassSignature == refName || ClassSignature == "L" + refName + ";";
}

std::string JXClass::RealClassName()
{
    if (myRealClassName_.empty()) {
        auto super = SuperClass();
        // Only a found superclass is cached, so a failed fetch is retried.
        if (!super)
            return "L;";
        super->refreshSignature(true);
        myRealClassName_ = "L" + super->ClassName() + ";";
    }
    return myRealClassName_;
}

void JXClass::fetchSuperClass()
{
    if (bSuperClassAsked_)
        return;
    auto reply = requestSync(getCurrentHandler()->myFactory()->createGetSuperClassMessage(ClassID));
    if (!replyOk(reply))
        return;
    bSuperClassAsked_ = true;
    SuperClassID = reply->myDataContainer()->RequestClassID;
    if (SuperClassID != 0) {
        auto jvm = getCurrentHandler()->myJVM();
        if (!jvm->getClassByID(SuperClassID, false))
            jvm->addClassByID(SuperClassID);
    }
}

std::shared_ptr<JXClass> JXClass::SuperClass()
{
    if (SuperClassID == -1 && ClassName() != "java/lang/Object")
        fetchSuperClass();
    // 0 (an interface's or Object's answer) names no class.
    if (ClassID != 0 && SuperClassID > 0 && !mySuperClass_) {
        auto super = getCurrentHandler()->myJVM()->getClassByID(SuperClassID, true);
        // Only a broken reply makes a class its own ancestor; linking it
        // would make the classes own each other and never be freed.
        int depth = 0;
        for (auto c = super; c && depth < kMaxHierarchyDepth; c = c->mySuperClass_, ++depth) {
            if (c.get() == this) {
                super.reset();
                break;
            }
        }
        mySuperClass_ = super;
    }
    return mySuperClass_;
}

bool JXClass::addField(const std::shared_ptr<JXField>& RefField)
{
    if (!RefField)
        return false;
    // A duplicate key leaves the first entry; that is not an error here.
    const bool added = myFieldsByName_->Add(RefField, lowerText(RefField->FieldName));
    myFieldsByID_->Add(RefField, NumberText(RefField->FieldID) + "id");
    return added;
}

bool JXClass::addMethod(const std::shared_ptr<JXMethod>& RefMethod)
{
    if (!RefMethod)
        return false;
    const bool added = myMethodsByName_->Add(RefMethod, RefMethod->MethodName + RefMethod->MethodSignature);
    myMethodsByID_->Add(RefMethod, NumberText(RefMethod->MethodID) + "id");
    return added;
}

bool JXClass::fieldsLoaded()
{
    // A class without fields (java.lang.Object, the top of every walk up
    // the hierarchy) is asked once, like any other.
    if (!bFieldsKnown_ && myFieldsByName_->Count() == 0 && ClassID != 0)
        bFieldsKnown_ = replyOk(requestSync(getCurrentHandler()->myFactory()->createGetFieldsMessage(ClassID)));
    return myFieldsByName_->Count() > 0;
}

bool JXClass::methodsLoaded()
{
    if (myMethodsByName_->Count() == 0 && ClassID != 0)
        requestSync(getCurrentHandler()->myFactory()->createGetMethodsMessage(ClassID));
    return myMethodsByName_->Count() > 0;
}

std::shared_ptr<JXField> JXClass::JField(const std::string& FieldName)
{
    if (FieldName.empty() || !fieldsLoaded())
        return nullptr;
    return myFieldsByName_->Item(lowerText(FieldName));
}

std::shared_ptr<JXMethod> JXClass::JMethod(const std::string& MethodNameAndSig)
{
    if (MethodNameAndSig.empty() || !methodsLoaded())
        return nullptr;
    return myMethodsByName_->Item(MethodNameAndSig);
}

std::shared_ptr<JXMethod> JXClass::JMethodID(double MethodID)
{
    if (!methodsLoaded())
        return nullptr;
    return myMethodsByID_->Item(NumberText(MethodID) + "id");
}

std::shared_ptr<JXMethod> JXClass::JMethodWithoutParams(const std::string& MethodName)
{
    const std::string wanted = lowerText(MethodName);
    const std::string marked = model_detail::kNameMarker + wanted;
    // The recursion into the superclass, written as a bounded walk.
    std::shared_ptr<JXClass> cls; // keeps the superclass being searched alive
    JXClass* current = this;
    for (int depth = 0; current && depth < kMaxHierarchyDepth; ++depth) {
        if (current->methodsLoaded()) {
            auto& table = *current->myMethodsByName_;
            for (int32_t i = 1; i <= table.Count(); ++i) {
                auto method = table.ItemIDX(i);
                if (!method)
                    continue;
                // Baseline: the first name match is accepted whatever its
                // signature.
                const std::string name = lowerText(method->MethodName);
                if (name == wanted || name == marked)
                    return method;
            }
        }
        cls = current->SuperClass();
        current = cls.get();
    }
    return nullptr;
}

bool JXClass::SrcLineToLocation(double LineNr, JDWPJLocation& ret)
{
    if (!methodsLoaded())
        return false;
    auto& table = *myMethodsByName_;
    for (int32_t i = 1; i <= table.Count(); ++i) {
        auto method = table.ItemIDX(i);
        if (method && method->SrcLineToLocation(LineNr, ret))
            return true;
    }
    return false;
}

namespace {

template <typename T>
std::vector<std::shared_ptr<T>> itemsOf(const cHive<std::shared_ptr<T>>& hive)
{
    std::vector<std::shared_ptr<T>> out;
    for (int32_t i = 1; i <= hive.Count(); ++i)
        if (auto item = hive.ItemIDX(i))
            out.push_back(item);
    return out;
}

} // namespace

std::vector<std::shared_ptr<JXMethod>> JXClass::methods()
{
    return methodsLoaded() ? itemsOf(*myMethodsByName_) : std::vector<std::shared_ptr<JXMethod>>{};
}

std::vector<std::shared_ptr<JXField>> JXClass::fields()
{
    return fieldsLoaded() ? itemsOf(*myFieldsByName_) : std::vector<std::shared_ptr<JXField>>{};
}

} // namespace jdwpkrvdbg
