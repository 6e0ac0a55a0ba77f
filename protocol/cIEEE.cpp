// Turns the raw bytes of a JDWP float or double into a number the way the
// debugger always has: through the value's hexadecimal text, computing
// 2^exponent x sign x significand from the fields instead of reinterpreting
// memory. The treatment of negative zero and subnormals that follows from
// this is kept on purpose; infinities and NaN come out as what they are.
#include "jdwpkrvdbg/protocol/cIEEE.h"

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

#include "jdwpkrvdbg/protocol/ByteStrings.h"

namespace jdwpkrvdbg {

namespace {

std::string repeatChar(size_t n, char c)
{
    return std::string(n, c);
}

// True when the text, blanks trimmed, is non-empty and holds only 0-9, A-F.
bool isHexText(const std::string& text)
{
    size_t b = text.find_first_not_of(' ');
    if (b == std::string::npos)
        return false;
    size_t e = text.find_last_not_of(' ');
    for (size_t i = b; i <= e; ++i) {
        char c = text[i];
        if (!((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')))
            return false;
    }
    return true;
}

uint32_t shiftRight(uint32_t value, int bits)
{
    return bits >= 32 ? 0 : value >> bits;
}

std::string toHexText(const std::string& bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (unsigned char c : bytes) {
        hex.push_back(digits[c >> 4]);
        hex.push_back(digits[c & 15]);
    }
    return hex;
}

// Parses up to 16 hex digits (either case, blanks trimmed); false otherwise.
bool parseHex(const std::string& text, uint64_t& value)
{
    size_t b = text.find_first_not_of(' ');
    if (b == std::string::npos)
        return false;
    size_t e = text.find_last_not_of(' ');
    if (e - b + 1 > 16)
        return false;
    value = 0;
    for (size_t i = b; i <= e; ++i) {
        char c = text[i];
        int d;
        if (c >= '0' && c <= '9')
            d = c - '0';
        else if (c >= 'A' && c <= 'F')
            d = c - 'A' + 10;
        else if (c >= 'a' && c <= 'f')
            d = c - 'a' + 10;
        else
            return false;
        value = (value << 4) | static_cast<uint64_t>(d);
    }
    return true;
}

// The shared conversion; `single` selects the 32-bit field layout.
double convert(const cIEEE& ieee, const std::string& bytesIn, bool bigEndian, bool single)
{
    const size_t size = single ? 4 : 8;
    if (bytesIn.size() != size)
        return -1;
    // Only the all-zero pattern is zero; negative zero is not. Intended.
    if (bytesIn == repeatChar(size, '\0'))
        return 0;
    std::string bytes = bigEndian ? bytesIn : (single ? ieee.Ieee32swab(bytesIn) : ieee.Ieee64swab(bytesIn));
    std::string hex = toHexText(bytes);
    if (!isHexText(hex))
        return -1;

    double sign = (hex[0] > '7') ? -1.0 : 1.0;
    uint64_t head = 0;
    parseHex(hex.substr(0, 3) + repeatChar(5, '0'), head);
    uint32_t word = static_cast<uint32_t>(head);
    int exponent = single ? static_cast<int>(shiftRight(word & 0x7F800000u, 23)) - 127
                          : static_cast<int>(shiftRight(word & 0x7FF00000u, 20)) - 1023;
    double significand = single ? ieee.Ieee32htof(hex) : ieee.Ieee64htof(hex);

    // Subnormals get the implicit 1 and an all-ones exponent (infinity, NaN)
    // is not special-cased here; both intended.
    double result = std::ldexp(1.0, exponent) * sign * significand;

    // Only an all-ones exponent overflows the target width. What the bits
    // mean is returned then: an infinity of their sign when the fraction is
    // zero, NaN otherwise. A finite stand-in (the largest value) would be
    // shown as an ordinary, and wrong, number.
    double largest = single ? static_cast<double>(FLT_MAX) : DBL_MAX;
    if (!(std::fabs(result) <= largest))
        return significand == 1.0 ? sign * std::numeric_limits<double>::infinity()
                                  : std::numeric_limits<double>::quiet_NaN();
    return result;
}

} // namespace

double cIEEE::Ieee32stov(const std::string& bytes, bool bigEndian) const
{
    return convert(*this, bytes, bigEndian, true);
}

double cIEEE::Ieee64stov(const std::string& bytes, bool bigEndian) const
{
    return convert(*this, bytes, bigEndian, false);
}

std::string cIEEE::Ieee32swab(const std::string& bytes) const
{
    return std::string(bytes.rbegin(), bytes.rend());
}

std::string cIEEE::Ieee64swab(const std::string& bytes) const
{
    return std::string(bytes.rbegin(), bytes.rend());
}

namespace {

// 1 plus the fraction held in the low `bits` bits of the hex text; -1 when
// the text is not hex.
double onePlusFraction(const std::string& hex, int bits)
{
    uint64_t value = 0;
    if (!parseHex(hex, value))
        return -1;
    const uint64_t scale = uint64_t{1} << bits;
    return 1.0 + static_cast<double>(value & (scale - 1)) / static_cast<double>(scale);
}

} // namespace

double cIEEE::Ieee32htof(const std::string& hex) const
{
    return onePlusFraction(hex, 23);
}

double cIEEE::Ieee64htof(const std::string& hex) const
{
    return onePlusFraction(hex, 52);
}

// Writing needs no quirk kept: the bit pattern of the machine's own IEEE
// value is the wire form.
std::string cIEEE::Ieee32vtos(double value) const
{
    const float f = std::isnan(value) ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(value);
    return BitsToBytes(std::bit_cast<uint32_t>(f), 4);
}

std::string cIEEE::Ieee64vtos(double value) const
{
    const double d = std::isnan(value) ? std::numeric_limits<double>::quiet_NaN() : value;
    return BitsToBytes(std::bit_cast<uint64_t>(d), 8);
}

} // namespace jdwpkrvdbg
