// Shared pieces of the benchmarks: statistics and the BENCH line, a launched
// `java` whose output is read line by line, the JDI anchor program and its
// samples, source-line markers, peak memory, a recorder of host events, and
// a raw blocking-socket JDWP client that is the floor for a round trip.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

namespace bench {

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

class Java {
public:
    explicit Java(const std::vector<std::string>& args, const std::vector<std::string>& extraEnv = {});
    ~Java();
    // The line containing `text` ("" on time-out or end of output).
    std::string waitForLine(const std::string& text, int timeoutMs);
    // Everything the process writes until it closes its output (or the
    // time-out passes).
    std::string readAll(int timeoutMs);
    pid_t pid() const { return pid_; }

private:
    // Appends what the process wrote within `timeoutMs`; false once its
    // output is closed.
    bool readSome(int timeoutMs);

public:

private:
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string output_;
};

std::string javaPath();
std::string benchClassPath();
std::string benchSourceDir();
// The test programs (tests/java), for rows that debug one of them.
std::string testsClassPath();
std::string testsSourceDir();
std::string stormClassPath();
std::string stormSource();
std::string shmemLibraryDir();
int freePort();
// The 1-based line of `path` that contains `marker` (0 if none).
int lineOf(const std::string& path, const std::string& marker);
// Peak resident memory of this process (VmHWM), in KiB.
long peakRssKb();
// The agent option of a VM that listens on `port` for the debugger.
std::string socketAgent(int port, bool suspend);

// The JDI anchor (bench/java/JdiBench.java) run in its own VM: its samples
// ("SAMPLES name v...") and figures ("VALUE name v") by name.
struct AnchorRun {
    std::map<std::string, std::vector<double>> samples;
    std::map<std::string, double> values;
    bool done = false;
    std::string output;
};
AnchorRun runJdi(const std::vector<std::string>& args, int timeoutMs);
// Prints what the anchor wrote when it did not finish.
bool anchorOk(const AnchorRun& run, const std::string& what);

// Records the stops a session reports, with the time of each.
struct StopLog : jdwpkrvdbg::JXMachineEvents {
    size_t stops = 0;
    int32_t line = 0;
    std::string className;
    double stopUs = 0;
    bool dead = false;
    std::string console;
    void Breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset) override;
    void VMStateChanged(jdwpkrvdbg::VMState NewState) override;
    void ConsoleMessage(const std::string& s) override { console += s; }
};

// Pumps the library until `done()` or `timeoutMs` passed; returns done().
bool pumpUntil(const std::function<bool()>& done, int timeoutMs);

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
    void close();
    // Waits for bytes with poll() before each read, as an event loop does,
    // instead of blocking in read().
    void setWaitWithPoll(bool on) { waitWithPoll_ = on; }

private:
    bool readExactly(char* out, size_t n);
    bool waitWithPoll_ = false;
    int fd_ = -1;
    uint32_t nextId_ = 1;
    std::vector<std::string> events_;
};

std::string be64(uint64_t v);
std::string be32(uint32_t v);
// Reads a JDWP string at `at` and moves past it.
std::string readJdwpString(const std::string& s, size_t& at);
uint64_t readBe(const std::string& s, size_t offset, size_t width);

} // namespace bench
