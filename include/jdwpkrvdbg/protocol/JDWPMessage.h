// One JDWP packet, an outgoing command or an incoming reply or event. It
// turns itself into wire bytes for either framing (standard JDWP over a
// socket, or the component's own shared-memory layout), parses itself out of
// a receive buffer, and once parsed routes its payload to the decoder of its
// JDWPMessageData and wakes the synchronous caller that waits for it.
//
// Messages are always held by std::shared_ptr (the routing hands itself to
// decoders and to the waiting call); create them with std::make_shared.
#pragma once

#include <memory>
#include <string>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"

namespace jdwpkrvdbg {

class JDWPMessageData;

class JDWPMessage : public std::enable_shared_from_this<JDWPMessage> {
public:
    // For a reply: the command that it answers.
    std::shared_ptr<JDWPMessage> myRequestMessage;

    // Created on first access.
    std::shared_ptr<JDWPMessageData>& myDataContainer();
    bool hasDataContainer() const { return static_cast<bool>(myDataContainer_); }

    double myLen = 0;
    double myID = 0;
    double myFlags = 0; // 0 for a command, 128 for a reply
    COMMAND_SETS myCommandSet = static_cast<COMMAND_SETS>(0);
    double myCommand = 0;
    JDWPErrorCodes myErrorCode = ERR_NONE;
    std::string myData;
    EVENT_KIND myEventKind = static_cast<EVENT_KIND>(0);
    // The session's stop count when a Resume command was sent (see
    // JXMachine::stopSerial); tells a late Resume reply from a current one.
    uint32_t mySendStamp = 0;

    // Routes a parsed incoming packet to its decoder and completes a waiting
    // synchronous call. Returns the decoder's result.
    bool processMyData();

    // Parses one socket-framed packet from the front of `s`; returns the
    // number of bytes the caller must remove (0 = nothing consumed).
    double createMessageSocket(const std::string& s);
    // The same for a buffer whose first `from` bytes are consumed already:
    // the packet starts at byte `from`, and the count is of bytes from there.
    double createMessageSocket(const std::string& s, size_t from);

    // Parses one shared-memory-framed packet; true when a whole one was there.
    bool createMessageSHMem(const std::string& s);

    // Wire bytes for the current transport, chosen by the current handler's
    // bRemoteConnection (true: socket framing). Produces no readable text.
    std::string toString() const;
    // Wire bytes in an explicitly chosen framing.
    std::string toString(bool socketFraming) const;

    std::string getMyData() const { return myData; }
    std::string setMyData(const std::string& v)
    {
        myData = v;
        return std::string();
    }

    // "key" followed by the decimal id: the handler's key for sent commands.
    std::string myKey() const;

private:
    // For a reply: finds and forgets the command it answers, takes that
    // command's set and number and reads the error code at the 1-based
    // position `errorAt`. False when no command waits for this id.
    bool takeRequest(const std::string& s, int64_t errorAt);

    std::shared_ptr<JDWPMessageData> myDataContainer_;
};

// Tracing aid: the short description of a (command set, command) pair
// ("Version", "Process Event - Breakpoint", ...); empty when unknown.
std::string describeCommand(int32_t commandSet, int32_t command);
// For command set 64 the second number is an event kind:
// "Process Event - ..." for the kinds the debugger traces; empty otherwise.
std::string describeEventKind(int32_t eventKind);
// Writes " *** " + describeCommand(...) through the session's printDebug.
void printCommandDescription(int32_t commandSet, int32_t command);

} // namespace jdwpkrvdbg
