// krvdbg end to end: the program is run as a child with --json and a script,
// against the demo program of examples/demo, and the JSON lines it writes
// are checked: stops, values, steps, the stack, console text, the exception
// stop and the end (over shared memory); values set at a stop; malformed commands that must not
// end the session; the failures that end it with a non-zero status; which
// classes a step enters (and the packet trace); attaching to a program that
// runs; and what signals
// to krvdbg do to the VM (Ctrl-C in a real pseudo-terminal).
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

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

    // The lines with `key` (of that `value` unless it is empty), in order:
    // the outcomes of the commands, the events of a name.
    std::vector<json> select(const char* key, const std::string& value) const
    {
        std::vector<json> out;
        for (const auto& j : lines)
            if (j.contains(key) && (value.empty() || j[key] == value))
                out.push_back(j);
        return out;
    }
    std::vector<json> commands(const std::string& command = "") const { return select("command", command); }
    std::vector<json> events(const std::string& name) const { return select("event", name); }
    json command(const std::string& command) const
    {
        const auto all = commands(command);
        return all.empty() ? json() : all.front();
    }
    // Where each outcome of `command` stopped ("Class:line"), or how it
    // ended otherwise ("ended", "running"...).
    std::vector<std::string> stops(const std::string& command) const
    {
        std::vector<std::string> out;
        for (const json& c : commands(command)) {
            const json& r = c["result"];
            const std::string outcome = r.is_object() ? r.value("outcome", "?") : "?";
            out.push_back(outcome != "stopped" ? outcome : at(r.value("ClassName", ""), r.value("LineNr", -1)));
        }
        return out;
    }
    // The value printed by the k-th `command`.
    std::string value(const std::string& command, size_t k = 0) const
    {
        const auto all = commands(command);
        return k < all.size() ? all[k]["result"].value("value", "?") : "(none)";
    }
    // The frames of the k-th where, "Class.method:line" each, apart by spaces.
    std::string stack(size_t k = 0) const
    {
        std::string out;
        const auto all = commands("where");
        for (const json& f : k < all.size() ? all[k]["result"]["frames"] : json::array())
            out += (out.empty() ? "" : " ") + f.value("ClassName", "") + "." + f.value("MethodName", "") + ":" +
                   std::to_string(f.value("LineNr", -1));
        return out;
    }
    static std::string at(const std::string& cls, int line) { return cls + ":" + std::to_string(line); }
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
    run.output = child->readAll(5000); // up to the end of the pipe
    std::istringstream lines(run.output);
    for (std::string line; std::getline(lines, line);) {
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

const auto at = KrvdbgRun::at;
using Stops = std::vector<std::string>;

// Over shared memory (the other sessions here use a socket).
TEST(Krvdbg, TheDemoSessionRefusesMalformedCommandsStopsStepsShowsValuesAndRunsToTheEnd)
{
    const int store = lineOf(kCart, "@cart-store");
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
    auto options = demoOptions();
    options.insert(options.begin(), "--shmem");
    KrvdbgRun run = runKrvdbg(options, script);
    ASSERT_EQ(run.status, 0) << run.output;
    auto commands = run.commands();
    ASSERT_GT(commands.size(), bad.size()) << run.output;
    for (size_t i = 0; i < bad.size(); ++i) {
        EXPECT_EQ(commands[i]["command"], bad[i].first);
        EXPECT_NE(commands[i].value("error", "").find(bad[i].second), std::string::npos) << commands[i].dump();
    }
    run.lines.erase(run.lines.begin(), std::find(run.lines.begin(), run.lines.end(), commands[bad.size()]));
    for (const auto& c : run.commands())
        EXPECT_EQ(c.contains("error"), c == run.commands("run").back()) << c.dump();
    EXPECT_NE(run.commands("run").back().value("error", "").find("already running"), std::string::npos);

    // The breakpoint was set before the class was loaded and hit later.
    EXPECT_EQ(run.command(stopAt)["result"]["registered"], false);
    EXPECT_EQ(run.stops("run").front(), at("demo/Cart", store)) << run.output;
    const auto stops = run.events("Breakpoint");
    ASSERT_GE(stops.size(), 5u) << run.output;
    EXPECT_EQ(stops[0]["Offset"], 0);
    EXPECT_GT(stops[0]["threadID"].get<double>(), 0);

    EXPECT_EQ(run.stack(), "demo/Cart.add:" + std::to_string(store) +
                               " demo/Shop.fill:" + std::to_string(lineOf(kShop, "@shop-add")) +
                               " demo/Shop.main:" + std::to_string(lineOf(kShop, "@main-fill")));
    EXPECT_EQ(run.command("where")["result"]["frames"][0]["MethodSignature"], "(Ldemo/Item;)V");
    std::map<std::string, std::string> locals;
    const json localsOutcome = run.command("locals");
    for (const auto& l : localsOutcome["result"]["locals"])
        locals[l["name"]] = l["value"].is_string() ? l["value"].get<std::string>() : "";
    ASSERT_EQ(locals.size(), 2u) << run.command("locals").dump();
    EXPECT_NE(locals["item"].find("demo/Item"), std::string::npos) << locals["item"];
    EXPECT_NE(locals["this"].find("demo/Cart"), std::string::npos) << locals["this"];

    const json name = run.command("print item.name")["result"];
    EXPECT_EQ(std::tuple(name["found"], name["value"], name["steps"].size()), std::tuple(true, "apple", 1u));
    EXPECT_EQ(name["steps"][0]["path"], "item");
    const json missing = run.command("print item.nosuchfield")["result"];
    EXPECT_EQ(std::tuple(missing["found"], missing["missing"]), std::tuple(false, "item.nosuchfield"));

    // Two steps over lines, then the field that the first one changed; the
    // stop point with its code offset and a dotted path through a field;
    // the cart throws, the shop catches: an exception stop in the cart; the
    // end.
    EXPECT_EQ(run.stops("next"), (Stops{at("demo/Cart", store + 1), at("demo/Cart", store + 2)}));
    EXPECT_EQ(run.value("print this.count"), "1");
    EXPECT_EQ(run.stops("cont"), (Stops{at("demo/Shop", lineOf(kShop, "@shop-added")),
                                        at("demo/Cart", lineOf(kCart, "@cart-throw")), "ended"}));
    const auto conts = run.commands("cont");
    EXPECT_EQ(conts[0]["result"]["Offset"], 32);
    EXPECT_EQ(run.value("print cart.total"), "120");
    EXPECT_NE(conts[1]["result"].value("exception", "").find("CartFullException"), std::string::npos);
    const auto exceptions = run.events("Exception");
    ASSERT_EQ(exceptions.size(), 1u);
    EXPECT_EQ(exceptions[0]["s"], "demo/CartFullException\r\ndemo.CartFullException: the cart holds only 3 items");
    EXPECT_EQ(run.value("print item.name", 1), "dates");

    // The whole console output, the VM dead.
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
    Stops shown;
    for (const json& b : list)
        for (const char* key : {"Condition", "HitCondition", "LogMessage", "Signature"})
            if (!b.value(key, "").empty())
                shown.push_back(key + ("=" + b.value(key, "")));
    std::sort(shown.begin(), shown.end());
    EXPECT_EQ(shown, (Stops{"Condition=i == 7", "Condition=nosuch > 1", "HitCondition=% 5", "LogMessage=n is {n}",
                            "Signature=(java.lang.String)"}))
        << list.dump();
    EXPECT_EQ(run.commands("stop").back()["result"].size(), 4u) << "cleared: " << run.output;

    // Every 5th pass over the sum, i == 7 once, the failed condition, the
    // one overload; the logpoint never stops.
    EXPECT_EQ(run.stops("run"), Stops{at("Loops$Counter", sum)}) << run.output;
    EXPECT_EQ(run.stops("cont"), (Stops{at("Loops", add), at("Loops$Counter", sum), at("Loops", addText),
                                        at("Loops$Counter", textEntry), "ended"}))
        << run.output;
    // The fields of a nested class's object by their names alone: count,
    // label.
    EXPECT_EQ(Stops({run.value("print n"), run.value("print count"), run.value("print label"), run.value("print i"),
                     run.value("print n", 1), run.value("print text")}),
              (Stops{"4", "5", "counter", "7", "9", "done"}))
        << run.output;

    Stops logged, expected;
    for (const auto& e : run.events("LogpointMessage"))
        logged.push_back(at(e.value("ClassName", ""), e.value("LineNr", 0)) + " " + e.value("text", ""));
    for (int n = 0; n < 12; ++n)
        expected.push_back(at("Loops$Counter", addInt) + " n is " + std::to_string(n));
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

// At a stop before the call of Cart.add (in the demo's folder, or in a jar
// as a library unless a target pattern names it): the threads, a step into
// the call or over it, the stack, a popped frame, a step out.
TEST(Krvdbg, StepEntersTheClassesInTheClassPathsFoldersAndThoseThatTargetPatternsName)
{
    const std::string jar = buildDir() + "/krvdbg-test-demo.jar";
    const std::string jarTool = javaPath().substr(0, javaPath().rfind('/') + 1) + "jar";
    ASSERT_EQ(ChildProcess({jarTool, "cf", jar, "-C", examplesClassPath(), "demo"}).wait(60000), 0);
    const int addCall = lineOf(kShop, "@shop-add"), inAdd = lineOf(kCart, "@cart-throw") - 1;
    const std::string fillAndMain =
        "demo/Shop.fill:" + std::to_string(addCall) + " demo/Shop.main:" + std::to_string(lineOf(kShop, "@main-fill"));
    const std::string script = "stop at demo.Shop:" + std::to_string(addCall) +
                               "\nrun\nwait\nthreads\nstep\nwhere\npop\nwhere\nstep up\nquit\n";
    const struct {
        const char* name;
        std::string classPath; // empty: attach
        std::vector<std::string> targets;
        bool entersCart;
    } cases[] = {
        // No breakpoint and no --target names demo.Cart.
        {"a class in a folder", examplesClassPath(), {}, true},
        {"a class in a jar", jar, {}, false},
        {"a jar's classes named by a pattern", jar, {"--target", "demo.*"}, true},
        {"a class named by a suffix pattern", jar, {"--target", "*.Cart"}, true},
        // Traced. A VM started suspended starts the program when krvdbg
        // attaches, and run waits for the first stop.
        {"attached, a pattern", "", {"--trace", "--target", "demo.*"}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<ListeningVM> vm;
        std::vector<std::string> options = c.targets;
        if (c.classPath.empty()) {
            vm = std::make_unique<ListeningVM>("demo.Shop", examplesClassPath());
            options.insert(options.end(), {"--attach", "127.0.0.1:" + std::to_string(vm->port())});
        } else {
            options.insert(options.end(), {"--quiet", "-cp", c.classPath, "--java", javaPath(), "demo.Shop"});
        }
        const KrvdbgRun run = runKrvdbg(options, script);
        EXPECT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(run.stops("wait"), Stops{at("demo/Shop", addCall)}) << run.output;
        const auto traced = [&](const char* way, const char* text) {
            return std::any_of(run.lines.begin(), run.lines.end(), [&](const json& j) {
                const std::string t = j.value("trace", "");
                return t.rfind(way, 0) == 0 && t.find(text) != std::string::npos;
            });
        };
        EXPECT_EQ(traced("->", " 1/7 ") && traced("<-", "reply err=0"), c.classPath.empty()) << run.output;
        bool mainSuspended = false;
        const json threads = run.command("threads");
        for (const auto& t : threads["result"]["threads"])
            if (t["ThreadName"] == "main")
                mainSuspended = t["ThreadSuspended"].get<bool>();
        EXPECT_TRUE(mainSuspended) << threads.dump();
        if (!c.entersCart) {
            EXPECT_EQ(run.command("step")["result"].value("ClassName", ""), "demo/Shop") << run.output;
            continue;
        }
        EXPECT_EQ(run.stops("step"), Stops{at("demo/Cart", inAdd)}) << run.output;
        EXPECT_EQ(run.stack(0), "demo/Cart.add:" + std::to_string(inAdd) + " " + fillAndMain);
        const json popped = run.command("pop");
        EXPECT_FALSE(popped.contains("error")) << popped.dump();
        EXPECT_EQ(popped["result"]["MethodName"], "fill");
        EXPECT_EQ(popped["result"]["LineNr"], addCall);
        EXPECT_EQ(run.stack(1), fillAndMain);
        // Out of fill (run again from the call after the pop): back in main.
        EXPECT_EQ(run.command("step up")["result"]["ClassName"], "demo/Shop") << run.output;
        EXPECT_EQ(run.command("quit")["result"], "quit");
    }
    std::remove(jar.c_str());
}

TEST(Krvdbg, RunReturnsAfterAttachingToARunningProgramAndItsBreakpointsAreSet)
{
    // The breakpoint is set before the attach, in a class loaded long before.
    const std::string loop = std::to_string(lineOf("tests/java/Sleeper.java", "@sleeper-loop"));
    const std::string addInt = std::to_string(lineOf("tests/java/Loops.java", "@counter-add-int"));
    const struct {
        const char* program;
        const char* ready;
        std::string breakpoint;
        std::string top; // the frame of the stop
    } cases[] = {
        {"Sleeper", "sleeper ready", "stop at Sleeper:" + loop, "Sleeper.main:" + loop},
        {"LoopsForever", "loops forever ready", "stop in Loops$Counter.add(int) if n >= 3",
         "Loops$Counter.add:" + addInt},
    };
    for (const auto& c : cases) {
        ListeningVM vm(c.program, testsClassPath(), false);
        ASSERT_GT(vm.port(), 0);
        ASSERT_NE(vm.process().waitForLine(c.ready, 20000), "");
        const std::string script = c.breakpoint + "\nrun\nwait 30000\nwhere\nquit\n";
        const KrvdbgRun run = runKrvdbg({"--attach", "127.0.0.1:" + std::to_string(vm.port())}, script);
        ASSERT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(run.command("run")["result"]["outcome"], "running") << run.output;
        const std::string stop = c.top.substr(0, c.top.find('.')) + c.top.substr(c.top.find(':'));
        EXPECT_EQ(run.stops("wait 30000"), Stops{stop}) << run.output;
        EXPECT_EQ(run.stack().substr(0, run.stack().find(' ')), c.top) << run.output;
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
        SCOPED_TRACE(std::string(strsignal(c.signal)) + (c.attach ? ", attached" : ", launched"));
        std::unique_ptr<ListeningVM> vm;
        std::unique_ptr<ChildProcess> krvdbg;
        pid_t vmPid = 0;
        if (c.attach) {
            vm = std::make_unique<ListeningVM>("Sleeper", testsClassPath(), false);
            vmPid = sleeperPid(vm->process());
            const ScriptFile script("run\nwait 60000\n");
            krvdbg = startKrvdbg({"--attach", "127.0.0.1:" + std::to_string(vm->port())}, script);
            ASSERT_NE(krvdbg->waitForLine("\"outcome\":\"running\"", 30000), "") << krvdbg->output();
        } else {
            const ScriptFile script("run\n");
            krvdbg = startKrvdbg({"-cp", testsClassPath(), "--java", javaPath(), "Sleeper"}, script);
            vmPid = sleeperPid(*krvdbg);
        }
        ASSERT_GT(vmPid, 0) << krvdbg->output();
        ASSERT_TRUE(krvdbg->signal(c.signal));
        EXPECT_EQ(krvdbg->wait(20000), 128 + c.signal) << krvdbg->output();
        if (c.signal != SIGKILL) {
            // Ended as quit ends it: the session's end was reported first.
            EXPECT_NE(krvdbg->readAll(5000).find("{\"event\":\"CloseConnection\"}"), std::string::npos)
                << krvdbg->output();
        }
        if (c.attach)
            EXPECT_TRUE(processRunning(vmPid));
        else
            EXPECT_TRUE(waitUntilGone(vmPid)) << "the VM outlived krvdbg";
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
    EXPECT_EQ(run.stack(1), "Spinner.toString:" + std::to_string(lineOf(values, "@spin")) +
                                " Values.main:" + std::to_string(lineOf(values, "@values-stop")));
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
        EXPECT_EQ(run.value(command), value) << run.command(command).dump();
    const std::pair<std::string, std::string> refused[] = {
        {"set i = 2.5", "i: an int takes a whole number"},
        {"set i", "expected set NAME"},
        {"set = 3", "expected set NAME"},
    };
    for (const auto& [command, why] : refused)
        EXPECT_NE(run.command(command).value("error", "").find(why), std::string::npos) << run.command(command).dump();
    EXPECT_EQ(run.value("print i"), "41");
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
    EXPECT_EQ(std::tuple(boxes[0]["Title"], boxes[0]["Buttons"]), std::tuple("Korvane Debugger", 16));
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
    const int sleep = lineOf(loops, "Thread.sleep(10)"), loop = lineOf(loops, "for (int i = 0; ; i++)");
    const json frames = run.commands("where")[0]["result"]["frames"];
    ASSERT_EQ(frames.size(), 2u) << run.output;
    EXPECT_EQ(frames[0]["MethodName"], "sleep");
    EXPECT_EQ(frames[0]["codeIndex"], -1) << "a native frame";
    EXPECT_EQ(frames[1]["LineNr"], sleep);
    EXPECT_EQ(run.command("locals")["result"]["MethodName"], "main") << run.output;
    EXPECT_EQ(run.command("print i")["result"]["found"], true) << run.output;
    EXPECT_EQ(run.stops("next"), std::vector<std::string>{KrvdbgRun::at("LoopsForever", loop)}) << run.output;
    EXPECT_EQ(run.stack(1), "LoopsForever.main:" + std::to_string(loop)) << run.output;
}

} // namespace
