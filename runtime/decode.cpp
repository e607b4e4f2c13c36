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
    } while (field_number_of_tag(tag) == number);
    *count = elements;
    return true;
}

}  // namespace

Step decode_string(char** member, const std::uint8_t* at, const std::uint8_t* end, const Source& source) {
    if (*member != nullptr) return {nullptr, VESK_MALFORMED};
    if (source.allocator.alloc == nullptr) return {nullptr, VESK_NO_MEMORY};
    std::uint32_t length;
    at = read_length(at, end, &length);
    if (at == nullptr) return {nullptr, VESK_MALFORMED};
    char* string = static_cast<char*>(source.allocator.alloc(std::uint64_t{length} + 1, source.allocator.context));
    if (string == nullptr) return {nullptr, VESK_NO_MEMORY};
    *put_bytes(reinterpret_cast<std::uint8_t*>(string), at, length) = '\0';
    *member = string;
    return {at + length, VESK_OK};
}

Step decode_bytes(std::uint8_t** data, std::uint64_t* length, const std::uint8_t* at, const std::uint8_t* end,
                  const Source& source) {
    const bool by_reference = (source.flags & VESK_BYTES_BY_REFERENCE) != 0;
    if (*data != nullptr) return {nullptr, VESK_MALFORMED};
    if (!by_reference && source.allocator.alloc == nullptr) return {nullptr, VESK_NO_MEMORY};
    std::uint32_t size;
    at = read_length(at, end, &size);
    if (at == nullptr) return {nullptr, VESK_MALFORMED};
    if (by_reference) {
        // The contract makes these bytes read only; the member is not const because an owned copy is not.
        *data = const_cast<std::uint8_t*>(at);
    } else {
        void* block = source.allocator.alloc(size, source.allocator.context);
        if (block == nullptr) return {nullptr, VESK_NO_MEMORY};
        std::memcpy(block, at, size);
        *data = static_cast<std::uint8_t*>(block);
    }
    *length = size;
    return {at + size, VESK_OK};
}

namespace {

Step decode_range(void* nested, const NestedDecoder& decoder, const std::uint8_t* at, std::uint32_t length,
                  const Source& source) {
    const std::uint8_t* const end = at + length;
    const std::int32_t code = decoder.decode(nested, at, end, source);
    return {code == VESK_OK ? end : nullptr, code};
}

}  // namespace

Step decode_nested(void* nested, const NestedDecoder& decoder, bool clear, const std::uint8_t* at,
                   const std::uint8_t* end, const Source& source) {
    std::uint32_t length;
    at = read_length(at, end, &length);
    if (at == nullptr) return {nullptr, VESK_MALFORMED};
    if (clear) std::memset(nested, 0, decoder.size);
    return decode_range(nested, decoder, at, length, source);
}

Step decode_list(const void* array, void* array_member, std::uint32_t* count, std::uint32_t number,
                 const NestedDecoder& decoder, const std::uint8_t* at, const std::uint8_t* end, const Source& source) {
    if (array != nullptr) return {nullptr, VESK_MALFORMED};
    if (source.allocator.alloc == nullptr) return {nullptr, VESK_NO_MEMORY};
    std::uint32_t elements;
    if (!count_run(&elements, number, at, end)) return {nullptr, VESK_MALFORMED};
    const std::uint64_t size = std::uint64_t{elements} * decoder.size;
    char* block = static_cast<char*>(source.allocator.alloc(size, source.allocator.context));
    if (block == nullptr) return {nullptr, VESK_NO_MEMORY};
    std::memset(block, 0, static_cast<std::size_t>(size));
    set_array(array_member, block);
    *count = elements;
    for (std::uint32_t i = 0; i < elements; ++i) {
        if (i != 0) {
            std::uint32_t tag;  // counting has shown that it is this list's
            at = read_varint32(at, end, &tag);
            // And that it is there; but whoever gave the block may have written into the input.
            if (at == nullptr) return {nullptr, VESK_MALFORMED};
        }
        const Step step = decode_nested(block + i * decoder.size, decoder, false, at, end, source);
        if (step.code != VESK_OK) return step;
        at = step.at;
    }
    return {at, VESK_OK};
}

Step skip_unknown(std::uint32_t tag, std::uint64_t known_numbers, const std::uint8_t* at, const std::uint8_t* end) {
    if (is_number_in(field_number_of_tag(tag), known_numbers)) return {nullptr, VESK_WRONG_WIRE_TYPE};
    return skip_field(wire_type_of_tag(tag), at, end);
}

namespace {

// The most bytes that an input can have from this address on: it ends at the last address, and no object is larger than
// a difference of pointers can say.
std::uint64_t longest_input(const std::uint8_t* at) {
    const std::uint64_t to_last_address = UINTPTR_MAX - reinterpret_cast<std::uintptr_t>(at);
    return to_last_address < PTRDIFF_MAX ? to_last_address : PTRDIFF_MAX;
}

}  // namespace

std::int32_t decode_ext(void* message, const NestedDecoder& decoder, const void* buffer, std::uint64_t length,
                        Allocator allocator, std::uint32_t flags) {
    const std::uint8_t* const at = static_cast<const std::uint8_t*>(buffer);
    const std::uint64_t longest = longest_input(at);
    std::memset(message, 0, decoder.size);
    if (length > longest) [[unlikely]] {
        // Nobody has so much memory. Without words nothing is read past the byte that ends the decoding.
        return decoder.decode(message, at, at + longest, {{nullptr}, allocator, flags});
    }
    const std::uint8_t* const end = at + length;
    return decoder.decode(message, at, end, {input_between(at, end), allocator, flags});
}

}  // namespace vesk
