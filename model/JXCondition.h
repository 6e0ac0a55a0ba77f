// What a breakpoint decides at a hit, parsed once when the breakpoint is set:
// its condition (comparisons of dotted paths and literals joined by &&, ||
// and !), its hit rule ("N", ">= N", "% N") and a logpoint's message
// template ("text {path} text"). Pure: no VM, no session. The values of the
// paths come from a resolver the caller gives, so the same code runs against
// the VM at a hit and against tables in the unit tests.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace jdwpkrvdbg::condition {

// A value as a condition sees it.
struct Value {
    enum class Kind { Null, Boolean, Number, Text, Reference };
    Kind kind = Kind::Null;
    bool flag = false;
    // Numbers: `whole` is exact when `integral` (ints, longs, chars, integer
    // literals); `number` always holds the value.
    double number = 0;
    int64_t whole = 0;
    bool integral = false;
    std::string text;
    // An object's id (0 = null is Kind::Null instead).
    double ref = 0;
    // The Java type in words for messages ("int", "String", "Point").
    std::string typeName;

    static Value boolean(bool b);
    static Value integer(int64_t n, const std::string& type = "int");
    static Value real(double d, const std::string& type = "double");
    static Value string(const std::string& s);
    static Value reference(double id, const std::string& type);
    static Value null();
};

// Reads a dotted path; false with `why` set when it has no value.
using Resolver = std::function<bool(const std::string& path, Value& value, std::string& why)>;

class Condition {
public:
    // "" when `text` parses (a blank text is the empty condition), else the
    // reason in words.
    std::string parse(const std::string& text);
    bool empty() const { return root_ < 0; }
    // The condition's truth, or nothing with `why` set when it cannot be
    // told (a path without a value, types that do not compare).
    std::optional<bool> evaluate(const Resolver& resolve, std::string& why) const;

    enum class Op { Or, And, Not, Compare, Bare };
    enum class Cmp { Eq, Ne, Lt, Le, Gt, Ge };
    struct Operand {
        bool isPath = false;
        std::string path;
        Value literal;
    };
    struct Node {
        Op op = Op::Bare;
        int left = -1;
        int right = -1;
        Cmp cmp = Cmp::Eq;
        Operand a, b;
    };

private:
    std::optional<bool> evaluateNode(int index, const Resolver& resolve, std::string& why) const;
    std::vector<Node> nodes_;
    int root_ = -1;
};

// Which hits of a breakpoint stop it.
struct HitRule {
    enum class Mode { Every, Exactly, AtLeast, EveryNth };
    Mode mode = Mode::Every;
    uint32_t n = 0;
    // "" when `text` parses ("", "N", ">= N", "% N"; N from 1), else why not.
    std::string parse(const std::string& text);
    // Whether the hit with this number (from 1) stops.
    bool selects(uint32_t hit) const;
};

// A logpoint's message: literal text and {path} parts.
class LogTemplate {
public:
    std::string parse(const std::string& text);
    bool empty() const { return parts_.empty(); }
    // The message with each path replaced by what `render` makes of it.
    std::string render(const std::function<std::string(const std::string& path)>& value) const;

private:
    struct Part {
        bool isPath = false;
        std::string text;
    };
    std::vector<Part> parts_;
};

// A breakpoint's options as parsed when it was set.
struct Plan {
    Condition condition;
    HitRule hits;
    LogTemplate log;
    bool logpoint = false;
    // "" when every part parsed, else "condition: ...", "hit count: ..." or
    // "log message: ...".
    std::string parse(const std::string& conditionText, const std::string& hitText, const std::string& logText);
};

} // namespace jdwpkrvdbg::condition
