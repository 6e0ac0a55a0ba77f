// Breakpoint conditions, hit rules and logpoint templates: a tokenizer and a
// recursive-descent parser that build a small tree once, and an evaluator
// that walks it at each hit with values from a resolver. Comparisons follow
// Java's: numbers by value (longs exactly), strings by content, booleans and
// references by identity; anything else is a type mismatch, reported rather
// than taken as false, so that a mistyped condition stops the program
// instead of silently never stopping it.
#include "JXCondition.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace jdwpkrvdbg::condition {

namespace {

Value typed(Value::Kind kind, const std::string& type)
{
    Value v;
    v.kind = kind;
    v.typeName = type;
    return v;
}

} // namespace

Value Value::boolean(bool b)
{
    Value v = typed(Kind::Boolean, "boolean");
    v.flag = b;
    return v;
}

Value Value::integer(int64_t n, const std::string& type)
{
    Value v = typed(Kind::Number, type);
    v.whole = n;
    v.number = static_cast<double>(n);
    v.integral = true;
    return v;
}

Value Value::real(double d, const std::string& type)
{
    Value v = typed(Kind::Number, type);
    v.number = d;
    return v;
}

Value Value::string(const std::string& s)
{
    Value v = typed(Kind::Text, "String");
    v.text = s;
    return v;
}

Value Value::reference(double id, const std::string& type)
{
    Value v = typed(id == 0 ? Kind::Null : Kind::Reference, type);
    v.ref = id;
    return v;
}

Value Value::null()
{
    return typed(Kind::Null, "null");
}

namespace {

enum class Tok { End, Path, Literal, Op, Open, Close };

struct Token {
    Tok kind = Tok::End;
    std::string text; // as written, for messages; the path or operator
    Value literal;
};

bool identStart(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == '$';
}

bool identPart(char c)
{
    return identStart(c) || std::isdigit(static_cast<unsigned char>(c));
}

// Reads one escaped character of a string or char literal at s[i] (after
// the backslash when there is one); false at an unknown escape.
bool readChar(const std::string& s, size_t& i, std::string& out)
{
    if (s[i] != '\\') {
        out += s[i++];
        return true;
    }
    if (++i >= s.size())
        return false;
    switch (s[i++]) {
    case 'n':
        out += '\n';
        return true;
    case 't':
        out += '\t';
        return true;
    case 'r':
        out += '\r';
        return true;
    case '0':
        out += '\0';
        return true;
    case '\\':
        out += '\\';
        return true;
    case '"':
        out += '"';
        return true;
    case '\'':
        out += '\'';
        return true;
    default:
        return false;
    }
}

// The code point of a one-character UTF-8 text, or -1.
int32_t singleCodePoint(const std::string& s)
{
    if (s.empty())
        return -1;
    const auto b = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
    if (b(0) < 0x80)
        return s.size() == 1 ? b(0) : -1;
    size_t len = b(0) >= 0xF0 ? 4 : b(0) >= 0xE0 ? 3 : b(0) >= 0xC0 ? 2 : 0;
    if (len == 0 || s.size() != len)
        return -1;
    int32_t cp = b(0) & (0x7F >> len);
    for (size_t i = 1; i < len; ++i)
        cp = (cp << 6) | (b(i) & 0x3F);
    return cp;
}

class Lexer {
public:
    explicit Lexer(const std::string& s) : s_(s) {}

    // False with `why` set at a malformed token.
    bool next(Token& t, std::string& why)
    {
        t = Token();
        while (i_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[i_])))
            ++i_;
        if (i_ >= s_.size())
            return true;
        const char c = s_[i_];
        if (identStart(c))
            return path(t, why);
        if (std::isdigit(static_cast<unsigned char>(c)) ||
            (c == '.' && i_ + 1 < s_.size() && std::isdigit(static_cast<unsigned char>(s_[i_ + 1]))))
            return number(t, why);
        if (c == '"')
            return quoted(t, why);
        if (c == '\'')
            return character(t, why);
        if (c == '(' || c == ')') {
            t.kind = c == '(' ? Tok::Open : Tok::Close;
            t.text = std::string(1, c);
            ++i_;
            return true;
        }
        for (const char* op : {"==", "!=", "<=", ">=", "&&", "||", "<", ">", "!", "-"}) {
            const std::string o = op;
            if (s_.compare(i_, o.size(), o) == 0) {
                t.kind = Tok::Op;
                t.text = o;
                i_ += o.size();
                return true;
            }
        }
        why = std::string("unexpected '") + c + "'";
        return false;
    }

