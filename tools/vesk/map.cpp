// The byte map, on a terminal, as JSON and as a page.
#include <cstdio>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/inputs.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/page.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/spans.hpp"

namespace vesk::tool {
namespace {

constexpr std::uint64_t bytes_in_a_line = 8;

// The first bytes of a span, "0a 2c".
std::string first_bytes(const std::uint8_t* input, const Span& span) {
    std::string hex;
    for (std::uint64_t at = span.from; at < span.to && at - span.from < bytes_in_a_line; ++at) {
        hex += hex_of(static_cast<char>(input[at])) + " ";
    }
    if (span.to - span.from > bytes_in_a_line) {
        hex += "..";
    } else {
        hex.pop_back();
    }
    return hex;
}

// The roles' colours are in the order of the roles.
static_assert(static_cast<int>(Ink::beyond) == static_cast<int>(Role::beyond));
Ink ink_of(const Span& span, const vesk_report& report) {
    const bool refused = report.code != VESK_OK && span.from == report.at;
    return refused ? Ink::bad : static_cast<Ink>(span.role);
}

void print_span(Output& output, const std::uint8_t* input, const Span& span, Ink ink) {
    char offset[32];
    std::snprintf(offset, sizeof offset, "%8llu  ", static_cast<unsigned long long>(span.from));
    std::string line = offset;
    std::string hex = first_bytes(input, span);
    hex.resize(std::max<std::size_t>(hex.size(), 3 * bytes_in_a_line + 4), ' ');
    line.append(output.in(ink, hex)).append(2 * std::size_t{span.depth}, ' ').append(span.text);
    if (span.role == Role::tag && !span.path.empty()) line.append("  (").append(span.path).append(")");
    output.write(line.append("\n"));
}

// Names and indices need no escape in a path.
void append_span(std::string& json, const Span& span) {
    json.append(R"({"from":)").append(std::to_string(span.from)).append(R"(,"to":)").append(std::to_string(span.to));
    json.append(R"(,"role":")").append(name_of(span.role)).append(R"(","path":")").append(span.path);
    json.append(R"(","text":")");
    append_json(json, span.text);
    json.append(R"("})");
}

void map_to_terminal(const Subject& subject, const vesk_report& report, Output& output) {
    for_each_span(subject.type, subject.data, subject.length, report, [&](const Span& span) {
        subject.at(span.from);
        print_span(output, subject.data, span, ink_of(span, report));
    });
    output.write("\n" + quote_name(subject.name) + ": " + counted(subject.length, "byte") + " of " +
                 vesk_type_name(subject.type) + ": " +
                 output.in(report.code == VESK_OK ? Ink::good : Ink::bad, verdict(report)) + "\nDecoding asks for " +
                 cost(report) + ".\n");
}

void map_to_json(const Subject& subject, const vesk_report& report, Output& output) {
    output.write("[");
    std::string line;
    for_each_span(subject.type, subject.data, subject.length, report, [&](const Span& span) {
        subject.at(span.from);
        line = span.from == 0 ? "" : ",\n";
        append_span(line, span);
        output.write(line);
    });
    output.write("]\n");
}

}  // namespace

int map_file(const Request& request) {
    if (!request.html.empty()) {
        Output page = request.html == "-" ? Output() : Output(request.html);
        const int status = for_each_subject(request, [&](const Subject& subject) {
            write_page(subject.type, subject.name, subject.data, subject.length, page);
            return status_ok;
        });
        if (status == status_ok) page.close();
        return status;
    }
    Output output;
    const int status = for_each_subject(request, [&](const Subject& subject) {
        const vesk_report report = check(subject.type, subject.data, subject.length);
        (request.json ? map_to_json : map_to_terminal)(subject, report, output);
        return status_ok;
    });
    output.close();
    return status;
}

}  // namespace vesk::tool
