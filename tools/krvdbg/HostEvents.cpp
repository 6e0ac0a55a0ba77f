// Forwarding of the host events to the printer, and the bookkeeping of stops
// and of the VM's end for the command loop.
#include "HostEvents.h"

namespace krvdbg {

namespace {
constexpr size_t kConsoleKept = 16 * 1024;
}

void HostEvents::Message(const std::string& Prompt, int32_t Buttons, const std::string& Title)
{
    lastMessage_ = Prompt;
    printer_.message(Prompt, Buttons, Title);
}

void HostEvents::Breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset)
{
    StopInfo stop;
    static_cast<StopPlace&>(stop) = {threadID, ClassName, LineNr, Offset};
    const bool atBreakpoint = breakpointAt_ && breakpointAt_(ClassName, LineNr);
    stop.cause = Offset != 0                      ? StopCause::StopPoint
                 : stepExpected_ && !atBreakpoint ? StopCause::Step
                                                  : StopCause::Breakpoint;
    stepExpected_ = false;
    suspended_ = true;
    lastStop_ = stop;
    ++stopCount_;
    printer_.breakpoint(threadID, ClassName, LineNr, Offset, stop.cause);
}

void HostEvents::LogpointMessage(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& text)
{
    printer_.logpoint(threadID, ClassName, LineNr, text);
}

void HostEvents::ConditionFailed(double threadID, const std::string& ClassName, int32_t LineNr,
                                 const std::string& condition, const std::string& reason)
{
    printer_.conditionFailed(threadID, ClassName, LineNr, condition, reason);
}

void HostEvents::VMStateChanged(jdwpkrvdbg::VMState NewState)
{
    if (stateHook_)
        stateHook_(NewState);
    life_.stateChanged(NewState);
    if (NewState == jdwpkrvdbg::VMDead)
        suspended_ = false;
    // "Running" while krvdbg knows the VM is stopped is a Resume reply that
    // was read after the stop.
    const bool late = NewState == jdwpkrvdbg::VMRunning && suspended_;
    printer_.stateChanged(NewState, late);
}

void HostEvents::OpenConnection()
{
    printer_.openConnection();
}

void HostEvents::CloseConnection()
{
    printer_.closeConnection();
}

void HostEvents::DebugMessage(const std::string& s)
{
    // Progress lines begin with " *** "; anything else is the debuggee's own
    // debug print, which is always shown.
    if (quiet_ && s.rfind(" *** ", 0) == 0)
        return;
    printer_.debugMessage(s);
}

void HostEvents::ConsoleMessage(const std::string& s)
{
    console_ += s;
    if (console_.size() > kConsoleKept)
        console_.erase(0, console_.size() - kConsoleKept);
    printer_.consoleMessage(s);
}

void HostEvents::Exception(const std::string& s)
{
    lastStop_.exception = s;
    printer_.exception(s);
}

} // namespace krvdbg
