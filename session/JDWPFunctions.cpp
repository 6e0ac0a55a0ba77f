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
    LastFunctionInProcess = true;
    LastFunctionSend = RefMsg;
    auto handler = getCurrentHandler();
    if (handler->sendAsync(RefMsg)) {
        auto& pump = MessagePump::instance();
        bool timedOut = false;
        auto transport = handler->transport();
        while (!LastFunctionReturnConfirmed && !timedOut) {
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
            if (!LastFunctionReturnConfirmed && !handler->isConnected())
                break;
        }
    }
    std::shared_ptr<JDWPMessage> result = LastFunctionReceive;
    LastFunctionInProcess = false;
    LastFunctionReturnConfirmed = false;
    LastFunctionReturnValue = false;
    LastFunctionSend.reset();
    LastFunctionReceive.reset();
    return result;
}

} // namespace jdwpkrvdbg
