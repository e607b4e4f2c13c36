#include "generator/generator.hpp"

#include <google/protobuf/io/printer.h>
#include <google/protobuf/io/zero_copy_stream.h>

#include <memory>

#include "generator/document.hpp"
#include "generator/library.hpp"
#include "generator/model.hpp"
#include "generator/outputs.hpp"
#include "generator/sizes.hpp"

namespace vesk::generator {
namespace {

void write_file(google::protobuf::compiler::GeneratorContext* context, const std::string& name,
                const std::string& text) {
    const std::unique_ptr<google::protobuf::io::ZeroCopyOutputStream> stream(context->Open(name));
    google::protobuf::io::Printer(stream.get(), '$').PrintRaw(text);
}

// In the folder that protoc is given.
void write_unit(google::protobuf::compiler::GeneratorContext* context, const Unit& unit) {
    write_file(context, unit.name + ".h", print_header(unit));
    write_file(context, unit.name + "_fields.hpp", print_fields(unit));
    write_file(context, unit.name + "_names.inc", print_names(unit));
    write_file(context, unit.name + "_members.inc", print_members(unit));
    write_file(context, unit.name + "_exports.cpp", print_exports(unit));
    write_file(context, unit.name + ".symbols", print_symbols(unit));
}

void write_house(google::protobuf::compiler::GeneratorContext* context,
                 const std::vector<const google::protobuf::FileDescriptor*>& files, const Options& options) {
    std::vector<Unit> units;
    units.reserve(files.size());
    for (const google::protobuf::FileDescriptor* file : files) units.push_back(read_house_unit(*file, options));
    if (!options.document.empty()) write_file(context, options.document, print_document(units));
    if (!options.sizes.empty()) write_file(context, options.sizes, print_sizes(units));
    if (!options.document.empty() || !options.sizes.empty()) return;
    for (const Unit& unit : units) write_unit(context, unit);
}

void write_library(google::protobuf::compiler::GeneratorContext* context, const Library& library) {
    for (const Unit& unit : library.units) {
        write_unit(context, unit);
        write_file(context, unit.name + ".hpp", print_view(unit, library.name));
    }
    write_file(context, library.name + "_types.h", print_types_header(library));
    write_file(context, library.name + "_types.cpp", print_types(library));
    write_file(context, library.name + "_sources.cpp", print_sources(library));
    write_file(context, library.name + ".map", print_version_script(library));
}

}  // namespace

bool Generator::Generate(const google::protobuf::FileDescriptor* file, const std::string& parameter,
                         google::protobuf::compiler::GeneratorContext* context, std::string* error) const {
    return GenerateAll({file}, parameter, context, error);
}

bool Generator::GenerateAll(const std::vector<const google::protobuf::FileDescriptor*>& files,
                            const std::string& parameter, google::protobuf::compiler::GeneratorContext* context,
                            std::string* error) const {
    try {
        const Options options = read_options(parameter);
        if (options.is_house) {
            write_house(context, files, options);
        } else {
            write_library(context, read_library(files, options));
        }
    } catch (const Refusal& refusal) {
        *error = refusal.line;
        return false;
    }
    return true;
}

}  // namespace vesk::generator
