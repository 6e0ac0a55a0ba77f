// Shared pieces of the benchmarks: statistics and the BENCH line, the JDI
// anchor program and its samples, peak memory, and a raw blocking-socket
// JDWP client that is the floor for a round trip. Children, ports, the
// event recorder and wire bytes come from the shared test kit.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include "EventLog.h"
#include "Process.h"
#include "ScriptedTransport.h"
#include "Wire.h"
#include <jdwpkrvdbg/support/NonCopyable.h>

namespace bench {

using namespace jdwpkrvdbg::testing;

struct Stats {
    size_t n = 0;
    double median = 0;
    double min = 0;
    double max = 0;
};
Stats summarize(std::vector<double> samples);
// "BENCH <row> ours_us=<m> anchor_us=<m> ratio=<r> n=<n>" after a readable line.
void report(const std::string& row, const Stats& ours, const Stats& anchor);

double nowUs();

std::string benchClassPath();
std::string benchSourceDir();
std::string testsSourceDir();
std::string stormClassPath();
std::string stormSource();
// Peak resident memory of this process (VmHWM), in KiB.
long peakRssKb();

// Prints why a run failed (printf-style, to stderr) and returns false, so
// that a check ends in `return bench::fail(...)`.
[[gnu::format(printf, 1, 2)]] bool fail(const char* format, ...);

// The JDI anchor (bench/java/JdiBench.java) run in its own VM: its samples
// ("SAMPLES name v...") and figures ("VALUE name v") by name.
struct AnchorRun {
    std::map<std::string, std::vector<double>> samples;
    std::map<std::string, double> values;
    bool done = false;
    std::string output;
};
AnchorRun runJdi(const std::vector<std::string>& args, int timeoutMs);
// The anchor's `bench` on the bench targets, stopping at `line`: `rounds`
// timed rounds after `warmUp` untimed ones, two minutes at the most.
AnchorRun runJdiAtLine(const std::string& bench, int line, int rounds, int warmUp);
// Prints what the anchor wrote when it did not finish.
bool anchorOk(const AnchorRun& run, const std::string& what);

// One library session with an event log, on a VM it launches (suspended,
// with the socket agent on a free port) or attaches to. Its end disconnects
// and waits for a launched VM to exit, so the next run starts on a quiet
// machine.
class Session : jdwpkrvdbg::NonCopyable {
public:
    explicit Session(const std::vector<std::string>& targetClasses);
    ~Session();
    // `mainArgs`: the main class and its arguments.
    bool launch(const std::string& classPath, const std::string& mainArgs);
    bool attach(int port);
    // A breakpoint at `line` of `cls`, then launch, then its first stop.
    bool launchToLine(const std::string& classPath, const std::string& mainArgs, const std::string& cls, int line);
    // Pumps until more than `seen` stops were seen; false at the end or on time-out.
    bool waitStop(size_t seen, int timeoutMs);
    std::string dump() const { return handler->history().dump(); }

    std::shared_ptr<jdwpkrvdbg::JDWPHandler> handler;
    std::shared_ptr<jdwpkrvdbg::JXMachine> jvm;
    std::shared_ptr<EventLog> log = std::make_shared<EventLog>();
};

// A blocking JDWP client over TCP: no framing layer, no dispatch, one reply
// read straight after each command.
class RawClient {
public:
    bool connect(int port);
    ~RawClient();
    // Sends a command and reads packets until its reply; returns the payload.
    // Events that arrive while waiting for a reply are counted, not lost.
    std::string roundTrip(uint8_t set, uint8_t cmd, const std::string& payload, uint16_t* error = nullptr);
    // Sends a command without reading its reply; returns its id.
    uint32_t send(uint8_t set, uint8_t cmd, const std::string& payload);
    // Reads packets until an event (Composite) came; returns its payload.
    std::string waitEvent();
    // Reads packets until the reply to `id`.
    std::string waitReply(uint32_t id, uint16_t* error = nullptr);
    // Runs the VM to `line` of `method` in the class of `signature` (a
    // breakpoint of its own, cleared again) and answers the thread that
    // stopped there, as 8 bytes ("" on failure). Needs 8-byte ids.
    std::string stopAt(const std::string& signature, const std::string& method, int line);
    // Connects, asks the id sizes as a client does first, and runs main of
    // BenchTarget to `line`: the thread stopped there ("" on any failure).
    std::string attachAndStop(int port, int line);
    void close();
    // Waits for bytes with poll() before each read, as an event loop does,
    // instead of blocking in read().
    void setWaitWithPoll(bool on) { waitWithPoll_ = on; }

private:
    bool readExactly(char* out, size_t n);
    bool readPacket(Packet& packet);
    bool waitWithPoll_ = false;
    int fd_ = -1;
    uint32_t nextId_ = 1;
    std::vector<std::string> events_;
};

// The 8-byte id of `name` in a Fields or Methods reply (id, name, signature,
// modifier bits each); "" if none.
std::string idOfName(const std::string& reply, const std::string& name);

} // namespace bench
