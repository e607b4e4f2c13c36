#include "tests/foreign_kinds/facts_by_hand.hpp"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace vesk::test {
namespace {

constexpr std::uint32_t highest_in_the_index = 63;

using interpreter::TableKind;

TableKind table_kind(std::uint16_t kind) {
    switch (kind & ~VESK_KIND_REPEATED) {
        case VESK_KIND_UINT32: return TableKind::uint32;
        case VESK_KIND_UINT64: return TableKind::uint64;
        case VESK_KIND_BOOL: return TableKind::boolean;
        case VESK_KIND_STRING: return TableKind::string;
        case VESK_KIND_BYTES: return TableKind::bytes;
        case VESK_KIND_MESSAGE: return TableKind::message;
        case VESK_KIND_LIST: return TableKind::list;
        case VESK_KIND_SINT32: return TableKind::sint32;
        case VESK_KIND_SINT64: return TableKind::sint64;
        case VESK_KIND_INT32: return TableKind::int32;
        case VESK_KIND_INT64: return TableKind::int64;
        case VESK_KIND_FIXED32: return TableKind::fixed32;
        case VESK_KIND_FIXED64: return TableKind::fixed64;
        case VESK_KIND_SFIXED32: return TableKind::sfixed32;
        case VESK_KIND_SFIXED64: return TableKind::sfixed64;
        case VESK_KIND_FLOAT: return TableKind::float32;
        case VESK_KIND_DOUBLE: return TableKind::float64;
        case VESK_KIND_ENUM: return TableKind::enumeration;
        default: throw std::invalid_argument("no such kind");
    }
}

std::uint32_t wire_type_of(const FieldByHand& field) {
    if (field.packed) return 2;
    switch (field.kind & ~VESK_KIND_REPEATED) {
        case VESK_KIND_FIXED32:
        case VESK_KIND_SFIXED32:
        case VESK_KIND_FLOAT: return 5;
        case VESK_KIND_FIXED64:
        case VESK_KIND_SFIXED64:
        case VESK_KIND_DOUBLE: return 1;
        case VESK_KIND_STRING:
        case VESK_KIND_BYTES:
        case VESK_KIND_MESSAGE:
        case VESK_KIND_LIST: return 2;
        default: return 0;
    }
}

}  // namespace

FactsByHand::FactsByHand(const std::vector<TypeByHand>& types) {
    std::size_t field_count = 0;
    std::size_t name_size = 0;
    const std::string unit = "by_hand";
    for (const TypeByHand& type : types) {
        field_count += type.fields.size();
        name_size += type.name.size() + 1;
        for (const FieldByHand& field : type.fields) name_size += field.name.size() + 1;
    }
    const std::size_t fields_at = types.size() * sizeof(vesk_type);
    const std::size_t numbers_at = fields_at + field_count * sizeof(vesk_field);
    const std::size_t numbers_size = types.size() * (highest_in_the_index + 1) * sizeof(std::uint16_t);
    const std::size_t names_at = numbers_at + numbers_size;
    block_.resize((names_at + name_size + unit.size() + 1) / sizeof(std::uint64_t) + 1);
    char* const begin = reinterpret_cast<char*>(block_.data());
    std::size_t name_end = names_at;
    const auto add_name = [&](const std::string& name) {
        std::memcpy(begin + name_end, name.c_str(), name.size() + 1);
        return std::exchange(name_end, name_end + name.size() + 1);
    };
    const auto away = [](std::size_t to, std::size_t from) {
        return static_cast<std::int32_t>(static_cast<std::ptrdiff_t>(to) - static_cast<std::ptrdiff_t>(from));
    };
    const std::size_t unit_at = add_name(unit);
    std::size_t field_at = fields_at;
    for (std::size_t place = 0; place < types.size(); ++place) {
        const TypeByHand& from = types[place];
        const std::size_t at = place * sizeof(vesk_type);
        const std::size_t index_at = numbers_at + place * (highest_in_the_index + 1) * sizeof(std::uint16_t);
        auto* const index = reinterpret_cast<std::uint16_t*>(begin + index_at);
        auto* const type = reinterpret_cast<vesk_type*>(begin + at);
        const bool last = place + 1 == types.size() || types[place + 1].elsewhere;
        type->size = sizeof(vesk_type);
        type->name_at = away(add_name(from.name), at);
        type->unit_at = away(unit_at, at);
        type->next_at = last ? 0 : static_cast<std::int32_t>(sizeof(vesk_type));
        type->fields_at = away(field_at, at);
        type->by_number_at = away(index_at, at);
        type->structure_size = static_cast<std::uint32_t>(from.size);
        type->presence_offset = static_cast<std::uint32_t>(from.presence_offset);
        type->alignment = static_cast<std::uint16_t>(from.alignment);
        type->flags = from.elsewhere ? VESK_TYPE_ELSEWHERE : 0;
        type->field_count = static_cast<std::uint16_t>(from.fields.size());
        type->field_size = sizeof(vesk_field);
        type->number_count = from.elsewhere ? 0 : highest_in_the_index + 1;
        for (std::size_t bit = 0; bit < from.fields.size(); ++bit, field_at += sizeof(vesk_field)) {
            const FieldByHand& field = from.fields[bit];
            const std::size_t nested_at = static_cast<std::size_t>(field.nested) * sizeof(vesk_type);
            auto* const row = reinterpret_cast<vesk_field*>(begin + field_at);
            row->name_at = away(add_name(field.name), field_at);
            row->nested_at = field.nested < 0 ? 0 : away(nested_at, field_at);
            row->tag = field.number << 3 | wire_type_of(field);
            row->offset = static_cast<std::uint32_t>(field.offset);
            row->size_offset = static_cast<std::uint32_t>(field.size_offset);
            row->presence_bit = static_cast<std::uint16_t>(bit);
            row->kind = field.kind;
            if (field.kind > VESK_KIND_LIST) type->flags |= VESK_TYPE_OTHER_KINDS;
            if (field.number > highest_in_the_index) {
                type->flags |= VESK_TYPE_SPARSE;
            } else {
                index[field.number] = static_cast<std::uint16_t>(bit + 1);
            }
        }
    }
}

std::vector<interpreter::TableType> table_by_hand(const std::vector<TypeByHand>& types) {
    std::vector<interpreter::TableType> table(types.size());
    for (std::size_t place = 0; place < types.size(); ++place) {
        const TypeByHand& from = types[place];
        table[place] = {from.name, {}, from.presence_offset, (from.fields.size() + 7) / 8, from.size};
        for (std::size_t bit = 0; bit < from.fields.size(); ++bit) {
            const FieldByHand& field = from.fields[bit];
            const bool described = field.nested >= 0 && !types[static_cast<std::size_t>(field.nested)].elsewhere;
            table[place].fields.push_back({field.number, table_kind(field.kind), bit,
                                           described ? &table[static_cast<std::size_t>(field.nested)] : nullptr,
                                           field.offset, field.size_offset, field.kind >= VESK_KIND_REPEATED,
                                           field.packed});
        }
    }
    return table;
}

}  // namespace vesk::test
