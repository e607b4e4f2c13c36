// The walk over a message that is printed, whatever it is read from (fields.hpp) and whatever it is printed as. A
// format puts the characters:
//
//     begin_text() end_text()                 around all
//     begin_field(field)                      in front of a scalar, string or bytes field: its name
//     number(kind, value) string(data) bytes(data)   its value; string says whether the format can carry it
//     end_field()
//     begin_list(field) end_list()            around the elements of a list
//     begin_message(field) end_message()      around the fields of a nested message
//     begin_element(field) end_message()      and of an element
//     begin_value(field) end_value()          around an element of a repeated field, in begin_list and end_list, too
#pragma once

#include "text/fields.hpp"
#include "text/output.hpp"
#include "text/report.hpp"
#include "toolkit/types.hpp"

namespace vesk {

template <class Fields, class Format>
class Printer {
public:
    using Content = typename Fields::Content;

    Printer(Format& format, const Output& output, Outcome& outcome)
        : format_(format), output_(output), outcome_(outcome) {}

    // False once there is an error, or the callback has asked to stop.
    bool print_message(const vesk_type* type, const Content& content, const Place* place, std::uint32_t level) {
        type = describe(type);
        if (type == nullptr) return outcome_.fail(VESK_OPAQUE, place);
        if (level == VESK_TEXT_MOST_LEVELS) return outcome_.fail(VESK_TEXT_TOO_DEEP, place);
        Fields fields(type, content);
        for (const vesk_field* field = fields.next(0); field; field = fields.next(field->presence_bit + 1u)) {
            if (!print_field(fields, field, place, level)) return false;
        }
        return true;
    }

private:
    bool print_field(Fields& fields, const vesk_field* field, const Place* outer, std::uint32_t level) {
        if (field->kind >= VESK_KIND_LIST) {
            if (field->kind == VESK_KIND_LIST) return print_list(fields, field, outer, level);
            if (is_repeated_field(field)) return print_repeated(fields, field, outer);
        }
        const Place place{outer, field, no_element};
        if (field->kind == VESK_KIND_MESSAGE) {
            format_.begin_message(field);
            if (!print_message(vesk_field_nested(field), fields.nested(field), &place, level + 1)) return false;
            format_.end_message();
            return !output_.has_stopped();
        }
        format_.begin_field(field);
        if (field->kind == VESK_KIND_STRING) {
            if (!format_.string(fields.data(field))) return outcome_.fail(VESK_TEXT_NOT_UTF8, &place);
        } else if (field->kind == VESK_KIND_BYTES) {
            format_.bytes(fields.data(field));
        } else {
            format_.number(field->kind, fields.number(field));
        }
        format_.end_field();
        return !output_.has_stopped();
    }

    bool print_list(Fields& fields, const vesk_field* field, const Place* outer, std::uint32_t level) {
        Place place{outer, field, 0};
        format_.begin_list(field);
        auto elements = fields.elements(field);
        Content content{};
        while (elements.next(&content)) {
            format_.begin_element(field);
            if (!print_message(vesk_field_nested(field), content, &place, level + 1)) return false;
            format_.end_message();
            if (output_.has_stopped()) return false;
            ++place.element;
        }
        format_.end_list();
        return !output_.has_stopped();
    }

    bool print_repeated(Fields& fields, const vesk_field* field, const Place* outer) {
        Place place{outer, field, 0};
        format_.begin_list(field);
        auto values = fields.values(field);
        Value value{};
        while (values.next(&value)) {
            format_.begin_value(field);
            if (!print_value(kind_of_values(field), value)) return outcome_.fail(VESK_TEXT_NOT_UTF8, &place);
            format_.end_value();
            if (output_.has_stopped()) return false;
            ++place.element;
        }
        format_.end_list();
        return !output_.has_stopped();
    }

    bool print_value(std::uint16_t kind, const Value& value) {
        if (kind == VESK_KIND_STRING) return format_.string(value.data);
        if (kind == VESK_KIND_BYTES) {
            format_.bytes(value.data);
        } else {
            format_.number(kind, value.number);
        }
        return true;
    }

    Format& format_;
    const Output& output_;
    Outcome& outcome_;
};

// A whole text. A format is made of the output and the flags.
template <class Format, class Fields>
std::int32_t print_text(const vesk_type* type, const typename Fields::Content& content, vesk_text_write write,
                        void* context, Outcome& outcome, vesk_text_report* report, std::uint32_t flags) {
    Output output(write, context);
    Format format(output, flags);
    format.begin_text();
    if (Printer<Fields, Format>(format, output, outcome).print_message(type, content, nullptr, 0)) format.end_text();
    output.flush();
    if (output.has_stopped()) outcome.fail(VESK_STOPPED, nullptr);
    return outcome.finish(report);
}

template <class Format>
std::int32_t print_structure(const vesk_type* type, const void* message, vesk_text_write write, void* context,
                             vesk_text_report* report, const vesk_text_options* given) {
    Outcome outcome;
    const StructureFields::Content content{static_cast<const std::uint8_t*>(message)};
    return print_text<Format, StructureFields>(type, content, write, context, outcome, report,
                                               read_text_options(given).flags);
}

// Whether decoding would accept the input; and if so, whether its fields stand in order.
bool accept_input(const vesk_type* type, const void* input, std::uint64_t length, Outcome& outcome, bool* in_order);

template <class Format>
std::int32_t print_encoded(const vesk_type* type, const void* input, std::uint64_t length, vesk_text_write write,
                           void* context, vesk_text_report* report, const vesk_text_options* given) {
    Outcome outcome;
    bool in_order = false;
    if (!accept_input(type, input, length, outcome, &in_order)) return outcome.finish(report);
    const std::uint8_t* const at = static_cast<const std::uint8_t*>(input);
    const std::uint8_t* const end = end_of_input(at, length);
    const std::uint32_t flags = read_text_options(given).flags;
    if (!in_order) return print_text<Format, EncodedFields>(type, {at, end}, write, context, outcome, report, flags);
    return print_text<Format, OrderedFields>(type, {{at, end}, input_between(at, end)}, write, context, outcome, report,
                                             flags);
}

}  // namespace vesk
