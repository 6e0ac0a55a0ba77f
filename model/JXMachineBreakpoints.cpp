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
    (void)options;
    return {};
}

bool JXMachine::addBreakpoint(const std::string& ClassName, double LineNr, const JXBreakpointOptions& options)
{
    (void)options;
    return addBreakpoint(ClassName, LineNr);
}

bool JXMachine::addMethodBreakpoint(const std::string& ClassName, const std::string& MethodName,
                                    const std::string& Signature, const JXBreakpointOptions& options)
{
    (void)ClassName;
    (void)MethodName;
    (void)Signature;
    (void)options;
    return false;
}

bool JXMachine::removeMethodBreakpoint(const std::string& ClassName, const std::string& MethodName,
                                       const std::string& Signature)
{
    (void)ClassName;
    (void)MethodName;
    (void)Signature;
    return false;
}

std::vector<std::shared_ptr<JXBreakpoint>> JXMachine::methodBreakpoints(const std::string& ClassName,
                                                                        const std::string& MethodName,
                                                                        const std::string& Signature) const
{
    (void)ClassName;
    (void)MethodName;
    (void)Signature;
    return {};
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
        if (bp && bp->StopPoint && bp->ClassName == ClassName && bp->Offset == Offset &&
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
    for (const auto& bp : collected) {
        if (bp->StopPoint)
            removeStopPoint(bp->ClassName, bp->MethodName, bp->Offset);
        else
            removeBreakpoint(bp->ClassName, bp->LineNr);
    }
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
