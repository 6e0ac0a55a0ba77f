// Decoders of reply and event payloads, and the tagged-value reader.
//
// Every decoder reads its payload with a 1-based cursor through the shared
// byte-string helpers, which never read outside the buffer (a missing byte
// reads as zero). On top of that, every loop over a count taken from the wire
// is bounded by the bytes that remain in the payload, and no container is
// sized by such a count, so a hostile or truncated packet costs at most a
// pass over its own bytes.
//
// Several cursor rules below look wrong and are kept on purpose, because the
// rest of the session was built against them; each one says so where it
// stands.
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXField.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXThreadList.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"
#include "jdwpkrvdbg/protocol/cIEEE.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/JDWPLimits.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

constexpr int kTagLength = 1;
constexpr int kIntLength = 4;
constexpr int kLongLength = 8;
constexpr const char* kDebugClass = "VB/Debug";
constexpr const char* kDebugPrintMethod = "Print";
constexpr const char* kDebugStringMethod = "toDebugString()Ljava/lang/String;";

std::shared_ptr<JXMachine> session()
{
    return getCurrentHandler()->myJVM();
}

// Identifier widths come from the VM; a value outside 0..8 could only come
// from a broken reply and is clamped so that no read asks for more.
int clampWidth(int16_t width)
{
    return std::clamp<int>(width, 0, 8);
}
int objectWidth()
{
    return clampWidth(session()->SIZE_ObjectID);
}
int methodWidth()
{
    return clampWidth(session()->SIZE_MethodID);
}
int refTypeWidth()
{
    return clampWidth(session()->SIZE_RefTypeID);
}
int frameWidth()
{
    return clampWidth(session()->SIZE_FrameID);
}

int64_t payloadSize(const std::string& s)
{
    return static_cast<int64_t>(s.size());
}

// Bytes from the 1-based position to the end; 0 when the cursor is outside.
int64_t bytesLeft(const std::string& s, int64_t pos)
{
    if (pos < 1 || pos > payloadSize(s))
        return 0;
    return payloadSize(s) - pos + 1;
}

bool insidePayload(const std::string& s, int64_t pos)
{
    return pos >= 1 && pos <= payloadSize(s);
}

// A wire count limited to what the remaining bytes can hold, assuming every
// element takes at least one byte.
int64_t boundedCount(int64_t count, const std::string& s, int64_t pos)
{
    if (count <= 0)
        return 0;
    return std::min(count, bytesLeft(s, pos));
}

int64_t readCount(const std::string& s, int64_t& pos)
{
    int32_t count = 0;
    pos += ReadLong(s, pos, count, kIntLength);
    return count;
}

// Reads a count-prefixed list at `pos`: `readOne` once per element while
// the payload lasts, never more often than its remaining bytes allow.
template <typename ReadOne>
void readList(const std::string& s, int64_t& pos, ReadOne readOne)
{
    const int64_t wireCount = readCount(s, pos);
    const int64_t count = boundedCount(wireCount, s, pos);
    for (int64_t i = 0; i < count && insidePayload(s, pos); ++i)
        readOne();
}

// A count-prefixed list at `pos` as a vector: `readEntry(entry)` reads one
// element (and moves `pos` past it).
template <typename T, typename ReadEntry>
std::vector<T> readEntries(const std::string& s, int64_t& pos, ReadEntry readEntry)
{
    std::vector<T> out;
    readList(s, pos, [&] {
        T entry{};
        readEntry(entry);
        out.push_back(std::move(entry));
    });
    return out;
}

// `n` bytes from the 1-based position; a missing byte is taken as zero so the
// result always has `n` bytes.
std::string bytesAt(const std::string& s, int64_t pos, int n)
{
    std::string out(static_cast<size_t>(n), '\0');
    for (int i = 0; i < n; ++i) {
        if (insidePayload(s, pos + i))
            out[static_cast<size_t>(i)] = s[static_cast<size_t>(pos + i - 1)];
    }
    return out;
}

// Signed 64-bit value of eight big-endian bytes, exact (a double would round
// anything above 2^53).
int64_t signed64At(const std::string& s, int64_t pos)
{
    uint64_t v = 0;
    for (unsigned char c : bytesAt(s, pos, 8))
        v = (v << 8) | c;
    return static_cast<int64_t>(v);
}

// Number text of a shown value: the shortest text that reads back to the same
// number. Plain decimal notation for magnitudes from 1e-7 up to below 1e21
// (so integers never carry a ".0" and 0.1 stays 0.1); scientific notation
// ("1e+100", "5e-324") outside that range. Infinities and NaN as Java prints
// them; negative zero as "0".
template <typename Real>
std::string realText(Real v)
{
    if (std::isnan(v))
        return "NaN";
    if (std::isinf(v))
        return v < 0 ? "-Infinity" : "Infinity";
    if (v == 0)
        return "0";
    char buf[400];
    const Real magnitude = std::fabs(v);
    const auto format =
        (magnitude >= Real(1e-7) && magnitude < Real(1e21)) ? std::chars_format::fixed : std::chars_format::scientific;
    const auto result = std::to_chars(buf, buf + sizeof buf, v, format);
    if (result.ec != std::errc())
        return std::string();
    return std::string(buf, result.ptr);
}

