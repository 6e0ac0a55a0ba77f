// Conversion of the raw bytes of a JDWP float (4 bytes) or double (8 bytes)
// into a number (and, for values the debugger sets, back), computed arithmetically from the sign, exponent and fraction
// fields rather than by reinterpreting memory. Its treatment of negative zero
// (a tiny negative) and subnormals (given the implicit 1) is deliberate;
// infinities and NaN convert to themselves.
#pragma once

#include <string>

namespace jdwpkrvdbg {

class cIEEE {
public:
    // 4 bytes; the caller narrows the result to single precision.
    double Ieee32stov(const std::string& bytes, bool bigEndian) const;
    double Ieee64stov(const std::string& bytes, bool bigEndian) const;
    std::string Ieee32swab(const std::string& bytes) const;
    std::string Ieee64swab(const std::string& bytes) const;
    // The significand 1 + fraction / 2^23 (2^52) from upper-case hex text.
    double Ieee32htof(const std::string& hex) const;
    double Ieee64htof(const std::string& hex) const;
    // The other way, for values the debugger writes: the 4 (8) bytes of a
    // JDWP float (double), big-endian. A float is the value rounded to
    // single precision; NaN is written as the one quiet NaN Java uses.
    std::string Ieee32vtos(double value) const;
    std::string Ieee64vtos(double value) const;
};

} // namespace jdwpkrvdbg
