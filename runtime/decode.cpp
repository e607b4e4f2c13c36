#include "runtime/decode.hpp"

namespace vesk {
namespace {

// Counts the elements of a run, `at` being the position of the first one's length. Only field numbers are compared: an
// element with another wire type counts, and is then read as a length.
// See decode_list.later_element_with_wire_type_0_is_part_of_the_run.
bool count_run(std::uint32_t* count, std::uint32_t number, const std::uint8_t* at, const std::uint8_t* end) {
    std::uint32_t elements = 0;
    std::uint32_t tag;
    do {
        std::uint32_t length;
        at = read_length(at, end, &length);
        if (at == nullptr) return false;
        at += length;
        ++elements;
        if (at == end) break;
        at = read_varint32(at, end, &tag);
        if (at == nullptr) return false;
    } while (number_of_tag(tag) == number);
    *count = elements;
    return true;
}

}  // namespace

Step decode_string(char** member, const std::uint8_t* at, const std::uint8_t* end, Allocator allocator) {
    if (*member != nullptr) return {nullptr, VESK_MALFORMED};
    if (allocator.alloc == nullptr) return {nullptr, VESK_NO_MEMORY};
    std::uint32_t length;
    at = read_length(at, end, &length);
    if (at == nullptr) return {nullptr, VESK_MALFORMED};
    char* string = static_cast<char*>(allocator.alloc(std::uint64_t{length} + 1, allocator.context));
    if (string == nullptr) return {nullptr, VESK_NO_MEMORY};
    std::memcpy(string, at, length);
    string[length] = '\0';
    *member = string;
    return {at + length, VESK_OK};
}

Step decode_bytes(std::uint8_t** data, std::uint64_t* length, const std::uint8_t* at, const std::uint8_t* end,
                  Allocator allocator, std::uint32_t flags) {
    const bool by_reference = (flags & VESK_BYTES_BY_REFERENCE) != 0;
    if (*data != nullptr) return {nullptr, VESK_MALFORMED};
    if (!by_reference && allocator.alloc == nullptr) return {nullptr, VESK_NO_MEMORY};
    std::uint32_t size;
    at = read_length(at, end, &size);
    if (at == nullptr) return {nullptr, VESK_MALFORMED};
    if (by_reference) {
        // The contract makes these bytes read only; the member is not const because an owned copy is not.
        *data = const_cast<std::uint8_t*>(at);
    } else {
        void* block = allocator.alloc(size, allocator.context);
        if (block == nullptr) return {nullptr, VESK_NO_MEMORY};
        std::memcpy(block, at, size);
        *data = static_cast<std::uint8_t*>(block);
    }
    *length = size;
    return {at + size, VESK_OK};
}

Step decode_nested(void* nested, DecodeNested decode_one, const std::uint8_t* at, const std::uint8_t* end,
                   Allocator allocator, std::uint32_t flags) {
    std::uint32_t length;
    at = read_length(at, end, &length);
    if (at == nullptr) return {nullptr, VESK_MALFORMED};
    return {at + length, decode_one(nested, at, at + length, allocator, flags)};
}

Step decode_list(const void* array, void* array_member, std::uint32_t* count, std::uint32_t number,
                 std::size_t element_size, DecodeNested decode_one, const std::uint8_t* at, const std::uint8_t* end,
                 Allocator allocator, std::uint32_t flags) {
    if (array != nullptr) return {nullptr, VESK_MALFORMED};
    if (allocator.alloc == nullptr) return {nullptr, VESK_NO_MEMORY};
    std::uint32_t elements;
    if (!count_run(&elements, number, at, end)) return {nullptr, VESK_MALFORMED};
    const std::uint64_t size = std::uint64_t{elements} * element_size;
    char* block = static_cast<char*>(allocator.alloc(size, allocator.context));
    if (block == nullptr) return {nullptr, VESK_NO_MEMORY};
    std::memset(block, 0, static_cast<std::size_t>(size));
    set_array(array_member, block);
    *count = elements;
    for (std::uint32_t i = 0; i < elements; ++i) {
        std::uint32_t tag;  // counting has shown that it is this list's
        if (i != 0) at = read_varint32(at, end, &tag);
        const Step step = decode_nested(block + i * element_size, decode_one, at, end, allocator, flags);
        if (step.code != VESK_OK) return step;
        at = step.at;
    }
    return {at, VESK_OK};
}

}  // namespace vesk
