// What ends a verb before its work is done: one line for standard error, and the exit status.
#pragma once

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

}  // namespace vesk::tool
