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

JDWPHandler::Msg version(JDWPHandler& handler, int32_t waitMs = 4000)
{
    return handler.sendSync(handler.myFactory()->createGetVersionMessage(), waitMs);
}

struct Row {
    const char* name;
    bool opens; // the opening sequence completes before the fault
    FaultPeer::Script peer;
    std::function<void(JDWPHandler&, TickShift&, FaultPeer&)> host = nullptr;
    bool endsSession = true;    // else the host keeps working: an ordinary call is answered afterwards
    const char* debugText = ""; // a progress line the row must show
};

// Answers the opening, runs `action`, then serves.
FaultPeer::Script afterOpen(std::function<void(PeerLink&)> action)
{
    return [action](PeerLink& link) {
        if (link.open()) {
            action(link);
            link.serve();
        }
    };
}

// Answers the opening, then serves with `onVersion` taking over the first
// Version command.
FaultPeer::Script onFirstVersion(std::function<void(PeerLink&, const Packet&)> onVersion)
{
    return [onVersion](PeerLink& link) {
        bool done = false;
        if (link.open())
            link.serve([&](const Packet& c) {
                if (done || c.set != 1 || c.cmd != 1)
                    return false;
                onVersion(link, c);
                return done = true;
            });
    };
}

std::vector<Row> faultRows()
{
    std::vector<Row> rows;
    rows.push_back({"garbage instead of the handshake", false,
                    [](PeerLink& link) {
                        link.readHandshake();
                        link.send("HTTP/1.1 400 Bad Request\r\n\r\n");
                        link.serve();
                    },
                    nullptr, true, " *** JDWP-Connection failed ... malformed packet length"});
    rows.push_back({"no handshake at all (4000 ms passed on the clock)", false,
                    [](PeerLink& link) {
                        link.readHandshake();
                        link.waitHangUp(20000);
                    },
                    [](JDWPHandler&, TickShift& clock, FaultPeer&) { clock.advance(4100); }, true,
                    " *** JDWP-Connection failed ... no handshake from the VM"});
    // The Version reply cut short by EOF: the session ends, and the waiting
    // call with it, not with its time-out.
    for (const auto& [name, partial] : std::vector<std::pair<const char*, std::string>>{
             {"EOF after the 11-byte header of a reply", ""}, {"EOF in the middle of a reply body", "\0\0\0\x04Java"}})
        rows.push_back({name, true, onFirstVersion([partial = partial](PeerLink& link, const Packet& c) {
                            link.send(be32(30) + be32(c.id) + std::string("\x80\x00\x00", 3) + partial);
                            link.shutdownWrite();
                        }),
                        [](JDWPHandler& handler, TickShift&, FaultPeer&) {
                            const int64_t start = nowMs();
                            EXPECT_EQ(version(handler), nullptr);
                            EXPECT_LT(nowMs() - start, 3000) << "the call ends with the connection";
                        }});
    rows.push_back({"a length field below 11", true, afterOpen([](PeerLink& link) {
                        link.send(std::string("\x00\x00\x00\x05\x00\x00\x00\x09\x80\x00\x00", 11));
                    }),
                    nullptr, true, " *** JDWP-Connection failed ... malformed packet length 5"});
    rows.push_back({"a length field of 2 GB", true, afterOpen([](PeerLink& link) {
                        link.send(std::string("\x80\x00\x00\x00\x00\x00\x00\x09\x80\x00\x00", 11) +
                                  std::string(4096, 'x'));
                    }),
                    nullptr, true, " *** JDWP-Connection failed ... malformed packet length 2147483648"});
    rows.push_back({"a composite event while a synchronous call waits", true,
                    onFirstVersion([](PeerLink& link, const Packet& c) {
                        // Policy all, one class-prepare event (8) for type 0x4242 "LOther;".
                        link.send(eventPacket(u8(2) + be32(1) + u8(8) + be32(7) + be64(1) + u8(1) + be64(0x4242) +
                                              jstr("LOther;") + be32(7)));
                        link.answer(c);
                    }),
                    [](JDWPHandler& handler, TickShift&, FaultPeer&) {
                        ASSERT_NE(version(handler), nullptr);
                        auto cls = handler.myJVM()->getClassByID(0x4242, false);
                        ASSERT_NE(cls, nullptr) << "the event was decoded during the wait";
                        EXPECT_EQ(cls->ClassName(), "Other");
                    },
                    false});
    rows.push_back({"a peer that stops reading", true, afterOpen([](PeerLink& link) { link.waitHangUp(30000); }),
                    [](JDWPHandler& handler, TickShift& clock, FaultPeer& peer) {
                        // 16 MiB for a peer that reads nothing: every send
                        // returns at once, the rest waits in the transport;
                        // a call then still gives up on its time-out, on a
                        // clock that moves 20 ms per pump pass.
                        const int64_t start = nowMs();
                        const std::string classBytes(1 << 20, '\xca');
                        for (int i = 0; i < 16; ++i)
                            handler.sendAsync(handler.myFactory()->createClassRedefineMessage(1, classBytes));
                        const int idle = MessagePump::instance().addIdle([&] { clock.advance(20); });
                        const uint32_t ticks = GetTickCount();
                        EXPECT_EQ(version(handler, 1000), nullptr);
                        const uint32_t waited = GetTickCount() - ticks;
                        MessagePump::instance().removeIdle(idle);
                        EXPECT_LT(nowMs() - start, 3000) << "a send or the wait blocked the host";
                        EXPECT_GE(waited, 1000u) << "gave up before its time-out";
                        EXPECT_LE(waited, 1200u) << "waited past its time-out";
                        EXPECT_TRUE(handler.isConnected());
                        peer.hangUp(); // the peer gives up: the session ends
                    }});
    return rows;
}

