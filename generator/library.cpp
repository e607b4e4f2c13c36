#include "generator/library.hpp"

#include "generator/outputs.hpp"

namespace vesk::generator {
namespace {

std::string files_of(const Library& library) {
    std::string files;
    for (std::size_t i = 0; i < library.units.size(); ++i) {
        if (i != 0) files += i + 1 < library.units.size() ? ", " : " and ";
        files += library.units[i].name + ".proto";
    }
    return files;
}

std::string include_each(const Library& library, const std::string& end) {
    std::string text;
    for (const Unit& unit : library.units) text += "#include \"" + unit.name + end + "\"\n";
    return text;
}

}  // namespace

std::string print_types_header(const Library& library) {
    const std::string guard = upper_case(library.name) + "_TYPES_H";
    return origin_in_c(files_of(library), "") +
           "/* What the messages of the library consist of, for functions that work on any message. */\n"
           "#ifndef " +
           guard + "\n#define " + guard +
           "\n\n#include <vesk/vesk_facts.h>\n#include <vesk/vesk_runtime.h>\n\n#ifdef __cplusplus\nextern \"C\" {\n"
           "#endif\n\n"
           "/* The first type of the library; vesk_type_next leads to the others. `count` may be null. */\n"
           "VESK_API const vesk_type *" +
           library.name +
           "_all_types(uint32_t *count);\n\n"
           "/* The type whose structure has this name; null if there is none, or if the name is null. */\n"
           "VESK_API const vesk_type *" +
           library.name +
           "_type_named(const char *name);\n\n"
           "/* The same as the first, by a name that every library of this kind has, for who opens it at run time:\n"
           " * `vesk --schema`. A program that is linked with several has that of one of them. */\n"
           "#ifndef VESK_SCHEMA_ALL_TYPES\n#define VESK_SCHEMA_ALL_TYPES\n"
           "VESK_API const vesk_type *vesk_schema_all_types(uint32_t *count);\n#endif\n\n"
           "#ifdef __cplusplus\n}\n#endif\n\n#endif\n";
}

std::string print_types(const Library& library) {
    const std::string& name = library.name;
    std::string text = origin_in_cpp(files_of(library), "") + "// The table of facts of its messages.\n";
    text += "#include \"" + name + "_types.h\"\n\n#include <cstring>\n\n" + include_each(library, "_fields.hpp") +
            "#include \"runtime/facts.hpp\"\n\nnamespace vesk {\n\n"
            "#define VESK_NAMES(Message, ...) \\\n    template <>                  \\\n"
            "    inline constexpr auto names<Message> = make_names(__VA_ARGS__);\n" +
            include_each(library, "_names.inc") +
            "#undef VESK_NAMES\n\nnamespace {\n\n#define VESK_NAMES(Message, ...) , Message\n"
            "constexpr auto table = make_facts_table<Nothing\n" +
            include_each(library, "_names.inc") +
            ">();\n#undef VESK_NAMES\n\n}  // namespace\n}  // namespace vesk\n\n";
    std::size_t count = 0;
    for (const Unit& unit : library.units) count += unit.messages.size();
    text += "const vesk_type* " + name +
            "_all_types(uint32_t* count) {\n    if (count != nullptr) *count = " + std::to_string(count) +
            ";\n    return vesk::table.types;\n}\n\n";
    text += "const vesk_type* " + name +
            "_type_named(const char* name) {\n    if (name == nullptr) return nullptr;\n"
            "    const vesk_type* type = vesk::table.types;\n"
            "    while (type != nullptr && std::strcmp(vesk_type_name(type), name) != 0) type = vesk_type_next(type);\n"
            "    return type;\n}\n\n";
    text += "[[gnu::weak]] const vesk_type* vesk_schema_all_types(uint32_t* count) { return " + name +
            "_all_types(count); }\n";
    return text;
}

std::string print_sources(const Library& library) {
    return origin_in_cpp(files_of(library), "") +
           "// The whole library in one source: the rules of the four operations, the functions of its messages, the "
           "table of\n"
           "// facts.\n"
           "// It wants C++20, its own folder, that of runtime/ and that of <vesk/vesk_runtime.h> on the include "
           "path.\n\n"
           "// The rules have a name of their own in each library: so two static libraries can be in one program.\n"
           "#define vesk " +
           library.name +
           "_runtime\n\n"
           "#include \"runtime/decode.cpp\"\n#include \"runtime/draft.cpp\"\n#include \"runtime/duplicate.cpp\"\n"
           "#include \"runtime/encode.cpp\"\n#include \"runtime/release.cpp\"\n#include "
           "\"runtime/repeated.cpp\"\n#include \"runtime/wire.cpp\"\n" +
           include_each(library, "_exports.cpp") + "#include \"" + library.name + "_types.cpp\"\n";
}

std::string print_version_script(const Library& library) {
    std::string text = "{\n    global:\n";
    for (const Unit& unit : library.units) {
        for (const Message& message : unit.messages) {
            for (const std::string& function : functions_of(message)) text += "        " + function + ";\n";
        }
    }
    text += "        " + library.name + "_all_types;\n        " + library.name + "_type_named;\n";
    return text + "        vesk_schema_all_types;\n    local:\n        *;\n};\n";
}

}  // namespace vesk::generator
