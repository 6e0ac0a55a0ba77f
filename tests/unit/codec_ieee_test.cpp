// The arithmetic float/double conversion: ordinary values must agree with the
// machine's own interpretation of the bits, the intended quirks (only
// all-zero is 0, negative zero is a tiny negative, subnormals get the
// implicit 1) must hold, and infinities and NaN must come out as themselves.
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>

#include "unit_fixtures.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;
using namespace std::string_literals;

namespace {

TEST(Ieee, GoldenVectors)
{
    constexpr double inf = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    // NaN never equals itself: a NaN row matches any NaN.
    auto same = [](double a, double b) { return std::isnan(a) ? std::isnan(b) : a == b; };
    using Case = std::tuple<const char*, std::string, bool, double>; // name, bytes, big-endian, value
    const Case doubles[] = {
        // Ordinary values in either byte order: the bit-pattern test below.
        {"all zero", "\x00\x00\x00\x00\x00\x00\x00\x00"s, true, 0},
        {"negative zero", "\x80\x00\x00\x00\x00\x00\x00\x00"s, true, -std::ldexp(1.0, -1023)},
        {"smallest subnormal", "\x00\x00\x00\x00\x00\x00\x00\x01"s, true,
         std::ldexp(1.0, -1023) * (1 + std::ldexp(1.0, -52))},
        {"largest finite", "\x7f\xef\xff\xff\xff\xff\xff\xff"s, true, DBL_MAX},
        {"minus infinity little-endian", "\x00\x00\x00\x00\x00\x00\xf0\xff"s, false, -inf},
        // Java's NaN and the infinities of either width are read and shown by
        // the tagged-value table and the live value tests.
        {"negative NaN", "\xff\xf8\x00\x00\x00\x00\x00\x00"s, true, nan},
        {"NaN with the lowest fraction bit only", "\x7f\xf0\x00\x00\x00\x00\x00\x01"s, true, nan},
        {"wrong length", "\x3f\xf0\x00"s, true, -1},
    };
    cIEEE ieee;
    for (const auto& [name, bytes, bigEndian, value] : doubles)
        EXPECT_PRED2(same, ieee.Ieee64stov(bytes, bigEndian), value) << name;

    const Case singles[] = {
        {"all zero", "\x00\x00\x00\x00"s, true, 0},
        {"negative zero is a tiny negative", "\x80\x00\x00\x00"s, true, -std::ldexp(1.0, -127)},
        {"largest finite", "\x7f\x7f\xff\xff"s, true, FLT_MAX},
        {"negative NaN", "\xff\xc0\x00\x00"s, true, nan},
        {"NaN with the lowest fraction bit only", "\x7f\x80\x00\x01"s, true, nan},
        {"little-endian", "\xdb\x0f\x49\x40"s, false, static_cast<double>(3.14159274101257324f)},
        {"wrong length", "\x3f\x80\x00\x00\x00"s, true, -1},
    };
    for (const auto& [name, bytes, bigEndian, value] : singles)
        EXPECT_PRED2(same, ieee.Ieee32stov(bytes, bigEndian), value) << name;
}

// Values the debugger sets are written as their exact bit pattern; a float
// is rounded to single precision first, and every NaN is Java's one NaN.
TEST(Ieee, WrittenValues)
{
    constexpr double inf = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    cIEEE ieee;
    const std::pair<double, std::string> doubles[] = {
        {2.5, "\x40\x04\x00\x00\x00\x00\x00\x00"s},     {-0.0, "\x80\x00\x00\x00\x00\x00\x00\x00"s},
        {DBL_MAX, "\x7f\xef\xff\xff\xff\xff\xff\xff"s}, {-inf, "\xff\xf0\x00\x00\x00\x00\x00\x00"s},
        {-nan, "\x7f\xf8\x00\x00\x00\x00\x00\x00"s},
    };
    for (const auto& [value, bytes] : doubles)
        EXPECT_EQ(hex(ieee.Ieee64vtos(value)), hex(bytes)) << value;
    const std::pair<double, std::string> singles[] = {
        {1.5, "\x3f\xc0\x00\x00"s}, {0.1, "\x3d\xcc\xcc\xcd"s}, {FLT_MAX, "\x7f\x7f\xff\xff"s},
        {inf, "\x7f\x80\x00\x00"s}, {nan, "\x7f\xc0\x00\x00"s},
    };
    for (const auto& [value, bytes] : singles)
        EXPECT_EQ(hex(ieee.Ieee32vtos(value)), hex(bytes)) << value;
}

TEST(Ieee, OrdinaryValuesMatchTheBitPattern)
{
    cIEEE ieee;
    for (double d : {1.5, -2.75, 3.141592653589793, 1e300, -1e-300, 123456.789, 2.2250738585072014e-308}) {
        const std::string be = BitsToBytes(std::bit_cast<uint64_t>(d), 8), le(be.rbegin(), be.rend());
        EXPECT_EQ(ieee.Ieee64stov(be, true), d) << hex(be);
        EXPECT_EQ(ieee.Ieee64stov(le, false), d) << hex(le);
    }
    for (float f : {1.5f, -0.1f, 3.1415927f, 65504.0f, 1e-30f, -3.4e38f}) {
        const std::string be = BitsToBytes(std::bit_cast<uint32_t>(f), 4);
        EXPECT_EQ(static_cast<float>(ieee.Ieee32stov(be, true)), f) << hex(be);
    }
}

} // namespace
