// The request/reply exchange, the opening sequence and the connect loop
// against the scripted transport: framing of received bytes in any split,
// dispatch order, nested synchronous calls, commands sent together and
// awaited together, time-outs with an injected tick source, and the
// handler's reactions to the transport's events. The opening's order on the
// wire, the console's line ends and the boxes of a failed or dropped
// connection are checked against a real VM (sessions_vm_test); a peer that breaks the framing or drops the connection
// during a call in faults_peer_test.
#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

using SessionOpening = HandlerTest;

// A socket session whose handshake is done and whose opening requests went
// unanswered: what the tests send and receive from here on is theirs.
class SessionExchange : public SessionOpening {
protected:
    void SetUp() override
    {
        SessionOpening::SetUp();
        ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", "1", true));
        ASSERT_TRUE(MessagePump::instance().pumpUntil([&] { return !vm->commandsOf(1, 7).empty(); }, 2000));
        handler->removeMessage(handler->myMaxSendID);
        vm->clearCommands();
        transport->sent.clear();
        log->all.clear();
    }
};

const std::string kVersion = jstr("d") + be32(1) + be32(2) + jstr("v") + jstr("n");

// Two Version replies, first cut at every offset, the rest in five-byte
// pieces: a packet is queued for dispatch only when it is whole.
TEST_F(SessionExchange, ReceivedBytesAreFramedInAnySplitAndDispatchedInOrder)
{
    const size_t whole = 11 + kVersion.size();
    for (size_t cut = 0; cut <= 2 * whole; ++cut) {
        auto f = handler->myFactory();
        auto m1 = f->createGetVersionMessage();
        auto m2 = f->createGetVersionMessage();
        handler->sendAsync(m1);
        handler->sendAsync(m2);
        const std::string both = replyPacket(static_cast<uint32_t>(m1->myID), kVersion) +
                                 replyPacket(static_cast<uint32_t>(m2->myID), kVersion);
        log->all.clear();
        for (size_t from = 0; from < both.size();) {
            const size_t to = from < cut ? cut : std::min(both.size(), from + 5);
            transport->raiseReceive(both.substr(from, to - from));
            from = to;
            EXPECT_EQ(transport->processEventEnabled, from >= whole) << "cut " << cut << " at " << from;
        }
        transport->pumpProcessEvents();
        EXPECT_EQ(log->count("Debug( *** n v)"), 2u) << "cut " << cut;
        EXPECT_EQ(handler->pendingSentCount(), 0u) << "cut " << cut;
        EXPECT_FALSE(transport->processEventEnabled) << "dispatch switches processevent off when drained";
    }
}

// Observers get the numbers of each packet as the trace records it: a
// reply carries its command's set and command and its error code, an event
// its own; a removed observer hears nothing more.
TEST_F(SessionExchange, PacketObserversSeeEverySentAndFramedPacket)
{
    using D = PacketEvent::Direction;
    using Seen = std::tuple<D, double, int32_t, int32_t, bool, int32_t, size_t>; // as PacketEvent orders them
    std::vector<Seen> seen;
    const int token = handler->addPacketObserver([&](const PacketEvent& p) {
        seen.emplace_back(p.direction, p.id, p.commandSet, p.command, p.reply, p.errorCode, p.length);
    });
    auto resume = handler->myFactory()->createResumeMessage();
    ASSERT_TRUE(handler->sendAsync(resume));
    const auto id = static_cast<uint32_t>(resume->myID);
    transport->raiseReceive(replyPacket(id, "", 0x0d00) + commandPacket(7, 64, 100, std::string(5, '\0')));
    handler->removePacketObserver(token);
    ASSERT_TRUE(handler->sendAsync(handler->myFactory()->createGetVersionMessage()));
    EXPECT_EQ(seen, (std::vector<Seen>{
                        {D::Sent, id, 1, 9, false, 0, 11},
                        {D::Received, id, 1, 9, true, 13, 11}, // the error as read: 00 0d little-endian
                        {D::Received, 7, 64, 100, false, 0, 16},
                    }));
}

