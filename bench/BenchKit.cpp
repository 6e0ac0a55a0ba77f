// Benchmark kit: statistics, the JDI anchor and the raw JDWP client.
#include "BenchKit.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

extern char** environ;

namespace bench {

Stats summarize(std::vector<double> samples)
{
    Stats s;
    s.n = samples.size();
    if (samples.empty())
        return s;
    std::sort(samples.begin(), samples.end());
    s.min = samples.front();
    s.max = samples.back();
    const size_t mid = samples.size() / 2;
    s.median = samples.size() % 2 ? samples[mid] : (samples[mid - 1] + samples[mid]) / 2;
    return s;
}

void report(const std::string& row, const Stats& ours, const Stats& anchor)
{
    const double ratio = anchor.median > 0 ? ours.median / anchor.median : 0;
    std::printf("%-16s ours: n=%zu median=%.1f us min=%.1f max=%.1f | anchor: n=%zu median=%.1f us min=%.1f "
                "max=%.1f | ratio %.3f\n",
                row.c_str(), ours.n, ours.median, ours.min, ours.max, anchor.n, anchor.median, anchor.min, anchor.max,
                ratio);
    std::printf("BENCH %s ours_us=%.1f anchor_us=%.1f ratio=%.3f n=%zu\n", row.c_str(), ours.median, anchor.median,
                ratio, ours.n);
    std::fflush(stdout);
}

double nowUs()
{
    using namespace std::chrono;
    return duration_cast<duration<double, std::micro>>(steady_clock::now().time_since_epoch()).count();
}

// The other folders are the kit's (source, build, compiled classes) with
// the bench's own parts below them; the storm program is generated.
std::string benchClassPath()
{
    return javaClassesDir() + "/bench";
}
std::string benchSourceDir()
{
    return sourceDir() + "/bench/java";
}
std::string testsSourceDir()
{
    return sourceDir() + "/tests/java";
}
std::string stormClassPath()
{
    return JDWPKRVDBG_STORM_DIR "/classes";
}
std::string stormSource()
{
    return JDWPKRVDBG_STORM_DIR "/Storm.java";
}

long peakRssKb()
{
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return 0;
}

AnchorRun runJdi(const std::vector<std::string>& args, int timeoutMs)
{
    std::vector<std::string> all{"-cp", benchClassPath(), "JdiBench"};
    all.insert(all.end(), args.begin(), args.end());
    all.insert(all.begin(), javaPath());
    ChildProcess anchor(all);
    AnchorRun run;
    run.output = anchor.readAll(timeoutMs);
    std::istringstream lines(run.output);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string kind, name;
        words >> kind >> name;
        if (kind == "SAMPLES") {
            auto& list = run.samples[name];
            for (double v; words >> v;)
                list.push_back(v);
        } else if (kind == "VALUE") {
            words >> run.values[name];
        } else if (kind == "DONE") {
            run.done = true;
        }
    }
    return run;
}

bool fail(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    return false;
}

AnchorRun runJdiAtLine(const std::string& bench, int line, int rounds, int warmUp)
{
    return runJdi({bench, "cp=" + benchClassPath(), "line=" + std::to_string(line), "n=" + std::to_string(rounds),
                   "warm=" + std::to_string(warmUp)},
                  120000);
}

bool anchorOk(const AnchorRun& run, const std::string& what)
{
    if (run.done)
        return true;
    return fail("the JDI anchor (%s) did not finish:\n%s\n", what.c_str(), run.output.c_str());
}

Session::Session(const std::vector<std::string>& targetClasses) : handler(jdwpkrvdbg::JDWPHandler::create())
{
    handler->bRemoteConnection = true;
    jvm = handler->myJVM();
    jvm->setEvents(log);
    jvm->setTargetClassName(targetClasses);
}

Session::~Session()
{
    handler->Disconnect();
    if (auto transport = handler->transport())
        pumpUntil([&] { return !transport->ProcessRunning(); }, 5000);
    jdwpkrvdbg::setCurrentHandler(nullptr);
}

bool Session::launch(const std::string& classPath, const std::string& mainArgs)
{
    const int port = freeTcpPort();
    return handler->startVM(javaPath(), socketAgent(port, true) + " -cp " + classPath + " " + mainArgs, "", false, true,
                            0, "127.0.0.1", std::to_string(port), true);
}

bool Session::launchToLine(const std::string& classPath, const std::string& mainArgs, const std::string& cls, int line)
{
    jvm->addBreakpoint(cls, line);
    return launch(classPath, mainArgs) && waitStop(0, 20000);
}

bool Session::attach(int port)
{
    return handler->startVM("", "", "", false, false, 0, "127.0.0.1", std::to_string(port), true);
}

bool Session::waitStop(size_t seen, int timeoutMs)
{
    return pumpUntil([&] { return log->stops.size() > seen || log->sawState(jdwpkrvdbg::VMDead); }, timeoutMs) &&
           log->stops.size() > seen;
}