private:
    bool path(Token& t, std::string& why)
    {
        const size_t start = i_;
        for (;;) {
            while (i_ < s_.size() && identPart(s_[i_]))
                ++i_;
            if (i_ < s_.size() && s_[i_] == '.') {
                ++i_;
                if (i_ >= s_.size() || !identStart(s_[i_])) {
                    why = "expected a name after '" + s_.substr(start, i_ - start) + "'";
                    return false;
                }
                continue;
            }
            break;
        }
        t.text = s_.substr(start, i_ - start);
        if (t.text == "true" || t.text == "false") {
            t.kind = Tok::Literal;
            t.literal = Value::boolean(t.text == "true");
        } else if (t.text == "null") {
            t.kind = Tok::Literal;
            t.literal = Value::null();
        } else {
            t.kind = Tok::Path;
        }
        return true;
    }

    bool number(Token& t, std::string& why)
    {
        const size_t start = i_;
        bool real = false;
        while (i_ < s_.size() && std::isdigit(static_cast<unsigned char>(s_[i_])))
            ++i_;
        if (i_ < s_.size() && s_[i_] == '.') {
            real = true;
            ++i_;
            while (i_ < s_.size() && std::isdigit(static_cast<unsigned char>(s_[i_])))
                ++i_;
        }
        if (i_ < s_.size() && (s_[i_] == 'e' || s_[i_] == 'E')) {
            real = true;
            ++i_;
            if (i_ < s_.size() && (s_[i_] == '+' || s_[i_] == '-'))
                ++i_;
            const size_t digits = i_;
            while (i_ < s_.size() && std::isdigit(static_cast<unsigned char>(s_[i_])))
                ++i_;
            if (i_ == digits) {
                why = "expected digits in the exponent of '" + s_.substr(start, i_ - start) + "'";
                return false;
            }
        }
        const std::string digits = s_.substr(start, i_ - start);
        std::string type = real ? "double" : "int";
        if (i_ < s_.size() && std::strchr("lLfFdD", s_[i_]) != nullptr) {
            const char suffix = static_cast<char>(std::tolower(static_cast<unsigned char>(s_[i_++])));
            if (suffix == 'l' && real) {
                why = "'" + s_.substr(start, i_ - start) + "' is not a number";
                return false;
            }
            type = suffix == 'l' ? "long" : suffix == 'f' ? "float" : "double";
            real = real || suffix != 'l';
        }
        if (i_ < s_.size() && identPart(s_[i_])) {
            why = "'" + s_.substr(start, i_ - start + 1) + "' is not a number";
            return false;
        }
        t.kind = Tok::Literal;
        t.text = s_.substr(start, i_ - start);
        if (real) {
            t.literal = Value::real(std::strtod(digits.c_str(), nullptr), type);
        } else {
            errno = 0;
            const unsigned long long n = std::strtoull(digits.c_str(), nullptr, 10);
            // One more than the largest long is allowed: a minus sign may
            // still come before it.
            if (errno != 0 || n > 9223372036854775808ULL) {
                why = "'" + t.text + "' is too large";
                return false;
            }
            t.literal = Value::integer(static_cast<int64_t>(n), type);
            t.literal.number = static_cast<double>(n);
        }
        return true;
    }

    bool quoted(Token& t, std::string& why)
    {
        const size_t start = i_;
        std::string text;
        if (!between('"', "string", text, why))
            return false;
        if (i_ >= s_.size()) {
            why = "the string at " + std::to_string(start + 1) + " is not closed";
            return false;
        }
        return closed(t, start, Value::string(text));
    }

    bool character(Token& t, std::string& why)
    {
        const size_t start = i_;
        std::string text;
        if (!between('\'', "character", text, why))
            return false;
        const int32_t cp = i_ < s_.size() ? singleCodePoint(text) : -1;
        if (cp < 0 || cp > 0xFFFF) {
            why = "expected one character between the quotes at " + std::to_string(start + 1);
            return false;
        }
        return closed(t, start, Value::integer(cp, "char"));
    }

    // The text from the opening `quote` at i_ up to the closing one (or the
    // end), escapes read; i_ is left on the closing quote.
    bool between(char quote, const char* what, std::string& text, std::string& why)
    {
        const size_t start = i_++;
        while (i_ < s_.size() && s_[i_] != quote) {
            if (!readChar(s_, i_, text)) {
                why = std::string("unknown escape in the ") + what + " at " + std::to_string(start + 1);
                return false;
            }
        }
        return true;
    }

    // The literal from `start` to the closing quote at i_.
    bool closed(Token& t, size_t start, Value literal)
    {
        ++i_;
        t.kind = Tok::Literal;
        t.text = s_.substr(start, i_ - start);
        t.literal = std::move(literal);
        return true;
    }

    const std::string& s_;
    size_t i_ = 0;
};

