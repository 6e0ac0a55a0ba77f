// Breakpoint options without a VM: conditions parsed and evaluated against a
// table of values (Java's comparison rules, short-circuit, the reasons given
// for what cannot be evaluated), the syntax errors a host is shown, hit
// rules and logpoint templates.
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <span>
#include <tuple>
#include <vector>

#include "../../model/JXCondition.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXMachine.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::condition;

namespace {

// The values a condition may read; any other path is unknown. "boom" fails
// every read: a condition that reaches it has evaluated the wrong side.
bool resolve(const std::string& path, Value& value, std::string& why)
{
    static const std::map<std::string, Value> values{{"i", Value::integer(5)},
                                                     {"neg", Value::integer(-3)},
                                                     {"big", Value::integer(INT64_MAX, "long")},
                                                     {"d", Value::real(2.5)},
                                                     {"nan", Value::real(std::nan(""))},
                                                     {"c", Value::integer('a', "char")},
                                                     {"flag", Value::boolean(true)},
                                                     {"s", Value::string("half")},
                                                     {"empty", Value::string("")},
                                                     {"nul", Value::reference(0, "String")},
                                                     {"p", Value::reference(42, "object")},
                                                     {"q", Value::reference(42, "object")},
                                                     {"r", Value::reference(43, "object")},
                                                     {"p.name", Value::string("pt")}};
    const auto it = values.find(path);
    if (it == values.end()) {
        why = path + " is not available here";
        return false;
    }
    value = it->second;
    return true;
}

TEST(Conditions, EvaluateLikeJava)
{
    const char* const holding[] = {"i == 5", "i < 6 && i <= 5 && i > 4 && i >= 5", "neg == -3", "-3 == neg", "i == 5.0",
                                   "d > 2.4 && d < 2.6", "d == 2.5f",
                                   // Longs compare exactly: a double would round both to 2^63.
                                   "big == 9223372036854775807", "big != 9223372036854775806L",
                                   "-9223372036854775808 < big", "nan != nan", "c == 'a'", "c == 97", "c < 'b'", "flag",
                                   "flag == true", "flag != false", "s == \"half\"", "\"half\" == s", "empty == \"\"",
                                   "s != null", "nul == null", "p == q && p != r", "p != null", "p.name == \"pt\"",
                                   "(i == 1 || i == 5) && !(s == \"x\")",
                                   // Short-circuit: the right side is not read when the left decides.
                                   "i == 5 || i == 2 && boom", "i == 5 || boom == 1"};
    const char* const failing[] = {"i != 5", "nan == nan", "!flag", "s == \"hal\"", "empty == null", "nul == \"\"",
                                   "s == \"a\\\"b\"",
                                   // && binds tighter than ||.
                                   "i == 1 || i == 2 && i == 5", "(i == 1 || i == 2) && i == 5", "i == 4 && boom == 1"};
    const std::pair<bool, std::span<const char* const>> verdicts[] = {{true, holding}, {false, failing}};
    // What cannot be evaluated says why.
    const std::pair<const char*, const char*> unevaluable[] = {
        {"boom == 1", "boom is not available here"},
        {"i == 5 && boom == 1", "boom is not available here"},
        {"s > 3", "cannot compare s (String) > int"},
        {"s < \"z\"", "cannot compare s (String) < String"},
        {"flag < true", "cannot compare flag (boolean) < boolean"},
        {"i == flag", "cannot compare i (int) == flag (boolean)"},
        {"i == null", "cannot compare i (int) == null"},
        {"s == 'h'", "cannot compare s (String) == char"},
        {"i", "i is int, not boolean"},
        {"s && flag", "s is String, not boolean"},
        {"null", "the value is null, not boolean"},
    };
    const auto evaluate = [](const char* text, std::string& why) -> std::optional<bool> {
        Condition condition;
        EXPECT_EQ(condition.parse(text), "") << text;
        return condition.evaluate(resolve, why);
    };
    for (const auto& [expected, texts] : verdicts)
        for (const char* text : texts) {
            std::string why;
            EXPECT_EQ(evaluate(text, why), expected) << text << ": " << why;
        }
    for (const auto& [text, expectedWhy] : unevaluable) {
        std::string why;
        EXPECT_FALSE(evaluate(text, why).has_value()) << text;
        EXPECT_EQ(why, expectedWhy) << text;
    }
}

TEST(Conditions, TheSyntaxErrorsAHostIsShown)
{
    const JXBreakpointOptions accepted[] = {
        {"", "", ""},    {"   ", "  ", ""}, {"", "3", ""},          {"", ">= 3", ""},
        {"", ">=3", ""}, {"", "% 4", ""},   {"", "", "plain text"}, {"", "", "i={i} {{literal}}"}};
    const std::pair<JXBreakpointOptions, const char*> refused[] = {
        {{"i >", "", ""}, "condition: expected a value after '>'"},
        {{"i > > 3", "", ""}, "condition: expected a value before '>'"},
        {{"== 3", "", ""}, "condition: expected a value before '=='"},
        {{"i == 3 4", "", ""}, "condition: unexpected '4' after '3'"},
        {{"(i == 3", "", ""}, "condition: expected ')' at the end"},
        {{"i == 3)", "", ""}, "condition: unexpected ')' after '3'"},
        {{"i = 3", "", ""}, "condition: unexpected '='"},
        {{"i & 3", "", ""}, "condition: unexpected '&'"},
        {{"s == \"open", "", ""}, "condition: the string at 6 is not closed"},
        {{"c == 'ab'", "", ""}, "condition: expected one character between the quotes at 6"},
        {{"s == \"a\\q\"", "", ""}, "condition: unknown escape in the string at 6"},
        {{"c == '\\q'", "", ""}, "condition: unknown escape in the character at 6"},
        {{"c == '", "", ""}, "condition: expected one character between the quotes at 6"},
        {{"p. == 1", "", ""}, "condition: expected a name after 'p.'"},
        {{"i == 3x", "", ""}, "condition: '3x' is not a number"},
        {{"i == 1e", "", ""}, "condition: expected digits in the exponent of '1e'"},
        {{"i == 9223372036854775808", "", ""}, "condition: '9223372036854775808' is too large"},
        {{"i == 99999999999999999999", "", ""}, "condition: '99999999999999999999' is too large"},
        {{"i == -s", "", ""}, "condition: expected a number after '-'"},
        {{"", "0", ""}, "hit count: N is to be a whole number from 1 to 999999999"},
        {{"", "> 3", ""}, "hit count: expected N, >= N or % N"},
        {{"", "3 hits", ""}, "hit count: expected N, >= N or % N"},
        {{"", "-1", ""}, "hit count: expected N, >= N or % N"},
        {{"", "", "{i"}, "log message: the '{' at 1 is not closed (write {{ for a brace)"},
        {{"", "", "i}"}, "log message: '}' at 2 closes nothing (write }} for a brace)"},
        {{"", "", "{i + 1}"}, "log message: '{i + 1}' is not a name or dotted path"},
        {{"", "", "{}"}, "log message: '{}' is not a name or dotted path"},
    };
    std::vector<std::pair<JXBreakpointOptions, const char*>> cases(std::begin(refused), std::end(refused));
    for (const auto& options : accepted)
        cases.emplace_back(options, "");
    for (const auto& [options, why] : cases) {
        SCOPED_TRACE(options.Condition + " | " + options.HitCondition + " | " + options.LogMessage);
        EXPECT_EQ(JXMachine::checkBreakpointOptions(options), why);
        // The same verdict when a breakpoint takes them; a refused set
        // leaves the old options in force.
        JXBreakpoint bp;
        ASSERT_EQ(bp.setOptions({"i == 1", "", ""}), "");
        EXPECT_EQ(bp.setOptions(options), why);
        EXPECT_EQ(bp.Options.Condition, *why ? "i == 1" : options.Condition);
    }
}

TEST(Conditions, HitRulesAndWhoCountsThem)
{
    const std::vector<uint32_t> all{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    // condition, hit count, the hits of 1..12 that stop, counted by the VM,
    // no plan at all. The VM cannot tell which hits a condition lets through.
    const std::tuple<const char*, const char*, std::vector<uint32_t>, bool, bool> cases[] = {
        {"", "", all, false, true},        {"", "3", {3}, true, false},        {"", ">= 10", {10, 11, 12}, true, false},
        {"", "% 5", {5, 10}, true, false}, {"i == 5", "3", {3}, false, false}, {"i == 5", "", all, false, false},
    };
    for (const auto& [condition, hits, stopping, countedByVM, plain] : cases) {
        SCOPED_TRACE(std::string(condition) + " | " + hits);
        JXBreakpoint bp;
        ASSERT_EQ(bp.setOptions({condition, hits, ""}), "");
        EXPECT_EQ(bp.HitCountedByVM, countedByVM);
        EXPECT_EQ(bp.plan() == nullptr, plain);
        HitRule rule;
        ASSERT_EQ(rule.parse(hits), "");
        std::vector<uint32_t> stops;
        for (uint32_t hit = 1; hit <= 12; ++hit)
            if (rule.selects(hit))
                stops.push_back(hit);
        EXPECT_EQ(stops, stopping);
    }
}

TEST(Conditions, LogTemplatesRenderTheirPaths)
{
    const std::pair<const char*, const char*> cases[] = {
        {"i={i}", "i=<i>"}, {"{ p.name }!", "<p.name>!"}, {"{{i}} is {i}", "{i} is <i>"},
        {"}}{{", "}{"},     {"no values", "no values"},
    };
    for (const auto& [text, rendered] : cases) {
        SCOPED_TRACE(text);
        LogTemplate log;
        ASSERT_EQ(log.parse(text), "");
        EXPECT_EQ(log.render([](const std::string& path) { return "<" + path + ">"; }), rendered);
    }
}

} // namespace
