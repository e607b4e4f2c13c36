// What the programs have in common: options, signals, and how they end.
#pragma once

#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

namespace fleet {

inline volatile sig_atomic_t stop_requested = 0;  // by SIGTERM or SIGINT

// Reads the options and runs. The status is what `run` returns, 1 after an exception, and 2 for options that make no
// sense.
template <class Run>
int run_program(CLI::App& app, int count, char** arguments, Run run) {
    try {
        app.parse(count, arguments);
        for (int number : {SIGTERM, SIGINT}) signal(number, [](int) { stop_requested = 1; });
        return run();
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", app.get_name().c_str(), error.what());
        return dynamic_cast<const CLI::ParseError*>(&error) != nullptr ? 2 : 1;
    }
}

}  // namespace fleet
