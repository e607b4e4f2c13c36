#include "tests/support/full_message.hpp"

namespace vesk::test {
namespace {

struct Encoding {
    Bytes bytes;
    std::vector<std::size_t> room_needed;

    void append_single_bytes(const Bytes& more) {
        for (const std::uint8_t byte : more) {
            bytes.push_back(byte);
            room_needed.push_back(bytes.size());
        }
    }
    void append_content(const std::string& content) {
        bytes.insert(bytes.end(), content.begin(), content.end());
        room_needed.resize(bytes.size(), bytes.size());
    }
    void append(const Encoding& nested) {
        for (const std::size_t room : nested.room_needed) room_needed.push_back(bytes.size() + room);
        bytes.insert(bytes.end(), nested.bytes.begin(), nested.bytes.end());
    }
};

class Writer {
public:
    explicit Writer(Contents contents) : contents_(contents) {}

    Encoding write(const TypeInfo& type) {
        Encoding out;
        for (const FieldInfo& field : type.fields) {
            const int times = field.kind == Kind::list ? 2 : 1;
            for (int i = 0; i < times; ++i) write_field(field, out);
        }
        return out;
    }

private:
    void write_field(const FieldInfo& field, Encoding& out) {
        ++fields_;
        switch (field.kind) {
            case Kind::uint32:
            case Kind::uint64: return out.append_single_bytes(number_field(field.number, fields_));
            case Kind::boolean: return out.append_single_bytes(number_field(field.number, 1));
            case Kind::string:
            case Kind::bytes: {
                const std::string content(contents_ == Contents::empty ? 0 : 1 + fields_ % 9,
                                          static_cast<char>('a' + fields_ % 26));
                out.append_single_bytes(message(tag(field.number, length_type), varint(content.size())));
                return out.append_content(content);
            }
            case Kind::message:
            case Kind::list: {
                const Encoding nested = write(*field.nested);
                out.append_single_bytes(message(tag(field.number, length_type), varint(nested.bytes.size())));
                return out.append(nested);
            }
            default: break;  // a kind that messages of others alone have
        }
    }

    Contents contents_;
    std::size_t fields_ = 0;  // written so far
};

}  // namespace

Bytes full_encoding(const TypeInfo& type, Contents contents) { return Writer(contents).write(type).bytes; }

std::vector<std::size_t> room_needed_by_full_encoding(const TypeInfo& type) {
    return Writer(Contents::some).write(type).room_needed;
}

}  // namespace vesk::test
