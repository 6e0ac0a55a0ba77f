// krvdbg end to end: the program is run as a child with --json and a script,
// against the demo program of examples/demo, and the JSON lines it writes
// are checked: stops, values, steps, the stack, console text, the exception
// stop and the end; values set at a stop; malformed commands that must not
// end the session; the failures that end it with a non-zero status; which
// classes a step enters; attaching to a program that runs; and what signals
// to krvdbg do to the VM (Ctrl-C in a real pseudo-terminal).
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
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

const std::string kKrvdbg = buildDir() + "/tools/krvdbg";

// A script file that is removed with the object.
struct ScriptFile {
    explicit ScriptFile(const std::string& script)
    {
        const int fd = ::mkstemp(path);
        if (fd >= 0)
            ::close(fd);
        std::ofstream(path) << script;
    }
    ~ScriptFile() { std::remove(path); }
    char path[32] = "/tmp/krvdbg-test-XXXXXX";
};

std::unique_ptr<ChildProcess> startKrvdbg(const std::vector<std::string>& options, const ScriptFile& script)
{
    std::vector<std::string> argv{kKrvdbg, "--json", "--script", script.path};
    argv.insert(argv.end(), options.begin(), options.end());
    return std::make_unique<ChildProcess>(argv, std::vector<std::string>{"JDWPKRVDBG_SHMEM_DIR=" + shmemLibraryDir()});
}

KrvdbgRun runKrvdbg(const std::vector<std::string>& options, const std::string& script)
{
    const ScriptFile file(script);
    auto child = startKrvdbg(options, file);
    KrvdbgRun run;
    run.status = child->wait(90000);
    // The rest of the output, up to the end of the pipe.
    child->waitForLine("\x01 never printed", 5000);
    run.output = child->output();
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
        {"frobnicate", "unknown command 'frobnicate'"},
        {"stop at demo.Cart", "stop at CLASS:LINE"},
        {"stop in getPrice", "stop in CLASS.METHOD"},
        {"stop near demo.Cart:3", "stop at CLASS:LINE"},
        {"print", "print NAME"},
        {"cont", "not running yet"},
        {"step", "not running yet"},
        {"wait soon", "wait [MILLISECONDS]"},
        {"clear demo.Cart:99", "no breakpoint at demo.Cart:99"},
        {"redefine demo.Cart", "redefine CLASS FILE.class"},
        {"next now", "next takes no arguments"},
    };
    std::string script;
    for (const auto& b : bad)
        script += b.first + "\n";
    script += stopAt +
              "\nrun\nrun\nwhere\nlocals\nprint item.name\nprint item.nosuchfield\nnext\nnext\n"
              "print this.count\nstop in demo.Shop.fill+32\nclear " +
              stopAt.substr(8) + "\ncont\nprint cart.total\nclear demo.Shop.fill+32\ncont\nprint item.name\ncont\n";
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
    for (const char* text :
         {"Welcome to the Corner Shop\r\n", "Added apple (120 cents)\r\n",
          "Refused dates: the cart holds only 3 items\r\n", "Total: 850 cents for 3 items\r\n", "Refused: 1\r\n"})
        EXPECT_NE(console.find(text), std::string::npos) << text << " in " << console;
    const auto states = run.events("VMStateChanged");
    ASSERT_FALSE(states.empty());
    EXPECT_EQ(states.back()["NewState"], 0);
    // --quiet: no progress lines.
    for (const auto& d : run.events("DebugMessage"))
        EXPECT_NE(d["s"].get<std::string>().rfind(" *** ", 0), 0u) << d.dump();
}

