#include "tests/support/interpreter.hpp"

#include <vesk/drin_eid.h>

#include <cstddef>
#include <cstring>
#include <optional>

namespace vesk::test::interpreter {
namespace {

// ---- Raw memory ----

template <class T>
T load(const void* message, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char*>(message) + offset, sizeof value);
    return value;
}

template <class T>
void store(void* message, std::size_t offset, T value) {
    std::memcpy(static_cast<char*>(message) + offset, &value, sizeof value);
}

const void* member(const void* message, std::size_t offset) { return static_cast<const char*>(message) + offset; }
void* member(void* message, std::size_t offset) { return static_cast<char*>(message) + offset; }

bool get_bit(const TableType& type, const TableField& field, const void* message) {
    return load<std::uint8_t>(message, type.presence_offset + field.bit / 8) >> (field.bit % 8) & 1;
}

void set_bit(const TableType& type, const TableField& field, void* message, bool value) {
    const std::size_t offset = type.presence_offset + field.bit / 8;
    const unsigned mask = 1u << (field.bit % 8);
    const unsigned byte = load<std::uint8_t>(message, offset);
    store(message, offset, static_cast<std::uint8_t>(value ? byte | mask : byte & ~mask));
}

std::size_t size_of(const TableType* nested) { return nested == nullptr ? sizeof(vesk_drin_eid_st) : nested->size; }

// ---- Scalars ----

// What a kind of scalar takes in a structure, and on the wire: 0 is a varint.
struct ScalarForm {
    std::size_t size;
    unsigned width;
    bool has_sign;
    bool zigzag;
};

std::optional<ScalarForm> form_of(TableKind kind) {
    switch (kind) {
        case TableKind::uint32: return ScalarForm{4, 0, false, false};
        case TableKind::uint64: return ScalarForm{8, 0, false, false};
        case TableKind::boolean: return ScalarForm{1, 0, false, false};
        case TableKind::sint32: return ScalarForm{4, 0, true, true};
        case TableKind::sint64: return ScalarForm{8, 0, true, true};
        case TableKind::int32: return ScalarForm{4, 0, true, false};
        case TableKind::int64: return ScalarForm{8, 0, true, false};
        case TableKind::enumeration: return ScalarForm{4, 0, true, false};
        case TableKind::fixed32: return ScalarForm{4, 4, false, false};
        case TableKind::sfixed32: return ScalarForm{4, 4, true, false};
        case TableKind::float32: return ScalarForm{4, 4, false, false};
        case TableKind::fixed64: return ScalarForm{8, 8, false, false};
        case TableKind::sfixed64: return ScalarForm{8, 8, true, false};
        case TableKind::float64: return ScalarForm{8, 8, false, false};
        default: return std::nullopt;
    }
}

unsigned wire_type_of(const ScalarForm& form) { return form.width == 0 ? 0 : form.width == 4 ? 5 : 1; }

// The value of a member as it stands on the wire.
std::uint64_t to_wire(const ScalarForm& form, const void* at) {
    std::uint64_t value = form.size == 1   ? load<std::uint8_t>(at, 0)
                          : form.size == 4 ? load<std::uint32_t>(at, 0)
                                           : load<std::uint64_t>(at, 0);
    if (form.width != 0 || !form.has_sign) return value;
    const std::int64_t number =
        form.size == 4 ? load<std::int32_t>(at, 0) : static_cast<std::int64_t>(load<std::uint64_t>(at, 0));
    if (!form.zigzag) return static_cast<std::uint64_t>(number);
    const std::uint64_t magnitude = static_cast<std::uint64_t>(number < 0 ? -(number + 1) : number);
    return magnitude * 2 + (number < 0 ? 1 : 0);
}

void from_wire(const ScalarForm& form, std::uint64_t value, void* at) {
    if (form.size != 8) value %= std::uint64_t{1} << 32;
    if (form.zigzag) {
        const auto half = static_cast<std::int64_t>(value / 2);
        value = static_cast<std::uint64_t>(value % 2 == 0 ? half : -half - 1);
    }
    if (form.size == 1) {
        store(at, 0, static_cast<std::uint8_t>(value != 0));
    } else if (form.size == 4) {
        store(at, 0, static_cast<std::uint32_t>(value % (std::uint64_t{1} << 32)));
    } else {
        store(at, 0, value);
    }
}

std::size_t element_size_of(const TableField& field) {
    const std::optional<ScalarForm> form = form_of(field.kind);
    return form ? form->size : field.kind == TableKind::string ? sizeof(char*) : sizeof(vesk_bytes);
}

// ---- The four operations of a nested type; null stands for the entity identifier ----

std::uint64_t encode_nested(const TableType* nested, const void* message, void* buffer, std::uint64_t length,
                            vesk_segment* segments, std::uint32_t* segment_count, std::uint32_t flags) {
    if (nested == nullptr) {
        return vesk_drin_eid_st_encode_ext(static_cast<const vesk_drin_eid_st*>(message), buffer, length, segments,
                                           segment_count, flags);
    }
    return encode(*nested, message, buffer, length, segments, segment_count, flags);
}

std::int32_t decode_nested(const TableType* nested, void* message, const void* buffer, std::uint64_t length,
                           vesk_alloc alloc, void* context, std::uint32_t flags) {
    if (nested == nullptr) {
        return vesk_drin_eid_st_decode_ext(static_cast<vesk_drin_eid_st*>(message), buffer, length, alloc, context,
                                           flags);
    }
    return decode(*nested, message, buffer, length, alloc, context, flags);
}

std::int32_t duplicate_nested(const TableType* nested, void* destination, const void* source, vesk_alloc alloc,
                              void* context) {
    if (nested == nullptr) {
        return vesk_drin_eid_st_duplicate(static_cast<vesk_drin_eid_st*>(destination),
                                          static_cast<const vesk_drin_eid_st*>(source), alloc, context);
    }
    return duplicate(*nested, destination, source, alloc, context);
}

void release_nested(const TableType* nested, void* message, vesk_release release_block, void* context,
                    std::uint32_t flags) {
    if (nested == nullptr) {
        vesk_drin_eid_st_free_ext(static_cast<vesk_drin_eid_st*>(message), release_block, context, flags);
    } else {
        release(*nested, message, release_block, context, flags);
    }
}

// ---- Encoding ----

// One message's output: the caller's buffer and list, the position in each, and where the current run began.
class Encoder {
public:
    Encoder(void* buffer, std::uint64_t length, vesk_segment* segments, std::uint32_t* segment_count,
            std::uint32_t flags)
        : buffer_(static_cast<std::uint8_t*>(buffer)),
          length_(length),
          segments_(segments),
          segment_count_(segment_count),
          capacity_(segment_count != nullptr ? *segment_count : 0),
          flags_(flags) {}

