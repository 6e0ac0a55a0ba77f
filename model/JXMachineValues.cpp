// JXMachine, part: value inspection and the stack. Evaluates dotted
// expressions over locals, fields, getter methods and statics while the VM is
// suspended, reads the current thread's frames and pops the top frame.
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "JXCondition.h"
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
#include "jdwpkrvdbg/session/JDWPLimits.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

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

// Numeric when written as a number: optional blanks around an optional
// sign, digits with at most one decimal point (at least one digit), and an
// optional exponent with digits. What the C library would also parse (nan,
// inf, infinity, hexadecimal) are names.
bool isNumeric(const std::string& text)
{
    size_t i = 0;
    const size_t n = text.size();
    auto blanks = [&] {
        while (i < n && (text[i] == ' ' || text[i] == '\t'))
            ++i;
    };
    auto digits = [&] {
        const size_t start = i;
        while (i < n && text[i] >= '0' && text[i] <= '9')
            ++i;
        return i - start;
    };
    blanks();
    if (i < n && (text[i] == '+' || text[i] == '-'))
        ++i;
    size_t mantissa = digits();
    if (i < n && text[i] == '.') {
        ++i;
        mantissa += digits();
    }
    if (mantissa == 0)
        return false;
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < n && (text[i] == '+' || text[i] == '-'))
            ++i;
        if (digits() == 0)
            return false;
    }
    blanks();
    return i == n;
}

// The error code of a reply compared with a JDWP code in either byte order:
// the socket framing reads the code's two bytes little-endian (kept so, for
// what myErrorCode shows), the shared-memory framing as they are meant.
bool hasError(const std::shared_ptr<JDWPMessage>& reply, JDWPErrorCodes code)
{
    if (!reply)
        return false;
    const int32_t c = static_cast<int32_t>(code);
    const int32_t swapped = ((c & 0xFF) << 8) | ((c >> 8) & 0xFF);
    const int32_t got = static_cast<int32_t>(reply->myErrorCode);
    return got == c || got == swapped;
}

// A value that is not the program's but says in words why there is none.
JDWPJVarValue wordsValue(const std::string& words, bool found)
{
    JDWPJVarValue value;
    value.VarType = VAR_VOID;
    value.VarValue = words;
    value.Found = found;
    return value;
}

} // namespace

void JXMachine::refreshFrameID(bool bIgnoreError)
{
    myThisKnown_ = false;
    myThisObjectID = 0;
    if (predictFrameID())
        return;
    readFrameID(bIgnoreError);
}

bool JXMachine::predictFrameID()
{
    // Only at the first refresh of a stop, and only where the VM is known
    // to check the generation of every frame id it is given: elsewhere a
    // predicted id could name another frame.
    if (myFrameSerial_ == mySuspensionSerial_ || myCurrentMethodID == 0)
        return false;
    if (VMName.find("HotSpot") == std::string::npos && VMName.find("OpenJDK") == std::string::npos)
        return false;
    auto it = myFrameSightings_.find(myCurrentThreadID);
    if (it == myFrameSightings_.end())
        return false;
    FrameSighting& seen = it->second;
    if (seen.step == 0 || seen.serial + 1 != mySuspensionSerial_)
        return false;
    myPredictedFrom_ = seen.frameID;
    myCurrentFrameID = seen.frameID + seen.step;
    // Frame 0 is where the stop's event says the thread is.
    myFrameMethodID_ = myCurrentMethodID;
    myFrameSerial_ = mySuspensionSerial_;
    myFramePredicted_ = true;
    myFrameValid = true;
    // The prediction is the next one's base; a refused one is replaced.
    seen.serial = mySuspensionSerial_;
    seen.frameID = myCurrentFrameID;
    return true;
}

