// Reading script lines.
#include "ScriptReader.h"

#include <iostream>

namespace krvdbg {

ScriptReader::ScriptReader(const std::string& path)
{
    if (path.empty()) {
        in_ = &std::cin;
        return;
    }
    file_ = std::make_unique<std::ifstream>(path);
    in_ = file_.get();
    failed_ = !*file_;
}

std::optional<std::string> ScriptReader::next()
{
    if (!opened())
        return std::nullopt;
    std::string line;
    if (!std::getline(*in_, line))
        return std::nullopt;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

} // namespace krvdbg
