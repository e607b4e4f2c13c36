// `vesk replay`: makes the calls of a recording again.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/input.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/recording.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

using Json = nlohmann::ordered_json;
using recording::Call;
using recording::Header;
using recording::Operation;
using recording::Outcome;

struct Noted {
    std::uint64_t number;  // from 1 on, in the order of the file
    Call call;
    std::optional<Outcome> outcome;  // none if the call did not return
    const std::uint8_t* content;
    const std::string* type;
};

// ---- Reading the file ----

class Recording {
public:
    explicit Recording(const std::string& name) : input_(name, Form::raw), name_(quote_name(name)) {
        if (input_.size() < sizeof header_) fail("is no recording, or cut short in its header");
        std::memcpy(&header_, input_.data(), sizeof header_);
        if (std::memcmp(header_.magic, recording::magic, sizeof header_.magic) != 0) fail("is no recording");
        if (header_.byte_order != recording::byte_order) fail("was made on a machine with another byte order");
        if (header_.records_at < sizeof header_ || header_.records_at > input_.size()) fail("its header is damaged");
        const char* const text = reinterpret_cast<const char*>(input_.data());
        std::uint64_t at = sizeof header_;
        while (types_.size() < header_.type_count) {
            // Names go to the terminal and become names of files: they have the characters of a type's and no others.
            const std::uint64_t length = std::strspn(std::string(text + at, header_.records_at - at).c_str(),
                                                     "abcdefghijklmnopqrstuvwxyz0123456789_");
            if (length == 0 || length == header_.records_at - at || text[at + length] != '\0') {
                fail("its names of types are damaged");
            }
            types_.emplace_back(text + at, length);
            at += length + 1;
        }
        const std::uint64_t past_names = sizeof header_ + recording::rounded_up(at - sizeof header_);
        if (header_.records_at != past_names || end_of_records() < past_names) fail("its header is damaged");
    }

    const Header& header() const { return header_; }

    // Calls work(Noted) for each whole record, in the order in which the calls began.
    template <class Work>
    void for_each(Work work) const {
        std::uint64_t end = end_of_records();
        const bool is_cut = end > input_.size();
        if (is_cut) {
            complain("is cut short: " + std::to_string(end - input_.size()) + " bytes are missing at its end");
            end = input_.size();
        }
        std::uint64_t number = 0;
        std::uint64_t damage = 0;  // where it begins; 0 if there is none
        for (std::uint64_t at = header_.records_at; at < end;) {
            recording::Record record;
            if (!read(at, end, &record)) {
                if (damage == 0) damage = at;
                at += 8;
                continue;
            }
            const std::uint8_t* const content = input_.data() + at + sizeof record;
            const std::uint64_t next = at + sizeof record + recording::rounded_up(record.call.length);
            if (recording::sum_of_content(content, record.call.length) != record.call.content_sum) {
                if (damage == 0) damage = at;
                at = next;
                continue;
            }
            if (damage != 0) say_damaged(damage, at);
            damage = 0;
            Noted noted{++number, record.call, record.outcome, content, &types_[record.call.type]};
            if (recording::sum_of(record.outcome, record.call_sum) != record.outcome_sum) noted.outcome.reset();
            work(noted);
            at = next;
        }
        if (damage != 0 && !is_cut) say_damaged(damage, end);  // of what was cut short that has been said
    }

private:
    // In the file as it was before anybody cut it short. A program that was killed may have left `next` past its size.
    std::uint64_t end_of_records() const {
        return std::min(header_.full_at != 0 ? header_.full_at : header_.next, header_.size);
    }

    [[noreturn]] void fail(const std::string& what) const { throw Failure(name_ + ": " + what); }
    void complain(const std::string& what) const { std::cerr << "vesk: " << name_ << ": " << what << "\n"; }
    void say_damaged(std::uint64_t from, std::uint64_t to) const {
        complain("bytes " + std::to_string(from) + " to " + std::to_string(to - 1) +
                 " are damaged or were not written to the end, and are left out");
    }