    void put_field(const TableType& type, const TableField& field, const void* message) {
        const bool present = get_bit(type, field, message);
        if (field.kind == TableKind::message) {
            const void* nested = member(message, field.offset);
            if (present || encode_nested(field.nested, nested, nullptr, 0, nullptr, nullptr, flags_) != 0) {
                put_nested(field, nested);
            }
        } else if (!present) {
            return;
        } else if (field.repeated) {
            put_repeated(field, load<const char*>(message, field.offset),
                         load<std::uint32_t>(message, field.second_offset));
        } else if (const std::optional<ScalarForm> form = form_of(field.kind)) {
            put_tag(field, wire_type_of(*form));
            put_scalar(*form, member(message, field.offset));
        } else if (field.kind == TableKind::string) {
            put_string(field, load<const char*>(message, field.offset));
        } else if (field.kind == TableKind::bytes) {
            put_bytes(field, load<const std::uint8_t*>(message, field.offset),
                      load<std::uint64_t>(message, field.second_offset));
        } else {
            put_list(field, load<const char*>(message, field.offset),
                     load<std::uint32_t>(message, field.second_offset));
        }
    }

    std::uint64_t finish() {
        if (segment_count_ != nullptr) {
            if (run_start_ < position_) close_run();
            *segment_count_ = used_;
        }
        return position_;
    }

private:
    void put_byte(unsigned byte) {
        if (position_ < length_) buffer_[position_] = static_cast<std::uint8_t>(byte);
        ++position_;
    }
    void put_varint(std::uint64_t value) {
        while (value >= 128) {
            put_byte(static_cast<unsigned>(value % 128 + 128));
            value /= 128;
        }
        put_byte(static_cast<unsigned>(value));
    }
    void put_length(std::uint64_t value) { put_varint(value % (std::uint64_t{1} << 32)); }
    void put_tag(const TableField& field, unsigned wire_type) { put_varint(field.number * 8 + wire_type); }

