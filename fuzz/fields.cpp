#include "fuzz/fields.hpp"

#include <algorithm>

namespace vesk::fuzz {
namespace {

// Of these the wire type of a later element is not looked at.
bool has_run(Kind kind) { return kind == Kind::list || kind == Kind::strings || kind == Kind::blobs; }

class Finder {
public:
    Finder(const std::uint8_t* bytes, std::vector<FoundField>& fields) : bytes_(bytes), fields_(fields) {}

    bool find_in(const TypeInfo& type, std::size_t at, std::size_t end, std::size_t parent) {
        std::size_t previous = no_field;  // the element of a run that the field stands directly behind
        while (at < end) {
            FoundField field{&type, nullptr, 0, 0, at, 0, 0, 0, parent};
            if (!read_field(field, previous, end)) return false;
            const std::size_t place = fields_.size();
            fields_.push_back(field);
            if (field.is_nested() && !find_in(*field.info->nested, field.content, field.end, place)) return false;
            previous = field.info != nullptr && has_run(field.info->kind) ? place : no_field;
            at = field.end;
        }
        return true;
    }

private:
    bool read_field(FoundField& field, std::size_t previous, std::size_t end) {
        std::uint64_t tag;
        field.value = read_varint(bytes_, field.start, end, &tag);
        if (field.value == 0) return false;
        field.number = static_cast<std::uint32_t>(tag) >> 3;
        field.wire_type = tag & 7;
        field.content = field.value;
        const auto info = std::find_if(field.type->fields.begin(), field.type->fields.end(),
                                       [&](const FieldInfo& known) { return known.number == field.number; });
        if (info == field.type->fields.end()) return read_unknown(field, end);
        field.info = &*info;
        const bool continues_run = previous != no_field && fields_[previous].number == field.number;
        const bool is_packed = info->kind == Kind::repeated && field.wire_type == 2;
        const std::uint32_t wire_type = is_packed ? 2 : wire_type_of(info->element);
        if (field.wire_type != wire_type && !continues_run) return false;
        if (wire_type == 2) return read_content(field, end) && field.end <= end;
        if (wire_type != 0) {
            field.end = field.value + (wire_type == 5 ? 4 : 8);
            return field.end <= end;
        }
        std::uint64_t number;
        field.end = read_varint(bytes_, field.value, end, &number);
        return field.end != 0;
    }

    // Such a field may be cut short by the end.
    bool read_unknown(FoundField& field, std::size_t end) {
        std::uint64_t number;
        switch (field.wire_type) {
            case 0: field.end = read_varint(bytes_, field.value, end, &number); return field.end != 0;
            case 1: field.end = std::min(field.value + 8, end); return true;
            case 2:
                if (!read_content(field, end)) return false;
                field.end = std::min(field.end, end);
                return true;
            case 5: field.end = std::min(field.value + 4, end); return true;
            default: return false;
        }
    }

    bool read_content(FoundField& field, std::size_t end) {
        std::uint64_t length;
        field.content = read_varint(bytes_, field.value, end, &length);
        if (field.content == 0) return false;
        field.end = field.content + static_cast<std::uint32_t>(length);
        return true;
    }

    const std::uint8_t* bytes_;
    std::vector<FoundField>& fields_;
};

}  // namespace

std::uint32_t wire_type_of(Kind kind) {
    if (!test::is_scalar_kind(kind)) return 2;
    if (test::is_varint_kind(kind)) return 0;
    return test::size_of_scalar(kind) == 4 ? 5 : 1;
}

std::size_t read_varint(const std::uint8_t* bytes, std::size_t at, std::size_t end, std::uint64_t* value) {
    std::uint64_t result = 0;
    for (unsigned shift = 0; at < end; shift += 7) {
        const std::uint64_t byte = bytes[at++];
        if (shift < 64) result |= (byte & 0x7F) << shift;
        if (byte < 0x80) {
            *value = result;
            return at;
        }
    }
    return 0;
}

bool find_fields(const TypeInfo& type, const std::uint8_t* bytes, std::size_t length, std::vector<FoundField>& fields) {
    return Finder(bytes, fields).find_in(type, 0, length, no_field);
}

}  // namespace vesk::fuzz
