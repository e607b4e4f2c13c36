// Measures every implementation on every workload and prints the times as JSON; bench/run makes the table of them.
//
// Google Benchmark is not used: it finishes one benchmark before it begins the next, so two implementations are
// measured seconds apart and the machine's mood stands between them. Here they take turns, a slice of about half a
// millisecond each, and the ratio of two is taken within each round. The order is drawn anew for each round: who comes
// after whom decides what is in the caches.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <random>
#include <regex>

#include "bench/contestant.hpp"

namespace vesk::bench {
namespace {

using json = nlohmann::ordered_json;

struct Settings {
    double seconds_per_operation = 1.0;
    double seconds_per_slice = 0.0005;
    std::size_t fewest_rounds = 5;
    std::size_t most_rounds = 201;
    std::uint32_t most_records = 100000;
    std::string only = ".*";
    std::vector<std::string> libraries;
    std::string output;
};

using Clock = std::chrono::steady_clock;

// Time that this thread had a processor: other programs on the machine do not count.
double now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double time_of(const Entry& entry, Operation operation, std::size_t calls) {
    const double start = now();
    if (!entry.contestant->run(operation, calls)) {
        throw std::runtime_error(entry.name + " failed to " + name_of(operation));
    }
    return now() - start;
}

// Memory from malloc is compared with memory from malloc.
bool takes_part(const Entry& entry, Operation operation) {
    const bool has_arena = entry.name.ends_with(" arena");
    return entry.contestant->can(operation) && !(operation == Operation::decode_and_free && has_arena);
}

std::vector<Entry> make_entries(const Workload& workload, const Settings& settings) {
    std::vector<Entry> entries;
    entries.push_back(make_linked_library(workload));
    for (const std::string& library : settings.libraries) {
        const std::size_t equals = library.find('=');
        if (equals == std::string::npos) throw std::runtime_error("--library wants NAME=FILE, not " + library);
        entries.push_back(make_loaded_library(library.substr(0, equals), library.substr(equals + 1), workload));
    }
    add_library_with_free_identifier(workload, &entries);
    entries.push_back(make_floor(workload));
    add_protobuf_cpp(workload, &entries);
    add_protobuf_c(workload, &entries);
    add_nanopb(workload, &entries);
    return entries;
}

// Every implementation must hold the same content: what it writes is as long as what the library wrote and is the same
// message to the library. Only the order of fields may differ.
void expect_same_work(const Workload& workload, const Entry& entry) {
    for (std::size_t i = 0; i < workload.messages.size(); ++i) {
        const Bytes written = entry.contestant->reencoded(i);
        test::AnyDecoded decoded(*workload.type, written);
        const bool same = decoded.code == VESK_OK && written.size() == workload.encoded[i].size() &&
                          test::encoded(*workload.type, decoded.message.get()) == workload.encoded[i];
        if (!same) throw std::runtime_error(workload.name + ": " + entry.name + " does not hold the same message");
    }
}

// One implementation in the rounds of one operation.
struct Lane {
    const Entry* entry;
    std::size_t calls;      // that fill a slice, or one that is longer than a slice
    double seconds;         // that they take
    std::size_t every = 1;  // takes part in every n-th round
    json nanoseconds = json::array();
};

Lane make_lane(const Entry& entry, Operation operation, double seconds) {
    for (std::size_t calls = 1;; calls *= 2) {
        // The shortest of three: one that something held up would make slices of a few calls, filled by the clock.
        double time = time_of(entry, operation, calls);
        for (int again = 0; again < 2; ++again) time = std::min(time, time_of(entry, operation, calls));
        if (time < seconds / 4) continue;
        const double needed = std::max(1.0, seconds / time * static_cast<double>(calls));
        return {&entry, static_cast<std::size_t>(needed), time * needed / static_cast<double>(calls)};
    }
}

// One that takes several times as long as the library, the first lane, would eat up the time of all: it sits out most
// rounds.
void spare_slow_lanes(std::vector<Lane>* lanes) {
    const double ours = lanes->front().seconds;
    for (Lane& lane : *lanes) lane.every = std::max<std::size_t>(1, static_cast<std::size_t>(lane.seconds / ours / 2));
}

void run_slice(Lane* lane, Operation operation) {
    // The caches are full of the one before; a long slice does not notice.
    if (lane->seconds < 0.005) time_of(*lane->entry, operation, std::max<std::size_t>(1, lane->calls / 8));
    const double time = time_of(*lane->entry, operation, lane->calls);
    lane->nanoseconds.push_back(1e9 * time / static_cast<double>(lane->calls));
}

// Nanoseconds per call of each implementation in each round; null where it sat the round out.
json measure_operation(const std::vector<Entry>& entries, Operation operation, const Settings& settings) {
    std::vector<Lane> lanes;
    for (const Entry& entry : entries) {
        if (takes_part(entry, operation)) lanes.push_back(make_lane(entry, operation, settings.seconds_per_slice));
    }
    spare_slow_lanes(&lanes);
    std::vector<std::size_t> order(lanes.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::mt19937 draws(static_cast<std::uint32_t>(lanes.size()));
    const auto end = Clock::now() + std::chrono::duration<double>(settings.seconds_per_operation);
    for (std::size_t round = 0; round < settings.most_rounds; ++round) {
        if (round >= settings.fewest_rounds && Clock::now() > end) break;
        std::shuffle(order.begin(), order.end(), draws);
        for (const std::size_t turn : order) {
            Lane& lane = lanes[turn];
            if (round % lane.every == 0) {
                run_slice(&lane, operation);
            } else {
                lane.nanoseconds.push_back(nullptr);
            }
        }
    }
    json result;
    for (const Lane& lane : lanes) result[lane.entry->name] = lane.nanoseconds;
    return result;
}

json measure_workload(const Workload& workload, const Settings& settings) {
    const std::vector<Entry> entries = make_entries(workload, settings);
    for (const Entry& entry : entries) expect_same_work(workload, entry);
    json result{{"type", workload.type->name},
                {"data", name_of(workload.data)},
                {"messages", workload.messages.size()},
                {"longest_encoding", workload.longest_encoding},
                {"longest_part", workload.longest_part}};
    for (const Operation operation : all_operations) {
        result["operations"][name_of(operation)] = measure_operation(entries, operation, settings);
    }
    return result;
}

void measure_all(const Settings& settings) {
    const std::regex only(settings.only);
    json results = json::object();
    for (const WorkloadPlan& plan : all_workloads(settings.most_records)) {
        if (!std::regex_match(plan.name, only)) continue;
        std::cerr << plan.name << "\n";
        results[plan.name] = measure_workload(plan.make(), settings);
    }
    if (results.empty()) throw std::runtime_error("no workload is called " + settings.only);
    std::ofstream(settings.output) << results << "\n";
}

}  // namespace
}  // namespace vesk::bench

int main(int argc, char** argv) {
    vesk::bench::Settings settings;
    CLI::App app("Measures the library and its peers");
    app.add_option("--seconds", settings.seconds_per_operation, "per workload and operation");
    app.add_option("--most-records", settings.most_records, "of the growth series; 0 leaves it out");
    app.add_option("--only", settings.only, "regular expression for the names of the workloads");
    app.add_option("--library", settings.libraries, "NAME=FILE: another library with the same functions");
    app.add_option("--output", settings.output, "file for the times")->required();
    CLI11_PARSE(app, argc, argv);
    try {
        vesk::bench::measure_all(settings);
    } catch (const std::exception& error) {
        std::cerr << "compare: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
