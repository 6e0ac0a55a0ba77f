// krvdbg end to end: the program is run as a child with --json and a script,
// against the demo program of examples/demo, and the JSON lines it writes
// are checked: stops, values, steps, the stack, console text, the exception
// stop and the end; the failures that end it with a non-zero status; and
// malformed commands that must not end the session.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include <nlohmann/json.hpp>

#include "LiveVM.h"

using namespace jdwpkrvdbg::testing;
using nlohmann::json;

namespace {

constexpr int kRunTimeoutMs = 90000;
const std::string kShop = "examples/demo/Shop.java";
const std::string kCart = "examples/demo/Cart.java";

std::string krvdbgPath()
{
    return std::string(JDWPKRVDBG_BUILD_DIR) + "/tools/krvdbg";
}

// A script file that is removed again when the test ends.
class ScriptFile {
public:
    explicit ScriptFile(const std::string& text)
    {
        char name[] = "/tmp/krvdbg-test-XXXXXX";
        const int fd = ::mkstemp(name);
        if (fd >= 0)
            ::close(fd);
        path_ = name;
        std::ofstream(path_) << text;
    }
    ~ScriptFile() { std::remove(path_.c_str()); }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

struct KrvdbgRun {
    int status = -1;
    std::string output; // stdout and stderr as they came
    std::vector<json> lines;

