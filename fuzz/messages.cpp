#include "fuzz/messages.hpp"

#include <cstddef>
#include <cstring>

#include "fuzz/random.hpp"

namespace vesk::fuzz {
namespace {

using test::load;
using test::member_at;
using test::store;

std::uint8_t known_bits(const TypeInfo& type, std::size_t byte) {
    const std::size_t left = type.fields.size() - 8 * byte;
    return static_cast<std::uint8_t>(left >= 8 ? 0xFF : (1u << left) - 1);
}

bool have_same_presence(const TypeInfo& type, const void* left, const void* right) {
    for (std::size_t byte = 0; byte < type.presence_size; ++byte) {
        const auto left_bits = load<std::uint8_t>(left, type.presence_offset + byte);
        const auto right_bits = load<std::uint8_t>(right, type.presence_offset + byte);
        if (((left_bits ^ right_bits) & known_bits(type, byte)) != 0) return false;
    }
    return true;
}

bool have_same_elements(const FieldInfo& field, const void* left, const void* right) {
    const auto count = load<std::uint32_t>(left, field.second_offset);
    if (count != load<std::uint32_t>(right, field.second_offset)) return false;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t offset = i * field.nested->size;
        if (!have_same_values(*field.nested, pointer_of(field, left) + offset, pointer_of(field, right) + offset)) {
            return false;
        }
    }
    return true;
}

bool have_same_value(const FieldInfo& field, const void* left, const void* right) {
    if (is_number(field)) return number_of(field, left) == number_of(field, right);
    if (field.kind == Kind::message) {
        return have_same_values(*field.nested, member_at(left, field.offset), member_at(right, field.offset));
    }
    if (field.kind == Kind::list) return have_same_elements(field, left, right);
    const std::uint64_t size = pointed_size(field, left);
    if (size != pointed_size(field, right)) return false;
    return size == 0 || std::memcmp(pointer_of(field, left), pointer_of(field, right), size) == 0;
}

}  // namespace

std::uint64_t pointed_size(const FieldInfo& field, const void* message) {
    if (field.kind == Kind::bytes) return load<std::uint64_t>(message, field.second_offset);
    if (field.kind != Kind::string) {
        return std::uint64_t{load<std::uint32_t>(message, field.second_offset)} * element_size(field);
    }
    const auto* string = load<const char*>(message, field.offset);
    return string == nullptr ? 0 : std::strlen(string) + 1;
}

std::size_t element_size(const FieldInfo& field) {
    switch (field.kind) {
        case Kind::list: return field.nested->size;
        case Kind::strings: return sizeof(char*);
        case Kind::blobs: return sizeof(vesk_bytes);
        default: return test::size_of_scalar(field.element);
    }
}

bool have_same_values(const TypeInfo& type, const void* left, const void* right) {
    if (!have_same_presence(type, left, right)) return false;
    for (const FieldInfo& field : type.fields) {
        if (!have_same_value(field, left, right)) return false;
    }
    return true;
}

std::uint8_t spare_bits(const TypeInfo& type, const void* message) {
    const std::size_t last = type.presence_size - 1;
    return load<std::uint8_t>(message, type.presence_offset + last) &
           static_cast<std::uint8_t>(~known_bits(type, last));
}

namespace {

class Distortion {
public:
    explicit Distortion(std::uint32_t seed) : random_(seed) {}

    // Called for every field; the structures that are walked are the target's own.
    void operator()(const TypeInfo& type, const void* constant_message, std::size_t index) {
        void* message = const_cast<void*>(constant_message);
        const FieldInfo& field = type.fields[index];
        if (random_.below(4) == 0) {
            const std::size_t byte = type.presence_offset + index / 8;
            store(message, byte, static_cast<std::uint8_t>(load<std::uint8_t>(message, byte) ^ 1u << index % 8));
        }
        if (random_.below(4) != 0) return;
        if (is_number(field)) return test::store_scalar(field.kind, message, field.offset, new_number(field.kind));
        switch (field.kind) {
            case Kind::string: return store<char*>(message, field.offset, nullptr);
            case Kind::bytes: return shorten<std::uint64_t>(message, field.second_offset);
            case Kind::message: return;
            default: break;
        }
        if (field.kind != Kind::list) distort_element(field, message);
        shorten<std::uint32_t>(message, field.second_offset);
    }

private:
    std::uint64_t new_number(Kind kind) { return kind == Kind::boolean ? random_.below(256) : random_.number(); }

    void distort_element(const FieldInfo& field, void* message) {
        const auto count = load<std::uint32_t>(message, field.second_offset);
        if (count == 0) return;
        const std::size_t offset = random_.below(count) * element_size(field);
        void* const array = load<void*>(message, field.offset);
        switch (field.kind) {
            case Kind::strings: return store<char*>(array, offset, nullptr);
            case Kind::blobs: return shorten<std::uint64_t>(array, offset + offsetof(vesk_bytes, length));
            default: return test::store_scalar(field.element, array, offset, new_number(field.element));
        }
    }

    template <class Size>
    void shorten(void* message, std::size_t offset) {
        const auto size = load<Size>(message, offset);
        store(message, offset, static_cast<Size>(random_.below(std::uint64_t{size} + 1)));
    }

    Random random_;
};

}  // namespace

void distort(const TypeInfo& type, void* message, std::uint32_t seed) {
    if (seed == 0) return;
    Distortion distortion(seed);
    for_every_field(type, message, distortion);
}

std::uint8_t* take_distorted(const Input& input, Pool& structures, Pool& pool) {
    std::uint8_t* const message = structures.take(input.type->size);
    if (input.type->decode(message, input.message, input.length, Pool::alloc, &pool, 0) != VESK_OK) return nullptr;
    distort(*input.type, message, input.distortion);
    return message;
}

}  // namespace vesk::fuzz