void JXMachine::readFrameID(bool bIgnoreError)
{
    auto handler = getCurrentHandler();
    auto frames = handler->sendSync(handler->myFactory()->createGetFrameMessage(myCurrentThreadID, 0, 1), kReplyWaitMs);
    if (!frames)
        return;
    if (frames->myErrorCode != 0) {
        if (!bIgnoreError)
            readFrameID(true);
        return;
    }
    const auto& list = frames->myDataContainer()->requestFrame();
    if (list.empty())
        return;
    JDWPJFrame frame = list.front();
    if (myCurrentMethodID != 0 && frame.FrameLocation.MethodID != myCurrentMethodID)
        frame = frameOfCurrentMethod(frame);
    myCurrentFrameID = frame.FrameID;
    myFrameMethodID_ = frame.FrameLocation.MethodID;
    myFrameValid = true;
    noteFrameSighting(myCurrentFrameID);
}

JDWPJFrame JXMachine::frameOfCurrentMethod(const JDWPJFrame& top)
{
    // The host named a method below the top frame: a program suspended
    // while it sleeps or waits is in a native or library frame, and the
    // host shows the program's own frame under it. Values are read there;
    // frame 0 would hold none of that method's slots. Costs a round trip
    // only when the two differ, which a stop's own place never does.
    auto handler = getCurrentHandler();
    auto frames = handler->sendSync(handler->myFactory()->createGetFrameMessage(myCurrentThreadID, 0, kAllFramesLength),
                                    kReplyWaitMs);
    if (frames && frames->myErrorCode == 0)
        for (const auto& f : frames->myDataContainer()->requestFrame())
            if (f.FrameLocation.MethodID == myCurrentMethodID && f.FrameLocation.ClassID == myCurrentClassID)
                return f;
    return top;
}

void JXMachine::noteFrameSighting(double frameID)
{
    FrameSighting& seen = myFrameSightings_[myCurrentThreadID];
    if (myFramePredicted_ && seen.serial == mySuspensionSerial_) {
        // The prediction was refused: the step from the previous stop is
        // what the VM says now.
        seen.step = frameID - myPredictedFrom_;
    } else if (seen.serial + 1 == mySuspensionSerial_ && seen.frameID != 0 && myFrameSerial_ != mySuspensionSerial_) {
        // The first id of a stop that follows the thread's previous one.
        seen.step = frameID - seen.frameID;
    }
    seen.serial = mySuspensionSerial_;
    seen.frameID = frameID;
    myFrameSerial_ = mySuspensionSerial_;
    myFramePredicted_ = false;
}

std::shared_ptr<JDWPMessage> JXMachine::askInFrame(const std::function<std::shared_ptr<JDWPMessage>(double)>& make)
{
    auto handler = getCurrentHandler();
    auto reply = handler->sendSync(make(myCurrentFrameID), kReplyWaitMs);
    if (!myFramePredicted_ || !reply)
        return reply;
    if (!hasError(reply, ERR_INVALID_FRAMEID)) {
        // The VM took the id: it names frame 0 of this stop.
        myFramePredicted_ = false;
        return reply;
    }
    const double assumedMethod = myFrameMethodID_;
    readFrameID(false);
    // A frame of another method than the stop's event named is not the one
    // the request was built for.
    if (myFramePredicted_ || !myFrameValid || myFrameMethodID_ != assumedMethod)
        return reply;
    return handler->sendSync(make(myCurrentFrameID), kReplyWaitMs);
}

double JXMachine::thisObjectID()
{
    if (myThisKnown_ || !myFrameValid)
        return myThisObjectID;
    auto factory = getCurrentHandler()->myFactory();
    auto self = askInFrame([&](double frameID) { return factory->createGetThisMessage(myCurrentThreadID, frameID); });
    if (succeeded(self)) {
        myThisObjectID = self->myDataContainer()->RequestObjectID;
        myThisKnown_ = true;
    }
    return myThisObjectID;
}

int32_t JXMachine::getStackCount()
{
    auto handler = getCurrentHandler();
    auto reply = handler->sendSync(handler->myFactory()->createGetFrameCountMessage(myCurrentThreadID), kReplyWaitMs);
    if (!reply || !reply->hasDataContainer())
        return 0;
    return static_cast<int32_t>(std::llround(reply->myDataContainer()->RequestFrameCount));
}

