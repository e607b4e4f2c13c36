// Two messages, one of which is the other one changed, are equal if and only if they encode to the same bytes; what
// lint says of them is said twice.
#include <vesk/vesk_toolkit.h>

#include <cstring>

#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"

namespace vesk::fuzz {
namespace {

struct Encoding {
    Encoding(const TypeInfo& type, const void* message, Pool& memory)
        : length(measured(type, message)), bytes(memory.take(length)) {
        type.encode(message, bytes, length, nullptr, nullptr, 0);
    }
    bool operator==(const Encoding& other) const {
        return length == other.length && std::memcmp(bytes, other.bytes, length) == 0;
    }
    std::uint64_t length;
    std::uint8_t* bytes;
};

std::int32_t count_one(const char* path, const vesk_value* left, const vesk_value* right, void* context) {
    expect(*path != '\0' && std::strlen(path) < VESK_PATH_SIZE, "a difference has no path");
    expect(left != nullptr || right != nullptr, "a difference is on no side");
    ++*static_cast<std::uint64_t*>(context);
    return 0;
}

std::int32_t count_finding(std::int32_t finding, const char* path, void* context) {
    expect(finding >= VESK_LINT_NOT_MARKED && finding <= VESK_LINT_NOT_UTF8, "a finding that is none");
    expect(*path != '\0' && std::strlen(path) < VESK_PATH_SIZE, "a finding has no path");
    expect(finding != VESK_LINT_TOO_LONG, "what is short is found too long");
    if (finding != VESK_LINT_NOT_UTF8) ++*static_cast<std::uint64_t*>(context);
    return 0;
}

void check_lint(const vesk_type* type, const void* message) {
    std::uint64_t told = 0;
    expect(vesk_lint(type, message, count_finding, &told, nullptr) == told, "findings are told that are not counted");
}

}  // namespace

void check(const Input& input) {
    static Pool structures;
    static Pool pool;
    structures.reset();
    pool.reset();
    const TypeInfo& type = *input.type;
    std::uint8_t* left = structures.take(type.size);
    std::uint8_t* right = structures.take(type.size);
    for (std::uint8_t* message : {left, right}) {
        if (type.decode(message, input.message, input.length, Pool::alloc, &pool, 0) != VESK_OK) return;
    }
    distort(type, right, input.distortion);

    const vesk_type* facts = vesk_type_named(type.name.c_str());
    const bool same = Encoding(type, left, structures) == Encoding(type, right, structures);
    std::uint64_t told = 0;
    std::uint64_t differences = 0;
    expect(vesk_diff(facts, left, right, count_one, &told, &differences, nullptr) == VESK_OK, "comparing fails");
    expect(told == differences, "differences are told that are not counted");
    expect((differences == 0) == same, "messages differ and their encodings do not, or the other way round");
    expect(vesk_equal(facts, left, right, nullptr) == same, "equal and diff say different things");
    check_lint(facts, left);
    check_lint(facts, right);
}

}  // namespace vesk::fuzz
