// What goes through the broker, and its limits.
//
// A chassis NAME publishes to fleet/NAME/up and is answered on fleet/NAME/answer. Who it is stands in the topic, since
// the broker lets each chassis publish to its own topic alone. All else stands in front of the message, where it costs
// the broker nothing. Numbers are in network byte order:
//
//     bytes    up: an envelope                                          answer
//     0-3      magic 56 53 46 31 ("VSF1")                               -
//     4-7      kind: 1 resp_inv_data, 2 notify_event_data               -
//     8-15     session: counts the boots of the chassis                 0-7    session
//     16-23    sequence: counts the messages of the session, from 1     8-15   sequence: all up to this one are
//     committed 24-31    first: the lowest sequence that the chassis still keeps 32-39    dropped: notifications of the
//     session that got no sequence, since the queue was full 40-      one encoded message
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>
#include <vesk/vesk.hpp>

namespace fleet {

using Bytes = std::vector<std::byte>;

// A chassis.
constexpr std::size_t window = 16;         // messages sent and not yet answered
constexpr std::size_t waiting_limit = 64;  // notifications that wait for the window

// The collector.
constexpr std::size_t inventory_limit = std::size_t{1024} * 1024;  // bytes of an encoded inventory
constexpr std::size_t entity_limit = 1024;                         // entities in it
constexpr std::size_t notification_limit = 4096;                   // bytes of an encoded notification
constexpr std::uint64_t memory_limit = std::uint64_t{8} << 20;     // bytes for a decoded message
constexpr std::size_t name_limit = 32;                             // characters of a chassis' name
constexpr std::size_t batch_limit = 1000;                          // messages that are committed together
constexpr std::size_t turn_limit = 2 * window;                     // of these, messages of one chassis

enum class Kind : std::uint32_t { inventory = 1, notification = 2 };

struct Envelope {
    Kind kind;
    std::uint64_t session;
    std::uint64_t sequence;
    std::uint64_t first;
    std::uint64_t dropped;
};
constexpr std::size_t envelope_length = 40;

struct Answer {
    std::uint64_t session;
    std::uint64_t sequence;
};

template <vesk::message_structure Structure>
Bytes encoded(const Structure& structure) {
    const vesk::view view(structure);
    Bytes bytes(view.encoded_size());
    std::uint64_t length = 0;
    if (const std::error_code error = view.encode(bytes, length)) throw std::system_error(error);
    return bytes;
}

inline void append_number(Bytes* bytes, std::uint64_t number, unsigned length) {
    while (length-- > 0) bytes->push_back(static_cast<std::byte>(number >> (8 * length)));
}

inline std::uint64_t number_at(std::span<const std::byte> bytes, std::size_t at, unsigned length) {
    std::uint64_t number = 0;
    for (std::byte byte : bytes.subspan(at, length)) number = number << 8 | std::to_integer<std::uint64_t>(byte);
    return number;
}

constexpr std::uint32_t magic = 0x56534631;

inline Bytes sealed(const Envelope& envelope, std::span<const std::byte> body) {
    Bytes bytes;
    bytes.reserve(envelope_length + body.size());
    append_number(&bytes, magic, 4);
    append_number(&bytes, static_cast<std::uint32_t>(envelope.kind), 4);
    for (std::uint64_t number : {envelope.session, envelope.sequence, envelope.first, envelope.dropped}) {
        append_number(&bytes, number, 8);
    }
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

// Nothing if it is no envelope. What it says is of a stranger still, but its numbers fit a signed integer, as a
// database has them, and are in an order that can be.
inline std::optional<Envelope> opened(std::span<const std::byte> bytes) {
    if (bytes.size() < envelope_length || number_at(bytes, 0, 4) != magic) return std::nullopt;
    Envelope envelope{static_cast<Kind>(number_at(bytes, 4, 4)), number_at(bytes, 8, 8), number_at(bytes, 16, 8),
                      number_at(bytes, 24, 8), number_at(bytes, 32, 8)};
    if (envelope.kind != Kind::inventory && envelope.kind != Kind::notification) return std::nullopt;
    if (envelope.first < 1 || envelope.first > envelope.sequence) return std::nullopt;
    for (std::uint64_t number : {envelope.session, envelope.sequence, envelope.dropped}) {
        if (number > INT64_MAX) return std::nullopt;
    }
    return envelope;
}

inline Bytes sealed(const Answer& answer) {
    Bytes bytes;
    append_number(&bytes, answer.session, 8);
    append_number(&bytes, answer.sequence, 8);
    return bytes;
}

inline std::optional<Answer> opened_answer(std::span<const std::byte> bytes) {
    if (bytes.size() != 16) return std::nullopt;
    return Answer{number_at(bytes, 0, 8), number_at(bytes, 8, 8)};
}

inline std::string up_topic(std::string_view name) { return "fleet/" + std::string(name) + "/up"; }
inline std::string answer_topic(std::string_view name) { return "fleet/" + std::string(name) + "/answer"; }

// The chassis of an up topic; "" if it is none that a chassis can have.
inline std::string chassis_of(std::string_view topic) {
    constexpr std::string_view before = "fleet/", after = "/up";
    if (topic.size() <= before.size() + after.size() || !topic.starts_with(before) || !topic.ends_with(after))
        return "";
    std::string_view name = topic.substr(before.size(), topic.size() - before.size() - after.size());
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";
    return name.size() <= name_limit && name.find_first_not_of(letters) == name.npos ? std::string(name) : "";
}

}  // namespace fleet
