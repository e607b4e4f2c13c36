// JSON and the text format beside libprotobuf's json_util and TextFormat, and the reader under the JSON parser beside
// others, all on the main answer. They take turns, a call each, in an order that is drawn anew for each round, and what
// is printed is the median of the ratios within the rounds: how much longer the other one takes.
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>
#include <rapidjson/reader.h>
#include <simdjson.h>
#include <vesk/vesk_text.h>
#include <yajl/yajl_parse.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>

#include "bench/workloads.hpp"
#include "client_service.pb.h"

namespace vesk::bench {
namespace {

namespace pb = google::protobuf;
using protobuf_cpp_peer::resp_inv_data;

constexpr int rounds = 101;

struct Entry {
    std::string name;
    std::function<bool()> run;  // false if the call failed
    std::vector<double> seconds;
};

// Time that this thread had a processor: other programs on the machine do not count.
double now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The first entry is what the others are compared with.
void compare(const std::string& title, std::vector<Entry> entries) {
    std::mt19937 random(static_cast<unsigned>(entries.size()));
    std::vector<std::size_t> order(entries.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    for (int round = -1; round < rounds; ++round) {
        std::shuffle(order.begin(), order.end(), random);
        for (const std::size_t i : order) {
            const double start = now();
            if (!entries[i].run()) throw std::runtime_error(entries[i].name + " failed");
            if (round >= 0) entries[i].seconds.push_back(now() - start);  // the first one warms up
        }
    }
    std::printf("%s\n", title.c_str());
    for (const Entry& entry : entries) {
        std::vector<double> ratios;
        for (std::size_t i = 0; i < entry.seconds.size(); ++i) {
            ratios.push_back(entry.seconds[i] / entries.front().seconds[i]);
        }
        std::printf("    %-42s %6.2f   (%.3f ms)\n", entry.name.c_str(), median(ratios), 1000 * median(entry.seconds));
    }
}

// ---- The library and protobuf --------------------------------------------------------------------------------------

struct Answer {
    const Workload& workload;
    const vesk_type* type;
    resp_inv_data theirs;
    std::string json;  // one line, as json_util prints it
    std::string text;
    std::string printed;  // what was printed last; keeps its memory

    explicit Answer(const Workload& main_answer)
        : workload(main_answer), type(vesk_type_named(main_answer.type->name.c_str())) {
        const Bytes& bytes = main_answer.encoded[0];
        if (!theirs.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
            throw std::runtime_error("protobuf refuses the main answer");
        }
        if (!print_json() || !pb::TextFormat::PrintToString(theirs, &text)) {
            throw std::runtime_error("protobuf does not print the main answer");
        }
        json = printed;
    }

    bool print_json() {
        pb::util::JsonPrintOptions options;
        options.preserve_proto_field_names = true;
        printed.clear();
        return pb::util::MessageToJsonString(theirs, &printed, options).ok();
    }
};

std::int32_t append(const char* text, std::size_t length, void* context) {
    static_cast<std::string*>(context)->append(text, length);
    return 0;
}

void* from_heap(std::uint64_t size, void*) { return std::malloc(size != 0 ? size : 1); }
void to_heap(void* block, void*) { std::free(block); }

vesk_text_options in_one_line() {
    vesk_text_options options = vesk_default_text_options();
    options.flags = VESK_TEXT_ONE_LINE;
    return options;
}

using Parse = decltype(&vesk_json_parse);

bool parse(const Answer& answer, Parse call, const std::string& text) {
    test::Storage message(*answer.workload.type);
    const bool ok =
        call(answer.type, message.get(), text.data(), text.size(), from_heap, nullptr, nullptr, nullptr) == VESK_OK;
    answer.workload.type->free(message.get(), to_heap, nullptr, 0);
    return ok;
}

void compare_printing(Answer& answer) {
    static const vesk_text_options one_line = in_one_line();
    const void* const message = answer.workload.messages[0].get();
    const Bytes& bytes = answer.workload.encoded[0];
    std::string& out = answer.printed;
    compare("JSON printed from a message",
            {{"vesk_json_print",
              [&] { return out.clear(), vesk_json_print(answer.type, message, append, &out, nullptr, &one_line) == 0; },
              {}},
             {"json_util, MessageToJsonString", [&] { return answer.print_json(); }, {}}});
    compare("JSON printed from encoded bytes",
            {{"vesk_json_print_encoded",
              [&] {
                  out.clear();
                  return vesk_json_print_encoded(answer.type, bytes.data(), bytes.size(), append, &out, nullptr,
                                                 &one_line) == 0;
              },
              {}},
             {"json_util, parse and MessageToJsonString",
              [&] {
                  return answer.theirs.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())) &&
                         answer.print_json();
              },
              {}}});
    compare("text format printed from a message",
            {{"vesk_text_print",
              [&] { return out.clear(), vesk_text_print(answer.type, message, append, &out, nullptr, nullptr) == 0; },
              {}},
             {"TextFormat::PrintToString",
              [&] { return out.clear(), pb::TextFormat::PrintToString(answer.theirs, &out); },
              {}}});
}

void compare_parsing(const Answer& answer) {
    compare("JSON parsed and released",
            {{"vesk_json_parse", [&] { return parse(answer, vesk_json_parse, answer.json); }, {}},
             {"json_util, JsonStringToMessage",
              [&] {
                  resp_inv_data message;
                  return pb::util::JsonStringToMessage(answer.json, &message).ok();
              },
              {}}});
    compare("text format parsed and released",
            {{"vesk_text_parse", [&] { return parse(answer, vesk_text_parse, answer.text); }, {}},
             {"TextFormat::ParseFromString",
              [&] {
                  resp_inv_data message;
                  return pb::TextFormat::ParseFromString(answer.text, &message);
              },
              {}}});
}

// ---- Readers of JSON -----------------------------------------------------------------------------------------------

// Each sees every key, string and number of the text, and adds up their characters.
struct RapidEvents : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, RapidEvents> {
    std::size_t seen = 0;
    bool Key(const char*, rapidjson::SizeType length, bool) { return seen += length, true; }
    bool String(const char*, rapidjson::SizeType length, bool) { return seen += length, true; }
    bool RawNumber(const char*, rapidjson::SizeType length, bool) { return seen += length, true; }
    static bool Default() { return true; }
};

bool read_by_rapidjson(const std::string& text) {
    const std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    rapidjson::Reader reader;
    rapidjson::InsituStringStream stream(copy.get());
    RapidEvents events;
    constexpr unsigned flags = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
    return !reader.Parse<flags>(stream, events).IsError() && events.seen != 0;
}

bool read_by_rapidjson_without_copy(const std::string& text) {
    rapidjson::Reader reader;
    rapidjson::MemoryStream stream(text.data(), text.size());
    RapidEvents events;
    return !reader.Parse<rapidjson::kParseNumbersAsStringsFlag>(stream, events).IsError() && events.seen != 0;
}

struct NlohmannEvents : nlohmann::json_sax<nlohmann::json> {
    std::size_t seen = 0;
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return ++seen, true; }
    bool number_unsigned(number_unsigned_t) override { return ++seen, true; }
    bool number_float(number_float_t, const string_t&) override { return ++seen, true; }
    bool string(string_t& text) override { return seen += text.size(), true; }
    bool binary(binary_t&) override { return true; }
    bool start_object(std::size_t) override { return true; }
    bool key(string_t& text) override { return seen += text.size(), true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override { return false; }
};

bool read_by_nlohmann(const std::string& text) {
    NlohmannEvents events;
    return nlohmann::json::sax_parse(text, &events) && events.seen != 0;
}

std::size_t walk(simdjson::ondemand::value value) {
    std::size_t seen = 0;
    switch (value.type()) {
        case simdjson::ondemand::json_type::object:
            for (auto field : value.get_object()) {
                seen += std::string_view(field.unescaped_key()).size();
                seen += walk(field.value());
            }
            return seen;
        case simdjson::ondemand::json_type::array:
            for (auto element : value.get_array()) seen += walk(element.value());
            return seen;
        case simdjson::ondemand::json_type::string: return std::string_view(value.get_string()).size();
        case simdjson::ondemand::json_type::number: return std::uint64_t{value.get_uint64()} != 0;
        default: return value.get_bool().value() ? 1 : 0;
    }
}

bool read_by_simdjson(const std::string& text) {
    simdjson::ondemand::parser parser;
    const simdjson::padded_string copy(text);
    auto document = parser.iterate(copy);
    return walk(document.get_value()) != 0;
}

bool read_by_yajl(const std::string& text) {
    std::size_t seen = 0;
    const auto on_text = [](void* context, const unsigned char*, std::size_t length) {
        *static_cast<std::size_t*>(context) += length;
        return 1;
    };
    const auto on_number = [](void* context, const char*, std::size_t length) {
        *static_cast<std::size_t*>(context) += length;
        return 1;
    };
    yajl_callbacks callbacks{};
    callbacks.yajl_string = on_text;
    callbacks.yajl_map_key = on_text;
    callbacks.yajl_number = on_number;
    yajl_handle handle = yajl_alloc(&callbacks, nullptr, &seen);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    const bool ok =
        yajl_parse(handle, bytes, text.size()) == yajl_status_ok && yajl_complete_parse(handle) == yajl_status_ok;
    yajl_free(handle);
    return ok && seen != 0;
}

void compare_readers(const Answer& answer) {
    const std::string& text = answer.json;
    compare("readers of JSON alone",
            {{"RapidJSON in a copy of the text", [&] { return read_by_rapidjson(text); }, {}},
             {"RapidJSON, strings in its own memory", [&] { return read_by_rapidjson_without_copy(text); }, {}},
             {"simdjson, on demand", [&] { return read_by_simdjson(text); }, {}},
             {"yajl", [&] { return read_by_yajl(text); }, {}},
             {"nlohmann", [&] { return read_by_nlohmann(text); }, {}}});
}

}  // namespace
}  // namespace vesk::bench

int main() try {
    using namespace vesk::bench;
    for (const WorkloadPlan& plan : all_workloads(0)) {
        if (plan.name != "main_same") continue;
        const Workload workload = plan.make();
        Answer answer(workload);
        std::printf("main answer: %zu bytes encoded, %zu as JSON, %zu in the text format\n", workload.encoded[0].size(),
                    answer.json.size(), answer.text.size());
        compare_printing(answer);
        compare_parsing(answer);
        compare_readers(answer);
        return 0;
    }
    throw std::runtime_error("there is no workload main_same");
} catch (const std::exception& error) {
    std::fprintf(stderr, "compare_text: %s\n", error.what());
    return 1;
}
