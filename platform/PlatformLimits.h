// Sizes and intervals of the Linux transport's reading and watching, shared
// by its process and socket parts.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jdwpkrvdbg::platform_detail {

inline constexpr size_t kReadChunk = 64 * 1024;
// Upper bound of one read batch, so that a peer that never pauses cannot
// keep a pump pass from returning; the rest comes on the next pass.
inline constexpr size_t kMaxReadBatch = 8 * 1024 * 1024;
// Fallback interval for noticing the child's exit when pidfd_open is missing.
inline constexpr uint32_t kExitPollMs = 10;

} // namespace jdwpkrvdbg::platform_detail
