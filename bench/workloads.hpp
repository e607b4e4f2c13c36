// What is measured: named sets of messages of one type.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/messages.hpp"

namespace vesk::bench {

// What a processor's predictors can make of a workload, and whether peers do the same work. bench/report.py has the
// words.
enum class Data {
    daily,         // records are alike, or so few that they are known by heart
    drawn,         // presence or widths differ from record to record in a way that is not learned
    by_reference,  // bytes fields stay where they are; peers copy them
    growth,        // the growth series: drawn, but small ones repeat
};

const char* name_of(Data data);

struct Workload {
    std::string name;
    Data data;
    const TypeInfo* type;
    std::uint32_t flags;
    std::vector<Message> messages;  // worked on in turn
    std::vector<Bytes> encoded;     // each as the library writes it, bytes fields copied
    std::uint64_t longest_encoding;
    std::uint64_t longest_part;  // as Extent says, of all messages
};

// A workload is made when its turn comes: the large ones take hundreds of megabytes.
struct WorkloadPlan {
    std::string name;
    std::function<Workload()> make;
};

// The workloads of the table, then the growth series: `resp_inv_data` with 1, 10, 100 ... records.
std::vector<WorkloadPlan> all_workloads(std::uint32_t most_records);

}  // namespace vesk::bench
