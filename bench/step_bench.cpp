// Step benchmark: 3000 consecutive line steps over, inside a loop, each from
// one stop to the next (ResumeVMStepByStep, then the Breakpoint event),
// against JDI making a new step request per step. Also measured against the
// same VM: a raw blocking-socket client doing the least a step needs (Set,
// Resume, the event, Clear), which shows what the VM's own stepping costs and
// what the round trips cost. The three take turns in rounds, so that a
// change in the machine's load falls on all of them alike.
//
// Then stepping into a call of library code that is no target
// (tests/java/lib/Churn, 15,000 lines), against stepping over the same line,
// in turn on one VM. The first step into meets the library and is printed
// apart; the later ones find it known already.
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BenchKit.h"

using namespace jdwpkrvdbg;

namespace {

constexpr int kRounds = 3;
constexpr int kSteps = 1000; // per round: 3000 in all
constexpr int kWarmUp = 100;
// JDI is Java code: it is given time to be compiled before it is timed.
constexpr int kJdiWarmUp = 1500;
const char* const kExcludes[] = {"java.*", "javax.*", "sun.*", "com.sun.*", "VBA.*", "Form"};

double cpuUs()
{
    rusage u{};
    ::getrusage(RUSAGE_SELF, &u);
    return (u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1e6 + u.ru_utime.tv_usec + u.ru_stime.tv_usec;
}

struct RawSamples {
    std::vector<double> total, set, resumeToEvent, clear;
};

// The floor: one thread stepped by a client with no framing layer and no
// model; suspend first, then Set / Resume / event / Clear per step.
bool rawSteps(int port, int loopLine, RawSamples& out)
{
    bench::RawClient client;
    // main is brought to the loop's line first: stepping starts there, as
    // ours and JDI's do.
    const std::string thread = client.attachAndStop(port, loopLine);
    if (thread.empty())
        return bench::fail("raw client: no stop in the loop\n");
    std::string set;
    set += '\x01'; // single step
    set += '\x02'; // suspend all
    set += bench::be32(1 + std::size(kExcludes));
    set += '\x0a';
    set += thread + bench::be32(1) + bench::be32(1); // line, over
    for (const char* pattern : kExcludes) {
        set += '\x06';
        set += bench::be32(static_cast<uint32_t>(std::strlen(pattern))) + pattern;
    }
    for (int i = 0; i < kWarmUp + kSteps; ++i) {
        const double t0 = bench::nowUs();
        uint16_t error = 0;
        const std::string reply = client.roundTrip(15, 1, set, &error);
        if (error != 0 || reply.size() < 4)
            return bench::fail("raw client: step request refused (error %u)\n", error);
        const uint32_t request = static_cast<uint32_t>(bench::readBe(reply, 0, 4));
        const double resumeAt = bench::nowUs();
        client.roundTrip(1, 9, "");
        const std::string event = client.waitEvent();
        const double eventAt = bench::nowUs();
        client.roundTrip(15, 2, std::string("\x01", 1) + bench::be32(request));
        const double t1 = bench::nowUs();
        if (event.empty())
            return bench::fail("raw client: no step event at step %d\n", i);
        if (i >= kWarmUp) {
            out.total.push_back(t1 - t0);
            out.set.push_back(resumeAt - t0);
            out.resumeToEvent.push_back(eventAt - resumeAt);
            out.clear.push_back(t1 - eventAt);
        }
    }
    client.roundTrip(1, 6, ""); // Dispose: the VM runs on, the agent listens again
    client.close();
    return true;
}

struct OurSamples {
    double cpuUs = 0;
    std::vector<double> total, call, returnToStop;
};

bool librarySteps(int port, int loopLine, OurSamples& out)
{
    bench::Session session({"BenchTarget"});
    auto& handler = session.handler;
    auto& jvm = session.jvm;
    auto& log = session.log;
    if (!session.attach(port))
        return bench::fail("could not attach: %s\n", handler->history().dump().c_str());
    bench::pumpUntil([&] { return !jvm->VMName.empty(); }, 5000);
    // The class is loaded already: it is looked up by its signature.
    jvm->addBreakpoint("LBenchTarget;", loopLine);
    if (!bench::pumpUntil([&] { return !log->stops.empty(); }, 10000)) {
        std::fprintf(stderr, "no stop at the loop: %s\n", handler->history().dump().c_str());
        return false;
    }
    // A breakpoint on a line the steps pass would add its own event to the
    // step's stop.
    jvm->removeBreakpoint("LBenchTarget;", loopLine);
    bool ok = true;
    double cpuStart = 0;
    for (int i = 0; i < kWarmUp + kSteps && ok; ++i) {
        if (i == kWarmUp)
            cpuStart = cpuUs();
        const size_t seen = log->stops.size();
        const double t0 = bench::nowUs();
        if (!jvm->ResumeVMStepByStep(false, 0, SD_OVER)) {
            std::fprintf(stderr, "step %d refused\n", i);
            ok = false;
            break;
        }
        const double returned = bench::nowUs();
        if (!bench::pumpUntil([&] { return log->stops.size() > seen; }, 5000)) {
            std::fprintf(stderr, "step %d did not stop: %s\n", i, handler->history().dump().c_str());
            ok = false;
            break;
        }
        if (i >= kWarmUp) {
            out.total.push_back(log->stops.back().atUs - t0);
            out.call.push_back(returned - t0);
            out.returnToStop.push_back(log->stops.back().atUs - returned);
        }
    }
    out.cpuUs += cpuUs() - cpuStart;
    if (std::getenv("BENCH_TRACE"))
        std::fprintf(stderr, "%s\n", handler->history().dump().c_str());
    return ok;
}

struct LibrarySamples {
    double firstInto = -1;
    std::vector<double> into, over;
};

constexpr int kLibrarySteps = 40;
constexpr int kLibraryWarmUp = 5;

bool libraryIntoVsOver(LibrarySamples& out)
{
    const std::string source = bench::testsSourceDir() + "/LibUser.java";
    const int callLine = bench::lineOf(source, "// @lu-bench");
    const int nextLine = bench::lineOf(source, "// @lu-bench-next");
    bench::Session session({"LibUser", "UserListener"});
    auto& handler = session.handler;
    auto& jvm = session.jvm;
    auto& log = session.log;
    if (!session.launchToLine(bench::testsClassPath(), "LibUser bench", "LibUser", callLine))
        return bench::fail("no stop at the library call: %s\n", handler->history().dump().c_str());
    jvm->removeBreakpoint("LibUser", callLine);
    // One step to its stop; its time in microseconds, or -1.
    const auto step = [&](JDWPStepDepth depth) {
        const size_t seen = log->stops.size();
        const double t0 = bench::nowUs();
        if (!jvm->ResumeVMStepByStep(false, 0, depth) || !session.waitStop(seen, 30000))
            return -1.0;
        return log->stops.back().atUs - t0;
    };
    // Back to the call line with steps over (the loop's jump may have a
    // line of its own).
    const auto backToCall = [&] {
        for (int i = 0; i < 3; ++i) {
            if (step(SD_OVER) < 0)
                return false;
            if (log->stops.back().line == callLine)
                return true;
        }
        return false;
    };
    bool ok = true;
    for (int i = 0; i < kLibraryWarmUp + kLibrarySteps && ok; ++i) {
        // BENCH_TRACE: the packets of the last step into, with their times.
        std::string trace;
        const double traceStart = bench::nowUs();
        if (std::getenv("BENCH_TRACE") && i + 1 == kLibraryWarmUp + kLibrarySteps)
            handler->history().setListener([&](const std::string& line) {
                trace += std::to_string(static_cast<int>(bench::nowUs() - traceStart)) + " us  " + line + "\n";
            });
        const double into = step(SD_INTO);
        handler->history().setListener(nullptr);
        // The first step meets the library; later ones know it already.
        if (i == 0)
            out.firstInto = into;
        if (!trace.empty())
            std::fprintf(stderr, "%s", trace.c_str());
        ok =
            into >= 0 && log->stops.back().line == nextLine && log->stops.back().className == "LibUser" && backToCall();
        const double over = ok ? step(SD_OVER) : -1;
        ok = ok && over >= 0 && log->stops.back().line == nextLine && backToCall();
        if (!ok)
            std::fprintf(stderr, "library step %d ended at %s:%d: %s\n", i, log->stops.back().className.c_str(),
                         log->stops.back().line, handler->history().dump().c_str());
        if (ok && i >= kLibraryWarmUp) {
            out.into.push_back(into);
            out.over.push_back(over);
        }
    }
    return ok;
}

} // namespace

int main()
{
    const int loopLine = bench::lineOf(bench::benchSourceDir() + "/BenchTarget.java", "// @loop-a");
    RawSamples raw;
    OurSamples ours;
    std::vector<double> jdi;
    for (int round = 0; round < kRounds; ++round) {
        {
            // A fixed port: the agent listens on it again after each detach.
            const int port = bench::freeTcpPort();
            bench::ChildProcess vm(
                {bench::javaPath(), bench::socketAgent(port, false), "-cp", bench::benchClassPath(), "BenchTarget"});
            // The class must be loaded for the raw client to find it.
            if (vm.waitForLine("Listening for transport", 20000).empty() ||
                vm.waitForLine("bench target ready", 20000).empty()) {
                std::fprintf(stderr, "the VM did not listen\n");
                return 1;
            }
            if (!rawSteps(port, loopLine, raw) || !librarySteps(port, loopLine, ours))
                return 1;
        }
        const bench::AnchorRun anchor = bench::runJdiAtLine("step", loopLine, kSteps, kJdiWarmUp);
        if (!bench::anchorOk(anchor, "step"))
            return 1;
        const auto& samples = anchor.samples.at("step_over");
        jdi.insert(jdi.end(), samples.begin(), samples.end());
    }
    const size_t n = ours.total.size();
    std::printf("line step over inside a loop, %zu steps in %d rounds (raw client, ours, JDI in turn), from the "
                "call to the reported stop\n",
                n, kRounds);
    std::printf("  ours: in ResumeVMStepByStep (Set round trip, after the previous step's Clear; Resume sent) "
                "median %.1f us; return to stop %.1f us; host CPU per step %.1f us\n",
                bench::summarize(ours.call).median, bench::summarize(ours.returnToStop).median,
                n ? ours.cpuUs / static_cast<double>(n) : 0.0);
    std::printf("  raw client floor (Set, Resume, event, Clear, each blocking): median %.1f us; Set %.1f us, "
                "Resume sent to event read %.1f us (the VM's own stepping), Clear %.1f us\n",
                bench::summarize(raw.total).median, bench::summarize(raw.set).median,
                bench::summarize(raw.resumeToEvent).median, bench::summarize(raw.clear).median);
    bench::report("step_over", bench::summarize(ours.total), bench::summarize(jdi));
    LibrarySamples library;
    const bool libraryOk = libraryIntoVsOver(library);
    std::printf("step into a call of library code that is no target (15,000 lines, tests/java/lib/Churn), against "
                "step over the same line; %zu of each in turn on one VM\n",
                library.into.size());
    std::printf("  the first step into, before the library is known: %.1f us\n", library.firstInto);
    bench::report("step_into_library", bench::summarize(library.into), bench::summarize(library.over));
    return libraryOk && n == static_cast<size_t>(kRounds * kSteps) && jdi.size() == n ? 0 : 1;
}
