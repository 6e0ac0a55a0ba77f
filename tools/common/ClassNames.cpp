// Conversions between the Java form of class names and the internal form
// that the library uses.
#include "ClassNames.h"

#include <cctype>

namespace krvdbg {

std::string ClassNames::toInternal(const std::string& javaName)
{
    std::string s = javaName;
    for (char& c : s)
        if (c == '.')
            c = '/';
    return s;
}

std::string ClassNames::toJava(const std::string& internalName)
{
    std::string s = internalName;
    if (s.size() >= 2 && s.front() == 'L' && s.back() == ';')
        s = s.substr(1, s.size() - 2);
    for (char& c : s)
        if (c == '/')
            c = '.';
    return s;
}

bool ClassNames::isValid(const std::string& name)
{
    if (name.empty() || name.front() == '.' || name.back() == '.' || name.front() == '/' || name.back() == '/')
        return false;
    char previous = 0;
    for (unsigned char c : name) {
        const bool separator = c == '.' || c == '/';
        if (!(std::isalnum(c) || c == '_' || c == '$' || separator || c >= 0x80))
            return false;
        if (separator && (previous == '.' || previous == '/'))
            return false;
        previous = static_cast<char>(c);
    }
    return !std::isdigit(static_cast<unsigned char>(name.front()));
}

} // namespace krvdbg
