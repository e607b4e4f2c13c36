// The inputs of a verb, one after the other.
#pragma once

#include <algorithm>
#include <iostream>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {

struct Subject {
    const vesk_type* type;
    std::string name;  // of the file, "-" for standard input, with the frame's number if it is one
    const std::uint8_t* data;
    std::uint64_t length;
};

// What `work` returns; a Failure of its own is a line on standard error and a status.
template <class Work>
int status_of(Work work) {
    try {
        return work();
    } catch (const OutputFailure&) {
        throw;
    } catch (const Failure& failure) {
        std::cerr << "vesk: " << failure.what() << "\n";
        return failure.status();
    }
}

// Calls work(Subject), which returns a status, for each file of a request, or each frame in them. What cannot be read
// or fails is one line on standard error, and the others are tried. Returns the worst status.
template <class Work>
int for_each_subject(const Request& request, Work work) {
    const vesk_type* const type = request.frames ? nullptr : find_type(request.type);
    int worst = status_ok;
    const auto attempt = [&](auto part) { worst = std::max(worst, status_of(part)); };
    for (const std::string& file : request.files) {
        attempt([&] {
            const Input input(file, request.form);
            if (!request.frames) return int{work(Subject{type, file, input.data(), input.size()})};
            FrameReader reader(input);
            for (Frame frame{}; reader.next(&frame);) {
                attempt([&] {
                    if (frame.type == nullptr) {
                        throw Failure(quote_name(reader.name()) + ": frames of kind " + std::to_string(frame.kind) +
                                      " hold no message");
                    }
                    return int{work(Subject{find_type(frame.type), reader.name(), frame.body, frame.length})};
                });
            }
            return int{status_ok};
        });
    }
    return worst;
}

}  // namespace vesk::tool
