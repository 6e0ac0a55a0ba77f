// Output for programs: one JSON object per line on standard output. A host
// event is {"event": NAME, ...its arguments under the names JXMachineEvents
// gives them}; a command is {"command": TEXT, "result": ...} with "error"
// added when it failed; trace lines are {"trace": TEXT}.
#pragma once

#include "Printer.h"

namespace krvdbg {

class JsonPrinter : public Printer {
public:
    void message(const std::string& Prompt, int32_t Buttons, const std::string& Title) override;
    void breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset,
                    StopCause cause) override;
    void stateChanged(jdwpkrvdbg::VMState NewState, bool late) override;
    void openConnection() override;
    void closeConnection() override;
    void debugMessage(const std::string& s) override;
    void consoleMessage(const std::string& s) override;
    void exception(const std::string& s) override;
    void logpoint(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& text) override;
    void conditionFailed(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& condition,
                         const std::string& reason) override;
    void trace(const std::string& line) override;
    void echo(const std::string& commandLine) override;
    void outcome(const CommandOutcome& outcome) override;
    void note(const std::string& text) override;

    // One line of JSON; text that is not valid UTF-8 is written with
    // replacement characters instead of failing.
    static std::string dumpLine(const Json& object);

private:
    void emit(const Json& object);
};

} // namespace krvdbg
