// Class-prepare storm: a generated program (built into the build tree) that
// prepares 2000 classes of its own, with a breakpoint waiting in the last
// one. Launch to the stop, ours against JDI making the same requests, and
// against the same program run without a debugger (to the line where the
// breakpoint waits).
//
// With --rss: one storm with 100 more breakpoints set (in a method of
// S1000..S1099 that never runs), then the peak resident memory of this
// process, against the JDI process doing the same.
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BenchKit.h"

using namespace jdwpkrvdbg;

namespace {

constexpr int kRuns = 5;
constexpr int kExtraBreakpoints = 100;
const char* const kLastClass = "S1999";

double cpuUs()
{
    rusage u{};
    ::getrusage(RUSAGE_SELF, &u);
    return (u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1e6 + u.ru_utime.tv_usec + u.ru_stime.tv_usec;
}

// Host CPU (user and system) of the counted storms.
std::vector<double> stormCpu;

struct Breakpoint {
    std::string className;
    int line;
};

std::vector<Breakpoint> extraBreakpoints()
{
    std::vector<Breakpoint> list;
    for (int i = 0; i < kExtraBreakpoints; ++i) {
        const std::string name = "S" + std::to_string(1000 + i);
        list.push_back({name, bench::lineOf(bench::stormSource(), "// @g:" + name + ";")});
    }
    return list;
}

// One storm to the stop; the time in microseconds, or -1.
double ourStorm(int line, const std::vector<Breakpoint>& extra, size_t* classes = nullptr)
{
    auto handler = JDWPHandler::create();
    handler->bRemoteConnection = true;
    auto log = std::make_shared<bench::StopLog>();
    auto jvm = handler->myJVM();
    jvm->setEvents(log);
    jvm->setTargetClassName({"Storm", kLastClass});
    jvm->addBreakpoint(kLastClass, line);
    for (const auto& bp : extra)
        jvm->addBreakpoint(bp.className, bp.line);
    const int port = bench::freePort();
    const double t0 = bench::nowUs();
    double took = -1;
    if (handler->startVM(bench::javaPath(),
                         bench::socketAgent(port, true) + " -cp " + bench::stormClassPath() + " Storm", "", false,
                         true, 0, "127.0.0.1", std::to_string(port), true) &&
        bench::pumpUntil([&] { return log->stops > 0 || log->dead; }, 60000) && log->stops > 0 &&
        log->line == line && log->className == kLastClass)
        took = log->stopUs - t0;
    if (took < 0)
        std::fprintf(stderr, "no stop in %s: %s\n", kLastClass, handler->history().dump().c_str());
    if (classes)
        *classes = static_cast<size_t>(jvm->classCount());
    size_t registered = 0;
    for (const auto& bp : jvm->breakpoints())
        registered += bp->RequestEventID > 0 ? 1 : 0;
    if (registered != extra.size() + 1) {
        std::fprintf(stderr, "%zu of %zu breakpoints registered\n", registered, extra.size() + 1);
        took = -1;
    }
    handler->Disconnect();
    if (auto transport = handler->transport())
        bench::pumpUntil([&] { return !transport->ProcessRunning(); }, 5000);
    setCurrentHandler(nullptr);
    return took;
}

// The program alone: process start to its "storm reached" line (printed on
// the line where the breakpoint waits).
double plainStorm()
{
    const double t0 = bench::nowUs();
    bench::Java vm({"-cp", bench::stormClassPath(), "Storm"});
    if (vm.waitForLine("storm reached", 60000).empty())
        return -1;
    return bench::nowUs() - t0;
}

int runStorm(int line)
{
    std::vector<double> ours, plain, jdi;
    size_t classes = 0;
    double prepared = 0;
    // A first run of ours warms the file cache and is not counted.
    if (ourStorm(line, {}) < 0)
        return 1;
    // Ours, the plain program and JDI take turns in rounds, so that a change
    // in the machine's load falls on all of them alike. Each JDI process
    // makes one storm first that is not counted (it loads and compiles JDI).
    for (int round = 0; round < kRuns; ++round) {
        const double cpu0 = cpuUs();
        const double took = ourStorm(line, {}, &classes);
        if (took < 0)
            return 1;
        stormCpu.push_back(cpuUs() - cpu0);
        ours.push_back(took);
        const double alone = plainStorm();
        if (alone < 0) {
            std::fprintf(stderr, "the storm program did not reach its last class\n");
            return 1;
        }
        plain.push_back(alone);
        const bench::AnchorRun anchor =
            bench::runJdi({"storm", "cp=" + bench::stormClassPath(), "main=Storm", std::string("class=") + kLastClass,
                           "line=" + std::to_string(line), "n=1"},
                          120000);
        if (!bench::anchorOk(anchor, "storm"))
            return 1;
        const auto& list = anchor.samples.at("storm");
        jdi.insert(jdi.end(), list.begin(), list.end());
        prepared = anchor.values.count("prepared") ? anchor.values.at("prepared") : 0.0;
    }
    std::printf("class-prepare storm: launch to the breakpoint in the last of 2000 classes, %d runs in turn "
                "(classes known to the session: %zu; class-prepare events JDI saw: %.0f)\n",
                kRuns, classes, prepared);
    std::printf("  ours: host CPU per storm (user + system, launch to stop and shutdown) median %.0f us\n",
                bench::summarize(stormCpu).median);
    bench::report("storm_vs_jdi", bench::summarize(ours), bench::summarize(jdi));
    std::printf("the same against the program without a debugger (process start to the breakpoint's line)\n");
    bench::report("storm_vs_nodebug", bench::summarize(ours), bench::summarize(plain));
    return 0;
}

int runRss(int line)
{
    const auto extra = extraBreakpoints();
    std::string extraArg;
    for (const auto& bp : extra) {
        if (bp.line <= 0) {
            std::fprintf(stderr, "no line for %s\n", bp.className.c_str());
            return 1;
        }
        extraArg += (extraArg.empty() ? "" : ",") + bp.className + ":" + std::to_string(bp.line);
    }
    if (ourStorm(line, extra) < 0)
        return 1;
    const long ours = bench::peakRssKb();
    const bench::AnchorRun jdi = bench::runJdi({"storm", "cp=" + bench::stormClassPath(), "main=Storm",
                                                std::string("class=") + kLastClass, "line=" + std::to_string(line),
                                                "n=0", "extra=" + extraArg, "rss=1"},
                                               120000);
    if (!bench::anchorOk(jdi, "rss") || !jdi.values.count("rss_kb"))
        return 1;
    const double anchor = jdi.values.at("rss_kb");
    const double ratio = anchor > 0 ? ours / anchor : 0;
    std::printf("peak resident memory of the debugger process after the storm with %d more breakpoints set: "
                "ours %ld KiB (this host process), JDI %.0f KiB (its Java process)\n",
                kExtraBreakpoints, ours, anchor);
    std::printf("BENCH rss_storm ours_kb=%ld anchor_kb=%.0f ratio=%.3f\n", ours, anchor, ratio);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const int line = bench::lineOf(bench::stormSource(), "// @storm-bp");
    if (line <= 0) {
        std::fprintf(stderr, "no storm program at %s\n", bench::stormSource().c_str());
        return 1;
    }
    if (argc > 1 && std::strcmp(argv[1], "--rss") == 0)
        return runRss(line);
    return runStorm(line);
}
