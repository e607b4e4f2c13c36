// Any bytes, looked at before they are decoded: the code, the requests and what is lost are those of the decode, the
// place of an error lies in the input, an arena of the size that is named has room, and peek finds what decoding
// leaves.
#include <vesk/vesk_toolkit.h>

#include <algorithm>
#include <cstring>

#include "fuzz/fields.hpp"
#include "fuzz/input.hpp"
#include "fuzz/messages.hpp"

namespace vesk::fuzz {
namespace {

void check_cost(const vesk_report& report, const Pool& pool) {
    vesk_cost cost{};
    for (const test::Request& request : pool.history()) {
        cost.bytes += request.size;
        cost.blocks += 1;
        cost.largest = std::max(cost.largest, request.size);
    }
    expect(report.cost.bytes == cost.bytes, "decode asks for other bytes");
    expect(report.cost.blocks == cost.blocks, "decode asks for other blocks");
    expect(report.cost.largest == cost.largest, "decode's largest request is another");
}

void check_place(const Input& input, const vesk_report& report) {
    expect(report.at <= input.length, "the place lies outside the input");
    expect(report.code == VESK_OK || report.at < input.length, "an error has no tag");
    expect(report.code != VESK_OK || (report.at == input.length && report.path[0] == '\0'), "no error has a place");
    expect(report.unknown_bytes <= input.length, "there are more unknown bytes than bytes");
}

// The scalars of the outermost message, from the bytes and from the structure.
void check_peek(const Input& input, const vesk_type* type, const void* message) {
    for (std::size_t index = 0; index < input.type->fields.size(); ++index) {
        const FieldInfo& field = input.type->fields[index];
        const char* const name = vesk_field_name(vesk_type_field(type, static_cast<std::uint32_t>(index)));
        vesk_value value;
        value.size = sizeof value;
        const std::int32_t code = vesk_peek(type, name, input.message, input.length, &value, nullptr);
        expect((code == VESK_OK) == test::is_present(*input.type, message, index), "peek finds another presence");
        expect(code == VESK_OK || code == VESK_ABSENT, "peek fails where decode does not");
        if (code == VESK_OK && is_number(field)) {
            expect(value.number == number_of(field, message), "peek finds another number");
        }
    }
}

}  // namespace

void check(const Input& input) {
    static Pool structures;
    static Pool pool;
    structures.reset();
    pool.reset();
    const TypeInfo& type = *input.type;
    const vesk_type* const facts = vesk_type_named(type.name.c_str());
    std::uint8_t* const message = structures.take(type.size);
    vesk_report report;
    report.size = sizeof report;
    const std::int32_t code = vesk_check(facts, input.message, input.length, input.flags, &report, nullptr);
    expect(code == report.code, "the result is not the report's code");
    check_place(input, report);

    const std::int32_t decoded = type.decode(message, input.message, input.length, Pool::alloc, &pool, input.flags);
    if (pool.refusals() != 0) return;  // more than the pool has
    expect(code == decoded, "decode returns another code");
    check_cost(report, pool);
    if (code == VESK_OK && input.flags == 0) check_peek(input, facts, message);
    type.free(message, Pool::release, &pool, input.flags);
    expect(report.lost_blocks == pool.blocks_out(), "another number of blocks is lost");

    std::uint8_t* const buffer = structures.take(report.arena_size + 1);
    vesk_arena arena;
    vesk_arena_of_buffer(&arena, buffer + input.room % 2, report.arena_size);
    expect(type.decode(message, input.message, input.length, vesk_arena_alloc, &arena, input.flags) == code,
           "an arena of the size that was named has no room");
    vesk_arena_close(&arena);
}

}  // namespace vesk::fuzz
