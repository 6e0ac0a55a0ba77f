// The session against a fault-injecting peer (tests/support/FaultPeer): one
// row per way the wire can break. Each row names its outcome: the host keeps
// working (an ordinary call is answered afterwards) or the session ends
// cleanly (VMDead, the transport closed, CloseConnection raised, no call
// left waiting). No row may block the host or let a call wait longer than
// its time-out; time-outs are passed on a shifted clock, not waited for.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "FaultPeer.h"
#include "LiveSessionTest.h"
#include "ScriptedTransport.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

enum class Outcome { KeepsWorking, EndsWithVMDead };

// A composite event: suspend policy, one event of `kind` with `body`.
std::string composite(int policy, int kind, const std::string& body)
{
    return std::string(1, static_cast<char>(policy)) + be32(1) + std::string(1, static_cast<char>(kind)) + body;
}

// The host side: the live fixture, with its session objects open to the
// rows, a Version call and a time-out check.
class Host : public LiveSessionTest {
public:
    using LiveSessionTest::clock;
    using LiveSessionTest::handler;
    using LiveSessionTest::jvm;
    using LiveSessionTest::log;

    JDWPHandler::Msg version(int32_t waitMs = 4000)
    {
        return handler->sendSync(handler->myFactory()->createGetVersionMessage(), waitMs);
    }
    // A Version call that gets no reply, on a clock that moves 20 ms per
    // pump pass: it must give up after `waitMs` of that clock, at once in
    // real time, and leave no call waiting.
    void expectTimeOutOnTheClock(int32_t waitMs)
    {
        const int idle = MessagePump::instance().addIdle([this] { clock.advance(20); });
        const uint32_t start = GetTickCount();
        const int64_t realStart = nowMs();
        EXPECT_EQ(version(waitMs), nullptr);
        const uint32_t waited = GetTickCount() - start;
        EXPECT_LT(nowMs() - realStart, 2000);
        MessagePump::instance().removeIdle(idle);
        EXPECT_GE(waited, static_cast<uint32_t>(waitMs)) << "gave up before its time-out";
        EXPECT_LE(waited, static_cast<uint32_t>(waitMs + 200)) << "waited past its time-out";
        EXPECT_EQ(handler->pendingSyncCount(), 0u);
    }
};

struct Row {
    const char* name;
    bool opens; // the opening sequence completes before the fault
    FaultPeer::Script peer;
    std::function<void(Host&, FaultPeer&)> host;
    Outcome outcome;
    const char* debugText = ""; // a progress line the row must show
};

bool isVersion(const HostCommand& c)
{
    return c.set == 1 && c.cmd == 1;
}

// Answers the opening, runs `afterOpen`, then serves with `special` taking
// over commands.
FaultPeer::Script serving(std::function<bool(PeerLink&, const HostCommand&)> special,
                          std::function<void(PeerLink&)> afterOpen = nullptr)
{
    return [special, afterOpen](PeerLink& link, FaultPeer&) {
        if (!link.open())
            return;
        if (afterOpen)
            afterOpen(link);
        link.serve([&](const HostCommand& c) { return special && special(link, c); });
    };
}

FaultPeer::Script afterOpen(std::function<void(PeerLink&)> action)
{
    return serving(nullptr, std::move(action));
}

// Serves, with `onVersion` taking over the first Version command.
FaultPeer::Script onFirstVersion(std::function<void(PeerLink&, const HostCommand&)> onVersion)
{
    return [onVersion](PeerLink& link, FaultPeer& peer) {
        bool done = false;
        serving([&](PeerLink& l, const HostCommand& c) {
            if (!isVersion(c) || done)
                return false;
            done = true;
            onVersion(l, c);
            return true;
        })(link, peer);
    };
}

void expectTheVMNameAgain(Host& host)
{
    host.jvm->VMName.clear();
    ASSERT_NE(host.version(), nullptr);
    EXPECT_EQ(host.jvm->VMName, "OpenJDK 64-Bit Server VM");
}