// Loops.java (12 rounds here): a loop that calls Counter.add(int) each round
// and Counter.add(String) once after it. Each kind of breakpoint stops (or
// logs) where it says, in order; a condition that does not parse is refused
// and one that fails at a hit says why before its stop.
TEST(Krvdbg, ConditionsHitCountsLogpointsAndMethodBreakpointsStopWhereTheySay)
{
    const std::string loops = "tests/java/Loops.java";
    const int add = lineOf(loops, "@loops-add");
    const int addText = lineOf(loops, "@loops-add-text");
    const int addInt = lineOf(loops, "@counter-add-int");
    const int sum = lineOf(loops, "@counter-sum");
    const int textEntry = lineOf(loops, "@counter-add-text");
    const std::string script =
        "stop at Loops:" + std::to_string(add) + " if i >\n" + // refused
        "stop at Loops:" + std::to_string(add) + " if i == 7\n" + "stop at Loops$Counter:" + std::to_string(sum) +
        " hit % 5\n" + "log Loops$Counter:" + std::to_string(addInt) + " \"n is {n}\"\n" +
        "stop at Loops:" + std::to_string(addText) + " if nosuch > 1\n" +
        "stop in Loops$Counter.add(java.lang.String)\n"
        "stop\nrun\nprint n\nprint count\nprint label\ncont\nprint i\ncont\nprint n\ncont\ncont\nprint text\n"
        "clear Loops$Counter.add(java.lang.String)\nstop\ncont\n";
    const KrvdbgRun run = runKrvdbg({"--quiet", "-cp", testsClassPath(), "--java", javaPath(), "Loops", "12"}, script);
    ASSERT_EQ(run.status, 0) << run.output;
    const auto commands = run.commands();
    ASSERT_FALSE(commands.empty());
    EXPECT_NE(commands[0].value("error", "").find("condition"), std::string::npos) << commands[0].dump();
    for (size_t i = 1; i < commands.size(); ++i)
        EXPECT_FALSE(commands[i].contains("error")) << commands[i].dump();

    // The list shows what each does.
    const json list = run.commands("stop").front()["result"];
    ASSERT_EQ(list.size(), 5u) << list.dump();
    const auto listed = [&](const char* key, const std::string& value) {
        return std::count_if(list.begin(), list.end(), [&](const json& b) { return b.value(key, "") == value; });
    };
    EXPECT_EQ(listed("Condition", "i == 7"), 1) << list.dump();
    EXPECT_EQ(listed("HitCondition", "% 5"), 1) << list.dump();
    EXPECT_EQ(listed("LogMessage", "n is {n}"), 1) << list.dump();
    EXPECT_EQ(listed("Signature", "(java.lang.String)"), 1) << list.dump();
    EXPECT_EQ(run.commands("stop").back()["result"].size(), 4u) << "cleared: " << run.output;

    // Every 5th pass over the sum, i == 7 once, the failed condition, the
    // one overload; the logpoint never stops.
    EXPECT_TRUE(stoppedAt(run.command("run"), "Loops$Counter", sum)) << run.output;
    const auto conts = run.commands("cont");
    ASSERT_EQ(conts.size(), 5u) << run.output;
    EXPECT_TRUE(stoppedAt(conts[0], "Loops", add)) << conts[0].dump();
    EXPECT_TRUE(stoppedAt(conts[1], "Loops$Counter", sum)) << conts[1].dump();
    EXPECT_TRUE(stoppedAt(conts[2], "Loops", addText)) << conts[2].dump();
    EXPECT_TRUE(stoppedAt(conts[3], "Loops$Counter", textEntry)) << conts[3].dump();
    EXPECT_EQ(conts[4]["result"]["outcome"], "ended");
    const auto printed = [&](const std::string& command, size_t k) {
        const auto all = run.commands(command);
        return k < all.size() ? all[k]["result"].value("value", "?") : "(none)";
    };
    EXPECT_EQ(
        std::make_tuple(printed("print n", 0), printed("print i", 0), printed("print n", 1), printed("print text", 0)),
        std::make_tuple("4", "7", "9", "done"))
        << run.output;
    // The fields of a nested class's object, by their names alone.
    EXPECT_EQ(std::make_tuple(printed("print count", 0), printed("print label", 0)), std::make_tuple("5", "counter"))
        << run.output;

    std::vector<std::string> logged;
    for (const auto& e : run.events("LogpointMessage")) {
        EXPECT_EQ(std::make_tuple(e["ClassName"], e["LineNr"]), std::make_tuple(json("Loops$Counter"), json(addInt)));
        logged.push_back(e.value("text", ""));
    }
    std::vector<std::string> expected;
    for (int n = 0; n < 12; ++n)
        expected.push_back("n is " + std::to_string(n));
    EXPECT_EQ(logged, expected);

    // The reason comes before the stop it explains.
    const auto failed = std::find_if(run.lines.begin(), run.lines.end(),
                                     [](const json& j) { return j.value("event", "") == "ConditionFailed"; });
    ASSERT_NE(failed, run.lines.end()) << run.output;
    EXPECT_EQ(std::make_tuple((*failed)["condition"], (*failed)["LineNr"]),
              std::make_tuple(json("nosuch > 1"), json(addText)));
    EXPECT_FALSE((*failed).value("reason", "").empty());
    const auto stopAfter =
        std::find_if(failed, run.lines.end(), [](const json& j) { return j.value("event", "") == "Breakpoint"; });
    ASSERT_NE(stopAfter, run.lines.end());
    EXPECT_EQ((*stopAfter)["LineNr"], addText);
    EXPECT_NE(run.console().find("loops end 16 66"), std::string::npos) << run.console();
}

