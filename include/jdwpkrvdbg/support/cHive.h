// cHive: the keyed collection behind every table of the component. A
// growable 1-based array of values with an optional string key per element;
// the key-to-position map lives in a Pellum table. There is no removal.
// Lookups of unknown keys yield an empty value (a null pointer, 0, "").
#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "jdwpkrvdbg/support/NonCopyable.h"
#include "jdwpkrvdbg/support/Pellum.h"

namespace jdwpkrvdbg {

template <class T>
class cHive : NonCopyable {
public:
    cHive() : handle_(Pellum::createHash()) {}
    ~cHive() { Pellum::freeHash(handle_); }

    // Counts one more element without storing anything; the caller fills the
    // slot through at() (used together with PreDimElements).
    void CountPP()
    {
        ++count_;
        if (capacity() < count_)
            grow();
    }

    int32_t Count() const { return count_; }

    T ItemIDX(int32_t i) const
    {
        if (i < 1 || i > count_)
            return T();
        return elements_[static_cast<size_t>(i - 1)];
    }

    // Mutable access to a slot 1..Count for the CountPP pattern.
    T& at(int32_t i) { return elements_.at(static_cast<size_t>(i - 1)); }

    T ItemHash(int32_t Key)
    {
        if (Key == 0)
            return T();
        if (Key != lastHash_) {
            lastHash_ = Key;
            lastHashIndex_ = Pellum::getValueByHash(handle_, Key);
        }
        return ItemIDX(lastHashIndex_);
    }

    int32_t getHashIndex(const std::string& Key, bool caseSensitive = false) const
    {
        if (Key.empty())
            return 0;
        return caseSensitive ? Pellum::getValueSense(handle_, Key) : Pellum::getValue(handle_, Key);
    }

    int32_t getHashIndexByHash(int32_t Key) const
    {
        if (Key == 0)
            return 0;
        return Pellum::getValueByHash(handle_, Key);
    }

    T Item(const std::string& Key, bool caseSensitive = false) const
    {
        return ItemIDX(getHashIndex(Key, caseSensitive));
    }

    // Capacity becomes NewCount + 5, keeping existing elements.
    void PreDimElements(int32_t NewCount)
    {
        elements_.resize(static_cast<size_t>(NewCount + 5 > count_ ? NewCount + 5 : count_));
    }

    int32_t capacity() const { return static_cast<int32_t>(elements_.size()); }

    // Elements 1..Count as strings, indexed from 0 (string collections only).
    std::vector<std::string> getInternalArray() const
    {
        static_assert(std::is_convertible_v<T, std::string>, "getInternalArray needs string elements");
        return std::vector<std::string>(elements_.begin(), elements_.begin() + count_);
    }

    bool AddStringAsKey(const std::string& Item) { return Add(Item, Item); }

    // Appends; a duplicate key is refused (false, nothing stored). The key is
    // always inserted as given; caseSensitive matters to lookups only.
    bool Add(const T& Item, const std::string& Key = std::string(), bool caseSensitive = false)
    {
        (void)caseSensitive;
        ++count_;
        if (!Key.empty() && Pellum::insertItem(handle_, Key, count_) == -1) {
            --count_;
            return false;
        }
        if (capacity() < count_)
            grow();
        elements_[static_cast<size_t>(count_ - 1)] = Item;
        lastHash_ = 0;
        return true;
    }

private:
    void grow()
    {
        // (capacity + 10) * 1.02 rounded: 10, 20, 31, ...
        int32_t next = static_cast<int32_t>(std::nearbyint((capacity() + 10) * 1.02));
        if (next < count_)
            next = count_;
        elements_.resize(static_cast<size_t>(next));
    }

    int32_t handle_;
    std::vector<T> elements_;
    int32_t count_ = 0;
    int32_t lastHash_ = 0;
    int32_t lastHashIndex_ = 0;
};

} // namespace jdwpkrvdbg
