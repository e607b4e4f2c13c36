// What can be seen of the four operations of the library and of the interpreter, as text: the same arguments must give
// the same text, down to each byte, segment, pointer, presence bit, request and release.
#pragma once

#include "tests/support/arena.hpp"
#include "tests/support/describe.hpp"
#include "tests/support/interpreter.hpp"

namespace vesk::test {

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

inline std::string history_of(const Arena& arena) {
    std::string text;
    for (const Request& request : arena.history()) {
        text += (request.what == Request::What::alloc ? " +" : " -") + std::to_string(request.size);
    }
    return text;
}

inline std::string describe_in(const Workplace& place, const void* message) {
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

}  // namespace vesk::test
