// The variables view's reads (see ValueReader.h).
#include "ValueReader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string_view>
#include <unordered_set>

#include <jdwpkrvdbg/model/JXClass.h>
#include <jdwpkrvdbg/model/JXField.h>
#include <jdwpkrvdbg/model/JXMachine.h>
#include <jdwpkrvdbg/model/JXMethod.h>
#include <jdwpkrvdbg/protocol/ByteStrings.h>
#include <jdwpkrvdbg/protocol/JDWPMessage.h>
#include <jdwpkrvdbg/protocol/JDWPMessageData.h>
#include <jdwpkrvdbg/protocol/JDWPMessageFactory.h>
#include <jdwpkrvdbg/session/JDWPHandler.h>
#include <jdwpkrvdbg/session/modMain.h>

namespace krvdbg {

using namespace jdwpkrvdbg;

namespace {

constexpr int32_t kWaitMs = 4000;

std::shared_ptr<JDWPMessage> ask(const std::shared_ptr<JDWPMessage>& request)
{
    auto reply = getCurrentHandler()->sendSync(request, kWaitMs);
    return reply && reply->myErrorCode == 0 && reply->hasDataContainer() ? reply : nullptr;
}

JDWPJVarValue objectValue(JDWPJVarEnum tag, double id)
{
    JDWPJVarValue v;
    v.VarType = tag;
    v.RefID = id;
    v.Found = true;
    return v;
}

bool isObjectTag(int32_t tag)
{
    return tag == VAR_OBJECT || tag == VAR_ARRAY || tag == VAR_STRING || tag == VAR_THREAD || tag == VAR_THREADGROUP ||
           tag == VAR_CLASSLOADER || tag == VAR_CLASSOBJECT;
}

// An array of a primitive type ([I, [[J) cannot be subclassed: a value
// declared as one is of exactly that type, and the VM need not be asked.
bool isExactArrayType(const std::string& signature)
{
    const size_t element = signature.find_first_not_of('[');
    return element > 0 && element + 1 == signature.size() &&
           std::string_view("ZBCSIJFD").find(signature[element]) != std::string_view::npos;
}

std::string idText(double id)
{
    return std::to_string(static_cast<int64_t>(std::llround(id)));
}

// The instance (or static) fields of a class and its superclasses, the
// class's own first.
std::vector<std::shared_ptr<JXField>> fieldsOf(const std::shared_ptr<JXClass>& cls, bool wantStatic, bool inherited)
{
    std::vector<std::shared_ptr<JXField>> out;
    auto c = cls;
    for (int depth = 0; c && depth < 64; ++depth) {
        for (const auto& f : c->fields())
            if (f && f->isStatic() == wantStatic)
                out.push_back(f);
        if (!inherited)
            break;
        c = c->SuperClass();
    }
    return out;
}

// The instance or static fields of a class (as fieldsOf gives them) and
// their values in one bulk read, one per field; a value the VM did not give
// (no reply, a short one) is left unfound. Nothing for a class not known.
struct FieldValues {
    std::vector<std::shared_ptr<JXField>> fields;
    std::vector<JDWPJVarValue> values;
};

FieldValues readFieldValues(const std::shared_ptr<JXClass>& cls, bool wantStatic, bool inherited,
                            const std::function<std::shared_ptr<JDWPMessage>(const std::vector<double>& ids)>& request)
{
    FieldValues out;
    if (!cls)
        return out;
    out.fields = fieldsOf(cls, wantStatic, inherited);
    if (out.fields.empty())
        return out;
    std::vector<double> ids;
    ids.reserve(out.fields.size());
    for (const auto& f : out.fields)
        ids.push_back(f->FieldID);
    if (auto reply = ask(request(ids)))
        out.values = reply->myDataContainer()->requestVar();
    out.values.resize(out.fields.size());
    return out;
}

} // namespace

std::string ValueReader::typeName(const std::string& signature)
{
    if (signature.empty())
        return {};
    switch (signature[0]) {
    case 'Z':
        return "boolean";
    case 'B':
        return "byte";
    case 'C':
        return "char";
    case 'S':
        return "short";
    case 'I':
        return "int";
    case 'J':
        return "long";
    case 'F':
        return "float";
    case 'D':
        return "double";
    case 'V':
        return "void";
    case '[':
        return typeName(signature.substr(1)) + "[]";
    case 'L':
        if (signature.back() == ';') {
            std::string s = signature.substr(1, signature.size() - 2);
            std::replace(s.begin(), s.end(), '/', '.');
            return s;
        }
        break;
    default:
        break;
    }
    std::string s = signature;
    std::replace(s.begin(), s.end(), '/', '.');
    return s;
}

std::string ValueReader::charText(uint32_t code)
{
    switch (code) {
    case '\n':
        return "'\\n'";
    case '\r':
        return "'\\r'";
    case '\t':
        return "'\\t'";
    case '\'':
        return "'\\''";
    case '\\':
        return "'\\\\'";
    case 0:
        return "'\\u0000'";
    default:
        break;
    }
    if (code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0xD800 && code < 0xE000)) {
        char buf[16];
        std::snprintf(buf, sizeof buf, "'\\u%04x'", code);
        return buf;
    }
    std::string out = "'";
    AppendUtf8(out, code);
    return out + "'";
}

