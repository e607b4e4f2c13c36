// Any bytes, mapped and guessed: the spans of the map cover each byte once and in order, the refused tag is the one
// that decode objects to, the places where another parser differs lie in the input, and a type that is guessed decodes.
#include <algorithm>

#include "fuzz/input.hpp"
#include "fuzz/pool.hpp"
#include "tools/vesk/guess.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/spans.hpp"

namespace vesk::fuzz {
namespace {

std::int32_t decode(const Input& input) {
    static Pool structures;
    static Pool blocks;
    structures.reset();
    blocks.reset();
    return input.type->decode(structures.take(input.type->size), input.message, input.length, Pool::alloc, &blocks, 0);
}

void check_map(const Input& input, const vesk_type* type, const vesk_report& report) {
    std::uint64_t at = 0;
    bool refused = false;
    bool beyond = false;
    tool::for_each_span(type, input.message, input.length, report, [&](const tool::Span& span) {
        expect(span.from == at && span.to > span.from && span.to <= input.length, "a span is not the next one");
        expect(refused == (span.role == tool::Role::beyond), "what is beyond does not follow the refused tag");
        expect(!beyond, "a span follows what is beyond");
        beyond = refused;
        refused = report.code != VESK_OK && span.from == report.at;
        expect(!refused || (span.role == tool::Role::tag && span.path == report.path), "the refused tag is none");
        expect(std::all_of(span.text.begin(), span.text.end(), [](char text) { return text < 0 || text >= 0x20; }),
               "a control character is not escaped");
        at = span.to;
    });
    expect(at == input.length, "the spans end too early");
    expect((refused || beyond) == (report.code != VESK_OK), "the map stops elsewhere than decode");
}

void check_differences(const Input& input, const vesk_type* type, const vesk_report& report) {
    std::uint64_t at = 0;
    tool::for_each_difference(type, input.message, input.length, report, [&](const tool::Difference& difference) {
        expect(difference.at >= at && difference.at < input.length, "a difference is out of order");
        at = difference.at;
    });
}

void check_guesses(const Input& input, const vesk_type* type, const vesk_report& report) {
    const std::vector<tool::Guess> guesses = tool::guess(input.message, input.length);
    const auto is_own = [&](const tool::Guess& guess) { return guess.type == type; };
    const bool knows_a_field = input.length == 0 || report.unknown_bytes < input.length;
    expect(std::any_of(guesses.begin(), guesses.end(), is_own) == (report.code == VESK_OK && knows_a_field),
           "a type is guessed that does not read the bytes, or is not that does");
}

}  // namespace

void check(const Input& input) {
    const vesk_type* const type = vesk_type_named(input.type->name.c_str());
    const vesk_report report = tool::check(type, input.message, input.length);
    expect(report.code == decode(input), "the verdict is not decode's");
    check_map(input, type, report);
    check_differences(input, type, report);
    // Every type is tried on the bytes, which takes longer than all of the above: of sixteen lengths one is guessed at.
    // Of the header most inputs keep the seeds' zeros.
    if (input.length % 16 == 0) check_guesses(input, type, report);
}

}  // namespace vesk::fuzz
