// The calls that reach the entity identifier's own functions, which this program defines itself: it is linked with
// eid_recorder.c, and the library finds these before it finds the stand-in's.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "tests/imported_eid/identifier.hpp"
#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

using Calls = std::vector<eid_call>;

// The calls that were made while `body` ran.
template <class Body>
Calls calls_during(Body body) {
    eid_record& record = *eid_recorder();
    record.count = 0;
    body();
    return {record.calls, record.calls + record.count};
}

vesk_drin_eid_st identifier_with_code(std::int32_t code) {
    vesk_drin_eid_st eid = {};
    eid.f4 = static_cast<std::uint32_t>(code);
    return eid;
}

// A number, an identifier, a number: 08 01 12 (size) (identifier) 18 05.
vesk_register_container_eid_data registration(const vesk_drin_eid_st& eid) {
    vesk_register_container_eid_data message = {};
    message.f1 = 1;
    message.eid = eid;
    message.f3 = 5;
    message.present[0] = 0x05;
    return message;
}

TEST(imported_eid, functions_of_the_program_itself_are_called) {
    const vesk_register_container_eid_data message = registration(identifier(3));
    EXPECT_EQ(to_hex(encoded(message)), "08 01 12 03 e1 e1 e1 18 05");
}

// ---- Encoding ------------------------------------------------------------------------------------------------------

// The writing calls among `calls`. Each must have been measured before, and each measuring call must have had nothing
// but the identifier and the flags.
Calls writes_of(const Calls& calls, std::uint32_t flags = 0) {
    Calls writes;
    std::vector<const void*> measured;
    for (const eid_call& call : calls) {
        EXPECT_EQ(call.flags, flags);
        if (call.function == EID_MEASURE) {
            EXPECT_EQ(call.buffer, nullptr);
            EXPECT_EQ(call.length, 0u);
            EXPECT_EQ(call.segments, nullptr);
            measured.push_back(call.message);
        } else {
            EXPECT_EQ(call.function, EID_WRITE);
            EXPECT_NE(std::find(measured.begin(), measured.end(), call.message), measured.end())
                << "written without being measured";
            writes.push_back(call);
        }
    }
    return writes;
}

// One encoding call with a buffer of `room` bytes and a list of `capacity` segments, or none.
struct Encoding {
    std::uint64_t length;
    Bytes buffer;
    std::vector<vesk_segment> segments;
    std::uint32_t count;
    Calls writes;
};

constexpr std::uint32_t no_list = ~std::uint32_t{0};
const vesk_segment untouched = {&untouched, 0x5A5A};

template <class T>
Encoding encode_recorded(const T& message, std::size_t room, std::uint32_t capacity = no_list,
                         std::uint32_t flags = 0) {
    const bool listed = capacity != no_list;
    Encoding result{
        0, Bytes(room + 16, 0xEE), std::vector<vesk_segment>(listed ? capacity + 4 : 4, untouched), capacity, {}};
    const Calls calls = calls_during([&] {
        result.length = Api<T>::encode(&message, result.buffer.data(), room, result.segments.data(),
                                       listed ? &result.count : nullptr, flags);
    });
    result.writes = writes_of(calls, flags);
    return result;
}

TEST(imported_encode, each_identifier_is_written_once_in_the_order_of_the_fields) {
    vesk_sensor_data sensor = {};
    sensor.entity_common.eid = identifier(3);
    sensor.threshold.eid = identifier(2);
    const Encoding encoding = encode_recorded(sensor, 64);
    EXPECT_EQ(encoding.length, 13u);  // 0A 05 (0A 03 ...) 62 04 (0A 02 ..)
    ASSERT_EQ(encoding.writes.size(), 2u);
    EXPECT_EQ(encoding.writes[0].message, &sensor.entity_common.eid);
    EXPECT_EQ(encoding.writes[1].message, &sensor.threshold.eid);
}

TEST(imported_encode, identifiers_of_elements_are_written_in_their_order) {
    vesk_fan_data fans[3] = {};
    for (vesk_fan_data& fan : fans) fan.entity_common.eid = identifier(2);
    vesk_resp_inv_data response = {};
    response.fan_list = fans;
    response.fan_list_count = 3;
    VESK_MARK(&response, VESK_RESP_INV_DATA_FAN_LIST);
    const Encoding encoding = encode_recorded(response, 64);
    ASSERT_EQ(encoding.writes.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        // 9A 01 06 0A 04 0A 02 (identifier)
        EXPECT_EQ(encoding.writes[i].message, &fans[i].entity_common.eid);
        EXPECT_EQ(encoding.writes[i].buffer, encoding.buffer.data() + 9 * i + 7);
    }
}

