// JXMachine: the session object's own state, its creation and tear-down, the
// VM state machine, the host events and their argument rules, the whole-VM
// commands and the event requests registered when a session starts.
#include "jdwpkrvdbg/model/JXMachine.h"

#include <cmath>
#include <cstdlib>
#include <utility>

#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThreadList.h"
#include "jdwpkrvdbg/platform/Clock.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/JDWPLimits.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

// Round to nearest, ties to even, into a 32-bit integer.
int32_t roundHalfEven(double value)
{
    double r = std::nearbyint(value); // default rounding mode: to nearest even
    if (r > 2147483647.0)
        return 2147483647;
    if (r < -2147483648.0)
        return static_cast<int32_t>(-2147483647 - 1);
    return static_cast<int32_t>(r);
}

// Raises a host event. The host's object is held for the call: a handler
// may drop it (setEvents) while it runs.
template <typename Event, typename... Args>
void raise(std::shared_ptr<JXMachineEvents> events, Event event, Args&&... args)
{
    if (events)
        ((*events).*event)(std::forward<Args>(args)...);
}

} // namespace

JXMachine::JXMachine()
{
    // "Form" has no ".*" on purpose; keep it so.
    myExcludeClassNames = {"java.*", "javax.*", "sun.*", "com.sun.*", "VBA.*", "Form"};
}

JXMachine::~JXMachine()
{
    // Tear the connection down only through a handler that still exists; a
    // session destroyed together with its handler must not create a new one.
    if (auto handler = peekCurrentHandler()) {
        if (handler->peekJVM().get() == this || !handler->peekJVM())
            disconnectJVM();
    }
}

void JXMachine::cleanup()
{
    myClasses = std::make_unique<cHive<std::shared_ptr<JXClass>>>();
    myObjectClasses = std::make_unique<cHive<double>>();
    myLastStepEvent.reset();
    myStepEntry_.reset();
    myStepSkips_.clear();
    myStepLanding_.clear();
    myKnownLibraries_.clear();
    mySessionArray.clear();
    myOpeningResumed_ = false;
    myResumeInFlight_ = false;
    myStopNoticePending_ = false;
    myStopResumed_ = false;
    // The threads' stop requests died with the previous VM; clearing their
    // ids in the next one would withdraw requests that are not theirs.
    myThreadList.reset();
    // A call or a step of the previous session (one its VM died in, say)
    // must not reach into this one: while a call counts as waiting, the
    // first events of the new VM would be resumed as the call's own.
    myInvokeInProcessMsg = 0;
    myInvokeTimedOut_ = false;
    myStepInProcess = false;
    // The entries outlive the VM, their requests do not: each one is
    // registered afresh when its class is loaded in the new VM, and no
    // request id of the old VM is ever sent to the new one.
    for (const auto& bp : myBreakpoints) {
        if (bp) {
            bp->RequestEventID = 0;
            bp->UsedByVM = false;
        }
    }
    myLastCleanupStamp = static_cast<int32_t>(GetTickCount());
}

void JXMachine::disconnectJVM()
{
    auto handler = peekCurrentHandler();
    if (!handler)
        return;
    handler->exitProcess();
    handler->Disconnect();
}

bool JXMachine::exitVM()
{
    if (auto handler = peekCurrentHandler())
        handler->Disconnect();
    return false; // always False by design
}

bool JXMachine::isInvokeInProcess() const
{
    // The stamp is cleared when the call's reply is handled (or its wait
    // ends), not after a fixed time: the program's own stops that come soon
    // after an evaluation are reported, and a slow call's events are not.
    return myInvokeInProcessMsg != 0;
}

void JXMachine::invocationReplied()
{
    // The handler forgets a request when its reply is parsed, before the
    // reply is decoded; so the call whose request is gone is the one that
    // has been answered.
    auto handler = getCurrentHandler();
    if (myInvokeInProcessMsg != 0 && !handler->getMessage(myInvokeWaitingID_)) {
        myInvokeInProcessMsg = 0;
        return;
    }
    if (myInvokeTimedOut_ && !handler->getMessage(myInvokeTimedOutID_)) {
        // The reply of a call that was given up on: the call has returned
        // at last, and the VM has suspended its threads again as they were
        // when the call began.
        myInvokeTimedOut_ = false;
        GoVMStateChange(VMSuspend, -1);
    }
}

// ---------------------------------------------------------------------------
// Host events

void JXMachine::MsgBoxW(const std::string& Prompt, int32_t Buttons, const std::string& Title)
{
    raise(myEvents_, &JXMachineEvents::Message, Prompt, Buttons, Title);
}

void JXMachine::GoBreakpoint(double BreakpointID, double threadID, const std::string& ClassName, double ClassID,
                             double MethodID, double LineNr, double Offset)
{
    disarmThreadList();
    int32_t offset = 0;
    if (auto bp = getBreakPointByID(BreakpointID)) {
        if (bp->StopPoint)
            offset = roundHalfEven(Offset);
    }
    myCurrentClassID = ClassID;
    myCurrentMethodID = MethodID;
    myCurrentLine = LineNr;
    myCurrentIndex_ = Offset;
    raise(myEvents_, &JXMachineEvents::Breakpoint, threadID, ClassName, roundHalfEven(LineNr), offset);
}

