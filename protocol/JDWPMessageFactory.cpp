// The command builders: one member per command that the debugger sends. Each
// takes the next packet id from the current handler, sets command set and
// command, encodes the payload big-endian with the identifier widths the VM
// reported (read at the moment of building) and, where a reply decoder needs
// to know what was asked, records the request context. Also the encoding of
// event-request modifiers and the cached default class-exclusion filter.
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"

#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

using Msg = JDWPMessageFactory::Msg;

// Steps common to every builder: the next id of the session (shared by all
// builders, never reused) and the command fields. myFlags stays 0.
Msg newCommand(int32_t commandSet, int32_t command)
{
    auto handler = getCurrentHandler();
    handler->myMaxSendID = handler->myMaxSendID + 1;
    auto message = std::make_shared<JDWPMessage>();
    message->myCommandSet = static_cast<COMMAND_SETS>(commandSet);
    message->myCommand = command;
    message->myID = handler->myMaxSendID;
    return message;
}

// Identifier encodings. Class, interface and thread-group ids are written
// with the object-id width, never the reference-type width. Intended; the VM
// reports equal widths.
std::string O(double id)
{
    return NumberToBytes(id, getCurrentHandler()->myJVM()->SIZE_ObjectID);
}
std::string M(double id)
{
    return NumberToBytes(id, getCurrentHandler()->myJVM()->SIZE_MethodID);
}
std::string F(double id)
{
    return NumberToBytes(id, getCurrentHandler()->myJVM()->SIZE_FieldID);
}
std::string Fr(double id)
{
    return NumberToBytes(id, getCurrentHandler()->myJVM()->SIZE_FrameID);
}
std::string Int(double v)
{
    return NumberToBytes(v, 4);
}
std::string Byte(double v)
{
    return NumberToBytes(v, 1);
}

Msg withPayload(Msg message, const std::string& payload)
{
    message->setMyData(payload);
    return message;
}

// A command about one class, or one method of it, whose reply decoder files
// what it reads under that class (and method).
Msg classRequest(int32_t commandSet, int32_t command, double classID, const std::string& payload)
{
    auto m = withPayload(newCommand(commandSet, command), payload);
    m->myDataContainer()->RequestClassID = classID;
    return m;
}

Msg methodRequest(int32_t command, double classID, double methodID)
{
    auto m = classRequest(CMDSET_Method, command, classID, O(classID) + M(methodID));
    m->myDataContainer()->RequestMethodID = methodID;
    return m;
}

// A command about one object; its reply decoder reads the object's id.
Msg objectRequest(int32_t commandSet, int32_t command, double objectID)
{
    auto m = withPayload(newCommand(commandSet, command), O(objectID));
    m->myDataContainer()->RequestObjectID = objectID;
    return m;
}

} // namespace

Msg JDWPMessageFactory::createClassRedefineMessage(double refClassID, const std::string& ClassBytes)
{
    auto m = newCommand(CMDSET_VirtualMachine, VM_REDEFINE_CLASS);
    return withPayload(m, Int(1) + O(refClassID) + Int(static_cast<double>(ClassBytes.size())) + ClassBytes);
}

Msg JDWPMessageFactory::createGetSuperClassMessage(double refClassID)
{
    return withPayload(newCommand(CMDSET_ClassType, CT_SUPERCLASS), O(refClassID));
}

Msg JDWPMessageFactory::createGetClassIDBySignatureMessage(const std::string& Signature)
{
    return withPayload(newCommand(CMDSET_VirtualMachine, VM_CLASSES_BY_SIGNATURE), LengthPrefixed(Signature));
}

Msg JDWPMessageFactory::createGetSignatureMessage(double refClassID)
{
    return withPayload(newCommand(CMDSET_ReferenceType, RT_SIGNATURE), O(refClassID));
}

Msg JDWPMessageFactory::createGetVersionMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_VERSION);
}
Msg JDWPMessageFactory::createDisposeMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_DISPOSE);
}
Msg JDWPMessageFactory::createGetIDSizesMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_ID_SIZES);
}

Msg JDWPMessageFactory::createGetClassesWithGenericsMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_ALL_CLASSES_WITH_GENERICS);
}

JDWPDefaultFilter JDWPMessageFactory::getExcludeModifier()
{
    auto jvm = getCurrentHandler()->myJVM();
    // getModifier never fills the stamp, so the cache is reused only while
    // the session's stamp is still 0 (no exclusions before the first
    // clean-up) and rebuilt on every call after that. Intended: a rebuild is
    // cheap and always current.
    if (jvm->myLastCleanupStamp == myDefaultFilter_.FilterStamp)
        return myDefaultFilter_;
    std::vector<JDWPModifier> modifiers = jvm->getExcludeModifier();
    myDefaultFilter_ = getModifier(modifiers, JXMachine::getUBoundMod(modifiers) + 1);
    return myDefaultFilter_;
}

