#include "generator/generator.hpp"

#include <google/protobuf/io/printer.h>
#include <google/protobuf/io/zero_copy_stream.h>

#include <memory>

#include "generator/document.hpp"
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

}  // namespace

bool Generator::Generate(const google::protobuf::FileDescriptor* file, const std::string& parameter,
                         google::protobuf::compiler::GeneratorContext* context, std::string* error) const {
    Options options;
    Unit unit;
    if (!read_options(parameter, &options, error) || !read_unit(*file, options, &unit, error)) return false;
    write_file(context, unit.name + ".h", print_header(unit));
    write_file(context, unit.name + "_fields.hpp", print_fields(unit));
    write_file(context, unit.name + "_names.inc", print_names(unit));
    write_file(context, unit.name + "_members.inc", print_members(unit));
    write_file(context, unit.name + "_exports.cpp", print_exports(unit));
    write_file(context, unit.name + ".symbols", print_symbols(unit));
    return true;
}

bool Generator::GenerateAll(const std::vector<const google::protobuf::FileDescriptor*>& files,
                            const std::string& parameter, google::protobuf::compiler::GeneratorContext* context,
                            std::string* error) const {
    Options options;
    if (!read_options(parameter, &options, error)) return false;
    if (options.document.empty() && options.sizes.empty())
        return CodeGenerator::GenerateAll(files, parameter, context, error);
    std::vector<Unit> units(files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!read_unit(*files[i], options, &units[i], error)) return false;
    }
    if (!options.document.empty()) write_file(context, options.document, print_document(units));
    if (!options.sizes.empty()) write_file(context, options.sizes, print_sizes(units));
    return true;
}

}  // namespace vesk::generator
