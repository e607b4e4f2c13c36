#include "tools/vesk/spans.hpp"

#include <algorithm>

#include "tools/vesk/output.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

constexpr std::uint64_t never = UINT64_MAX;

// A varint of any length, of which the low 64 bits count; `to` is `never` if it runs past the end.
struct Varint {
    std::uint64_t to;
    std::uint64_t value;
};

class SpanWalker {
public:
    SpanWalker(const std::uint8_t* input, std::uint64_t length, const vesk_report& report,
               const std::function<void(const Span&)>& take)
        : input_(input),
          length_(length),
          stop_(report.code == VESK_OK ? never : report.at),
          refused_(report.path),
          take_(take) {}

    Walk walk(const vesk_type* type) {
        walk_message(type, 0, length_, "", 0);
        if (at_ < length_) {
            give(length_, Role::beyond, 0, "",
                 std::to_string(length_ - at_) + " bytes after the place where decoding ended");
        }
        return walk_;
    }

private:
    // Everything before `to` that no span has yet becomes one.
    void give(std::uint64_t to, Role role, std::uint32_t depth, const std::string& path, std::string text) {
        if (to <= at_) return;
        take_({at_, to, role, depth, path, std::move(text)});
        at_ = to;
    }

    Varint read(std::uint64_t at, std::uint64_t end) const {
        std::uint64_t value = 0;
        for (unsigned shift = 0; at < end; shift += 7) {
            const std::uint8_t byte = input_[at++];
            if (shift < 64) value |= std::uint64_t{byte & 0x7Fu} << shift;
            if (byte < 0x80) return {at, value};
        }
        return {never, 0};
    }

    static std::string within(const std::string& path, const char* name) {
        return path.empty() ? name : path + "." + name;
    }

    // The tag that decoding stopped at: cut short, of an unknown field or of a known one.
    void walk_refused(const vesk_type* type, std::uint64_t end, std::uint32_t depth) {
        const Varint tag = read(at_, end);
        stopped_ = true;
        if (tag.to == never) return give(end, Role::tag, depth, refused_, "a tag that is cut short: refused");
        const std::uint32_t number = static_cast<std::uint32_t>(tag.value) >> 3;
        const vesk_field* const field = vesk_type_field_numbered(type, number);
        const std::string wire = "wire type " + std::to_string(tag.value & 7);
        const std::string what = field == nullptr ? "unknown field " + std::to_string(number) : describe_tag(field);
        give(tag.to, Role::tag, depth, refused_, what + ", " + wire + ": refused");
    }

    static std::string describe_tag(const vesk_field* field) {
        static const char* const words[] = {"", "number", "number", "flag", "string", "bytes", "message", "list"};
        return "field " + std::to_string(vesk_field_number(field)) + " " + vesk_field_name(field) + ", " +
               words[field->kind <= VESK_KIND_LIST ? field->kind : 0];
    }

    // False where decoding stopped, or what is there makes no sense, which is left to the caller.
    bool walk_message(const vesk_type* type, std::uint64_t begin, std::uint64_t end, const std::string& path,
                      std::uint32_t depth) {
        at_ = begin;
        while (at_ < end) {
            if (at_ == stop_) {
                walk_refused(type, end, depth);
                return false;
            }
            const Varint tag = read(at_, end);
            if (tag.to == never) return false;
            const std::uint32_t value = static_cast<std::uint32_t>(tag.value);
            const vesk_field* const field = vesk_type_field_numbered(type, value >> 3);
            if (field == nullptr) {
                if (!walk_unknown(value, tag.to, end, path, depth)) return false;
            } else if (field->tag != value || !walk_field(field, tag.to, end, path, depth)) {
                return false;
            }
        }
        return true;
    }

    bool walk_unknown(std::uint32_t tag, std::uint64_t content, std::uint64_t end, const std::string& path,
                      std::uint32_t depth) {
        std::uint64_t to = never;
        switch (tag & 7) {
            case 0: to = read(content, end).to; break;
            case 1: to = std::min(end, content + 8); break;
            case 5: to = std::min(end, content + 4); break;
            case 2: {
                // The low 32 bits of a length count. One that is cut short or too long ends the message.
                const Varint length = read(content, end);
                const std::uint64_t size = static_cast<std::uint32_t>(length.value);
                to = length.to == never ? never : size < end - length.to ? length.to + size : end;
                break;
            }
            default: break;
        }
        if (to == never) return false;
        walk_.unknown_bytes += to - at_;
        give(to, Role::unknown, depth, path,
             "unknown field " + std::to_string(tag >> 3) + ", wire type " + std::to_string(tag & 7));
        return true;
    }

    bool walk_field(const vesk_field* field, std::uint64_t content, std::uint64_t end, const std::string& path,
                    std::uint32_t depth) {
        const std::string own = within(path, vesk_field_name(field));
        if (field->kind == VESK_KIND_LIST) return walk_list(field, content, end, own, depth);
        ++walk_.fields;
        if (field->kind <= VESK_KIND_BOOL) return walk_scalar(field, content, end, own, depth);
        give(content, Role::tag, depth, own, describe_tag(field));
        const Varint length = read(content, end);
        const std::uint64_t size = static_cast<std::uint32_t>(length.value);
        if (length.to == never || size > end - length.to) return false;
        return walk_content(field, length.to, length.to + size, own, depth);
    }

