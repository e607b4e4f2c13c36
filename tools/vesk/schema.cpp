#include "tools/vesk/schema.hpp"

#include <dlfcn.h>

#include <cstdint>
#include <filesystem>

#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"

namespace vesk::tool {
namespace {

struct Schema {
    std::string name;
    void* library = nullptr;
    const vesk_type* first = nullptr;
};
Schema schema;  // until the program ends

// The loader looks for a name without a slash where libraries are installed, and nowhere else.
std::string path_of(const std::string& library) {
    std::error_code error;
    const bool is_here = library.find('/') == std::string::npos && std::filesystem::exists(library, error);
    return is_here ? "./" + library : library;
}

}  // namespace

void use_schema(const std::string& library) {
    void* const loaded = dlopen(path_of(library).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) throw Failure("--schema: " + visible(dlerror()));
    using AllTypes = const vesk_type* (*)(std::uint32_t*);
    const auto all_types_of = reinterpret_cast<AllTypes>(dlsym(loaded, "vesk_schema_all_types"));
    if (all_types_of == nullptr) {
        throw Failure("--schema: " + quote_name(library) +
                      " has no vesk_schema_all_types; name a library of what protoc-gen-vesk has made of a schema");
    }
    schema = {library, loaded, all_types_of(nullptr)};
    if (schema.first == nullptr) throw Failure("--schema: " + quote_name(library) + " has no message type");
}

const vesk_type* first_of_schema() { return schema.first; }

void* function_of_schema(const std::string& name) {
    void* const function = dlsym(schema.library, name.c_str());
    if (function == nullptr) throw Failure("--schema: " + quote_name(schema.name) + " has no function " + name);
    return function;
}

}  // namespace vesk::tool
