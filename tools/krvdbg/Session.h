// One debugging session as krvdbg runs it: creates the library's session,
// attaches the event observer, hands over the class filters, starts or
// attaches to the VM, and waits for stops. Everything else (the commands)
// works on the library objects it hands out.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include <jdwpkrvdbg/model/JXMachine.h>
#include <jdwpkrvdbg/session/JDWPHandler.h>

#include "CommandLine.h"
#include "HostEvents.h"
#include "Printer.h"
#include <jdwpkrvdbg/support/NonCopyable.h>

namespace krvdbg {

// Ending: a TERM or HUP asked krvdbg to end.
enum class WaitOutcome { Stopped, Ended, TimedOut, Interrupted, Ending };

class Session : jdwpkrvdbg::NonCopyable {
public:
    Session(const Options& options, Printer& printer);
    ~Session();

    // Launches the VM (or attaches) and returns once the transport is up;
    // false with failureText() set when the VM could not be started or
    // reached.
    bool start();
    bool started() const { return started_; }
    // The VM ran to its end (or the connection to it was lost).
    bool ended() const { return events_->ended(); }
    bool alive() const { return started_ && !ended(); }
    bool suspended();
    const std::string& failureText() const { return failureText_; }

    // Pumps the library's events until the next stop, the VM's end, Ctrl-C,
    // or `timeoutMs` (0: no limit). After a stop the session's current
    // thread and frame are those of the stop.
    WaitOutcome waitForStop(uint32_t timeoutMs = 0);
    // krvdbg suspended the VM itself (suspend, Ctrl-C).
    void noteSuspendAsked();
    // Attach mode, after start(): pumps until the opening sequence is over
    // and tells whether the program was already running (the VM was not
    // started suspended: no start event stopped it). Breakpoints set before
    // are then registered at once, since their classes are loaded already
    // and will not be prepared again.
    bool attachedToRunningProgram();
    // Pumps for at most `ms` (events that are already on their way).
    void pumpFor(uint32_t ms);
    // After the end: lets the last console output of the process arrive.
    void drainAfterEnd();
    // Whether the main class was ever loaded in the VM (launch modes).
    bool mainClassLoaded();
    // Ends the session: a VM that still runs is disconnected (a launched one
    // is killed, an attached one is let go).
    void shutdown();

    // A class of the program (internal form) or a pattern; its stops are
    // reported. `apply` false: only collected, for a later apply.
    void addTarget(const std::string& internalName, bool apply = true);

    jdwpkrvdbg::JDWPHandler& handler() { return *handler_; }
    jdwpkrvdbg::JXMachine& jvm() { return *handler_->myJVM(); }
    HostEvents& events() { return *events_; }
    Printer& printer() { return printer_; }
    const Options& options() const { return options_; }

    // The words of the VM's command line for the launch modes, quoted for
    // the transport's shell-like splitting.
    std::string launchParameters(const std::string& agent) const;

private:
    // The VM's start event can reach the VM after the Resume that ends the
    // library's opening sequence (the library does not wait for it); the VM
    // then stays suspended at its start with nobody to resume it. Seen as a
    // suspension without a stop, reported after the reply to that Resume.
    bool stuckAtStart();
    // Which came first: the reply to the opening Resume, or a suspension.
    class OpeningOrder {
    public:
        void resumeReplied() { lastResumeReply_ = ++sequence_; }
        void suspended()
        {
            lastSuspend_ = ++sequence_;
            if (lastResumeReply_ == 0)
                suspendedBeforeReply_ = true;
        }
        bool replied() const { return lastResumeReply_ > 0; }
        bool suspendedBeforeReply() const { return suspendedBeforeReply_; }
        bool suspendedAfterReply() const { return replied() && lastSuspend_ > lastResumeReply_; }

    private:
        uint64_t sequence_ = 0;
        uint64_t lastResumeReply_ = 0;
        uint64_t lastSuspend_ = 0;
        bool suspendedBeforeReply_ = false;
    };
    void onPacket(const jdwpkrvdbg::PacketEvent& packet);
    void onStateChanged(jdwpkrvdbg::VMState state);

    const Options& options_;
    Printer& printer_;
    std::shared_ptr<jdwpkrvdbg::JDWPHandler> handler_;
    std::shared_ptr<HostEvents> events_;
    std::vector<std::string> targets_;
    std::unordered_set<std::string> targetSet_;
    int packetObserver_ = 0;
    OpeningOrder opening_;
    bool startResumed_ = false;
    bool started_ = false;
    bool shutDown_ = false;
    std::string failureText_;
};

} // namespace krvdbg
