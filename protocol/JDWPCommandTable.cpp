// The command table and the small adapters that turn a table row's decoder
// into a call on the packet's JDWPMessageData.
#include "jdwpkrvdbg/protocol/JDWPCommandTable.h"

#include <algorithm>
#include <iterator>

#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

using MsgRef = std::shared_ptr<JDWPMessage>;

template <bool (JDWPMessageData::*Decode)(const std::string&)>
bool payload(JDWPMessage& m, const MsgRef&)
{
    // Held here: a decoder may wait synchronously and re-enter dispatch.
    std::shared_ptr<JDWPMessageData> data = m.myDataContainer();
    return ((*data).*Decode)(m.myData);
}

// For the decoders that file what they read under the request's class or
// method, found through the packet itself.
template <bool (JDWPMessageData::*Decode)(const std::string&, const MsgRef&)>
bool ownedPayload(JDWPMessage& m, const MsgRef& self)
{
    std::shared_ptr<JDWPMessageData> data = m.myDataContainer();
    return ((*data).*Decode)(m.myData, self);
}

// Resume and Suspend replies carry no payload; they move the VM's state.
bool runState(JDWPMessage& m, const MsgRef&)
{
    // A reply still queued when the session ended must not bring a dead VM
    // back; only a new connection does that.
    auto jvm = getCurrentHandler()->myJVM();
    if (jvm->JVMState() == VMDead)
        return false;
    if (static_cast<int32_t>(m.myCommand) == VM_SUSPEND) {
        // With or without an error, a suspend reply means the VM is suspended.
        jvm->GoVMStateChange(VMSuspend, -1);
    } else if (m.myErrorCode == ERR_NONE &&
               (!m.myRequestMessage || m.myRequestMessage->mySendStamp == jvm->stopSerial())) {
        // The VM may report the next stop before its reply to the Resume
        // that led there; such a late reply must not undo that stop.
        jvm->GoVMStateChange(VMRunning, -1);
    }
    return false;
}

bool eventRequest(JDWPMessage& m, const MsgRef&)
{
    // Only replies carry a request id. The request learns it too, so that
    // one sent without waiting knows its id once the reply is in.
    if (m.myFlags != 128)
        return false;
    std::shared_ptr<JDWPMessageData> data = m.myDataContainer();
    const bool result = data->processEventRequest(m.myData);
    if (m.myRequestMessage && m.myErrorCode == ERR_NONE)
        m.myRequestMessage->myDataContainer()->RequestEventID = data->RequestEventID;
    return result;
}

// The value reads that a bulk read shares: a reply to a request that asked
// for raw values keeps them unrendered (one request, nothing per value).
template <bool (JDWPMessageData::*Decode)(const std::string&, const MsgRef&)>
bool renderedOrRaw(JDWPMessage& m, const MsgRef& self)
{
    const bool raw = m.myRequestMessage && m.myRequestMessage->hasDataContainer() &&
                     m.myRequestMessage->myDataContainer()->RequestRawValues;
    std::shared_ptr<JDWPMessageData> data = m.myDataContainer();
    return raw ? data->processValues(m.myData) : ((*data).*Decode)(m.myData, self);
}

bool nothingToDecode(JDWPMessage&, const MsgRef&)
{
    return true;
}

using D = JDWPMessageData;

