// The file of a recording, which the preloaded library writes and `vesk record` and `vesk replay` read:
//
//     header     Header, at 0
//     names      of the types, "pem_data", each with a NUL at its end; a record says a type by its place among them
//     records    from Header::records_at on, each at a multiple of 8: Record, its content, zeros up to the next
//     multiple
//
// Every process that is recorded has the file mapped and writes into it where it has set room aside, so that what was
// noted stands there however the process ends. `vesk record` has given the file its blocks before: a full disk ends no
// program. Numbers are as the machine has them; nothing here needs more than libc.
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__clang__)
#define VESK_WRAPS __attribute__((no_sanitize("integer")))  // arithmetic that wraps around on purpose
#else
#define VESK_WRAPS
#endif

namespace vesk::recording {

// Where the file is, for the preloaded library: its whole path.
inline constexpr char environment_variable[] = "VESK_RECORDING";

inline constexpr char magic[8] = {'V', 'E', 'S', 'K', 'R', 'E', 'C', '1'};
inline constexpr std::uint32_t byte_order = 0x01020304;

struct Header {
    char magic[8];
    std::uint32_t byte_order;
    std::uint32_t type_count;
    std::uint64_t records_at;
    std::uint64_t size;             // of the file while it is written: the limit
    std::uint64_t began_at;         // nanoseconds since 1970
    std::uint64_t began_monotonic;  // the same moment by the clock of Record::began
    std::uint64_t reserved[2];

    // These change while programs are recorded, all of them by atomic operations.
    std::uint64_t next;       // where the next record goes; past `size` once one did not fit: recording has stopped
    std::uint64_t full_at;    // where the record would have gone that did not fit; 0 if all did
    std::uint64_t not_noted;  // calls after that
    std::uint64_t processes;  // that were recorded, children included
};
static_assert(sizeof(Header) == 96);

enum class Operation : std::uint8_t { encode, decode, duplicate, free };
inline constexpr std::uint32_t operation_count = 4;
inline constexpr const char* operation_names[operation_count] = {"encode", "decode", "duplicate", "free"};
inline constexpr const char* operation_suffixes[operation_count] = {"_encode_ext", "_decode_ext", "_duplicate",
                                                                    "_free_ext"};

// Bits of a record.
enum : std::uint8_t {
    has_content = 1,  // of encode: it wrote all of the encoding, and did not measure or find the buffer too short
    has_no_alloc = 2  // decode and duplicate were called without an allocation callback
};

inline constexpr std::uint32_t record_mark = 0x4C4C4143;  // "CALL"

// What is known before the call. The content is decode's input, what encode wrote, or of duplicate an encoding of its
// source; where bytes fields are listed by reference, an encoding with their data.
struct Call {
    std::uint32_t mark;
    std::uint16_t type;
    Operation operation;
    std::uint8_t bits;
    std::uint32_t flags;
    std::uint32_t process;
    std::uint32_t thread;
    std::uint32_t reserved;
    std::uint64_t began;   // nanoseconds by CLOCK_MONOTONIC
    std::uint64_t room;    // of encode: the length of its buffer
    std::uint64_t length;  // of the content
    std::uint64_t content_sum;
};

// What is known after it.
struct Outcome {
    std::int64_t result;     // the code, or of encode the length
    std::uint64_t took;      // nanoseconds
    std::uint32_t requests;  // to the allocation callback
    std::uint32_t refused;   // which of them was the first that was refused, from 1 on; 0 if none was
};

struct Record {
    Call call;
    std::uint64_t call_sum;
    Outcome outcome;
    std::uint64_t outcome_sum;  // not that of the outcome: the call did not return
};
static_assert(sizeof(Record) == 96);

inline std::uint64_t rounded_up(std::uint64_t length) { return (length + 7) / 8 * 8; }

// Four sums side by side, since each step of one waits for the step before.
VESK_WRAPS inline std::uint64_t checksum(const void* bytes, std::uint64_t length, std::uint64_t seed) {
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15;
    constexpr std::uint64_t lanes = 4;
    std::uint64_t sums[lanes] = {seed + 1, seed + 2, seed + 3, seed + 4};
    const auto* at = static_cast<const unsigned char*>(bytes);
    std::uint64_t left = length;
    for (; left >= sizeof sums; left -= sizeof sums, at += sizeof sums) {
        std::uint64_t words[lanes];
        std::memcpy(words, at, sizeof words);
        for (std::uint64_t lane = 0; lane < lanes; ++lane) {
            sums[lane] = (sums[lane] ^ words[lane]) * factor;
            sums[lane] ^= sums[lane] >> 32;
        }
    }
    std::uint64_t rest[lanes] = {};
    if (left != 0) std::memcpy(rest, at, static_cast<std::size_t>(left));
    std::uint64_t sum = length;
    for (std::uint64_t lane = 0; lane < lanes; ++lane) {
        sum = (sum ^ rest[lane]) * factor;
        sum = ((sum ^ sum >> 32) ^ sums[lane]) * factor;
        sum ^= sum >> 32;
    }
    return sum;
}

inline std::uint64_t sum_of(const Call& call) { return checksum(&call, sizeof call, record_mark); }
inline std::uint64_t sum_of(const Outcome& outcome, std::uint64_t call_sum) {
    return checksum(&outcome, sizeof outcome, call_sum);
}
inline std::uint64_t sum_of_content(const void* content, std::uint64_t length) { return checksum(content, length, 0); }

}  // namespace vesk::recording
