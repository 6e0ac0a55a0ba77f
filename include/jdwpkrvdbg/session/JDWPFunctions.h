// One pending synchronous call: sends a command and pumps the host's events
// until the packet with the same id has been decoded or the wait runs out.
#pragma once

#include <cstdint>
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
};

} // namespace jdwpkrvdbg
