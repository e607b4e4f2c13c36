// From bytes to a document, and back.
#include "tools/vesk/documents.hpp"
#include "tools/vesk/failure.hpp"
#include "tools/vesk/inputs.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/table.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

Format format_of(const Request& request) { return request.text ? Format::text : Format::json; }

}  // namespace

int decode_files(const Request& request) {
    Output output;
    const int status = for_each_subject(request, [&](const Subject& subject) {
        if (request.table) {
            output.write(print_table(subject.type, subject.name, subject.data, subject.length));
        } else {
            print_document(subject.type, subject.name, subject.data, subject.length, format_of(request),
                           Output::write_to, &output);
            output.rethrow();
        }
        return status_ok;
    });
    output.close();
    return status;
}

int encode_file(const Request& request) {
    const vesk_type* const type = find_type(request.type);
    const Input input(request.files.front(), Form::raw);
    const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
    Output output;
    output.write(in_form(encode_document(type, input.name(), text, format_of(request)), request.form));
    output.close();
    return status_ok;
}

}  // namespace vesk::tool
