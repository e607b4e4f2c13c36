#include "tests/foreign_kinds/random_foreign.hpp"

#include <vesk/vesk_runtime.h>

#include <cstring>

namespace vesk::test {
namespace {

template <class Member>
void put(std::uint8_t* at, Member member) {
    std::memcpy(at, &member, sizeof member);
}

std::size_t member_size(std::uint16_t kind) {
    switch (kind) {
        case VESK_KIND_BOOL: return 1;
        case VESK_KIND_STRING: return sizeof(char*);
        case VESK_KIND_BYTES: return sizeof(vesk_bytes);
        case VESK_KIND_UINT32:
        case VESK_KIND_SINT32:
        case VESK_KIND_INT32:
        case VESK_KIND_FIXED32:
        case VESK_KIND_SFIXED32:
        case VESK_KIND_FLOAT:
        case VESK_KIND_ENUM: return 4;
        default: return 8;
    }
}

}  // namespace

RandomForeign::RandomForeign(const vesk_type* type, std::uint64_t seed)
    : random_(seed), message_(new_block(type->structure_size)) {
    fill(type, message_);
}

void RandomForeign::fill(const vesk_type* type, std::uint8_t* message) {
    for (std::uint32_t place = 0; place < type->field_count; ++place) {
        const vesk_field* const field = vesk_type_field(type, place);
        const bool wanted = chance(50);
        if (wanted ? !chance(10) : chance(10)) {
            message[type->presence_offset + place / 8] |= static_cast<std::uint8_t>(1u << place % 8);
        }
        std::uint8_t* const member = message + field->offset;
        if (field->kind == VESK_KIND_MESSAGE) {
            fill(vesk_field_nested(field), member);
        } else if (wanted && field->size_offset != 0 && field->kind != VESK_KIND_BYTES) {
            const std::uint32_t count = static_cast<std::uint32_t>(random_() % 5);
            const bool list = field->kind == VESK_KIND_LIST;
            const auto kind = static_cast<std::uint16_t>(field->kind & ~VESK_KIND_REPEATED);
            const std::size_t size = list ? vesk_field_nested(field)->structure_size : member_size(kind);
            if (count == 0) continue;
            std::uint8_t* const array = new_block(count * size);
            for (std::uint32_t i = 0; i < count; ++i) {
                if (list) {
                    fill(vesk_field_nested(field), array + i * size);
                } else {
                    fill_value(kind, array + i * size);
                }
            }
            put(member, array);
            put(message + field->size_offset, count);
        } else if (wanted && field->kind == VESK_KIND_BYTES) {
            vesk_bytes bytes{};
            fill_value(VESK_KIND_BYTES, reinterpret_cast<std::uint8_t*>(&bytes));
            put(member, bytes.data);
            put(message + field->size_offset, bytes.length);
        } else if (wanted) {
            fill_value(field->kind, member);
        }
    }
}

void RandomForeign::fill_value(std::uint16_t kind, std::uint8_t* member) {
    if (kind == VESK_KIND_STRING) {
        if (!chance(10)) put(member, new_string());
    } else if (kind == VESK_KIND_BYTES) {
        const std::uint64_t length = random_() % 20;
        if (length == 0) return;
        std::uint8_t* const data = new_block(length);
        for (std::uint64_t i = 0; i < length; ++i) data[i] = static_cast<std::uint8_t>(random_());
        put(member, vesk_bytes{data, length});
    } else if (kind == VESK_KIND_BOOL) {
        put(member, static_cast<std::uint8_t>(random_() % 2));
    } else if (member_size(kind) == 4) {
        put(member, static_cast<std::uint32_t>(scalar()));
    } else {
        put(member, scalar());
    }
}

std::uint8_t* RandomForeign::new_block(std::size_t size) {
    blocks_.push_back(std::make_unique<std::uint64_t[]>(size / 8 + 1));
    return reinterpret_cast<std::uint8_t*>(blocks_.back().get());
}

char* RandomForeign::new_string() {
    const std::size_t length = random_() % 12;
    char* const string = reinterpret_cast<char*>(new_block(length + 1));
    for (std::size_t i = 0; i < length; ++i) string[i] = static_cast<char>('!' + random_() % 90);
    return string;
}

Bytes random_fields(const vesk_type* type, std::mt19937_64& random) {
    Bytes input;
    const vesk_field* field = nullptr;
    for (std::uint64_t left = random() % 8; left != 0; --left) {
        if (field == nullptr || random() % 3 != 0) field = vesk_type_field(type, random() % type->field_count);
        const bool known = random() % 20 != 0;
        const std::uint32_t number = known ? vesk_field_number(field) : static_cast<std::uint32_t>(random() % 70);
        constexpr std::uint32_t wire_types[] = {0, 1, 2, 5};
        const bool own = random() % 10 != 0;
        const std::uint32_t wire_type = !own ? wire_types[random() % 4] : random() % 3 == 0 ? 2 : field->tag & 7;
        Bytes content;
        switch (wire_type) {
            case 0:
                content = random() % 8 == 0 ? over_long(random() % 300, 3 + random() % 10)
                                            : varint(random() >> random() % 64);
                break;
            case 1: content = Bytes(random() % 30 == 0 ? 7 : 8, static_cast<std::uint8_t>(random())); break;
            case 5: content = Bytes(random() % 30 == 0 ? 3 : 4, static_cast<std::uint8_t>(random())); break;
            default: {
                Bytes inside(random() % 4 * 8,
                             static_cast<std::uint8_t>(random() % 4 == 0 ? random() : random() % 128));
                if (random() % 10 == 0) inside.push_back(0x80);
                content = sized(inside);
            }
        }
        input = message(input, tag(number, wire_type), content);
    }
    return input;
}

}  // namespace vesk::test