bool contains(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

// The class named by the request this reply answers (model lookup only, no
// registration).
std::shared_ptr<JXClass> requestClass(const JDWPMessageData::MsgRef& refOwner)
{
    if (!refOwner || !refOwner->myRequestMessage)
        return nullptr;
    const double classID = refOwner->myRequestMessage->myDataContainer()->RequestClassID;
    return session()->getClassByID(classID);
}

std::shared_ptr<JXMethod> requestMethod(const JDWPMessageData::MsgRef& refOwner, const std::shared_ptr<JXClass>& cls)
{
    if (!cls)
        return nullptr;
    return cls->JMethodID(refOwner->myRequestMessage->myDataContainer()->RequestMethodID);
}

} // namespace

// ---------------------------------------------------------------------------
// Replies with single fields

bool JDWPMessageData::processIDSizes(const std::string& s)
{
    auto jvm = session();
    int16_t* targets[] = {&jvm->SIZE_FieldID, &jvm->SIZE_MethodID, &jvm->SIZE_ObjectID, &jvm->SIZE_RefTypeID,
                          &jvm->SIZE_FrameID};
    int64_t pos = 1;
    for (int16_t* target : targets) {
        double size = 0;
        pos += ReadNumber(s, pos, size, kIntLength);
        // Stored as a 16-bit value; a size that does not fit one is not a
        // size and leaves the current width alone.
        if (size >= INT16_MIN && size <= INT16_MAX)
            *target = static_cast<int16_t>(size);
    }
    getCurrentHandler()->sendInitMessages();
    return true;
}

bool JDWPMessageData::processVersion(const std::string& s)
{
    auto jvm = session();
    int64_t pos = 1;
    std::string description, vmVersion, vmName;
    int32_t major = 0, minor = 0;
    pos += ReadString(s, pos, description);
    pos += ReadLong(s, pos, major, kIntLength);
    pos += ReadLong(s, pos, minor, kIntLength);
    pos += ReadString(s, pos, vmVersion);
    ReadString(s, pos, vmName);
    jvm->VMDescription = Utf8ToText(description);
    jvm->VMMajor = major;
    jvm->VMMinor = minor;
    jvm->VMVersion = Utf8ToText(vmVersion);
    jvm->VMName = Utf8ToText(vmName);
    jvm->printDebug(" *** " + jvm->VMName + " " + jvm->VMVersion);
    return true;
}

bool JDWPMessageData::processReferenceType(const std::string& s)
{
    double tag = 0;
    ReadNumber(s, 1, tag, kTagLength);
    // Intended: the type id is read with the object-id width, not the
    // reference-type width (both are equal on every VM in use).
    ReadNumber(s, 2, RequestClassID, objectWidth());
    return true;
}

bool JDWPMessageData::processSuperClass(const std::string& s)
{
    ReadNumber(s, 1, RequestClassID, objectWidth());
    return true;
}

bool JDWPMessageData::processGetThis(const std::string& s)
{
    // Only the id is wanted, so the object is not rendered: rendering a
    // thread invokes its toString, whose reply refreshes the frame and
    // would come back here without end.
    RequestObjectID = 0;
    if (s.empty())
        return true;
    switch (static_cast<unsigned char>(s[0])) {
    case VAR_OBJECT:
    case VAR_ARRAY:
    case VAR_CLASSOBJECT:
    case VAR_THREADGROUP:
    case VAR_CLASSLOADER:
    case VAR_THREAD:
    case VAR_STRING:
        ReadNumber(s, 2, RequestObjectID, objectWidth());
        break;
    default:
        break;
    }
    return true;
}

bool JDWPMessageData::processFrameCount(const std::string& s)
{
    int32_t count = 0;
    ReadLong(s, 1, count, kIntLength);
    RequestFrameCount = count;
    return true;
}

bool JDWPMessageData::processThreadGroup(const std::string& s)
{
    ReadNumber(s, 1, RequestThreadGroupID, objectWidth());
    return true;
}

bool JDWPMessageData::processThreadState(const std::string& s)
{
    int32_t state = 0, suspended = 0;
    ReadLong(s, 1, state, kIntLength);
    ReadLong(s, 5, suspended, kIntLength);
    RequestThreadState = state;
    RequestThreadSuspended = suspended;
    return true;
}

bool JDWPMessageData::processThreadName(const std::string& s)
{
    // Intended: kept as the raw bytes; only processUTF8String converts.
    ReadString(s, 1, RequestThreadName);
    return true;
}

bool JDWPMessageData::processThreadGroupName(const std::string& s)
{
    ReadString(s, 1, RequestThreadGroupName);
    return true;
}

