// Benchmark kit: statistics, launched VMs and the raw JDWP client.
#include "BenchKit.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

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
std::string shmemLibraryDir() { return JDWPKRVDBG_SHMEM_DIR; }

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
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
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
    if (posix_spawn(&pid_, cargs[0], &actions, nullptr, cargs.data(), env.data()) != 0)
        pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
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
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(left) + 1) <= 0)
            continue;
        char buf[4096];
        ssize_t n = ::read(fd_, buf, sizeof(buf));
        if (n <= 0) {
            ::close(fd_);
            fd_ = -1;
            continue;
        }
        output_.append(buf, static_cast<size_t>(n));
    }
}

std::string be64(uint64_t v)
{
    std::string s(8, '\0');
    for (int i = 0; i < 8; ++i)
        s[i] = static_cast<char>((v >> (56 - 8 * i)) & 0xff);
    return s;
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
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
        return false;
    int one = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
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
        ssize_t r = ::read(fd_, out + got, n - got);
        if (r <= 0)
            return false;
        got += static_cast<size_t>(r);
    }
    return true;
}

std::string RawClient::roundTrip(uint8_t set, uint8_t cmd, const std::string& payload, uint16_t* error)
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
        return std::string();
    for (;;) {
        char header[11];
        if (!readExactly(header, 11))
            return std::string();
        const std::string h(header, 11);
        const uint32_t plen = static_cast<uint32_t>(readBe(h, 0, 4));
        std::string body(plen >= 11 ? plen - 11 : 0, '\0');
        if (!body.empty() && !readExactly(body.data(), body.size()))
            return std::string();
        if (static_cast<uint8_t>(header[8]) == 0x80 && readBe(h, 4, 4) == id) {
            if (error)
                *error = static_cast<uint16_t>(readBe(h, 9, 2));
            return body;
        }
    }
}

} // namespace bench
