// What the toolkit takes beside what it stands for: each operation in turn with its peer, round by round, so that a
// ratio is of one and the same moment; or each once, for callgrind.
#include <valgrind/callgrind.h>
#include <vesk/vesk_toolkit.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <regex>

#include "bench/contestant.hpp"

namespace vesk::bench {
namespace {

void* from_heap(std::uint64_t size, void*) { return std::malloc(size); }
void to_heap(void* block, void*) { std::free(block); }
void* from_bump(std::uint64_t size, void* arena) { return static_cast<BumpArena*>(arena)->allocate(size); }

// Works on the messages of a workload, in turn.
class Subject {
public:
    explicit Subject(const Workload& workload)
        : workload_(workload),
          facts_(vesk_type_named(workload.type->name.c_str())),
          turn_(workload.messages.size()),
          bump_(arena_capacity(workload)),
          buffer_(workload.longest_encoding),
          segments_(1 << 14),
          storage_(*workload.type) {
        vesk_arena_of_blocks(&arena_, from_heap, to_heap, nullptr);
    }
    ~Subject() { vesk_arena_close(&arena_); }
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    bool decode() {
        bump_.reset();
        return decode_with(from_bump, &bump_);
    }
    bool decode_with_malloc() {
        const bool ok = decode_with(from_heap, nullptr);
        workload_.type->free(storage_.get(), to_heap, nullptr, workload_.flags);
        return ok;
    }
    bool decode_with_arena() {
        const bool ok = decode_with(vesk_arena_alloc, &arena_);
        vesk_arena_reset(&arena_);
        return ok;
    }
    bool check() {
        const Bytes& input = next();
        vesk_report report;
        report.size = sizeof report;
        return vesk_check(facts_, input.data(), input.size(), workload_.flags, &report, nullptr) == VESK_OK;
    }
    bool decode_in_one_block() {
        const Bytes& input = next();
        vesk_one_block block;
        const std::int32_t code =
            VESK_DECODE_IN_ONE_BLOCK(workload_.type->decode, facts_, storage_.get(), input.data(), input.size(),
                                     workload_.flags, from_heap, nullptr, &block, nullptr);
        vesk_one_block_release(&block, to_heap, nullptr);
        return code == VESK_OK;
    }
    // The last field of the type: everything before it is stepped over.
    bool peek() {
        const Bytes& input = next();
        const vesk_field* const last = vesk_type_field(facts_, facts_->field_count - 1u);
        vesk_value value;
        value.size = sizeof value;
        const std::int32_t code = vesk_peek(facts_, vesk_field_name(last), input.data(), input.size(), &value, nullptr);
        return code == VESK_OK || code == VESK_ABSENT;
    }
    bool peek_at_first() {
        const Bytes& input = next();
        const vesk_field* const first = vesk_type_field(facts_, 0);
        vesk_options options = vesk_default_options();
        options.flags = VESK_FIRST_OCCURRENCE;
        vesk_value value;
        value.size = sizeof value;
        const std::int32_t code =
            vesk_peek(facts_, vesk_field_name(first), input.data(), input.size(), &value, &options);
        return code == VESK_OK || code == VESK_ABSENT;
    }

    // Into a buffer of its own, bytes fields copied; and gathered, where they stay where they are.
    bool encode_a_copy() {
        const void* const message = workload_.messages[turn_.next()].get();
        return workload_.type->encode(message, buffer_.data(), buffer_.size(), nullptr, nullptr, 0) <= buffer_.size();
    }
    bool gather() {
        const void* const message = workload_.messages[turn_.next()].get();
        std::uint64_t length = buffer_.size();
        std::uint32_t count = static_cast<std::uint32_t>(segments_.size());
        return vesk_gather(facts_, message, buffer_.data(), &length, segments_.data(), &count, nullptr) == VESK_OK;
    }

private:
    const Bytes& next() { return workload_.encoded[turn_.next()]; }
    bool decode_with(vesk_alloc alloc, void* context) {
        const Bytes& input = next();
        return workload_.type->decode(storage_.get(), input.data(), input.size(), alloc, context, workload_.flags) ==
               VESK_OK;
    }

