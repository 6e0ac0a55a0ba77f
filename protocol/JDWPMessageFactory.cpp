// Command builders (stub).
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"

#include "jdwpkrvdbg/protocol/JDWPMessage.h"

namespace jdwpkrvdbg {
JDWPMessageFactory::Msg JDWPMessageFactory::createClassRedefineMessage(double refClassID, const std::string& ClassBytes) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetSuperClassMessage(double refClassID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetClassIDBySignatureMessage(const std::string& Signature) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetSignatureMessage(double refClassID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetVersionMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createDisposeMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetIDSizesMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetClassesWithGenericsMessage() { return std::make_shared<JDWPMessage>(); }
JDWPDefaultFilter JDWPMessageFactory::getExcludeModifier() { return {}; }
JDWPDefaultFilter JDWPMessageFactory::getModifier(const std::vector<JDWPModifier>& Modifier, int32_t ModifierCount) { return {}; }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetEventRequestMessageII(EVENT_KIND MsgKind, JDWPSuspendPolicy Suspend, const std::vector<JDWPModifier>& Modifier, int32_t ModifierCount) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetEventRequestMessage(EVENT_KIND MsgKind, JDWPSuspendPolicy Suspend, const std::vector<JDWPModifier>& Modifier, int32_t ModifierCount, const JDWPDefaultFilter& DefaultModifier) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createClearEventRequestMessage(EVENT_KIND MsgKind, double RequestID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetThisMessage(double threadID, double FrameID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createPopFrameMessage(double threadID, double FrameID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetFieldValueMessage(double ObjectID, double FieldID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetStaticFieldValueMessage(double ClassID, double FieldID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createResumeMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createSuspendMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createExitMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetClassesMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetThreadState(double threadID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetThreadGroup(double threadID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetThreadGroupName(double threadGroupID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetParentThreadGroup(double threadGroupID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetThreadsMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetFieldsMessage(double refClassID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetMethodsMessage(double refClassID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createHoldEventsMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createReleaseEventsMessage() { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetVariableTableMessage(double refClassID, double RefMethodID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetThreadNameMessage(double threadID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetLineTableMessage(double refClassID, double RefMethodID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetValue(double threadID, double FrameID, double Slot, const std::string& SlotType) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createInvokeMethodMessage(double ObjectID, double threadID, double ClassID, double MethodID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createInvokeStaticMethodMessage(double ClassID, double threadID, double MethodID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetReferenceTypeMessage(double ObjectID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetUTF8StringMessage(double ObjectID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetFrameMessage(double threadID, double StartFrame, double FrameLength) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetFrameCountMessage(double threadID) { return std::make_shared<JDWPMessage>(); }
JDWPMessageFactory::Msg JDWPMessageFactory::createGetValueBySlotMessage(double threadID, double FrameID) { return std::make_shared<JDWPMessage>(); }
} // namespace jdwpkrvdbg
