// The library against the interpreter of tests/support.
#include <algorithm>

#include "fuzz/implementations.hpp"

namespace vesk::fuzz {
namespace {

using test::interpreter::TableType;

const TableType& table_type_of(const TypeInfo& type) {
    static const std::vector<const TableType*> table_types = [] {
        std::vector<const TableType*> found;
        for (const TypeInfo* each : test::all_types()) found.push_back(&test::interpreter::find_type(each->name));
        return found;
    }();
    const auto& types = test::all_types();
    return *table_types[static_cast<std::size_t>(std::find(types.begin(), types.end(), &type) - types.begin())];
}

}  // namespace

void check(const Input& input) { hold_against_interpreter(input, table_type_of(*input.type)); }

}  // namespace vesk::fuzz
