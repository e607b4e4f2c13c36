#include "runtime/release.hpp"

namespace vesk {

void release_string(char** member, const Releaser& releaser) {
    releaser.release(*member, releaser.context);
    *member = nullptr;
}

void release_bytes(std::uint8_t** data, const Releaser& releaser) {
    if ((releaser.flags & VESK_BYTES_BY_REFERENCE) != 0 || *data == nullptr) return;
    releaser.release(*data, releaser.context);
    *data = nullptr;
}

void release_list(void* array, void* array_member, std::uint32_t* count, const NestedReleaser& nested_releaser,
                  const Releaser& releaser) {
    if (nested_releaser.release != nullptr) {
        char* element = static_cast<char*>(array);
        for (std::uint32_t i = 0; i < *count; ++i, element += nested_releaser.size) {
            nested_releaser.release(element, releaser);
        }
    }
    releaser.release(array, releaser.context);
    set_array(array_member, nullptr);
    *count = 0;
}

}  // namespace vesk
