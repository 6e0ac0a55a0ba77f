// Tests of the Linux transport against real processes and loopback sockets
// (no VM): command-line splitting, launching with the console captured,
// exit and kill without zombies, connecting (success, refusal, retry, IPv6,
// names), receiving, sending more than the socket buffer to a slow reader,
// drops, and the processevent idle. Everything waits by pumping until an
// observable condition holds; nothing sleeps.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "LiveVM.h"
#include "jdwpkrvdbg/platform/LinuxTransport.h"
#include "jdwpkrvdbg/platform/MessagePump.h"

namespace jdwpkrvdbg {
namespace {

constexpr uint32_t kPatienceMs = 20000; // generous bound; conditions end waits

struct Recorder : JDWPConEvents {
    std::vector<std::string> log; // console text counts once per run of "pipe"
    std::string pipeText, errorText, received;
    std::function<void(const std::string&)> onReceive;

    int count(const std::string& what) const { return int(std::count(log.begin(), log.end(), what)); }
    void connected() override { log.push_back("connected"); }
    void disconnected() override { log.push_back("disconnected"); }
    void terminated() override { log.push_back("terminated"); }
    void processevent() override { log.push_back("processevent"); }
    void pipestream(const std::string& text) override { pipe(pipeText, text); }
    void pipestreamError(const std::string& text) override { pipe(errorText, text); }
    void pipe(std::string& into, const std::string& text)
    {
        into += text;
        if (log.empty() || log.back() != "pipe")
            log.push_back("pipe");
    }
    void receive(const std::string& data) override
    {
        received += data;
        log.push_back("receive");
        if (onReceive)
            onReceive(data);
    }
};

MessagePump& pump()
{
    return MessagePump::instance();
}

bool pumpFor(const std::function<bool()>& done)
{
    return pump().pumpUntil(done, kPatienceMs);
}

bool reaped(pid_t pid)
{
    int status;
    return ::waitpid(pid, &status, WNOHANG) == -1 && errno == ECHILD;
}

// A listening TCP socket on a numeric loopback address and a free port.
struct Listener {
    int fd = -1, port = 0;
    explicit Listener(const char* address = "127.0.0.1", int receiveBuffer = 0)
    {
        addrinfo hints{};
        hints.ai_flags = AI_NUMERICHOST;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* ai = nullptr;
        if (::getaddrinfo(address, "0", &hints, &ai) != 0)
            return;
        fd = ::socket(ai->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd >= 0 && receiveBuffer > 0) // inherited by accepted sockets
            ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        sockaddr_in6 bound{}; // sin_port and sin6_port share their place
        socklen_t len = sizeof bound;
        if (fd >= 0 && ::bind(fd, ai->ai_addr, ai->ai_addrlen) == 0 && ::listen(fd, 4) == 0 &&
            ::getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &len) == 0)
            port = ntohs(bound.sin6_port);
        ::freeaddrinfo(ai);
    }
    ~Listener() { ::close(fd); }
    bool ok() const { return port > 0; }
    int acceptPeer() { return ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC); }
};

class TransportTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        baseline_ = pump().sourceCount();
        transport_.setEvents(&events_);
    }
    void TearDown() override
    {
        transport_.KillProcess();
        transport_.CloseTransport();
        transport_.EnableProcessEvent(false);
        // Let a captured pipe reach end of file so its watch goes away.
        pumpFor([&] { return pump().sourceCount() == baseline_; });
        EXPECT_EQ(pump().sourceCount(), baseline_);
    }

    size_t baseline_ = 0;
    Recorder events_;
    LinuxTransport transport_;
};

