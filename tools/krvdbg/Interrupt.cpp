// The signal flags: set by the handlers, taken by the waits and the command
// loop.
#include "Interrupt.h"

#include <csignal>

namespace krvdbg {

namespace {
volatile std::sig_atomic_t gInterrupted = 0;
volatile std::sig_atomic_t gEnding = 0;

void onSigInt(int)
{
    gInterrupted = 1;
}

void onEndingSignal(int sig)
{
    if (gEnding == 0)
        gEnding = sig;
}

void installHandler(int sig, void (*handler)(int))
{
    struct sigaction sa {};
    sa.sa_handler = handler;
    sigemptyset(&sa.sa_mask);
    // No SA_RESTART: a blocking poll in the pump (or a read of the script)
    // returns at once.
    sa.sa_flags = 0;
    sigaction(sig, &sa, nullptr);
}
} // namespace

void Interrupt::install()
{
    installHandler(SIGINT, onSigInt);
    installHandler(SIGTERM, onEndingSignal);
    installHandler(SIGHUP, onEndingSignal);
}

bool Interrupt::take()
{
    if (!gInterrupted)
        return false;
    gInterrupted = 0;
    return true;
}

int Interrupt::endingSignal()
{
    return gEnding;
}

void Interrupt::finishEnding()
{
    const int sig = gEnding;
    if (sig == 0)
        return;
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

} // namespace krvdbg
