// The tagged-value reader and the decoders built on it: how each tag is read
// and rendered, the cursor it leaves, the value lists with their deliberate
// second advance, invocation results, and payloads that are cut short or
// made of garbage.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include "ScriptedVM.h"
#include "decoders_test_support.h"

namespace jdwpkrvdbg {
namespace {

using decoder_tests::bytes;

class TaggedValues : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler_ = JDWPHandler::create();
        setWidths(8);
    }
    void TearDown() override
    {
        handler_.reset();
        setCurrentHandler(nullptr);
    }
    void setWidths(int16_t objectWidth)
    {
        auto jvm = getCurrentHandler()->myJVM();
        jvm->SIZE_ObjectID = objectWidth;
        jvm->SIZE_RefTypeID = objectWidth;
        jvm->SIZE_MethodID = 8;
        jvm->SIZE_FieldID = 8;
        jvm->SIZE_FrameID = 8;
    }
    std::shared_ptr<JDWPHandler> handler_;
};

struct RenderCase {
    const char* name;
    std::string payload;
    int16_t objectWidth;
    int32_t type;
    const char* text;
    int64_t result; // cursor after the value minus 1, reading from 1
};

TEST_F(TaggedValues, PrimitiveTagsRenderAndAdvanceAsTheTableSays)
{
    const std::vector<RenderCase> cases = {
        {"Z 0", bytes("Z\x00"), 8, VAR_BOOLEAN, "False", 2},
        {"Z 1", bytes("Z\x01"), 8, VAR_BOOLEAN, "True", 2},
        {"Z 0x80 is still true", bytes("Z\x80"), 8, VAR_BOOLEAN, "True", 2},
        {"B 0xFF is never negative", bytes("B\xff"), 8, VAR_BYTE, "255", 2},
        {"B 0", bytes("B\x00"), 8, VAR_BYTE, "0", 2},
        {"C 0x0041", bytes("C\x00\x41"), 8, VAR_CHAR, "65", 3},
        {"C 0x0100 folds", bytes("C\x01\x00"), 8, VAR_CHAR, "-65280", 3},
        {"C 0x7FFF folds", bytes("C\x7f\xff"), 8, VAR_CHAR, "-32769", 3},
        {"C 0xFFFF", bytes("C\xff\xff"), 8, VAR_CHAR, "-1", 3},
        {"C 0x00FF stays", bytes("C\x00\xff"), 8, VAR_CHAR, "255", 3},
        {"S 0xFFFF", bytes("S\xff\xff"), 8, VAR_SHORT, "-1", 3},
        {"S 0x8000", bytes("S\x80\x00"), 8, VAR_SHORT, "-32768", 3},
        {"S 0x7FFF", bytes("S\x7f\xff"), 8, VAR_SHORT, "32767", 3},
        {"I -2", bytes("I\xff\xff\xff\xfe"), 8, VAR_INT, "-2", 5},
        {"I max", bytes("I\x7f\xff\xff\xff"), 8, VAR_INT, "2147483647", 5},
        {"I min", bytes("I\x80\x00\x00\x00"), 8, VAR_INT, "-2147483648", 5},
        {"J 8 bytes -2", bytes("J\xff\xff\xff\xff\xff\xff\xff\xfe"), 8, VAR_LONG, "-2", 9},
        {"J 8 bytes max, exact", bytes("J\x7f\xff\xff\xff\xff\xff\xff\xff"), 8, VAR_LONG, "9223372036854775807", 9},
        {"J 8 bytes min", bytes("J\x80\x00\x00\x00\x00\x00\x00\x00"), 8, VAR_LONG, "-9223372036854775808", 9},
        {"J 8 bytes 300", bytes("J\x00\x00\x00\x00\x00\x00\x01\x2c"), 8, VAR_LONG, "300", 9},
        {"J takes the object width 4", bytes("J\xff\xff\xff\xff"), 4, VAR_LONG, "-1", 5},
        {"J width 4, 70000", bytes("J\x00\x01\x11\x70"), 4, VAR_LONG, "70000", 5},
        {"D 1.0 without .0", bytes("D\x3f\xf0\x00\x00\x00\x00\x00\x00"), 8, VAR_DOUBLE, "1", 9},
        {"D pi", bytes("D\x40\x09\x21\xfb\x54\x44\x2d\x18"), 8, VAR_DOUBLE, "3.141592653589793", 9},
        {"D 0.1", bytes("D\x3f\xb9\x99\x99\x99\x99\x99\x9a"), 8, VAR_DOUBLE, "0.1", 9},
        {"D -0.5", bytes("D\xbf\xe0\x00\x00\x00\x00\x00\x00"), 8, VAR_DOUBLE, "-0.5", 9},
        {"D 1e100", bytes("D\x54\xb2\x49\xad\x25\x94\xc3\x7d"), 8, VAR_DOUBLE, "1e+100", 9},
        {"D 1e6 stays plain", bytes("D\x41\x2e\x84\x80\x00\x00\x00\x00"), 8, VAR_DOUBLE, "1000000", 9},
        {"D 0", bytes("D\x00\x00\x00\x00\x00\x00\x00\x00"), 8, VAR_DOUBLE, "0", 9},
        {"F pi as a single", bytes("F\x40\x49\x0f\xdb"), 8, VAR_FLOAT, "3.1415927", 5},
        {"F 1", bytes("F\x3f\x80\x00\x00"), 8, VAR_FLOAT, "1", 5},
        {"F 0.1 as a single", bytes("F\x3d\xcc\xcc\xcd"), 8, VAR_FLOAT, "0.1", 5},
        {"F -2.5", bytes("F\xc0\x20\x00\x00"), 8, VAR_FLOAT, "-2.5", 5},
        {"V consumes the tag only", bytes("V\x49\x00"), 8, VAR_VOID, "", 1},
        {"s with id 0 fetches nothing", bytes("s\x00\x00\x00\x00\x00\x00\x00\x00"), 8, VAR_STRING, "", 9},
        {"s with 4-byte ids", bytes("s\x00\x00\x00\x00"), 4, VAR_STRING, "", 5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        setWidths(c.objectWidth);
        JDWPMessageData data;
        JDWPJVarValue value;
        int64_t pos = 1;
        const int64_t result = data.readTaggedValue(c.payload, pos, value);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(pos, c.result + 1);
        EXPECT_EQ(static_cast<int32_t>(value.VarType), c.type);
        EXPECT_EQ(value.VarValue, c.text);
        EXPECT_FALSE(value.Found);
    }
    EXPECT_EQ(handler_->pendingSentCount(), 0u);
}

TEST_F(TaggedValues, FloatingValuesAreAlsoStoredInRefID)
{
    JDWPMessageData data;
    JDWPJVarValue d, f, i;
    int64_t pos = 1;
    data.readTaggedValue(bytes("D\xbf\xe0\x00\x00\x00\x00\x00\x00"), pos, d);
    EXPECT_EQ(d.RefID, -0.5);
    pos = 1;
    data.readTaggedValue(bytes("F\x40\x49\x0f\xdb"), pos, f);
    // Narrowed to single precision.
    EXPECT_EQ(f.RefID, static_cast<double>(3.14159274f));
    pos = 1;
    data.readTaggedValue(bytes("I\x00\x00\x00\x07"), pos, i);
    EXPECT_EQ(i.RefID, 0);
}

TEST_F(TaggedValues, ReadingStartsAtTheCursorNotAtTheStart)
{
    JDWPMessageData data;
    JDWPJVarValue value;
    int64_t pos = 3;
    EXPECT_EQ(data.readTaggedValue(bytes("\x00\x00S\xff\xfe"), pos, value), 5);
    EXPECT_EQ(value.VarValue, "-2");
}

TEST_F(TaggedValues, UnknownOrMissingTagsResetTheCursor)
{
    struct Case {
        const char* name;
        std::string payload;
        int64_t start;
        int32_t type;
    } cases[] = {
        {"unknown letter", bytes("X\x01\x02"), 1, 'X'},
        {"zero tag", bytes("\x00\x01"), 1, 0},
        {"empty payload", "", 1, 0},
        {"cursor past the end", bytes("I\x00\x00\x00\x01"), 7, 0},
        {"cursor before the start", bytes("I\x00\x00\x00\x01"), -5, 0},
        {"cursor zero", bytes("I\x00\x00\x00\x01"), 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        JDWPMessageData data;
        JDWPJVarValue value;
        int64_t pos = c.start;
        EXPECT_EQ(data.readTaggedValue(c.payload, pos, value), -1);
        EXPECT_EQ(pos, 0);
        EXPECT_EQ(static_cast<int32_t>(value.VarType), c.type);
        EXPECT_EQ(value.VarValue, "");
    }
}

TEST_F(TaggedValues, CutValuesStillAdvanceByTheirWidthWithoutReadingPastTheEnd)
{
    // Only the advance is fixed; what the missing bytes make of the number
    // is the reader's business.
    struct Case {
        std::string payload;
        int64_t result;
    } cases[] = {
        {bytes("I\x00\x01"), 5},
        {bytes("J\xff"), 9},
        {bytes("D\x3f"), 9},
        {bytes("F"), 5},
        {bytes("C"), 3},
        {bytes("s\x00\x00"), 9},
    };
    for (const auto& c : cases) {
        JDWPMessageData data;
        JDWPJVarValue value;
        int64_t pos = 1;
        EXPECT_EQ(data.readTaggedValue(c.payload, pos, value), c.result) << c.payload[0];
    }
    EXPECT_EQ(handler_->pendingSentCount(), 0u);
}

TEST_F(TaggedValues, ObjectTagsKeepTheObjectID)
{
    for (char tag : {'L', '[', 'c', 'g', 'l', 't'}) {
        JDWPMessageData data;
        JDWPJVarValue value;
        int64_t pos = 1;
        const std::string payload = std::string(1, tag) + bytes("\x00\x00\x00\x00\x00\x00\x01\x02");
        EXPECT_EQ(data.readTaggedValue(payload, pos, value), 9) << tag;
        EXPECT_EQ(value.RefID, 258) << tag;
        EXPECT_EQ(static_cast<int32_t>(value.VarType), static_cast<int32_t>(tag));
    }
}

TEST_F(TaggedValues, NullObjectWithoutAVMShowsNotInitialized)
{
    JDWPMessageData data;
    JDWPJVarValue value;
    int64_t pos = 1;
    data.readTaggedValue(bytes("L\x00\x00\x00\x00\x00\x00\x00\x00"), pos, value);
    EXPECT_EQ(value.VarValue, "Object not initialized!");
}

// --- value lists --------------------------------------------------------------

TEST_F(TaggedValues, ValueListAdvancesTwiceAfterEachElement)
{
    // Two ints at 5 and 10. The first reads right and leaves the cursor at
    // 10; the reader's result (9) is added once more, so the second element
    // is read at 19, where this payload holds a boolean.
    const std::string payload = bytes("\x00\x00\x00\x02"
                                      "I\x00\x00\x00\x07"
                                      "I\x00\x00\x00\x09"
                                      "\xee\xee\xee\xee"
                                      "Z\x01");
    JDWPMessageData data;
    ASSERT_TRUE(data.processGetValue(payload, nullptr));
    ASSERT_EQ(data.requestVar().size(), 2u);
    EXPECT_EQ(data.requestVar()[0].VarType, VAR_INT);
    EXPECT_EQ(data.requestVar()[0].VarValue, "7");
    EXPECT_EQ(data.requestVar()[1].VarType, VAR_BOOLEAN);
    EXPECT_EQ(data.requestVar()[1].VarValue, "True");
}

TEST_F(TaggedValues, ValueListDecodersShareOneRule)
{
    struct Case {
        const char* name;
        std::string payload;
        std::vector<std::pair<int32_t, std::string>> expected;
    } cases[] = {
        {"one int", bytes("\x00\x00\x00\x01I\x00\x00\x00\x2a"), {{VAR_INT, "42"}}},
        {"count 0 leaves the list empty", bytes("\x00\x00\x00\x00I\x00\x00\x00\x2a"), {}},
        {"negative count", bytes("\xff\xff\xff\xffI\x00\x00\x00\x2a"), {}},
        {"second element past the end stays empty",
         bytes("\x00\x00\x00\x02I\x00\x00\x00\x07I\x00\x00\x00\x09"),
         {{VAR_INT, "7"}, {0, ""}}},
        {"unknown tag does not stop the list, later elements are lost", bytes("\x00\x00\x00\x02XZ\x01"),
         {{'X', ""}, {0, ""}}},
        {"void then a value read at the doubled cursor", bytes("\x00\x00\x00\x02V\xee\xee\xee\xee\xeeZ\x00"),
         {{VAR_VOID, ""}, {VAR_BOOLEAN, "False"}}},
        {"count with nothing behind it", bytes("\x00\x00\x00\x03"), {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (int decoder = 0; decoder < 3; ++decoder) {
            JDWPMessageData data;
            if (decoder == 0)
                data.processGetValue(c.payload, nullptr);
            else if (decoder == 1)
                data.processGetField(c.payload, nullptr);
            else
                data.processGetStaticField(c.payload, nullptr);
            ASSERT_EQ(data.requestVar().size(), c.expected.size());
            for (size_t i = 0; i < c.expected.size(); ++i) {
                EXPECT_EQ(static_cast<int32_t>(data.requestVar()[i].VarType), c.expected[i].first);
                EXPECT_EQ(data.requestVar()[i].VarValue, c.expected[i].second);
            }
        }
    }
}

TEST_F(TaggedValues, ValueListWithAHugeCountCostsOnlyItsBytes)
{
    const std::string payload = bytes("\x7f\xff\xff\xffV\x00\x00\x00\x00\x00");
    JDWPMessageData data;
    data.processGetValue(payload, nullptr);
    EXPECT_LE(data.requestVar().size(), payload.size());
    EXPECT_EQ(data.requestVar()[0].VarType, VAR_VOID);
}

TEST_F(TaggedValues, ThisObjectIsTheObjectIDOfTheValue)
{
    JDWPMessageData data;
    EXPECT_TRUE(data.processGetThis(bytes("t\x00\x00\x00\x00\x00\x00\x00\x63")));
    EXPECT_EQ(data.RequestObjectID, 99);
    JDWPMessageData empty;
    empty.RequestObjectID = 5;
    empty.processGetThis("");
    EXPECT_EQ(empty.RequestObjectID, 0);
}

TEST_F(TaggedValues, InvocationResultWithoutExceptionKeepsTheValue)
{
    const std::string payloads[] = {
        bytes("I\x00\x00\x00\x05L\x00\x00\x00\x00\x00\x00\x00\x00"),
        bytes("I\x00\x00\x00\x05"),        // no exception part at all
        bytes("I\x00\x00\x00\x05X\x00\x01"), // a tag other than L is not looked at
    };
    for (const auto& payload : payloads) {
        for (bool isStatic : {false, true}) {
            JDWPMessageData data;
            if (isStatic)
                data.processInvokeStaticMethod(payload);
            else
                data.processInvokeMethod(payload);
            ASSERT_EQ(data.requestVar().size(), 1u);
            EXPECT_EQ(data.requestVar()[0].VarValue, "5");
        }
    }
}

TEST_F(TaggedValues, InvocationResultOfGarbageHasOneEmptyElement)
{
    for (const std::string& payload : {std::string(), bytes("\x00"), bytes("L"), bytes("?L\x01")}) {
        JDWPMessageData data;
        data.processInvokeMethod(payload);
        ASSERT_EQ(data.requestVar().size(), 1u);
    }
}


// --- values that need the VM -------------------------------------------------

using testing::be32;
using testing::be64;
using testing::jstr;
using testing::ScriptedVM;
using testing::SentCommand;

class VMValues : public decoder_tests::ScriptedSession {
protected:
    void SetUp() override
    {
        ScriptedSession::SetUp();
        // Object 0x66 is of class 0x80, whose signature is classSignature_.
        vm_->on(9, 1, [](const SentCommand&, std::string& out, uint16_t&) {
            out = std::string(1, '\x01') + be64(0x80);
            return true;
        });
        vm_->on(2, 1, [this](const SentCommand& c, std::string& out, uint16_t& err) {
            if (BytesToNumber(c.payload, 1, 8) == 0x80)
                out = jstr(classSignature_);
            else
                err = ERR_INVALID_CLASS;
            return true;
        });
        vm_->onPayload(3, 1, "", ERR_INVALID_CLASS);
        vm_->onPayload(11, 6, be32(0));
    }
    JDWPJVarValue read(const std::string& payload)
    {
        JDWPMessageData data;
        JDWPJVarValue value;
        int64_t pos = 1;
        data.readTaggedValue(payload, pos, value);
        return value;
    }

    std::string classSignature_ = "Lpkg/Thing;";
};

TEST_F(VMValues, StringValuesAreFetchedOnlyForARealObject)
{
    vm_->onPayload(10, 1, jstr(bytes("h\xc0\x80i")));
    EXPECT_EQ(read(bytes("s\x00\x00\x00\x00\x00\x00\x00\x00")).VarValue, "");
    EXPECT_TRUE(vm_->commands().empty());

    const JDWPJVarValue value = read(bytes("s\x00\x00\x00\x00\x00\x00\x00\x70"));
    EXPECT_EQ(value.VarValue, bytes("h\x00i"));
    EXPECT_EQ(value.RefID, 0);
    const auto fetches = vm_->commandsOf(10, 1);
    ASSERT_EQ(fetches.size(), 1u);
    EXPECT_EQ(fetches[0].payload, be64(0x70));
}

TEST_F(VMValues, PlainObjectsShowTheirTypeAndID)
{
    const JDWPJVarValue value = read(bytes("L\x00\x00\x00\x00\x00\x00\x00\x66"));
    EXPECT_EQ(value.VarValue, "Type: pkg/Thing - ObjID: 102");
    EXPECT_EQ(value.RefID, 102);
    EXPECT_TRUE(vm_->commandsOf(9, 6).empty()) << "no method is invoked for a plain object";
}

TEST_F(VMValues, RuntimeWrappersRenderThroughTheirDebugString)
{
    classSignature_ = "LVBA/VBArray;";
    vm_->onPayload(2, 5, be32(1) + be64(0x61) + jstr("toDebugString") + jstr("()Ljava/lang/String;") + be32(1));
    vm_->onPayload(9, 6, "s" + be64(0x71) + "L" + be64(0));
    vm_->onPayload(10, 1, jstr("\"(1)#(2)\""));
    const JDWPJVarValue value = read(bytes("L\x00\x00\x00\x00\x00\x00\x00\x66"));
    EXPECT_EQ(value.VarValue, "(1)\r\n(2)");
    EXPECT_EQ(vm_->commandsOf(9, 6).size(), 1u);
}

TEST_F(VMValues, InvocationExceptionShowsItsClassName)
{
    JDWPMessageData data;
    data.processInvokeMethod(bytes("I\x00\x00\x00\x05L\x00\x00\x00\x00\x00\x00\x00\x66"));
    ASSERT_EQ(data.requestVar().size(), 1u);
    EXPECT_EQ(data.requestVar()[0].VarValue, "pkg/Thing");
}

} // namespace
} // namespace jdwpkrvdbg
