// The session against a real OpenJDK 17 VM: launching with the socket agent,
// the opening sequence on the wire, console capture, the program's end,
// attaching to a VM the test started, and peers that misbehave.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "LiveVM.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

class LiveSession : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler = JDWPHandler::create();
        log = std::make_shared<EventLog>();
        handler->myJVM()->setEvents(log);
    }
    void TearDown() override
    {
        handler->Disconnect();
        handler.reset();
        setCurrentHandler(nullptr);
    }
    bool launch(const std::string& mainClass, const std::string& cp)
    {
        const int port = freeTcpPort();
        return handler->startVM(javaPath(), socketAgent(port) + " -cp " + cp + " " + mainClass, "", false, true, 0,
                                "127.0.0.1", std::to_string(port), true);
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<EventLog> log;
};

TEST_F(LiveSession, LaunchRunsTheOpeningSequenceCapturesTheConsoleAndEndsDead)
{
    ASSERT_TRUE(launch("TestHello", testsClassPath())) << handler->history().dump();
    ASSERT_TRUE(pumpUntil([&] { return log->lastState() == VMDead && !log->console.empty(); }, 20000))
        << handler->history().dump();
    // On the wire: handshake, IDSizes, Version, exception request, the two
    // class-prepare requests, then Resume.
    std::vector<std::string> sent;
    for (const auto& line : handler->history().lines())
        if (line.rfind("->", 0) == 0)
            sent.push_back(line.substr(line.find(' ', 3) + 1, line.find(" len") - line.find(' ', 3) - 1));
    ASSERT_GE(sent.size(), 6u) << handler->history().dump();
    const std::vector<std::string> opening{"1/7", "1/1", "15/1", "15/1", "15/1", "1/9"};
    EXPECT_TRUE(std::equal(opening.begin(), opening.end(), sent.begin())) << handler->history().dump();
    auto jvm = handler->myJVM();
    EXPECT_NE(jvm->VMName.find("OpenJDK"), std::string::npos);
    EXPECT_EQ(jvm->VMVersion.rfind("17", 0), 0u) << jvm->VMVersion;
    EXPECT_TRUE(log->sawDebug(" *** " + jvm->VMName + " " + jvm->VMVersion));
    EXPECT_NE(log->console.find("Hello from the debuggee\r\nBye\r\n"), std::string::npos) << log->console;
    EXPECT_EQ(jvm->JVMState(), VMDead);
}

TEST_F(LiveSession, APortNobodyListensOnFailsAfterFourSeconds)
{
    const int port = freeTcpPort();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", std::to_string(port), true));
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(seconds, 4.0);
    EXPECT_LE(seconds, 4.6);
    EXPECT_TRUE(log->sawDebug(" *** JDWP-Connection failed ..."));
    ASSERT_FALSE(log->boxes.empty());
    EXPECT_EQ(log->boxes.back().rfind("Debugger failed!", 0), 0u) << log->boxes.back();
    EXPECT_NE(log->boxes.back().find("Connection refused (127.0.0.1:" + std::to_string(port) + ")"), std::string::npos)
        << log->boxes.back();
    EXPECT_NE(log->boxes.back().find("|16|Korvane Debugger"), std::string::npos);
}

TEST_F(LiveSession, AttachedVMThatDiesShowsTheRemoteDisconnectBox)
{
    ListeningVM vm("TestHello", testsClassPath());
    ASSERT_GT(vm.port(), 0) << vm.process().output();
    handler->bRemoteConnection = true;
    ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", std::to_string(vm.port()), true));
    ASSERT_TRUE(pumpUntil([&] { return !handler->myJVM()->VMName.empty(); }));
    vm.process().kill();
    ASSERT_TRUE(pumpUntil([&] { return handler->myJVM()->JVMState() == VMDead; }));
    ASSERT_FALSE(log->boxes.empty());
    EXPECT_EQ(log->boxes.back(), "Remote Java Virtual Machine disconnected!|64|Debugger");
}

// A loopback peer that accepts one connection and runs `script` on it.
class FakePeer {
public:
    explicit FakePeer(std::function<void(int)> script)
    {
        listen_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(addr);
        ::bind(listen_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
        ::listen(listen_, 1);
        ::getsockname(listen_, reinterpret_cast<sockaddr*>(&addr), &len);
        port_ = ntohs(addr.sin_port);
        thread_ = std::thread([this, script] {
            int fd = ::accept(listen_, nullptr, nullptr);
            if (fd >= 0) {
                script(fd);
                ::close(fd);
            }
        });
    }
    ~FakePeer()
    {
        ::shutdown(listen_, SHUT_RDWR);
        ::close(listen_);
        thread_.join();
    }
    int port() const { return port_; }

private:
    int listen_ = -1;
    int port_ = 0;
    std::thread thread_;
};

std::string readExactly(int fd, size_t n)
{
    std::string out;
    char buf[256];
    while (out.size() < n) {
        ssize_t r = ::read(fd, buf, std::min(sizeof(buf), n - out.size()));
        if (r <= 0)
            break;
        out.append(buf, static_cast<size_t>(r));
    }
    return out;
}

TEST_F(LiveSession, MisbehavingPeersEndTheSessionWithoutHanging)
{
    struct Case {
        const char* name;
        std::function<void(int)> script;
    };
    const std::vector<Case> cases{
        {"garbage instead of the handshake",
         [](int fd) {
             readExactly(fd, 14);
             const char garbage[] = "HTTP/1.1 400 Bad Request\r\n\r\n";
             (void)!::write(fd, garbage, sizeof(garbage) - 1);
             readExactly(fd, 1 << 20);
         }},
        {"closes in the middle of a packet",
         [](int fd) {
             readExactly(fd, 14);
             (void)!::write(fd, "JDWP-Handshake", 14);
             readExactly(fd, 11); // the IDSizes command
             (void)!::write(fd, "\x00\x00\x00\x1f\x00\x00\x00\x01\x80\x00", 10);
         }},
        {"never answers the handshake", [](int fd) { readExactly(fd, 1 << 20); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FakePeer peer(c.script);
        log->states.clear();
        ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", std::to_string(peer.port()), true));
        EXPECT_TRUE(pumpUntil([&] { return handler->myJVM()->JVMState() == VMDead; }, 6000))
            << handler->history().dump();
        EXPECT_FALSE(handler->isConnected());
        handler->Disconnect();
    }
}

} // namespace
