// Pellum hash tables (stub).
#include "jdwpkrvdbg/support/Pellum.h"

namespace jdwpkrvdbg::Pellum {
int32_t createHash() { return 1; }
void freeHash(int32_t) {}
int32_t insertItem(int32_t, const std::string&, int32_t p) { return p; }
int32_t insertItemSense(int32_t, const std::string&, int32_t p) { return p; }
int32_t insertItemHash(int32_t, int32_t, int32_t p) { return p; }
int32_t getValue(int32_t, const std::string&) { return 0; }
int32_t getValueSense(int32_t, const std::string&) { return 0; }
int32_t getValueByHash(int32_t, int32_t) { return -1; }
int32_t getHashCode(const std::string&) { return 1; }
int32_t getHashCodeSense(const std::string&) { return 1; }
} // namespace jdwpkrvdbg::Pellum
