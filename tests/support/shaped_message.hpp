// Messages of any type that are filled after a plan rather than at random, for tests that enumerate.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/type_info.hpp"

namespace vesk::test {

// What every field of a message is set to, nested ones and elements included.
struct Filling {
    std::uint64_t scalar;        // of which a member keeps what it can hold
    std::size_t content_length;  // of strings and bytes fields
    std::uint32_t elements = 1;  // of a list or repeated field
};

class ShapedMessage {
public:
    // Nothing is present, but every member and every bit that means nothing is set: what is written, counted or
    // followed although it is absent shows.
    explicit ShapedMessage(const TypeInfo& type);

    void* get() { return message_.get(); }
    const void* get() const { return message_.get(); }

    void mark(std::size_t index);
    void unmark(std::size_t index);

    // Each sets a member and its presence bit.
    void set_scalar(std::size_t index, std::uint64_t value);
    void set_content(std::size_t index, std::size_t length);
    void fill(const Filling& filling);

private:
    void fill(const TypeInfo& type, void* message, const Filling& filling);
    void fill_repeated(const FieldInfo& field, void* message, const Filling& filling);
    void set_content(const FieldInfo& field, void* message, std::size_t length);

    const TypeInfo& type_;
    Storage message_;
    std::vector<std::unique_ptr<std::uint8_t[]>> blocks_;
};

}  // namespace vesk::test
