// Which of the types these bytes can be.
#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <tuple>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/inputs.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/spans.hpp"

namespace vesk::tool {
namespace {

// How well a type fits: the smaller, the better, the first that differs deciding.
struct Fit {
    const vesk_type* type;
    std::uint64_t unknown_bytes;
    std::uint64_t disorder;  // fields out of the order of their declaration, which an encoder of ours never makes
    std::uint64_t odd;  // values that a field of its kind seldom has: a flag of two bytes, a string with control bytes
    std::uint64_t unused;  // fields of the type that do not occur
    std::uint64_t fields;

    auto rank() const { return std::tuple(unknown_bytes, disorder, odd, unused); }
};

struct Reader {
    const std::uint8_t* input;
    Fit& fit;

    // Top down, with the fields' places; nested messages are asked for the same.
    void read(const vesk_type* type, std::uint64_t at, std::uint64_t end, bool outermost) {
        std::uint32_t last = 0;
        std::uint64_t seen = 0;
        while (at < end) {
            std::uint64_t tag;
            at = varint(at, end, &tag);
            const vesk_field* const field = vesk_type_field_numbered(type, static_cast<std::uint32_t>(tag) >> 3);
            if (field == nullptr || field->tag != static_cast<std::uint32_t>(tag)) {
                at = skip(at, end, tag & 7);
                continue;
            }
            ++fit.fields;
            const std::uint32_t place = field->presence_bit + 1u;
            if (place < last || (place == last && field->kind != VESK_KIND_LIST)) ++fit.disorder;
            last = place;
            seen |= std::uint64_t{1} << field->presence_bit;
            at = read_field(field, at, end);
        }
        if (outermost) {
            fit.unused = type->field_count - static_cast<std::uint64_t>(__builtin_popcountll(seen));
        }
    }

    std::uint64_t read_field(const vesk_field* field, std::uint64_t at, std::uint64_t end) {
        std::uint64_t value;
        const std::uint64_t begin = at;
        at = varint(at, end, &value);
        if (field->kind <= VESK_KIND_BOOL) {
            const std::uint64_t size = at - begin;
            if (field->kind == VESK_KIND_BOOL && (size > 1 || value > 1)) ++fit.odd;
            if (field->kind == VESK_KIND_UINT32 && size > 5) ++fit.odd;
            return at;
        }
        const std::uint64_t to = at + std::min<std::uint64_t>(static_cast<std::uint32_t>(value), end - at);
        if (field->kind == VESK_KIND_STRING) {
            fit.odd += is_odd_text({reinterpret_cast<const char*>(input) + at, static_cast<std::size_t>(to - at)});
        } else if (field->kind != VESK_KIND_BYTES) {
            const vesk_type* const nested = describe(vesk_field_nested(field));
            if (nested != nullptr) read(nested, at, to, false);
        }
        return to;
    }

    static bool is_odd_text(std::string_view text) {
        return std::any_of(text.begin(), text.end(), [](char character) {
            return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
        });
    }

    std::uint64_t varint(std::uint64_t at, std::uint64_t end, std::uint64_t* value) const {
        *value = 0;
        for (unsigned shift = 0; at < end; shift += 7) {
            const std::uint8_t byte = input[at++];
            if (shift < 64) *value |= std::uint64_t{byte & 0x7Fu} << shift;
            if (byte < 0x80) break;
        }
        return at;
    }

    std::uint64_t skip(std::uint64_t at, std::uint64_t end, std::uint64_t wire_type) const {
        std::uint64_t value;
        switch (wire_type) {
            case 0: return varint(at, end, &value);
            case 1: return std::min(end, at + 8);
            case 5: return std::min(end, at + 4);
            default:
                at = varint(at, end, &value);
                return at + std::min<std::uint64_t>(static_cast<std::uint32_t>(value), end - at);
        }
    }
};

std::string reason(const Fit& fit) {
    std::string text = std::to_string(fit.fields) + " fields";
    text += fit.unknown_bytes == 0 ? ", none unknown" : ", " + std::to_string(fit.unknown_bytes) + " bytes unknown";
    text += fit.disorder == 0 ? ", in declaration order" : ", " + std::to_string(fit.disorder) + " out of order";
    if (fit.odd != 0) text += ", " + std::to_string(fit.odd) + " odd values";
    if (fit.unused != 0) text += ", " + std::to_string(fit.unused) + " fields of the type not used";
    return text;
}

}  // namespace

int guess_type(const Request& request) {
    const Input input(request.files.front(), request.form);
    std::vector<Fit> fits;
    for (const vesk_type* type : all_types()) {
        const vesk_report report = check(type, input.data(), input.size());
        if (report.code != VESK_OK) continue;
        Fit fit{type, report.unknown_bytes, 0, 0, 0, 0};
        Reader{input.data(), fit}.read(type, 0, input.size(), true);
        if (report.unknown_bytes < input.size() || input.size() == 0) fits.push_back(fit);
    }
    std::stable_sort(fits.begin(), fits.end(),
                     [](const Fit& one, const Fit& other) { return one.rank() < other.rank(); });
    Output output;
    if (request.json) {
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (const Fit& fit : fits) all.push_back({{"type", vesk_type_name(fit.type)}, {"reason", reason(fit)}});
        output.write(all.dump(2) + "\n");
    } else {
        for (const Fit& fit : fits) output.write(std::string(vesk_type_name(fit.type)) + ": " + reason(fit) + "\n");
        if (fits.empty()) output.write("none of the types reads these bytes\n");
    }
    output.close();
    return status_ok;
}

}  // namespace vesk::tool
