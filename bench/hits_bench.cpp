// Breakpoint hits that the host never sees, per hit, against JDI doing the
// same by hand (bench/java/JdiBench.java: the event, frame(0), the local's
// value, the compare or the printed text, the resume):
//   conditional_false_hit  a breakpoint in BenchTarget's endless loop whose
//                          condition over the local int is false. A batch
//                          ends at the one hit where it is true: the
//                          condition is "i == K" with K the batch's end, which
//                          costs what "i == -1" costs at every other hit.
//   logpoint_hit           a logpoint printing {i} on the same line; a batch
//                          is a number of messages received.
// Ours and JDI take turns in rounds, so that a change in the machine's load
// falls on both alike.
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BenchKit.h"

using namespace jdwpkrvdbg;

namespace {

constexpr int kRounds = 3;
constexpr int kBatch = 100;
constexpr int kBatches = 10; // per round: 1,000 hits
constexpr int kWarmUpBatches = 3;
// JDI is Java code: it is given time to be compiled before it is timed.
constexpr int kJdiWarmUp = 1500;

struct OurSamples {
    std::vector<double> conditional, logpoint;
};

bool ourHits(int loopLine, OurSamples& out)
{
    bench::Session session({"BenchTarget"});
    auto& handler = session.handler;
    auto& jvm = session.jvm;
    auto& log = session.log;
    if (!session.launchToLine(bench::benchClassPath(), "BenchTarget", "BenchTarget", loopLine))
        return bench::fail("no stop in the loop: %s\n", handler->history().dump().c_str());
    const std::string start = jvm->getValue("i");
    const char* digits = std::strchr(start.c_str(), '#');
    if (!digits)
        return bench::fail("no value of i: %s\n", start.c_str());
    long long i = std::atoll(digits + 1);

    // Each batch: kBatch - 1 false hits and the true one that ends it.
    for (int batch = 0; batch < kWarmUpBatches + kBatches; ++batch) {
        i += kBatch;
        JXBreakpointOptions options;
        options.Condition = "i == " + std::to_string(i);
        if (!jvm->addBreakpoint("BenchTarget", loopLine, options))
            return bench::fail("condition refused\n");
        const size_t seen = log->stops.size();
        const double t0 = bench::nowUs();
        jvm->ResumeVM(true);
        if (!session.waitStop(seen, 30000))
            return bench::fail("no stop at i == %lld: %s\n", i, handler->history().dump().c_str());
        if (batch >= kWarmUpBatches)
            out.conditional.push_back((log->stops.back().atUs - t0) / kBatch);
    }
    if (!jvm->removeBreakpoint("BenchTarget", loopLine))
        return bench::fail("the breakpoint was not removed\n");

    JXBreakpointOptions logOptions;
    logOptions.LogMessage = "{i}";
    jvm->addBreakpoint("BenchTarget", loopLine, logOptions);
    jvm->ResumeVM(true);
    size_t target = log->logpoints.size();
    double t0 = 0;
    for (int batch = 0; batch <= kWarmUpBatches + kBatches; ++batch) {
        target += kBatch;
        if (!bench::pumpUntil([&] { return log->logpoints.size() >= target; }, 30000))
            return bench::fail("logpoint messages stopped at %zu\n", log->logpoints.size());
        const double t1 = bench::nowUs();
        if (batch > kWarmUpBatches)
            out.logpoint.push_back((t1 - t0) / kBatch);
        t0 = t1;
    }
    if (log->stops.size() != static_cast<size_t>(1 + kWarmUpBatches + kBatches))
        return bench::fail("a logpoint stopped the program\n");
    if (std::getenv("BENCH_TRACE"))
        std::fprintf(stderr, "%s\n", handler->history().dump().c_str());
    return true;
}

} // namespace

int main()
{
    const int loopLine = bench::lineOf(bench::benchSourceDir() + "/BenchTarget.java", "// @loop-b");
    OurSamples ours;
    std::vector<double> jdiConditional, jdiLogpoint;
    for (int round = 0; round < kRounds; ++round) {
        if (!ourHits(loopLine, ours))
            return 1;
        for (const char* row : {"conditional", "logpoint"}) {
            const bench::AnchorRun anchor = bench::runJdiAtLine(row, loopLine, kBatch * kBatches, kJdiWarmUp);
            if (!bench::anchorOk(anchor, row))
                return 1;
            const auto& samples =
                anchor.samples.at(std::string(row) == "conditional" ? "conditional_false_hit" : "logpoint_hit");
            auto& into = std::string(row) == "conditional" ? jdiConditional : jdiLogpoint;
            into.insert(into.end(), samples.begin(), samples.end());
        }
    }
    std::printf("a breakpoint whose condition over a local int is false, per hit, in batches of %d hits, %d rounds "
                "(ours, JDI in turn); JDI: event, frame(0), getValue, compare, resume\n",
                kBatch, kRounds);
    bench::report("conditional_false_hit", bench::summarize(ours.conditional), bench::summarize(jdiConditional));
    std::printf("a logpoint printing {i}, per hit, in batches of %d messages; JDI: event, frame(0), getValue, the "
                "value's text, resume\n",
                kBatch);
    bench::report("logpoint_hit", bench::summarize(ours.logpoint), bench::summarize(jdiLogpoint));
    return 0;
}
