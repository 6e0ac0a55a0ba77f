// The source lines of the debuggee's classes, found under the folders of
// --sourcepath as pkg/Name.java, to show the line a stop happened on.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace krvdbg {

class SourceLines {
public:
    explicit SourceLines(std::vector<std::string> folders = {});
    // The text of 1-based `line` of the class's source (internal or Java
    // form; an inner class uses its outer class's file), "" when unknown.
    std::string line(const std::string& className, int line);

private:
    const std::vector<std::string>* linesOf(const std::string& className);
    std::vector<std::string> folders_;
    std::map<std::string, std::vector<std::string>> files_; // by relative path; empty = not found
};

} // namespace krvdbg
