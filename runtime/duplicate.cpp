#include "runtime/duplicate.hpp"

namespace vesk {

bool duplicate_string(char** destination, const char* source, const Allocator& allocator) {
    const std::uint64_t size = std::uint64_t{std::strlen(source)} + 1;
    void* block = allocate(allocator, size);
    *destination = static_cast<char*>(block);
    if (block == nullptr) return false;
    put_bytes(static_cast<std::uint8_t*>(block), source, size);
    return true;
}

// The length decides, not the pointer: an empty field with a pointer becomes one without, and nothing is allocated.
bool duplicate_bytes(std::uint8_t** destination, std::uint64_t* destination_length, const std::uint8_t* source,
                     std::uint64_t length, const Allocator& allocator) {
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
                    const NestedDuplicator& duplicator, const Allocator& allocator, std::int32_t* code) {
    *destination_count = 0;
    char* array = static_cast<char*>(allocate(allocator, std::uint64_t{count} * duplicator.size));
    if (array == nullptr) return false;
    char* to = array;
    const char* from = static_cast<const char*>(source);
    for (std::uint32_t left = count; left != 0; --left, to += duplicator.size, from += duplicator.size) {
        *code = first_code(*code, duplicator.duplicate(to, from, allocator));
    }
    set_array(destination_member, array);
    *destination_count = count;
    return true;
}

}  // namespace vesk
