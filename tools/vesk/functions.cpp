#include <vesk/client_service.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "every_type.hpp"
#include "tools/vesk/failure.hpp"
#include "tools/vesk/schema.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

// Functions of one signature that call those of a type: a call through a pointer of another type is undefined.
template <class T, auto encode, auto decode, auto duplicate, auto free>
constexpr Functions functions_for() {
    return {[](const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
               std::uint32_t* segment_count, std::uint32_t flags) {
                return encode(static_cast<const T*>(message), buffer, length, segments, segment_count, flags);
            },
            [](void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc, void* context,
               std::uint32_t flags) { return decode(static_cast<T*>(message), buffer, length, alloc, context, flags); },
            [](void* destination, const void* source, vesk_alloc alloc, void* context) {
                return duplicate(static_cast<T*>(destination), static_cast<const T*>(source), alloc, context);
            },
            [](void* message, vesk_release release, void* context, std::uint32_t flags) {
                free(static_cast<T*>(message), release, context, flags);
            }};
}

struct Entry {
    std::string_view name;
    Functions functions;
};

constexpr std::string_view prefix = "vesk_";
constexpr Entry entries[] = {
#define VESK_ENTRY(T)                            \
    {std::string_view(#T).substr(prefix.size()), \
     functions_for<T, T##_encode_ext, T##_decode_ext, T##_duplicate, T##_free_ext>()},
    VESK_EVERY_TYPE(VESK_ENTRY)
#undef VESK_ENTRY
};

// They are found by name, so that nothing is known of the type of their first argument but that it is a pointer.
Functions functions_in_schema(const std::string& name) {
    Functions functions;
    functions.encode = reinterpret_cast<decltype(functions.encode)>(function_of_schema(name + "_encode_ext"));
    functions.decode = reinterpret_cast<decltype(functions.decode)>(function_of_schema(name + "_decode_ext"));
    functions.duplicate = reinterpret_cast<decltype(functions.duplicate)>(function_of_schema(name + "_duplicate"));
    functions.free = reinterpret_cast<decltype(functions.free)>(function_of_schema(name + "_free_ext"));
    return functions;
}

}  // namespace

Functions functions_of(const vesk_type* type) {
    if (first_of_schema() != nullptr) return functions_in_schema(vesk_type_name(type));
    const auto* const entry = std::find_if(std::begin(entries), std::end(entries), [&](const Entry& candidate) {
        return candidate.name == vesk_type_name(type);
    });
    if (entry == std::end(entries))
        throw Failure(std::string("the library has no functions of ") + vesk_type_name(type));
    return entry->functions;
}

}  // namespace vesk::tool
