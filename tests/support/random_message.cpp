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
    switch (field.kind) {
        case Kind::uint32: return store(message, field.offset, static_cast<std::uint32_t>(number()));
        case Kind::uint64: return store(message, field.offset, number());
        case Kind::boolean: return store(message, field.offset, static_cast<std::uint8_t>(below(wild_ ? 256 : 2)));
        case Kind::string: {
            if (chance(10)) return;
            const std::size_t length = content_length();
            std::uint8_t* text = new_block(length + 1);
            std::generate_n(text, length, [&] { return static_cast<std::uint8_t>(1 + below(255)); });
            return store(message, field.offset, text);
        }
        case Kind::bytes: {
            if (chance(10)) return;
            const std::size_t length = content_length();
            std::uint8_t* data = new_block(length);
            std::generate_n(data, length, [&] { return static_cast<std::uint8_t>(random_()); });
            store(message, field.offset, data);
            return store(message, field.second_offset, std::uint64_t{length});
        }
        case Kind::list: {
            const std::size_t count = below(4);
            if (count == 0) return;
            std::uint8_t* array = new_block(count * field.nested->size);
            for (std::size_t i = 0; i < count; ++i) fill(*field.nested, element_at(array, *field.nested, i));
            store(message, field.offset, array);
            return store(message, field.second_offset, static_cast<std::uint32_t>(count));
        }
        case Kind::message: return;
        default: break;  // a kind that messages of others alone have
    }
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
