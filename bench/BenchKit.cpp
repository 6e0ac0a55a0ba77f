// Benchmark kit: statistics, launched VMs and the raw JDWP client.
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
                row.c_str(), ours.n, ours.median, ours.min, ours.max, anchor.n, anchor.median, anchor.min,
                anchor.max, ratio);
    std::printf("BENCH %s ours_us=%.1f anchor_us=%.1f ratio=%.3f n=%zu\n", row.c_str(), ours.median, anchor.median,
                ratio, ours.n);
    std::fflush(stdout);
}

double nowUs()
{
    using namespace std::chrono;
    return duration_cast<duration<double, std::micro>>(steady_clock::now().time_since_epoch()).count();
}

std::string javaPath() { return JDWPKRVDBG_JAVA; }
std::string benchClassPath() { return JDWPKRVDBG_BENCH_CP; }
std::string benchSourceDir() { return JDWPKRVDBG_BENCH_SRC; }
std::string testsClassPath() { return JDWPKRVDBG_TESTS_CP; }
std::string testsSourceDir() { return JDWPKRVDBG_TESTS_SRC; }
std::string stormClassPath() { return JDWPKRVDBG_STORM_CP; }
std::string stormSource() { return JDWPKRVDBG_STORM_SRC; }
std::string shmemLibraryDir() { return JDWPKRVDBG_SHMEM_DIR; }

int lineOf(const std::string& path, const std::string& marker)
{
    std::ifstream in(path);
    std::string line;
    for (int n = 1; std::getline(in, line); ++n)
        if (line.find(marker) != std::string::npos)
            return n;
    return 0;
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

std::string socketAgent(int port, bool suspend)
{
    return "-agentlib:jdwp=transport=dt_socket,server=y,suspend=" + std::string(suspend ? "y" : "n") +
           ",address=127.0.0.1:" + std::to_string(port);
}

AnchorRun runJdi(const std::vector<std::string>& args, int timeoutMs)
{
    std::vector<std::string> all{"-cp", benchClassPath(), "JdiBench"};
    all.insert(all.end(), args.begin(), args.end());
    Java anchor(all);
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

bool anchorOk(const AnchorRun& run, const std::string& what)
{
    if (run.done)
        return true;
    std::fprintf(stderr, "the JDI anchor (%s) did not finish:\n%s\n", what.c_str(), run.output.c_str());
    return false;
}

void StopLog::Breakpoint(double, const std::string& ClassName, int32_t LineNr, int32_t)
{
    stopUs = nowUs();
    ++stops;
    line = LineNr;
    className = ClassName;
}

void StopLog::VMStateChanged(jdwpkrvdbg::VMState NewState)
{
    if (NewState == jdwpkrvdbg::VMDead)
        dead = true;
}

bool pumpUntil(const std::function<bool()>& done, int timeoutMs)
{
    const double deadline = nowUs() + timeoutMs * 1000.0;
    while (!done()) {
        if (nowUs() > deadline)
            return false;
        jdwpkrvdbg::MessagePump::instance().pumpOnce(5);
    }
    return true;
}

int freePort()
{
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(addr);
    int port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0)
        port = ntohs(addr.sin_port);
    ::close(fd);
    return port;
}

Java::Java(const std::vector<std::string>& args, const std::vector<std::string>& extraEnv)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return;
    std::vector<std::string> argv{javaPath()};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> cargs;
    for (auto& a : argv)
        cargs.push_back(a.data());
    cargs.push_back(nullptr);
    std::vector<std::string> envStore;
    for (char** e = environ; *e; ++e)
        envStore.emplace_back(*e);
    envStore.insert(envStore.end(), extraEnv.begin(), extraEnv.end());
    std::vector<char*> env;
    for (auto& e : envStore)
        env.push_back(e.data());
    env.push_back(nullptr);
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) {
        // A benchmark that is killed (a time-out, a crash) takes its VM
        // along instead of leaving it running and skewing later figures.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(127);
        const int in = ::open("/dev/null", O_RDONLY);
        ::dup2(in, 0);
        ::dup2(fds[1], 1);
        ::dup2(fds[1], 2);
        ::execve(cargs[0], cargs.data(), env.data());
        ::_exit(127);
    }
    ::close(fds[1]);
    fd_ = fds[0];
}

Java::~Java()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    if (fd_ >= 0)
        ::close(fd_);
}

std::string Java::waitForLine(const std::string& text, int timeoutMs)
{
    const double deadline = nowUs() + timeoutMs * 1000.0;
    size_t scanned = 0;
    for (;;) {
        size_t at = output_.find(text, scanned);
        if (at != std::string::npos) {
            size_t end = output_.find('\n', at);
            if (end != std::string::npos) {
                size_t begin = output_.rfind('\n', at);
                begin = begin == std::string::npos ? 0 : begin + 1;
                std::string line = output_.substr(begin, end - begin);
                output_.erase(0, end + 1);
                return line;
            }
        }
        scanned = output_.size() > text.size() ? output_.size() - text.size() : 0;
        const double left = (deadline - nowUs()) / 1000.0;
        if (left <= 0 || fd_ < 0)
            return std::string();
        readSome(static_cast<int>(left) + 1);
    }
}

