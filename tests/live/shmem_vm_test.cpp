// The shared-memory transport end to end: a real VM loads libdt_shmem.so
// (transport=dt_shmem), the test attaches with ShmemChannel, shakes hands
// and exchanges packets in the shared-memory framing; a VM that ends or is
// killed must be noticed at once and leave nothing in /dev/shm. Also prints
// the synchronous round trip over shared memory next to dt_socket's.
#include <gtest/gtest.h>

#include <arpa/inet.h>
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
#include <deque>
#include <string>
#include <vector>

#include "../../platform/ShmemChannel.h"

extern char** environ;

namespace {

using jdwpkrvdbg::ShmemChannel;
using Clock = std::chrono::steady_clock;

constexpr int kStartFailsafeMs = 30000;
constexpr int kReplyFailsafeMs = 10000;

// id LE, flags, set, cmd, payload length LE: the shared-memory framing of a command.
std::string shmemCommand(uint32_t id, uint8_t set, uint8_t cmd)
{
    return std::string{char(id), char(id >> 8), char(id >> 16), char(id >> 24), 0, char(set), char(cmd), 0, 0, 0, 0};
}

std::string socketCommand(uint32_t id, uint8_t set, uint8_t cmd)
{
    return std::string{0, 0, 0, 11, char(id >> 24), char(id >> 16), char(id >> 8), char(id), 0, char(set), char(cmd)};
}

// A VM started with posix_spawn, its standard output on a pipe.
struct SpawnedVm {
    SpawnedVm(const std::string& agentOptions, bool withShmemLibrary)
    {
        int out[2];
        if (pipe(out) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        posix_spawn_file_actions_addclose(&actions, out[1]);
        std::vector<std::string> env;
        for (char** e = environ; *e; ++e)
            if (std::string(*e).rfind("LD_LIBRARY_PATH=", 0) != 0)
                env.emplace_back(*e);
        if (withShmemLibrary)
            env.push_back(std::string("LD_LIBRARY_PATH=") + JDWPKRVDBG_SHMEM_DIR);
        std::vector<char*> envp;
        for (auto& s : env)
            envp.push_back(s.data());
        envp.push_back(nullptr);
        std::vector<std::string> args = {JDWPKRVDBG_JAVA, "-agentlib:jdwp=" + agentOptions, "-cp",
                                         JDWPKRVDBG_TESTS_CP, "TestHello"};
        std::vector<char*> argv;
        for (auto& s : args)
            argv.push_back(s.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid, JDWPKRVDBG_JAVA, &actions, nullptr, argv.data(), envp.data()) != 0)
            pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        stdoutFd = out[0];
    }
    ~SpawnedVm()
    {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        if (stdoutFd >= 0)
            ::close(stdoutFd);
    }

    // Reads output until a line starting with prefix; returns the rest of that line.
    bool waitForLine(const std::string& prefix, std::string& rest)
    {
        auto end = Clock::now() + std::chrono::milliseconds(kStartFailsafeMs);
        for (;;) {
            size_t at = output.find(prefix, scanned);
            if (at != std::string::npos) {
                size_t eol = output.find('\n', at);
                if (eol != std::string::npos) {
                    rest = output.substr(at + prefix.size(), eol - at - prefix.size());
                    scanned = eol + 1;
                    return true;
                }
            }
            int left = int(std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count());
            if (left <= 0 || !readSome(left))
                return false;
        }
    }
    bool readSome(int waitMs)
    {
        pollfd p{stdoutFd, POLLIN, 0};
        if (poll(&p, 1, waitMs) != 1)
            return false;
        char buf[4096];
        ssize_t n = read(stdoutFd, buf, sizeof buf);
        if (n <= 0)
            return false;
        output.append(buf, size_t(n));
        return true;
    }
    void readToEnd()
    {
        while (readSome(kStartFailsafeMs)) {
        }
    }
    int exitStatus()
    {
        int status = 0;
        if (pid > 0 && waitpid(pid, &status, 0) == pid)
            pid = -1;
        return status;
    }