const struct {
    const char* text;
    Condition::Cmp cmp;
} kComparisons[] = {{"==", Condition::Cmp::Eq}, {"!=", Condition::Cmp::Ne}, {"<", Condition::Cmp::Lt},
                    {"<=", Condition::Cmp::Le}, {">", Condition::Cmp::Gt},  {">=", Condition::Cmp::Ge}};

class Parser {
public:
    Parser(const std::string& text, std::vector<Condition::Node>& nodes) : lex_(text), nodes_(nodes) {}

    // The root node, or -1 with `why` set.
    int parse(std::string& why)
    {
        if (!advance(why))
            return -1;
        if (cur_.kind == Tok::End)
            return -1;
        const int root = orExpr(why);
        if (root < 0)
            return -1;
        if (cur_.kind != Tok::End) {
            why = "unexpected '" + cur_.text + "' after '" + prev_ + "'";
            return -1;
        }
        return root;
    }

private:
    bool advance(std::string& why)
    {
        prev_ = cur_.text;
        return lex_.next(cur_, why);
    }
    bool isOp(const char* op) const { return cur_.kind == Tok::Op && cur_.text == op; }

    int add(Condition::Node node)
    {
        nodes_.push_back(std::move(node));
        return static_cast<int>(nodes_.size()) - 1;
    }

    int orExpr(std::string& why) { return chain(why, "||", Condition::Op::Or, &Parser::andExpr); }
    int andExpr(std::string& why) { return chain(why, "&&", Condition::Op::And, &Parser::unary); }

    // next (op next)*, grouped from the left.
    int chain(std::string& why, const char* opText, Condition::Op op, int (Parser::*next)(std::string&))
    {
        int left = (this->*next)(why);
        while (left >= 0 && isOp(opText)) {
            if (!advance(why))
                return -1;
            const int right = (this->*next)(why);
            if (right < 0)
                return -1;
            Condition::Node n;
            n.op = op;
            n.left = left;
            n.right = right;
            left = add(std::move(n));
        }
        return left;
    }

    int unary(std::string& why)
    {
        if (isOp("!")) {
            if (!advance(why))
                return -1;
            const int inner = unary(why);
            if (inner < 0)
                return -1;
            Condition::Node n;
            n.op = Condition::Op::Not;
            n.left = inner;
            return add(std::move(n));
        }
        if (cur_.kind == Tok::Open) {
            if (!advance(why))
                return -1;
            const int inner = orExpr(why);
            if (inner < 0)
                return -1;
            if (cur_.kind != Tok::Close) {
                why = cur_.kind == Tok::End ? "expected ')' at the end" : "expected ')' before '" + cur_.text + "'";
                return -1;
            }
            if (!advance(why))
                return -1;
            return inner;
        }
        return comparison(why);
    }

    bool operand(Condition::Operand& out, std::string& why)
    {
        const std::string after = prev_;
        bool negative = false;
        if (isOp("-")) {
            negative = true;
            if (!advance(why))
                return false;
        }
        if (cur_.kind == Tok::Path && !negative) {
            out.isPath = true;
            out.path = cur_.text;
            return advance(why);
        }
        if (cur_.kind == Tok::Literal && (!negative || cur_.literal.kind == Value::Kind::Number)) {
            out.literal = cur_.literal;
            if (negative) {
                // -9223372036854775808 is read as its own negation already.
                if (out.literal.whole != INT64_MIN)
                    out.literal.whole = -out.literal.whole;
                out.literal.number = -out.literal.number;
            } else if (out.literal.integral && out.literal.whole < 0) {
                why = "'" + cur_.text + "' is too large";
                return false;
            }
            return advance(why);
        }
        if (negative)
            why = "expected a number after '-'";
        else if (cur_.kind == Tok::End)
            why = after.empty() ? "expected a value" : "expected a value after '" + after + "'";
        else
            why = "expected a value before '" + cur_.text + "'";
        return false;
    }