bool JDWPMessageData::processGetSignature(const std::string& s)
{
    // Raw bytes: signatures are compared and resent exactly as the VM gave
    // them.
    ReadString(s, 1, RequestUTF8String);
    return true;
}

bool JDWPMessageData::processUTF8String(const std::string& s)
{
    std::string raw;
    ReadString(s, 1, raw);
    RequestUTF8String = Utf8ToText(raw);
    return true;
}

bool JDWPMessageData::processEventRequest(const std::string& s)
{
    ReadNumber(s, 1, RequestEventID, kIntLength);
    return true;
}

bool JDWPMessageData::processGetClassIDBySignatureMessage(const std::string& s)
{
    int64_t pos = 1;
    const int64_t count = readCount(s, pos);
    if (count <= 0) {
        RequestClassID = -1;
        return true;
    }
    // One record per class loader may come back; the first one is kept.
    // Intended: the type id is read with the object-id width.
    pos += ReadNumber(s, pos, RequestClassTypeTag, kTagLength);
    pos += ReadNumber(s, pos, RequestClassID, objectWidth());
    pos += ReadNumber(s, pos, RequestClassStatus, kIntLength);
    return true;
}

// ---------------------------------------------------------------------------
// Model tables

namespace {

// Fields and methods come as the same record: id, name, signature and
// modifier bits. Each record becomes a member of the class.
// Intended: field ids are read with the method-id width too.
template <typename Member>
bool readMembers(const std::string& s, const std::shared_ptr<JXClass>& cls, double Member::*id,
                 std::string Member::*name, std::string Member::*signature, double Member::*bits,
                 bool (JXClass::*add)(const std::shared_ptr<Member>&))
{
    if (!cls)
        return false;
    int64_t pos = 1;
    readList(s, pos, [&] {
        auto member = std::make_shared<Member>();
        pos += ReadNumber(s, pos, (*member).*id, methodWidth());
        pos += ReadString(s, pos, (*member).*name);
        pos += ReadString(s, pos, (*member).*signature);
        pos += ReadNumber(s, pos, (*member).*bits, kIntLength);
        member->ClassID = cls->ClassID;
        ((*cls).*add)(member);
    });
    return true;
}

} // namespace

bool JDWPMessageData::processFields(const std::string& s, const MsgRef& refOwner)
{
    return readMembers(s, requestClass(refOwner), &JXField::FieldID, &JXField::FieldName, &JXField::FieldSignature,
                       &JXField::FieldBits, &JXClass::addField);
}

bool JDWPMessageData::processMethods(const std::string& s, const MsgRef& refOwner)
{
    return readMembers(s, requestClass(refOwner), &JXMethod::MethodID, &JXMethod::MethodName,
                       &JXMethod::MethodSignature, &JXMethod::MethodBits, &JXClass::addMethod);
}

namespace {

// Decodes a table of the method the request named and hands it to that
// method; false when the request names no method the model knows.
template <typename Table, typename Read>
bool readMethodTable(const JDWPMessageData::MsgRef& refOwner, bool (JXMethod::*set)(const Table&), Read read)
{
    auto method = requestMethod(refOwner, requestClass(refOwner));
    if (!method)
        return false;
    Table table;
    int64_t pos = 1;
    read(table, pos);
    ((*method).*set)(table);
    return true;
}

} // namespace

bool JDWPMessageData::processLineTable(const std::string& s, const MsgRef& refOwner)
{
    return readMethodTable(refOwner, &JXMethod::SetLineTable, [&](JDWPJLineTable& table, int64_t& pos) {
        pos += ReadNumber(s, pos, table.startIndex, kLongLength);
        pos += ReadNumber(s, pos, table.endIndex, kLongLength);
        table.Lines = readEntries<JDWPJLineTableItem>(s, pos, [&](JDWPJLineTableItem& item) {
            pos += ReadNumber(s, pos, item.lineCodeIndex, kLongLength);
            pos += ReadNumber(s, pos, item.lineNumber, kIntLength);
        });
        // The count of the lines actually read: equal to the wire count for a
        // whole reply, and never more than Lines holds for a cut one.
        table.LineCount = static_cast<double>(table.Lines.size());
    });
}

bool JDWPMessageData::processVariableTable(const std::string& s, const MsgRef& refOwner)
{
    return readMethodTable(refOwner, &JXMethod::SetVariableTable, [&](JDWPJVariableTable& table, int64_t& pos) {
        pos += ReadNumber(s, pos, table.argCnt, kIntLength);
        table.Slot = readEntries<JDWPJVariableTableSlot>(s, pos, [&](JDWPJVariableTableSlot& slot) {
            pos += ReadNumber(s, pos, slot.vt_codeIndex, kLongLength);
            pos += ReadString(s, pos, slot.vt_name);
            pos += ReadString(s, pos, slot.vt_signature);
            pos += ReadNumber(s, pos, slot.vt_length, kIntLength);
            pos += ReadNumber(s, pos, slot.vt_slot, kIntLength);
        });
        table.slotsCount = static_cast<double>(table.Slot.size());
    });
}

