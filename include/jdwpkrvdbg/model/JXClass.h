// One debuggee class: known by its reference-type id and JNI signature, with
// its methods and fields fetched from the VM the first time one is asked for
// and its superclass fetched once. Class names come in three forms: the
// signature (Lpkg/Name;), the internal name (pkg/Name) and the display form
// (pkg#Name), used only in the load message.
#pragma once

#include <memory>
#include <string>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"
#include "jdwpkrvdbg/support/cHive.h"

namespace jdwpkrvdbg {

class JXField;
class JXMethod;

class JXClass : public std::enable_shared_from_this<JXClass> {
public:
    JXClass();

    double ClassID = 0;
    double ClassTypeTag = 0;
    std::string ClassSignature;
    std::string ClassGenericSignature;
    double ClassStatus = 0;
    double SuperClassID = -1; // -1: not yet known

    void redefine();
    void refreshSignature(bool OnlyIfUnknown = false);
    std::string ClassName();
    bool equalName(const std::string& refName) const;
    std::string RealClassName();
    std::shared_ptr<JXClass> SuperClass();

    bool addField(const std::shared_ptr<JXField>& RefField);
    bool addMethod(const std::shared_ptr<JXMethod>& RefMethod);

    std::shared_ptr<JXField> JField(const std::string& FieldName);
    std::shared_ptr<JXMethod> JMethod(const std::string& MethodNameAndSig);
    std::shared_ptr<JXMethod> JMethodID(double MethodID);
    std::shared_ptr<JXMethod> JMethodWithoutParams(const std::string& MethodName);
    bool SrcLineToLocation(double LineNr, JDWPJLocation& ret);

    // All methods / fields in table order (loads them).
    std::vector<std::shared_ptr<JXMethod>> methods();
    std::vector<std::shared_ptr<JXField>> fields();

private:
    bool fieldsLoaded();
    bool methodsLoaded();
    void fetchSuperClass();

    bool bSuperClassAsked_ = false;
    // The VM's field list has been read (it may have been empty).
    bool bFieldsKnown_ = false;
    std::string myRealClassName_;
    std::unique_ptr<cHive<std::shared_ptr<JXField>>> myFieldsByName_;
    std::unique_ptr<cHive<std::shared_ptr<JXField>>> myFieldsByID_;
    std::unique_ptr<cHive<std::shared_ptr<JXMethod>>> myMethodsByName_;
    std::unique_ptr<cHive<std::shared_ptr<JXMethod>>> myMethodsByID_;
    std::shared_ptr<JXClass> mySuperClass_;
};

} // namespace jdwpkrvdbg
