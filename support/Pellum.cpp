// Pellum: the string-keyed hash tables behind cHive.
//
// A table maps keys to 1-based positions. Keys are kept exactly as inserted;
// the primary index groups them by their ASCII-case-folded form, so a lookup
// that ignores case costs one hash and one probe, and a group only grows a
// second entry when two keys differ in letter case alone (rare: the debug
// model's keys are class names and ids). A second index maps the
// case-insensitive hash code of every key to its position for getValueByHash.
//
// Tables are reached through 32-bit handles. The handle registry is a fixed
// two-level array whose slots are read without locking (lookups are on the
// decoder's hot path); only creating and freeing a table takes the mutex.
// Using a table while another thread frees it is the caller's error, as with
// any handle.
#include "jdwpkrvdbg/support/Pellum.h"

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace jdwpkrvdbg::Pellum {

namespace {

constexpr uint32_t kFnvOffset = 2166136261u;
constexpr uint32_t kFnvPrime = 16777619u;

inline unsigned char foldAscii(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

inline uint32_t fnvFolded(const std::string& key)
{
    uint32_t h = kFnvOffset;
    for (unsigned char c : key) {
        h ^= foldAscii(c);
        h *= kFnvPrime;
    }
    return h;
}

inline uint32_t fnvExact(const std::string& key)
{
    uint32_t h = kFnvOffset;
    for (unsigned char c : key) {
        h ^= c;
        h *= kFnvPrime;
    }
    return h;
}

// 0 means "no hash" to cHive, so a key never hashes to it.
inline int32_t nonZero(uint32_t h)
{
    return h == 0 ? 1 : static_cast<int32_t>(h);
}

bool equalFolded(const std::string& a, const std::string& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (foldAscii(static_cast<unsigned char>(a[i])) != foldAscii(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

struct FoldedHash {
    size_t operator()(const std::string& key) const { return fnvFolded(key); }
};
struct FoldedEqual {
    bool operator()(const std::string& a, const std::string& b) const { return equalFolded(a, b); }
};

struct Variant {
    std::string key;
    int32_t position;
};

// All keys that fold to the same text. The map key is the first of them;
// later spellings (differing in case only) are listed in `others`.
struct Group {
    int32_t position = 0;
    std::vector<Variant> others;
};

struct Table {
    std::unordered_map<std::string, Group, FoldedHash, FoldedEqual> keys;
    std::unordered_map<int32_t, int32_t> byHash; // first position stored per hash
};

constexpr size_t kChunkBits = 10;
constexpr size_t kChunkSize = size_t{1} << kChunkBits;
constexpr size_t kMaxChunks = 1024; // about a million live tables

struct Registry {
    std::mutex mutex;
    std::array<std::atomic<std::atomic<Table*>*>, kMaxChunks> chunks{};
    std::vector<int32_t> freeHandles;
    int32_t nextHandle = 1;
};

// Never destroyed: cHive objects with static storage may free their tables
// after other statics are gone.
Registry& registry()
{
    static Registry* r = new Registry();
    return *r;
}

std::atomic<Table*>* slotOf(Registry& r, int32_t handle, bool create)
{
    if (handle < 1)
        return nullptr;
    size_t index = static_cast<size_t>(handle - 1);
    size_t chunk = index >> kChunkBits;
    if (chunk >= kMaxChunks)
        return nullptr;
    std::atomic<Table*>* slots = r.chunks[chunk].load(std::memory_order_acquire);
    if (!slots) {
        if (!create)
            return nullptr;
        slots = new std::atomic<Table*>[kChunkSize];
        for (size_t i = 0; i < kChunkSize; ++i)
            slots[i].store(nullptr, std::memory_order_relaxed);
        r.chunks[chunk].store(slots, std::memory_order_release);
    }
    return &slots[index & (kChunkSize - 1)];
}

Table* tableOf(int32_t handle)
{
    std::atomic<Table*>* slot = slotOf(registry(), handle, false);
    return slot ? slot->load(std::memory_order_acquire) : nullptr;
}

} // namespace

int32_t createHash()
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    int32_t handle;
    if (!r.freeHandles.empty()) {
        handle = r.freeHandles.back();
        r.freeHandles.pop_back();
    } else {
        if (static_cast<size_t>(r.nextHandle) > kChunkSize * kMaxChunks)
            return 0; // registry full: every operation on handle 0 fails softly
        handle = r.nextHandle++;
    }
    std::atomic<Table*>* slot = slotOf(r, handle, true);
    slot->store(new Table(), std::memory_order_release);
    return handle;
}

void freeHash(int32_t handle)
{
    Registry& r = registry();
    std::unique_ptr<Table> doomed;
    {
        std::lock_guard<std::mutex> lock(r.mutex);
        std::atomic<Table*>* slot = slotOf(r, handle, false);
        if (!slot)
            return;
        doomed.reset(slot->exchange(nullptr, std::memory_order_acq_rel));
        if (doomed)
            r.freeHandles.push_back(handle);
    }
}

int32_t insertItem(int32_t handle, const std::string& key, int32_t position)
{
    Table* t = tableOf(handle);
    if (!t)
        return -1;
    auto [it, added] = t->keys.try_emplace(key);
    if (added) {
        it->second.position = position;
    } else {
        if (it->first == key)
            return -1;
        for (const Variant& v : it->second.others) {
            if (v.key == key)
                return -1;
        }
        it->second.others.push_back(Variant{key, position});
    }
    t->byHash.try_emplace(getHashCode(key), position);
    return position;
}

int32_t insertItemSense(int32_t handle, const std::string& key, int32_t position)
{
    return insertItem(handle, key, position);
}

int32_t insertItemHash(int32_t handle, int32_t hash, int32_t position)
{
    Table* t = tableOf(handle);
    if (!t || hash == 0)
        return -1;
    return t->byHash.try_emplace(hash, position).second ? position : -1;
}

namespace {

// The position stored under this spelling of `key`; for another spelling of
// a key that is there, the first spelling's unless `exactOnly` (then 0).
int32_t positionOf(int32_t handle, const std::string& key, bool exactOnly)
{
    const Table* t = tableOf(handle);
    if (!t)
        return 0;
    auto it = t->keys.find(key);
    if (it == t->keys.end())
        return 0;
    const Group& g = it->second;
    if (it->first == key)
        return g.position;
    for (const Variant& v : g.others) {
        if (v.key == key)
            return v.position;
    }
    return exactOnly ? 0 : g.position;
}

} // namespace

int32_t getValue(int32_t handle, const std::string& key)
{
    return positionOf(handle, key, false);
}

int32_t getValueSense(int32_t handle, const std::string& key)
{
    return positionOf(handle, key, true);
}

int32_t getValueByHash(int32_t handle, int32_t hash)
{
    const Table* t = tableOf(handle);
    if (!t)
        return -1;
    auto it = t->byHash.find(hash);
    return it == t->byHash.end() ? -1 : it->second;
}

int32_t getHashCode(const std::string& key)
{
    return nonZero(fnvFolded(key));
}

int32_t getHashCodeSense(const std::string& key)
{
    return nonZero(fnvExact(key));
}

} // namespace jdwpkrvdbg::Pellum