bool JDWPMessageData::processFrameList(const std::string& s)
{
    int64_t pos = 1;
    requestFrame_ = readEntries<JDWPJFrame>(s, pos, [&](JDWPJFrame& frame) {
        pos += ReadNumber(s, pos, frame.FrameID, frameWidth());
        pos += ReadLocation(s, pos, frame.FrameLocation);
    });
    return true;
}

bool JDWPMessageData::processAllThreads(const std::string& s)
{
    int64_t pos = 1;
    const int width = objectWidth();
    const std::vector<double> ids =
        readEntries<double>(s, pos, [&](double& id) { pos += ReadNumber(s, pos, id, width); });
    RequestThreads = std::make_shared<JXThreadList>();
    for (double id : ids)
        RequestThreads->addThread(id);
    return true;
}

bool JDWPMessageData::processAllClasses(const std::string& s)
{
    int64_t pos = 1;
    allClasses_ = readEntries<JDWPJClass>(s, pos, [&](JDWPJClass& entry) {
        pos += ReadNumber(s, pos, entry.ClassTypeTag, kTagLength);
        // The only decoder that reads a type id with the reference-type width.
        pos += ReadNumber(s, pos, entry.ClassID, refTypeWidth());
        pos += ReadString(s, pos, entry.ClassSignature);
        pos += ReadNumber(s, pos, entry.ClassStatus, kIntLength);
        // Listed only: entering a class in the registry is the class-prepare
        // event's business.
    });
    return true;
}

// ---------------------------------------------------------------------------
// Values

bool JDWPMessageData::processGetValue(const std::string& s, const MsgRef&)
{
    return processValueList(s);
}

bool JDWPMessageData::processGetField(const std::string& s, const MsgRef&)
{
    return processValueList(s);
}

bool JDWPMessageData::processGetStaticField(const std::string& s, const MsgRef&)
{
    return processValueList(s);
}

bool JDWPMessageData::processValueList(const std::string& s)
{
    requestVar_.clear();
    int64_t pos = 1;
    const int64_t wireCount = readCount(s, pos);
    const int64_t count = boundedCount(wireCount, s, pos);
    if (count <= 0)
        return true;
    requestVar_.resize(static_cast<size_t>(count));
    for (int64_t i = 0; i < count; ++i) {
        // Once the cursor has left the payload every further element would
        // read tag 0 and stay empty, which is what the remaining elements
        // already are.
        if (!insidePayload(s, pos))
            break;
        const int64_t result = readTaggedValue(s, pos, requestVar_[static_cast<size_t>(i)]);
        if (result == 0)
            break;
        // Intended: the cursor is advanced a second time by the reader's
        // result, so only the first element is read at its true position.
        pos += result;
    }
    return true;
}

bool JDWPMessageData::readUnrenderedValue(const std::string& s, int64_t& pos, int32_t tag, JDWPJVarValue& value)
{
    value.VarType = static_cast<JDWPJVarEnum>(tag);
    value.RefID = 0;
    value.VarValue.clear();
    double number = 0;
    auto integral = [&](int width) {
        pos += ReadSignedNumber(s, pos, number, width);
        // One byte reads unsigned; a Java byte is signed.
        if (width == 1 && number > 127)
            number -= 256;
        value.RefID = number;
        value.VarValue = realText(number);
    };
    switch (tag) {
    case VAR_BOOLEAN:
        pos += ReadNumber(s, pos, number, 1);
        value.RefID = number != 0 ? 1 : 0;
        value.VarValue = number != 0 ? "true" : "false";
        return true;
    case VAR_BYTE:
        integral(1);
        return true;
    case VAR_SHORT:
        integral(2);
        return true;
    case VAR_INT:
        integral(4);
        return true;
    case VAR_CHAR:
        pos += ReadNumber(s, pos, number, 2);
        value.RefID = number;
        value.VarValue = realText(number);
        return true;
    case VAR_LONG:
        // Always eight bytes on the wire, whatever the id sizes.
        value.RefID = static_cast<double>(signed64At(s, pos));
        value.VarValue = std::to_string(signed64At(s, pos));
        pos += 8;
        return true;
    case VAR_DOUBLE:
        value.RefID = cIEEE().Ieee64stov(bytesAt(s, pos, 8), true);
        value.VarValue = realText(value.RefID);
        pos += 8;
        return true;
    case VAR_FLOAT: {
        const float f = static_cast<float>(cIEEE().Ieee32stov(bytesAt(s, pos, 4), true));
        value.RefID = f;
        value.VarValue = realText(f);
        pos += 4;
        return true;
    }
    case VAR_VOID:
        return true;
    case VAR_OBJECT:
    case VAR_ARRAY:
    case VAR_STRING:
    case VAR_THREAD:
    case VAR_THREADGROUP:
    case VAR_CLASSLOADER:
    case VAR_CLASSOBJECT:
        pos += ReadNumber(s, pos, value.RefID, objectWidth());
        return true;
    default:
        return false;
    }
}

