// One JDWP packet: serialisation in both framings (standard JDWP over a
// socket and the component's own shared-memory layout), parsing out of a
// receive buffer, routing of a parsed packet to its decoder, and completion
// of the synchronous call that waits for it. The session is reached only
// through the current handler.
#include "jdwpkrvdbg/protocol/JDWPMessage.h"

#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
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
        return NumberToBytes(kHeaderLength + payloadLength, 4) + NumberToBytes(myID, 4) +
               NumberToBytes(myFlags, 1) + commandFields + myData;
    }
    // Shared memory: id and payload length little-endian, the length after
    // the command fields and counting the payload only.
    return NumberToBytes(myID, 4, true) + NumberToBytes(myFlags, 1) + commandFields +
           NumberToBytes(payloadLength, 4, true) + myData;
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
    } else if (myFlags == 128) {
        auto handler = getCurrentHandler();
        myRequestMessage = handler->getMessage(myID);
        if (!myRequestMessage) {
            // A reply nobody asked for: the whole buffer is dropped, further
            // packets in it included. Intended.
            return available;
        }
        // Read little-endian on purpose: a non-zero code stays non-zero
        // (callers only test it against 0), though its value differs from the
        // JDWP table (00 14 reads as 5120).
        myErrorCode = static_cast<JDWPErrorCodes>(static_cast<int32_t>(BytesToNumber(s, at + 10, 2, true)));
        myCommandSet = myRequestMessage->myCommandSet;
        myCommand = myRequestMessage->myCommand;
        handler->removeMessage(myID);
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
    } else if (myFlags == 128) {
        auto handler = getCurrentHandler();
        myRequestMessage = handler->getMessage(myID);
        if (!myRequestMessage)
            return false;
        // Little-endian here too, as the socket framing reads it. Intended.
        myErrorCode = static_cast<JDWPErrorCodes>(static_cast<int32_t>(BytesToNumber(s, 6, 2, true)));
        myCommandSet = myRequestMessage->myCommandSet;
        myCommand = myRequestMessage->myCommand;
        handler->removeMessage(myID);
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
    auto handler = getCurrentHandler();
    // A message that is not held by a shared_ptr cannot be handed on; it is
    // still decoded, with no owner for the decoders that want one.
    std::shared_ptr<JDWPMessage> self = weak_from_this().lock();
    const int32_t set = static_cast<int32_t>(myCommandSet);
    const int32_t command = static_cast<int32_t>(myCommand);
    bool result = false;

    if (set == CMDSET_VirtualMachine && (command == VM_RESUME || command == VM_SUSPEND)) {
        // A reply still queued when the session ended must not bring a dead
        // VM back; only a new connection does that.
        auto jvm = handler->myJVM();
        if (jvm->JVMState() == VMDead) {
        } else if (command == VM_SUSPEND) {
            // With or without an error, a suspend reply means the VM is suspended.
            jvm->GoVMStateChange(VMSuspend, -1);
        } else if (myErrorCode == ERR_NONE &&
                   (!myRequestMessage || myRequestMessage->mySendStamp == jvm->stopSerial())) {
            // The VM may report the next stop before its reply to the Resume
            // that led there; such a late reply must not undo that stop.
            jvm->GoVMStateChange(VMRunning, -1);
        }
    } else {
        // Held here: a decoder may wait synchronously and re-enter dispatch.
        std::shared_ptr<JDWPMessageData> container = myDataContainer();
        JDWPMessageData& data = *container;
        // A bulk read's reply keeps its values unrendered.
        const bool unrendered = myRequestMessage && myRequestMessage->hasDataContainer() &&
                                myRequestMessage->myDataContainer()->RequestRawValues;
        switch (set) {
        case CMDSET_VirtualMachine:
            switch (command) {
            case VM_VERSION: result = data.processVersion(myData); break;
            case VM_CLASSES_BY_SIGNATURE: result = data.processGetClassIDBySignatureMessage(myData); break;
            case VM_ALL_CLASSES: result = data.processAllClasses(myData); break;
            case VM_ALL_THREADS: result = data.processAllThreads(myData); break;
            case VM_ID_SIZES: result = data.processIDSizes(myData); break;
            default: break;
            }
            break;
        case CMDSET_ReferenceType:
            switch (command) {
            case RT_SIGNATURE: result = data.processGetSignature(myData); break;
            case RT_FIELDS: result = data.processFields(myData, self); break;
            case RT_METHODS: result = data.processMethods(myData, self); break;
            case RT_GETVALUES:
                result = unrendered ? data.processValues(myData) : data.processGetStaticField(myData, self);
                break;
            default: break;
            }
            break;
        case CMDSET_ClassType:
            switch (command) {
            case CT_SUPERCLASS: result = data.processSuperClass(myData); break;
            case CT_INVOKE_METHOD: result = data.processInvokeStaticMethod(myData); break;
            default: break;
            }
            break;
        case CMDSET_Method:
            switch (command) {
            case MT_LINETABLE: result = data.processLineTable(myData, self); break;
            case MT_VARIABLE_TABLE: result = data.processVariableTable(myData, self); break;
            default: break;
            }
            break;
        case CMDSET_ObjectReference:
            switch (command) {
            case OT_REFERENCE_TYPE: result = data.processReferenceType(myData); break;
            case OT_GET_VALUES:
                result = unrendered ? data.processValues(myData) : data.processGetField(myData, self);
                break;
            case OT_INVOKE_METHOD: result = data.processInvokeMethod(myData); break;
            default: break;
            }
            break;
        case CMDSET_ArrayReference:
            switch (command) {
            case AR_LENGTH: result = data.processArrayLength(myData); break;
            case AR_GET_VALUES: result = data.processArrayValues(myData); break;
            default: break;
            }
            break;
        case CMDSET_StringReference:
            if (command == SR_VALUE)
                result = data.processUTF8String(myData);
            break;
        case CMDSET_ThreadReference:
            switch (command) {
            case TR_Name: result = data.processThreadName(myData); break;
            case TR_Status: result = data.processThreadState(myData); break;
            case TR_ThreadGroup: result = data.processThreadGroup(myData); break;
            case TR_Frames: result = data.processFrameList(myData); break;
            case TR_FrameCount: result = data.processFrameCount(myData); break;
            default: break;
            }
            break;
        case CMDSET_ThreadGroupReference:
            switch (command) {
            case TG_Name: result = data.processThreadGroupName(myData); break;
            case TG_Parent:
            case TG_Children: result = data.processThreadGroup(myData); break;
            default: break;
            }
            break;
        case CMDSET_EventRequest:
            // Only replies carry a request id. The request learns it too, so
            // that one sent without waiting knows its id once the reply is in.
            if (myFlags == 128) {
                result = data.processEventRequest(myData);
                if (myRequestMessage && myErrorCode == ERR_NONE)
                    myRequestMessage->myDataContainer()->RequestEventID = data.RequestEventID;
            }
            break;
        case CMDSET_StackFrame:
            switch (command) {
            case SF_GETVALUE:
                result = unrendered ? data.processValues(myData) : data.processGetValue(myData, self);
                break;
            case SF_THISOBJECT: result = data.processGetThis(myData); break;
            case SF_POPFRAMES: result = true; break;
            default: break;
            }
            break;
        case CMDSET_Event:
            if (command == EV_COMPOSITE)
                result = data.processEventCommand(myData);
            break;
        default:
            break;
        }
    }

    // Wake the synchronous call waiting for this id. Only a reply can: the VM
    // numbers its own packets (events) independently of ours, so an event may
    // carry the id of a call in progress without answering it.
    if (self && myFlags == 128) {
        auto current = getCurrentHandler();
        auto record = current->getSyncFunctionByMsg(self);
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
    switch (eventKind) {
    case EK_BREAKPOINT: return "Process Event - Breakpoint";
    case EK_SINGLE_STEP: return "Process Event - Single Step";
    case EK_THREAD_START: return "Process Event - Thread Start";
    case EK_THREAD_DEATH: return "Process Event - Thread Death";
    case EK_CLASS_PREPARE: return "Process Event - Class Prepare";
    case EK_METHOD_ENTRY: return "Process Event - Method Entry";
    case EK_VM_START: return "Process Event - VM Start";
    case EK_VM_DEATH: return "Process Event - VM Death";
    case EK_VM_DISCONNECTED: return "Process Event - VM Disconnect";
    default: return std::string();
    }
}

std::string describeCommand(int32_t commandSet, int32_t command)
{
    switch (commandSet) {
    case CMDSET_VirtualMachine:
        switch (command) {
        case VM_VERSION: return "Version";
        case VM_CLASSES_BY_SIGNATURE: return "Get all Classes by Signature";
        case VM_ALL_CLASSES: return "Get all Classes";
        case VM_ALL_THREADS: return "Get all Threads";
        case VM_ID_SIZES: return "Get ID-Sizes";
        case VM_SUSPEND: return "Suspend VM";
        case VM_RESUME: return "Resume VM";
        case VM_EXIT: return "Exit VM";
        case VM_CREATE_STRING: return "Create String";
        case VM_REDEFINE_CLASS: return "Redefine Class";
        default: return std::string();
        }
    case CMDSET_ReferenceType:
        switch (command) {
        case RT_SIGNATURE: return "Get Signature";
        case RT_FIELDS: return "Get Fields";
        case RT_METHODS: return "Get Methods";
        case RT_GETVALUES: return "Get Value";
        default: return std::string();
        }
    case CMDSET_ClassType:
        switch (command) {
        case CT_SUPERCLASS: return "Get Superclass";
        case CT_INVOKE_METHOD: return "Invoke Method";
        default: return std::string();
        }
    case CMDSET_Method:
        switch (command) {
        case MT_LINETABLE: return "Get Line-Table";
        case MT_VARIABLE_TABLE: return "Get Variable-Table";
        default: return std::string();
        }
    case CMDSET_ObjectReference:
        switch (command) {
        case OT_REFERENCE_TYPE: return "Get Reference-Type";
        case OT_GET_VALUES: return "Get Value";
        case OT_INVOKE_METHOD: return "Invoke Method";
        default: return std::string();
        }
    case CMDSET_StringReference:
        return command == SR_VALUE ? "Resolve UTF8" : std::string();
    case CMDSET_ThreadReference:
        switch (command) {
        case TR_Name: return "Get ThreadName";
        case TR_Frames: return "Get Frames";
        case TR_FrameCount: return "Get FrameCount";
        default: return std::string();
        }
    case CMDSET_EventRequest:
        return "Event-Request";
    case CMDSET_StackFrame:
        switch (command) {
        case SF_GETVALUE: return "Get Stack-Value";
        case SF_THISOBJECT: return "Get This-Object";
        default: return std::string();
        }
    case CMDSET_Event:
        // For events the second number is the event kind.
        return describeEventKind(command);
    default:
        return std::string();
    }
}

void printCommandDescription(int32_t commandSet, int32_t command)
{
    getCurrentHandler()->myJVM()->printDebug(" *** " + describeCommand(commandSet, command));
}

} // namespace jdwpkrvdbg
