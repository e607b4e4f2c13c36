// Changes an input by its fields instead of its bytes: leaves one out, doubles it, moves it, adds one, gives it another
// tag, length or content, and puts the lengths around it right. So a change deep inside still reaches its decoder. One
// time in four libFuzzer changes the bytes as it likes.
#include <algorithm>
#include <cstring>

#include "fuzz/fields.hpp"
#include "fuzz/input.hpp"
#include "fuzz/random.hpp"
#include "tests/support/bytes.hpp"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed);
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* data, std::size_t size, const std::uint8_t* other,
                                                 std::size_t other_size, std::uint8_t* out, std::size_t max_size,
                                                 unsigned seed);

namespace vesk::fuzz {
namespace {

using test::Bytes;

constexpr std::size_t longest_content = 64;

class Mutation {
public:
    Mutation(const TypeInfo& type, Bytes& message, std::uint32_t seed) : type_(type), message_(message), random_(seed) {
        fields_.clear();
        find_fields(type, message.data(), message.size(), fields_);
    }

    void change_once() {
        if (fields_.empty() || random_.below(8) == 0) return add_field();
        const std::size_t chosen = random_.below(fields_.size());
        const FoundField& field = fields_[chosen];
        switch (random_.below(9)) {
            case 0: return replace(field.start, field.end, {}, field.parent);
            case 1: return insert_behind(any_sibling(field), bytes_of(field));
            case 2: return move(chosen);
            case 3: return change_tag(field);
            case 4: return field.has_length() ? change_length(field) : change_number(field);
            case 5: return replace(field.start, field.end, new_field(*field.type), field.parent);
            case 6: return cut(field);
            default: return change_value(field);
        }
    }

    // Puts a field of another message in: over one of its type, or else behind any field.
    void take_from(const TypeInfo& other_type, const std::uint8_t* other, std::size_t length) {
        static std::vector<FoundField> others;
        others.clear();
        find_fields(other_type, other, length, others);
        if (others.empty()) return;
        const FoundField& donor = others[random_.below(others.size())];
        const Bytes given(other + donor.start, other + donor.end);
        if (fields_.empty()) {
            message_ = given;
            return;
        }
        const std::size_t start = random_.below(fields_.size());
        for (std::size_t i = 0; i < fields_.size(); ++i) {
            const FoundField& field = fields_[(start + i) % fields_.size()];
            if (field.info != donor.info || donor.info == nullptr) continue;
            if (random_.below(2) == 0) return insert_behind(field, given);
            return replace(field.start, field.end, given, field.parent);
        }
        insert_behind(fields_[start], given);
    }

private:
    Bytes bytes_of(const FoundField& field) const {
        return Bytes(message_.begin() + static_cast<std::ptrdiff_t>(field.start),
                     message_.begin() + static_cast<std::ptrdiff_t>(field.end));
    }

    const FoundField& any_sibling(const FoundField& field) {
        const std::size_t start = random_.below(fields_.size());
        for (std::size_t i = 0; i < fields_.size(); ++i) {
            const FoundField& other = fields_[(start + i) % fields_.size()];
            if (other.parent == field.parent) return random_.below(2) == 0 ? field : other;
        }
        return field;
    }

    // Puts `with` in place of the bytes from `first` to `last`, and the lengths of the messages around them right; now
    // and then it leaves these as they are.
    void replace(std::size_t first, std::size_t last, const Bytes& with, std::size_t parent) {
        splice(first, last, with);
        if (random_.below(32) == 0) return;
        auto growth = static_cast<std::ptrdiff_t>(with.size()) - static_cast<std::ptrdiff_t>(last - first);
        for (; parent != no_field; parent = fields_[parent].parent) {
            const FoundField& around = fields_[parent];
            const auto length = static_cast<std::ptrdiff_t>(around.end - around.content) + growth;
            const Bytes prefix = test::varint(static_cast<std::uint64_t>(length));
            splice(around.value, around.content, prefix);
            growth +=
                static_cast<std::ptrdiff_t>(prefix.size()) - static_cast<std::ptrdiff_t>(around.content - around.value);
        }
    }

