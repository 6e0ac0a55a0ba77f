// Parser of the value text of JXMachine::getValue (see ValueText.h).
#include "ValueText.h"

namespace krvdbg {

namespace {

const std::string kCrLf = "\r\n";
const std::string kNotAvailable = " - Not available!";

// The lines after the final element: "path: value" each, deepest first. A line
// without ": " continues the value of the line before it (a value with a line
// break of its own).
std::vector<ValueStep> readSteps(const std::string& rest)
{
    std::vector<ValueStep> deepestFirst;
    size_t start = 0;
    while (start < rest.size()) {
        size_t end = rest.find(kCrLf, start);
        if (end == std::string::npos)
            end = rest.size();
        const std::string line = rest.substr(start, end - start);
        const size_t sep = line.find(": ");
        if (sep != std::string::npos && sep > 0 && line.find(' ') >= sep)
            deepestFirst.push_back({line.substr(0, sep), line.substr(sep + 2)});
        else if (!deepestFirst.empty())
            deepestFirst.back().value += "\n" + line;
        else if (!line.empty())
            deepestFirst.push_back({"", line});
        start = end + kCrLf.size();
    }
    return {deepestFirst.rbegin(), deepestFirst.rend()};
}

std::string dropLeadingCrLf(const std::string& s)
{
    return s.compare(0, kCrLf.size(), kCrLf) == 0 ? s.substr(kCrLf.size()) : s;
}

} // namespace

std::string ValueText::unescape(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        if (text.compare(i, 3, "{~}") == 0) {
            out += '#';
            i += 3;
        } else {
            out += text[i++];
        }
    }
    return out;
}

ParsedValue ValueText::parse(const std::string& raw)
{
    ParsedValue v;
    if (raw.empty())
        return v;
    if (raw.front() == '#') {
        // "#a.b: value#" then the intermediate lines.
        const size_t close = raw.find('#', 1);
        if (close != std::string::npos) {
            const std::string inner = raw.substr(1, close - 1);
            const size_t sep = inner.find(": ");
            v.found = true;
            v.path = sep == std::string::npos ? inner : inner.substr(0, sep);
            v.value = sep == std::string::npos ? std::string() : unescape(inner.substr(sep + 2));
            v.steps = readSteps(dropLeadingCrLf(raw.substr(close + 1)));
            return v;
        }
    }
    const size_t missing = raw.find(kNotAvailable);
    const size_t firstBreak = raw.find(kCrLf);
    if (missing != std::string::npos && (firstBreak == std::string::npos || missing < firstBreak)) {
        v.missing = raw.substr(0, missing);
        v.steps = readSteps(dropLeadingCrLf(raw.substr(missing + kNotAvailable.size())));
        return v;
    }
    // "a: #value#": a path of one name.
    const size_t sep = raw.find(": #");
    if (sep != std::string::npos && raw.back() == '#' && raw.size() >= sep + 4) {
        v.found = true;
        v.path = raw.substr(0, sep);
        v.value = unescape(raw.substr(sep + 3, raw.size() - sep - 4));
        return v;
    }
    // Not in a known layout: show it as it came.
    v.found = true;
    v.value = raw;
    return v;
}

} // namespace krvdbg
