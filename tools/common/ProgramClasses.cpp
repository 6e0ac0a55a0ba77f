// Finding the program's classes in the class path's folders.
#include "ProgramClasses.h"

#include <filesystem>
#include <system_error>

#include "ClassNames.h"

namespace krvdbg {

namespace fs = std::filesystem;

ProgramClasses::Found ProgramClasses::inFolders(const std::string& classPath, size_t limit)
{
    Found found;
    size_t seen = 0;
    for (size_t start = 0; start <= classPath.size();) {
        size_t end = classPath.find(':', start);
        if (end == std::string::npos)
            end = classPath.size();
        // An empty entry is the current folder, as java takes it.
        const std::string entry = end > start ? classPath.substr(start, end - start) : ".";
        start = end + 1;
        std::error_code ec;
        if (entry.find('*') != std::string::npos || !fs::is_directory(entry, ec))
            continue;
        const fs::path root(entry);
        for (fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied, ec), last;
             !ec && it != last; it.increment(ec)) {
            if (++seen > limit) {
                found.truncated = true;
                return found;
            }
            const fs::path& p = it->path();
            if (p.extension() != ".class" || !it->is_regular_file(ec))
                continue;
            const std::string stem = p.stem().string();
            if (stem == "module-info" || stem == "package-info")
                continue;
            fs::path relative = p.lexically_relative(root);
            relative.replace_extension();
            found.classes.push_back(relative.generic_string());
        }
    }
    return found;
}

bool ProgramClasses::isPattern(const std::string& word)
{
    return !word.empty() && (word.front() == '*' || word.back() == '*');
}

std::string ProgramClasses::targetName(const std::string& word)
{
    return isPattern(word) ? word : ClassNames::toInternal(word);
}

} // namespace krvdbg
