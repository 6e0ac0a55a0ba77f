// A soak against one real VM: a breakpoint in a hot loop hit and resumed
// over and over, then steps round the same loop, with the resident memory
// of this process sampled along the way. After a warm-up the memory must
// stay within a small bound, and no sent command, pending call, class or
// breakpoint may be left behind.
//
// The counts are those of the reliability work (100,000 hits and 20,000
// steps; a tenth under AddressSanitizer); JDWPKRVDBG_SOAK_HITS and
// JDWPKRVDBG_SOAK_STEPS override them.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "LiveSessionTest.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

#if defined(__SANITIZE_ADDRESS__)
#define SOAK_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SOAK_UNDER_ASAN 1
#endif
#endif

#ifdef SOAK_UNDER_ASAN
// Under AddressSanitizer the soak looks for leaks and bad accesses only:
// freed memory waits in its quarantine, so the resident set grows by design,
// and every step is several times slower.
constexpr size_t kDefaultHits = 10000, kDefaultSteps = 2000;
constexpr bool kBoundMemory = false;
#else
constexpr size_t kDefaultHits = 100000, kDefaultSteps = 20000;
constexpr bool kBoundMemory = true;
#endif
// Growth of the resident set after the warm-up that still counts as flat.
constexpr long kGrowthBoundKiB = 8 * 1024;

size_t countFromEnvironment(const char* name, size_t fallback)
{
    const long long n = std::getenv(name) ? std::atoll(std::getenv(name)) : 0;
    return n > 0 ? static_cast<size_t>(n) : fallback;
}

long residentKiB()
{
    std::ifstream in("/proc/self/statm");
    long size = 0, resident = 0;
    in >> size >> resident;
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

// A host that only counts, in place of the fixture's event log: a recording
// host would itself grow with every stop.
struct CountingHost : JXMachineEvents {
    size_t stops = 0;
    int32_t lastLine = 0;
    void Breakpoint(double, const std::string&, int32_t LineNr, int32_t) override
    {
        ++stops;
        lastLine = LineNr;
    }
};

using LiveSoak = LiveSessionTest;

TEST_F(LiveSoak, BreakpointHitsAndStepsKeepMemoryAndTablesFlat)
{
    const size_t hits = countFromEnvironment("JDWPKRVDBG_SOAK_HITS", kDefaultHits);
    const size_t steps = countFromEnvironment("JDWPKRVDBG_SOAK_STEPS", kDefaultSteps);
    const int hitLine = lineOf("tests/java/Soak.java", "// @soak-hit");

    auto host = std::make_shared<CountingHost>();
    jvm->setEvents(host);
    jvm->setTargetClassName({"Soak"});
    jvm->addBreakpoint("Soak", hitLine);
    // Enough rounds of the loop for every hit and step, and then some.
    ASSERT_TRUE(launch("Soak " + std::to_string(hits + steps + 1000)));
    auto nextStop = [&](size_t seen) {
        return pumpUntil([&] { return host->stops > seen || jvm->JVMState() == VMDead; }, 10000) && host->stops > seen;
    };

    // Resident memory after the warm-up (a tenth of the hits) and the
    // highest seen after it.
    long afterWarmUp = 0, highest = 0;
    auto sample = [&] {
        const long now = residentKiB();
        afterWarmUp = afterWarmUp ? afterWarmUp : now;
        highest = std::max(highest, now);
    };
    const size_t every = std::max<size_t>(hits / 50, 1);
    for (size_t n = 0; n < hits; ++n) {
        ASSERT_TRUE(nextStop(n)) << "hit " << n << "\n" << dump();
        ASSERT_EQ(host->lastLine, hitLine);
        if (n >= hits / 10 && (n % every == 0 || n + 1 == hits))
            sample();
        if (n + 1 < hits)
            jvm->ResumeVM();
    }
    const int32_t classesAfterHits = jvm->classCount();

    // Steps round the loop from the last hit, with the breakpoint gone.
    ASSERT_TRUE(jvm->removeBreakpoint("Soak", hitLine));
    const size_t stepEvery = std::max<size_t>(steps / 20, 1);
    for (size_t n = 0; n < steps; ++n) {
        const size_t seen = host->stops;
        ASSERT_TRUE(jvm->ResumeVMStepByStep(false, 0, SD_OVER)) << "step " << n << "\n" << dump();
        ASSERT_TRUE(nextStop(seen)) << "step " << n << "\n" << dump();
        if (n % stepEvery == 0 || n + 1 == steps)
            sample();
    }

    // Every command sent has had its reply, no call waits, nothing piled up.
    EXPECT_TRUE(pumpUntil([&] { return handler->pendingSentCount() == 0; }, 5000))
        << handler->pendingSentCount() << " commands without reply";
    EXPECT_EQ(handler->pendingSyncCount(), 0u);
    EXPECT_EQ(jvm->classCount(), classesAfterHits);
    EXPECT_TRUE(jvm->breakpoints().empty());
    EXPECT_NE(jvm->JVMState(), VMDead);
    if (kBoundMemory) {
        EXPECT_LE(highest - afterWarmUp, kGrowthBoundKiB) << "resident KiB after warm-up " << afterWarmUp;
    }
}

} // namespace
