// JXMachine, part: setting values while the VM is suspended. A local of a
// frame, a field of an object or a static of a class takes a primitive or a
// string that the user typed; the text is checked against the variable's
// declared type before anything is set, and what the VM refuses comes back
// in words. A string is made in the VM first and kept from its collector
// until the variable holds it.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXField.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/protocol/ByteStrings.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"
#include "jdwpkrvdbg/protocol/cIEEE.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/JDWPLimits.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {

using Msg = std::shared_ptr<JDWPMessage>;

constexpr int64_t kFinalBit = 0x10; // ACC_FINAL

std::string trimmed(const std::string& s)
{
    const size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos)
        return std::string();
    return s.substr(b, s.find_last_not_of(" \t") - b + 1);
}

// The type as Java writes it, with its article: "an int", "a demo.Point[]".
std::string javaType(const std::string& signature)
{
    std::string name;
    switch (signature.empty() ? '?' : signature[0]) {
    case 'Z':
        name = "boolean";
        break;
    case 'B':
        name = "byte";
        break;
    case 'C':
        name = "char";
        break;
    case 'S':
        name = "short";
        break;
    case 'I':
        name = "int";
        break;
    case 'J':
        name = "long";
        break;
    case 'F':
        name = "float";
        break;
    case 'D':
        name = "double";
        break;
    case '[':
        return javaType(signature.substr(1)) + "[]";
    case 'L':
        name = signature.size() > 2 ? signature.substr(1, signature.size() - 2) : signature;
        for (char& c : name)
            if (c == '/')
                c = '.';
        break;
    default:
        name = signature;
        break;
    }
    return name;
}

std::string withArticle(const std::string& type)
{
    const bool vowel = !type.empty() && std::string("aeiouAEIOU").find(type[0]) != std::string::npos;
    return (vowel ? "an " : "a ") + type;
}

// The types that a String can be stored in without the VM checking it: a
// field's SetValues trusts the debugger, so nothing else is offered.
bool takesString(const std::string& signature)
{
    return signature == "Ljava/lang/String;" || signature == "Ljava/lang/Object;" ||
           signature == "Ljava/lang/CharSequence;" || signature == "Ljava/lang/Comparable;" ||
           signature == "Ljava/io/Serializable;";
}

// One escape after a backslash at text[i] (i on the backslash); the code
// unit it stands for, i moved past it. \uXXXX gives a UTF-16 unit.
bool readEscape(const std::string& text, size_t& i, uint32_t& code)
{
    if (i + 1 >= text.size())
        return false;
    const char c = text[i + 1];
    i += 2;
    switch (c) {
    case 'n':
        code = '\n';
        return true;
    case 't':
        code = '\t';
        return true;
    case 'r':
        code = '\r';
        return true;
    case 'b':
        code = '\b';
        return true;
    case 'f':
        code = '\f';
        return true;
    case '0':
        code = 0;
        return true;
    case '\\':
    case '\'':
    case '"':
        code = static_cast<unsigned char>(c);
        return true;
    case 'u': {
        if (i + 4 > text.size())
            return false;
        uint32_t v = 0;
        const auto [end, ec] = std::from_chars(text.data() + i, text.data() + i + 4, v, 16);
        if (ec != std::errc() || end != text.data() + i + 4)
            return false;
        i += 4;
        code = v;
        return true;
    }
    default:
        return false;
    }
}

// One UTF-8 character at text[i]: its code point, i moved past it.
bool readUtf8(const std::string& text, size_t& i, uint32_t& code)
{
    const auto b = static_cast<unsigned char>(text[i]);
    const int extra = b < 0x80 ? 0 : (b & 0xE0) == 0xC0 ? 1 : (b & 0xF0) == 0xE0 ? 2 : (b & 0xF8) == 0xF0 ? 3 : -1;
    if (extra < 0 || i + static_cast<size_t>(extra) >= text.size())
        return false;
    code = extra == 0 ? b : b & (0x3F >> extra);
    for (int k = 1; k <= extra; ++k) {
        const auto c = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
        if ((c & 0xC0) != 0x80)
            return false;
        code = (code << 6) | (c & 0x3F);
    }
    i += static_cast<size_t>(extra) + 1;
    return true;
}

