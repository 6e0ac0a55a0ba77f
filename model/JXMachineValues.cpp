// JXMachine, part: value inspection and the stack. Evaluates dotted
// expressions over locals, fields, getter methods and statics while the VM is
// suspended, reads the current thread's frames and pops the top frame.
#include <cstdlib>

#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXField.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/platform/Clock.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

constexpr int32_t kWait = 4000;

bool succeeded(const std::shared_ptr<JDWPMessage>& reply)
{
    return reply && reply->myErrorCode == 0;
}

// The first value of a reply, marked found.
JDWPJVarValue firstValue(const std::shared_ptr<JDWPMessage>& reply)
{
    JDWPJVarValue value;
    if (!succeeded(reply) || !reply->hasDataContainer())
        return value;
    const auto& values = reply->myDataContainer()->requestVar();
    if (values.empty())
        return value;
    value = values.front();
    value.Found = true;
    return value;
}

// Numeric as the host's language sees it: optional blanks and sign, digits
// with at most one decimal point, an optional exponent.
bool isNumeric(const std::string& text)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    std::strtod(text.c_str(), &end);
    while (end && (*end == ' ' || *end == '\t'))
        ++end;
    return end && *end == '\0' && end != text.c_str();
}

} // namespace

void JXMachine::refreshFrameID(bool bIgnoreError)
{
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    auto frames = handler->sendSync(factory->createGetFrameMessage(myCurrentThreadID, 0, 1), kWait);
    if (frames) {
        if (frames->myErrorCode == 0) {
            const auto& list = frames->myDataContainer()->requestFrame();
            if (!list.empty())
                myCurrentFrameID = list.front().FrameID;
        } else if (!bIgnoreError) {
            refreshFrameID(true);
        }
    }
    auto self = handler->sendSync(factory->createGetThisMessage(myCurrentThreadID, myCurrentFrameID), kWait);
    if (succeeded(self)) {
        myThisObjectID = self->myDataContainer()->RequestObjectID;
        myFrameValid = true;
    } else if (!bIgnoreError) {
        refreshFrameID(true);
    }
}

int32_t JXMachine::getStackCount()
{
    auto handler = getCurrentHandler();
    auto reply = handler->sendSync(handler->myFactory()->createGetFrameCountMessage(myCurrentThreadID), kWait);
    if (!reply || !reply->hasDataContainer())
        return 0;
    return static_cast<int32_t>(std::llround(reply->myDataContainer()->RequestFrameCount));
}

std::vector<std::vector<std::string>> JXMachine::getStackTrace()
{
    std::vector<std::vector<std::string>> trace;
    const int32_t count = getStackCount();
    auto handler = getCurrentHandler();
    auto reply = handler->sendSync(handler->myFactory()->createGetFrameMessage(myCurrentThreadID, 0, count), kWait);
    if (!reply || !reply->hasDataContainer())
        return trace;
    const auto frames = reply->myDataContainer()->requestFrame();
    for (const auto& frame : frames) {
        std::vector<std::string> row(5);
        const JDWPJLocation& location = frame.FrameLocation;
        row[0] = NumberText(location.Index);
        auto cls = getClassByID(location.ClassID);
        if (!cls) {
            addClassByID(location.ClassID);
            cls = getClassByID(location.ClassID);
            if (cls)
                cls->refreshSignature();
        }
        if (!cls) {
            row[1] = "???";
            row[2] = "???";
            trace.push_back(std::move(row));
            continue;
        }
        row[1] = cls->ClassName();
        auto method = cls->JMethodID(location.MethodID);
        if (!method) {
            row[2] = "???";
            trace.push_back(std::move(row));
            continue;
        }
        row[2] = method->MethodName;
        row[3] = method->MethodSignature;
        double line = 0;
        if (method->LocationToSrcLine(location, line))
            row[4] = NumberText(line);
        trace.push_back(std::move(row));
    }
    return trace;
}

bool JXMachine::PopFrame()
{
    auto handler = getCurrentHandler();
    return succeeded(
        handler->sendSync(handler->myFactory()->createPopFrameMessage(myCurrentThreadID, myCurrentFrameID), kWait));
}

