// The VM's threads in the order the VM listed them, each under "ID#" + id,
// and the arming and disarming of every thread for the suspend-at-next-step
// operation. Each thread's own guards make repeated calls harmless.
#include "jdwpkrvdbg/model/JXThreadList.h"

#include "jdwpkrvdbg/model/JXThread.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"

namespace jdwpkrvdbg {

cHive<std::shared_ptr<JXThread>>& JXThreadList::threads()
{
    if (!myThreads)
        myThreads = std::make_unique<cHive<std::shared_ptr<JXThread>>>();
    return *myThreads;
}

void JXThreadList::addThread(double threadID)
{
    auto thread = std::make_shared<JXThread>();
    thread->threadID = threadID;
    // A second thread with the same id is refused by the collection.
    threads().Add(thread, "ID#" + NumberText(threadID));
}

std::shared_ptr<JXThread> JXThreadList::Item(int32_t i)
{
    return threads().ItemIDX(i);
}

std::shared_ptr<JXThread> JXThreadList::find(double threadID)
{
    return threads().Item("ID#" + NumberText(threadID));
}

int32_t JXThreadList::Count()
{
    return threads().Count();
}

void JXThreadList::registerSuspend()
{
    for (int32_t i = 1; i <= Count(); ++i)
        if (auto thread = Item(i))
            thread->RegisterStopMe();
}

void JXThreadList::unRegisterSuspend()
{
    for (int32_t i = 1; i <= Count(); ++i)
        if (auto thread = Item(i))
            thread->UnregisterStopMe();
}

} // namespace jdwpkrvdbg
