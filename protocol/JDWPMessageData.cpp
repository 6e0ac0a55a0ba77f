// Reply, event and value decoders (stub).
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"

#include "jdwpkrvdbg/protocol/JDWPMessage.h"

namespace jdwpkrvdbg {
bool JDWPMessageData::processIDSizes(const std::string& s) { return {}; }
bool JDWPMessageData::processVersion(const std::string& s) { return {}; }
bool JDWPMessageData::processReferenceType(const std::string& s) { return {}; }
bool JDWPMessageData::processSuperClass(const std::string& s) { return {}; }
bool JDWPMessageData::processGetThis(const std::string& s) { return {}; }
bool JDWPMessageData::processFrameCount(const std::string& s) { return {}; }
bool JDWPMessageData::processThreadGroup(const std::string& s) { return {}; }
bool JDWPMessageData::processThreadState(const std::string& s) { return {}; }
bool JDWPMessageData::processThreadName(const std::string& s) { return {}; }
bool JDWPMessageData::processThreadGroupName(const std::string& s) { return {}; }
bool JDWPMessageData::processGetSignature(const std::string& s) { return {}; }
bool JDWPMessageData::processUTF8String(const std::string& s) { return {}; }
bool JDWPMessageData::processEventRequest(const std::string& s) { return {}; }
bool JDWPMessageData::processGetClassIDBySignatureMessage(const std::string& s) { return {}; }
bool JDWPMessageData::processFields(const std::string& s, const MsgRef& refOwner) { return {}; }
bool JDWPMessageData::processMethods(const std::string& s, const MsgRef& refOwner) { return {}; }
bool JDWPMessageData::processLineTable(const std::string& s, const MsgRef& refOwner) { return {}; }
bool JDWPMessageData::processVariableTable(const std::string& s, const MsgRef& refOwner) { return {}; }
bool JDWPMessageData::processFrameList(const std::string& s) { return {}; }
bool JDWPMessageData::processAllThreads(const std::string& s) { return {}; }
bool JDWPMessageData::processAllClasses(const std::string& s) { return {}; }
bool JDWPMessageData::processGetValue(const std::string& s, const MsgRef& refOwner) { return {}; }
bool JDWPMessageData::processGetField(const std::string& s, const MsgRef& refOwner) { return {}; }
bool JDWPMessageData::processGetStaticField(const std::string& s, const MsgRef& refOwner) { return {}; }
bool JDWPMessageData::processInvokeMethod(const std::string& s) { return {}; }
bool JDWPMessageData::processInvokeStaticMethod(const std::string& s) { return {}; }
bool JDWPMessageData::processEventCommand(const std::string& s) { return {}; }
int64_t JDWPMessageData::processBreakpointOrStep(const std::string& s, int64_t& pos, JDWPSuspendPolicy suspendPolicy, bool& bAutoResume, EVENT_KIND eventKind) { return {}; }
int32_t JDWPMessageData::processThreadStart(const std::string& s, int64_t& pos) { return {}; }
int32_t JDWPMessageData::processThreadDeath(const std::string& s, int64_t& pos) { return {}; }
int64_t JDWPMessageData::processEventCommandPrePare(const std::string& s, int64_t& pos) { return {}; }
bool JDWPMessageData::processEventCommandVMStart(const std::string& s, int64_t& pos) { return {}; }
int64_t JDWPMessageData::readTaggedValue(const std::string& s, int64_t& pos, JDWPJVarValue& value) { return {}; }
bool JDWPMessageData::processValueList(const std::string& s) { return {}; }
bool JDWPMessageData::processInvocationResult(const std::string& s) { return {}; }
} // namespace jdwpkrvdbg