JDWPDefaultFilter JDWPMessageFactory::getModifier(const std::vector<JDWPModifier>& Modifier, int32_t ModifierCount)
{
    JDWPDefaultFilter filter;
    std::string bytes;
    // Never past the array, whatever count the caller gives; the count
    // reported is the number of modifiers really encoded.
    const int32_t available = static_cast<int32_t>(Modifier.size());
    const int32_t count = ModifierCount < available ? ModifierCount : available;
    for (int32_t i = 0; i < count; ++i) {
        const JDWPModifier& mod = Modifier[static_cast<size_t>(i)];
        bytes += Byte(static_cast<double>(mod.Kind));
        switch (mod.Kind) {
        case MK_Count:
            bytes += Int(mod.RefLong);
            break;
        case MK_ThreadOnly:
            bytes += O(mod.RefLong);
            break;
        case MK_ClassMatch:
        case MK_ClassExclude:
        case MK_SourceNameMatch:
            bytes += LengthPrefixed(mod.RefString);
            break;
        case MK_LocationOnly:
            bytes += EncodeLocation(mod.RefLocation);
            break;
        case MK_ExceptionOnly:
            // Exception class 0: any exception (RefLong is not used).
            bytes += O(0);
            bytes += Byte(mod.RefCaught ? 1 : 0);
            bytes += Byte(mod.RefUncaught ? 1 : 0);
            break;
        case MK_Step:
            bytes += EncodeStep(mod.RefStep);
            break;
        default:
            break; // the kind byte alone
        }
    }
    filter.FilterCount = count > 0 ? count : 0;
    filter.FilterString = bytes;
    filter.FilterStamp = 0; // never filled here; see getExcludeModifier
    return filter;
}

Msg JDWPMessageFactory::createGetEventRequestMessageII(EVENT_KIND MsgKind, JDWPSuspendPolicy Suspend,
                                                       const std::vector<JDWPModifier>& Modifier, int32_t ModifierCount)
{
    return createGetEventRequestMessage(MsgKind, Suspend, Modifier, ModifierCount, JDWPDefaultFilter());
}

Msg JDWPMessageFactory::createGetEventRequestMessage(EVENT_KIND MsgKind, JDWPSuspendPolicy Suspend,
                                                     const std::vector<JDWPModifier>& Modifier, int32_t ModifierCount,
                                                     const JDWPDefaultFilter& DefaultModifier)
{
    auto m = newCommand(CMDSET_EventRequest, ER_SET);
    std::string payload = Byte(static_cast<double>(MsgKind)) + Byte(static_cast<double>(static_cast<int32_t>(Suspend)));
    JDWPDefaultFilter own = getModifier(Modifier, ModifierCount);
    double total = static_cast<double>(own.FilterCount) + static_cast<double>(DefaultModifier.FilterCount);
    // The caller's modifiers always precede the default ones.
    payload += Int(total) + own.FilterString + DefaultModifier.FilterString;
    return withPayload(m, payload);
}

Msg JDWPMessageFactory::createClearEventRequestMessage(EVENT_KIND MsgKind, double RequestID)
{
    auto m = newCommand(CMDSET_EventRequest, ER_CLEAR);
    return withPayload(m, Byte(static_cast<double>(MsgKind)) + Int(RequestID));
}

Msg JDWPMessageFactory::createGetThisMessage(double threadID, double FrameID)
{
    return withPayload(newCommand(CMDSET_StackFrame, SF_THISOBJECT), O(threadID) + Fr(FrameID));
}

Msg JDWPMessageFactory::createPopFrameMessage(double threadID, double FrameID)
{
    return withPayload(newCommand(CMDSET_StackFrame, SF_POPFRAMES), O(threadID) + Fr(FrameID));
}

Msg JDWPMessageFactory::createGetFieldValueMessage(double ObjectID, double FieldID)
{
    return withPayload(newCommand(CMDSET_ObjectReference, OT_GET_VALUES), O(ObjectID) + Int(1) + F(FieldID));
}

Msg JDWPMessageFactory::createGetStaticFieldValueMessage(double ClassID, double FieldID)
{
    return withPayload(newCommand(CMDSET_ReferenceType, RT_GETVALUES), O(ClassID) + Int(1) + F(FieldID));
}

Msg JDWPMessageFactory::createResumeMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_RESUME);
}
Msg JDWPMessageFactory::createSuspendMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_SUSPEND);
}