TEST(Krvdbg, StepsIntoTheProgramsOwnClassListsThreadsAndPopsAFrame)
{
    // No breakpoint and no --target names demo.Cart: it is the program's
    // because it is in the class path's folder.
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

    EXPECT_TRUE(stoppedAt(run.command("step"), "demo/Cart", lineOf(kCart, "@cart-throw") - 1)) << run.output;
    const auto wheres = run.commands("where");
    ASSERT_EQ(wheres.size(), 2u);
    ASSERT_EQ(wheres[0]["result"]["frames"].size(), 3u) << wheres[0].dump();
    EXPECT_EQ(wheres[0]["result"]["frames"][0]["MethodName"], "add");
    const json popped = run.command("pop");
    EXPECT_FALSE(popped.contains("error")) << popped.dump();
    EXPECT_EQ(popped["result"]["MethodName"], "fill");
    EXPECT_EQ(popped["result"]["LineNr"], addCall);
    ASSERT_EQ(wheres[1]["result"]["frames"].size(), 2u) << wheres[1].dump();
    EXPECT_EQ(wheres[1]["result"]["frames"][0]["MethodName"], "fill");

    // Out of fill (run again from the call after the pop): back in main.
    const json up = run.command("step up");
    EXPECT_EQ(up["result"]["ClassName"], "demo/Shop") << up.dump();
    EXPECT_EQ(run.command("quit")["result"], "quit");
}

TEST(Krvdbg, StepEntersTheClassesInTheClassPathsFoldersAndThoseThatTargetPatternsName)
{
    // The demo's classes once more, packed in a jar: a library unless named.
    const std::string jar = buildDir() + "/krvdbg-test-demo.jar";
    const std::string jarTool = javaPath().substr(0, javaPath().rfind('/') + 1) + "jar";
    ASSERT_EQ(ChildProcess({jarTool, "cf", jar, "-C", examplesClassPath(), "demo"}).wait(60000), 0);
    const std::string script =
        "stop at demo.Shop:" + std::to_string(lineOf(kShop, "@shop-add")) + "\nrun\nwait\nstep\nquit\n";
    const struct {
        const char* name;
        std::string classPath; // empty: attach
        std::vector<std::string> targets;
        std::string stepsInto;
    } cases[] = {
        {"a class in a folder", examplesClassPath(), {}, "demo/Cart"},
        {"a class in a jar", jar, {}, "demo/Shop"},
        {"a jar's classes named by a pattern", jar, {"--target", "demo.*"}, "demo/Cart"},
        {"a class named by a suffix pattern", jar, {"--target", "*.Cart"}, "demo/Cart"},
        {"attached, a pattern", "", {"--target", "demo.*"}, "demo/Cart"},
    };
    for (const auto& c : cases) {
        std::unique_ptr<ListeningVM> vm;
        std::vector<std::string> options = c.targets;
        if (c.classPath.empty()) {
            vm = std::make_unique<ListeningVM>("demo.Shop", examplesClassPath());
            options.insert(options.end(), {"--attach", "127.0.0.1:" + std::to_string(vm->port())});
        } else {
            options.insert(options.end(), {"--quiet", "-cp", c.classPath, "--java", javaPath(), "demo.Shop"});
        }
        const KrvdbgRun run = runKrvdbg(options, script);
        EXPECT_EQ(run.status, 0) << c.name << "\n" << run.output;
        EXPECT_EQ(run.command("step")["result"].value("ClassName", ""), c.stepsInto) << c.name << "\n" << run.output;
    }
    std::remove(jar.c_str());
}

