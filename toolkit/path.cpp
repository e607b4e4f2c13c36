#include "toolkit/path.hpp"

namespace vesk {
namespace {

struct Writer {
    char* path;
    std::uint32_t length;

    void add(char character) {
        if (length + 1 < VESK_PATH_SIZE) path[length++] = character;
    }
    void add(const char* text) {
        for (; *text != '\0'; ++text) add(*text);
    }
    void add_decimal(std::uint32_t value) {
        if (value >= 10) add_decimal(value / 10);
        add(static_cast<char>('0' + value % 10));
    }
    void add(const Place* place) {
        if (place == nullptr) return;
        add(place->outer);
        if (place->outer != nullptr) add('.');
        add(vesk_field_name(place->field));
        if (place->element == no_element) return;
        add('[');
        add_decimal(place->element);
        add(']');
    }
};

}  // namespace

std::uint32_t print_path(const Place* place, char* path) {
    Writer writer{path, 0};
    writer.add(place);
    path[writer.length] = '\0';
    return writer.length;
}

}  // namespace vesk