Msg JDWPMessageFactory::createExitMessage()
{
    // No exit code in the payload: the packet is the bare 11-byte header.
    // Intended.
    return newCommand(CMDSET_VirtualMachine, VM_EXIT);
}

Msg JDWPMessageFactory::createGetClassesMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_ALL_CLASSES);
}

Msg JDWPMessageFactory::createGetThreadState(double threadID)
{
    return withPayload(newCommand(CMDSET_ThreadReference, TR_Status), O(threadID));
}

Msg JDWPMessageFactory::createGetThreadGroup(double threadID)
{
    return withPayload(newCommand(CMDSET_ThreadReference, TR_ThreadGroup), O(threadID));
}

Msg JDWPMessageFactory::createGetThreadGroupName(double threadGroupID)
{
    return withPayload(newCommand(CMDSET_ThreadGroupReference, TG_Name), O(threadGroupID));
}

Msg JDWPMessageFactory::createGetParentThreadGroup(double threadGroupID)
{
    return withPayload(newCommand(CMDSET_ThreadGroupReference, TG_Parent), O(threadGroupID));
}

Msg JDWPMessageFactory::createGetThreadsMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_ALL_THREADS);
}

Msg JDWPMessageFactory::createGetFieldsMessage(double refClassID)
{
    return classRequest(CMDSET_ReferenceType, RT_FIELDS, refClassID, O(refClassID));
}

Msg JDWPMessageFactory::createGetMethodsMessage(double refClassID)
{
    return classRequest(CMDSET_ReferenceType, RT_METHODS, refClassID, O(refClassID));
}

Msg JDWPMessageFactory::createHoldEventsMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_HOLD_EVENTS);
}
Msg JDWPMessageFactory::createReleaseEventsMessage()
{
    return newCommand(CMDSET_VirtualMachine, VM_RELEASE_EVENTS);
}

Msg JDWPMessageFactory::createGetVariableTableMessage(double refClassID, double RefMethodID)
{
    return methodRequest(MT_VARIABLE_TABLE, refClassID, RefMethodID);
}

Msg JDWPMessageFactory::createGetThreadNameMessage(double threadID)
{
    return withPayload(newCommand(CMDSET_ThreadReference, TR_Name), O(threadID));
}

Msg JDWPMessageFactory::createGetLineTableMessage(double refClassID, double RefMethodID)
{
    return methodRequest(MT_LINETABLE, refClassID, RefMethodID);
}

Msg JDWPMessageFactory::createGetValue(double threadID, double FrameID, double Slot, const std::string& SlotType)
{
    auto m = newCommand(CMDSET_StackFrame, SF_GETVALUE);
    // The JDWP tag is the first character of the slot type ("I" gives 73).
    double tag = SlotType.empty() ? 0 : static_cast<double>(static_cast<unsigned char>(SlotType[0]));
    withPayload(m, O(threadID) + Fr(FrameID) + Int(1) + Int(Slot) + Byte(tag));
    m->myDataContainer()->RequestThreadID = threadID;
    m->myDataContainer()->RequestFrameID = FrameID;
    return m;
}

namespace {
// Marks a request whose reply is read without rendering its values.
Msg unrendered(Msg message)
{
    message->myDataContainer()->RequestRawValues = true;
    return message;
}

std::string countedIDs(const std::vector<double>& ids)
{
    std::string out = Int(static_cast<double>(ids.size()));
    for (double id : ids)
        out += F(id);
    return out;
}
} // namespace

Msg JDWPMessageFactory::createGetFieldValuesMessage(double ObjectID, const std::vector<double>& FieldIDs)
{
    auto m = withPayload(newCommand(CMDSET_ObjectReference, OT_GET_VALUES), O(ObjectID) + countedIDs(FieldIDs));
    m->myDataContainer()->RequestObjectID = ObjectID;
    return unrendered(m);
}

Msg JDWPMessageFactory::createGetStaticFieldValuesMessage(double ClassID, const std::vector<double>& FieldIDs)
{
    auto m = withPayload(newCommand(CMDSET_ReferenceType, RT_GETVALUES), O(ClassID) + countedIDs(FieldIDs));
    m->myDataContainer()->RequestClassID = ClassID;
    return unrendered(m);
}

Msg JDWPMessageFactory::createGetValues(double threadID, double FrameID,
                                        const std::vector<std::pair<double, std::string>>& Slots)
{
    std::string payload = O(threadID) + Fr(FrameID) + Int(static_cast<double>(Slots.size()));
    for (const auto& [slot, signature] : Slots)
        payload +=
            Int(slot) + Byte(signature.empty() ? 0 : static_cast<double>(static_cast<unsigned char>(signature[0])));
    auto m = withPayload(newCommand(CMDSET_StackFrame, SF_GETVALUE), payload);
    m->myDataContainer()->RequestThreadID = threadID;
    m->myDataContainer()->RequestFrameID = FrameID;
    return unrendered(m);
}

