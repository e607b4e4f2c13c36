#include "bench/contestant.hpp"

namespace vesk::bench {

const char* name_of(Operation operation) {
    switch (operation) {
        case Operation::measure: return "measure";
        case Operation::encode: return "encode";
        case Operation::measure_and_encode: return "measure_and_encode";
        case Operation::decode: return "decode";
        case Operation::duplicate: return "duplicate";
        case Operation::decode_and_free: return "decode_and_free";
    }
    return "";
}

}  // namespace vesk::bench
