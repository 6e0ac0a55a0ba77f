// The SIGINT flag: set by the signal handler, taken by the waits.
#include "Interrupt.h"

#include <csignal>

namespace krvdbg {

namespace {
volatile std::sig_atomic_t gInterrupted = 0;

void onSigInt(int)
{
    gInterrupted = 1;
}
} // namespace

void Interrupt::install()
{
    struct sigaction sa {};
    sa.sa_handler = onSigInt;
    sigemptyset(&sa.sa_mask);
    // No SA_RESTART: a blocking poll in the pump returns at once.
    sa.sa_flags = 0;
    sigaction(SIGINT, &sa, nullptr);
}

bool Interrupt::take()
{
    if (!gInterrupted)
        return false;
    gInterrupted = 0;
    return true;
}

} // namespace krvdbg