    void put_scalar(const ScalarForm& form, const void* at) {
        const std::uint64_t value = to_wire(form, at);
        if (form.width == 0) return put_varint(value);
        for (unsigned i = 0; i < form.width; ++i) put_byte(static_cast<unsigned>(value >> 8 * i & 255));
    }

    void put_repeated(const TableField& field, const char* array, std::uint32_t count) {
        const std::size_t size = element_size_of(field);
        const std::optional<ScalarForm> form = form_of(field.kind);
        if (form && field.packed) {
            if (count == 0) return;
            Encoder measuring(nullptr, 0, nullptr, nullptr, 0);
            for (std::uint32_t i = 0; i < count; ++i) measuring.put_scalar(*form, array + i * size);
            put_tag(field, 2);
            put_length(measuring.position_);
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            const void* element = array + i * size;
            if (form) {
                if (!field.packed) put_tag(field, wire_type_of(*form));
                put_scalar(*form, element);
            } else if (field.kind == TableKind::string) {
                const char* string = load<const char*>(element, 0);
                put_string(field, string != nullptr ? string : "");
            } else {
                const auto bytes = load<vesk_bytes>(element, 0);
                put_bytes(field, bytes.data, bytes.length);
            }
        }
    }

    bool has_room_for(std::uint64_t size) const {
        std::uint64_t end;
        return !__builtin_add_overflow(position_, size, &end) && end <= length_;
    }

    void put_string(const TableField& field, const char* string) {
        if (string == nullptr) return;
        const std::uint64_t size = std::strlen(string);
        put_tag(field, 2);
        put_length(size);
        if (size != 0 && has_room_for(size)) std::memcpy(buffer_ + position_, string, size);
        position_ += size;
    }

    void put_bytes(const TableField& field, const std::uint8_t* data, std::uint64_t size) {
        put_tag(field, 2);
        put_length(size);
        if ((flags_ & 1) == 0) {
            std::uint64_t end;
            if (size == 0 || __builtin_add_overflow(position_, size, &end)) return;
            if (has_room_for(size)) std::memcpy(buffer_ + position_, data, size);
            position_ = end;
        } else if (segment_count_ != nullptr && size != 0) {
            close_run();
            add_segment(data, size);
        }
    }

    void put_nested(const TableField& field, const void* nested) {
        const std::uint64_t size = encode_nested(field.nested, nested, nullptr, 0, nullptr, nullptr, flags_);
        put_tag(field, 2);
        put_length(size);
        if (buffer_ == nullptr && segment_count_ == nullptr) {  // a call that measures makes no other
            position_ += size;
            return;
        }
        const bool has_buffer = position_ < length_;
        const bool has_list = segment_count_ != nullptr && capacity_ > used_;
        std::uint32_t count = has_list ? capacity_ - used_ : 0;
        encode_nested(field.nested, nested, has_buffer ? buffer_ + position_ : nullptr,
                      has_buffer ? length_ - position_ : 0, has_list ? segments_ + used_ : nullptr, &count, flags_);
        position_ += size;
        used_ += count;
    }

    void put_list(const TableField& field, const char* array, std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i) put_nested(field, array + i * size_of(field.nested));
    }

    void add_segment(const void* data, std::uint64_t size) {
        if (capacity_ > used_) segments_[used_] = {data, size};
        ++used_;
    }
    void close_run() {
        const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(buffer_) + run_start_;
        add_segment(reinterpret_cast<const void*>(address), position_ - run_start_);
        run_start_ = position_;
    }

    std::uint8_t* buffer_;
    std::uint64_t length_;
    vesk_segment* segments_;
    std::uint32_t* segment_count_;
    std::uint32_t capacity_;
    std::uint32_t flags_;
    std::uint64_t position_ = 0;
    std::uint64_t run_start_ = 0;
    std::uint32_t used_ = 0;
};

// ---- Decoding ----

