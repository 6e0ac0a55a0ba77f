// A thread group: declared in the public interface, with no members.
#pragma once

namespace jdwpkrvdbg {

class JXThreadGroup {};

} // namespace jdwpkrvdbg
