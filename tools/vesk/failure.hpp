// What ends a verb before its work is done: one line for standard error, and the exit status.
#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace vesk::tool {

enum Status { status_ok = 0, status_failed = 1, status_usage = 2 };

class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& line, Status status = status_failed)
        : std::runtime_error(line), status_(status) {}
    Status status() const { return status_; }

private:
    Status status_;
};

// Of what is written: there is no sense in going on with the next input.
class OutputFailure : public Failure {
public:
    using Failure::Failure;
};

// What the system says of an error, and what to do about it.
inline std::string because(int error) {
    const std::string why = std::strerror(error);
    switch (error) {
        case ENOENT: return why + "; look for a slip in the name";
        case EACCES:
        case EPERM: return why + "; ask its owner for the right to it";
        case EISDIR: return "is a directory; name a file in it";
        case ENOSPC:
        case EDQUOT:
        case EFBIG: return why + "; make room, or write elsewhere";
        case EROFS: return why + "; write elsewhere";
        case EPIPE: return why + "; what should read it has ended";
        default: return why;
    }
}

}  // namespace vesk::tool
