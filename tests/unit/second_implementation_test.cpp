// The library against the interpreter of tests/support, which follows the rules one by one: the same arguments give the
// same results, down to each byte, segment, pointer, presence bit, request and release.
//
// A failure names the type and the seed. VESK_TEST_ROUNDS in the environment sets the rounds per type.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/arena.hpp"
#include "tests/support/damage.hpp"
#include "tests/support/describe.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

std::uint64_t rounds() {
    const char* text = std::getenv("VESK_TEST_ROUNDS");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 200;
}

// The two implementations behind one interface.
struct Library {
    const TypeInfo& type;
    std::uint64_t encode(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                         std::uint32_t* count, std::uint32_t flags) const {
        return type.encode(message, buffer, length, segments, count, flags);
    }
    std::int32_t decode(void* message, const Bytes& input, vesk_alloc alloc, void* context, std::uint32_t flags) const {
        return type.decode(message, input.data(), input.size(), alloc, context, flags);
    }
    std::int32_t duplicate(void* destination, const void* source, vesk_alloc alloc, void* context) const {
        return type.duplicate(destination, source, alloc, context);
    }
    void release(void* message, vesk_release release, void* context, std::uint32_t flags) const {
        type.free(message, release, context, flags);
    }
};

struct Interpreter {
    const interpreter::TableType& type;
    std::uint64_t encode(const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,
                         std::uint32_t* count, std::uint32_t flags) const {
        return interpreter::encode(type, message, buffer, length, segments, count, flags);
    }
    std::int32_t decode(void* message, const Bytes& input, vesk_alloc alloc, void* context, std::uint32_t flags) const {
        return interpreter::decode(type, message, input.data(), input.size(), alloc, context, flags);
    }
    std::int32_t duplicate(void* destination, const void* source, vesk_alloc alloc, void* context) const {
        return interpreter::duplicate(type, destination, source, alloc, context);
    }
    void release(void* message, vesk_release release, void* context, std::uint32_t flags) const {
        interpreter::release(type, message, release, context, flags);
    }
};

// Memory that both implementations work on in turn, so that equal results have equal addresses.
struct Workplace {
    explicit Workplace(const TypeInfo& type) : type(type), message(type) {}

    const TypeInfo& type;
    Arena arena{1 << 20};
    Storage message;
    Bytes buffer;
    std::vector<vesk_segment> segments;
};

struct EncodeCall {
    std::uint64_t room;  // of the buffer
    bool null_buffer;    // then room is 0
    bool wants_segments;
    std::uint32_t capacity;  // of the segment list
    std::uint32_t flags;
};

// What can be seen of an encode: the result, the buffer, the count and the list.
template <class Implementation>
std::string observe_encode(const Implementation& implementation, const void* message, const EncodeCall& call,
                           Workplace& place) {
    place.buffer.assign(call.room + 16, 0xEE);
    place.segments.assign(call.capacity + 1, {nullptr, 0});
    std::uint32_t count = call.capacity;
    const std::uint64_t result =
        implementation.encode(message, call.null_buffer ? nullptr : place.buffer.data(), call.room,
                              call.wants_segments && call.capacity != 0 ? place.segments.data() : nullptr,
                              call.wants_segments ? &count : nullptr, call.flags);
    std::string seen = std::to_string(result) + ", " + to_hex(place.buffer) + ", " + std::to_string(count);
    for (const vesk_segment& segment : place.segments) {
        seen +=
            " " + std::to_string(reinterpret_cast<std::uintptr_t>(segment.data)) + "+" + std::to_string(segment.length);
    }
    return seen;
}

std::string history_of(const Arena& arena) {
    std::string text;
    for (const Request& request : arena.history()) {
        text += (request.what == Request::What::alloc ? " +" : " -") + std::to_string(request.size);
    }
    return text;
}

std::string describe_in(const Workplace& place, const void* message) {
    return describe(place.type, message,
                    [&](const void* pointer) { return std::to_string(reinterpret_cast<std::uintptr_t>(pointer)); });
}

// What can be seen of a decode and of the free that follows it: code, message, requests; `failing_request` is the
// allocation that is refused, 0 for none.
template <class Implementation>
std::string observe_decode(const Implementation& implementation, const Bytes& input, std::uint32_t flags,
                           bool has_alloc, std::uint64_t failing_request, Workplace& place) {
    place.arena.reset(failing_request);
    std::memset(place.message.get(), 0x5A, place.type.size);
    const std::int32_t code =
        implementation.decode(place.message.get(), input, has_alloc ? Arena::alloc : nullptr, &place.arena, flags);
    std::string seen = std::to_string(code) + ", " + describe_in(place, place.message.get());
    implementation.release(place.message.get(), Arena::release, &place.arena, flags);
    return seen + ", freed:" + history_of(place.arena);
}

// `onto_itself` copies the message in the place of the source, which is then the destination as well.
template <class Implementation>
std::string observe_duplicate(const Implementation& implementation, const void* source, bool onto_itself,
                              bool has_alloc, std::uint64_t failing_request, Workplace& place) {
    place.arena.reset(failing_request);
    std::memset(place.message.get(), 0x5A, place.type.size);
    if (onto_itself) std::memcpy(place.message.get(), source, place.type.size);
    const std::int32_t code = implementation.duplicate(place.message.get(), onto_itself ? place.message.get() : source,
                                                       has_alloc ? Arena::alloc : nullptr, &place.arena);
    std::string seen = std::to_string(code) + ", " + describe_in(place, place.message.get());
    implementation.release(place.message.get(), Arena::release, &place.arena, 0);
    return seen + ", freed:" + history_of(place.arena) + ", left: " + describe_in(place, place.message.get());
}

