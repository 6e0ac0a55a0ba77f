// Makes every command that the component sends to the VM. Each builder
// returns a new JDWPMessage with a fresh packet id (the current handler's
// myMaxSendID + 1, stored back), its command set and command, and the encoded
// payload; some also record request context in the message's data container
// for the reply decoders. Nothing is sent here. The factory also encodes
// event-request modifiers and caches the default class-exclusion filter.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"

namespace jdwpkrvdbg {

class JDWPMessage;

class JDWPMessageFactory {
public:
    using Msg = std::shared_ptr<JDWPMessage>;

    Msg createClassRedefineMessage(double refClassID, const std::string& ClassBytes);
    Msg createGetSuperClassMessage(double refClassID);
    Msg createGetClassIDBySignatureMessage(const std::string& Signature);
    Msg createGetSignatureMessage(double refClassID);
    Msg createGetVersionMessage();
    Msg createDisposeMessage();
    Msg createGetIDSizesMessage();
    Msg createGetClassesWithGenericsMessage();
    JDWPDefaultFilter getExcludeModifier();
    JDWPDefaultFilter getModifier(const std::vector<JDWPModifier>& Modifier, int32_t ModifierCount);
    Msg createGetEventRequestMessageII(EVENT_KIND MsgKind, JDWPSuspendPolicy Suspend,
                                       const std::vector<JDWPModifier>& Modifier, int32_t ModifierCount);
    Msg createGetEventRequestMessage(EVENT_KIND MsgKind, JDWPSuspendPolicy Suspend,
                                     const std::vector<JDWPModifier>& Modifier, int32_t ModifierCount,
                                     const JDWPDefaultFilter& DefaultModifier);
    Msg createClearEventRequestMessage(EVENT_KIND MsgKind, double RequestID);
    Msg createGetThisMessage(double threadID, double FrameID);
    Msg createPopFrameMessage(double threadID, double FrameID);
    Msg createGetFieldValueMessage(double ObjectID, double FieldID);
    Msg createGetStaticFieldValueMessage(double ClassID, double FieldID);
    Msg createResumeMessage();
    Msg createSuspendMessage();
    Msg createExitMessage();
    Msg createGetClassesMessage();
    Msg createGetThreadState(double threadID);
    Msg createGetThreadGroup(double threadID);
    Msg createGetThreadGroupName(double threadGroupID);
    Msg createGetParentThreadGroup(double threadGroupID);
    Msg createGetThreadsMessage();
    Msg createGetFieldsMessage(double refClassID);
    Msg createGetMethodsMessage(double refClassID);
    Msg createHoldEventsMessage();
    Msg createReleaseEventsMessage();
    Msg createGetVariableTableMessage(double refClassID, double RefMethodID);
    Msg createGetThreadNameMessage(double threadID);
    Msg createGetLineTableMessage(double refClassID, double RefMethodID);
    Msg createGetValue(double threadID, double FrameID, double Slot, const std::string& SlotType);
    Msg createInvokeMethodMessage(double ObjectID, double threadID, double ClassID, double MethodID);
    Msg createInvokeStaticMethodMessage(double ClassID, double threadID, double MethodID);
    Msg createGetReferenceTypeMessage(double ObjectID);
    Msg createGetUTF8StringMessage(double ObjectID);
    Msg createGetFrameMessage(double threadID, double StartFrame, double FrameLength);
    Msg createGetFrameCountMessage(double threadID);
    // Bulk reads for hosts that show many values at once (a debugger's
    // variables view): one request for all the fields of an object, all the
    // statics of a class, all the slots of a frame, or a run of array
    // elements. Their replies are decoded without rendering: object values
    // keep their tag and id (RefID) and an empty text, so no further request
    // is made per value.
    Msg createGetFieldValuesMessage(double ObjectID, const std::vector<double>& FieldIDs);
    Msg createGetStaticFieldValuesMessage(double ClassID, const std::vector<double>& FieldIDs);
    // Slots as (slot, signature); the tag is the signature's first character.
    Msg createGetValues(double threadID, double FrameID, const std::vector<std::pair<double, std::string>>& Slots);
    Msg createGetArrayLengthMessage(double ArrayID);
    Msg createGetArrayValuesMessage(double ArrayID, double FirstIndex, double Length);
    // Setting values. A local takes a tagged value (its tag first), a field
    // or a static an untagged one (the field's own type tells the VM how to
    // read it); the value bytes come encoded from the caller. A string to
    // set is made first (CreateString, its id in RequestObjectID); it is
    // kept from the collector between its making and its setting.
    Msg createSetLocalValueMessage(double threadID, double FrameID, double Slot, const std::string& TaggedValue);
    Msg createSetFieldValueMessage(double ObjectID, double FieldID, const std::string& Value);
    Msg createSetStaticFieldValueMessage(double ClassID, double FieldID, const std::string& Value);
    Msg createNewStringMessage(const std::string& Utf8Text);
    Msg createDisableCollectionMessage(double ObjectID);
    Msg createEnableCollectionMessage(double ObjectID);
    // Intended: set 6 command 1 with a thread and a frame id; published, unused.
    Msg createGetValueBySlotMessage(double threadID, double FrameID);

private:
    JDWPDefaultFilter myDefaultFilter_;
};

} // namespace jdwpkrvdbg
