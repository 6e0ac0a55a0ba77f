// One pending synchronous call: sends its command and pumps the host's
// events until the dispatcher has decoded the packet with the same id, the
// wait runs out, or the connection drops.
#include "jdwpkrvdbg/session/JDWPFunctions.h"

#include "jdwpkrvdbg/platform/Clock.h"
#include "jdwpkrvdbg/platform/MessagePump.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

std::shared_ptr<JDWPMessage> JDWPFunctions::send(const std::shared_ptr<JDWPMessage>& RefMsg, int32_t WaitMSec)
{
    const uint32_t start = GetTickCount();
    if (begin(RefMsg))
        waitUntil([this] { return LastFunctionReturnConfirmed; }, start, WaitMSec);
    return finish();
}

bool JDWPFunctions::begin(const std::shared_ptr<JDWPMessage>& RefMsg)
{
    LastFunctionInProcess = true;
    LastFunctionSend = RefMsg;
    return getCurrentHandler()->sendAsync(RefMsg);
}

std::shared_ptr<JDWPMessage> JDWPFunctions::finish()
{
    std::shared_ptr<JDWPMessage> result = LastFunctionReceive;
    LastFunctionInProcess = false;
    LastFunctionReturnConfirmed = false;
    LastFunctionReturnValue = false;
    LastFunctionSend.reset();
    LastFunctionReceive.reset();
    return result;
}

void JDWPFunctions::waitUntil(const std::function<bool()>& done, uint32_t start, int32_t WaitMSec)
{
    auto handler = getCurrentHandler();
    auto& pump = MessagePump::instance();
    auto transport = handler->transport();
    for (bool timedOut = false; !done() && !timedOut;) {
        // A transport that can be waited on directly delivers its data
        // itself, in slices of 10 ms (a shorter time-out makes the wake-up
        // on data slower); otherwise the pump waits at most 1 ms. Either
        // way the reply is decoded as soon as its bytes arrive.
        if (transport && transport->waitForData(10))
            pump.pumpOnce(0);
        else
            pump.pumpOnce(1);
        timedOut = static_cast<int64_t>(static_cast<uint32_t>(GetTickCount() - start)) > WaitMSec;
        // Nothing can answer once the connection is gone.
        if (!done() && !handler->isConnected())
            break;
    }
}

} // namespace jdwpkrvdbg