// The unnamed rows are routed but left out of the trace's names, as they
// always were; the named rows without a decoder are sent but never decoded.
constexpr JDWPCommandEntry kTable[] = {
    {CMDSET_VirtualMachine, VM_VERSION, "Version", payload<&D::processVersion>},
    {CMDSET_VirtualMachine, VM_CLASSES_BY_SIGNATURE, "Get all Classes by Signature",
     payload<&D::processGetClassIDBySignatureMessage>},
    {CMDSET_VirtualMachine, VM_ALL_CLASSES, "Get all Classes", payload<&D::processAllClasses>},
    {CMDSET_VirtualMachine, VM_ALL_THREADS, "Get all Threads", payload<&D::processAllThreads>},
    {CMDSET_VirtualMachine, VM_ID_SIZES, "Get ID-Sizes", payload<&D::processIDSizes>},
    {CMDSET_VirtualMachine, VM_SUSPEND, "Suspend VM", runState},
    {CMDSET_VirtualMachine, VM_RESUME, "Resume VM", runState},
    {CMDSET_VirtualMachine, VM_EXIT, "Exit VM", nullptr},
    {CMDSET_VirtualMachine, VM_CREATE_STRING, "Create String", nullptr},
    {CMDSET_VirtualMachine, VM_REDEFINE_CLASS, "Redefine Class", nullptr},
    {CMDSET_ReferenceType, RT_SIGNATURE, "Get Signature", payload<&D::processGetSignature>},
    {CMDSET_ReferenceType, RT_FIELDS, "Get Fields", ownedPayload<&D::processFields>},
    {CMDSET_ReferenceType, RT_METHODS, "Get Methods", ownedPayload<&D::processMethods>},
    {CMDSET_ReferenceType, RT_GETVALUES, "Get Value", renderedOrRaw<&D::processGetStaticField>},
    {CMDSET_ClassType, CT_SUPERCLASS, "Get Superclass", payload<&D::processSuperClass>},
    {CMDSET_ClassType, CT_SET_VALUES, "Set Static Value", nullptr},
    {CMDSET_ClassType, CT_INVOKE_METHOD, "Invoke Method", payload<&D::processInvokeStaticMethod>},
    {CMDSET_Method, MT_LINETABLE, "Get Line-Table", ownedPayload<&D::processLineTable>},
    {CMDSET_Method, MT_VARIABLE_TABLE, "Get Variable-Table", ownedPayload<&D::processVariableTable>},
    {CMDSET_ObjectReference, OT_REFERENCE_TYPE, "Get Reference-Type", payload<&D::processReferenceType>},
    {CMDSET_ObjectReference, OT_GET_VALUES, "Get Value", renderedOrRaw<&D::processGetField>},
    {CMDSET_ObjectReference, OT_SET_VALUES, "Set Value", nullptr},
    {CMDSET_ObjectReference, OT_INVOKE_METHOD, "Invoke Method", payload<&D::processInvokeMethod>},
    {CMDSET_ObjectReference, OT_DISABLE_COLLECTION, "Disable Collection", nullptr},
    {CMDSET_ObjectReference, OT_ENABLE_COLLECTION, "Enable Collection", nullptr},
    {CMDSET_StringReference, SR_VALUE, "Resolve UTF8", payload<&D::processUTF8String>},
    {CMDSET_ThreadReference, TR_Name, "Get ThreadName", payload<&D::processThreadName>},
    {CMDSET_ThreadReference, TR_Status, "", payload<&D::processThreadState>},
    {CMDSET_ThreadReference, TR_ThreadGroup, "", payload<&D::processThreadGroup>},
    {CMDSET_ThreadReference, TR_Frames, "Get Frames", payload<&D::processFrameList>},
    {CMDSET_ThreadReference, TR_FrameCount, "Get FrameCount", payload<&D::processFrameCount>},
    {CMDSET_ThreadGroupReference, TG_Name, "", payload<&D::processThreadGroupName>},
    {CMDSET_ThreadGroupReference, TG_Parent, "", payload<&D::processThreadGroup>},
    {CMDSET_ThreadGroupReference, TG_Children, "", payload<&D::processThreadGroup>},
    {CMDSET_ArrayReference, AR_LENGTH, "Get Array-Length", payload<&D::processArrayLength>},
    {CMDSET_ArrayReference, AR_GET_VALUES, "Get Array-Values", payload<&D::processArrayValues>},
    {CMDSET_EventRequest, ER_SET, "Event-Request", eventRequest},
    {CMDSET_EventRequest, ER_CLEAR, "Event-Request", eventRequest},
    {CMDSET_StackFrame, SF_GETVALUE, "Get Stack-Value", renderedOrRaw<&D::processGetValue>},
    {CMDSET_StackFrame, SF_SETVALUE, "Set Stack-Value", nullptr},
    {CMDSET_StackFrame, SF_THISOBJECT, "Get This-Object", payload<&D::processGetThis>},
    {CMDSET_StackFrame, SF_POPFRAMES, "", nothingToDecode},
    // The trace names events by their kind (describeEventKind), not here.
    {CMDSET_Event, EV_COMPOSITE, "", payload<&D::processEventCommand>},
};

constexpr bool ordered()
{
    for (size_t i = 1; i < std::size(kTable); ++i) {
        const auto& a = kTable[i - 1];
        const auto& b = kTable[i];
        if (a.commandSet > b.commandSet || (a.commandSet == b.commandSet && a.command >= b.command))
            return false;
    }
    return true;
}
// Ordered and without repeats, so that a lookup finds the one row there is.
static_assert(ordered());

} // namespace

std::span<const JDWPCommandEntry> commandTable()
{
    return kTable;
}

const JDWPCommandEntry* findCommand(int32_t commandSet, int32_t command)
{
    const auto* it = std::lower_bound(std::begin(kTable), std::end(kTable), std::pair(commandSet, command),
                                      [](const JDWPCommandEntry& e, const std::pair<int32_t, int32_t>& key) {
                                          return std::pair(e.commandSet, e.command) < key;
                                      });
    if (it == std::end(kTable) || it->commandSet != commandSet || it->command != command)
        return nullptr;
    return it;
}

} // namespace jdwpkrvdbg