// "text" with Java's escapes, as UTF-8; a surrogate pair written as two
// \u escapes becomes one character.
bool parseStringLiteral(const std::string& t, std::string& out)
{
    if (t.size() < 2 || t.front() != '"' || t.back() != '"')
        return false;
    const std::string body = t.substr(1, t.size() - 2);
    out.clear();
    uint32_t high = 0;
    for (size_t i = 0; i < body.size();) {
        uint32_t code = 0;
        if (body[i] == '"')
            return false;
        if (body[i] == '\\') {
            if (!readEscape(body, i, code))
                return false;
        } else if (!readUtf8(body, i, code)) {
            return false;
        }
        if (high != 0) {
            if (code >= 0xDC00 && code < 0xE000) {
                AppendUtf8(out, 0x10000 + ((high - 0xD800) << 10) + (code - 0xDC00));
                high = 0;
                continue;
            }
            AppendUtf8(out, 0xFFFD);
            high = 0;
        }
        if (code >= 0xD800 && code < 0xDC00)
            high = code;
        else
            AppendUtf8(out, code >= 0xDC00 && code < 0xE000 ? 0xFFFD : code);
    }
    if (high != 0)
        AppendUtf8(out, 0xFFFD);
    return true;
}

// 'c' or an escape: one UTF-16 code unit.
bool parseCharLiteral(const std::string& t, uint32_t& code)
{
    if (t.size() < 3 || t.front() != '\'' || t.back() != '\'')
        return false;
    const std::string body = t.substr(1, t.size() - 2);
    size_t i = 0;
    if (body[0] == '\\') {
        if (!readEscape(body, i, code))
            return false;
    } else if (body[0] == '\'' || !readUtf8(body, i, code) || code > 0xFFFF) {
        return false;
    }
    return i == body.size();
}

// A whole number: an optional sign and decimal digits (an L after them is
// the caller's). Saturates, with `fits` false, beyond the 64-bit range.
bool parseWhole(const std::string& t, int64_t& out, bool& fits)
{
    size_t i = 0;
    const bool negative = !t.empty() && t[0] == '-';
    if (!t.empty() && (t[0] == '-' || t[0] == '+'))
        ++i;
    if (i >= t.size())
        return false;
    uint64_t magnitude = 0;
    fits = true;
    for (; i < t.size(); ++i) {
        if (t[i] < '0' || t[i] > '9')
            return false;
        const uint64_t digit = static_cast<uint64_t>(t[i] - '0');
        if (magnitude > (std::numeric_limits<uint64_t>::max() - digit) / 10)
            fits = false;
        else
            magnitude = magnitude * 10 + digit;
    }
    const uint64_t limit = negative ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
    if (!fits || magnitude > limit) {
        fits = false;
        out = negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
        return true;
    }
    out = negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
    return true;
}

