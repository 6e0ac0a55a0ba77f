// The debugging session object that the host creates and talks to, and the
// only raiser of host events. It holds the VM state machine, the identifier
// widths and version of the VM, the class table, the breakpoints and stop
// points, the current stop (thread, class, method, line, frame), and the
// members that run, suspend, step, inspect values and read the stack.
//
// Every request goes through the current JDWPHandler (never a stored
// reference); a session is obtained as getCurrentHandler()->myJVM().
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXMachineEvents.h"
#include "jdwpkrvdbg/protocol/JDWPStructs.h"
#include "jdwpkrvdbg/support/NonCopyable.h"
#include "jdwpkrvdbg/support/cHive.h"

namespace jdwpkrvdbg {

class JXBreakpoint;
class JXClass;
class JXMethod;
class JXThreadList;
class JDWPMessage;
namespace condition {
struct Value;
}

// The items given to addBreakpointByCollection, one breakpoint each, as text
// "CLASS:LINE": the class name in internal or signature form ("pkg/Name" or
// "Lpkg/Name;"), a colon, and the source line as a decimal number, e.g.
// "pkg/Name:12". The class name is everything before the last colon; blanks
// around either part are ignored. An item without a class or without a
// positive whole line number is skipped (the call then answers false).
using JXBreakpointCollection = std::vector<std::string>;

// A value typed by the user (valueText of setValue) as the variable's
// declared type takes it (JXMachine::parseValueLiteral).
struct JXValueLiteral {
    JDWPJVarEnum tag = VAR_VOID; // the JDWP tag the value is written with
    std::string bytes;           // a primitive's bytes, big-endian; empty for an object
    bool isString = false;       // a string the VM is to make first
    std::string text;            // that string, UTF-8
};

class JXMachine : NonCopyable {
public:
    JXMachine();
    ~JXMachine();

    // --- host events ---
    void setEvents(std::shared_ptr<JXMachineEvents> events) { myEvents_ = std::move(events); }
    std::shared_ptr<JXMachineEvents> events() const { return myEvents_; }

    // --- public state ---
    int16_t SIZE_FieldID = 8;
    int16_t SIZE_MethodID = 8;
    int16_t SIZE_ObjectID = 8;
    int16_t SIZE_RefTypeID = 8;
    int16_t SIZE_FrameID = 8;
    std::string VMDescription;
    double VMMajor = 0;
    double VMMinor = 0;
    std::string VMVersion;
    std::string VMName;
    int32_t myLastCleanupStamp = 0;
    std::shared_ptr<JXBreakpoint> myLastStepEvent;
    bool myStepInProcess = false;
    int32_t myInvokeInProcessMsg = 0;

    // --- lifecycle and control ---
    void cleanup();
    void disconnectJVM();
    bool exitVM();
    void setSaveMode(bool v) { mySaveMode = v; }
    VMState JVMState() const { return myState; }
    // True while a method call that the debugger started waits for its
    // reply: the events of that time are the call's own.
    bool isInvokeInProcess() const;
    // Told by the decoder of an invocation's reply, before anything else of
    // the reply is read: the call is over, and so is its window.
    void invocationReplied();

    // --- raising host events ---
    void MsgBoxW(const std::string& Prompt, int32_t Buttons, const std::string& Title);
    void GoBreakpoint(double BreakpointID, double threadID, const std::string& ClassName, double ClassID,
                      double MethodID, double LineNr, double Offset);
    void GoSingleStep(double BreakpointID, double threadID, const std::string& ClassName, double ClassID,
                      double MethodID, double LineNr, double Offset);
    void GoVMStateChange(VMState NewState, double newThreadID);
    void GoOpenConnection();
    void GoCloseConnection();
    void printDebug(const std::string& s);
    void printConsole(const std::string& s);
    void printConsoleError(const std::string& s);
    void GoException(const std::string& s);
    void GoSilentBreak(double threadID, double ClassID, double MethodID);
    // A stop reported by an event: its thread, frame and the VMSuspend state
    // are taken before the host hears of the stop, so that a handler reads
    // the stop's values and may resume from it; VMStateChanged follows the
    // handlers (announceStop), or comes first when the state moves on
    // inside them.
    void beginStop(double threadID);
    void announceStop();
    // The host resumed since the last stop began.
    bool stopResumed() const { return myStopResumed_; }

