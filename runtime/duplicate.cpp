#include "runtime/duplicate.hpp"

namespace vesk {

bool duplicate_string(char** destination, const char* source, Allocator allocator) {
    *destination = nullptr;
    if (source == nullptr) return true;
    const std::uint64_t size = std::uint64_t{std::strlen(source)} + 1;
    void* block = allocate(allocator, size);
    if (block == nullptr) return false;
    std::memcpy(block, source, static_cast<std::size_t>(size));
    *destination = static_cast<char*>(block);
    return true;
}

// The length decides, not the pointer: an empty field with a pointer becomes one without, and nothing is allocated.
bool duplicate_bytes(std::uint8_t** destination, std::uint64_t* destination_length, const std::uint8_t* source,
                     std::uint64_t length, Allocator allocator) {
    *destination = nullptr;
    *destination_length = 0;
    if (length == 0) return true;
    void* block = allocate(allocator, length);
    if (block == nullptr) return false;
    std::memcpy(block, source, static_cast<std::size_t>(length));
    *destination = static_cast<std::uint8_t*>(block);
    *destination_length = length;
    return true;
}

bool duplicate_list(void* destination_member, std::uint32_t* destination_count, const void* source, std::uint32_t count,
                    std::size_t element_size, DuplicateNested duplicate_one, Allocator allocator, std::int32_t* code) {
    set_array(destination_member, nullptr);
    *destination_count = 0;
    if (count == 0) return true;
    char* array = static_cast<char*>(allocate(allocator, std::uint64_t{count} * element_size));
    if (array == nullptr) return false;
    const char* from = static_cast<const char*>(source);
    for (std::size_t i = 0; i < count; ++i) {
        *code = first_code(*code, duplicate_one(array + i * element_size, from + i * element_size, allocator));
    }
    set_array(destination_member, array);
    *destination_count = count;
    return true;
}

}  // namespace vesk
