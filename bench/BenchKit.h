// Shared pieces of the benchmarks: statistics and the BENCH line, a launched
// `java` whose output is read line by line, and a raw blocking-socket JDWP
// client that is the floor for a round trip.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

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
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string output_;
};

std::string javaPath();
std::string benchClassPath();
std::string shmemLibraryDir();
int freePort();

// A blocking JDWP client over TCP: no framing layer, no dispatch, one reply
// read straight after each command.
class RawClient {
public:
    bool connect(int port);
    ~RawClient();
    // Sends a command and reads packets until its reply; returns the payload.
    std::string roundTrip(uint8_t set, uint8_t cmd, const std::string& payload, uint16_t* error = nullptr);
    void close();

private:
    bool readExactly(char* out, size_t n);
    int fd_ = -1;
    uint32_t nextId_ = 1;
};

std::string be64(uint64_t v);
uint64_t readBe(const std::string& s, size_t offset, size_t width);

} // namespace bench
