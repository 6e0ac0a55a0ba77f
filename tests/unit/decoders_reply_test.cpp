// Reply decoders: golden payloads per decoder family (single fields, strings,
// identifier widths, model tables, lists), the deliberate width choices, the
// owning-class lookup through the request, and one sweep of cut, garbage and
// huge-count payloads over every decoder.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXField.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXMachineEvents.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThread.h"
#include "jdwpkrvdbg/model/JXThreadList.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/modMain.h"

#include "decoders_test_support.h"

namespace jdwpkrvdbg {
namespace {

using decoder_tests::bytes;

class ReplyDecoders : public decoder_tests::FreshHandler {
protected:
    void SetUp() override
    {
        FreshHandler::SetUp();
        cls_ = std::make_shared<JXClass>();
        cls_->ClassID = 0x10;
        cls_->ClassSignature = "Lpkg/Name;";
        jvm_->addClass(cls_);
        method_ = std::make_shared<JXMethod>();
        method_->MethodID = 0x31;
        method_->MethodName = "run";
        method_->MethodSignature = "()V";
        method_->ClassID = 0x10;
        cls_->addMethod(method_);
    }
    // The reply whose request named class and method, as the routing hands it.
    static JDWPMessageData::MsgRef replyTo(double classID, double methodID = 0)
    {
        auto request = std::make_shared<JDWPMessage>();
        request->myDataContainer()->RequestClassID = classID;
        request->myDataContainer()->RequestMethodID = methodID;
        auto reply = std::make_shared<JDWPMessage>();
        reply->myRequestMessage = request;
        return reply;
    }