TEST(imported_encode, list_of_identifiers_is_written_one_by_one) {
    vesk_drin_eid_st eids[3] = {identifier(2), identifier(0), identifier(3)};
    vesk_resp_eid response = {};
    response.eid_list = eids;
    response.eid_list_count = 3;
    VESK_MARK(&response, VESK_RESP_EID_EID_LIST);
    const Encoding encoding = encode_recorded(response, 64);
    EXPECT_EQ(encoding.length, 11u);  // 22 02 (..) 22 00 22 03 (...)
    ASSERT_EQ(encoding.writes.size(), 3u) << "req_eid is empty and not written";
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(encoding.writes[i].message, &eids[i]);
    EXPECT_EQ(encoding.writes[0].buffer, encoding.buffer.data() + 2);
    EXPECT_EQ(encoding.writes[2].buffer, encoding.buffer.data() + 8);
}

TEST(imported_encode, measuring_measures) {
    const vesk_register_container_eid_data message = registration(identifier(3));
    const Calls calls = calls_during([&] { EXPECT_EQ(measured(message), 9u); });
    EXPECT_GE(
        std::count_if(calls.begin(), calls.end(), [](const eid_call& call) { return call.function == EID_MEASURE; }),
        1);
}

TEST(imported_encode, write_gets_the_rest_of_the_buffer) {
    const vesk_register_container_eid_data message = registration(identifier(3));
    for (std::size_t room = 0; room <= 12; ++room) {
        const Encoding encoding = encode_recorded(message, room);
        EXPECT_EQ(encoding.length, 9u);
        ASSERT_EQ(encoding.writes.size(), 1u);
        if (room > 4) {
            EXPECT_EQ(encoding.writes[0].buffer, encoding.buffer.data() + 4);
            EXPECT_EQ(encoding.writes[0].length, room - 4);
        } else {
            EXPECT_EQ(encoding.writes[0].buffer, nullptr) << "room " << room;
            EXPECT_EQ(encoding.writes[0].length, 0u) << "room " << room;
        }
    }
}

TEST(imported_encode, write_inside_a_nested_message_gets_the_rest_of_the_buffer_too) {
    vesk_idprom_data idprom = {};
    idprom.entity_common.f4 = 300;
    VESK_MARK(&idprom.entity_common, VESK_ENTITY_COMMON_DATA_F4);
    idprom.eeprom.eid = identifier(3);
    // 0A 03 (20 AC 02) 1A 05 0A 03 (identifier)
    for (std::size_t room = 0; room <= 15; ++room) {
        const Encoding encoding = encode_recorded(idprom, room);
        EXPECT_EQ(encoding.length, 12u);
        ASSERT_EQ(encoding.writes.size(), 1u);
        const eid_call& write = encoding.writes[0];
        EXPECT_EQ(write.buffer, room > 9 ? encoding.buffer.data() + 9 : nullptr) << "room " << room;
        EXPECT_EQ(write.length, room > 9 ? room - 9 : 0u) << "room " << room;
    }
}

TEST(imported_encode, length_of_null_buffer_is_0_also_with_a_count) {
    const vesk_register_container_eid_data message = registration(identifier(3, 0, 2));
    std::uint32_t count = 0;
    const Calls calls = calls_during(
        [&] { EXPECT_EQ(vesk_register_container_eid_data_encode_ext(&message, nullptr, 0, nullptr, &count, 0), 9u); });
    EXPECT_EQ(count, 3u);
    const Calls writes = writes_of(calls);
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].buffer, nullptr);
    EXPECT_EQ(writes[0].length, 0u);
    EXPECT_EQ(writes[0].segments, nullptr);
    EXPECT_EQ(writes[0].capacity, 0u);
}

