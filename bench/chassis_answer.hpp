// The answer to a request for everything in a chassis, made of the records of examples/chassis.json.
#pragma once

#include "bench/messages.hpp"

namespace vesk::bench {

// A resp_inv_data with so many entities of each kind. If there are more than the example has of a kind, further shelves
// hold copies of these, with numbers of their own and what a sensor or a meter shows a little different. Messages of
// other turns have other readings.
Message chassis_answer(std::uint32_t entities_of_a_kind, std::size_t turn);

}  // namespace vesk::bench
