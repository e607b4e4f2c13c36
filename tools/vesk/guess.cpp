#include "tools/vesk/guess.hpp"

#include <algorithm>
#include <bit>
#include <nlohmann/json.hpp>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/input.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/progress.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/types.hpp"
#include "tools/vesk/varint.hpp"

namespace vesk::tool {
namespace {

// What a type leaves to be said once it is known, in eighths of a bit: the fewer, the more the type explains. Rounded
// up to bytes it is the score of a reason. A tag that is next in the declaration costs next to nothing, a flag a bit,
// what a sender of ours would never write a lot.
namespace cost {
constexpr std::uint64_t bit = 8;
constexpr std::uint64_t byte = 8 * bit;
constexpr std::uint64_t field_of_a_type = bit;  // whether it is there
constexpr std::uint64_t element = 2 * bit;      // that a list goes on
constexpr std::uint64_t byte_of_text = 7 * bit;
constexpr std::uint64_t odd_text = 2 * bit;  // rather bytes, if nothing else tells
constexpr std::uint64_t unknown_byte = 2 * byte;
constexpr std::uint64_t unlikely = 24 * bit;
}  // namespace cost

// How a type reads the bytes.
struct Fit {
    const vesk_type* type;
    std::uint64_t unknown_bytes = 0;
    std::uint64_t fields = 0;
    std::uint64_t disorder = 0;  // fields out of the order of their declaration, which an encoder of ours never makes
    std::uint64_t odd = 0;       // values that a field of its kind seldom has: a flag of 2, a string with control bytes
    std::uint64_t unused = 0;    // fields of the type that do not occur
    std::uint64_t left = 0;      // to be said, see cost
};

// Reads bytes that are known to decode.
class Reader {
public:
    Reader(const std::uint8_t* input, Fit& fit) : input_(input), fit_(fit) {}

    void read_outermost(std::uint64_t length) {
        fit_.unused = fit_.type->field_count - read_message(fit_.type, 0, length);
        fit_.left += fit_.unknown_bytes * cost::unknown_byte;
    }

private:
    // Returns how many of the type's fields occur.
    std::uint64_t read_message(const vesk_type* type, std::uint64_t at, std::uint64_t end) {
        fit_.left += type->field_count * cost::field_of_a_type;
        std::uint64_t occurred = 0;
        const vesk_field* last = nullptr;
        while (at < end) {
            const Varint tag = read(at, end);
            const vesk_field* const field = vesk_type_field_numbered(type, tag.number());
            if (field == nullptr) {
                at = skip(tag, end);
                fit_.left += cost::unlikely;
                continue;
            }
            ++fit_.fields;
            occurred |= std::uint64_t{1} << field->presence_bit;
            if (field == last && has_count(field)) {
                fit_.left += cost::element;
            } else if (last != nullptr && field->presence_bit <= last->presence_bit) {
                ++fit_.disorder;
                fit_.left += cost::unlikely;
            }
            if (!takes_tag(field, static_cast<std::uint32_t>(tag.value)))
                note_odd();  // an element that is read all the same
            last = field;
            at = !is_scalar_kind(kind_of_values(field)) ? read_content(field, tag.to, end)
                 : tag.wire_type() == length_type       ? read_packed(field, tag.to, end)
                                                        : read_scalar(field, tag.to, end);
        }
        return static_cast<std::uint64_t>(std::popcount(occurred));
    }

    std::uint64_t read_scalar(const vesk_field* field, std::uint64_t at, std::uint64_t end) {
        const std::uint16_t kind = kind_of_values(field);
        if (const std::uint32_t size = fixed_size(kind); size != 0) {
            fit_.left += size * cost::byte;
            return at + size;
        }
        const Varint number = read(at, end);
        if (is_odd(kind, number.value)) note_odd();
        const bool is_flag = kind == VESK_KIND_BOOL && number.value <= 1;
        fit_.left += is_flag ? cost::bit : (number.to - at) * cost::byte;
        return number.to;
    }

    // What an encoder of this kind never writes.
    static bool is_odd(std::uint16_t kind, std::uint64_t wire) {
        switch (kind) {
            case VESK_KIND_BOOL: return wire > 1;
            case VESK_KIND_UINT32:
            case VESK_KIND_SINT32: return wire > UINT32_MAX;
            case VESK_KIND_INT32:
            case VESK_KIND_ENUM: return wire > INT32_MAX && wire < ~std::uint64_t{INT32_MAX};
            default: return false;
        }
    }

