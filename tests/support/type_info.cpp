#include "tests/support/type_info.hpp"

#include <algorithm>
#include <type_traits>

#include "client_service/client_service_fields.hpp"
#include "drin_eid/drin_eid_fields.hpp"
#include "tests/support/api.hpp"

namespace vesk::test {

// The stand-in's two types. They belong to no unit, so the list of all types does not have them.
template <>
struct Api<vesk_drin_eid_st> {
    static constexpr const char* name = "vesk_drin_eid_st";
    static constexpr auto encode = vesk_drin_eid_st_encode_ext;
    static constexpr auto decode = vesk_drin_eid_st_decode_ext;
    static constexpr auto duplicate = vesk_drin_eid_st_duplicate;
    static constexpr auto free = vesk_drin_eid_st_free_ext;
};
template <>
struct Api<vesk_drin_eid_element> {
    static constexpr const char* name = "vesk_drin_eid_element";
    static constexpr auto encode = vesk_drin_eid_element_encode_ext;
    static constexpr auto decode = vesk_drin_eid_element_decode_ext;
    static constexpr auto duplicate = vesk_drin_eid_element_duplicate;
    static constexpr auto free = vesk_drin_eid_element_free_ext;
};

namespace {

template <class T>
const TypeInfo& type_info();

template <class T, class Member>
std::size_t offset_of(Member T::*member) {
    static const T message{};
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&(message.*member)) -
                                    reinterpret_cast<const char*>(&message));
}

template <class T, std::size_t Index>
FieldInfo describe_field() {
    constexpr auto field = field_of<T, Index>;
    constexpr Kind kind = kind_of<T, Index>;
    FieldInfo info{number_of<T, Index>, kind, 0, 0, nullptr};
    if constexpr (is_repeated_kind(kind)) {
        info.offset = offset_of(field.array);
        info.second_offset = offset_of(field.count);
        if constexpr (kind == Kind::repeated) {
            info.element = TagOf<T, Index>::Scalar::kind;
            info.packed = TagOf<T, Index>::is_packed;
        }
    } else if constexpr (kind == Kind::list) {
        info.offset = offset_of(field.array);
        info.second_offset = offset_of(field.count);
        info.nested = &type_info<std::remove_pointer_t<std::remove_cvref_t<decltype(T{}.*field.array)>>>();
    } else if constexpr (kind == Kind::bytes) {
        info.offset = offset_of(field.data);
        info.second_offset = offset_of(field.length);
    } else {
        info.offset = offset_of(field.member);
        if constexpr (kind == Kind::message) {
            info.nested = &type_info<std::remove_cvref_t<decltype(T{}.*field.member)>>();
        }
    }
    return info;
}

template <class T, std::size_t... Indices>
std::vector<FieldInfo> describe_fields(std::index_sequence<Indices...>) {
    return {describe_field<T, Indices>()...};
}

template <class T>
const TypeInfo& type_info() {
    static const TypeInfo info{
        std::string(Api<T>::name).substr(sizeof "vesk_" - 1),
        sizeof(T),
        alignof(T),
        offset_of(&T::present),
        sizeof(T::present),
        describe_fields<T>(std::make_index_sequence<field_count<T>>{}),
        [](const void* message, void* buffer, std::uint64_t length, vesk_segment* segments, std::uint32_t* count,
           std::uint32_t flags) {
            return Api<T>::encode(static_cast<const T*>(message), buffer, length, segments, count, flags);
        },
        [](void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc, void* context,
           std::uint32_t flags) {
            return Api<T>::decode(static_cast<T*>(message), buffer, length, alloc, context, flags);
        },
        [](void* destination, const void* source, vesk_alloc alloc, void* context) {
            return Api<T>::duplicate(static_cast<T*>(destination), static_cast<const T*>(source), alloc, context);
        },
        [](void* message, vesk_release release, void* context, std::uint32_t flags) {
            Api<T>::free(static_cast<T*>(message), release, context, flags);
        },
    };
    return info;
}

// Calls visit(field index) for the fields of a message, visit(element type, element) for the messages inside it.
template <class OnField, class OnNested>
void visit_fields(const TypeInfo& type, const void* message, OnField on_field, OnNested on_nested) {
    for (std::size_t index = 0; index < type.fields.size(); ++index) {
        const FieldInfo& field = type.fields[index];
        on_field(index, field);
        if (field.kind == Kind::message) {
            on_nested(*field.nested, member_at(message, field.offset));
        } else if (field.kind == Kind::list) {
            const auto count = load<std::uint32_t>(message, field.second_offset);
            for (std::size_t i = 0; i < count; ++i) {
                on_nested(*field.nested, element_at(load<void*>(message, field.offset), *field.nested, i));
            }
        }
    }
}

bool is_zero(const void* message, const FieldInfo& field) {
    if (is_scalar_kind(field.kind)) return load_scalar(field.kind, message, field.offset) == 0;
    switch (field.kind) {
        case Kind::string: return load<void*>(message, field.offset) == nullptr;
        case Kind::bytes:
            return load<void*>(message, field.offset) == nullptr &&
                   load<std::uint64_t>(message, field.second_offset) == 0;
        case Kind::message: return true;  // visited by itself
        default:
            return load<void*>(message, field.offset) == nullptr &&
                   load<std::uint32_t>(message, field.second_offset) == 0;
    }
}

}  // namespace