JDWPJVarValue JXMachine::getValueFromLocalTable(const std::string& TargetVar, const std::shared_ptr<JXMethod>& tmpMethod,
                                                const std::shared_ptr<JXClass>& tmpClass)
{
    JDWPJVarValue notFound;
    if (!tmpMethod)
        return notFound;
    const JDWPJVariableTableSlot slot = tmpMethod->getVarSlot(TargetVar);
    if (slot.vt_name.empty())
        return notFound;
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    auto reply = handler->sendSync(
        factory->createGetValue(myCurrentThreadID, myCurrentFrameID, slot.vt_slot, slot.vt_signature), kWait);
    if (!reply)
        return notFound;
    if (reply->myErrorCode == ERR_INVALID_SLOT)
        return notFound;
    if (reply->myErrorCode == ERR_INVALID_FRAMEID) {
        refreshFrameID();
        reply = handler->sendSync(
            factory->createGetValue(myCurrentThreadID, myCurrentFrameID, slot.vt_slot, slot.vt_signature), kWait);
    }
    return firstValue(reply);
}

JDWPJVarValue JXMachine::getValueFromMethodCall(double ObjectID, double ClassID, double MethodID, bool MethodIsStatic,
                                                bool bForce)
{
    JDWPJVarValue notFound;
    if (!bForce && isInvokeInProcess())
        return notFound;
    // The stamp makes the event decoder resume, rather than report, the
    // events that the invocation causes; it expires by itself after 2 s.
    myInvokeInProcessMsg = static_cast<int32_t>(GetTickCount());
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    std::shared_ptr<JDWPMessage> request;
    if (MethodIsStatic) {
        request = factory->createInvokeStaticMethodMessage(ClassID, myCurrentThreadID, MethodID);
    } else {
        if (ObjectID == 0)
            return notFound;
        request = factory->createInvokeMethodMessage(ObjectID, myCurrentThreadID, ClassID, MethodID);
    }
    return firstValue(handler->sendSync(request, kWait));
}

JDWPJVarValue JXMachine::getFieldValue(const std::string& name, const std::shared_ptr<JXClass>& cls, double objectID)
{
    JDWPJVarValue notFound;
    if (!cls)
        return notFound;
    auto field = cls->JField(name);
    if (!field)
        return notFound;
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    std::shared_ptr<JDWPMessage> request;
    if (field->isStatic()) {
        request = factory->createGetStaticFieldValueMessage(cls->ClassID, field->FieldID);
    } else {
        if (objectID == 0)
            return notFound;
        request = factory->createGetFieldValueMessage(objectID, field->FieldID);
    }
    return firstValue(handler->sendSync(request, kWait));
}

JDWPJVarValue JXMachine::evaluateElement(const std::string& name, double& objectID,
                                         const std::shared_ptr<JXMethod>& currentMethod,
                                         std::shared_ptr<JXClass>& currentClass, const std::string& PossibleStaticClass)
{
    JDWPJVarValue r;
    if (objectID == 0) {
        r = getValueFromLocalTable(name, currentMethod, currentClass);
        if (r.Found)
            return r;
        if (myThisObjectID != 0) {
            auto objectClass = getClassByObjectID(myThisObjectID);
            auto cls = objectClass ? getEventClassFromClass(objectClass) : nullptr;
            if (!cls)
                return JDWPJVarValue();
            if (auto getter = cls->JMethodWithoutParams("$" + name)) {
                r = getValueFromMethodCall(myThisObjectID, cls->ClassID, getter->MethodID, getter->isStatic());
                if (r.Found)
                    return r;
            }
            r = getFieldValue(name, cls, myThisObjectID);
            if (r.Found)
                return r;
            auto super = cls->SuperClass();
            for (int level = 0; super && level < 2; ++level) {
                r = getFieldValue(name, super, myThisObjectID);
                if (r.Found)
                    return r;
                super = super->SuperClass();
            }
        }
        r = getFieldValue(name, currentClass, 0);
        if (r.Found)
            return r;
        if (!mySaveMode && currentClass) {
            if (auto method = currentClass->JMethodWithoutParams(name)) {
                r = getValueFromMethodCall(myThisObjectID, currentClass->ClassID, method->MethodID, method->isStatic());
                if (r.Found)
                    return r;
            }
        }
        auto staticClass = getCurrentHandler()->myJVM()->getClassByName(PossibleStaticClass, true);
        if (!staticClass)
            return JDWPJVarValue();
        currentClass = staticClass;
        if (auto method = staticClass->JMethodWithoutParams(name)) {
            r = getValueFromMethodCall(myThisObjectID, staticClass->ClassID, method->MethodID, method->isStatic());
            if (r.Found)
                return r;
        }
        return getFieldValue(name, staticClass, 0);
    }
    auto objectClass = getClassByObjectID(objectID);
    auto cls = objectClass ? getEventClassFromClass(objectClass) : nullptr;
    if (!cls)
        return JDWPJVarValue();
    r = getFieldValue(name, cls, objectID);
    if (r.Found)
        return r;
    if (!mySaveMode) {
        if (auto method = cls->JMethodWithoutParams(name))
            return getValueFromMethodCall(objectID, cls->ClassID, method->MethodID, method->isStatic());
    }
    return JDWPJVarValue();
}

