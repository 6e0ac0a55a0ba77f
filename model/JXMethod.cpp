// JXMethod (stub).
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/model/JXClass.h"

namespace jdwpkrvdbg {
bool JXMethod::isStatic() const { return {}; }
std::shared_ptr<JXClass> JXMethod::OwnerClass() const { return {}; }
bool JXMethod::SetLineTable(const JDWPJLineTable& refTable) { return {}; }
bool JXMethod::SetVariableTable(const JDWPJVariableTable& refTable) { return {}; }
bool JXMethod::LocationToSrcLine(const JDWPJLocation& RefLocation, double& retLine) { return {}; }
bool JXMethod::SrcLineToLocation(double LineNr, JDWPJLocation& ret) { return {}; }
JDWPJVariableTableSlot JXMethod::getVarSlot(const std::string& VarName) { return {}; }
bool JXMethod::lineTableLoaded() { return {}; }
bool JXMethod::variableTableLoaded() { return {}; }
const std::vector<std::pair<double, double>>& JXMethod::lineTable() { return myLines_; }
const JDWPJVariableTable& JXMethod::variableTable() { return myVariableTable_; }
} // namespace jdwpkrvdbg