    bool walk_scalar(const vesk_field* field, std::uint64_t content, std::uint64_t end, const std::string& path,
                     std::uint32_t depth) {
        const Varint read_value = read(content, end);
        if (read_value.to == never) return false;
        give(content, Role::tag, depth, path, describe_tag(field));
        const std::uint32_t low = static_cast<std::uint32_t>(read_value.value);
        std::string text = std::to_string(field->kind == VESK_KIND_UINT64 ? read_value.value : low);
        if (field->kind == VESK_KIND_BOOL) text = low != 0 ? "true" : "false";
        give(read_value.to, Role::value, depth, path, text);
        return true;
    }

    // What stands after a length: of a string, bytes field, nested message or element.
    bool walk_content(const vesk_field* field, std::uint64_t begin, std::uint64_t end, const std::string& path,
                      std::uint32_t depth) {
        give(begin, Role::length, depth, path, "length " + std::to_string(end - begin) + " of " + path);
        const std::string_view bytes(reinterpret_cast<const char*>(input_ + begin), end - begin);
        if (field->kind == VESK_KIND_STRING) {
            give(end, Role::value, depth, path, quote(bytes));
            return true;
        }
        if (field->kind == VESK_KIND_BYTES) {
            give(end, Role::value, depth, path, std::to_string(bytes.size()) + " bytes");
            return true;
        }
        const vesk_type* const nested = describe(vesk_field_nested(field));
        if (nested == nullptr) {
            give(end, Role::value, depth, path, "an identifier that its library does not describe");
            return true;
        }
        const bool whole = walk_message(nested, begin, end, path, depth + 1);
        if (stopped_) return false;
        // A list is counted to its end before its elements are read, so a later element may have ended the decoding
        // first.
        if (!whole) give(end, Role::value, depth + 1, path, "not read: decoding ended before it came here");
        return true;
    }

    // Only field numbers are compared: an element of another wire type is read as a length, too.
    bool walk_list(const vesk_field* field, std::uint64_t content, std::uint64_t end, const std::string& path,
                   std::uint32_t depth) {
        for (std::uint64_t element = 0;; ++element) {
            const std::string own = path + "[" + std::to_string(element) + "]";
            ++walk_.fields;
            const Varint length = read(content, end);
            const std::uint64_t size = static_cast<std::uint32_t>(length.value);
            if (length.to == never || size > end - length.to) return false;
            give(content, Role::tag, depth, own, describe_tag(field));
            if (!walk_content(field, length.to, length.to + size, own, depth)) return false;
            if (at_ == end) return true;
            const Varint tag = read(at_, end);
            const bool goes_on =
                tag.to != never && static_cast<std::uint32_t>(tag.value) >> 3 == vesk_field_number(field);
            if (!goes_on) return true;
            if (at_ == stop_) {
                give(tag.to, Role::tag, depth, refused_, describe_tag(field) + ": refused");
                stopped_ = true;
                return false;
            }
            content = tag.to;
        }
    }

    const std::uint8_t* input_;
    std::uint64_t length_;
    std::uint64_t stop_;
    std::string refused_;  // the path of what decoding stopped at
    const std::function<void(const Span&)>& take_;
    std::uint64_t at_ = 0;
    bool stopped_ = false;
    Walk walk_;
};

}  // namespace

const char* name_of(Role role) {
    switch (role) {
        case Role::tag: return "tag";
        case Role::length: return "length";
        case Role::value: return "value";
        case Role::unknown: return "unknown";
        case Role::beyond: return "beyond";
    }
    return "";
}

Walk for_each_span(const vesk_type* type, const std::uint8_t* input, std::uint64_t length, const vesk_report& report,
                   const std::function<void(const Span&)>& take) {
    return SpanWalker(input, length, report, take).walk(type);
}

vesk_report check(const vesk_type* type, const std::uint8_t* input, std::uint64_t length) {
    vesk_report report;
    report.size = sizeof report;
    vesk_check(type, input, length, 0, &report, nullptr);
    return report;
}

std::string verdict(const vesk_report& report) {
    if (report.code == VESK_OK) return "decodes";
    std::string text = std::string(vesk_toolkit_result_name(report.code)) + " at byte " + std::to_string(report.at);
    if (report.path[0] != '\0') text += std::string(", ") + report.path;
    return text + ": " + vesk_toolkit_result_text(report.code);
}

std::string cost(const vesk_report& report) {
    std::string text = std::to_string(report.cost.bytes) + " bytes in " + std::to_string(report.cost.blocks) +
                       " blocks, the largest of " + std::to_string(report.cost.largest);
    if (report.lost_blocks != 0) {
        text += "; " + std::to_string(report.lost_bytes) + " bytes in " + std::to_string(report.lost_blocks) +
                " blocks lost to repeated messages";
    }
    if (report.unknown_bytes != 0) text += "; " + std::to_string(report.unknown_bytes) + " bytes of unknown fields";
    return text;
}

}  // namespace vesk::tool