TEST(imported_encode, flags_arrive_unchanged) {
    const vesk_register_container_eid_data message = registration(identifier(3));
    for (std::uint32_t flags : {0u, 1u, 2u, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        EXPECT_EQ(encode_recorded(message, 16, 4, flags).writes.size(), 1u);  // the flags of every call are compared
    }
}

TEST(imported_encode, writing_another_length_than_was_measured_does_not_move_the_fields_behind) {
    const Encoding longer = encode_recorded(registration(identifier(3, 7)), 16);
    EXPECT_EQ(longer.length, 9u);
    EXPECT_EQ(to_hex(Bytes(longer.buffer.begin(), longer.buffer.begin() + 12)), "08 01 12 03 e1 e1 e1 18 05 e1 e1 ee");
    const Encoding shorter = encode_recorded(registration(identifier(3, 1)), 16);
    EXPECT_EQ(shorter.length, 9u);
    EXPECT_EQ(to_hex(Bytes(shorter.buffer.begin(), shorter.buffer.begin() + 10)), "08 01 12 03 e1 ee ee 18 05 ee");
}

TEST(imported_encode, measured_length_decides_in_a_nested_message_too) {
    vesk_idprom_data idprom = {};
    idprom.entity_common.eid = identifier(2, 9);
    idprom.f4 = literal("x");
    VESK_MARK(&idprom, VESK_IDPROM_DATA_F4);
    const Encoding encoding = encode_recorded(idprom, 9);
    EXPECT_EQ(encoding.length, 9u);
    EXPECT_EQ(to_hex(Bytes(encoding.buffer.begin(), encoding.buffer.begin() + 10)), "0a 04 0a 02 e1 e1 22 01 78 ee");
}

TEST(imported_encode, long_measured_length_is_counted_whole) {
    const Encoding encoding = encode_recorded(registration(identifier(0xFFFFFFFF, 1)), 16);
    EXPECT_EQ(encoding.length, 2 + 1 + 5 + 0xFFFFFFFFull + 2);
    EXPECT_EQ(to_hex(Bytes(encoding.buffer.begin(), encoding.buffer.begin() + 10)), "08 01 12 ff ff ff ff 0f e1 ee");
}

TEST(imported_encode, measured_0_with_its_bit_is_written_as_zero_length) {
    vesk_register_container_eid_data message = registration(identifier(0));
    VESK_MARK(&message, VESK_REGISTER_CONTAINER_EID_DATA_EID);
    const Encoding encoding = encode_recorded(message, 16);
    EXPECT_EQ(encoding.length, 6u);
    EXPECT_EQ(to_hex(Bytes(encoding.buffer.begin(), encoding.buffer.begin() + 7)), "08 01 12 00 18 05 ee");
    ASSERT_EQ(encoding.writes.size(), 1u);
    EXPECT_EQ(encoding.writes[0].buffer, encoding.buffer.data() + 4);
    EXPECT_EQ(encoding.writes[0].length, 12u);
}

TEST(imported_encode, measured_0_with_clear_bit_is_not_written) {
    const Encoding encoding = encode_recorded(registration(identifier(0, 5, 3)), 16, 4);
    EXPECT_EQ(encoding.length, 4u);
    EXPECT_TRUE(encoding.writes.empty());
    EXPECT_EQ(encoding.count, 1u);
}

TEST(imported_encode, content_with_clear_bit_is_written) {
    EXPECT_EQ(encode_recorded(registration(identifier(1)), 16).writes.size(), 1u);
}

// ---- The segment list ----------------------------------------------------------------------------------------------

TEST(imported_segments, without_a_list_the_write_still_gets_a_count_of_0) {
    const Encoding encoding = encode_recorded(registration(identifier(3, 0, 2)), 16);
    ASSERT_EQ(encoding.writes.size(), 1u);  // a call without a count would be a measuring call
    EXPECT_EQ(encoding.writes[0].segments, nullptr);
    EXPECT_EQ(encoding.writes[0].capacity, 0u);
    for (const vesk_segment& segment : encoding.segments) EXPECT_EQ(segment.data, untouched.data);
}

TEST(imported_segments, write_gets_the_whole_list_if_none_is_used) {
    const Encoding encoding = encode_recorded(registration(identifier(3)), 16, 4);
    EXPECT_EQ(encoding.writes[0].segments, encoding.segments.data());
    EXPECT_EQ(encoding.writes[0].capacity, 4u);
}

TEST(imported_segments, counts_of_the_identifier_are_added_and_its_slots_are_its_own) {
    const Encoding encoding = encode_recorded(registration(identifier(3, 0, 2)), 16, 4);
    EXPECT_EQ(encoding.count, 3u);
    EXPECT_EQ(encoding.segments[0].data, untouched.data);  // the recorder fills none
    EXPECT_EQ(encoding.segments[1].data, untouched.data);
    EXPECT_EQ(encoding.segments[2].data, encoding.buffer.data());
    EXPECT_EQ(encoding.segments[2].length, 9u);
    EXPECT_EQ(encoding.segments[3].data, untouched.data);
}

TEST(imported_segments, counts_above_the_capacity_are_added_too) {
    const Encoding encoding = encode_recorded(registration(identifier(3, 0, 1000)), 16, 4);
    EXPECT_EQ(encoding.count, 1001u);
    for (const vesk_segment& segment : encoding.segments) EXPECT_EQ(segment.data, untouched.data);
}

TEST(imported_segments, second_write_gets_the_rest_of_the_list_or_nothing) {
    vesk_idprom_data idprom = {};
    idprom.entity_common.eid = identifier(2, 0, 2);
    idprom.eeprom.eid = identifier(3, 0, 4);
    // Two of the first identifier and the run of its message are used before the second.
    for (std::uint32_t capacity = 0; capacity <= 10; ++capacity) {
        const Encoding encoding = encode_recorded(idprom, 64, capacity);
        EXPECT_EQ(encoding.count, 9u) << "capacity " << capacity;
        ASSERT_EQ(encoding.writes.size(), 2u);
        EXPECT_EQ(encoding.writes[0].segments, capacity > 0 ? encoding.segments.data() : nullptr);
        EXPECT_EQ(encoding.writes[0].capacity, capacity);
        EXPECT_EQ(encoding.writes[1].segments, capacity > 3 ? encoding.segments.data() + 3 : nullptr);
        EXPECT_EQ(encoding.writes[1].capacity, capacity > 3 ? capacity - 3 : 0u);
    }
}

TEST(imported_segments, referenced_bytes_in_front_count_before_the_write) {
    // An EEPROM in front of another identifier: three stretches and the enclosing run are used by then.
    vesk_idprom_data idproms[2] = {};
    const Bytes data = hex("01 02");
    idproms[0].eeprom.f20 = data_of(data);
    idproms[0].eeprom.f20_length = 2;
    VESK_MARK(&idproms[0].eeprom, VESK_EEPROM_DATA_F20);
    VESK_MARK(&idproms[0].eeprom, VESK_EEPROM_DATA_F21);
    idproms[1].eeprom.eid = identifier(1);
    vesk_resp_inv_data response = {};
    response.idprom_list = idproms;
    response.idprom_list_count = 2;
    VESK_MARK(&response, VESK_RESP_INV_DATA_IDPROM_LIST);
    const Encoding encoding = encode_recorded(response, 64, 9, VESK_BYTES_BY_REFERENCE);
    ASSERT_EQ(encoding.writes.size(), 1u);
    EXPECT_EQ(encoding.writes[0].segments, encoding.segments.data() + 4);
    EXPECT_EQ(encoding.writes[0].capacity, 5u);
    EXPECT_EQ(encoding.count, 7u);
}

// ---- Decoding ------------------------------------------------------------------------------------------------------

// The content of an identifier that decodes to `code`.
Bytes answering(std::int32_t code) {
    Bytes bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint32_t>(code) >> shift));
    }
    return bytes;
}