    // --- whole-VM commands ---
    void ResumeVM(bool unregisterLastStep = false);
    // Resumes the VM after an event caused by a method call that the
    // debugger is running; unlike ResumeVM it also acts during an
    // evaluation, whose own call would otherwise wait out its time-out.
    void resumeForInvocation();
    bool SuspendVM();
    void HoldEvents(int16_t ErrCount = 0);
    void ReleaseEvents(int16_t ErrCount = 0);

    // --- session-start requests ---
    bool registerPrepareClass();
    bool registerException();
    // The misspelling is the published name; intended.
    bool registerExceptionExpilcit(const std::shared_ptr<JXClass>& refClass);
    bool registerDebugClass(const std::shared_ptr<JXClass>& refClass);
    bool registerThreadStartAndThreadEnd();

    // --- class registry ---
    bool addClass(const std::shared_ptr<JXClass>& refClass, bool printInfo = false);
    std::shared_ptr<JXClass> getClassByName(const std::string& ClassName, bool addClass = false);
    std::shared_ptr<JXClass> getClassByID(double ClassID, bool addClass = false);
    std::shared_ptr<JXClass> addClassByName(const std::string& refClassName);
    std::shared_ptr<JXClass> addClassByID(double refClassID, double refClassType = 0, double refClassStatus = 0);
    double classIDFromObjectID(double ObjectID);
    std::shared_ptr<JXClass> getClassByObjectID(double ObjectID);
    std::shared_ptr<JXClass> getEventClassFromClass(const std::shared_ptr<JXClass>& refClass);
    bool redefineClass(const std::string& ClassName, const std::string& ClassBytes);
    void setTargetClassName(const std::vector<std::string>& s)
    {
        myIncludeClassNames = s;
        // A pattern learned against other targets could hide one of these.
        myKnownLibraries_.clear();
    }
    void setExcludeClassName(const std::vector<std::string>& s) { myExcludeClassNames = s; }
    std::vector<std::string> getIncludeClassNames() const { return myIncludeClassNames; }
    std::vector<std::string> getExcludeClassNames() const { return myExcludeClassNames; }
    bool isPossibleClass(const std::string& refName) const;
    std::vector<JDWPModifier> getExcludeModifier() const;
    static int32_t getUBoundMod(const std::vector<JDWPModifier>& a) { return static_cast<int32_t>(a.size()) - 1; }
    static int32_t getUBound(const std::vector<std::string>& a) { return static_cast<int32_t>(a.size()) - 1; }