TEST(CommandLineTest, SplitsLikeAPosixShell)
{
    struct Case {
        const char* line;
        std::vector<std::string> words; // none when the line is refused as unterminated
        bool ok = true;
    };
    const Case cases[] = {
        {" \t\n", {}},
        {"  a  b\t c\n", {"a", "b", "c"}},
        {"'a b' c", {"a b", "c"}},
        {R"("a\"b")", {"a\"b"}},
        {R"("a\nb")", {R"(a\nb)"}},
        {R"("\$HOME \` \\")", {"$HOME ` \\"}},
        {R"(a\ b)", {"a b"}},
        {R"('a\b')", {R"(a\b)"}},
        {R"('it'\''s')", {"it's"}},
        {R"("" '')", {"", ""}},
        {"\"a\\\nb\"", {"ab"}},
        {"trailing\\", {"trailing\\"}},
        {"$HOME * ~ `x`", {"$HOME", "*", "~", "`x`"}},
        {"'open", {}, false},
        {"a 'b\"", {}, false},
        {"\"x\\\"", {}, false},
    };
    for (const Case& c : cases) {
        std::vector<std::string> words{"stale"};
        std::string error = "stale";
        EXPECT_EQ(splitCommandLine(c.line, words, error), c.ok) << c.line;
        EXPECT_EQ(words, c.words) << c.line;
        EXPECT_TRUE(c.ok ? error.empty() : error.find("unterminated") != std::string::npos) << c.line << ": " << error;
    }
}

