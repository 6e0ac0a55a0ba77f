// One field of a debuggee class, as the VM reported it.
#pragma once

#include <string>

namespace jdwpkrvdbg {

class JXField {
public:
    double FieldID = 0;
    std::string FieldName;
    std::string FieldSignature;
    double FieldBits = 0; // JDWP modifier bits
    double ClassID = 0;

    bool isStatic() const;
};

} // namespace jdwpkrvdbg
