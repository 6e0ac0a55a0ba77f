// The millisecond tick and the sleep of the platform, with a replaceable tick
// source for tests.
#include "jdwpkrvdbg/platform/Clock.h"

#include <chrono>
#include <thread>

namespace jdwpkrvdbg {

namespace {
std::function<uint32_t()>& tickSource()
{
    static std::function<uint32_t()> source;
    return source;
}
} // namespace

uint32_t GetTickCount()
{
    if (auto& source = tickSource())
        return source();
    using namespace std::chrono;
    return static_cast<uint32_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

void Sleep(uint32_t milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void setTickSource(std::function<uint32_t()> source)
{
    tickSource() = std::move(source);
}

} // namespace jdwpkrvdbg