void JXMachine::GoConditionFailed(double threadID, const std::string& ClassName, double LineNr,
                                  const std::string& condition, const std::string& reason)
{
    raise(myEvents_, &JXMachineEvents::ConditionFailed, threadID, ClassName, roundHalfEven(LineNr), condition, reason);
}

void JXMachine::GoLogpointMessage(double threadID, const std::string& ClassName, double LineNr, const std::string& text)
{
    raise(myEvents_, &JXMachineEvents::LogpointMessage, threadID, ClassName, roundHalfEven(LineNr), text);
}

void JXMachine::GoSingleStep(double BreakpointID, double threadID, const std::string& ClassName, double ClassID,
                             double MethodID, double LineNr, double Offset)
{
    myCurrentClassID = ClassID;
    myCurrentMethodID = MethodID;
    myCurrentLine = LineNr;
    myCurrentIndex_ = Offset;
    unregisterLastStepEvent();
    // A pause ends with the first stop, which is usually a step event of one
    // of its threads; the other threads' requests would stop the program
    // again at every later resume.
    disarmThreadList();
    raise(myEvents_, &JXMachineEvents::Breakpoint, threadID, ClassName, roundHalfEven(LineNr), 0);
}

void JXMachine::disarmThreadList()
{
    // Taken out first: clearing waits for each reply, and an event decoded
    // meanwhile may come here again while the loop still runs on the list.
    auto list = std::move(myThreadList);
    myThreadList.reset();
    if (list)
        list->unRegisterSuspend();
}

void JXMachine::GoVMStateChange(VMState NewState, double newThreadID)
{
    // Muting hides the suspensions and resumes that an evaluation's own
    // calls cause; a VM that dies meanwhile is dead for the host all the
    // same, or the session would never end.
    if (myMuteStateEvents && NewState != VMDead)
        return;
    // A stop the host has not been told of yet comes first; a dead VM is
    // not suspended any more.
    if (NewState == VMDead)
        myStopNoticePending_ = false;
    announceStop();
    if (takeState(NewState, newThreadID)) {
        if (auto events = myEvents_)
            events->VMStateChanged(myState);
    }
}

bool JXMachine::takeState(VMState NewState, double newThreadID)
{
    const bool withThread = newThreadID != -1 && newThreadID != 0;
    if (NewState == VMSuspend && withThread)
        ++myStopSerial_;
    if (NewState == myState) {
        // A stop that overtook the reply to the Resume before it is a new
        // suspension although the state never left VMSuspend: its thread and
        // frame are taken, without a second state event.
        if (NewState == VMSuspend && withThread && myResumeInFlight_) {
            myResumeInFlight_ = false;
            myCurrentThreadID = newThreadID;
            myStateStamp = static_cast<int32_t>(GetTickCount());
            myFrameValid = false;
        }
        return false;
    }
    myResumeInFlight_ = false;
    myState = NewState;
    if (withThread) {
        myCurrentThreadID = newThreadID;
        myStateStamp = static_cast<int32_t>(GetTickCount());
        if (NewState == VMSuspend)
            myFrameValid = false;
    }
    return true;
}

void JXMachine::beginStop(double threadID)
{
    if (myMuteStateEvents)
        return;
    announceStop();
    myStopResumed_ = false;
    if (takeState(VMSuspend, threadID))
        myStopNoticePending_ = true;
}

void JXMachine::announceStop()
{
    if (!myStopNoticePending_)
        return;
    myStopNoticePending_ = false;
    raise(myEvents_, &JXMachineEvents::VMStateChanged, VMSuspend);
}

void JXMachine::GoOpenConnection()
{
    raise(myEvents_, &JXMachineEvents::OpenConnection);
}

void JXMachine::GoCloseConnection()
{
    raise(myEvents_, &JXMachineEvents::CloseConnection);
}

void JXMachine::printDebug(const std::string& s)
{
    raise(myEvents_, &JXMachineEvents::DebugMessage, s);
}

void JXMachine::printConsole(const std::string& s)
{
    raise(myEvents_, &JXMachineEvents::ConsoleMessage, s);
}

void JXMachine::printConsoleError(const std::string& s)
{
    raise(myEvents_, &JXMachineEvents::ConsoleErrorMessage, s);
}

void JXMachine::GoException(const std::string& s)
{
    raise(myEvents_, &JXMachineEvents::Exception, s);
}

void JXMachine::GoSilentBreak(double threadID, double ClassID, double MethodID)
{
    myCurrentThreadID = threadID;
    myCurrentClassID = ClassID;
    myCurrentMethodID = MethodID;
    refreshFrameID();
}

// ---------------------------------------------------------------------------
// Whole-VM commands

