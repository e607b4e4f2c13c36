#include "fuzz/input.hpp"

#include <cstdio>
#include <cstdlib>

namespace vesk::fuzz {
namespace {

Input current;

Input read_input(const std::uint8_t* data, std::size_t size) {
    const auto two_bytes = [&](std::size_t at) { return static_cast<std::uint32_t>(data[at] | data[at + 1] << 8); };
    return {&type_of_input(data),       data[header::flags] & 0x7Fu, (data[header::flags] & 0x80) == 0,
            two_bytes(header::refused), two_bytes(header::room),     data[header::capacity],
            data[header::distortion],   data + header::size,         size - header::size};
}

}  // namespace

const TypeInfo& type_of_input(const std::uint8_t* data) {
    const auto& types = target_types();
    return *types[data[header::type] % types.size()];
}

void fail(const char* what) {
    std::fprintf(stderr, "\n%s: %s\n", current.type->name.c_str(), what);
    std::fprintf(stderr, "flags %u, %s, refused allocations %04x, room %u, capacity %u, distortion %u, message:\n",
                 current.flags, current.has_alloc ? "an allocation callback" : "no allocation callback",
                 current.refused, current.room, current.capacity, current.distortion);
    for (std::size_t i = 0; i < current.length; ++i) std::fprintf(stderr, "%02x ", current.message[i]);
    std::fputc('\n', stderr);
    std::abort();
}

}  // namespace vesk::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vesk::fuzz;
    if (size < header::size) return 0;
    current = read_input(data, size);
    check(current);
    return 0;
}
