// The version as its parts and as text.
#include <gtest/gtest.h>
#include <vesk/vesk_runtime.h>

#include <string>

namespace {

TEST(version, text_is_made_of_the_three_numbers) {
    EXPECT_STREQ(VESK_VERSION, (std::to_string(VESK_VERSION_MAJOR) + "." + std::to_string(VESK_VERSION_MINOR) + "." +
                                std::to_string(VESK_VERSION_PATCH))
                                   .c_str());
}

}  // namespace