std::vector<Row> faultRows()
{
    std::vector<Row> rows;
    rows.push_back({"garbage instead of the handshake", false,
                    [](PeerLink& link, FaultPeer&) {
                        link.readHandshake();
                        link.send("HTTP/1.1 400 Bad Request\r\n\r\n");
                        link.serve();
                    },
                    nullptr, Outcome::EndsWithVMDead, " *** JDWP-Connection failed ... malformed packet length"});
    rows.push_back({"no handshake at all (4000 ms passed on the clock)", false,
                    [](PeerLink& link, FaultPeer& peer) {
                        link.readHandshake();
                        peer.waitReleased(20000);
                    },
                    [](Host& host, FaultPeer&) {
                        host.clock.advance(4100);
                        pumpUntil([&] { return host.jvm->JVMState() == VMDead; }, 3000);
                    },
                    Outcome::EndsWithVMDead, " *** JDWP-Connection failed ... no handshake from the VM"});
    rows.push_back({"EOF inside the header of the first reply", false,
                    [](PeerLink& link, FaultPeer&) {
                        if (!link.readHandshake() || !link.send("JDWP-Handshake") || !link.next().valid)
                            return;
                        link.send(std::string("\x00\x00\x00\x1f\x00\x00\x00\x01\x80\x00", 10));
                        link.shutdownWrite();
                        link.serve();
                    },
                    nullptr, Outcome::EndsWithVMDead});
    // The Version reply cut short by EOF: the waiting call ends with the
    // connection, not with its time-out.
    for (const auto& [name, partial] : std::vector<std::pair<const char*, std::string>>{
             {"EOF after the 11-byte header of a reply", ""}, {"EOF in the middle of a reply body", "\0\0\0\x04Java"}})
        rows.push_back({name, true, onFirstVersion([partial = partial](PeerLink& link, const HostCommand& c) {
                            link.send(be32(30) + be32(c.id) + std::string("\x80\x00\x00", 3) + partial);
                            link.shutdownWrite();
                        }),
                        [](Host& host, FaultPeer&) {
                            const int64_t start = nowMs();
                            EXPECT_EQ(host.version(4000), nullptr);
                            EXPECT_LT(nowMs() - start, 3000) << "the call ends with the connection";
                        },
                        Outcome::EndsWithVMDead});
    rows.push_back({"a length field below 11", true, afterOpen([](PeerLink& link) {
                        link.send(std::string("\x00\x00\x00\x05\x00\x00\x00\x09\x80\x00\x00", 11));
                    }),
                    nullptr, Outcome::EndsWithVMDead, " *** JDWP-Connection failed ... malformed packet length 5"});
    rows.push_back(
        {"a length field of 2 GB", true, afterOpen([](PeerLink& link) {
             link.send(std::string("\x80\x00\x00\x00\x00\x00\x00\x09\x80\x00\x00", 11) + std::string(4096, 'x'));
         }),
         nullptr, Outcome::EndsWithVMDead, " *** JDWP-Connection failed ... malformed packet length 2147483648"});
    rows.push_back({"replies out of order", true,
                    [](PeerLink& link, FaultPeer&) {
                        if (!link.open())
                            return;
                        HostCommand held;
                        bool swapped = false;
                        link.serve([&](const HostCommand& c) {
                            if (swapped)
                                return false;
                            if (isVersion(c) && !held.valid)
                                held = c;
                            else if (c.set == 1 && c.cmd == 4 && held.valid)
                                swapped = link.answer(c) && link.answer(held);
                            else
                                return false;
                            return true;
                        });
                    },
                    [](Host& host, FaultPeer&) {
                        host.jvm->VMName.clear();
                        auto& factory = *host.handler->myFactory();
                        ASSERT_TRUE(host.handler->sendAsync(factory.createGetVersionMessage()));
                        auto threads = host.handler->sendSync(factory.createGetThreadsMessage(), 4000);
                        ASSERT_NE(threads, nullptr);
                        EXPECT_EQ(threads->myCommandSet, CMDSET_VirtualMachine);
                        EXPECT_EQ(threads->myCommand, VM_ALL_THREADS);
                        EXPECT_TRUE(pumpUntil([&] { return !host.jvm->VMName.empty(); }, 5000));
                        EXPECT_EQ(host.handler->pendingSentCount(), 0u);
                    },
                    Outcome::KeepsWorking});
    rows.push_back({"a composite event while a synchronous call waits", true,
                    onFirstVersion([](PeerLink& link, const HostCommand& c) {
                        // A class-prepare event for type 0x4242 "LOther;".
                        link.event(composite(2, 8,
                                             be32(7) + be64(1) + std::string(1, '\x01') + be64(0x4242) +
                                                 jstr("LOther;") + be32(7)));
                        link.answer(c);
                    }),
                    [](Host& host, FaultPeer&) {
                        expectTheVMNameAgain(host);
                        auto cls = host.jvm->getClassByID(0x4242, false);
                        ASSERT_NE(cls, nullptr) << "the event was decoded during the wait";
                        EXPECT_EQ(cls->ClassName(), "Other");
                    },
                    Outcome::KeepsWorking});
    rows.push_back({"VM_DEATH followed by EOF", false, afterOpen([](PeerLink& link) {
                        link.event(composite(0, 99, be32(0)));
                        link.shutdownWrite();
                    }),
                    nullptr, Outcome::EndsWithVMDead});
    rows.push_back({"a peer that stops reading", true,
                    [](PeerLink& link, FaultPeer& peer) {
                        if (link.open())
                            peer.waitReleased(30000);
                    },
                    [](Host& host, FaultPeer& peer) {
                        // 16 MiB for a peer that reads nothing: every send
                        // returns at once, the rest waits in the transport.
                        const int64_t start = nowMs();
                        const std::string classBytes(1 << 20, '\xca');
                        for (int i = 0; i < 16; ++i)
                            host.handler->sendAsync(
                                host.handler->myFactory()->createClassRedefineMessage(1, classBytes));
                        EXPECT_LT(nowMs() - start, 2000) << "a send blocked the host";
                        host.expectTimeOutOnTheClock(1000);
                        EXPECT_TRUE(host.handler->isConnected());
                        peer.release(); // the peer gives up: the session ends
                    },
                    Outcome::EndsWithVMDead});
    return rows;
}