TEST(Krvdbg, RunReturnsAfterAttachingToARunningProgramAndItsBreakpointsAreSet)
{
    // The breakpoint is set before the attach, in a class loaded long before.
    const int loop = lineOf("tests/java/Sleeper.java", "@sleeper-loop");
    const int addInt = lineOf("tests/java/Loops.java", "@counter-add-int");
    const struct {
        const char* program;
        const char* ready;
        std::string breakpoint;
        std::string stopClass;
        int stopLine;
        std::string method; // of the top frame
    } cases[] = {
        {"Sleeper", "sleeper ready", "stop at Sleeper:" + std::to_string(loop), "Sleeper", loop, "main"},
        {"LoopsForever", "loops forever ready", "stop in Loops$Counter.add(int) if n >= 3", "Loops$Counter", addInt,
         "add"},
    };
    for (const auto& c : cases) {
        ListeningVM vm(c.program, testsClassPath(), false);
        ASSERT_GT(vm.port(), 0);
        ASSERT_NE(vm.process().waitForLine(c.ready, 20000), "");
        const std::string script = c.breakpoint + "\nrun\nwait 30000\nwhere\nquit\n";
        const KrvdbgRun run = runKrvdbg({"--attach", "127.0.0.1:" + std::to_string(vm.port())}, script);
        ASSERT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(run.command("run")["result"]["outcome"], "running") << run.output;
        EXPECT_TRUE(stoppedAt(run.command("wait 30000"), c.stopClass, c.stopLine)) << c.program << run.output;
        EXPECT_EQ(run.command("where")["result"]["frames"][0]["MethodName"], c.method) << run.output;
        // quit lets an attached VM go: it keeps running.
        EXPECT_TRUE(processRunning(vm.process().pid()));
    }
}

pid_t sleeperPid(ChildProcess& child)
{
    const std::string line = child.waitForLine("sleeper ready pid=", 30000);
    const size_t at = line.find("pid=");
    return at == std::string::npos ? 0 : std::atoi(line.c_str() + at + 4);
}

bool waitUntilGone(pid_t pid)
{
    for (int i = 0; i < 1000 && processRunning(pid); ++i)
        ::usleep(10000);
    return !processRunning(pid);
}

TEST(Krvdbg, ALaunchedVMEndsWithKrvdbgHoweverItEndsAndAnAttachedOneKeepsRunning)
{
    const struct {
        int signal;
        bool attach;
    } cases[] = {
        {SIGKILL, false},
        {SIGTERM, false},
        {SIGHUP, false},
        {SIGTERM, true},
    };
    for (const auto& c : cases) {
        const std::string name = std::string(strsignal(c.signal)) + (c.attach ? ", attached" : ", launched");
        std::unique_ptr<ListeningVM> vm;
        std::unique_ptr<ChildProcess> krvdbg;
        pid_t vmPid = 0;
        if (c.attach) {
            vm = std::make_unique<ListeningVM>("Sleeper", testsClassPath(), false);
            vmPid = sleeperPid(vm->process());
            const ScriptFile script("run\nwait 60000\n");
            krvdbg = startKrvdbg({"--attach", "127.0.0.1:" + std::to_string(vm->port())}, script);
            ASSERT_NE(krvdbg->waitForLine("\"outcome\":\"running\"", 30000), "") << name << krvdbg->output();
        } else {
            const ScriptFile script("run\n");
            krvdbg = startKrvdbg({"-cp", testsClassPath(), "--java", javaPath(), "Sleeper"}, script);
            vmPid = sleeperPid(*krvdbg);
        }
        ASSERT_GT(vmPid, 0) << name << krvdbg->output();
        ASSERT_TRUE(krvdbg->signal(c.signal));
        EXPECT_EQ(krvdbg->wait(20000), 128 + c.signal) << name << krvdbg->output();
        if (c.signal != SIGKILL) {
            // Ended as quit ends it: the session's end was reported first.
            krvdbg->waitForLine("\x01 never printed", 5000);
            EXPECT_NE(krvdbg->output().find("{\"event\":\"CloseConnection\"}"), std::string::npos)
                << name << krvdbg->output();
        }
        if (c.attach)
            EXPECT_TRUE(processRunning(vmPid)) << name;
        else
            EXPECT_TRUE(waitUntilGone(vmPid)) << name << ": the VM outlived krvdbg";
    }
}

