// Parsers of the arguments of krvdbg's commands.
#include "CommandSyntax.h"

#include <cctype>
#include <charconv>

#include "ClassNames.h"

namespace krvdbg {

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string trim(const std::string& s)
{
    size_t b = 0;
    size_t e = s.size();
    while (b < e && isBlank(s[b]))
        ++b;
    while (e > b && isBlank(s[e - 1]))
        --e;
    return s.substr(b, e - b);
}

} // namespace

std::string CommandSyntax::stripComment(const std::string& line)
{
    // A '#' inside a double-quoted string (set s = "a #1") is text.
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        if (quoted) {
            if (line[i] == '\\')
                ++i; // the escaped character, a quote too
            else if (line[i] == '"')
                quoted = false;
        } else if (line[i] == '"') {
            quoted = true;
        } else if (line[i] == '#' && (i == 0 || isBlank(line[i - 1]))) {
            return trim(line.substr(0, i));
        }
    }
    return trim(line);
}

std::vector<std::string> CommandSyntax::words(const std::string& line)
{
    std::vector<std::string> out;
    const std::string text = stripComment(line);
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && isBlank(text[i]))
            ++i;
        size_t start = i;
        while (i < text.size() && !isBlank(text[i]))
            ++i;
        if (i > start)
            out.push_back(text.substr(start, i - start));
    }
    return out;
}

bool CommandSyntax::parseNumber(const std::string& text, long long min, long long max, long long& out)
{
    if (text.empty())
        return false;
    long long value = 0;
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (ec != std::errc() || ptr != end || value < min || value > max)
        return false;
    out = value;
    return true;
}

bool CommandSyntax::isIdentifier(const std::string& text)
{
    if (text.empty() || std::isdigit(static_cast<unsigned char>(text[0])))
        return false;
    for (unsigned char c : text)
        if (!(std::isalnum(c) || c == '_' || c == '$' || c >= 0x80))
            return false;
    return true;
}

bool CommandSyntax::parseLinePlace(const std::string& text, LinePlace& out)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos)
        return false;
    const std::string cls = text.substr(0, colon);
    long long line = 0;
    if (!ClassNames::isValid(cls) || !parseNumber(text.substr(colon + 1), 1, 0x7fffffff, line))
        return false;
    out = {cls, static_cast<int>(line)};
    return true;
}

namespace {
bool isMethodName(const std::string& m)
{
    return CommandSyntax::isIdentifier(m) || m == "<init>" || m == "<clinit>";
}
} // namespace

bool CommandSyntax::parseCodePlace(const std::string& text, CodePlace& out)
{
    std::string head = text;
    long long offset = 0;
    const size_t plus = text.rfind('+');
    if (plus != std::string::npos) {
        if (!parseNumber(text.substr(plus + 1), 0, 0x7fffffff, offset))
            return false;
        head = text.substr(0, plus);
    }
    const size_t dot = head.rfind('.');
    if (dot == std::string::npos)
        return false;
    const std::string cls = head.substr(0, dot);
    const std::string method = head.substr(dot + 1);
    if (!ClassNames::isValid(cls) || !isMethodName(method))
        return false;
    out = {cls, method, static_cast<int>(offset)};
    return true;
}

bool CommandSyntax::parseExpression(const std::string& text, Expression& out)
{
    const std::vector<std::string> w = words(text);
    std::string path;
    std::string cls;
    if (w.size() == 1) {
        path = w[0];
    } else if (w.size() == 3 && w[1] == "in") {
        path = w[0];
        cls = w[2];
        if (!ClassNames::isValid(cls))
            return false;
    } else {
        return false;
    }
    // A dotted path of names: the library evaluates nothing else.
    size_t start = 0;
    for (;;) {
        const size_t dot = path.find('.', start);
        const std::string name = path.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        if (!isIdentifier(name))
            return false;
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    out = {path, cls};
    return true;
}

} // namespace krvdbg
