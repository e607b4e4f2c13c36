// protoc-gen-vesk: a protoc plugin that turns .proto files into C headers, C++ field lists and a library's other
// sources.
//
//     protoc --vesk_out=OUT records.proto
//
// It describes messages and knows no rule of the wire: those stand in runtime/.
#include <google/protobuf/compiler/plugin.h>
#include <vesk/vesk_runtime.h>

#include <iostream>
#include <string_view>

#include "generator/generator.hpp"

int main(int argc, char** argv) {
    if (argc == 2 && std::string_view(argv[1]) == "--version") {
        std::cout << "protoc-gen-vesk " VESK_VERSION "\n";
        return 0;
    }
    if (argc != 1) {
        const bool is_asked_for = argc == 2 && std::string_view(argv[1]) == "--help";
        (is_asked_for ? std::cout : std::cerr)
            << "protoc-gen-vesk is run by protoc: protoc --vesk_out=[prefix=NAME,library=NAME:]FOLDER FILE...\n";
        return is_asked_for ? 0 : 2;
    }
    vesk::generator::Generator generator;
    return google::protobuf::compiler::PluginMain(argc, argv, &generator);
}
