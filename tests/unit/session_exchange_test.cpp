// The request/reply exchange and the opening sequence against the scripted
// transport: packet ids, framing of received bytes in any split, dispatch
// order, nested synchronous calls, time-outs with an injected tick source,
// and the handler's reactions to the transport's events.
#include <gtest/gtest.h>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include "ScriptedVM.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

struct Recorder : JXMachineEvents {
    std::vector<std::string> log;
    std::function<void(const std::string&)> onDebug;
    void Message(const std::string& p, int32_t b, const std::string& t) override
    {
        log.push_back("Message(" + p + "," + std::to_string(b) + "," + t + ")");
    }
    void VMStateChanged(VMState s) override { log.push_back("State(" + std::to_string(s) + ")"); }
    void OpenConnection() override { log.push_back("Open"); }
    void CloseConnection() override { log.push_back("Close"); }
    void DebugMessage(const std::string& s) override
    {
        log.push_back("Debug(" + s + ")");
        if (onDebug)
            onDebug(s);
    }
    void ConsoleMessage(const std::string& s) override { log.push_back("Console(" + s + ")"); }
    bool has(const std::string& entry) const { return std::find(log.begin(), log.end(), entry) != log.end(); }
};

class SessionFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler = JDWPHandler::create();
        transport = std::make_shared<ScriptedTransport>();
        vm = std::make_unique<ScriptedVM>(transport);
        recorder = std::make_shared<Recorder>();
        handler->myJVM()->setEvents(recorder);
        handler->setTransportFactory([this] { return transport; });
    }
    void TearDown() override
    {
        setTickSource(nullptr);
        vm.reset();
        handler->attachTransport(nullptr);
        handler.reset();
        setCurrentHandler(nullptr);
    }
    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<ScriptedTransport> transport;
    std::unique_ptr<ScriptedVM> vm;
    std::shared_ptr<Recorder> recorder;
};

// A socket session whose handshake is done and whose opening requests went
// unanswered: what the tests send and receive from here on is theirs.
class SessionExchange : public SessionFixture {
protected:
    void SetUp() override
    {
        SessionFixture::SetUp();
        ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", "1", true));
        ASSERT_TRUE(MessagePump::instance().pumpUntil([&] { return !vm->commandsOf(1, 7).empty(); }, 2000));
        handler->removeMessage(handler->myMaxSendID);
        vm->clearCommands();
        transport->sent.clear();
        recorder->log.clear();
    }
};

TEST(SessionIds, IdsRunOneTwoThreeAndEachCommandIsSentOnce)
{
    auto handler = JDWPHandler::create();
    auto transport = std::make_shared<ScriptedTransport>();
    handler->attachTransport(transport);
    transport->connectedFlag = true;
    auto f = handler->myFactory();
    auto a = f->createGetVersionMessage();
    auto b = f->createResumeMessage();
    auto c = f->createSuspendMessage();
    EXPECT_EQ(a->myID, 1);
    EXPECT_EQ(b->myID, 2);
    EXPECT_EQ(c->myID, 3);
    EXPECT_TRUE(handler->sendAsync(a));
    EXPECT_FALSE(handler->sendAsync(a)) << "the same command twice is refused";
    ASSERT_EQ(transport->sent.size(), 1u);
    EXPECT_EQ(transport->sent[0], std::string("\x00\x00\x00\x0b\x00\x00\x00\x01\x00\x01\x01", 11));
    EXPECT_EQ(handler->getMessage(1), a);
    EXPECT_EQ(handler->getMessage(7), nullptr);
    handler->attachTransport(nullptr);
    handler.reset();
    setCurrentHandler(nullptr);
}

TEST_F(SessionExchange, ReceivedBytesAreFramedInAnySplitAndDispatchedInOrder)
{
    // Two Version replies, split at every offset, and the same bytes whole.
    const std::string version = jstr("d") + be32(1) + be32(2) + jstr("v") + jstr("n");
    for (size_t cut = 0; cut <= 2 * (11 + version.size()); ++cut) {
        auto f = handler->myFactory();
        auto m1 = f->createGetVersionMessage();
        auto m2 = f->createGetVersionMessage();
        handler->sendAsync(m1);
        handler->sendAsync(m2);
        const std::string both = replyPacket(static_cast<uint32_t>(m1->myID), version) +
                                 replyPacket(static_cast<uint32_t>(m2->myID), version);
        handler->myJVM()->VMName.clear();
        recorder->log.clear();
        transport->raiseReceive(both.substr(0, cut));
        transport->raiseReceive(both.substr(cut));
        transport->pumpProcessEvents();
        EXPECT_EQ(handler->myJVM()->VMName, "n") << "cut " << cut;
        EXPECT_EQ(std::count(recorder->log.begin(), recorder->log.end(), "Debug( *** n v)"), 2) << "cut " << cut;
        EXPECT_EQ(handler->pendingSentCount(), 0u) << "cut " << cut;
        EXPECT_FALSE(transport->processEventEnabled) << "dispatch switches processevent off when drained";
    }
}

