// Lookup of source lines under the --sourcepath folders; every file is read
// once and kept.
#include "SourceLines.h"

#include <fstream>

#include "ClassNames.h"

namespace krvdbg {

SourceLines::SourceLines(std::vector<std::string> folders) : folders_(std::move(folders)) {}

const std::vector<std::string>* SourceLines::linesOf(const std::string& className)
{
    if (folders_.empty() || className.empty())
        return nullptr;
    std::string relative = ClassNames::toInternal(ClassNames::toJava(className));
    const size_t dollar = relative.find('$');
    if (dollar != std::string::npos)
        relative.resize(dollar);
    relative += ".java";
    auto it = files_.find(relative);
    if (it == files_.end()) {
        std::vector<std::string> lines;
        for (const auto& folder : folders_) {
            std::ifstream in(folder + "/" + relative);
            if (!in)
                continue;
            std::string text;
            while (std::getline(in, text)) {
                if (!text.empty() && text.back() == '\r')
                    text.pop_back();
                lines.push_back(text);
            }
            break;
        }
        it = files_.emplace(relative, std::move(lines)).first;
    }
    return it->second.empty() ? nullptr : &it->second;
}

std::string SourceLines::line(const std::string& className, int line)
{
    const auto* lines = linesOf(className);
    if (!lines || line < 1 || static_cast<size_t>(line) > lines->size())
        return {};
    return (*lines)[static_cast<size_t>(line) - 1];
}

} // namespace krvdbg
