// Registration of the breakpoints that wait for classes an attach finds
// loaded already (see WaitingBreakpoints.h).
#include "WaitingBreakpoints.h"

#include <algorithm>
#include <memory>
#include <tuple>
#include <vector>

#include <jdwpkrvdbg/model/JXBreakpoint.h>
#include <jdwpkrvdbg/model/JXMachine.h>

namespace krvdbg {

using namespace jdwpkrvdbg;

void registerWaitingBreakpoints(JXMachine& jvm)
{
    // A method breakpoint learns its overloads when it is added with its
    // class known: each one still waiting is added again, once.
    struct Method {
        std::string className, method, signature;
        JXBreakpointOptions options;
    };
    std::vector<Method> methods;
    for (const auto& bp : jvm.breakpoints()) {
        if (!bp || bp->UsedByVM || bp->JustStepping)
            continue;
        if (!bp->MethodEntry) {
            if (bp->StopPoint)
                bp->registerStopPoint();
            else
                bp->registerBreakPoint();
            continue;
        }
        const Method m{bp->ClassName, bp->MethodName, bp->Signature, bp->Options};
        const auto same = [&](const Method& o) {
            return std::tie(o.className, o.method, o.signature) == std::tie(m.className, m.method, m.signature);
        };
        if (std::none_of(methods.begin(), methods.end(), same))
            methods.push_back(m);
    }
    for (const Method& m : methods) {
        jvm.removeMethodBreakpoint(m.className, m.method, m.signature);
        jvm.addMethodBreakpoint(m.className, m.method, m.signature, m.options);
    }
}

} // namespace krvdbg
