// The rows of docs/differences.md, one test for each: what protobuf does and what the library does. Mostly as the bytes
// that come out when each of them reads an input and writes it again.
#include <google/protobuf/message.h>
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <limits>
#include <type_traits>

#include "tests/interop/dialect.hpp"
#include "tests/interop/peers.hpp"
#include "tests/support/messages.hpp"

namespace vesk::test {
namespace {

constexpr std::uint64_t gib = std::uint64_t{1} << 30;

void set_number(google::protobuf::Message& message, const char* field, std::uint32_t value) {
    message.GetReflection()->SetUInt32(&message, message.GetDescriptor()->FindFieldByName(field), value);
}

void set_text(google::protobuf::Message& message, const char* field, std::string value) {
    message.GetReflection()->SetString(&message, message.GetDescriptor()->FindFieldByName(field), std::move(value));
}

google::protobuf::Message& nested(google::protobuf::Message& message, const char* field) {
    return *message.GetReflection()->MutableMessage(&message, message.GetDescriptor()->FindFieldByName(field));
}

// ---- Reading: unknown fields ---------------------------------------------------------------------------------------

TEST(differences, unknown_field_is_dropped) {
    const Bytes known = number_field(3, 7);
    const Bytes unknown = message(number_field(9, 5), text_field(10, "new"), tag(11, fixed32_type), hex("01 02 03 04"),
                                  tag(12, fixed64_type), hex("01 02 03 04 05 06 07 08"));
    EXPECT_EQ(through_protobuf("inv_policy", message(unknown, known)), to_hex(message(known, unknown)));
    EXPECT_EQ(through_library("inv_policy", message(unknown, known)), to_hex(known));
}

TEST(differences, unknown_field_cut_short_is_accepted) {
    const Bytes known = number_field(3, 7);
    for (const Bytes& cut :
         {message(tag(9, fixed64_type), hex("01 02 03 04 05 06 07")), message(tag(9, fixed32_type), hex("01 02 03")),
          tag(9, fixed32_type), message(tag(9, length_type), varint(5), hex("01 02 03 04"))}) {
        EXPECT_EQ(through_protobuf("inv_policy", message(known, cut)), "refused") << to_hex(cut);
        EXPECT_EQ(through_library("inv_policy", message(known, cut)), to_hex(known)) << to_hex(cut);

        // The end of a nested message is an end, too.
        const Bytes request = message_field(6, message(known, cut));
        EXPECT_EQ(through_protobuf("req_inv_data", request), "refused") << to_hex(cut);
        EXPECT_EQ(through_library("req_inv_data", request), to_hex(message_field(6, known))) << to_hex(cut);
    }
}

TEST(agreements, unknown_number_cut_short_is_refused) {
    const Bytes input = message(tag(9, varint_type), hex("80"));
    EXPECT_EQ(through_protobuf("inv_policy", input), "refused");
    EXPECT_EQ(through_library("inv_policy", input), "refused: malformed");
}

TEST(differences, field_number_0_is_unknown_field) {
    const Bytes known = number_field(3, 7);
    for (const Bytes& zero : {number_field(0, 5), text_field(0, "a"), message(tag(0, fixed32_type), Bytes(4))}) {
        EXPECT_EQ(through_protobuf("inv_policy", message(zero, known)), "refused") << to_hex(zero);
        EXPECT_EQ(through_library("inv_policy", message(zero, known)), to_hex(known)) << to_hex(zero);
    }
}

Bytes groups_in_groups(int depth) {
    Bytes bytes;
    for (int i = 0; i < depth; ++i) bytes = message(tag(9, group_start), bytes, tag(9, group_end));
    return bytes;
}

TEST(differences, group_is_refused) {
    const Bytes unknown = message(tag(9, group_start), number_field(1, 5), tag(9, group_end));
    EXPECT_EQ(through_protobuf("inv_policy", unknown), to_hex(unknown));
    EXPECT_EQ(through_library("inv_policy", unknown), "refused: unknown wire type");

    const Bytes known = message(tag(3, group_start), number_field(1, 5), tag(3, group_end));
    EXPECT_EQ(through_protobuf("inv_policy", known), to_hex(known));
    EXPECT_EQ(through_library("inv_policy", known), "refused: wrong wire type");

    EXPECT_EQ(through_protobuf("inv_policy", groups_in_groups(100)), to_hex(groups_in_groups(100)));
    EXPECT_EQ(through_protobuf("inv_policy", groups_in_groups(101)), "refused");
    EXPECT_EQ(through_library("inv_policy", groups_in_groups(101)), "refused: unknown wire type");
}

TEST(agreements, wire_types_6_and_7_and_end_of_group_are_refused) {
    for (const std::uint32_t wire_type : {group_end, 6u, 7u}) {
        EXPECT_EQ(through_protobuf("inv_policy", tag(9, wire_type)), "refused") << wire_type;
        EXPECT_EQ(through_library("inv_policy", tag(9, wire_type)), "refused: unknown wire type") << wire_type;
        EXPECT_EQ(through_protobuf("inv_policy", tag(3, wire_type)), "refused") << wire_type;
        EXPECT_EQ(through_library("inv_policy", tag(3, wire_type)), "refused: wrong wire type") << wire_type;
    }
}

// ---- Reading: known fields -----------------------------------------------------------------------------------------

TEST(differences, known_field_of_other_wire_type_is_refused) {
    for (const Bytes& other : {text_field(3, "a"), message(tag(3, fixed32_type), Bytes(4)),
                               message(tag(3, fixed64_type), Bytes(8)), number_field(1, 5)}) {
        EXPECT_EQ(through_protobuf("inv_policy", other), to_hex(other));  // kept, as unknown
        EXPECT_EQ(values_of(*parsed("inv_policy", other)).unknown, other);
        EXPECT_EQ(through_library("inv_policy", other), "refused: wrong wire type") << to_hex(other);
    }
    EXPECT_EQ(through_protobuf("resp_container_eid_nodeid", number_field(1, 0)), to_hex(number_field(1, 0)));
    EXPECT_EQ(through_library("resp_container_eid_nodeid", number_field(1, 0)), "refused: wrong wire type");
}

TEST(differences, list_element_of_other_wire_type_is_read_as_element) {
    const Bytes first = message_field(1, number_field(3, 5));
    const Bytes later = number_field(1, 0);
    EXPECT_EQ(through_protobuf("resp_container_eid_nodeid", message(first, later)), to_hex(message(first, later)));
    EXPECT_EQ(values_of(*parsed("resp_container_eid_nodeid", message(first, later))).unknown, later);
    EXPECT_EQ(through_library("resp_container_eid_nodeid", message(first, later)),
              to_hex(message(first, message_field(1, Bytes()))));
}

TEST(differences, list_in_two_runs_is_refused) {
    const Bytes first = message_field(1, number_field(3, 5));
    const Bytes second = message_field(1, number_field(3, 6));
    for (const Bytes& between : {number_field(2, 9), number_field(30, 9)}) {
        EXPECT_EQ(through_protobuf("resp_container_eid_nodeid", message(first, between, second)),
                  to_hex(message(first, second, between)));
        EXPECT_EQ(through_library("resp_container_eid_nodeid", message(first, between, second)), "refused: malformed");
    }
    EXPECT_EQ(through_library("resp_container_eid_nodeid", message(first, second, number_field(2, 9))),
              to_hex(message(first, second, number_field(2, 9))));
}

TEST(differences, nested_message_twice_is_replaced) {
    const Bytes first = message_field(6, message(text_field(1, "north"), number_field(3, 7)));
    const Bytes second = message_field(6, number_field(3, 8));
    EXPECT_EQ(through_protobuf("req_inv_data", message(first, second)),
              to_hex(message_field(6, message(text_field(1, "north"), number_field(3, 8)))));

    // The first one's string is lost: nobody gives it back.
    const Bytes input = message(first, second);
    Ledger ledger;
    vesk_req_inv_data request;
    EXPECT_EQ(vesk_req_inv_data_decode_ext(&request, input.data(), input.size(), Ledger::alloc, &ledger, 0), VESK_OK);
    EXPECT_EQ(to_hex(encoded(request)), to_hex(second));
    vesk_req_inv_data_free_ext(&request, Ledger::release, &ledger, 0);
    EXPECT_EQ(ledger.blocks_out(), 1u);
    ledger.forget();
}

TEST(differences, string_twice_is_refused) {
    for (const char* first : {"a", ""}) {
        const Bytes input = message(text_field(1, first), text_field(1, "b"));
        EXPECT_EQ(through_protobuf("inv_policy", input), to_hex(text_field(1, "b")));
        EXPECT_EQ(through_library("inv_policy", input), "refused: malformed");
    }
}

TEST(differences, bytes_twice_is_refused) {
    const Bytes input = message(bytes_field(2, hex("01 02")), bytes_field(2, hex("03")));
    EXPECT_EQ(through_protobuf("scratch_eeprom", input), to_hex(bytes_field(2, hex("03"))));
    EXPECT_EQ(through_library("scratch_eeprom", input), "refused: malformed");
}

TEST(agreements, number_twice_keeps_the_last) {
    const Bytes input = message(number_field(2, 5), number_field(3, 1), number_field(2, 6), number_field(3, 0));
    const Bytes last = message(number_field(2, 6), number_field(3, 0));
    EXPECT_EQ(through_protobuf("req_inv_data_by_eid", input), to_hex(last));
    EXPECT_EQ(through_library("req_inv_data_by_eid", input), to_hex(last));
}

TEST(agreements, fields_arrive_in_any_order) {
    const Bytes input = message(number_field(3, 5), text_field(2, "b"), text_field(1, "a"));
    const Bytes ordered = message(text_field(1, "a"), text_field(2, "b"), number_field(3, 5));
    EXPECT_EQ(through_protobuf("inv_policy", input), to_hex(ordered));
    EXPECT_EQ(through_library("inv_policy", input), to_hex(ordered));
}

TEST(differences, string_ends_at_embedded_nul) {
    const Bytes input = text_field(1, std::string_view("ab\0cd", 5));
    EXPECT_EQ(through_protobuf("inv_policy", input), to_hex(input));
    EXPECT_EQ(through_library("inv_policy", input), to_hex(text_field(1, "ab")));

    // All of it arrives, but only C++ knows where it ends.
    const Decoded<vesk_inv_policy> policy(input);
    EXPECT_EQ(std::memcmp(policy->f1, "ab\0cd", 6), 0);
}

int lines_logged = 0;
void count_line(google::protobuf::LogLevel, const char*, int, const std::string&) { ++lines_logged; }

TEST(agreements, text_that_is_not_utf8_passes) {
    const Bytes input = text_field(1, "\xC0\xAF\xFF");
    EXPECT_EQ(through_library("inv_policy", input), to_hex(input));

    lines_logged = 0;
    const auto previous_handler = google::protobuf::SetLogHandler(count_line);
    EXPECT_EQ(through_protobuf("inv_policy", input), to_hex(input));
    google::protobuf::SetLogHandler(previous_handler);
#ifdef NDEBUG
    EXPECT_EQ(lines_logged, 0);
#else
    EXPECT_EQ(lines_logged, 2);  // for reading and for writing
#endif
}

TEST(differences, flag_is_read_from_32_bits) {
    const Bytes input = number_field(3, std::uint64_t{1} << 32);
    EXPECT_EQ(through_protobuf("req_inv_data_by_eid", input), to_hex(number_field(3, 1)));
    EXPECT_EQ(through_library("req_inv_data_by_eid", input), to_hex(number_field(3, 0)));
}

TEST(agreements, flag_of_any_number_is_1) {
    const Bytes input = number_field(3, 0x80);
    EXPECT_EQ(through_protobuf("req_inv_data_by_eid", input), to_hex(number_field(3, 1)));
    EXPECT_EQ(through_library("req_inv_data_by_eid", input), to_hex(number_field(3, 1)));
}

// ---- Reading: tags, lengths and numbers ----------------------------------------------------------------------------

TEST(differences, tag_of_more_than_5_bytes_is_read) {
    for (const std::size_t size : {6u, 10u, 11u}) {
        const Bytes input = message(over_long(3 << 3, size), varint(5));
        EXPECT_EQ(through_protobuf("inv_policy", input), "refused") << size;
        EXPECT_EQ(through_library("inv_policy", input), to_hex(number_field(3, 5))) << size;
    }
}

TEST(agreements, over_long_tag_of_up_to_5_bytes_is_read) {
    for (const std::size_t size : {2u, 3u, 4u, 5u}) {
        const Bytes input = message(over_long(3 << 3, size), varint(5));
        EXPECT_EQ(through_protobuf("inv_policy", input), to_hex(number_field(3, 5))) << size;
        EXPECT_EQ(through_library("inv_policy", input), to_hex(number_field(3, 5))) << size;
    }
    const Bytes above_32_bits = message(varint(std::uint64_t{7} << 32 | 3 << 3), varint(5));
    EXPECT_EQ(through_protobuf("inv_policy", above_32_bits), to_hex(number_field(3, 5)));
    EXPECT_EQ(through_library("inv_policy", above_32_bits), to_hex(number_field(3, 5)));
}

TEST(differences, length_of_more_than_5_bytes_is_read) {
    for (const std::size_t size : {6u, 10u, 11u}) {
        const Bytes input = message(tag(1, length_type), over_long(1, size), hex("61"));
        EXPECT_EQ(through_protobuf("inv_policy", input), "refused") << size;
        EXPECT_EQ(through_library("inv_policy", input), to_hex(text_field(1, "a"))) << size;
    }
}

TEST(agreements, over_long_length_of_up_to_5_bytes_is_read) {
    for (const std::size_t size : {2u, 3u, 4u, 5u}) {
        const Bytes input = message(tag(1, length_type), over_long(1, size), hex("61"));
        EXPECT_EQ(through_protobuf("inv_policy", input), to_hex(text_field(1, "a"))) << size;
        EXPECT_EQ(through_library("inv_policy", input), to_hex(text_field(1, "a"))) << size;
    }
}

TEST(differences, length_above_2_gib_keeps_its_low_32_bits) {
    const Bytes input = message(tag(1, length_type), varint(4 * gib + 1), hex("61"));
    EXPECT_EQ(through_protobuf("inv_policy", input), "refused");
    EXPECT_EQ(through_library("inv_policy", input), to_hex(text_field(1, "a")));
}

TEST(agreements, length_beyond_the_message_is_refused) {
    for (const std::uint64_t length : {std::uint64_t{2}, 2 * gib, 4 * gib - 1}) {
        const Bytes string = message(tag(1, length_type), varint(length), hex("61"));
        EXPECT_EQ(through_protobuf("inv_policy", string), "refused");
        EXPECT_EQ(through_library("inv_policy", string), "refused: malformed");
        // What follows the nested message does not count.
        const Bytes request = message(message_field(6, string), number_field(2, 5));
        EXPECT_EQ(through_protobuf("req_inv_data", request), "refused");
        EXPECT_EQ(through_library("req_inv_data", request), "refused: malformed");
    }
}

TEST(differences, number_of_more_than_10_bytes_is_read) {
    for (const std::uint32_t number : {4u, 7u}) {  // a uint32 and an unknown field
        const Bytes input = message(tag(number, varint_type), over_long(5, 11));
        EXPECT_EQ(through_protobuf("container_eid_nodeid_data", input), "refused") << number;
        EXPECT_EQ(through_library("container_eid_nodeid_data", input), number == 4 ? to_hex(number_field(4, 5)) : "");
    }
    const Bytes uint64 = message(tag(1, varint_type), over_long(5, 11));
    EXPECT_EQ(through_protobuf("clients_hdl_info", uint64), "refused");
    EXPECT_EQ(through_library("clients_hdl_info", uint64), to_hex(number_field(1, 5)));
    const Bytes flag = message(tag(3, varint_type), over_long(1, 11));
    EXPECT_EQ(through_protobuf("req_inv_data_by_eid", flag), "refused");
    EXPECT_EQ(through_library("req_inv_data_by_eid", flag), to_hex(number_field(3, 1)));
}

TEST(agreements, number_of_up_to_10_bytes_keeps_its_low_bits) {
    for (const std::size_t size : {5u, 6u, 10u}) {
        const Bytes input = message(tag(3, varint_type), over_long(5, size));
        EXPECT_EQ(through_protobuf("inv_policy", input), to_hex(number_field(3, 5))) << size;
        EXPECT_EQ(through_library("inv_policy", input), to_hex(number_field(3, 5))) << size;
    }
    const Bytes minus_two = number_field(3, 0xFFFFFFFFFFFFFFFE);
    EXPECT_EQ(through_protobuf("inv_policy", minus_two), to_hex(number_field(3, 0xFFFFFFFE)));
    EXPECT_EQ(through_library("inv_policy", minus_two), to_hex(number_field(3, 0xFFFFFFFE)));
    const Bytes above_64_bits = message(tag(1, varint_type), hex("FF FF FF FF FF FF FF FF FF 7F"));
    EXPECT_EQ(through_protobuf("clients_hdl_info", above_64_bits), to_hex(number_field(1, ~std::uint64_t{0})));
    EXPECT_EQ(through_library("clients_hdl_info", above_64_bits), to_hex(number_field(1, ~std::uint64_t{0})));
}

// ---- Reading: sizes and errors -------------------------------------------------------------------------------------

// Memory that reads as zeros and takes none: a page exists once it is written.
class Zeros {
public:
    explicit Zeros(std::uint64_t size)
        : size_(size),
          start_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
    ~Zeros() {
        if (is_there()) munmap(start_, size_);
    }
    Zeros(const Zeros&) = delete;
    Zeros& operator=(const Zeros&) = delete;