    bool read(std::uint64_t at, std::uint64_t end, recording::Record* record) const {
        if (end - at < sizeof *record) return false;
        std::memcpy(record, input_.data() + at, sizeof *record);
        const Call& call = record->call;
        return call.mark == recording::record_mark && recording::sum_of(call) == record->call_sum &&
               call.type < types_.size() && static_cast<unsigned>(call.operation) < recording::operation_count &&
               call.length <= end - at - sizeof *record &&
               recording::rounded_up(call.length) <= end - at - sizeof *record;
    }

    Input input_;
    std::string name_;
    Header header_{};
    std::vector<std::string> types_;
};

// ---- Making a call again ----

// What came of a call here, and how that differs from what was noted; empty if it does not.
struct Again {
    std::int64_t result = 0;
    std::string difference;
    bool is_made = true;  // not if too little was noted to make the call
};

// An arena that refuses what the program's callback refused.
struct Blocks {
    explicit Blocks(vesk_arena* memory, std::uint32_t refused = 0) : arena(memory), refuse(refused) {}
    static void* ask(std::uint64_t size, void* context) {
        Blocks& blocks = *static_cast<Blocks*>(context);
        return ++blocks.requests == blocks.refuse ? nullptr : vesk_arena_alloc(size, blocks.arena);
    }
    vesk_arena* arena;
    std::uint32_t refuse;
    std::uint32_t requests = 0;
};

std::string in_words(std::int64_t result, Operation operation) {
    if (operation == Operation::encode) return std::to_string(result) + " bytes";
    return vesk_result_name(static_cast<std::int32_t>(result)) + std::string(" (") + std::to_string(result) + ")";
}

void compare_outcome(const Noted& noted, std::uint32_t requests, Again* again) {
    if (!noted.outcome) return;
    if (noted.outcome->result != again->result) {
        again->difference = "was " + in_words(noted.outcome->result, noted.call.operation) + ", is " +
                            in_words(again->result, noted.call.operation);
    } else if (noted.outcome->requests != requests) {
        again->difference =
            "asked for " + std::to_string(noted.outcome->requests) + " blocks, asks for " + std::to_string(requests);
    }
}

// Decodes an encoding that a call wrote, or began from.
bool read_content(const Noted& noted, const Functions& functions, Message* message, Again* again) {
    const std::int32_t code =
        functions.decode(message->get(), noted.content, noted.call.length, vesk_arena_alloc, message->arena(), 0);
    if (code == VESK_OK) return true;
    again->difference = "its encoding is refused: " + in_words(code, Operation::decode);
    return false;
}

// Whether a message encodes to the bytes that were noted.
void compare_encoding(const Noted& noted, const Functions& functions, const void* message, Again* again) {
    std::vector<std::uint8_t> bytes(noted.call.length + 1);  // a vector of none has no address
    const std::uint64_t length = functions.encode(message, bytes.data(), noted.call.length, nullptr, nullptr, 0);
    if (length != noted.call.length) {
        again->difference =
            "was encoded in " + std::to_string(noted.call.length) + " bytes, is in " + std::to_string(length);
        return;
    }
    for (std::uint64_t at = 0; at < length; ++at) {
        if (bytes[at] == noted.content[at]) continue;
        again->difference = "encodes to other bytes from byte " + std::to_string(at) + " on";
        return;
    }
}

Again encode(const Noted& noted, const Functions& functions, Message* message) {
    Again again;
    again.is_made = (noted.call.bits & recording::has_content) != 0;
    if (!again.is_made) return again;
    if (!read_content(noted, functions, message, &again)) return again;
    again.result =
        static_cast<std::int64_t>(functions.encode(message->get(), nullptr, 0, nullptr, nullptr, noted.call.flags));
    compare_encoding(noted, functions, message->get(), &again);
    if (again.difference.empty()) compare_outcome(noted, 0, &again);
    return again;
}

