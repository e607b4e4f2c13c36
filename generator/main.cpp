// protoc-gen-vesk: a protoc plugin that turns a .proto file into a C header, the C++ field lists and the export lines.
//
//     protoc --vesk_out=OUT records.proto
//
// It describes messages and knows no rule of the wire: those stand in runtime/.
#include <google/protobuf/compiler/plugin.h>

#include "generator/generator.hpp"

int main(int argc, char** argv) {
    vesk::generator::Generator generator;
    return google::protobuf::compiler::PluginMain(argc, argv, &generator);
}
