// krvdbg end to end: the program is run as a child with --json and a script,
// against the demo program of examples/demo, and the JSON lines it writes
// are checked: stops, values, steps, the stack, console text, the exception
// stop and the end; malformed commands that must not end the session; and
// the failures that end it with a non-zero status.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include <nlohmann/json.hpp>

#include "LiveVM.h"

using namespace jdwpkrvdbg::testing;
using nlohmann::json;

namespace {

const std::string kShop = "examples/demo/Shop.java";
const std::string kCart = "examples/demo/Cart.java";

struct KrvdbgRun {
    int status = -1;
    std::string output; // stdout and stderr as they came
    std::vector<json> lines;

    // The outcome objects of the commands, in order (all of them, or those
    // of `command`).
    std::vector<json> commands(const std::string& command = "") const
    {
        std::vector<json> out;
        for (const auto& j : lines)
            if (j.contains("command") && (command.empty() || j["command"] == command))
                out.push_back(j);
        return out;
    }
    json command(const std::string& command) const
    {
        const auto all = commands(command);
        return all.empty() ? json() : all.front();
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
    char path[] = "/tmp/krvdbg-test-XXXXXX";
    const int fd = ::mkstemp(path);
    if (fd >= 0)
        ::close(fd);
    std::ofstream(path) << script;
    std::vector<std::string> argv{std::string(JDWPKRVDBG_BUILD_DIR) + "/tools/krvdbg", "--json", "--script", path};
    argv.insert(argv.end(), options.begin(), options.end());
    ChildProcess child(argv, {"JDWPKRVDBG_SHMEM_DIR=" + shmemLibraryDir()});
    KrvdbgRun run;
    run.status = child.wait(90000);
    // The rest of the output, up to the end of the pipe.
    child.waitForLine("\x01 never printed", 5000);
    std::remove(path);
    run.output = child.output();
    for (size_t start = 0, end = 0; start < run.output.size(); start = end + 1) {
        end = std::min(run.output.find('\n', start), run.output.size());
        const std::string line = run.output.substr(start, end - start);
        if (line.empty() || line.front() != '{')
            continue;
        json j = json::parse(line, nullptr, false);
        EXPECT_FALSE(j.is_discarded()) << "not JSON: " << line;
        if (!j.is_discarded())
            run.lines.push_back(j);
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

TEST(Krvdbg, TheDemoSessionRefusesMalformedCommandsStopsStepsShowsValuesAndRunsToTheEnd)
{
    const int store = lineOf(kCart, "@cart-store");
    const int throwLine = lineOf(kCart, "@cart-throw");
    const std::string stopAt = "stop at demo.Cart:" + std::to_string(store);
    // Malformed commands say what is expected, and the session goes on.
    const std::vector<std::pair<std::string, std::string>> bad{
        {"frobnicate", "unknown command 'frobnicate'"}, {"stop at demo.Cart", "stop at CLASS:LINE"},
        {"stop at demo.Cart:zero", "stop at CLASS:LINE"}, {"stop in getPrice", "stop in CLASS.METHOD"},
        {"stop near demo.Cart:3", "stop at CLASS:LINE"}, {"print", "print NAME"}, {"print a = b", "print NAME"},
        {"cont", "not running yet"}, {"step", "not running yet"}, {"where", "not running yet"},
        {"wait soon", "wait [MILLISECONDS]"}, {"clear demo.Cart:99", "no breakpoint at demo.Cart:99"},
        {"redefine demo.Cart", "redefine CLASS FILE.class"}, {"next now", "next takes no arguments"},
    };
    std::string script;
    for (const auto& b : bad)
        script += b.first + "\n";
    script += stopAt + "\nrun\nrun\nwhere\nlocals\nprint item.name\nprint item.nosuchfield\nnext\nnext\n"
             "print this.count\nstop in demo.Shop.fill+32\nclear " + stopAt.substr(8) +
             "\ncont\nprint cart.total\nclear demo.Shop.fill+32\ncont\nprint item.name\ncont\n";
    KrvdbgRun run = runKrvdbg(demoOptions(), script);
    ASSERT_EQ(run.status, 0) << run.output;
    auto commands = run.commands();
    ASSERT_GT(commands.size(), bad.size()) << run.output;
    for (size_t i = 0; i < bad.size(); ++i) {
        EXPECT_EQ(commands[i]["command"], bad[i].first);
        EXPECT_NE(commands[i].value("error", "").find(bad[i].second), std::string::npos) << commands[i].dump();
    }
    run.lines.erase(run.lines.begin(), std::find(run.lines.begin(), run.lines.end(), commands[bad.size()]));
    commands = run.commands();
    for (const auto& c : commands)
        EXPECT_EQ(c.contains("error"), c == run.commands("run").back()) << c.dump();
    EXPECT_NE(run.commands("run").back().value("error", "").find("already running"), std::string::npos);

    // The breakpoint was set before the class was loaded and hit later.
    EXPECT_EQ(run.command(stopAt)["result"]["registered"], false);
    EXPECT_TRUE(stoppedAt(run.command("run"), "demo/Cart", store)) << run.command("run").dump();
    const auto stops = run.events("Breakpoint");
    ASSERT_GE(stops.size(), 5u) << run.output;
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
    const json missing = run.command("print item.nosuchfield")["result"];
    EXPECT_EQ(missing["found"], false);
    EXPECT_EQ(missing["missing"], "item.nosuchfield");

    // Two steps over lines, then the field that the first one changed.
    const auto nexts = run.commands("next");
    ASSERT_EQ(nexts.size(), 2u);
    EXPECT_TRUE(stoppedAt(nexts[0], "demo/Cart", store + 1)) << nexts[0].dump();
    EXPECT_TRUE(stoppedAt(nexts[1], "demo/Cart", store + 2)) << nexts[1].dump();
    EXPECT_EQ(run.command("print this.count")["result"]["value"], "1");

    // The stop point reports its code offset; a dotted path through a field.
    const auto conts = run.commands("cont");
    ASSERT_EQ(conts.size(), 3u);
    EXPECT_TRUE(stoppedAt(conts[0], "demo/Shop", lineOf(kShop, "@shop-added"))) << conts[0].dump();
    EXPECT_EQ(conts[0]["result"]["Offset"], 32);
    EXPECT_EQ(run.command("print cart.total")["result"]["value"], "120");

    // The cart throws, the shop catches: an exception stop in the cart.
    EXPECT_TRUE(stoppedAt(conts[1], "demo/Cart", throwLine)) << conts[1].dump();
    EXPECT_NE(conts[1]["result"].value("exception", "").find("CartFullException"), std::string::npos);
    const auto exceptions = run.events("Exception");
    ASSERT_EQ(exceptions.size(), 1u);
    EXPECT_EQ(exceptions[0]["s"], "demo/CartFullException\r\ndemo.CartFullException: the cart holds only 3 items");
    EXPECT_EQ(run.commands("print item.name").back()["result"]["value"], "dates");

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
    const std::string script =
        "stop at demo.Shop:" + std::to_string(addCall) + "\nrun\nthreads\nstep\nwhere\npop\nwhere\nstep up\nquit\n";
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
    EXPECT_TRUE(stoppedAt(run.command("step"), "demo/Shop", lineOf(kShop, "@shop-added"))) << run.output;

    const auto wheres = run.commands("where");
    ASSERT_EQ(wheres.size(), 2u);
    ASSERT_EQ(wheres[0]["result"]["frames"].size(), 2u) << wheres[0].dump();
    EXPECT_EQ(wheres[0]["result"]["frames"][0]["MethodName"], "fill");
    const json popped = run.command("pop");
    EXPECT_FALSE(popped.contains("error")) << popped.dump();
    EXPECT_EQ(popped["result"]["MethodName"], "main");
    EXPECT_EQ(popped["result"]["LineNr"], lineOf(kShop, "@main-fill"));
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
    const std::string script = "stop at demo.Shop:" + std::to_string(lineOf(kShop, "@shop-add")) +
                               "\nrun\nstep\nstep up\nquit\n";
    auto options = demoOptions();
    options.insert(options.begin(), {"--target", "demo.Cart"});
    const KrvdbgRun run = runKrvdbg(options, script);
    ASSERT_EQ(run.status, 0) << run.output;
    const json into = run.command("step");
    EXPECT_EQ(into["result"]["ClassName"], "demo/Cart") << into.dump();
    EXPECT_EQ(into["result"]["LineNr"], lineOf(kCart, "@cart-throw") - 1) << into.dump();
    EXPECT_EQ(run.command("step up")["result"]["ClassName"], "demo/Shop") << run.output;
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
    bool sawIdSizes = false, sawReply = false;
    for (const auto& j : run.lines) {
        const std::string t = j.value("trace", "");
        sawIdSizes = sawIdSizes || (t.rfind("->", 0) == 0 && t.find(" 1/7 ") != std::string::npos);
        sawReply = sawReply || (t.rfind("<-", 0) == 0 && t.find("reply err=0") != std::string::npos);
    }
    EXPECT_TRUE(sawIdSizes) << run.output;
    EXPECT_TRUE(sawReply) << run.output;
}

TEST(Krvdbg, DebugsOverSharedMemory)
{
    const std::string stopAt = "demo.Cart:" + std::to_string(lineOf(kCart, "@cart-store"));
    auto options = demoOptions();
    options.insert(options.begin(), "--shmem");
    const KrvdbgRun run = runKrvdbg(options, "stop at " + stopAt + "\nrun\nprint item.name\nclear " + stopAt + "\ncont\ncont\n");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(stoppedAt(run.command("run"), "demo/Cart", lineOf(kCart, "@cart-store"))) << run.output;
    EXPECT_EQ(run.command("print item.name")["result"]["value"], "apple");
    EXPECT_EQ(run.commands("cont").back()["result"]["outcome"], "ended") << run.output;
    EXPECT_NE(run.console().find("Total: 850 cents for 3 items\r\n"), std::string::npos) << run.output;
}

// A toString that never returns: print says so, the program is running with
// the call, suspend brings the thread back and where shows it inside the
// call; quit ends the session.
TEST(Krvdbg, AnEvaluationThatNeverReturnsSaysSoAndSuspendFindsTheThread)
{
    const std::string values = "tests/java/Values.java";
    const std::string script = "stop at Values:" + std::to_string(lineOf(values, "@values-stop")) +
                               "\nrun\nprint spin.toString\nwhere\nsuspend\nwhere\nquit\n";
    const KrvdbgRun run =
        runKrvdbg({"--quiet", "-cp", testsClassPath(), "--java", javaPath(), "Values"}, script);
    ASSERT_EQ(run.status, 0) << run.output;
    const json print = run.command("print spin.toString");
    EXPECT_EQ(print["result"]["found"], true) << print.dump();
    EXPECT_NE(print["result"].value("value", "").find("timed out and is still running in the VM"), std::string::npos)
        << print.dump();
    const auto wheres = run.commands("where");
    ASSERT_EQ(wheres.size(), 2u) << run.output;
    EXPECT_NE(wheres[0].value("error", "").find("the VM is running"), std::string::npos) << wheres[0].dump();
    EXPECT_EQ(run.command("suspend")["result"]["state"], 1) << run.output;
    const json frames = wheres[1]["result"]["frames"];
    ASSERT_GE(frames.size(), 2u) << wheres[1].dump();
    EXPECT_EQ(frames[0]["ClassName"], "Spinner");
    EXPECT_EQ(frames[0]["MethodName"], "toString");
    EXPECT_EQ(frames[0]["LineNr"], lineOf(values, "@spin"));
    EXPECT_EQ(frames.back()["MethodName"], "main");
    EXPECT_EQ(run.command("quit")["result"], "quit");
}

TEST(Krvdbg, FailuresEndWithTheirStatusAndSayWhy)
{
    const std::string address = "127.0.0.1:" + std::to_string(freeTcpPort());
    const std::vector<std::tuple<std::vector<std::string>, int, std::string>> cases{
        {{"--frobnicate"}, 1, "krvdbg: unknown option '--frobnicate'"},
        {{"--attach", address}, 2, "krvdbg: Debugger failed!"},
        {demoOptions("demo.NoSuchShop"), 3, "krvdbg: the VM ended without loading the main class demo.NoSuchShop"},
    };
    std::vector<KrvdbgRun> runs;
    for (const auto& [options, status, text] : cases) {
        runs.push_back(runKrvdbg(options, "run\n"));
        EXPECT_EQ(runs.back().status, status) << runs.back().output;
        EXPECT_NE(runs.back().output.find(text), std::string::npos) << runs.back().output;
    }
    // The connection failure is the box the IDE would show and the run
    // command's error.
    const auto boxes = runs[1].events("Message");
    ASSERT_EQ(boxes.size(), 1u) << runs[1].output;
    EXPECT_EQ(boxes[0]["Title"], "Korvane Debugger");
    EXPECT_EQ(boxes[0]["Buttons"], 16);
    EXPECT_NE(boxes[0].dump().find(address), std::string::npos) << boxes[0].dump();
    EXPECT_EQ(runs[1].command("run").value("error", "").rfind("Debugger failed!", 0), 0u) << runs[1].output;
    EXPECT_NE(runs[2].console().find("Could not find or load main class demo.NoSuchShop"), std::string::npos);
    EXPECT_EQ(runs[2].command("run")["result"]["outcome"], "ended");
}

} // namespace