std::string JXMachine::getValue(const std::string& TargetVar, const std::string& PossibleStaticClass)
{
    if (myEvaluating)
        return std::string();
    // Both guards hold for the whole evaluation and are cleared on every exit.
    struct Guard {
        JXMachine& m;
        explicit Guard(JXMachine& machine) : m(machine) { m.myEvaluating = m.myMuteStateEvents = true; }
        ~Guard() { m.myEvaluating = m.myMuteStateEvents = false; }
    } guard(*this);

    std::shared_ptr<JXClass> currentClass = getClassByID(myCurrentClassID, true);
    std::shared_ptr<JXMethod> currentMethod = currentClass ? currentClass->JMethodID(myCurrentMethodID) : nullptr;
    if (!currentClass || !currentMethod || TargetVar.empty() || TargetVar.find(':') != std::string::npos ||
        TargetVar.find('=') != std::string::npos || TargetVar[0] == '"' || isNumeric(TargetVar))
        return std::string();
    std::string target;
    for (char c : TargetVar)
        if (c != '\r' && c != '\n')
            target += c;

    std::string result;
    if (!myFrameValid) {
        refreshFrameID();
        if (!myFrameValid) {
            // "VMDEAD" is written and then overwritten by the common exit,
            // which copies the still empty text: the host gets ""; intended.
            result = "VMDEAD";
            return std::string();
        }
    }

    std::vector<std::string> elements;
    for (size_t start = 0;;) {
        size_t dot = target.find('.', start);
        elements.push_back(target.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    std::string path;
    std::string pending;
    double objectID = 0;
    const size_t last = elements.size() - 1;
    for (size_t i = 0; i < elements.size(); ++i) {
        const std::string& element = elements[i];
        path += (path.empty() ? "" : ".") + element;
        if (element.empty())
            continue;
        JDWPJVarValue r = evaluateElement(element, objectID, currentMethod, currentClass, PossibleStaticClass);
        std::string text = ReplaceAll(r.VarValue, "|VAR|", path);
        while (text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0)
            text.erase(text.size() - 2);
        if (!r.Found) {
            pending = path + " - Not available!";
            break;
        }
        if (r.VarType == VAR_OBJECT)
            objectID = r.RefID;
        std::string line;
        if (i == last) {
            if (myMaxValueSize >= 0 && text.size() > static_cast<size_t>(myMaxValueSize))
                text.resize(static_cast<size_t>(myMaxValueSize));
            text = ReplaceAll(text, "#", "{~}");
            line = i > 0 ? "#" + path + ": " + text + "#" : path + ": #" + text + "#";
        } else {
            line = path + ": " + text;
        }
        result = line + result;
        if (i != last)
            result = "\r\n" + result;
        pending.clear();
    }
    if (result.compare(0, 2, "\r\n") == 0)
        result = pending + result;
    return result;
}

} // namespace jdwpkrvdbg
