// Tests of the Linux transport against real processes and loopback sockets
// (no VM): command-line splitting, launching with the console captured,
// exit and kill without zombies, connecting (success, refusal, retry, IPv6,
// names), receiving, sending more than the socket buffer to a slow reader,
// drops, and the processevent idle. Everything waits by pumping until an
// observable condition holds; nothing sleeps.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "jdwpkrvdbg/platform/LinuxTransport.h"
#include "jdwpkrvdbg/platform/MessagePump.h"

namespace jdwpkrvdbg {
namespace {

constexpr uint32_t kPatienceMs = 20000; // generous bound; conditions end waits

struct Recorder : JDWPConEvents {
    std::vector<std::string> log;
    std::string pipeText;
    std::string received;
    int connectedCount = 0;
    int disconnectedCount = 0;
    int terminatedCount = 0;
    int processEvents = 0;
    std::function<void(const std::string&)> onReceive;

    void connected() override { ++connectedCount, log.push_back("connected"); }
    void disconnected() override { ++disconnectedCount, log.push_back("disconnected"); }
    void terminated() override { ++terminatedCount, log.push_back("terminated"); }
    void processevent() override { ++processEvents; }
    void pipestream(const std::string& text) override
    {
        pipeText += text;
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

// A listening TCP socket on a loopback address and a free port.
struct Listener {
    int fd = -1;
    int port = 0;
    explicit Listener(int family = AF_INET, int receiveBuffer = 0)
    {
        fd = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return;
        if (receiveBuffer > 0) // inherited by accepted sockets
            ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        sockaddr_storage ss{};
        socklen_t len;
        if (family == AF_INET) {
            auto* a = reinterpret_cast<sockaddr_in*>(&ss);
            a->sin_family = AF_INET;
            a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            len = sizeof *a;
        } else {
            auto* a = reinterpret_cast<sockaddr_in6*>(&ss);
            a->sin6_family = AF_INET6;
            a->sin6_addr = in6addr_loopback;
            len = sizeof *a;
        }
        if (::bind(fd, reinterpret_cast<sockaddr*>(&ss), len) != 0 || ::listen(fd, 4) != 0) {
            ::close(fd);
            fd = -1;
            return;
        }
        len = sizeof ss;
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len);
        port = family == AF_INET ? ntohs(reinterpret_cast<sockaddr_in*>(&ss)->sin_port)
                                 : ntohs(reinterpret_cast<sockaddr_in6*>(&ss)->sin6_port);
    }
    ~Listener()
    {
        if (fd >= 0)
            ::close(fd);
    }
    bool ok() const { return fd >= 0; }
    int acceptPeer() { return ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC); }
    // -1 at once when no connection is waiting.
    int acceptIfWaiting()
    {
        pollfd p{fd, POLLIN, 0};
        return ::poll(&p, 1, 0) == 1 ? acceptPeer() : -1;
    }
};

// A port on 127.0.0.1 that nobody listens on.
int unusedPort()
{
    Listener l;
    int port = l.port;
    return port; // closed when l goes out of scope, before anyone connects
}

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

    // Connects the transport to `listener` and returns the accepted peer.
    int connectTo(Listener& listener, const std::string& host = "127.0.0.1")
    {
        transport_.ConnectSocket(host, listener.port);
        if (!pumpFor([&] { return events_.connectedCount > 0; }))
            return -1;
        return listener.acceptPeer();
    }

