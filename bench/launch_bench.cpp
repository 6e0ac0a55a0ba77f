// Launch benchmark: from the start of the process to the Breakpoint event on
// the first line of main, the breakpoint set before the class loads; ours
// (startVM, the VM listening, the library connecting) against JDI's
// launching connector (the debugger listening, the VM connecting).
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <cstdio>
#include <cstdlib>

#include "BenchKit.h"

using namespace jdwpkrvdbg;

namespace {

constexpr int kRounds = 3;
constexpr int kRuns = 5; // per round
std::vector<double> connectedAt;

// One launch to the stop; the time in microseconds, or -1.
double launchOnce(int line)
{
    bench::Session session({"BenchHello"});
    session.jvm->addBreakpoint("BenchHello", line);
    const double t0 = bench::nowUs();
    double took = -1;
    if (session.launch(bench::benchClassPath(), "BenchHello") && (connectedAt.push_back(bench::nowUs() - t0), true) &&
        session.waitStop(0, 20000) && session.log->stops.back().line == line)
        took = session.log->stops.back().atUs - t0;
    if (std::getenv("BENCH_TRACE"))
        std::fprintf(stderr, "%s\n", session.dump().c_str());
    if (took < 0)
        std::fprintf(stderr, "no stop at line %d: %s\n", line, session.dump().c_str());
    return took;
}

} // namespace

int main()
{
    const int line = bench::lineOf(bench::benchSourceDir() + "/BenchHello.java", "// @hello-first");
    std::vector<double> samples, jdi;
    // Ours and JDI take turns in rounds. The first launch warms the file
    // cache and is not counted (nor is each JDI process's first, which loads
    // and compiles JDI itself).
    if (launchOnce(line) < 0)
        return 1;
    for (int round = 0; round < kRounds; ++round) {
        for (int i = 0; i < kRuns; ++i) {
            const double took = launchOnce(line);
            if (took < 0)
                return 1;
            samples.push_back(took);
        }
        const bench::AnchorRun anchor = bench::runJdi(
            {"launch", "cp=" + bench::benchClassPath(), "line=" + std::to_string(line), "n=" + std::to_string(kRuns)},
            120000);
        if (!bench::anchorOk(anchor, "launch"))
            return 1;
        const auto& list = anchor.samples.at("launch_to_bp");
        jdi.insert(jdi.end(), list.begin(), list.end());
    }
    std::printf("process start to the Breakpoint event on main's first line, %d launches in %d rounds\n",
                kRounds * kRuns, kRounds);
    std::printf("  ours: startVM returned (connected) after a median %.1f us\n", bench::summarize(connectedAt).median);
    bench::report("launch_to_bp", bench::summarize(samples), bench::summarize(jdi));
    return 0;
}
