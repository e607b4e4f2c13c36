// The table of facts, compared with what the tests know of the types from their field lists and headers.
#include <gtest/gtest.h>
#include <vesk/drin_eid.h>
#include <vesk/vesk_toolkit.h>

#include <cstddef>
#include <set>

#include "tests/support/type_info.hpp"

namespace vesk::test {
namespace {

std::vector<const vesk_type*> toolkit_types() {
    std::vector<const vesk_type*> types;
    for (const vesk_type* type = vesk_all_types(nullptr); type != nullptr; type = vesk_type_next(type)) {
        types.push_back(type);
    }
    return types;
}

TEST(version, of_the_library_is_that_of_its_headers) { EXPECT_STREQ(vesk_version(), VESK_VERSION); }

TEST(facts, all_types_gives_the_95_in_the_order_of_the_headers) {
    std::uint32_t count = 0;
    const vesk_type* const first = vesk_all_types(&count);
    ASSERT_EQ(count, 95u);
    const std::vector<const vesk_type*> types = toolkit_types();
    ASSERT_EQ(types.size(), count);
    EXPECT_EQ(types.front(), first);
    std::set<std::string> names;
    for (const vesk_type* type : types) names.insert(vesk_type_name(type));
    EXPECT_EQ(names.size(), count);
    for (const TypeInfo* type : all_types()) EXPECT_TRUE(names.contains(type->name)) << type->name;
}

TEST(facts, name_finds_its_type) {
    for (const vesk_type* type : toolkit_types()) EXPECT_EQ(vesk_type_named(vesk_type_name(type)), type);
}

TEST(facts, identifier_is_found_by_name) {
    const vesk_type* const type = vesk_type_named("drin_eid_st");
    ASSERT_NE(type, nullptr);
    EXPECT_STREQ(vesk_type_unit(type), "drin_eid");
    EXPECT_EQ(type->flags & VESK_TYPE_ELSEWHERE, 0);
    EXPECT_EQ(type->structure_size, sizeof(vesk_drin_eid_st));
    EXPECT_EQ(vesk_type_named("drin_eid_element"), vesk_field_nested(vesk_type_field_numbered(type, 6)));
}

TEST(facts, unknown_null_and_prefixed_names_find_nothing) {
    for (const char* name : {"", "pem", "pem_data2", "vesk_pem_data", "PEM_DATA"}) {
        EXPECT_EQ(vesk_type_named(name), nullptr) << name;
    }
    EXPECT_EQ(vesk_type_named(nullptr), nullptr);
}

std::uint16_t kind_of_fact(Kind kind) {
    switch (kind) {
        case Kind::uint32: return VESK_KIND_UINT32;
        case Kind::uint64: return VESK_KIND_UINT64;
        case Kind::boolean: return VESK_KIND_BOOL;
        case Kind::string: return VESK_KIND_STRING;
        case Kind::bytes: return VESK_KIND_BYTES;
        case Kind::message: return VESK_KIND_MESSAGE;
        case Kind::list: return VESK_KIND_LIST;
        default: break;  // a kind that messages of others alone have
    }
    return 0;
}

TEST(facts, every_field_lies_where_the_compiler_put_it) {
    for (const TypeInfo* type : all_types()) {
        SCOPED_TRACE(type->name);
        const vesk_type* const facts = vesk_type_named(type->name.c_str());
        ASSERT_NE(facts, nullptr);
        EXPECT_EQ(facts->structure_size, type->size);
        EXPECT_EQ(facts->alignment, type->alignment);
        EXPECT_EQ(facts->presence_offset, type->presence_offset);
        ASSERT_EQ(facts->field_count, type->fields.size());
        for (std::uint32_t place = 0; place < facts->field_count; ++place) {
            const FieldInfo& info = type->fields[place];
            const vesk_field* const field = vesk_type_field(facts, place);
            SCOPED_TRACE(vesk_field_name(field));
            EXPECT_EQ(vesk_field_number(field), info.number);
            EXPECT_EQ(field->tag & 7, info.kind <= Kind::boolean ? 0u : 2u);
            EXPECT_EQ(field->kind, kind_of_fact(info.kind));
            EXPECT_EQ(field->offset, info.offset);
            EXPECT_EQ(field->size_offset, info.second_offset);
            EXPECT_EQ(field->presence_bit, place);
            const vesk_type* const nested = vesk_field_nested(field);
            ASSERT_EQ(nested != nullptr, info.nested != nullptr);
            if (nested != nullptr) {
                EXPECT_EQ(std::string(vesk_type_name(nested)), info.nested->name);
                EXPECT_EQ(nested->structure_size, info.nested->size);
            }
            EXPECT_EQ(vesk_type_field_numbered(facts, info.number), field);
        }
    }
}

TEST(facts, number_that_no_field_has_finds_nothing) {
    for (const vesk_type* type : toolkit_types()) {
        std::set<std::uint32_t> numbers;
        for (std::uint32_t place = 0; place < type->field_count; ++place) {
            numbers.insert(vesk_field_number(vesk_type_field(type, place)));
        }
        for (std::uint32_t number = 0; number < 70; ++number) {
            EXPECT_EQ(vesk_type_field_numbered(type, number) != nullptr, numbers.contains(number)) << number;
        }
        EXPECT_EQ(vesk_type_field_numbered(type, UINT32_MAX), nullptr);
    }
}

TEST(facts, names_are_those_of_the_members) {
    const vesk_type* const type = vesk_type_named("pem_data");
    ASSERT_NE(type, nullptr);
    EXPECT_STREQ(vesk_type_unit(type), "client_service");
    const std::vector<std::string> expected = {"entity_common", "fru_common", "f3", "f4"};
    ASSERT_EQ(type->field_count, expected.size());
    for (std::uint32_t place = 0; place < type->field_count; ++place) {
        EXPECT_EQ(vesk_field_name(vesk_type_field(type, place)), expected[place]);
    }
}

TEST(result_name, code_of_library_or_toolkit_has_a_name_and_a_text_of_its_own) {
    std::set<std::string> names;
    std::set<std::string> texts;
    for (const std::int32_t code : {0, -1, -2, -3, -4, -101, -102, -103, -104, -105, -106, -107, 12345}) {
        names.insert(vesk_toolkit_result_name(code));
        texts.insert(vesk_toolkit_result_text(code));
    }
    EXPECT_EQ(names.size(), 13u);
    EXPECT_EQ(texts.size(), 13u);
    EXPECT_STREQ(vesk_result_name(VESK_MALFORMED), "VESK_MALFORMED");
    EXPECT_STREQ(vesk_result_name(VESK_ABSENT), vesk_result_name(12345));
    EXPECT_STREQ(vesk_toolkit_result_name(VESK_ABSENT), "VESK_ABSENT");
}

}  // namespace
}  // namespace vesk::test
