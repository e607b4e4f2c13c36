#include "tests/interop/careless_sender.hpp"

#include <utility>

namespace vesk::test {

Bytes CarelessSender::stretched(std::uint64_t value) { return over_long(value, varint(value).size() + 1 + below(11)); }

Bytes CarelessSender::encoded(const TypeInfo& type, const Record& record) {
    Pieces pieces;
    for (const FieldInfo& field : type.fields) {
        const auto found = record.values.find(field.number);
        if (found != record.values.end()) append_field(field, found->second, pieces);
        if (slips()) pieces.push_back(stray_field());
    }
    if (!pieces.empty() && slips()) std::swap(pieces[below(pieces.size())], pieces[below(pieces.size())]);
    Bytes bytes = concatenate(pieces);
    if (slips()) bytes.resize(bytes.size() - below(bytes.size() / 4 + 1));
    return bytes;
}

void CarelessSender::append_field(const FieldInfo& field, const Value& value, Pieces& pieces) {
    const bool is_text = field.kind == Kind::string || field.kind == Kind::bytes;
    for (bool again = true; again; again = field.kind != Kind::list && slips()) {
        if (is_text) {
            pieces.push_back(message(tag(field.number, length_type), text_of(value.text)));
        } else if (field.nested == nullptr) {
            pieces.push_back(message(tag(field.number, varint_type), number(value.number)));
        } else {
            for (const Record& nested : value.records) append_nested(field, nested, pieces);
        }
    }
}

void CarelessSender::append_nested(const FieldInfo& field, const Record& record, Pieces& pieces) {
    const Bytes content = encoded(*field.nested, record);
    const std::uint32_t wire_type = slips() ? static_cast<std::uint32_t>(below(8)) : std::uint32_t{length_type};
    pieces.push_back(message(tag(field.number, wire_type), length(content.size()), content));
    if (slips()) pieces.push_back(stray_field());
}

Bytes CarelessSender::text_of(const std::string& text) {
    Bytes content(text.begin(), text.end());
    if (!content.empty() && slips()) content[below(content.size())] = 0;
    return message(length(content.size()), content);
}

Bytes CarelessSender::tag(std::uint32_t number, std::uint32_t wire_type) {
    const std::uint64_t value = std::uint64_t{number} << 3 | wire_type;
    if (!slips()) return varint(value);
    // The bits above the 32nd are lost on both sides, if the tag is read at all.
    return below(2) == 0 ? stretched(value) : varint(value | below(8) << 32);
}

Bytes CarelessSender::length(std::uint64_t length) {
    if (!slips()) return varint(length);
    switch (below(3)) {
        case 0: return stretched(length);
        case 1: return varint(length | random_() << 32);
        default: return varint(length + 0x7FFFFFE0 + below(64));
    }
}

Bytes CarelessSender::number(std::uint64_t value) {
    if (!slips()) return varint(value);
    switch (below(3)) {
        case 0: return stretched(value);
        case 1: return varint(value | random_() << 32);
        default: return varint(random_() << 32);
    }
}

Bytes CarelessSender::stray_field() {
    const auto field_number = static_cast<std::uint32_t>(below(8) == 0 ? random_() >> 35 : below(40));
    const auto wire_type = static_cast<std::uint32_t>(below(8));
    return message(tag(field_number, wire_type), value_of(field_number, wire_type));
}

Bytes CarelessSender::value_of(std::uint32_t number_of_field, std::uint32_t wire_type) {
    switch (wire_type) {
        case varint_type: return number(random_() >> below(64));
        case fixed64_type: return Bytes(8, 0x55);
        case length_type: {
            const Bytes content(below(6), 0x55);
            return message(length(content.size()), content);
        }
        case 3: {  // a group, and sometimes another one's end
            Bytes content;
            while (below(2) == 0) content = message(content, stray_field());
            return message(content, tag(slips() ? number_of_field + 1 : number_of_field, 4));
        }
        case fixed32_type: return Bytes(4, 0x55);
        default: return {};
    }
}

}  // namespace vesk::test