    // --- breakpoints, stop points, stepping ---
    bool addBreakpoint(const std::string& ClassName, double LineNr);
    // The options' syntax checked without a VM: "" when they are fine, else
    // the reason in words ("condition: expected a value after '>'", "hit
    // count: expected N, >= N or % N").
    static std::string checkBreakpointOptions(const JXBreakpointOptions& options);
    // Adds a line breakpoint with options, or replaces the options of the one
    // already there (re-registering it when the change needs another
    // request). False when the options do not parse (nothing added).
    bool addBreakpoint(const std::string& ClassName, double LineNr, const JXBreakpointOptions& options);
    // Stop on entry to a method (code index 0): every overload when Signature
    // is "", else the one whose JNI signature ("(I)V") or Java parameter list
    // ("(int,java.lang.String)") is given. Waits for the class like a line
    // breakpoint. False when the options do not parse.
    bool addMethodBreakpoint(const std::string& ClassName, const std::string& MethodName,
                             const std::string& Signature = std::string(), const JXBreakpointOptions& options = {});
    bool removeMethodBreakpoint(const std::string& ClassName, const std::string& MethodName,
                                const std::string& Signature = std::string());
    // The entries of one method breakpoint (one per overload once the class
    // is known; none resolved yet: the waiting entry itself).
    std::vector<std::shared_ptr<JXBreakpoint>> methodBreakpoints(const std::string& ClassName,
                                                                 const std::string& MethodName,
                                                                 const std::string& Signature = std::string()) const;
    bool addStopPoint(const std::string& ClassName, const std::string& MethodName, double Offset);
    bool addBreakpointByCollection(const JXBreakpointCollection& col);
    std::shared_ptr<JXBreakpoint> getBreakPoint(const std::string& ClassName, double LineNr);
    std::shared_ptr<JXBreakpoint> getStopPoint(const std::string& ClassName, const std::string& MethodName,
                                               double Offset);
    std::shared_ptr<JXBreakpoint> getBreakPointByID(double BreakpointID);
    bool removeBreakpoint(const std::string& ClassName, double LineNr);
    bool removeStopPoint(const std::string& ClassName, const std::string& MethodName, double Offset);
    std::vector<std::shared_ptr<JXBreakpoint>> removeBreakpointByClass(const std::string& ClassName);
    const std::vector<std::shared_ptr<JXBreakpoint>>& breakpoints() const { return myBreakpoints; }
    bool ResumeVMStepByStep(bool IgnoreSuspend = false, double RefThreadID = 0, JDWPStepDepth stepDepth = SD_INTO);
    void unregisterLastStepEvent();
    bool SuspendNextStep();
    // A step event (or the step's method entry) landed in `className`, a
    // class the include filter rejects: the step is to continue past it.
    void noteStepLanding(const std::string& className);
    // Continues the step after an event that did not stop it: past the code
    // of no target it landed in, at full speed in the VM, or else line by
    // line as before.
    bool continueStep(double threadID);
    // The method entry request of a step that runs past code of no target.
    bool isStepEntryRequest(double requestID) const;
    // Whether a step event is the return from code of no target to the very
    // line the step began on (the rest of that line still runs first).
    bool isStepBackAtStart(double requestID, double ClassID, double MethodID, double LineNr) const;
    // The class pattern a step may skip for a class the include filter
    // rejects: its broadest package prefix ("org.*") that no target class
    // can fall in, else the class itself with its nested classes; "" when
    // even that could hide a target.
    std::string stepSkipPattern(const std::string& className) const;
    const std::vector<std::string>& stepSkipPatterns() const { return myStepSkips_; }
    // Code of no target that earlier steps ran past: a step into excludes it
    // from the start, so the VM skips it without an event.
    const std::vector<std::string>& knownLibraries() const { return myKnownLibraries_; }

    // --- value inspection and stack ---
    void setMaxValueSize(int32_t refMaxValueSize) { myMaxValueSize = refMaxValueSize; }
    // Names the current thread's top frame (myCurrentFrameID, the frame's
    // method) and marks the frame valid. At the first refresh of a stop the
    // id may be predicted instead of asked for (see predictFrameID); every
    // read in the frame goes through askInFrame, which falls back to asking
    // when the VM refuses a predicted id.
    void refreshFrameID(bool bIgnoreError = false);
    int32_t getStackCount();
    // frame x 5 columns: code index, class, method, signature, line.
    std::vector<std::vector<std::string>> getStackTrace();
    bool PopFrame();
    std::string getValue(const std::string& TargetVar, const std::string& PossibleStaticClass = std::string());
    JDWPJVarValue getValueFromLocalTable(const std::string& TargetVar, const std::shared_ptr<JXMethod>& tmpMethod,
                                         const std::shared_ptr<JXClass>& tmpClass);
    JDWPJVarValue getValueFromMethodCall(double ObjectID, double ClassID, double MethodID, bool MethodIsStatic,
                                         bool bForce = false);