    std::shared_ptr<JXClass> cls_;
    std::shared_ptr<JXMethod> method_;
};

TEST_F(ReplyDecoders, SingleFieldDecodersFillTheirProperty)
{
    using Decode = std::function<bool(JDWPMessageData&, const std::string&)>;
    using Get = std::function<double(const JDWPMessageData&)>;
    const Decode referenceType = [](JDWPMessageData& d, const std::string& s) { return d.processReferenceType(s); };
    const Decode threadState = [](JDWPMessageData& d, const std::string& s) { return d.processThreadState(s); };
    const Decode bySignature = [](JDWPMessageData& d, const std::string& s) {
        return d.processGetClassIDBySignatureMessage(s);
    };
    const Get classID = [](const JDWPMessageData& d) { return d.RequestClassID; };
    const std::string found = bytes("\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x33\x00\x00\x00\x07");
    const struct {
        const char* name;
        Decode decode;
        std::string payload;
        Get get;
        double expected;
    } cases[] = {
        {"reference type: id at position 2", referenceType, bytes("\x01\x00\x00\x00\x00\x00\x00\x12\x34"), classID,
         4660},
        {"reference type: tag discarded", referenceType, bytes("\x07\x00\x00\x00\x00\x00\x00\x00\x01"),
         [](const JDWPMessageData& d) { return d.RequestClassTypeTag; }, 0},
        {"superclass", [](JDWPMessageData& d, const std::string& s) { return d.processSuperClass(s); },
         bytes("\x00\x00\x00\x00\x00\x00\x01\x00"), classID, 256},
        {"frame count", [](JDWPMessageData& d, const std::string& s) { return d.processFrameCount(s); },
         bytes("\x00\x00\x00\x03"), [](const JDWPMessageData& d) { return d.RequestFrameCount; }, 3},
        {"thread state", threadState, bytes("\x00\x00\x00\x04\x00\x00\x00\x01"),
         [](const JDWPMessageData& d) { return d.RequestThreadState; }, 4},
        {"thread suspended at position 5", threadState, bytes("\x00\x00\x00\x04\x00\x00\x00\x01"),
         [](const JDWPMessageData& d) { return d.RequestThreadSuspended; }, 1},
        {"by signature: none is -1", bySignature, bytes("\x00\x00\x00\x00"), classID, -1},
        {"by signature: id", bySignature, found, classID, 51},
        {"by signature: status", bySignature, found, [](const JDWPMessageData& d) { return d.RequestClassStatus; },
         7},
        {"by signature: the first of two is kept", bySignature,
         found + bytes("\x01\x00\x00\x00\x00\x00\x00\x00\x44\x00\x00\x00\x07"), classID, 51},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        JDWPMessageData data;
        c.decode(data, c.payload);
        EXPECT_EQ(c.get(data), c.expected);
    }

    // Intended asymmetry: with 4-byte object ids and 8-byte type ids the
    // reference type is still read in 4 bytes.
    jvm_->SIZE_ObjectID = 4;
    JDWPMessageData narrow;
    narrow.processReferenceType(bytes("\x01\x00\x00\x00\x2a\xff\xff\xff\xff"));
    EXPECT_EQ(narrow.RequestClassID, 42);
}

TEST_F(ReplyDecoders, OnlyTheStringValueConvertsModifiedUtf8)
{
    // The VM's modified UTF-8 writes NUL as C0 80.
    const std::string modified = bytes("\x00\x00\x00\x04" "a\xc0\x80z");
    JDWPMessageData raw, converted;
    raw.processGetSignature(modified);
    raw.processThreadName(modified);
    converted.processUTF8String(modified);
    EXPECT_EQ(raw.RequestUTF8String, bytes("a\xc0\x80z"));
    EXPECT_EQ(raw.RequestThreadName, bytes("a\xc0\x80z"));
    EXPECT_EQ(converted.RequestUTF8String, bytes("a\x00z"));
}

TEST_F(ReplyDecoders, VersionIsStoredAndAnnounced)
{
    struct Lines : JXMachineEvents {
        void DebugMessage(const std::string& s) override { lines.push_back(s); }
        std::vector<std::string> lines;
    };
    auto lines = std::make_shared<Lines>();
    jvm_->setEvents(lines);
    JDWPMessageData data;
    data.processVersion(bytes("\x00\x00\x00\x04" "desc" "\x00\x00\x00\x11\x00\x00\x00\x00"
                              "\x00\x00\x00\x07" "17.0.15" "\x00\x00\x00\x08" "OpenJ\xc3\xa9K"));
    EXPECT_EQ(jvm_->VMDescription, "desc");
    EXPECT_EQ(jvm_->VMMajor, 17);
    EXPECT_EQ(jvm_->VMVersion, "17.0.15");
    EXPECT_EQ(jvm_->VMName, "OpenJ\xc3\xa9K");
    EXPECT_NE(std::find(lines->lines.begin(), lines->lines.end(), " *** OpenJ\xc3\xa9K 17.0.15"), lines->lines.end());
    jvm_->setEvents(nullptr);
}

TEST_F(ReplyDecoders, ListsKeepReplyOrderAndTheirWidths)
{
    // Frames: frame width 4, location with object width 8 and method width 4.
    jvm_->SIZE_FrameID = 4;
    jvm_->SIZE_MethodID = 4;
    JDWPMessageData frames;
    frames.processFrameList(bytes("\x00\x00\x00\x02"
                                  "\x00\x00\x00\x0a" "\x01\x00\x00\x00\x00\x00\x00\x00\x10\x00\x00\x00\x05"
                                  "\x00\x00\x00\x00\x00\x00\x00\x07"
                                  "\x00\x00\x00\x0b" "\x01\x00\x00\x00\x00\x00\x00\x00\x11\x00\x00\x00\x06"
                                  "\x00\x00\x00\x00\x00\x00\x00\x09"));
    ASSERT_EQ(frames.requestFrame().size(), 2u);
    EXPECT_EQ(frames.requestFrame()[0].FrameID, 10);
    EXPECT_EQ(frames.requestFrame()[0].FrameLocation.ClassID, 16);
    EXPECT_EQ(frames.requestFrame()[0].FrameLocation.MethodID, 5);
    EXPECT_EQ(frames.requestFrame()[0].FrameLocation.Index, 7);
    EXPECT_EQ(frames.requestFrame()[1].FrameID, 11);
    EXPECT_EQ(frames.requestFrame()[1].FrameLocation.Index, 9);

    JDWPMessageData threads;
    threads.processAllThreads(bytes("\x00\x00\x00\x02" "\x00\x00\x00\x00\x00\x00\x00\x05"
                                    "\x00\x00\x00\x00\x00\x00\x00\x02"));
    ASSERT_TRUE(threads.RequestThreads);
    ASSERT_EQ(threads.RequestThreads->Count(), 2);
    EXPECT_EQ(threads.RequestThreads->Item(1)->threadID, 5);
    EXPECT_EQ(threads.RequestThreads->Item(2)->threadID, 2);

    // Classes take the reference-type width.
    jvm_->SIZE_RefTypeID = 4;
    JDWPMessageData classes;
    classes.processAllClasses(bytes("\x00\x00\x00\x02"
                                    "\x01\x00\x00\x00\x21\x00\x00\x00\x03LA;\x00\x00\x00\x07"
                                    "\x03\x00\x00\x00\x22\x00\x00\x00\x03[[I\x00\x00\x00\x04"));
    ASSERT_EQ(classes.allClasses().size(), 2u);
    EXPECT_EQ(classes.allClasses()[0].ClassID, 33);
    EXPECT_EQ(classes.allClasses()[0].ClassSignature, "LA;");
    EXPECT_EQ(classes.allClasses()[1].ClassTypeTag, 3);
    EXPECT_EQ(classes.allClasses()[1].ClassID, 34);
    EXPECT_EQ(classes.allClasses()[1].ClassStatus, 4);
    EXPECT_FALSE(jvm_->getClassByID(33)) << "made, not registered";
}

TEST_F(ReplyDecoders, MethodsAndFieldsGoToTheRequestedClass)
{
    ASSERT_TRUE(JDWPMessageData().processMethods(bytes("\x00\x00\x00\x01"
                                                       "\x00\x00\x00\x00\x00\x00\x00\x32" "\x00\x00\x00\x04main"
                                                       "\x00\x00\x00\x16([Ljava/lang/String;)V" "\x00\x00\x00\x09"),
                                                 replyTo(0x10)));
    auto main = cls_->JMethodID(0x32);
    ASSERT_TRUE(main);
    EXPECT_EQ(main->MethodName, "main");
    EXPECT_EQ(main->MethodSignature, "([Ljava/lang/String;)V");
    EXPECT_EQ(main->ClassID, 0x10);
    EXPECT_TRUE(main->isStatic());

    // Intended: the field id is read with the method-id width (4 here),
    // not the field-id width (8).
    jvm_->SIZE_MethodID = 4;
    ASSERT_TRUE(JDWPMessageData().processFields(bytes("\x00\x00\x00\x01" "\x00\x00\x00\x41" "\x00\x00\x00\x05" "count"
                                                      "\x00\x00\x00\x01I" "\x00\x00\x00\x08"),
                                                replyTo(0x10)));
    auto count = cls_->JField("count");
    ASSERT_TRUE(count);
    EXPECT_EQ(count->FieldID, 0x41);
    EXPECT_EQ(count->FieldSignature, "I");
    EXPECT_EQ(count->FieldBits, 8);
}

TEST_F(ReplyDecoders, LineAndVariableTablesGoToTheRequestedMethod)
{
    ASSERT_TRUE(JDWPMessageData().processLineTable(bytes("\x00\x00\x00\x00\x00\x00\x00\x00"
                                                         "\x00\x00\x00\x00\x00\x00\x00\x14" "\x00\x00\x00\x03"
                                                         "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x0a"
                                                         "\x00\x00\x00\x00\x00\x00\x00\x05\x00\x00\x00\x0b"
                                                         "\x00\x00\x00\x00\x00\x00\x00\x09\x00\x00\x00\x0d"),
                                                   replyTo(0x10, 0x31)));
    EXPECT_EQ(method_->lineTable(),
              (std::vector<std::pair<double, double>>{{0.0, 10.0}, {5.0, 11.0}, {9.0, 13.0}}));
    JDWPJLocation at7;
    at7.Index = 7;
    double line = 0;
    EXPECT_TRUE(method_->LocationToSrcLine(at7, line));
    EXPECT_EQ(line, 11);

    ASSERT_TRUE(JDWPMessageData().processVariableTable(
        bytes("\x00\x00\x00\x01\x00\x00\x00\x02"
              "\x00\x00\x00\x00\x00\x00\x00\x00" "\x00\x00\x00\x04" "data" "\x00\x00\x00\x12" "Ljava/lang/String;"
              "\x00\x00\x00\x0c\x00\x00\x00\x00"
              "\x00\x00\x00\x00\x00\x00\x00\x02" "\x00\x00\x00\x01" "i" "\x00\x00\x00\x01" "I"
              "\x00\x00\x00\x08\x00\x00\x00\x01"),
        replyTo(0x10, 0x31)));
    const auto& table = method_->variableTable();
    EXPECT_EQ(table.argCnt, 1);
    ASSERT_EQ(table.Slot.size(), 2u);
    EXPECT_EQ(table.Slot[0].vt_signature, "Ljava/lang/String;");
    EXPECT_EQ(table.Slot[0].vt_length, 12);
    EXPECT_EQ(table.Slot[1].vt_codeIndex, 2);
    EXPECT_EQ(method_->getVarSlot("i").vt_slot, 1);
}

TEST_F(ReplyDecoders, TableDecodersWithoutTheirOwnerReadNothing)
{
    const std::string methodsPayload = bytes("\x00\x00\x00\x01\x00\x00\x00\x00\x00\x00\x00\x77"
                                             "\x00\x00\x00\x01x\x00\x00\x00\x03()V\x00\x00\x00\x00");
    const struct {
        const char* name;
        JDWPMessageData::MsgRef owner;
    } cases[] = {
        {"unknown class", replyTo(0x99, 0x31)},
        {"unknown method", replyTo(0x10, 0x98)},
        {"no owner", nullptr},
        {"owner without request", std::make_shared<JDWPMessage>()},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        JDWPMessageData data;
        EXPECT_FALSE(data.processLineTable(bytes("\x00\x00\x00\x00"), c.owner));
        EXPECT_FALSE(data.processVariableTable(bytes("\x00\x00\x00\x00"), c.owner));
        if (std::string(c.name) != "unknown method") {
            EXPECT_FALSE(data.processMethods(methodsPayload, c.owner));
            EXPECT_FALSE(data.processFields(methodsPayload, c.owner));
        }
    }
    EXPECT_FALSE(cls_->JMethodID(0x77));
}

// Every reply decoder on one payload; each must return without reading
// outside it (ASan watches) and without sizing anything by an unchecked count.
void runEveryReplyDecoder(const std::string& payload, const JDWPMessageData::MsgRef& owner)
{
    JDWPMessageData d;
    d.processReferenceType(payload);
    d.processSuperClass(payload);
    d.processGetThis(payload);
    d.processFrameCount(payload);
    d.processThreadGroup(payload);
    d.processThreadState(payload);
    d.processThreadName(payload);
    d.processThreadGroupName(payload);
    d.processGetSignature(payload);
    d.processUTF8String(payload);
    d.processEventRequest(payload);
    d.processGetClassIDBySignatureMessage(payload);
    d.processFields(payload, owner);
    d.processMethods(payload, owner);
    d.processLineTable(payload, owner);
    d.processVariableTable(payload, owner);
    d.processFrameList(payload);
    EXPECT_LE(d.requestFrame().size(), payload.size());
    d.processAllThreads(payload);
    ASSERT_TRUE(d.RequestThreads);
    EXPECT_LE(static_cast<size_t>(d.RequestThreads->Count()), payload.size());
    d.processAllClasses(payload);
    EXPECT_LE(d.allClasses().size(), payload.size());
    d.processGetValue(payload, owner);
    EXPECT_LE(d.requestVar().size(), payload.size());
    d.processGetField(payload, owner);
    d.processGetStaticField(payload, owner);
    d.processInvokeMethod(payload);
    d.processInvokeStaticMethod(payload);
    EXPECT_EQ(d.requestVar().size(), 1u);
    EXPECT_LE(d.RequestThreadName.size(), payload.size());
    EXPECT_LE(d.RequestUTF8String.size(), 3 * payload.size());
}

TEST_F(ReplyDecoders, CutHugeAndRandomPayloadsAreHarmless)
{
    const auto owner = replyTo(0x10, 0x31);
    std::vector<std::string> payloads = {
        bytes("\x7f\xff\xff\xff\x00\x00\x00\x00\x00\x00"),
        bytes("\x80\x00\x00\x00\x01\x02\x03"),
        // huge string lengths inside records
        bytes("\x00\x00\x00\x02\x01\x00\x00\x00\x00\x00\x00\x00\x01\x7f\xff\xff\xff"),
        bytes("\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x7f\xff\xff\xff\x00\x00"),
        bytes("\x00\x00\x00\x01\x7f\xff\xff\xff\x7f\xff\xff\xff\x00"),
    };
    // Every prefix of golden method, variable and value-list payloads.
    for (const std::string& g :
         {bytes("\x00\x00\x00\x02\x00\x00\x00\x00\x00\x00\x00\x31\x00\x00\x00\x04main\x00\x00\x00\x03()V"
                "\x00\x00\x00\x09\x00\x00\x00\x00\x00\x00\x00\x32\x00\x00\x00\x01x\x00\x00\x00\x03()V"
                "\x00\x00\x00\x01"),
          bytes("\x00\x00\x00\x01\x00\x00\x00\x02\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x04" "data"
                "\x00\x00\x00\x01I\x00\x00\x00\x0c\x00\x00\x00\x00"),
          bytes("\x00\x00\x00\x02I\x00\x00\x00\x07s\x00\x00\x00\x00\x00\x00\x00\x00")})
        for (size_t n = 0; n <= g.size(); ++n)
            payloads.push_back(g.substr(0, n));
    std::mt19937 random(20240611);
    for (int round = 0; round < 300; ++round) {
        std::string p(random() % 48, '\0');
        for (auto& c : p)
            c = static_cast<char>(random() % 4 == 0 ? 0x7f : random() & 0xff);
        payloads.push_back(p);
    }
    for (const auto& p : payloads) {
        SCOPED_TRACE(::testing::PrintToString(p));
        runEveryReplyDecoder(p, owner);
    }

    // Garbage identifier widths never widen a read past the payload either.
    JDWPMessageData sizes;
    sizes.processIDSizes(bytes("\x00\x00\x7f\xff\x00\x00\x00\x00\xff\xff\xff\xff\x00\x01\x00\x00\x00\x00\x00\x40"));
    runEveryReplyDecoder(bytes("\x00\x00\x00\x03\x01\x02\x03\x04\x05\x06\x07\x08\x09"), nullptr);
}

} // namespace
} // namespace jdwpkrvdbg
