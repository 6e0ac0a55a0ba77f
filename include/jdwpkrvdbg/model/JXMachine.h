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
#include <memory>
#include <string>
#include <vector>

#include "jdwpkrvdbg/model/JXMachineEvents.h"
#include "jdwpkrvdbg/protocol/JDWPStructs.h"
#include "jdwpkrvdbg/support/cHive.h"

namespace jdwpkrvdbg {

class JXBreakpoint;
class JXClass;
class JXMethod;
class JXThreadList;

// The items given to addBreakpointByCollection, one breakpoint each, as text
// "CLASS:LINE": the class name in internal or signature form ("pkg/Name" or
// "Lpkg/Name;"), a colon, and the source line as a decimal number, e.g.
// "pkg/Name:12". The class name is everything before the last colon; blanks
// around either part are ignored. An item without a class or without a
// positive whole line number is skipped (the call then answers false).
using JXBreakpointCollection = std::vector<std::string>;

class JXMachine {
public:
    JXMachine();
    ~JXMachine();
    JXMachine(const JXMachine&) = delete;
    JXMachine& operator=(const JXMachine&) = delete;

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
    bool isInvokeInProcess() const;

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
    void setTargetClassName(const std::vector<std::string>& s) { myIncludeClassNames = s; }
    void setExcludeClassName(const std::vector<std::string>& s) { myExcludeClassNames = s; }
    std::vector<std::string> getIncludeClassNames() const { return myIncludeClassNames; }
    std::vector<std::string> getExcludeClassNames() const { return myExcludeClassNames; }
    bool isPossibleClass(const std::string& refName) const;
    std::vector<JDWPModifier> getExcludeModifier() const;
    static int32_t getUBoundMod(const std::vector<JDWPModifier>& a) { return static_cast<int32_t>(a.size()) - 1; }
    static int32_t getUBound(const std::vector<std::string>& a) { return static_cast<int32_t>(a.size()) - 1; }

    // --- breakpoints, stop points, stepping ---
    bool addBreakpoint(const std::string& ClassName, double LineNr);
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

    // --- value inspection and stack ---
    void setMaxValueSize(int32_t refMaxValueSize) { myMaxValueSize = refMaxValueSize; }
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

    // --- read-only views of the current stop (for hosts and tests) ---
    double currentThreadID() const { return myCurrentThreadID; }
    double currentClassID() const { return myCurrentClassID; }
    double currentMethodID() const { return myCurrentMethodID; }
    double currentLine() const { return myCurrentLine; }
    double currentFrameID() const { return myCurrentFrameID; }
    double thisObjectID() const { return myThisObjectID; }
    bool frameValid() const { return myFrameValid; }
    bool evaluating() const { return myEvaluating; }
    bool muteStateEvents() const { return myMuteStateEvents; }
    int32_t maxValueSize() const { return myMaxValueSize; }
    bool saveMode() const { return mySaveMode; }
    int32_t classCount() const;
    // Counts the stops reported by events (suspensions with a thread).
    uint32_t stopSerial() const { return myStopSerial_; }
    // The opening sequence has sent its Resume (reset by cleanup).
    void noteOpeningResume() { myOpeningResumed_ = true; }
    bool openingResumed() const { return myOpeningResumed_; }

private:
    void registerWaitingBreakpoints(const std::shared_ptr<JXClass>& refClass);
    // The class table and object-class cache, created here when cleanup()
    // has not run yet.
    cHive<std::shared_ptr<JXClass>>& classes();
    cHive<double>& objectClasses();
    JDWPJVarValue evaluateElement(const std::string& name, double& objectID, const std::shared_ptr<JXMethod>& currentMethod,
                                  std::shared_ptr<JXClass>& currentClass, const std::string& PossibleStaticClass);
    JDWPJVarValue getFieldValue(const std::string& name, const std::shared_ptr<JXClass>& cls, double objectID);
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
    uint32_t myStopSerial_ = 0;
    bool myOpeningResumed_ = false;
    bool myResumeInFlight_ = false;
    bool myStopNoticePending_ = false;
    bool myStopResumed_ = false;
};

} // namespace jdwpkrvdbg
