// Where krvdbg's commands come from: a script (a file, or standard input when
// it is not a terminal) or the user at a terminal.
#pragma once

#include <optional>
#include <string>

namespace krvdbg {

class LineReader {
public:
    virtual ~LineReader() = default;
    // The next command line; nullopt at the end of the input.
    virtual std::optional<std::string> next() = 0;
    // Script lines are echoed before they run, so the output reads like a
    // session; typed lines are already on the screen.
    virtual bool isScript() const = 0;
};

} // namespace krvdbg
