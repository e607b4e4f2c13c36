// The command's map of messages of others: every byte belongs to one span, and it ends where the pre-flight does.
#include "tools/vesk/spans.hpp"

#include <gtest/gtest.h>

#include "tests/foreign_kinds/decoded.hpp"
#include "tests/foreign_kinds/random_fields.hpp"
#include "tests/foreign_kinds/type_info.hpp"
#include "tests/support/damage.hpp"
#include "tests/support/random_message.hpp"
#include "tools/vesk/pre_flight.hpp"

namespace vesk::test {
namespace {

void expect_whole_map(const Bytes& input) {
    const vesk_report report = tool::check(foreign_facts(0), input.data(), input.size());
    std::uint64_t at = 0;
    bool begins_at_the_error = false;
    bool refused = false;
    tool::for_each_span(foreign_facts(0), input.data(), input.size(), report, [&](const tool::Span& span) {
        EXPECT_EQ(span.from, at);
        EXPECT_LT(span.from, span.to);
        at = span.to;
        begins_at_the_error = begins_at_the_error || span.from == report.at;
        refused = refused || span.text.find(": refused") != std::string_view::npos;
        EXPECT_TRUE(report.code != VESK_OK || span.role != tool::Role::beyond);
    });
    EXPECT_EQ(at, input.size()) << to_hex(input);
    EXPECT_EQ(refused, report.code != VESK_OK) << to_hex(input);
    EXPECT_TRUE(report.code == VESK_OK || begins_at_the_error) << to_hex(input);
    std::uint64_t latest = 0;
    tool::for_each_difference(foreign_facts(0), input.data(), input.size(), report,
                              [&](const tool::Difference& difference) {
                                  EXPECT_LE(latest, difference.at);
                                  latest = difference.at;
                              });
    EXPECT_LE(latest, input.size());
}

TEST(foreign_spans, random_and_damaged_bytes_are_covered_once_up_to_where_decoding_stops) {
    for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        const Bytes whole = encoded(RandomMessage(*foreign_infos()[0], seed, Amount::wild).get());
        expect_whole_map(whole);
        expect_whole_map(damage(whole, random));
        expect_whole_map(random_fields(foreign_facts(0), random));
        if (HasFailure()) return;
    }
}

}  // namespace
}  // namespace vesk::test
