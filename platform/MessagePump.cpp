// The message pump (stub).
#include "jdwpkrvdbg/platform/MessagePump.h"

namespace jdwpkrvdbg {
MessagePump& MessagePump::instance() { static MessagePump* pump = new MessagePump(); return *pump; }
int MessagePump::addWatch(int, short, WatchCallback) { return nextId_++; }
void MessagePump::setWatchEvents(int, short) {}
void MessagePump::removeWatch(int) {}
int MessagePump::addTimer(uint32_t, Callback) { return nextId_++; }
void MessagePump::removeTimer(int) {}
int MessagePump::addIdle(Callback) { return nextId_++; }
void MessagePump::removeIdle(int) {}
int MessagePump::pumpOnce(int) { return 0; }
bool MessagePump::pumpUntil(const std::function<bool()>& done, uint32_t) { return done(); }
size_t MessagePump::sourceCount() const { return 0; }
void DoEvents() { MessagePump::instance().pumpOnce(0); }
} // namespace jdwpkrvdbg
