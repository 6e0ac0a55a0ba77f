// Packets on the wire: both framings out, socket and shared-memory parsing in
// (partial data, several packets in one buffer, every split point, replies
// matched to sent commands, the intended little-endian error code, length
// fields that cannot be a packet), routing and the wake-up of a synchronous
// caller.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "codec_test_support.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"
#include "jdwpkrvdbg/session/JDWPFunctions.h"

using namespace jdwpkrvdbg;
using codec_test::hex;
using namespace std::string_literals;

namespace {

class MessageTest : public codec_test::SessionTest {
protected:
    // A command sent through the handler, so that a reply can find it.
    std::shared_ptr<JDWPMessage> sendCommand(int32_t set, int32_t command)
    {
        handler->myMaxSendID += 1;
        auto m = std::make_shared<JDWPMessage>();
        m->myID = handler->myMaxSendID;
        m->myCommandSet = static_cast<COMMAND_SETS>(set);
        m->myCommand = command;
        EXPECT_TRUE(handler->sendAsync(m));
        return m;
    }

    static std::string socketReply(double id, const std::string& error, const std::string& payload)
    {
        return NumberToBytes(11 + static_cast<double>(payload.size()), 4) + NumberToBytes(id, 4) + "\x80"s +
               error + payload;
    }
};

TEST_F(MessageTest, SerialisesInBothFramings)
{
    struct Case {
        const char* name;
        double id, flags;
        int32_t set;
        double command;
        int32_t error;
        std::string payload;
        std::string socket;
        std::string shmem;
    };
    const Case cases[] = {
        {"command", 3, 0, 1, 1, 0, ""s,
         "\x00\x00\x00\x0b" "\x00\x00\x00\x03" "\x00" "\x01\x01"s,
         "\x03\x00\x00\x00" "\x00" "\x01\x01" "\x00\x00\x00\x00"s},
        {"command with payload", 0x01020304, 0, 15, 2, 0, "\x02\x00\x00\x00\x07"s,
         "\x00\x00\x00\x10" "\x01\x02\x03\x04" "\x00" "\x0f\x02" "\x02\x00\x00\x00\x07"s,
         "\x04\x03\x02\x01" "\x00" "\x0f\x02" "\x05\x00\x00\x00" "\x02\x00\x00\x00\x07"s},
        {"reply with error", 7, 128, 1, 1, 20, "\x01\x02"s,
         "\x00\x00\x00\x0d" "\x00\x00\x00\x07" "\x80" "\x00\x14" "\x01\x02"s,
         "\x07\x00\x00\x00" "\x80" "\x00\x14" "\x02\x00\x00\x00" "\x01\x02"s},
    };
    for (const Case& c : cases) {
        JDWPMessage m;
        m.myID = c.id;
        m.myFlags = c.flags;
        m.myCommandSet = static_cast<COMMAND_SETS>(c.set);
        m.myCommand = c.command;
        m.myErrorCode = static_cast<JDWPErrorCodes>(c.error);
        m.setMyData(c.payload);
        EXPECT_EQ(hex(m.toString(true)), hex(c.socket)) << c.name;
        EXPECT_EQ(hex(m.toString(false)), hex(c.shmem)) << c.name;

        handler->bRemoteConnection = true;
        EXPECT_EQ(m.toString(), c.socket) << c.name;
        handler->bRemoteConnection = false;
        EXPECT_EQ(m.toString(), c.shmem) << c.name;
    }
}

TEST_F(MessageTest, KeyIsTheDecimalId)
{
    JDWPMessage m;
    m.myID = 4294967295.0;
    EXPECT_EQ(m.myKey(), "key4294967295");
}

TEST_F(MessageTest, SocketParsingWaitsForWholePacketsAndRejectsImpossibleLengths)
{
    struct Case {
        const char* name;
        std::string buffer;
        double result;
    };
    const Case cases[] = {
        {"empty", ""s, 0},
        {"eight bytes", "\x00\x00\x00\x0b\x00\x00\x00\x01"s, 0},
        {"20 of 30 bytes", "\x00\x00\x00\x1e" "\x00\x00\x00\x01" "\x00\x40\x64"s + std::string(9, 'x'), 0},
        {"9 bytes of a valid header", "\x00\x00\x00\x0b\x00\x00\x00\x01\x00"s, 0},
        {"largest length, partial", "\x04\x00\x00\x00\x00\x00\x00\x01\x00"s, 0},
        {"length 10", "\x00\x00\x00\x0a\x00\x00\x00\x01\x00\x40\x64"s, -1},
        {"length 0", "\x00\x00\x00\x00\x00\x00\x00\x01\x00\x40\x64"s, -1},
        {"length above 64 MiB", "\x04\x00\x00\x01\x00\x00\x00\x01\x00\x40\x64"s, -1},
        {"length FFFFFFFF", "\xff\xff\xff\xff\x00\x00\x00\x01\x00\x40\x64"s, -1},
    };
    for (const Case& c : cases) {
        auto m = std::make_shared<JDWPMessage>();
        EXPECT_EQ(m->createMessageSocket(c.buffer), c.result) << c.name;
        EXPECT_TRUE(m->myData.empty()) << c.name;
    }
}

TEST_F(MessageTest, EverySplitOfTwoPacketsYieldsBothInOrder)
{
    const std::string event = "\x00\x00\x00\x0f" "\x00\x00\x00\x09" "\x00" "\x40\x64" "\xde\xad\xbe\xef"s;
    const size_t streamSize = event.size() + 15;
    for (size_t split = 0; split <= streamSize; ++split) {
        auto request = sendCommand(CMDSET_ThreadReference, TR_FrameCount);
        const std::string reply = socketReply(request->myID, "\x00\x00"s, "\x00\x00\x00\x03"s);
        const std::string stream = event + reply;
        ASSERT_EQ(stream.size(), streamSize);

        // The caller's loop: append, then take packets while any is whole.
        std::string buffer;
        std::vector<std::shared_ptr<JDWPMessage>> taken;
        for (const std::string& piece : {stream.substr(0, split), stream.substr(split)}) {
            buffer += piece;
            while (!buffer.empty()) {
                auto m = std::make_shared<JDWPMessage>();
                double n = m->createMessageSocket(buffer);
                ASSERT_GE(n, 0) << "split " << split;
                if (n == 0)
                    break;
                buffer.erase(0, static_cast<size_t>(n));
                taken.push_back(m);
            }
        }
        ASSERT_EQ(taken.size(), 2u) << "split " << split;
        EXPECT_EQ(taken[0]->myID, 9);
        EXPECT_EQ(taken[0]->myFlags, 0);
        EXPECT_EQ(taken[0]->myCommandSet, CMDSET_Event);
        EXPECT_EQ(taken[0]->myCommand, 100);
        EXPECT_EQ(taken[0]->myData, "\xde\xad\xbe\xef"s);
        EXPECT_EQ(taken[1]->myID, request->myID);
        EXPECT_EQ(taken[1]->myRequestMessage, request);
        EXPECT_EQ(taken[1]->myCommandSet, CMDSET_ThreadReference);
        EXPECT_EQ(taken[1]->myCommand, TR_FrameCount);
        EXPECT_EQ(taken[1]->myData, "\x00\x00\x00\x03"s);
        EXPECT_TRUE(buffer.empty());
    }
    EXPECT_EQ(handler->pendingSentCount(), 0u);
}

TEST_F(MessageTest, RepliesTakeTheirRequestAndReadTheErrorLittleEndian)
{
    const std::string payload = "\x00\x00\x00\x01" "A"s;
    for (bool socket : {true, false}) {
        SCOPED_TRACE(socket ? "socket" : "shared memory");
        auto request = sendCommand(CMDSET_ThreadReference, TR_Name);
        ASSERT_EQ(handler->getMessage(request->myID), request);
        const std::string wire = socket ? socketReply(request->myID, "\x00\x14"s, payload)
                                        : NumberToBytes(request->myID, 4, true) + "\x80" "\x00\x14"s +
                                              NumberToBytes(5, 4, true) + payload;
        auto reply = std::make_shared<JDWPMessage>();
        if (socket)
            EXPECT_EQ(reply->createMessageSocket(wire), static_cast<double>(wire.size()));
        else
            EXPECT_TRUE(reply->createMessageSHMem(wire));
        EXPECT_EQ(reply->myFlags, 128);
        EXPECT_EQ(static_cast<int32_t>(reply->myErrorCode), 5120); // intended, not 20
        EXPECT_EQ(reply->myCommandSet, CMDSET_ThreadReference);
        EXPECT_EQ(reply->myCommand, TR_Name);
        EXPECT_EQ(reply->myRequestMessage, request);
        EXPECT_EQ(reply->myData, payload);
        EXPECT_EQ(handler->getMessage(request->myID), nullptr); // taken off the sent table
    }

    // A reply nobody waits for: the socket parser discards the whole buffer,
    // the shared-memory one refuses the record.
    const std::string unknown = socketReply(77, "\x00\x00"s, "\x01"s) +
                                "\x00\x00\x00\x0b" "\x00\x00\x00\x09" "\x00" "\x40\x64"s;
    EXPECT_EQ(std::make_shared<JDWPMessage>()->createMessageSocket(unknown), static_cast<double>(unknown.size()));
    EXPECT_FALSE(std::make_shared<JDWPMessage>()->createMessageSHMem(
        "\x4d\x00\x00\x00" "\x80" "\x00\x00" "\x00\x00\x00\x00"s));

    // A shared-memory event, whole, cut short, or with a length beyond the data.
    const std::string event = "\x2a\x00\x00\x00" "\x00" "\x40\x64" "\x03\x00\x00\x00" "\x01\x02\x03"s;
    auto m = std::make_shared<JDWPMessage>();
    EXPECT_TRUE(m->createMessageSHMem(event));
    EXPECT_EQ(m->myID, 42);
    EXPECT_EQ(m->myCommand, 100);
    EXPECT_EQ(m->myData, "\x01\x02\x03"s);
    for (const std::string& bad : {event.substr(0, 13), event.substr(0, 8),
                                   "\x2a\x00\x00\x00" "\x00" "\x40\x64" "\xff\xff\xff\xff"s})
        EXPECT_FALSE(std::make_shared<JDWPMessage>()->createMessageSHMem(bad)) << hex(bad);
}

TEST_F(MessageTest, ResumeAndSuspendRepliesChangeTheStateWithoutDecoding)
{
    auto jvm = handler->myJVM();
    struct Step {
        int32_t command;
        int32_t error;
        VMState after;
    };
    // A resume reply with an error changes nothing; a suspend reply always
    // means suspended; once the VM is dead, neither revives it.
    const Step steps[] = {
        {VM_RESUME, 0, VMRunning},
        {VM_SUSPEND, 0, VMSuspend},
        {VM_RESUME, 13, VMSuspend},
        {VM_RESUME, 0, VMRunning},
        {VM_SUSPEND, 13, VMSuspend},
        {-1, 0, VMDead},
        {VM_RESUME, 0, VMDead},
        {VM_SUSPEND, 0, VMDead},
    };
    jvm->GoVMStateChange(VMSuspend, -1);
    for (const Step& s : steps) {
        if (s.command < 0) {
            jvm->GoVMStateChange(VMDead, -1);
            continue;
        }
        auto m = std::make_shared<JDWPMessage>();
        m->myFlags = 128;
        m->myCommandSet = CMDSET_VirtualMachine;
        m->myCommand = s.command;
        m->myErrorCode = static_cast<JDWPErrorCodes>(s.error);
        m->processMyData();
        EXPECT_EQ(jvm->JVMState(), s.after) << s.command << "/" << s.error;
    }
}

TEST_F(MessageTest, RoutesPayloadsToTheirDecoders)
{
    // Decoders may send follow-up commands; with the transport down they
    // are refused at once instead of waiting for an answer.
    transport->connectedFlag = false;

    // ID sizes (1/7).
    auto sizes = std::make_shared<JDWPMessage>();
    sizes->myFlags = 128;
    sizes->myCommandSet = CMDSET_VirtualMachine;
    sizes->myCommand = VM_ID_SIZES;
    sizes->setMyData("\x00\x00\x00\x04" "\x00\x00\x00\x05" "\x00\x00\x00\x06" "\x00\x00\x00\x07"
                     "\x00\x00\x00\x03"s);
    sizes->processMyData();
    auto jvm = handler->myJVM();
    EXPECT_EQ((std::vector<int>{jvm->SIZE_FieldID, jvm->SIZE_MethodID, jvm->SIZE_ObjectID, jvm->SIZE_RefTypeID,
                                jvm->SIZE_FrameID}),
              (std::vector<int>{4, 5, 6, 7, 3}));

    // Event requests are decoded only as replies.
    for (double flags : {128.0, 0.0}) {
        auto m = std::make_shared<JDWPMessage>();
        m->myFlags = flags;
        m->myCommandSet = CMDSET_EventRequest;
        m->myCommand = ER_SET;
        m->setMyData("\x00\x00\x00\x07"s);
        m->processMyData();
        EXPECT_EQ(m->myDataContainer()->RequestEventID, flags == 128 ? 7 : 0);
    }

    // Pop frames has nothing to decode and succeeds; an unlisted pair is not
    // decoded at all.
    for (auto [set, command, decoded] : {std::tuple{CMDSET_StackFrame, int32_t(SF_POPFRAMES), true},
                                         std::tuple{CMDSET_ThreadReference, int32_t(TR_Suspend), false}}) {
        auto m = std::make_shared<JDWPMessage>();
        m->myFlags = 128;
        m->myCommandSet = set;
        m->myCommand = command;
        m->setMyData("\x00\x00\x00\x07"s);
        EXPECT_EQ(m->processMyData(), decoded) << command;
    }
}

TEST_F(MessageTest, DecodedReplyCompletesTheWaitingCallWithTheSameId)
{
    auto request = handler->myFactory()->createGetFrameCountMessage(6);
    std::shared_ptr<JDWPMessage> delivered;
    // The VM answers at once: an unrouted packet first (a different id must not
    // complete the wait), then the reply.
    bool answered = false;
    transport->onSend = [&](const std::string&) {
        if (answered)
            return;
        answered = true;
        auto other = std::make_shared<JDWPMessage>();
        other->createMessageSocket("\x00\x00\x00\x0b" "\x00\x00\x03\xe7" "\x00" "\x63\x01"s);
        other->processMyData();
        auto reply = std::make_shared<JDWPMessage>();
        reply->createMessageSocket(socketReply(request->myID, "\x00\x00"s, "\x00\x00\x00\x02"s));
        reply->processMyData();
        delivered = reply;
    };
    auto answer = handler->sendSync(request, 4000);
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer, delivered);
    EXPECT_EQ(answer->myRequestMessage, request);
    EXPECT_EQ(handler->pendingSyncCount(), 0u);
}

