// The process-wide current JDWPHandler. Every class that talks to the VM
// reaches the connection through it, never through a stored reference, so
// there is one debugging session per process.
#pragma once

#include <memory>

namespace jdwpkrvdbg {

class JDWPHandler;

// The current handler; creates (and registers) one when there is none.
std::shared_ptr<JDWPHandler> getCurrentHandler();
// The current handler or nullptr; never creates one.
std::shared_ptr<JDWPHandler> peekCurrentHandler();
// Makes `handler` current (nullptr drops the current one).
void setCurrentHandler(std::shared_ptr<JDWPHandler> handler);

} // namespace jdwpkrvdbg