bool JDWPMessageData::processValues(const std::string& s)
{
    requestVar_.clear();
    int64_t pos = 1;
    const int64_t count = boundedCount(readCount(s, pos), s, pos);
    for (int64_t i = 0; i < count && insidePayload(s, pos); ++i) {
        double tag = 0;
        pos += ReadNumber(s, pos, tag, kTagLength);
        JDWPJVarValue value;
        // Nothing after an unknown tag can be trusted.
        if (!readUnrenderedValue(s, pos, static_cast<int32_t>(tag), value))
            break;
        value.Found = true;
        requestVar_.push_back(std::move(value));
    }
    return true;
}

bool JDWPMessageData::processArrayLength(const std::string& s)
{
    int64_t pos = 1;
    RequestArrayLength = static_cast<double>(std::max<int64_t>(0, readCount(s, pos)));
    return true;
}

bool JDWPMessageData::processArrayValues(const std::string& s)
{
    requestVar_.clear();
    int64_t pos = 1;
    double tag = 0;
    pos += ReadNumber(s, pos, tag, kTagLength);
    const int32_t elementTag = static_cast<int32_t>(tag);
    const int64_t count = boundedCount(readCount(s, pos), s, pos);
    // Primitive elements come without a tag of their own.
    const bool primitive = std::string_view("ZBCSIJFD").find(static_cast<char>(elementTag)) != std::string_view::npos;
    for (int64_t i = 0; i < count && insidePayload(s, pos); ++i) {
        int32_t valueTag = elementTag;
        if (!primitive) {
            pos += ReadNumber(s, pos, tag, kTagLength);
            valueTag = static_cast<int32_t>(tag);
        }
        JDWPJVarValue value;
        if (!readUnrenderedValue(s, pos, valueTag, value))
            break;
        value.Found = true;
        requestVar_.push_back(std::move(value));
    }
    return true;
}

bool JDWPMessageData::processInvokeMethod(const std::string& s)
{
    return processInvocationResult(s);
}

bool JDWPMessageData::processInvokeStaticMethod(const std::string& s)
{
    return processInvocationResult(s);
}

bool JDWPMessageData::processInvocationResult(const std::string& s)
{
    auto handler = getCurrentHandler();
    // The call is over: what happens from here on is the program's own.
    handler->myJVM()->invocationReplied();
    requestVar_.assign(1, JDWPJVarValue());
    int64_t pos = 1;
    readTaggedValue(s, pos, requestVar_[0]);
    if (insidePayload(s, pos) && static_cast<unsigned char>(s[static_cast<size_t>(pos - 1)]) == VAR_OBJECT) {
        pos += 1;
        double exceptionID = 0;
        ReadNumber(s, pos, exceptionID, objectWidth());
        // A thrown exception shows as its class name in place of the result.
        if (exceptionID != 0)
            requestVar_[0].VarValue = handler->ObjectToString(exceptionID, true);
    }
    // The invocation ran code in the thread, so its frame ids are stale.
    handler->myJVM()->refreshFrameID();
    return true;
}