bool RawClient::connect(int port)
{
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    // An agent that a debugger just left needs a moment to listen again.
    const double deadline = nowUs() + 5e6;
    for (;;) {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        if (::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0)
            break;
        ::close(fd_);
        fd_ = -1;
        if (nowUs() > deadline)
            return false;
        pollfd none{-1, 0, 0};
        ::poll(&none, 1, 5);
    }
    int one = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    // A reply or event that never comes fails the run instead of hanging it.
    timeval limit{10, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    if (::write(fd_, "JDWP-Handshake", 14) != 14)
        return false;
    char hs[14];
    return readExactly(hs, 14) && std::memcmp(hs, "JDWP-Handshake", 14) == 0;
}

RawClient::~RawClient()
{
    close();
}

void RawClient::close()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

bool RawClient::readExactly(char* out, size_t n)
{
    size_t got = 0;
    while (got < n) {
        if (waitWithPoll_) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 10000) < 0)
                return false;
            if (!(p.revents & POLLIN))
                continue;
        }
        ssize_t r = ::read(fd_, out + got, n - got);
        if (r <= 0)
            return false;
        got += static_cast<size_t>(r);
    }
    return true;
}

uint32_t RawClient::send(uint8_t set, uint8_t cmd, const std::string& payload)
{
    const uint32_t id = nextId_++;
    const std::string packet = commandPacket(id, set, cmd, payload);
    if (::write(fd_, packet.data(), packet.size()) != static_cast<ssize_t>(packet.size()))
        return 0;
    return id;
}

bool RawClient::readPacket(Packet& packet)
{
    std::string header(kPacketHeaderBytes, '\0');
    if (!readExactly(header.data(), header.size()))
        return false;
    const auto length = static_cast<uint32_t>(readBe(header, 0, 4));
    std::string body(length >= kPacketHeaderBytes ? length - kPacketHeaderBytes : 0, '\0');
    if (!body.empty() && !readExactly(body.data(), body.size()))
        return false;
    std::string whole = header + body;
    auto cut = cutPacket(whole);
    if (!cut)
        return false;
    packet = std::move(*cut);
    return true;
}

std::string RawClient::waitReply(uint32_t id, uint16_t* error)
{
    for (Packet p; id != 0 && readPacket(p);) {
        if (p.reply && p.id == id) {
            if (error)
                *error = p.error;
            return p.payload;
        }
        if (!p.reply && p.set == kEventSet)
            events_.push_back(std::move(p.payload));
    }
    return std::string();
}

std::string RawClient::roundTrip(uint8_t set, uint8_t cmd, const std::string& payload, uint16_t* error)
{
    return waitReply(send(set, cmd, payload), error);
}

std::string RawClient::attachAndStop(int port, int line)
{
    if (!connect(port))
        return {};
    roundTrip(1, 7, "");
    return stopAt("LBenchTarget;", "main", line);
}

std::string RawClient::stopAt(const std::string& signature, const std::string& method, int line)
{
    const std::string classes = roundTrip(1, 2, be32(static_cast<uint32_t>(signature.size())) + signature);
    if (readBe(classes, 0, 4) != 1)
        return std::string();
    const uint64_t classID = readBe(classes, 5, 8);
    const uint64_t methodID = readBe(idOfName(roundTrip(2, 5, be64(classID)), method), 0, 8);
    // Line table: start, end, count, then (code index, line) pairs.
    const std::string lines = roundTrip(6, 1, be64(classID) + be64(methodID));
    std::string index;
    for (uint64_t k = 0, n = readBe(lines, 16, 4); k < n && 20 + k * 12 + 12 <= lines.size(); ++k) {
        if (readBe(lines, 20 + k * 12 + 8, 4) == static_cast<uint64_t>(line)) {
            index = lines.substr(20 + k * 12, 8);
            break;
        }
    }
    if (index.empty())
        return std::string();
    const std::string location = std::string("\x01", 1) + be64(classID) + be64(methodID) + index;
    // Breakpoint, suspend all, one LocationOnly modifier.
    const std::string request = roundTrip(15, 1, std::string("\x02\x02", 2) + be32(1) + "\x07" + location);
    const std::string event = waitEvent();
    // Composite: policy, count, kind, request id, thread.
    if (request.size() < 4 || event.size() < 18)
        return std::string();
    roundTrip(15, 2, std::string("\x02", 1) + request.substr(0, 4));
    return event.substr(10, 8);
}

std::string RawClient::waitEvent()
{
    for (Packet p; events_.empty();) {
        if (!readPacket(p))
            return std::string();
        if (!p.reply && p.set == kEventSet)
            events_.push_back(std::move(p.payload));
    }
    std::string event = std::move(events_.front());
    events_.erase(events_.begin());
    return event;
}

std::string idOfName(const std::string& reply, const std::string& name)
{
    size_t at = 4;
    for (uint64_t k = 0, n = readBe(reply, 0, 4); k < n && at < reply.size(); ++k) {
        const std::string id = reply.substr(at, 8);
        at += 8;
        const std::string text = readJdwpString(reply, at);
        readJdwpString(reply, at);
        at += 4;
        if (text == name)
            return id;
    }
    return std::string();
}

} // namespace bench