// A decimal number (digits with a point or an exponent), or NaN, Infinity,
// -Infinity as Java prints them.
bool parseDecimal(const std::string& t, double& out, bool& special)
{
    special = t == "NaN" || t == "Infinity" || t == "+Infinity" || t == "-Infinity";
    if (t == "NaN") {
        out = std::numeric_limits<double>::quiet_NaN();
        return true;
    }
    if (special) {
        out = t[0] == '-' ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
        return true;
    }
    size_t i = 0, digits = 0;
    if (i < t.size() && (t[i] == '-' || t[i] == '+'))
        ++i;
    for (; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i)
        ++digits;
    if (i < t.size() && t[i] == '.')
        for (++i; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i)
            ++digits;
    if (digits == 0)
        return false;
    if (i < t.size() && (t[i] == 'e' || t[i] == 'E')) {
        ++i;
        if (i < t.size() && (t[i] == '-' || t[i] == '+'))
            ++i;
        const size_t start = i;
        while (i < t.size() && t[i] >= '0' && t[i] <= '9')
            ++i;
        if (i == start)
            return false;
    }
    if (i != t.size())
        return false;
    const char* begin = t.data() + (t[0] == '+' ? 1 : 0);
    const auto [end, ec] = std::from_chars(begin, t.data() + t.size(), out);
    if (ec == std::errc::result_out_of_range) {
        // Too small is 0; too large is infinite, which the range check refuses.
        const bool tiny = t.find("e-") != std::string::npos || t.find("E-") != std::string::npos;
        const double huge = std::numeric_limits<double>::infinity();
        out = tiny ? 0.0 : t[0] == '-' ? -huge : huge;
        return true;
    }
    return ec == std::errc() && end == t.data() + t.size();
}

// What the user typed, before the variable's type is asked.
enum class Form { Bad, Null, Boolean, Whole, Decimal, Char, String };

struct Typed {
    Form form = Form::Bad;
    bool longSuffix = false;  // 5L
    bool floatSuffix = false; // 2.5f, 2.5d
    bool flag = false;
    int64_t whole = 0;
    bool wholeFits = true;
    double decimal = 0;
    bool special = false; // NaN, Infinity as typed
    uint32_t code = 0;
    std::string text;
};

Typed classify(const std::string& t)
{
    Typed v;
    if (t == "null") {
        v.form = Form::Null;
    } else if (t == "true" || t == "false") {
        v.form = Form::Boolean;
        v.flag = t == "true";
    } else if (!t.empty() && t[0] == '"') {
        if (parseStringLiteral(t, v.text))
            v.form = Form::String;
    } else if (!t.empty() && t[0] == '\'') {
        if (parseCharLiteral(t, v.code))
            v.form = Form::Char;
    } else if (!t.empty()) {
        std::string number = t;
        const char last = number.back();
        if (number.size() > 1 && (last == 'L' || last == 'l')) {
            number.pop_back();
            v.longSuffix = true;
        } else if (number.size() > 1 && (last == 'f' || last == 'F' || last == 'd' || last == 'D')) {
            number.pop_back();
            v.floatSuffix = true;
        }
        if (!v.floatSuffix && parseWhole(number, v.whole, v.wholeFits)) {
            v.form = Form::Whole;
        } else if (!v.longSuffix && parseDecimal(number, v.decimal, v.special)) {
            v.form = Form::Decimal;
        } else if (v.floatSuffix && parseWhole(number, v.whole, v.wholeFits)) {
            v.form = Form::Decimal;
            v.decimal = static_cast<double>(v.whole);
        }
    }
    return v;
}

const char* kForms = "a number, true, false, 'c', \"text\" or null";

// The JDWP error code of a reply. The socket framing reads its two bytes
// swapped (kept so); no JDWP code is above 0x1FF, so a larger one is put
// back in order here.
int32_t errorCode(const Msg& reply)
{
    const auto code = static_cast<int32_t>(reply->myErrorCode);
    return code > 0x1FF ? ((code & 0xFF) << 8) | ((code >> 8) & 0xFF) : code;
}

