#include "tests/support/describe.hpp"

namespace vesk::test {
namespace {

using NamePointer = std::function<std::string(const void*)>;

std::string describe_text(const char* string, const NamePointer& name_pointer) {
    return string == nullptr ? "null" : name_pointer(string) + " \"" + std::string(string) + '"';
}

std::string describe_data(const std::uint8_t* data, std::uint64_t length, const NamePointer& name_pointer) {
    if (data == nullptr) return "null * " + std::to_string(length);
    return name_pointer(data) + " * " + std::to_string(length) + " " + to_hex(Bytes(data, data + length));
}

std::string describe_element(const FieldInfo& field, const std::uint8_t* array, std::size_t index,
                             const NamePointer& name_pointer) {
    if (field.kind == Kind::list) {
        return describe(*field.nested, array + index * field.nested->size, name_pointer);
    }
    if (field.kind == Kind::repeated) {
        return std::to_string(load_scalar(field.element, array, index * size_of_scalar(field.element)));
    }
    if (field.kind == Kind::strings) return describe_text(load<char*>(array, index * sizeof(char*)), name_pointer);
    const auto element = load<vesk_bytes>(array, index * sizeof(vesk_bytes));
    return describe_data(element.data, element.length, name_pointer);
}

std::string describe_field(const FieldInfo& field, const void* message, const NamePointer& name_pointer) {
    const void* first = static_cast<const std::uint8_t*>(message) + field.offset;
    if (is_scalar_kind(field.kind)) return std::to_string(load_scalar(field.kind, message, field.offset));
    if (field.kind == Kind::message) return describe(*field.nested, first, name_pointer);
    if (field.kind == Kind::string) return describe_text(load<char*>(message, field.offset), name_pointer);
    const auto* pointer = load<const std::uint8_t*>(message, field.offset);
    if (field.kind == Kind::bytes) {
        return describe_data(pointer, load<std::uint64_t>(message, field.second_offset), name_pointer);
    }
    const auto count = load<std::uint32_t>(message, field.second_offset);
    std::string text = (pointer == nullptr ? "null" : name_pointer(pointer)) + " * " + std::to_string(count);
    for (std::uint32_t i = 0; pointer != nullptr && i < count; ++i) {
        text += " " + describe_element(field, pointer, i, name_pointer);
    }
    return text;
}

}  // namespace

std::string describe(const TypeInfo& type, const void* message, const NamePointer& name_pointer) {
    std::string text = type.name + " {";
    for (const FieldInfo& field : type.fields) {
        text += " " + std::to_string(field.number) + ": " + describe_field(field, message, name_pointer);
    }
    const auto* presence = static_cast<const std::uint8_t*>(message) + type.presence_offset;
    return text + " present: " + to_hex(Bytes(presence, presence + type.presence_size)) + " }";
}

}  // namespace vesk::test