    // --- setting values: locals, fields and statics of primitive or String type ---
    // Each answers "" when the value was set, else why not, in words. The
    // text is checked against the variable's declared type before anything
    // is set: a value that does not fit changes nothing. valueText: a number
    // (range-checked for byte, short, char, int, long; a whole number also
    // fits float and double), 'c' for a char, true or false, "text" with
    // \" \\ \n \t \r \uXXXX escapes for a String, null for any object.
    // TargetVar names the variable as getValue does: a local, a field of
    // `this`, a static of the current class, a dotted path whose last name
    // is a field (p.x), or Class.field; a single name with
    // PossibleStaticClass (internal form) is that class's static first.
    std::string setValue(const std::string& TargetVar, const std::string& valueText,
                         const std::string& PossibleStaticClass = std::string());
    // A local of any frame of a suspended thread, as a host that lists
    // frames knows it: the frame's location tells the method and the code
    // index that decides which variable of that name is in scope.
    std::string setLocalValue(double threadID, const JDWPJFrame& frame, const std::string& name,
                              const std::string& valueText);
    // A field of an object, or with ObjectID 0 a static; the field is looked
    // for from ClassID up through its superclasses (ClassID 0: the object's
    // own class). Final fields are refused.
    std::string setFieldValue(double ObjectID, double ClassID, const std::string& name, const std::string& valueText);
    // "" and `out` filled when valueText is a value of the type `signature`
    // (JNI form: I, Z, Ljava/lang/String;), else why not.
    static std::string parseValueLiteral(const std::string& signature, const std::string& valueText,
                                         JXValueLiteral& out);