    void splice(std::size_t first, std::size_t last, const Bytes& with) {
        const auto begin = message_.begin() + static_cast<std::ptrdiff_t>(first);
        message_.insert(message_.erase(begin, message_.begin() + static_cast<std::ptrdiff_t>(last)), with.begin(),
                        with.end());
    }

    void insert_behind(const FoundField& field, const Bytes& bytes) {
        replace(field.end, field.end, bytes, field.parent);
    }

    void add_field() {
        const std::size_t place = random_.below(fields_.size() + 1);
        if (place == fields_.size()) return replace(message_.size(), message_.size(), new_field(type_), no_field);
        const FoundField& field = fields_[place];
        if (field.is_nested() && random_.below(2) == 0) {
            return replace(field.end, field.end, new_field(*field.info->nested), place);
        }
        insert_behind(field, new_field(*field.type));
    }

    void move(std::size_t chosen) {
        const FoundField& field = fields_[chosen];
        const FoundField& other = any_sibling(field);
        const Bytes bytes = bytes_of(field);
        if (other.start >= field.end) {  // the rear place first: the other positions stay
            splice(other.end, other.end, bytes);
            splice(field.start, field.end, {});
        } else if (other.end <= field.start) {
            splice(field.start, field.end, {});
            splice(other.start, other.start, bytes);
        }
    }

    void change_tag(const FoundField& field) {
        const std::uint32_t number = random_.below(4) == 0 ? any_number() : field.number;
        const auto wire_type = static_cast<std::uint32_t>(random_.below(2) == 0 ? random_.below(8) : field.wire_type);
        replace(field.start, field.value, padded(std::uint64_t{number} << 3 | wire_type), field.parent);
    }

    // To one that does not fit, or to a longer way of saying the same. Lengths around it stay right.
    void change_length(const FoundField& field) {
        const std::uint64_t length = field.end - field.content;
        Bytes changed;
        switch (random_.below(5)) {
            case 0: changed = test::varint(length + random_.below(4) + 1); break;
            case 1: changed = test::varint(length - std::min(length, random_.below(4) + 1)); break;
            case 2: changed = test::varint(length | random_.next() << 32); break;
            case 3: changed = test::varint(random_.number()); break;
            default: changed = test::over_long(length, 10 + random_.below(4)); break;
        }
        replace(field.value, field.content, changed, field.parent);
    }

    void change_number(const FoundField& field) {
        replace(field.value, field.end, new_value(field.wire_type), field.parent);
    }

    // Keeps the beginning of a field's value; its length, if it has one, follows in half of the cases.
    void cut(const FoundField& field) {
        const std::size_t kept = field.content + random_.below(field.end - field.content + 1);
        if (!field.has_length() || random_.below(2) == 0) return replace(kept, field.end, {}, field.parent);
        set_content(field, Bytes(message_.begin() + static_cast<std::ptrdiff_t>(field.content),
                                 message_.begin() + static_cast<std::ptrdiff_t>(kept)));
    }

    void change_value(const FoundField& field) {
        if (!field.has_length()) return change_number(field);
        if (field.is_nested()) return set_content(field, new_message(*field.info->nested, 3));
        if (field.info != nullptr && field.info->kind == Kind::repeated && random_.below(2) == 0) {
            return set_content(field, packed(*field.info));
        }
        Bytes content(longest_content);
        const std::size_t size = std::min(longest_content, field.end - field.content);
        std::copy_n(message_.begin() + static_cast<std::ptrdiff_t>(field.content), size, content.begin());
        content.resize(LLVMFuzzerMutate(content.data(), size, content.size()));
        set_content(field, content);
    }

    void set_content(const FoundField& field, const Bytes& content) {
        replace(field.value, field.end, test::sized(content), field.parent);
    }

    // ---- New fields ------------------------------------------------------------------------------------------------

    std::uint32_t any_number() {
        return static_cast<std::uint32_t>(random_.below(16) == 0 ? random_.next() >> 35 : random_.below(36));
    }

    Bytes padded(std::uint64_t value) {
        const Bytes shortest = test::varint(value);
        return random_.below(4) == 0 ? test::over_long(value, shortest.size() + random_.below(12)) : shortest;
    }