    const Workload& workload_;
    const vesk_type* facts_;
    Turn turn_;
    BumpArena bump_;
    vesk_arena arena_;
    Bytes buffer_;
    std::vector<vesk_segment> segments_;
    test::Storage storage_;
};

struct Pair {
    const char* name;
    bool (Subject::*operation)();
    bool (Subject::*peer)();
};

constexpr Pair pairs[] = {
    {"check/decode", &Subject::check, &Subject::decode},
    {"arena/malloc", &Subject::decode_with_arena, &Subject::decode_with_malloc},
    {"one_block/malloc", &Subject::decode_in_one_block, &Subject::decode_with_malloc},
    {"peek/decode", &Subject::peek, &Subject::decode},
    {"peek_at_first/decode", &Subject::peek_at_first, &Subject::decode},
    {"gather/encode", &Subject::gather, &Subject::encode_a_copy},
};

void run(Subject& subject, bool (Subject::*operation)(), std::size_t calls) {
    for (std::size_t i = 0; i < calls; ++i) {
        if (!(subject.*operation)()) throw std::runtime_error("a call failed");
    }
}

double seconds(Subject& subject, bool (Subject::*operation)(), std::size_t calls) {
    const auto begin = std::chrono::steady_clock::now();
    run(subject, operation, calls);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void time_workload(const Workload& workload) {
    Subject subject(workload);
    const std::size_t calls = std::max<std::size_t>(
        workload.messages.size(), static_cast<std::size_t>(2e6 / static_cast<double>(workload.longest_encoding + 50)));
    std::printf("%-24s", workload.name.c_str());
    for (const Pair& pair : pairs) {
        std::vector<double> ratios;
        for (int round = 0; round < 15; ++round) {
            const double own = seconds(subject, pair.operation, calls);
            ratios.push_back(own / seconds(subject, pair.peer, calls));
        }
        std::nth_element(ratios.begin(), ratios.begin() + 7, ratios.end());
        std::printf(" %10.2f", ratios[7]);
    }
    std::printf("\n");
}

void count_workload(const Workload& workload, bool with_all) {
    Subject subject(workload);
    const std::size_t calls = workload.messages.size();
    const auto count = [&](const std::string& operation, bool (Subject::*method)()) {
        CALLGRIND_START_INSTRUMENTATION;
        run(subject, method, calls);  // binds the imported functions
        CALLGRIND_ZERO_STATS;
        run(subject, method, calls);
        const std::string title = workload.name + " " + operation + " " + std::to_string(calls);
        CALLGRIND_DUMP_STATS_AT(title.c_str());
        CALLGRIND_STOP_INSTRUMENTATION;
    };
    count("check", &Subject::check);
    count("decode", &Subject::decode);
    if (!with_all) return;
    count("decode_with_malloc", &Subject::decode_with_malloc);
    count("decode_with_arena", &Subject::decode_with_arena);
    count("one_block", &Subject::decode_in_one_block);
    count("peek", &Subject::peek);
    count("peek_at_first", &Subject::peek_at_first);
    count("encode", &Subject::encode_a_copy);
    count("gather", &Subject::gather);
}

// ---- Hostile input: much work in few bytes ----

Bytes repeated(const Bytes& part) {
    Bytes input;
    while (input.size() < 3000) input.insert(input.end(), part.begin(), part.end());
    return input;
}

void count_hostile(const vesk_type* type, const std::string& name, const Bytes& part) {
    const Bytes input = repeated(part);
    vesk_report report;
    report.size = sizeof report;
    const auto check = [&] { return vesk_check(type, input.data(), input.size(), 0, &report, nullptr); };
    CALLGRIND_START_INSTRUMENTATION;
    check();
    CALLGRIND_ZERO_STATS;
    check();
    const std::string title = name + " check " + std::to_string(input.size());
    CALLGRIND_DUMP_STATS_AT(title.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
}

// Every field alone, over and over: empty, and in each of its other forms that is short.
void count_all_hostile(const std::string& types) {
    const std::regex wanted(types);
    for (const vesk_type* type = vesk_all_types(nullptr); type != nullptr; type = vesk_type_next(type)) {
        if (!std::regex_match(vesk_type_name(type), wanted)) continue;
        const std::string prefix = vesk_type_name(type) + std::string(".");
        for (std::uint32_t place = 0; place < type->field_count; ++place) {
            const vesk_field* const field = vesk_type_field(type, place);
            const Bytes tag = test::varint(field->tag);
            count_hostile(type, prefix + vesk_field_name(field), test::message(tag, Bytes{0}));
            if (field->nested_at == 0) continue;
            // With an empty member, which is a message or identifier where the type has one.
            count_hostile(type, prefix + vesk_field_name(field) + "+", test::message(tag, Bytes{2, 0x0A, 0}));
        }
        count_hostile(type, prefix + "unknown_varint", {0xF8, 0x03, 0});
        count_hostile(type, prefix + "unknown_empty", {0xFA, 0x03, 0});
        count_hostile(type, prefix + "unknown_zero", {0x00, 0x00});
    }
}

}  // namespace
}  // namespace vesk::bench

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "hostile") {
        vesk::bench::count_all_hostile(argv[2]);
        return 0;
    }
    const std::string task = argc == 3 ? argv[1] : "";
    if (task != "time" && task != "count" && task != "count-all") {
        std::cerr << "usage: compare_toolkit time|count|count-all REGEX (of the workloads), or compare_toolkit hostile "
                     "REGEX (of "
                     "the types)\n";
        return 2;
    }
    const bool time = task == "time";
    if (time) {
        std::printf("%-24s", "");
        for (const vesk::bench::Pair& pair : vesk::bench::pairs) std::printf(" %10.10s", pair.name);
        std::printf("\n");
    }
    try {
        const std::regex wanted(argv[2]);
        for (const vesk::bench::WorkloadPlan& plan : vesk::bench::all_workloads(0)) {
            if (!std::regex_match(plan.name, wanted)) continue;
            if (time) {
                vesk::bench::time_workload(plan.make());
            } else {
                vesk::bench::count_workload(plan.make(), task == "count-all");
            }
        }
    } catch (const std::exception& error) {
        std::cerr << "compare_toolkit: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