// One message's input. Every step returns a result code; 0 goes on.
class Decoder {
public:
    Decoder(const TableType& type, void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc,
            void* context, std::uint32_t flags)
        : type_(type),
          message_(message),
          buffer_(static_cast<const std::uint8_t*>(buffer)),
          length_(length),
          alloc_(alloc),
          context_(context),
          flags_(flags) {}

    std::int32_t get_message() {
        while (position_ < length_) {
            std::uint64_t tag;
            if (!get_varint(5, &tag)) return -1;
            const TableField* field = find(static_cast<std::uint32_t>(tag) >> 3);
            const std::int32_t code = field == nullptr ? skip(tag & 7) : get_known(*field, tag & 7);
            if (code != 0) return code;
        }
        return 0;
    }

private:
    const TableField* find(std::uint32_t number) const {
        for (const TableField& field : type_.fields) {
            if (field.number == number) return &field;
        }
        return nullptr;
    }

    // A varint of at most `groups` groups that count (5: 32 bits, 10: 64 bits); further bytes are stepped over.
    bool get_varint(unsigned groups, std::uint64_t* value) {
        std::uint64_t result = 0;
        std::uint64_t at = position_;
        for (unsigned group = 0;; ++group) {
            if (at >= length_) return false;
            const std::uint64_t byte = buffer_[at++];
            if (group < groups) result |= byte % (group == 9 ? 2 : 128) << (7 * group);  // 64 bits end in the tenth
            if (byte < 128) break;
        }
        *value = groups == 5 ? result % (std::uint64_t{1} << 32) : result;
        position_ = at;
        return true;
    }

    bool get_size(std::uint64_t* size) {
        return get_varint(5, size) && position_ + *size <= length_;  // 32 bits at a 64-bit position: no wrap
    }

    std::int32_t skip(std::uint64_t wire_type) {
        std::uint64_t value;
        switch (wire_type) {
            case 0: return get_varint(5, &value) ? 0 : -1;
            case 1: position_ += 8; return 0;
            case 2:
                if (!get_varint(5, &value)) return -1;
                position_ += value;
                return 0;
            case 5: position_ += 4; return 0;
            default: return -2;
        }
    }

    std::int32_t get_known(const TableField& field, std::uint64_t wire_type) {
        const std::optional<ScalarForm> form = form_of(field.kind);
        const bool fits = wire_type == (form ? wire_type_of(*form) : 2) || (form && field.repeated && wire_type == 2);
        if (!fits) return -3;
        const std::int32_t code = field.repeated && form             ? get_scalars(field, *form, wire_type)
                                  : field.repeated                   ? get_contents(field)
                                  : form                             ? get_scalar(*form, member(message_, field.offset))
                                  : field.kind == TableKind::string  ? get_string(field)
                                  : field.kind == TableKind::bytes   ? get_bytes(field)
                                  : field.kind == TableKind::message ? get_nested(field, member(message_, field.offset))
                                                                     : get_list(field);
        if (code == 0) set_bit(type_, field, message_, true);
        return code;
    }

    // Into a member, or nowhere if it is null.
    std::int32_t get_scalar(const ScalarForm& form, void* at) {
        std::uint64_t value = 0;
        if (form.width == 0) {
            if (!get_varint(form.size == 8 ? 10 : 5, &value)) return -1;
        } else {
            if (length_ - position_ < form.width) return -1;
            for (unsigned i = 0; i < form.width; ++i) value += std::uint64_t{buffer_[position_++]} << 8 * i;
        }
        if (at != nullptr) from_wire(form, value, at);
        return 0;
    }

    std::int32_t get_element(const ScalarForm& form, char* array, std::uint64_t* count) {
        const std::int32_t code = get_scalar(form, array != nullptr ? array + *count * form.size : nullptr);
        if (code == 0) ++*count;
        return code;
    }

    // Goes over a run of fields of this number, the first one's tag read: into an array, or to count if it is null.
    std::int32_t get_run(const TableField& field, const ScalarForm& form, std::uint64_t wire_type, char* array,
                         std::uint64_t* count) {
        while (true) {
            std::int32_t code = 0;
            if (wire_type == 2) {
                std::uint64_t size;
                if (!get_size(&size)) return -1;
                const std::uint64_t whole = length_;
                length_ = position_ + size;
                while (code == 0 && position_ < length_) code = get_element(form, array, count);
                length_ = whole;
            } else {
                code = wire_type == wire_type_of(form) ? get_element(form, array, count) : -3;
            }
            if (code != 0 || position_ == length_) return code;
            const std::uint64_t before = position_;
            std::uint64_t tag;
            if (!get_varint(5, &tag)) return -1;
            if (tag >> 3 != field.number) {
                position_ = before;
                return 0;
            }
            wire_type = tag & 7;
        }
    }

