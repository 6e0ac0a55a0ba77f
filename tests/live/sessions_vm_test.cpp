// One host, many sessions: the same handler and session objects debug one
// VM after another, over the socket and the shared-memory transport, and
// each session ends a different way (the program's end, the debugger's
// Disconnect at a stop, exitVM at a stop), then attached to VMs that listen
// by themselves. Every session must stop at the
// breakpoints kept from the first, read values, step, be reported opened and
// closed once, and leave no pending call, no stale state and nothing in
// /dev/shm for the next one. The first also shows the opening sequence on the
// wire and the console's line ends. Then starts that cannot connect: a port
// nobody listens on, a bad shared memory name. Peers that break the wire are
// in faults_peer_test; VMs killed mid-request in faults_vm_test.
#include <unistd.h>

#include <filesystem>

#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

int line(const std::string& marker)
{
    return lineOf("tests/java/Values.java", "// " + marker);
}

enum class End { RunsToItsEnd, Disconnect, ExitVM };

TEST_F(LiveSessionTest, OneSessionAfterAnotherOnTheSameObjects)
{
    jvm->setTargetClassName({"Values", "Point"});
    jvm->addBreakpoint("Values", line("@values-stop"));
    jvm->addBreakpoint("Values", line("@level2"));
    const End ends[] = {End::RunsToItsEnd, End::Disconnect, End::ExitVM};
    for (int round = 0; round < 6; ++round) {
        const bool shmem = round % 2 == 1;
        const End end = ends[round % 3];
        SCOPED_TRACE("session " + std::to_string(round) + (shmem ? " over shared memory" : " over the socket"));
        const std::string name = "krvsessions-" + std::to_string(::getpid()) + "-" + std::to_string(round);
        const size_t stops = log->stops.size();
        ASSERT_TRUE(shmem ? launchShmem(name, "Values") : launch("Values")) << dump();
        ASSERT_TRUE(waitStop(stops)) << dump();
        EXPECT_EQ(lastStop().line, line("@values-stop"));
        EXPECT_EQ(jvm->getValue("i"), "i: #-7#");
        EXPECT_EQ(jvm->getValue("p.x").rfind("#p.x: 3#", 0), 0u) << jvm->getValue("p.x");
        ASSERT_TRUE(jvm->ResumeVMStepByStep(false, 0, SD_OVER)) << dump();
        ASSERT_TRUE(waitStop(stops + 1)) << dump();
        EXPECT_EQ(lastStop().line, line("@values-stop") + 1);
        ASSERT_TRUE(resumeToStopAt(line("@level2"))) << dump();

        switch (end) {
        case End::RunsToItsEnd:
            EXPECT_EQ(runToEnd(), 0) << dump();
            break;
        case End::Disconnect:
            handler->Disconnect();
            break;
        case End::ExitVM:
            handler->exitVM();
            break;
        }
        ASSERT_TRUE(waitDead()) << dump();
        EXPECT_EQ(handler->pendingSyncCount(), 0u);
        EXPECT_FALSE(std::filesystem::exists("/dev/shm/krvdbg-" + name));
        if (round == 0) {
            // The first session's opening on the wire: handshake, IDSizes, Version, exception request,
            // the two class-prepare requests, then Resume.
            std::vector<std::string> sent;
            for (const auto& l : handler->history().lines())
                if (l.rfind("->", 0) == 0 && sent.size() < 6)
                    sent.push_back(l.substr(l.find(' ', 3) + 1, l.find(" len") - l.find(' ', 3) - 1));
            EXPECT_EQ(sent, (std::vector<std::string>{"1/7", "1/1", "15/1", "15/1", "15/1", "1/9"})) << dump();
            EXPECT_EQ(jvm->VMName.rfind("OpenJDK", 0), 0u) << jvm->VMName;
            EXPECT_EQ(jvm->VMVersion.rfind("17", 0), 0u) << jvm->VMVersion;
            EXPECT_TRUE(log->sawDebug(" *** " + jvm->VMName + " " + jvm->VMVersion));
            EXPECT_NE(log->console.find("values ready\r\nresult "), std::string::npos) << log->console;
        }
    }
    EXPECT_TRUE(log->boxes.empty()) << log->boxes.front();

    // Then attached to VMs that listen by themselves: one the debugger lets
    // go, one that goes away under it (the user hears of that one only).
    for (bool remoteDies : {false, true}) {
        SCOPED_TRACE(remoteDies ? "attached, the VM dies" : "attached, Disconnect");
        ListeningVM remote("Values", testsClassPath());
        const size_t stops = log->stops.size();
        handler->bRemoteConnection = true;
        ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", std::to_string(remote.port()), true))
            << dump();
        ASSERT_TRUE(waitStop(stops)) << dump();
        EXPECT_EQ(lastStop().line, line("@values-stop"));
        EXPECT_EQ(jvm->getValue("i"), "i: #-7#");
        if (remoteDies)
            remote.process().kill();
        else
            handler->Disconnect();
        ASSERT_TRUE(waitDead()) << dump();
    }
    EXPECT_EQ(log->boxes, std::vector<std::string>{"Remote Java Virtual Machine disconnected!|64|Debugger"});

    // Each session opened and closed once, in turn, however it ended.
    EXPECT_TRUE(pumpUntil([&] { return log->connections().size() >= 16; }, 5000));
    std::vector<std::string> expected;
    for (int round = 0; round < 8; ++round)
        expected.insert(expected.end(), {"Open", "Close"});
    EXPECT_EQ(log->connections(), expected);
}

TEST_F(LiveSessionTest, APortNobodyListensOnFailsAfterFourSecondsOfTheClock)
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

TEST_F(LiveSessionTest, ABadSharedNameIsRefusedWithAClearText)
{
    EXPECT_FALSE(handler->startVM("", "", "bad/name", false, false));
    ASSERT_FALSE(log->boxes.empty());
    EXPECT_NE(log->boxes.back().find("bad/name"), std::string::npos) << log->boxes.back();
}

} // namespace