std::string errorWords(const Msg& reply)
{
    if (!reply)
        return "the VM did not answer";
    const int32_t code = errorCode(reply);
    switch (code) {
    case ERR_TYPE_MISMATCH:
        return "the VM refused: the value does not fit the variable's type";
    case ERR_INVALID_SLOT:
        return "the VM refused: the variable is not in scope at this point of the method";
    case ERR_INVALID_FRAMEID:
        return "the VM refused: the frame is gone (the thread ran on)";
    case ERR_OPAQUE_FRAME:
        return "the VM refused: the frame is a native one, its variables cannot be set";
    case ERR_THREAD_NOT_SUSPENDED:
        return "the VM refused: the thread is not suspended";
    case ERR_INVALID_THREAD:
    case ERR_THREAD_NOT_ALIVE:
        return "the VM refused: the thread is gone";
    case ERR_INVALID_OBJECT:
        return "the VM refused: the object is gone (collected)";
    case ERR_INVALID_FIELDID:
    case ERR_INVALID_CLASS:
        return "the VM refused: it does not know the field";
    case ERR_CLASS_NOT_PREPARED:
        return "the VM refused: the class is not prepared yet";
    case ERR_ACCESS_DENIED:
    case ERR_NOT_IMPLEMENTED:
        return "the VM refused: it does not allow this change";
    case ERR_VM_DEAD:
        return "the VM has ended";
    default:
        return "the VM refused it (JDWP error " + std::to_string(code) + ")";
    }
}

bool isFine(const Msg& reply)
{
    return reply && reply->myErrorCode == 0;
}

// Sets `what`, declared as `signature`, to valueText: the value is checked,
// then written (tagged for a local, untagged for a field) into the command
// that `build` makes. A string is made first and held until it is set: the
// VM may collect an object that nothing refers to whenever one of its
// threads runs, and a stop need not suspend them all.
template <typename Build>
std::string store(const std::string& what, const std::string& signature, const std::string& valueText, bool tagged,
                  Build build)
{
    JXValueLiteral literal;
    const std::string why = JXMachine::parseValueLiteral(signature, valueText, literal);
    if (!why.empty())
        return what + ": " + why;
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    const int width = handler->myJVM()->SIZE_ObjectID;
    double stringID = 0;
    if (literal.isString) {
        // Collected between its making and its holding: made once more.
        for (int attempt = 0; attempt < 2 && stringID == 0; ++attempt) {
            const Msg made = handler->sendSync(factory->createNewStringMessage(literal.text), kReplyWaitMs);
            if (!isFine(made))
                return what + ": the string was not made: " + errorWords(made);
            double id = 0;
            ReadNumber(made->myData, 1, id, width);
            const Msg held = handler->sendSync(factory->createDisableCollectionMessage(id), kReplyWaitMs);
            if (isFine(held))
                stringID = id;
            else if (!held || errorCode(held) != ERR_INVALID_OBJECT)
                return what + ": the string was not made: " + errorWords(held);
        }
        if (stringID == 0)
            return what + ": the string was collected before it could be set";
    }
    std::string value = tagged ? std::string(1, static_cast<char>(literal.tag)) : std::string();
    value += literal.tag == VAR_OBJECT || literal.tag == VAR_STRING || literal.tag == VAR_ARRAY
                 ? NumberToBytes(stringID, width)
                 : literal.bytes;
    const Msg reply = handler->sendSync(build(value), kReplyWaitMs);
    if (stringID != 0)
        handler->sendSync(factory->createEnableCollectionMessage(stringID), kReplyWaitMs);
    return isFine(reply) ? std::string() : what + ": " + errorWords(reply);
}

// The slot of `name` in scope at `codeIndex`: the exact name first, then
// one that differs in letter case only (as getValue finds locals). `named`
// tells whether the method has a variable of that name at all.
const JDWPJVariableTableSlot* slotInScope(const JDWPJVariableTable& table, const std::string& name, double codeIndex,
                                          bool& named)
{
    named = false;
    auto lower = [](std::string s) {
        for (char& c : s)
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c - 'A' + 'a');
        return s;
    };
    for (int pass = 0; pass < 2; ++pass) {
        for (const auto& slot : table.Slot) {
            if (pass == 0 ? slot.vt_name != name : lower(slot.vt_name) != lower(name))
                continue;
            named = true;
            if (codeIndex >= slot.vt_codeIndex && codeIndex < slot.vt_codeIndex + slot.vt_length)
                return &slot;
        }
        if (named)
            return nullptr;
    }
    return nullptr;
}

