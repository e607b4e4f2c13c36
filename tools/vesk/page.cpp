#include "tools/vesk/page.hpp"

#include <map>

#include "tools/vesk/input.hpp"
#include "tools/vesk/page_text.hpp"
#include "tools/vesk/spans.hpp"

namespace vesk::tool {
namespace {

// JSON inside a script element: no "</script" and no "<!--" may come of a string.
std::string script_json(std::string_view text) {
    std::string escaped;
    for (const char character : json_escape(text)) {
        if (character == '<' || character == '>' || character == '&') {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\u%04x", static_cast<unsigned>(character));
            escaped += hex;
        } else {
            escaped += character;
        }
    }
    return escaped;
}

void write_data(const vesk_type* type, const std::uint8_t* input, std::uint64_t length, const vesk_report& report,
                Output& output) {
    std::string bytes = in_form({reinterpret_cast<const char*>(input), length}, Form::base64);
    bytes.pop_back();
    output.write("{\"at\":" + (report.code == VESK_OK ? std::string("-1") : std::to_string(report.at)) +
                 ",\"bytes\":\"" + bytes + "\",\"spans\":[");
    // A path is said once.
    std::map<std::string, std::size_t> places;
    std::string paths;
    bool first = true;
    for_each_span(type, input, length, report, [&](const Span& span) {
        const auto [place, is_new] = places.emplace(span.path, places.size());
        if (is_new) paths += (paths.empty() ? "\"" : ",\"") + script_json(span.path) + "\"";
        output.write((first ? "[" : ",[") + std::to_string(span.from) + "," +
                     std::to_string(static_cast<int>(span.role)) + "," + std::to_string(span.depth) + "," +
                     std::to_string(place->second) + ",\"" + script_json(span.text) + "\"]");
        first = false;
    });
    output.write("],\"paths\":[" + paths + "]}");
}

}  // namespace

void write_page(const vesk_type* type, const std::string& name, const std::uint8_t* input, std::uint64_t length,
                Output& output) {
    const vesk_report report = check(type, input, length);
    std::string_view rest = page_text;
    while (true) {
        const std::size_t begin = rest.find('@');
        const std::size_t end = rest.find('@', begin + 1);
        if (end == std::string_view::npos) break;
        const std::string_view word = rest.substr(begin + 1, end - begin - 1);
        output.write(rest.substr(0, begin));
        if (word == "TITLE") {
            output.write(
                html_escape(quote_name(name) + ": " + std::to_string(length) + " bytes of " + vesk_type_name(type)));
        } else if (word == "VERDICT") {
            output.write(html_escape(verdict(report) + "; decoding asks for " + cost(report)));
        } else if (word == "DATA") {
            write_data(type, input, length, report, output);
        } else {  // a character of the page's own
            output.write(rest.substr(begin, 1));
            rest.remove_prefix(begin + 1);
            continue;
        }
        rest.remove_prefix(end + 1);
    }
    output.write(rest);
}

}  // namespace vesk::tool
