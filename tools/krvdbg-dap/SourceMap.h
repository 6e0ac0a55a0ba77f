// Source files and classes, both ways. A breakpoint arrives as a path: its
// class is the file's `package` line plus the file's name. A stack frame
// arrives as a class: its file is found under the source paths, then in the
// class path's folders (a .java beside its classes), and a file the client
// named in setBreakpoints wins, so the client gets back the path it used.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace krvdbg {

class SourceMap {
public:
    void setFolders(std::vector<std::string> sourcePaths, std::vector<std::string> classFolders);
    // The package named by Java source text ("" for the default package, or
    // when no package line comes before the first declaration).
    static std::string packageOf(const std::string& text);
    // pkg/Name for the file at `path` (read once); nullopt when the file
    // cannot be read or is not a .java file.
    std::optional<std::string> classOfFile(const std::string& path);
    // The file of a class (internal form; a nested class is found through
    // its outermost class), "" when none is known.
    std::string fileOfClass(const std::string& internalName);
    // The file name a class would have: Name.java for pkg/Name$Inner.
    static std::string fileNameOf(const std::string& internalName);

private:
    std::vector<std::string> folders_;
    std::map<std::string, std::string> classByFile_;
    std::map<std::string, std::string> fileByClass_; // outermost class -> path ("" = not found)
};

} // namespace krvdbg
