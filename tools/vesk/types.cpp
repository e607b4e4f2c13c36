#include "tools/vesk/types.hpp"

#include <algorithm>
#include <cstdlib>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"

namespace vesk::tool {
namespace {

// Characters that have to be put in, taken out or changed to make one name of the other.
std::size_t distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> row(other.size() + 1);
    for (std::size_t i = 0; i < row.size(); ++i) row[i] = i;
    for (std::size_t i = 1; i <= one.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i - 1] != other[j - 1]);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row.back();
}

void* from_heap(std::uint64_t size, void*) { return std::malloc(size); }
void to_heap(void* block, void*) { std::free(block); }

}  // namespace

std::vector<const vesk_type*> all_types() {
    std::vector<const vesk_type*> types;
    for (const vesk_type* type = vesk_all_types(nullptr); type != nullptr; type = vesk_type_next(type)) {
        types.push_back(type);
    }
    return types;
}

std::string nearest(const std::string& name, const std::vector<std::string>& known) {
    return *std::ranges::min_element(known, {}, [&](const std::string& other) { return distance(name, other); });
}

const vesk_type* find_type(const std::string& name) {
    const vesk_type* const found = vesk_type_named(name.c_str());
    if (found != nullptr) return found;
    std::vector<std::string> known;
    for (const vesk_type* type : all_types()) known.emplace_back(vesk_type_name(type));
    throw Failure("no type is called " + quote(name) + "; the nearest is " + nearest(name, known) +
                  " (vesk types names them all)");
}

const vesk_type* describe(const vesk_type* type) {
    if ((type->flags & VESK_TYPE_ELSEWHERE) == 0) return type;
    // Looked for once: all of them are the entity identifier.
    static const vesk_type* const identifier = vesk_type_named(vesk_type_name(type));
    return identifier;
}

const char* kind_name(std::uint16_t kind) {
    switch (kind) {
        case VESK_KIND_UINT32: return "uint32";
        case VESK_KIND_UINT64: return "uint64";
        case VESK_KIND_BOOL: return "bool";
        case VESK_KIND_STRING: return "string";
        case VESK_KIND_BYTES: return "bytes";
        case VESK_KIND_MESSAGE: return "message";
        case VESK_KIND_LIST: return "list";
        default: return "unknown kind";
    }
}

Message::Message(const vesk_type* type) : type_(type), storage_(type->structure_size / 8 + 1) {
    vesk_arena_of_blocks(&arena_, from_heap, to_heap, nullptr);
}

Message::~Message() { vesk_arena_close(&arena_); }

std::int32_t Message::decode(const void* bytes, std::uint64_t length) {
    return functions_of(type_).decode(get(), bytes, length, vesk_arena_alloc, &arena_, 0);
}

}  // namespace vesk::tool
