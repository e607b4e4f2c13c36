// What is measured: named sets of messages of one type.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/messages.hpp"

namespace vesk::bench {

struct Workload {
    std::string name;
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
