// every_message: makes messages of every type and prints of each its type and, as JSON, what it holds; then calls
// `made` with all of them, for a debugger to look at.
#include <vesk/vesk_text.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "tests/support/full_message.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

std::int32_t to_stdout(const char* text, std::size_t length, void*) {
    return std::fwrite(text, 1, length, stdout) == length ? 0 : 1;
}

// A copy of a message with one of its fields alone.
Storage with_field_alone(const TypeInfo& type, const void* message, std::size_t field) {
    const std::size_t begin = type.fields[field].offset;
    const std::size_t end = field + 1 < type.fields.size() ? type.fields[field + 1].offset : type.presence_offset;
    Storage alone(type, 0);
    auto* const bytes = static_cast<std::uint8_t*>(alone.get());
    std::memcpy(bytes + begin, member_at(message, begin), end - begin);
    bytes[type.presence_offset + field / 8] = static_cast<std::uint8_t>(1u << field % 8);
    return alone;
}

class Messages {
public:
    void make_all() {
        for (const TypeInfo* type : all_types()) {
            const void* full = decoded_.emplace_back(*type, full_encoding(*type)).message.get();
            add(*type, full);
            add(*type, stored_.emplace_back(*type, 0).get());
            for (std::size_t field = 0; field < type->fields.size(); ++field) {
                add(*type, stored_.emplace_back(with_field_alone(*type, full, field)).get());
            }
            add(*type, random_.emplace_back(*type, 1, Amount::some).get());
            add(*type, random_.emplace_back(*type, 2, Amount::wild).get());
        }
    }

    bool print() const {
        vesk_text_options options = vesk_default_text_options();
        options.flags = VESK_TEXT_ONE_LINE | VESK_TEXT_LOSSLESS;
        for (std::size_t i = 0; i < messages_.size(); ++i) {
            const char* const name = types_[i]->name.c_str();
            std::printf("%s ", name);
            const vesk_type* const type = vesk_type_named(name);
            if (vesk_json_print(type, messages_[i], to_stdout, nullptr, nullptr, &options) != VESK_OK) return false;
            std::printf("\n");
        }
        return std::fflush(stdout) == 0;
    }

    const void* const* get() const { return messages_.data(); }

private:
    void add(const TypeInfo& type, const void* message) {
        types_.push_back(&type);
        messages_.push_back(message);
    }

    std::deque<AnyDecoded> decoded_;
    std::deque<Storage> stored_;
    std::deque<RandomMessage> random_;
    std::vector<const TypeInfo*> types_;
    std::vector<const void*> messages_;
};

}  // namespace
}  // namespace vesk::test

// In memory that a debugger sees, and not optimised away.
extern "C" void made(const void* const* messages) { static_cast<void>(messages); }

int main() {
    vesk::test::Messages messages;
    messages.make_all();
    if (!messages.print()) return 1;
    made(messages.get());
    return 0;
}