int64_t JDWPMessageData::readTaggedValue(const std::string& s, int64_t& pos, JDWPJVarValue& value)
{
    auto handler = getCurrentHandler();
    double tag = 0;
    pos += ReadNumber(s, pos, tag, kTagLength);
    value.VarType = static_cast<JDWPJVarEnum>(static_cast<int32_t>(tag));

    // A primitive of `width` bytes, read at pos and stepped over.
    auto primitive = [&](int width) {
        double number = 0;
        pos += ReadSignedNumber(s, pos, number, width);
        return number;
    };
    switch (static_cast<int32_t>(tag)) {
    case VAR_BOOLEAN:
        value.VarValue = primitive(1) != 0 ? "True" : "False";
        break;
    case VAR_BYTE:
        // Intended: one byte reads as 0..255, never negative.
        value.VarValue = realText(primitive(1));
        break;
    case VAR_CHAR: {
        double number = primitive(2);
        // Intended: a char is shown as a number, and codes 0x0100..0x7FFF
        // are folded below zero (0x8000.. are negative already).
        if (number > 255)
            number = (65536 - number) * -1;
        value.VarValue = realText(number);
        break;
    }
    case VAR_SHORT:
        value.VarValue = realText(primitive(2));
        break;
    case VAR_INT:
        value.VarValue = realText(primitive(4));
        break;
    case VAR_LONG: {
        // Intended: a long takes its width from the object-id size.
        const int width = objectWidth();
        if (width == 8) {
            // Exact signed 64-bit text; a double would round above 2^53.
            value.VarValue = std::to_string(signed64At(s, pos));
            pos += 8;
        } else {
            value.VarValue = realText(primitive(width));
        }
        break;
    }
    case VAR_DOUBLE: {
        const double d = cIEEE().Ieee64stov(bytesAt(s, pos, 8), true);
        pos += 8;
        value.RefID = d;
        value.VarValue = realText(d);
        break;
    }
    case VAR_FLOAT: {
        // Narrowed to single precision and shown with the shortest text of
        // the single, so 3.1415927f reads 3.1415927 and not its double digits.
        const float f = static_cast<float>(cIEEE().Ieee32stov(bytesAt(s, pos, 4), true));
        pos += 4;
        value.RefID = f;
        value.VarValue = realText(f);
        break;
    }
    case VAR_STRING: {
        double id = 0;
        pos += ReadNumber(s, pos, id, objectWidth());
        // Kept so that a null String is told from an empty one.
        value.RefID = id;
        if (id != 0) {
            auto reply = handler->sendSync(handler->myFactory()->createGetUTF8StringMessage(id), kReplyWaitMs);
            if (reply)
                value.VarValue = reply->myDataContainer()->RequestUTF8String;
        }
        break;
    }
    case VAR_OBJECT: {
        pos += ReadNumber(s, pos, value.RefID, objectWidth());
        auto jvm = handler->myJVM();
        std::string className, superName;
        if (auto cls = jvm->getClassByID(jvm->classIDFromObjectID(value.RefID))) {
            className = cls->ClassName();
            if (auto super = cls->SuperClass())
                superName = super->ClassName();
        }
        bool runtimeWrapper = false;
        for (const char* wrapper : {"VBVariant", "VBEnumClass", "VBArray"})
            runtimeWrapper = runtimeWrapper || contains(className, wrapper) || contains(superName, wrapper);
        if (runtimeWrapper) {
            // The runtime's own rendering of its variant, enum and array
            // wrappers; "#" separates its lines.
            std::string text = handler->ObjectToStringWithMethod(value.RefID, false, kDebugStringMethod);
            text = ReplaceAll(text, "#", "\r\n");
            if (text.size() > 1 && text.front() == '"' && text.back() == '"')
                text = text.substr(1, text.size() - 2);
            value.VarValue = text;
        } else {
            const std::string name = handler->ObjectToString(value.RefID, true);
            value.VarValue = name.empty() ? std::string("Object not initialized!")
                                          : "Type: " + name + " - " + "ObjID: " + realText(value.RefID);
        }
        break;
    }
    case VAR_ARRAY:
    case VAR_CLASSOBJECT:
    case VAR_THREADGROUP:
    case VAR_CLASSLOADER:
    case VAR_THREAD:
        pos += ReadNumber(s, pos, value.RefID, objectWidth());
        value.VarValue = handler->ObjectToString(value.RefID, false);
        break;
    case VAR_VOID:
        break;
    default:
        // An unknown tag: nothing after it can be trusted. List decoders do
        // not stop on it (the result is -1, not 0); intended.
        pos = 0;
        break;
    }
    return pos - 1;
}

// ---------------------------------------------------------------------------
// Events