Msg JDWPMessageFactory::createGetArrayLengthMessage(double ArrayID)
{
    auto m = withPayload(newCommand(CMDSET_ArrayReference, AR_LENGTH), O(ArrayID));
    m->myDataContainer()->RequestObjectID = ArrayID;
    return m;
}

Msg JDWPMessageFactory::createGetArrayValuesMessage(double ArrayID, double FirstIndex, double Length)
{
    auto m = withPayload(newCommand(CMDSET_ArrayReference, AR_GET_VALUES), O(ArrayID) + Int(FirstIndex) + Int(Length));
    m->myDataContainer()->RequestObjectID = ArrayID;
    return unrendered(m);
}

Msg JDWPMessageFactory::createInvokeMethodMessage(double ObjectID, double threadID, double ClassID, double MethodID)
{
    auto m = newCommand(CMDSET_ObjectReference, OT_INVOKE_METHOD);
    // No arguments, no options.
    withPayload(m, O(ObjectID) + O(threadID) + O(ClassID) + M(MethodID) + Int(0) + Int(0));
    m->myDataContainer()->RequestObjectID = ObjectID;
    return m;
}

Msg JDWPMessageFactory::createInvokeStaticMethodMessage(double ClassID, double threadID, double MethodID)
{
    auto m = newCommand(CMDSET_ClassType, CT_INVOKE_METHOD);
    return withPayload(m, O(ClassID) + O(threadID) + M(MethodID) + Int(0) + Int(0));
}

Msg JDWPMessageFactory::createGetReferenceTypeMessage(double ObjectID)
{
    return objectRequest(CMDSET_ObjectReference, OT_REFERENCE_TYPE, ObjectID);
}

Msg JDWPMessageFactory::createGetUTF8StringMessage(double ObjectID)
{
    return objectRequest(CMDSET_StringReference, SR_VALUE, ObjectID);
}

Msg JDWPMessageFactory::createGetFrameMessage(double threadID, double StartFrame, double FrameLength)
{
    auto m =
        withPayload(newCommand(CMDSET_ThreadReference, TR_Frames), O(threadID) + Int(StartFrame) + Int(FrameLength));
    m->myDataContainer()->RequestThreadID = threadID;
    return m;
}

Msg JDWPMessageFactory::createGetFrameCountMessage(double threadID)
{
    auto m = withPayload(newCommand(CMDSET_ThreadReference, TR_FrameCount), O(threadID));
    m->myDataContainer()->RequestThreadID = threadID;
    return m;
}

Msg JDWPMessageFactory::createSetLocalValueMessage(double threadID, double FrameID, double Slot,
                                                   const std::string& TaggedValue)
{
    return withPayload(newCommand(CMDSET_StackFrame, SF_SETVALUE),
                       O(threadID) + Fr(FrameID) + Int(1) + Int(Slot) + TaggedValue);
}

Msg JDWPMessageFactory::createSetFieldValueMessage(double ObjectID, double FieldID, const std::string& Value)
{
    return withPayload(newCommand(CMDSET_ObjectReference, OT_SET_VALUES), O(ObjectID) + Int(1) + F(FieldID) + Value);
}

Msg JDWPMessageFactory::createSetStaticFieldValueMessage(double ClassID, double FieldID, const std::string& Value)
{
    return withPayload(newCommand(CMDSET_ClassType, CT_SET_VALUES), O(ClassID) + Int(1) + F(FieldID) + Value);
}

Msg JDWPMessageFactory::createNewStringMessage(const std::string& Utf8Text)
{
    return withPayload(newCommand(CMDSET_VirtualMachine, VM_CREATE_STRING), LengthPrefixed(Utf8Text));
}

Msg JDWPMessageFactory::createDisableCollectionMessage(double ObjectID)
{
    return objectRequest(CMDSET_ObjectReference, OT_DISABLE_COLLECTION, ObjectID);
}

Msg JDWPMessageFactory::createEnableCollectionMessage(double ObjectID)
{
    return objectRequest(CMDSET_ObjectReference, OT_ENABLE_COLLECTION, ObjectID);
}

Msg JDWPMessageFactory::createGetValueBySlotMessage(double threadID, double FrameID)
{
    // Set 6 command 1 with a thread and a frame id: published this way and
    // unused by the debugger. Intended.
    return withPayload(newCommand(CMDSET_Method, MT_LINETABLE), O(threadID) + Fr(FrameID));
}

} // namespace jdwpkrvdbg
