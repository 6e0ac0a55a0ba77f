// One pending synchronous call: sends a command and pumps the host's events
// until the packet with the same id has been decoded or the wait runs out.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace jdwpkrvdbg {

class JDWPMessage;

class JDWPFunctions {
public:
    bool LastFunctionInProcess = false;
    bool LastFunctionReturnConfirmed = false;
    bool LastFunctionReturnValue = false;
    std::shared_ptr<JDWPMessage> LastFunctionSend;
    std::shared_ptr<JDWPMessage> LastFunctionReceive;

    // The decoded answer, or nullptr on time-out or when the send was refused.
    std::shared_ptr<JDWPMessage> send(const std::shared_ptr<JDWPMessage>& RefMsg, int32_t WaitMSec = 0);
    // Sends without waiting; false when the session refused the command.
    bool begin(const std::shared_ptr<JDWPMessage>& RefMsg);
    // The answer once the wait is over (nullptr if none came); the record
    // is ready for another call.
    std::shared_ptr<JDWPMessage> finish();

    // Pumps the host's events until `done` holds, WaitMSec have passed since
    // `start` (tick clock) or the connection is gone.
    static void waitUntil(const std::function<bool()>& done, uint32_t start, int32_t WaitMSec);
};

} // namespace jdwpkrvdbg
