#include "tests/foreign_kinds/random_fields.hpp"

namespace vesk::test {
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
