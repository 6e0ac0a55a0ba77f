// The time base of the component: a 32-bit millisecond tick taken from the
// monotonic clock (the platform's GetTickCount) and a real sleep. Tests
// replace the tick source to exercise time-outs without waiting for them.
#pragma once

#include <cstdint>
#include <functional>

namespace jdwpkrvdbg {

// Milliseconds from the monotonic clock, wrapping at 2^32.
uint32_t GetTickCount();
// Sleeps for real (never used on a path that waits for a reply).
void Sleep(uint32_t milliseconds);

// Replaces the tick source; an empty function restores the monotonic clock.
void setTickSource(std::function<uint32_t()> source);

} // namespace jdwpkrvdbg
