#include "runtime/decode.hpp"

namespace vesk {

const std::uint8_t* decode_string(char** member, const std::uint8_t* at, const std::uint8_t* end, Source& source) {
    if (*member != nullptr) return fail(source, VESK_MALFORMED);
    if (source.allocator.alloc == nullptr) return fail(source, VESK_NO_MEMORY);
    const Varint length = read_length(at, end);
    if (length.at == nullptr) return fail(source, VESK_MALFORMED);
    char* string = static_cast<char*>(source.allocator.alloc(length.value + 1, source.allocator.context));
    if (string == nullptr) return fail(source, VESK_NO_MEMORY);
    *put_bytes(reinterpret_cast<std::uint8_t*>(string), length.at, length.value) = '\0';
    *member = string;
    return length.at + length.value;
}

const std::uint8_t* decode_bytes(std::uint8_t** data, std::uint64_t* length, const std::uint8_t* at,
                                 const std::uint8_t* end, Source& source) {
    const bool by_reference = (source.flags & VESK_BYTES_BY_REFERENCE) != 0;
    if (*data != nullptr) return fail(source, VESK_MALFORMED);
    if (!by_reference && source.allocator.alloc == nullptr) return fail(source, VESK_NO_MEMORY);
    const Varint content = read_length(at, end);
    if (content.at == nullptr) return fail(source, VESK_MALFORMED);
    if (by_reference) {
        // The contract makes these bytes read only; the member is not const because an owned copy is not.
        *data = const_cast<std::uint8_t*>(content.at);
    } else {
        void* block = source.allocator.alloc(content.value, source.allocator.context);
        if (block == nullptr) return fail(source, VESK_NO_MEMORY);
        std::memcpy(block, content.at, static_cast<std::size_t>(content.value));
        *data = static_cast<std::uint8_t*>(block);
    }
    *length = content.value;
    return content.at + content.value;
}

const std::uint8_t* decode_nested(void* nested, const NestedDecoder& decoder, bool again, const std::uint8_t* at,
                                  const std::uint8_t* end, Source& source) {
    const Varint length = read_length(at, end);
    if (length.at == nullptr) return fail(source, VESK_MALFORMED);
    // What was there is replaced; by an imported message's own decoder, if it is one.
    if (again && !decoder.imported) std::memset(nested, 0, decoder.size);
    return decoder.decode(nested, length.at, length.at + length.value, source);
}

const std::uint8_t* decode_list(const void* array, void* array_member, std::uint32_t* count, std::uint32_t number,
                                const NestedDecoder& decoder, const std::uint8_t* at, const std::uint8_t* end,
                                Source& source) {
    if (array != nullptr) return fail(source, VESK_MALFORMED);
    if (source.allocator.alloc == nullptr) return fail(source, VESK_NO_MEMORY);
    std::uint32_t elements;
    if (!count_run(&elements, number, at, end)) return fail(source, VESK_MALFORMED);
    const std::uint64_t size = std::uint64_t{elements} * decoder.size;
    char* block = static_cast<char*>(source.allocator.alloc(size, source.allocator.context));
    if (block == nullptr) return fail(source, VESK_NO_MEMORY);
    std::memset(block, 0, static_cast<std::size_t>(size));
    set_array(array_member, block);
    *count = elements;
    for (char* element = block; element != block + size; element += decoder.size) {
        if (element != block) {
            at = read_tag(at, end).at;  // counting has shown that it is this list's
            // And that it is there; but whoever gave the block may have written into the input.
            if (at == nullptr) return fail(source, VESK_MALFORMED);
        }
        at = decode_nested(element, decoder, false, at, end, source);
        if (at == nullptr) return nullptr;
    }
    return at;
}

const std::uint8_t* skip_unknown(std::uint32_t tag, std::uint64_t field_numbers, const std::uint8_t* at,
                                 const std::uint8_t* end, Source& source) {
    if (has_field_number(field_number_of_tag(tag), field_numbers)) return fail(source, VESK_WRONG_WIRE_TYPE);
    const Step step = skip_field(wire_type_of_tag(tag), at, end);
    return step.code == VESK_OK ? step.at : fail(source, step.code);
}

std::int32_t decode_ext(void* message, const NestedDecoder& decoder, const void* buffer, std::uint64_t length,
                        Allocator allocator, std::uint32_t flags) {
    const std::uint8_t* const at = static_cast<const std::uint8_t*>(buffer);
    const std::uint8_t* const end = end_of_input(at, length);
    // Nobody has more memory. Without words nothing is read past the byte that ends the decoding.
    const bool wraps = length > static_cast<std::uint64_t>(end - at);
    Source source{wraps ? Input{nullptr} : input_between(at, end), allocator, flags, VESK_OK};
    std::memset(message, 0, decoder.size);
    decoder.decode(message, at, end, source);
    return source.code;
}

}  // namespace vesk