    bool is_there() const { return start_ != MAP_FAILED; }
    const std::uint8_t* get() const { return static_cast<const std::uint8_t*>(start_); }
    void write(std::uint64_t at, const Bytes& bytes) {
        std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(start_) + at);
    }

private:
    std::uint64_t size_;
    void* start_;
};

TEST(differences, field_of_2_gib_is_read) {
    // Protobuf's inputs have a size of type int, and its lengths end 16 bytes below the largest one.
    static_assert(std::is_same_v<decltype(&google::protobuf::MessageLite::ParseFromArray),
                                 bool (google::protobuf::MessageLite::*)(const void*, int)>);
    const std::uint64_t room = 2 * gib + 100;
    Zeros input(room);
    ASSERT_TRUE(input.is_there()) << "no address space";

    for (const std::uint64_t length : {2 * gib - 16, 2 * gib, 2 * gib + 50}) {
        const Bytes head = message(tag(2, length_type), varint(length));
        const Bytes tail = number_field(3, 5);
        const std::uint64_t size = head.size() + length + tail.size();
        input.write(0, head);
        input.write(head.size() + length, tail);
        if (size <= std::numeric_limits<int>::max()) {
            EXPECT_FALSE(new_message("scratch_eeprom")->ParseFromArray(input.get(), static_cast<int>(size)));
        }
        vesk_scratch_eeprom scratch;
        EXPECT_EQ(
            vesk_scratch_eeprom_decode_ext(&scratch, input.get(), size, nullptr, nullptr, VESK_BYTES_BY_REFERENCE),
            VESK_OK);
        EXPECT_EQ(scratch.f2, input.get() + head.size());
        EXPECT_EQ(scratch.f2_length, length);
        EXPECT_EQ(scratch.f3, 5u);
        input.write(head.size() + length, Bytes(tail.size()));
    }
}

int depth_of(const TypeInfo& type) {
    int deepest = 0;
    for (const FieldInfo& field : type.fields) {
        if (field.nested != nullptr) deepest = std::max(deepest, depth_of(*field.nested));
    }
    return deepest + 1;
}

TEST(agreements, nesting_stays_far_below_100_levels) {
    for (const TypeInfo* type : all_types()) EXPECT_LE(depth_of(*type), 10) << type->name;
}

TEST(differences, refusal_has_a_code_and_ends_the_reading) {
    const Bytes input = message(text_field(1, "a"), tag(2, length_type), varint(5), hex("62"));
    EXPECT_FALSE(new_message("inv_policy")->ParseFromArray(input.data(), static_cast<int>(input.size())));

    const Decoded<vesk_inv_policy> policy(input);
    EXPECT_EQ(policy.code, VESK_MALFORMED);
    EXPECT_STREQ(policy->f1, "a");
    EXPECT_EQ(policy->f2, nullptr);
}

// ---- Writing -------------------------------------------------------------------------------------------------------

TEST(differences, fields_are_written_in_declared_order) {
    vesk_memory_data memory{};
    memory.f6 = 5;
    memory.f4 = literal("DDR");
    VESK_MARK(&memory, VESK_MEMORY_DATA_F6);
    VESK_MARK(&memory, VESK_MEMORY_DATA_F4);
    const Bytes declared = message(number_field(6, 5), text_field(4, "DDR"));
    const Bytes by_number = message(text_field(4, "DDR"), number_field(6, 5));
    EXPECT_EQ(to_hex(encoded(memory)), to_hex(declared));
    EXPECT_EQ(through_protobuf("memory_data", declared), to_hex(by_number));
    EXPECT_EQ(through_library("memory_data", by_number), to_hex(declared));
}

TEST(agreements, every_other_type_is_declared_in_order_of_its_numbers) {
    for (const TypeInfo* type : all_types()) {
        const bool in_order =
            std::is_sorted(type->fields.begin(), type->fields.end(),
                           [](const FieldInfo& left, const FieldInfo& right) { return left.number < right.number; });
        EXPECT_EQ(in_order, type->name != "memory_data") << type->name;
    }
}

TEST(differences, value_without_its_bit_is_left_out) {
    vesk_inv_policy policy{};
    policy.f1 = literal("north");
    policy.f3 = 5;
    EXPECT_EQ(to_hex(encoded(policy)), "");

    const auto message = new_message("inv_policy");
    set_number(*message, "f3", 5);  // marks it present
    EXPECT_EQ(to_hex(serialized(*message)), to_hex(number_field(3, 5)));
}

TEST(differences, list_without_its_bit_is_left_out) {
    vesk_container_eid_nodeid_data elements[2] = {};
    vesk_resp_container_eid_nodeid response{};
    response.container_eid_nodeid_list = elements;
    response.container_eid_nodeid_list_count = 2;
    EXPECT_EQ(to_hex(encoded(response)), "");

    const auto message = new_message("resp_container_eid_nodeid");
    const auto* list = message->GetDescriptor()->FindFieldByName("container_eid_nodeid_list");
    for (int i = 0; i < 2; ++i) message->GetReflection()->AddMessage(message.get(), list);
    EXPECT_FALSE(list->has_presence());
    EXPECT_EQ(to_hex(serialized(*message)), "0a 00 0a 00");
}

TEST(agreements, empty_list_is_left_out) {
    vesk_resp_container_eid_nodeid response{};
    VESK_MARK(&response, VESK_RESP_CONTAINER_EID_NODEID_CONTAINER_EID_NODEID_LIST);
    EXPECT_EQ(to_hex(encoded(response)), "");
    EXPECT_EQ(to_hex(serialized(*new_message("resp_container_eid_nodeid"))), "");
}

TEST(differences, nested_message_with_content_needs_no_bit) {
    vesk_req_inv_data request{};
    request.policy.f3 = 5;
    VESK_MARK(&request.policy, VESK_INV_POLICY_F3);
    EXPECT_FALSE(VESK_HAS(&request, VESK_REQ_INV_DATA_POLICY));
    EXPECT_EQ(to_hex(encoded(request)), to_hex(message_field(6, number_field(3, 5))));

    // There is no such state in protobuf: reaching into a nested message marks it.
    const auto message = new_message("req_inv_data");
    nested(*message, "policy");
    EXPECT_EQ(to_hex(serialized(*message)), to_hex(message_field(6, Bytes())));
}

TEST(agreements, empty_nested_message_is_written_if_present) {
    vesk_req_inv_data request{};
    VESK_MARK(&request, VESK_REQ_INV_DATA_POLICY);
    EXPECT_EQ(to_hex(encoded(request)), to_hex(message_field(6, Bytes())));
    EXPECT_EQ(through_protobuf("req_inv_data", encoded(request)), to_hex(message_field(6, Bytes())));
}

TEST(differences, null_string_is_left_out) {
    vesk_inv_policy policy{};
    VESK_MARK(&policy, VESK_INV_POLICY_F1);
    EXPECT_EQ(to_hex(encoded(policy)), "");

    // Protobuf's strings are never null, and a present one is written.
    const auto message = new_message("inv_policy");
    set_text(*message, "f1", "");
    EXPECT_EQ(to_hex(serialized(*message)), to_hex(text_field(1, "")));
}

TEST(differences, flag_byte_is_written_as_it_is) {
    vesk_req_inv_data_by_eid request{};
    request.f3 = 200;
    VESK_MARK(&request, VESK_REQ_INV_DATA_BY_EID_F3);
    const Bytes written = encoded(request);
    EXPECT_EQ(to_hex(written), to_hex(number_field(3, 200)));
    EXPECT_EQ(through_protobuf("req_inv_data_by_eid", written), to_hex(number_field(3, 1)));
}

// All stretches of the list behind one another, as a gathering write sends them.
template <class T>
Bytes gathered(const T& message) {
    Bytes buffer(measured(message, VESK_BYTES_BY_REFERENCE));
    vesk_segment segments[16];
    std::uint32_t count = 16;
    Api<T>::encode(&message, buffer.data(), buffer.size(), segments, &count, VESK_BYTES_BY_REFERENCE);
    EXPECT_LE(count, 16u);
    Bytes bytes;
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto* data = static_cast<const std::uint8_t*>(segments[i].data);
        bytes.insert(bytes.end(), data, data + segments[i].length);
    }
    return bytes;
}

