// Every call that an encoding makes of the identifier's functions, with all its arguments, beside those that the second
// implementation makes: it follows the rules one by one and calls the same recorder. How often an identifier is
// measured is not compared, since the rules leave that free.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>

#include "tests/imported_eid/identifier.hpp"
#include "tests/support/interpreter.hpp"
#include "tests/support/messages.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::test {
namespace {

// ---- One encoding --------------------------------------------------------------------------------------------------

// What an encoding is given besides the message.
struct Arguments {
    bool has_buffer;
    std::uint64_t room;                     // of the buffer, 0 if there is none
    std::optional<std::uint32_t> capacity;  // of the segment list, if there is one
    std::uint32_t flags;
};

std::string to_text(const Arguments& arguments) {
    return (arguments.has_buffer ? "room " + std::to_string(arguments.room) : "no buffer") +
           (arguments.capacity ? ", capacity " + std::to_string(*arguments.capacity) : ", no list") + ", flags " +
           std::to_string(arguments.flags);
}

// The memory that both implementations encode into in turn, so that equal calls have equal arguments.
struct Place {
    Bytes buffer;
    std::vector<vesk_segment> segments;

    void prepare(const Arguments& arguments) {
        buffer.assign(arguments.room + 64, 0xEE);
        segments.assign(arguments.capacity.value_or(0) + 4, {this, 0x5A5A});
    }
    // An address as an offset in the buffer, or in the list, whose segments are this place before they are filled.
    std::string name(const void* address) const {
        const auto at = reinterpret_cast<std::uintptr_t>(address);
        const auto in_buffer = at - reinterpret_cast<std::uintptr_t>(buffer.data());
        const auto in_list = at - reinterpret_cast<std::uintptr_t>(segments.data());
        if (address == nullptr) return "null";
        if (address == this) return "untouched";
        if (in_buffer <= buffer.size()) return "buffer + " + std::to_string(in_buffer);
        if (in_list <= segments.size() * sizeof(vesk_segment)) {
            return "segments + " + std::to_string(in_list / sizeof(vesk_segment));
        }
        return std::to_string(at);
    }
};

// A call that writes an identifier; the address says which.
std::string to_text(const eid_call& call, const Place& place) {
    return "write " + place.name(call.message) + " to " + place.name(call.buffer) + ", " + std::to_string(call.length) +
           " bytes, " + place.name(call.segments) + ", capacity " + std::to_string(call.capacity) + ", flags " +
           std::to_string(call.flags) + "\n";
}

// The recorded calls that write, each identifier once. It must have been measured before, with nothing but the flags.
std::vector<eid_call> recorded_writes(const Arguments& arguments) {
    const eid_record& record = *eid_recorder();
    std::vector<eid_call> writes;
    std::set<const void*> measured, written;
    for (std::size_t i = 0; i < record.count; ++i) {
        const eid_call& call = record.calls[i];
        EXPECT_EQ(call.flags, arguments.flags);
        if (call.function == EID_MEASURE) {
            EXPECT_TRUE(call.buffer == nullptr && call.length == 0 && call.segments == nullptr);
            measured.insert(call.message);
        } else {
            EXPECT_EQ(call.function, EID_WRITE);
            EXPECT_TRUE(measured.contains(call.message)) << "written without being measured";
            EXPECT_TRUE(written.insert(call.message).second) << "written again";
            writes.push_back(call);
        }
    }
    return writes;
}

// What can be seen of an encoding: the result, each byte and segment, each call that writes an identifier.
template <class Encode>
std::string observe(const Encode& encode, const Arguments& arguments, Place& place) {
    place.prepare(arguments);
    eid_recorder()->count = 0;
    std::uint32_t count = arguments.capacity.value_or(0);
    const std::uint64_t result =
        encode(arguments.has_buffer ? place.buffer.data() : nullptr, arguments.room,
               count != 0 ? place.segments.data() : nullptr, arguments.capacity ? &count : nullptr, arguments.flags);
    std::string seen = std::to_string(result) + " bytes, " + std::to_string(count) + " segments\n";
    for (const eid_call& write : recorded_writes(arguments)) seen += to_text(write, place);
    for (const vesk_segment& segment : place.segments) {
        seen += place.name(segment.data) + ", " + std::to_string(segment.length) + " bytes\n";
    }
    return seen + to_hex(place.buffer);
}

void expect_same_calls(const TypeInfo& type, const void* message, const std::vector<Arguments>& all) {
    const auto& table_type = interpreter::find_type(type.name);
    const auto library = [&](auto... rest) { return type.encode(message, rest...); };
    const auto rules = [&](auto... rest) { return interpreter::encode(table_type, message, rest...); };
    Place place;
    for (const Arguments& arguments : all) {
        ASSERT_EQ(observe(library, arguments, place), observe(rules, arguments, place))
            << type.name << ", " << to_text(arguments);
    }
}

// ---- The arguments that are tried ----------------------------------------------------------------------------------

// A buffer, or none, with every list and flags word.
std::vector<Arguments> with_every_list(bool has_buffer, std::uint64_t room, std::uint32_t segments_needed) {
    std::vector<Arguments> all;
    for (const std::uint32_t flags : {0u, 1u, 2u, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        all.push_back({has_buffer, room, std::nullopt, flags});
        for (std::uint32_t capacity = 0; capacity <= segments_needed + 1; ++capacity) {
            all.push_back({has_buffer, room, capacity, flags});
        }
    }
    return all;
}

// What a message needs in all, by the second implementation.
struct Need {
    std::uint64_t length;
    std::uint64_t length_by_reference;
    std::uint32_t segments;
};

Need need_of(const TypeInfo& type, const void* message) {
    std::uint32_t segments = 0;
    eid_recorder()->count = 0;
    const auto& table_type = interpreter::find_type(type.name);
    const std::uint64_t length = interpreter::encode(table_type, message, nullptr, 0, nullptr, nullptr, 0);
    const std::uint64_t length_by_reference =
        interpreter::encode(table_type, message, nullptr, 0, nullptr, &segments, VESK_BYTES_BY_REFERENCE);
    return {length, length_by_reference, segments};
}

void expect_same_calls_with_room(const TypeInfo& type, const void* message) {
    const Need need = need_of(type, message);
    for (const std::uint64_t spare : {0, 1, 40}) {
        expect_same_calls(type, message, with_every_list(true, need.length + spare, need.segments));
        if (::testing::Test::HasFailure()) return;
    }
}

// ---- Messages ------------------------------------------------------------------------------------------------------

template <class Message>
void mark(Message& message, std::initializer_list<unsigned> bits) {
    for (const unsigned bit : bits) VESK_MARK(&message, bit);
}

// Messages of each sort that holds identifiers. Some identifiers write less than they measure, and leave bytes of the
// buffer as they were; some measure nothing.
struct Samples {
    ~Samples() = default;
    Samples() {
        registration.eid = identifier(3, 0, 2);
        mark(registration, {VESK_REGISTER_CONTAINER_EID_DATA_F1, VESK_REGISTER_CONTAINER_EID_DATA_F3});

        empty.eid = identifier(0, 0, 1);
        mark(empty, {VESK_REGISTER_CONTAINER_EID_DATA_EID, VESK_REGISTER_CONTAINER_EID_DATA_F3});

        // Two, and a third in a nested message, with numbers, a string and bytes around them.
        slot.eid_a = identifier(20, 1, 1);
        slot.f5 = 300;
        slot.eid_b = identifier(0);
        slot.f7 = literal("north");
        slot.event.eid = identifier(4, 0, 3);
        slot.f19 = data_of(data);
        slot.f19_length = data.size();
        mark(slot,
             {VESK_LOGIC_SLOT_DATA_F1, VESK_LOGIC_SLOT_DATA_F5, VESK_LOGIC_SLOT_DATA_EID_B, VESK_LOGIC_SLOT_DATA_F7,
              VESK_LOGIC_SLOT_DATA_F9, VESK_LOGIC_SLOT_DATA_F19, VESK_LOGIC_SLOT_DATA_F20});

        eids[0] = identifier(2, 0, 2);
        eids[1] = identifier(0, 0, 1);
        eids[2] = identifier(130, 5);
        eids[3] = identifier(1);
        response.eid_list = eids;
        response.eid_list_count = 4;
        response.req_eid.eid = identifier(5);
        mark(response, {VESK_RESP_EID_F1, VESK_RESP_EID_EID_LIST});

        // Elements that end in numbers, each before one that begins with an identifier.
        for (vesk_container_eid_nodeid_data& node : nodes) {
            node.eid = identifier(60, 1);
            mark(node, {VESK_CONTAINER_EID_NODEID_DATA_F3, VESK_CONTAINER_EID_NODEID_DATA_F4});
        }
        nodes[1].eid = identifier(0, 0, 1);
        mark(nodes[1], {VESK_CONTAINER_EID_NODEID_DATA_EID});
        node_response.container_eid_nodeid_list = nodes;
        node_response.container_eid_nodeid_list_count = 4;
        mark(node_response,
             {VESK_RESP_CONTAINER_EID_NODEID_CONTAINER_EID_NODEID_LIST, VESK_RESP_CONTAINER_EID_NODEID_F2});

        // Bytes, which may go by reference, before and after an identifier.
        for (vesk_idprom_data& idprom : idproms) {
            idprom.entity_common.eid = identifier(2);
            idprom.eeprom.eid = identifier(3, 0, 1);
            idprom.eeprom.f20 = data_of(data);
            idprom.eeprom.f20_length = data.size();
            mark(idprom.eeprom, {VESK_EEPROM_DATA_F20, VESK_EEPROM_DATA_F21});
        }
        inventory.idprom_list = idproms;
        inventory.idprom_list_count = 2;
        mark(inventory, {VESK_RESP_INV_DATA_IDPROM_LIST});
    }
    Samples(const Samples&) = delete;
    Samples& operator=(const Samples&) = delete;

    // Calls `check` with the type and the address of each.
    template <class Check>
    void each(const Check& check) const {
        check(*find_type("register_container_eid_data"), &registration);
        check(*find_type("register_container_eid_data"), &empty);
        check(*find_type("logic_slot_data"), &slot);
        check(*find_type("resp_eid"), &response);
        check(*find_type("resp_container_eid_nodeid"), &node_response);
        check(*find_type("resp_inv_data"), &inventory);
    }

    const Bytes data = hex("01 02 03 04 05");
    vesk_register_container_eid_data registration = {};
    vesk_register_container_eid_data empty = {};
    vesk_logic_slot_data slot = {};
    vesk_drin_eid_st eids[4] = {};
    vesk_resp_eid response = {};
    vesk_container_eid_nodeid_data nodes[4] = {};
    vesk_resp_container_eid_nodeid node_response = {};
    vesk_idprom_data idproms[2] = {};
    vesk_resp_inv_data inventory = {};
};

// An identifier that measures nothing or some bytes, writes them all or fewer, and counts up to two segments.
vesk_drin_eid_st random_identifier(std::mt19937_64& random) {
    const auto size = static_cast<std::uint32_t>(random() % 4 == 0 ? 0 : random() % 150);
    const auto written = static_cast<std::uint32_t>(size < 2 || random() % 2 == 0 ? 0 : 1 + random() % (size - 1));
    return identifier(size, written, static_cast<std::uint32_t>(random() % 3));
}

// Replaces the identifiers of a message, which were filled without regard to what the recorder makes of them.
void replace_identifiers(const TypeInfo& type, void* message, std::mt19937_64& random) {
    if (type.name == "drin_eid_st") return store(message, 0, random_identifier(random));
    for (const FieldInfo& field : type.fields) {
        if (field.kind == Kind::message) {
            replace_identifiers(*field.nested, static_cast<std::uint8_t*>(message) + field.offset, random);
        } else if (field.kind == Kind::list) {
            void* const array = load<void*>(message, field.offset);
            const auto count = load<std::uint32_t>(message, field.second_offset);
            for (std::size_t i = 0; i < count; ++i) {
                replace_identifiers(*field.nested, element_at(array, *field.nested, i), random);
            }
        }
    }
}

bool holds_identifiers(const TypeInfo& type) {
    return std::any_of(type.fields.begin(), type.fields.end(), [](const FieldInfo& field) {
        return field.nested != nullptr && (field.nested->name == "drin_eid_st" || holds_identifiers(*field.nested));
    });
}

// Calls `check` with random messages of every type that holds identifiers, and randomness for what it does.
template <class Check>
void for_random_messages(const Check& check) {
    std::uint64_t seed = 0;
    for (const TypeInfo* type : all_types()) {
        if (!holds_identifiers(*type)) continue;
        for (int round = 0; round < 60; ++round) {
            SCOPED_TRACE(type->name + ", seed " + std::to_string(++seed));
            std::mt19937_64 random(seed);
            RandomMessage message(*type, seed, Amount::wild);
            replace_identifiers(*type, message.get(), random);
            check(*type, message.get(), random);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

// ---- With room -----------------------------------------------------------------------------------------------------

TEST(every_call, of_an_encoding_that_fits_is_that_of_the_rules) { Samples().each(expect_same_calls_with_room); }

TEST(every_call, of_a_random_message_that_fits_is_that_of_the_rules) {
    for_random_messages([](const TypeInfo& type, const void* message, std::mt19937_64& random) {
        const Need need = need_of(type, message);
        for (int i = 0; i < 4; ++i) {
            const auto capacity = static_cast<std::uint32_t>(random() % (need.segments + 2));
            expect_same_calls(
                type, message,
                {{true, need.length + random() % 50, random() % 2 == 0 ? std::nullopt : std::optional(capacity),
                  static_cast<std::uint32_t>(random() % 2 == 0 ? random() % 2 : random())}});
        }
    });
}

TEST(every_call, of_an_encoding_without_buffer_and_count_measures) {
    Samples().each([](const TypeInfo& type, const void* message) {
        for (const std::uint32_t flags : {0u, 1u, 0xFFFFFFFFu}) {
            const Arguments measuring{false, 0, std::nullopt, flags};
            expect_same_calls(type, message, {measuring});
            eid_recorder()->count = 0;
            type.encode(message, nullptr, 0, nullptr, nullptr, flags);
            EXPECT_GT(eid_recorder()->count, 0u) << type.name;
            EXPECT_TRUE(recorded_writes(measuring).empty()) << type.name;
        }
    });
}

TEST(every_call, of_an_encoding_without_buffer_but_with_a_count_is_that_of_the_rules) {
    Samples().each([](const TypeInfo& type, const void* message) {
        expect_same_calls(type, message, with_every_list(false, 0, need_of(type, message).segments));
    });
}

// ---- Without room --------------------------------------------------------------------------------------------------

TEST(every_call, of_an_encoding_one_byte_short_is_that_of_the_rules) {
    Samples().each([](const TypeInfo& type, const void* message) {
        const Need need = need_of(type, message);
        for (const std::uint64_t length : {need.length, need.length_by_reference}) {
            expect_same_calls(type, message, with_every_list(true, length - 1, need.segments));
        }
    });
}

TEST(every_call, of_an_encoding_into_every_shorter_buffer_is_that_of_the_rules) {
    Samples().each([](const TypeInfo& type, const void* message) {
        const Need need = need_of(type, message);
        for (std::uint64_t room = 0; room < need.length; ++room) {
            expect_same_calls(type, message,
                              {{true, room, std::nullopt, 0}, {true, room, 0, 0}, {true, room, need.segments, 1}});
            if (::testing::Test::HasFailure()) return;
        }
    });
}

TEST(every_call, of_a_random_message_without_room_is_that_of_the_rules) {
    for_random_messages([](const TypeInfo& type, const void* message, std::mt19937_64& random) {
        const Need need = need_of(type, message);
        for (int i = 0; i < 4; ++i) {
            const bool has_buffer = random() % 4 != 0 && need.length != 0;
            const auto capacity = static_cast<std::uint32_t>(random() % (need.segments + 2));
            expect_same_calls(
                type, message,
                {{has_buffer, has_buffer ? random() % need.length : 0,
                  has_buffer && random() % 2 == 0 ? std::nullopt : std::optional(random() % 3 == 0 ? 0 : capacity),
                  static_cast<std::uint32_t>(random() % 2 == 0 ? random() % 2 : random())}});
        }
    });
}

// ---- Before a length of 2 GiB --------------------------------------------------------------------------------------

constexpr std::uint32_t two_gib = 0x80000000;

void expect_same_calls_in_64_bytes(const TypeInfo& type, const void* message) {
    for (const std::uint32_t flags : {0u, 1u, 0xFFFFFFFFu}) {
        expect_same_calls(type, message, {{true, 64, std::nullopt, flags}, {true, 64, 0, flags}, {true, 64, 9, flags}});
    }
}

// By reference they are not copied, so that everything else fits.
TEST(every_call, before_bytes_of_2_gib_is_that_of_the_rules) {
    vesk_idprom_data idproms[4] = {};
    for (vesk_idprom_data& idprom : idproms) idprom.entity_common.eid = identifier(3);
    vesk_eeprom_data& eeprom = idproms[2].eeprom;
    eeprom.eid = identifier(2);
    eeprom.f20 = unreadable<std::uint8_t>();
    mark(eeprom, {VESK_EEPROM_DATA_F20, VESK_EEPROM_DATA_F21});
    vesk_resp_inv_data inventory = {};
    inventory.idprom_list = idproms;
    inventory.idprom_list_count = 4;
    mark(inventory, {VESK_RESP_INV_DATA_IDPROM_LIST});
    for (const std::uint64_t length : {std::uint64_t{two_gib} - 1, std::uint64_t{two_gib}, UINT64_MAX}) {
        eeprom.f20_length = length;
        expect_same_calls_in_64_bytes(*find_type("eeprom_data"), &eeprom);
        expect_same_calls_in_64_bytes(*find_type("resp_inv_data"), &inventory);
    }
}

TEST(every_call, before_an_identifier_of_2_gib_is_that_of_the_rules) {
    vesk_logic_slot_data slot = {};
    slot.eid_a = identifier(3);
    vesk_drin_eid_st eids[3] = {identifier(3), {}, identifier(2)};
    vesk_resp_eid response = {};
    response.eid_list = eids;
    response.eid_list_count = 3;
    mark(response, {VESK_RESP_EID_EID_LIST});
    for (const std::uint32_t size : {two_gib - 1, two_gib, UINT32_MAX}) {
        slot.eid_b = eids[1] = identifier(size, 1);
        expect_same_calls_in_64_bytes(*find_type("logic_slot_data"), &slot);
        expect_same_calls_in_64_bytes(*find_type("resp_eid"), &response);
    }
}

}  // namespace
}  // namespace vesk::test
