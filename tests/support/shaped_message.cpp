#include "tests/support/shaped_message.hpp"

namespace vesk::test {
namespace {

// The entity identifier's structure is another library's, and must be sound.
void clear_all_but_absent_members(const TypeInfo& type, void* message) {
    const bool ours = type.name != "drin_eid_st";
    std::memset(message, ours ? 0xFF : 0, type.size);
    std::memset(static_cast<std::uint8_t*>(message) + type.presence_offset, 0, type.presence_size);
    if (!ours) return;
    const std::size_t used = type.fields.size() - 8 * (type.presence_size - 1);  // bits of the last presence byte
    store(message, type.presence_offset + type.presence_size - 1, static_cast<std::uint8_t>(0xFF << used));
    for (const FieldInfo& field : type.fields) {
        if (field.kind != Kind::message) continue;
        clear_all_but_absent_members(*field.nested, static_cast<std::uint8_t*>(message) + field.offset);
    }
}

void mark_field(const TypeInfo& type, void* message, std::size_t index) {
    const std::size_t byte = type.presence_offset + index / 8;
    store(message, byte, static_cast<std::uint8_t>(load<std::uint8_t>(message, byte) | 1u << index % 8));
}

}  // namespace

ShapedMessage::ShapedMessage(const TypeInfo& type) : type_(type), message_(type) {
    clear_all_but_absent_members(type, message_.get());
}

void ShapedMessage::mark(std::size_t index) { mark_field(type_, message_.get(), index); }

void ShapedMessage::unmark(std::size_t index) {
    const std::size_t byte = type_.presence_offset + index / 8;
    store(message_.get(), byte,
          static_cast<std::uint8_t>(load<std::uint8_t>(message_.get(), byte) & ~(1u << index % 8)));
}

void ShapedMessage::set_scalar(std::size_t index, std::uint64_t value) {
    store_scalar(type_.fields[index].kind, message_.get(), type_.fields[index].offset, value);
    mark(index);
}

void ShapedMessage::set_content(std::size_t index, std::size_t length) {
    set_content(type_.fields[index], message_.get(), length);
    mark(index);
}

void ShapedMessage::set_content(const FieldInfo& field, void* message, std::size_t length) {
    blocks_.push_back(std::make_unique<std::uint8_t[]>(length + 1));
    std::uint8_t* const content = blocks_.back().get();
    for (std::size_t i = 0; i < length; ++i) content[i] = static_cast<std::uint8_t>('a' + (i + blocks_.size()) % 26);
    store(message, field.offset, content);
    if (field.kind == Kind::bytes) store(message, field.second_offset, std::uint64_t{length});
}

void ShapedMessage::fill(const Filling& filling) { fill(type_, message_.get(), filling); }

void ShapedMessage::fill_repeated(const FieldInfo& field, void* message, const Filling& filling) {
    const std::size_t size = field.kind == Kind::repeated  ? size_of_scalar(field.element)
                             : field.kind == Kind::strings ? sizeof(char*)
                                                           : sizeof(vesk_bytes);
    blocks_.push_back(std::make_unique<std::uint8_t[]>(filling.elements * size));
    std::uint8_t* const array = blocks_.back().get();
    store(message, field.offset, array);
    store(message, field.second_offset, filling.elements);
    for (std::size_t i = 0; i < filling.elements; ++i) {
        if (field.kind == Kind::repeated) {
            store_scalar(field.element, array, i * size, filling.scalar);
        } else {
            const Kind kind = field.kind == Kind::strings ? Kind::string : Kind::bytes;
            set_content({field.number, kind, i * size, i * size + offsetof(vesk_bytes, length), nullptr}, array,
                        filling.content_length);
        }
    }
}

void ShapedMessage::fill(const TypeInfo& type, void* message, const Filling& filling) {
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        const FieldInfo& field = type.fields[index];
        mark_field(type, message, index);
        if (field.kind == Kind::message) {
            fill(*field.nested, static_cast<std::uint8_t*>(message) + field.offset, filling);
        } else if (field.kind == Kind::list) {
            const TypeInfo& element = *field.nested;
            blocks_.push_back(std::make_unique<std::uint8_t[]>(filling.elements * element.size));
            std::uint8_t* const array = blocks_.back().get();
            store(message, field.offset, array);
            store(message, field.second_offset, filling.elements);
            for (std::size_t i = 0; i < filling.elements; ++i) {
                clear_all_but_absent_members(element, element_at(array, element, i));
                fill(element, element_at(array, element, i), filling);
            }
        } else if (is_scalar_kind(field.kind)) {
            store_scalar(field.kind, message, field.offset, filling.scalar);
        } else if (is_repeated_kind(field.kind)) {
            fill_repeated(field, message, filling);
        } else {
            set_content(field, message, filling.content_length);
        }
    }
}

}  // namespace vesk::test
