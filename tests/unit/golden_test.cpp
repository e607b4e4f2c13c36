// Replays tests/golden/<type>/<situation>.hex. The first line of a file is a comment and says what the situation is. A
// '#' starts a comment anywhere. The input stands in hexadecimal, and the message that it decodes to must encode to the
// same bytes, or to those behind an arrow where there is one:
//
//     # A flag that arrives as 5.
//     18 05
//     -> 18 01
//
// An input that must be refused is named after its code: malformed_*, wrong_wire_type_*, unknown_wire_type_*; and
// no_memory_*, which is decoded without an allocation callback.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/support/type_info.hpp"

namespace vesk::test {
namespace {

namespace fs = std::filesystem;

const fs::path golden_folder = VESK_TEST_SOURCE_DIR "/tests/golden";

struct Golden {
    bool begins_with_comment = false;
    Bytes input;
    Bytes reencoded;
};

Golden read_golden(const fs::path& path) {
    std::ifstream file(path);
    Golden golden;
    std::string digits;
    std::string arrow_digits;
    std::string* current = &digits;
    bool first = true;
    for (std::string line; std::getline(file, line); first = false) {
        if (first) golden.begins_with_comment = line.rfind("# ", 0) == 0;
        line.resize(std::min(line.find('#'), line.size()));
        if (line.rfind("->", 0) == 0) {
            current = &arrow_digits;
            line = line.substr(2);
        }
        *current += line + "\n";
    }
    golden.input = hex(digits);
    golden.reencoded = current == &digits ? golden.input : hex(arrow_digits);
    return golden;
}

std::int32_t code_of(const std::string& situation) {
    const auto named = [&](const char* prefix) { return situation.rfind(prefix, 0) == 0; };
    if (named("malformed_")) return VESK_MALFORMED;
    if (named("unknown_wire_type_")) return VESK_UNKNOWN_WIRE_TYPE;
    if (named("wrong_wire_type_")) return VESK_WRONG_WIRE_TYPE;
    if (named("no_memory_")) return VESK_NO_MEMORY;
    return VESK_OK;
}

void replay(const TypeInfo& type, const fs::path& path) {
    SCOPED_TRACE(type.name + "/" + path.filename().string());
    const std::string situation = path.stem().string();
    const Golden golden = read_golden(path);
    EXPECT_TRUE(golden.begins_with_comment);
    if (code_of(situation) == VESK_NO_MEMORY) {
        Storage message(type);
        EXPECT_EQ(type.decode(message.get(), golden.input.data(), golden.input.size(), nullptr, nullptr, 0),
                  VESK_NO_MEMORY);
        return;
    }
    for (const std::uint32_t flags : {0u, 1u}) {
        const AnyDecoded decoded(type, golden.input, flags);
        ASSERT_EQ(decoded.code, code_of(situation));
        if (decoded.code != VESK_OK) continue;
        EXPECT_EQ(to_hex(encoded(type, decoded.message.get())), to_hex(golden.reencoded));
        if (situation == "full") {
            EXPECT_TRUE(is_full(type, decoded.message.get())) << "a field is missing";
        }
    }
}

std::vector<fs::path> sorted_entries(const fs::path& folder) {
    std::vector<fs::path> entries{fs::directory_iterator(folder), {}};
    std::sort(entries.begin(), entries.end());
    return entries;
}

TEST(golden, every_file_decodes_and_encodes_as_written_down) {
    for (const fs::path& folder : sorted_entries(golden_folder)) {
        if (!fs::is_directory(folder)) continue;
        const TypeInfo* type = find_type(folder.filename().string());
        ASSERT_NE(type, nullptr) << folder << " is named after no type";
        for (const fs::path& path : sorted_entries(folder)) {
            EXPECT_EQ(path.extension(), ".hex") << path;
            replay(*type, path);
        }
    }
}

TEST(golden, every_type_has_a_full_message) {
    for (const TypeInfo* type : all_types()) {
        EXPECT_TRUE(fs::exists(golden_folder / type->name / "full.hex"))
            << "make it: tests/golden/encode_full " << type->name;
    }
}

}  // namespace
}  // namespace vesk::test