TEST(Krvdbg, CtrlCInATerminalSuspendsTheProgramInsteadOfKillingIt)
{
    ChildProcess krvdbg({kKrvdbg, "--json", "--quiet", "--java", javaPath(), "-cp", testsClassPath(), "Sleeper"}, {},
                        true);
    // Typed at the prompt, as a user types.
    ASSERT_TRUE(krvdbg.waitForText("krvdbg> ", 20000)) << krvdbg.output();
    krvdbg.send("run\r");
    const pid_t vmPid = sleeperPid(krvdbg);
    ASSERT_GT(vmPid, 0) << krvdbg.output();
    // The VM is out of the terminal's reach: a process group of its own, no
    // terminal to read from.
    EXPECT_EQ(::getpgid(vmPid), vmPid);
    char stdinTarget[256] = {};
    EXPECT_GT(::readlink(("/proc/" + std::to_string(vmPid) + "/fd/0").c_str(), stdinTarget, sizeof stdinTarget - 1), 0);
    EXPECT_STREQ(stdinTarget, "/dev/null");

    krvdbg.send("\x03");
    const std::string interrupted = krvdbg.waitForLine("\"outcome\":\"interrupted\"", 20000);
    EXPECT_NE(interrupted.find("\"state\":1"), std::string::npos) << krvdbg.output();
    EXPECT_NE(interrupted.find("\"ClassName\":\"Sleeper\""), std::string::npos) << interrupted;
    EXPECT_TRUE(processRunning(vmPid));
    // The stopped thread is the current one: where shows its stack.
    ASSERT_TRUE(krvdbg.waitForText("krvdbg> ", 20000)) << krvdbg.output();
    krvdbg.send("where\r");
    const std::string where = krvdbg.waitForLine("\"command\":\"where\"", 20000);
    EXPECT_NE(where.find("\"MethodName\":\"main\""), std::string::npos) << krvdbg.output();
    ASSERT_TRUE(krvdbg.waitForText("krvdbg> ", 20000)) << krvdbg.output();
    krvdbg.send("quit\r");
    EXPECT_EQ(krvdbg.wait(20000), 0) << krvdbg.output();
    EXPECT_TRUE(waitUntilGone(vmPid));
}

