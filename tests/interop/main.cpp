#include <google/protobuf/stubs/common.h>
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    GOOGLE_PROTOBUF_VERIFY_VERSION;
    // Its messages about damaged input are expected.
    google::protobuf::SetLogHandler(nullptr);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