    std::int32_t get_scalars(const TableField& field, const ScalarForm& form, std::uint64_t wire_type) {
        if (load<void*>(message_, field.offset) != nullptr) return -1;
        if (alloc_ == nullptr) return -4;
        const std::uint64_t start = position_;
        std::uint64_t count = 0;
        if (const std::int32_t code = get_run(field, form, wire_type, nullptr, &count); code != 0) return code;
        if (count > UINT32_MAX) return -1;
        if (count == 0) return 0;
        char* array = new_array(field, count, form.size);
        if (array == nullptr) return -4;
        position_ = start;
        count = 0;
        return get_run(field, form, wire_type, array, &count);
    }

    char* new_array(const TableField& field, std::uint64_t count, std::uint64_t element_size) {
        char* array = static_cast<char*>(alloc_(count * element_size, context_));
        if (array == nullptr) return nullptr;
        std::memset(array, 0, count * element_size);
        store(message_, field.offset, array);
        store(message_, field.second_offset, static_cast<std::uint32_t>(count));
        return array;
    }

    // Strings or bytes fields: each is a field of its own, of a message that holds it alone.
    std::int32_t get_contents(const TableField& field) {
        if (load<void*>(message_, field.offset) != nullptr) return -1;
        if (alloc_ == nullptr) return -4;
        const std::optional<std::uint32_t> count = count_run(field);
        if (!count) return -1;
        const std::size_t size = element_size_of(field);
        char* array = new_array(field, *count, size);
        if (array == nullptr) return -4;
        TableField element = field;
        element.offset = 0;
        element.second_offset = offsetof(vesk_bytes, length);
        void* const whole = message_;
        std::int32_t code = 0;
        for (std::uint32_t i = 0; i < *count && code == 0; ++i) {
            std::uint64_t tag;
            if (i > 0 && !get_varint(5, &tag)) return -1;
            message_ = array + i * size;
            code = field.kind == TableKind::string ? get_string(element) : get_bytes(element);
            message_ = whole;
        }
        return code;
    }

    std::int32_t get_string(const TableField& field) {
        if (load<char*>(message_, field.offset) != nullptr) return -1;
        if (alloc_ == nullptr) return -4;
        std::uint64_t size;
        if (!get_size(&size)) return -1;
        char* string = static_cast<char*>(alloc_(size + 1, context_));
        if (string == nullptr) return -4;
        for (std::uint64_t i = 0; i < size; ++i) string[i] = static_cast<char>(buffer_[position_ + i]);
        string[size] = '\0';
        store(message_, field.offset, string);
        position_ += size;
        return 0;
    }

    std::int32_t get_bytes(const TableField& field) {
        const bool by_reference = flags_ & 1;
        if (load<std::uint8_t*>(message_, field.offset) != nullptr) return -1;
        if (!by_reference && alloc_ == nullptr) return -4;
        std::uint64_t size;
        if (!get_size(&size)) return -1;
        if (by_reference) {
            store(message_, field.offset, buffer_ + position_);
        } else {
            std::uint8_t* data = static_cast<std::uint8_t*>(alloc_(size, context_));
            if (data == nullptr) return -4;
            for (std::uint64_t i = 0; i < size; ++i) data[i] = buffer_[position_ + i];
            store(message_, field.offset, data);
        }
        store(message_, field.second_offset, size);
        position_ += size;
        return 0;
    }

    std::int32_t get_nested(const TableField& field, void* nested) {
        std::uint64_t size;
        if (!get_size(&size)) return -1;
        const std::int32_t code =
            decode_nested(field.nested, nested, buffer_ + position_, size, alloc_, context_, flags_);
        position_ += size;
        return code;
    }

