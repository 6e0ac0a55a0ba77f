// The session's time-outs and limits, named in one place: how long a call
// waits for its reply, how long and how often a connection is tried, how
// long the farewell and a method invocation may take, and the codes of the
// message boxes the session raises.
#pragma once

#include <cstdint>

namespace jdwpkrvdbg {

// A synchronous request's wait for its reply (model, decoders, tools).
inline constexpr int32_t kReplyWaitMs = 4000;
// A VM that accepted the connection but never answers the handshake is
// given up after this long, so the session ends instead of hanging.
inline constexpr uint32_t kHandshakeWaitMs = 4000;

// Connecting: at most kConnectTries tries, each after a pause of up to
// kConnectPauseMs, within kConnectBudgetMs in all. Tries after
// kConnectReportAfterMs are reported; from try kConnectLivenessTry on (or
// once the caller's time-out has passed) a started VM that is no longer
// running ends the loop.
inline constexpr int32_t kConnectTries = 100;
inline constexpr int64_t kConnectPauseMs = 50;
inline constexpr int64_t kConnectBudgetMs = 4000;
inline constexpr int64_t kConnectReportAfterMs = 3000;
inline constexpr int32_t kConnectLivenessTry = 50;

// The length of a ThreadReference Frames request that asks for every frame
// from its start on (-1 as the unsigned 4-byte length the builder writes).
inline constexpr double kAllFramesLength = 4294967295.0;

// The Dispose sent when the host disconnects; the VM may close first.
inline constexpr int32_t kDisposeWaitMs = 1000;
// A VM that reported its death still has to exit; its connection ends
// first. It is given this long to exit by itself, so that its exit status
// is its own, before it is killed.
inline constexpr int32_t kDeadVMExitWaitMs = 2000;
// A method invocation (toString, a property getter) that has not returned
// by then is reported as timed out and left running in the VM.
inline constexpr int32_t kInvokeWaitMs = kReplyWaitMs;
// Hold and Release Events are sent again while the VM answers with an
// error, this many times in all; a missing reply is not retried.
inline constexpr int16_t kHoldAttempts = 12;

// The `Buttons` codes of JXMachine::MsgBoxW: a failure and a notice.
inline constexpr int32_t kMsgBoxCritical = 16;
inline constexpr int32_t kMsgBoxInformation = 64;

} // namespace jdwpkrvdbg
