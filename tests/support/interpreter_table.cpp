// The interpreter's table: a file of its own, so that a sanitizer of integers can look at the operations alone and not
// at the standard library's strings.
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "tests/support/interpreter.hpp"
#include "tests/support/table.hpp"

namespace vesk::test::interpreter {
namespace {

TableKind kind_of(const std::string& word) {
    static const std::map<std::string, TableKind> kinds = {
        {"uint32", TableKind::uint32},   {"uint64", TableKind::uint64},     {"bool", TableKind::boolean},
        {"string", TableKind::string},   {"bytes", TableKind::bytes},       {"message", TableKind::message},
        {"list", TableKind::list},       {"sint32", TableKind::sint32},     {"sint64", TableKind::sint64},
        {"int32", TableKind::int32},     {"int64", TableKind::int64},       {"fixed32", TableKind::fixed32},
        {"fixed64", TableKind::fixed64}, {"sfixed32", TableKind::sfixed32}, {"sfixed64", TableKind::sfixed64},
        {"float", TableKind::float32},   {"double", TableKind::float64},    {"enum", TableKind::enumeration}};
    return kinds.at(word.substr(word.find('_') + 1));
}

std::map<std::string, TableType> read_types() {
    std::ifstream file(VESK_TEST_SOURCE_DIR "/tests/fields.txt");
    if (!file) throw std::runtime_error("tests/fields.txt cannot be opened");
    std::ostringstream text;
    text << file.rdbuf();
    const Table table = parse_table(text.str());
    std::map<std::string, TableType> types;  // its entries stay where they are
    for (const Type& type : table.types) {
        const Layout layout = layout_of(table, type);
        TableType& entry = types[type.name];
        entry = {type.name, {}, layout.presence_offset, type.presence_bytes, layout.whole.size};
        for (std::size_t i = 0; i < type.rows.size(); ++i) {
            const Row& row = type.rows[i];
            const bool has_entry = !row.nested.empty() && row.nested != entity_identifier().name;
            const TableType* nested = has_entry ? &types[row.nested] : nullptr;
            entry.fields.push_back({row.number, kind_of(row.kind), row.bit, nested, layout.offsets[i],
                                    layout.second_offsets[i], is_repeated(row), row.kind.starts_with("packed_")});
        }
    }
    return types;
}

}  // namespace

const TableType& find_type(const std::string& name) {
    static const std::map<std::string, TableType> types = read_types();
    return types.at(name);
}

}  // namespace vesk::test::interpreter
