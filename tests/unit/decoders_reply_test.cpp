// Reply decoders: golden payloads per decoder family (single fields, strings,
// identifier widths, model tables, lists), the deliberate width choices, the
// owning-class lookup through the request, and truncated, empty, garbage and
// huge-count payloads for every decoder.
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

class DebugLines : public JXMachineEvents {
public:
    void DebugMessage(const std::string& s) override { lines.push_back(s); }
    std::vector<std::string> lines;
};

class ReplyDecoders : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler_ = JDWPHandler::create();
        jvm_ = handler_->myJVM();
        decoder_tests::setAllWidths(*jvm_, 8);
    }
    void TearDown() override
    {
        jvm_.reset();
        handler_.reset();
        setCurrentHandler(nullptr);
    }
    void setWidths(int16_t field, int16_t method, int16_t object, int16_t refType, int16_t frame)
    {
        jvm_->SIZE_FieldID = field;
        jvm_->SIZE_MethodID = method;
        jvm_->SIZE_ObjectID = object;
        jvm_->SIZE_RefTypeID = refType;
        jvm_->SIZE_FrameID = frame;
    }
    // A registered class with a signature, so that no lookup needs the VM.
    std::shared_ptr<JXClass> registerClass(double id, const std::string& signature)
    {
        auto cls = std::make_shared<JXClass>();
        cls->ClassID = id;
        cls->ClassSignature = signature;
        jvm_->addClass(cls);
        return cls;
    }
    std::shared_ptr<JXMethod> addMethod(const std::shared_ptr<JXClass>& cls, double id, const std::string& name)
    {
        auto method = std::make_shared<JXMethod>();
        method->MethodID = id;
        method->MethodName = name;
        method->MethodSignature = "()V";
        method->ClassID = cls->ClassID;
        cls->addMethod(method);
        return method;
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

    std::shared_ptr<JDWPHandler> handler_;
    std::shared_ptr<JXMachine> jvm_;
};

// --- single fields --------------------------------------------------------------

TEST_F(ReplyDecoders, SingleFieldDecodersFillTheirProperty)
{
    using Decode = std::function<bool(JDWPMessageData&, const std::string&)>;
    using Get = std::function<double(const JDWPMessageData&)>;
    struct Case {
        const char* name;
        Decode decode;
        std::string payload;
        Get get;
        double expected;
    };
    const Decode referenceType = [](JDWPMessageData& d, const std::string& s) { return d.processReferenceType(s); };
    const Decode superClass = [](JDWPMessageData& d, const std::string& s) { return d.processSuperClass(s); };
    const Decode frameCount = [](JDWPMessageData& d, const std::string& s) { return d.processFrameCount(s); };
    const Decode threadGroup = [](JDWPMessageData& d, const std::string& s) { return d.processThreadGroup(s); };
    const Decode threadState = [](JDWPMessageData& d, const std::string& s) { return d.processThreadState(s); };
    const Decode eventRequest = [](JDWPMessageData& d, const std::string& s) { return d.processEventRequest(s); };
    const Decode bySignature = [](JDWPMessageData& d, const std::string& s) {
        return d.processGetClassIDBySignatureMessage(s);
    };
    const Get classID = [](const JDWPMessageData& d) { return d.RequestClassID; };
    const Get classTag = [](const JDWPMessageData& d) { return d.RequestClassTypeTag; };
    const Get classStatus = [](const JDWPMessageData& d) { return d.RequestClassStatus; };

    const std::vector<Case> cases = {
        {"reference type: id at position 2", referenceType, bytes("\x01\x00\x00\x00\x00\x00\x00\x12\x34"), classID,
         4660},
        {"reference type: tag discarded", referenceType, bytes("\x07\x00\x00\x00\x00\x00\x00\x00\x01"), classTag, 0},
        {"superclass", superClass, bytes("\x00\x00\x00\x00\x00\x00\x01\x00"), classID, 256},
        {"superclass of Object", superClass, bytes("\x00\x00\x00\x00\x00\x00\x00\x00"), classID, 0},
        {"frame count", frameCount, bytes("\x00\x00\x00\x03"), [](const JDWPMessageData& d) { return d.RequestFrameCount; },
         3},
        {"thread group", threadGroup, bytes("\x00\x00\x00\x00\x00\x00\x00\x2b"),
         [](const JDWPMessageData& d) { return d.RequestThreadGroupID; }, 43},
        {"thread state", threadState, bytes("\x00\x00\x00\x04\x00\x00\x00\x01"),
         [](const JDWPMessageData& d) { return d.RequestThreadState; }, 4},
        {"thread suspended at position 5", threadState, bytes("\x00\x00\x00\x04\x00\x00\x00\x01"),
         [](const JDWPMessageData& d) { return d.RequestThreadSuspended; }, 1},
        {"event request id", eventRequest, bytes("\x00\x00\x00\x11"),
         [](const JDWPMessageData& d) { return d.RequestEventID; }, 17},
        {"by signature: none is -1", bySignature, bytes("\x00\x00\x00\x00"), classID, -1},
        {"by signature: id", bySignature, bytes("\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x33\x00\x00\x00\x07"),
         classID, 51},
        {"by signature: tag", bySignature, bytes("\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x33\x00\x00\x00\x07"),
         classTag, 1},
        {"by signature: status", bySignature,
         bytes("\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x33\x00\x00\x00\x07"), classStatus, 7},
        {"by signature: the first of two is kept", bySignature,
         bytes("\x00\x00\x00\x02\x01\x00\x00\x00\x00\x00\x00\x00\x33\x00\x00\x00\x07"
               "\x01\x00\x00\x00\x00\x00\x00\x00\x44\x00\x00\x00\x07"),
         classID, 51},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        JDWPMessageData data;
        c.decode(data, c.payload);
        EXPECT_EQ(c.get(data), c.expected);
    }
}

