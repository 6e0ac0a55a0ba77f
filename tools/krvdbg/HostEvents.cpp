// Forwarding of the host events to the printer, and the bookkeeping of stops
// and of the VM's end for the command loop.
#include "HostEvents.h"

namespace krvdbg {

namespace {
constexpr size_t kConsoleKept = 16 * 1024;
}

void HostEvents::hostEvent(const jdwpkrvdbg::HostEvent& e)
{
    using K = jdwpkrvdbg::HostEvent::Kind;
    StopCause cause = StopCause::Breakpoint;
    bool late = false;
    switch (e.kind) {
    case K::Message:
        lastMessage_ = e.text;
        break;
    case K::Breakpoint:
        cause = noteStop(e);
        break;
    case K::VMStateChanged:
        late = noteState(e.state);
        break;
    case K::DebugMessage:
        // Progress lines begin with " *** "; anything else is the debuggee's
        // own debug print, which is always shown.
        if (quiet_ && e.text.rfind(" *** ", 0) == 0)
            return;
        break;
    case K::ConsoleMessage:
    case K::ConsoleErrorMessage:
        console_ += e.text;
        if (console_.size() > kConsoleKept)
            console_.erase(0, console_.size() - kConsoleKept);
        break;
    case K::Exception:
        lastStop_.exception = e.text;
        break;
    case K::OpenConnection:
    case K::CloseConnection:
    case K::LogpointMessage:
    case K::ConditionFailed:
        break;
    }
    printer_.hostEvent(e, cause, late);
}

StopCause HostEvents::noteStop(const jdwpkrvdbg::HostEvent& e)
{
    StopInfo stop;
    static_cast<StopPlace&>(stop) = {e.threadID, e.className, e.line, e.offset};
    const bool atBreakpoint = breakpointAt_ && breakpointAt_(e.className, e.line);
    stop.cause = e.offset != 0                    ? StopCause::StopPoint
                 : stepExpected_ && !atBreakpoint ? StopCause::Step
                                                  : StopCause::Breakpoint;
    stepExpected_ = false;
    suspended_ = true;
    lastStop_ = stop;
    ++stopCount_;
    return stop.cause;
}

bool HostEvents::noteState(jdwpkrvdbg::VMState state)
{
    if (stateHook_)
        stateHook_(state);
    life_.stateChanged(state);
    if (state == jdwpkrvdbg::VMDead)
        suspended_ = false;
    // "Running" while krvdbg knows the VM is stopped is a Resume reply that
    // was read after the stop.
    return state == jdwpkrvdbg::VMRunning && suspended_;
}

} // namespace krvdbg
