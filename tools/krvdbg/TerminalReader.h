// Commands typed at a terminal: a prompt with line editing and history
// (libedit, when krvdbg was built with it), read without blocking the
// library's message pump, so that the debuggee's output and the VM's events
// appear while the prompt is shown.
#pragma once

#include <string>

#include "LineReader.h"
#include "Printer.h"

namespace krvdbg {

class TerminalReader : public LineReader {
public:
    explicit TerminalReader(Printer& printer);
    ~TerminalReader() override;
    std::optional<std::string> next() override;
    bool isScript() const override { return false; }

    // Called by the line editor with a finished line (nullptr at end of input).
    void lineDone(const char* line);

private:
    // Reads what stdin has (without libedit); true when a line is complete.
    void readPlain();
    void beforeOutput();
    void afterOutput();

    Printer& printer_;
    bool prompting_ = false;
    bool done_ = false;
    bool eof_ = false;
    std::string line_;
    std::string plainBuffer_;
};

} // namespace krvdbg
