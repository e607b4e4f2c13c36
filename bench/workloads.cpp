#include "bench/workloads.hpp"

#include <algorithm>
#include <stdexcept>

#include "bench/chassis_answer.hpp"

namespace vesk::bench {
namespace {

// So many different small messages that no branch predictor learns one by heart.
constexpr std::size_t many = 256;
// So many that it learns nothing of them, where fields are set or not.
constexpr std::size_t too_many = 2048;
// So few that it learns all.
constexpr std::size_t few = 16;

constexpr std::uint32_t lists_of_resp_inv_data = 17;
constexpr std::uint32_t records_of_main_answer = 64 * lists_of_resp_inv_data;

// What makes the message whose turn it is.
using MakeMessage = std::function<Message(const TypeInfo& type, std::size_t turn)>;

Workload make_workload(const std::string& name, Data data, const std::string& type_name, std::size_t messages,
                       const MakeMessage& make_message) {
    const TypeInfo* type = test::find_type(type_name);
    if (type == nullptr) throw std::runtime_error("there is no message type " + type_name);
    const std::uint32_t flags = data == Data::by_reference ? VESK_BYTES_BY_REFERENCE : 0;
    Workload workload{name, data, type, flags, {}, {}, 0, 0};
    for (std::size_t turn = 0; workload.messages.size() < messages; ++turn) {
        Message message = make_message(*type, turn);
        Bytes encoding = test::encoded(*type, message.get());
        if (encoding.empty()) continue;  // a length of 0 is how contestants tell a call that failed
        workload.longest_encoding = std::max<std::uint64_t>(workload.longest_encoding, encoding.size());
        workload.longest_part = std::max(workload.longest_part, extent_of(*type, message.get()).longest_part);
        workload.messages.push_back(std::move(message));
        workload.encoded.push_back(std::move(encoding));
    }
    return workload;
}

WorkloadPlan plan(const std::string& name, Data data, const std::string& type, std::size_t messages,
                  const Recipe& recipe) {
    const auto draw = [=](const TypeInfo& drawn_type, std::size_t turn) {
        return draw_message(drawn_type, recipe, turn);
    };
    return {name, [=] { return make_workload(name, data, type, messages, draw); }};
}

WorkloadPlan chassis_plan(const std::string& name, std::size_t messages, std::uint32_t entities_of_a_kind) {
    const auto make = [=](const TypeInfo&, std::size_t turn) { return chassis_answer(entities_of_a_kind, turn); };
    return {name, [=] { return make_workload(name, Data::daily, "resp_inv_data", messages, make); }};
}

}  // namespace

const char* name_of(Data data) {
    switch (data) {
        case Data::daily: return "daily";
        case Data::drawn: return "drawn";
        case Data::by_reference: return "by_reference";
        case Data::growth: return "growth";
    }
    return "";
}

std::vector<WorkloadPlan> all_workloads(std::uint32_t most_records) {
    using enum Data;
    std::vector<WorkloadPlan> plans{
        plan("request", daily, "req_inv_data", many, {}),
        plan("request_daily", daily, "req_inv_data", many, {.daily = true}),
        plan("request_unlearned", drawn, "req_inv_data", too_many, {.percent_set = 60}),
        plan("sensor", daily, "sensor_data", many, {}),
        plan("sensor_daily", daily, "sensor_data", many, {.daily = true}),
        plan("sensor_unlearned", drawn, "sensor_data", too_many, {.percent_set = 60}),
        plan("notification", daily, "notify_event_data", many, {}),
        plan("notification_daily", daily, "notify_event_data", many, {.daily = true}),
        plan("notification_unlearned", drawn, "notify_event_data", too_many, {.percent_set = 60}),
        chassis_plan("chassis_4", few, 4),
        chassis_plan("chassis_64", 1, 64),
        chassis_plan("chassis_1024", 1, 1024),
        plan("main_same", daily, "resp_inv_data", 1,
             {.percent_set = 60, .same_fields = true, .records = records_of_main_answer}),
        plan("main_drawn", drawn, "resp_inv_data", 1, {.percent_set = 60, .records = records_of_main_answer}),
        plan("handles", drawn, "resp_clients_hdl_data", 1, {.records = 10000}),
        plan("eeprom_64k", daily, "scratch_eeprom", few, {.bytes_size = 65536}),
        plan("eeprom_64k_by_reference", by_reference, "scratch_eeprom", few, {.bytes_size = 65536}),
        plan("eeprom_16k_by_reference", by_reference, "scratch_eeprom", few, {.bytes_size = 16384}),
        plan("idprom_4k", daily, "idprom_data", few, {.bytes_size = 4096}),
        plan("idprom_4k_by_reference", by_reference, "idprom_data", few, {.bytes_size = 4096}),
        plan("scalars", daily, "resp_admin_memory_data", many, {}),
        plan("fields_34", daily, "inv_db_base_entity_data", many, {}),
        plan("fields_34_daily", daily, "inv_db_base_entity_data", many, {.daily = true}),
        plan("fields_34_unlearned", drawn, "inv_db_base_entity_data", too_many, {.percent_set = 60}),
    };
    for (std::uint32_t records = 1; records <= most_records; records *= 10) {
        const std::size_t messages = records <= 10 ? many : records <= 100 ? few : 1;
        plans.push_back(plan("growth_" + std::to_string(records), growth, "resp_inv_data", messages,
                             {.percent_set = 60, .records = records}));
    }
    return plans;
}

}  // namespace vesk::bench
