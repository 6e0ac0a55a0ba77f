// Class-prepare storm: a generated program (built into the build tree) that
// prepares 2000 classes of its own, with a breakpoint waiting in the last
// one. Launch to the stop, ours against JDI making the same requests, and
// against the same program run without a debugger (to the line where the
// breakpoint waits), and against the floor: a raw blocking-socket client
// that makes exactly the requests our session makes, at start and for each
// prepared class (an exception request for it, then a Resume; for the class
// of the breakpoint its methods, line tables and the breakpoint request).
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
    bench::Session session({"Storm", kLastClass});
    auto& jvm = session.jvm;
    jvm->addBreakpoint(kLastClass, line);
    for (const auto& bp : extra)
        jvm->addBreakpoint(bp.className, bp.line);
    const double t0 = bench::nowUs();
    double took = -1;
    if (session.launch(bench::stormClassPath(), "Storm") && session.waitStop(0, 60000) &&
        session.log->stops.back().line == line && session.log->stops.back().className == kLastClass)
        took = session.log->stops.back().atUs - t0;
    if (took < 0)
        std::fprintf(stderr, "no stop in %s: %s\n", kLastClass, session.dump().c_str());
    if (classes)
        *classes = static_cast<size_t>(jvm->classCount());
    size_t registered = 0;
    for (const auto& bp : jvm->breakpoints())
        registered += bp->RequestEventID > 0 ? 1 : 0;
    if (registered != extra.size() + 1) {
        std::fprintf(stderr, "%zu of %zu breakpoints registered\n", registered, extra.size() + 1);
        took = -1;
    }
    return took;
}

std::string classExcludes()
{
    std::string out;
    for (const char* pattern : {"java.*", "javax.*", "sun.*", "com.sun.*", "VBA.*", "Form"})
        out += std::string("\x06") + bench::be32(static_cast<uint32_t>(std::strlen(pattern))) + pattern;
    return out;
}

// The floor of one storm: process start to the breakpoint's event, the raw
// client sending what the session sends. Commands the session sends without
// waiting are sent here without waiting too; their replies are skipped.
double rawStorm(int line)
{
    const int port = bench::freeTcpPort();
    const double t0 = bench::nowUs();
    bench::ChildProcess vm(
        {bench::javaPath(), bench::socketAgent(port, true), "-cp", bench::stormClassPath(), "Storm"});
    bench::RawClient client;
    if (!client.connect(port))
        return -1;
    client.roundTrip(1, 7, ""); // IDSizes
    client.send(1, 1, "");      // Version
    const std::string excludes = classExcludes();
    client.send(15, 1, std::string("\x1e\x02", 2) + bench::be32(6) + excludes); // exception catch
    client.send(15, 1, std::string("\x08\x02", 2) + bench::be32(6) + excludes); // class prepare
    const std::string debugClass = "VB.Debug";
    client.send(15, 1,
                std::string("\x08\x02", 2) + bench::be32(1) + "\x05" +
                    bench::be32(static_cast<uint32_t>(debugClass.size())) + debugClass);
    client.send(1, 9, ""); // Resume
    for (;;) {
        const std::string event = client.waitEvent();
        if (event.size() < 6) {
            std::fprintf(stderr, "raw storm: no event\n");
            return -1;
        }
        const int kind = static_cast<unsigned char>(event[5]);
        if (kind == 2) // the breakpoint
            return bench::nowUs() - t0;
        if (kind != 8) // VM start: the opening Resume is on its way
            continue;
        // policy, count, kind, request id, thread, type tag, type id, signature
        size_t at = 1 + 4 + 1 + 4 + 8 + 1;
        const std::string typeID = event.substr(at, 8);
        at += 8;
        const std::string signature = bench::readJdwpString(event, at);
        const std::string name = signature.size() > 2 ? signature.substr(1, signature.size() - 2) : signature;
        if (name.find('$') == std::string::npos)
            client.send(15, 1,
                        std::string("\x04\x02", 2) + bench::be32(1) + "\x05" +
                            bench::be32(static_cast<uint32_t>(name.size())) + name);
        if (name == kLastClass) {
            // The breakpoint waiting for this class: its methods' line tables
            // in order until one has the line, then the request.
            const std::string methods = client.roundTrip(2, 5, typeID);
            std::string location;
            size_t m = 4;
            for (uint64_t k = 0, n = bench::readBe(methods, 0, 4); k < n && location.empty(); ++k) {
                const std::string methodID = methods.substr(m, 8);
                m += 8;
                bench::readJdwpString(methods, m);
                bench::readJdwpString(methods, m);
                m += 4;
                const std::string lines = client.roundTrip(6, 1, typeID + methodID);
                for (uint64_t e = 0, count = bench::readBe(lines, 16, 4); e < count; ++e)
                    if (bench::readBe(lines, 20 + e * 12 + 8, 4) == static_cast<uint64_t>(line)) {
                        location = std::string("\x01", 1) + typeID + methodID + lines.substr(20 + e * 12, 8);
                        break;
                    }
            }
            if (location.empty()) {
                std::fprintf(stderr, "raw storm: no line %d in %s\n", line, name.c_str());
                return -1;
            }
            client.roundTrip(15, 1, std::string("\x02\x02", 2) + bench::be32(1) + "\x07" + location);
        }
        client.send(1, 9, "");
    }
}

// The program alone: process start to its "storm reached" line (printed on
// the line where the breakpoint waits).
double plainStorm()
{
    const double t0 = bench::nowUs();
    bench::ChildProcess vm({bench::javaPath(), "-cp", bench::stormClassPath(), "Storm"});
    if (vm.waitForLine("storm reached", 60000).empty())
        return -1;
    return bench::nowUs() - t0;
}

int runStorm(int line)
{
    std::vector<double> ours, plain, jdi, raw;
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
        const double floor = rawStorm(line);
        if (floor < 0) {
            std::fprintf(stderr, "the raw client did not reach the breakpoint\n");
            return 1;
        }
        raw.push_back(floor);
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
    std::printf("the same against the floor: a raw blocking client making the session's requests (per prepared "
                "class: an exception request and a Resume)\n");
    bench::report("storm_vs_floor", bench::summarize(ours), bench::summarize(raw));
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
    const bench::AnchorRun jdi =
        bench::runJdi({"storm", "cp=" + bench::stormClassPath(), "main=Storm", std::string("class=") + kLastClass,
                       "line=" + std::to_string(line), "n=0", "extra=" + extraArg, "rss=1"},
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
