// Starts that cannot connect, against a real network stack: a port nobody
// listens on, a bad shared memory name. Launched and attached sessions, the
// opening sequence on the wire and attached VMs that die are in
// sessions_vm_test; peers that break the wire are in faults_peer_test; VMs
// killed mid-request in faults_vm_test.
#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

using LiveSession = LiveSessionTest;

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
