// The small grammars inside krvdbg's commands: a command line split into
// words, a line place CLASS:LINE, a code place CLASS.METHOD[+OFFSET], an
// expression with an optional "in CLASS", and a number of milliseconds.
// Each parser answers false for anything malformed and leaves no half result.
#pragma once

#include <string>
#include <vector>

namespace krvdbg {

struct LinePlace {
    std::string className; // Java form as written
    int line = 0;
};

struct CodePlace {
    std::string className; // Java form as written
    std::string method;
    int offset = 0;
};

struct Expression {
    std::string path;        // a.b.c
    std::string staticClass; // the CLASS of "in CLASS", Java form; may be empty
};

class CommandSyntax {
public:
    // Words separated by blanks; a '#' that begins a word starts a comment.
    static std::vector<std::string> words(const std::string& line);
    // The line without a trailing comment and surrounding blanks.
    static std::string stripComment(const std::string& line);
    static bool parseLinePlace(const std::string& text, LinePlace& out);
    static bool parseCodePlace(const std::string& text, CodePlace& out);
    static bool parseExpression(const std::string& text, Expression& out);
    static bool parseNumber(const std::string& text, long long min, long long max, long long& out);
    static bool isIdentifier(const std::string& text);
};

} // namespace krvdbg