TEST_F(SessionExchange, APacketInThreePiecesIsQueuedOnlyWhenWhole)
{
    auto m = handler->myFactory()->createGetVersionMessage();
    handler->sendAsync(m);
    const std::string packet = replyPacket(static_cast<uint32_t>(m->myID), jstr("d") + be32(1) + be32(2) + jstr("v") + jstr("n"));
    transport->raiseReceive(packet.substr(0, 5));
    EXPECT_FALSE(transport->processEventEnabled);
    transport->raiseReceive(packet.substr(5, 10));
    EXPECT_FALSE(transport->processEventEnabled);
    transport->raiseReceive(packet.substr(15));
    EXPECT_TRUE(transport->processEventEnabled);
    transport->pumpProcessEvents();
    EXPECT_EQ(handler->myJVM()->VMName, "n");
}

TEST_F(SessionExchange, SyncCallGetsItsReplyThroughThePump)
{
    vm->installDefaults();
    auto reply = handler->sendSync(handler->myFactory()->createGetVersionMessage(), 4000);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(reply->myFlags, 128);
    EXPECT_EQ(reply->myCommandSet, 1);
    EXPECT_EQ(reply->myCommand, 1);
    EXPECT_EQ(handler->myJVM()->VMVersion, "17.0.15");
    EXPECT_EQ(handler->pendingSyncCount(), 0u);
    EXPECT_EQ(handler->pendingSentCount(), 0u);
}

TEST_F(SessionExchange, NestedSyncCallInsideADecoderCompletesFirst)
{
    vm->installDefaults();
    vm->onPayload(11, 1, jstr("main"));
    std::vector<std::string> order;
    recorder->onDebug = [&](const std::string& s) {
        if (s.find("Scripted VM") == std::string::npos && s.find("OpenJDK") == std::string::npos)
            return;
        recorder->onDebug = nullptr;
        auto inner = handler->sendSync(handler->myFactory()->createGetThreadNameMessage(1), 4000);
        ASSERT_NE(inner, nullptr);
        order.push_back("inner:" + inner->myDataContainer()->RequestThreadName);
    };
    auto outer = handler->sendSync(handler->myFactory()->createGetVersionMessage(), 4000);
    ASSERT_NE(outer, nullptr);
    order.push_back("outer");
    EXPECT_EQ(order, (std::vector<std::string>{"inner:main", "outer"}));
}

TEST_F(SessionExchange, SyncWhileDisconnectedReturnsAtOnce)
{
    transport->connectedFlag = false;
    uint32_t calls = 0;
    setTickSource([&] { return ++calls; });
    EXPECT_EQ(handler->sendSync(handler->myFactory()->createGetVersionMessage(), 4000), nullptr);
    EXPECT_LT(calls, 5u) << "no waiting when nothing was sent";
    EXPECT_TRUE(transport->sent.empty());
    EXPECT_EQ(handler->pendingSyncCount(), 0u);
}

TEST_F(SessionExchange, TimeOutReturnsNothingAndALateAnswerIsStillDecoded)
{
    uint32_t now = 1000;
    setTickSource([&] { return now += 100; });
    auto msg = handler->myFactory()->createGetVersionMessage();
    EXPECT_EQ(handler->sendSync(msg, 4000), nullptr);
    EXPECT_GE(now, 5000u);
    EXPECT_EQ(handler->pendingSentCount(), 1u) << "the command stays until its answer comes";
    vm->reply(static_cast<uint32_t>(msg->myID), jstr("d") + be32(1) + be32(2) + jstr("late") + jstr("vm"));
    EXPECT_EQ(handler->myJVM()->VMVersion, "late");
    EXPECT_EQ(handler->pendingSentCount(), 0u);
}

TEST_F(SessionExchange, UnknownReplyIdDiscardsTheWholeBuffer)
{
    auto m = handler->myFactory()->createGetVersionMessage();
    handler->sendAsync(m);
    const std::string good = replyPacket(static_cast<uint32_t>(m->myID), jstr("d") + be32(1) + be32(2) + jstr("v") + jstr("n"));
    transport->raiseReceive(replyPacket(99, "") + good);
    transport->pumpProcessEvents();
    EXPECT_EQ(handler->myJVM()->VMName, "") << "the packet behind an unknown reply goes with it (intended)";
}

TEST_F(SessionExchange, MalformedLengthEndsTheSessionCleanly)
{
    transport->raiseReceive(std::string("\x00\x00\x00\x05garbage", 11));
    EXPECT_GE(transport->closeCount, 1);
    EXPECT_FALSE(handler->isConnected());
    EXPECT_TRUE(recorder->has("State(0)") || handler->myJVM()->JVMState() == VMDead);
    // A later packet finds an empty buffer and a closed session: nothing crashes.
    transport->raiseReceive(std::string("\x7f\xff\xff\xff", 4));
}

