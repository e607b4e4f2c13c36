#include "tests/interop/dialect.hpp"

#include <algorithm>

namespace vesk::test {
namespace {

// Protobuf's limits, held by differences.group_is_refused and differences.field_of_2_gib_is_read.
constexpr int deepest_group = 100;
constexpr std::uint64_t longest_length = 0x7FFFFFFF - 16;

struct Refused {};

void require(bool condition) {
    if (!condition) throw Refused{};
}

struct Varint {
    std::uint64_t value;  // the low 64 bits
    std::size_t size;
};

class Reader {
public:
    Reader(const Dialect& dialect, const std::uint8_t* at, const std::uint8_t* end)
        : dialect_(dialect), at_(at), end_(end) {}

    void read_message(const TypeInfo& type, Record& record) {
        std::uint32_t previous_number = 0;  // 0: whatever comes, it does not continue a list
        while (at_ != end_) {
            const std::uint32_t tag = read_tag();
            const std::uint32_t number = field_number_of_tag(tag);
            const auto field = std::find_if(type.fields.begin(), type.fields.end(),
                                            [&](const FieldInfo& candidate) { return candidate.number == number; });
            if (field == type.fields.end()) {
                read_unknown(tag, record.unknown, 0);
                previous_number = 0;
            } else if (belongs_to(*field, tag, previous_number == number)) {
                read_known(*field, record.values, previous_number == number);
                previous_number = number;
            } else {
                require(!on(Difference::known_field_of_other_wire_type_is_refused));
                read_unknown(tag, record.unknown, 0);
                previous_number = 0;
            }
        }
    }

private:
    bool on(Difference difference) const { return dialect_.has(difference); }

    // ---- Varints -------------------------------------------------------------------------------------------------

    Varint read_varint() {
        Varint varint{0, 0};
        for (std::uint8_t byte = 0x80; byte >= 0x80; ++varint.size) {
            require(at_ != end_);
            byte = *at_++;
            if (varint.size < 10) varint.value |= std::uint64_t{byte & 0x7Fu} << 7 * varint.size;
        }
        return varint;
    }

    std::uint32_t read_tag() {
        const Varint varint = read_varint();
        require(varint.size <= 5 || on(Difference::tag_of_more_than_5_bytes_is_read));
        return static_cast<std::uint32_t>(varint.value);
    }

    std::uint64_t read_number() {
        const Varint varint = read_varint();
        require(varint.size <= 10 || on(Difference::number_of_more_than_10_bytes_is_read));
        return varint.value;
    }

    // Not yet held to the input.
    std::uint32_t read_length() {
        const Varint varint = read_varint();
        require(varint.size <= 5 || on(Difference::length_of_more_than_5_bytes_is_read));
        require(varint.value <= longest_length || on(Difference::length_above_2_gib_keeps_its_low_32_bits));
        return static_cast<std::uint32_t>(varint.value);
    }

    std::uint64_t left() const { return static_cast<std::uint64_t>(end_ - at_); }

    Bytes take(std::uint64_t length) {
        Bytes bytes(at_, at_ + length);
        at_ += length;
        return bytes;
    }

    // ---- Known fields --------------------------------------------------------------------------------------------

    bool belongs_to(const FieldInfo& field, std::uint32_t tag, bool continues_list) const {
        const bool is_number = field.kind == Kind::uint32 || field.kind == Kind::uint64 || field.kind == Kind::boolean;
        if (wire_type_of_tag(tag) == (is_number ? varint_type : length_type)) return true;
        return field.kind == Kind::list && continues_list &&
               on(Difference::list_element_of_other_wire_type_is_read_as_element);
    }

    void read_known(const FieldInfo& field, std::map<std::uint32_t, Value>& values, bool continues_list) {
        const bool is_first = !values.contains(field.number);
        Value& value = values[field.number];
        switch (field.kind) {
            case Kind::uint32: value.number = static_cast<std::uint32_t>(read_number()); return;
            case Kind::uint64: value.number = read_number(); return;
            case Kind::boolean: {
                const std::uint64_t number = read_number();
                value.number = (on(Difference::flag_is_read_from_32_bits) ? number & 0xFFFFFFFF : number) != 0;
                return;
            }
            case Kind::string:
                require(is_first || !on(Difference::string_twice_is_refused));
                value.text = read_text();
                if (on(Difference::string_ends_at_embedded_nul)) {
                    value.text.resize(std::min(value.text.find('\0'), value.text.size()));
                }
                return;
            case Kind::bytes:
                require(is_first || !on(Difference::bytes_twice_is_refused));
                value.text = read_text();
                return;
            case Kind::message:
                if (is_first || on(Difference::nested_message_twice_is_replaced)) value.records.assign(1, Record());
                read_nested(*field.nested, value.records[0]);
                return;
            case Kind::list:
                require(is_first || continues_list || !on(Difference::list_in_two_runs_is_refused));
                read_nested(*field.nested, value.records.emplace_back());
                return;
            default: break;  // a kind that messages of others alone have
        }
    }

    std::string read_text() {
        const std::uint64_t length = read_length();
        require(length <= left());
        const Bytes bytes = take(length);
        return std::string(bytes.begin(), bytes.end());
    }

    void read_nested(const TypeInfo& type, Record& record) {
        const std::uint64_t length = read_length();
        require(length <= left());
        Reader(dialect_, at_, at_ + length).read_message(type, record);
        at_ += length;
    }

    // ---- Unknown fields --------------------------------------------------------------------------------------------

    // Reads the value behind a tag and appends the whole field to `unknown`, unless such fields are dropped.
    void read_unknown(std::uint32_t tag, Bytes& unknown, int group_depth) {
        require(field_number_of_tag(tag) != 0 || on(Difference::field_number_0_is_unknown_field));
        keep(varint(tag), unknown);
        switch (wire_type_of_tag(tag)) {
            case varint_type: return keep(varint(read_number()), unknown);
            case fixed64_type: return keep(take_unknown(8), unknown);
            case fixed32_type: return keep(take_unknown(4), unknown);
            case length_type: return keep(sized(take_unknown(read_length())), unknown);
            case group_start:
                require(!on(Difference::group_is_refused));
                return read_group(field_number_of_tag(tag), unknown, group_depth + 1);
            default: throw Refused{};
        }
    }

    void read_group(std::uint32_t number, Bytes& unknown, int depth) {
        require(depth <= deepest_group);
        for (;;) {
            const std::uint32_t tag = read_tag();
            if (wire_type_of_tag(tag) == group_end) {
                require(field_number_of_tag(tag) == number);
                return keep(varint(tag), unknown);
            }
            read_unknown(tag, unknown, depth);
        }
    }

    Bytes take_unknown(std::uint64_t length) {
        require(length <= left() || on(Difference::unknown_field_cut_short_is_accepted));
        return take(std::min(length, left()));
    }

    void keep(const Bytes& piece, Bytes& unknown) const {
        if (on(Difference::unknown_field_is_dropped)) return;
        unknown.insert(unknown.end(), piece.begin(), piece.end());
    }

    const Dialect& dialect_;
    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

}  // namespace

Reading read_in(const Dialect& dialect, const TypeInfo& type, const Bytes& input) {
    Reading reading{true, {}};
    try {
        Reader(dialect, input.data(), input.data() + input.size()).read_message(type, reading.record);
    } catch (Refused) {
        return {false, {}};
    }
    return reading;
}

}  // namespace vesk::test