TEST_F(ReplyDecoders, ReferenceTypeReadsTheObjectWidthNotTheTypeWidth)
{
    // Intended asymmetry: with 4-byte object ids and 8-byte type ids the id
    // is still read in 4 bytes.
    setWidths(8, 8, 4, 8, 8);
    JDWPMessageData data;
    data.processReferenceType(bytes("\x01\x00\x00\x00\x2a\xff\xff\xff\xff"));
    EXPECT_EQ(data.RequestClassID, 42);
}

TEST_F(ReplyDecoders, StringDecodersKeepRawBytesExceptTheStringValue)
{
    const std::string utf8 = bytes("\x00\x00\x00\x06" "caf\xc3\xa9\x21");
    JDWPMessageData data;
    data.processThreadName(utf8);
    data.processThreadGroupName(bytes("\x00\x00\x00\x04main"));
    EXPECT_EQ(data.RequestThreadName, "caf\xc3\xa9!");
    EXPECT_EQ(data.RequestThreadGroupName, "main");
    data.processGetSignature(bytes("\x00\x00\x00\x0aLpkg/Name;"));
    EXPECT_EQ(data.RequestUTF8String, "Lpkg/Name;");

    // The VM's modified UTF-8 writes NUL as C0 80; only the string value
    // converts it.
    const std::string modified = bytes("\x00\x00\x00\x04" "a\xc0\x80z");
    JDWPMessageData raw, converted;
    raw.processGetSignature(modified);
    converted.processUTF8String(modified);
    EXPECT_EQ(raw.RequestUTF8String, bytes("a\xc0\x80z"));
    EXPECT_EQ(converted.RequestUTF8String, bytes("a\x00z"));
}

TEST_F(ReplyDecoders, IDSizesGoToTheSessionInOrder)
{
    JDWPMessageData data;
    EXPECT_TRUE(data.processIDSizes(bytes("\x00\x00\x00\x01\x00\x00\x00\x02\x00\x00\x00\x03\x00\x00\x00\x04"
                                          "\x00\x00\x00\x05")));
    EXPECT_EQ(jvm_->SIZE_FieldID, 1);
    EXPECT_EQ(jvm_->SIZE_MethodID, 2);
    EXPECT_EQ(jvm_->SIZE_ObjectID, 3);
    EXPECT_EQ(jvm_->SIZE_RefTypeID, 4);
    EXPECT_EQ(jvm_->SIZE_FrameID, 5);
}

TEST_F(ReplyDecoders, VersionIsStoredAndAnnounced)
{
    auto lines = std::make_shared<DebugLines>();
    jvm_->setEvents(lines);
    JDWPMessageData data;
    data.processVersion(bytes("\x00\x00\x00\x04" "desc"
                              "\x00\x00\x00\x11\x00\x00\x00\x00"
                              "\x00\x00\x00\x07" "17.0.15"
                              "\x00\x00\x00\x08" "OpenJ\xc3\xa9K"));
    EXPECT_EQ(jvm_->VMDescription, "desc");
    EXPECT_EQ(jvm_->VMMajor, 17);
    EXPECT_EQ(jvm_->VMMinor, 0);
    EXPECT_EQ(jvm_->VMVersion, "17.0.15");
    EXPECT_EQ(jvm_->VMName, "OpenJ\xc3\xa9K");
    EXPECT_NE(std::find(lines->lines.begin(), lines->lines.end(), " *** OpenJ\xc3\xa9K 17.0.15"), lines->lines.end());
    jvm_->setEvents(nullptr);
}