TEST(Krvdbg, AttachesToAListeningVMAndTracesThePackets)
{
    ListeningVM vm("demo.Shop", examplesClassPath());
    ASSERT_GT(vm.port(), 0);
    const int store = lineOf(kCart, "@cart-store");
    // A VM started suspended starts the program when krvdbg attaches, and
    // run waits for the first stop (wait then says it is there already).
    const std::string script =
        "stop at demo.Cart:" + std::to_string(store) + "\nrun\nwait\nprint item.name\ncont\nquit\n";
    const KrvdbgRun run = runKrvdbg({"--trace", "--attach", "127.0.0.1:" + std::to_string(vm.port())}, script);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(stoppedAt(run.command("wait"), "demo/Cart", store)) << run.output;
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
    const KrvdbgRun run =
        runKrvdbg(options, "stop at " + stopAt + "\nrun\nprint item.name\nclear " + stopAt + "\ncont\ncont\n");
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
    const KrvdbgRun run = runKrvdbg({"--quiet", "-cp", testsClassPath(), "--java", javaPath(), "Values"}, script);
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

TEST(Krvdbg, SetGivesNewValuesThatPrintShowsAndTheProgramUses)
{
    const std::string file = "tests/java/SetValues.java";
    const std::string script = "stop at SetValues:" + std::to_string(lineOf(file, "@set-stop")) +
                               "\nrun\nset i = 41\nset text = \"a #1\"   # a comment\nset g.level = 9\n"
                               "set total in SetValues = 6\nset SetValues.title = \"t\"\nset i = 2.5\nset i\n"
                               "set = 3\nprint i\ncont\n";
    const KrvdbgRun run = runKrvdbg({"--quiet", "-cp", testsClassPath(), "--java", javaPath(), "SetValues"}, script);
    ASSERT_EQ(run.status, 0) << run.output;
    const std::pair<std::string, std::string> done[] = {
        {"set i = 41", "41"},
        {"set text = \"a #1\"", "a #1"},
        {"set g.level = 9", "9"},
        {"set total in SetValues = 6", "6"},
        {"set SetValues.title = \"t\"", "t"},
    };
    for (const auto& [command, value] : done)
        EXPECT_EQ(run.command(command)["result"].value("value", ""), value) << run.command(command).dump();
    const std::pair<std::string, std::string> refused[] = {
        {"set i = 2.5", "i: an int takes a whole number"},
        {"set i", "expected set NAME"},
        {"set = 3", "expected set NAME"},
    };
    for (const auto& [command, why] : refused)
        EXPECT_NE(run.command(command).value("error", "").find(why), std::string::npos) << run.command(command).dump();
    EXPECT_EQ(run.command("print i")["result"]["value"], "41");
    const std::string console = run.console();
    for (const char* text : {"locals i=41 ", "text=a #1\r\n", "fields level=9 ", "statics total=6 title=t "})
        EXPECT_NE(console.find(text), std::string::npos) << text << " in " << console;
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

// A program suspended while it sleeps: its own frame under the native call
// is the current place (locals and print read it), where shows the native
// frame as such, and next steps out of the call to a stop that is kept.
TEST(Krvdbg, ASuspendedSleepingProgramIsReadInItsOwnFrameAndStepsOutOfTheCall)
{
    const std::string loops = "tests/java/Loops.java";
    ListeningVM vm("LoopsForever", testsClassPath(), false);
    ASSERT_GT(vm.port(), 0);
    ASSERT_NE(vm.process().waitForLine("loops forever ready", 20000), "");
    const KrvdbgRun run =
        runKrvdbg({"-cp", testsClassPath(), "--attach", "127.0.0.1:" + std::to_string(vm.port()), "LoopsForever"},
                  "run\nsuspend\nwhere\nlocals\nprint i\nnext\nwhere\nquit\n");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(run.command("suspend")["result"]["state"], 1) << run.output;
    const auto wheres = run.commands("where");
    ASSERT_EQ(wheres.size(), 2u) << run.output;
    const json frames = wheres[0]["result"]["frames"];
    ASSERT_GE(frames.size(), 2u) << run.output;
    EXPECT_EQ(frames[0]["MethodName"], "sleep");
    EXPECT_EQ(frames[0]["codeIndex"], -1);
    EXPECT_EQ(frames[1]["MethodName"], "main");
    EXPECT_EQ(run.command("locals")["result"]["MethodName"], "main") << run.output;
    EXPECT_EQ(run.command("print i")["result"]["found"], true) << run.output;
    EXPECT_TRUE(stoppedAt(run.command("next"), "LoopsForever", lineOf(loops, "for (int i = 0; ; i++)"))) << run.output;
    EXPECT_EQ(wheres[1]["result"]["frames"][0]["MethodName"], "main") << run.output;
}

} // namespace