const std::int32_t codes[] = {
    -1, -2, -3, -4, -5, -77, std::numeric_limits<std::int32_t>::min(), 1, 42, std::numeric_limits<std::int32_t>::max()};

template <class T>
struct Decoding {
    explicit Decoding(Bytes bytes, vesk_alloc alloc = Ledger::alloc, std::uint32_t flags = 0)
        : input(std::move(bytes)), flags(flags), message(filled_with<T>(0x5A)) {
        calls =
            calls_during([&] { code = Api<T>::decode(&message, input.data(), input.size(), alloc, &ledger, flags); });
    }
    Decoding(const Decoding&) = delete;
    Decoding& operator=(const Decoding&) = delete;
    ~Decoding() { Api<T>::free(&message, Ledger::release, &ledger, flags); }
    const T* operator->() const { return &message; }

    Bytes input;
    std::uint32_t flags;
    Ledger ledger;
    T message;
    std::int32_t code = 0;
    Calls calls;
};

TEST(imported_decode, call_gets_exactly_the_fields_bytes_and_what_the_caller_gave) {
    for (const auto alloc : {static_cast<vesk_alloc>(nullptr), static_cast<vesk_alloc>(Ledger::alloc)}) {
        for (std::uint32_t flags : {0u, 1u, 0x80000000u, 0xFFFFFFFFu}) {
            const Decoding<vesk_register_container_eid_data> message(
                concatenate({number_field(1, 1), message_field(2, hex("AA BB CC")), number_field(3, 5)}), alloc, flags);
            EXPECT_EQ(message.code, VESK_OK);
            ASSERT_EQ(message.calls.size(), 1u);
            const eid_call& call = message.calls[0];
            EXPECT_EQ(call.function, EID_DECODE);
            EXPECT_EQ(call.message, &message->eid);
            EXPECT_EQ(call.buffer, message.input.data() + 4);
            EXPECT_EQ(call.length, 3u);
            EXPECT_EQ(call.alloc, alloc);
            EXPECT_EQ(call.context, &message.ledger);
            EXPECT_EQ(call.flags, flags);
            EXPECT_EQ(message->eid.f1, 3u);
            EXPECT_EQ(message->present[0], 0x07);
        }
    }
}

