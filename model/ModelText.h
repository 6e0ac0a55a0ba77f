// Small text and request helpers shared by the debug-model sources (private
// to the model; not installed).
#pragma once

#include <cctype>
#include <memory>
#include <string>

#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/JDWPLimits.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg::model_detail {

// Marker of generated member names (the handler's initialisation sets the
// component-wide marker to "$"); it is put in front of a method name.
inline constexpr const char* kNameMarker = "$";

inline std::string lowerText(std::string s)
{
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// Sends a command through the current handler and waits for its reply;
// nullptr on time-out.
inline std::shared_ptr<JDWPMessage> requestSync(const std::shared_ptr<JDWPMessage>& msg)
{
    if (!msg)
        return nullptr;
    return getCurrentHandler()->sendSync(msg, kReplyWaitMs);
}

// A reply that arrived and carries no error code.
inline bool replyOk(const std::shared_ptr<JDWPMessage>& reply)
{
    return reply && reply->myErrorCode == 0;
}

} // namespace jdwpkrvdbg::model_detail
