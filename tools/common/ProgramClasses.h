// Which classes are the user's program (their stops are shown, `step` enters
// them): every class file in the folders of the class path, the main class,
// and what --target names (a class or a pattern such as com.acme.*). Jars on
// the class path are libraries unless --target names their classes.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace krvdbg {

class ProgramClasses {
public:
    struct Found {
        std::vector<std::string> classes; // internal names (pkg/Name, pkg/Outer$Inner)
        bool truncated = false;           // the limit was reached
    };
    // The classes in the folders of `classPath` (':'-separated, as java takes
    // it); entries that are files (jars) or wildcards are skipped. At most
    // `limit` files are looked at, so that a class path of "." in a big
    // folder does not keep krvdbg busy.
    static Found inFolders(const std::string& classPath, size_t limit = 100000);
    // A --target word as the library takes it: a class name becomes its
    // internal form; a pattern (a '*' at its start or end) stays as written.
    static std::string targetName(const std::string& word);
    static bool isPattern(const std::string& word);
};

} // namespace krvdbg
