#include "tests/foreign_kinds/type_info.hpp"

#include <stdexcept>

#include "tests/foreign_kinds/schema_library.hpp"

namespace vesk::test {
namespace {

Kind kind_of(std::uint16_t fact) {
    static_assert(static_cast<int>(Kind::uint32) + 1 == VESK_KIND_UINT32);
    static_assert(static_cast<int>(Kind::enumeration) + 1 == VESK_KIND_ENUM);
    return static_cast<Kind>(fact - 1);
}

// What type_info.cpp makes of the stand-in's structure, which belongs to no unit.
const TypeInfo& identifier_info() {
    for (const TypeInfo* type : all_types()) {
        for (const FieldInfo& field : type->fields) {
            if (field.nested != nullptr && field.nested->name == "drin_eid_st") return *field.nested;
        }
    }
    throw std::logic_error("no message has an identifier");
}

struct Infos {
    TypeInfo all;
    TypeInfo inner;

    Infos() {
        const std::vector<TypeByHand>& types = foreign_types();
        describe(all, types[0]);
        describe(inner, types[1]);
#define FOREIGN_FUNCTIONS(info, Message)                                                                           \
    info.encode = [](const void* message, void* buffer, std::uint64_t length, vesk_segment* segments,              \
                     std::uint32_t* count, std::uint32_t flags) {                                                  \
        return Message##_encode_ext(static_cast<const Message*>(message), buffer, length, segments, count, flags); \
    };                                                                                                             \
    info.decode = [](void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc, void* context,     \
                     std::uint32_t flags) {                                                                        \
        return Message##_decode_ext(static_cast<Message*>(message), buffer, length, alloc, context, flags);        \
    };                                                                                                             \
    info.duplicate = [](void* destination, const void* source, vesk_alloc alloc, void* context) {                  \
        return Message##_duplicate(static_cast<Message*>(destination), static_cast<const Message*>(source), alloc, \
                                   context);                                                                       \
    };                                                                                                             \
    info.free = [](void* message, vesk_release release, void* context, std::uint32_t flags) {                      \
        Message##_free_ext(static_cast<Message*>(message), release, context, flags);                               \
    };
        FOREIGN_FUNCTIONS(all, foreign_all)
        FOREIGN_FUNCTIONS(inner, foreign_inner)
#undef FOREIGN_FUNCTIONS
    }

    void describe(TypeInfo& info, const TypeByHand& type) const {
        info.name = type.name;
        info.size = type.size;
        info.alignment = type.alignment;
        info.presence_offset = type.presence_offset;
        info.presence_size = (type.fields.size() + 7) / 8;
        for (const FieldByHand& field : type.fields) {
            FieldInfo made{field.number, kind_of(field.kind & ~VESK_KIND_REPEATED), field.offset, field.size_offset,
                           nullptr};
            made.element = made.kind;
            made.packed = field.packed;
            if ((field.kind & VESK_KIND_REPEATED) != 0) {
                made.kind = made.kind == Kind::string  ? Kind::strings
                            : made.kind == Kind::bytes ? Kind::blobs
                                                       : Kind::repeated;
            }
            if (field.nested >= 0) {
                made.nested =
                    foreign_types()[static_cast<std::size_t>(field.nested)].elsewhere ? &identifier_info() : &inner;
            }
            info.fields.push_back(made);
        }
    }
};

}  // namespace

const std::vector<const TypeInfo*>& foreign_infos() {
    static const Infos infos;
    static const std::vector<const TypeInfo*> types{&infos.all, &infos.inner};
    return types;
}

}  // namespace vesk::test