void JXMachine::ResumeVM(bool unregisterLastStep)
{
    if (myEvaluating)
        return;
    if (unregisterLastStep)
        unregisterLastStepEvent();
    auto handler = getCurrentHandler();
    // The packet layer reports VMRunning when the Resume reply passes.
    auto resume = handler->myFactory()->createResumeMessage();
    resume->mySendStamp = myStopSerial_;
    if (handler->sendAsync(resume)) {
        myResumeInFlight_ = true;
        myStopResumed_ = true;
    }
}

void JXMachine::resumeForInvocation()
{
    if (!myEvaluating) {
        ResumeVM(true);
        return;
    }
    auto handler = getCurrentHandler();
    auto resume = handler->myFactory()->createResumeMessage();
    resume->mySendStamp = myStopSerial_;
    handler->sendAsync(resume);
}

bool JXMachine::SuspendVM()
{
    // Wherever the threads stop now, the frame of the last stop is not
    // theirs: the next evaluation asks for the top frame afresh.
    myFrameValid = false;
    auto handler = getCurrentHandler();
    handler->sendAsync(handler->myFactory()->createSuspendMessage());
    return false; // always False by design
}

void JXMachine::holdOrRelease(bool hold, int16_t ErrCount)
{
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    auto reply = handler->sendSync(hold ? factory->createHoldEventsMessage() : factory->createReleaseEventsMessage(),
                                   kReplyWaitMs);
    if (reply && reply->myErrorCode != 0 && ErrCount < kHoldAttempts - 1) {
        Sleep(1);
        holdOrRelease(hold, static_cast<int16_t>(ErrCount + 1));
    }
}

void JXMachine::HoldEvents(int16_t ErrCount)
{
    holdOrRelease(true, ErrCount);
}

void JXMachine::ReleaseEvents(int16_t ErrCount)
{
    holdOrRelease(false, ErrCount);
}

// ---------------------------------------------------------------------------
// Session-start requests

bool JXMachine::registerPrepareClass()
{
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    const auto excludes = getExcludeModifier();
    handler->sendAsync(factory->createGetEventRequestMessageII(EK_CLASS_PREPARE, JDWPSuspendPolicy::SS_All, excludes,
                                                               getUBoundMod(excludes) + 1));
    JDWPModifier debugClass;
    debugClass.Kind = MK_ClassMatch;
    debugClass.RefString = "VB.Debug";
    const std::vector<JDWPModifier> debugOnly{debugClass};
    handler->sendAsync(factory->createGetEventRequestMessageII(EK_CLASS_PREPARE, JDWPSuspendPolicy::SS_All, debugOnly,
                                                               getUBoundMod(debugOnly) + 1));
    return false;
}

bool JXMachine::registerException()
{
    auto handler = getCurrentHandler();
    // Kind 30 here although the user classes' requests use kind 4; intended.
    const auto excludes = getExcludeModifier();
    handler->sendAsync(handler->myFactory()->createGetEventRequestMessageII(
        EK_EXCEPTION_CATCH, JDWPSuspendPolicy::SS_All, excludes, getUBoundMod(excludes) + 1));
    return false;
}

bool JXMachine::registerExceptionExpilcit(const std::shared_ptr<JXClass>& refClass)
{
    if (!refClass)
        return false;
    auto handler = getCurrentHandler();
    // JDWP class patterns are dotted: pkg.Name.
    std::string dotted = refClass->ClassName();
    for (auto& c : dotted)
        if (c == '/')
            c = '.';
    JDWPModifier match;
    match.Kind = MK_ClassMatch;
    match.RefString = dotted;
    const std::vector<JDWPModifier> modifiers{match};
    handler->sendAsync(handler->myFactory()->createGetEventRequestMessageII(EK_EXCEPTION, JDWPSuspendPolicy::SS_All,
                                                                            modifiers, getUBoundMod(modifiers) + 1));
    return false;
}

bool JXMachine::registerDebugClass(const std::shared_ptr<JXClass>& refClass)
{
    if (!refClass)
        return false;
    auto method = refClass->JMethod("Print(Ljava/lang/String;)V");
    if (!method)
        return false;
    JDWPModifier location;
    location.Kind = MK_LocationOnly;
    location.RefLocation.ClassTypeTag = TT_CLASS;
    location.RefLocation.ClassID = refClass->ClassID;
    location.RefLocation.MethodID = method->MethodID;
    location.RefLocation.Index = 0;
    const std::vector<JDWPModifier> modifiers{location};
    auto handler = getCurrentHandler();
    auto reply =
        handler->sendSync(handler->myFactory()->createGetEventRequestMessageII(EK_BREAKPOINT, JDWPSuspendPolicy::SS_All,
                                                                               modifiers, getUBoundMod(modifiers) + 1),
                          kReplyWaitMs);
    return reply && reply->myErrorCode == 0;
}

bool JXMachine::registerThreadStartAndThreadEnd()
{
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    const std::vector<JDWPModifier> none;
    handler->sendAsync(factory->createGetEventRequestMessageII(EK_THREAD_START, JDWPSuspendPolicy::SS_NONE, none, 0));
    handler->sendAsync(factory->createGetEventRequestMessageII(EK_THREAD_DEATH, JDWPSuspendPolicy::SS_NONE, none, 0));
    return false;
}

} // namespace jdwpkrvdbg
