#pragma once

#include <google/protobuf/compiler/code_generator.h>

#include <string>
#include <vector>

namespace vesk::generator {

// Writes, for FILE.proto and for each file whose messages it holds:
//   FILE.h             structures, presence-bit enumerators and prototypes, plain C
//   FILE_fields.hpp    the field lists that the runtime's templates work from
//   FILE_names.inc     names for the table of facts
//   FILE_members.inc   members for the view
//   FILE_exports.cpp   one export line per message
//   FILE.symbols       the names of the exported functions, one per line
//   FILE.hpp           the messages for the view
// and, for all of them together, LIBRARY_types.h, LIBRARY_types.cpp, LIBRARY_sources.cpp and LIBRARY.map.
//
// Parameters, separated by commas:
//   prefix=NAME        what C names of the files on the command line begin with: structure NAME_record, enumerator
//                      NAME_RECORD_F3 in upper case. A file's package with underscores for dots, or the file's own
//                      name, if it is not given.
//   library=NAME       what the names of the library's own functions and files begin with. The first file's prefix, if
//   it
//                      is not given.
//   layout=house       the layout and the rules of this repository's own messages: each unit in a folder of its own
//   with its
//                      header as <PREFIX/unit.h>, no table of facts, prefix=NAME needed. With it alone:
//   imported=FILE      messages of this imported file belong to another library and are called through their exported
//                      functions. May be given more than once.
//   document=FILE.md   no code, but one document about the messages of all files in the order given.
//   sizes=FILE.h       no code, but a header with what is known of each type while compiling.
class Generator : public google::protobuf::compiler::CodeGenerator {
public:
    bool Generate(const google::protobuf::FileDescriptor* file, const std::string& parameter,
                  google::protobuf::compiler::GeneratorContext* context, std::string* error) const override;

    bool GenerateAll(const std::vector<const google::protobuf::FileDescriptor*>& files, const std::string& parameter,
                     google::protobuf::compiler::GeneratorContext* context, std::string* error) const override;

    uint64_t GetSupportedFeatures() const override { return FEATURE_PROTO3_OPTIONAL; }
};

}  // namespace vesk::generator
