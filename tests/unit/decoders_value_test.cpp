// The tagged-value reader and the decoders built on it: how each tag is read
// and rendered, the cursor it leaves, the value lists with their deliberate
// second advance, invocation results, and tags and cursors that cannot be
// read. Values cut short are the fuzz target's
// (fuzz/corpus/values/hostile-cut-*).
// The tables of byte literals keep their hand layout:
// clang-format off
#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace jdwpkrvdbg {
namespace {

using D = JDWPMessageData;

// Reads one value at `start`; returns the reader's result.
int64_t read(const std::string& payload, JDWPJVarValue& value, int64_t start = 1, int64_t* after = nullptr)
{
    int64_t pos = start;
    const int64_t result = D().readTaggedValue(payload, pos, value);
    if (after)
        *after = pos;
    return result;
}

JDWPJVarValue valueOf(const std::string& payload)
{
    JDWPJVarValue value;
    read(payload, value);
    return value;
}

using TaggedValues = HandlerTest;

TEST_F(TaggedValues, TagsRenderAndAdvanceAsTheTableSays)
{
    // Name, payload, object width, type, text, result (the cursor after the
    // value minus 1, reading from 1).
    const std::tuple<const char*, std::string, int16_t, int32_t, const char*, int64_t> cases[] = {
        // Values the live tests read from a real VM (-7, 'A', true, NaN, -1.0/0)
        // are not repeated here.
        {"Z 0x80 is still true", "Z\x80"s, 8, VAR_BOOLEAN, "True", 2}, {"B 0xFF", "B\xff"s, 8, VAR_BYTE, "255", 2},
        {"C 0x0100 folds", "C\x01\x00"s, 8, VAR_CHAR, "-65280", 3}, {"C 0xFFFF", "C\xff\xff"s, 8, VAR_CHAR, "-1", 3},
        {"C 0x00FF stays", "C\x00\xff"s, 8, VAR_CHAR, "255", 3}, {"S 0x8000", "S\x80\x00"s, 8, VAR_SHORT, "-32768", 3},
        {"I min", "I\x80\x00\x00\x00"s, 8, VAR_INT, "-2147483648", 5},
        {"J 8 bytes max, exact", "J\x7f\xff\xff\xff\xff\xff\xff\xff"s, 8, VAR_LONG, "9223372036854775807", 9},
        {"J 8 bytes min", "J\x80\x00\x00\x00\x00\x00\x00\x00"s, 8, VAR_LONG, "-9223372036854775808", 9},
        {"J takes the object width 4", "J\xff\xff\xff\xff"s, 4, VAR_LONG, "-1", 5},
        {"D 1.0 without .0", "D\x3f\xf0\x00\x00\x00\x00\x00\x00"s, 8, VAR_DOUBLE, "1", 9},
        {"D pi", "D\x40\x09\x21\xfb\x54\x44\x2d\x18"s, 8, VAR_DOUBLE, "3.141592653589793", 9},
        {"D 1e100", "D\x54\xb2\x49\xad\x25\x94\xc3\x7d"s, 8, VAR_DOUBLE, "1e+100", 9},
        {"D 1e6 stays plain", "D\x41\x2e\x84\x80\x00\x00\x00\x00"s, 8, VAR_DOUBLE, "1000000", 9},
        {"F pi as a single", "F\x40\x49\x0f\xdb"s, 8, VAR_FLOAT, "3.1415927", 5},
        {"F 0.1 as a single", "F\x3d\xcc\xcc\xcd"s, 8, VAR_FLOAT, "0.1", 5},
        // Infinities and NaN read as Java prints them, never as a number.
        {"D 1.0/0", "D\x7f\xf0\x00\x00\x00\x00\x00\x00"s, 8, VAR_DOUBLE, "Infinity", 9},
        {"F NaN", "F\x7f\xc0\x00\x00"s, 8, VAR_FLOAT, "NaN", 5},
        {"F -Infinity", "F\xff\x80\x00\x00"s, 8, VAR_FLOAT, "-Infinity", 5},
        {"F largest stays a number", "F\x7f\x7f\xff\xff"s, 8, VAR_FLOAT, "3.4028235e+38", 5},
        {"V consumes the tag only", "V\x49\x00"s, 8, VAR_VOID, "", 1},
        {"s with id 0 fetches nothing", "s\x00\x00\x00\x00\x00\x00\x00\x00"s, 8, VAR_STRING, "", 9},
        {"s with 4-byte ids", "s\x00\x00\x00\x00"s, 4, VAR_STRING, "", 5},
    };
    for (const auto& [name, payload, objectWidth, type, text, result] : cases) {
        SCOPED_TRACE(name);
        jvm()->SIZE_ObjectID = jvm()->SIZE_RefTypeID = objectWidth;
        JDWPJVarValue value;
        int64_t after = 0;
        EXPECT_EQ(read(payload, value, 1, &after), result);
        EXPECT_EQ(after, result + 1);
        EXPECT_EQ(static_cast<int32_t>(value.VarType), type);
        EXPECT_EQ(value.VarValue, text);
        EXPECT_FALSE(value.Found);
    }
    EXPECT_EQ(handler->pendingSentCount(), 0u) << "nothing fetched";
}

TEST_F(TaggedValues, RefIDHoldsFloatsAndObjectIDs)
{
    EXPECT_EQ(valueOf("D\xbf\xe0\x00\x00\x00\x00\x00\x00"s).RefID, -0.5);
    EXPECT_EQ(valueOf("F\x40\x49\x0f\xdb"s).RefID, static_cast<double>(3.14159274f)) << "narrowed to single precision";
    EXPECT_EQ(valueOf("I\x00\x00\x00\x07"s).RefID, 0);
    for (char tag : {'L', '[', 'c', 'g', 'l', 't'}) {
        JDWPJVarValue value;
        EXPECT_EQ(read(std::string(1, tag) + "\x00\x00\x00\x00\x00\x00\x01\x02"s, value), 9) << tag;
        EXPECT_EQ(value.RefID, 258) << tag;
    }
}

TEST_F(TaggedValues, CursorRulesForBadTagsAndCursors)
{
    // Unknown or missing tags reset the cursor to 0.
    const std::tuple<const char*, std::string, int64_t, int32_t> bad[] = { // name, payload, start, type
        {"unknown letter", "X\x01\x02"s, 1, 'X'}, {"empty payload", "", 1, 0},
        {"cursor past the end", "I\x00\x00\x00\x01"s, 7, 0}, {"cursor before the start", "I\x00\x00\x00\x01"s, -5, 0},
        {"cursor zero", "I\x00\x00\x00\x01"s, 0, 0},
    };
    for (const auto& [name, payload, start, type] : bad) {
        SCOPED_TRACE(name);
        JDWPJVarValue value;
        int64_t after = -1;
        EXPECT_EQ(read(payload, value, start, &after), -1);
        EXPECT_EQ(after, 0);
        EXPECT_EQ(static_cast<int32_t>(value.VarType), type);
        EXPECT_EQ(value.VarValue, "");
    }
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
         "\x00\x00\x00\x02" "I\x00\x00\x00\x07" "I\x00\x00\x00\x09" "\xee\xee\xee\xee" "Z\x01"s,
         {{VAR_INT, "7"}, {VAR_BOOLEAN, "True"}}},
        {"count 0 leaves the list empty", "\x00\x00\x00\x00I\x00\x00\x00\x2a"s, {}},
        {"negative count", "\xff\xff\xff\xffI\x00\x00\x00\x2a"s, {}},
        {"second element past the end stays empty", "\x00\x00\x00\x02I\x00\x00\x00\x07I\x00\x00\x00\x09"s,
         {{VAR_INT, "7"}, {0, ""}}},
        {"unknown tag does not stop the list, later elements are lost", "\x00\x00\x00\x02XZ\x01"s,
         {{'X', ""}, {0, ""}}},
        {"void then a value read at the doubled cursor", "\x00\x00\x00\x02V\xee\xee\xee\xee\xeeZ\x00"s,
         {{VAR_VOID, ""}, {VAR_BOOLEAN, "False"}}},
        {"count with nothing behind it", "\x00\x00\x00\x03"s, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (auto decode : {&D::processGetValue, &D::processGetField, &D::processGetStaticField}) {
            D data;
            (data.*decode)(c.payload, nullptr);
            std::vector<std::pair<int32_t, std::string>> got;
            for (const auto& v : data.requestVar())
                got.emplace_back(static_cast<int32_t>(v.VarType), v.VarValue);
            EXPECT_EQ(got, c.expected);
        }
    }
}

