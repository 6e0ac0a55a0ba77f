// A method of a debuggee class: its line table (code index <-> source line)
// and its variable table, both fetched lazily with one synchronous request
// each. The decoders of those replies call SetLineTable / SetVariableTable on
// the method object registered under the owning class, which is why the
// "loaded" flags are read again after the request instead of the reply.
#include "jdwpkrvdbg/model/JXMethod.h"

#include <cmath>
#include <cstdint>

#include "ModelText.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/protocol/JDWPMessage.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"
#include "jdwpkrvdbg/session/JDWPHandler.h"
#include "jdwpkrvdbg/session/modMain.h"

namespace jdwpkrvdbg {

namespace {
constexpr int64_t kStaticBit = 8;      // ACC_STATIC
constexpr int64_t kNativeBit = 0x0100; // ACC_NATIVE
} // namespace

using model_detail::lowerText;
using model_detail::requestSync;

bool JXMethod::isStatic() const
{
    if (!std::isfinite(MethodBits))
        return false;
    return (static_cast<int64_t>(MethodBits) & kStaticBit) != 0;
}

bool JXMethod::isNative() const
{
    return std::isfinite(MethodBits) && (static_cast<int64_t>(MethodBits) & kNativeBit) != 0;
}

std::shared_ptr<JXClass> JXMethod::OwnerClass() const
{
    return getCurrentHandler()->myJVM()->getClassByID(ClassID, true);
}

bool JXMethod::SetLineTable(const JDWPJLineTable& refTable)
{
    myLines_.clear();
    myLines_.reserve(refTable.Lines.size());
    for (const JDWPJLineTableItem& item : refTable.Lines)
        myLines_.emplace_back(item.lineCodeIndex, item.lineNumber);
    bLineTableLoaded_ = true;
    return true;
}

bool JXMethod::SetVariableTable(const JDWPJVariableTable& refTable)
{
    myVariableTable_ = refTable;
    bVariableTableLoaded_ = true;
    return true;
}

bool JXMethod::lineTableLoaded()
{
    if (!bLineTableLoaded_) {
        requestSync(getCurrentHandler()->myFactory()->createGetLineTableMessage(ClassID, MethodID));
    }
    return bLineTableLoaded_;
}

bool JXMethod::variableTableLoaded()
{
    if (!bVariableTableLoaded_) {
        requestSync(getCurrentHandler()->myFactory()->createGetVariableTableMessage(ClassID, MethodID));
    }
    return bVariableTableLoaded_;
}

bool JXMethod::LocationToSrcLine(const JDWPJLocation& RefLocation, double& retLine)
{
    if (!lineTableLoaded())
        return false;
    for (size_t i = 0; i < myLines_.size(); ++i) {
        const auto& [codeIndex, line] = myLines_[i];
        if (codeIndex == RefLocation.Index) {
            retLine = line;
            return true;
        }
        if (RefLocation.Index < codeIndex) {
            retLine = i == 0 ? line : myLines_[i - 1].second;
            return true;
        }
    }
    // Intended: an index past the last entry's code index maps to no line
    // rather than to the last one.
    return false;
}

bool JXMethod::SrcLineToLocation(double LineNr, JDWPJLocation& ret)
{
    if (!lineTableLoaded())
        return false;
    // Table order, first exact match; a line without an entry has no
    // location (no search for the next line with code).
    for (const auto& [codeIndex, line] : myLines_) {
        if (line == LineNr) {
            ret.ClassTypeTag = TT_CLASS;
            ret.ClassID = ClassID;
            ret.MethodID = MethodID;
            ret.Index = codeIndex;
            return true;
        }
    }
    return false;
}

JDWPJVariableTableSlot JXMethod::getVarSlot(const std::string& VarName)
{
    if (VarName.empty() || !variableTableLoaded())
        return {};
    // An exact match first; the host's language ignores letter case, so a
    // name that differs only in case is accepted when nothing matches exactly.
    for (const JDWPJVariableTableSlot& slot : myVariableTable_.Slot)
        if (slot.vt_name == VarName)
            return slot;
    const std::string lowered = lowerText(VarName);
    for (const JDWPJVariableTableSlot& slot : myVariableTable_.Slot)
        if (lowerText(slot.vt_name) == lowered)
            return slot;
    return {};
}

const std::vector<std::pair<double, double>>& JXMethod::lineTable()
{
    lineTableLoaded();
    return myLines_;
}

const JDWPJVariableTable& JXMethod::variableTable()
{
    variableTableLoaded();
    return myVariableTable_;
}

} // namespace jdwpkrvdbg
