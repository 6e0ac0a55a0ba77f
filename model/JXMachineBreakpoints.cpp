// JXMachine, part: the breakpoint and stop-point collection and stepping.
// Entries are kept in insertion order whether or not their class is loaded;
// a class-prepare event registers the ones still waiting for it. A step is a
// one-shot request that lives until the stop it produces (or the next full
// resume); one that lands in code of no target runs on past it in the VM
// (see stepPastLibrary). The suspend-at-next-step operation arms every
// thread instead.
#include "jdwpkrvdbg/model/JXMachine.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "JXCondition.h"
#include "ModelText.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThreadList.h"

namespace jdwpkrvdbg {

namespace {

std::string trimmed(const std::string& s)
{
    const size_t first = s.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    const size_t last = s.find_last_not_of(" \t\r\n");
    return s.substr(first, last - first + 1);
}

// Parses one "CLASS:LINE" item; false for anything malformed.
bool parseBreakpointItem(const std::string& item, std::string& className, double& line)
{
    const size_t colon = item.rfind(':');
    if (colon == std::string::npos)
        return false;
    className = trimmed(item.substr(0, colon));
    const std::string lineText = trimmed(item.substr(colon + 1));
    if (className.empty() || lineText.empty() || lineText.size() > 15)
        return false;
    if (!std::all_of(lineText.begin(), lineText.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    line = std::strtod(lineText.c_str(), nullptr);
    return line > 0;
}

using Entries = std::vector<std::shared_ptr<JXBreakpoint>>;

// A request that only steps (no place to stop at), for one thread.
std::shared_ptr<JXBreakpoint> steppingRequest(double thread)
{
    auto step = std::make_shared<JXBreakpoint>();
    step->JustStepping = true;
    step->TargetThreadID = thread;
    return step;
}

// Sends the entry's request; the kind of entry picks the request.
void registerEntry(const std::shared_ptr<JXBreakpoint>& bp)
{
    if (bp->StopPoint)
        bp->registerStopPoint();
    else
        bp->registerBreakPoint();
}

} // namespace

void JXMachine::registerEntryOf(const std::shared_ptr<JXBreakpoint>& bp)
{
    // A method breakpoint whose overloads are not known yet becomes one
    // entry per overload first.
    if (bp->MethodEntry && bp->Overload.empty()) {
        if (auto cls = getClassByName(bp->ClassName, true))
            expandMethodEntry(bp, cls);
        return;
    }
    registerEntry(bp);
}

namespace {

// A new entry, registered and kept whether or not the VM took it: a failed
// registration waits for the class-prepare event of its class. `place` sets
// where it stops before it is registered.
template <typename Place>
bool keepNewEntry(Entries& list, bool stopPoint, const std::string& className, Place place)
{
    auto bp = std::make_shared<JXBreakpoint>();
    bp->StopPoint = stopPoint;
    bp->ClassName = className;
    place(*bp);
    registerEntry(bp);
    list.push_back(bp);
    return true;
}

// Clears the entry's request and drops it; false, and kept, when there is
// none or the VM refused the clear.
bool dropEntry(Entries& list, const std::shared_ptr<JXBreakpoint>& bp)
{
    if (!bp || !bp->unregisterBreakPoint())
        return false;
    auto it = std::find(list.begin(), list.end(), bp);
    if (it != list.end())
        list.erase(it);
    return true;
}

} // namespace

bool JXMachine::addBreakpoint(const std::string& ClassName, double LineNr)
{
    if (getBreakPoint(ClassName, LineNr))
        return false;
    return keepNewEntry(myBreakpoints, false, ClassName, [&](JXBreakpoint& bp) { bp.LineNr = LineNr; });
}

std::string JXMachine::checkBreakpointOptions(const JXBreakpointOptions& options)
{
    condition::Plan plan;
    return plan.parse(options.Condition, options.HitCondition, options.LogMessage);
}

bool JXMachine::addBreakpoint(const std::string& ClassName, double LineNr, const JXBreakpointOptions& options)
{
    if (!checkBreakpointOptions(options).empty())
        return false;
    auto bp = getBreakPoint(ClassName, LineNr);
    if (!bp) {
        return keepNewEntry(myBreakpoints, false, ClassName, [&](JXBreakpoint& entry) {
            entry.LineNr = LineNr;
            entry.setOptions(options);
        });
    }
    return replaceOptions(bp, options);
}

bool JXMachine::addMethodBreakpoint(const std::string& ClassName, const std::string& MethodName,
                                    const std::string& Signature, const JXBreakpointOptions& options)
{
    if (MethodName.empty() || !checkBreakpointOptions(options).empty())
        return false;
    auto existing = methodBreakpoints(ClassName, MethodName, Signature);
    if (!existing.empty()) {
        for (const auto& bp : existing)
            replaceOptions(bp, options);
        return true;
    }
    auto bp = std::make_shared<JXBreakpoint>();
    bp->StopPoint = true;
    bp->MethodEntry = true;
    bp->ClassName = ClassName;
    bp->MethodName = MethodName;
    bp->Signature = Signature;
    bp->setOptions(options);
    myBreakpoints.push_back(bp);
    // Without the class the entry waits for its class-prepare event.
    if (auto cls = getClassByName(ClassName, true))
        expandMethodEntry(bp, cls);
    return true;
}

bool JXMachine::removeMethodBreakpoint(const std::string& ClassName, const std::string& MethodName,
                                       const std::string& Signature)
{
    const auto entries = methodBreakpoints(ClassName, MethodName, Signature);
    bool all = !entries.empty();
    for (const auto& bp : entries)
        all = dropEntry(myBreakpoints, bp) && all;
    return all;
}

std::vector<std::shared_ptr<JXBreakpoint>> JXMachine::methodBreakpoints(const std::string& ClassName,
                                                                        const std::string& MethodName,
                                                                        const std::string& Signature) const
{
    const std::string method = model_detail::lowerText(MethodName);
    std::vector<std::shared_ptr<JXBreakpoint>> found;
    for (const auto& bp : myBreakpoints)
        if (bp && bp->MethodEntry && bp->ClassName == ClassName && bp->Signature == Signature &&
            model_detail::lowerText(bp->MethodName) == method)
            found.push_back(bp);
    return found;
}

bool JXMachine::replaceOptions(const std::shared_ptr<JXBreakpoint>& bp, const JXBreakpointOptions& options)
{
    // The request changes only with what the VM counts; anything else is
    // decided here at each hit.
    const bool wasCounted = bp->HitCountedByVM && bp->plan() != nullptr;
    const uint32_t oldN = wasCounted ? bp->plan()->hits.n : 0;
    const auto oldMode = wasCounted ? bp->plan()->hits.mode : condition::HitRule::Mode::Every;
    if (!bp->setOptions(options).empty())
        return false;
    const bool counted = bp->HitCountedByVM && bp->plan() != nullptr;
    const bool sameRequest =
        counted == wasCounted && (!counted || (bp->plan()->hits.n == oldN && bp->plan()->hits.mode == oldMode));
    // A counted request restarts its count too, as the hit count here does.
    if ((sameRequest && !counted) || !(bp->RequestEventID > 0))
        return true;
    if (!bp->unregisterBreakPoint())
        return false;
    bp->RequestEventID = 0;
    bp->UsedByVM = false;
    registerEntryOf(bp);
    return true;
}

bool JXMachine::expandMethodEntry(const std::shared_ptr<JXBreakpoint>& bp, const std::shared_ptr<JXClass>& cls)
{
    const std::string name = model_detail::lowerText(bp->MethodName);
    std::vector<std::shared_ptr<JXMethod>> overloads;
    for (const auto& m : cls->methods()) {
        // Abstract and native methods have no code to stop in.
        constexpr int32_t kNoCode = 0x0400 | 0x0100;
        if (!m || model_detail::lowerText(m->MethodName) != name || (static_cast<int32_t>(m->MethodBits) & kNoCode))
            continue;
        if (signatureMatches(bp->Signature, m->MethodSignature))
            overloads.push_back(m);
    }
    if (overloads.empty())
        return false;
    // The entry itself takes the first overload; each other gets an entry
    // of its own beside it, with the same options.
    auto at = std::find(myBreakpoints.begin(), myBreakpoints.end(), bp);
    std::vector<std::shared_ptr<JXBreakpoint>> entries{bp};
    for (size_t i = 1; i < overloads.size(); ++i) {
        auto twin = std::make_shared<JXBreakpoint>();
        twin->StopPoint = true;
        twin->MethodEntry = true;
        twin->ClassName = bp->ClassName;
        twin->MethodName = bp->MethodName;
        twin->Signature = bp->Signature;
        twin->setOptions(bp->Options);
        entries.push_back(twin);
    }
    for (size_t i = 0; i < overloads.size(); ++i)
        entries[i]->Overload = overloads[i]->MethodSignature;
    if (at != myBreakpoints.end())
        myBreakpoints.insert(at + 1, entries.begin() + 1, entries.end());
    for (const auto& entry : entries)
        entry->registerStopPoint();
    return true;
}

bool JXMachine::signatureMatches(const std::string& wanted, const std::string& signature)
{
    if (wanted.empty())
        return true;
    std::string text;
    for (char c : wanted)
        if (c != ' ' && c != '\t')
            text += c;
    if (text == signature)
        return true;
    // A Java parameter list: "(int,java.lang.String)" or "(int, String[])".
    if (text.size() < 2 || text.front() != '(' || text.back() != ')')
        return false;
    const std::string params = signature.substr(0, signature.find(')') + 1);
    if (text == params)
        return true;
    std::string jni = "(";
    const std::string inner = text.substr(1, text.size() - 2);
    for (size_t start = 0; start < inner.size();) {
        size_t comma = inner.find(',', start);
        if (comma == std::string::npos)
            comma = inner.size();
        std::string type = inner.substr(start, comma - start);
        start = comma + 1;
        std::string dims;
        while (type.size() > 2 && type.compare(type.size() - 2, 2, "[]") == 0) {
            dims += '[';
            type.resize(type.size() - 2);
        }
        static const std::pair<const char*, const char*> kPrimitives[] = {
            {"int", "I"},  {"long", "J"},  {"boolean", "Z"}, {"byte", "B"},
            {"char", "C"}, {"short", "S"}, {"float", "F"},   {"double", "D"}};
        std::string code;
        for (const auto& [java, letter] : kPrimitives)
            if (type == java)
                code = letter;
        if (code.empty()) {
            if (type.empty())
                return false;
            std::replace(type.begin(), type.end(), '.', '/');
            // A simple class name stands for any package: matched below by
            // the name's end.
            code = "L" + type + ";";
        }
        jni += dims + code;
    }
    jni += ")";
    if (jni == params)
        return true;
    // Simple class names: each "L...;" of the list compares by its last part.
    const auto simplified = [](const std::string& s) {
        std::string out;
        for (size_t i = 0; i < s.size(); ++i) {
            if (s[i] != 'L') {
                out += s[i];
                continue;
            }
            const size_t end = s.find(';', i);
            if (end == std::string::npos)
                return s;
            const std::string name = s.substr(i + 1, end - i - 1);
            out += "L" + name.substr(name.rfind('/') + 1) + ";";
            i = end;
        }
        return out;
    };
    return simplified(jni) == simplified(params) && jni.find('/') == std::string::npos;
}

bool JXMachine::breakpointHit(const std::shared_ptr<JXBreakpoint>& bp, double threadID, const JDWPJLocation& location,
                              const std::string& ClassName, double LineNr, std::string& failure)
{
    failure.clear();
    const std::shared_ptr<const condition::Plan> plan = bp ? bp->plan() : nullptr;
    if (!plan)
        return true;
    if (bp->HitCountedByVM) {
        // The VM reported the hit its count selected: it stops (or prints).
        bp->countedHitReported();
        if (!plan->logpoint)
            return true;
    }
    if (myEvaluating) {
        // A hit decoded while an evaluation waits for the VM: its reads would
        // be refused. It stops, saying why.
        failure = "another evaluation was under way";
        return true;
    }
    // The hit's thread and top frame stand in for the current stop's while
    // the condition is read; the host's stop is put back as it was.
    const double savedThread = myCurrentThreadID, savedClass = myCurrentClassID, savedMethod = myCurrentMethodID;
    const double savedFrame = myCurrentFrameID, savedThis = myThisObjectID, savedFrameMethod = myFrameMethodID_;
    const bool savedValid = myFrameValid, savedPending = myThisPending_;
    myCurrentThreadID = threadID;
    myCurrentClassID = location.ClassID;
    myCurrentMethodID = location.MethodID;
    myFrameValid = false;
    myThisObjectID = 0;
    myEvaluating = myMuteStateEvents = true;
    myFrameOnly_ = true;
    refreshFrameID();
    myFrameOnly_ = false;

    std::string why;
    std::optional<bool> verdict = true;
    if (!plan->condition.empty()) {
        verdict =
            plan->condition.evaluate([this](const std::string& path, condition::Value& value,
                                            std::string& reason) { return readConditionValue(path, value, reason); },
                                     why);
    }
    bool stop = true;
    bool logged = false;
    std::string text;
    if (!verdict) {
        failure = why;
    } else if (!*verdict) {
        stop = false;
    } else {
        if (!bp->HitCountedByVM) {
            ++bp->HitCount;
            stop = plan->hits.selects(bp->HitCount);
        }
        if (stop && plan->logpoint) {
            text = plan->log.render([this](const std::string& path) { return logValueText(path); });
            logged = true;
            stop = false;
        }
    }
    myEvaluating = myMuteStateEvents = false;
    myCurrentThreadID = savedThread;
    myCurrentClassID = savedClass;
    myCurrentMethodID = savedMethod;
    myCurrentFrameID = savedFrame;
    myThisObjectID = savedThis;
    myFrameMethodID_ = savedFrameMethod;
    myFrameValid = savedValid;
    myThisPending_ = savedPending;
    if (logged)
        GoLogpointMessage(threadID, ClassName, LineNr, text);
    return stop;
}

bool JXMachine::addStopPoint(const std::string& ClassName, const std::string& MethodName, double Offset)
{
    if (getStopPoint(ClassName, MethodName, Offset))
        return false;
    return keepNewEntry(myBreakpoints, true, ClassName, [&](JXBreakpoint& bp) {
        bp.MethodName = MethodName;
        bp.Offset = Offset;
    });
}

bool JXMachine::addBreakpointByCollection(const JXBreakpointCollection& col)
{
    bool allValid = true;
    for (const std::string& item : col) {
        std::string className;
        double line = 0;
        if (!parseBreakpointItem(item, className, line)) {
            allValid = false;
            continue;
        }
        addBreakpoint(className, line);
    }
    return allValid;
}

std::shared_ptr<JXBreakpoint> JXMachine::getBreakPoint(const std::string& ClassName, double LineNr)
{
    for (const auto& bp : myBreakpoints)
        if (bp && !bp->StopPoint && bp->ClassName == ClassName && bp->LineNr == LineNr)
            return bp;
    return nullptr;
}

std::shared_ptr<JXBreakpoint> JXMachine::getStopPoint(const std::string& ClassName, const std::string& MethodName,
                                                      double Offset)
{
    // Method names resolve without regard to case (JMethodWithoutParams), so
    // two names that differ only in case are the same stop point.
    const std::string method = model_detail::lowerText(MethodName);
    for (const auto& bp : myBreakpoints)
        if (bp && bp->StopPoint && !bp->MethodEntry && bp->ClassName == ClassName && bp->Offset == Offset &&
            model_detail::lowerText(bp->MethodName) == method)
            return bp;
    return nullptr;
}

std::shared_ptr<JXBreakpoint> JXMachine::getBreakPointByID(double BreakpointID)
{
    // 0 is the id of no request; it must not match the entries still waiting.
    if (!(BreakpointID > 0))
        return nullptr;
    for (const auto& bp : myBreakpoints)
        if (bp && bp->RequestEventID == BreakpointID)
            return bp;
    return nullptr;
}

bool JXMachine::removeBreakpoint(const std::string& ClassName, double LineNr)
{
    return dropEntry(myBreakpoints, getBreakPoint(ClassName, LineNr));
}

bool JXMachine::removeStopPoint(const std::string& ClassName, const std::string& MethodName, double Offset)
{
    return dropEntry(myBreakpoints, getStopPoint(ClassName, MethodName, Offset));
}

std::vector<std::shared_ptr<JXBreakpoint>> JXMachine::removeBreakpointByClass(const std::string& ClassName)
{
    std::vector<std::shared_ptr<JXBreakpoint>> collected;
    for (const auto& bp : myBreakpoints)
        if (bp && bp->ClassName == ClassName)
            collected.push_back(bp);
    for (const auto& bp : collected)
        dropEntry(myBreakpoints, bp);
    return collected;
}

void JXMachine::registerWaitingBreakpoints(const std::shared_ptr<JXClass>& refClass)
{
    if (!refClass)
        return;
    // A copy: each registration waits for its reply, and events decoded
    // meanwhile may change the collection.
    const std::vector<std::shared_ptr<JXBreakpoint>> entries = myBreakpoints;
    for (const auto& bp : entries) {
        // An entry already in the VM would get a second request.
        if (!bp || bp->RequestEventID > 0 || !refClass->equalName(bp->ClassName))
            continue;
        if (bp->MethodEntry && bp->Overload.empty())
            expandMethodEntry(bp, refClass);
        else
            registerEntry(bp);
    }
}

bool JXMachine::ResumeVMStepByStep(bool IgnoreSuspend, double RefThreadID, JDWPStepDepth stepDepth)
{
    (void)IgnoreSuspend; // accepted and not used
    if (myEvaluating || myStepInProcess)
        return false;
    myStepInProcess = true;
    // Intended: with no thread to step the flag stays set until the next
    // event clears it, so no further step is requested meanwhile.
    if (!(RefThreadID > 0) && !(myCurrentThreadID > 0))
        return false;
    myStepFromClassID_ = myCurrentClassID;
    myStepFromMethodID_ = myCurrentMethodID;
    myStepFromLine_ = myCurrentLine;
    auto step = steppingRequest(RefThreadID > 0 ? RefThreadID : myCurrentThreadID);
    step->StepCount = 0;
    unregisterLastStepEvent();
    // Library code an earlier step ran past is excluded from a step into at
    // once, so the VM runs it without reporting it. Only steps into: over
    // and out never enter a call, and their requests stay as they were.
    if (stepDepth == SD_INTO) {
        auto from = getClassByID(myStepFromClassID_);
        myStepSkips_ = knownLibrariesAround(from ? from->ClassName() : std::string());
    }
    if (step->registerStepEvent(stepDepth, myStepSkips_)) {
        // A plain resume: the new step request must survive it.
        ResumeVM(false);
        return true;
    }
    myStepInProcess = false;
    return false;
}

void JXMachine::unregisterLastStepEvent()
{
    clearStepRequests();
    myStepSkips_.clear();
    myStepLanding_.clear();
}

void JXMachine::clearStepRequests()
{
    if (myStepEntry_) {
        auto entry = std::move(myStepEntry_);
        myStepEntry_.reset();
        entry->unregisterStepEvent(true);
    }
    if (!myLastStepEvent)
        return;
    auto last = std::move(myLastStepEvent);
    myLastStepEvent.reset();
    last->unregisterStepEvent(true);
}

void JXMachine::noteStepLanding(const std::string& className)
{
    myStepLanding_ = className;
}

bool JXMachine::isStepEntryRequest(double requestID) const
{
    return myStepEntry_ && requestID > 0 && myStepEntry_->stepRequestID() == requestID;
}

bool JXMachine::isStepBackAtStart(double requestID, double ClassID, double MethodID, double LineNr) const
{
    return myStepEntry_ && myLastStepEvent && requestID > 0 && myLastStepEvent->stepRequestID() == requestID &&
           ClassID == myStepFromClassID_ && MethodID == myStepFromMethodID_ && LineNr == myStepFromLine_;
}

namespace {

// Dotted form of a class name or pattern as the host or the VM gives it
// (internal "a/b/C", signature "La/b/C;", or dotted already).
std::string dottedName(std::string name)
{
    if (name.size() > 2 && name.front() == 'L' && name.back() == ';')
        name = name.substr(1, name.size() - 2);
    std::replace(name.begin(), name.end(), '/', '.');
    return name;
}

} // namespace

std::string JXMachine::stepSkipPattern(const std::string& className) const
{
    // Whether a pattern beginning with `prefix` could match a class the
    // include filter accepts. Target names are taken as patterns too, so a
    // "*" in one only makes the answer more careful.
    const auto couldHideTarget = [this](const std::string& prefix) {
        for (const std::string& include : myIncludeClassNames) {
            const std::string target = dottedName(include);
            const size_t star = target.find('*');
            if (star == std::string::npos) {
                if (target.rfind(prefix, 0) == 0)
                    return true;
                continue;
            }
            const std::string literal = target.substr(0, star);
            if (literal.rfind(prefix, 0) == 0 || prefix.rfind(literal, 0) == 0)
                return true;
        }
        return false;
    };
    const std::string name = dottedName(className);
    if (name.empty())
        return {};
    for (size_t dot = name.find('.'); dot != std::string::npos; dot = name.find('.', dot + 1)) {
        const std::string prefix = name.substr(0, dot + 1);
        if (!couldHideTarget(prefix))
            return prefix + "*";
    }
    const std::string outer = name.substr(0, name.find('$'));
    if (!outer.empty() && !couldHideTarget(outer))
        return outer + "*";
    return {};
}

void JXMachine::learnLibrary(const std::string& pattern)
{
    // Each pattern is one more modifier on every later step into; past the
    // limit the oldest is forgotten (it is learned again when met again).
    constexpr size_t kMaxKnownLibraries = 32;
    if (std::find(myKnownLibraries_.begin(), myKnownLibraries_.end(), pattern) != myKnownLibraries_.end())
        return;
    if (myKnownLibraries_.size() >= kMaxKnownLibraries)
        myKnownLibraries_.erase(myKnownLibraries_.begin());
    myKnownLibraries_.push_back(pattern);
}

std::vector<std::string> JXMachine::knownLibrariesAround(const std::string& className) const
{
    // A step that begins inside a known library must still stop on its
    // lines, so that library's pattern is left out.
    const std::string name = dottedName(className);
    std::vector<std::string> patterns;
    for (const std::string& pattern : myKnownLibraries_) {
        const std::string literal = pattern.substr(0, pattern.find('*'));
        if (name.empty() || name.rfind(literal, 0) != 0)
            patterns.push_back(pattern);
    }
    return patterns;
}

bool JXMachine::continueStep(double threadID)
{
    const std::string landing = std::exchange(myStepLanding_, std::string());
    // A step that met no code of a non-target class continues as it always
    // did: a new line step into, from where the event left it.
    if (landing.empty() && myStepSkips_.empty())
        return ResumeVMStepByStep(true, threadID, SD_INTO);
    if (myEvaluating || myStepInProcess)
        return false;
    const double thread = threadID > 0 ? threadID : myCurrentThreadID;
    if (!(thread > 0))
        return false;
    const std::string pattern = landing.empty() ? std::string() : stepSkipPattern(landing);
    if (!pattern.empty() && std::find(myStepSkips_.begin(), myStepSkips_.end(), pattern) == myStepSkips_.end()) {
        myStepSkips_.push_back(pattern);
        if (stepPastLibrary(thread)) {
            learnLibrary(pattern);
            return true;
        }
        myStepSkips_.pop_back();
    }
    if (myStepSkips_.empty())
        return ResumeVMStepByStep(true, thread, SD_INTO);
    // Back on the line the step began on, a place with no line on the way,
    // or a pattern the VM did not apply: line steps into from here, still
    // skipping what was skipped so far.
    clearStepRequests();
    myStepInProcess = true;
    auto step = steppingRequest(thread);
    if (!step->registerStepEvent(SD_INTO, myStepSkips_, true)) {
        myStepInProcess = false;
        return false;
    }
    ResumeVM(false);
    return true;
}

bool JXMachine::stepPastLibrary(double threadID)
{
    // The step landed in code of no target, usually at the first line of a
    // library method. Stepping on from there line by line (even with the
    // library excluded) would make the VM single-step that frame; instead
    // the frame runs at full speed to its return (a step out, which skips
    // excluded callers on the way up as well), and a method entry request
    // for the thread catches any call into code that is not skipped (a
    // callback of the user's). Both stay in place until the step stops or
    // lands in code of another package. Neither is waited for: the VM
    // answers them before it carries out the Resume behind them, so their
    // ids are in before any event they cause.
    clearStepRequests();
    myStepInProcess = true;
    auto out = steppingRequest(threadID);
    auto entry = steppingRequest(threadID);
    if (!out->registerStepEvent(SD_OUT, myStepSkips_, true)) {
        myStepInProcess = false;
        return false;
    }
    if (!entry->registerStepEntry(myStepSkips_)) {
        clearStepRequests();
        myStepInProcess = false;
        return false;
    }
    myStepEntry_ = entry;
    ResumeVM(false);
    return true;
}

bool JXMachine::SuspendNextStep()
{
    if (bSuspendNextStepRunning_)
        return false;
    bSuspendNextStepRunning_ = true;
    // A pause that has not stopped yet is replaced: its requests are
    // withdrawn, or they would stay in the VM with nobody to clear them.
    disarmThreadList();
    auto list = getCurrentHandler()->getAllThreads();
    const bool found = static_cast<bool>(list);
    if (list) {
        myThreadList = list;
        const bool savedMute = myMuteStateEvents;
        myMuteStateEvents = true;
        SuspendVM();
        list->registerSuspend();
        ResumeVM();
        myMuteStateEvents = savedMute;
    }
    bSuspendNextStepRunning_ = false;
    return found;
}

} // namespace jdwpkrvdbg
