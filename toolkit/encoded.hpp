// Lists and repeated fields in encoded bytes.
#pragma once

#include "runtime/wire.hpp"
#include "toolkit/kinds.hpp"

namespace vesk {

// The position after the tag of a list's next element, `at` being that after an element; null if the list ends here. It
// goes on for as long as the field number stays: the wire type of its tags is not looked at, as in decode.
inline const std::uint8_t* next_element(std::uint32_t number, const std::uint8_t* at, const std::uint8_t* end) {
    const Varint tag = read_tag(at, end);
    const bool goes_on = tag.at != nullptr && field_number_of_tag(static_cast<std::uint32_t>(tag.value)) == number;
    return goes_on ? tag.at : nullptr;
}

// The elements of a repeated scalar field, which stand in one unbroken run of fields of its number, each of them with
// one element or packed with any number of them.
class ScalarRun {
public:
    // `at` is the position of a tag of the field; or of an element of a packed field, of whose content `packed_left`
    // bytes are left.
    ScalarRun(const vesk_field* field, const std::uint8_t* at, const std::uint8_t* end, std::uint32_t packed_left = 0)
        : field_(field), at_(at), end_(end), packed_left_(packed_left) {}

    // False after the last element, and where there is none although vesk_check has seen it.
    bool next(std::uint64_t* number);

    // After the last element the position of the next field's tag.
    const std::uint8_t* at() const { return at_; }
    std::uint32_t packed_left() const { return packed_left_; }

private:
    bool take(const std::uint8_t* end, std::uint64_t* number);

    const vesk_field* field_;
    const std::uint8_t* at_;
    const std::uint8_t* end_;
    std::uint32_t packed_left_;
};

// What counting a run comes to, as decode does before it asks for memory.
struct CountedRun {
    std::uint64_t count;     // elements; of an error those before it
    std::int32_t code;       // VESK_OK or the error
    const std::uint8_t* at;  // the position after the run; of an error that of its tag
    enum class Fault { of_message, of_field, of_element } fault;  // what the error belongs to
};

// `tag` is the position of the first tag.
CountedRun count_run(const vesk_field* field, const std::uint8_t* tag, const std::uint8_t* end);

}  // namespace vesk
