// Output for programs: one JSON object per line on standard output. A host
// event is {"event": NAME, ...its arguments under the names JXMachineEvents
// gives them}; a command is {"command": TEXT, "result": ...} with "error"
// added when it failed; trace lines are {"trace": TEXT}.
#pragma once

#include "Printer.h"

namespace krvdbg {

class JsonPrinter : public Printer {
public:
    void hostEvent(const jdwpkrvdbg::HostEvent& event, StopCause cause, bool late) override;
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
