// foreign_tests [GTEST_OPTIONS] LIBRARY FOLDER...: tests a library of generated messages, whose .proto files are in the
// folders, against a general protobuf.
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "tests/foreign/schema.hpp"

namespace vesk::test {
namespace {

std::vector<std::string> arguments;

}  // namespace

const ForeignSchema& schema() {
    if (arguments.size() < 2) {
        std::cerr << "usage: foreign_tests LIBRARY FOLDER...\n";
        std::exit(2);
    }
    static const ForeignSchema only(arguments[0], {arguments.begin() + 1, arguments.end()});
    return only;
}

}  // namespace vesk::test

int main(int argc, char** argv) {
    google::protobuf::SetLogHandler(nullptr);  // what it says of damaged input is expected
    ::testing::InitGoogleTest(&argc, argv);
    vesk::test::arguments.assign(argv + 1, argv + argc);
    return RUN_ALL_TESTS();
}
