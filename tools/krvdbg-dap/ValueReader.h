// Reads what the variables view shows, through the library's model and its
// bulk reads: a frame's visible locals (and `this`) in one StackFrame
// GetValues, an object's fields in one ObjectReference GetValues (the field
// lists come once per class from the model's cache), a class's statics in
// one ReferenceType GetValues, a run of array elements in one ArrayReference
// GetValues. Values become DAP variables: primitives and strings as text,
// objects and arrays expandable through a number from the VariableStore.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <jdwpkrvdbg/protocol/JDWPStructs.h>

#include "VariableStore.h"

namespace krvdbg {

struct DapVariable {
    std::string name;
    std::string value;
    std::string type;
    int64_t reference = 0; // variablesReference (0: nothing to expand)
    int64_t indexed = 0;   // array elements
    int64_t named = 0;
};

class ValueReader {
public:
    explicit ValueReader(VariableStore& store) : store_(store) {}

    // The locals visible at the frame, `this` first; false with `error` set
    // when the frame has no local variable information or its read failed.
    bool locals(const FrameRef& frame, int64_t frameHandle, std::vector<DapVariable>& out, std::string& error);
    std::vector<DapVariable> statics(double classID);
    std::vector<DapVariable> fields(double objectID);
    std::vector<DapVariable> elements(double arrayID, int64_t start, int64_t count);
    int64_t arrayLength(double arrayID);

    // A dotted path (a.b.c, with [n] for array elements) over the frame's
    // locals, `this`, its fields and the class's statics; nullopt when an
    // element of the path is not found (`error` says which).
    std::optional<DapVariable> evaluate(const FrameRef& frame, const std::string& expression, std::string& error);

    // The DAP view of one value; `declared` is the declared signature.
    DapVariable describe(const std::string& name, const jdwpkrvdbg::JDWPJVarValue& value, const std::string& declared);

    // pkg.Name / int / pkg.Name[] from a signature or internal name.
    static std::string typeName(const std::string& signature);
    // Java text for a char code unit: 'A', '\n', '\u00e9'.
    static std::string charText(uint32_t code);
    // A string value as Java would write it in quotes.
    static std::string quoted(const std::string& utf8);

private:
    struct Named {
        std::string name;
        jdwpkrvdbg::JDWPJVarValue value;
        std::string signature;
    };
    std::vector<Named> readLocals(const FrameRef& frame, std::string& error, bool& haveTable);
    std::vector<Named> readFields(double objectID);
    // The views of a batch of values: the strings' texts and the arrays'
    // lengths they need are asked for at once, then each is described.
    std::vector<DapVariable> describeAll(const std::vector<Named>& values);
    VariableStore& store_;
    // Answers fetched for the batch being described (a string's text and an
    // array's length never change, but an id may name another object once
    // its object is gone: they are kept for one batch only).
    std::unordered_map<double, std::string> texts_;
    std::unordered_map<double, int64_t> lengths_;
};

} // namespace krvdbg
