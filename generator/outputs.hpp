// One function per output file; each returns the whole text.
#pragma once

#include <string>
#include <vector>

#include "generator/model.hpp"

namespace vesk::generator {

// The first lines of what is made of some files.
std::string origin_in_c(const std::string& files, const std::string& licence);
std::string origin_in_cpp(const std::string& files, const std::string& licence);

std::string print_header(const Unit& unit);
std::string print_fields(const Unit& unit);
std::string print_names(const Unit& unit);
std::string print_members(const Unit& unit);
std::string print_view(const Unit& unit, const std::string& library);  // NAME.hpp; not for this repository's own
std::string print_exports(const Unit& unit);
std::string print_symbols(const Unit& unit);

// The names of a message's exported functions.
std::vector<std::string> functions_of(const Message& message);

}  // namespace vesk::generator