// --- lists ----------------------------------------------------------------------

TEST_F(ReplyDecoders, FrameListReadsFrameWidthAndLocations)
{
    setWidths(8, 4, 8, 8, 4);
    JDWPMessageData data;
    data.processFrameList(bytes("\x00\x00\x00\x02"
                                "\x00\x00\x00\x0a" "\x01\x00\x00\x00\x00\x00\x00\x00\x10\x00\x00\x00\x05"
                                "\x00\x00\x00\x00\x00\x00\x00\x07"
                                "\x00\x00\x00\x0b" "\x01\x00\x00\x00\x00\x00\x00\x00\x11\x00\x00\x00\x06"
                                "\x00\x00\x00\x00\x00\x00\x00\x09"));
    ASSERT_EQ(data.requestFrame().size(), 2u);
    EXPECT_EQ(data.requestFrame()[0].FrameID, 10);
    EXPECT_EQ(data.requestFrame()[0].FrameLocation.ClassTypeTag, TT_CLASS);
    EXPECT_EQ(data.requestFrame()[0].FrameLocation.ClassID, 16);
    EXPECT_EQ(data.requestFrame()[0].FrameLocation.MethodID, 5);
    EXPECT_EQ(data.requestFrame()[0].FrameLocation.Index, 7);
    EXPECT_EQ(data.requestFrame()[1].FrameID, 11);
    EXPECT_EQ(data.requestFrame()[1].FrameLocation.ClassID, 17);
    EXPECT_EQ(data.requestFrame()[1].FrameLocation.Index, 9);
}

TEST_F(ReplyDecoders, AllThreadsKeepsReplyOrder)
{
    JDWPMessageData data;
    data.processAllThreads(bytes("\x00\x00\x00\x03"
                                 "\x00\x00\x00\x00\x00\x00\x00\x05"
                                 "\x00\x00\x00\x00\x00\x00\x00\x02"
                                 "\x00\x00\x00\x00\x00\x00\x00\x09"));
    ASSERT_TRUE(data.RequestThreads);
    ASSERT_EQ(data.RequestThreads->Count(), 3);
    EXPECT_EQ(data.RequestThreads->Item(1)->threadID, 5);
    EXPECT_EQ(data.RequestThreads->Item(2)->threadID, 2);
    EXPECT_EQ(data.RequestThreads->Item(3)->threadID, 9);

    JDWPMessageData none;
    none.processAllThreads(bytes("\x00\x00\x00\x00"));
    ASSERT_TRUE(none.RequestThreads);
    EXPECT_EQ(none.RequestThreads->Count(), 0);
}

TEST_F(ReplyDecoders, AllClassesUsesTheReferenceTypeWidth)
{
    setWidths(8, 8, 8, 4, 8);
    JDWPMessageData data;
    data.processAllClasses(bytes("\x00\x00\x00\x02"
                                 "\x01\x00\x00\x00\x21\x00\x00\x00\x03LA;\x00\x00\x00\x07"
                                 "\x03\x00\x00\x00\x22\x00\x00\x00\x03[[I\x00\x00\x00\x04"));
    ASSERT_EQ(data.allClasses().size(), 2u);
    EXPECT_EQ(data.allClasses()[0].ClassTypeTag, 1);
    EXPECT_EQ(data.allClasses()[0].ClassID, 33);
    EXPECT_EQ(data.allClasses()[0].ClassSignature, "LA;");
    EXPECT_EQ(data.allClasses()[0].ClassStatus, 7);
    EXPECT_EQ(data.allClasses()[1].ClassTypeTag, 3);
    EXPECT_EQ(data.allClasses()[1].ClassID, 34);
    EXPECT_EQ(data.allClasses()[1].ClassSignature, "[[I");
    EXPECT_EQ(data.allClasses()[1].ClassStatus, 4);
    // Made, not registered.
    EXPECT_FALSE(jvm_->getClassByID(33));
}

// --- model tables ---------------------------------------------------------------

