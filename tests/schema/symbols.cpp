#include <algorithm>
#include <sstream>

#include "tests/schema/checks.hpp"

namespace vesk::test {

Findings check_symbols(const Table& table, const std::string& unit, const std::string& symbols) {
    std::vector<std::string> expected;
    for (const Type& type : table.types) {
        if (type.unit != unit) continue;
        for (const char* operation : {"_encode_ext", "_decode_ext", "_duplicate", "_free_ext"}) {
            expected.push_back("vesk_" + type.name + operation);
        }
    }
    std::vector<std::string> found;
    std::istringstream lines(symbols);
    for (std::string line; std::getline(lines, line);) found.push_back(line);

    // The order of the list means nothing.
    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    Findings findings;
    compare_lines(expected, found, unit + ".symbols", findings);
    return findings;
}

}  // namespace vesk::test