std::vector<std::vector<std::string>> JXMachine::getStackTrace()
{
    std::vector<std::vector<std::string>> trace;
    const int32_t count = getStackCount();
    auto handler = getCurrentHandler();
    auto reply =
        handler->sendSync(handler->myFactory()->createGetFrameMessage(myCurrentThreadID, 0, count), kReplyWaitMs);
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
    auto factory = getCurrentHandler()->myFactory();
    const bool popped = succeeded(
        askInFrame([&](double frameID) { return factory->createPopFrameMessage(myCurrentThreadID, frameID); }));
    // The frame is gone; the next evaluation asks for the new top frame
    // instead of reading the old one's slots.
    if (popped)
        myFrameValid = false;
    return popped;
}

JDWPJVarValue JXMachine::getValueFromLocalTable(const std::string& TargetVar,
                                                const std::shared_ptr<JXMethod>& tmpMethod,
                                                const std::shared_ptr<JXClass>&)
{
    bool decisive = false;
    return readLocal(TargetVar, tmpMethod, decisive);
}

JDWPJVarValue JXMachine::readLocal(const std::string& name, const std::shared_ptr<JXMethod>& method, bool& decisive)
{
    JDWPJVarValue notFound;
    decisive = false;
    if (!method)
        return notFound;
    const JDWPJVariableTableSlot slot = method->getVarSlot(name);
    if (slot.vt_name.empty())
        return notFound;
    // From here on the name is a local of the method: only "not in scope
    // at this code index" lets a field of the same name stand in.
    decisive = true;
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    auto read = [&] {
        // A frame of another method (the stop has moved: a popped frame, a
        // pause elsewhere) has other slots; reading this slot there would
        // show another variable's value.
        if (myFrameMethodID_ != 0 && myFrameMethodID_ != method->MethodID)
            return std::shared_ptr<JDWPMessage>();
        return askInFrame([&](double frameID) {
            return factory->createGetValue(myCurrentThreadID, frameID, slot.vt_slot, slot.vt_signature);
        });
    };
    auto reply = read();
    if (!reply)
        return notFound;
    if (hasError(reply, ERR_INVALID_SLOT)) {
        decisive = false;
        return notFound;
    }
    if (hasError(reply, ERR_INVALID_FRAMEID)) {
        refreshFrameID();
        reply = read();
        if (hasError(reply, ERR_INVALID_SLOT)) {
            decisive = false;
            return notFound;
        }
    }
    JDWPJVarValue value = firstValue(reply);
    if (value.Found)
        decisive = false;
    return value;
}

JDWPJVarValue JXMachine::getValueFromMethodCall(double ObjectID, double ClassID, double MethodID, bool MethodIsStatic,
                                                bool bForce)
{
    JDWPJVarValue notFound;
    std::string name = "the method";
    if (auto cls = getClassByID(ClassID))
        if (auto method = cls->JMethodID(MethodID))
            name = method->MethodName;
    // No method of the program runs in save mode, whoever asks; the value
    // says why it is missing.
    if (mySaveMode)
        return wordsValue(
            "(not evaluated: it needs a call of " + name + ", and save mode runs no method of the program)", false);
    if (!bForce && isInvokeInProcess())
        return notFound;
    if (myInvokeTimedOut_ && myInvokeTimedOutThread_ == myCurrentThreadID)
        return wordsValue("(not evaluated: it needs a call of " + name +
                              ", and an earlier call is still running in this thread)",
                          false);
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
    // While the call waits for its reply, the event decoder resumes rather
    // than reports the events that it causes. The reply's decoder ends that
    // window (invocationReplied); so does the end of the wait.
    const uint32_t now = GetTickCount();
    myInvokeInProcessMsg = now != 0 ? static_cast<int32_t>(now) : 1;
    // The call resumes the thread: the frame id read after it is not this
    // stop's first, and it neither confirms nor corrects a prediction.
    myFramePredicted_ = false;
    myInvokeWaitingID_ = request->myID;
    auto reply = handler->sendSync(request, kInvokeWaitMs);
    myInvokeInProcessMsg = 0;
    if (!reply && handler->isConnected() && myState != VMDead) {
        // The call runs on in the VM (a loop, a wait): all threads run with
        // it, the stop's frames are gone until they are suspended again.
        myInvokeTimedOut_ = true;
        myInvokeTimedOutThread_ = myCurrentThreadID;
        myInvokeTimedOutID_ = request->myID;
        ++myInvokeTimeouts_;
        myFrameValid = false;
        GoVMStateChange(VMRunning, -1);
        return wordsValue("(" + name + " did not return within " + std::to_string(kInvokeWaitMs / 1000) +
                              " s: the call timed out and is still running in the VM)",
                          true);
    }
    return firstValue(reply);
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
    return firstValue(handler->sendSync(request, kReplyWaitMs));
}

