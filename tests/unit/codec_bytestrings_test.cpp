// The byte-string helpers: number encoding (exact to 2^53, the masked
// truncation for negatives), bounds-checked readers, strings, locations and
// steps in the session's identifier widths, the signed reader, modified
// UTF-8 and the decimal text of identifiers.
// The tables of byte literals keep their hand layout:
// clang-format off
#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>

#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;
using namespace std::string_literals;

namespace {

constexpr double kBigMethodId = 94346673792336.0; // 0x55cecbfa2550, as a 64-bit VM hands out
constexpr double kTwo53Minus1 = 9007199254740991.0;

TEST(ByteStrings, NumberToBytesGoldenVectors)
{
    const std::tuple<double, int, bool, std::string> cases[] = {
        {258, 2, false, "\x01\x02"s}, {258, 2, true, "\x02\x01"s},
        {-1, 4, false, "\x00\x00\x00\xff"s},     // no two's complement
        {-258, 2, false, "\xff\xfe"s},           // -1.0078 truncates to -1
        {-65536, 4, false, "\x00\xff\x00\x00"s}, // -1 at 256^2, the rest truncate to 0
        {256, 1, false, "\x00"s},                // masked to the width
        {2147483648.0, 8, false, "\x00\x00\x00\x00\x80\x00\x00\x00"s},
        {kTwo53Minus1, 8, false, "\x00\x1f\xff\xff\xff\xff\xff\xff"s},
        {kBigMethodId, 8, false, "\x00\x00\x55\xce\xcb\xfa\x25\x50"s}, {kBigMethodId, 4, false, "\xcb\xfa\x25\x50"s},
        {0x0102030405060700 * 1.0, 8, false, "\x01\x02\x03\x04\x05\x06\x07\x00"s}, // exact above 2^53 too
        {7, 0, false, ""s}, {std::nan(""), 2, false, "\x00\x00"s},
    };
    for (const auto& [value, width, littleEndian, bytes] : cases)
        EXPECT_EQ(hex(NumberToBytes(value, width, littleEndian)), hex(bytes)) << value << " width " << width;
    EXPECT_EQ(hex(LongToBytes(-1, 4)), "00 00 00 FF");
    EXPECT_EQ(hex(LongToBytes(0x01020304, 4, true)), "04 03 02 01");
}

TEST(ByteStrings, BytesToNumberRoundTripsEveryWidthAndOrder)
{
    for (double v : {0.0, 1.0, 255.0, 256.0, 65535.0, 2147483648.0, 4294967296.0, kBigMethodId, kTwo53Minus1})
        for (int width = 1; width <= 8; ++width)
            for (bool le : {false, true})
                if (v < std::ldexp(1.0, 8 * width)) {
                    EXPECT_EQ(BytesToNumber("\xee"s + NumberToBytes(v, width, le) + "\xee"s, 2, width, le), v)
                        << v << " width " << width << " le " << le;
                }
}

TEST(ByteStrings, ReadersTreatBytesOutsideTheBufferAsMissing)
{
    const std::string buf = "\x01\x02\x03"s;
    const std::tuple<int64_t, int, bool, double> cases[] = {
        {1, 3, false, 0x010203},
        {3, 2, false, 0x0300},  // byte 4 missing
        {3, 2, true, 0x03},     // LE: byte 4 is the high one
        {0, 2, false, 0x01},    // byte 0 missing
        {-1, 4, false, 0x0102}, // bytes -1 and 0 missing
        {4, 4, false, 0}, {std::numeric_limits<int64_t>::max(), 8, false, 0},
        {std::numeric_limits<int64_t>::min(), 8, false, 0},
    };
    for (const auto& [position, width, littleEndian, expected] : cases)
        EXPECT_EQ(BytesToNumber(buf, position, width, littleEndian), expected) << "position " << position;
    EXPECT_EQ(BytesToNumber(""s, 1, 8, false), 0);

    int32_t l = 0;
    EXPECT_EQ(ReadLong("\xff\xff\xff\xff"s, 1, l, 4), 4);
    EXPECT_EQ(l, -1); // a hostile count never becomes a huge loop bound
}

TEST(ByteStrings, LengthPrefixedStringsAreReadWithinTheBuffer)
{
    // Written by the builders (their golden table); read here.
    const std::tuple<std::string, int64_t, std::string, int64_t> cases[] = {
        {"\x00\x00\x00\x03" "abc"s, 1, "abc", 7}, {"\xff\x00\x00\x00\x02" "hi!"s, 2, "hi", 6},
        {"\x00\x00\x00\x0a" "abc"s, 1, "abc", 14},  // truncated: only what is there
        {"\xff\xff\xff\xff"s, 1, "", 4294967299LL}, // huge count, nothing allocated
        {"\x00\x00\x00\x03" "abc"s, 8, "", 4},      // past the end
        {"\x00\x00\x00\x03" "abc"s, -10, "", 4},    // before the start
    };
    for (const auto& [buffer, position, text, consumed] : cases) {
        std::string out = "stale";
        EXPECT_EQ(ReadString(buffer, position, out), consumed) << hex(buffer);
        EXPECT_EQ(out, text) << hex(buffer);
    }
}

TEST(ByteStrings, ReadSignedNumberGoldenVectors)
{
    const std::tuple<std::string, int, double> cases[] = {
        // Widths 1, 2 and 4 are read by the tagged-value table (B, C, S, I).
        {"\xff\xff\xff"s, 3, 16777215},
        {"\x00\x00\x55\xce\xcb\xfa\x25\x50"s, 8, kBigMethodId},
        {"\x80\x00\x00\x00\x00\x00\x00\x00"s, 8, -9223372036854775808.0},
        {"\xff\xff"s, 4, 0xffff0000 - 4294967296.0}, // missing low bytes count 0
    };
    for (const auto& [bytes, width, expected] : cases) {
        double out = 0;
        EXPECT_EQ(ReadSignedNumber(bytes, 1, out, width), width);
        EXPECT_EQ(out, expected) << hex(bytes);
    }
}

class ByteStringsSession : public HandlerTest {};

TEST_F(ByteStringsSession, LocationsAndStepsUseTheObjectWidth)
{
    const JDWPJLocation loc{TT_CLASS, 5, kBigMethodId, 0x10};
    const std::string method = "\x00\x00\x55\xce\xcb\xfa\x25\x50"s, index = "\x00\x00\x00\x00\x00\x00\x00\x10"s;
    for (const auto& [objectWidth, classBytes] : {std::pair{8, "\x00\x00\x00\x00\x00\x00\x00\x05"s},
                                                  std::pair{4, "\x00\x00\x00\x05"s}}) {
        // The reference-type width must not matter.
        setWidths(static_cast<int16_t>(objectWidth), 8, 2, 2, 1);
        const std::string bytes = "\x01"s + classBytes + method + index;
        EXPECT_EQ(hex(EncodeLocation(loc)), hex(bytes));
        JDWPJLocation back;
        EXPECT_EQ(ReadLocation("\xaa"s + bytes + "\xbb"s, 2, back), static_cast<int64_t>(bytes.size()));
        EXPECT_EQ(std::tuple(back.ClassID, back.MethodID, back.Index), std::tuple(5.0, kBigMethodId, 16.0));
    }

    // A step: thread (object width) then size then depth.
    const JDWPStepStruct step{.threadID = 6, .stepDepth = SD_OUT, .StepSize = JDWPStepSize::SS_LINE};
    EXPECT_EQ(hex(EncodeStep(step)), hex("\x00\x00\x00\x06" "\x00\x00\x00\x01" "\x00\x00\x00\x02"s));
    // A location cut short is a fuzz seed (fuzz/corpus/events/hostile-cut-location).
}

TEST(ByteStrings, ModifiedUtf8ToStandardUtf8)
{
    const std::string fffd = "\xef\xbf\xbd"s;
    const std::tuple<const char*, std::string, std::string> cases[] = {
        // NUL, two-byte letters and a surrogate pair are read from string
        // values by the value decoder tests and the live ones.
        {"plain 4-byte", "\xf0\x9f\x98\x80"s, "\xf0\x9f\x98\x80"s},
        {"lone high surrogate", "\xed\xa0\xbd" "x"s, fffd + "x"}, {"lone low surrogate", "\xed\xb8\x80"s, fffd},
        {"truncated two-byte", "a\xc3"s, "a" + fffd}, {"truncated pair", "\xed\xa0\xbd\xed\xb8"s, fffd + fffd},
        {"bad continuation", "\xc3" "A"s, fffd + "A"}, {"overlong C1", "\xc1\x81"s, fffd + fffd},
        {"invalid lead", "\xff\xfe"s, fffd + fffd}, {"beyond U+10FFFF", "\xf4\x90\x80\x80"s, fffd + fffd + fffd + fffd},
    };
    for (const auto& [name, in, out] : cases)
        EXPECT_EQ(hex(Utf8ToText(in)), hex(out)) << name;
}

TEST(ByteStrings, NumberTextIsShortestDecimal)
{
    const std::pair<double, const char*> cases[] = {
        {17, "17"}, {4.5, "4.5"}, {-0.0, "0"}, {0.1, "0.1"},
        {kTwo53Minus1, "9007199254740991"}, {kBigMethodId, "94346673792336"},
    };
    for (const auto& [value, text] : cases)
        EXPECT_EQ(NumberText(value), text);
}

} // namespace
