#include "tests/support/first_difference.hpp"

#include <algorithm>

namespace vesk::test {
namespace {

template <class Value>
std::string compare(const char* what, const Value& left, const Value& right) {
    if (left == right) return "";
    if constexpr (std::is_same_v<Value, std::string>) {
        return std::string(what) + "\"" + left + "\" and \"" + right + "\"";
    } else {
        return what + std::to_string(left) + " and " + std::to_string(right);
    }
}

template <class Member>
std::string compare_members(const char* what, const void* left, const void* right, std::size_t offset) {
    return compare(what, load<Member>(left, offset), load<Member>(right, offset));
}

std::string compare_texts(const char* left, const char* right) {
    if (left == nullptr || right == nullptr) return compare("non-null: ", left != nullptr, right != nullptr);
    return std::strcmp(left, right) == 0 ? "" : compare("", std::string(left), std::string(right));
}

std::string compare_data(const std::uint8_t* left, const std::uint8_t* right, std::uint64_t length) {
    if (left == nullptr || right == nullptr) return compare("non-null: ", left != nullptr, right != nullptr);
    if (std::equal(left, left + length, right)) return "";
    return to_hex(Bytes(left, left + length)) + " and " + to_hex(Bytes(right, right + length));
}

std::string compare_lists(const TypeInfo& type, const std::uint8_t* left, const std::uint8_t* right,
                          std::uint32_t count) {
    if (left == nullptr || right == nullptr) return compare("non-null: ", left != nullptr, right != nullptr);
    std::string difference;
    for (std::size_t i = 0; i < count && difference.empty(); ++i) {
        difference = first_difference(type, left + i * type.size, right + i * type.size);
        if (!difference.empty()) difference = "[" + std::to_string(i) + "] " + difference;
    }
    return difference;
}

std::string compare_fields(const FieldInfo& field, const void* left, const void* right) {
    const std::size_t first = field.offset;
    const std::size_t second = field.second_offset;
    std::string difference;
    switch (field.kind) {
        case Kind::uint32: return compare_members<std::uint32_t>("", left, right, first);
        case Kind::uint64: return compare_members<std::uint64_t>("", left, right, first);
        case Kind::boolean: return compare_members<std::uint8_t>("", left, right, first);
        case Kind::string: return compare_texts(load<char*>(left, first), load<char*>(right, first));
        case Kind::message: return first_difference(*field.nested, member_at(left, first), member_at(right, first));
        case Kind::bytes:
            difference = compare_members<std::uint64_t>("length ", left, right, second);
            if (!difference.empty()) return difference;
            return compare_data(load<std::uint8_t*>(left, first), load<std::uint8_t*>(right, first),
                                load<std::uint64_t>(left, second));
        case Kind::list:
            difference = compare_members<std::uint32_t>("count ", left, right, second);
            if (!difference.empty()) return difference;
            return compare_lists(*field.nested, load<std::uint8_t*>(left, first), load<std::uint8_t*>(right, first),
                                 load<std::uint32_t>(left, second));
        default: break;  // a kind that messages of others alone have
    }
    return "a kind that is not compared";
}

}  // namespace

std::string first_difference(const TypeInfo& type, const void* left, const void* right) {
    if (std::memcmp(left, right, type.size) == 0) return "";  // most are the same to the last byte, and own no block
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        const FieldInfo& field = type.fields[index];
        std::string difference = compare("present: ", is_present(type, left, index), is_present(type, right, index));
        if (difference.empty()) difference = compare_fields(field, left, right);
        if (!difference.empty()) return type.name + "." + std::to_string(field.number) + ": " + difference;
    }
    return "";
}

}  // namespace vesk::test