    int comparison(std::string& why)
    {
        Condition::Node n;
        if (!operand(n.a, why))
            return -1;
        for (const auto& op : kComparisons) {
            if (!isOp(op.text))
                continue;
            if (!advance(why) || !operand(n.b, why))
                return -1;
            n.op = Condition::Op::Compare;
            n.cmp = op.cmp;
            return add(std::move(n));
        }
        n.op = Condition::Op::Bare;
        return add(std::move(n));
    }

    Lexer lex_;
    std::vector<Condition::Node>& nodes_;
    Token cur_;
    std::string prev_;
};

const char* cmpText(Condition::Cmp cmp)
{
    for (const auto& op : kComparisons)
        if (op.cmp == cmp)
            return op.text;
    return "?";
}

template <typename T>
bool ordered(Condition::Cmp cmp, const T& a, const T& b)
{
    switch (cmp) {
    case Condition::Cmp::Eq:
        return a == b;
    case Condition::Cmp::Ne:
        return a != b;
    case Condition::Cmp::Lt:
        return a < b;
    case Condition::Cmp::Le:
        return a <= b;
    case Condition::Cmp::Gt:
        return a > b;
    case Condition::Cmp::Ge:
        return a >= b;
    }
    return false;
}

std::string describe(const Condition::Operand& o, const Value& v)
{
    return o.isPath ? o.path + " (" + v.typeName + ")" : v.typeName;
}

std::optional<bool> compare(const Condition::Node& n, const Value& a, const Value& b, std::string& why)
{
    using K = Value::Kind;
    const bool equality = n.cmp == Condition::Cmp::Eq || n.cmp == Condition::Cmp::Ne;
    if (a.kind == K::Number && b.kind == K::Number) {
        if (a.integral && b.integral)
            return ordered(n.cmp, a.whole, b.whole);
        // NaN compares false everywhere but !=, as in Java.
        return ordered(n.cmp, a.number, b.number);
    }
    if (equality) {
        const bool eq = n.cmp == Condition::Cmp::Eq;
        if (a.kind == K::Boolean && b.kind == K::Boolean)
            return (a.flag == b.flag) == eq;
        if (a.kind == K::Text && b.kind == K::Text)
            return (a.text == b.text) == eq;
        const auto referenceLike = [](const Value& v) {
            return v.kind == K::Null || v.kind == K::Reference || v.kind == K::Text;
        };
        if (referenceLike(a) && referenceLike(b)) {
            // A String read from the VM is Text: it is null only as Null.
            const bool same = a.kind == b.kind && (a.kind == K::Null || a.ref == b.ref);
            return same == eq;
        }
    }
    why = "cannot compare " + describe(n.a, a) + " " + cmpText(n.cmp) + " " + describe(n.b, b);
    return std::nullopt;
}

} // namespace

std::string Condition::parse(const std::string& text)
{
    nodes_.clear();
    root_ = -1;
    std::string why;
    Parser parser(text, nodes_);
    root_ = parser.parse(why);
    if (root_ < 0)
        nodes_.clear();
    return why;
}

std::optional<bool> Condition::evaluate(const Resolver& resolve, std::string& why) const
{
    if (root_ < 0)
        return true;
    return evaluateNode(root_, resolve, why);
}

