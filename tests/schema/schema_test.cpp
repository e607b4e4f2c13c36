// Whether schema/, the structures, the field lists, the headers and the lists of exported symbols agree with
// tests/fields.txt; and, with a damaged copy of that table, whether a disagreement is seen.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tests/schema/checks.hpp"

namespace vesk::test {
namespace {

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string read_project_file(const std::string& name) { return read_file(VESK_TEST_SOURCE_DIR "/" + name); }

const Table& table() {
    static const Table table = parse_table(read_project_file("tests/fields.txt"));
    return table;
}

// ---- The five things that are held to the table --------------------------------------------------------------------

Findings check_all_headers(const Table& table) {
    Findings all;
    for (const std::string& unit : units) {
        const Findings findings = check_header(table, unit, read_project_file(unit + "/" + unit + ".h"));
        all.insert(all.end(), findings.begin(), findings.end());
    }
    return all;
}

Findings check_all_symbols(const Table& table) {
    Findings all;
    for (const std::string& unit : units) {
        const Findings findings = check_symbols(table, unit, read_project_file(unit + "/" + unit + ".symbols"));
        all.insert(all.end(), findings.begin(), findings.end());
    }
    return all;
}

Findings check_schema_files(const Table& table) { return check_proto(table, read_file(VESK_DESCRIPTORS)); }

struct Check {
    const char* name;
    Findings (*run)(const Table& table);
};

constexpr Check checks[] = {
    {"table", check_table},         {"schema", check_schema_files}, {"structures", check_structures},
    {"headers", check_all_headers}, {"symbols", check_all_symbols},
};

std::string lines_of(const Findings& findings) {
    std::string lines;
    for (const std::string& finding : findings) lines += finding + "\n";
    return lines;
}

TEST(fields_table, keeps_its_own_promises) { EXPECT_EQ(lines_of(check_table(table())), ""); }
TEST(fields_table, agrees_with_the_schema_files) { EXPECT_EQ(lines_of(check_schema_files(table())), ""); }
TEST(fields_table, agrees_with_field_lists_and_structures) { EXPECT_EQ(lines_of(check_structures(table())), ""); }
TEST(fields_table, agrees_with_members_and_enumerators_of_the_headers) {
    EXPECT_EQ(lines_of(check_all_headers(table())), "");
}
TEST(fields_table, agrees_with_the_exported_symbols) { EXPECT_EQ(lines_of(check_all_symbols(table())), ""); }

// ---- Damage is seen ------------------------------------------------------------------------------------------------

void number_bits(Type& type) {
    for (std::size_t i = 0; i < type.rows.size(); ++i) type.rows[i].bit = static_cast<std::uint32_t>(i);
    type.field_count = type.rows.size();
    type.presence_bytes = (type.rows.size() + 7) / 8;
}

Row& row(Table& table, const char* type, const std::string& name) {
    for (Row& row : table.at(type).rows) {
        if (row.name == name) return row;
    }
    throw std::out_of_range(name);
}

struct Damage {
    const char* name;
    void (*apply)(Table& table);
    const char* seen_by;  // the checks that find something, in their order
    const char* message;  // stands in what they find
};

// Where the damage can be repaired within the table (bits, counts), it is, so that the other checks must see it.
const Damage damages[] = {
    {"last row removed",
     [](Table& table) {
         table.at("pem_data").rows.pop_back();
         number_bits(table.at("pem_data"));
     },
     "schema structures headers ", "pem_data: the table has nothing, found 4 f4 uint32, bit 3"},
    {"first row removed",
     [](Table& table) {
         table.at("inv_policy").rows.erase(table.at("inv_policy").rows.begin());
         number_bits(table.at("inv_policy"));
     },
     "schema structures headers ", "inv_policy: the table has 2 f2 string, bit 0, found 1 f1 string, bit 0"},
    {"row removed, the rest as it was", [](Table& table) { table.at("pem_data").rows.pop_back(); },
     "table schema structures headers ", "pem_data: 4 fields stated, 3 listed"},
    {"row added",
     [](Table& table) {
         table.at("scratch_eeprom").rows.push_back({5, "f5", "uint32", 4, ""});
         number_bits(table.at("scratch_eeprom"));
     },
     "schema structures headers ", "scratch_eeprom: the table has 5 f5 uint32, bit 4, found nothing"},
    {"two rows of one kind swapped",
     [](Table& table) {
         std::swap(table.at("port_data").rows[2], table.at("port_data").rows[3]);
         number_bits(table.at("port_data"));
     },
     "schema structures headers ", "port_data: the table has 4 f4 uint32, bit 2"},
    {"rows put in the order of their numbers",
     [](Table& table) {
         std::swap(table.at("memory_data").rows[2], table.at("memory_data").rows[3]);
         number_bits(table.at("memory_data"));
     },
     "schema structures headers ", "memory_data: the table has field 4 string, bit 2"},
    {"number changed", [](Table& table) { row(table, "threshold_data", "f3").number = 2; },
     "schema structures headers ", "threshold_data: the table has 2 f3 uint32, bit 1, found 3 f3 uint32, bit 1"},
    {"number used twice", [](Table& table) { row(table, "led_data", "f4").number = 3; },
     "table schema structures headers ", "led_data: 3 f4 uint32, bit 3: number used twice"},
    {"name changed", [](Table& table) { row(table, "req_inv_data", "policy").name = "inv_policy"; }, "schema headers ",
     "VESK_REQ_INV_DATA_INV_POLICY = 5, found VESK_REQ_INV_DATA_POLICY = 5"},
    {"name used twice", [](Table& table) { row(table, "req_inv_data", "f4").name = "f1"; }, "table schema headers ",
     "req_inv_data: 4 f1 uint32, bit 3: name used twice"},
    {"uint64 made uint32", [](Table& table) { row(table, "entity_common_data", "f20").kind = "uint32"; },
     "schema structures headers ", "entity_common_data: the table has uint32_t f20; 20, bit 19, found uint64_t f20;"},
    {"bool made uint32", [](Table& table) { row(table, "sensor_data", "f15").kind = "uint32"; },
     "schema structures headers ", "sensor_data: the table has 15 f15 uint32, bit 14, found 15 f15 bool, bit 14"},
    {"bytes made string", [](Table& table) { row(table, "eeprom_data", "f20").kind = "string"; },
     "schema structures headers ", "structure of eeprom_data: the table has field 20 string"},
    {"list made message", [](Table& table) { row(table, "resp_inv_data", "craft_list").kind = "message"; },
     "schema structures headers ", "resp_inv_data: the table has 9 craft_list message craft_data, bit 8"},
    {"unknown kind", [](Table& table) { row(table, "resp_inv_data", "f1").kind = "sint32"; },
     "table schema structures headers ", "resp_inv_data: 1 f1 sint32, bit 0: unknown kind"},
    {"nested type of the same layout",
     [](Table& table) { row(table, "resp_inv_data_by_eid", "chassis").nested = "craft_data"; },
     "schema structures headers ", "structure of resp_inv_data_by_eid: the table has field 8 message craft_data"},
    {"nested type unknown", [](Table& table) { row(table, "led_data", "fru_common").nested = "fru_common"; },
     "table schema structures headers ", "structure of led_data: unknown nested type fru_common"},
    {"bit changed", [](Table& table) { row(table, "led_data", "f5").bit = 5; }, "table schema structures headers ",
     "led_data: the table has VESK_LED_DATA_F5 = 5, found VESK_LED_DATA_F5 = 4"},
    {"presence bytes changed", [](Table& table) { table.at("fru_common_attribute").presence_bytes = 1; },
     "table structures headers ", "structure of fru_common_attribute: the table has 1 presence bytes"},
    {"unused type removed",
     [](Table& table) {
         std::erase_if(table.types, [](const Type& type) { return type.name == "fru_snmp_idx_data"; });
     },
     "schema structures headers symbols ", "inventory_db.proto: fru_snmp_idx_data is not in the table"},
    {"used type removed",
     [](Table& table) { std::erase_if(table.types, [](const Type& type) { return type.name == "inv_policy"; }); },
     "table schema structures headers symbols ", "structure of req_inv_data: unknown nested type inv_policy"},
    {"type renamed", [](Table& table) { table.at("req_inv_data_by_eid").name = "req_inv_data_of_eid"; },
     "schema structures headers symbols ", "structure of req_inv_data_of_eid is missing"},
    {"type added",
     [](Table& table) {
         table.types.push_back(table.at("scratch_eeprom"));
         table.types.back().name = "scratch_sprom";
     },
     "schema structures headers symbols ", "inventory_db.symbols: the table has vesk_scratch_sprom_decode_ext"},
    {"type listed twice", [](Table& table) { table.types.push_back(table.at("scratch_eeprom")); }, "table symbols ",
     "scratch_eeprom: a second block"},
    {"type in the other unit", [](Table& table) { table.at("pem_data").unit = "inventory_db"; },
     "schema headers symbols ", "client_service.h: pem_data is not in the table"},
    {"unit unknown", [](Table& table) { table.at("pem_data").unit = "inventory"; }, "table schema headers symbols ",
     "pem_data: unknown unit inventory"},
};

TEST(fields_table, any_damage_is_seen_and_named) {
    for (const Damage& damage : damages) {
        Table damaged = table();
        damage.apply(damaged);
        std::string seen_by;
        Findings all;
        for (const Check& check : checks) {
            const Findings findings = check.run(damaged);
            if (!findings.empty()) seen_by += std::string(check.name) + " ";
            all.insert(all.end(), findings.begin(), findings.end());
        }
        EXPECT_EQ(seen_by, damage.seen_by) << damage.name << "\n" << lines_of(all);
        EXPECT_NE(lines_of(all).find(damage.message), std::string::npos) << damage.name << "\n" << lines_of(all);
    }
}

// Every row of the table counts: the removal of any one is seen by each check that looks at rows.
TEST(fields_table, removal_of_any_row_is_seen) {
    const std::string descriptors = read_file(VESK_DESCRIPTORS);
    for (const Type& type : table().types) {
        for (std::size_t i = 0; i < type.rows.size(); ++i) {
            Table damaged = table();
            Type& shorter = damaged.at(type.name);
            shorter.rows.erase(shorter.rows.begin() + static_cast<std::ptrdiff_t>(i));
            number_bits(shorter);
            EXPECT_FALSE(check_proto(damaged, descriptors).empty()) << type.name << ": " << to_string(type.rows[i]);
            EXPECT_FALSE(check_structures(damaged).empty()) << type.name << ": " << to_string(type.rows[i]);
        }
    }
}

TEST(fields_table, broken_line_is_refused_with_its_number) {
    for (const char* text : {
             "type inv_policy inventory_db 3 1\n  1 f1 string\n",
             "type inv_policy inventory_db 3 1\n  1 eid message 0\n",
             "type inv_policy inventory_db 3 1\n  1 f1 string 0 drin_eid_st\n",
             "type inv_policy inventory_db 3 1\n  one f1 string 0\n",
             "type inv_policy inventory_db 3 1\ntype led_data client_service\n",
             "# rows without a type\n  1 f1 string 0\n",
         }) {
        try {
            parse_table(text);
            ADD_FAILURE() << "accepted:\n" << text;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()).rfind("line 2: ", 0), 0u) << error.what();
        }
    }
}

}  // namespace
}  // namespace vesk::test