// A batch of small packets in one receive, then a packet in two pieces: all
// are framed, and each received byte is copied at most once inside the
// buffer. Taking every packet off the front would copy N^2/2 packets' worth
// (a peer sending megabytes of 11-byte packets would stall the host).
TEST_F(SessionExchange, ABatchOfSmallPacketsIsFramedWithoutCopyingTheRestPerPacket)
{
    constexpr int kPackets = 4096;
    std::string batch;
    for (int i = 0; i < kPackets + 1; ++i) {
        // A command set nobody decodes: its 11-byte reply is framed and dropped.
        auto m = std::make_shared<JDWPMessage>();
        m->myID = ++handler->myMaxSendID;
        m->myCommandSet = static_cast<COMMAND_SETS>(99);
        ASSERT_TRUE(handler->sendAsync(m));
        batch += replyPacket(static_cast<uint32_t>(m->myID), "");
    }
    const size_t cut = batch.size() - 5;
    transport->raiseReceive(batch.substr(0, cut));
    EXPECT_EQ(handler->pendingSentCount(), 1u) << "all but the cut packet framed";
    EXPECT_LE(handler->receiveBytesMoved(), 6u) << "only the cut packet's head is moved to the front";
    transport->raiseReceive(batch.substr(cut));
    EXPECT_EQ(handler->pendingSentCount(), 0u);
    EXPECT_LE(handler->receiveBytesMoved(), 6u);
    transport->pumpProcessEvents(kPackets + 10);
    EXPECT_FALSE(transport->processEventEnabled) << "every packet dispatched";
}

// Sync calls get their replies through the pump, a nested one first. The VM
// numbers its own packets: an event ahead of the reply may carry the id of
// the call in progress, and only the reply completes the call.
TEST_F(SessionExchange, SyncCallsCompleteByTheirOwnRepliesANestedOneFirst)
{
    const std::string threadStart = u8(0) + be32(1) + u8(EK_THREAD_START) + be32(77) + be64(0x51);
    vm->on(1, 1, [&](const SentCommand& c, std::string& payload, uint16_t&) {
        transport->raiseReceive(commandPacket(c.id, 64, 100, threadStart));
        payload = kVersion;
        return true;
    });
    vm->onPayload(11, 1, jstr("main"));
    std::vector<std::string> order;
    log->onDebug = [&](const std::string& s) {
        if (s != " *** n v") // the Version reply is being decoded
            return;
        log->onDebug = nullptr;
        auto inner = handler->sendSync(handler->myFactory()->createGetThreadNameMessage(1), 4000);
        ASSERT_NE(inner, nullptr);
        order.push_back("inner:" + inner->myDataContainer()->RequestThreadName);
    };
    auto outer = handler->sendSync(handler->myFactory()->createGetVersionMessage(), 4000);
    ASSERT_NE(outer, nullptr);
    order.push_back("outer");
    EXPECT_EQ(order, (std::vector<std::string>{"inner:main", "outer"}));
    EXPECT_EQ(std::tuple(outer->myFlags, outer->myCommandSet, outer->myCommand), std::tuple(128, 1, 1));
    EXPECT_EQ(handler->pendingSyncCount() + handler->pendingSentCount(), 0u);
}

