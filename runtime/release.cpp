#include "runtime/release.hpp"

namespace vesk {

void release_string(char** member, Releaser releaser) {
    if (*member == nullptr) return;
    releaser.release(*member, releaser.context);
    *member = nullptr;
}

void release_bytes(std::uint8_t** data, Releaser releaser, std::uint32_t flags) {
    if ((flags & VESK_BYTES_BY_REFERENCE) != 0 || *data == nullptr) return;
    releaser.release(*data, releaser.context);
    *data = nullptr;
}

void release_list(void* array, void* array_member, std::uint32_t* count, std::size_t element_size,
                  ReleaseNested release_one, Releaser releaser, std::uint32_t flags) {
    if (array == nullptr) return;
    char* element = static_cast<char*>(array);
    for (std::uint32_t i = 0; i < *count; ++i, element += element_size) {
        release_one(element, releaser, flags);
    }
    releaser.release(array, releaser.context);
    set_array(array_member, nullptr);
    *count = 0;
}

}  // namespace vesk
