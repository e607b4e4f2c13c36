#include "bench/messages.hpp"

#include <algorithm>
#include <numeric>

namespace vesk::bench {
namespace {

using test::element_at;
using test::load;
using test::member_at;
using test::store;

std::uint32_t count_lists(const TypeInfo& type) {
    return static_cast<std::uint32_t>(std::count_if(type.fields.begin(), type.fields.end(),
                                                    [](const FieldInfo& field) { return field.kind == Kind::list; }));
}

std::uint64_t seed_of(std::size_t turn) { return 1000 * (turn + 1); }

class Drawing {
public:
    Drawing(const Recipe& recipe, std::size_t turn, Message* message)
        : recipe_(recipe),
          turn_(turn),
          choices_(seed_of(recipe.daily ? 0 : turn)),
          habits_(seed_of(0)),
          values_(seed_of(turn) + 1),
          owner_(*message) {}

    void fill(const TypeInfo& type, void* message, unsigned depth);

private:
    bool fill_field(const FieldInfo& field, void* message, unsigned depth, std::uint32_t elements);
    bool fill_list(const FieldInfo& field, void* message, unsigned depth, std::uint32_t count);
    std::uint32_t scalar32();
    std::uint64_t scalar64();
    bool flag();
    std::size_t text_length();
    std::uint64_t counter(std::uint64_t start) const { return start + 60 * turn_; }

    const Recipe& recipe_;
    std::size_t turn_;
    std::mt19937_64 choices_;  // which fields are set, how many elements a list has
    // What is usual for a field of daily messages. These have the same fields set, so a field gets the same draw in
    // each.
    std::mt19937_64 habits_;
    std::mt19937_64 values_;  // what is in the fields
    Message& owner_;
};

std::uint32_t Drawing::scalar32() {
    if (!recipe_.daily) return static_cast<std::uint32_t>((values_() >> values_() % 64) >> 32);
    const std::uint64_t habit = habits_();
    const std::uint64_t start = habit >> 32;
    std::uint64_t value = 0;
    switch (habit % 16) {
        case 0: value = counter(100000 + start % (1 << 24)); break;
        case 1:
        case 2:
        case 3: value = 128 + start % 16000 + values_() % 256; break;
        default: value = start % 100 + values_() % 28;
    }
    return static_cast<std::uint32_t>(value);
}

std::uint64_t Drawing::scalar64() { return recipe_.daily ? counter(habits_() >> 32) : values_() >> values_() % 64; }

bool Drawing::flag() {
    if (!recipe_.daily) return values_() % 2 != 0;
    return (habits_() % 2 != 0) != (values_() % 16 == 0);
}

std::size_t Drawing::text_length() {
    if (!recipe_.daily) return 4 + values_() % 21;
    return 4 + habits_() % 19 + values_() % 3;
}

void Drawing::fill(const TypeInfo& type, void* message, unsigned depth) {
    const std::uint32_t lists = count_lists(type);
    std::uint32_t list = 0;
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        const FieldInfo& field = type.fields[index];
        std::uint32_t elements = 0;
        if (field.kind == Kind::list && depth == 0) {
            const std::uint32_t turn = (list++ + lists - turn_ % lists) % lists;
            elements = recipe_.records / lists + (turn < recipe_.records % lists ? 1 : 0);
        } else if (choices_() % 100 >= recipe_.percent_set) {
            continue;
        } else if (field.kind == Kind::list) {
            elements = static_cast<std::uint32_t>(choices_() % 4);
        }
        if (!fill_field(field, message, depth, elements)) continue;
        const std::size_t byte = type.presence_offset + index / 8;
        store(message, byte, static_cast<std::uint8_t>(load<std::uint8_t>(message, byte) | 1u << index % 8));
    }
}

// False for a list that came out empty: it is like one that is not there.
bool Drawing::fill_field(const FieldInfo& field, void* message, unsigned depth, std::uint32_t elements) {
    switch (field.kind) {
        case Kind::uint32: store(message, field.offset, scalar32()); return true;
        case Kind::uint64: store(message, field.offset, scalar64()); return true;
        case Kind::boolean: store(message, field.offset, static_cast<std::uint8_t>(flag())); return true;
        case Kind::string: {
            const std::size_t length = text_length();
            std::uint8_t* text = owner_.new_block(length + 1);
            std::generate_n(text, length, [&] { return static_cast<std::uint8_t>('a' + values_() % 26); });
            store(message, field.offset, text);
            return true;
        }
        case Kind::bytes: {
            // One draw whatever the size: messages that differ only in it have the same content elsewhere.
            std::uint8_t* data = owner_.new_block(recipe_.bytes_size);
            std::iota(data, data + recipe_.bytes_size, static_cast<std::uint8_t>(values_()));
            store(message, field.offset, data);
            store(message, field.second_offset, recipe_.bytes_size);
            return true;
        }
        case Kind::message:
            fill(*field.nested, static_cast<std::uint8_t*>(message) + field.offset, depth + 1);
            return true;
        case Kind::list: return fill_list(field, message, depth, elements);
        default: break;  // a kind that messages of others alone have
    }
    return false;
}

bool Drawing::fill_list(const FieldInfo& field, void* message, unsigned depth, std::uint32_t count) {
    if (count == 0) return false;
    const TypeInfo& element = *field.nested;
    std::uint8_t* array = owner_.new_block(count * element.size);
    const std::mt19937_64 choices = choices_;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (recipe_.same_fields) choices_ = choices;
        fill(element, element_at(array, element, i), depth + 1);
    }
    store(message, field.offset, array);
    store(message, field.second_offset, count);
    return true;
}

void add_parts(const TypeInfo& type, const void* message, Extent* extent) {
    const auto add_part = [&](std::uint64_t size) { extent->longest_part = std::max(extent->longest_part, size); };
    for (const FieldInfo& field : type.fields) {
        if (field.kind == Kind::message) add_parts(*field.nested, member_at(message, field.offset), extent);
        if (field.kind == Kind::bytes) add_part(load<std::uint64_t>(message, field.second_offset));
        if (field.kind == Kind::string) {
            const auto* text = load<const char*>(message, field.offset);
            if (text != nullptr) add_part(std::strlen(text));
        }
        if (field.kind == Kind::list) {
            const auto count = load<std::uint32_t>(message, field.second_offset);
            add_part(count);
            extent->structures += count * field.nested->size;
            for (std::size_t i = 0; i < count; ++i) {
                add_parts(*field.nested, element_at(load<void*>(message, field.offset), *field.nested, i), extent);
            }
        }
    }
}

}  // namespace

std::uint8_t* Message::new_block(std::size_t size) {
    blocks_.push_back(std::make_unique<std::uint8_t[]>(size));
    return blocks_.back().get();
}

Message draw_message(const TypeInfo& type, const Recipe& recipe, std::size_t turn) {
    Message message(type);
    Drawing(recipe, turn, &message).fill(type, message.get(), 0);
    return message;
}

Extent extent_of(const TypeInfo& type, const void* message) {
    Extent extent{type.size, 0};
    add_parts(type, message, &extent);
    return extent;
}

}  // namespace vesk::bench
