// Runs every operation of the workloads once over all their messages, under callgrind, which writes one dump for each:
// "WORKLOAD OPERATION CALLS". bench/counts/counts.py reads them.
#include <valgrind/callgrind.h>

#include <iostream>
#include <regex>

#include "bench/contestant.hpp"

namespace vesk::bench {
namespace {

void count(const Workload& workload, Contestant* library, Operation operation) {
    const std::size_t calls = workload.messages.size();
    CALLGRIND_START_INSTRUMENTATION;
    bool ok = library->run(operation, calls);  // binds the imported functions, and the predictor learns
    CALLGRIND_ZERO_STATS;
    ok &= library->run(operation, calls);
    const std::string title = workload.name + " " + name_of(operation) + " " + std::to_string(calls);
    CALLGRIND_DUMP_STATS_AT(title.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
    if (!ok) throw std::runtime_error(title + ": a call failed");
}

void count_all(const std::string& names, std::uint32_t most_records) {
    const std::regex wanted(names);
    for (const WorkloadPlan& plan : all_workloads(most_records)) {
        if (!std::regex_match(plan.name, wanted)) continue;
        const Workload workload = plan.make();
        const Entry library = make_linked_library(workload);
        for (const Operation operation : all_operations) count(workload, library.contestant.get(), operation);
    }
}

}  // namespace
}  // namespace vesk::bench

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: count_cases REGEX MOST_RECORDS (of the growth series)\n";
        return 2;
    }
    try {
        vesk::bench::count_all(argv[1], static_cast<std::uint32_t>(std::stoul(argv[2])));
    } catch (const std::exception& error) {
        std::cerr << "count_cases: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
