#include "bench/chassis_answer.hpp"

#include <algorithm>
#include <cctype>

#include "examples/inventory_exchange/chassis.hpp"

namespace vesk::bench {
namespace {

// What is read anew each time, and is never far from what it was. All else stays as it is for years.
constexpr const char* readings[] = {"temperature", "power_draw", "power_supplied", "speed",         "load",
                                    "logic_used",  "reading",    "input_voltage",  "output_voltage"};

constexpr std::uint32_t shelves_of_a_rack = 8;
constexpr std::uint32_t serial_numbers_of_a_shelf = 3700;
constexpr std::uint64_t seconds_between_shelves = 3600;

class ScaledChassis {
public:
    ScaledChassis(std::size_t turn, Message* message) : draws_(turn), message_(*message) {}

    // An array of so many records, the example's again and again.
    template <class Record>
    Record* scaled(entity_kind kind, const Record* example, std::uint32_t example_count, std::uint32_t count) {
        std::uint8_t* array = message_.new_block(count * sizeof(Record));
        for (std::uint32_t i = 0; i < count; ++i) {
            Record record = example[i % example_count];
            const std::uint32_t shelf = i / example_count;
            move_to_shelf(shelf, &record.entity_common.eid);
            vary(kind, shelf, shelf * example_count, &record);
            std::memcpy(array + i * sizeof record, &record, sizeof record);
        }
        return reinterpret_cast<Record*>(array);
    }

private:
    static void move_to_shelf(std::uint32_t shelf, vesk_drin_eid_st* eid) {
        drin_eid_st_set_rack(eid, drin_eid_st_rack(eid) + shelf / shelves_of_a_rack);
        drin_eid_st_set_shelf(eid, drin_eid_st_shelf(eid) + shelf % shelves_of_a_rack);
    }

    void vary(entity_kind kind, std::uint32_t shelf, std::uint32_t entities_before, void* record) {
        for (const char* key : readings) {
            const meaning* row = present_row(kind, key, record);
            if (row == nullptr) continue;
            const std::uint64_t value = meaning_number(row, record);
            if (value != 0) meaning_set_number(row, record, value + draws_() % (value / 16 + 3));
        }
        if (const meaning* row = present_row(kind, "uptime", record)) {
            meaning_set_number(row, record, meaning_number(row, record) + shelf * seconds_between_shelves);
        }
        renumber(present_row(kind, "name", record), entities_before, record);
        renumber(present_row(kind, "serial_number", record), shelf * serial_numbers_of_a_shelf, record);
    }

    static const meaning* present_row(entity_kind kind, const char* key, const void* record) {
        const meaning* row = meaning_of_key(kind, key);
        return row != nullptr && meaning_has(row, record) ? row : nullptr;
    }

    // Adds to the number at the end of a text: "Fan tray 2" to "Fan tray 8".
    void renumber(const meaning* row, std::uint32_t more, void* record) {
        if (row == nullptr || more == 0) return;
        std::string text = meaning_text(row, record);
        const auto is_digit = [](unsigned char letter) { return std::isdigit(letter) != 0; };
        const auto digits = std::find_if_not(text.rbegin(), text.rend(), is_digit).base();
        if (digits == text.end()) return;
        text.replace(digits, text.end(), std::to_string(std::stoul(std::string(digits, text.end())) + more));
        std::uint8_t* copy = message_.new_block(text.size() + 1);
        std::copy(text.begin(), text.end(), copy);
        meaning_set_text(row, record, reinterpret_cast<char*>(copy));
    }

    std::mt19937_64 draws_;
    Message& message_;
};

}  // namespace

Message chassis_answer(std::uint32_t entities_of_a_kind, std::size_t turn) {
    static const Chassis chassis(VESK_TEST_SOURCE_DIR "/examples/chassis.json");  // texts and identifiers stay there
    const vesk_resp_inv_data example = chassis.everything();
    vesk_resp_inv_data answer = example;
    Message message(*test::find_type("resp_inv_data"));
    ScaledChassis scaled(turn, &message);
    std::uint32_t total = 0;
#define KIND(code, name, NAME, record)                                                                  \
    answer.name##_list =                                                                                \
        scaled.scaled(KIND_##NAME, example.name##_list, example.name##_list_count, entities_of_a_kind); \
    answer.name##_list_count = entities_of_a_kind;                                                      \
    total += entities_of_a_kind;
#include "examples/inventory_exchange/meanings.def"
    resp_inv_data_set_total(&answer, total);
    std::memcpy(message.get(), &answer, sizeof answer);
    return message;
}

}  // namespace vesk::bench