TEST_F(SessionExchange, ConsoleTextEndsLinesWithCrLf)
{
    transport->raisePipe("a\nb\r\nc\n");
    transport->raisePipe("tail");
    EXPECT_TRUE(recorder->has("Console(a\r\nb\r\nc\r\n)"));
    EXPECT_TRUE(recorder->has("Console(tail)"));
}

class SessionOpening : public SessionFixture {};

TEST_F(SessionOpening, HandshakeIdSizesVersionRequestsAndResumeInThatOrder)
{
    vm->installDefaults();
    ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", "5005", true));
    // Let the opening sequence run through the pump.
    MessagePump::instance().pumpUntil(
        [&] { return !vm->commandsOf(1, 9).empty() && !handler->myJVM()->VMName.empty(); }, 2000);
    ASSERT_EQ(transport->sent.at(0), "JDWP-Handshake");
    std::vector<std::pair<int, int>> wire;
    for (const auto& c : vm->commands())
        wire.emplace_back(c.set, c.cmd);
    const std::vector<std::pair<int, int>> expected{{1, 7}, {1, 1}, {15, 1}, {15, 1}, {15, 1}, {1, 9}};
    EXPECT_EQ(wire, expected);
    ASSERT_GE(vm->commands().size(), 3u);
    EXPECT_EQ(static_cast<unsigned char>(vm->commands()[2].payload[0]), EK_EXCEPTION_CATCH);
    EXPECT_EQ(static_cast<unsigned char>(vm->commands()[3].payload[0]), EK_CLASS_PREPARE);
    EXPECT_EQ(handler->myJVM()->VMName, "OpenJDK 64-Bit Server VM");
    EXPECT_TRUE(recorder->has("Debug( *** OpenJDK 64-Bit Server VM 17.0.15)"));
    EXPECT_TRUE(recorder->has("Open"));
    EXPECT_TRUE(recorder->has("Debug( *** Connect [Socket] 127.0.0.1:5005)"));
    EXPECT_EQ(handler->myJVM()->JVMState(), VMRunning);
}

TEST_F(SessionOpening, SharedMemoryCommandLineAndConnectMessages)
{
    transport->connectOnRequest = false;
    uint32_t now = 0;
    setTickSource([&] { return now += 10; });
    EXPECT_FALSE(handler->startVM("/usr/bin/java", "-a=%SharedName% -b=%SharedName%", "S1", false, true));
    ASSERT_EQ(transport->startedCommandLines.size(), 1u);
    EXPECT_EQ(transport->startedCommandLines[0], "/usr/bin/java -a=S1 -b=S1");
    EXPECT_GT(transport->sharedConnects.size(), 1u) << "ConnectShared is called on every try";
    EXPECT_EQ(std::count(recorder->log.begin(), recorder->log.end(), "Debug( *** Connect [SHMem] S1)"), 1);
}

TEST_F(SessionOpening, NoConnectionGivesUpAfterFourSecondsWithTheFailureBox)
{
    transport->connectOnRequest = false;
    transport->statusText = "Connection refused (127.0.0.1:1)";
    uint32_t now = 0;
    setTickSource([&] { return now += 7; });
    EXPECT_FALSE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", "1", true));
    EXPECT_GT(now, 4000u);
    EXPECT_LT(now, 6000u);
    EXPECT_TRUE(recorder->has("Debug( *** Try 60/100)") || recorder->has("Debug( *** Try 59/100)") ||
                std::any_of(recorder->log.begin(), recorder->log.end(),
                            [](const std::string& s) { return s.rfind("Debug( *** Try ", 0) == 0; }));
    EXPECT_TRUE(recorder->has("Debug( *** JDWP-Connection failed ...)"));
    EXPECT_TRUE(recorder->has("Message(Debugger failed! Process terminated!\r\nConnection refused (127.0.0.1:1),16,"
                              "Korvane Debugger)"));
    EXPECT_TRUE(recorder->has("Close"));
}

TEST_F(SessionOpening, DisconnectBeforeStartSendsNothing)
{
    handler->Disconnect();
    EXPECT_TRUE(transport->sent.empty());
}

TEST_F(SessionOpening, RemoteDropShowsTheBoxUnlessAskedFor)
{
    vm->installDefaults();
    ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "h", "1", true));
    transport->raiseDisconnected();
    EXPECT_TRUE(recorder->has("Message(Remote Java Virtual Machine disconnected!,64,Debugger)"));
    EXPECT_EQ(handler->myJVM()->JVMState(), VMDead);

    recorder->log.clear();
    ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "h", "1", true));
    handler->Disconnect();
    transport->raiseDisconnected();
    EXPECT_FALSE(recorder->has("Message(Remote Java Virtual Machine disconnected!,64,Debugger)"));
}

} // namespace
