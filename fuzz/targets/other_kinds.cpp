// Messages with every kind that others' messages have: the runtime's templates against the interpreter of
// tests/support, and what vesk_check says of the bytes against their decode.
#include <vesk/vesk_toolkit.h>

#include "fuzz/implementations.hpp"
#include "fuzz/pool.hpp"
#include "tests/foreign_kinds/messages.hpp"
#include "tests/foreign_kinds/type_info.hpp"

namespace vesk::fuzz {
namespace {

void check_pre_flight(const Input& input, const vesk_type* facts) {
    static Pool structures;
    static Pool pool;
    structures.reset();
    pool.reset();
    const TypeInfo& type = *input.type;
    std::uint8_t* const message = structures.take(type.size);
    const std::int32_t code = type.decode(message, input.message, input.length, Pool::alloc, &pool, input.flags);
    if (pool.refusals() != 0) return;  // more than the pool has
    vesk_report report;
    report.size = sizeof report;
    expect(vesk_check(facts, input.message, input.length, input.flags, &report, nullptr) == code,
           "decode returns another code");
    expect(report.cost.blocks == pool.blocks().size(), "decode asks for other blocks");
    type.free(message, Pool::release, &pool, input.flags);
    expect(report.lost_blocks == pool.blocks_out(), "another number of blocks is lost");
}

}  // namespace

const std::vector<const TypeInfo*>& target_types() { return test::foreign_infos(); }

void check(const Input& input) {
    const std::size_t place = input.type == target_types()[0] ? 0 : 1;
    hold_against_interpreter(input, test::foreign_table(place));
    check_pre_flight(input, test::foreign_facts(place));
}

}  // namespace vesk::fuzz
