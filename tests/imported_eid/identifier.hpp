// Identifiers that tell the recorder what to answer.
#pragma once

#include "tests/imported_eid/eid_recorder.h"

namespace vesk::test {

// An identifier of which a measuring call says `size`. See eid_recorder.h for the rest.
inline vesk_drin_eid_st identifier(std::uint32_t size, std::uint32_t written = 0, std::uint32_t segments = 0) {
    vesk_drin_eid_st eid = {};
    eid.f1 = size;
    eid.f2 = written;
    eid.f3 = segments;
    return eid;
}

}  // namespace vesk::test