TEST_F(ReplyDecoders, MethodsAndFieldsGoToTheRequestedClass)
{
    auto cls = registerClass(0x10, "Lpkg/Name;");
    JDWPMessageData methods;
    ASSERT_TRUE(methods.processMethods(bytes("\x00\x00\x00\x02"
                                             "\x00\x00\x00\x00\x00\x00\x00\x31" "\x00\x00\x00\x04main"
                                             "\x00\x00\x00\x16([Ljava/lang/String;)V" "\x00\x00\x00\x09"
                                             "\x00\x00\x00\x00\x00\x00\x00\x32" "\x00\x00\x00\x06<init>"
                                             "\x00\x00\x00\x03()V" "\x00\x00\x00\x01"),
                                       replyTo(0x10)));
    auto main = cls->JMethodID(0x31);
    ASSERT_TRUE(main);
    EXPECT_EQ(main->MethodName, "main");
    EXPECT_EQ(main->MethodSignature, "([Ljava/lang/String;)V");
    EXPECT_EQ(main->MethodBits, 9);
    EXPECT_EQ(main->ClassID, 0x10);
    EXPECT_TRUE(main->isStatic());
    ASSERT_TRUE(cls->JMethod("<init>()V"));
    EXPECT_EQ(cls->JMethod("<init>()V")->MethodID, 0x32);

    // Intended: the field id is read with the method-id width (4 here),
    // not the field-id width (8).
    setWidths(8, 4, 8, 8, 8);
    JDWPMessageData fields;
    ASSERT_TRUE(fields.processFields(bytes("\x00\x00\x00\x01"
                                           "\x00\x00\x00\x41" "\x00\x00\x00\x05" "count" "\x00\x00\x00\x01I"
                                           "\x00\x00\x00\x08"),
                                     replyTo(0x10)));
    auto count = cls->JField("count");
    ASSERT_TRUE(count);
    EXPECT_EQ(count->FieldID, 0x41);
    EXPECT_EQ(count->FieldSignature, "I");
    EXPECT_EQ(count->FieldBits, 8);
    EXPECT_EQ(count->ClassID, 0x10);
}

TEST_F(ReplyDecoders, LineTableGoesToTheRequestedMethodInReplyOrder)
{
    auto cls = registerClass(0x10, "Lpkg/Name;");
    auto method = addMethod(cls, 0x31, "run");
    JDWPMessageData data;
    ASSERT_TRUE(data.processLineTable(bytes("\x00\x00\x00\x00\x00\x00\x00\x00"
                                            "\x00\x00\x00\x00\x00\x00\x00\x14"
                                            "\x00\x00\x00\x03"
                                            "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x0a"
                                            "\x00\x00\x00\x00\x00\x00\x00\x05\x00\x00\x00\x0b"
                                            "\x00\x00\x00\x00\x00\x00\x00\x09\x00\x00\x00\x0d"),
                                      replyTo(0x10, 0x31)));
    const auto& lines = method->lineTable();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], std::make_pair(0.0, 10.0));
    EXPECT_EQ(lines[1], std::make_pair(5.0, 11.0));
    EXPECT_EQ(lines[2], std::make_pair(9.0, 13.0));
    JDWPJLocation at7;
    at7.Index = 7;
    double line = 0;
    EXPECT_TRUE(method->LocationToSrcLine(at7, line));
    EXPECT_EQ(line, 11);
}

TEST_F(ReplyDecoders, VariableTableGoesToTheRequestedMethod)
{
    auto cls = registerClass(0x10, "Lpkg/Name;");
    auto method = addMethod(cls, 0x31, "Print");
    JDWPMessageData data;
    ASSERT_TRUE(data.processVariableTable(bytes("\x00\x00\x00\x01\x00\x00\x00\x02"
                                                "\x00\x00\x00\x00\x00\x00\x00\x00" "\x00\x00\x00\x04" "data"
                                                "\x00\x00\x00\x12" "Ljava/lang/String;"
                                                "\x00\x00\x00\x0c\x00\x00\x00\x00"
                                                "\x00\x00\x00\x00\x00\x00\x00\x02" "\x00\x00\x00\x01" "i"
                                                "\x00\x00\x00\x01" "I" "\x00\x00\x00\x08\x00\x00\x00\x01"),
                                          replyTo(0x10, 0x31)));
    const auto& table = method->variableTable();
    EXPECT_EQ(table.argCnt, 1);
    EXPECT_EQ(table.slotsCount, 2);
    ASSERT_EQ(table.Slot.size(), 2u);
    EXPECT_EQ(table.Slot[0].vt_name, "data");
    EXPECT_EQ(table.Slot[0].vt_signature, "Ljava/lang/String;");
    EXPECT_EQ(table.Slot[0].vt_length, 12);
    EXPECT_EQ(table.Slot[0].vt_slot, 0);
    EXPECT_EQ(table.Slot[1].vt_codeIndex, 2);
    EXPECT_EQ(table.Slot[1].vt_name, "i");
    EXPECT_EQ(table.Slot[1].vt_slot, 1);
    EXPECT_EQ(method->getVarSlot("i").vt_slot, 1);
}

