// Reading the text that the session's getValue returns for an expression:
// the final element first, delimited by '#' ("#a.b: value#", or "a: #value#"
// for a single name, with '#' inside the value written as "{~}"), then the
// intermediate elements of the path, one per CR LF line, the deepest first;
// or "a.b - Not available!" followed by the elements that were found.
#pragma once

#include <string>
#include <vector>

namespace krvdbg {

struct ValueStep {
    std::string path;
    std::string value;
};

struct ParsedValue {
    bool found = false;
    std::string path;             // path of the final element
    std::string value;            // its value, "{~}" turned back into '#'
    std::string missing;          // when !found: the path that was not available ("" if none was)
    std::vector<ValueStep> steps; // the intermediate elements, outermost first
};

class ValueText {
public:
    static ParsedValue parse(const std::string& raw);
    static std::string unescape(const std::string& text);
};

} // namespace krvdbg