// A field of `start` or of one of its superclasses, the nearest first.
std::shared_ptr<JXField> findField(const std::shared_ptr<JXClass>& start, const std::string& name,
                                   std::shared_ptr<JXClass>& owner)
{
    for (auto c = start; c; c = c->SuperClass()) {
        if (auto f = c->JField(name)) {
            owner = c;
            return f;
        }
    }
    return nullptr;
}

std::vector<std::string> splitPath(const std::string& path)
{
    std::vector<std::string> out;
    for (size_t start = 0;;) {
        const size_t dot = path.find('.', start);
        out.push_back(trimmed(path.substr(start, dot == std::string::npos ? std::string::npos : dot - start)));
        if (dot == std::string::npos)
            return out;
        start = dot + 1;
    }
}

} // namespace

std::string JXMachine::parseValueLiteral(const std::string& signature, const std::string& valueText,
                                         JXValueLiteral& out)
{
    const std::string t = trimmed(valueText);
    if (t.empty())
        return std::string("no value given (") + kForms + ")";
    const Typed v = classify(t);
    if (v.form == Form::Bad)
        return t + " is not a value (" + kForms + ")";
    if (signature.empty())
        return "the variable's type is not known";
    const std::string type = withArticle(javaType(signature));
    JXValueLiteral result;
    result.tag = static_cast<JDWPJVarEnum>(static_cast<unsigned char>(signature[0]));
    const char kind = signature[0];
    switch (kind) {
    case 'Z':
        if (v.form != Form::Boolean)
            return type + " takes true or false, not " + t;
        result.bytes = BitsToBytes(v.flag ? 1 : 0, 1);
        break;
    case 'B':
    case 'S':
    case 'I':
    case 'J': {
        const int width = kind == 'B' ? 1 : kind == 'S' ? 2 : kind == 'I' ? 4 : 8;
        const int64_t max = width == 8 ? std::numeric_limits<int64_t>::max() : (int64_t{1} << (8 * width - 1)) - 1;
        const int64_t min = -max - 1;
        // A char widens to int and long, as in Java.
        const bool charWidens = v.form == Form::Char && width >= 4;
        const bool whole = v.form == Form::Whole && (!v.longSuffix || kind == 'J');
        if ((!whole && !charWidens) || (whole && (!v.wholeFits || v.whole < min || v.whole > max)))
            return type + " takes a whole number from " + std::to_string(min) + " to " + std::to_string(max) +
                   ", not " + t;
        result.bytes = BitsToBytes(static_cast<uint64_t>(charWidens ? static_cast<int64_t>(v.code) : v.whole), width);
        break;
    }
    case 'C':
        if (v.form == Form::Char) {
            result.bytes = BitsToBytes(v.code, 2);
        } else if (v.form == Form::Whole && !v.longSuffix && v.wholeFits && v.whole >= 0 && v.whole <= 0xFFFF) {
            result.bytes = BitsToBytes(static_cast<uint64_t>(v.whole), 2);
        } else {
            return type + " takes a character ('c', '\\n', '\\u00e9') or a number from 0 to 65535, not " + t;
        }
        break;
    case 'F':
    case 'D': {
        double number = 0;
        if (v.form == Form::Decimal)
            number = v.decimal;
        else if (v.form == Form::Whole && v.wholeFits)
            number = static_cast<double>(v.whole);
        else if (v.form == Form::Char)
            number = v.code;
        else
            return type + " takes a number (2.5, -1e3, NaN, Infinity), not " + t;
        // A float takes what rounds to a finite float (3.4028235E38 is its
        // largest as Java prints it, a little above FLT_MAX).
        const bool tooLarge = kind == 'F' ? std::fabs(number) >= 0x1.ffffffp+127 : !std::isfinite(number);
        if (std::isfinite(number) ? tooLarge : !v.special)
            return type + " takes a number of at most " + (kind == 'F' ? "3.4028235E38" : "1.7976931348623157E308") +
                   " in size, not " + t;
        cIEEE ieee;
        result.bytes = kind == 'F' ? ieee.Ieee32vtos(number) : ieee.Ieee64vtos(number);
        break;
    }
    case 'L':
    case '[':
        if (v.form == Form::Null) {
            result.tag = signature == "Ljava/lang/String;" ? VAR_STRING : kind == '[' ? VAR_ARRAY : VAR_OBJECT;
        } else if (v.form == Form::String && takesString(signature)) {
            result.tag = VAR_STRING;
            result.isString = true;
            result.text = v.text;
        } else {
            return type + (takesString(signature) ? " takes \"text\" or null, not " : " takes only null here, not ") +
                   t;
        }
        break;
    default:
        return "a value of type " + signature + " cannot be set";
    }
    out = result;
    return std::string();
}