Again decode(const Noted& noted, const Functions& functions, Message* message) {
    Blocks blocks(message->arena(), noted.outcome ? noted.outcome->refused : 0);
    const vesk_alloc alloc = (noted.call.bits & recording::has_no_alloc) != 0 ? nullptr : Blocks::ask;
    Again again;
    again.result = functions.decode(message->get(), noted.content, noted.call.length, alloc, &blocks, noted.call.flags);
    compare_outcome(noted, blocks.requests, &again);
    functions.free(message->get(), vesk_arena_release, message->arena(), noted.call.flags);
    return again;
}

Again duplicate(const Noted& noted, const Functions& functions, Message* message) {
    Again again;
    if (!read_content(noted, functions, message, &again)) return again;
    Message copy(message->type());
    Blocks blocks(copy.arena(), noted.outcome ? noted.outcome->refused : 0);
    const vesk_alloc alloc = (noted.call.bits & recording::has_no_alloc) != 0 ? nullptr : Blocks::ask;
    again.result = functions.duplicate(copy.get(), message->get(), alloc, &blocks);
    compare_outcome(noted, blocks.requests, &again);
    if (again.difference.empty() && again.result == VESK_OK) {
        compare_encoding(noted, functions, copy.get(), &again);
    }
    functions.free(copy.get(), vesk_arena_release, copy.arena(), 0);
    return again;
}

// Of a free nothing but its type is known: an empty message is freed.
Again free_message(const Noted& noted, const Functions& functions, Message* message) {
    functions.free(message->get(), vesk_arena_release, message->arena(), noted.call.flags);
    return {};
}

Again call_again(const Noted& noted, const vesk_type* type) {
    static constexpr Again (*operations[])(const Noted&, const Functions&, Message*) = {encode, decode, duplicate,
                                                                                        free_message};
    Message message(type);
    return operations[static_cast<unsigned>(noted.call.operation)](noted, functions_of(type), &message);
}

// A call that did not return may have ended its program, so it is made in a process of its own.
Again call_apart(const Noted& noted, const vesk_type* type) {
    int ends[2];
    if (pipe(ends) != 0) throw Failure("a pipe: " + because(errno));
    const pid_t child = fork();
    if (child < 0) throw Failure("a process: " + because(errno));
    if (child == 0) {
        const Again again = call_again(noted, type);
        _exit(write(ends[1], &again.result, sizeof again.result) == sizeof again.result ? 0 : 1);
    }
    close(ends[1]);
    Again again;
    const bool returned = read(ends[0], &again.result, sizeof again.result) == sizeof again.result;
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    if (!returned) {
        again.difference =
            WIFSIGNALED(status) ? std::string("ends the program here: ") + strsignal(WTERMSIG(status)) : "fails here";
    }
    return again;
}

// ---- Telling ----

const char* name_of(Operation operation) { return recording::operation_names[static_cast<unsigned>(operation)]; }

