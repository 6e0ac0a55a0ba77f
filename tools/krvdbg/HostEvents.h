// krvdbg's observer of the session's host events: hands each event to the
// printer (progress lines only without --quiet) and remembers what the
// command loop needs: the last stop, how many stops there were, the VM's
// last reported state, whether it ended, and the last message box.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <jdwpkrvdbg/model/HostEvent.h>

#include "Printer.h"
#include "StopRecord.h"

namespace krvdbg {

struct StopInfo : StopPlace {
    StopCause cause = StopCause::Breakpoint;
    std::string exception; // the exception's text for an exception stop
};

class HostEvents : public jdwpkrvdbg::HostEventSink {
public:
    HostEvents(Printer& printer, bool quiet) : printer_(printer), quiet_(quiet) {}

    // Notes what the command loop needs, then hands the event to the printer.
    void hostEvent(const jdwpkrvdbg::HostEvent& event) override;

    // A step was asked for: the next stop is reported as its completion,
    // unless a breakpoint sits where it stopped (`breakpointAt` tells).
    void expectStep() { stepExpected_ = true; }
    // Told of every state change before the printer.
    void setStateHook(std::function<void(jdwpkrvdbg::VMState)> hook) { stateHook_ = std::move(hook); }
    void setBreakpointQuery(std::function<bool(const std::string& className, int32_t line)> breakpointAt)
    {
        breakpointAt_ = std::move(breakpointAt);
    }
    // Whether the VM is stopped, as krvdbg sees it: since the last stop or
    // confirmed suspend, and before krvdbg resumed it. The library's own
    // state is not used for this: a Resume reply read after the stop it led
    // to (or after a stop that came while an automatic resume was on its
    // way) reports "running" when the VM is stopped.
    bool suspended() const { return suspended_; }
    void noteResume() { suspended_ = false; }
    void noteSuspended() { suspended_ = true; }

    uint64_t stopCount() const { return stopCount_; }
    const StopInfo& lastStop() const { return lastStop_; }
    bool ended() const { return life_.ended(); }
    bool connected() const { return life_.connected(); }
    const std::string& lastMessage() const { return lastMessage_; }
    const std::string& console() const { return console_; }

private:
    StopCause noteStop(const jdwpkrvdbg::HostEvent& e);
    // True for a "running" that is late (see Printer::hostEvent).
    bool noteState(jdwpkrvdbg::VMState state);

    Printer& printer_;
    bool quiet_;
    std::function<bool(const std::string&, int32_t)> breakpointAt_;
    std::function<void(jdwpkrvdbg::VMState)> stateHook_;
    bool stepExpected_ = false;
    bool suspended_ = false;
    uint64_t stopCount_ = 0;
    StopInfo lastStop_;
    VMLifetime life_;
    std::string lastMessage_;
    std::string console_; // the last few KiB of console text
};

} // namespace krvdbg
