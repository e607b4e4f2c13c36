// Every field of a message with its path, nested messages, elements and identifiers included.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/type_info.hpp"

namespace vesk::test {

// A field of the structure that it stands in.
struct FieldAt {
    std::string path;
    const vesk_type* type;
    const vesk_field* field;
    std::uint8_t* structure;

    template <class Member>
    Member get() const {
        return load<Member>(structure, field->offset);
    }
    template <class Member>
    void set(Member member) const {
        store(structure, field->offset, member);
    }
    // The length of a bytes field and the count of a list.
    template <class Member>
    Member get_size() const {
        return load<Member>(structure, field->size_offset);
    }
    template <class Member>
    void set_size(Member member) const {
        store(structure, field->size_offset, member);
    }
    bool is_marked() const { return (presence() >> field->presence_bit % 8 & 1) != 0; }
    void unmark() const { presence() = static_cast<std::uint8_t>(presence() & ~(1u << field->presence_bit % 8)); }
    void mark() const { presence() = static_cast<std::uint8_t>(presence() | 1u << field->presence_bit % 8); }
    bool is_scalar() const { return field->kind <= VESK_KIND_BOOL; }

private:
    std::uint8_t& presence() const { return structure[type->presence_offset + field->presence_bit / 8]; }
};

inline const vesk_type* described(const vesk_type* type) { return vesk_type_named(vesk_type_name(type)); }

// In the order of the declaration; what is nested, and the elements of a list, after the field itself.
inline void for_every_field(const vesk_type* type, void* message, const std::function<void(const FieldAt&)>& visit,
                            const std::string& prefix = "") {
    for (std::uint32_t place = 0; place < type->field_count; ++place) {
        const vesk_field* field = vesk_type_field(type, place);
        const FieldAt at{prefix + vesk_field_name(field), type, field, static_cast<std::uint8_t*>(message)};
        visit(at);
        if (field->kind == VESK_KIND_MESSAGE) {
            for_every_field(described(vesk_field_nested(field)), at.structure + field->offset, visit, at.path + ".");
        } else if (field->kind == VESK_KIND_LIST) {
            const vesk_type* nested = described(vesk_field_nested(field));
            for (std::uint32_t i = 0; i < at.get_size<std::uint32_t>(); ++i) {
                for_every_field(nested, at.get<std::uint8_t*>() + std::size_t{i} * nested->structure_size, visit,
                                at.path + "[" + std::to_string(i) + "].");
            }
        }
    }
}

inline std::vector<FieldAt> every_field(const vesk_type* type, void* message) {
    std::vector<FieldAt> fields;
    for_every_field(type, message, [&](const FieldAt& at) { fields.push_back(at); });
    return fields;
}

// Puts a structure back as it was, at the end of its scope.
class Restored {
public:
    explicit Restored(const FieldAt& at)
        : structure_(at.structure), bytes_(at.structure, at.structure + at.type->structure_size) {}
    ~Restored() { std::copy(bytes_.begin(), bytes_.end(), structure_); }
    Restored(const Restored&) = delete;
    Restored& operator=(const Restored&) = delete;

private:
    std::uint8_t* structure_;
    Bytes bytes_;
};

}  // namespace vesk::test