std::optional<bool> Condition::evaluateNode(int index, const Resolver& resolve, std::string& why) const
{
    const Node& n = nodes_[static_cast<size_t>(index)];
    switch (n.op) {
    case Op::Or:
    case Op::And: {
        const auto left = evaluateNode(n.left, resolve, why);
        if (!left)
            return std::nullopt;
        // Short-circuit, as in Java: the right side may be meant only for
        // when the left allows it ("p != null && p.x > 0").
        if (*left == (n.op == Op::Or))
            return *left;
        return evaluateNode(n.right, resolve, why);
    }
    case Op::Not: {
        const auto inner = evaluateNode(n.left, resolve, why);
        if (!inner)
            return std::nullopt;
        return !*inner;
    }
    case Op::Compare:
    case Op::Bare:
        break;
    }
    const auto value = [&](const Operand& o, Value& v) {
        if (!o.isPath) {
            v = o.literal;
            return true;
        }
        return resolve(o.path, v, why);
    };
    Value a, b;
    if (!value(n.a, a))
        return std::nullopt;
    if (n.op == Op::Bare) {
        if (a.kind != Value::Kind::Boolean) {
            why = (n.a.isPath ? n.a.path : std::string("the value")) + " is " + a.typeName + ", not boolean";
            return std::nullopt;
        }
        return a.flag;
    }
    if (!value(n.b, b))
        return std::nullopt;
    return compare(n, a, b, why);
}

std::string HitRule::parse(const std::string& text)
{
    mode = Mode::Every;
    n = 0;
    size_t i = 0;
    const auto blanks = [&] {
        while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])))
            ++i;
    };
    blanks();
    if (i == text.size())
        return {};
    Mode m = Mode::Exactly;
    if (text.compare(i, 2, ">=") == 0) {
        m = Mode::AtLeast;
        i += 2;
    } else if (text[i] == '%') {
        m = Mode::EveryNth;
        i += 1;
    }
    blanks();
    const size_t start = i;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])))
        ++i;
    const std::string digits = text.substr(start, i - start);
    blanks();
    const char* expected = "expected N, >= N or % N";
    if (digits.empty() || i != text.size())
        return expected;
    if (digits.size() > 9 || std::stoul(digits) == 0)
        return "N is to be a whole number from 1 to 999999999";
    mode = m;
    n = static_cast<uint32_t>(std::stoul(digits));
    return {};
}

bool HitRule::selects(uint32_t hit) const
{
    switch (mode) {
    case Mode::Every:
        return true;
    case Mode::Exactly:
        return hit == n;
    case Mode::AtLeast:
        return hit >= n;
    case Mode::EveryNth:
        return hit % n == 0;
    }
    return true;
}

std::string LogTemplate::parse(const std::string& text)
{
    parts_.clear();
    std::string literal;
    const auto flush = [&] {
        if (!literal.empty())
            parts_.push_back({false, literal});
        literal.clear();
    };
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if ((c == '{' || c == '}') && i + 1 < text.size() && text[i + 1] == c) {
            literal += c;
            ++i;
            continue;
        }
        if (c == '}') {
            parts_.clear();
            return "'}' at " + std::to_string(i + 1) + " closes nothing (write }} for a brace)";
        }
        if (c != '{') {
            literal += c;
            continue;
        }
        const size_t close = text.find('}', i + 1);
        if (close == std::string::npos) {
            parts_.clear();
            return "the '{' at " + std::to_string(i + 1) + " is not closed (write {{ for a brace)";
        }
        std::string path = text.substr(i + 1, close - i - 1);
        const size_t first = path.find_first_not_of(" \t");
        const size_t last = path.find_last_not_of(" \t");
        path = first == std::string::npos ? std::string() : path.substr(first, last - first + 1);
        bool ok = !path.empty() && identStart(path[0]) && identPart(path.back());
        for (size_t k = 0; ok && k < path.size(); ++k)
            ok = identPart(path[k]) || (path[k] == '.' && k + 1 < path.size() && identStart(path[k + 1]));
        if (!ok) {
            parts_.clear();
            return "'{" + text.substr(i + 1, close - i - 1) + "}' is not a name or dotted path";
        }
        flush();
        parts_.push_back({true, path});
        i = close;
    }
    flush();
    return {};
}

std::string LogTemplate::render(const std::function<std::string(const std::string& path)>& value) const
{
    std::string out;
    for (const Part& part : parts_)
        out += part.isPath ? value(part.text) : part.text;
    return out;
}

std::string Plan::parse(const std::string& conditionText, const std::string& hitText, const std::string& logText)
{
    std::string why = condition.parse(conditionText);
    if (!why.empty())
        return "condition: " + why;
    why = hits.parse(hitText);
    if (!why.empty())
        return "hit count: " + why;
    logpoint = !logText.empty();
    why = log.parse(logText);
    if (!why.empty())
        return "log message: " + why;
    return {};
}

} // namespace jdwpkrvdbg::condition