    // The elements of the run that begins at the position; nothing if a length or tag in it is damaged.
    std::optional<std::uint32_t> count_run(const TableField& field) {
        const std::uint64_t start = position_;
        std::uint32_t count = 0;
        for (std::uint64_t tag = static_cast<std::uint64_t>(field.number) * 8; tag >> 3 == field.number;) {
            std::uint64_t size;
            if (!get_size(&size)) return std::nullopt;
            position_ += size;
            ++count;
            if (position_ == length_) break;
            if (!get_varint(5, &tag)) return std::nullopt;
        }
        position_ = start;
        return count;
    }

    std::int32_t get_list(const TableField& field) {
        if (load<void*>(message_, field.offset) != nullptr) return -1;
        if (alloc_ == nullptr) return -4;
        const std::optional<std::uint32_t> count = count_run(field);
        if (!count) return -1;
        const std::uint64_t element_size = size_of(field.nested);
        char* array = static_cast<char*>(alloc_(*count * element_size, context_));
        if (array == nullptr) return -4;
        std::memset(array, 0, *count * element_size);
        store(message_, field.offset, array);
        store(message_, field.second_offset, *count);
        for (std::uint32_t i = 0; i < *count; ++i) {
            std::uint64_t tag;
            if (i > 0 && !get_varint(5, &tag)) return -1;
            const std::int32_t code = get_nested(field, array + i * element_size);
            if (code != 0) return code;
        }
        return 0;
    }

    const TableType& type_;
    void* message_;
    const std::uint8_t* buffer_;
    std::uint64_t length_;
    vesk_alloc alloc_;
    void* context_;
    std::uint32_t flags_;
    std::uint64_t position_ = 0;
};

// ---- Duplicating ----

// Copies one message's fields. A failed block of the message's own overrules every code, a nested code only success.
class Duplicator {
public:
    Duplicator(void* destination, const void* source, vesk_alloc alloc, void* context)
        : destination_(destination), source_(source), alloc_(alloc), context_(context) {}

    void copy_field(const TableType& type, const TableField& field) {
        copied_ = true;
        if (field.repeated) {
            copy_repeated(field);
        } else if (const std::optional<ScalarForm> form = form_of(field.kind)) {
            std::memcpy(member(destination_, field.offset), member(source_, field.offset), form->size);
        } else if (field.kind == TableKind::message) {
            note(duplicate_nested(field.nested, member(destination_, field.offset), member(source_, field.offset),
                                  alloc_, context_));
        } else if (field.kind == TableKind::string) {
            const char* string = load<const char*>(source_, field.offset);
            store(destination_, field.offset, copy_block(string, string == nullptr ? 0 : std::strlen(string) + 1));
        } else if (field.kind == TableKind::bytes) {
            const std::uint64_t size = load<std::uint64_t>(source_, field.second_offset);
            store(destination_, field.offset, copy_block(load<const void*>(source_, field.offset), size));
            store(destination_, field.second_offset, copied_ ? size : 0);
        } else {
            copy_list(field);
        }
        set_bit(type, field, destination_, copied_ && get_bit(type, field, source_));
    }

    std::int32_t code() const { return code_; }

private:
    void note(std::int32_t code) {
        if (code_ == 0) code_ = code;
    }

    void* ask_for(std::uint64_t size) {
        void* block = alloc_ == nullptr ? nullptr : alloc_(size, context_);
        copied_ = block != nullptr;
        if (!copied_) code_ = -4;
        return block;
    }

    void* copy_block(const void* data, std::uint64_t size) {
        if (size == 0) return nullptr;
        void* block = ask_for(size);
        if (block != nullptr) std::memcpy(block, data, size);
        return block;
    }

    void copy_repeated(const TableField& field) {
        const std::uint32_t count = load<std::uint32_t>(source_, field.second_offset);
        const std::uint64_t size = element_size_of(field);
        const char* from = load<const char*>(source_, field.offset);
        char* array = count == 0 ? nullptr : static_cast<char*>(ask_for(count * size));
        store(destination_, field.offset, array);
        store(destination_, field.second_offset, array != nullptr ? count : 0);
        if (array == nullptr) return;
        for (std::uint32_t i = 0; i < count; ++i) copy_element(field, array + i * size, from + i * size);
        copied_ = true;
    }