    // As long as the wire type says.
    Bytes new_value(std::uint32_t wire_type) {
        if (wire_type != 1 && wire_type != 5) return padded(random_.number());
        const std::uint64_t word = random_.number();
        Bytes bytes(wire_type == 5 ? 4 : 8);
        std::memcpy(bytes.data(), &word, bytes.size());
        return bytes;
    }

    Bytes text() {
        Bytes bytes(random_.below(12));
        for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random_.below(8) == 0 ? random_.next() : 'a');
        return bytes;
    }

    Bytes new_field(const TypeInfo& type, int depth = 3) {
        if (random_.below(8) == 0) return unknown_field();
        const FieldInfo& info = type.fields[random_.below(type.fields.size())];
        if (info.kind != Kind::list && info.kind < Kind::repeated) return element(info, depth);
        Bytes run;
        for (std::uint64_t i = random_.below(3) + 1; i != 0; --i) run = test::message(run, element(info, depth));
        return run;
    }

    // Of a list or of what others' messages have any number of; else the field itself.
    Bytes element(const FieldInfo& info, int depth) {
        if (info.nested != nullptr) return test::message_field(info.number, new_message(*info.nested, depth - 1));
        const std::uint32_t wire_type = wire_type_of(info.element);
        if (wire_type == 2) return test::message_field(info.number, text());
        if (info.kind == Kind::repeated && random_.below(2) == 0) {
            return test::message_field(info.number, packed(info));
        }
        return test::message(test::tag(info.number, wire_type), new_value(wire_type));
    }

    Bytes packed(const FieldInfo& info) {
        Bytes values;
        for (std::uint64_t i = random_.below(5); i != 0; --i) {
            values = test::message(values, new_value(wire_type_of(info.element)));
        }
        return values;
    }

    Bytes new_message(const TypeInfo& type, int depth) {
        Bytes bytes;
        if (depth == 0) return bytes;
        for (std::uint64_t i = random_.below(3); i != 0; --i) bytes = test::message(bytes, new_field(type, depth));
        return bytes;
    }

    Bytes unknown_field() {
        const auto wire_type = static_cast<std::uint32_t>(random_.below(8));
        const Bytes front = test::tag(any_number(), wire_type);
        switch (wire_type) {
            case 0: return test::message(front, padded(random_.number()));
            case 1: return test::message(front, Bytes(8));
            case 2: return test::message(front, test::sized(text()));
            case 5: return test::message(front, Bytes(4));
            default: return front;
        }
    }

    const TypeInfo& type_;
    Bytes& message_;
    Random random_;
    inline static std::vector<FoundField> fields_;
};

std::size_t put_back(const Bytes& message, std::uint8_t* data, std::size_t max_size) {
    const std::size_t size = std::min(message.size(), max_size - header::size);
    std::copy_n(message.begin(), size, data + header::size);
    return header::size + size;
}

Bytes& message_of(const std::uint8_t* data, std::size_t size) {
    static Bytes message;
    message.assign(data + header::size, data + size);
    return message;
}

}  // namespace
}  // namespace vesk::fuzz

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size, unsigned seed) {
    using namespace vesk::fuzz;
    Random random(seed);
    if (size < header::size || random.below(4) == 0) return LLVMFuzzerMutate(data, size, max_size);
    if (random.below(8) == 0) {
        data[random.below(header::size)] = static_cast<std::uint8_t>(random.next());
        return size;
    }
    Bytes& message = message_of(data, size);
    for (std::uint64_t times = random.below(3) + 1; times != 0; --times) {
        Mutation(type_of_input(data), message, static_cast<std::uint32_t>(random.next())).change_once();
    }
    return put_back(message, data, max_size);
}

std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* data, std::size_t size, const std::uint8_t* other,
                                      std::size_t other_size, std::uint8_t* out, std::size_t max_size, unsigned seed) {
    using namespace vesk::fuzz;
    if (size < header::size || other_size < header::size || max_size < header::size) return 0;
    Bytes& message = message_of(data, size);
    Mutation(type_of_input(data), message, seed)
        .take_from(type_of_input(other), other + header::size, other_size - header::size);
    std::copy_n(data, header::size, out);
    return put_back(message, out, max_size);
}