TEST(imported_decode, absent_identifier_is_not_decoded_but_cleared) {
    const Decoding<vesk_register_container_eid_data> message(number_field(1, 1));
    EXPECT_TRUE(message.calls.empty());
    EXPECT_EQ(message->eid.f1, 0u);
    EXPECT_EQ(message->eid.f5, 0u);
    EXPECT_EQ(message->eid.element_list, nullptr);
    EXPECT_EQ(message->eid.present[0], 0);
}

TEST(imported_decode, empty_identifier_is_decoded_from_0_bytes) {
    const Decoding<vesk_register_container_eid_data> message(hex("12 00"));
    ASSERT_EQ(message.calls.size(), 1u);
    EXPECT_EQ(message.calls[0].buffer, message.input.data() + 2);
    EXPECT_EQ(message.calls[0].length, 0u);
    EXPECT_EQ(message->present[0], 0x02);
}

TEST(imported_decode, bad_length_and_wrong_wire_type_never_reach_it) {
    for (const char* input : {"12", "12 80", "12 01", "12 FF FF FF FF 0F"}) {
        const Decoding<vesk_register_container_eid_data> message(hex(input));
        EXPECT_EQ(message.code, VESK_MALFORMED);
        EXPECT_TRUE(message.calls.empty());
    }
    const Decoding<vesk_register_container_eid_data> message(hex("10 00"));
    EXPECT_EQ(message.code, VESK_WRONG_WIRE_TYPE);
    EXPECT_TRUE(message.calls.empty());
}

// What a later occurrence does to the earlier one is for the identifier's own decoder to say: it finds it as it is.
TEST(imported_decode, each_occurrence_is_decoded_over_the_earlier_one) {
    const Decoding<vesk_register_container_eid_data> message(
        concatenate({message_field(2, hex("AA")), message_field(2, hex("BB CC"))}));
    EXPECT_EQ(message.code, VESK_OK);
    ASSERT_EQ(message.calls.size(), 2u);
    EXPECT_EQ(message.calls[0].buffer, message.input.data() + 2);
    EXPECT_EQ(message.calls[0].found, 0u);
    EXPECT_EQ(message.calls[1].buffer, message.input.data() + 5);
    EXPECT_EQ(message.calls[1].found, 1u);
    EXPECT_EQ(message->eid.f1, 2u);
}

TEST(imported_decode, identifier_in_a_nested_message_that_occurs_again_is_cleared_with_it) {
    const Decoding<vesk_idprom_data> idprom(
        concatenate({message_field(3, message_field(1, hex("AA"))), message_field(3, message_field(1, hex("BB CC")))}));
    EXPECT_EQ(idprom.code, VESK_OK);
    ASSERT_EQ(idprom.calls.size(), 2u);
    EXPECT_EQ(idprom.calls[1].found, 0u);
    EXPECT_EQ(idprom->eeprom.eid.f1, 2u);
}

TEST(imported_decode, any_code_is_returned_unchanged_and_ends_the_call) {
    for (std::int32_t code : codes) {
        const Decoding<vesk_register_container_eid_data> message(
            concatenate({number_field(1, 1), message_field(2, answering(code)), number_field(3, 5)}));
        EXPECT_EQ(message.code, code);
        EXPECT_EQ(message->present[0], 0x01);
        EXPECT_EQ(message->f3, 0u);
        EXPECT_EQ(message->eid.f1, 4u) << "what it stored stays";
    }
}

TEST(imported_decode, any_code_is_returned_unchanged_through_two_levels) {
    for (std::int32_t code : codes) {
        const Bytes fan = message_field(1, message_field(1, answering(code)));
        const Decoding<vesk_resp_inv_data_by_eid> nested(concatenate({message_field(17, fan), number_field(1, 1)}));
        EXPECT_EQ(nested.code, code);
        EXPECT_EQ(nested->f1, 0u);
        EXPECT_TRUE(has_no_presence(nested.message));
        EXPECT_TRUE(has_no_presence(nested->fan));
        EXPECT_TRUE(has_no_presence(nested->fan.entity_common));
        const Decoding<vesk_resp_inv_data> listed(
            concatenate({message_field(19, Bytes{}), message_field(19, fan), message_field(19, fan)}));
        EXPECT_EQ(listed.code, code);
        EXPECT_EQ(listed->fan_list_count, 3u);
        EXPECT_TRUE(has_no_presence(listed.message));
        EXPECT_EQ(listed.calls.size(), 1u) << "the third element is not decoded";
    }
}

