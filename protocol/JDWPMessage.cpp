// One JDWP packet: serialisation in both framings (standard JDWP over a
// socket and the component's own shared-memory layout), parsing out of a
// receive buffer, routing of a parsed packet to its decoder, and completion
// of the synchronous call that waits for it. The session is reached only
// through the current handler.
#include "jdwpkrvdbg/protocol/JDWPMessage.h"

#include <utility>

#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPCommandTable.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/session/JDWPFunctions.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

constexpr double kHeaderLength = 11;
// Largest socket packet we accept. JDWP packets of a debugging session are
// far smaller; a larger length field means the stream is out of step.
constexpr double kMaxPacketLength = 64.0 * 1024 * 1024;

} // namespace

std::shared_ptr<JDWPMessageData>& JDWPMessage::myDataContainer()
{
    if (!myDataContainer_)
        myDataContainer_ = std::make_shared<JDWPMessageData>();
    return myDataContainer_;
}

std::string JDWPMessage::myKey() const
{
    return "key" + NumberText(myID);
}

std::string JDWPMessage::toString() const
{
    return toString(getCurrentHandler()->bRemoteConnection);
}

std::string JDWPMessage::toString(bool socketFraming) const
{
    std::string commandFields;
    if (myFlags == 0) {
        commandFields = NumberToBytes(static_cast<double>(myCommandSet), 1) + NumberToBytes(myCommand, 1);
    } else {
        // The error code is big-endian in both framings.
        commandFields = NumberToBytes(static_cast<double>(myErrorCode), 2);
    }
    const double payloadLength = static_cast<double>(myData.size());
    if (socketFraming) {
        return NumberToBytes(kHeaderLength + payloadLength, 4) + NumberToBytes(myID, 4) + NumberToBytes(myFlags, 1) +
               commandFields + myData;
    }
    // Shared memory: id and payload length little-endian, the length after
    // the command fields and counting the payload only.
    return NumberToBytes(myID, 4, true) + NumberToBytes(myFlags, 1) + commandFields +
           NumberToBytes(payloadLength, 4, true) + myData;
}

bool JDWPMessage::takeRequest(const std::string& s, int64_t errorAt)
{
    auto handler = getCurrentHandler();
    myRequestMessage = handler->getMessage(myID);
    if (!myRequestMessage)
        return false;
    // Read little-endian on purpose, in both framings: a non-zero code stays
    // non-zero (callers only test it against 0), though its value differs
    // from the JDWP table (00 14 reads as 5120).
    myErrorCode = static_cast<JDWPErrorCodes>(static_cast<int32_t>(BytesToNumber(s, errorAt, 2, true)));
    myCommandSet = myRequestMessage->myCommandSet;
    myCommand = myRequestMessage->myCommand;
    handler->removeMessage(myID);
    return true;
}

double JDWPMessage::createMessageSocket(const std::string& s)
{
    return createMessageSocket(s, 0);
}

double JDWPMessage::createMessageSocket(const std::string& s, size_t from)
{
    if (from > s.size() || s.size() - from < 9)
        return 0;
    const double available = static_cast<double>(s.size() - from);
    const int64_t at = static_cast<int64_t>(from); // 1-based positions below are at + n
    myLen = BytesToNumber(s, at + 1, 4, false);
    // A length that cannot be a packet means the stream is out of step and no
    // later byte can be trusted; waiting for more data would wait forever, so
    // report a protocol error and let the handler close the transport.
    if (myLen < kHeaderLength || myLen > kMaxPacketLength)
        return -1;
    if (available < myLen)
        return 0; // partial packet: the caller keeps the bytes
    myID = BytesToNumber(s, at + 5, 4, false);
    myFlags = BytesToNumber(s, at + 9, 1, false);
    if (myFlags == 0) {
        myCommandSet = static_cast<COMMAND_SETS>(static_cast<int32_t>(BytesToNumber(s, at + 10, 1, false)));
        myCommand = BytesToNumber(s, at + 11, 1, false);
    } else if (myFlags == 128 && !takeRequest(s, at + 10)) {
        // A reply nobody asked for: the whole buffer is dropped, further
        // packets in it included. Intended.
        return available;
    }
    if (myLen - kHeaderLength > 0)
        myData = s.substr(from + static_cast<size_t>(kHeaderLength), static_cast<size_t>(myLen - kHeaderLength));
    return myLen;
}

bool JDWPMessage::createMessageSHMem(const std::string& s)
{
    if (s.size() < 9)
        return false;
    myID = BytesToNumber(s, 1, 4, true);
    myFlags = BytesToNumber(s, 5, 1, false);
    if (myFlags == 0) {
        myCommandSet = static_cast<COMMAND_SETS>(static_cast<int32_t>(BytesToNumber(s, 6, 1, false)));
        myCommand = BytesToNumber(s, 7, 1, false);
    } else if (myFlags == 128 && !takeRequest(s, 6)) {
        return false;
    }
    myLen = BytesToNumber(s, 8, 4, true);
    if (myLen + kHeaderLength <= static_cast<double>(s.size())) {
        if (myLen > 0)
            myData = s.substr(static_cast<size_t>(kHeaderLength), static_cast<size_t>(myLen));
        return true;
    }
    return false;
}

bool JDWPMessage::processMyData()
{
    // A message that is not held by a shared_ptr cannot be handed on; it is
    // still decoded, with no owner for the decoders that want one.
    std::shared_ptr<JDWPMessage> self = weak_from_this().lock();
    // The session stays alive until the dispatch is over, even when a
    // decoder's host event lets the host drop it.
    auto handler = getCurrentHandler();
    const JDWPCommandEntry* entry = findCommand(static_cast<int32_t>(myCommandSet), static_cast<int32_t>(myCommand));
    const bool result = entry && entry->decode && entry->decode(*this, self);

    // Wake the synchronous call waiting for this id. Only a reply can: the VM
    // numbers its own packets (events) independently of ours, so an event may
    // carry the id of a call in progress without answering it.
    if (self && myFlags == 128) {
        auto record = getCurrentHandler()->getSyncFunctionByMsg(self);
        if (record && record->LastFunctionInProcess && record->LastFunctionSend &&
            record->LastFunctionSend->myID == myID) {
            record->LastFunctionReceive = self;
            record->LastFunctionReturnConfirmed = true;
        }
    }
    return result;
}

std::string describeEventKind(int32_t eventKind)
{
    static constexpr std::pair<int32_t, const char*> kNames[] = {
        {EK_BREAKPOINT, "Breakpoint"},     {EK_SINGLE_STEP, "Single Step"},     {EK_THREAD_START, "Thread Start"},
        {EK_THREAD_DEATH, "Thread Death"}, {EK_CLASS_PREPARE, "Class Prepare"}, {EK_METHOD_ENTRY, "Method Entry"},
        {EK_VM_START, "VM Start"},         {EK_VM_DEATH, "VM Death"},           {EK_VM_DISCONNECTED, "VM Disconnect"},
    };
    for (const auto& [kind, name] : kNames)
        if (kind == eventKind)
            return std::string("Process Event - ") + name;
    return std::string();
}

std::string describeCommand(int32_t commandSet, int32_t command)
{
    // For events the second number is the event kind.
    if (commandSet == CMDSET_Event)
        return describeEventKind(command);
    const JDWPCommandEntry* entry = findCommand(commandSet, command);
    return entry ? entry->name : std::string();
}

void printCommandDescription(int32_t commandSet, int32_t command)
{
    getCurrentHandler()->myJVM()->printDebug(" *** " + describeCommand(commandSet, command));
}

} // namespace jdwpkrvdbg
