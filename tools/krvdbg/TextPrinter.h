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

    void hostEvent(const jdwpkrvdbg::HostEvent& event, StopCause cause, bool late) override;
    void trace(const std::string& line) override;
    void echo(const std::string& commandLine) override;
    void outcome(const CommandOutcome& outcome) override;
    void note(const std::string& text) override;
    void flush() override;

    static std::string stateName(jdwpkrvdbg::VMState state);

private:
    // Writes whole lines, after ending a console line left open.
    void line(const std::string& text);
    void holdStop(const jdwpkrvdbg::HostEvent& e, StopCause cause);
    void showException(const std::string& s);
    void showState(jdwpkrvdbg::VMState state, bool late);
    void showConsole(const std::string& s);
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
