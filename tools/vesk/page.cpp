#include "tools/vesk/page.hpp"

#include <unordered_map>
#include <vector>

#include "tools/vesk/input.hpp"
#include "tools/vesk/page_text.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/spans.hpp"

namespace vesk::tool {
namespace {

// JSON inside a script element: no "</script" and no "<!--" may come of a string.
std::string script_json(std::string_view text) {
    std::string json;
    append_json(json, text);
    std::string escaped;
    for (const char character : json) {
        if (character == '<' || character == '>' || character == '&') {
            escaped += "\\u00" + hex_of(character);
        } else {
            escaped += character;
        }
    }
    return escaped;
}

// Strings that occur again and again, by number.
class Strings {
public:
    std::size_t number_of(const std::string& text) {
        const auto [place, is_new] = numbers_.emplace(text, numbers_.size());
        if (is_new) json_ += (json_.empty() ? "\"" : ",\"") + script_json(text) + "\"";
        return place->second;
    }
    const std::string& json() const { return json_; }

private:
    std::unordered_map<std::string, std::size_t> numbers_;
    std::string json_;
};

// Paths by number, each as the path that it goes on from and what it adds: a long list's take a few bytes each. Path 0
// is the message itself.
class Paths {
public:
    explicit Paths(Strings& strings) : strings_(strings), json_("0,0") { numbers_[""] = 0; }

    std::size_t number_of(const std::string& path) {
        if (const auto place = numbers_.find(path); place != numbers_.end()) return place->second;
        const std::size_t cut = path.find_last_of(".[");
        const std::size_t base = cut == std::string::npos ? 0 : number_of(path.substr(0, cut));
        const std::size_t number = numbers_.size();
        numbers_.emplace(path, number);
        json_ += "," + std::to_string(base) + "," +
                 std::to_string(strings_.number_of(cut == std::string::npos ? path : path.substr(cut)));
        return number;
    }
    const std::string& json() const { return json_; }

private:
    Strings& strings_;
    std::unordered_map<std::string, std::size_t> numbers_;
    std::string json_;
};

// What a span means, without the path if it ends with it: the page has that already.
std::string text_of(const Span& span) {
    const std::string of_path = " of " + std::string(span.path);
    const bool ends_with_it = span.role == Role::length && span.text.ends_with(of_path);
    return std::string(span.text.substr(0, span.text.size() - (ends_with_it ? of_path.size() : 0)));
}

void write_data(const vesk_type* type, const std::uint8_t* input, std::uint64_t length, const vesk_report& report,
                Output& output) {
    std::string bytes = in_form(std::string_view(reinterpret_cast<const char*>(input), length), Form::base64);
    bytes.pop_back();
    output.write(R"({"at":)" + (report.code == VESK_OK ? std::string("-1") : std::to_string(report.at)) +
                 R"(,"bytes":")" + bytes + R"(","spans":[)");
    Strings strings;
    Paths paths(strings);
    bool first = true;
    for_each_span(type, input, length, report, [&](const Span& span) {
        const std::uint64_t numbers[] = {span.to - span.from, static_cast<std::uint64_t>(span.role), span.depth,
                                         paths.number_of(std::string(span.path)), strings.number_of(text_of(span))};
        for (const std::uint64_t number : numbers) {
            output.write((first ? "" : ",") + std::to_string(number));
            first = false;
        }
    });
    output.write(R"(],"paths":[)" + paths.json() + R"(],"strings":[)" + strings.json() + "]}");
}

}  // namespace

void write_page(const vesk_type* type, const std::string& name, const std::uint8_t* input, std::uint64_t length,
                Output& output) {
    const vesk_report report = check(type, input, length);
    const bool good = report.code == VESK_OK;
    // The page's text has words between @ where something belongs; any other @ is its own.
    std::string_view rest = page_text;
    for (std::size_t at = rest.find('@'); at != std::string_view::npos; at = rest.find('@')) {
        const std::string_view word = rest.substr(at + 1, rest.find('@', at + 1) - at - 1);
        output.write(rest.substr(0, at));
        rest.remove_prefix(at + 1);
        if (word == "TITLE") {
            output.write(
                html_escape(quote_name(name) + ": " + std::to_string(length) + " bytes of " + vesk_type_name(type)));
        } else if (word == "STATE") {
            output.write(good ? "good" : "bad");
        } else if (word == "BADGE") {
            output.write(good ? "decodes" : "does not decode");
        } else if (word == "VERDICT") {
            output.write(good ? "" : html_escape(verdict(report)));
        } else if (word == "COST") {
            output.write(html_escape(cost(report)));
        } else if (word == "DATA") {
            write_data(type, input, length, report, output);
        } else {
            output.write("@");
            continue;
        }
        rest.remove_prefix(word.size() + 1);
    }
    output.write(rest);
}

}  // namespace vesk::tool
