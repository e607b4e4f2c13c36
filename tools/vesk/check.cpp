// Whether inputs decode, where not, and what decoding costs.
#include <nlohmann/json.hpp>

#include "tools/vesk/inputs.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/spans.hpp"

namespace vesk::tool {
namespace {

using Json = nlohmann::ordered_json;

Json json_of(const Subject& subject, const vesk_report& report) {
    return {{"file", subject.name},
            {"code", report.code},
            {"at", report.code == VESK_OK ? Json(nullptr) : Json(report.at)},
            {"path", report.path},
            {"bytes", report.cost.bytes},
            {"blocks", report.cost.blocks},
            {"largest", report.cost.largest},
            {"lost_bytes", report.lost_bytes},
            {"lost_blocks", report.lost_blocks},
            {"unknown_bytes", report.unknown_bytes}};
}

std::string line_of(const Json& json) { return json.dump(-1, ' ', true, Json::error_handler_t::replace); }

void print_json(const Request& request, const Subject& subject, const vesk_report& report, Output& output) {
    std::string line = line_of(json_of(subject, report));
    if (request.differences) {
        line.pop_back();
        output.write(line + ",\"differences\":[");
        bool first = true;
        for_each_difference(subject.type, subject.data, subject.length, report, [&](const Difference& difference) {
            output.write(first ? "" : ",");
            first = false;
            output.write(line_of({{"at", difference.at}, {"path", difference.path}, {"row", difference.row->what}}));
        });
        line = "]}";
    }
    output.write(line + "\n");
}

void print_words(const Request& request, const Subject& subject, const vesk_report& report, Output& output) {
    output.write(quote_name(subject.name) + ": " +
                 output.in(report.code == VESK_OK ? Ink::good : Ink::bad, verdict(report)) + "; asks for " +
                 cost(report) + "\n");
    if (!request.differences) return;
    for_each_difference(subject.type, subject.data, subject.length, report, [&](const Difference& difference) {
        output.write("  byte " + std::to_string(difference.at) + (difference.path.empty() ? "" : ", ") +
                     std::string(difference.path) + ": " + difference.row->what + "\n    protobuf: " +
                     difference.row->protobuf + "\n    here:     " + difference.row->library + "\n");
    });
}

}  // namespace

int check_files(const Request& request) {
    Output output;
    const int status = for_each_subject(request, [&](const Subject& subject) {
        const vesk_report report = check(subject.type, subject.data, subject.length);
        (request.json ? print_json : print_words)(request, subject, report, output);
        return report.code == VESK_OK ? status_ok : status_failed;
    });
    output.close();
    return status;
}

}  // namespace vesk::tool
