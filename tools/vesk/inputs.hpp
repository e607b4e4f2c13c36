// The inputs of a verb, one after the other.
#pragma once

#include <algorithm>
#include <filesystem>
#include <new>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/progress.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {

struct Subject {
    const vesk_type* type;
    std::string name;  // of the file, "-" for standard input, with the frame's number if it is one
    const std::uint8_t* data;
    std::uint64_t length;
    Progress* progress;    // counts bytes of all inputs
    std::uint64_t before;  // bytes of the inputs before

    void at(std::uint64_t offset) const { progress->at(before + offset); }
};

// Bytes of the files of a request; 0 if one cannot say beforehand.
inline std::uint64_t bytes_of(const Request& request) {
    std::uint64_t total = 0;
    for (const std::string& file : request.files) {
        std::error_code error;
        const std::uint64_t size = file == "-" ? 0 : std::filesystem::file_size(file, error);
        if (error || size == 0) return 0;
        total += size;
    }
    return request.form == Form::raw ? total : 0;
}

// What `work` returns; a Failure of its own is a line on standard error and a status.
template <class Work>
int status_of(Work work) {
    try {
        return work();
    } catch (const OutputFailure&) {
        throw;
    } catch (const Failure& failure) {
        Output::flush_standard();
        complain(failure.what());
        return failure.status();
    } catch (const std::bad_alloc&) {
        Output::flush_standard();
        complain("not enough memory");
        return status_failed;
    }
}

// Calls work(Subject), which returns a status, for each file of a request, or each frame in them. What cannot be read
// or fails is one line on standard error, and the others are tried. Returns the worst status.
template <class Work>
int for_each_subject(const Request& request, Work work) {
    const vesk_type* const type = request.frames ? nullptr : find_type(request.type);
    int worst = status_ok;
    Progress progress(bytes_of(request));
    std::uint64_t before = 0;
    const auto work_on = [&](const vesk_type* subject_type, const std::string& name, const std::uint8_t* data,
                             std::uint64_t length) {
        const int status = work(Subject{subject_type, name, data, length, &progress, before});
        before += length;
        progress.at(before);
        return status;
    };
    const auto attempt = [&](auto part) { worst = std::max(worst, status_of(part)); };
    for (const std::string& file : request.files) {
        attempt([&] {
            const Input input(file, request.form);
            if (!request.frames) return work_on(type, file, input.data(), input.size());
            FrameReader reader(input);
            for (Frame frame{}; reader.next(&frame);) {
                attempt([&] {
                    if (frame.type == nullptr) {
                        throw Failure(quote_name(reader.name()) + ": frames of kind " + std::to_string(frame.kind) +
                                      " hold no message");
                    }
                    return work_on(find_type(frame.type), reader.name(), frame.body, frame.length);
                });
            }
            return int{status_ok};
        });
    }
    return worst;
}

}  // namespace vesk::tool
