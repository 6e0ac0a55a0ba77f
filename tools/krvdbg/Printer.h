// Where krvdbg's output goes: the host events of the session as they come,
// the trace lines, and the outcome of every command. TextPrinter writes lines
// a person reads; JsonPrinter writes one JSON object per line for scripts.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <jdwpkrvdbg/model/HostEvent.h>

namespace krvdbg {

using Json = nlohmann::ordered_json;

// Identifiers and counts are doubles in the library; whole ones are written
// as JSON integers.
inline Json jsonNumber(double d)
{
    if (d == static_cast<double>(static_cast<long long>(d)) && d > -9007199254740992.0 && d < 9007199254740992.0)
        return static_cast<long long>(d);
    return d;
}

// What the user asked for when a stop came: lets the text output say "Step
// completed" rather than "Breakpoint hit".
enum class StopCause { Breakpoint, StopPoint, Step };

struct CommandOutcome {
    std::string command;
    bool ok = true;
    std::string error;             // when !ok: what went wrong or what is expected
    Json result;                   // the structured result (null when none)
    std::vector<std::string> text; // the same for a person, one line each

    static CommandOutcome failure(const std::string& command, const std::string& error)
    {
        CommandOutcome o;
        o.command = command;
        o.ok = false;
        o.error = error;
        return o;
    }
};

class Printer {
public:
    virtual ~Printer() = default;

    // --- host events ---
    // Each event as it comes. `cause` is what the user asked for when a
    // Breakpoint came; `late` marks a VMStateChanged "running" that is a
    // Resume reply read after a stop (the VM is stopped).
    virtual void hostEvent(const jdwpkrvdbg::HostEvent& event, StopCause cause, bool late) = 0;
    // The same, for callers that hold JXMachineEvents' arguments.
    void message(const std::string& Prompt, int32_t Buttons, const std::string& Title)
    {
        Forward(*this).Message(Prompt, Buttons, Title);
    }
    void breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset, StopCause cause)
    {
        Forward(*this, cause).Breakpoint(threadID, ClassName, LineNr, Offset);
    }
    void stateChanged(jdwpkrvdbg::VMState NewState, bool late)
    {
        Forward(*this, StopCause::Breakpoint, late).VMStateChanged(NewState);
    }
    void consoleMessage(const std::string& s) { Forward(*this).ConsoleMessage(s); }
    void exception(const std::string& s) { Forward(*this).Exception(s); }
    void logpoint(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& text)
    {
        Forward(*this).LogpointMessage(threadID, ClassName, LineNr, text);
    }
    void conditionFailed(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& condition,
                         const std::string& reason)
    {
        Forward(*this).ConditionFailed(threadID, ClassName, LineNr, condition, reason);
    }

    // --- krvdbg's own output ---
    virtual void trace(const std::string& line) = 0;
    // A command read from a script, before it runs.
    virtual void echo(const std::string& commandLine) = 0;
    virtual void outcome(const CommandOutcome& outcome) = 0;
    // A remark of krvdbg itself ("The application has ended.").
    virtual void note(const std::string& text) = 0;
    // Writes what is held back to be combined with a following event.
    virtual void flush() {}

    // Called around every write, so that an interactive prompt can be
    // taken off the line and drawn again below the output.
    void setOutputHooks(std::function<void()> before, std::function<void()> after)
    {
        before_ = std::move(before);
        after_ = std::move(after);
    }

protected:
    // Writes `text` to standard output at once (no buffering across events).
    void write(const std::string& text);

private:
    // Makes the event of a JXMachineEvents call, as the session's observer
    // does, and hands it to the printer.
    class Forward : public jdwpkrvdbg::HostEventSink {
    public:
        explicit Forward(Printer& printer, StopCause cause = StopCause::Breakpoint, bool late = false)
            : printer_(printer), cause_(cause), late_(late)
        {
        }
        void hostEvent(const jdwpkrvdbg::HostEvent& event) override { printer_.hostEvent(event, cause_, late_); }

    private:
        Printer& printer_;
        StopCause cause_;
        bool late_;
    };

    std::function<void()> before_;
    std::function<void()> after_;
};

} // namespace krvdbg