std::string JXMachine::setLocalValue(double threadID, const JDWPJFrame& frame, const std::string& name,
                                     const std::string& valueText)
{
    const JDWPJLocation& at = frame.FrameLocation;
    auto cls = getClassByID(at.ClassID, true);
    auto method = cls ? cls->JMethodID(at.MethodID) : nullptr;
    if (!method)
        return name + ": the frame's method is not known";
    if (name == "this")
        return "this cannot be set";
    const JDWPJVariableTable& table = method->variableTable();
    if (table.Slot.empty())
        return name + ": " + method->MethodName + " has no local variable information (compiled without -g?)";
    bool named = false;
    const JDWPJVariableTableSlot* slot = slotInScope(table, name, at.Index, named);
    if (!slot)
        return name + (named ? " is not in scope at this point of " : " is not a local variable of ") +
               method->MethodName;
    const JDWPJVariableTableSlot chosen = *slot; // the table may be read again while the value is sent
    auto factory = getCurrentHandler()->myFactory();
    return store(chosen.vt_name, chosen.vt_signature, valueText, true, [&](const std::string& value) {
        return factory->createSetLocalValueMessage(threadID, frame.FrameID, chosen.vt_slot, value);
    });
}

std::string JXMachine::setFieldValue(double ObjectID, double ClassID, const std::string& name,
                                     const std::string& valueText)
{
    std::shared_ptr<JXClass> start = ClassID != 0    ? getClassByID(ClassID, true)
                                     : ObjectID != 0 ? getClassByObjectID(ObjectID)
                                                     : nullptr;
    std::shared_ptr<JXClass> owner;
    const std::shared_ptr<JXField> field = findField(start, name, owner);
    if (!field)
        return name + (start ? " is not a field of " + javaType("L" + start->ClassName() + ";") : " has no class here");
    if (std::isfinite(field->FieldBits) && (static_cast<int64_t>(field->FieldBits) & kFinalBit) != 0)
        return field->FieldName +
               " is final: the program may use a copy of its value, so a new one would not be seen everywhere";
    auto factory = getCurrentHandler()->myFactory();
    if (field->isStatic()) {
        const double classID = owner->ClassID;
        return store(field->FieldName, field->FieldSignature, valueText, false, [&](const std::string& value) {
            return factory->createSetStaticFieldValueMessage(classID, field->FieldID, value);
        });
    }
    if (ObjectID == 0)
        return field->FieldName + " belongs to each object of " + javaType("L" + owner->ClassName() + ";") +
               ": name one (object." + field->FieldName + ")";
    return store(field->FieldName, field->FieldSignature, valueText, false, [&](const std::string& value) {
        return factory->createSetFieldValueMessage(ObjectID, field->FieldID, value);
    });
}

