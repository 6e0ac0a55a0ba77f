// krvdbg's own parsers: the command line, the arguments of its commands, and
// the value text that the session's getValue returns. Tables of inputs and
// expected results; the real-VM behaviour is tested in tests/live.
// The tables of byte literals keep their hand layout:
// clang-format off
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>

#include "ClassNames.h"
#include "CommandLine.h"
#include "CommandSyntax.h"
#include "JsonPrinter.h"
#include "ProgramClasses.h"
#include "LaunchWords.h"
#include "Session.h"
#include "SourceLines.h"
#include "TextPrinter.h"
#include "ValueText.h"

using namespace krvdbg;

namespace {

TEST(KrvdbgCommandLine, OptionsModesAndErrors)
{
    // errorPart: a part of the error text when refused.
    const struct { std::vector<std::string> args; bool ok; std::string errorPart; } cases[] = {
        {{"demo.Shop"}, true, ""}, {{"--attach", "[::1]:5005"}, true, ""}, {{"--shmem", "demo.Shop"}, true, ""},
        {{"-cp", "a:b", "--json", "--quiet", "demo.Shop", "x", "--json"}, true, ""},
        {{}, false, "no main class"}, {{"--script"}, false, "--script needs"},
        {{"--attach", "127.0.0.1"}, false, "HOST:PORT"}, {{"--attach", "127.0.0.1:99999"}, false, "1 to 65535"},
        {{"--attach", "h:1", "Main", "arg"}, false, "program arguments"},
        {{"--shmem", "--attach", "h:1"}, false, "exclude each other"},
        {{"--frobnicate", "demo.Shop"}, false, "unknown option '--frobnicate'"},
    };
    for (const auto& c : cases) {
        const auto r = CommandLine::parse(c.args);
        EXPECT_EQ(r.ok, c.ok) << (c.args.empty() ? "(none)" : c.args[0]) << ": " << r.error;
        EXPECT_TRUE(c.ok || r.error.find(c.errorPart) != std::string::npos) << r.error;
    }

    const auto r = CommandLine::parse({"-cp", "a:b", "--target", "demo.Cart", "--exclude", "org.*", "--trace",
                                       "-J-Xmx64m", "demo.Shop", "one", "--json"});
    ASSERT_TRUE(r.ok) << r.error;
    const auto& o = r.options;
    EXPECT_EQ(std::tuple(o.mode, o.mainClass, o.json, o.trace), std::tuple(LaunchMode::Socket, "demo.Shop", false, true))
        << "--json after the main class belongs to the program";
    using Words = std::vector<std::string>;
    EXPECT_EQ(std::tuple(o.programArgs, o.targets, o.excludes, o.vmOptions),
              std::tuple(Words{"one", "--json"}, Words{"demo.Cart"}, Words{"org.*"}, Words{"-Xmx64m"}));

    const auto a = CommandLine::parse({"--attach", "[::1]:5005"}).options;
    EXPECT_EQ(std::tuple(a.mode, a.attachHost, a.attachPort), std::tuple(LaunchMode::Attach, "::1", 5005));
}

TEST(KrvdbgCommandSyntax, PlacesExpressionsAndWords)
{
    // Each parse rendered as text; "" when refused.
    auto line = [](const std::string& text) {
        LinePlace p;
        return CommandSyntax::parseLinePlace(text, p) ? p.className + " " + std::to_string(p.line) : "";
    };
    auto code = [](const std::string& text) {
        CodePlace p;
        return CommandSyntax::parseCodePlace(text, p) ? p.className + " " + p.method + " " + std::to_string(p.offset)
                                                      : "";
    };
    auto expression = [](const std::string& text) {
        Expression e;
        return CommandSyntax::parseExpression(text, e) ? e.path + "|" + e.staticClass : "";
    };
    const struct { std::function<std::string(const std::string&)> parse; std::string text, expected; } cases[] = {
        {line, "demo.Cart:17", "demo.Cart 17"},
        {line, "demo.Outer$Inner:3", "demo.Outer$Inner 3"},
        {line, "demo.Cart:0", ""}, {line, "demo.Cart:17x", ""}, {line, ":17", ""},
        {line, "demo..Cart:17", ""}, {line, "1demo.Cart:2", ""},
        {code, "demo.Item.getPrice+1", "demo.Item getPrice 1"},
        {code, "demo.Item.<init>+4", "demo.Item <init> 4"},
        {code, "Main.main", "Main main 0"},
        {code, "getPrice+1", ""}, {code, "demo.Item.getPrice+-1", ""}, {code, "demo.Item.get-Price", ""},
        {expression, " item.name", "item.name|"},
        {expression, "count in demo.Cart", "count|demo.Cart"},
        {expression, "a..b", ""}, {expression, "x = 3", ""}, {expression, "\"text\"", ""},
        {expression, "a in", ""}, {expression, "a of demo.Cart", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.parse(c.text), c.expected) << c.text;

    EXPECT_EQ(CommandSyntax::words("  stop at demo.Cart:17   # the store line"),
              (std::vector<std::string>{"stop", "at", "demo.Cart:17"}));
    EXPECT_TRUE(CommandSyntax::words("# only a comment").empty());
    EXPECT_EQ(CommandSyntax::stripComment("print a#b  "), "print a#b");
    EXPECT_EQ(CommandSyntax::stripComment("set s = \"a #1 \\\" #2\" # why"), "set s = \"a #1 \\\" #2\"");
    EXPECT_EQ(CommandSyntax::stripComment("log C:3 \"n \\\" # {n}\" # why"), "log C:3 \"n \\\" # {n}\"");
    EXPECT_EQ(CommandSyntax::quote("say \"hi\" \\ {n}"), "\"say \\\"hi\\\" \\\\ {n}\"");
}

TEST(KrvdbgCommandSyntax, TheArgumentsOfStopAndLog)
{
    // The form as KIND PLACE with its condition, hit rule and message, or the
    // refusal as "error: ..." ("error: " alone when the place is not one).
    // Each form is followed by the ways it is refused.
    const std::string codeIndex = "error: a stop point at a code index takes no condition, hit count or message "
                                  "(without +OFFSET it is a method breakpoint, which does)";
    const std::string typesOnly = "error: expected Java parameter types in the parentheses, e.g. (int,java.lang.String)";
    const struct { bool log; std::string text, form, condition = "", hit = "", message = ""; } cases[] = {
        {false, "demo.Cart:17", "line demo.Cart:17"},
        {false, " demo.Cart:17 if count > 2 ", "line demo.Cart:17", "count > 2"},
        {false, "demo.Cart:17 hit >= 3 if item.name == \"if hit\"", "line demo.Cart:17", "item.name == \"if hit\"", ">= 3"},
        {false, "demo.Cart:17 if a hit % 3", "line demo.Cart:17", "a", "% 3"},
        {false, "demo.Cart:17 if", "error: expected a condition after 'if'"},
        {false, "demo.Cart:17 hit if a", "error: expected N, >= N or % N after 'hit'"},
        {false, "demo.Cart:17 if a hit 2 if b", "error: if is given twice"},
        {false, "demo.Cart:17 when a", "error: unexpected 'when a': expected if CONDITION or hit N | >= N | % N"},
        {false, "demo.Cart:x", "error: "}, {false, "", "error: "},
        {false, "demo.Cart.add", "method demo.Cart.add"},
        {false, "demo.Cart.add( int , java.lang.String[] ) if n > 1", "method demo.Cart.add(int,java.lang.String[])", "n > 1"},
        {false, "demo.Cart.add()", "method demo.Cart.add()"},
        {false, "demo.Cart.add(ILjava/lang/String;)V", "method demo.Cart.add(ILjava/lang/String;)V"},
        {false, "demo.Cart.add(int", "error: the parameter list has no ')'"},
        {false, "demo.Cart.add(int x)", typesOnly},
        {false, "demo.Cart.add(int)+2", typesOnly},
        {false, "demo.Cart.add+3", "stoppoint demo.Cart.add+3"},
        {false, "demo.Cart.add+3 if a", codeIndex},
        {true, "demo.Cart:17 \"count is {count}\"", "line demo.Cart:17", "", "", "count is {count}"},
        {true, "demo.Cart:17 \"say \\\"hi\\\" if\" if count > 2 hit 2", "line demo.Cart:17", "count > 2", "2", "say \"hi\" if"},
        {true, "demo.Cart.add count is {count} if x", "method demo.Cart.add", "", "", "count is {count} if x"},
        {true, "demo.Cart:17", "error: expected the message to log, e.g. \"count is {count}\""},
        {true, "demo.Cart:17 \"open", "error: the log message has no closing '\"'"},
        {true, "demo.Cart:17 \"\"", "error: the log message is empty"},
        {true, "demo.Cart.add+1 \"x\"", codeIndex},
    };
    const char* kinds[] = {"line ", "method ", "stoppoint "};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        BreakpointForm b;
        std::string error;
        if (!CommandSyntax::parseBreakpoint(c.text, c.log, b, error)) {
            EXPECT_EQ("error: " + error, c.form);
            continue;
        }
        const std::string place = b.kind == BreakpointForm::Kind::Line
                                      ? b.line.className + ":" + std::to_string(b.line.line)
                                      : b.code.className + "." + b.code.method + b.parameters +
                                            (b.kind == BreakpointForm::Kind::StopPoint ? "+" + std::to_string(b.code.offset) : "");
        EXPECT_EQ(std::tuple(kinds[static_cast<int>(b.kind)] + place, b.condition, b.hitCondition, b.logMessage),
                  std::tuple(c.form, c.condition, c.hit, c.message));
    }
}

TEST(KrvdbgValueText, TheLayoutsOfGetValue)
{
    // Rendered as "found path=value" or "missing path", then the steps,
    // outermost first.
    auto render = [](const std::string& raw) {
        const ParsedValue v = ValueText::parse(raw);
        std::string out = v.found ? "found " + v.path + "=" + v.value : "missing " + v.missing;
        for (const auto& step : v.steps)
            out += " | " + step.path + "=" + step.value;
        return out;
    };
    const std::pair<std::string, std::string> cases[] = {
        {"", "missing "},
        {"s: #a{~}b{~}#", "found s=a#b#"},
        {"s: #k: v#", "found s=k: v"},
        {"#item.name: apple#\r\nitem: Type: demo/Item - ObjID: 7",
         "found item.name=apple | item=Type: demo/Item - ObjID: 7"},
        {"#a.b.c: 1#\r\na.b: B\r\na: A", "found a.b.c=1 | a=A | a.b=B"},
        {"a.b.c - Not available!\r\na.b: B\r\na: A", "missing a.b.c | a=A | a.b=B"},
        {"#a.n: 1#\r\na: first\r\nsecond", "found a.n=1 | a=first\nsecond"},
    };
    for (const auto& [raw, expected] : cases)
        EXPECT_EQ(render(raw), expected) << raw;
}

TEST(KrvdbgNames, ClassFormsAndLaunchQuoting)
{
    const struct { std::string (*convert)(const std::string&); std::string in, out; } cases[] = {
        {ClassNames::toInternal, "demo.Outer$Inner", "demo/Outer$Inner"}, {ClassNames::toInternal, "a/b", "a/b"},
        {ClassNames::toJava, "Ldemo/Shop;", "demo.Shop"}, {ClassNames::toJava, "Main", "Main"},
        {quoteWord, "/a/b:c.jar", "/a/b:c.jar"}, {quoteWord, "two words", "'two words'"},
        {quoteWord, "it's", "'it'\\''s'"}, {quoteWord, "", "''"},
        {quoteWord, "$HOME", "'$HOME'"},
        {ProgramClasses::targetName, "demo.Cart", "demo/Cart"}, {ProgramClasses::targetName, "com.acme.*", "com.acme.*"},
        {ProgramClasses::targetName, "*.Main", "*.Main"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.convert(c.in), c.out) << c.in;
}

TEST(KrvdbgProgramClasses, TheClassPathsFoldersHoldTheProgramJarsAndWildcardsDoNot)
{
    namespace fs = std::filesystem;
    const fs::path root = fs::temp_directory_path() / ("krvdbg-classes-" + std::to_string(::getpid()));
    for (const char* file : {"a/demo/Shop.class", "a/demo/Shop$1.class", "a/demo/sub/X.class", "a/module-info.class",
                             "a/demo/package-info.class", "a/demo/notes.txt", "b/Main.class", "lib.jar"}) {
        fs::create_directories((root / file).parent_path());
        std::ofstream(root / file) << "x";
    }
    const std::string r = root.string();
    const std::string classPath = r + "/a:" + r + "/lib.jar:" + r + "/b/:" + r + "/missing:" + r + "/*";
    auto found = ProgramClasses::inFolders(classPath);
    std::sort(found.classes.begin(), found.classes.end());
    EXPECT_EQ(found.classes, (std::vector<std::string>{"Main", "demo/Shop", "demo/Shop$1", "demo/sub/X"}));
    EXPECT_FALSE(found.truncated);
    EXPECT_TRUE(ProgramClasses::inFolders(classPath, 3).truncated);
    fs::remove_all(root);
}

TEST(KrvdbgTextPrinter, StopsAreReportedWithTheEventsThatFollowThemAndConsoleLinesStayWhole)
{
    using jdwpkrvdbg::VMRunning;
    using jdwpkrvdbg::VMSuspend;
    SourceLines noSources;
    TextPrinter p(noSources);
    const struct { const char* name; std::function<void()> events; std::string expected; } cases[] = {
        {"an exception stop with its state change between",
         [&] {
             p.breakpoint(1, "demo/Cart", 15, 0, StopCause::Breakpoint);
             p.stateChanged(VMSuspend, false);
             p.exception("demo/CartFullException\r\ndemo.CartFullException: full");
             p.flush();
         },
         "Exception stop: thread=1 demo.Cart:15\n  Exception: demo.CartFullException: full\nVM state: suspended\n"},
        {"a step, a stop point and a late resume confirmation",
         [&] {
             p.breakpoint(3, "demo/Shop", 29, 0, StopCause::Step);
             p.stateChanged(VMRunning, true);
             p.breakpoint(3, "demo/Shop", 29, 32, StopCause::StopPoint);
             p.flush();
         },
         "Step completed: thread=3 demo.Shop:29\nStop point hit: thread=3 demo.Shop:29 (code index 32)\n"},
        {"console text without its line end, then an event",
         [&] {
             p.consoleMessage("Added apple\r\nTotal: ");
             p.stateChanged(jdwpkrvdbg::VMDead, false);
             p.consoleMessage("850\r\n");
         },
         "Added apple\nTotal: \nVM state: dead\n850\n"},
        {"logpoint lines between console text, and a failed condition before its stop",
         [&] {
             p.consoleMessage("tick ");
             p.logpoint(1, "demo/Cart", 17, "count is 5\r\n");
             p.conditionFailed(1, "demo/Cart", 17, "nosuch > 2", "nosuch is not a variable here");
             p.breakpoint(1, "demo/Cart", 17, 0, StopCause::Breakpoint);
             p.flush();
         },
         "tick \nlog demo.Cart:17: count is 5\nThe condition nosuch > 2 at demo.Cart:17 could not be evaluated: "
         "nosuch is not a variable here\nBreakpoint hit: thread=1 demo.Cart:17\n"},
        {"a message box over two lines",
         [&] { p.message("Debugger failed!\r\nConnection refused (h:1)", 16, "Korvane Debugger"); },
         "Message [Korvane Debugger]: Debugger failed!\n  Connection refused (h:1)\n"},
    };
    for (const auto& c : cases) {
        ::testing::internal::CaptureStdout();
        c.events();
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), c.expected) << c.name;
    }
}

