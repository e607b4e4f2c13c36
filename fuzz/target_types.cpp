// By itself in a source, which the linker takes out of the archive only if the target has no such function.
#include "fuzz/input.hpp"

const std::vector<const vesk::test::TypeInfo*>& vesk::fuzz::target_types() { return test::all_types(); }