TEST(imported_decode, identifiers_are_decoded_in_the_order_of_the_input) {
    const Decoding<vesk_idprom_data> idprom(
        concatenate({message_field(3, message_field(1, hex("AA"))), message_field(1, message_field(1, hex("BB CC")))}));
    ASSERT_EQ(idprom.calls.size(), 2u);
    EXPECT_EQ(idprom.calls[0].message, &idprom->eeprom.eid);
    EXPECT_EQ(idprom.calls[0].buffer, idprom.input.data() + 4);
    EXPECT_EQ(idprom.calls[1].message, &idprom->entity_common.eid);
    EXPECT_EQ(idprom.calls[1].buffer, idprom.input.data() + 9);
}

TEST(imported_decode, counting_a_list_calls_nothing) {
    const Bytes fan = message_field(1, message_field(1, hex("AA")));
    const Decoding<vesk_resp_inv_data> response(concatenate({message_field(19, fan), message_field(19, fan)}));
    ASSERT_EQ(response.calls.size(), 2u);
    EXPECT_EQ(response.calls[0].message, &response->fan_list[0].entity_common.eid);
    EXPECT_EQ(response.calls[1].message, &response->fan_list[1].entity_common.eid);
    EXPECT_EQ(response.calls[1].context, &response.ledger);
}

TEST(imported_decode, list_of_identifiers_is_decoded_one_by_one) {
    const Decoding<vesk_resp_eid> response(
        concatenate({message_field(4, hex("AA")), message_field(4, {}), message_field(4, hex("BB CC"))}));
    ASSERT_EQ(response.calls.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(response.calls[i].message, &response->eid_list[i]);
        EXPECT_EQ(response.calls[i].context, &response.ledger);
        EXPECT_EQ(response->eid_list[i].f1, response.calls[i].length);
    }
    EXPECT_EQ(response.calls[0].length, 1u);
    EXPECT_EQ(response.calls[1].length, 0u);
    EXPECT_EQ(response.calls[2].length, 2u);
    EXPECT_EQ(response.calls[2].buffer, response.input.data() + 7);
}

// ---- Duplicating ---------------------------------------------------------------------------------------------------

template <class T>
struct Duplication {
    explicit Duplication(const T& source, vesk_alloc alloc = Ledger::alloc) : message(filled_with<T>(0x00)) {
        calls = calls_during([&] { code = Api<T>::duplicate(&message, &source, alloc, &ledger); });
    }
    Duplication(const Duplication&) = delete;
    Duplication& operator=(const Duplication&) = delete;
    ~Duplication() { Api<T>::free(&message, Ledger::release, &ledger, 0); }
    const T* operator->() const { return &message; }

    Ledger ledger;
    T message;
    std::int32_t code = 0;
    Calls calls;
};

TEST(imported_duplicate, call_gets_both_members_and_what_the_caller_gave) {
    for (const auto alloc : {static_cast<vesk_alloc>(nullptr), static_cast<vesk_alloc>(Ledger::alloc)}) {
        const vesk_register_container_eid_data source = registration(identifier(3));  // its bit is clear
        const Duplication<vesk_register_container_eid_data> copy(source, alloc);
        EXPECT_EQ(copy.code, VESK_OK);
        ASSERT_EQ(copy.calls.size(), 1u);
        EXPECT_EQ(copy.calls[0].function, EID_DUPLICATE);
        EXPECT_EQ(copy.calls[0].message, &copy->eid);
        EXPECT_EQ(copy.calls[0].source, &source.eid);
        EXPECT_EQ(copy.calls[0].alloc, alloc);
        EXPECT_EQ(copy.calls[0].context, &copy.ledger);
        EXPECT_EQ(copy->eid.f1, 3u);
        EXPECT_EQ(copy->present[0], 0x05);
    }
}

TEST(imported_duplicate, each_identifier_is_copied_once_in_declaration_order) {
    const vesk_idprom_data source = {};
    const Duplication<vesk_idprom_data> copy(source);
    ASSERT_EQ(copy.calls.size(), 2u);
    EXPECT_EQ(copy.calls[0].source, &source.entity_common.eid);
    EXPECT_EQ(copy.calls[1].source, &source.eeprom.eid);
    EXPECT_EQ(copy.calls[1].message, &copy->eeprom.eid);
}