TEST_F(TransportTest, RunsProcessesWithConsoleCapturedOrDiscarded)
{
    const char* old = std::getenv("LD_LIBRARY_PATH");
    const std::string libs = std::string("/opt/shmem lib") + (old && *old ? std::string(":") + old : "");
    transport_.setLibraryPath("/opt/shmem lib");
    const struct {
        const char* program;
        const char* args;
        bool pipe;
        std::string text, errorText; // stdout, stderr
        int exitCode;
    } cases[] = {
        {"/bin/sh", R"(-c 'printf "one\ntwo\n"; printf err >&2; exit 3')", true, "one\ntwo\n", "err", 3},
        // Arguments are split like a shell would, and PATH is searched.
        {"sh", R"(-c 'printf "[%s]" "$0" "$@"' zero "a b" 'c"d' e\ f '')", true, "[zero][a b][c\"d][e f][]", "", 0},
        // Stdin is /dev/null and the library path goes in front.
        {"/bin/sh", R"(-c 'read x; echo "read=$?"; printf %s "$LD_LIBRARY_PATH"')", true, "read=1\n" + libs, "", 0},
        {"/bin/sh", "-c 'echo hidden; echo hidden >&2'", false, "", "", 0},
        // A process group of its own: the terminal's Ctrl-C is not its business.
        {"/bin/sh", R"x(-c 'test "$(cut -d" " -f5 /proc/$$/stat)" = $$ && printf own-group')x", true, "own-group", "",
         0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        events_ = Recorder{};
        ASSERT_TRUE(transport_.StartProcess(c.program, c.args, false, c.pipe));
        const pid_t pid = transport_.ProcessID();
        ASSERT_GT(pid, 0);
        EXPECT_GT(transport_.ProcessHandle(), 0);
        // The exit is seen without pumping; its events come from the pump only.
        siginfo_t info{};
        ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
        EXPECT_FALSE(transport_.ProcessRunning());
        EXPECT_TRUE(events_.log.empty());
        ASSERT_TRUE(pumpFor([&] { return events_.count("terminated") > 0; }));
        EXPECT_EQ(events_.pipeText, c.text);
        EXPECT_EQ(events_.errorText, c.errorText);
        // The console text all arrives before the end is reported.
        EXPECT_EQ(events_.log,
                  (c.pipe ? std::vector<std::string>{"pipe", "terminated"} : std::vector<std::string>{"terminated"}));
        EXPECT_EQ(transport_.ProcessID(), 0);
        EXPECT_TRUE(reaped(pid));
        ASSERT_TRUE(WIFEXITED(transport_.lastExitStatus()));
        EXPECT_EQ(WEXITSTATUS(transport_.lastExitStatus()), c.exitCode);
    }
}

TEST_F(TransportTest, KillAndSecondStartReapWithoutTerminatedEvent)
{
    ASSERT_TRUE(transport_.StartProcess("sleep", "30", false, true));
    const pid_t first = transport_.ProcessID();
    EXPECT_TRUE(transport_.ProcessRunning());
    transport_.KillProcess();
    EXPECT_TRUE(reaped(first));
    EXPECT_FALSE(transport_.ProcessRunning());
    EXPECT_EQ(transport_.ProcessID(), 0);
    transport_.KillProcess(); // nothing left to kill
    ASSERT_TRUE(WIFSIGNALED(transport_.lastExitStatus()));
    EXPECT_EQ(WTERMSIG(transport_.lastExitStatus()), SIGKILL);

    // A second start ends the first process the same way.
    ASSERT_TRUE(transport_.StartProcess("sleep", "30", false, false));
    const pid_t second = transport_.ProcessID();
    ASSERT_TRUE(transport_.StartProcess("/bin/sh", "-c 'echo third'", false, true));
    EXPECT_TRUE(reaped(second));
    ASSERT_TRUE(pumpFor([&] { return events_.count("terminated") > 0; }));
    EXPECT_EQ(events_.pipeText, "third\n");
    EXPECT_EQ(events_.count("terminated"), 1) << "only the process that ended by itself";
}

TEST_F(TransportTest, ConnectReceiveAndSend)
{
    Listener listener("127.0.0.1", 32 * 1024);
    ASSERT_TRUE(listener.ok());
    transport_.ConnectSocket("127.0.0.1", listener.port);
    EXPECT_FALSE(transport_.TransportConnected());
    EXPECT_TRUE(events_.log.empty()); // raised from the pump, not from the call
    EXPECT_FALSE(transport_.SendData("early"));
    ASSERT_TRUE(pumpFor([&] { return events_.count("connected") > 0; }));
    EXPECT_TRUE(transport_.TransportConnected());
    int peer = listener.acceptPeer();
    ASSERT_GE(peer, 0);

    // Bytes of every value pass unchanged both ways; a large block arrives
    // whole and in order over many reads.
    std::string all(300 * 1024, '\0');
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<char>(i % 256 ^ i / 1024);
    size_t sent = 0;
    ASSERT_TRUE(pumpFor([&] {
        if (sent < all.size()) {
            ssize_t n = ::send(peer, all.data() + sent, all.size() - sent, MSG_DONTWAIT);
            if (n > 0)
                sent += static_cast<size_t>(n);
        }
        return events_.received.size() >= all.size();
    }));
    EXPECT_TRUE(events_.received == all);

    // Far more than the socket buffers hold, to a peer that reads at most
    // 16 KiB per pump pass: the send returns at once and the rest is queued.
    std::string big(6 * 1024 * 1024, '\0');
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>((i * 131) ^ (i >> 9));
    ASSERT_TRUE(transport_.SendData(big));
    EXPECT_GT(transport_.pendingSendBytes(), 0u);
    ASSERT_TRUE(transport_.SendData("tail"));
    std::string got;
    ASSERT_TRUE(pumpFor([&] {
        char buf[16384];
        ssize_t n = ::recv(peer, buf, sizeof buf, MSG_DONTWAIT);
        if (n > 0)
            got.append(buf, static_cast<size_t>(n));
        return got.size() >= big.size() + 4;
    }));
    EXPECT_TRUE(got == big + "tail");
    EXPECT_EQ(transport_.pendingSendBytes(), 0u);
    ::close(peer);
}

TEST_F(TransportTest, PeerCloseAfterDataGivesOneDisconnectOrNoneAfterAnExplicitClose)
{
    // The peer sends a byte and closes; the receive handler either waits
    // like a synchronous call does (the nested pass sees the end of file and
    // reports the drop, the outer one must not again) or closes the
    // transport itself (then nothing is reported).
    const struct {
        const char* name;
        std::function<void()> handler;
        std::vector<std::string> log;
    } cases[] = {
        {"handler pumps", [&] { pump().pumpOnce(0); }, {"connected", "receive", "disconnected"}},
        {"handler closes", [&] { transport_.CloseTransport(); }, {"connected", "receive"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        events_ = Recorder{};
        Listener listener;
        ASSERT_TRUE(listener.ok());
        transport_.ConnectSocket("127.0.0.1", listener.port);
        ASSERT_TRUE(pumpFor([&] { return events_.count("connected") > 0; }));
        int peer = listener.acceptPeer();
        ASSERT_GE(peer, 0);
        events_.onReceive = [&](const std::string&) { c.handler(); };
        ASSERT_EQ(::send(peer, "a", 1, 0), 1);
        ::close(peer);
        ASSERT_TRUE(pumpFor([&] { return !transport_.TransportConnected(); }));
        for (int i = 0; i < 3; ++i)
            pump().pumpOnce(0);
        EXPECT_EQ(events_.received, "a");
        EXPECT_EQ(events_.log, c.log);
        EXPECT_FALSE(transport_.SendData("late"));
        EXPECT_EQ(pump().sourceCount(), baseline_);
    }
}

TEST_F(TransportTest, FailedStartsAndConnectsAreReportedThenOneSocketPerAttempt)
{
    const int port = testing::freeTcpPort(); // nobody listens there
    const struct {
        std::function<void()> attempt;
        std::string status;
    } cases[] = {
        {[&] { EXPECT_FALSE(transport_.StartProcess("/nonexistent/java", "-version", false, true)); },
         "/nonexistent/java: No such file or directory"},
        {[&] { EXPECT_FALSE(transport_.StartProcess("/bin/sh", "-c 'unclosed", false, true)); },
         "unterminated single quote"},
        {[&] { EXPECT_FALSE(transport_.StartProcess("", "", false, false)); }, ""},
        {[&] { transport_.ConnectSocket("127.0.0.1", port); },
         "Connection refused (127.0.0.1:" + std::to_string(port) + ")"},
        {[&] { transport_.ConnectSocket("127.0.0.1", 0); }, "Invalid port 0 (127.0.0.1:0)"},
        {[&] { transport_.ConnectSocket("127.0.0.1", 70000); }, "Invalid port 70000"},
        {[&] { transport_.ConnectShared("bad/name"); }, "\"bad/name\" refused"},
        {[&] { transport_.ConnectShared("krvdbg-nobody-listens-" + std::to_string(::getpid())); },
         "no VM is listening"},
    };
    for (const auto& c : cases) {
        c.attempt();
        // The refusal is reported from the pump, the others at once.
        EXPECT_TRUE(pumpFor([&] { return transport_.StatusText().find(c.status) != std::string::npos; }))
            << c.status << " / " << transport_.StatusText();
        EXPECT_FALSE(transport_.TransportConnected());
        EXPECT_FALSE(transport_.ProcessRunning());
        EXPECT_EQ(transport_.ProcessID(), 0);
        EXPECT_EQ(pump().sourceCount(), baseline_);
    }
    EXPECT_TRUE(events_.log.empty());

    // A fresh attempt works, by address or name; calls while pending or
    // connected open nothing. "localhost" may resolve to ::1 first, where
    // nobody listens: the next address is tried before giving up.
    const std::pair<const char*, const char*> hosts[] = {
        {"127.0.0.1", "127.0.0.1"}, {"127.0.0.1", "localhost"}, {"::1", "::1"}, {"::1", "[::1]"}};
    for (const auto& [address, host] : hosts) {
        SCOPED_TRACE(host);
        Listener listener(address);
        if (!listener.ok())
            continue; // no IPv6 loopback here
        events_ = Recorder{};
        transport_.ConnectSocket(host, listener.port);
        transport_.ConnectSocket(host, listener.port);
        ASSERT_TRUE(pumpFor([&] { return events_.count("connected") > 0; }));
        transport_.ConnectSocket(host, listener.port);
        pump().pumpOnce(0);
        int peer = listener.acceptPeer();
        ASSERT_GE(peer, 0);
        pollfd waiting{listener.fd, POLLIN, 0};
        EXPECT_EQ(::poll(&waiting, 1, 0), 0) << "a second connection";
        EXPECT_EQ(events_.log, std::vector<std::string>{"connected"});
        ::close(peer);
        transport_.CloseTransport();
    }
}

TEST_F(TransportTest, ProcessEventIdleIsIdempotent)
{
    transport_.EnableProcessEvent(true);
    transport_.EnableProcessEvent(true);
    EXPECT_EQ(pump().sourceCount(), baseline_ + 1);
    pump().pumpOnce(0);
    EXPECT_EQ(events_.count("processevent"), 1);
    transport_.EnableProcessEvent(false);
    transport_.EnableProcessEvent(false);
    EXPECT_EQ(pump().sourceCount(), baseline_);
}

// The kit's only way to send a signal refuses what would reach more than
// one process or none: signal 0 checks without harming anyone, so a faulty
// guard fails here instead of stopping ctest's process group.
TEST(TestKit, SignalsReachOneLiveChildOnly)
{
    testing::ChildProcess gone({"true"});
    const pid_t gonePid = gone.pid();
    ASSERT_EQ(gone.wait(kPatienceMs), 0); // reaped: the pid names no process now
    const struct {
        const char* name;
        pid_t pid;
    } refused[] = {{"pid 0 (our process group)", 0},
                   {"pid -1 (every process)", -1},
                   {"a negative group", -gonePid},
                   {"this process", ::getpid()},
                   {"a dead child", gonePid}};
    for (const auto& row : refused)
        EXPECT_FALSE(testing::signalProcess(row.pid, 0)) << row.name;
    testing::ChildProcess live({"sleep", "60"});
    EXPECT_TRUE(live.signal(SIGKILL));
    EXPECT_EQ(live.wait(kPatienceMs), 128 + SIGKILL);
}

// This binary, started again with KRV_TESTKIT_STARTER=pipe or =terminal, is
// the starter of the test below: before any test runs it starts a child
// through the kit that way, prints the child's pid and waits to be killed.
// (A fork of the test process itself could not start children: the
// library's launcher thread does not survive a fork.)
const bool kActsAsStarter = [] {
    const char* how = std::getenv("KRV_TESTKIT_STARTER");
    if (!how)
        return false;
    testing::ChildProcess child({"sleep", "60"}, {}, std::string(how) == "terminal");
    std::printf("started %d\n", int(child.pid()));
    std::fflush(stdout);
    ::pause();
    ::_exit(0);
}();

// A child started through the kit ends with the process that started it,
// so a test killed by ctest's time-out leaves no VM running.
TEST(TestKit, ChildrenEndWithTheirStarter)
{
    for (const std::string how : {"pipe", "terminal"}) {
        SCOPED_TRACE(how);
        testing::ChildProcess starter({"/proc/self/exe", "--gtest_list_tests"}, {"KRV_TESTKIT_STARTER=" + how});
        const std::string line = starter.waitForLine("started ", kPatienceMs);
        const pid_t grandchild = line.empty() ? 0 : std::atoi(line.c_str() + 8);
        EXPECT_TRUE(grandchild > 0 && testing::processRunning(grandchild)) << starter.output();
        ASSERT_TRUE(starter.signal(SIGKILL));
        starter.wait(kPatienceMs);
        if (grandchild > 0) {
            EXPECT_TRUE(pumpFor([&] { return !testing::processRunning(grandchild); })) << grandchild;
        }
    }
}

} // namespace
} // namespace jdwpkrvdbg
