// Round-trip benchmark: the median sendSync of ThreadReference Name against
// a real VM, and the median of a raw blocking-socket client doing the same
// request against the same VM in the same run (the floor).
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "BenchKit.h"

using namespace jdwpkrvdbg;

namespace {

constexpr int kCalls = 5000;
constexpr int kWarmUp = 500;

int listeningPort(bench::Java& vm)
{
    const std::string line = vm.waitForLine("Listening for transport dt_socket at address:", 20000);
    const size_t colon = line.rfind(':');
    return colon == std::string::npos ? 0 : std::atoi(line.c_str() + colon + 1);
}

bench::Stats rawClient(int port, double& threadID)
{
    bench::RawClient client;
    std::vector<double> samples;
    if (!client.connect(port))
        return {};
    client.roundTrip(1, 7, "");
    const std::string threads = client.roundTrip(1, 4, "");
    threadID = static_cast<double>(bench::readBe(threads, 4, 8));
    const std::string payload = bench::be64(static_cast<uint64_t>(threadID));
    for (int i = 0; i < kWarmUp; ++i)
        client.roundTrip(11, 1, payload);
    for (int i = 0; i < kCalls; ++i) {
        const double t0 = bench::nowUs();
        client.roundTrip(11, 1, payload);
        samples.push_back(bench::nowUs() - t0);
    }
    client.roundTrip(1, 6, ""); // Dispose: the agent listens again
    client.close();
    return bench::summarize(samples);
}

bench::Stats library(int port, double threadID)
{
    auto handler = JDWPHandler::create();
    handler->bRemoteConnection = true;
    std::vector<double> samples;
    if (!handler->startVM("", "", "", false, false, 0, "127.0.0.1", std::to_string(port), true)) {
        std::fprintf(stderr, "could not attach: %s\n", handler->history().dump().c_str());
        return {};
    }
    MessagePump::instance().pumpUntil([&] { return !handler->myJVM()->VMName.empty(); }, 5000);
    auto factory = handler->myFactory();
    for (int i = 0; i < kWarmUp; ++i)
        handler->sendSync(factory->createGetThreadNameMessage(threadID), 4000);
    for (int i = 0; i < kCalls; ++i) {
        auto msg = factory->createGetThreadNameMessage(threadID);
        const double t0 = bench::nowUs();
        auto reply = handler->sendSync(msg, 4000);
        samples.push_back(bench::nowUs() - t0);
        if (!reply) {
            std::fprintf(stderr, "no reply at call %d\n", i);
            break;
        }
    }
    handler->Disconnect();
    setCurrentHandler(nullptr);
    return bench::summarize(samples);
}

// The same calls over the shared-memory transport, against a VM that the
// library launches with our dt_shmem transport library.
bench::Stats libraryShmem()
{
    auto handler = JDWPHandler::create();
    handler->bRemoteConnection = false;
    std::vector<double> samples;
    const std::string name = "krvbench-" + std::to_string(::getpid());
    if (!handler->startVM(bench::javaPath(),
                          "-agentlib:jdwp=transport=dt_shmem,address=%SharedName%,server=y,suspend=n -cp " +
                              bench::benchClassPath() + " BenchLoop",
                          name, false, true)) {
        std::fprintf(stderr, "shared memory: could not start: %s\n", handler->history().dump().c_str());
        return {};
    }
    MessagePump::instance().pumpUntil([&] { return !handler->myJVM()->VMName.empty(); }, 5000);
    auto threads = handler->getAllThreads();
    if (!threads || threads->Count() == 0)
        return {};
    const double threadID = threads->Item(1)->threadID;
    auto factory = handler->myFactory();
    for (int i = 0; i < kWarmUp; ++i)
        handler->sendSync(factory->createGetThreadNameMessage(threadID), 4000);
    for (int i = 0; i < kCalls; ++i) {
        auto msg = factory->createGetThreadNameMessage(threadID);
        const double t0 = bench::nowUs();
        auto reply = handler->sendSync(msg, 4000);
        samples.push_back(bench::nowUs() - t0);
        if (!reply)
            break;
    }
    handler->Disconnect();
    setCurrentHandler(nullptr);
    return bench::summarize(samples);
}

} // namespace

int main()
{
    // A fixed port: after a debugger detaches the agent listens again on the
    // port it was given (port 0 would pick a new one).
    const int freePort = bench::freePort();
    bench::Java vm({"-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,address=127.0.0.1:" +
                        std::to_string(freePort),
                    "-cp", bench::benchClassPath(), "BenchLoop"});
    const int port = listeningPort(vm);
    if (port <= 0) {
        std::fprintf(stderr, "the VM did not listen\n");
        return 1;
    }
    double threadID = 0;
    const bench::Stats anchor = rawClient(port, threadID);
    // The agent re-listens on the same port after the raw client disposed.
    const bench::Stats ours = library(port, threadID);
    const bench::Stats shmem = libraryShmem();
    std::printf("sendSync round trip of ThreadReference Name, %d calls (socket: one VM, raw client first)\n", kCalls);
    bench::report("rtt_socket", ours, anchor);
    std::printf("the same over shared memory, against our socket round trip\n");
    bench::report("rtt_shmem", shmem, ours);
    const size_t n = static_cast<size_t>(kCalls);
    return ours.n == n && anchor.n == n && shmem.n == n ? 0 : 1;
}
