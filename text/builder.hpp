// What a parser makes of a text. The fields are noted first, on a tape; once the text is known to be good and the
// elements of every list are counted, the structure is filled from it. So a bad text asks for no block, and each list
// is asked for once, whole.
#pragma once

#include "text/fields.hpp"
#include "text/report.hpp"
#include "text/work.hpp"

namespace vesk {

class Builder {
public:
    Builder(const vesk_type* type, Outcome& outcome, Work& work);
    ~Builder() { work_.release(items_, capacity_ * sizeof(Item)); }
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;

    // ---- Where the text is ----

    const vesk_type* type() const { return level().type; }
    // The field whose value comes next; null between two fields.
    const vesk_field* field() const { return level().place.field; }
    bool is_in_list() const { return level().place.element != no_element; }
    // What the value that comes next must be: of a list or repeated field as a whole its kind, of an element the
    // element's.
    std::uint16_t wanted() const {
        if (!is_in_list()) return field()->kind;
        return field()->kind == VESK_KIND_LIST ? std::uint16_t{VESK_KIND_MESSAGE} : kind_of_values(field());
    }
    // The place of the field that probably comes next: that after the one entered last.
    std::uint32_t likeliest() const { return level().likeliest; }
    const Place* place() const { return field() != nullptr ? &level().place : level().place.outer; }

    bool fail(std::int32_t code, const char* reason) { return outcome_.fail(code, place(), reason); }
    bool fail(std::int32_t code) { return outcome_.fail(code, place()); }

    // ---- What it says ----

    // Each returns false after an error. A field that is entered is left by its value, a list by leave_list.
    enum class Lists { stand_once, may_go_on };
    bool enter(const vesk_field* field, Lists lists);
    void enter_list();
    void leave_list() { level().place = {level().place.outer, nullptr, no_element}; }

    bool add_number(std::uint64_t value);
    // `data` is good until the structure is filled. Fails for a string that a structure cannot hold.
    bool add_data(const std::uint8_t* data, std::uint64_t length);
    bool add_nothing();

    // A nested message, or the next element of the list that is entered.
    bool begin_message();
    bool end_message();

    // ---- The structure ----

    // Fills a cleared structure; VESK_OK or VESK_NO_MEMORY.
    std::int32_t fill(void* message, vesk_alloc alloc, void* context) const;

private:
    // Of a nested message or element its beginning; without a field its end. The elements of a repeated field come
    // after an item of its own, whose data is `new_array`.
    struct Item {
        const vesk_field* field;
        std::uint64_t number;  // a scalar; a length; of an array or a list's first element how many elements there are
        const std::uint8_t* data;
    };

    struct Level {
        const vesk_type* type;
        Place place;
        std::uint32_t likeliest;
        std::uint64_t entered;                     // a bit for each field that has been
        std::uint64_t listed;                      // a bit for each list or repeated field that has an element
        std::uint32_t first_element[most_fields];  // of these, the item
    };

    Level& level() { return levels_[depth_]; }
    const Level& level() const { return levels_[depth_]; }
    void open_level(const vesk_type* type, const Place* outer);
    // Counts one more element of the list or repeated field that is entered; true if it is the first.
    bool count_element();
    bool add_value(std::uint64_t number, const std::uint8_t* data);
    bool add(const vesk_field* field, std::uint64_t number, const std::uint8_t* data);
    bool grow();
    void leave() {
        if (is_in_list()) {
            ++level().place.element;
        } else {
            level().place.field = nullptr;
        }
    }

    Outcome& outcome_;
    Work& work_;
    Item* items_ = nullptr;
    std::uint64_t count_ = 0;
    std::uint64_t capacity_ = 0;
    std::uint32_t depth_ = 0;
    Level levels_[VESK_TEXT_MOST_LEVELS];
};

// What reads a format: tells the builder what stands in a copy of the text, which it may write to and which ends in a
// NUL. Returns null, or where in the copy the error is.
using ReadText = const char* (*)(Builder& builder, char* copy, std::uint64_t length, Outcome& outcome,
                                 std::uint32_t flags);

// A whole call of the interface.
std::int32_t parse_text(const vesk_type* type, void* message, const char* text, std::uint64_t length, vesk_alloc alloc,
                        void* context, vesk_text_report* report, const vesk_text_options* given, ReadText read);

}  // namespace vesk
