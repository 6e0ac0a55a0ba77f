// The byte-string helpers shared by the command builders and the decoders:
// numbers to and from wire bytes, length-prefixed strings, locations, step
// modifiers, the VM's modified UTF-8, and the decimal text of identifiers.
//
// Every reader works on 1-based positions and treats a byte before position 1
// or past the end of the buffer as missing (it contributes 0 and is never
// touched), so a truncated or hostile payload can shorten a value but never
// make us read outside the string.
#include "jdwpkrvdbg/protocol/ByteStrings.h"

#include <charconv>
#include <cmath>

#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

// The byte at a 1-based position, or -1 when that position is not inside the
// buffer. __int128 keeps position arithmetic near the int64 limits defined.
int byteAt(const std::string& buffer, __int128 position)
{
    if (position < 1 || position > static_cast<__int128>(buffer.size()))
        return -1;
    return static_cast<unsigned char>(buffer[static_cast<size_t>(position - 1)]);
}

// The low byte of an integral double, as `q AND 255` on a two's-complement
// integer would give it; exact for every finite double (fmod is exact).
int lowByte(double q)
{
    if (!std::isfinite(q))
        return 0;
    double r = std::fmod(q, 256.0);
    if (r < 0)
        r += 256.0;
    return static_cast<int>(r);
}

int objectIdWidth()
{
    return getCurrentHandler()->myJVM()->SIZE_ObjectID;
}
int methodIdWidth()
{
    return getCurrentHandler()->myJVM()->SIZE_MethodID;
}

} // namespace

std::string NumberToBytes(double value, int width, bool littleEndian)
{
    std::string out;
    if (width <= 0)
        return out;
    out.reserve(static_cast<size_t>(width));
    for (int i = 1; i <= width; ++i) {
        int shift = width - i;
        // Division by a power of two is exact, so the truncated quotient is
        // exact too and every value below 2^53 comes out byte for byte.
        // Negative values keep the masked truncation of their quotient (not
        // two's complement): -1 in 4 bytes is 00 00 00 FF. Intended.
        double quotient = std::trunc(std::ldexp(value, -8 * shift));
        char byte = static_cast<char>(lowByte(quotient));
        if (littleEndian)
            out.insert(out.begin(), byte);
        else
            out.push_back(byte);
    }
    return out;
}

std::string LongToBytes(int32_t value, int width, bool littleEndian)
{
    return NumberToBytes(static_cast<double>(value), width, littleEndian);
}

std::string BitsToBytes(uint64_t bits, int width)
{
    std::string out;
    for (int i = width - 1; i >= 0; --i)
        out.push_back(static_cast<char>((bits >> (8 * i)) & 0xFF));
    return out;
}

std::string LengthPrefixed(const std::string& text)
{
    return NumberToBytes(static_cast<double>(text.size()), 4) + text;
}

std::string EncodeLocation(const JDWPJLocation& location)
{
    // The class id uses the object-id width, not the reference-type width.
    // Intended; the VM reports equal widths.
    std::string out = NumberToBytes(location.ClassTypeTag, 1);
    out += NumberToBytes(location.ClassID, objectIdWidth());
    out += NumberToBytes(location.MethodID, methodIdWidth());
    out += NumberToBytes(location.Index, 8);
    return out;
}

std::string EncodeStep(const JDWPStepStruct& step)
{
    std::string out = NumberToBytes(step.threadID, objectIdWidth());
    out += NumberToBytes(static_cast<double>(static_cast<int32_t>(step.StepSize)), 4);
    out += NumberToBytes(static_cast<double>(step.stepDepth), 4);
    return out;
}

double BytesToNumber(const std::string& buffer, int64_t position, int width, bool littleEndian)
{
    double result = 0;
    for (int i = 1; i <= width; ++i) {
        int shift = width - i;
        __int128 at = littleEndian ? static_cast<__int128>(position) + shift : static_cast<__int128>(position) + i - 1;
        int byte = byteAt(buffer, at);
        if (byte <= 0)
            continue; // missing, or adds nothing
        result += std::ldexp(static_cast<double>(byte), 8 * shift);
    }
    return result;
}

int64_t ReadNumber(const std::string& buffer, int64_t position, double& out, int width)
{
    out = BytesToNumber(buffer, position, width, false);
    return width;
}

int64_t ReadLong(const std::string& buffer, int64_t position, int32_t& out, int width)
{
    double value = 0;
    int64_t used = ReadNumber(buffer, position, value, width);
    // A value that does not fit keeps its low 32 bits (FF FF FF FF reads as
    // -1), so a hostile count can never turn into a huge positive loop bound.
    double low = std::fmod(value, 4294967296.0);
    out = static_cast<int32_t>(static_cast<uint32_t>(low));
    return used;
}

int64_t ReadString(const std::string& buffer, int64_t position, std::string& out)
{
    double n = 0;
    ReadNumber(buffer, position, n, 4);
    // Only the bytes that are really there are taken; the declared length is
    // still reported, so the caller's cursor moves past the end and its later
    // reads find missing bytes instead of misaligned ones.
    __int128 first = static_cast<__int128>(position) + 4;
    __int128 last = first + static_cast<__int128>(n) - 1;
    __int128 lo = first < 1 ? 1 : first;
    __int128 hi = last > static_cast<__int128>(buffer.size()) ? static_cast<__int128>(buffer.size()) : last;
    if (hi >= lo)
        out = buffer.substr(static_cast<size_t>(lo - 1), static_cast<size_t>(hi - lo + 1));
    else
        out.clear();
    return static_cast<int64_t>(n) + 4;
}