std::string ValueReader::quoted(const std::string& utf8)
{
    std::string out = "\"";
    for (char c : utf8) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            out += c;
            break;
        }
    }
    return out + "\"";
}

int64_t ValueReader::arrayLength(double arrayID)
{
    if (auto known = lengths_.find(arrayID); known != lengths_.end())
        return known->second;
    auto reply = ask(getCurrentHandler()->myFactory()->createGetArrayLengthMessage(arrayID));
    return reply ? static_cast<int64_t>(reply->myDataContainer()->RequestArrayLength) : 0;
}

DapVariable ValueReader::describe(const std::string& name, const JDWPJVarValue& value, const std::string& declared)
{
    DapVariable v;
    v.name = name;
    v.type = typeName(declared);
    const int32_t tag = static_cast<int32_t>(value.VarType);
    if (!value.Found && value.VarValue.empty()) {
        v.value = "(not available)";
        return v;
    }
    if (!isObjectTag(tag)) {
        if (tag == VAR_CHAR)
            v.value = charText(static_cast<uint32_t>(value.RefID));
        else
            v.value = value.VarValue;
        if (v.type.empty())
            v.type = typeName(std::string(1, static_cast<char>(tag)));
        return v;
    }
    if (!(value.RefID > 0)) {
        v.value = "null";
        return v;
    }
    auto handler = getCurrentHandler();
    auto jvm = handler->myJVM();
    if (tag == VAR_STRING) {
        if (auto known = texts_.find(value.RefID); known != texts_.end()) {
            v.value = quoted(known->second);
        } else {
            auto reply = ask(handler->myFactory()->createGetUTF8StringMessage(value.RefID));
            v.value = reply ? quoted(reply->myDataContainer()->RequestUTF8String) : "(string not readable)";
        }
        v.type = "java.lang.String";
        return v;
    }
    const bool exact = tag == VAR_ARRAY && isExactArrayType(declared);
    auto cls = exact ? nullptr : jvm->getClassByObjectID(value.RefID);
    if (cls)
        cls->refreshSignature(true);
    const std::string signature = exact ? declared : cls ? cls->ClassSignature : std::string();
    if (!signature.empty())
        v.type = typeName(signature);
    if (tag == VAR_ARRAY || (!signature.empty() && signature[0] == '[')) {
        const int64_t length = arrayLength(value.RefID);
        std::string element = v.type.size() > 2 ? v.type.substr(0, v.type.size() - 2) : v.type;
        // int[][] of length 3 reads int[3][].
        const size_t bracket = element.find('[');
        const std::string head = bracket == std::string::npos ? element : element.substr(0, bracket);
        const std::string tail = bracket == std::string::npos ? std::string() : element.substr(bracket);
        v.value = head + "[" + std::to_string(length) + "]" + tail + " (id=" + idText(value.RefID) + ")";
        v.indexed = length;
        if (length > 0)
            v.reference = store_.addContainer({Container::Kind::Array, 0, value.RefID, signature});
        return v;
    }
    // The simple name: the package is cut at its last '/', so a hidden
    // class's suffix (pkg/Main$$Lambda$1.0x...) stays with its name.
    const std::string internal = cls ? cls->ClassName() : std::string("Object");
    v.value = internal.substr(internal.rfind('/') + 1) + " (id=" + idText(value.RefID) + ")";
    v.reference = store_.addContainer({Container::Kind::Object, 0, value.RefID, {}});
    return v;
}

