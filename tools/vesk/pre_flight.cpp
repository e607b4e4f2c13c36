#include "tools/vesk/pre_flight.hpp"

#include "tools/vesk/output.hpp"

namespace vesk::tool {

vesk_report check(const vesk_type* type, const std::uint8_t* input, std::uint64_t length) {
    vesk_report report;
    report.size = sizeof report;
    vesk_check(type, input, length, 0, &report, nullptr);
    return report;
}

std::string verdict(const vesk_report& report) {
    if (report.code == VESK_OK) return "decodes";
    std::string text = std::string(vesk_toolkit_result_name(report.code)) + " at byte " + std::to_string(report.at);
    if (report.path[0] != '\0') text += std::string(", ") + report.path;
    return text + ": " + vesk_toolkit_result_text(report.code);
}

std::string cost(const vesk_report& report) {
    std::string text = counted(report.cost.bytes, "byte") + " in " + counted(report.cost.blocks, "block") +
                       ", the largest of " + std::to_string(report.cost.largest);
    if (report.lost_blocks != 0) {
        text += "; " + counted(report.lost_bytes, "byte") + " in " + counted(report.lost_blocks, "block") +
                " lost to repeated messages";
    }
    if (report.unknown_bytes != 0) text += "; " + counted(report.unknown_bytes, "byte") + " of unknown fields";
    return text;
}

}  // namespace vesk::tool
