// One function per output file; each returns the whole text.
#pragma once

#include <string>

#include "generator/model.hpp"

namespace vesk::generator {

std::string print_header(const Unit& unit);
std::string print_fields(const Unit& unit);
std::string print_names(const Unit& unit);
std::string print_members(const Unit& unit);
std::string print_exports(const Unit& unit);
std::string print_symbols(const Unit& unit);

}  // namespace vesk::generator
