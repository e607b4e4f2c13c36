#include "tests/interop/peers.hpp"

#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <stdexcept>

namespace vesk::test {
namespace {

std::string name_of(std::int32_t code) {
    switch (code) {
        case VESK_MALFORMED: return "refused: malformed";
        case VESK_UNKNOWN_WIRE_TYPE: return "refused: unknown wire type";
        case VESK_WRONG_WIRE_TYPE: return "refused: wrong wire type";
        case VESK_NO_MEMORY: return "refused: no memory";
    }
    return "code " + std::to_string(code);
}

// A block of exactly the input's length: reading behind it is seen by a sanitizer.
std::unique_ptr<std::uint8_t[]> copy_of(const Bytes& input) {
    std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[input.size()]);
    std::copy(input.begin(), input.end(), copy.get());
    return copy;
}

}  // namespace

void PrintTo(const Reading& reading, std::ostream* out) {
    if (!reading.accepted) {
        *out << "refused";
    } else {
        PrintTo(reading.record, out);
    }
}

std::unique_ptr<google::protobuf::Message> new_message(const std::string& type_name) {
    using namespace google::protobuf;
    const Descriptor* type = DescriptorPool::generated_pool()->FindMessageTypeByName("vesk." + type_name);
    if (type == nullptr) throw std::out_of_range("no generated type " + type_name);
    return std::unique_ptr<Message>(MessageFactory::generated_factory()->GetPrototype(type)->New());
}

std::unique_ptr<google::protobuf::Message> parsed(const std::string& type_name, const Bytes& input) {
    auto message = new_message(type_name);
    const auto copy = copy_of(input);
    if (!message->ParseFromArray(copy.get(), static_cast<int>(input.size()))) return nullptr;
    return message;
}

Bytes serialized(const google::protobuf::Message& message) {
    const std::string bytes = message.SerializeAsString();
    return Bytes(bytes.begin(), bytes.end());
}

Reading read_by_protobuf(const TypeInfo& type, const Bytes& input) {
    const auto message = parsed(type.name, input);
    if (message == nullptr) return {false, {}};
    return {true, values_of(*message)};
}

Reading LibraryReader::read(const Bytes& input) {
    const auto copy = copy_of(input);
    arena_.reset();
    const std::int32_t code = type_.decode(message_.get(), copy.get(), input.size(), Arena::alloc, &arena_, 0);
    EXPECT_NE(code, VESK_NO_MEMORY) << "the arena is too small for " << to_hex(input);
    if (code != VESK_OK) return {false, {}};
    return {true, stored_values(type_, message_.get())};
}

std::string through_protobuf(const std::string& type_name, const Bytes& input) {
    const auto message = parsed(type_name, input);
    return message == nullptr ? "refused" : to_hex(serialized(*message));
}

std::string through_library(const std::string& type_name, const Bytes& input) {
    const TypeInfo* type = find_type(type_name);
    if (type == nullptr) throw std::out_of_range("no type " + type_name);
    const AnyDecoded decoded(*type, input);
    return decoded.code == VESK_OK ? to_hex(encoded(*type, decoded.message.get())) : name_of(decoded.code);
}

std::uint64_t rounds() {
    const char* text = std::getenv("VESK_TEST_ROUNDS");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 200;
}

}  // namespace vesk::test