TEST_F(TaggedValues, ThisObjectAndInvocationResults)
{
    // The id of `this` whatever kind of object it is; nothing else is read.
    for (char tag : "Lt[cgls"s) {
        JDWPMessageData self;
        EXPECT_TRUE(self.processGetThis(std::string(1, tag) + "\x00\x00\x00\x00\x00\x00\x00\x63"s));
        EXPECT_EQ(self.RequestObjectID, 99) << tag;
    }
    for (const std::string& none : {""s, "L\x00\x00\x00\x00\x00\x00\x00\x00"s, "I\x00\x00\x00\x63"s}) {
        JDWPMessageData self;
        self.processGetThis(none);
        EXPECT_EQ(self.RequestObjectID, 0);
    }

    const std::pair<std::string, const char*> cases[] = {
        {"I\x00\x00\x00\x05L\x00\x00\x00\x00\x00\x00\x00\x00"s, "5"},
        {"I\x00\x00\x00\x05"s, "5"},         // no exception part at all
        {"I\x00\x00\x00\x05X\x00\x01"s, "5"}, // a tag other than L is not looked at
    };
    for (const auto& [payload, text] : cases)
        for (auto decode : {&D::processInvokeMethod, &D::processInvokeStaticMethod}) {
            D data;
            (data.*decode)(payload);
            ASSERT_EQ(data.requestVar().size(), 1u);
            EXPECT_EQ(data.requestVar()[0].VarValue, text);
        }
}

