// krvdbg's own parsers: the command line, the arguments of its commands, and
// the value text that the session's getValue returns. Tables of inputs and
// expected results; the real-VM behaviour is tested in tests/live.
#include <gtest/gtest.h>

#include "ClassNames.h"
#include "CommandLine.h"
#include "CommandSyntax.h"
#include "JsonPrinter.h"
#include "Session.h"
#include "SourceLines.h"
#include "TextPrinter.h"
#include "ValueText.h"

using namespace krvdbg;

namespace {

TEST(KrvdbgCommandLine, OptionsModesAndErrors)
{
    struct Case {
        std::vector<std::string> args;
        bool ok;
        std::string errorPart; // when !ok
    };
    const Case cases[] = {
        {{"demo.Shop"}, true, ""},
        {{"-cp", "a:b", "--json", "--quiet", "demo.Shop", "x", "--json"}, true, ""},
        {{"--attach", "127.0.0.1:5005"}, true, ""},
        {{"--attach", "[::1]:5005"}, true, ""},
        {{"--shmem", "demo.Shop"}, true, ""},
        {{}, false, "no main class"},
        {{"--json"}, false, "no main class"},
        {{"--attach", "127.0.0.1"}, false, "HOST:PORT"},
        {{"--attach", "127.0.0.1:0"}, false, "1 to 65535"},
        {{"--attach", "127.0.0.1:99999"}, false, "1 to 65535"},
        {{"--attach", "h:1", "Main", "arg"}, false, "program arguments"},
        {{"--shmem", "--attach", "h:1"}, false, "exclude each other"},
        {{"--frobnicate", "demo.Shop"}, false, "unknown option '--frobnicate'"},
        {{"--script"}, false, "--script needs"},
        {{"--java"}, false, "--java needs"},
    };
    for (const auto& c : cases) {
        const auto r = CommandLine::parse(c.args);
        EXPECT_EQ(r.ok, c.ok) << (c.args.empty() ? "(none)" : c.args[0]) << ": " << r.error;
        if (!c.ok) {
            EXPECT_NE(r.error.find(c.errorPart), std::string::npos) << r.error;
        }
    }

    const auto r = CommandLine::parse({"-cp", "a:b", "--target", "demo.Cart", "--exclude", "org.*", "--trace",
                                       "-J-Xmx64m", "demo.Shop", "one", "--json"});
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.options.mode, LaunchMode::Socket);
    EXPECT_EQ(r.options.classPath, "a:b");
    EXPECT_EQ(r.options.mainClass, "demo.Shop");
    EXPECT_EQ(r.options.programArgs, (std::vector<std::string>{"one", "--json"}));
    EXPECT_FALSE(r.options.json); // after the main class it belongs to the program
    EXPECT_TRUE(r.options.trace);
    EXPECT_EQ(r.options.targets, std::vector<std::string>{"demo.Cart"});
    EXPECT_EQ(r.options.excludes, std::vector<std::string>{"org.*"});
    EXPECT_EQ(r.options.vmOptions, std::vector<std::string>{"-Xmx64m"});

    const auto a = CommandLine::parse({"--attach", "[::1]:5005"});
    EXPECT_EQ(a.options.mode, LaunchMode::Attach);
    EXPECT_EQ(a.options.attachHost, "::1");
    EXPECT_EQ(a.options.attachPort, 5005);
}

TEST(KrvdbgCommandSyntax, PlacesExpressionsAndWords)
{
    struct LineCase {
        std::string text;
        bool ok;
        std::string cls;
        int line;
    };
    const LineCase lines[] = {
        {"demo.Cart:17", true, "demo.Cart", 17},
        {"demo.Outer$Inner:3", true, "demo.Outer$Inner", 3},
        {"Main:1", true, "Main", 1},
        {"demo.Cart:0", false, "", 0},
        {"demo.Cart:-4", false, "", 0},
        {"demo.Cart:17x", false, "", 0},
        {"demo.Cart:", false, "", 0},
        {":17", false, "", 0},
        {"demo..Cart:17", false, "", 0},
        {"demo.Cart", false, "", 0},
        {"1demo.Cart:2", false, "", 0},
    };
    for (const auto& c : lines) {
        LinePlace p;
        EXPECT_EQ(CommandSyntax::parseLinePlace(c.text, p), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(p.className, c.cls);
            EXPECT_EQ(p.line, c.line);
        }
    }

    struct CodeCase {
        std::string text;
        bool ok;
        std::string cls;
        std::string method;
        int offset;
    };
    const CodeCase codes[] = {
        {"demo.Item.getPrice+1", true, "demo.Item", "getPrice", 1},
        {"demo.Item.getPrice", true, "demo.Item", "getPrice", 0},
        {"demo.Item.<init>+4", true, "demo.Item", "<init>", 4},
        {"Main.main", true, "Main", "main", 0},
        {"getPrice+1", false, "", "", 0},
        {"demo.Item.getPrice+", false, "", "", 0},
        {"demo.Item.getPrice+-1", false, "", "", 0},
        {"demo.Item.get-Price", false, "", "", 0},
        {"demo.Item.", false, "", "", 0},
    };
    for (const auto& c : codes) {
        CodePlace p;
        EXPECT_EQ(CommandSyntax::parseCodePlace(c.text, p), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(p.className, c.cls);
            EXPECT_EQ(p.method, c.method);
            EXPECT_EQ(p.offset, c.offset);
        }
    }

    struct ExprCase {
        std::string text;
        bool ok;
        std::string path;
        std::string cls;
    };
    const ExprCase exprs[] = {
        {" item.name", true, "item.name", ""},
        {"count in demo.Cart", true, "count", "demo.Cart"},
        {"a.b.c", true, "a.b.c", ""},
        {"a..b", false, "", ""},
        {"a.", false, "", ""},
        {"x = 3", false, "", ""},
        {"\"text\"", false, "", ""},
        {"42", false, "", ""},
        {"a in", false, "", ""},
        {"a of demo.Cart", false, "", ""},
        {"", false, "", ""},
    };
    for (const auto& c : exprs) {
        Expression e;
        EXPECT_EQ(CommandSyntax::parseExpression(c.text, e), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(e.path, c.path);
            EXPECT_EQ(e.staticClass, c.cls);
        }
    }

    EXPECT_EQ(CommandSyntax::words("  stop at demo.Cart:17   # the store line"),
              (std::vector<std::string>{"stop", "at", "demo.Cart:17"}));
    EXPECT_TRUE(CommandSyntax::words("# only a comment").empty());
    EXPECT_EQ(CommandSyntax::stripComment("print a#b  "), "print a#b");
}

