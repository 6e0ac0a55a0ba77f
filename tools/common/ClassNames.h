// Class names between the user and the library: the user writes them as Java
// does (pkg.Name, pkg.Outer$Inner); the library compares internal names
// (pkg/Name) and reports them so too.
#pragma once

#include <string>

namespace krvdbg {

class ClassNames {
public:
    // pkg.Name -> pkg/Name (an internal name passes unchanged).
    static std::string toInternal(const std::string& javaName);
    // pkg/Name or Lpkg/Name; -> pkg.Name
    static std::string toJava(const std::string& internalName);
    // A plausible class name: identifier characters, '.', '/', '$'.
    static bool isValid(const std::string& name);
};

} // namespace krvdbg