class FaultPeerMatrix : public LiveSessionTest, public ::testing::WithParamInterface<size_t> {};

TEST_P(FaultPeerMatrix, KeepsTheHostWorkingOrEndsTheSessionCleanly)
{
    const Row row = faultRows()[GetParam()];
    FaultPeer peer(row.peer);
    ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", std::to_string(peer.port()), true));
    if (row.opens) {
        ASSERT_TRUE(pumpUntil([&] { return !jvm->VMName.empty() && jvm->JVMState() == VMRunning; })) << dump();
    }
    if (row.host)
        row.host(*handler, clock, peer);
    if (row.endsSession) {
        EXPECT_TRUE(pumpUntil([&] { return jvm->JVMState() == VMDead && !handler->isConnected(); }, 6000)) << dump();
        EXPECT_TRUE(log->has("Close"));
    } else {
        jvm->VMName.clear();
        ASSERT_NE(version(*handler), nullptr);
        EXPECT_EQ(jvm->VMName, "OpenJDK 64-Bit Server VM");
        EXPECT_TRUE(handler->isConnected());
        EXPECT_NE(jvm->JVMState(), VMDead);
    }
    EXPECT_TRUE(!*row.debugText || log->sawDebug(row.debugText)) << dump();
    EXPECT_EQ(handler->pendingSyncCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Rows, FaultPeerMatrix, ::testing::Range<size_t>(0, faultRows().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) {
                             std::string name = faultRows()[info.param].name;
                             auto notAlnum = [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); };
                             name.erase(std::remove_if(name.begin(), name.end(), notAlnum), name.end());
                             return name;
                         });

} // namespace

// The handshake cut into pieces by the socket, byte by byte and then its
// last byte together with the first packet: held until it is whole, so the
// session goes on to ask for the identifier sizes (it used to take the first
// piece for a packet with an impossible length and end the session).
TEST(FaultPeerPieces, AHandshakeInPiecesIsTakenWhenWhole)
{
    auto handler = JDWPHandler::create();
    auto transport = std::make_shared<ScriptedTransport>();
    handler->setTransportFactory([transport] { return std::static_pointer_cast<JDWPCon>(transport); });
    ASSERT_TRUE(handler->startVM("", "", "", false, false, 0, "127.0.0.1", "8000", true)) << handler->history().dump();
    ASSERT_EQ(transport->sent.size(), 1u);
    for (char c : std::string("JDWP-Handshak"))
        transport->raiseReceive(std::string(1, c));
    transport->raiseReceive(std::string("e\x00\x00\x00\x0b\x00\x00\x00\x01\x80\x00\x00", 12));
    transport->pumpProcessEvents();
    ASSERT_GE(transport->sent.size(), 2u) << handler->history().dump();
    EXPECT_EQ(transport->sent[1], std::string("\x00\x00\x00\x0b\x00\x00\x00\x01\x00\x01\x07", 11));
    EXPECT_TRUE(handler->isConnected());
    handler->attachTransport(nullptr);
    handler.reset();
    setCurrentHandler(nullptr);
}