    // --- read-only views of the current stop (for hosts and tests) ---
    double currentThreadID() const { return myCurrentThreadID; }
    double currentClassID() const { return myCurrentClassID; }
    double currentMethodID() const { return myCurrentMethodID; }
    double currentLine() const { return myCurrentLine; }
    // The code index of the last breakpoint or step stop: tells a step that
    // ends on a breakpoint's line from one that ends at the breakpoint.
    double currentIndex() const { return myCurrentIndex_; }
    double currentFrameID() const { return myCurrentFrameID; }
    // `this` of the current frame (0 in a static method), asked for at the
    // first use after each refresh of the frame.
    double thisObjectID();
    // Whether myCurrentFrameID was predicted and no reply has confirmed it.
    bool framePredicted() const { return myFramePredicted_; }
    bool frameValid() const { return myFrameValid; }
    bool evaluating() const { return myEvaluating; }
    bool muteStateEvents() const { return myMuteStateEvents; }
    int32_t maxValueSize() const { return myMaxValueSize; }
    bool saveMode() const { return mySaveMode; }
    int32_t classCount() const;
    // Counts the stops reported by events (suspensions with a thread).
    uint32_t stopSerial() const { return myStopSerial_; }
    // An event suspended the VM or a thread: frame ids read before are stale.
    void noteSuspension() { ++mySuspensionSerial_; }
    // A hit of a breakpoint that has options, decided while its thread is
    // suspended and before anything of it reaches the host: true when it
    // stops. Evaluates the condition with that thread's top frame (the
    // current stop's state is left as it was), counts the hit, prints a
    // logpoint's message. `failure` is set when the condition could not be
    // evaluated (the hit then stops; the caller raises ConditionFailed once
    // the stop is taken).
    bool breakpointHit(const std::shared_ptr<JXBreakpoint>& bp, double threadID, const JDWPJLocation& location,
                       const std::string& ClassName, double LineNr, std::string& failure);
    void GoConditionFailed(double threadID, const std::string& ClassName, double LineNr, const std::string& condition,
                           const std::string& reason);
    void GoLogpointMessage(double threadID, const std::string& ClassName, double LineNr, const std::string& text);
    // The opening sequence has sent its Resume (reset by cleanup).
    void noteOpeningResume() { myOpeningResumed_ = true; }
    bool openingResumed() const { return myOpeningResumed_; }

private:
    void registerWaitingBreakpoints(const std::shared_ptr<JXClass>& refClass);
    // The class table and object-class cache, created here when cleanup()
    // has not run yet.
    cHive<std::shared_ptr<JXClass>>& classes();
    cHive<double>& objectClasses();
    JDWPJVarValue evaluateElement(const std::string& name, double& objectID,
                                  const std::shared_ptr<JXMethod>& currentMethod,
                                  std::shared_ptr<JXClass>& currentClass, const std::string& PossibleStaticClass);
    JDWPJVarValue getFieldValue(const std::string& name, const std::shared_ptr<JXClass>& cls, double objectID);
    // A local of `method` in the current frame. `decisive` is set when the
    // name is a local there but its value cannot be had (anything but "not
    // in scope here"): no field of the same name may then stand in for it.
    JDWPJVarValue readLocal(const std::string& name, const std::shared_ptr<JXMethod>& method, bool& decisive);
    std::string evaluatePath(const std::string& TargetVar, const std::string& PossibleStaticClass);
    // Runs `body` with myEvaluating and myMuteStateEvents set, and tells the
    // host of the running VM a call that did not return left behind.
    void underEvaluationGuards(const std::function<void()>& body);
    // Setting values (JXMachineSetValues.cpp): the path's target resolved
    // at the current stop, under the evaluation guards.
    std::string setResolved(const std::string& TargetVar, const std::string& valueText,
                            const std::string& PossibleStaticClass);
    // One name of a dotted path and what it read; `next` is the name after
    // it ("" for the last).
    struct PathStep {
        std::string path;
        JDWPJVarValue value;
        bool first = false;
        bool last = false;
        std::string next;
    };
    // Reads a dotted path name by name, up to the first name without a value
    // (its step has Found false) or without members. False when there is
    // nothing to read it in (no frame, no method) or it is no path.
    bool walkPath(const std::string& TargetVar, const std::string& PossibleStaticClass, std::vector<PathStep>& steps);
    // A path's value typed for a condition; false with `why` set.
    bool readConditionValue(const std::string& path, condition::Value& value, std::string& why);
    // A path's value as a logpoint prints it.
    std::string logValueText(const std::string& path);
    // Method breakpoints: entries whose class is known become one per
    // matching overload; false when none matches (the entry waits).
    bool expandMethodEntry(const std::shared_ptr<JXBreakpoint>& bp, const std::shared_ptr<JXClass>& cls);
    void registerEntryOf(const std::shared_ptr<JXBreakpoint>& bp);
    // Takes new options for an existing entry, re-registering it when what
    // the VM counts changes.
    bool replaceOptions(const std::shared_ptr<JXBreakpoint>& bp, const JXBreakpointOptions& options);
    // Whether a method's JNI signature is the one asked for: "" (any), the
    // JNI signature, its parameter part, or a Java parameter list.
    static bool signatureMatches(const std::string& wanted, const std::string& signature);
    void holdOrRelease(bool hold, int16_t ErrCount);
    // Enters a state, recording the thread of a suspension; true when the
    // state changed (the host is to be told).
    bool takeState(VMState NewState, double newThreadID);
    // Withdraws the pause's per-thread stop requests and drops the list.
    void disarmThreadList();

    std::shared_ptr<JXMachineEvents> myEvents_;

