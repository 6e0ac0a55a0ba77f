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
        if (quoted && line[i] == '\\')
            ++i;
        else if (line[i] == '"')
            quoted = !quoted;
        else if (!quoted && line[i] == '#' && (i == 0 || isBlank(line[i - 1])))
            return trim(line.substr(0, i));
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
    if (!ClassNames::isValid(cls) || !ClassNames::isMethodName(method))
        return false;
    out = {cls, method, static_cast<int>(offset)};
    return true;
}

namespace {

// Where the word `word` begins in `text` from `from` on, standing alone
// (blanks or the ends around it) and outside quotes; npos when it is not there.
size_t findWord(const std::string& text, const std::string& word, size_t from)
{
    char quote = 0;
    for (size_t i = from; i < text.size(); ++i) {
        const char c = text[i];
        if (quote) {
            if (c == '\\')
                ++i;
            else if (c == quote)
                quote = 0;
            continue;
        }
        if (c == '"' || c == '\'') {
            quote = c;
            continue;
        }
        if ((i == 0 || isBlank(text[i - 1])) && text.compare(i, word.size(), word) == 0 &&
            (i + word.size() == text.size() || isBlank(text[i + word.size()])))
            return i;
    }
    return std::string::npos;
}

} // namespace

bool CommandSyntax::parseBreakpoint(const std::string& text, bool log, BreakpointForm& out, std::string& error)
{
    error.clear();
    const std::string s = trim(text);
    // The place: up to the first blank outside a parameter list.
    size_t end = 0;
    while (end < s.size() && !isBlank(s[end])) {
        if (s[end] == '(') {
            end = s.find(')', end);
            if (end == std::string::npos) {
                error = "the parameter list has no ')'";
                return false;
            }
        }
        ++end;
    }
    const std::string placeText = s.substr(0, end);
    BreakpointForm form;
    const size_t paren = placeText.find('(');
    if (paren != std::string::npos) {
        ClassNames::Method method;
        if (placeText.find('+') < paren || !ClassNames::parseMethod(placeText, method, error))
            return false;
        form.kind = BreakpointForm::Kind::Method;
        form.code = {method.className, method.method, 0};
        form.parameters = method.parameters;
    } else if (parseLinePlace(placeText, form.line)) {
        form.kind = BreakpointForm::Kind::Line;
    } else if (parseCodePlace(placeText, form.code)) {
        form.kind =
            placeText.find('+') != std::string::npos ? BreakpointForm::Kind::StopPoint : BreakpointForm::Kind::Method;
    } else {
        return false;
    }

    std::string rest = trim(s.substr(end));
    if (log) {
        if (rest.empty()) {
            error = "expected the message to log, e.g. \"count is {count}\"";
            return false;
        }
        if (rest.front() != '"') {
            // Unquoted: the rest of the line is the message.
            form.logMessage = rest;
            rest.clear();
        } else {
            size_t i = 1;
            for (; i < rest.size() && rest[i] != '"'; ++i) {
                if (rest[i] == '\\' && i + 1 < rest.size() && (rest[i + 1] == '"' || rest[i + 1] == '\\'))
                    ++i;
                form.logMessage += rest[i];
            }
            if (i >= rest.size()) {
                error = "the log message has no closing '\"'";
                return false;
            }
            if (form.logMessage.empty()) {
                error = "the log message is empty";
                return false;
            }
            rest = trim(rest.substr(i + 1));
        }
    }

    // The clauses, each once, in any order; each runs to the next one.
    bool sawIf = false, sawHit = false;
    while (!rest.empty()) {
        const bool isIf = findWord(rest, "if", 0) == 0;
        const bool isHit = findWord(rest, "hit", 0) == 0;
        if (!isIf && !isHit) {
            error = "unexpected '" + rest + "': expected if CONDITION or hit N | >= N | % N";
            return false;
        }
        if ((isIf && sawIf) || (isHit && sawHit)) {
            error = std::string(isIf ? "if" : "hit") + " is given twice";
            return false;
        }
        const size_t from = isIf ? 2 : 3;
        const size_t next = findWord(rest, isIf ? "hit" : "if", from);
        const std::string clause = trim(rest.substr(from, next == std::string::npos ? std::string::npos : next - from));
        if (clause.empty()) {
            error = isIf ? "expected a condition after 'if'" : "expected N, >= N or % N after 'hit'";
            return false;
        }
        (isIf ? form.condition : form.hitCondition) = clause;
        (isIf ? sawIf : sawHit) = true;
        rest = next == std::string::npos ? std::string() : rest.substr(next);
    }
    if (form.kind == BreakpointForm::Kind::StopPoint && (sawIf || sawHit || log)) {
        error = "a stop point at a code index takes no condition, hit count or message (without +OFFSET it is a "
                "method breakpoint, which does)";
        return false;
    }
    out = form;
    return true;
}

std::string CommandSyntax::quote(const std::string& text)
{
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "\"";
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
        if (!ClassNames::isIdentifier(name))
            return false;
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    out = {path, cls};
    return true;
}

} // namespace krvdbg
