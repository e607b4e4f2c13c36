// Calls all functions of every type through the installed headers: for an empty message, and for one whose first field
// is marked.
#include <vesk/client_service.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

long blocks = 0;  // that are not given back
int types = 0;
int failures = 0;

void* allocate(std::uint64_t size, void*) {
    ++blocks;
    return std::malloc(size != 0 ? size : 1);
}

void release(void* block, void*) {
    --blocks;
    std::free(block);
}

template <class T>
struct Functions {
    const char* name;
    std::uint64_t (*encode)(const T*, void*, std::uint64_t, vesk_segment*, std::uint32_t*, std::uint32_t);
    std::int32_t (*decode)(T*, const void*, std::uint64_t, vesk_alloc, void*, std::uint32_t);
    std::int32_t (*duplicate)(T*, const T*, vesk_alloc, void*);
    void (*free)(T*, vesk_release, void*, std::uint32_t);
};

template <class T>
void call(const Functions<T>& type, bool marked) {
    const auto expect = [&](bool condition, const char* what) {
        if (condition) return;
        std::printf("%s: %s\n", type.name, what);
        ++failures;
    };
    T message{}, decoded, copy;
    if (marked) VESK_MARK(&message, 0);
    std::array<std::uint8_t, 64> bytes, again;
    const std::uint64_t length = type.encode(&message, nullptr, 0, nullptr, nullptr, 0);
    expect(length <= (marked ? bytes.size() : 0), "is measured");
    expect(type.encode(&message, bytes.data(), bytes.size(), nullptr, nullptr, 0) == length, "encodes");
    expect(type.decode(&decoded, bytes.data(), length, allocate, nullptr, 0) == VESK_OK, "decodes");
    expect(type.duplicate(&copy, &decoded, allocate, nullptr) == VESK_OK, "is copied");
    expect(type.encode(&copy, again.data(), again.size(), nullptr, nullptr, 0) == length, "same length");
    expect(std::equal(bytes.data(), bytes.data() + length, again.data()), "same bytes");
    type.free(&decoded, release, nullptr, 0);
    type.free(&copy, release, nullptr, 0);
    expect(blocks == 0, "gives back every block");
}

template <class T>
void call_both(const Functions<T>& type) {
    call(type, false);
    call(type, true);
    ++types;
}

}  // namespace

int main() {
#define CALL(T) call_both(Functions<T>{#T, T##_encode_ext, T##_decode_ext, T##_duplicate, T##_free_ext});
#include <all_types.inc>
    std::printf("C++20: %d functions of %d types called, %d failures\n", 4 * types, types, failures);
    return failures != 0;
}
