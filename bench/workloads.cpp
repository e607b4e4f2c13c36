#include "bench/workloads.hpp"

#include <algorithm>
#include <stdexcept>

namespace vesk::bench {
namespace {

// So many different small messages that no branch predictor learns one by heart.
constexpr std::size_t many = 256;

constexpr std::uint32_t lists_of_resp_inv_data = 17;
constexpr std::uint32_t records_of_main_answer = 64 * lists_of_resp_inv_data;

Workload make_workload(const std::string& name, const std::string& type_name, std::size_t messages,
                       const Recipe& recipe, std::uint32_t flags) {
    const TypeInfo* type = test::find_type(type_name);
    if (type == nullptr) throw std::runtime_error("there is no message type " + type_name);
    Workload workload{name, type, flags, {}, {}, 0, 0};
    for (std::size_t i = 0; i < messages; ++i) {
        workload.messages.push_back(draw_message(*type, recipe, i));
        const void* message = workload.messages.back().get();
        workload.encoded.push_back(test::encoded(*type, message));
        workload.longest_encoding = std::max<std::uint64_t>(workload.longest_encoding, workload.encoded.back().size());
        workload.longest_part = std::max(workload.longest_part, extent_of(*type, message).longest_part);
    }
    return workload;
}

WorkloadPlan plan(const std::string& name, const std::string& type, std::size_t messages, const Recipe& recipe,
                  std::uint32_t flags = 0) {
    return {name, [=] { return make_workload(name, type, messages, recipe, flags); }};
}

}  // namespace

std::vector<WorkloadPlan> all_workloads(std::uint32_t most_records) {
    constexpr std::uint32_t by_reference = VESK_BYTES_BY_REFERENCE;
    std::vector<WorkloadPlan> plans{
        plan("request", "req_inv_data", many, {}),
        plan("sensor", "sensor_data", many, {}),
        plan("notification", "notify_event_data", many, {}),
        plan("main_same", "resp_inv_data", 1,
             {.percent_set = 60, .same_fields = true, .records = records_of_main_answer}),
        plan("main_drawn", "resp_inv_data", 1, {.percent_set = 60, .records = records_of_main_answer}),
        plan("handles", "resp_clients_hdl_data", 1, {.records = 10000}),
        plan("eeprom_64k", "scratch_eeprom", 16, {.bytes_size = 65536}),
        plan("eeprom_64k_by_reference", "scratch_eeprom", 16, {.bytes_size = 65536}, by_reference),
        plan("eeprom_16k_by_reference", "scratch_eeprom", 16, {.bytes_size = 16384}, by_reference),
        plan("idprom_4k", "idprom_data", 16, {.bytes_size = 4096}),
        plan("idprom_4k_by_reference", "idprom_data", 16, {.bytes_size = 4096}, by_reference),
        plan("scalars", "resp_admin_memory_data", many, {}),
        plan("fields_34", "inv_db_base_entity_data", many, {}),
    };
    for (std::uint32_t records = 1; records <= most_records; records *= 10) {
        const std::size_t messages = records <= 10 ? many : records <= 100 ? 16 : 1;
        plans.push_back(plan("growth_" + std::to_string(records), "resp_inv_data", messages,
                             {.percent_set = 60, .records = records}));
    }
    return plans;
}

}  // namespace vesk::bench
