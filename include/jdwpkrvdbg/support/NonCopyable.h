// A base for the classes that own something a copy must not share (a
// socket, a mapping, a child process, a session): deriving from it deletes
// the copy (and with it the move) of the derived class.
#pragma once

namespace jdwpkrvdbg {

class NonCopyable {
public:
    NonCopyable(const NonCopyable&) = delete;
    NonCopyable& operator=(const NonCopyable&) = delete;

protected:
    NonCopyable() = default;
    ~NonCopyable() = default;
};

} // namespace jdwpkrvdbg
