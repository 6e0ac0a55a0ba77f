// Commands from a file or from standard input, one per line, read as they are
// needed (so a program feeding krvdbg through a pipe can react to its output).
#pragma once

#include <fstream>
#include <istream>
#include <memory>

#include "LineReader.h"

namespace krvdbg {

class ScriptReader : public LineReader {
public:
    // An empty path reads standard input.
    explicit ScriptReader(const std::string& path);
    bool opened() const { return in_ != nullptr && !failed_; }
    std::optional<std::string> next() override;
    bool isScript() const override { return true; }

private:
    std::unique_ptr<std::ifstream> file_;
    std::istream* in_ = nullptr;
    bool failed_ = false;
};

} // namespace krvdbg