    pid_t pid = -1;
    int stdoutFd = -1;
    std::string output;
    size_t scanned = 0;
};

std::string uniqueName(const std::string& tag) { return "live-" + std::to_string(getpid()) + "-" + tag; }

bool objectExists(const std::string& name) { return access(("/dev/shm/krvdbg-" + name).c_str(), F_OK) == 0; }

// Starts a shared-memory VM and attaches to it.
bool startAndAttach(SpawnedVm& vm, const std::string& name, ShmemChannel& channel)
{
    std::string address;
    if (!vm.waitForLine("Listening for transport dt_shmem at address: ", address))
        return false;
    EXPECT_EQ(address, name);
    std::string error;
    EXPECT_TRUE(channel.attach(name, error)) << error;
    return channel.isOpen();
}

// Records from the VM in arrival order, fetched the way the pump does:
// wait for the descriptor, then take everything readRecords has.
struct Inbox {
    explicit Inbox(ShmemChannel& c) : channel(c) {}
    bool fill()
    {
        pollfd p{channel.notifyFd(), POLLIN, 0};
        std::vector<std::string> got;
        if (poll(&p, 1, kReplyFailsafeMs) != 1 || !channel.readRecords(got))
            return false;
        queue.insert(queue.end(), got.begin(), got.end());
        return true;
    }
    // The synchronous caller's way: waitReadable instead of the descriptor.
    bool fillByWaiting()
    {
        std::vector<std::string> got;
        if (!channel.waitReadable(kReplyFailsafeMs) || !channel.readRecords(got))
            return false;
        queue.insert(queue.end(), got.begin(), got.end());
        return true;
    }
    bool next(std::string& record, bool byWaiting = false)
    {
        while (queue.empty())
            if (!(byWaiting ? fillByWaiting() : fill()))
                return false;
        record = std::move(queue.front());
        queue.pop_front();
        return true;
    }
    ShmemChannel& channel;
    std::deque<std::string> queue;
};

bool shakeHands(ShmemChannel& channel, Inbox& inbox)
{
    std::string answer;
    return channel.writeRecord("JDWP-Handshake") && inbox.next(answer) && answer == "JDWP-Handshake";
}

bool isReply(const std::string& record) { return record.size() >= 11 && uint8_t(record[4]) == 0x80; }

const std::string kIdSizesReply = std::string("\x01\x00\x00\x00" "\x80" "\x00\x00" "\x14\x00\x00\x00", 11) +
                                  std::string("\x00\x00\x00\x08" "\x00\x00\x00\x08" "\x00\x00\x00\x08"
                                              "\x00\x00\x00\x08" "\x00\x00\x00\x08", 20);

TEST(ShmemVm, HandshakeCommandsAndVmDeath)
{
    const std::string name = uniqueName("hello");
    SpawnedVm vm("transport=dt_shmem,address=" + name + ",server=y,suspend=y", true);
    ASSERT_GT(vm.pid, 0);
    ShmemChannel channel;
    ASSERT_TRUE(startAndAttach(vm, name, channel));
    EXPECT_FALSE(objectExists(name));
    Inbox inbox(channel);
    ASSERT_TRUE(shakeHands(channel, inbox));

    // suspend=y: the VM announces itself with VM_START (90), policy all, request 0, and its thread.
    std::string record;
    ASSERT_TRUE(inbox.next(record));
    ASSERT_EQ(record.size(), 29u);
    EXPECT_EQ(record.substr(4, 14), std::string("\x00" "\x40\x64" "\x12\x00\x00\x00"
                                                "\x02" "\x00\x00\x00\x01" "\x5a", 14));

    ASSERT_TRUE(channel.writeRecord(shmemCommand(1, 1, 7)));
    ASSERT_TRUE(inbox.next(record));
    EXPECT_EQ(record, kIdSizesReply);

    // Resume: its reply and the VM's death come from different agent threads, in either order.
    ASSERT_TRUE(channel.writeRecord(shmemCommand(2, 1, 9)));
    std::string first, second;
    ASSERT_TRUE(inbox.next(first));
    ASSERT_TRUE(inbox.next(second));
    if (!isReply(first))
        std::swap(first, second);
    EXPECT_EQ(first, std::string("\x02\x00\x00\x00" "\x80" "\x00\x00" "\x00\x00\x00\x00", 11));
    // Composite event (64/100), any id; suspend policy none, one event:
    // VM_DEATH (99) of request 0.
    ASSERT_EQ(second.size(), 21u);
    EXPECT_EQ(second.substr(4), std::string("\x00" "\x40\x64" "\x0a\x00\x00\x00"
                                            "\x00" "\x00\x00\x00\x01" "\x63" "\x00\x00\x00\x00",
                                            17));
    EXPECT_TRUE(inbox.queue.empty());

    auto start = Clock::now();
    std::vector<std::string> rest;
    while (channel.readRecords(rest)) {
        pollfd p{channel.notifyFd(), POLLIN, 0};
        ASSERT_EQ(poll(&p, 1, kReplyFailsafeMs), 1);
    }
    EXPECT_TRUE(rest.empty());
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    channel.close();
    vm.readToEnd();
    EXPECT_NE(vm.output.find("Hello from the debuggee\nBye\n"), std::string::npos) << vm.output;
    int status = vm.exitStatus();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_FALSE(objectExists(name));
}

TEST(ShmemVm, KilledVmIsNoticedWithinASecond)
{
    const std::string name = uniqueName("kill");
    SpawnedVm vm("transport=dt_shmem,address=" + name + ",server=y,suspend=y", true);
    ASSERT_GT(vm.pid, 0);
    ShmemChannel channel;
    ASSERT_TRUE(startAndAttach(vm, name, channel));
    Inbox inbox(channel);
    ASSERT_TRUE(shakeHands(channel, inbox));
    ASSERT_TRUE(channel.writeRecord(shmemCommand(1, 1, 7)));
    std::string first, second; // VM_START and the reply, in either order
    ASSERT_TRUE(inbox.next(first));
    ASSERT_TRUE(inbox.next(second));
    EXPECT_EQ(isReply(first) ? first : second, kIdSizesReply);

    auto start = Clock::now();
    kill(vm.pid, SIGKILL); // not reaped before the check: a zombie must count as dead
    // The notification may still carry a wake-up for records already taken,
    // so keep reading until the channel gives its verdict.
    std::vector<std::string> got;
    while (channel.readRecords(got)) {
        pollfd p{channel.notifyFd(), POLLIN, 0};
        ASSERT_EQ(poll(&p, 1, kReplyFailsafeMs), 1);
    }
    EXPECT_TRUE(got.empty());
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    EXPECT_FALSE(channel.writeRecord(shmemCommand(2, 1, 1)));
    EXPECT_TRUE(channel.waitReadable(kReplyFailsafeMs));
    vm.exitStatus();
    EXPECT_FALSE(objectExists(name));
}

TEST(ShmemVm, ADeadDebuggerLetsTheVmFinish)
{
    const std::string name = uniqueName("orphan");
    SpawnedVm vm("transport=dt_shmem,address=" + name + ",server=y,suspend=y", true);
    ASSERT_GT(vm.pid, 0);
    std::string address;
    ASSERT_TRUE(vm.waitForLine("Listening for transport dt_shmem at address: ", address));

    // A debugger process that attaches, shakes hands and dies without a word.
    pid_t debugger = fork();
    if (debugger == 0) {
        ShmemChannel channel;
        std::string error;
        if (!channel.attach(name, error))
            _exit(2);
        Inbox inbox(channel);
        _exit(shakeHands(channel, inbox) ? 0 : 3);
    }
    ASSERT_GT(debugger, 0);
    int status = 0;
    ASSERT_EQ(waitpid(debugger, &status, 0), debugger);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    // The VM's reader must notice, so the agent drops the session and lets main run.
    vm.readToEnd();
    EXPECT_NE(vm.output.find("Hello from the debuggee\nBye\n"), std::string::npos) << vm.output;
    status = vm.exitStatus();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_FALSE(objectExists(name));
}

TEST(ShmemVm, AVmStillListeningLeavesNothingBehindWhenItEnds)
{
    const std::string name = uniqueName("idle");
    {
        SpawnedVm vm("transport=dt_shmem,address=" + name + ",server=y,suspend=y", true);
        ASSERT_GT(vm.pid, 0);
        std::string address;
        ASSERT_TRUE(vm.waitForLine("Listening for transport dt_shmem at address: ", address));
        EXPECT_TRUE(objectExists(name));
        kill(vm.pid, SIGTERM); // an orderly exit of the VM, no debugger ever came
        vm.exitStatus();
    }
    EXPECT_FALSE(objectExists(name));
}

// ---------------------------------------------------------------------------
// Round-trip timing, printed for the record (not asserted: the machine is shared).

constexpr int kRoundTrips = 2000;

double medianUs(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

TEST(ShmemVm, RoundTripAgainstSocket)
{
    const std::string name = uniqueName("timing");
    std::vector<double> viaWait, viaFd, viaSocket;
    {
        SpawnedVm vm("transport=dt_shmem,address=" + name + ",server=y,suspend=y", true);
        ASSERT_GT(vm.pid, 0);
        ShmemChannel channel;
        ASSERT_TRUE(startAndAttach(vm, name, channel));
        Inbox inbox(channel);
        ASSERT_TRUE(shakeHands(channel, inbox));
        std::string record;
        ASSERT_TRUE(inbox.next(record)); // VM_START
        for (int i = 0; i < 2 * kRoundTrips; ++i) {
            bool useWait = i < kRoundTrips;
            auto t0 = Clock::now();
            ASSERT_TRUE(channel.writeRecord(shmemCommand(uint32_t(i + 1), 1, 7)));
            ASSERT_TRUE(inbox.next(record, useWait));
            double us = std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
            ASSERT_EQ(record.size(), kIdSizesReply.size());
            (useWait ? viaWait : viaFd).push_back(us);
        }
        // Let the program finish: the agent listens again after the session,
        // and an orderly exit must take that name away too.
        ASSERT_TRUE(channel.writeRecord(shmemCommand(uint32_t(2 * kRoundTrips + 1), 1, 9)));
        channel.close();
        vm.readToEnd();
        vm.exitStatus();
    }
    {
        SpawnedVm vm("transport=dt_socket,address=127.0.0.1:0,server=y,suspend=y", false);
        ASSERT_GT(vm.pid, 0);
        std::string port;
        ASSERT_TRUE(vm.waitForLine("Listening for transport dt_socket at address: ", port));
        int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_GE(fd, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(uint16_t(std::stoi(port)));
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        auto readExactly = [&](char* p, size_t n) {
            while (n > 0) {
                ssize_t k = read(fd, p, n);
                if (k <= 0)
                    return false;
                p += k;
                n -= size_t(k);
            }
            return true;
        };
        char buf[64];
        ASSERT_EQ(write(fd, "JDWP-Handshake", 14), 14);
        ASSERT_TRUE(readExactly(buf, 14));
        ASSERT_TRUE(readExactly(buf, 4 + 29 - 4)); // VM_START: 11 + 18 bytes
        for (int i = 0; i < kRoundTrips; ++i) {
            std::string cmd = socketCommand(uint32_t(i + 1), 1, 7);
            auto t0 = Clock::now();
            ASSERT_EQ(write(fd, cmd.data(), cmd.size()), ssize_t(cmd.size()));
            ASSERT_TRUE(readExactly(buf, 31));
            viaSocket.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
        }
        ::close(fd);
    }
    double wait = medianUs(viaWait), fd = medianUs(viaFd), sock = medianUs(viaSocket);
    std::printf("IDSizes round trip, median of %d: shmem waitReadable %.1f us, shmem notifyFd %.1f us, "
                "dt_socket %.1f us (ratio %.2f / %.2f)\n",
                kRoundTrips, wait, fd, sock, sock > 0 ? wait / sock : 0, sock > 0 ? fd / sock : 0);
    EXPECT_FALSE(objectExists(name));
}

} // namespace