// --- values that need the VM -------------------------------------------------

class VMValues : public ModelTest {
protected:
    void SetUp() override
    {
        ModelTest::SetUp();
        // Object 0x66 is of class 0x80 (pkg/Thing), which has no superclass.
        vm->onPayload(9, 1, u8(1) + be64(0x80));
        vm->onPayload(2, 1, jstr("Lpkg/Thing;"));
        vm->onPayload(3, 1, "", ERR_INVALID_CLASS);
        vm->onPayload(11, 6, be32(0));
    }
};

TEST_F(VMValues, StringsAndInvocationExceptions)
{
    vm->onPayload(10, 1, jstr("h\xc0\x80i"s));
    const JDWPJVarValue text = valueOf("s\x00\x00\x00\x00\x00\x00\x00\x70"s);
    EXPECT_EQ(text.VarValue, "h\x00i"s);
    EXPECT_EQ(text.RefID, 0x70); // kept: a null String is told from an empty one
    ASSERT_EQ(vm->commandsOf(10, 1).size(), 1u);
    EXPECT_EQ(vm->commandsOf(10, 1)[0].payload, be64(0x70));

    JDWPMessageData data;
    data.processInvokeMethod("I\x00\x00\x00\x05L\x00\x00\x00\x00\x00\x00\x00\x66"s);
    ASSERT_EQ(data.requestVar().size(), 1u);
    EXPECT_EQ(data.requestVar()[0].VarValue, "pkg/Thing") << "an invocation exception shows its class name";
}