    void copy_element(const TableField& field, void* to, const void* from) {
        if (field.kind == TableKind::string) {
            const char* string = load<const char*>(from, 0);
            store(to, 0, copy_block(string, string == nullptr ? 0 : std::strlen(string) + 1));
        } else if (field.kind == TableKind::bytes) {
            const auto bytes = load<vesk_bytes>(from, 0);
            auto* data = static_cast<std::uint8_t*>(copy_block(bytes.data, bytes.length));
            store(to, 0, vesk_bytes{data, data != nullptr ? bytes.length : 0});
        } else {
            std::memcpy(to, from, element_size_of(field));
        }
    }

    void copy_list(const TableField& field) {
        const std::uint32_t count = load<std::uint32_t>(source_, field.second_offset);
        const std::uint64_t element_size = size_of(field.nested);
        char* array = count == 0 ? nullptr : static_cast<char*>(ask_for(count * element_size));
        const char* from = load<const char*>(source_, field.offset);
        for (std::uint32_t i = 0; array != nullptr && i < count; ++i) {
            note(duplicate_nested(field.nested, array + i * element_size, from + i * element_size, alloc_, context_));
        }
        store(destination_, field.offset, array);
        store(destination_, field.second_offset, array != nullptr ? count : 0);
    }

    void* destination_;
    const void* source_;
    vesk_alloc alloc_;
    void* context_;
    bool copied_ = true;  // the current field
    std::int32_t code_ = 0;
};

// ---- Releasing ----

void release_repeated(const TableField& field, void* message, vesk_release release_block, void* context,
                      std::uint32_t flags) {
    char* array = load<char*>(message, field.offset);
    if (array == nullptr) return;
    const bool owns = field.kind == TableKind::string || (field.kind == TableKind::bytes && (flags & 1) == 0);
    const std::uint32_t count = load<std::uint32_t>(message, field.second_offset);
    for (std::uint32_t i = 0; owns && i < count; ++i) {
        char* block = load<char*>(array + i * element_size_of(field), 0);
        if (block == nullptr) continue;
        release_block(block, context);
        store<void*>(array + i * element_size_of(field), 0, nullptr);  // whoever looks finds no block that is gone
    }
    release_block(array, context);
    store<void*>(message, field.offset, nullptr);
    store(message, field.second_offset, std::uint32_t{0});
}

}  // namespace

std::uint64_t encode(const TableType& type, const void* message, void* buffer, std::uint64_t length,
                     vesk_segment* segments, std::uint32_t* segment_count, std::uint32_t flags) {
    Encoder encoder(buffer, length, segments, segment_count, flags);
    for (const TableField& field : type.fields) encoder.put_field(type, field, message);
    return encoder.finish();
}

std::int32_t decode(const TableType& type, void* message, const void* buffer, std::uint64_t length, vesk_alloc alloc,
                    void* context, std::uint32_t flags) {
    std::memset(message, 0, type.size);
    return Decoder(type, message, buffer, length, alloc, context, flags).get_message();
}

std::int32_t duplicate(const TableType& type, void* destination, const void* source, vesk_alloc alloc, void* context) {
    Duplicator duplicator(destination, source, alloc, context);
    for (const TableField& field : type.fields) duplicator.copy_field(type, field);
    return duplicator.code();
}

void release(const TableType& type, void* message, vesk_release release_block, void* context, std::uint32_t flags) {
    for (const TableField& field : type.fields) {
        if (field.kind == TableKind::message) {
            release_nested(field.nested, member(message, field.offset), release_block, context, flags);
            continue;
        }
        if (field.repeated) {
            release_repeated(field, message, release_block, context, flags);
            continue;
        }
        const bool owns = field.kind == TableKind::string || field.kind == TableKind::list ||
                          (field.kind == TableKind::bytes && (flags & 1) == 0);
        if (!owns) continue;
        char* block = load<char*>(message, field.offset);
        if (block == nullptr) continue;
        if (field.kind == TableKind::list) {
            const std::uint32_t count = load<std::uint32_t>(message, field.second_offset);
            for (std::uint32_t i = 0; i < count; ++i) {
                release_nested(field.nested, block + i * size_of(field.nested), release_block, context, flags);
            }
        }
        release_block(block, context);
        store<void*>(message, field.offset, nullptr);
        if (field.kind == TableKind::list) store(message, field.second_offset, std::uint32_t{0});
    }
}

}  // namespace vesk::test::interpreter
