// Pellum: the small string-keyed hash-table module behind cHive. Tables are
// reached through 32-bit handles; each maps a key to a 1-based position.
// Keys are stored exactly as inserted; lookups compare them either without
// regard to letter case (getValue) or exactly (getValueSense).
#pragma once

#include <cstdint>
#include <string>

namespace jdwpkrvdbg::Pellum {

int32_t createHash();
void freeHash(int32_t handle);

// Stores key -> position; -1 when the exact key is already present.
int32_t insertItem(int32_t handle, const std::string& key, int32_t position);
// Same as insertItem; kept for the declared interface.
int32_t insertItemSense(int32_t handle, const std::string& key, int32_t position);
// Stores under a precomputed (case-insensitive) hash; -1 when taken.
int32_t insertItemHash(int32_t handle, int32_t hash, int32_t position);

// Position for the key compared without regard to case (an exact match is
// preferred when several keys differ only in case); 0 when absent.
int32_t getValue(int32_t handle, const std::string& key);
// Position for the key compared exactly; 0 when absent.
int32_t getValueSense(int32_t handle, const std::string& key);
// Position of the key whose getHashCode is `hash`; -1 when none.
int32_t getValueByHash(int32_t handle, int32_t hash);

// Stable, non-zero hashes of a key (case-insensitive / case-sensitive).
int32_t getHashCode(const std::string& key);
int32_t getHashCodeSense(const std::string& key);

} // namespace jdwpkrvdbg::Pellum
