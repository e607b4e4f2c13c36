// The inputs of a verb, one after the other.
#pragma once

#include <algorithm>
#include <iostream>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {

struct Subject {
    const vesk_type* type;
    std::string name;  // of the file, "-" for standard input, with the frame's number if it is one
    const std::uint8_t* data;
    std::uint64_t length;
};

// Calls work(Subject), which returns a status, for each file of a request, or each frame in them. A file that cannot be
// read is one line on standard error, and the others are tried. Returns the worst status.
template <class Work>
int for_each_subject(const Request& request, Work work) {
    const vesk_type* const type = request.frames ? nullptr : find_type(request.type);
    int worst = status_ok;
    for (const std::string& file : request.files) {
        try {
            const Input input(file, request.form);
            if (!request.frames) {
                worst = std::max<int>(worst, work(Subject{type, file, input.data(), input.size()}));
                continue;
            }
            std::size_t number = 0;
            for (const Frame& frame : read_frames(input)) {
                const std::string name = file + "#" + std::to_string(number++);
                if (frame.type.empty()) {
                    std::cerr << "vesk: " << name << ": no message: frames of kind " << frame.kind << " hold none\n";
                    worst = std::max<int>(worst, status_failed);
                    continue;
                }
                worst = std::max<int>(worst, work(Subject{find_type(frame.type), name, frame.body, frame.length}));
            }
        } catch (const Failure& failure) {
            std::cerr << "vesk: " << failure.what() << "\n";
            worst = std::max<int>(worst, failure.status());
        }
    }
    return worst;
}

}  // namespace vesk::tool