TEST_F(MessageTest, ArbitraryBytesNeverBreakTheParsers)
{
    // Deterministic pseudo-random buffers, some with a plausible header, fed
    // to every parser; under the sanitizers any read outside a buffer fails.
    uint32_t state = 12345;
    auto next = [&] {
        state = state * 1103515245u + 12345u;
        return (state >> 16) & 0xff;
    };
    auto request = sendCommand(CMDSET_VirtualMachine, VM_VERSION);
    for (int round = 0; round < 2000; ++round) {
        std::string buf(next() % 40, '\0');
        for (char& c : buf)
            c = static_cast<char>(next());
        if (round % 3 == 0 && buf.size() >= 11) {
            buf.replace(0, 4, NumberToBytes(11 + next() % 40, 4));
            buf[8] = static_cast<char>(round % 2 ? 0x80 : 0);
            buf.replace(4, 4, NumberToBytes(request->myID, 4));
        }
        auto m = std::make_shared<JDWPMessage>();
        double n = m->createMessageSocket(buf);
        EXPECT_LE(n, static_cast<double>(buf.size()));
        EXPECT_LE(m->myData.size(), buf.size());
        std::make_shared<JDWPMessage>()->createMessageSHMem(buf);
        std::string out;
        ReadString(buf, static_cast<int64_t>(next() % 50) - 5, out);
        EXPECT_LE(out.size(), buf.size());
        JDWPJLocation loc;
        ReadLocation(buf, static_cast<int64_t>(next() % 50) - 5, loc);
        Utf8ToText(buf);
        if (!handler->getMessage(request->myID))
            request = sendCommand(CMDSET_VirtualMachine, VM_VERSION);
    }
}

TEST(MessageDescription, NamesCommandsAndEvents)
{
    struct Case {
        int32_t set, command;
        const char* text;
    };
    const Case cases[] = {
        {1, 7, "Get ID-Sizes"},
        {6, 2, "Get Variable-Table"},
        {16, 3, "Get This-Object"},
        {64, EK_BREAKPOINT, "Process Event - Breakpoint"},
        {64, EK_VM_DISCONNECTED, "Process Event - VM Disconnect"},
        {1, 99, ""},
        {99, 1, ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(describeCommand(c.set, c.command), c.text) << c.set << "/" << c.command;
}

} // namespace