TEST(KrvdbgValueText, TheLayoutsOfGetValue)
{
    struct Case {
        const char* name;
        std::string raw;
        bool found;
        std::string path;
        std::string value;
        std::string missing;
        std::vector<std::pair<std::string, std::string>> steps; // outermost first
    };
    const Case cases[] = {
        {"empty", "", false, "", "", "", {}},
        {"single", "count: #3#", true, "count", "3", "", {}},
        {"single escaped", "s: #a{~}b{~}#", true, "s", "a#b#", "", {}},
        {"single with colon in value", "s: #k: v#", true, "s", "k: v", "", {}},
        {"dotted", "#item.name: apple#\r\nitem: Type: demo/Item - ObjID: 7", true, "item.name", "apple", "",
         {{"item", "Type: demo/Item - ObjID: 7"}}},
        {"three deep", "#a.b.c: 1#\r\na.b: B\r\na: A", true, "a.b.c", "1", "", {{"a", "A"}, {"a.b", "B"}}},
        {"missing last", "a.x - Not available!\r\na: A", false, "", "", "a.x", {{"a", "A"}}},
        {"missing middle", "a.b.c - Not available!\r\na.b: B\r\na: A", false, "", "", "a.b.c",
         {{"a", "A"}, {"a.b", "B"}}},
        {"intermediate with a line break", "#a.n: 1#\r\na: first\r\nsecond", true, "a.n", "1", "",
         {{"a", "first\nsecond"}}},
    };
    for (const auto& c : cases) {
        const ParsedValue v = ValueText::parse(c.raw);
        EXPECT_EQ(v.found, c.found) << c.name;
        EXPECT_EQ(v.path, c.path) << c.name;
        EXPECT_EQ(v.value, c.value) << c.name;
        EXPECT_EQ(v.missing, c.missing) << c.name;
        ASSERT_EQ(v.steps.size(), c.steps.size()) << c.name;
        for (size_t i = 0; i < c.steps.size(); ++i) {
            EXPECT_EQ(v.steps[i].path, c.steps[i].first) << c.name;
            EXPECT_EQ(v.steps[i].value, c.steps[i].second) << c.name;
        }
    }
}

TEST(KrvdbgNames, ClassFormsAndLaunchQuoting)
{
    const std::pair<std::string, std::string> toInternal[] = {
        {"demo.Shop", "demo/Shop"}, {"demo.Outer$Inner", "demo/Outer$Inner"}, {"Main", "Main"}, {"a/b", "a/b"}};
    for (const auto& [in, out] : toInternal)
        EXPECT_EQ(ClassNames::toInternal(in), out);
    const std::pair<std::string, std::string> toJava[] = {
        {"demo/Shop", "demo.Shop"}, {"Ldemo/Shop;", "demo.Shop"}, {"Main", "Main"}};
    for (const auto& [in, out] : toJava)
        EXPECT_EQ(ClassNames::toJava(in), out);

    const std::pair<std::string, std::string> quoted[] = {
        {"demo.Shop", "demo.Shop"},
        {"/a/b:c.jar", "/a/b:c.jar"},
        {"two words", "'two words'"},
        {"it's", "'it'\\''s'"},
        {"", "''"},
        {"$HOME", "'$HOME'"},
    };
    for (const auto& [in, out] : quoted)
        EXPECT_EQ(Session::quoteWord(in), out) << in;
}

TEST(KrvdbgTextPrinter, StopsAreReportedWithTheEventsThatFollowThemAndConsoleLinesStayWhole)
{
    using jdwpkrvdbg::VMRunning;
    using jdwpkrvdbg::VMSuspend;
    SourceLines noSources;
    TextPrinter p(noSources);
    struct Case {
        const char* name;
        std::function<void()> events;
        std::string expected;
    };
    const Case cases[] = {
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
    CommandOutcome bad = CommandOutcome::failure("stop at x", "expected stop at CLASS:LINE");
    p.outcome(bad);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "{\"event\":\"Breakpoint\",\"threadID\":1,\"ClassName\":\"demo/Cart\",\"LineNr\":17,\"Offset\":0}\n"
              "{\"event\":\"VMStateChanged\",\"NewState\":1}\n"
              "{\"event\":\"Message\",\"Prompt\":\"Box\",\"Buttons\":64,\"Title\":\"Debugger\"}\n"
              "{\"event\":\"ConsoleMessage\",\"s\":\"a\\r\\n\"}\n"
              "{\"command\":\"stop at x\",\"result\":null,\"error\":\"expected stop at CLASS:LINE\"}\n");
}

} // namespace
