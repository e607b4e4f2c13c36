// What is written is read as it was meant, and written again as the same bytes. The message comes from any bytes that
// decode, as they are or changed as a careless caller might.
#include <algorithm>
#include <cstring>

#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"

namespace vesk::fuzz {
namespace {

using test::load;
using test::member_at;

// ---- What an encoding is to say ------------------------------------------------------------------------------------

bool has_written_fields(const TypeInfo& type, const void* message);

bool is_written(const TypeInfo& type, const void* message, std::size_t index) {
    const FieldInfo& field = type.fields[index];
    const bool is_present = test::is_present(type, message, index);
    switch (field.kind) {
        case Kind::string: return is_present && pointer_of(field, message) != nullptr;
        case Kind::list: return is_present && load<std::uint32_t>(message, field.second_offset) != 0;
        case Kind::message: return is_present || has_written_fields(*field.nested, member_at(message, field.offset));
        default: return is_present;
    }
}

bool has_written_fields(const TypeInfo& type, const void* message) {
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        if (is_written(type, message, index)) return true;
    }
    return false;
}

// Holds a message that was read to the one that was written.
void check_read(const TypeInfo& type, const void* written, const void* read);

void check_read_field(const FieldInfo& field, const void* written, const void* read) {
    if (field.kind == Kind::boolean) {
        expect(number_of(field, read) == (number_of(field, written) != 0), "a flag is read as another one");
    } else if (is_number(field)) {
        expect(number_of(field, read) == number_of(field, written), "a number is read as another one");
    } else if (field.kind == Kind::message) {
        check_read(*field.nested, member_at(written, field.offset), member_at(read, field.offset));
    } else {
        const std::uint64_t size = pointed_size(field, written);
        expect(pointed_size(field, read) == size, "a string, bytes field or list is read with another length");
        const std::uint8_t* from = pointer_of(field, written);
        const std::uint8_t* to = pointer_of(field, read);
        if (field.kind != Kind::list) {
            expect(size == 0 || std::memcmp(from, to, size) == 0, "a string or bytes field is read with other content");
            return;
        }
        for (std::uint64_t offset = 0; offset < size; offset += field.nested->size) {
            check_read(*field.nested, from + offset, to + offset);
        }
    }
}

void check_read(const TypeInfo& type, const void* written, const void* read) {
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        const bool is_expected = is_written(type, written, index);
        expect(test::is_present(type, read, index) == is_expected, "a field is read that is not written, or not read");
        if (is_expected) check_read_field(type.fields[index], written, read);
    }
}

// ---- One decoding and one encoding ---------------------------------------------------------------------------------

struct Bytes {
    const std::uint8_t* start;
    std::uint64_t length;
};

class Trip {
public:
    std::int32_t decode(const TypeInfo& type, Bytes input) {
        structures_.reset();
        pool_.reset();
        message_ = structures_.take(type.size);
        return type.decode(message_, input.start, input.length, Pool::alloc, &pool_, 0);
    }

    // In a buffer of exactly its length.
    Bytes encode(const TypeInfo& type) {
        const std::uint64_t length = measured(type, message_);
        std::uint8_t* buffer = structures_.take(length);
        expect(type.encode(message_, buffer, length, nullptr, nullptr, 0) == length,
               "measuring and writing give different lengths");
        return {buffer, length};
    }

    void free(const TypeInfo& type) {
        type.free(message_, Pool::release, &pool_, 0);
        expect(pool_.blocks_out() == 0, "a message that the library has written loses a block");
    }

    std::uint8_t* message() const { return message_; }

private:
    Pool structures_;
    Pool pool_;
    std::uint8_t* message_ = nullptr;
};

}  // namespace

void check(const Input& input) {
    static Trip first;
    static Trip second;
    static Trip third;
    const TypeInfo& type = *input.type;

    if (first.decode(type, {input.message, input.length}) != VESK_OK) return;
    distort(type, first.message(), input.distortion);
    const Bytes written = first.encode(type);
    // Only present fields are written, each with the shortest tag, number and length.
    expect(written.length <= input.length || input.distortion != 0, "the encoding is longer than the input");

    expect(second.decode(type, written) == VESK_OK, "the library refuses what it has written");
    check_read(type, first.message(), second.message());
    const Bytes again = second.encode(type);

    expect(third.decode(type, again) == VESK_OK, "the library refuses what it has written");
    expect(have_same_values(type, second.message(), third.message()), "a second trip changes the values");
    const Bytes at_last = third.encode(type);
    expect(again.length == at_last.length && std::equal(again.start, again.start + again.length, at_last.start),
           "the same values are written as other bytes");
    second.free(type);
    third.free(type);
}

}  // namespace vesk::fuzz
