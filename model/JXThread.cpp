// JXThread (stub).
#include "jdwpkrvdbg/model/JXThread.h"
#include "jdwpkrvdbg/model/JXBreakpoint.h"

namespace jdwpkrvdbg {
void JXThread::RegisterStopMe() {}
void JXThread::UnregisterStopMe() {}
bool JXThread::CanSuspend() { return {}; }
std::string JXThread::ThreadName() { return {}; }
bool JXThread::ThreadSuspended() { return {}; }
ThreadStatus JXThread::ThreadState() { return {}; }
double JXThread::threadGroupID() { return {}; }
double JXThread::parentThreadGroupID() { return {}; }
std::string JXThread::ThreadGroupName() { return {}; }
} // namespace jdwpkrvdbg