class FaultPeerMatrix : public Host, public ::testing::WithParamInterface<size_t> {};

TEST_P(FaultPeerMatrix, KeepsTheHostWorkingOrEndsTheSessionCleanly)
{
    const Row row = faultRows()[GetParam()];
    Host& host = *this;
    FaultPeer peer(row.peer);
    ASSERT_TRUE(host.handler->startVM("", "", "", false, false, 0, "127.0.0.1", std::to_string(peer.port()), true));
    if (row.opens) {
        ASSERT_TRUE(pumpUntil([&] { return !host.jvm->VMName.empty() && host.jvm->JVMState() == VMRunning; }))
            << host.handler->history().dump();
    }
    if (row.host)
        row.host(host, peer);
    if (row.outcome == Outcome::KeepsWorking) {
        expectTheVMNameAgain(host);
        EXPECT_TRUE(host.handler->isConnected());
        EXPECT_NE(host.jvm->JVMState(), VMDead);
    } else {
        EXPECT_TRUE(pumpUntil([&] { return host.jvm->JVMState() == VMDead && !host.handler->isConnected(); }, 6000))
            << host.handler->history().dump();
        EXPECT_TRUE(host.log->has("Close"));
    }
    if (*row.debugText) {
        EXPECT_TRUE(host.log->sawDebug(row.debugText)) << host.handler->history().dump();
    }
    EXPECT_EQ(host.handler->pendingSyncCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Rows, FaultPeerMatrix, ::testing::Range<size_t>(0, faultRows().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) {
                             std::string name = faultRows()[info.param].name;
                             auto notAlnum = [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); };
                             name.erase(std::remove_if(name.begin(), name.end(), notAlnum), name.end());
                             return name;
                         });

} // namespace

// The handshake cut into pieces by the socket: held until it is whole, so
// the session goes on to ask for the identifier sizes (it used to take the
// first piece for a packet with an impossible length and end the session).
TEST(FaultPeerPieces, AHandshakeInPiecesIsTakenWhenWhole)
{
    const std::vector<std::vector<std::string>> cuts{
        {"JDWP-Hand", "shake"},
        {"J", "D", "W", "P", "-", "H", "a", "n", "d", "s", "h", "a", "k", "e"},
        {"JDWP-Handshak", std::string("e\x00\x00\x00\x0b\x00\x00\x00\x01\x80\x00\x00", 12)},
    };
    for (const auto& pieces : cuts) {
        SCOPED_TRACE(pieces.front());
        auto handler = JDWPHandler::create();
        auto transport = std::make_shared<ScriptedTransport>();
        handler->setTransportFactory([transport] { return std::static_pointer_cast<JDWPCon>(transport); });
        ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", "8000", true))
            << handler->history().dump();
        ASSERT_EQ(transport->sent.size(), 1u);
        for (const auto& piece : pieces)
            transport->raiseReceive(piece);
        transport->pumpProcessEvents();
        ASSERT_GE(transport->sent.size(), 2u) << handler->history().dump();
        EXPECT_EQ(transport->sent[1], std::string("\x00\x00\x00\x0b\x00\x00\x00\x01\x00\x01\x07", 11));
        EXPECT_TRUE(handler->isConnected());
        handler->attachTransport(nullptr);
        handler.reset();
        setCurrentHandler(nullptr);
    }
}