std::string JXMachine::setValue(const std::string& TargetVar, const std::string& valueText,
                                const std::string& PossibleStaticClass)
{
    // Nothing is asked of the VM for a text that is no value at all.
    JXValueLiteral probe;
    const std::string t = trimmed(valueText);
    if (t.empty() || classify(t).form == Form::Bad)
        return parseValueLiteral("I", valueText, probe);
    if (myEvaluating)
        return "an evaluation is under way";
    if (myState != VMSuspend)
        return "the VM is not suspended";
    // Resolving the path may run the program's getters, as getValue does.
    std::string why;
    underEvaluationGuards([&] { why = setResolved(TargetVar, valueText, PossibleStaticClass); });
    return why;
}

std::string JXMachine::setResolved(const std::string& TargetVar, const std::string& valueText,
                                   const std::string& PossibleStaticClass)
{
    const std::vector<std::string> names = splitPath(TargetVar);
    for (const auto& n : names)
        if (n.empty())
            return "'" + TargetVar + "' is not a variable name";
    const std::string& last = names.back();
    auto handler = getCurrentHandler();
    std::shared_ptr<JXClass> currentClass = getClassByID(myCurrentClassID, true);
    std::shared_ptr<JXMethod> currentMethod = currentClass ? currentClass->JMethodID(myCurrentMethodID) : nullptr;
    if (!currentMethod)
        return "no current stop (stop at a breakpoint first)";

    if (names.size() == 1) {
        // "in CLASS" asks for that class's static, even where a local or a
        // field of the same name would be found first.
        std::shared_ptr<JXClass> owner;
        if (!PossibleStaticClass.empty()) {
            auto named = getClassByName(PossibleStaticClass, true);
            if (findField(named, last, owner))
                return setFieldValue(0, named->ClassID, last, valueText);
        }
        // A local of the thread's top frame, read afresh: its id and code
        // index say where the thread is now.
        auto frames =
            handler->sendSync(handler->myFactory()->createGetFrameMessage(myCurrentThreadID, 0, 1), kReplyWaitMs);
        if (isFine(frames) && !frames->myDataContainer()->requestFrame().empty()) {
            const JDWPJFrame top = frames->myDataContainer()->requestFrame().front();
            auto cls = getClassByID(top.FrameLocation.ClassID, true);
            auto method = cls ? cls->JMethodID(top.FrameLocation.MethodID) : nullptr;
            bool named = false;
            if (method && slotInScope(method->variableTable(), last, top.FrameLocation.Index, named))
                return setLocalValue(myCurrentThreadID, top, last, valueText);
        }
        if (!myFrameValid)
            refreshFrameID();
        // A field of this (its class and superclasses), a static of the
        // current class.
        const double self = thisObjectID();
        if (self != 0 && findField(getClassByObjectID(self), last, owner))
            return setFieldValue(self, 0, last, valueText);
        if (findField(currentClass, last, owner))
            return setFieldValue(0, currentClass->ClassID, last, valueText);
        return last + " is not a local, a field of this or a static here";
    }

    // A path: the object that its names before the last one lead to.
    if (!myFrameValid)
        refreshFrameID();
    double objectID = 0;
    std::string path;
    bool resolved = true;
    for (size_t i = 0; i + 1 < names.size(); ++i) {
        path += (path.empty() ? "" : ".") + names[i];
        std::shared_ptr<JXClass> cls = currentClass;
        JDWPJVarValue r = evaluateElement(names[i], objectID, currentMethod, cls, PossibleStaticClass);
        if (!r.Found) {
            resolved = false;
            break;
        }
        if (r.VarType != VAR_OBJECT)
            return path + " is not an object";
        if (!(r.RefID > 0))
            return path + " is null";
        objectID = r.RefID;
    }
    if (resolved)
        return setFieldValue(objectID, 0, last, valueText);
    // Class.field: the names before the last one as a class name.
    std::string className;
    for (size_t i = 0; i + 1 < names.size(); ++i)
        className += (i ? "/" : "") + names[i];
    if (auto cls = getClassByName(className, true))
        return setFieldValue(0, cls->ClassID, last, valueText);
    return path + " is not available here";
}

} // namespace jdwpkrvdbg
