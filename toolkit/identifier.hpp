// Entity identifiers that their library does not describe.
#pragma once

#include <vesk/vesk_toolkit.h>

#include <cstdint>

namespace vesk {

// What the identifier's decode function would return for these bytes, and what it would ask for: as the options'
// callback says, or tried in their scratch memory. VESK_OPAQUE if neither can tell.
std::int32_t try_identifier(const vesk_options& options, const void* bytes, std::uint64_t length, std::uint32_t flags,
                            vesk_cost* cost);

}  // namespace vesk