    // The outcome objects of the commands, in order.
    std::vector<json> commands() const
    {
        std::vector<json> out;
        for (const auto& j : lines)
            if (j.contains("command"))
                out.push_back(j);
        return out;
    }
    // The first outcome of `command`.
    json command(const std::string& command) const
    {
        for (const auto& c : commands())
            if (c["command"] == command)
                return c;
        return json();
    }
    json lastCommand(const std::string& command) const
    {
        json found;
        for (const auto& c : commands())
            if (c["command"] == command)
                found = c;
        return found;
    }
    std::vector<json> events(const std::string& name) const
    {
        std::vector<json> out;
        for (const auto& j : lines)
            if (j.value("event", "") == name)
                out.push_back(j);
        return out;
    }
    std::string console() const
    {
        std::string text;
        for (const auto& e : events("ConsoleMessage"))
            text += e["s"].get<std::string>();
        return text;
    }
};

KrvdbgRun runKrvdbg(const std::vector<std::string>& options, const std::string& script)
{
    ScriptFile file(script);
    std::vector<std::string> argv{krvdbgPath(), "--json", "--script", file.path()};
    argv.insert(argv.end(), options.begin(), options.end());
    ChildProcess child(argv, {"JDWPKRVDBG_SHMEM_DIR=" + shmemLibraryDir()});
    KrvdbgRun run;
    run.status = child.wait(kRunTimeoutMs);
    // The rest of the output, up to the end of the pipe.
    child.waitForLine("\x01 never printed", 5000);
    run.output = child.output();
    size_t start = 0;
    while (start < run.output.size()) {
        size_t end = run.output.find('\n', start);
        if (end == std::string::npos)
            end = run.output.size();
        const std::string line = run.output.substr(start, end - start);
        if (!line.empty() && line.front() == '{') {
            json j = json::parse(line, nullptr, false);
            EXPECT_FALSE(j.is_discarded()) << "not JSON: " << line;
            if (!j.is_discarded())
                run.lines.push_back(j);
        }
        start = end + 1;
    }
    return run;
}

std::vector<std::string> demoOptions(const std::string& mainClass = "demo.Shop")
{
    return {"--quiet", "-cp", examplesClassPath(), "--java", javaPath(), mainClass};
}


bool stoppedAt(const json& outcome, const std::string& cls, int line)
{
    const json& r = outcome["result"];
    return r.is_object() && r.value("outcome", "") == "stopped" && r.value("ClassName", "") == cls &&
           r.value("LineNr", -1) == line;
}

TEST(Krvdbg, TheDemoSessionStopsStepsShowsValuesAndRunsToTheEnd)
{
    const int store = lineOf(kCart, "@cart-store");
    const int throwLine = lineOf(kCart, "@cart-throw");
    const int added = lineOf(kShop, "@shop-added");
    ASSERT_GT(store, 0);
    const std::string script = "stop at demo.Cart:" + std::to_string(store) +
                               "\n"
                               "run\n"
                               "where\n"
                               "locals\n"
                               "print item.name\n"
                               "next\n"
                               "next\n"
                               "print this.count\n"
                               "stop in demo.Shop.fill+32\n"
                               "clear demo.Cart:" +
                               std::to_string(store) +
                               "\n"
                               "cont\n"
                               "print cart.total\n"
                               "clear demo.Shop.fill+32\n"
                               "cont\n"
                               "print item.name\n"
                               "cont\n";
    const KrvdbgRun run = runKrvdbg(demoOptions(), script);
    ASSERT_EQ(run.status, 0) << run.output;
    for (const auto& c : run.commands())
        EXPECT_FALSE(c.contains("error")) << c.dump();

    // The breakpoint was set before the class was loaded and hit later.
    EXPECT_EQ(run.command("stop at demo.Cart:" + std::to_string(store))["result"]["registered"], false);
    EXPECT_TRUE(stoppedAt(run.command("run"), "demo/Cart", store)) << run.command("run").dump();
    const auto stops = run.events("Breakpoint");
    ASSERT_GE(stops.size(), 5u) << run.output;
    EXPECT_EQ(stops[0]["ClassName"], "demo/Cart");
    EXPECT_EQ(stops[0]["LineNr"], store);
    EXPECT_EQ(stops[0]["Offset"], 0);
    EXPECT_GT(stops[0]["threadID"].get<double>(), 0);

    const json frames = run.command("where")["result"]["frames"];
    ASSERT_EQ(frames.size(), 3u) << frames.dump();
    EXPECT_EQ(frames[0]["ClassName"], "demo/Cart");
    EXPECT_EQ(frames[0]["MethodName"], "add");
    EXPECT_EQ(frames[0]["MethodSignature"], "(Ldemo/Item;)V");
    EXPECT_EQ(frames[0]["LineNr"], store);
    EXPECT_EQ(frames[1]["MethodName"], "fill");
    EXPECT_EQ(frames[2]["MethodName"], "main");
    EXPECT_EQ(frames[2]["ClassName"], "demo/Shop");

    std::map<std::string, std::string> locals;
    const json localsOutcome = run.command("locals");
    for (const auto& l : localsOutcome["result"]["locals"])
        locals[l["name"]] = l["value"].is_string() ? l["value"].get<std::string>() : "";
    ASSERT_EQ(locals.size(), 2u) << run.command("locals").dump();
    EXPECT_NE(locals["item"].find("demo/Item"), std::string::npos) << locals["item"];
    EXPECT_NE(locals["this"].find("demo/Cart"), std::string::npos) << locals["this"];

    const json name = run.command("print item.name")["result"];
    EXPECT_EQ(name["found"], true);
    EXPECT_EQ(name["value"], "apple");
    ASSERT_EQ(name["steps"].size(), 1u);
    EXPECT_EQ(name["steps"][0]["path"], "item");

    // Two steps over lines, then the field that the first one changed.
    EXPECT_TRUE(stoppedAt(run.command("next"), "demo/Cart", store + 1)) << run.command("next").dump();
    const auto all = run.commands();
    size_t secondNext = 0;
    for (size_t i = 0, seen = 0; i < all.size(); ++i)
        if (all[i]["command"] == "next" && ++seen == 2)
            secondNext = i;
    ASSERT_GT(secondNext, 0u);
    EXPECT_TRUE(stoppedAt(all[secondNext], "demo/Cart", store + 2)) << all[secondNext].dump();
    EXPECT_EQ(run.command("print this.count")["result"]["value"], "1");

    // The stop point reports its code offset; a dotted path through a field.
    const json sp = run.command("cont");
    EXPECT_TRUE(stoppedAt(sp, "demo/Shop", added)) << sp.dump();
    EXPECT_EQ(sp["result"]["Offset"], 32);
    EXPECT_EQ(run.command("print cart.total")["result"]["value"], "120");

    // The cart throws, the shop catches: an exception stop in the cart.
    const auto conts = [&] {
        std::vector<json> c;
        for (const auto& o : run.commands())
            if (o["command"] == "cont")
                c.push_back(o);
        return c;
    }();
    ASSERT_EQ(conts.size(), 3u);
    EXPECT_TRUE(stoppedAt(conts[1], "demo/Cart", throwLine)) << conts[1].dump();
    EXPECT_NE(conts[1]["result"].value("exception", "").find("CartFullException"), std::string::npos);
    const auto exceptions = run.events("Exception");
    ASSERT_EQ(exceptions.size(), 1u);
    EXPECT_EQ(exceptions[0]["s"], "demo/CartFullException\r\ndemo.CartFullException: the cart holds only 3 items");
    EXPECT_EQ(run.lastCommand("print item.name")["result"]["value"], "dates");

    // The end: the whole console output, the VM dead, the last cont ended.
    EXPECT_EQ(conts[2]["result"]["outcome"], "ended");
    const std::string console = run.console();
    for (const char* text : {"Welcome to the Corner Shop\r\n", "Added apple (120 cents)\r\n",
                             "Refused dates: the cart holds only 3 items\r\n", "Total: 850 cents for 3 items\r\n",
                             "Refused: 1\r\n"})
        EXPECT_NE(console.find(text), std::string::npos) << text << " in " << console;
    const auto states = run.events("VMStateChanged");
    ASSERT_FALSE(states.empty());
    EXPECT_EQ(states.back()["NewState"], 0);
    // --quiet: no progress lines.
    for (const auto& d : run.events("DebugMessage"))
        EXPECT_NE(d["s"].get<std::string>().rfind(" *** ", 0), 0u) << d.dump();
}

TEST(Krvdbg, StepsPastClassesOutsideTheProgramListsThreadsAndPopsAFrame)
{
    const int addCall = lineOf(kShop, "@shop-add");
    const int added = lineOf(kShop, "@shop-added");
    const int fillCall = lineOf(kShop, "@main-fill");
    const std::string script = "stop at demo.Shop:" + std::to_string(addCall) +
                               "\n"
                               "run\n"
                               "threads\n"
                               "step\n"
                               "where\n"
                               "pop\n"
                               "where\n"
                               "step up\n"
                               "quit\n";
    const KrvdbgRun run = runKrvdbg(demoOptions(), script);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(stoppedAt(run.command("run"), "demo/Shop", addCall)) << run.output;

    bool mainSuspended = false;
    const json threads = run.command("threads");
    for (const auto& t : threads["result"]["threads"])
        if (t["ThreadName"] == "main")
            mainSuspended = t["ThreadSuspended"].get<bool>();
    EXPECT_TRUE(mainSuspended) << run.command("threads").dump();

    // Only demo.Shop is the program here (no breakpoint names Cart or Item),
    // so the step runs through Cart.add and Item.getPrice and stops on the
    // next line of Shop.fill.
    EXPECT_TRUE(stoppedAt(run.command("step"), "demo/Shop", added)) << run.command("step").dump();

    std::vector<json> wheres;
    for (const auto& o : run.commands())
        if (o["command"] == "where")
            wheres.push_back(o);
    ASSERT_EQ(wheres.size(), 2u);
    ASSERT_EQ(wheres[0]["result"]["frames"].size(), 2u) << wheres[0].dump();
    EXPECT_EQ(wheres[0]["result"]["frames"][0]["MethodName"], "fill");
    const json popped = run.command("pop");
    EXPECT_FALSE(popped.contains("error")) << popped.dump();
    EXPECT_EQ(popped["result"]["MethodName"], "main");
    EXPECT_EQ(popped["result"]["LineNr"], fillCall);
    ASSERT_EQ(wheres[1]["result"]["frames"].size(), 1u) << wheres[1].dump();
    EXPECT_EQ(wheres[1]["result"]["frames"][0]["MethodName"], "main");

    // Out of main's call of fill (run again from its start after the pop):
    // the stop is back in main, after the call.
    const json up = run.command("step up");
    EXPECT_FALSE(up.contains("error")) << up.dump();
    EXPECT_EQ(up["result"]["ClassName"], "demo/Shop") << up.dump();
    EXPECT_EQ(run.command("quit")["result"], "quit");
}

TEST(Krvdbg, StepsIntoATargetClassAndOutAgain)
{
    const int addCall = lineOf(kShop, "@shop-add");
    const std::string script = "stop at demo.Shop:" + std::to_string(addCall) +
                               "\n"
                               "run\n"
                               "step\n"
                               "step up\n"
                               "quit\n";
    auto options = demoOptions();
    options.insert(options.begin(), {"--target", "demo.Cart"});
    const KrvdbgRun run = runKrvdbg(options, script);
    ASSERT_EQ(run.status, 0) << run.output;
    const json into = run.command("step");
    EXPECT_EQ(into["result"]["ClassName"], "demo/Cart") << into.dump();
    EXPECT_EQ(into["result"]["LineNr"], lineOf(kCart, "@cart-throw") - 1) << into.dump();
    const json out = run.command("step up");
    EXPECT_EQ(out["result"]["ClassName"], "demo/Shop") << out.dump();
}

TEST(Krvdbg, AttachesToAListeningVMAndTracesThePackets)
{
    ListeningVM vm("demo.Shop", examplesClassPath());
    ASSERT_GT(vm.port(), 0);
    const int store = lineOf(kCart, "@cart-store");
    const std::string script = "stop at demo.Cart:" + std::to_string(store) + "\nrun\nprint item.name\ncont\nquit\n";
    const KrvdbgRun run = runKrvdbg({"--trace", "--attach", "127.0.0.1:" + std::to_string(vm.port())}, script);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(stoppedAt(run.command("run"), "demo/Cart", store)) << run.output;
    EXPECT_EQ(run.command("print item.name")["result"]["value"], "apple");
    EXPECT_TRUE(stoppedAt(run.command("cont"), "demo/Cart", store));
    bool sawIdSizes = false;
    bool sawReply = false;
    for (const auto& j : run.lines) {
        if (!j.contains("trace"))
            continue;
        const std::string t = j["trace"];
        sawIdSizes = sawIdSizes || (t.rfind("->", 0) == 0 && t.find(" 1/7 ") != std::string::npos);
        sawReply = sawReply || (t.rfind("<-", 0) == 0 && t.find("reply err=0") != std::string::npos);
    }
    EXPECT_TRUE(sawIdSizes) << run.output;
    EXPECT_TRUE(sawReply) << run.output;
}

TEST(Krvdbg, DebugsOverSharedMemory)
{
    const int store = lineOf(kCart, "@cart-store");
    const std::string script = "stop at demo.Cart:" + std::to_string(store) + "\nrun\nprint item.name\nclear demo.Cart:" +
                               std::to_string(store) + "\ncont\ncont\n";
    auto options = demoOptions();
    options.insert(options.begin(), "--shmem");
    const KrvdbgRun run = runKrvdbg(options, script);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(stoppedAt(run.command("run"), "demo/Cart", store)) << run.output;
    EXPECT_EQ(run.command("print item.name")["result"]["value"], "apple");
    EXPECT_EQ(run.lastCommand("cont")["result"]["outcome"], "ended") << run.output;
    EXPECT_NE(run.console().find("Total: 850 cents for 3 items\r\n"), std::string::npos) << run.output;
}

TEST(Krvdbg, MalformedCommandsSayWhatIsExpectedAndTheSessionGoesOn)
{
    const int store = lineOf(kCart, "@cart-store");
    struct Bad {
        std::string command;
        std::string errorPart;
    };
    const Bad before[] = {
        {"frobnicate", "unknown command 'frobnicate'"},
        {"stop at demo.Cart", "stop at CLASS:LINE"},
        {"stop at demo.Cart:zero", "stop at CLASS:LINE"},
        {"stop in getPrice", "stop in CLASS.METHOD"},
        {"stop near demo.Cart:3", "stop at CLASS:LINE"},
        {"print", "print NAME"},
        {"print a = b", "print NAME"},
        {"cont", "not running yet"},
        {"step", "not running yet"},
        {"where", "not running yet"},
        {"wait soon", "wait [MILLISECONDS]"},
        {"clear demo.Cart:99", "no breakpoint at demo.Cart:99"},
        {"redefine demo.Cart", "redefine CLASS FILE.class"},
        {"next now", "next takes no arguments"},
    };
    std::string script;
    for (const auto& b : before)
        script += b.command + "\n";
    script += "stop at demo.Cart:" + std::to_string(store) + "\nrun\nrun\nprint item.nosuchfield\nprint item.name\nquit\n";
    const KrvdbgRun run = runKrvdbg(demoOptions(), script);
    ASSERT_EQ(run.status, 0) << run.output;
    const auto commands = run.commands();
    ASSERT_EQ(commands.size(), std::size(before) + 6) << run.output;
    for (size_t i = 0; i < std::size(before); ++i) {
        EXPECT_EQ(commands[i]["command"], before[i].command);
        ASSERT_TRUE(commands[i].contains("error")) << commands[i].dump();
        EXPECT_NE(commands[i]["error"].get<std::string>().find(before[i].errorPart), std::string::npos)
            << commands[i].dump();
    }
    EXPECT_TRUE(stoppedAt(run.command("run"), "demo/Cart", store)) << run.output;
    EXPECT_NE(run.lastCommand("run").value("error", "").find("already running"), std::string::npos);
    const json missing = run.command("print item.nosuchfield")["result"];
    EXPECT_EQ(missing["found"], false);
    EXPECT_EQ(missing["missing"], "item.nosuchfield");
    EXPECT_EQ(run.command("print item.name")["result"]["value"], "apple");
}

TEST(Krvdbg, APortNobodyListensOnFailsWithTheBoxTextAndStatusTwo)
{
    const int port = freeTcpPort();
    const KrvdbgRun run = runKrvdbg({"--attach", "127.0.0.1:" + std::to_string(port)}, "run\n");
    EXPECT_EQ(run.status, 2) << run.output;
    EXPECT_NE(run.output.find("krvdbg: Debugger failed!"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("127.0.0.1:" + std::to_string(port)), std::string::npos) << run.output;
    const auto boxes = run.events("Message");
    ASSERT_EQ(boxes.size(), 1u) << run.output;
    EXPECT_EQ(boxes[0]["Title"], "Korvane Debugger");
    EXPECT_EQ(boxes[0]["Buttons"], 16);
    EXPECT_EQ(run.command("run").value("error", "").rfind("Debugger failed!", 0), 0u) << run.output;
}

TEST(Krvdbg, AMissingMainClassEndsWithStatusThree)
{
    const KrvdbgRun run = runKrvdbg(demoOptions("demo.NoSuchShop"), "run\n");
    EXPECT_EQ(run.status, 3) << run.output;
    EXPECT_NE(run.output.find("krvdbg: the VM ended without loading the main class demo.NoSuchShop"),
              std::string::npos)
        << run.output;
    EXPECT_NE(run.console().find("Could not find or load main class demo.NoSuchShop"), std::string::npos)
        << run.output;
    EXPECT_EQ(run.command("run")["result"]["outcome"], "ended");
}

TEST(Krvdbg, BadOptionsEndWithStatusOne)
{
    const KrvdbgRun run = runKrvdbg({"--frobnicate"}, "run\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("krvdbg: unknown option '--frobnicate'"), std::string::npos) << run.output;
}

} // namespace
