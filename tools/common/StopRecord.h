// What both front ends remember from the library's host events: where a stop
// came (as Breakpoint reports it) and whether the VM has come and gone. A
// VMDead before any other state is the failed start of a connection, not the
// end of a program, so the end counts only once the VM was seen alive.
#pragma once

#include <cstdint>
#include <string>

#include <jdwpkrvdbg/protocol/JDWPStructs.h>

namespace krvdbg {

struct StopPlace {
    double threadID = 0;
    std::string className; // internal form, as the library reports it
    int32_t line = 0;
    int32_t offset = 0;
};

class VMLifetime {
public:
    void stateChanged(jdwpkrvdbg::VMState state)
    {
        if (state != jdwpkrvdbg::VMDead)
            connected_ = true;
        else if (connected_)
            ended_ = true;
    }
    bool connected() const { return connected_; }
    bool ended() const { return ended_; }

private:
    bool connected_ = false;
    bool ended_ = false;
};

} // namespace krvdbg
