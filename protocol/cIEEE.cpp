// IEEE-754 conversion (stub).
#include "jdwpkrvdbg/protocol/cIEEE.h"

namespace jdwpkrvdbg {
double cIEEE::Ieee32stov(const std::string&, bool) const { return 0; }
double cIEEE::Ieee64stov(const std::string&, bool) const { return 0; }
std::string cIEEE::Ieee32swab(const std::string& b) const { return b; }
std::string cIEEE::Ieee64swab(const std::string& b) const { return b; }
double cIEEE::Ieee32htof(const std::string&) const { return 0; }
double cIEEE::Ieee64htof(const std::string&) const { return 0; }
} // namespace jdwpkrvdbg
