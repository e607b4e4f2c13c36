#include "runtime/measure.hpp"

namespace vesk {

std::uint64_t measure_list(const void* array, std::uint32_t count, std::size_t element_size, std::uint64_t tag_size,
                           MeasureNested measure_one, std::uint32_t flags) {
    std::uint64_t total = 0;
    const char* element = static_cast<const char*>(array);
    for (std::uint32_t i = 0; i < count; ++i, element += element_size) {
        const std::uint64_t size = measure_one(element, flags);
        total += tag_size + length_size(size) + size;
    }
    return total;
}

}  // namespace vesk
