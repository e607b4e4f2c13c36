#include "text/printer.hpp"

namespace vesk {

bool accept_input(const vesk_type* type, const void* input, std::uint64_t length, Outcome& outcome, bool* in_order) {
    vesk_report found;
    found.size = sizeof found;
    const std::int32_t code = vesk_check(type, input, length, VESK_BYTES_BY_REFERENCE, &found, nullptr);
    *in_order = found.in_order != 0;
    if (code == VESK_OK) return true;
    outcome.fail(code, nullptr);
    std::memcpy(outcome.report().path, found.path, sizeof found.path);
    return false;
}

}  // namespace vesk
