// Single fields: one of a message, and those in which two messages differ.
#include "tools/vesk/documents.hpp"
#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/pre_flight.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/types.hpp"
#include "tools/vesk/values.hpp"

namespace vesk::tool {
namespace {

// A line for each element.
void print_elements(const vesk_type* type, const Request& request, const Input& input, Output& output) {
    vesk_iterator iterator;
    vesk_value value;
    value.size = sizeof value;
    vesk_iterate(&iterator, type, request.path.c_str(), input.data(), input.size(), nullptr);
    while (vesk_next(&iterator, &value)) output.write(value_in_words(value, false) + "\n");
}

}  // namespace

int peek_file(const Request& request) {
    const vesk_type* const type = find_type(request.type);
    const Input input(request.files.front(), request.form);
    vesk_value value;
    value.size = sizeof value;
    const std::int32_t code = vesk_peek(type, request.path.c_str(), input.data(), input.size(), &value, nullptr);
    if (code == VESK_NO_SUCH_PATH) {
        throw Failure(quote(request.path) + ": the type has no such path (vesk show " + vesk_type_name(type) +
                      " names its fields)");
    }
    if (code == VESK_ABSENT || code == VESK_PAST_THE_END || code == VESK_OPAQUE) {
        throw Failure(quote(request.path) + ": " + vesk_toolkit_result_text(code));
    }
    if (code != VESK_OK) {
        throw Failure(quote_name(input.name()) + ": " + verdict(check(type, input.data(), input.size())));
    }
    Output output;
    if (value.kind == VESK_KIND_MESSAGE && value.type != nullptr) {
        print_document(value.type, input.name(), value.data, value.length, Format::json, Output::write_to, &output);
        output.rethrow();
    } else if (value.kind >= VESK_KIND_REPEATED) {
        print_elements(type, request, input, output);
    } else {
        output.write(value_in_words(value, false) + "\n");
    }
    output.close();
    return status_ok;
}

int diff_files(const Request& request) {
    const vesk_type* const type = find_type(request.type);
    Message left(type);
    Message right(type);
    Message* const messages[] = {&left, &right};
    for (std::size_t side = 0; side < 2; ++side) {
        const Input input(request.files[side], request.form);
        if (messages[side]->decode(input.data(), input.size()) != VESK_OK) {
            throw Failure(quote_name(input.name()) + ": " + verdict(check(type, input.data(), input.size())));
        }
    }
    Output output;
    std::uint64_t differences = 0;
    const std::int32_t code = vesk_diff(
        type, left.get(), right.get(),
        [](const char* path, const vesk_value* one, const vesk_value* other, void* context) {
            const std::string line = difference_in_words(*static_cast<Output*>(context), path, one, other);
            return Output::write_to(line.data(), line.size(), context);
        },
        &output, &differences, nullptr);
    output.rethrow();
    if (code != VESK_OK) throw Failure(vesk_toolkit_result_text(code));
    output.close();
    return differences == 0 ? status_ok : status_failed;
}

}  // namespace vesk::tool
