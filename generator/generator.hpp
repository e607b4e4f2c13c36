#pragma once

#include <google/protobuf/compiler/code_generator.h>

#include <string>
#include <vector>

namespace vesk::generator {

// Writes, for FILE.proto:
//   FILE.h             structures, presence-bit enumerators and prototypes, plain C
//   FILE_fields.hpp    the field lists that the runtime's templates work from
//   FILE_exports.cpp   one export line per message
//   FILE.symbols       the names of the exported functions, one per line
//
// Parameters, separated by commas:
//   prefix=NAME        what C names begin with: structure NAME_record, enumerator NAME_RECORD_F3 in upper case,
//                      public headers in <NAME/...>. "vesk" if it is not given.
//   imported=FILE      messages of this imported file belong to another library and are called through their exported
//                      functions. May be given more than once.
//   document=FILE.md   no code, but one document about the messages of all files in the order given.
class Generator : public google::protobuf::compiler::CodeGenerator {
public:
    bool Generate(const google::protobuf::FileDescriptor* file, const std::string& parameter,
                  google::protobuf::compiler::GeneratorContext* context, std::string* error) const override;

    bool GenerateAll(const std::vector<const google::protobuf::FileDescriptor*>& files, const std::string& parameter,
                     google::protobuf::compiler::GeneratorContext* context, std::string* error) const override;

    uint64_t GetSupportedFeatures() const override { return FEATURE_PROTO3_OPTIONAL; }
};

}  // namespace vesk::generator
