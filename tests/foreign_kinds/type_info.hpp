// The messages with every kind as tests over any type know them: their fields as foreign_types() has them, their four
// functions as the library exports them.
#pragma once

#include "tests/support/type_info.hpp"

namespace vesk::test {

// foreign_all, foreign_inner.
const std::vector<const TypeInfo*>& foreign_infos();

}  // namespace vesk::test
