// Output for a person: one readable line per host event, the debuggee's
// console text as it is (with Unix line ends), the outcome of each command.
// A stop is held back until the events that follow it from the same packet
// (the state change, an exception's text) have been seen, so that an
// exception stop reads as one.
#pragma once

#include "Printer.h"
#include "SourceLines.h"

namespace krvdbg {

class TextPrinter : public Printer {
public:
    explicit TextPrinter(SourceLines& sources) : sources_(sources) {}

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
    void flush() override;

    static std::string stateName(jdwpkrvdbg::VMState state);

private:
    // Writes whole lines, after ending a console line left open.
    void line(const std::string& text);
    std::string stopPlace(const std::string& className, int32_t line, int32_t offset) const;

    SourceLines& sources_;
    bool atLineStart_ = true;
    bool stopPending_ = false;
    std::string pendingLabel_;
    std::string pendingPlace_;
    std::string pendingClass_;
    int32_t pendingLine_ = 0;
    std::string pendingException_; // lines after the stop line
    std::string pendingState_;
};

} // namespace krvdbg