std::vector<DapVariable> ValueReader::describeAll(const std::vector<Named>& values)
{
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    std::vector<std::shared_ptr<JDWPMessage>> asks;
    std::vector<std::pair<bool, double>> what; // (a string, its id) or (an array, its id)
    std::unordered_set<double> asked;          // once however often it occurs
    for (const auto& n : values) {
        const int32_t tag = static_cast<int32_t>(n.value.VarType);
        if (!(n.value.RefID > 0) || (!n.value.Found && n.value.VarValue.empty()) || !asked.insert(n.value.RefID).second)
            continue;
        if (tag == VAR_STRING) {
            asks.push_back(factory->createGetUTF8StringMessage(n.value.RefID));
            what.emplace_back(true, n.value.RefID);
        } else if (tag == VAR_ARRAY) {
            asks.push_back(factory->createGetArrayLengthMessage(n.value.RefID));
            what.emplace_back(false, n.value.RefID);
        }
    }
    texts_.clear();
    lengths_.clear();
    // A single one goes the ordinary way, in describe.
    const auto replies = asks.size() > 1 ? handler->sendAllSync(asks, kWaitMs) : decltype(asks)();
    for (size_t i = 0; i < replies.size(); ++i) {
        const auto& r = replies[i];
        if (!r || r->myErrorCode != 0 || !r->hasDataContainer())
            continue; // described the slow way, which says what went wrong
        if (what[i].first)
            texts_[what[i].second] = r->myDataContainer()->RequestUTF8String;
        else
            lengths_[what[i].second] = static_cast<int64_t>(r->myDataContainer()->RequestArrayLength);
    }
    std::vector<DapVariable> out;
    out.reserve(values.size());
    for (const auto& n : values)
        out.push_back(describe(n.name, n.value, n.signature));
    texts_.clear();
    lengths_.clear();
    return out;
}

std::vector<ValueReader::Named> ValueReader::readLocals(const FrameRef& frame, std::string& error, bool& haveTable)
{
    std::vector<Named> out;
    haveTable = false;
    auto jvm = getCurrentHandler()->myJVM();
    auto cls = jvm->getClassByID(frame.classID, true);
    auto method = cls ? cls->JMethodID(frame.methodID) : nullptr;
    if (!method) {
        error = "the frame's method is not known";
        return out;
    }
    const JDWPJVariableTable& table = method->variableTable();
    std::vector<const JDWPJVariableTableSlot*> visible;
    for (const auto& slot : table.Slot)
        if (frame.codeIndex >= slot.vt_codeIndex && frame.codeIndex < slot.vt_codeIndex + slot.vt_length)
            visible.push_back(&slot);
    haveTable = !table.Slot.empty() || table.argCnt == 0;
    if (table.Slot.empty() && table.argCnt > 0)
        error = "no local variable information (the class was compiled without -g)";
    std::stable_sort(visible.begin(), visible.end(),
                     [](const auto* a, const auto* b) { return a->vt_slot < b->vt_slot; });
    auto handler = getCurrentHandler();
    const bool thisInTable =
        std::any_of(visible.begin(), visible.end(), [](const auto* s) { return s->vt_name == "this"; });
    if (!method->isStatic() && !thisInTable) {
        auto self = ask(handler->myFactory()->createGetThisMessage(frame.threadID, frame.frameID));
        if (self && self->myDataContainer()->RequestObjectID > 0)
            out.push_back({"this", objectValue(VAR_OBJECT, self->myDataContainer()->RequestObjectID),
                           "L" + cls->ClassName() + ";"});
    }
    if (visible.empty())
        return out;
    std::vector<std::pair<double, std::string>> slots;
    for (const auto* s : visible)
        slots.emplace_back(s->vt_slot, s->vt_signature);
    auto reply = ask(handler->myFactory()->createGetValues(frame.threadID, frame.frameID, slots));
    const std::vector<JDWPJVarValue> none;
    const auto& values = reply ? reply->myDataContainer()->requestVar() : none;
    if (!reply)
        error = "the VM did not give the frame's values (is the thread still suspended?)";
    for (size_t i = 0; i < visible.size(); ++i)
        out.push_back({visible[i]->vt_name, i < values.size() ? values[i] : JDWPJVarValue(), visible[i]->vt_signature});
    return out;
}

