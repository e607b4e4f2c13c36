#include "text/builder.hpp"

#include "toolkit/types.hpp"

namespace vesk {

namespace {
const std::uint8_t new_array = 0;
}

Builder::Builder(const vesk_type* type, Outcome& outcome, Work& work) : outcome_(outcome), work_(work) {
    const vesk_type* const described = describe(type);
    if (described == nullptr) {
        outcome.fail(VESK_OPAQUE, nullptr);
        return;
    }
    open_level(described, nullptr);
}

void Builder::open_level(const vesk_type* type, const Place* outer) {
    level().type = type;
    level().place = {outer, nullptr, no_element};
    level().likeliest = 0;
    level().entered = 0;
    level().listed = 0;
}

// ---- What the text says --------------------------------------------------------------------------------------------

bool Builder::enter(const vesk_field* field, Lists lists) {
    level().place = {level().place.outer, field, no_element};
    const std::uint64_t bit = std::uint64_t{1} << field->presence_bit;
    const bool may_go_on = lists == Lists::may_go_on && has_count(field);
    if ((level().entered & bit) != 0 && !may_go_on) return fail(VESK_TEXT_REPEATED);
    level().entered |= bit;
    level().likeliest = field->presence_bit + 1u;
    return true;
}

void Builder::enter_list() {
    Level& here = level();
    const std::uint32_t bit = here.place.field->presence_bit;
    const bool goes_on = (here.listed >> bit & 1) != 0;
    here.place.element = goes_on ? static_cast<std::uint32_t>(items_[here.first_element[bit]].number) : 0;
}

bool Builder::count_element() {
    Level& here = level();
    const std::uint32_t bit = field()->presence_bit;
    if ((here.listed >> bit & 1) != 0) {
        ++items_[here.first_element[bit]].number;
        return false;
    }
    here.listed |= std::uint64_t{1} << bit;
    here.first_element[bit] = static_cast<std::uint32_t>(count_);
    return true;
}

bool Builder::add_value(std::uint64_t number, const std::uint8_t* data) {
    const vesk_field* const entered = field();
    if (is_in_list() && count_element() && !add(entered, 1, &new_array)) return false;
    leave();
    return add(entered, number, data);
}

bool Builder::add_number(std::uint64_t value) { return add_value(value, nullptr); }

bool Builder::add_data(const std::uint8_t* data, std::uint64_t length) {
    if (wanted() == VESK_KIND_STRING && length != 0 &&
        std::memchr(data, 0, static_cast<std::size_t>(length)) != nullptr) {
        return fail(VESK_TEXT_NUL);
    }
    return add_value(length, data);
}

bool Builder::add_nothing() {
    if (is_in_list()) return fail(VESK_TEXT_WRONG_KIND, "null in place of an element");
    leave();
    return true;
}

bool Builder::begin_message() {
    const vesk_type* const type = describe(vesk_field_nested(field()));
    if (type == nullptr) return fail(VESK_OPAQUE);
    if (depth_ + 1 == VESK_TEXT_MOST_LEVELS) return fail(VESK_TEXT_TOO_DEEP);

    Level& here = level();
    const std::uint64_t elements = is_in_list() && count_element() ? 1 : 0;
    if (!add(field(), elements, nullptr)) return false;
    const Place* const outer = &here.place;
    ++depth_;
    open_level(type, outer);
    return true;
}

bool Builder::end_message() {
    if (depth_ == 0) return true;
    --depth_;
    leave();
    return add(nullptr, 0, nullptr);
}

bool Builder::add(const vesk_field* field, std::uint64_t number, const std::uint8_t* data) {
    if (count_ == capacity_ && !grow()) return outcome_.fail(VESK_NO_MEMORY, nullptr);
    items_[count_++] = {field, number, data};
    return true;
}

bool Builder::grow() {
    constexpr std::uint64_t fewest = 64;
    const std::uint64_t capacity = capacity_ == 0 ? fewest : 2 * capacity_;
    Item* const items = static_cast<Item*>(work_.allocate(capacity * sizeof(Item)));
    if (items == nullptr) return false;
    if (count_ != 0) std::memcpy(items, items_, static_cast<std::size_t>(count_) * sizeof(Item));
    work_.release(items_, capacity_ * sizeof(Item));
    items_ = items;
    capacity_ = capacity;
    return true;
}

// ---- The structure -------------------------------------------------------------------------------------------------

namespace {

struct Target {
    const vesk_type* type;
    std::uint8_t* message;

