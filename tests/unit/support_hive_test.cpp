// Tests of the keyed collection (cHive) and the Pellum hash tables under it:
// growth steps, duplicate refusal, case rules of the two lookups, lookups by
// hash code, handle lifetime and behaviour with thousands of keys.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "jdwpkrvdbg/support/Pellum.h"
#include "jdwpkrvdbg/support/cHive.h"

namespace jdwpkrvdbg {
namespace {

TEST(HiveTest, GrowthSteps)
{
    // (count after the add, capacity expected): 10, 20, 31, 42, 53 ...
    const std::vector<std::pair<int, int>> steps = {
        {1, 10}, {10, 10}, {11, 20}, {20, 20}, {21, 31}, {31, 31}, {32, 42}, {42, 42}, {43, 53},
    };
    cHive<int> hive;
    EXPECT_EQ(hive.capacity(), 0);
    int added = 0;
    for (const auto& [count, capacity] : steps) {
        while (added < count)
            ASSERT_TRUE(hive.Add(++added));
        EXPECT_EQ(hive.Count(), count);
        EXPECT_EQ(hive.capacity(), capacity) << "after " << count << " adds";
    }
    for (int i = 1; i <= added; ++i)
        EXPECT_EQ(hive.ItemIDX(i), i);
}

TEST(HiveTest, PreDimKeepsElementsAndAvoidsGrowth)
{
    cHive<std::string> hive;
    ASSERT_TRUE(hive.Add("first", "K1"));
    hive.PreDimElements(100);
    EXPECT_EQ(hive.capacity(), 105);
    EXPECT_EQ(hive.Item("K1"), "first");
    for (int i = 2; i <= 105; ++i)
        ASSERT_TRUE(hive.Add("v" + std::to_string(i), "K" + std::to_string(i)));
    EXPECT_EQ(hive.capacity(), 105);
    ASSERT_TRUE(hive.Add("v106"));
    EXPECT_EQ(hive.capacity(), 117); // (105 + 10) * 1.02 rounded
    EXPECT_EQ(hive.Item("k57"), "v57");
    EXPECT_EQ(hive.ItemIDX(106), "v106");
}

TEST(HiveTest, DuplicateKeyRefusedNothingStored)
{
    cHive<std::string> hive;
    EXPECT_TRUE(hive.Add("one", "A"));
    EXPECT_FALSE(hive.Add("two", "A"));
    EXPECT_EQ(hive.Count(), 1);
    EXPECT_EQ(hive.Item("A"), "one");
    EXPECT_EQ(hive.ItemIDX(2), "");
    // The next add takes position 2, not 3.
    EXPECT_TRUE(hive.Add("three", "B"));
    EXPECT_EQ(hive.getHashIndex("B"), 2);
    EXPECT_FALSE(hive.AddStringAsKey("B"));
    EXPECT_TRUE(hive.AddStringAsKey("C"));
    EXPECT_EQ(hive.Item("C", true), "C");
}

TEST(HiveTest, CaseRules)
{
    cHive<std::string> hive;
    ASSERT_TRUE(hive.Add("form", "Form1"));
    struct Case {
        const char* key;
        bool sensitive;
        int32_t position;
    };
    const Case cases[] = {
        {"Form1", false, 1}, {"form1", false, 1}, {"FORM1", false, 1}, {"Form1", true, 1},
        {"form1", true, 0},  {"Form2", false, 0}, {"", false, 0},      {"", true, 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(hive.getHashIndex(c.key, c.sensitive), c.position) << c.key << " sensitive=" << c.sensitive;
        EXPECT_EQ(hive.Item(c.key, c.sensitive), c.position ? "form" : "") << c.key;
    }

    // A key differing only in case is a different key; the insensitive
    // lookup prefers the exact spelling, else the first one added.
    ASSERT_TRUE(hive.Add("lower", "form1"));
    EXPECT_FALSE(hive.Add("again", "form1"));
    EXPECT_EQ(hive.getHashIndex("form1"), 2);
    EXPECT_EQ(hive.getHashIndex("Form1"), 1);
    EXPECT_EQ(hive.getHashIndex("FORM1"), 1);
    EXPECT_EQ(hive.getHashIndex("form1", true), 2);
    EXPECT_EQ(hive.getHashIndex("FORM1", true), 0);
}

TEST(HiveTest, CaseFoldingIsAsciiOnly)
{
    cHive<int> hive;
    ASSERT_TRUE(hive.Add(1, "\xc3\x84pfel")); // UTF-8 "Äpfel": bytes above 127 are not folded
    EXPECT_EQ(hive.getHashIndex("\xc3\xa4pfel"), 0);
    EXPECT_EQ(hive.getHashIndex("\xc3\x84PFEL"), 1);
    ASSERT_TRUE(hive.Add(2, "a[b]"));
    EXPECT_EQ(hive.getHashIndex("A{B}"), 0); // '[' and '{' differ by 0x20 but are not letters
}

TEST(HiveTest, OutOfRangePositionsAreEmpty)
{
    cHive<std::shared_ptr<int>> hive;
    EXPECT_EQ(hive.ItemIDX(1), nullptr);
    ASSERT_TRUE(hive.Add(std::make_shared<int>(7), "seven"));
    EXPECT_EQ(hive.ItemIDX(0), nullptr);
    EXPECT_EQ(hive.ItemIDX(-1), nullptr);
    EXPECT_EQ(hive.ItemIDX(hive.Count() + 1), nullptr);
    ASSERT_NE(hive.ItemIDX(1), nullptr);
    EXPECT_EQ(*hive.Item("SEVEN"), 7);
    EXPECT_EQ(hive.Item("eight"), nullptr);
}

TEST(HiveTest, LookupByHash)
{
    cHive<std::string> hive;
    ASSERT_TRUE(hive.Add("f", "Form1"));
    ASSERT_TRUE(hive.Add("s", "NAME#java/lang/String"));
    const int32_t formHash = Pellum::getHashCode("Form1");
    EXPECT_EQ(formHash, Pellum::getHashCode("fOrM1"));
    EXPECT_EQ(hive.ItemHash(formHash), "f");
    EXPECT_EQ(hive.getHashIndexByHash(formHash), 1);
    EXPECT_EQ(hive.ItemHash(Pellum::getHashCode("name#JAVA/LANG/STRING")), "s");
    EXPECT_EQ(hive.ItemHash(formHash), "f"); // the one-entry cache follows the key
    EXPECT_EQ(hive.ItemHash(0), "");
    EXPECT_EQ(hive.getHashIndexByHash(0), 0);
    const int32_t unknown = Pellum::getHashCode("nothing");
    EXPECT_EQ(hive.getHashIndexByHash(unknown), -1);
    EXPECT_EQ(hive.ItemHash(unknown), "");
    // An add after a miss invalidates the cached miss.
    ASSERT_TRUE(hive.Add("n", "nothing"));
    EXPECT_EQ(hive.ItemHash(unknown), "n");
}

TEST(HiveTest, CountPPFillsThroughAtAndTheArrayHoldsOnlyTheCount)
{
    cHive<std::string> hive;
    EXPECT_TRUE(hive.getInternalArray().empty());
    hive.PreDimElements(50);
    hive.CountPP();
    hive.at(1) = "x";
    hive.AddStringAsKey("a");
    hive.Add("b");
    EXPECT_EQ(hive.Count(), 3);
    EXPECT_EQ(hive.getInternalArray(), (std::vector<std::string>{"x", "a", "b"}));
}

TEST(HiveTest, ThousandsOfKeys)
{
    cHive<int> hive;
    const int n = 5000;
    for (int i = 1; i <= n; ++i)
        ASSERT_TRUE(hive.Add(i, "NAME#pkg/Class" + std::to_string(i)));
    for (int i = 1; i <= n; ++i) {
        ASSERT_EQ(hive.getHashIndex("name#PKG/class" + std::to_string(i)), i);
        ASSERT_EQ(hive.getHashIndex("NAME#pkg/Class" + std::to_string(i), true), i);
        ASSERT_EQ(hive.getHashIndexByHash(Pellum::getHashCode("NAME#pkg/Class" + std::to_string(i))), i);
    }
    EXPECT_EQ(hive.getHashIndex("NAME#pkg/Class0"), 0);
    EXPECT_FALSE(hive.Add(0, "NAME#pkg/Class4999"));
    EXPECT_EQ(hive.Count(), n);
}

TEST(PellumTest, HashCodesAreFnv1aAndNeverZero)
{
    struct Golden {
        const char* key;
        uint32_t folded;
        uint32_t exact;
    };
    const Golden golden[] = {
        {"", 0x811c9dc5u, 0x811c9dc5u},
        {"a", 0xe40c292cu, 0xe40c292cu},
        {"A", 0xe40c292cu, 0xc40bf6ccu},
        {"Form1", 0xc1c1fec2u, 0x677d7062u},
        {"NAME#java/lang/String", 0x74836794u, 0x2e133974u},
    };
    for (const Golden& g : golden) {
        EXPECT_EQ(static_cast<uint32_t>(Pellum::getHashCode(g.key)), g.folded) << g.key;
        EXPECT_EQ(static_cast<uint32_t>(Pellum::getHashCodeSense(g.key)), g.exact) << g.key;
    }
}

TEST(PellumTest, TablesAreIndependentAndHandlesSafe)
{
    const int32_t a = Pellum::createHash();
    const int32_t b = Pellum::createHash();
    ASSERT_GT(a, 0);
    ASSERT_GT(b, 0);
    ASSERT_NE(a, b);
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