// The bulk reads of a variables view: every value of a reply, read at its
// own place, and nothing asked of the VM per value (no string text, no
// class, no toString call for arrays and threads). An array's length and
// the rendering the one-value reads keep are read from a real VM (tests/dap,
// LiveValues).
TEST_F(VMValues, BulkReadsKeepEveryValueUnrendered)
{
    auto factory = handler->myFactory();
    const std::string objects = "s"s + be64(0x70) + "L"s + be64(0x66) + "["s + be64(0x67) + "t"s + be64(0x68) +
                                "L"s + be64(0);
    const std::string primitives = "Z\x01" "B\xfd" "C\x00\x5a" "S\xfe\xd4" "I\xff\xff\xff\xfe"s +
                                   "J\x00\x00\x01\x1f\x71\xfb\x04\xcb" "D\x40\x04\x00\x00\x00\x00\x00\x00"
                                   "F\x3f\xc0\x00\x00"s;
    using Value = std::tuple<int32_t, std::string, double>; // type, text, id
    // Each reply is scripted for the command set and command of its request.
    const struct {
        const char* name;
        JDWPMessageFactory::Msg request;
        std::string reply;
        std::vector<Value> expected;
    } cases[] = {
        {"object fields", factory->createGetFieldValuesMessage(0x66, {1, 2, 3, 4, 5}), be32(5) + objects,
         {{VAR_STRING, "", 0x70}, {VAR_OBJECT, "", 0x66}, {VAR_ARRAY, "", 0x67}, {VAR_THREAD, "", 0x68},
          {VAR_OBJECT, "", 0}}},
        {"statics, primitives as Java writes them", factory->createGetStaticFieldValuesMessage(0x80, {1, 2}),
         be32(8) + primitives,
         {{VAR_BOOLEAN, "true", 1}, {VAR_BYTE, "-3", -3}, {VAR_CHAR, "90", 90}, {VAR_SHORT, "-300", -300},
          {VAR_INT, "-2", -2}, {VAR_LONG, "1234567890123", 1234567890123.0}, {VAR_DOUBLE, "2.5", 2.5},
          {VAR_FLOAT, "1.5", 1.5}}},
        {"frame slots; an unknown tag ends the list", factory->createGetValues(6, 7, {{1, "I"}, {2, "X"}, {3, "I"}}),
         be32(3) + "I\x00\x00\x00\x07" "X\x01" "I\x00\x00\x00\x08"s, {{VAR_INT, "7", 7}}},
        {"primitive array region: untagged elements", factory->createGetArrayValuesMessage(0x67, 1, 3),
         "I"s + be32(3) + be32(1) + be32(4) + be32(9), {{VAR_INT, "1", 1}, {VAR_INT, "4", 4}, {VAR_INT, "9", 9}}},
        {"object array region: tagged elements", factory->createGetArrayValuesMessage(0x67, 0, 2),
         "L"s + be32(2) + "s"s + be64(0x70) + "L"s + be64(0), {{VAR_STRING, "", 0x70}, {VAR_OBJECT, "", 0}}},
        {"a count past the payload stops at its end", factory->createGetArrayValuesMessage(0x67, 0, 1000),
         "J"s + be32(1000) + be64(5), {{VAR_LONG, "5", 5}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        vm->onPayload(c.request->myCommandSet, static_cast<int>(c.request->myCommand), c.reply);
        vm->clearCommands();
        auto reply = handler->sendSync(c.request, 1000);
        ASSERT_NE(reply, nullptr);
        std::vector<Value> got;
        for (const auto& v : reply->myDataContainer()->requestVar())
            got.emplace_back(static_cast<int32_t>(v.VarType), v.VarValue, v.RefID);
        EXPECT_EQ(got, c.expected);
        EXPECT_EQ(vm->commands().size(), 1u) << "values were rendered through the VM";
    }
}

// A thread renders through its toString; the frame refresh after that call
// asks for `this`, which must not render it again. A result that is itself
// rendered by a call stops after two calls in a row.
TEST_F(VMValues, RendersNeverRecurseWithoutEnd)
{
    JDWPMessageData self;
    self.processGetThis("t"s + be64(0x66));
    EXPECT_EQ(self.RequestObjectID, 0x66);
    EXPECT_TRUE(vm->commands().empty()) << "`this` was rendered";

    vm->onPayload(2, 5, be32(1) + be64(0x61) + jstr("toString") + jstr("()Ljava/lang/String;") + be32(1));
    vm->onPayload(9, 6, "t" + be64(0x66) + "L" + be64(0));
    vm->onPayload(16, 3, "L" + be64(0));
    EXPECT_EQ(valueOf("t"s + be64(0x66)).VarValue, "pkg/Thing");
    EXPECT_EQ(vm->commandsOf(9, 6).size(), 2u);
}

} // namespace
} // namespace jdwpkrvdbg
