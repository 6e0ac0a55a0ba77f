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

bool ClassNames::isIdentifier(const std::string& name)
{
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])))
        return false;
    for (unsigned char c : name)
        if (!(std::isalnum(c) || c == '_' || c == '$' || c >= 0x80))
            return false;
    return true;
}

bool ClassNames::isMethodName(const std::string& m)
{
    return m == "<init>" || m == "<clinit>" || isIdentifier(m);
}

namespace {

std::string trimmed(const std::string& s)
{
    const size_t b = s.find_first_not_of(" \t");
    const size_t e = s.find_last_not_of(" \t");
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

// A Java parameter list "( int, java.lang.String[] )" or a JNI signature
// "(ILjava/lang/String;)V"; `out` is it without blanks.
bool parameterList(const std::string& raw, std::string& out)
{
    if (raw.size() < 2 || raw.front() != '(')
        return false;
    const size_t close = raw.find(')');
    if (close == std::string::npos || raw.find('(', 1) != std::string::npos ||
        raw.find(')', close + 1) != std::string::npos)
        return false;
    const std::string inside = trimmed(raw.substr(1, close - 1));
    const std::string after = raw.substr(close + 1);
    if (!after.empty() || inside.find_first_of("/;") != std::string::npos) {
        // The JNI form: letters, digits and the signature's own marks.
        for (unsigned char c : raw)
            if (!(std::isalnum(c) || c == '_' || c == '$' || c == '/' || c == ';' || c == '[' || c == '(' || c == ')' ||
                  c >= 0x80))
                return false;
        out = raw;
        return !after.empty();
    }
    std::string list = "(";
    for (size_t start = 0; !inside.empty();) {
        const size_t comma = inside.find(',', start);
        const std::string type =
            trimmed(inside.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        std::string element = type;
        while (element.size() > 2 && element.compare(element.size() - 2, 2, "[]") == 0)
            element.resize(element.size() - 2);
        if (!ClassNames::isValid(element))
            return false;
        list += (list.size() > 1 ? "," : "") + type;
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    out = list + ")";
    return true;
}

} // namespace

bool ClassNames::parseMethod(const std::string& text, Method& out, std::string& error)
{
    error.clear();
    const std::string s = trimmed(text);
    const size_t paren = s.find('(');
    const std::string head = s.substr(0, paren);
    const size_t dot = head.rfind('.');
    if (dot == std::string::npos || !isValid(head.substr(0, dot)) || !isMethodName(head.substr(dot + 1)))
        return false;
    std::string parameters;
    if (paren != std::string::npos && !parameterList(s.substr(paren), parameters)) {
        error = s.find(')', paren) == std::string::npos
                    ? "the parameter list has no ')'"
                    : "expected Java parameter types in the parentheses, e.g. (int,java.lang.String)";
        return false;
    }
    out = {head.substr(0, dot), head.substr(dot + 1), parameters};
    return true;
}

} // namespace krvdbg
