// What --help says, in other forms: a completion for bash and a manual page. All three come from the same App.
#pragma once

#include <CLI/App.hpp>
#include <string>

namespace vesk::tool {

std::string bash_completion(const CLI::App& app);
std::string manual(const CLI::App& app);

}  // namespace vesk::tool
