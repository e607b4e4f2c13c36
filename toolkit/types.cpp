#include "toolkit/types.hpp"

#include <cstring>

#include "client_service/client_service_fields.hpp"
#include "runtime/facts.hpp"

#define VESK_IMPORTED_NAMES VESK_NAMES

namespace vesk {

#define VESK_NAMES(Message, ...) \
    template <>                  \
    inline constexpr auto names<Message> = make_names(__VA_ARGS__);
#include "client_service/client_service_names.inc"
#include "inventory_db/inventory_db_names.inc"
#undef VESK_NAMES

namespace {

// One after the other; what belongs to another library stands at the end of the last file.
#define VESK_NAMES(Message, ...) , Message
constexpr auto table = make_facts_table<Nothing
#include "client_service/client_service_names.inc"
#include "inventory_db/inventory_db_names.inc"
                                        >();
#undef VESK_NAMES

consteval std::uint32_t count_own() {
    std::uint32_t count = 0;
    for (const vesk_type& type : table.types) count += !is_elsewhere(&type);
    return count;
}

const vesk_type* find(const vesk_type* first, const char* name) {
    for (const vesk_type* type = first; type != nullptr; type = vesk_type_next(type)) {
        if (std::strcmp(vesk_type_name(type), name) == 0) return type;
    }
    return nullptr;
}

consteval std::size_t place_of_identifier() {
    std::size_t place = 0;
    while (!is_elsewhere(&table.types[place])) ++place;
    return place;
}

}  // namespace

const vesk_type* own_identifier() { return &table.types[place_of_identifier()]; }

}  // namespace vesk

const char* vesk_version() { return VESK_VERSION; }

const vesk_type* vesk_all_types(uint32_t* count) {
    if (count != nullptr) *count = vesk::count_own();
    return vesk::table.types;
}

const vesk_type* vesk_type_named(const char* name) {
    if (name == nullptr) return nullptr;
    const vesk_type* type = vesk::find(vesk_all_types(nullptr), name);
    return type != nullptr ? type : vesk::find(vesk::describe_elsewhere(), name);
}
