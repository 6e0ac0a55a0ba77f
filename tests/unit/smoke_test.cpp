// Builds and links the whole library into the unit-test binary.
#include <gtest/gtest.h>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

TEST(Smoke, LibraryVersionIsSet)
{
    EXPECT_STRNE(jdwpkrvdbg::libraryVersion(), "");
}