    size_t baseline_ = 0;
    Recorder events_;
    LinuxTransport transport_;
};

TEST(CommandLineTest, SplitsLikeAPosixShell)
{
    struct Case {
        const char* line;
        std::vector<std::string> words;
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
    };
    for (const Case& c : cases) {
        std::vector<std::string> words{"stale"};
        std::string error = "stale";
        EXPECT_TRUE(splitCommandLine(c.line, words, error)) << c.line;
        EXPECT_EQ(words, c.words) << c.line;
        EXPECT_EQ(error, "") << c.line;
    }
    const char* const bad[] = {"'open", "a 'b\"", "\"x\\\""};
    for (const char* line : bad) {
        std::vector<std::string> words{"stale"};
        std::string error;
        EXPECT_FALSE(splitCommandLine(line, words, error)) << line;
        EXPECT_TRUE(words.empty()) << line;
        EXPECT_NE(error.find("unterminated"), std::string::npos) << line;
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
        std::string text;
        int exitCode;
    } cases[] = {
        {"/bin/sh", R"(-c 'printf "one\ntwo\n"; printf err >&2; exit 3')", true, "one\ntwo\nerr", 3},
        // Arguments are split like a shell would, and PATH is searched.
        {"sh", R"(-c 'printf "[%s]" "$0" "$@"' zero "a b" 'c"d' e\ f '')", true, "[zero][a b][c\"d][e f][]", 0},
        // Stdin is /dev/null and the library path goes in front.
        {"/bin/sh", R"(-c 'read x; echo "read=$?"; printf %s "$LD_LIBRARY_PATH"')", true, "read=1\n" + libs, 0},
        {"/bin/sh", "-c 'echo hidden; echo hidden >&2'", false, "", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        events_ = Recorder{};
        ASSERT_TRUE(transport_.StartProcess(c.program, c.args, false, c.pipe));
        const pid_t pid = transport_.ProcessID();
        ASSERT_GT(pid, 0);
        EXPECT_GT(transport_.ProcessHandle(), 0);
        EXPECT_TRUE(events_.log.empty()); // events come from the pump only
        ASSERT_TRUE(pumpFor([&] { return events_.terminatedCount > 0; }));
        EXPECT_EQ(events_.pipeText, c.text);
        // The console text all arrives before the end is reported.
        const std::vector<std::string> order = c.pipe ? std::vector<std::string>{"pipe", "terminated"}
                                                      : std::vector<std::string>{"terminated"};
        EXPECT_EQ(events_.log, order);
        EXPECT_FALSE(transport_.ProcessRunning());
        EXPECT_EQ(transport_.ProcessID(), 0);
        EXPECT_TRUE(reaped(pid));
        ASSERT_TRUE(WIFEXITED(transport_.lastExitStatus()));
        EXPECT_EQ(WEXITSTATUS(transport_.lastExitStatus()), c.exitCode);
    }
}

TEST_F(TransportTest, ExitSeenBeforePumping)
{
    ASSERT_TRUE(transport_.StartProcess("/bin/sh", "-c 'exit 0'", false, false));
    const pid_t pid = transport_.ProcessID();
    siginfo_t info{};
    // Wait for the exit without reaping, and without pumping.
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    EXPECT_FALSE(transport_.ProcessRunning());
    EXPECT_EQ(events_.terminatedCount, 0);
    ASSERT_TRUE(pumpFor([&] { return events_.terminatedCount > 0; }));
    EXPECT_TRUE(reaped(pid));
}

TEST_F(TransportTest, StartFailuresAreReported)
{
    EXPECT_FALSE(transport_.StartProcess("/nonexistent/java", "-version", false, true));
    EXPECT_NE(transport_.StatusText().find("/nonexistent/java"), std::string::npos);
    EXPECT_NE(transport_.StatusText().find("No such file or directory"), std::string::npos);
    EXPECT_FALSE(transport_.StartProcess("/bin/sh", "-c 'unclosed", false, true));
    EXPECT_NE(transport_.StatusText().find("unterminated single quote"), std::string::npos);
    EXPECT_FALSE(transport_.StartProcess("", "", false, false));
    EXPECT_FALSE(transport_.ProcessRunning());
    EXPECT_EQ(transport_.ProcessID(), 0);
    EXPECT_EQ(pump().sourceCount(), baseline_);
}

TEST_F(TransportTest, KillAndSecondStartReapWithoutTerminatedEvent)
{
    ASSERT_TRUE(transport_.StartProcess("sleep", "30", false, true));
    const pid_t first = transport_.ProcessID();
    ASSERT_GT(first, 0);
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
    ASSERT_TRUE(pumpFor([&] { return events_.terminatedCount > 0; }));
    EXPECT_EQ(events_.pipeText, "third\n");
    EXPECT_EQ(events_.terminatedCount, 1) << "only the process that ended by itself";
}

TEST_F(TransportTest, ConnectReceiveSendAndPeerClose)
{
    Listener listener;
    ASSERT_TRUE(listener.ok());
    transport_.ConnectSocket("127.0.0.1", listener.port);
    EXPECT_FALSE(transport_.TransportConnected());
    EXPECT_EQ(events_.connectedCount, 0); // raised from the pump, not from the call
    EXPECT_FALSE(transport_.SendData("early"));
    ASSERT_TRUE(pumpFor([&] { return events_.connectedCount > 0; }));
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

    ASSERT_TRUE(transport_.SendData("JDWP-Handshake" + all));
    all.resize(256);
    std::string echoed(14 + 256, '\0');
    ASSERT_EQ(::recv(peer, echoed.data(), echoed.size(), MSG_WAITALL), static_cast<ssize_t>(echoed.size()));
    EXPECT_EQ(echoed, "JDWP-Handshake" + all);

    ::close(peer);
    ASSERT_TRUE(pumpFor([&] { return events_.disconnectedCount > 0; }));
    for (int i = 0; i < 3; ++i)
        pump().pumpOnce(0);
    EXPECT_EQ(events_.disconnectedCount, 1);
    EXPECT_FALSE(transport_.TransportConnected());
    EXPECT_FALSE(transport_.SendData("late"));
}

TEST_F(TransportTest, LargeSendToSlowReaderArrivesWhole)
{
    Listener listener(AF_INET, 32 * 1024);
    ASSERT_TRUE(listener.ok());
    int peer = connectTo(listener);
    ASSERT_GE(peer, 0);

    std::string big(6 * 1024 * 1024, '\0');
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>((i * 131) ^ (i >> 9));
    ASSERT_TRUE(transport_.SendData(big)); // returns at once; the rest is queued
    EXPECT_GT(transport_.pendingSendBytes(), 0u);
    ASSERT_TRUE(transport_.SendData("tail"));
    EXPECT_GT(transport_.pendingSendBytes(), 4u);

    std::string got;
    const size_t total = big.size() + 4;
    // The peer reads at most 16 KiB per pump pass.
    ASSERT_TRUE(pumpFor([&] {
        char buf[16384];
        ssize_t n = ::recv(peer, buf, sizeof buf, MSG_DONTWAIT);
        if (n > 0)
            got.append(buf, static_cast<size_t>(n));
        return got.size() >= total;
    }));
    EXPECT_EQ(got.size(), total);
    EXPECT_TRUE(got.compare(0, big.size(), big) == 0);
    EXPECT_EQ(got.substr(big.size()), "tail");
    EXPECT_EQ(transport_.pendingSendBytes(), 0u);
    ::close(peer);
}

TEST_F(TransportTest, DataBeforeCloseThenOneDisconnectOrNoneAfterAnExplicitClose)
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
        int peer = connectTo(listener);
        ASSERT_GE(peer, 0);
        events_.onReceive = [&](const std::string&) { c.handler(); };
        ASSERT_EQ(::send(peer, "a", 1, 0), 1);
        ::close(peer);
        ASSERT_TRUE(pumpFor([&] { return !transport_.TransportConnected(); }));
        for (int i = 0; i < 3; ++i)
            pump().pumpOnce(0);
        EXPECT_EQ(events_.received, "a");
        EXPECT_EQ(events_.log, c.log);
        EXPECT_EQ(pump().sourceCount(), baseline_);
    }
}

TEST_F(TransportTest, RefusedThenOneSocketPerAttempt)
{
    const int port = unusedPort();
    transport_.ConnectSocket("127.0.0.1", port);
    ASSERT_TRUE(pumpFor([&] { return !transport_.StatusText().empty(); }));
    EXPECT_EQ(events_.connectedCount, 0);
    EXPECT_FALSE(transport_.TransportConnected());
    EXPECT_EQ(transport_.StatusText(), "Connection refused (127.0.0.1:" + std::to_string(port) + ")");

    // A fresh attempt works; calls while pending or connected open nothing.
    Listener listener;
    ASSERT_TRUE(listener.ok());
    transport_.ConnectSocket("127.0.0.1", listener.port);
    transport_.ConnectSocket("127.0.0.1", listener.port);
    ASSERT_TRUE(pumpFor([&] { return events_.connectedCount > 0; }));
    transport_.ConnectSocket("127.0.0.1", listener.port);
    pump().pumpOnce(0);
    int peer = listener.acceptPeer();
    ASSERT_GE(peer, 0);
    EXPECT_LT(listener.acceptIfWaiting(), 0);
    EXPECT_EQ(events_.connectedCount, 1);
    ::close(peer);
}

TEST_F(TransportTest, NamesAndIpv6)
{
    Listener v4;
    ASSERT_TRUE(v4.ok());
    // "localhost" may resolve to ::1 first, where nobody listens: the next
    // address is tried before giving up.
    int peer = connectTo(v4, "localhost");
    ASSERT_GE(peer, 0);
    ::close(peer);
    transport_.CloseTransport();

    Listener v6(AF_INET6);
    if (!v6.ok())
        GTEST_SKIP() << "no IPv6 loopback here";
    for (const char* host : {"::1", "[::1]"}) {
        events_.connectedCount = 0;
        peer = connectTo(v6, host);
        ASSERT_GE(peer, 0) << host;
        ::close(peer);
        transport_.CloseTransport();
    }
}

TEST_F(TransportTest, BadPortAndSharedMemoryAreReported)
{
    transport_.ConnectSocket("127.0.0.1", 0);
    EXPECT_EQ(transport_.StatusText(), "Invalid port 0 (127.0.0.1:0)");
    transport_.ConnectSocket("127.0.0.1", 70000);
    EXPECT_NE(transport_.StatusText().find("Invalid port 70000"), std::string::npos);
    transport_.ConnectShared("bad/name");
    EXPECT_NE(transport_.StatusText().find("\"bad/name\" refused"), std::string::npos) << transport_.StatusText();
    transport_.ConnectShared("krvdbg-nobody-listens-" + std::to_string(::getpid()));
    EXPECT_FALSE(transport_.StatusText().empty());
    EXPECT_FALSE(transport_.TransportConnected());
    EXPECT_EQ(pump().sourceCount(), baseline_);
}

TEST_F(TransportTest, ProcessEventIdleIsIdempotent)
{
    transport_.EnableProcessEvent(true);
    transport_.EnableProcessEvent(true);
    EXPECT_EQ(pump().sourceCount(), baseline_ + 1);
    pump().pumpOnce(0);
    pump().pumpOnce(0);
    EXPECT_EQ(events_.processEvents, 2);
    transport_.EnableProcessEvent(false);
    transport_.EnableProcessEvent(false);
    pump().pumpOnce(0);
    EXPECT_EQ(events_.processEvents, 2);
    EXPECT_EQ(pump().sourceCount(), baseline_);
}

} // namespace
} // namespace jdwpkrvdbg
