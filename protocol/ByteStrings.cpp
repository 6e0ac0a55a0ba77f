// Byte-string helpers (stubs; filled in by the codec work).
#include "jdwpkrvdbg/protocol/ByteStrings.h"

namespace jdwpkrvdbg {
std::string NumberToBytes(double, int, bool) { return {}; }
std::string LongToBytes(int32_t, int, bool) { return {}; }
std::string LengthPrefixed(const std::string&) { return {}; }
std::string EncodeLocation(const JDWPJLocation&) { return {}; }
std::string EncodeStep(const JDWPStepStruct&) { return {}; }
double BytesToNumber(const std::string&, int64_t, int, bool) { return 0; }
int64_t ReadNumber(const std::string&, int64_t, double& out, int width) { out = 0; return width; }
int64_t ReadLong(const std::string&, int64_t, int32_t& out, int width) { out = 0; return width; }
int64_t ReadString(const std::string&, int64_t, std::string& out) { out.clear(); return 4; }
int64_t ReadLocation(const std::string&, int64_t, JDWPJLocation& out) { out = {}; return 0; }
int64_t ReadSignedNumber(const std::string&, int64_t, double& out, int width) { out = 0; return width; }
std::string Utf8ToText(const std::string& bytes) { return bytes; }
std::string NumberText(double v) { return std::to_string(static_cast<long long>(v)); }
} // namespace jdwpkrvdbg
