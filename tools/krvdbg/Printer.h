// Where krvdbg's output goes: the host events of the session as they come,
// the trace lines, and the outcome of every command. TextPrinter writes lines
// a person reads; JsonPrinter writes one JSON object per line for scripts.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <jdwpkrvdbg/protocol/JDWPStructs.h>

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

    // --- host events, with the arguments of JXMachineEvents ---
    virtual void message(const std::string& Prompt, int32_t Buttons, const std::string& Title) = 0;
    virtual void breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset,
                            StopCause cause) = 0;
    // `late`: "running" from a Resume reply that was read after a stop (the
    // VM is stopped).
    virtual void stateChanged(jdwpkrvdbg::VMState NewState, bool late) = 0;
    virtual void openConnection() = 0;
    virtual void closeConnection() = 0;
    virtual void debugMessage(const std::string& s) = 0;
    virtual void consoleMessage(const std::string& s) = 0;
    virtual void exception(const std::string& s) = 0;
    // A logpoint's line (the program goes on), and a condition that could
    // not be evaluated (the stop follows).
    virtual void logpoint(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& text) = 0;
    virtual void conditionFailed(double threadID, const std::string& ClassName, int32_t LineNr,
                                 const std::string& condition, const std::string& reason) = 0;

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
    std::function<void()> before_;
    std::function<void()> after_;
};

} // namespace krvdbg
