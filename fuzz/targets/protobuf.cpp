// A general protobuf beside the library. Where the two read an input differently, the differences of
// docs/differences.md must explain it down to the last value; what the library writes, protobuf reads, and the other
// way round.
#include <google/protobuf/message.h>
#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"
#include "tests/interop/dialect.hpp"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    google::protobuf::SetLogHandler(nullptr);  // its messages about damaged input are expected
    return 0;
}

namespace vesk::fuzz {
namespace {

using google::protobuf::Message;
using test::Bytes;
using test::Dialect;
using test::Reading;
using test::Record;

// One message of protobuf for each type, used again and again.
Message& message_of(const TypeInfo& type) {
    static const std::vector<std::unique_ptr<Message>> messages = [] {
        std::vector<std::unique_ptr<Message>> made;
        for (const TypeInfo* each : test::all_types()) made.push_back(test::new_message(each->name));
        return made;
    }();
    const auto& types = test::all_types();
    return *messages[static_cast<std::size_t>(std::find(types.begin(), types.end(), &type) - types.begin())];
}

Reading read_by_protobuf(const TypeInfo& type, const std::uint8_t* bytes, std::uint64_t length) {
    Message& message = message_of(type);
    if (!message.ParseFromArray(bytes, static_cast<int>(length))) return {false, {}};
    return {true, test::values_of(message)};
}

}  // namespace

void check(const Input& input) {
    static Pool structures;
    static Pool pool;
    structures.reset();
    pool.reset();
    const TypeInfo& type = *input.type;
    std::uint8_t* message = structures.take(type.size);
    const std::int32_t code = type.decode(message, input.message, input.length, Pool::alloc, &pool, input.flags);
    if (pool.refusals() != 0) return;
    const bool is_accepted = code == VESK_OK;
    const Reading by_library = {is_accepted, is_accepted ? test::stored_values(type, message) : Record()};
    const Reading by_protobuf = read_by_protobuf(type, input.message, input.length);
    if (!(by_library == by_protobuf)) {
        const Bytes bytes(input.message, input.message + input.length);
        expect(test::read_in(Dialect::of_protobuf(), type, bytes) == by_protobuf,
               "the differences do not explain what protobuf reads");
        expect(test::read_in(Dialect::of_library(), type, bytes) == by_library,
               "the differences do not explain what the library reads");
    }
    if (!is_accepted) return;

    distort(type, message, input.distortion);
    const std::uint64_t length = measured(type, message);
    std::uint8_t* written = structures.take(length);
    type.encode(message, written, length, nullptr, nullptr, 0);
    const Reading received = read_by_protobuf(type, written, length);
    expect(received.accepted, "protobuf refuses what the library writes");
    expect(received.record == test::written_values(type, message),
           "protobuf reads other values than the library wrote");

    const std::string answer = message_of(type).SerializeAsString();
    static Pool answers;
    answers.reset();
    std::uint8_t* returned = structures.take(type.size);
    expect(type.decode(returned, answer.data(), answer.size(), Pool::alloc, &answers, 0) == VESK_OK,
           "the library refuses what protobuf writes");
    expect(test::stored_values(type, returned) == received.record,
           "the library reads other values than protobuf wrote");
}

}  // namespace vesk::fuzz
