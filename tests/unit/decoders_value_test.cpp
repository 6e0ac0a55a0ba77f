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

class TaggedValues : public decoder_tests::FreshHandler {
protected:
    // Reads one value at `start`; returns the reader's result.
    static int64_t read(const std::string& payload, JDWPJVarValue& value, int64_t start = 1, int64_t* after = nullptr)
    {
        int64_t pos = start;
        const int64_t result = JDWPMessageData().readTaggedValue(payload, pos, value);
        if (after)
            *after = pos;
        return result;
    }
};

TEST_F(TaggedValues, TagsRenderAndAdvanceAsTheTableSays)
{
    const struct {
        const char* name;
        std::string payload;
        int16_t objectWidth;
        int32_t type;
        const char* text;
        int64_t result; // cursor after the value minus 1, reading from 1
    } cases[] = {
        {"Z 1", bytes("Z\x01"), 8, VAR_BOOLEAN, "True", 2},
        {"Z 0x80 is still true", bytes("Z\x80"), 8, VAR_BOOLEAN, "True", 2},
        {"B 0xFF is never negative", bytes("B\xff"), 8, VAR_BYTE, "255", 2},
        {"C 0x0041", bytes("C\x00\x41"), 8, VAR_CHAR, "65", 3},
        {"C 0x0100 folds", bytes("C\x01\x00"), 8, VAR_CHAR, "-65280", 3},
        {"C 0xFFFF", bytes("C\xff\xff"), 8, VAR_CHAR, "-1", 3},
        {"C 0x00FF stays", bytes("C\x00\xff"), 8, VAR_CHAR, "255", 3},
        {"S 0x8000", bytes("S\x80\x00"), 8, VAR_SHORT, "-32768", 3},
        {"I -2", bytes("I\xff\xff\xff\xfe"), 8, VAR_INT, "-2", 5},
        {"I min", bytes("I\x80\x00\x00\x00"), 8, VAR_INT, "-2147483648", 5},
        {"J 8 bytes max, exact", bytes("J\x7f\xff\xff\xff\xff\xff\xff\xff"), 8, VAR_LONG, "9223372036854775807", 9},
        {"J 8 bytes min", bytes("J\x80\x00\x00\x00\x00\x00\x00\x00"), 8, VAR_LONG, "-9223372036854775808", 9},
        {"J takes the object width 4", bytes("J\xff\xff\xff\xff"), 4, VAR_LONG, "-1", 5},
        {"D 1.0 without .0", bytes("D\x3f\xf0\x00\x00\x00\x00\x00\x00"), 8, VAR_DOUBLE, "1", 9},
        {"D pi", bytes("D\x40\x09\x21\xfb\x54\x44\x2d\x18"), 8, VAR_DOUBLE, "3.141592653589793", 9},
        {"D 1e100", bytes("D\x54\xb2\x49\xad\x25\x94\xc3\x7d"), 8, VAR_DOUBLE, "1e+100", 9},
        {"D 1e6 stays plain", bytes("D\x41\x2e\x84\x80\x00\x00\x00\x00"), 8, VAR_DOUBLE, "1000000", 9},
        {"F pi as a single", bytes("F\x40\x49\x0f\xdb"), 8, VAR_FLOAT, "3.1415927", 5},
        {"F 0.1 as a single", bytes("F\x3d\xcc\xcc\xcd"), 8, VAR_FLOAT, "0.1", 5},
        {"V consumes the tag only", bytes("V\x49\x00"), 8, VAR_VOID, "", 1},
        {"s with id 0 fetches nothing", bytes("s\x00\x00\x00\x00\x00\x00\x00\x00"), 8, VAR_STRING, "", 9},
        {"s with 4-byte ids", bytes("s\x00\x00\x00\x00"), 4, VAR_STRING, "", 5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        handler_->myJVM()->SIZE_ObjectID = handler_->myJVM()->SIZE_RefTypeID = c.objectWidth;
        JDWPJVarValue value;
        int64_t after = 0;
        EXPECT_EQ(read(c.payload, value, 1, &after), c.result);
        EXPECT_EQ(after, c.result + 1);
        EXPECT_EQ(static_cast<int32_t>(value.VarType), c.type);
        EXPECT_EQ(value.VarValue, c.text);
        EXPECT_FALSE(value.Found);
    }
    EXPECT_EQ(handler_->pendingSentCount(), 0u) << "nothing fetched";
}

TEST_F(TaggedValues, RefIDHoldsFloatsAndObjectIDs)
{
    JDWPJVarValue d, f, i;
    read(bytes("D\xbf\xe0\x00\x00\x00\x00\x00\x00"), d);
    EXPECT_EQ(d.RefID, -0.5);
    read(bytes("F\x40\x49\x0f\xdb"), f);
    EXPECT_EQ(f.RefID, static_cast<double>(3.14159274f)) << "narrowed to single precision";
    read(bytes("I\x00\x00\x00\x07"), i);
    EXPECT_EQ(i.RefID, 0);
    for (char tag : {'L', '[', 'c', 'g', 'l', 't'}) {
        JDWPJVarValue value;
        EXPECT_EQ(read(std::string(1, tag) + bytes("\x00\x00\x00\x00\x00\x00\x01\x02"), value), 9) << tag;
        EXPECT_EQ(value.RefID, 258) << tag;
        EXPECT_EQ(static_cast<int32_t>(value.VarType), static_cast<int32_t>(tag));
    }
    JDWPJVarValue null;
    read(bytes("L\x00\x00\x00\x00\x00\x00\x00\x00"), null);
    EXPECT_EQ(null.VarValue, "Object not initialized!");
}

TEST_F(TaggedValues, CursorRulesForBadTagsAndCutValues)
{
    // Reading starts at the cursor, not at the start.
    JDWPJVarValue shortValue;
    EXPECT_EQ(read(bytes("\x00\x00S\xff\xfe"), shortValue, 3), 5);
    EXPECT_EQ(shortValue.VarValue, "-2");

    // Unknown or missing tags reset the cursor to 0.
    const struct {
        const char* name;
        std::string payload;
        int64_t start;
        int32_t type;
    } bad[] = {
        {"unknown letter", bytes("X\x01\x02"), 1, 'X'},
        {"empty payload", "", 1, 0},
        {"cursor past the end", bytes("I\x00\x00\x00\x01"), 7, 0},
        {"cursor before the start", bytes("I\x00\x00\x00\x01"), -5, 0},
        {"cursor zero", bytes("I\x00\x00\x00\x01"), 0, 0},
    };
    for (const auto& c : bad) {
        SCOPED_TRACE(c.name);
        JDWPJVarValue value;
        int64_t after = -1;
        EXPECT_EQ(read(c.payload, value, c.start, &after), -1);
        EXPECT_EQ(after, 0);
        EXPECT_EQ(static_cast<int32_t>(value.VarType), c.type);
        EXPECT_EQ(value.VarValue, "");
    }

    // Cut values still advance by their width, without reading past the end.
    const std::pair<std::string, int64_t> cut[] = {
        {bytes("I\x00\x01"), 5}, {bytes("J\xff"), 9}, {bytes("D\x3f"), 9},
        {bytes("F"), 5},         {bytes("C"), 3},     {bytes("s\x00\x00"), 9},
    };
    for (const auto& [payload, result] : cut) {
        JDWPJVarValue value;
        EXPECT_EQ(read(payload, value), result) << payload[0];
    }
    EXPECT_EQ(handler_->pendingSentCount(), 0u);
}

TEST_F(TaggedValues, ValueListsAdvanceTwiceAfterEachElement)
{
    const struct {
        const char* name;
        std::string payload;
        std::vector<std::pair<int32_t, std::string>> expected;
    } cases[] = {
        // Ints at 5 and 10: the first leaves the cursor at 10 and its result
        // (9) is added once more, so the second is read at 19.
        {"two ints: the second is read at the doubled cursor",
         bytes("\x00\x00\x00\x02" "I\x00\x00\x00\x07" "I\x00\x00\x00\x09" "\xee\xee\xee\xee" "Z\x01"),
         {{VAR_INT, "7"}, {VAR_BOOLEAN, "True"}}},
        {"one int", bytes("\x00\x00\x00\x01I\x00\x00\x00\x2a"), {{VAR_INT, "42"}}},
        {"count 0 leaves the list empty", bytes("\x00\x00\x00\x00I\x00\x00\x00\x2a"), {}},
        {"negative count", bytes("\xff\xff\xff\xffI\x00\x00\x00\x2a"), {}},
        {"second element past the end stays empty", bytes("\x00\x00\x00\x02I\x00\x00\x00\x07I\x00\x00\x00\x09"),
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

TEST_F(TaggedValues, ThisObjectAndInvocationResults)
{
    JDWPMessageData self;
    EXPECT_TRUE(self.processGetThis(bytes("t\x00\x00\x00\x00\x00\x00\x00\x63")));
    EXPECT_EQ(self.RequestObjectID, 99);
    self.processGetThis("");
    EXPECT_EQ(self.RequestObjectID, 0);

    const struct {
        std::string payload;
        const char* value;
    } cases[] = {
        {bytes("I\x00\x00\x00\x05L\x00\x00\x00\x00\x00\x00\x00\x00"), "5"},
        {bytes("I\x00\x00\x00\x05"), "5"},         // no exception part at all
        {bytes("I\x00\x00\x00\x05X\x00\x01"), "5"}, // a tag other than L is not looked at
    };
    for (const auto& c : cases)
        for (bool isStatic : {false, true}) {
            JDWPMessageData data;
            if (isStatic)
                data.processInvokeStaticMethod(c.payload);
            else
                data.processInvokeMethod(c.payload);
            ASSERT_EQ(data.requestVar().size(), 1u);
            EXPECT_EQ(data.requestVar()[0].VarValue, c.value);
        }
}

// --- values that need the VM -------------------------------------------------

using testing::be32;
using testing::be64;
using testing::jstr;
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
        JDWPJVarValue value;
        int64_t pos = 1;
        JDWPMessageData().readTaggedValue(payload, pos, value);
        return value;
    }

    std::string classSignature_ = "Lpkg/Thing;";
};

TEST_F(VMValues, StringsAndPlainObjects)
{
    vm_->onPayload(10, 1, jstr(bytes("h\xc0\x80i")));
    const JDWPJVarValue text = read(bytes("s\x00\x00\x00\x00\x00\x00\x00\x70"));
    EXPECT_EQ(text.VarValue, bytes("h\x00i"));
    EXPECT_EQ(text.RefID, 0);
    ASSERT_EQ(vm_->commandsOf(10, 1).size(), 1u);
    EXPECT_EQ(vm_->commandsOf(10, 1)[0].payload, be64(0x70));

    const JDWPJVarValue object = read(bytes("L\x00\x00\x00\x00\x00\x00\x00\x66"));
    EXPECT_EQ(object.VarValue, "Type: pkg/Thing - ObjID: 102");
    EXPECT_EQ(object.RefID, 102);
    EXPECT_TRUE(vm_->commandsOf(9, 6).empty()) << "no method is invoked for a plain object";

    JDWPMessageData data;
    data.processInvokeMethod(bytes("I\x00\x00\x00\x05L\x00\x00\x00\x00\x00\x00\x00\x66"));
    ASSERT_EQ(data.requestVar().size(), 1u);
    EXPECT_EQ(data.requestVar()[0].VarValue, "pkg/Thing") << "an invocation exception shows its class name";
}

TEST_F(VMValues, RuntimeWrappersRenderThroughTheirDebugString)
{
    classSignature_ = "LVBA/VBArray;";
    vm_->onPayload(2, 5, be32(1) + be64(0x61) + jstr("toDebugString") + jstr("()Ljava/lang/String;") + be32(1));
    vm_->onPayload(9, 6, "s" + be64(0x71) + "L" + be64(0));
    vm_->onPayload(10, 1, jstr("\"(1)#(2)\""));
    EXPECT_EQ(read(bytes("L\x00\x00\x00\x00\x00\x00\x00\x66")).VarValue, "(1)\r\n(2)");
    EXPECT_EQ(vm_->commandsOf(9, 6).size(), 1u);
}

} // namespace
} // namespace jdwpkrvdbg
