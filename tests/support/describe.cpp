#include "tests/support/describe.hpp"

namespace vesk::test {
namespace {

using NamePointer = std::function<std::string(const void*)>;

std::string describe_field(const FieldInfo& field, const void* message, const NamePointer& name_pointer) {
    const void* first = static_cast<const std::uint8_t*>(message) + field.offset;
    switch (field.kind) {
        case Kind::uint32: return std::to_string(load<std::uint32_t>(message, field.offset));
        case Kind::uint64: return std::to_string(load<std::uint64_t>(message, field.offset));
        case Kind::boolean: return std::to_string(load<std::uint8_t>(message, field.offset));
        case Kind::message: return describe(*field.nested, first, name_pointer);
        default: break;
    }
    const auto* pointer = load<const std::uint8_t*>(message, field.offset);
    std::string text = pointer == nullptr ? "null" : name_pointer(pointer);
    if (field.kind == Kind::string) {
        if (pointer != nullptr) text += " \"" + std::string(reinterpret_cast<const char*>(pointer)) + '"';
    } else if (field.kind == Kind::bytes) {
        const auto length = load<std::uint64_t>(message, field.second_offset);
        text += " * " + std::to_string(length);
        if (pointer != nullptr) text += " " + to_hex(Bytes(pointer, pointer + length));
    } else {
        const auto count = load<std::uint32_t>(message, field.second_offset);
        text += " * " + std::to_string(count);
        for (std::uint32_t i = 0; pointer != nullptr && i < count; ++i) {
            text += " " + describe(*field.nested, pointer + i * field.nested->size, name_pointer);
        }
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
