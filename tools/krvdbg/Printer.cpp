// The common part of the printers: unbuffered writes with the prompt hooks.
#include "Printer.h"

#include <cstdio>

namespace krvdbg {

void Printer::write(const std::string& text)
{
    if (text.empty())
        return;
    if (before_)
        before_();
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    if (after_)
        after_();
}

} // namespace krvdbg