    template <class Member>
    void store(std::uint32_t offset, Member member) const {
        std::memcpy(message + offset, &member, sizeof member);
    }
    void mark(const vesk_field* field) const {
        // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): what has no description is not entered
        vesk_mark(message + type->presence_offset + field->presence_bit / 8u, field->presence_bit % 8u);
    }
};

// The next one becomes a nested message or element.
Target* step_into(Target* target, const vesk_type* type, std::uint8_t* message) {
    *++target = {type, message};
    return target;
}

void* ask(vesk_alloc alloc, void* context, std::uint64_t size) {
    return alloc != nullptr ? alloc(size, context) : nullptr;
}

// Room for `count` elements; they are counted as they come: up to their number all of them may be freed.
bool make_array(const Target& target, const vesk_field* field, std::uint64_t count, std::uint64_t element_size,
                vesk_alloc alloc, void* context) {
    const std::uint64_t size = count * element_size;
    void* const array = ask(alloc, context, size);
    if (array == nullptr) return false;
    std::memset(array, 0, static_cast<std::size_t>(size));
    target.store(field->offset, array);
    target.mark(field);
    return true;
}

// The next element of such an array.
std::uint8_t* take_element(const Target& target, const vesk_field* field, std::uint64_t element_size) {
    const std::uint32_t index = load_member<std::uint32_t>(target.message, field->size_offset);
    target.store(field->size_offset, index + 1);
    return load_member<std::uint8_t*>(target.message, field->offset) + index * element_size;
}

// A copy of a string, with its NUL, or of bytes.
std::uint8_t* copy_data(const std::uint8_t* data, std::uint64_t length, bool is_string, vesk_alloc alloc,
                        void* context) {
    std::uint8_t* const block = static_cast<std::uint8_t*>(ask(alloc, context, length + (is_string ? 1 : 0)));
    if (block == nullptr) return nullptr;
    if (length != 0) std::memcpy(block, data, static_cast<std::size_t>(length));
    if (is_string) block[length] = 0;
    return block;
}

// An element of a repeated field, or the array that comes first.
bool fill_repeated(const Target& target, const vesk_field* field, std::uint64_t number, const std::uint8_t* data,
                   vesk_alloc alloc, void* context) {
    const std::uint16_t kind = kind_of_values(field);
    const std::uint32_t size = size_of_element(kind);
    if (data == &new_array) return make_array(target, field, number, size, alloc, context);
    std::uint8_t* const element = take_element(target, field, size);
    if (is_scalar_kind(kind)) {
        store_number(kind, element, number);
        return true;
    }
    const bool is_string = kind == VESK_KIND_STRING;
    std::uint8_t* const block = copy_data(data, number, is_string, alloc, context);
    if (block == nullptr) return false;
    const vesk_bytes bytes{block, number};
    std::memcpy(element, &bytes, is_string ? sizeof(char*) : sizeof bytes);
    return true;
}

}  // namespace

std::int32_t Builder::fill(void* message, vesk_alloc alloc, void* context) const {
    Target targets[VESK_TEXT_MOST_LEVELS];
    Target* target = targets;
    *target = {levels_[0].type, static_cast<std::uint8_t*>(message)};
    for (const Item* item = items_; item != items_ + count_; ++item) {
        const vesk_field* const field = item->field;
        if (field == nullptr) {
            --target;
            continue;
        }
        switch (field->kind) {
            case VESK_KIND_MESSAGE:
                target->mark(field);
                target = step_into(target, describe(vesk_field_nested(field)), target->message + field->offset);
                continue;
            case VESK_KIND_LIST: {
                const vesk_type* const type = describe(vesk_field_nested(field));
                const std::uint32_t size = type->structure_size;
                if (item->number != 0 && !make_array(*target, field, item->number, size, alloc, context)) {
                    return VESK_NO_MEMORY;
                }
                target = step_into(target, type, take_element(*target, field, size));
                continue;
            }
            case VESK_KIND_STRING:
            case VESK_KIND_BYTES: {
                const bool is_string = field->kind == VESK_KIND_STRING;
                std::uint8_t* const block = copy_data(item->data, item->number, is_string, alloc, context);
                if (block == nullptr) return VESK_NO_MEMORY;
                if (!is_string) target->store(field->size_offset, item->number);
                target->store(field->offset, block);
                break;
            }
            default:
                if (is_repeated_field(field)) {
                    if (!fill_repeated(*target, field, item->number, item->data, alloc, context)) return VESK_NO_MEMORY;
                    continue;
                }
                store_number(field->kind, target->message + field->offset, item->number);
        }
        target->mark(field);
    }
    return VESK_OK;
}

// ---- The call ------------------------------------------------------------------------------------------------------

namespace {

// Line and column of an offset in the text.
void locate(const char* text, std::uint64_t offset, vesk_text_report& report) {
    const char* line = text;
    report.line = 1;
    for (const char* at = text; at != text + offset; ++at) {
        if (*at != '\n') continue;
        ++report.line;
        line = at + 1;
    }
    report.column = static_cast<std::uint64_t>(text + offset - line) + 1;
}

void parse(const vesk_type* type, void* message, const char* text, std::uint64_t length, vesk_alloc alloc,
           void* context, Outcome& outcome, const vesk_text_options& options, ReadText read) {
    if (length > UINT32_MAX) {
        outcome.fail(VESK_TOO_LONG, nullptr, "a text of 4 GiB or more");
        return;
    }
    Work work(options);
    const WorkingCopy copy(work, text, length);
    if (copy.begin() == nullptr) {
        outcome.fail(VESK_NO_MEMORY, nullptr);
        return;
    }
    Builder builder(type, outcome, work);
    if (!outcome.ok()) return;
    const char* const error_at = read(builder, copy.begin(), length, outcome, options.flags);
    if (outcome.ok()) {
        const std::int32_t code = builder.fill(message, alloc, context);
        if (code != VESK_OK) outcome.fail(code, nullptr);
    } else if (outcome.code() != VESK_NO_MEMORY) {
        locate(text, static_cast<std::uint64_t>(error_at - copy.begin()), outcome.report());
    }
}

}  // namespace

std::int32_t parse_text(const vesk_type* type, void* message, const char* text, std::uint64_t length, vesk_alloc alloc,
                        void* context, vesk_text_report* report, const vesk_text_options* given, ReadText read) {
    Outcome outcome;
    const vesk_text_options options = read_text_options(given);
    std::memset(message, 0, type->structure_size);
    parse(type, message, text, length, alloc, context, outcome, options, read);
    return outcome.finish(report);
}

}  // namespace vesk
