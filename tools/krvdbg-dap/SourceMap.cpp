// Source path <-> class (see SourceMap.h).
#include "SourceMap.h"

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace krvdbg {

namespace fs = std::filesystem;

namespace {

std::string outermost(const std::string& internalName)
{
    const size_t dollar = internalName.find('$');
    return dollar == std::string::npos ? internalName : internalName.substr(0, dollar);
}

} // namespace

void SourceMap::setFolders(std::vector<std::string> sourcePaths, std::vector<std::string> classFolders)
{
    folders_ = std::move(sourcePaths);
    for (auto& f : classFolders)
        folders_.push_back(std::move(f));
    // Files found by the earlier folders may not be the ones to use now;
    // the files the client named stay.
    for (auto it = fileByClass_.begin(); it != fileByClass_.end();) {
        auto named = classByFile_.find(it->second);
        if (named == classByFile_.end() || named->second != it->first)
            it = fileByClass_.erase(it);
        else
            ++it;
    }
}

std::string SourceMap::packageOf(const std::string& text)
{
    size_t i = 0;
    const size_t n = text.size();
    auto skipBlanksAndComments = [&] {
        for (;;) {
            while (i < n && std::isspace(static_cast<unsigned char>(text[i])))
                ++i;
            if (text.compare(i, 2, "//") == 0) {
                i = text.find('\n', i);
                if (i == std::string::npos)
                    i = n;
            } else if (text.compare(i, 2, "/*") == 0) {
                i = text.find("*/", i + 2);
                i = i == std::string::npos ? n : i + 2;
            } else {
                return;
            }
        }
    };
    auto word = [&] {
        const size_t start = i;
        while (i < n && (std::isalnum(static_cast<unsigned char>(text[i])) || text[i] == '_' || text[i] == '$' ||
                         text[i] == '.' || static_cast<unsigned char>(text[i]) >= 0x80))
            ++i;
        return text.substr(start, i - start);
    };
    skipBlanksAndComments();
    // Annotations of the package (package-info style) come before it.
    while (i < n && text[i] == '@') {
        ++i;
        word();
        skipBlanksAndComments();
        if (i < n && text[i] == '(') {
            int depth = 0;
            for (; i < n; ++i) {
                if (text[i] == '(')
                    ++depth;
                else if (text[i] == ')' && --depth == 0) {
                    ++i;
                    break;
                }
            }
        }
        skipBlanksAndComments();
    }
    if (word() != "package")
        return {};
    std::string name;
    for (;;) {
        skipBlanksAndComments();
        const std::string part = word();
        if (part.empty())
            break;
        name += part;
    }
    skipBlanksAndComments();
    return i < n && text[i] == ';' ? name : std::string();
}

std::string SourceMap::fileNameOf(const std::string& internalName)
{
    const std::string outer = outermost(internalName);
    const size_t slash = outer.rfind('/');
    return (slash == std::string::npos ? outer : outer.substr(slash + 1)) + ".java";
}

std::optional<std::string> SourceMap::classOfFile(const std::string& path)
{
    if (auto it = classByFile_.find(path); it != classByFile_.end())
        return it->second;
    const fs::path p(path);
    if (p.extension() != ".java")
        return std::nullopt;
    std::ifstream in(path);
    if (!in)
        return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    std::string pkg = packageOf(text.str());
    for (char& c : pkg)
        if (c == '.')
            c = '/';
    const std::string name = (pkg.empty() ? std::string() : pkg + "/") + p.stem().string();
    classByFile_[path] = name;
    fileByClass_[name] = path;
    return name;
}

std::string SourceMap::fileOfClass(const std::string& internalName)
{
    const std::string outer = outermost(internalName);
    if (auto it = fileByClass_.find(outer); it != fileByClass_.end())
        return it->second;
    std::string found;
    for (const auto& folder : folders_) {
        std::error_code ec;
        const fs::path candidate = fs::path(folder) / (outer + ".java");
        if (fs::is_regular_file(candidate, ec)) {
            found = fs::absolute(candidate, ec).lexically_normal().string();
            break;
        }
    }
    fileByClass_[outer] = found;
    return found;
}

} // namespace krvdbg