std::size_t size_of_scalar(Kind kind) {
    switch (kind) {
        case Kind::boolean: return 1;
        case Kind::uint32:
        case Kind::sint32:
        case Kind::int32:
        case Kind::fixed32:
        case Kind::sfixed32:
        case Kind::float32:
        case Kind::enumeration: return 4;
        case Kind::uint64:
        case Kind::sint64:
        case Kind::int64:
        case Kind::fixed64:
        case Kind::sfixed64:
        case Kind::float64: return 8;
        default: return 0;
    }
}

std::uint64_t load_scalar(Kind kind, const void* message, std::size_t offset) {
    switch (size_of_scalar(kind)) {
        case 1: return load<std::uint8_t>(message, offset);
        case 4: return load<std::uint32_t>(message, offset);
        default: return load<std::uint64_t>(message, offset);
    }
}

void store_scalar(Kind kind, void* message, std::size_t offset, std::uint64_t value) {
    switch (size_of_scalar(kind)) {
        case 1: return store(message, offset, static_cast<std::uint8_t>(value));
        case 4: return store(message, offset, static_cast<std::uint32_t>(value));
        default: return store(message, offset, value);
    }
}

const std::vector<const TypeInfo*>& all_types() {
#define VESK_TEST_INFO(T) &type_info<T>(),
    static const std::vector<const TypeInfo*> types{VESK_TEST_TYPES(VESK_TEST_INFO)};
#undef VESK_TEST_INFO
    return types;
}

const TypeInfo* find_type(const std::string& name) {
    for (const TypeInfo* type : all_types()) {
        if (type->name == name) return type;
    }
    return nullptr;
}

bool is_present(const TypeInfo& type, const void* message, std::size_t field_index) {
    const auto byte = load<std::uint8_t>(message, type.presence_offset + field_index / 8);
    return (byte >> field_index % 8 & 1) != 0;
}

bool is_clear(const TypeInfo& type, const void* message) {
    bool clear = true;
    for (std::size_t i = 0; i < type.presence_size; ++i) {
        if (load<std::uint8_t>(message, type.presence_offset + i) != 0) clear = false;
    }
    visit_fields(
        type, message, [&](std::size_t, const FieldInfo& field) { clear = clear && is_zero(message, field); },
        [&](const TypeInfo& nested, const void* member) { clear = clear && is_clear(nested, member); });
    return clear;
}

bool is_full(const TypeInfo& type, const void* message) {
    bool full = true;
    visit_fields(
        type, message,
        [&](std::size_t index, const FieldInfo& field) {
            full = full && is_present(type, message, index);
            if (field.kind == Kind::list || is_repeated_kind(field.kind)) {
                full = full && load<std::uint32_t>(message, field.second_offset) != 0;
            }
        },
        [&](const TypeInfo& nested, const void* member) { full = full && is_full(nested, member); });
    return full;
}

std::vector<const void*> owned_blocks(const TypeInfo& type, const void* message) {
    std::vector<const void*> blocks;
    visit_fields(
        type, message,
        [&](std::size_t, const FieldInfo& field) {
            if (is_scalar_kind(field.kind) || field.kind == Kind::message) return;
            const void* block = load<void*>(message, field.offset);
            if (block == nullptr) return;
            blocks.push_back(block);
            if (field.kind != Kind::strings && field.kind != Kind::blobs) return;
            const std::size_t step = field.kind == Kind::strings ? sizeof(char*) : sizeof(vesk_bytes);
            for (std::uint32_t i = 0; i < load<std::uint32_t>(message, field.second_offset); ++i) {
                const void* element = load<void*>(block, i * step);
                if (element != nullptr) blocks.push_back(element);
            }
        },
        [&](const TypeInfo& nested, const void* member) {
            const std::vector<const void*> inner = owned_blocks(nested, member);
            blocks.insert(blocks.end(), inner.begin(), inner.end());
        });
    return blocks;
}

Bytes encoded(const TypeInfo& type, const void* message, std::uint32_t flags) {
    const std::uint64_t length = type.encode(message, nullptr, 0, nullptr, nullptr, flags);
    Bytes buffer(length + 1, 0xEE);
    const std::uint64_t written = type.encode(message, buffer.data(), length, nullptr, nullptr, flags);
    if (written != length || buffer[length] != 0xEE) return hex("DEADBEEF");
    buffer.resize(length);
    return buffer;
}

AnyDecoded::AnyDecoded(const TypeInfo& type, const Bytes& bytes, std::uint32_t flags)
    : type(type), input(new std::uint8_t[bytes.size()]), flags(flags), message(type) {
    std::copy(bytes.begin(), bytes.end(), input.get());
    code = type.decode(message.get(), input.get(), bytes.size(), Ledger::alloc, &ledger, flags);
}

}  // namespace vesk::test
