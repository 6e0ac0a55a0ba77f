// JXThreadList (stub).
#include "jdwpkrvdbg/model/JXThreadList.h"
#include "jdwpkrvdbg/model/JXThread.h"

namespace jdwpkrvdbg {
void JXThreadList::addThread(double threadID) {}
std::shared_ptr<JXThread> JXThreadList::Item(int32_t i) { return {}; }
std::shared_ptr<JXThread> JXThreadList::find(double threadID) { return {}; }
int32_t JXThreadList::Count() { return {}; }
void JXThreadList::registerSuspend() {}
void JXThreadList::unRegisterSuspend() {}
cHive<std::shared_ptr<JXThread>>& JXThreadList::threads() { if (!myThreads) myThreads = std::make_unique<cHive<std::shared_ptr<JXThread>>>(); return *myThreads; }
} // namespace jdwpkrvdbg
