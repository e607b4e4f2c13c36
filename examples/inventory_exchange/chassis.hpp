// A chassis: what a description in JSON says, held as the records that the answers are made of.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "eid_text.h"
#include "meanings.h"

// What is wrong with a description, in one line.
struct ChassisError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Chassis {
public:
    // Reads a description; throws ChassisError.
    explicit Chassis(const std::string& path);

    // The records point into the chassis.
    Chassis(const Chassis&) = delete;
    Chassis& operator=(const Chassis&) = delete;
    ~Chassis() = default;

    std::size_t entity_count() const { return places_.size(); }

    // Answers own nothing: their lists, texts and EIDs belong to the chassis and live as long as it does. They are to
    // be encoded and dropped, not freed.
    vesk_resp_inv_data everything() const;
    vesk_resp_inv_data all_of(entity_kind kind) const;

    // The record of one entity, or the lookup error, which then borrows the elements of `eid`.
    vesk_resp_inv_data_by_eid find(const vesk_drin_eid_st& eid) const;

private:
    friend class DescriptionReader;

    struct Place {
        entity_kind kind;
        std::size_t index;  // in the records of its kind
    };

    // chassis, container, ...: one vector for each kind.
    struct Records {
#define KIND(code, name, NAME, record) std::vector<record> name;
#include "meanings.def"
    };

    void add_list(entity_kind kind, vesk_resp_inv_data* answer) const;

    Records records_;
    std::unordered_map<std::string, Place> places_;  // by EID as text
    // Deques, since the records point at what is in them while they grow.
    std::deque<std::string> texts_;
    std::deque<std::array<vesk_drin_eid_element, EID_ELEMENT_LIMIT>> elements_;
};
