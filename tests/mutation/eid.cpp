#include "tests/mutation/eid.hpp"

#include <dlfcn.h>
#include <vesk/drin_eid.h>

#include <algorithm>

namespace vesk::test {

EidBehaviour& eid_behaviour() {
    static EidBehaviour behaviour;
    return behaviour;
}

std::string& eid_writes() {
    static std::string writes;
    return writes;
}

namespace {

// The stand-in's function, behind the program's own of the same name.
template <class Function>
Function* own(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace vesk::test

using vesk::test::eid_behaviour;
using vesk::test::eid_writes;
using vesk::test::own;

std::uint64_t vesk_drin_eid_st_encode_ext(const vesk_drin_eid_st* message, void* buffer, std::uint64_t length,
                                          vesk_segment* segments, std::uint32_t* count, std::uint32_t flags) {
    static const auto encode = own(vesk_drin_eid_st_encode_ext, "vesk_drin_eid_st_encode_ext");
    const auto& behaviour = eid_behaviour();
    if (behaviour.measured == 0) return encode(message, buffer, length, segments, count, flags);
    if (count != nullptr) {
        eid_writes() += (buffer == nullptr ? "null, " : "buffer, ") + std::to_string(length) +
                        (segments == nullptr ? ", null, " : ", list, ") + std::to_string(*count) + ", " +
                        std::to_string(flags) + "\n";
        *count = behaviour.segments;
    }
    std::fill_n(static_cast<std::uint8_t*>(buffer), std::min({length, behaviour.measured, behaviour.stored}),
                std::uint8_t{0xE1});
    return buffer == nullptr ? behaviour.measured : behaviour.measured + 5;
}

std::int32_t vesk_drin_eid_st_decode_ext(vesk_drin_eid_st* message, const void* buffer, std::uint64_t length,
                                         vesk_alloc alloc, void* context, std::uint32_t flags) {
    static const auto decode = own(vesk_drin_eid_st_decode_ext, "vesk_drin_eid_st_decode_ext");
    if (eid_behaviour().decode_code != 0) return eid_behaviour().decode_code;
    return decode(message, buffer, length, alloc, context, flags);
}

std::int32_t vesk_drin_eid_st_duplicate(vesk_drin_eid_st* destination, const vesk_drin_eid_st* source, vesk_alloc alloc,
                                        void* context) {
    static const auto duplicate = own(vesk_drin_eid_st_duplicate, "vesk_drin_eid_st_duplicate");
    const std::int32_t code = duplicate(destination, source, alloc, context);
    return eid_behaviour().duplicate_code != 0 ? eid_behaviour().duplicate_code : code;
}

void vesk_drin_eid_st_free_ext(vesk_drin_eid_st* message, vesk_release release, void* context, std::uint32_t flags) {
    static const auto free = own(vesk_drin_eid_st_free_ext, "vesk_drin_eid_st_free_ext");
    free(message, release, context, flags);
}