VESK_WRAPS std::string time_of(const Noted& noted, const Header& header) {
    const std::uint64_t at = header.began_at + (noted.call.began - header.began_monotonic);
    const std::time_t seconds = static_cast<std::time_t>(at / 1000000000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%09uZ", static_cast<unsigned>(at % 1000000000));
    return text;
}

Json as_json(const Noted& noted, const Again& again, const Header& header) {
    const auto or_null = [&](auto value) { return noted.outcome ? Json(value(*noted.outcome)) : Json(nullptr); };
    return {{"call", noted.number},
            {"type", *noted.type},
            {"operation", name_of(noted.call.operation)},
            {"result", or_null([](const Outcome& outcome) { return outcome.result; })},
            {"here", again.is_made ? Json(again.result) : Json(nullptr)},
            {"difference", again.difference.empty() ? Json(nullptr) : Json(again.difference)},
            {"length", noted.call.length},
            {"flags", noted.call.flags},
            {"requests", or_null([](const Outcome& outcome) { return outcome.requests; })},
            {"time", time_of(noted, header)},
            {"nanoseconds", or_null([](const Outcome& outcome) { return outcome.took; })},
            {"process", noted.call.process},
            {"thread", noted.call.thread}};
}

// "000017-pem_data-decode-VESK_MALFORMED.bin"
std::string file_name(const Noted& noted) {
    char number[24];
    std::snprintf(number, sizeof number, "%06llu", static_cast<unsigned long long>(noted.number));
    std::string code = "did_not_return";
    if (noted.outcome) {
        const std::int32_t result =
            noted.call.operation == Operation::encode ? 0 : static_cast<std::int32_t>(noted.outcome->result);
        code = vesk_result_name(result);
        if (code == "unknown result") code = "code_" + std::to_string(result);
    }
    return std::string(number) + "-" + *noted.type + "-" + name_of(noted.call.operation) + "-" + code + ".bin";
}

void extract(const Noted& noted, const std::string& folder) {
    if ((noted.call.bits & recording::has_content) == 0) return;
    Output file(folder + "/" + file_name(noted));
    file.write(std::string_view(reinterpret_cast<const char*>(noted.content), noted.call.length));
    file.close();
}

}  // namespace

int replay_file(const Request& request) {
    const Recording recorded(request.recording);
    if (!request.extract.empty()) {
        umask(077);  // what was private stays so
        if (mkdir(request.extract.c_str(), 0700) != 0 && errno != EEXIST) {
            throw Failure(quote_name(request.extract) + ": " + because(errno));
        }
    }
    Output output;
    std::uint64_t calls = 0;
    std::uint64_t differences = 0;
    std::uint64_t left_out = 0;
    std::array<std::uint64_t, recording::operation_count> of_operation{};
    std::set<std::uint32_t> processes;
    recorded.for_each([&](const Noted& noted) {
        ++calls;
        ++of_operation[static_cast<unsigned>(noted.call.operation)];
        processes.insert(noted.call.process);
        if (!request.extract.empty()) {
            output.close();  // should it fail
            extract(noted, request.extract);
        }
        const vesk_type* const type = vesk_type_named(noted.type->c_str());
        Again again;
        if (type == nullptr) {
            again.is_made = false;
            again.difference = "this library has no such type";
        } else if (!noted.outcome) {
            output.close();  // nothing that is held is to be written twice
            again = call_apart(noted, type);
        } else {
            again = call_again(noted, type);
        }
        if (!again.difference.empty()) ++differences;
        if (!again.is_made) ++left_out;
        if (request.json) {
            output.write(as_json(noted, again, recorded.header()).dump() + "\n");
            return;
        }
        const std::string call =
            "call " + std::to_string(noted.number) + ", " + name_of(noted.call.operation) + " of " + *noted.type + ": ";
        if (!again.difference.empty()) {
            output.write(call + again.difference + "\n");
        } else if (!noted.outcome) {
            output.write(call + "did not return; here it does, with " + in_words(again.result, noted.call.operation) +
                         "\n");
        }
    });
    if (!request.json) {
        std::string parts;
        for (unsigned operation = 0; operation < recording::operation_count; ++operation) {
            parts += (operation == 0 ? "" : ", ") + std::to_string(of_operation[operation]) + " " +
                     recording::operation_names[operation];
        }
        if (left_out != 0) parts += "; " + std::to_string(left_out) + " not made again";
        output.write(counted(calls, "call") + " of " + counted(processes.size(), "process", "es") + " (" + parts +
                     "): " + (differences == 0 ? "no difference" : counted(differences, "difference")) + "\n");
        if (recorded.header().not_noted != 0) {
            output.write("The limit of " + std::to_string(recorded.header().size) +
                         " bytes was reached: " + counted(recorded.header().not_noted, "later call") + " not noted\n");
        }
    }
    output.close();
    return differences == 0 ? status_ok : status_failed;
}

}  // namespace vesk::tool