// A release callback that looks at the message before it takes a block back.
struct Watcher {
    Workplace& place;
    std::string seen;

    static void release(void* block, void* context) {
        Watcher& watcher = *static_cast<Watcher*>(context);
        watcher.seen += describe_in(watcher.place, watcher.place.message.get()) + "; ";
        Arena::release(block, &watcher.place.arena);
    }
};

// What a callback can see of a message that is freed, call by call.
template <class Implementation>
std::string observe_release(const Implementation& implementation, const Bytes& input, std::uint32_t flags,
                            Workplace& place) {
    place.arena.reset();
    implementation.decode(place.message.get(), input, Arena::alloc, &place.arena, flags);
    Watcher watcher{place, ""};
    implementation.release(place.message.get(), Watcher::release, &watcher, flags);
    return watcher.seen + "freed:" + history_of(place.arena);
}

// One type's rounds.
class Comparison {
public:
    explicit Comparison(const TypeInfo& type)
        : type_(type), library_{type}, interpreter_{interpreter::find_type(type.name)}, place_(type) {}

    void encode_round(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const RandomMessage message(type_, seed, Amount::wild);
        const std::uint64_t whole = library_.encode(message.get(), nullptr, 0, nullptr, nullptr, 0);
        for (int i = 0; i < 4; ++i) {
            EncodeCall call{};
            call.flags = static_cast<std::uint32_t>(random() % 2 == 0 ? random() % 2 : random());
            call.wants_segments = random() % 2 == 0;
            call.capacity = call.wants_segments ? static_cast<std::uint32_t>(random() % 12) : 0;
            call.null_buffer = random() % 6 == 0;
            const std::uint64_t rooms[] = {whole, whole + random() % 40, whole == 0 ? 0 : random() % whole};
            call.room = call.null_buffer ? 0 : rooms[random() % 3];
            ASSERT_EQ(observe_encode(library_, message.get(), call, place_),
                      observe_encode(interpreter_, message.get(), call, place_))
                << "room " << call.room << " of " << whole << ", capacity " << call.capacity << ", flags "
                << call.flags;
        }
    }

    void decode_round(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const RandomMessage message(type_, seed, Amount::wild);
        const Bytes whole = encoded(type_, message.get());
        for (int i = 0; i < 4; ++i) {
            const Bytes input = i == 0 ? whole : damage(whole, random);
            const std::uint32_t flags = static_cast<std::uint32_t>(random() % 3);
            const bool has_alloc = random() % 8 != 0;
            const std::uint64_t failing_request = random() % 3 == 0 ? 1 + random() % 6 : 0;
            ASSERT_EQ(observe_decode(library_, input, flags, has_alloc, failing_request, place_),
                      observe_decode(interpreter_, input, flags, has_alloc, failing_request, place_))
                << to_hex(input) << ", flags " << flags << ", failing request " << failing_request;
        }
    }

    void duplicate_round(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const RandomMessage message(type_, seed, Amount::wild);
        for (int i = 0; i < 4; ++i) {
            const bool onto_itself = i >= 2;
            const bool has_alloc = random() % 8 != 0;
            const std::uint64_t failing_request = i % 2 == 0 ? 0 : 1 + random() % 6;
            ASSERT_EQ(observe_duplicate(library_, message.get(), onto_itself, has_alloc, failing_request, place_),
                      observe_duplicate(interpreter_, message.get(), onto_itself, has_alloc, failing_request, place_))
                << "failing request " << failing_request << (onto_itself ? ", onto itself" : "");
        }
    }

    // A tenth of the rounds: describing a message at each of its releases takes long.
    void release_round(std::uint64_t seed) {
        if (seed % 10 != 0) return;
        const RandomMessage message(type_, seed, Amount::wild);
        const Bytes input = encoded(type_, message.get());
        for (const std::uint32_t flags : {0, 1}) {
            ASSERT_EQ(observe_release(library_, input, flags, place_),
                      observe_release(interpreter_, input, flags, place_))
                << to_hex(input) << ", flags " << flags;
        }
    }

private:
    const TypeInfo& type_;
    Library library_;
    Interpreter interpreter_;
    Workplace place_;
};

void compare_every_type(void (Comparison::*round)(std::uint64_t seed)) {
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        Comparison comparison(*type);
        for (std::uint64_t i = rounds(); i != 0; --i) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            (comparison.*round)(seed);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

TEST(second_implementation, encode_of_random_messages_is_the_same) { compare_every_type(&Comparison::encode_round); }

TEST(second_implementation, decode_of_random_and_damaged_input_is_the_same) {
    compare_every_type(&Comparison::decode_round);
}

TEST(second_implementation, duplicate_of_random_messages_is_the_same) {
    compare_every_type(&Comparison::duplicate_round);
}

TEST(second_implementation, what_a_release_callback_sees_is_the_same) {
    compare_every_type(&Comparison::release_round);
}

}  // namespace
}  // namespace vesk::test