TEST(imported_duplicate, any_code_is_returned_and_the_copy_goes_on) {
    for (std::int32_t code : codes) {
        vesk_register_container_eid_data source = registration(identifier_with_code(code));
        VESK_MARK(&source, VESK_REGISTER_CONTAINER_EID_DATA_EID);
        const Duplication<vesk_register_container_eid_data> copy(source);
        EXPECT_EQ(copy.code, code);
        EXPECT_EQ(copy->f3, 5u);
        EXPECT_EQ(copy->present[0], 0x07) << "the bit is copied whatever the code";
    }
}

TEST(imported_duplicate, first_code_counts_and_the_others_are_still_called) {
    vesk_sensor_data source = {};
    source.entity_common.eid = identifier_with_code(-7);
    source.threshold.eid = identifier_with_code(-8);
    const Duplication<vesk_sensor_data> copy(source);
    EXPECT_EQ(copy.code, -7);
    EXPECT_EQ(copy.calls.size(), 2u);
    source.entity_common.eid = identifier_with_code(0);
    EXPECT_EQ(Duplication<vesk_sensor_data>(source).code, -8);
}

TEST(imported_duplicate, own_block_that_fails_replaces_the_code) {
    vesk_container_eid_nodeid_data source = {};
    source.eid = identifier_with_code(-7);
    EXPECT_EQ(Duplication<vesk_container_eid_nodeid_data>(source, nullptr).code, -7);
    source.f2 = literal("x");
    EXPECT_EQ(Duplication<vesk_container_eid_nodeid_data>(source).code, -7);
    EXPECT_EQ(Duplication<vesk_container_eid_nodeid_data>(source, nullptr).code, VESK_NO_MEMORY);
}

TEST(imported_duplicate, own_bytes_that_fail_replace_the_code) {
    vesk_eeprom_data source = {};
    const Bytes data = hex("01");
    source.eid = identifier_with_code(-7);
    source.f20 = data_of(data);
    source.f20_length = 1;
    EXPECT_EQ(Duplication<vesk_eeprom_data>(source, nullptr).code, VESK_NO_MEMORY);
}

TEST(imported_duplicate, code_behind_a_failed_nested_block_does_not_count) {
    vesk_idprom_data source = {};
    source.entity_common.f2 = literal("x");
    source.eeprom.eid = identifier_with_code(-7);
    EXPECT_EQ(Duplication<vesk_idprom_data>(source).code, -7);
    EXPECT_EQ(Duplication<vesk_idprom_data>(source, nullptr).code, VESK_NO_MEMORY);
}

TEST(imported_duplicate, code_in_front_of_a_failed_nested_block_stays) {
    vesk_idprom_data source = {};
    source.entity_common.eid = identifier_with_code(-7);
    source.eeprom.f4 = literal("x");
    const Duplication<vesk_idprom_data> copy(source, nullptr);
    EXPECT_EQ(copy.code, -7) << "the nested failure is a code like any other";
    EXPECT_EQ(copy->eeprom.f4, nullptr);
    source.f4 = literal("y");
    EXPECT_EQ(Duplication<vesk_idprom_data>(source, nullptr).code, VESK_NO_MEMORY) << "the message's own is not";
}

// A response with two fans, whose identifiers answer with `first` and `second`.
struct TwoFans {
    TwoFans(std::int32_t first, std::int32_t second) {
        fans[0].entity_common.eid = identifier_with_code(first);
        fans[1].entity_common.eid = identifier_with_code(second);
        response.fan_list = fans;
        response.fan_list_count = 2;
    }
    vesk_fan_data fans[2] = {};
    vesk_led_data led = {};
    vesk_resp_inv_data response = {};
};

TEST(imported_duplicate, first_code_of_a_list_counts) {
    const TwoFans source(-7, -8);
    const Duplication<vesk_resp_inv_data> copy(source.response);
    EXPECT_EQ(copy.code, -7);
    EXPECT_EQ(copy.calls.size(), 2u);
    EXPECT_EQ(copy->fan_list_count, 2u);
    EXPECT_EQ(Duplication<vesk_resp_inv_data>(TwoFans(0, -8).response).code, -8);
}

TEST(imported_duplicate, failed_array_replaces_the_code_of_an_earlier_element) {
    TwoFans source(-7, -8);
    vesk_base_data base = {};
    source.response.base_list = &base;  // behind the fans
    source.response.base_list_count = 1;
    Ledger ledger;
    ledger.fail_request(2);
    vesk_resp_inv_data copy;
    EXPECT_EQ(vesk_resp_inv_data_duplicate(&copy, &source.response, Ledger::alloc, &ledger), VESK_NO_MEMORY);
    EXPECT_EQ(copy.fan_list_count, 2u);
    EXPECT_EQ(copy.base_list, nullptr);
    vesk_resp_inv_data_free_ext(&copy, Ledger::release, &ledger, 0);
}

