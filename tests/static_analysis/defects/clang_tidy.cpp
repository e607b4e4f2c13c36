// clang-tidy finds bugprone-use-after-move
#include <string>
#include <utility>

std::string::size_type length_of_what_is_gone(std::string text) {
    const std::string taken = std::move(text);
    return taken.size() + text.size();
}