TEST(KrvdbgJsonPrinter, EventsCarryTheArgumentNamesOfTheHostInterface)
{
    JsonPrinter p;
    ::testing::internal::CaptureStdout();
    p.breakpoint(1, "demo/Cart", 17, 0, StopCause::Step);
    p.stateChanged(jdwpkrvdbg::VMSuspend, true);
    p.message("Box", 64, "Debugger");
    p.consoleMessage("a\r\n");
    p.logpoint(1, "demo/Cart", 17, "n=1");
    p.conditionFailed(1, "demo/Cart", 17, "x > 1", "no x");
    p.outcome(CommandOutcome::failure("stop at x", "expected stop at CLASS:LINE"));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "{\"event\":\"Breakpoint\",\"threadID\":1,\"ClassName\":\"demo/Cart\",\"LineNr\":17,\"Offset\":0}\n"
              "{\"event\":\"VMStateChanged\",\"NewState\":1}\n"
              "{\"event\":\"Message\",\"Prompt\":\"Box\",\"Buttons\":64,\"Title\":\"Debugger\"}\n"
              "{\"event\":\"ConsoleMessage\",\"s\":\"a\\r\\n\"}\n"
              "{\"event\":\"LogpointMessage\",\"threadID\":1,\"ClassName\":\"demo/Cart\",\"LineNr\":17,\"text\":\"n=1\"}\n"
              "{\"event\":\"ConditionFailed\",\"threadID\":1,\"ClassName\":\"demo/Cart\",\"LineNr\":17,"
              "\"condition\":\"x > 1\",\"reason\":\"no x\"}\n"
              "{\"command\":\"stop at x\",\"result\":null,\"error\":\"expected stop at CLASS:LINE\"}\n");
}

} // namespace
