// The table of docs/security.md that says how much memory the element of each list asks for.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "tests/support/table.hpp"
#include "tests/support/type_info.hpp"

namespace vesk::test {
namespace {

// Two bytes of input, one element.
TEST(list_ratios, empty_element_asks_for_a_whole_structure) {
    for (const TypeInfo* type : all_types()) {
        for (const FieldInfo& field : type->fields) {
            if (field.kind != Kind::list) continue;
            const AnyDecoded decoded(*type, message_field(field.number, {}));
            EXPECT_EQ(decoded.code, VESK_OK);
            EXPECT_EQ(decoded.ledger.history(), (std::vector<Request>{{Request::What::alloc, field.nested->size}}))
                << type->name << "." << field.number;
        }
    }
}

#if UINTPTR_MAX == UINT64_MAX  // the document gives the sizes of platforms with 64-bit pointers

std::string read_file(const char* path) {
    std::ifstream file(std::string(VESK_TEST_SOURCE_DIR) + path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

struct ListRow {
    std::string name;  // "resp_eid.eid_list"
    std::size_t element;
    std::size_t input;

    double ratio() const { return static_cast<double>(element) / static_cast<double>(input); }
    std::string text() const {
        char ratio_text[32];
        std::snprintf(ratio_text, sizeof ratio_text, "%.1f", ratio());
        return "| `" + name + "` | " + std::to_string(element) + " | " + std::to_string(input) + " | " + ratio_text +
               " |\n";
    }
};

// The largest ratio first, lists of one ratio in the order of their declaration.
std::vector<ListRow> list_rows() {
    std::vector<ListRow> rows;
    for (const Type& type : parse_table(read_file("/tests/fields.txt")).types) {
        const TypeInfo& info = *find_type(type.name);
        for (std::size_t i = 0; i < type.rows.size(); ++i) {
            if (type.rows[i].kind != "list") continue;
            rows.push_back({type.name + "." + type.rows[i].name, info.fields[i].nested->size,
                            message_field(type.rows[i].number, {}).size()});
        }
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const ListRow& left, const ListRow& right) { return left.ratio() > right.ratio(); });
    return rows;
}

TEST(list_ratios, table_in_the_document_is_that_of_the_structures) {
    std::string expected = "| List | Element | Input | Ratio |\n|---|---:|---:|---:|\n";
    for (const ListRow& row : list_rows()) expected += row.text();
    const std::string document = read_file("/docs/security.md");
    const std::size_t start = document.find("| List |");
    ASSERT_NE(start, std::string::npos);
    EXPECT_EQ(document.substr(start), expected);
}

TEST(list_ratios, largest_is_the_one_that_the_invariant_states) {
    const std::string largest = std::to_string(static_cast<int>(list_rows().front().ratio()));
    const std::string stated = "asks for at most " + largest + " bytes of memory per byte of input";
    EXPECT_TRUE(read_file("/docs/security.md").find(stated) != std::string::npos) << "it does not say: " << stated;
}

#endif

}  // namespace
}  // namespace vesk::test