bool JDWPMessageData::processEventCommand(const std::string& s)
{
    auto jvm = session();
    if (jvm->isInvokeInProcess()) {
        // Events caused by an evaluation's method call never reach the IDE.
        jvm->resumeForInvocation();
        return false;
    }

    int64_t pos = 1;
    double policyValue = 0;
    pos += ReadNumber(s, pos, policyValue, kTagLength);
    const auto suspendPolicy = static_cast<JDWPSuspendPolicy>(static_cast<int32_t>(policyValue));
    int32_t count = 0;
    pos += ReadLong(s, pos, count, kIntLength);

    bool bAutoResume = false;
    bool singleStepSeen = false;
    myStopBegun_ = false;
    myQuietHit_ = false;
    myExceptionText_.clear();
    // A step under way goes on past the events that do not end it: the
    // debug-print hook and an exception caught where it was thrown are
    // resumed with the step kept, as a class prepared on the way is.
    const bool stepUnderWay = jvm->myStepInProcess;
    // The cursor rules below send later events of a composite to wrong
    // positions (even before the payload, where everything reads as zero);
    // the loop is bounded by the payload so a garbage count cannot spin.
    const int64_t maxEvents = std::min<int64_t>(count, payloadSize(s));
    for (int64_t i = 1; i <= maxEvents && pos <= payloadSize(s) + 1; ++i) {
        double kindValue = 0;
        pos += ReadNumber(s, pos, kindValue, kTagLength);
        myEventKind = static_cast<EVENT_KIND>(static_cast<int32_t>(kindValue));
        // Intended throughout: only single step, breakpoint and method entry
        // take the returned cursor; exception and class prepare add it to the
        // already advanced one; thread and VM-start events take True (-1).
        switch (myEventKind) {
        case EK_SINGLE_STEP:
            jvm->myStepInProcess = false;
            pos = processBreakpointOrStep(s, pos, suspendPolicy, bAutoResume, myEventKind);
            singleStepSeen = true;
            break;
        case EK_BREAKPOINT:
            jvm->myStepInProcess = false;
            pos = processBreakpointOrStep(s, pos, suspendPolicy, bAutoResume, myEventKind);
            break;
        case EK_EXCEPTION: {
            jvm->myStepInProcess = false;
            const int64_t result = processBreakpointOrStep(s, pos, suspendPolicy, bAutoResume, myEventKind);
            pos = pos + result;
            break;
        }
        case EK_THREAD_START:
            pos = processThreadStart(s, pos);
            bAutoResume = true;
            break;
        case EK_THREAD_DEATH:
            pos = processThreadDeath(s, pos);
            bAutoResume = true;
            break;
        case EK_CLASS_PREPARE: {
            const int64_t result = processEventCommandPrePare(s, pos);
            pos = pos + result;
            bAutoResume = true;
            break;
        }
        case EK_CLASS_LOAD:
            break;
        case EK_METHOD_ENTRY: {
            // The method entry request of a step running past code of no
            // target belongs to that step: its event is taken as the step's.
            double requestID = 0;
            ReadNumber(s, pos, requestID, kIntLength);
            const bool stepEntry = jvm->isStepEntryRequest(requestID);
            if (stepEntry) {
                jvm->myStepInProcess = false;
                singleStepSeen = true;
            }
            pos = processBreakpointOrStep(s, pos, suspendPolicy, bAutoResume, stepEntry ? EK_SINGLE_STEP : myEventKind);
            break;
        }
        case EK_VM_START:
            pos = processEventCommandVMStart(s, pos) ? -1 : 0;
            // A start event decoded after the opening Resume went out may have
            // suspended the VM after that Resume took effect; resuming once
            // more is harmless when it did not (a count of 0 stays 0).
            if (jvm->openingResumed())
                bAutoResume = true;
            break;
        case EK_VM_DEATH:
        case EK_VM_DISCONNECTED:
            jvm->GoVMStateChange(VMDead, -1);
            break;
        default:
            break;
        }
    }

    if (myQuietHit_ && !myStopBegun_)
        bAutoResume = true;
    if (myStopBegun_)
        jvm->announceStop();
    if (!bAutoResume) {
        if (suspendPolicy != JDWPSuspendPolicy::SS_NONE && !myStopBegun_)
            jvm->GoVMStateChange(VMSuspend, myEventThreadID_);
        if (myEventKind == EK_EXCEPTION && RequestObjectID != 0)
            jvm->GoException(myExceptionText_);
    } else if (suspendPolicy == JDWPSuspendPolicy::SS_All) {
        if (singleStepSeen) {
            jvm->continueStep(myEventThreadID_);
        } else {
            // A class prepared (or a thread started) in the middle of a step
            // must not withdraw the step request, or the step would run on.
            const bool keepStep = jvm->myStepInProcess || (stepUnderWay && !myStopBegun_);
            if (keepStep)
                jvm->myStepInProcess = true;
            jvm->ResumeVM(!keepStep);
        }
    }
    // Intended: with policy 0 or 1 an auto-resumed event is not resumed.
    return false;
}