// Commands sent together all go out before any reply is awaited, and each
// gets its own reply, in the order of the commands whatever order the
// replies come in; one that never gets a reply is nullptr once the wait
// runs out, and one the session refuses is nullptr at once.
TEST_F(SessionExchange, CommandsSentTogetherEachGetTheirOwnReply)
{
    uint32_t now = 1000;
    setTickSource([&] { return now += 10; });
    std::vector<size_t> sentBeforeAnswer;
    uint32_t held = 0;
    int deferred = 0;
    vm->on(11, 1, [&](const SentCommand& c, std::string& out, uint16_t&) {
        sentBeforeAnswer.push_back(transport->sent.size());
        const uint64_t thread = static_cast<unsigned char>(c.payload.back());
        if (thread == 1) { // answered last, after thread 2's reply
            held = c.id;
            return false;
        }
        if (thread == 3) { // never answered; its pump pass comes after thread 2's reply
            deferred = MessagePump::instance().addIdle([&] {
                MessagePump::instance().removeIdle(deferred);
                vm->reply(held, jstr("first"));
            });
            return false;
        }
        out = jstr("second");
        return true;
    });
    auto f = handler->myFactory();
    auto refused = f->createGetThreadNameMessage(4);
    ASSERT_TRUE(handler->sendAsync(refused)); // sent already: refused a second time
    transport->sent.clear();
    sentBeforeAnswer.clear();
    const auto replies = handler->sendAllSync(
        {f->createGetThreadNameMessage(1), f->createGetThreadNameMessage(2), refused, f->createGetThreadNameMessage(3)},
        4000);
    EXPECT_EQ(sentBeforeAnswer, (std::vector<size_t>{1, 2, 3})) << "each was sent before any answer";
    std::vector<std::string> names;
    for (const auto& reply : replies)
        names.push_back(reply ? reply->myDataContainer()->RequestThreadName : "nothing");
    EXPECT_EQ(names, (std::vector<std::string>{"first", "second", "nothing", "nothing"}));
    EXPECT_GE(now, 5000u) << "the unanswered one was waited for";
    EXPECT_EQ(handler->pendingSyncCount(), 0u);
}

TEST_F(SessionExchange, TimeOutReturnsNothingAndALateAnswerIsStillDecoded)
{
    uint32_t now = 1000;
    setTickSource([&] { return now += 100; });
    auto msg = handler->myFactory()->createGetVersionMessage();
    EXPECT_EQ(handler->sendSync(msg, 4000), nullptr);
    EXPECT_EQ(handler->pendingSentCount(), 1u) << "the command stays until its answer comes";
    vm->reply(static_cast<uint32_t>(msg->myID), jstr("d") + be32(1) + be32(2) + jstr("late") + jstr("vm"));
    EXPECT_EQ(jvm()->VMVersion, "late");
    EXPECT_EQ(handler->pendingSentCount(), 0u);

    transport->connectedFlag = false;
    const uint32_t before = now;
    EXPECT_EQ(handler->sendSync(handler->myFactory()->createGetVersionMessage(), 4000), nullptr);
    EXPECT_LT(now - before, 500u) << "no waiting while disconnected";
    EXPECT_EQ(transport->sent.size(), 1u) << "nothing sent while disconnected";
    EXPECT_EQ(handler->pendingSyncCount(), 0u);
}

TEST_F(SessionExchange, UnknownReplyIdDiscardsTheWholeBuffer)
{
    auto m = handler->myFactory()->createGetVersionMessage();
    handler->sendAsync(m);
    transport->raiseReceive(replyPacket(99, "") + replyPacket(static_cast<uint32_t>(m->myID), kVersion));
    transport->pumpProcessEvents();
    EXPECT_EQ(jvm()->VMName, "") << "the packet behind an unknown reply goes with it (intended)";
}

TEST_F(SessionOpening, SharedMemoryCommandLineAndConnectMessages)
{
    transport->connectOnRequest = false;
    uint32_t now = 0;
    setTickSource([&] { return now += 10; });
    EXPECT_FALSE(handler->startVM("/usr/bin/java", "-a=%SharedName% -b=%SharedName%", "S1", false, true));
    EXPECT_EQ(transport->startedCommandLines, std::vector<std::string>{"/usr/bin/java -a=S1 -b=S1"});
    EXPECT_GT(transport->sharedConnects.size(), 1u) << "ConnectShared is called on every try";
    EXPECT_EQ(log->count("Debug( *** Connect [SHMem] S1)"), 1u);
}