    std::uint64_t read_packed(const vesk_field* field, std::uint64_t at, std::uint64_t end) {
        const Varint length = read(at, end);
        const std::uint64_t to = length.to + length.length();
        fit_.left += (length.to - at) * cost::byte;
        for (at = length.to; at < to;) at = read_scalar(field, at, to);
        return to;
    }

    std::uint64_t read_content(const vesk_field* field, std::uint64_t at, std::uint64_t end) {
        const Varint length = read(at, end);
        const std::uint64_t to = length.to + length.length();
        const std::string_view bytes(reinterpret_cast<const char*>(input_) + length.to, to - length.to);
        if (kind_of_values(field) == VESK_KIND_BYTES) {
            fit_.left += (to - at) * cost::byte;
        } else if (kind_of_values(field) == VESK_KIND_STRING) {
            fit_.left += (length.to - at) * cost::byte;
            read_text(bytes);
        } else if (const vesk_type* const nested = describe(vesk_field_nested(field))) {
            read_message(nested, length.to, to);
        }
        return to;
    }

    void read_text(std::string_view text) {
        const bool is_odd = quote(text, text.size()).size() != text.size() + 2;
        fit_.left += text.size() * (is_odd ? cost::byte : cost::byte_of_text);
        if (is_odd) {
            ++fit_.odd;
            fit_.left += cost::odd_text;
        }
        if (text.find('\0') != std::string_view::npos) fit_.left += cost::unlikely;
    }

    void note_odd() {
        ++fit_.odd;
        fit_.left += cost::unlikely;
    }

    Varint read(std::uint64_t at, std::uint64_t end) const { return read_varint(input_, at, end); }

    std::uint64_t skip(const Varint& tag, std::uint64_t end) const {
        const Varint number = read(tag.to, end);  // or a length
        switch (tag.wire_type()) {
            case varint_type: return number.to;
            case fixed64_type: return tag.to + std::min<std::uint64_t>(8, end - tag.to);
            case fixed32_type: return tag.to + std::min<std::uint64_t>(4, end - tag.to);
            default: return number.reaches_past(end) ? end : number.to + number.length();
        }
    }

    const std::uint8_t* input_;
    Fit& fit_;
};

std::string reason_of(const Fit& fit) {
    std::string text = counted(fit.fields, "field");
    text += fit.unknown_bytes == 0 ? ", none unknown" : ", " + counted(fit.unknown_bytes, "byte") + " unknown";
    text += fit.disorder == 0 ? ", in declaration order" : ", " + std::to_string(fit.disorder) + " out of order";
    if (fit.odd != 0) text += ", " + counted(fit.odd, "odd value");
    if (fit.unused != 0) text += ", " + counted(fit.unused, "field") + " of the type not used";
    return text + ", score " + std::to_string((fit.left + cost::byte - 1) / cost::byte);
}

}  // namespace

std::vector<Guess> guess(const std::uint8_t* input, std::uint64_t length) {
    std::vector<Fit> fits;
    for (const vesk_type* type : all_types()) {
        const vesk_report report = check(type, input, length);
        if (report.code != VESK_OK || (report.unknown_bytes == length && length != 0)) continue;
        Fit fit{type, report.unknown_bytes};
        Reader(input, fit).read_outermost(length);
        fits.push_back(fit);
    }
    std::stable_sort(fits.begin(), fits.end(), [](const Fit& one, const Fit& other) { return one.left < other.left; });
    std::vector<Guess> guesses;
    guesses.reserve(fits.size());
    for (const Fit& fit : fits) guesses.push_back({fit.type, reason_of(fit)});
    return guesses;
}

int guess_type(const Request& request) {
    const Progress progress(0);
    const Input input(request.files.front(), request.form);
    const std::vector<Guess> guesses = guess(input.data(), input.size());
    Output output;
    if (request.json) {
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (const Guess& one : guesses) all.push_back({{"type", vesk_type_name(one.type)}, {"reason", one.reason}});
        output.write(all.dump(2) + "\n");
    } else {
        for (const Guess& one : guesses) output.write(std::string(vesk_type_name(one.type)) + ": " + one.reason + "\n");
        if (guesses.empty()) output.write("none of the types reads these bytes\n");
    }
    output.close();
    return status_ok;
}

}  // namespace vesk::tool
