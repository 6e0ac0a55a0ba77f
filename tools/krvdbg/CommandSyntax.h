// The small grammars inside krvdbg's commands: a command line split into
// words, a line place CLASS:LINE, a code place CLASS.METHOD[+OFFSET], the
// arguments of stop and log (a place, a log message, "if" and "hit"
// clauses), an expression with an optional "in CLASS", and a number of
// milliseconds. Each parser answers false for anything malformed and leaves
// no half result.
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

// What stop and log are given: a line, a method (every overload, or the one
// of a parameter list) or a code index in a method, with what is to happen
// there. The condition and the hit count are taken as written: their syntax
// is the library's to judge.
struct BreakpointForm {
    enum class Kind { Line, Method, StopPoint };
    Kind kind = Kind::Line;
    LinePlace line;           // Kind::Line
    CodePlace code;           // Kind::Method and Kind::StopPoint (offset)
    std::string parameters;   // Kind::Method: "(int,java.lang.String)" without blanks, "" = every overload
    std::string condition;    // after "if"
    std::string hitCondition; // after "hit"
    std::string logMessage;   // log: the message, "" for stop
};

struct Expression {
    std::string path;        // a.b.c
    std::string staticClass; // the CLASS of "in CLASS", Java form; may be empty
};

class CommandSyntax {
public:
    // Words separated by blanks; a '#' that begins a word starts a comment.
    static std::vector<std::string> words(const std::string& line);
    // The line without a trailing comment and surrounding blanks. A '#' in
    // double quotes (a log message, a string in a condition) is text.
    static std::string stripComment(const std::string& line);
    static bool parseLinePlace(const std::string& text, LinePlace& out);
    static bool parseCodePlace(const std::string& text, CodePlace& out);
    // The arguments of stop (`log` false) or log (`log` true): the text after
    // the verb. False with `error` saying what is wrong.
    static bool parseBreakpoint(const std::string& text, bool log, BreakpointForm& out, std::string& error);
    // A log message as log takes it back: in double quotes, with \" and \\.
    static std::string quote(const std::string& text);
    static bool parseExpression(const std::string& text, Expression& out);
    static bool parseNumber(const std::string& text, long long min, long long max, long long& out);
};

} // namespace krvdbg