TEST_F(SessionOpening, EverySessionIsReportedClosedOnceHoweverItEnds)
{
    handler->Disconnect(); // before any start: nothing to send, no session to close
    EXPECT_TRUE(transport->sent.empty());
    EXPECT_TRUE(log->connections().empty());
    vm->installDefaults();
    const std::pair<const char*, std::function<void()>> ends[] = {
        {"the connection drops", [&] { transport->raiseDisconnected(); }},
        {"the process's end is seen first", [&] { transport->raiseTerminated(); }},
        {"Disconnect", [&] { handler->Disconnect(); }},
        {"the next startVM while connected", [] {}},
    };
    for (const auto& [what, end] : ends) {
        log->clear();
        ASSERT_TRUE(handler->startVM("java", "Main", "", false, true, 0, "h", "1", true)) << what;
        end();
        ASSERT_TRUE(handler->startVM("java", "Main", "", false, true, 0, "h", "1", true)) << what;
        EXPECT_EQ(log->connections(), (std::vector<std::string>{"Open", "Close", "Open"})) << what;
        EXPECT_FALSE(log->has("Message(Remote Java Virtual Machine disconnected!,64,Debugger)")) << what;
        transport->raiseTerminated();
    }
}

// The connect loop: a started VM that writes to its console (the agent's
// "Listening for transport ..." line) ends the loop's 50 ms pause, so the
// next try comes at once; a VM that stays silent is still tried on the 50 ms
// marks. Every reading of the clock is a millisecond later; the VM listens
// from the first pump pass on.
TEST_F(SessionOpening, ConnectLoopTriesAtOnceAfterTheListeningLineOrOnTheFiftyMillisecondMark)
{
    uint32_t now = 0;
    setTickSource([&] { return ++now; });
    for (const bool announce : {true, false}) {
        SCOPED_TRACE(announce ? "the VM says it listens" : "a silent VM");
        now = 1000;
        transport->connectOnRequest = false;
        transport->socketConnects.clear();
        const int idle = MessagePump::instance().addIdle([&] {
            if (transport->connectOnRequest)
                return;
            transport->connectOnRequest = true;
            if (announce)
                transport->raisePipe("Listening for transport dt_socket at address: 5005\n");
        });
        EXPECT_TRUE(handler->startVM("/usr/bin/java", "-agentlib:jdwp=transport=dt_socket,server=y,suspend=y Main", "",
                                     false, true, 0, "127.0.0.1", "5005", true));
        MessagePump::instance().removeIdle(idle);
        EXPECT_EQ(transport->socketConnects.size(), 2u) << "the refused try before the loop, and one in it";
        EXPECT_EQ(now - 1000 < 50u, announce) << now - 1000 << " ms";
        transport->raiseDisconnected();
    }
}

// A peer that breaks the wire as soon as it is connected (garbage for the
// handshake) ends the session; the connect loop does not connect again (a
// second connection would land in the peer's backlog and hang until the
// handshake time-out).
TEST_F(SessionOpening, AConnectionThatBreaksDuringTheConnectLoopIsNotMadeAgain)
{
    uint32_t now = 1000;
    setTickSource([&] { return ++now; });
    transport->connectOnRequest = false;
    const int idle = MessagePump::instance().addIdle([&] {
        if (transport->connectOnRequest)
            return;
        transport->connectOnRequest = true;
        transport->raiseConnected();
        transport->raiseReceive("HTTP/1.1 400 Bad Request\r\n\r\n");
    });
    handler->startVM("/usr/bin/java", "-agentlib:jdwp=transport=dt_socket,server=y Main", "", false, true, 0,
                     "127.0.0.1", "5005", true);
    MessagePump::instance().removeIdle(idle);
    EXPECT_EQ(log->connections(), (std::vector<std::string>{"Open", "Close"}));
    EXPECT_EQ(jvm()->JVMState(), VMDead);
    EXPECT_FALSE(handler->isConnected());
    EXPECT_TRUE(log->hasPrefix("Debug( *** JDWP-Connection failed ... malformed packet length"));
}

} // namespace
