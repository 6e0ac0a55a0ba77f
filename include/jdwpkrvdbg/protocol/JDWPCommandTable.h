// The one list of the (command set, command) pairs the library knows: the
// name the packet trace gives each, and the decoder an incoming packet of
// that pair is routed to. The routing, the trace names and the fuzz targets
// all read this table, so a pair is added, renamed or rerouted in one place.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

namespace jdwpkrvdbg {

class JDWPMessage;

struct JDWPCommandEntry {
    int32_t commandSet;
    int32_t command;
    // The trace name; empty where the trace shows none.
    const char* name;
    // Takes the parsed packet and, when the packet is held by a shared_ptr,
    // that pointer (decoders that file results under their request want it).
    // Null: packets of this pair are not decoded.
    bool (*decode)(JDWPMessage& message, const std::shared_ptr<JDWPMessage>& self);
};

// Every known pair, ordered by command set, then command.
std::span<const JDWPCommandEntry> commandTable();
// The row of a pair; null when the pair is not in the table.
const JDWPCommandEntry* findCommand(int32_t commandSet, int32_t command);

} // namespace jdwpkrvdbg