int64_t JDWPMessageData::processBreakpointOrStep(const std::string& s, int64_t& pos, JDWPSuspendPolicy suspendPolicy,
                                                 bool& bAutoResume, EVENT_KIND eventKind)
{
    auto jvm = session();
    pos += ReadNumber(s, pos, myEventRequestID_, kIntLength);
    pos += ReadNumber(s, pos, myEventThreadID_, objectWidth());
    JDWPJLocation location;
    pos += ReadLocation(s, pos, location);

    if (suspendPolicy == JDWPSuspendPolicy::SS_NONE)
        return pos;

    auto cls = jvm->getClassByID(location.ClassID, true);
    if (!cls) {
        bAutoResume = true;
        return pos;
    }
    const std::string className = cls->ClassName();

    // The runtime's debug-print hook is handled before the include filter,
    // which rejects "VB/Debug" and would otherwise make it unreachable.
    if (className == kDebugClass) {
        bAutoResume = true;
        auto method = cls->JMethodID(location.MethodID);
        if (method && method->MethodName == kDebugPrintMethod) {
            jvm->GoSilentBreak(myEventThreadID_, location.ClassID, location.MethodID);
            const JDWPJVarValue data = jvm->getValueFromLocalTable("data", method, cls);
            if (data.Found) {
                // The value is a quoted string; the quotes are not printed.
                const std::string& text = data.VarValue;
                jvm->printDebug(text.size() >= 2 ? text.substr(1, text.size() - 2) : std::string());
            }
        }
        return pos;
    }

    if (!jvm->isPossibleClass(className)) {
        // A step continues past code of no target (continueStep).
        if (eventKind == EK_SINGLE_STEP)
            jvm->noteStepLanding(className);
        bAutoResume = true;
        return pos;
    }
    auto method = cls->JMethodID(location.MethodID);
    if (!method) {
        bAutoResume = true;
        return pos;
    }
    double line = 0;
    if (!method->LocationToSrcLine(location, line)) {
        // No source line here: a step simply continues.
        bAutoResume = true;
        return pos;
    }

    switch (eventKind) {
    case EK_BREAKPOINT: {
        // A breakpoint with options decides here, before the stop is taken,
        // whether the host hears of this hit at all.
        std::string failure, condition;
        if (auto bp = jvm->getBreakPointByID(myEventRequestID_); bp && bp->plan()) {
            condition = bp->Options.Condition;
            if (!jvm->breakpointHit(bp, myEventThreadID_, location, className, line, failure)) {
                myQuietHit_ = true;
                return pos;
            }
        }
        if (!takeStop())
            break;
        if (!failure.empty())
            jvm->GoConditionFailed(myEventThreadID_, className, line, condition, failure);
        jvm->GoBreakpoint(myEventRequestID_, myEventThreadID_, className, location.ClassID, location.MethodID, line,
                          location.Index);
        break;
    }
    case EK_SINGLE_STEP:
        // Returned from code of no target into the middle of the line the
        // step began on: the step goes on to the next line, as it would have
        // had that code been excluded from the start.
        if (jvm->isStepBackAtStart(myEventRequestID_, location.ClassID, location.MethodID, line)) {
            bAutoResume = true;
            return pos;
        }
        if (takeStop())
            jvm->GoSingleStep(myEventRequestID_, myEventThreadID_, className, location.ClassID, location.MethodID, line,
                              location.Index);
        break;
    case EK_EXCEPTION: {
        double tag = 0;
        pos += ReadNumber(s, pos, tag, kTagLength);
        pos += ReadNumber(s, pos, RequestObjectID, objectWidth());
        if (static_cast<int32_t>(tag) != VAR_OBJECT)
            RequestObjectID = 0;
        JDWPJLocation catchLocation;
        pos += ReadLocation(s, pos, catchLocation);
        if (catchLocation.ClassID == location.ClassID) {
            // Intended: caught in the class that threw it, so the program
            // handles it itself; no stop.
            bAutoResume = true;
            RequestObjectID = 0;
            return pos;
        }
        if (!takeStop()) {
            RequestObjectID = 0;
            return pos;
        }
        // The text is read at the stop: a host may resume from the Breakpoint
        // event, and the exception's toString needs the thread suspended.
        if (RequestObjectID != 0) {
            auto handler = getCurrentHandler();
            myExceptionText_ = handler->ObjectToString(RequestObjectID, true);
            if (!myExceptionText_.empty())
                myExceptionText_ += "\r\n";
            myExceptionText_ += handler->ObjectToString(RequestObjectID, false);
        }
        jvm->GoBreakpoint(myEventRequestID_, myEventThreadID_, className, location.ClassID, location.MethodID, line,
                          location.Index);
        break;
    }
    case EK_METHOD_ENTRY:
        bAutoResume = true;
        break;
    default:
        break;
    }
    return pos;
}

bool JDWPMessageData::takeStop()
{
    auto jvm = session();
    if (!myStopBegun_) {
        myStopBegun_ = true;
        jvm->beginStop(myEventThreadID_);
        return true;
    }
    // A later event of the same composite is the same stop; once the host
    // has resumed from it, the VM is no longer there.
    return !jvm->stopResumed();
}

void JDWPMessageData::skipRequestAndThread(const std::string& s, int64_t& pos)
{
    // Thread lists are refreshed when asked for, so these events' thread is
    // not kept; the fields are consumed to reach the next event.
    double requestID = 0, threadID = 0;
    pos += ReadNumber(s, pos, requestID, kIntLength);
    pos += ReadNumber(s, pos, threadID, objectWidth());
}

int32_t JDWPMessageData::processThreadStart(const std::string& s, int64_t& pos)
{
    skipRequestAndThread(s, pos);
    return -1;
}

int32_t JDWPMessageData::processThreadDeath(const std::string& s, int64_t& pos)
{
    skipRequestAndThread(s, pos);
    return -1;
}

int64_t JDWPMessageData::processEventCommandPrePare(const std::string& s, int64_t& pos)
{
    auto jvm = session();
    skipRequestAndThread(s, pos);
    auto cls = std::make_shared<JXClass>();
    pos += ReadNumber(s, pos, cls->ClassTypeTag, kTagLength);
    // Intended: the type id is read with the object-id width.
    pos += ReadNumber(s, pos, cls->ClassID, objectWidth());
    pos += ReadString(s, pos, cls->ClassSignature);
    pos += ReadNumber(s, pos, cls->ClassStatus, kIntLength);
    jvm->addClass(cls, true);
    // Inner classes share the exception request of their outer class.
    if (!contains(cls->ClassName(), "$"))
        jvm->registerExceptionExpilcit(cls);
    return pos;
}

bool JDWPMessageData::processEventCommandVMStart(const std::string& s, int64_t& pos)
{
    skipRequestAndThread(s, pos);
    return true;
}

} // namespace jdwpkrvdbg
