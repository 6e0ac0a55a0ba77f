// The session against a real OpenJDK 17 VM: launching with the socket agent,
// the opening sequence on the wire, console capture, the program's end, a
// port nobody listens on, a bad shared memory name. Attached VMs that die
// are in sessions_vm_test. Peers that break the wire are in faults_peer_test; sessions
// over shared memory and VMs killed mid-request in faults_vm_test.
#include <algorithm>

#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

using LiveSession = LiveSessionTest;

TEST_F(LiveSession, LaunchRunsTheOpeningSequenceCapturesTheConsoleAndEndsDead)
{
    ASSERT_TRUE(launch("TestHello")) << dump();
    ASSERT_TRUE(pumpUntil([&] { return log->lastState() == VMDead && !log->console.empty(); }, 20000)) << dump();
    // On the wire: handshake, IDSizes, Version, exception request, the two
    // class-prepare requests, then Resume.
    std::vector<std::string> sent;
    for (const auto& line : handler->history().lines())
        if (line.rfind("->", 0) == 0)
            sent.push_back(line.substr(line.find(' ', 3) + 1, line.find(" len") - line.find(' ', 3) - 1));
    ASSERT_GE(sent.size(), 6u) << dump();
    const std::vector<std::string> opening{"1/7", "1/1", "15/1", "15/1", "15/1", "1/9"};
    EXPECT_TRUE(std::equal(opening.begin(), opening.end(), sent.begin())) << dump();
    EXPECT_NE(jvm->VMName.find("OpenJDK"), std::string::npos);
    EXPECT_EQ(jvm->VMVersion.rfind("17", 0), 0u) << jvm->VMVersion;
    EXPECT_TRUE(log->sawDebug(" *** " + jvm->VMName + " " + jvm->VMVersion));
    EXPECT_NE(log->console.find("Hello from the debuggee\r\nBye\r\n"), std::string::npos) << log->console;
}

TEST_F(LiveSession, APortNobodyListensOnFailsAfterFourSecondsOfTheClock)
{
    // The clock moves 20 ms per pump pass, so the 4 s pass without waiting.
    const int idle = MessagePump::instance().addIdle([this] { clock.advance(20); });
    const int port = freeTcpPort();
    const uint32_t start = GetTickCount();
    EXPECT_FALSE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", std::to_string(port), true));
    const uint32_t waited = GetTickCount() - start;
    MessagePump::instance().removeIdle(idle);
    EXPECT_GE(waited, 4000u);
    EXPECT_LE(waited, 4600u);
    EXPECT_TRUE(log->sawDebug(" *** JDWP-Connection failed ..."));
    ASSERT_FALSE(log->boxes.empty());
    EXPECT_EQ(log->boxes.back().rfind("Debugger failed!", 0), 0u) << log->boxes.back();
    EXPECT_NE(log->boxes.back().find("Connection refused (127.0.0.1:" + std::to_string(port) + ")|16|Korvane Debugger"),
              std::string::npos)
        << log->boxes.back();
}

TEST_F(LiveSession, ABadSharedNameIsRefusedWithAClearText)
{
    EXPECT_FALSE(handler->startVM("", "", "bad/name", false, false));
    ASSERT_FALSE(log->boxes.empty());
    EXPECT_NE(log->boxes.back().find("bad/name"), std::string::npos) << log->boxes.back();
}

} // namespace
