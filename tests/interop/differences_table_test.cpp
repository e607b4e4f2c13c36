// docs/differences.md and the tests name one another.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "tests/interop/dialect.hpp"

namespace vesk::test {
namespace {

// The test named at the end of a row, "differences.x" or "agreements.x"; empty if there is none.
std::string test_of_row(const std::string& row) {
    const std::string end = "` |";
    if (row.size() < end.size() || row.substr(row.size() - end.size()) != end) return "";
    const std::size_t length = row.size() - end.size();
    const std::size_t quote = row.rfind('`', length - 1);
    return quote == std::string::npos ? "" : row.substr(quote + 1, length - quote - 1);
}

std::vector<std::string> tests_in_document() {
    std::ifstream file(VESK_TEST_SOURCE_DIR "/docs/differences.md");
    std::vector<std::string> names;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("| ", 0) != 0 || line.find("| Test |") != std::string::npos) continue;
        names.push_back(test_of_row(line));
    }
    return names;
}

std::set<std::string> tests_in_program() {
    std::set<std::string> names;
    const ::testing::UnitTest& program = *::testing::UnitTest::GetInstance();
    for (int i = 0; i < program.total_test_suite_count(); ++i) {
        const ::testing::TestSuite& suite = *program.GetTestSuite(i);
        const std::string suite_name = suite.name();
        if (suite_name != "differences" && suite_name != "agreements") continue;
        for (int j = 0; j < suite.total_test_count(); ++j) {
            names.insert(suite_name + "." + suite.GetTestInfo(j)->name());
        }
    }
    return names;
}

TEST(differences_table, has_one_row_for_every_test_and_a_test_for_every_row) {
    const std::vector<std::string> rows = tests_in_document();
    const std::set<std::string> tests = tests_in_program();
    EXPECT_FALSE(rows.empty());
    std::set<std::string> seen;
    for (const std::string& row : rows) {
        EXPECT_EQ(tests.count(row), 1u) << "a row names the test \"" << row << "\", and there is none";
        EXPECT_TRUE(seen.insert(row).second) << "two rows of " << row;
    }
    for (const std::string& test : tests) EXPECT_EQ(seen.count(test), 1u) << "there is no row of " << test;
}

TEST(differences_table, has_every_difference_that_explains_a_disagreement) {
    const std::set<std::string> tests = tests_in_program();
    for (const char* name : difference_names) {
        EXPECT_EQ(tests.count(std::string("differences.") + name), 1u) << "there is no test of " << name;
    }
}

}  // namespace
}  // namespace vesk::test
