// Packets on the wire: both framings out, socket and shared-memory parsing in
// (partial data, several packets in one buffer, every split point, replies
// matched to sent commands, the intended little-endian error code, length
// fields that cannot be a packet) and routing through the command table.
// Arbitrary bytes are the fuzz targets' (fuzz/), the wake-up of a synchronous
// caller session_exchange_test's.
// The tables of byte literals keep their hand layout:
// clang-format off
#include <tuple>
#include <vector>

#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;
using namespace std::string_literals;

namespace {

// A parsed packet as the routing receives it.
std::shared_ptr<JDWPMessage> packet(int32_t set, int32_t command, const std::string& data = "", double flags = 128,
                                    int32_t error = 0)
{
    auto m = std::make_shared<JDWPMessage>();
    m->myFlags = flags;
    m->myCommandSet = static_cast<COMMAND_SETS>(set);
    m->myCommand = command;
    m->myErrorCode = static_cast<JDWPErrorCodes>(error);
    m->myData = data;
    return m;
}

class MessageTest : public SessionTest {
protected:
    // A command sent through the handler, so that a reply can find it.
    std::shared_ptr<JDWPMessage> sendCommand(int32_t set, int32_t command)
    {
        auto m = packet(set, command, "", 0);
        m->myID = ++handler->myMaxSendID;
        EXPECT_TRUE(handler->sendAsync(m));
        return m;
    }
};

TEST_F(MessageTest, SerialisesInBothFramings)
{
    EXPECT_TRUE(handler->bRemoteConnection) << "standard JDWP framing unless the host says otherwise";
    const struct {
        const char* name;
        double id, flags;
        int32_t set, command, error;
        std::string payload, socket, shmem;
    } cases[] = {
        {"command with payload", 0x01020304, 0, 15, 2, 0, "\x02\x00\x00\x00\x07"s,
         "\x00\x00\x00\x10" "\x01\x02\x03\x04" "\x00" "\x0f\x02" "\x02\x00\x00\x00\x07"s,
         "\x04\x03\x02\x01" "\x00" "\x0f\x02" "\x05\x00\x00\x00" "\x02\x00\x00\x00\x07"s},
        {"reply with error", 7, 128, 1, 1, 20, "\x01\x02"s,
         "\x00\x00\x00\x0d" "\x00\x00\x00\x07" "\x80" "\x00\x14" "\x01\x02"s,
         "\x07\x00\x00\x00" "\x80" "\x00\x14" "\x02\x00\x00\x00" "\x01\x02"s},
    };
    for (const auto& c : cases) {
        auto m = packet(c.set, c.command, c.payload, c.flags, c.error);
        m->myID = c.id;
        for (bool socket : {true, false}) {
            handler->bRemoteConnection = socket; // the default framing follows the handler
            EXPECT_EQ(hex(m->toString(socket)), hex(socket ? c.socket : c.shmem)) << c.name;
            EXPECT_EQ(m->toString(), socket ? c.socket : c.shmem) << c.name;
        }
    }
    // The sent-table key is the id in plain decimal, even at 32 bits.
    JDWPMessage big;
    big.myID = 4294967295.0;
    EXPECT_EQ(big.myKey(), "key4294967295");
}

TEST_F(MessageTest, SocketParsingWaitsForWholePacketsAndRejectsImpossibleLengths)
{
    // Packets cut at every point are the session's split tests.
    const std::pair<std::string, double> cases[] = {
        {"\x04\x00\x00\x00\x00\x00\x00\x01\x00"s, 0}, // the largest length, partial
        {"\x00\x00\x00\x0a\x00\x00\x00\x01\x00\x40\x64"s, -1}, {"\x00\x00\x00\x00\x00\x00\x00\x01\x00\x40\x64"s, -1},
        {"\x04\x00\x00\x01\x00\x00\x00\x01\x00\x40\x64"s, -1}, // above 64 MiB
        {"\xff\xff\xff\xff\x00\x00\x00\x01\x00\x40\x64"s, -1},
    };
    for (const auto& [buffer, result] : cases) {
        auto m = std::make_shared<JDWPMessage>();
        EXPECT_EQ(m->createMessageSocket(buffer), result) << hex(buffer);
        EXPECT_TRUE(m->myData.empty()) << hex(buffer);
    }
}

TEST_F(MessageTest, RepliesTakeTheirRequestAndReadTheErrorLittleEndian)
{
    const std::string payload = "\x00\x00\x00\x01" "A"s;
    for (bool socket : {true, false}) {
        SCOPED_TRACE(socket ? "socket" : "shared memory");
        auto request = sendCommand(CMDSET_ThreadReference, TR_Name);
        // Error 20 in network order, as the VM writes it.
        const std::string wire = socket ? replyPacket(static_cast<uint32_t>(request->myID), payload, 20)
                                        : NumberToBytes(request->myID, 4, true) + "\x80" "\x00\x14"s +
                                              NumberToBytes(5, 4, true) + payload;
        auto reply = std::make_shared<JDWPMessage>();
        if (socket)
            EXPECT_EQ(reply->createMessageSocket(wire), static_cast<double>(wire.size()));
        else
            EXPECT_TRUE(reply->createMessageSHMem(wire));
        // The error reads 5120, not 20: intended.
        EXPECT_EQ(std::tuple(reply->myFlags, static_cast<int32_t>(reply->myErrorCode), reply->myCommandSet,
                             reply->myCommand, reply->myRequestMessage, reply->myData),
                  std::tuple(128.0, 5120, CMDSET_ThreadReference, static_cast<double>(TR_Name), request, payload));
        EXPECT_EQ(handler->getMessage(request->myID), nullptr); // taken off the sent table
    }

    // A reply nobody waits for: the shared-memory parser refuses the record.
    EXPECT_FALSE(std::make_shared<JDWPMessage>()->createMessageSHMem(
        "\x4d\x00\x00\x00" "\x80" "\x00\x00" "\x00\x00\x00\x00"s));

    // A shared-memory event, whole, cut short, or with a length beyond the data.
    const std::string shmEvent = "\x2a\x00\x00\x00" "\x00" "\x40\x64" "\x03\x00\x00\x00" "\x01\x02\x03"s;
    auto m = std::make_shared<JDWPMessage>();
    EXPECT_TRUE(m->createMessageSHMem(shmEvent));
    EXPECT_EQ(std::tuple(m->myID, m->myCommand, m->myData), std::tuple(42.0, 100.0, "\x01\x02\x03"s));
    for (const std::string& bad : {shmEvent.substr(0, 13), shmEvent.substr(0, 8),
                                   "\x2a\x00\x00\x00" "\x00" "\x40\x64" "\xff\xff\xff\xff"s})
        EXPECT_FALSE(std::make_shared<JDWPMessage>()->createMessageSHMem(bad)) << hex(bad);
}

TEST_F(MessageTest, ResumeAndSuspendRepliesChangeTheStateWithoutDecoding)
{
    // A resume reply with an error changes nothing; a suspend reply always
    // means suspended; once the VM is dead (command -1), neither revives it.
    const struct {
        int32_t command, error;
        VMState after;
    } steps[] = {
        {VM_RESUME, 0, VMRunning}, {VM_SUSPEND, 0, VMSuspend}, {VM_RESUME, 13, VMSuspend},
        {VM_RESUME, 0, VMRunning}, {VM_SUSPEND, 13, VMSuspend}, {-1, 0, VMDead},
        {VM_RESUME, 0, VMDead},    {VM_SUSPEND, 0, VMDead},
    };
    jvm()->GoVMStateChange(VMSuspend, -1);
    for (const auto& s : steps) {
        if (s.command < 0)
            jvm()->GoVMStateChange(VMDead, -1);
        else
            packet(CMDSET_VirtualMachine, s.command, "", 128, s.error)->processMyData();
        EXPECT_EQ(jvm()->JVMState(), s.after) << s.command << "/" << s.error;
    }
}

TEST_F(MessageTest, RoutesPayloadsToTheirDecoders)
{
    // Decoders may send follow-up commands; with the transport down they
    // are refused at once instead of waiting for an answer.
    transport->connectedFlag = false;

    packet(CMDSET_VirtualMachine, VM_ID_SIZES,
           "\x00\x00\x00\x04" "\x00\x00\x00\x05" "\x00\x00\x00\x06" "\x00\x00\x00\x07" "\x00\x00\x00\x03"s)
        ->processMyData();
    EXPECT_EQ((std::vector<int>{jvm()->SIZE_FieldID, jvm()->SIZE_MethodID, jvm()->SIZE_ObjectID, jvm()->SIZE_RefTypeID,
                                jvm()->SIZE_FrameID}),
              (std::vector<int>{4, 5, 6, 7, 3}));

    // Event requests are decoded only as replies.
    for (double flags : {128.0, 0.0}) {
        auto m = packet(CMDSET_EventRequest, ER_SET, "\x00\x00\x00\x07"s, flags);
        m->processMyData();
        EXPECT_EQ(m->myDataContainer()->RequestEventID, flags == 128 ? 7 : 0);
    }
    // Which pairs are decoded at all: the command table's test.
}

TEST(CommandTable, EveryPairRoutesAndNames)
{
    // The exceptions to "a pair is named and its replies decoded": named but
    // not decoded (Exit), decoded but unnamed (thread status, pop frames), a
    // clear named by its command set, events named by their kind, and pairs
    // the table does not know.
    const struct {
        int32_t set, command;
        const char* name;
        bool routed;
    } cases[] = {
        {1, 10, "Exit VM", false},
        {11, 4, "", true},
        {12, 3, "", true},
        {15, 2, "Event-Request", true},
        {16, 4, "", true},
        // The composite's number (100) is also VM Disconnect's kind.
        {64, EV_COMPOSITE, "Process Event - VM Disconnect", true},
        {64, EK_BREAKPOINT, "Process Event - Breakpoint", false},
        {1, 6, "", false},
        {1, 99, "", false},
        {99, 1, "", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(describeCommand(c.set, c.command), c.name) << c.set << "/" << c.command;
        const JDWPCommandEntry* row = findCommand(c.set, c.command);
        EXPECT_EQ(row && row->decode, c.routed) << c.set << "/" << c.command;
    }
}

} // namespace