bool Java::readSome(int timeoutMs)
{
    if (fd_ < 0)
        return false;
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0)
        return true;
    char buf[4096];
    ssize_t n = ::read(fd_, buf, sizeof(buf));
    if (n <= 0) {
        ::close(fd_);
        fd_ = -1;
        return false;
    }
    output_.append(buf, static_cast<size_t>(n));
    return true;
}

std::string Java::readAll(int timeoutMs)
{
    const double deadline = nowUs() + timeoutMs * 1000.0;
    while (fd_ >= 0) {
        const double left = (deadline - nowUs()) / 1000.0;
        if (left <= 0 || !readSome(static_cast<int>(left) + 1))
            break;
    }
    std::string all;
    all.swap(output_);
    return all;
}

std::string be64(uint64_t v)
{
    std::string s(8, '\0');
    for (int i = 0; i < 8; ++i)
        s[i] = static_cast<char>((v >> (56 - 8 * i)) & 0xff);
    return s;
}

std::string be32(uint32_t v)
{
    return be64(v).substr(4);
}

std::string readJdwpString(const std::string& s, size_t& at)
{
    const size_t n = static_cast<size_t>(readBe(s, at, 4));
    std::string text = at + 4 + n <= s.size() ? s.substr(at + 4, n) : std::string();
    at += 4 + n;
    return text;
}

uint64_t readBe(const std::string& s, size_t offset, size_t width)
{
    uint64_t v = 0;
    for (size_t i = 0; i < width && offset + i < s.size(); ++i)
        v = (v << 8) | static_cast<unsigned char>(s[offset + i]);
    return v;
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
    std::string packet(11, '\0');
    const uint32_t len = static_cast<uint32_t>(11 + payload.size());
    for (int i = 0; i < 4; ++i) {
        packet[i] = static_cast<char>(len >> (24 - 8 * i));
        packet[4 + i] = static_cast<char>(id >> (24 - 8 * i));
    }
    packet[9] = static_cast<char>(set);
    packet[10] = static_cast<char>(cmd);
    packet += payload;
    if (::write(fd_, packet.data(), packet.size()) != static_cast<ssize_t>(packet.size()))
        return 0;
    return id;
}

std::string RawClient::waitReply(uint32_t id, uint16_t* error)
{
    for (;;) {
        char header[11];
        if (id == 0 || !readExactly(header, 11))
            return std::string();
        const std::string h(header, 11);
        const uint32_t plen = static_cast<uint32_t>(readBe(h, 0, 4));
        std::string body(plen >= 11 ? plen - 11 : 0, '\0');
        if (!body.empty() && !readExactly(body.data(), body.size()))
            return std::string();
        if (static_cast<uint8_t>(header[8]) == 0x80) {
            if (readBe(h, 4, 4) == id) {
                if (error)
                    *error = static_cast<uint16_t>(readBe(h, 9, 2));
                return body;
            }
        } else if (static_cast<uint8_t>(header[9]) == 64) {
            events_.push_back(std::move(body));
        }
    }
}

std::string RawClient::roundTrip(uint8_t set, uint8_t cmd, const std::string& payload, uint16_t* error)
{
    return waitReply(send(set, cmd, payload), error);
}

std::string RawClient::stopAt(const std::string& signature, const std::string& method, int line)
{
    const std::string classes = roundTrip(1, 2, be32(static_cast<uint32_t>(signature.size())) + signature);
    if (readBe(classes, 0, 4) != 1)
        return std::string();
    const uint64_t classID = readBe(classes, 5, 8);
    const std::string methods = roundTrip(2, 5, be64(classID));
    uint64_t methodID = 0;
    size_t at = 4;
    for (uint64_t k = 0, n = readBe(methods, 0, 4); k < n && at < methods.size(); ++k) {
        const uint64_t id = readBe(methods, at, 8);
        at += 8;
        const std::string name = readJdwpString(methods, at);
        readJdwpString(methods, at);
        at += 4;
        if (name == method)
            methodID = id;
    }
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
    while (events_.empty()) {
        char header[11];
        if (!readExactly(header, 11))
            return std::string();
        const std::string h(header, 11);
        const uint32_t plen = static_cast<uint32_t>(readBe(h, 0, 4));
        std::string body(plen >= 11 ? plen - 11 : 0, '\0');
        if (!body.empty() && !readExactly(body.data(), body.size()))
            return std::string();
        if (static_cast<uint8_t>(header[8]) != 0x80 && static_cast<uint8_t>(header[9]) == 64)
            events_.push_back(std::move(body));
    }
    std::string event = std::move(events_.front());
    events_.erase(events_.begin());
    return event;
}

} // namespace bench
