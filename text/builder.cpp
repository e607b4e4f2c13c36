#include "text/builder.hpp"

#include "toolkit/types.hpp"

namespace vesk {

Builder::Builder(const vesk_type* type, Outcome& outcome, Work& work) : outcome_(outcome), work_(work) {
    const vesk_type* const described = is_elsewhere(type) ? describe_elsewhere() : type;
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
    const bool may_go_on = lists == Lists::may_go_on && field->kind == VESK_KIND_LIST;
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

bool Builder::add_number(std::uint64_t value) {
    const vesk_field* const entered = field();
    leave();
    return add(entered, value, nullptr);
}

bool Builder::add_data(const std::uint8_t* data, std::uint64_t length) {
    if (field()->kind == VESK_KIND_STRING && length != 0 &&
        std::memchr(data, 0, static_cast<std::size_t>(length)) != nullptr) {
        return fail(VESK_TEXT_NUL);
    }
    const vesk_field* const entered = field();
    leave();
    return add(entered, length, data);
}

bool Builder::add_nothing() {
    if (is_in_list()) return fail(VESK_TEXT_WRONG_KIND, "null in place of an element");
    leave();
    return true;
}

bool Builder::begin_message() {
    const vesk_type* type = vesk_field_nested(field());
    if (is_elsewhere(type)) type = describe_elsewhere();
    if (type == nullptr) return fail(VESK_OPAQUE);
    if (depth_ + 1 == VESK_TEXT_MOST_LEVELS) return fail(VESK_TEXT_TOO_DEEP);

    Level& here = level();
    std::uint64_t elements = 0;
    if (is_in_list()) {
        const std::uint32_t bit = field()->presence_bit;
        if ((here.listed >> bit & 1) == 0) {
            here.listed |= std::uint64_t{1} << bit;
            here.first_element[bit] = static_cast<std::uint32_t>(count_);
            elements = 1;
        } else {
            ++items_[here.first_element[bit]].number;
        }
    }
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
        vesk_mark(message + type->presence_offset + field->presence_bit / 8u, field->presence_bit % 8u);
    }
};

const vesk_type* described(const vesk_type* type) { return is_elsewhere(type) ? describe_elsewhere() : type; }

void store_number(const Target& target, const vesk_field* field, std::uint64_t number) {
    switch (field->kind) {
        case VESK_KIND_UINT32: return target.store(field->offset, static_cast<std::uint32_t>(number));
        case VESK_KIND_UINT64: return target.store(field->offset, number);
        default: return target.store(field->offset, static_cast<std::uint8_t>(number));
    }
}

// The next one becomes a nested message or element.
Target* step_into(Target* target, const vesk_type* type, std::uint8_t* message) {
    *++target = {type, message};
    return target;
}

void* ask(vesk_alloc alloc, void* context, std::uint64_t size) {
    return alloc != nullptr ? alloc(size, context) : nullptr;
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
                target = step_into(target, described(vesk_field_nested(field)), target->message + field->offset);
                continue;
            case VESK_KIND_LIST: {
                const vesk_type* const type = described(vesk_field_nested(field));
                if (item->number != 0) {
                    const std::uint64_t size = item->number * type->structure_size;
                    void* const array = ask(alloc, context, size);
                    if (array == nullptr) return VESK_NO_MEMORY;
                    std::memset(array, 0, static_cast<std::size_t>(size));
                    target->store(field->offset, array);
                    target->mark(field);
                }
                // The count grows with the elements: up to it, all of them may be freed.
                const std::uint32_t index = load_member<std::uint32_t>(target->message, field->size_offset);
                target->store(field->size_offset, index + 1);
                std::uint8_t* const array_begin = load_member<std::uint8_t*>(target->message, field->offset);
                target = step_into(target, type, array_begin + std::uint64_t{index} * type->structure_size);
                continue;
            }
            case VESK_KIND_STRING:
            case VESK_KIND_BYTES: {
                const bool is_string = field->kind == VESK_KIND_STRING;
                std::uint8_t* const block =
                    static_cast<std::uint8_t*>(ask(alloc, context, item->number + (is_string ? 1 : 0)));
                if (block == nullptr) return VESK_NO_MEMORY;
                if (item->number != 0) std::memcpy(block, item->data, static_cast<std::size_t>(item->number));
                if (is_string) {
                    block[item->number] = 0;
                } else {
                    target->store(field->size_offset, item->number);
                }
                target->store(field->offset, block);
                break;
            }
            default: store_number(*target, field, item->number);
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
