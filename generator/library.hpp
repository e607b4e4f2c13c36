// What a library of others' messages has once for all its files.
#pragma once

#include <string>

#include "generator/model.hpp"

namespace vesk::generator {

std::string print_types_header(const Library& library);    // LIBRARY_types.h
std::string print_types(const Library& library);           // LIBRARY_types.cpp, the table of facts
std::string print_sources(const Library& library);         // LIBRARY_sources.cpp, the whole library in one source
std::string print_version_script(const Library& library);  // LIBRARY.map, the names that a shared library lets out

}  // namespace vesk::generator
