// A breakpoint (class + source line), a stop point (class + method + code
// offset), or the one-shot request that carries a single step. Each is
// registered in the VM as an event request once its class is known.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"

namespace jdwpkrvdbg {

class JDWPMessage;
namespace condition {
struct Plan;
}

// What a breakpoint does when it is hit, beyond stopping.
struct JXBreakpointOptions {
    // "" = always. Comparisons ==, !=, <, <=, >, >= between a dotted path
    // (locals, fields, getters, statics; as getValue takes them) and a
    // literal (numbers, "strings", 'c', true, false, null) or another path;
    // &&, ||, ! and parentheses. A bare path of boolean type is allowed too.
    std::string Condition;
    // "" = every hit. "N": the Nth hit only; ">= N": from the Nth on; "% N":
    // every Nth. Hits are counted where the condition (if any) is true.
    std::string HitCondition;
    // Not "": a logpoint. Text with {expression} parts ({{ and }} for
    // braces); printed when reached (host event LogpointMessage); the
    // program goes on and no stop reaches the host.
    std::string LogMessage;
};

// Held by std::shared_ptr: a registered step request hands itself to the
// session as its last step event.
class JXBreakpoint : public std::enable_shared_from_this<JXBreakpoint> {
public:
    bool StopPoint = false;
    bool UsedByVM = false;
    std::string ClassName; // internal or signature form
    std::string MethodName;
    double LineNr = 0;
    double Offset = 0;
    double RequestEventID = 0; // 0: not registered
    double TargetThreadID = 0;
    double StepCount = 0;
    bool JustStepping = false;
    JXBreakpointOptions Options;
    // An entry of a method breakpoint: a stop point at code index 0 of one
    // overload (or, before the class is known, of all that Signature names).
    bool MethodEntry = false;
    // Method breakpoints: the JNI signature asked for, "" = every overload.
    std::string Signature;
    // Hits counted so far (where the condition, if any, held).
    uint32_t HitCount = 0;
    // The VM counts the hits with a Count modifier.
    bool HitCountedByVM = false;

    bool registerBreakPoint();
    bool registerStopPoint();
    bool unregisterBreakPoint();
    // `extraExcludes`: class patterns skipped for the rest of this step, on
    // top of the default exclusions. `noWait`: sent without waiting for the
    // reply; the id is known once the reply is in (stepRequestID).
    bool registerStepEvent(JDWPStepDepth stepDepth, const std::vector<std::string>& extraExcludes = {},
                           bool noWait = false);
    // The companion of a step that runs through code of no target: a method
    // entry request for the step's thread, so that a call back into other
    // code stops the step. Sent without waiting.
    bool registerStepEntry(const std::vector<std::string>& extraExcludes);
    bool unregisterStepEvent(bool async = false);
    // RequestEventID, or the id from the reply to a request sent without
    // waiting (0 while the reply is out).
    double stepRequestID();

    const JDWPJLocation& location() const { return myLocation_; }

    // Takes new options: "" when they parse (they are then in force), else
    // why not (the old ones stay). Resets the hit count.
    std::string setOptions(const JXBreakpointOptions& options);
    // The parsed options; null for a plain breakpoint (no condition, hit
    // count or message).
    const std::shared_ptr<const condition::Plan>& plan() const { return myPlan_; }
    // The VM reported a hit counted by its Count modifier: the count is
    // taken, and the request re-armed as the hit rule wants (a plain one
    // from the Nth hit on, another count for every Nth).
    void countedHitReported();
    // Method breakpoints: the JNI signature of the overload this entry stops
    // in ("" while the class is not known).
    std::string Overload;

private:
    bool registerAt(const JDWPJLocation& location);
    std::shared_ptr<const condition::Plan> myPlan_;
    // The Count modifier of a ">= N" rule has fired: plain requests follow.
    bool myCountSpent_ = false;
    JDWPJLocation myLocation_;
    EVENT_KIND myStepKind_ = EK_SINGLE_STEP;
    std::shared_ptr<JDWPMessage> myPendingSet_;
};

} // namespace jdwpkrvdbg
