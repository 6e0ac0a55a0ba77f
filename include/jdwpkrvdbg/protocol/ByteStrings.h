// The byte-string helpers through which every builder and decoder writes and
// reads wire data. A byte string is a std::string holding one byte per char;
// positions are 1-based, as the decoders' cursors are. Every reader is
// bounds-checked: a byte before position 1 or after the end of the buffer
// counts as missing and is never read. Nothing here throws, and nothing here
// does I/O or reads a clock, except that the identifier widths are read from
// the session at the moment of encoding.
#pragma once

#include <cstdint>
#include <string>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"

namespace jdwpkrvdbg {

// Exactly `width` bytes (1-8) of `value`, most significant first unless
// littleEndian. Exact for every magnitude below 2^53; negative values are not
// written in two's complement (each byte is the masked truncation of the
// quotient), so -1 in 4 bytes is 00 00 00 FF.
std::string NumberToBytes(double value, int width, bool littleEndian = false);
std::string LongToBytes(int32_t value, int width, bool littleEndian = false);
// The low `width` bytes (1-8) of `bits`, most significant first: exact for
// every 64-bit pattern, negative numbers in two's complement.
std::string BitsToBytes(uint64_t bits, int width);

// 4-byte big-endian length followed by the bytes unchanged.
std::string LengthPrefixed(const std::string& text);

// type tag (1), class id (object-id width, intended), method id (method-id
// width), code index (8), big-endian.
std::string EncodeLocation(const JDWPJLocation& location);

// thread id (object-id width), step size (4), step depth (4), big-endian.
std::string EncodeStep(const JDWPStepStruct& step);

// Unsigned value of `width` bytes at the 1-based `position`; missing bytes
// contribute nothing.
double BytesToNumber(const std::string& buffer, int64_t position, int width, bool littleEndian = false);

// Big-endian reads at a 1-based position; each returns the number of bytes
// the field occupies (width, or 4 + n for a string) whether or not the bytes
// were all there.
int64_t ReadNumber(const std::string& buffer, int64_t position, double& out, int width);
int64_t ReadLong(const std::string& buffer, int64_t position, int32_t& out, int width);
int64_t ReadString(const std::string& buffer, int64_t position, std::string& out);
int64_t ReadLocation(const std::string& buffer, int64_t position, JDWPJLocation& out);

// Signed reading of 1, 2, 4 or 8 bytes: 1 byte gives 0..255, 2 bytes a signed
// 16-bit value, 4 bytes a signed 32-bit value, 8 bytes a signed 64-bit value
// (as a double). Returns the width.
int64_t ReadSignedNumber(const std::string& buffer, int64_t position, double& out, int width);

// The VM's modified UTF-8 (NUL as C0 80, supplementary characters as two
// 3-byte surrogates) to standard UTF-8; malformed sequences become U+FFFD.
std::string Utf8ToText(const std::string& bytes);

// One code point (below 0x110000) as standard UTF-8 appended to `out`.
void AppendUtf8(std::string& out, uint32_t code);

// Shortest decimal text of an identifier or count ("17", "-1", "4.5").
std::string NumberText(double value);

// `text` with every occurrence of `what` replaced by `with`, left to right.
std::string ReplaceAll(std::string text, const std::string& what, const std::string& with);

} // namespace jdwpkrvdbg