int64_t ReadLocation(const std::string& buffer, int64_t position, JDWPJLocation& out)
{
    int objectWidth = objectIdWidth();
    int methodWidth = methodIdWidth();
    int64_t pos = position;
    double tag = 0;
    pos += ReadNumber(buffer, pos, tag, 1);
    out.ClassTypeTag = static_cast<TypeTag>(static_cast<int32_t>(tag));
    // Class id with the object-id width, as EncodeLocation writes it. Intended.
    pos += ReadNumber(buffer, pos, out.ClassID, objectWidth);
    pos += ReadNumber(buffer, pos, out.MethodID, methodWidth);
    // The index is signed: a native method's frame is at -1, which read
    // unsigned came out as 2^64 (a double cannot hold 2^64 - 1).
    pos += ReadSignedNumber(buffer, pos, out.Index, 8);
    return pos - position;
}

int64_t ReadSignedNumber(const std::string& buffer, int64_t position, double& out, int width)
{
    double unsignedValue = BytesToNumber(buffer, position, width, false);
    switch (width) {
    case 1:
        out = unsignedValue; // one byte is never negative
        break;
    case 2:
        out = static_cast<int16_t>(static_cast<uint16_t>(unsignedValue));
        break;
    case 3:
    case 4:
        // A literal of 5 to 8 hex digits is a signed 32-bit value.
        out = static_cast<int32_t>(static_cast<uint32_t>(unsignedValue));
        break;
    case 8: {
        uint64_t bits = 0;
        for (int i = 0; i < 8; ++i) {
            int byte = byteAt(buffer, static_cast<__int128>(position) + i);
            bits = (bits << 8) | static_cast<uint64_t>(byte < 0 ? 0 : byte);
        }
        out = static_cast<double>(static_cast<int64_t>(bits));
        break;
    }
    default:
        // 5 to 7 bytes do not reach the sign bit of a 64-bit literal.
        out = width > 0 ? unsignedValue : 0;
        break;
    }
    return width;
}

namespace {

constexpr uint32_t kReplacement = 0xFFFD;

// Decodes one sequence at `i`; returns the code point (surrogates included,
// as the modified UTF-8 of the VM carries them) and sets `used` to the bytes
// taken. A malformed sequence yields kReplacement and takes its maximal valid
// prefix (at least one byte).
uint32_t decodeOne(const std::string& s, size_t i, size_t& used)
{
    auto at = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char lead = at(i);
    used = 1;
    if (lead < 0x80)
        return lead;
    int length = 0;
    unsigned char lo = 0x80, hi = 0xBF;
    uint32_t cp = 0;
    if (lead == 0xC0) {
        // The VM writes NUL as C0 80; any other C0 sequence is overlong.
        if (i + 1 < s.size() && at(i + 1) == 0x80) {
            used = 2;
            return 0;
        }
        return kReplacement;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        cp = lead & 0x0F;
        if (lead == 0xE0)
            lo = 0xA0;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        cp = lead & 0x07;
        if (lead == 0xF0)
            lo = 0x90;
        if (lead == 0xF4)
            hi = 0x8F;
    } else {
        return kReplacement;
    }
    for (int k = 1; k < length; ++k) {
        if (i + k >= s.size())
            return kReplacement;
        unsigned char c = at(i + k);
        if (c < lo || c > hi)
            return kReplacement;
        lo = 0x80;
        hi = 0xBF;
        cp = (cp << 6) | (c & 0x3F);
        used = static_cast<size_t>(k) + 1;
    }
    return cp;
}

} // namespace

void AppendUtf8(std::string& out, uint32_t code)
{
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (code >> 6)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (code >> 12)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (code >> 18)));
        out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
}

std::string Utf8ToText(const std::string& bytes)
{
    std::string out;
    out.reserve(bytes.size());
    size_t i = 0;
    while (i < bytes.size()) {
        size_t used = 1;
        uint32_t cp = decodeOne(bytes, i, used);
        if (cp >= 0xD800 && cp <= 0xDBFF) {
            // A high surrogate must be followed by a low one (CESU-8 form of
            // a supplementary character); alone it is malformed.
            size_t used2 = 1;
            uint32_t low = i + used < bytes.size() ? decodeOne(bytes, i + used, used2) : 0;
            if (low >= 0xDC00 && low <= 0xDFFF) {
                cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                used += used2;
            } else {
                cp = kReplacement;
            }
        } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
            cp = kReplacement;
        }
        AppendUtf8(out, cp);
        i += used;
    }
    return out;
}

std::string NumberText(double value)
{
    char text[64];
    std::to_chars_result r{};
    // Integral values are written without an exponent (ids and counts must
    // round-trip as plain digits: key17, ID:9007199254740991).
    if (std::isfinite(value) && value == std::trunc(value) && std::fabs(value) < 1e21) {
        if (value == 0)
            return "0"; // also for negative zero
        r = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
    } else {
        r = std::to_chars(text, text + sizeof text, value);
    }
    if (r.ec != std::errc())
        return std::string();
    return std::string(text, r.ptr);
}

std::string ReplaceAll(std::string text, const std::string& what, const std::string& with)
{
    if (what.empty())
        return text;
    size_t at = 0;
    while ((at = text.find(what, at)) != std::string::npos) {
        text.replace(at, what.size(), with);
        at += with.size();
    }
    return text;
}

} // namespace jdwpkrvdbg