JDWPJVarValue JXMachine::evaluateElement(const std::string& name, double& objectID,
                                         const std::shared_ptr<JXMethod>& currentMethod,
                                         std::shared_ptr<JXClass>& currentClass, const std::string& PossibleStaticClass)
{
    // A call that was not made (save mode, a call still running) leaves its
    // reason in words; when nothing else yields the name, they are its value.
    std::string refused;
    auto call = [&](double object, const std::shared_ptr<JXClass>& cls, const std::shared_ptr<JXMethod>& method) {
        JDWPJVarValue r = getValueFromMethodCall(object, cls->ClassID, method->MethodID, method->isStatic());
        if (!r.Found && !r.VarValue.empty() && refused.empty())
            refused = r.VarValue;
        return r;
    };
    auto missing = [&] { return refused.empty() ? JDWPJVarValue() : wordsValue(refused, true); };

    JDWPJVarValue r;
    if (objectID == 0) {
        bool decisive = false;
        r = readLocal(name, currentMethod, decisive);
        if (r.Found || decisive)
            return r;
        const double self = thisObjectID();
        if (self != 0) {
            auto objectClass = getClassByObjectID(self);
            auto cls = objectClass ? getEventClassFromClass(objectClass) : nullptr;
            if (!cls)
                return JDWPJVarValue();
            if (auto getter = cls->JMethodWithoutParams("$" + name)) {
                r = call(self, cls, getter);
                if (r.Found)
                    return r;
            }
            r = getFieldValue(name, cls, self);
            if (r.Found)
                return r;
            auto super = cls->SuperClass();
            for (int level = 0; super && level < 2; ++level) {
                r = getFieldValue(name, super, self);
                if (r.Found)
                    return r;
                super = super->SuperClass();
            }
            // A Java nested class ("Outer$Inner") stood in for by the class
            // it extends: its own fields come after the design's search.
            if (objectClass != cls) {
                r = getFieldValue(name, objectClass, self);
                if (r.Found)
                    return r;
            }
        }
        r = getFieldValue(name, currentClass, 0);
        if (r.Found)
            return r;
        if (currentClass) {
            if (auto method = currentClass->JMethodWithoutParams(name)) {
                r = call(thisObjectID(), currentClass, method);
                if (r.Found)
                    return r;
            }
        }
        auto staticClass = getCurrentHandler()->myJVM()->getClassByName(PossibleStaticClass, true);
        if (!staticClass)
            return missing();
        currentClass = staticClass;
        if (auto method = staticClass->JMethodWithoutParams(name)) {
            r = call(thisObjectID(), staticClass, method);
            if (r.Found)
                return r;
        }
        r = getFieldValue(name, staticClass, 0);
        return r.Found ? r : missing();
    }
    auto objectClass = getClassByObjectID(objectID);
    auto cls = objectClass ? getEventClassFromClass(objectClass) : nullptr;
    if (!cls)
        return JDWPJVarValue();
    r = getFieldValue(name, cls, objectID);
    if (r.Found)
        return r;
    // As for this: a nested class's own fields after the design's search.
    if (objectClass != cls) {
        r = getFieldValue(name, objectClass, objectID);
        if (r.Found)
            return r;
    }
    if (auto method = cls->JMethodWithoutParams(name)) {
        r = call(objectID, cls, method);
        if (r.Found)
            return r;
    }
    return missing();
}

