#include "tests/support/random_message.hpp"

#include <algorithm>

namespace vesk::test {
namespace {

// Fields of the type and of everything nested in it, a list counted as two elements.
unsigned count_fields(const TypeInfo& type) {
    unsigned count = 0;
    for (const FieldInfo& field : type.fields) {
        count += field.nested == nullptr ? 1 : count_fields(*field.nested) * (field.kind == Kind::list ? 2 : 1);
    }
    return count;
}

unsigned percent_of_fields(const TypeInfo& type, Amount amount) {
    if (amount == Amount::much) return 90;
    return std::clamp(40 * 100 / std::max(count_fields(type), 1u), 2u, 70u);
}

}  // namespace

RandomMessage::RandomMessage(const TypeInfo& type, std::uint64_t seed, Amount amount)
    : random_(seed), wild_(amount == Amount::wild), percent_(percent_of_fields(type, amount)), message_(type, 0) {
    fill(type, message_.get());
}

void RandomMessage::fill(const TypeInfo& type, void* message) {
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        const FieldInfo& field = type.fields[index];
        const bool wanted = chance(field.kind == Kind::list ? std::max(percent_, 30u) : percent_);
        fill_field(field, message, wanted);
        if (wild_ ? chance(percent_) : wanted && !chance(10)) {
            const std::size_t byte = type.presence_offset + index / 8;
            store(message, byte, static_cast<std::uint8_t>(load<std::uint8_t>(message, byte) | 1u << index % 8));
        }
    }
}

// Nested messages are always filled: what is in them is chosen there.
void RandomMessage::fill_field(const FieldInfo& field, void* message, bool wanted) {
    if (field.kind == Kind::message) return fill(*field.nested, static_cast<std::uint8_t*>(message) + field.offset);
    if (!wanted) return;
    if (is_scalar_kind(field.kind)) return store_scalar(field.kind, message, field.offset, scalar(field.kind));
    switch (field.kind) {
        case Kind::string:
            if (!chance(10)) store(message, field.offset, new_text());
            return;
        case Kind::bytes: {
            if (chance(10)) return;
            const vesk_bytes data = new_data();
            store(message, field.offset, data.data);
            return store(message, field.second_offset, data.length);
        }
        case Kind::list: {
            const std::size_t count = below(4);
            if (count == 0) return;
            std::uint8_t* array = new_block(count * field.nested->size);
            for (std::size_t i = 0; i < count; ++i) fill(*field.nested, element_at(array, *field.nested, i));
            store(message, field.offset, array);
            return store(message, field.second_offset, static_cast<std::uint32_t>(count));
        }
        case Kind::repeated:
        case Kind::strings:
        case Kind::blobs: return fill_repeated(field, message);
        default: return;
    }
}

// Of strings and bytes, some are null; but not where what is decoded is to be as what was sent.
void RandomMessage::fill_repeated(const FieldInfo& field, void* message) {
    const std::size_t count = chance(5) ? 100 + below(100) : below(4);
    if (count == 0) return;
    const std::size_t size = field.kind == Kind::repeated  ? size_of_scalar(field.element)
                             : field.kind == Kind::strings ? sizeof(char*)
                                                           : sizeof(vesk_bytes);
    std::uint8_t* const array = new_block(count * size);
    for (std::size_t i = 0; i < count; ++i) {
        if (field.kind == Kind::repeated) {
            store_scalar(field.element, array, i * size, scalar(field.element));
        } else if (wild_ && chance(10)) {
            continue;
        } else if (field.kind == Kind::strings) {
            store(array, i * size, new_text());
        } else {
            store(array, i * size, new_data());
        }
    }
    store(message, field.offset, array);
    store(message, field.second_offset, static_cast<std::uint32_t>(count));
}

std::uint64_t RandomMessage::scalar(Kind kind) {
    if (kind == Kind::boolean) return below(wild_ ? 256 : 2);
    return kind >= Kind::sint32 && chance(20) ? 0 - below(1000) : number();  // near 0, from below
}

char* RandomMessage::new_text() {
    const std::size_t length = content_length();
    std::uint8_t* const text = new_block(length + 1);
    std::generate_n(text, length, [&] { return static_cast<std::uint8_t>(1 + below(255)); });
    return reinterpret_cast<char*>(text);
}

vesk_bytes RandomMessage::new_data() {
    const std::size_t length = content_length();
    std::uint8_t* const data = new_block(length);
    std::generate_n(data, length, [&] { return static_cast<std::uint8_t>(random_()); });
    return {data, length};
}

// Mostly short, now and then empty or with a length of two bytes.
std::size_t RandomMessage::content_length() {
    if (chance(20)) return 0;
    return chance(5) ? 128 + below(100) : 1 + below(12);
}

std::uint8_t* RandomMessage::new_block(std::size_t size) {
    blocks_.push_back(std::make_unique<std::uint8_t[]>(size));
    return blocks_.back().get();
}

}  // namespace vesk::test
