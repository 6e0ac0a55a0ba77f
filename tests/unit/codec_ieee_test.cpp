// The arithmetic float/double conversion: ordinary values must agree with the
// machine's own interpretation of the bits, and the intended quirks (only
// all-zero is 0, negative zero is a tiny negative, subnormals get the
// implicit 1, an all-ones exponent yields the largest value) must hold.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "codec_test_support.h"
#include "jdwpkrvdbg/protocol/cIEEE.h"

using namespace jdwpkrvdbg;
using codec_test::hex;
using namespace std::string_literals;

namespace {

TEST(Ieee, GoldenVectors)
{
    struct Case {
        const char* name;
        std::string bytes;
        bool bigEndian;
        double expected;
    };
    const Case doubles[] = {
        {"one", "\x3f\xf0\x00\x00\x00\x00\x00\x00"s, true, 1},
        {"one little-endian", "\x00\x00\x00\x00\x00\x00\xf0\x3f"s, false, 1},
        {"all zero", "\x00\x00\x00\x00\x00\x00\x00\x00"s, true, 0},
        {"negative zero", "\x80\x00\x00\x00\x00\x00\x00\x00"s, true, -std::ldexp(1.0, -1023)},
        {"smallest subnormal", "\x00\x00\x00\x00\x00\x00\x00\x01"s, true,
         std::ldexp(1.0, -1023) * (1 + std::ldexp(1.0, -52))},
        {"infinity", "\x7f\xf0\x00\x00\x00\x00\x00\x00"s, true, DBL_MAX},
        {"minus infinity", "\xff\xf0\x00\x00\x00\x00\x00\x00"s, true, -DBL_MAX},
        {"NaN", "\x7f\xf8\x00\x00\x00\x00\x00\x00"s, true, DBL_MAX},
        {"wrong length", "\x3f\xf0\x00"s, true, -1},
    };
    cIEEE ieee;
    for (const Case& c : doubles)
        EXPECT_EQ(ieee.Ieee64stov(c.bytes, c.bigEndian), c.expected) << c.name;

    const Case singles[] = {
        {"one", "\x3f\x80\x00\x00"s, true, 1},
        {"all zero", "\x00\x00\x00\x00"s, true, 0},
        {"negative zero", "\x80\x00\x00\x00"s, true, -std::ldexp(1.0, -127)},
        {"infinity", "\x7f\x80\x00\x00"s, true, FLT_MAX},
        {"NaN", "\xff\xc0\x00\x00"s, true, -FLT_MAX},
        {"little-endian", "\xdb\x0f\x49\x40"s, false, static_cast<double>(3.14159274101257324f)},
        {"wrong length", "\x3f\x80\x00\x00\x00"s, true, -1},
    };
    for (const Case& c : singles)
        EXPECT_EQ(ieee.Ieee32stov(c.bytes, c.bigEndian), c.expected) << c.name;

    EXPECT_EQ(static_cast<float>(ieee.Ieee32stov("\x40\x49\x0f\xdb"s, true)), 3.1415927f);
    float tiny = static_cast<float>(ieee.Ieee32stov("\x80\x00\x00\x00"s, true));
    EXPECT_LT(tiny, 0.0f); // a tiny negative number, not negative zero
}

TEST(Ieee, OrdinaryValuesMatchTheBitPattern)
{
    const double doubles[] = {1.5, -2.75, 3.141592653589793, 1e300, -1e-300, 123456.789, 2.2250738585072014e-308};
    cIEEE ieee;
    for (double d : doubles) {
        uint64_t bits;
        std::memcpy(&bits, &d, 8);
        std::string be, le;
        for (int i = 7; i >= 0; --i)
            be.push_back(static_cast<char>((bits >> (8 * i)) & 0xff));
        le.assign(be.rbegin(), be.rend());
        EXPECT_EQ(ieee.Ieee64stov(be, true), d) << hex(be);
        EXPECT_EQ(ieee.Ieee64stov(le, false), d) << hex(le);
    }
    const float singles[] = {1.5f, -0.1f, 65504.0f, 1e-30f, -3.4e38f};
    for (float f : singles) {
        uint32_t bits;
        std::memcpy(&bits, &f, 4);
        std::string be;
        for (int i = 3; i >= 0; --i)
            be.push_back(static_cast<char>((bits >> (8 * i)) & 0xff));
        EXPECT_EQ(static_cast<float>(ieee.Ieee32stov(be, true)), f) << hex(be);
    }
}

TEST(Ieee, HelpersSwapAndReadTheSignificand)
{
    cIEEE ieee;
    EXPECT_EQ(ieee.Ieee64swab("\x01\x02\x03\x04\x05\x06\x07\x08"s), "\x08\x07\x06\x05\x04\x03\x02\x01"s);
    EXPECT_EQ(ieee.Ieee32swab("\x01\x02\x03\x04"s), "\x04\x03\x02\x01"s);
    EXPECT_EQ(ieee.Ieee64htof("3FF8000000000000"), 1.5);
    EXPECT_EQ(ieee.Ieee64htof("BFF0000000000001"), 1 + std::ldexp(1.0, -52));
    EXPECT_EQ(ieee.Ieee32htof("40490FDB"), 1 + 0x490FDB / 8388608.0);
    EXPECT_EQ(ieee.Ieee32htof("XYZ"), -1);
    EXPECT_EQ(ieee.Ieee64htof(""), -1);
}

} // namespace
