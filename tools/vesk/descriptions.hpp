// What --help says, and the same in other forms: a completion for bash and a manual page. All come from one App.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace vesk::tool {

// "TYPE", "[FILE]", "-- PROGRAM...": a place on the command line.
std::string place_of(const CLI::Option& option);

// Says what has to be said of an option, and no more: its name and the name of its value.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() {
        label("OPTIONS", "OPTION...");
        label("SUBCOMMAND", "VERB [ARGUMENT...]");
        label("Positionals", "Arguments");
    }
    std::string make_option_usage(const CLI::Option* option) const override { return place_of(*option); }
    std::string make_option_opts(const CLI::Option* option) const override;
};

std::string bash_completion(const CLI::App& app);
std::string manual(const CLI::App& app);

}  // namespace vesk::tool