bool ValueReader::locals(const FrameRef& frame, int64_t, std::vector<DapVariable>& out, std::string& error)
{
    bool haveTable = false;
    for (auto& v : describeAll(readLocals(frame, error, haveTable)))
        out.push_back(std::move(v));
    return error.empty() || !out.empty();
}

std::vector<ValueReader::Named> ValueReader::readFields(double objectID)
{
    std::vector<Named> out;
    auto jvm = getCurrentHandler()->myJVM();
    const auto [fields, values] =
        readFieldValues(jvm->getClassByObjectID(objectID), false, true, [objectID](const std::vector<double>& ids) {
            return getCurrentHandler()->myFactory()->createGetFieldValuesMessage(objectID, ids);
        });
    // The names point into `fields`, which outlives the set.
    std::unordered_set<std::string_view> seen;
    seen.reserve(fields.size());
    out.reserve(fields.size());
    for (size_t i = 0; i < fields.size(); ++i) {
        std::string name = fields[i]->FieldName;
        // A field hidden by one of the same name lower down is named with its class.
        if (!seen.insert(fields[i]->FieldName).second) {
            auto owner = jvm->getClassByID(fields[i]->ClassID);
            // typeName takes a signature: an internal name such as "Dial"
            // would read as a primitive's letter ("double").
            name += " (" + (owner ? typeName("L" + owner->ClassName() + ";") : std::string("super")) + ")";
        }
        out.push_back({name, values[i], fields[i]->FieldSignature});
    }
    return out;
}

std::vector<DapVariable> ValueReader::fields(double objectID)
{
    return describeAll(readFields(objectID));
}

std::vector<DapVariable> ValueReader::statics(double classID)
{
    auto cls = getCurrentHandler()->myJVM()->getClassByID(classID, true);
    const auto [fields, values] = readFieldValues(cls, true, false, [classID](const std::vector<double>& ids) {
        return getCurrentHandler()->myFactory()->createGetStaticFieldValuesMessage(classID, ids);
    });
    std::vector<Named> named;
    named.reserve(fields.size());
    for (size_t i = 0; i < fields.size(); ++i)
        named.push_back({fields[i]->FieldName, values[i], fields[i]->FieldSignature});
    return describeAll(named);
}

std::vector<DapVariable> ValueReader::elements(double arrayID, int64_t start, int64_t count)
{
    std::vector<DapVariable> out;
    const int64_t length = arrayLength(arrayID);
    start = std::clamp<int64_t>(start, 0, length);
    if (count <= 0 || start + count > length)
        count = length - start;
    if (count <= 0)
        return out;
    auto reply = ask(getCurrentHandler()->myFactory()->createGetArrayValuesMessage(arrayID, static_cast<double>(start),
                                                                                   static_cast<double>(count)));
    if (!reply)
        return out;
    const auto& values = reply->myDataContainer()->requestVar();
    std::vector<Named> named;
    named.reserve(values.size());
    for (size_t i = 0; i < values.size(); ++i)
        named.push_back({"[" + std::to_string(start + static_cast<int64_t>(i)) + "]", values[i], {}});
    return describeAll(named);
}

