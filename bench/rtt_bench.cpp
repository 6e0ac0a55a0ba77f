// Round-trip benchmark: the median sendSync of ThreadReference Name against
// a real VM, and the median of a raw blocking-socket client doing the same
// request against the same VM in the same run (the floor); then the same
// sendSync over the shared-memory transport, against our socket figure.
// The three take turns in rounds, so that a change in the machine's load
// falls on all of them alike.
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <cstdio>
#include <cstdlib>

#include <sys/resource.h>
#include <unistd.h>

#include "BenchKit.h"

using namespace jdwpkrvdbg;

namespace {

constexpr int kRounds = 5;
constexpr int kCalls = 1000; // per round: 5000 in all
constexpr int kWarmUp = 200;

double cpuUs()
{
    rusage u{};
    ::getrusage(RUSAGE_SELF, &u);
    return (u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1e6 + u.ru_utime.tv_usec + u.ru_stime.tv_usec;
}
double rawCpu = 0, socketCpu = 0;

int listeningPort(bench::ChildProcess& vm)
{
    const std::string line = vm.waitForLine("Listening for transport dt_socket at address:", 20000);
    const size_t colon = line.rfind(':');
    return colon == std::string::npos ? 0 : std::atoi(line.c_str() + colon + 1);
}

bool rawClient(int port, std::vector<double>& samples, bool withPoll = false)
{
    bench::RawClient client;
    if (!client.connect(port))
        return false;
    client.setWaitWithPoll(withPoll);
    client.roundTrip(1, 7, "");
    const std::string threads = client.roundTrip(1, 4, "");
    const std::string payload = threads.substr(4, 8);
    for (int i = 0; i < kWarmUp; ++i)
        client.roundTrip(11, 1, payload);
    const double cpu0 = cpuUs();
    for (int i = 0; i < kCalls; ++i) {
        if (i == kCalls - 1 && !withPoll)
            rawCpu += cpuUs() - cpu0;
        const double t0 = bench::nowUs();
        uint16_t error = 0;
        const std::string name = client.roundTrip(11, 1, payload, &error);
        samples.push_back(bench::nowUs() - t0);
        if (name.empty() || error != 0)
            return false;
    }
    client.roundTrip(1, 6, ""); // Dispose: the agent listens again
    client.close();
    return true;
}

bool timeSendSync(JDWPHandler& handler, double threadID, std::vector<double>& samples)
{
    auto factory = handler.myFactory();
    for (int i = 0; i < kWarmUp; ++i)
        handler.sendSync(factory->createGetThreadNameMessage(threadID), 4000);
    for (int i = 0; i < kCalls; ++i) {
        auto msg = factory->createGetThreadNameMessage(threadID);
        const double t0 = bench::nowUs();
        auto reply = handler.sendSync(msg, 4000);
        samples.push_back(bench::nowUs() - t0);
        if (!reply || reply->myErrorCode != 0)
            return bench::fail("no name at call %d\n", i);
    }
    return true;
}

// Once the opening is done, times round trips that name the first thread.
// Object ids belong to a connection: the raw client's are void here.
// `cpu` adds the process time the round trips took.
bool timeFirstThread(JDWPHandler& handler, std::vector<double>& samples, double* cpu = nullptr)
{
    MessagePump::instance().pumpUntil([&] { return !handler.myJVM()->VMName.empty(); }, 5000);
    auto threads = handler.getAllThreads();
    if (!threads || threads->Count() == 0)
        return false;
    const double cpu0 = cpuUs();
    const bool ok = timeSendSync(handler, threads->Item(1)->threadID, samples);
    if (cpu)
        *cpu += cpuUs() - cpu0;
    return ok;
}

bool library(int port, std::vector<double>& samples)
{
    bench::Session session({});
    if (!session.attach(port))
        return bench::fail("could not attach: %s\n", session.dump().c_str());
    return timeFirstThread(*session.handler, samples, &socketCpu);
}

// The same calls over the shared-memory transport, against a VM that the
// library launches with our dt_shmem transport library.
bool libraryShmem(int round, std::vector<double>& samples)
{
    bench::Session session({});
    auto& handler = session.handler;
    handler->bRemoteConnection = false;
    const std::string name = "krvbench-" + std::to_string(::getpid()) + "-" + std::to_string(round);
    if (!handler->startVM(bench::javaPath(),
                          "-agentlib:jdwp=transport=dt_shmem,address=%SharedName%,server=y,suspend=n -cp " +
                              bench::benchClassPath() + " BenchLoop",
                          name, false, true))
        return bench::fail("shared memory: could not start: %s\n", handler->history().dump().c_str());
    return timeFirstThread(*handler, samples);
}

} // namespace

int main()
{
    // A fixed port: after a debugger detaches the agent listens again on the
    // port it was given (port 0 would pick a new one).
    const int freePort = bench::freeTcpPort();
    bench::ChildProcess vm(
        {bench::javaPath(),
         "-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,address=127.0.0.1:" + std::to_string(freePort), "-cp",
         bench::benchClassPath(), "BenchLoop"});
    const int port = listeningPort(vm);
    if (port <= 0) {
        std::fprintf(stderr, "the VM did not listen\n");
        return 1;
    }
    std::vector<double> raw, rawPoll, socket, shmem;
    for (int round = 0; round < kRounds; ++round) {
        const size_t before = socket.size(), rawBefore = raw.size();
        if (!rawClient(port, raw) || !rawClient(port, rawPoll, true) || !library(port, socket) ||
            !libraryShmem(round, shmem))
            return 1;
        if (std::getenv("BENCH_TRACE"))
            std::fprintf(stderr, "round %d: raw %.1f socket median %.1f, pump sources %zu\n", round,
                         bench::summarize(std::vector<double>(raw.begin() + rawBefore, raw.end())).median,
                         bench::summarize(std::vector<double>(socket.begin() + before, socket.end())).median,
                         MessagePump::instance().sourceCount());
    }
    if (std::getenv("BENCH_TRACE"))
        std::fprintf(stderr, "host CPU per call: raw %.1f us, ours over the socket %.1f us\n",
                     rawCpu / (kRounds * kCalls), socketCpu / (kRounds * (kCalls + kWarmUp)));
    const bench::Stats anchor = bench::summarize(raw);
    const bench::Stats ours = bench::summarize(socket);
    std::printf("sendSync round trip of ThreadReference Name, %d calls (socket: one VM; raw client, ours and "
                "shared memory take turns in %d rounds)\n",
                kRounds * kCalls, kRounds);
    std::printf("  the raw client waiting with poll() before each read, as an event loop does: median %.1f us\n",
                bench::summarize(rawPoll).median);
    bench::report("rtt_socket", ours, anchor);
    std::printf("the same over shared memory, against our socket round trip\n");
    bench::report("rtt_shmem", bench::summarize(shmem), ours);
    return 0;
}