std::string JXMachine::getValue(const std::string& TargetVar, const std::string& PossibleStaticClass)
{
    if (myEvaluating)
        return std::string();
    std::string result;
    underEvaluationGuards([&] { result = evaluatePath(TargetVar, PossibleStaticClass); });
    return result;
}

void JXMachine::underEvaluationGuards(const std::function<void()>& body)
{
    const uint32_t timeoutsBefore = myInvokeTimeouts_;
    {
        // Both guards hold for the whole evaluation and are cleared on every exit.
        struct Guard {
            JXMachine& m;
            explicit Guard(JXMachine& machine) : m(machine) { m.myEvaluating = m.myMuteStateEvents = true; }
            ~Guard() { m.myEvaluating = m.myMuteStateEvents = false; }
        } guard(*this);
        body();
    }
    // A call that did not return left the VM running; the state change that
    // the evaluation kept muted is the host's to know.
    if (myInvokeTimeouts_ != timeoutsBefore && myInvokeTimedOut_)
        GoVMStateChange(VMRunning, -1);
}

bool JXMachine::walkPath(const std::string& TargetVar, const std::string& PossibleStaticClass,
                         std::vector<PathStep>& steps)
{
    steps.clear();
    if (TargetVar.empty() || TargetVar.find(':') != std::string::npos || TargetVar.find('=') != std::string::npos ||
        TargetVar[0] == '"' || isNumeric(TargetVar))
        return false;
    // The frame first: after a pause or a popped frame it tells where the
    // thread is now.
    if (!myFrameValid) {
        refreshFrameID();
        if (!myFrameValid)
            return false;
    }
    std::shared_ptr<JXClass> currentClass = getClassByID(myCurrentClassID, true);
    std::shared_ptr<JXMethod> currentMethod = currentClass ? currentClass->JMethodID(myCurrentMethodID) : nullptr;
    if (!currentClass || !currentMethod)
        return false;
    std::string target;
    for (char c : TargetVar)
        if (c != '\r' && c != '\n')
            target += c;

    std::vector<std::string> elements;
    for (size_t start = 0;;) {
        size_t dot = target.find('.', start);
        elements.push_back(target.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    std::string path;
    double objectID = 0;
    const size_t last = elements.size() - 1;
    for (size_t i = 0; i < elements.size(); ++i) {
        const std::string& element = elements[i];
        path += (path.empty() ? "" : ".") + element;
        if (element.empty())
            continue;
        PathStep step;
        step.path = path;
        step.first = i == 0;
        step.last = i == last;
        step.next = i == last ? std::string() : elements[i + 1];
        step.value = evaluateElement(element, objectID, currentMethod, currentClass, PossibleStaticClass);
        const bool found = step.value.Found;
        if (found && step.value.VarType == VAR_OBJECT)
            objectID = step.value.RefID;
        // Nothing (a void result, or words saying why there is no value)
        // has members: the next name is not available.
        const bool noMembers = found && step.value.VarType == VAR_VOID && i != last;
        steps.push_back(std::move(step));
        if (!found || noMembers)
            break;
    }
    return true;
}

bool JXMachine::readConditionValue(const std::string& path, condition::Value& value, std::string& why)
{
    using condition::Value;
    std::vector<PathStep> steps;
    if (!walkPath(path, std::string(), steps) || steps.empty()) {
        why = "no frame to read " + path + " in";
        return false;
    }
    const PathStep& step = steps.back();
    const JDWPJVarValue& r = step.value;
    if (!r.Found) {
        why = step.path == path ? path + " is not available here" : step.path + " is not available (in " + path + ")";
        return false;
    }
    if (r.VarType == VAR_VOID) {
        // Words saying why there is no value (save mode, a call still running).
        why = !r.VarValue.empty() ? r.VarValue : step.path + " has no value";
        if (!step.last)
            why += " (in " + path + ")";
        return false;
    }
    const double number = std::strtod(r.VarValue.c_str(), nullptr);
    switch (r.VarType) {
    case VAR_BOOLEAN:
        value = Value::boolean(r.VarValue == "True");
        return true;
    case VAR_BYTE:
        // The rendered byte reads unsigned; Java's is signed.
        value = Value::integer(static_cast<int64_t>(number > 127 ? number - 256 : number), "byte");
        return true;
    case VAR_SHORT:
        value = Value::integer(static_cast<int64_t>(number), "short");
        return true;
    case VAR_INT:
        value = Value::integer(static_cast<int64_t>(number), "int");
        return true;
    case VAR_CHAR:
        // The rendered char folds codes above 255 below zero.
        value = Value::integer(static_cast<int64_t>(number < 0 ? number + 65536 : number), "char");
        return true;
    case VAR_LONG:
        value = Value::integer(std::strtoll(r.VarValue.c_str(), nullptr, 10), "long");
        return true;
    case VAR_FLOAT:
        value = Value::real(r.RefID, "float");
        return true;
    case VAR_DOUBLE:
        value = Value::real(r.RefID, "double");
        return true;
    case VAR_STRING:
        value = r.RefID == 0 ? Value::reference(0, "String") : Value::string(r.VarValue);
        return true;
    case VAR_ARRAY:
        value = Value::reference(r.RefID, "array");
        return true;
    default:
        value = Value::reference(r.RefID, "object");
        return true;
    }
}

std::string JXMachine::logValueText(const std::string& path)
{
    std::vector<PathStep> steps;
    if (!walkPath(path, std::string(), steps) || steps.empty())
        return "<" + path + " - Not available!>";
    const PathStep& step = steps.back();
    if (!step.value.Found)
        return "<" + step.path + " - Not available!>";
    if (!step.last)
        return "<" + step.path + "." + step.next + " - Not available!>";
    // The value as getValue shows it, without its "path: #...#" wrapping.
    std::string text = ReplaceAll(step.value.VarValue, "|VAR|", step.path);
    while (text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0)
        text.erase(text.size() - 2);
    if (myMaxValueSize >= 0 && text.size() > static_cast<size_t>(myMaxValueSize))
        text.resize(static_cast<size_t>(myMaxValueSize));
    return text;
}

std::string JXMachine::evaluatePath(const std::string& TargetVar, const std::string& PossibleStaticClass)
{
    std::vector<PathStep> steps;
    if (!walkPath(TargetVar, PossibleStaticClass, steps))
        return std::string(); // no frame to be had, or no path: an empty text; intended
    std::string result;
    std::string pending;
    for (const PathStep& step : steps) {
        const std::string& path = step.path;
        const JDWPJVarValue& r = step.value;
        std::string text = ReplaceAll(r.VarValue, "|VAR|", path);
        while (text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0)
            text.erase(text.size() - 2);
        if (!r.Found) {
            pending = path + " - Not available!";
            break;
        }
        const bool noMembers = r.VarType == VAR_VOID && !step.last;
        std::string line;
        if (step.last) {
            if (myMaxValueSize >= 0 && text.size() > static_cast<size_t>(myMaxValueSize))
                text.resize(static_cast<size_t>(myMaxValueSize));
            text = ReplaceAll(text, "#", "{~}");
            line = !step.first ? "#" + path + ": " + text + "#" : path + ": #" + text + "#";
        } else {
            line = path + ": " + text;
        }
        result = line + result;
        if (!step.last)
            result = "\r\n" + result;
        pending.clear();
        if (noMembers) {
            pending = path + "." + step.next + " - Not available!";
            break;
        }
    }
    if (result.compare(0, 2, "\r\n") == 0)
        result = pending + result;
    return result;
}

} // namespace jdwpkrvdbg