TEST(differences, segments_of_nested_messages_do_not_make_a_message) {
    Bytes image = hex("01 02 03");
    vesk_eeprom_data eeprom{};
    eeprom.f20 = data_of(image);
    eeprom.f20_length = image.size();
    VESK_MARK(&eeprom, VESK_EEPROM_DATA_F20);
    const Bytes alone = bytes_field(20, image);
    EXPECT_EQ(through_protobuf("eeprom_data", gathered(eeprom)), to_hex(alone));

    vesk_idprom_data idprom{};
    idprom.eeprom = eeprom;
    const Bytes whole = message_field(3, alone);
    EXPECT_EQ(to_hex(encoded(idprom)), to_hex(whole));
    EXPECT_EQ(through_protobuf("idprom_data", whole), to_hex(whole));
    EXPECT_EQ(through_protobuf("idprom_data", gathered(idprom)), "refused");
}

TEST(differences, message_of_2_gib_is_written) {
    vesk_scratch_eeprom scratch{};
    VESK_MARK(&scratch, VESK_SCRATCH_EEPROM_F2);
    scratch.f2 = unreadable<std::uint8_t>();
    scratch.f2_length = 2 * gib;
    EXPECT_EQ(measured(scratch), 1 + 5 + 2 * gib);
    // From 4 GiB on, the length that is written is too small, and nobody can read the message.
    scratch.f2_length = 4 * gib + 3;
    EXPECT_EQ(measured(scratch), 1 + 1 + 4 * gib + 3);
    EXPECT_EQ(to_hex(encode_into(scratch, 2).buffer), to_hex(message(tag(2, length_type), varint(3))));

    // The same element over and over, so that protobuf's message takes 16 MiB only.
    const auto response = new_message("resp_container_eid_nodeid");
    const auto element = new_message("container_eid_nodeid_data");
    set_text(*element, "f2", std::string(gib / 64, 'a'));
    const auto* list = response->GetDescriptor()->FindFieldByName("container_eid_nodeid_list");
    const auto& reflection = *response->GetReflection();
    for (int i = 0; i < 128; ++i) reflection.UnsafeArenaAddAllocatedMessage(response.get(), list, element.get());
    EXPECT_GT(response->ByteSizeLong(), 2 * gib);
    std::string bytes;
    EXPECT_FALSE(response->SerializeToString(&bytes));
    for (int i = 0; i < 128; ++i) reflection.UnsafeArenaReleaseLast(response.get(), list);
}

}  // namespace
}  // namespace vesk::test
