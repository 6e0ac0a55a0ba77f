// The process-wide current handler.
#include "jdwpkrvdbg/session/modMain.h"

#include "jdwpkrvdbg/session/JDWPHandler.h"

namespace jdwpkrvdbg {

namespace {
std::shared_ptr<JDWPHandler>& current()
{
    // Never destroyed: a handler that outlives main() must not run its
    // tear-down against already destroyed statics.
    static auto* handler = new std::shared_ptr<JDWPHandler>();
    return *handler;
}
} // namespace

std::shared_ptr<JDWPHandler> getCurrentHandler()
{
    if (!current())
        JDWPHandler::create();
    return current();
}

std::shared_ptr<JDWPHandler> peekCurrentHandler()
{
    return current();
}

void setCurrentHandler(std::shared_ptr<JDWPHandler> handler)
{
    // Swap first so that a handler torn down here sees the new state.
    std::shared_ptr<JDWPHandler> old = std::move(current());
    current() = std::move(handler);
    old.reset();
}

} // namespace jdwpkrvdbg
