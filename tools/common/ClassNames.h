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
    // Identifier characters (letters, digits, '_', '$', anything not ASCII),
    // not starting with a digit.
    static bool isIdentifier(const std::string& name);
    // An identifier, <init> or <clinit>.
    static bool isMethodName(const std::string& name);

    struct Method {
        std::string className; // Java form as written
        std::string method;
        std::string parameters; // "" when not given
    };
    // A method as a user names it: pkg.Name.method, or one overload of it by
    // its Java parameter types, pkg.Name.method(int, java.lang.String[]), or
    // by its JNI signature, pkg.Name.method(ILjava/lang/String;)V. The
    // parameter list comes back without blanks. False when it is none of
    // these, with `error` saying what is wrong with the parameter list when
    // that is the fault.
    static bool parseMethod(const std::string& text, Method& out, std::string& error);
};

} // namespace krvdbg