    std::shared_ptr<JXThreadList> myThreadList;
    std::unique_ptr<cHive<std::shared_ptr<JXClass>>> myClasses;
    std::unique_ptr<cHive<double>> myObjectClasses;
    std::vector<std::shared_ptr<JXBreakpoint>> myBreakpoints;
    bool myEvaluating = false;
    bool myMuteStateEvents = false;
    VMState myState = VMDead;
    double myCurrentThreadID = 0;
    double myCurrentLine = 0;
    double myCurrentClassID = 0;
    double myCurrentMethodID = 0;
    double myCurrentIndex_ = 0;
    double myCurrentFrameID = 0;
    int32_t myStateStamp = 0;
    double myThisObjectID = 0;
    bool myFrameValid = false;
    int32_t myMaxValueSize = 512;
    std::vector<std::string> mySessionArray;
    std::vector<std::string> myExcludeClassNames;
    std::vector<std::string> myIncludeClassNames;
    bool mySaveMode = false;
    bool bSuspendNextStepRunning_ = false;
    // Patterns of code of no target that the current step skips, and the
    // step's method entry request while it runs past such code.
    std::vector<std::string> myStepSkips_;
    std::string myStepLanding_;
    std::vector<std::string> myKnownLibraries_;
    void learnLibrary(const std::string& pattern);
    std::vector<std::string> knownLibrariesAround(const std::string& className) const;
    std::shared_ptr<JXBreakpoint> myStepEntry_;
    // Where the current step began: class, method, line.
    double myStepFromClassID_ = 0;
    double myStepFromMethodID_ = 0;
    double myStepFromLine_ = 0;
    void clearStepRequests();
    bool stepPastLibrary(double threadID);
    uint32_t myStopSerial_ = 0;
    bool myOpeningResumed_ = false;
    bool myResumeInFlight_ = false;
    // The method of the frame that myCurrentFrameID names (from the last
    // frame refresh): a slot of another method is not read in it.
    double myFrameMethodID_ = 0;
    // Frame 0's id without a round trip. The VM's frame ids carry a
    // per-thread generation that each resume bumps, and the VM checks the
    // generation on every use (INVALID_FRAMEID for a stale id). So at a
    // stop of a thread that also made the previous stop, frame 0's id is
    // that stop's id plus the step seen between two such stops; a refused
    // id falls back to asking. Learned per thread, never assumed.
    struct FrameSighting {
        uint32_t serial = 0; // the suspension the id belongs to
        double frameID = 0;  // the thread's latest frame 0 id at that stop
        double step = 0;     // between two consecutive stops (0: not known)
    };
    std::map<double, FrameSighting> myFrameSightings_;
    bool myFramePredicted_ = false;
    double myPredictedFrom_ = 0;
    // The suspension whose frame myCurrentFrameID names (a second refresh
    // at the same one asks: a pop or a call has moved the frame).
    uint32_t myFrameSerial_ = 0;
    // Counts the suspensions reported by events, also the breakpoint hits
    // that never reach the host (a false condition, a logpoint).
    uint32_t mySuspensionSerial_ = 0;
    bool myThisKnown_ = false;
    bool predictFrameID();
    void readFrameID(bool bIgnoreError);
    JDWPJFrame frameOfCurrentMethod(const JDWPJFrame& top);
    void noteFrameSighting(double frameID);
    // Sends the request `make` builds for the current frame id; a predicted
    // id the VM refuses is replaced by the asked one and the request sent
    // once more.
    std::shared_ptr<JDWPMessage> askInFrame(const std::function<std::shared_ptr<JDWPMessage>(double)>& make);
    // A call that got no reply within the wait still runs in the VM, in
    // this thread; no other call is started there until it returns.
    bool myInvokeTimedOut_ = false;
    double myInvokeTimedOutThread_ = 0;
    // Packet ids of the call that waits and of the one that timed out: a
    // reply is told by its request having left the handler's sent table.
    double myInvokeWaitingID_ = 0;
    double myInvokeTimedOutID_ = 0;
    uint32_t myInvokeTimeouts_ = 0;
    bool myStopNoticePending_ = false;
    bool myStopResumed_ = false;
};

} // namespace jdwpkrvdbg
