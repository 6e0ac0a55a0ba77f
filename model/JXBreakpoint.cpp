// Breakpoints, stop points and step requests as JDWP event requests: a line
// breakpoint resolves its line through the class's line tables, a stop point
// its method and code offset; both become EventRequest Set (breakpoint kind,
// one location modifier, no default exclusions). A step request carries a
// Step modifier (and a Count modifier when asked) plus the default class
// exclusions, so stepping does not stop in library classes; a step that runs
// past code of no target adds exclusions of its own, and is joined by a
// method entry request for its thread.
#include "jdwpkrvdbg/model/JXBreakpoint.h"

#include <vector>

#include "JXCondition.h"
#include "ModelText.h"
#include "jdwpkrvdbg/model/JXClass.h"
#include "jdwpkrvdbg/model/JXMachine.h"
#include "jdwpkrvdbg/model/JXMethod.h"
#include "jdwpkrvdbg/protocol/JDWPMessageData.h"
#include "jdwpkrvdbg/protocol/JDWPMessageFactory.h"

namespace jdwpkrvdbg {

using model_detail::replyOk;
using model_detail::requestSync;

namespace {

// A modifier that carries one number (a count, a thread).
JDWPModifier numberModifier(ModifierKind kind, double value)
{
    JDWPModifier modifier;
    modifier.Kind = kind;
    modifier.RefLong = value;
    return modifier;
}

} // namespace

bool JXBreakpoint::registerAt(const JDWPJLocation& location)
{
    JDWPModifier where;
    where.Kind = MK_LocationOnly;
    where.RefLocation = location;
    std::vector<JDWPModifier> modifiers{where};
    // The VM counts the hits itself where it can (no condition of ours to
    // tell which hits count): the skipped hits then cost no packet at all.
    if (HitCountedByVM && myPlan_ && myPlan_->hits.mode != condition::HitRule::Mode::Every && !myCountSpent_)
        modifiers.push_back(numberModifier(MK_Count, myPlan_->hits.n));
    auto msg = getCurrentHandler()->myFactory()->createGetEventRequestMessageII(
        EK_BREAKPOINT, JDWPSuspendPolicy::SS_All, modifiers, static_cast<int32_t>(modifiers.size()));
    auto reply = requestSync(msg);
    if (!replyOk(reply))
        return false;
    RequestEventID = reply->myDataContainer()->RequestEventID;
    UsedByVM = true;
    myLocation_ = location;
    return true;
}

bool JXBreakpoint::registerBreakPoint()
{
    auto cls = getCurrentHandler()->myJVM()->getClassByName(ClassName, true);
    if (!cls)
        return false;
    JDWPJLocation location;
    if (!cls->SrcLineToLocation(LineNr, location))
        return false;
    return registerAt(location);
}

bool JXBreakpoint::registerStopPoint()
{
    auto cls = getCurrentHandler()->myJVM()->getClassByName(ClassName, true);
    if (!cls)
        return false;
    std::shared_ptr<JXMethod> method;
    if (MethodEntry) {
        // Each overload has its own entry; names compare as the runtime's
        // do, without regard to case.
        const std::string name = model_detail::lowerText(MethodName);
        for (const auto& m : cls->methods())
            if (m && m->MethodSignature == Overload && model_detail::lowerText(m->MethodName) == name)
                method = m;
    } else {
        method = cls->JMethodWithoutParams(MethodName);
    }
    if (!method)
        return false;
    JDWPJLocation location;
    location.ClassTypeTag = TT_CLASS;
    location.ClassID = cls->ClassID;
    location.MethodID = method->MethodID;
    location.Index = Offset;
    return registerAt(location);
}

bool JXBreakpoint::unregisterBreakPoint()
{
    if (!(RequestEventID > 0))
        return true;
    // The request died with its VM: there is nothing to clear, and a failed
    // clear would keep the entry, which then came back in the next run.
    auto handler = getCurrentHandler();
    if (!handler || !handler->isConnected())
        return true;
    // Intended: an entry without a resolved class is cleared as a step
    // request, any other as a breakpoint.
    const EVENT_KIND kind = myLocation_.ClassID == 0 ? EK_SINGLE_STEP : EK_BREAKPOINT;
    auto reply = requestSync(handler->myFactory()->createClearEventRequestMessage(kind, RequestEventID));
    // RequestEventID and UsedByVM keep their values; the caller drops the entry.
    return replyOk(reply);
}

std::string JXBreakpoint::setOptions(const JXBreakpointOptions& options)
{
    auto plan = std::make_shared<condition::Plan>();
    std::string why = plan->parse(options.Condition, options.HitCondition, options.LogMessage);
    if (!why.empty())
        return why;
    Options = options;
    HitCount = 0;
    myCountSpent_ = false;
    const bool plain = plan->condition.empty() && plan->hits.mode == condition::HitRule::Mode::Every && !plan->logpoint;
    HitCountedByVM = plan->condition.empty() && plan->hits.mode != condition::HitRule::Mode::Every;
    myPlan_ = plain ? nullptr : std::move(plan);
    return {};
}

void JXBreakpoint::countedHitReported()
{
    if (!myPlan_)
        return;
    const condition::HitRule& rule = myPlan_->hits;
    switch (rule.mode) {
    case condition::HitRule::Mode::Every:
        ++HitCount;
        return;
    case condition::HitRule::Mode::Exactly:
        // The request has expired in the VM; it stays registered, so that
        // removing the breakpoint clears it as any other.
        HitCount = rule.n;
        return;
    case condition::HitRule::Mode::AtLeast:
        if (myCountSpent_) {
            ++HitCount;
            return;
        }
        HitCount = rule.n;
        myCountSpent_ = true;
        break;
    case condition::HitRule::Mode::EveryNth:
        HitCount += rule.n;
        break;
    }
    // A new request in place of the expired one: plain from the Nth hit on,
    // another count for every Nth. The old one is cleared without waiting.
    auto handler = getCurrentHandler();
    const double expired = RequestEventID;
    if (registerAt(myLocation_) && expired > 0)
        handler->sendAsync(handler->myFactory()->createClearEventRequestMessage(EK_BREAKPOINT, expired));
}

namespace {

void appendExcludes(std::vector<JDWPModifier>& modifiers, const std::vector<std::string>& patterns)
{
    for (const std::string& pattern : patterns) {
        JDWPModifier exclude;
        exclude.Kind = MK_ClassExclude;
        exclude.RefString = pattern;
        modifiers.push_back(exclude);
    }
}

} // namespace

bool JXBreakpoint::registerStepEvent(JDWPStepDepth stepDepth, const std::vector<std::string>& extraExcludes,
                                     bool noWait)
{
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    const JDWPDefaultFilter defaultFilter = factory->getExcludeModifier();

    // The Step modifier comes first: the VM applies modifiers in order, and
    // a step that completes in excluded code must still be re-armed there.
    std::vector<JDWPModifier> modifiers;
    JDWPModifier step;
    step.Kind = MK_Step;
    step.RefStep.threadID = TargetThreadID;
    step.RefStep.StepSize = JDWPStepSize::SS_LINE;
    step.RefStep.stepDepth = stepDepth;
    modifiers.push_back(step);
    if (StepCount > 0)
        modifiers.push_back(numberModifier(MK_Count, StepCount));
    appendExcludes(modifiers, extraExcludes);
    auto msg = factory->createGetEventRequestMessage(EK_SINGLE_STEP, JDWPSuspendPolicy::SS_All, modifiers,
                                                     static_cast<int32_t>(modifiers.size()), defaultFilter);
    myStepKind_ = EK_SINGLE_STEP;
    if (noWait) {
        if (!handler->sendAsync(msg))
            return false;
        myPendingSet_ = msg;
        handler->myJVM()->myLastStepEvent = weak_from_this().lock();
        return true;
    }
    auto reply = requestSync(msg);
    if (!replyOk(reply))
        return false;
    RequestEventID = reply->myDataContainer()->RequestEventID;
    myStepKind_ = EK_SINGLE_STEP;
    handler->myJVM()->myLastStepEvent = weak_from_this().lock();
    return true;
}

bool JXBreakpoint::registerStepEntry(const std::vector<std::string>& extraExcludes)
{
    auto handler = getCurrentHandler();
    auto factory = handler->myFactory();
    std::vector<JDWPModifier> modifiers{numberModifier(MK_ThreadOnly, TargetThreadID)};
    appendExcludes(modifiers, extraExcludes);
    auto msg =
        factory->createGetEventRequestMessage(EK_METHOD_ENTRY, JDWPSuspendPolicy::SS_All, modifiers,
                                              static_cast<int32_t>(modifiers.size()), factory->getExcludeModifier());
    myStepKind_ = EK_METHOD_ENTRY;
    if (!handler->sendAsync(msg))
        return false;
    myPendingSet_ = msg;
    return true;
}

double JXBreakpoint::stepRequestID()
{
    if (!(RequestEventID > 0) && myPendingSet_)
        RequestEventID = myPendingSet_->myDataContainer()->RequestEventID;
    return RequestEventID;
}

bool JXBreakpoint::unregisterStepEvent(bool async)
{
    auto handler = getCurrentHandler();
    auto msg = handler->myFactory()->createClearEventRequestMessage(myStepKind_, stepRequestID());
    if (async) {
        handler->sendAsync(msg);
        return false;
    }
    return replyOk(handler->sendSync(msg, kReplyWaitMs));
}

} // namespace jdwpkrvdbg
