#include "tests/interop/record.hpp"

#include <google/protobuf/message.h>
#include <google/protobuf/unknown_field_set.h>

#include <algorithm>
#include <ostream>

namespace vesk::test {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

bool Value::operator==(const Value& other) const {
    return number == other.number && text == other.text && records == other.records;
}

bool Record::operator==(const Record& other) const { return values == other.values && unknown == other.unknown; }

void PrintTo(const Record& record, std::ostream* out) {
    *out << "{ ";
    for (const auto& [number, value] : record.values) {
        *out << number << ": ";
        if (value.number != 0) *out << value.number << ' ';
        if (!value.text.empty()) *out << to_hex(Bytes(value.text.begin(), value.text.end())) << ' ';
        for (const Record& nested : value.records) PrintTo(nested, out);
    }
    if (!record.unknown.empty()) *out << "unknown: " << to_hex(record.unknown) << ' ';
    *out << "} ";
}

// ---- Structures of the library -------------------------------------------------------------------------------------

namespace {

enum class View { stored, written };

Record view(const TypeInfo& type, const void* message, View as);

Value view(const FieldInfo& field, const void* message, View as) {
    Value value;
    const auto* pointer = member_at(message, field.offset);
    if (field.kind == Kind::string || field.kind == Kind::bytes || field.kind == Kind::list) {
        pointer = load<const std::uint8_t*>(message, field.offset);
    }
    switch (field.kind) {
        case Kind::uint32: value.number = load<std::uint32_t>(message, field.offset); break;
        case Kind::uint64: value.number = load<std::uint64_t>(message, field.offset); break;
        case Kind::boolean: {
            const auto byte = load<std::uint8_t>(message, field.offset);
            value.number = as == View::stored ? byte : byte != 0;
            break;
        }
        case Kind::string: value.text = reinterpret_cast<const char*>(pointer); break;
        case Kind::bytes:
            value.text.assign(pointer, pointer + load<std::uint64_t>(message, field.second_offset));
            break;
        case Kind::message: value.records.push_back(view(*field.nested, pointer, as)); break;
        case Kind::list:
            for (std::uint32_t i = 0; i < load<std::uint32_t>(message, field.second_offset); ++i) {
                value.records.push_back(view(*field.nested, pointer + i * field.nested->size, as));
            }
            break;
        default: break;  // a kind that messages of others alone have
    }
    return value;
}

bool is_in_view(const TypeInfo& type, const void* message, std::size_t index, View as) {
    const FieldInfo& field = type.fields[index];
    const bool present = is_present(type, message, index);
    if (as == View::stored) return present;
    if (field.kind == Kind::string) return present && load<const char*>(message, field.offset) != nullptr;
    if (field.kind == Kind::list) return present && load<std::uint32_t>(message, field.second_offset) != 0;
    if (field.kind != Kind::message) return present;
    return present || !view(*field.nested, member_at(message, field.offset), as).values.empty();
}

Record view(const TypeInfo& type, const void* message, View as) {
    Record record;
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        const FieldInfo& field = type.fields[index];
        if (is_in_view(type, message, index, as)) record.values.emplace(field.number, view(field, message, as));
    }
    return record;
}

}  // namespace

Record stored_values(const TypeInfo& type, const void* message) { return view(type, message, View::stored); }
Record written_values(const TypeInfo& type, const void* message) { return view(type, message, View::written); }

// ---- Messages of protobuf ------------------------------------------------------------------------------------------

namespace {

Value value_of(const Message& message, const FieldDescriptor* field) {
    const Reflection& reflection = *message.GetReflection();
    Value value;
    if (field->is_repeated()) {
        for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
            value.records.push_back(values_of(reflection.GetRepeatedMessage(message, field, i)));
        }
        return value;
    }
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32: value.number = reflection.GetUInt32(message, field); break;
        case FieldDescriptor::CPPTYPE_UINT64: value.number = reflection.GetUInt64(message, field); break;
        case FieldDescriptor::CPPTYPE_BOOL: value.number = reflection.GetBool(message, field); break;
        case FieldDescriptor::CPPTYPE_STRING: value.text = reflection.GetString(message, field); break;
        default: value.records.push_back(values_of(reflection.GetMessage(message, field))); break;
    }
    return value;
}

void set_value(const Value& value, Message& message, const FieldDescriptor* field) {
    const Reflection& reflection = *message.GetReflection();
    if (field->is_repeated()) {
        for (const Record& element : value.records) set_values(element, *reflection.AddMessage(&message, field));
        return;
    }
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32:
            return reflection.SetUInt32(&message, field, static_cast<std::uint32_t>(value.number));
        case FieldDescriptor::CPPTYPE_UINT64: return reflection.SetUInt64(&message, field, value.number);
        case FieldDescriptor::CPPTYPE_BOOL: return reflection.SetBool(&message, field, value.number != 0);
        case FieldDescriptor::CPPTYPE_STRING: return reflection.SetString(&message, field, value.text);
        default: return set_values(value.records.at(0), *reflection.MutableMessage(&message, field));
    }
}

}  // namespace

Record values_of(const Message& message) {
    Record record;
    std::vector<const FieldDescriptor*> present;
    message.GetReflection()->ListFields(message, &present);
    for (const FieldDescriptor* field : present) {
        record.values.emplace(static_cast<std::uint32_t>(field->number()), value_of(message, field));
    }
    std::string unknown;
    message.GetReflection()->GetUnknownFields(message).SerializeToString(&unknown);
    record.unknown.assign(unknown.begin(), unknown.end());
    return record;
}

void set_values(const Record& record, Message& message) {
    for (const auto& [number, value] : record.values) {
        set_value(value, message, message.GetDescriptor()->FindFieldByNumber(static_cast<int>(number)));
    }
}

// ---- Bytes ---------------------------------------------------------------------------------------------------------

Bytes encoded(const TypeInfo& type, const Record& record, Order order) {
    std::vector<FieldInfo> fields = type.fields;
    if (order == Order::by_number) {
        std::sort(fields.begin(), fields.end(),
                  [](const FieldInfo& left, const FieldInfo& right) { return left.number < right.number; });
    }
    Bytes bytes;
    const auto append = [&](const Bytes& piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); };
    for (const FieldInfo& field : fields) {
        const auto found = record.values.find(field.number);
        if (found == record.values.end()) continue;
        if (field.kind == Kind::string || field.kind == Kind::bytes) {
            append(text_field(field.number, found->second.text));
        } else if (field.nested == nullptr) {
            append(number_field(field.number, found->second.number));
        } else {
            for (const Record& nested : found->second.records) {
                append(message_field(field.number, encoded(*field.nested, nested, order)));
            }
        }
    }
    return bytes;
}

}  // namespace vesk::test
