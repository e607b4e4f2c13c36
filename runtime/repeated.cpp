#include "runtime/repeated.hpp"

#include "runtime/decode.hpp"
#include "runtime/duplicate.hpp"
#include "runtime/encode.hpp"
#include "runtime/release.hpp"

namespace vesk {

// ---- Encoding ------------------------------------------------------------------------------------------------------

void write_far_list(std::uint32_t tag, const void* array, std::uint32_t count, const TypeEncoder& type,
                    Writer& writer) {
    const char* element = static_cast<const char*>(array);
    for (; count != 0; --count, element += type.size) {
        write_nested(tag, element, type.measure(element, writer.flags), type, writer);
    }
}

// ---- Decoding ------------------------------------------------------------------------------------------------------

namespace {

// Counts a run of scalars, each field packed or not, `at` being the position after the first tag.
std::int32_t count_values(std::uint32_t* count, std::uint32_t tag, WireType wire_type, const std::uint8_t* at,
                          const std::uint8_t* end) {
    const std::uint32_t number = field_number_of_tag(tag);
    std::uint64_t values = 0;
    for (;;) {
        if (wire_type_of_tag(tag) == length_type) {
            const Varint length = read_length(at, end);
            if (length.at == nullptr) return VESK_MALFORMED;
            at = length.at + length.value;
            if (!count_packed(&values, wire_type, length.at, at)) return VESK_MALFORMED;
        } else if (wire_type_of_tag(tag) != wire_type) {
            return VESK_WRONG_WIRE_TYPE;
        } else if (wire_type == varint_type) {
            at = skip_varint(at, end);
            if (at == nullptr) return VESK_MALFORMED;
            ++values;
        } else {
            if (static_cast<std::uint64_t>(end - at) < width_of(wire_type)) return VESK_MALFORMED;
            at += width_of(wire_type);
            ++values;
        }
        if (at == end) break;
        const Varint next = read_tag(at, end);
        if (next.at == nullptr) return VESK_MALFORMED;
        tag = static_cast<std::uint32_t>(next.value);
        if (field_number_of_tag(tag) != number) break;
        at = next.at;
    }
    if (values > UINT32_MAX) return VESK_MALFORMED;
    *count = static_cast<std::uint32_t>(values);
    return VESK_OK;
}

// Gives a run of elements its block of zeroes. False if there is none.
bool make_array(void* array_member, std::uint32_t* count, std::uint32_t elements, std::size_t size, Source& source) {
    const std::uint64_t block_size = std::uint64_t{elements} * size;
    void* const block = source.allocator.alloc(block_size, source.allocator.context);
    if (block == nullptr) return fail(source, VESK_NO_MEMORY) != nullptr;
    std::memset(block, 0, static_cast<std::size_t>(block_size));
    set_array(array_member, block);
    *count = elements;
    return true;
}

// Reads a run of strings or bytes, each by `decode_element`.
template <class Element, class DecodeElement>
const std::uint8_t* decode_blocks(Element** array, std::uint32_t* count, std::uint32_t number, const std::uint8_t* at,
                                  const std::uint8_t* end, Source& source, DecodeElement decode_element) {
    if (*array != nullptr) return fail(source, VESK_MALFORMED);
    if (source.allocator.alloc == nullptr) return fail(source, VESK_NO_MEMORY);
    std::uint32_t elements;
    if (!count_run(&elements, number, at, end)) return fail(source, VESK_MALFORMED);
    if (!make_array(array, count, elements, sizeof **array, source)) return nullptr;
    for (std::uint32_t i = 0; i < elements; ++i) {
        if (i != 0) {
            at = read_tag(at, end).at;
            // Counting has shown it to be there; but whoever gave a block may have written into the input.
            if (at == nullptr) return fail(source, VESK_MALFORMED);
        }
        at = decode_element(&(*array)[i], at);
        if (at == nullptr) return nullptr;
    }
    return at;
}

}  // namespace

bool make_values(const void* array, void* array_member, std::uint32_t* count, std::uint32_t tag, WireType wire_type,
                 std::size_t size, const std::uint8_t* at, const std::uint8_t* end, Source& source) {
    if (array != nullptr) return fail(source, VESK_MALFORMED) != nullptr;
    if (source.allocator.alloc == nullptr) return fail(source, VESK_NO_MEMORY) != nullptr;
    std::uint32_t values = 0;
    const std::int32_t code = count_values(&values, tag, wire_type, at, end);
    if (code != VESK_OK) return fail(source, code) != nullptr;
    return values == 0 || make_array(array_member, count, values, size, source);
}

const std::uint8_t* decode_strings(char*** array, std::uint32_t* count, std::uint32_t number, const std::uint8_t* at,
                                   const std::uint8_t* end, Source& source) {
    return decode_blocks(array, count, number, at, end, source, [&](char** element, const std::uint8_t* from) {
        return decode_string(element, from, end, source);
    });
}

const std::uint8_t* decode_blobs(vesk_bytes** array, std::uint32_t* count, std::uint32_t number, const std::uint8_t* at,
                                 const std::uint8_t* end, Source& source) {
    return decode_blocks(array, count, number, at, end, source, [&](vesk_bytes* element, const std::uint8_t* from) {
        return decode_bytes(&element->data, &element->length, from, end, source);
    });
}

// ---- Duplicating ---------------------------------------------------------------------------------------------------

namespace {

// The copies of all elements are made, whatever becomes of one.
template <class Element, class Duplicate>
bool duplicate_blocks(Element** destination, std::uint32_t* destination_count, std::uint32_t count,
                      const Allocator& allocator, std::int32_t* code, Duplicate duplicate_element) {
    *destination_count = 0;
    void* const block = allocate(allocator, std::uint64_t{count} * sizeof(Element));
    if (block == nullptr) return false;
    Element* const array = static_cast<Element*>(block);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!duplicate_element(&array[i], i)) *code = first_code(*code, VESK_NO_MEMORY);
    }
    *destination = array;
    *destination_count = count;
    return true;
}

}  // namespace

bool duplicate_elements(char*** destination, std::uint32_t* destination_count, char* const* source, std::uint32_t count,
                        const Allocator& allocator, std::int32_t* code) {
    return duplicate_blocks(destination, destination_count, count, allocator, code, [&](char** to, std::uint32_t i) {
        *to = nullptr;
        return source[i] == nullptr || duplicate_string(to, source[i], allocator);
    });
}

bool duplicate_elements(vesk_bytes** destination, std::uint32_t* destination_count, const vesk_bytes* source,
                        std::uint32_t count, const Allocator& allocator, std::int32_t* code) {
    return duplicate_blocks(
        destination, destination_count, count, allocator, code, [&](vesk_bytes* to, std::uint32_t i) {
            return duplicate_bytes(&to->data, &to->length, source[i].data, source[i].length, allocator);
        });
}

// ---- Releasing -----------------------------------------------------------------------------------------------------

void release_elements(char*** array, std::uint32_t* count, const Releaser& releaser) {
    for (std::uint32_t i = 0; i < *count; ++i) {
        if ((*array)[i] != nullptr) release_string(&(*array)[i], releaser);
    }
    release_elements<char*>(array, count, releaser);
}

void release_elements(vesk_bytes** array, std::uint32_t* count, const Releaser& releaser) {
    for (std::uint32_t i = 0; i < *count; ++i) release_bytes(&(*array)[i].data, releaser);
    release_elements<vesk_bytes>(array, count, releaser);
}

}  // namespace vesk