std::optional<DapVariable> ValueReader::evaluate(const FrameRef& frame, const std::string& expression,
                                                 std::string& error)
{
    // Split a.b[2].c into names and indexes.
    struct Step {
        std::string name;
        int64_t index = -1;
    };
    std::vector<Step> steps;
    std::string word;
    auto flush = [&] {
        if (!word.empty())
            steps.push_back({word, -1});
        word.clear();
    };
    for (size_t i = 0; i < expression.size(); ++i) {
        const char c = expression[i];
        if (c == '.') {
            flush();
        } else if (c == '[') {
            flush();
            const size_t close = expression.find(']', i);
            if (close == std::string::npos) {
                error = "a '[' without its ']'";
                return std::nullopt;
            }
            const std::string digits = expression.substr(i + 1, close - i - 1);
            if (digits.empty() || !std::all_of(digits.begin(), digits.end(), ::isdigit)) {
                error = "an array index must be a number";
                return std::nullopt;
            }
            steps.push_back({{}, std::stoll(digits)});
            i = close;
        } else if (c != ' ') {
            word += c;
        }
    }
    flush();
    if (steps.empty() || steps.front().index >= 0) {
        error = "nothing to evaluate";
        return std::nullopt;
    }

    Named current;
    bool haveTable = false;
    std::string ignored;
    const auto locals = readLocals(frame, ignored, haveTable);
    bool found = false;
    for (const auto& n : locals)
        if (n.name == steps.front().name) {
            current = n;
            found = true;
        }
    auto jvm = getCurrentHandler()->myJVM();
    if (!found) {
        // A field of `this`, then a static of the frame's class.
        for (const auto& n : locals)
            if (n.name == "this")
                for (const auto& f : readFields(n.value.RefID))
                    if (!found && f.name == steps.front().name) {
                        current = f;
                        found = true;
                    }
    }
    if (!found) {
        auto cls = jvm->getClassByID(frame.classID, true);
        if (cls) {
            for (const auto& f : fieldsOf(cls, true, true))
                if (f->FieldName == steps.front().name) {
                    auto reply = ask(getCurrentHandler()->myFactory()->createGetStaticFieldValuesMessage(
                        f->ClassID > 0 ? f->ClassID : frame.classID, {f->FieldID}));
                    if (reply && !reply->myDataContainer()->requestVar().empty()) {
                        current = {f->FieldName, reply->myDataContainer()->requestVar()[0], f->FieldSignature};
                        found = true;
                    }
                    break;
                }
        }
    }
    if (!found) {
        error = steps.front().name + " is not a local, a field of this or a static of the class here";
        return std::nullopt;
    }
    std::string path = steps.front().name;
    for (size_t i = 1; i < steps.size(); ++i) {
        const Step& s = steps[i];
        const int32_t tag = static_cast<int32_t>(current.value.VarType);
        if (!isObjectTag(tag) || !(current.value.RefID > 0)) {
            error = path + (isObjectTag(tag) ? " is null" : " is not an object");
            return std::nullopt;
        }
        if (s.index >= 0) {
            const int64_t length = arrayLength(current.value.RefID);
            if (s.index >= length) {
                error = path + " has " + std::to_string(length) + " elements, no [" + std::to_string(s.index) + "]";
                return std::nullopt;
            }
            auto reply = ask(getCurrentHandler()->myFactory()->createGetArrayValuesMessage(
                current.value.RefID, static_cast<double>(s.index), 1));
            if (!reply || reply->myDataContainer()->requestVar().empty()) {
                error = path + " is not an array";
                return std::nullopt;
            }
            path += "[" + std::to_string(s.index) + "]";
            const std::string element = current.signature.size() > 1 && current.signature[0] == '['
                                            ? current.signature.substr(1)
                                            : std::string();
            current = {path, reply->myDataContainer()->requestVar()[0], element};
            continue;
        }
        if (s.name == "length" && tag == VAR_ARRAY) {
            JDWPJVarValue n;
            n.VarType = VAR_INT;
            n.Found = true;
            n.VarValue = std::to_string(arrayLength(current.value.RefID));
            path += ".length";
            current = {path, n, "I"};
            continue;
        }
        bool next = false;
        for (const auto& f : readFields(current.value.RefID))
            if (f.name == s.name) {
                current = f;
                next = true;
                break;
            }
        if (!next) {
            error = path + " has no field " + s.name;
            return std::nullopt;
        }
        path += "." + s.name;
    }
    return describe(expression, current.value, current.signature);
}

} // namespace krvdbg
