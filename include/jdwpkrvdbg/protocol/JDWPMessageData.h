// The decoded payload of one reply or event packet. Each decoder takes the
// payload (the bytes after the 11-byte header) and reads its fields in
// protocol order with a 1-based cursor, then either fills the request
// properties below, fills requestVar / requestFrame, or pushes the decoded
// objects into the debug model. The event decoders turn composite event
// packets into model changes and host events; readTaggedValue is the one
// place where debuggee values become text.
//
// No decoder reads outside its payload: bytes past the end count as missing,
// and wire counts never size an allocation beyond what the payload can hold.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"

namespace jdwpkrvdbg {

class JDWPMessage;
class JXThreadList;

class JDWPMessageData {
public:
    using MsgRef = std::shared_ptr<JDWPMessage>;

    // Request context set by the builders and results set by the decoders.
    double RequestClassTypeTag = 0;
    double RequestClassStatus = 0;
    double RequestClassID = 0;
    double RequestMethodID = 0;
    double RequestEventID = 0;
    double RequestThreadGroupID = 0;
    double RequestObjectID = 0;
    double RequestFrameCount = 0;
    double RequestThreadID = 0;
    double RequestFrameID = 0;
    std::string RequestUTF8String;
    std::shared_ptr<JXThreadList> RequestThreads;
    double RequestThreadState = 0;
    double RequestThreadSuspended = 0;
    std::string RequestThreadName;
    std::string RequestThreadGroupName;
    // Set on a bulk read request: its reply's values are read without
    // rendering (see JDWPMessageFactory's bulk reads).
    bool RequestRawValues = false;
    double RequestArrayLength = 0;
    EVENT_KIND myEventKind = static_cast<EVENT_KIND>(0);

    const std::vector<JDWPJVarValue>& requestVar() const { return requestVar_; }
    const std::vector<JDWPJFrame>& requestFrame() const { return requestFrame_; }

    // Reply decoders.
    bool processIDSizes(const std::string& s);
    bool processVersion(const std::string& s);
    bool processReferenceType(const std::string& s);
    bool processSuperClass(const std::string& s);
    bool processGetThis(const std::string& s);
    bool processFrameCount(const std::string& s);
    bool processThreadGroup(const std::string& s);
    bool processThreadState(const std::string& s);
    bool processThreadName(const std::string& s);
    bool processThreadGroupName(const std::string& s);
    bool processGetSignature(const std::string& s);
    bool processUTF8String(const std::string& s);
    bool processEventRequest(const std::string& s);
    bool processGetClassIDBySignatureMessage(const std::string& s);
    bool processFields(const std::string& s, const MsgRef& refOwner);
    bool processMethods(const std::string& s, const MsgRef& refOwner);
    bool processLineTable(const std::string& s, const MsgRef& refOwner);
    bool processVariableTable(const std::string& s, const MsgRef& refOwner);
    bool processFrameList(const std::string& s);
    bool processAllThreads(const std::string& s);
    bool processAllClasses(const std::string& s);
    bool processGetValue(const std::string& s, const MsgRef& refOwner);
    bool processGetField(const std::string& s, const MsgRef& refOwner);
    bool processGetStaticField(const std::string& s, const MsgRef& refOwner);
    bool processInvokeMethod(const std::string& s);
    bool processInvokeStaticMethod(const std::string& s);
    // Replies to the bulk reads: a counted list of tagged values, an array's
    // length, an array region (a tag, a count, then the values, tagged
    // unless the tag is primitive). Values are not rendered: primitives as
    // Java writes them (true, -1, 'A' as its code 65 with RefID 65), object
    // values as tag and RefID with an empty text.
    bool processValues(const std::string& s);
    bool processArrayLength(const std::string& s);
    bool processArrayValues(const std::string& s);

    // Event decoders.
    bool processEventCommand(const std::string& s);
    int64_t processBreakpointOrStep(const std::string& s, int64_t& pos, JDWPSuspendPolicy suspendPolicy,
                                    bool& bAutoResume, EVENT_KIND eventKind);
    int32_t processThreadStart(const std::string& s, int64_t& pos);
    int32_t processThreadDeath(const std::string& s, int64_t& pos);
    int64_t processEventCommandPrePare(const std::string& s, int64_t& pos);
    bool processEventCommandVMStart(const std::string& s, int64_t& pos);

    // Reads one tagged value at the 1-based cursor `pos` (advanced past it).
    // Returns the new cursor minus 1; an unknown tag sets the cursor to 0.
    int64_t readTaggedValue(const std::string& s, int64_t& pos, JDWPJVarValue& value);

    // Reads the value of `tag` (already read) at the cursor without
    // rendering it; returns false for an unknown tag.
    bool readUnrenderedValue(const std::string& s, int64_t& pos, int32_t tag, JDWPJVarValue& value);

    // The classes of the last AllClasses reply, in reply order.
    const std::vector<JDWPJClass>& allClasses() const { return allClasses_; }

private:
    // Reads past an event's request id and thread id.
    void skipRequestAndThread(const std::string& s, int64_t& pos);
    bool processValueList(const std::string& s);
    bool processInvocationResult(const std::string& s);
    // Begins the composite's stop at its first stopping event; false for a
    // later one when the host has resumed from the stop meanwhile.
    bool takeStop();

    std::vector<JDWPJVarValue> requestVar_;
    std::vector<JDWPJFrame> requestFrame_;
    std::vector<JDWPJClass> allClasses_;
    double myEventRequestID_ = 0;
    double myEventThreadID_ = 0;
    bool myStopBegun_ = false;
    // A breakpoint of the composite was hit without stopping (a false
    // condition, a hit its count skips, a logpoint): resumed unless another
    // event of it stops.
    bool myQuietHit_ = false;
    // An exception stop's text, read while the thread is still at the stop.
    std::string myExceptionText_;
};

} // namespace jdwpkrvdbg
