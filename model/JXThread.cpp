// One VM thread. Name and thread group are asked once and cached (each ask
// is an exchange of up to 4000 ms); state and suspension are read live. A
// thread can carry its own single-step request so that it stops at its next
// step; threads of the VM's "system" group are never armed.
#include "jdwpkrvdbg/model/JXThread.h"

#include <cmath>
#include <cstdint>

#include "ModelText.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"

namespace jdwpkrvdbg {

using model_detail::replyOk;
using model_detail::requestSync;

namespace {
int16_t toInt16(double v)
{
    if (!std::isfinite(v))
        return 0;
    return static_cast<int16_t>(static_cast<int64_t>(v));
}

// Asks for the group of `thread` into `group`, unless `asked` says the answer is cached.
void askThreadGroup(bool asked, double thread, double& group)
{
    if (asked)
        return;
    auto reply = requestSync(getCurrentHandler()->myFactory()->createGetThreadGroup(thread));
    if (replyOk(reply))
        group = reply->myDataContainer()->RequestThreadGroupID;
}
} // namespace

void JXThread::RegisterStopMe()
{
    if (bStopRegistered || !CanSuspend())
        return;
    auto request = std::make_shared<JXBreakpoint>();
    myStopRequest = request;
    request->TargetThreadID = threadID;
    request->StepCount = 0;
    request->JustStepping = true;
    // The request belongs to this thread, not to the session's step: a full
    // resume withdraws the session's step, and would disarm this thread.
    auto jvm = getCurrentHandler()->myJVM();
    auto sessionStep = jvm->myLastStepEvent;
    request->registerStepEvent(SD_INTO);
    jvm->myLastStepEvent = sessionStep;
    // A failed registration is tried again with a new request next time.
    bStopRegistered = request->RequestEventID > 0;
}

void JXThread::UnregisterStopMe()
{
    if (!bStopRegistered || !myStopRequest)
        return;
    bStopRegistered = false;
    // Taken out first: the clear waits, and a new request placed meanwhile
    // must not be dropped unseen.
    auto request = std::move(myStopRequest);
    myStopRequest.reset();
    request->unregisterStepEvent(false);
}

bool JXThread::CanSuspend()
{
    // A thread whose group is unknown counts as suspendable.
    return ThreadGroupName() != "system";
}

std::string JXThread::ThreadName()
{
    if (myThreadName.empty()) {
        auto reply = requestSync(getCurrentHandler()->myFactory()->createGetThreadNameMessage(threadID));
        if (reply)
            myThreadName = reply->myDataContainer()->RequestThreadName;
    }
    return myThreadName;
}

bool JXThread::ThreadSuspended()
{
    auto reply = requestSync(getCurrentHandler()->myFactory()->createGetThreadState(threadID));
    if (!reply)
        return false;
    return toInt16(reply->myDataContainer()->RequestThreadSuspended) == 1;
}

ThreadStatus JXThread::ThreadState()
{
    auto reply = requestSync(getCurrentHandler()->myFactory()->createGetThreadState(threadID));
    if (!reply)
        return THREAD_STATE_ZOMBIE;
    return static_cast<ThreadStatus>(toInt16(reply->myDataContainer()->RequestThreadState));
}

double JXThread::threadGroupID()
{
    askThreadGroup(myGroupID != -1, threadID, myGroupID);
    return myGroupID;
}

double JXThread::parentThreadGroupID()
{
    // Intended: myParentGroupID starts at 0 and nothing changes it, so this
    // sends nothing and answers 0; the test and the fields it reads and
    // writes are kept as they are.
    askThreadGroup(myParentGroupID != -1, myParentGroupID, myGroupID);
    return myParentGroupID;
}

std::string JXThread::ThreadGroupName()
{
    if (myGroupName.empty()) {
        const double group = threadGroupID();
        if (group == -1)
            return {};
        auto reply = requestSync(getCurrentHandler()->myFactory()->createGetThreadGroupName(group));
        if (replyOk(reply))
            myGroupName = reply->myDataContainer()->RequestThreadGroupName;
    }
    return myGroupName;
}

} // namespace jdwpkrvdbg
