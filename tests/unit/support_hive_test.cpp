// Tests of the keyed collection (cHive) and the Pellum hash tables under it:
// growth with thousands of keys, duplicate refusal, case rules of the two
// lookups, lookups by hash code and handle lifetime.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "jdwpkrvdbg/support/Pellum.h"
#include "jdwpkrvdbg/support/cHive.h"

namespace jdwpkrvdbg {
namespace {

TEST(HiveTest, CaseRules)
{
    cHive<std::string> hive;
    ASSERT_TRUE(hive.Add("form", "Form1"));
    ASSERT_TRUE(hive.Add("apples", "\xc3\x84pfel")); // UTF-8 "Äpfel": bytes above 127 are not folded
    ASSERT_TRUE(hive.Add("brackets", "a[b]"));
    const std::tuple<const char*, bool, int32_t> cases[] = {
        {"Form1", false, 1},        {"form1", false, 1},        {"FORM1", false, 1}, {"Form1", true, 1},
        {"form1", true, 0},         {"Form2", false, 0},        {"", false, 0},      {"", true, 0},
        {"\xc3\xa4pfel", false, 0}, {"\xc3\x84PFEL", false, 2}, {"A{B}", false, 0}, // '[' and '{' differ by 0x20 but
                                                                                    // are not letters
    };
    for (const auto& [key, sensitive, position] : cases) {
        EXPECT_EQ(hive.getHashIndex(key, sensitive), position) << key << " sensitive=" << sensitive;
        EXPECT_EQ(hive.Item(key, sensitive), hive.ItemIDX(position)) << key;
    }

    // A key differing only in case is a different key; the insensitive
    // lookup prefers the exact spelling, else the first one added. A
    // refused duplicate stores nothing and takes no position.
    ASSERT_TRUE(hive.Add("lower", "form1"));
    EXPECT_FALSE(hive.Add("again", "form1"));
    EXPECT_FALSE(hive.AddStringAsKey("form1"));
    EXPECT_EQ(hive.Item("form1", true), "lower");
    ASSERT_TRUE(hive.Add("next", "Next"));
    EXPECT_EQ(hive.getHashIndex("Next", true), 5);
    EXPECT_EQ(hive.getHashIndex("form1"), 4);
    EXPECT_EQ(hive.getHashIndex("Form1"), 1);
    EXPECT_EQ(hive.getHashIndex("FORM1"), 1);
    EXPECT_EQ(hive.getHashIndex("form1", true), 4);
    EXPECT_EQ(hive.getHashIndex("FORM1", true), 0);
}

TEST(HiveTest, OutOfRangePositionsAreEmptyAndTheArrayHoldsOnlyTheCount)
{
    cHive<std::shared_ptr<int>> hive;
    EXPECT_EQ(hive.ItemIDX(1), nullptr);
    ASSERT_TRUE(hive.Add(std::make_shared<int>(7), "seven"));
    for (int32_t position : {0, -1, 2})
        EXPECT_EQ(hive.ItemIDX(position), nullptr) << position;
    EXPECT_EQ(*hive.Item("SEVEN"), 7);

    // CountPP makes room that at() fills.
    cHive<std::string> strings;
    EXPECT_TRUE(strings.getInternalArray().empty());
    strings.PreDimElements(50);
    strings.CountPP();
    strings.at(1) = "x";
    strings.AddStringAsKey("a");
    strings.Add("b");
    EXPECT_EQ(strings.getInternalArray(), (std::vector<std::string>{"x", "a", "b"}));
}

TEST(HiveTest, ThousandsOfKeysFoundByNameAndByHash)
{
    cHive<int> hive;
    const int n = 5000;
    auto key = [](int i) { return "NAME#pkg/Class" + std::to_string(i); };
    // Growth, and pre-dimensioning after the first add, keep every element
    // at its position.
    for (int i = 1; i <= n; ++i) {
        ASSERT_TRUE(hive.Add(i, key(i)));
        if (i == 1)
            hive.PreDimElements(100);
    }
    EXPECT_EQ(hive.ItemIDX(n), n);
    for (int i = 1; i <= n; ++i) {
        ASSERT_EQ(hive.getHashIndex("name#PKG/class" + std::to_string(i)), i);
        ASSERT_EQ(hive.getHashIndex(key(i), true), i);
        ASSERT_EQ(hive.getHashIndexByHash(Pellum::getHashCode(key(i))), i);
    }
    EXPECT_EQ(hive.getHashIndex(key(0)), 0);
    EXPECT_FALSE(hive.Add(0, key(4999)));
    EXPECT_EQ(hive.Count(), n);

    // By a key's hash code, in any case: the one-entry cache follows the
    // hash asked for, and an add after a miss invalidates the cached miss.
    const int32_t seven = Pellum::getHashCode("name#PKG/CLASS7"), unknown = Pellum::getHashCode("nothing");
    EXPECT_EQ(hive.ItemHash(seven), 7);
    EXPECT_EQ(hive.ItemHash(Pellum::getHashCode(key(8))), 8);
    EXPECT_EQ(hive.ItemHash(seven), 7);
    EXPECT_EQ(hive.ItemHash(0), 0);
    EXPECT_EQ(hive.getHashIndexByHash(0), 0);
    EXPECT_EQ(hive.getHashIndexByHash(unknown), -1);
    EXPECT_EQ(hive.ItemHash(unknown), 0);
    ASSERT_TRUE(hive.Add(-1, "nothing"));
    EXPECT_EQ(hive.ItemHash(unknown), -1);
}

TEST(PellumTest, TablesAreIndependentAndHandlesSafe)
{
    const int32_t a = Pellum::createHash(), b = Pellum::createHash();
    ASSERT_TRUE(a > 0 && b > 0);
    EXPECT_EQ(Pellum::insertItem(a, "key", 3), 3);
    EXPECT_EQ(Pellum::insertItem(a, "key", 4), -1);
    EXPECT_EQ(Pellum::getValue(a, "KEY"), 3);
    EXPECT_EQ(Pellum::getValue(b, "key"), 0);
    EXPECT_EQ(Pellum::insertItemSense(b, "key", 9), 9);
    EXPECT_EQ(Pellum::getValueSense(b, "key"), 9);

    // Precomputed hashes share the hash index with keyed inserts.
    EXPECT_EQ(Pellum::insertItemHash(b, 12345, 5), 5);
    EXPECT_EQ(Pellum::insertItemHash(b, 12345, 6), -1);
    EXPECT_EQ(Pellum::insertItemHash(b, Pellum::getHashCode("Key"), 7), -1);
    EXPECT_EQ(Pellum::getValueByHash(b, 12345), 5);

    Pellum::freeHash(a);
    Pellum::freeHash(a); // twice is harmless
    EXPECT_EQ(Pellum::getValue(a, "key"), 0);
    EXPECT_EQ(Pellum::insertItem(a, "key", 1), -1);
    EXPECT_EQ(Pellum::getValueByHash(a, Pellum::getHashCode("key")), -1);
    const int32_t c = Pellum::createHash(); // may reuse a's handle: starts empty
    EXPECT_EQ(Pellum::getValue(c, "key"), 0);
    Pellum::freeHash(b);
    Pellum::freeHash(c);

    for (int32_t bad : {0, -1, 0x7fffffff}) {
        EXPECT_EQ(Pellum::getValue(bad, "x"), 0);
        EXPECT_EQ(Pellum::getValueSense(bad, "x"), 0);
        EXPECT_EQ(Pellum::getValueByHash(bad, 1), -1);
        EXPECT_EQ(Pellum::insertItem(bad, "x", 1), -1);
        Pellum::freeHash(bad);
    }
}

} // namespace
} // namespace jdwpkrvdbg
