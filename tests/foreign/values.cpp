#include "tests/foreign/values.hpp"

#include <google/protobuf/reflection.h>

#include <cstring>

namespace vesk::test {
namespace {

using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

std::uint64_t any_number(Random& random) {
    if (random() % 16 == 0) return ~std::uint64_t{0};
    return random() >> random() % 64;
}

std::int32_t any_value_of(const EnumDescriptor& enumeration, Random& random) {
    return enumeration.value(static_cast<int>(random() % static_cast<unsigned>(enumeration.value_count())))->number();
}

// Whether protobuf takes only the values that the enumeration names for values of the field.
bool is_closed(const FieldDescriptor& field) {
    return field.file()->syntax() == google::protobuf::FileDescriptor::SYNTAX_PROTO2;
}

std::string any_text(Random& random) {
    static const char* const pieces[] = {"a", "north", "\x7F", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                         " ", "\x01"};
    std::string text;
    for (std::uint64_t i = random() % 6; i != 0; --i) text += pieces[random() % std::size(pieces)];
    if (random() % 16 == 0) text += std::string(random() % 400, 'x');
    return text;
}

std::string any_bytes(Random& random) {
    std::string bytes(random() % 8, '\0');
    if (random() % 16 == 0) bytes.resize(random() % 400);
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

template <class Value>
Value of_bits(std::uint64_t bits) {
    Value value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// ---- Protobuf's message ---------------------------------------------------------------------------------------------

void add_or_set(const Reflection& reflection, Message* message, const FieldDescriptor* field, bool is_added,
                Random& random) {
    const std::uint64_t number = any_number(random);
#define VESK_TEST_PUT(Type, value) \
    is_added ? reflection.Add##Type(message, field, value) : reflection.Set##Type(message, field, value)
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32: VESK_TEST_PUT(Int32, static_cast<std::int32_t>(number)); break;
        case FieldDescriptor::CPPTYPE_INT64: VESK_TEST_PUT(Int64, static_cast<std::int64_t>(number)); break;
        case FieldDescriptor::CPPTYPE_UINT32: VESK_TEST_PUT(UInt32, static_cast<std::uint32_t>(number)); break;
        case FieldDescriptor::CPPTYPE_UINT64: VESK_TEST_PUT(UInt64, number); break;
        case FieldDescriptor::CPPTYPE_DOUBLE: VESK_TEST_PUT(Double, of_bits<double>(random())); break;
        case FieldDescriptor::CPPTYPE_FLOAT: VESK_TEST_PUT(Float, of_bits<float>(random())); break;
        case FieldDescriptor::CPPTYPE_BOOL: VESK_TEST_PUT(Bool, (number & 1) != 0); break;
        case FieldDescriptor::CPPTYPE_ENUM:
            VESK_TEST_PUT(EnumValue, is_closed(*field) || random() % 2 == 0 ? any_value_of(*field->enum_type(), random)
                                                                            : static_cast<std::int32_t>(number));
            break;
        case FieldDescriptor::CPPTYPE_STRING:
            VESK_TEST_PUT(String, field->type() == FieldDescriptor::TYPE_STRING ? any_text(random) : any_bytes(random));
            break;
        case FieldDescriptor::CPPTYPE_MESSAGE:
            fill(is_added ? reflection.AddMessage(message, field) : reflection.MutableMessage(message, field), random);
            break;
    }
#undef VESK_TEST_PUT
}

// ---- Structures ----------------------------------------------------------------------------------------------------

void fill_structure(const ForeignType& type, void* structure, Random& random);

char* text_block(Random& random) {
    const std::string text = any_text(random);
    char* const block = static_cast<char*>(give_block(text.size() + 1, nullptr));
    text.copy(block, text.size());
    block[text.size()] = '\0';
    return block;
}

vesk_bytes bytes_block(Random& random) {
    const std::string bytes = any_bytes(random);
    if (bytes.empty() && random() % 2 == 0) return {nullptr, 0};
    void* const block = give_block(bytes.size(), nullptr);
    bytes.copy(static_cast<char*>(block), bytes.size());
    return {static_cast<std::uint8_t*>(block), bytes.size()};
}

void fill_value(unsigned kind, const FieldDescriptor& field, void* value, Random& random) {
    switch (kind) {
        case VESK_KIND_BOOL: store<std::uint8_t>(value, 0, random() % 2); break;
        case VESK_KIND_STRING: store(value, 0, random() % 8 == 0 ? nullptr : text_block(random)); break;
        case VESK_KIND_BYTES: {
            const vesk_bytes bytes = bytes_block(random);
            store(value, 0, bytes);
            break;
        }
        case VESK_KIND_ENUM:
            store(value, 0,
                  is_closed(field) ? any_value_of(*field.enum_type(), random)
                                   : static_cast<std::int32_t>(any_number(random)));
            break;
        case VESK_KIND_FLOAT: store(value, 0, static_cast<std::uint32_t>(random())); break;
        case VESK_KIND_DOUBLE: store(value, 0, random()); break;
        default:
            if (size_of_kind(kind) == 4) {
                store(value, 0, static_cast<std::uint32_t>(any_number(random)));
            } else {
                store(value, 0, any_number(random));
            }
    }
}

const FieldDescriptor& descriptor_of(const ForeignType& type, const vesk_field* field) {
    return *type.descriptor->FindFieldByNumber(static_cast<int>(vesk_field_number(field)));
}

void fill_field(const ForeignType& type, const vesk_field* field, void* structure, Random& random) {
    const FieldDescriptor& descriptor = descriptor_of(type, field);
    char* const member = static_cast<char*>(structure) + field->offset;
    const unsigned kind = field->kind & ~unsigned{VESK_KIND_REPEATED};
    if (kind == VESK_KIND_MESSAGE) return fill_structure(schema().type_of(descriptor.message_type()), member, random);
    const std::uint32_t count = static_cast<std::uint32_t>(random() % 4);
    if (kind == VESK_KIND_LIST) {
        const ForeignType& element = schema().type_of(descriptor.message_type());
        const std::size_t size = element.facts->structure_size;
        if (count == 0) return;
        char* const array = static_cast<char*>(give_block(count * size, nullptr));
        std::memset(array, 0, count * size);
        for (std::uint32_t i = 0; i < count; ++i) fill_structure(element, array + i * size, random);
        store(structure, field->offset, array);
        store(structure, field->size_offset, count);
    } else if (kind != field->kind) {
        if (count == 0) return;
        char* const array = static_cast<char*>(give_block(count * size_of_kind(kind), nullptr));
        for (std::uint32_t i = 0; i < count; ++i) fill_value(kind, descriptor, array + i * size_of_kind(kind), random);
        store(structure, field->offset, array);
        store(structure, field->size_offset, count);
    } else if (kind == VESK_KIND_BYTES) {
        const vesk_bytes bytes = bytes_block(random);
        store(structure, field->offset, bytes.data);
        store(structure, field->size_offset, bytes.length);
    } else {
        fill_value(kind, descriptor, member, random);
    }
}

void fill_structure(const ForeignType& type, void* structure, Random& random) {
    const std::uint64_t share = random() % 4;
    for (std::uint32_t place = 0; place < type.facts->field_count; ++place) {
        const vesk_field* const field = vesk_type_field(type.facts, place);
        if (random() % 4 > share) continue;
        fill_field(type, field, structure, random);
        // A value without its bit is not written.
        if (random() % 8 != 0) set_bit(type.facts, field, structure);
    }
}

// ---- The comparison ------------------------------------------------------------------------------------------------

std::string compare(const ForeignType& type, const void* structure, const Message& message);

// A value as text, the same for the same bits: of the member, and of the message.
std::string say_member(unsigned kind, const void* value) {
    switch (kind) {
        case VESK_KIND_BOOL: return load<std::uint8_t>(value, 0) != 0 ? "true" : "false";
        case VESK_KIND_STRING: {
            const char* const text = load<const char*>(value, 0);
            return '"' + std::string(text != nullptr ? text : "") + '"';
        }
        case VESK_KIND_BYTES: {
            const auto bytes = load<vesk_bytes>(value, 0);
            return to_hex(bytes.length != 0 ? Bytes(bytes.data, bytes.data + bytes.length) : Bytes());
        }
        default:
            return std::to_string(size_of_kind(kind) == 4 ? load<std::uint32_t>(value, 0)
                                                          : load<std::uint64_t>(value, 0));
    }
}

template <class Value>
std::string say_bits(Value value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof value);
    if constexpr (sizeof value == 4) bits = *reinterpret_cast<const std::uint32_t*>(&value);
    return std::to_string(bits);
}

std::string say_bytes(const std::string& bytes) { return to_hex(Bytes(bytes.begin(), bytes.end())); }

// Of the element at an index, or of the field itself if that is below 0.
std::string say_value(const Message& message, const FieldDescriptor* field, int index) {
    const Reflection& reflection = *message.GetReflection();
#define VESK_TEST_GET(Type) \
    (index < 0 ? reflection.Get##Type(message, field) : reflection.GetRepeated##Type(message, field, index))
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32: return say_bits(VESK_TEST_GET(Int32));
        case FieldDescriptor::CPPTYPE_INT64: return say_bits(VESK_TEST_GET(Int64));
        case FieldDescriptor::CPPTYPE_UINT32: return say_bits(VESK_TEST_GET(UInt32));
        case FieldDescriptor::CPPTYPE_UINT64: return say_bits(VESK_TEST_GET(UInt64));
        case FieldDescriptor::CPPTYPE_DOUBLE: return say_bits(VESK_TEST_GET(Double));
        case FieldDescriptor::CPPTYPE_FLOAT: return say_bits(VESK_TEST_GET(Float));
        case FieldDescriptor::CPPTYPE_BOOL: return VESK_TEST_GET(Bool) ? "true" : "false";
        case FieldDescriptor::CPPTYPE_ENUM: return say_bits(std::int32_t{VESK_TEST_GET(EnumValue)});
        case FieldDescriptor::CPPTYPE_STRING:
            return field->type() == FieldDescriptor::TYPE_STRING ? '"' + VESK_TEST_GET(String) + '"'
                                                                 : say_bytes(VESK_TEST_GET(String));
        case FieldDescriptor::CPPTYPE_MESSAGE: break;
    }
#undef VESK_TEST_GET
    return {};
}

std::string differ(const std::string& here, const std::string& there) {
    return here == there ? "" : ": " + here + ", and in protobuf " + there;
}

std::string compare_repeated(const ForeignType& type, const vesk_field* field, const void* structure,
                             const Message& message, bool is_present) {
    const FieldDescriptor& descriptor = descriptor_of(type, field);
    const Reflection& reflection = *message.GetReflection();
    const unsigned kind = field->kind & ~unsigned{VESK_KIND_REPEATED};
    const int count = is_present ? static_cast<int>(load<std::uint32_t>(structure, field->size_offset)) : 0;
    if (count != reflection.FieldSize(message, &descriptor)) {
        return differ(std::to_string(count) + " elements", std::to_string(reflection.FieldSize(message, &descriptor)));
    }
    const char* const array = load<const char*>(structure, field->offset);
    for (int i = 0; i < count; ++i) {
        std::string found;
        if (kind == VESK_KIND_LIST) {
            const ForeignType& element = schema().type_of(descriptor.message_type());
            found = compare(element, array + static_cast<std::size_t>(i) * element.facts->structure_size,
                            reflection.GetRepeatedMessage(message, &descriptor, i));
            if (!found.empty()) found.insert(0, ".");
        } else {
            found = differ(say_member(kind, array + static_cast<unsigned>(i) * size_of_kind(kind)),
                           say_value(message, &descriptor, i));
        }
        if (!found.empty()) return "[" + std::to_string(i) + "]" + found;
    }
    return {};
}

std::string compare_field(const ForeignType& type, const vesk_field* field, const void* structure,
                          const Message& message) {
    const FieldDescriptor& descriptor = descriptor_of(type, field);
    const Reflection& reflection = *message.GetReflection();
    if (descriptor.name() != vesk_field_name(field))
        return differ("the name " + std::string(vesk_field_name(field)), descriptor.name());
    bool is_present = has_bit(type.facts, field, structure);
    const char* const member = static_cast<const char*>(structure) + field->offset;
    if (descriptor.is_repeated()) return compare_repeated(type, field, structure, message, is_present);
    if (field->kind == VESK_KIND_MESSAGE) {
        const ForeignType& nested = schema().type_of(descriptor.message_type());
        is_present = is_present || nested.encode(member, nullptr, 0, nullptr, nullptr, 0) != 0;
        const bool has = reflection.HasField(message, &descriptor);
        if (is_present != has) return differ(is_present ? "present" : "absent", has ? "present" : "absent");
        const std::string found =
            is_present ? compare(nested, member, reflection.GetMessage(message, &descriptor)) : "";
        return found.empty() ? "" : "." + found;
    }
    if (field->kind == VESK_KIND_STRING && load<const char*>(member, 0) == nullptr) is_present = false;
    if (descriptor.has_presence()) {
        const bool has = reflection.HasField(message, &descriptor);
        if (is_present != has) return differ(is_present ? "present" : "absent", has ? "present" : "absent");
        if (!is_present) return {};
    } else if (!is_present) {
        return reflection.HasField(message, &descriptor) ? differ("absent", say_value(message, &descriptor, -1)) : "";
    }
    if (field->kind == VESK_KIND_BYTES) {
        const vesk_bytes bytes{load<std::uint8_t*>(structure, field->offset),
                               load<std::uint64_t>(structure, field->size_offset)};
        return differ(say_member(VESK_KIND_BYTES, &bytes), say_value(message, &descriptor, -1));
    }
    return differ(say_member(field->kind, member), say_value(message, &descriptor, -1));
}

std::string compare(const ForeignType& type, const void* structure, const Message& message) {
    for (std::uint32_t place = 0; place < type.facts->field_count; ++place) {
        const vesk_field* const field = vesk_type_field(type.facts, place);
        const std::string found = compare_field(type, field, structure, message);
        if (!found.empty()) return vesk_field_name(field) + found;
    }
    return {};
}

}  // namespace

void fill(Message* message, Random& random) {
    const google::protobuf::Descriptor& type = *message->GetDescriptor();
    const Reflection& reflection = *message->GetReflection();
    const std::uint64_t share = random() % 4;
    for (int i = 0; i < type.field_count(); ++i) {
        const FieldDescriptor* const field = type.field(i);
        if (!field->is_required() && random() % 4 > share) continue;
        const std::uint64_t count = field->is_repeated() ? random() % 4 : 1;
        for (std::uint64_t j = 0; j < count; ++j) add_or_set(reflection, message, field, field->is_repeated(), random);
    }
}

void fill(Structure* structure, Random& random) { fill_structure(structure->type(), structure->get(), random); }

std::string difference(const Structure& structure, const Message& message) {
    return compare(structure.type(), structure.get(), message);
}

}  // namespace vesk::test
