// Makes what the fuzzer starts from: make_seeds SEEDS OTHER_SEEDS DICTIONARY writes a few messages of every type into
// the folder SEEDS, more of the types with every kind into OTHER_SEEDS, and tags, lengths and numbers into the file
// DICTIONARY.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "fuzz/input.hpp"
#include "tests/foreign_kinds/type_info.hpp"
#include "tests/support/random_message.hpp"

namespace vesk::fuzz {
namespace {

namespace fs = std::filesystem;
using test::Bytes;

constexpr std::size_t longest_seed = 1000;

void write_file(const fs::path& path, const Bytes& bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) throw std::runtime_error(path.string() + " cannot be written");
}

// `rounds` messages of each amount; those that are short enough.
void write_seeds(const fs::path& folder, const std::vector<const TypeInfo*>& types, int rounds) {
    fs::create_directories(folder);
    for (std::size_t place = 0; place < types.size(); ++place) {
        std::uint64_t seed = 0;
        for (int round = 0; round < rounds; ++round) {
            for (const test::Amount amount : {test::Amount::some, test::Amount::wild, test::Amount::much}) {
                const test::RandomMessage message(*types[place], ++seed, amount);
                Bytes input(header::size);
                input[header::type] = static_cast<std::uint8_t>(place);
                const Bytes encoding = test::encoded(*types[place], message.get());
                input.insert(input.end(), encoding.begin(), encoding.end());
                if (input.size() > longest_seed) continue;
                write_file(folder / (types[place]->name + "-" + std::to_string(seed)), input);
            }
        }
    }
}

std::string entry(const Bytes& bytes) {
    std::string text = "\"";
    for (const std::uint8_t byte : bytes) {
        char escaped[5];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
        text += escaped;
    }
    return text + "\"\n";
}

void write_dictionary(const fs::path& path) {
    std::ofstream file(path);
    for (std::uint32_t number = 0; number <= 35; ++number) {
        for (const std::uint32_t wire_type : {0, 2}) file << entry(test::tag(number, wire_type));
    }
    for (const std::uint32_t wire_type : {1, 3, 4, 5, 6, 7}) file << entry(test::tag(1, wire_type));
    // Numbers and lengths at the edges of their widths, the shortest way and with bytes too many.
    for (unsigned bits = 7; bits <= 63; bits += 7) file << entry(test::varint(std::uint64_t{1} << bits));
    for (const std::uint64_t value : {std::uint64_t{0x7F}, std::uint64_t{0x7FFFFFFF}, std::uint64_t{0xFFFFFFFF},
                                      std::uint64_t{1} << 32, ~std::uint64_t{0}}) {
        file << entry(test::varint(value));
    }
    for (const std::size_t size : {5, 6, 10, 11}) file << entry(test::over_long(1, size));
    if (!file.flush()) throw std::runtime_error(path.string() + " cannot be written");
}

}  // namespace
}  // namespace vesk::fuzz

int main(int argc, char** argv) try {
    if (argc != 4) throw std::invalid_argument("usage: make_seeds SEEDS OTHER_SEEDS DICTIONARY");
    vesk::fuzz::write_seeds(argv[1], vesk::test::all_types(), 1);
    vesk::fuzz::write_seeds(argv[2], vesk::test::foreign_infos(), 30);
    vesk::fuzz::write_dictionary(argv[3]);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "make_seeds: %s\n", error.what());
    return 1;
}
