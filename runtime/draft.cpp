#include "runtime/draft.hpp"

namespace vesk {

namespace {

// Copies a part of the draft in blocks. What lies between it and `limit` is still to be assembled, so that more than
// the part may be stored.
inline std::uint8_t* put_part(std::uint8_t* at, const std::uint8_t* from, std::uint64_t length,
                              const std::uint8_t* limit) {
    constexpr std::ptrdiff_t block = 16;
    if (limit - at < static_cast<std::ptrdiff_t>(length) + block) return put_bytes(at, from, length);
    std::uint8_t* const past = at + length;
    do {
        __builtin_memcpy(at, from, block);
        at += block;
        from += block;
    } while (at < past);
    return past;
}

}  // namespace

std::uint32_t assemble(Draft draft, const Insert* end, Buffer buffer, std::uint32_t flags) {
    const Insert* insert = draft.last;
    const std::uint64_t total = insert->total;
    const auto place_of = [&](const Insert* each) {
        return buffer.data + (each->position - draft.at) + (total - each->total);
    };
    const Insert* imported = insert->encode != nullptr ? insert : insert->imported;
    const std::uint8_t* from = draft.at;
    std::uint8_t* at = buffer.data;
    std::uint32_t segments = 0;
    for (;;) {
        // Of an imported message's place no byte is touched: which of them it leaves out is its own affair.
        const std::uint8_t* const limit = place_of(imported != nullptr ? imported : end);
        for (; insert != end && insert != imported; --insert) {
            at = put_part(at, from, static_cast<std::uint64_t>(insert->position - from), limit);
            at = put_bytes(at, insert->data, insert->total - insert[-1].total);
            from = insert->position;
        }
        at = put_bytes(at, from, static_cast<std::uint64_t>(insert->position - from));
        if (insert == end) return segments;
        const std::uint64_t room = buffer.length - static_cast<std::uint64_t>(at - buffer.data);
        std::uint32_t count = 0;
        // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): what is imported has a function
        insert->encode(insert->data, room != 0 ? at : nullptr, room, nullptr, &count, flags);
        segments += count;
        // Its measured size counts, whatever the call says: the fields after it cannot be moved.
        at += insert->total - insert[-1].total;
        from = insert->position;
        imported = insert->imported;
        --insert;
    }
}

}  // namespace vesk