TEST(imported_duplicate, code_of_an_element_behind_a_failed_array_does_not_count) {
    TwoFans source(-7, -8);
    source.response.led_list = &source.led;  // in front of the fans
    source.response.led_list_count = 1;
    Ledger ledger;
    ledger.fail_request(1);
    vesk_resp_inv_data copy;
    const Calls calls = calls_during([&] {
        EXPECT_EQ(vesk_resp_inv_data_duplicate(&copy, &source.response, Ledger::alloc, &ledger), VESK_NO_MEMORY);
    });
    EXPECT_EQ(calls.size(), 2u) << "one per fan, none for the LED that has no array";
    vesk_resp_inv_data_free_ext(&copy, Ledger::release, &ledger, 0);
}

TEST(imported_duplicate, list_of_identifiers_is_copied_one_by_one) {
    vesk_drin_eid_st eids[3] = {identifier(2), identifier_with_code(-9), identifier_with_code(-7)};
    vesk_resp_eid source = {};
    source.eid_list = eids;
    source.eid_list_count = 3;
    const Duplication<vesk_resp_eid> copy(source);
    EXPECT_EQ(copy.code, -9);
    ASSERT_EQ(copy.calls.size(), 4u);
    EXPECT_EQ(copy.calls[0].source, &source.req_eid.eid);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(copy.calls[i + 1].source, &eids[i]);
        EXPECT_EQ(copy.calls[i + 1].message, &copy->eid_list[i]);
    }
}

// ---- Releasing -----------------------------------------------------------------------------------------------------

TEST(imported_free, each_identifier_is_freed_once_in_declaration_order_whatever_its_bit) {
    vesk_idprom_data idprom = {};
    VESK_MARK(&idprom, VESK_IDPROM_DATA_EEPROM);
    Ledger ledger;
    for (std::uint32_t flags : {0u, 1u, 0xFFFFFFFFu}) {
        for (vesk_release release : {static_cast<vesk_release>(nullptr), static_cast<vesk_release>(Ledger::release)}) {
            const Calls calls = calls_during([&] { vesk_idprom_data_free_ext(&idprom, release, &ledger, flags); });
            ASSERT_EQ(calls.size(), 2u);
            EXPECT_EQ(calls[0].message, &idprom.entity_common.eid);
            EXPECT_EQ(calls[1].message, &idprom.eeprom.eid);
            for (const eid_call& call : calls) {
                EXPECT_EQ(call.function, EID_FREE);
                EXPECT_EQ(call.release, release);
                EXPECT_EQ(call.context, &ledger);
                EXPECT_EQ(call.flags, flags);
            }
        }
    }
}

TEST(imported_free, identifiers_of_elements_are_freed_while_the_list_goes) {
    const Bytes fan = message_field(1, message_field(1, hex("AA")));
    const Bytes input = message(message_field(19, fan), message_field(19, fan));
    Ledger ledger;
    vesk_resp_inv_data response;
    ASSERT_EQ(vesk_resp_inv_data_decode_ext(&response, input.data(), input.size(), Ledger::alloc, &ledger, 0), VESK_OK);
    const vesk_fan_data* fans = response.fan_list;
    const void* first = &fans[0].entity_common.eid;
    const void* second = &fans[1].entity_common.eid;
    Calls calls = calls_during([&] { vesk_resp_inv_data_free_ext(&response, Ledger::release, &ledger, 0); });
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].message, first);
    EXPECT_EQ(calls[1].message, second);
    calls = calls_during([&] { vesk_resp_inv_data_free_ext(&response, Ledger::release, &ledger, 0); });
    EXPECT_TRUE(calls.empty()) << "there are no elements any more";
}

TEST(imported_free, list_of_identifiers_is_freed_one_by_one) {
    const Bytes input = message(message_field(4, hex("AA")), message_field(4, hex("BB")));
    Ledger ledger;
    vesk_resp_eid response;
    ASSERT_EQ(vesk_resp_eid_decode_ext(&response, input.data(), input.size(), Ledger::alloc, &ledger, 0), VESK_OK);
    const vesk_drin_eid_st* eids = response.eid_list;
    const Calls calls = calls_during([&] { vesk_resp_eid_free_ext(&response, Ledger::release, &ledger, 0); });
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].message, &response.req_eid.eid);
    EXPECT_EQ(calls[1].message, &eids[0]);
    EXPECT_EQ(calls[2].message, &eids[1]);
}

}  // namespace
}  // namespace vesk::test