TEST_F(ReplyDecoders, TableDecodersWithoutTheirOwnerReadNothing)
{
    auto cls = registerClass(0x10, "Lpkg/Name;");
    addMethod(cls, 0x31, "run");
    const std::string methodsPayload = bytes("\x00\x00\x00\x01\x00\x00\x00\x00\x00\x00\x00\x77"
                                             "\x00\x00\x00\x01x\x00\x00\x00\x03()V\x00\x00\x00\x00");
    struct Case {
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
    EXPECT_FALSE(cls->JMethodID(0x77));
}

// --- hostile payloads -----------------------------------------------------------

// Every reply decoder on one payload; each must return without reading
// outside it and without sizing anything by an unchecked count.
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

TEST_F(ReplyDecoders, HostilePayloadsAreHarmless)
{
    auto cls = registerClass(0x10, "Lpkg/Name;");
    addMethod(cls, 0x31, "run");
    const auto owner = replyTo(0x10, 0x31);
    const std::vector<std::string> payloads = {
        "",
        bytes("\x00"),
        bytes("\x7f\xff\xff\xff"),
        bytes("\xff\xff\xff\xff"),
        bytes("\x7f\xff\xff\xff\x00\x00\x00\x00\x00\x00"),
        bytes("\x80\x00\x00\x00\x01\x02\x03"),
        bytes("\x00\x00\x00\x05\x01"),
        // huge string lengths inside records
        bytes("\x00\x00\x00\x02\x01\x00\x00\x00\x00\x00\x00\x00\x01\x7f\xff\xff\xff"),
        bytes("\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x7f\xff\xff\xff\x00\x00"),
        bytes("\x00\x00\x00\x01\x7f\xff\xff\xff\x7f\xff\xff\xff\x00"),
    };
    for (const auto& p : payloads) {
        SCOPED_TRACE(::testing::PrintToString(p));
        runEveryReplyDecoder(p, owner);
    }
}

TEST_F(ReplyDecoders, EveryPrefixOfGoldenPayloadsIsHarmless)
{
    auto cls = registerClass(0x10, "Lpkg/Name;");
    addMethod(cls, 0x31, "run");
    const auto owner = replyTo(0x10, 0x31);
    const std::vector<std::string> golden = {
        bytes("\x00\x00\x00\x02\x00\x00\x00\x00\x00\x00\x00\x31\x00\x00\x00\x04main\x00\x00\x00\x03()V"
              "\x00\x00\x00\x09\x00\x00\x00\x00\x00\x00\x00\x32\x00\x00\x00\x01x\x00\x00\x00\x03()V\x00\x00\x00\x01"),
        bytes("\x00\x00\x00\x01\x00\x00\x00\x02\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x04" "data"
              "\x00\x00\x00\x01I\x00\x00\x00\x0c\x00\x00\x00\x00"),
        bytes("\x00\x00\x00\x02I\x00\x00\x00\x07s\x00\x00\x00\x00\x00\x00\x00\x00"),
    };
    for (const auto& g : golden)
        for (size_t n = 0; n <= g.size(); ++n)
            runEveryReplyDecoder(g.substr(0, n), owner);
}

TEST_F(ReplyDecoders, RandomPayloadsAreHarmless)
{
    std::mt19937 random(20240611);
    for (int round = 0; round < 300; ++round) {
        std::string payload(random() % 48, '\0');
        for (auto& c : payload)
            c = static_cast<char>(random() % 4 == 0 ? 0x7f : random() & 0xff);
        runEveryReplyDecoder(payload, replyTo(0x10, 0x31));
    }
}

TEST_F(ReplyDecoders, GarbageIDSizesNeverWidenReads)
{
    JDWPMessageData sizes;
    sizes.processIDSizes(bytes("\x00\x00\x7f\xff\x00\x00\x00\x00\xff\xff\xff\xff\x00\x01\x00\x00\x00\x00\x00\x40"));
    // Whatever was stored, every decoder still stays inside its payload.
    runEveryReplyDecoder(bytes("\x00\x00\x00\x03\x01\x02\x03\x04\x05\x06\x07\x08\x09"), nullptr);
}

} // namespace
} // namespace jdwpkrvdbg
