// A list of VM threads in insertion order, each under "ID#" + its id, and
// the arming of every suspendable thread to stop at its next step.
#pragma once

#include <cstdint>
#include <memory>

#include "jdwpkrvdbg/support/cHive.h"

namespace jdwpkrvdbg {

class JXThread;

class JXThreadList {
public:
    void addThread(double threadID);
    std::shared_ptr<JXThread> Item(int32_t i); // 1-based
    std::shared_ptr<JXThread> find(double threadID);
    int32_t Count();
    void registerSuspend();
    void unRegisterSuspend();

private:
    cHive<std::shared_ptr<JXThread>>& threads();
    std::unique_ptr<cHive<std::shared_ptr<JXThread>>> myThreads;
};

} // namespace jdwpkrvdbg
