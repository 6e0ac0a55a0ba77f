// One method of a debuggee class with its line table and variable table,
// each fetched from the VM on first use (an empty answer is asked again on
// the next use).
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"

namespace jdwpkrvdbg {

class JXClass;

class JXMethod {
public:
    double MethodID = 0;
    std::string MethodName;
    std::string MethodSignature;
    std::string MethodJNIName; // the generic signature
    double MethodBits = 0;     // JDWP modifier bits
    double ClassID = 0;        // owning class

    bool isStatic() const;
    // Native code has no lines and no variables; its frames are at code
    // index -1.
    bool isNative() const;
    std::shared_ptr<JXClass> OwnerClass() const;

    bool SetLineTable(const JDWPJLineTable& refTable);
    bool SetVariableTable(const JDWPJVariableTable& refTable);

    // Code index -> source line; an index after the last entry maps to
    // nothing (retLine is then unchanged and the answer is false).
    bool LocationToSrcLine(const JDWPJLocation& RefLocation, double& retLine);
    // Source line -> location of the first entry with exactly that line.
    bool SrcLineToLocation(double LineNr, JDWPJLocation& ret);
    // The variable-table slot of the named variable (empty vt_name if none).
    JDWPJVariableTableSlot getVarSlot(const std::string& VarName);

    // The line table as the reply gave it (code index, line), loaded on use.
    const std::vector<std::pair<double, double>>& lineTable();
    const JDWPJVariableTable& variableTable();

private:
    bool lineTableLoaded();
    bool variableTableLoaded();

    bool bVariableTableLoaded_ = false;
    JDWPJVariableTable myVariableTable_;
    bool bLineTableLoaded_ = false;
    std::vector<std::pair<double, double>> myLines_;
};

} // namespace jdwpkrvdbg
