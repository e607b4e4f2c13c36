#include "chassis.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

using Json = nlohmann::ordered_json;

namespace {

constexpr std::size_t file_limit = std::size_t{16} * 1024 * 1024;  // bytes; also ends the reading of a file without end

std::string read_file(const std::string& path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"), std::fclose);
    if (!file) throw ChassisError(path + ": " + std::strerror(errno));
    std::string content;
    std::array<char, 65536> chunk;
    while (std::size_t count = std::fread(chunk.data(), 1, chunk.size(), file.get())) {
        content.append(chunk.data(), count);
        if (content.size() > file_limit) throw ChassisError(path + ": the file is too long for a chassis description");
    }
    if (std::ferror(file.get())) throw ChassisError(path + ": " + std::strerror(errno));
    return content;
}

// PATH:LINE:COLUMN of the byte at which the parser gave up, counted from 1 as editors do.
std::string position(const std::string& path, std::string_view content, std::size_t byte) {
    std::string_view before = content.substr(0, std::min(byte > 0 ? byte - 1 : 0, content.size()));
    std::size_t line = 1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    std::size_t line_start = before.rfind('\n') == before.npos ? 0 : before.rfind('\n') + 1;
    return path + ":" + std::to_string(line) + ":" + std::to_string(before.size() - line_start + 1);
}

// The parser's message without its own prefix and position. It may repeat what it read, of whatever length and bytes.
std::string complaint(std::string_view message) {
    for (std::string_view prefix : {"] ", "parse error", ": "}) {
        std::size_t at = message.find(prefix);
        if (at != message.npos) message.remove_prefix(at + prefix.size());
    }
    std::string printable(message.substr(0, 200));
    for (char& letter : printable) {
        if (letter < ' ' || letter > '~') letter = '.';
    }
    return printable;
}

Json parse(const std::string& path, const std::string& content) {
    try {
        return Json::parse(content);
    } catch (const Json::parse_error& error) {
        throw ChassisError(position(path, content, error.byte) + ": " + complaint(error.what()));
    }
}

// A value as it is repeated in a complaint: never long, never more than one line.
std::string in_brief(const Json& value) {
    std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
    return text.size() <= 60 ? text : text.substr(0, 57) + "...";
}

std::string range(const meaning& row) {
    return "from " + std::to_string(row.lowest) + " to " + std::to_string(row.highest);
}

std::optional<std::uint64_t> choice(const meaning& row, const std::string& wanted) {
    for (std::uint64_t value = row.lowest; value <= row.highest; ++value) {
        std::size_t length = 0;
        const char* word = meaning_word(&row, value, &length);
        if (word != nullptr && wanted == std::string_view(word, length)) return value;
    }
    return std::nullopt;
}

}  // namespace

// Fills a chassis from its description.
class DescriptionReader {
public:
    DescriptionReader(Chassis* chassis, const std::string& path) : chassis_(*chassis), where_(path + ": ") {}

    void read(const Json& description) {
        if (!description.is_object()) fail("a chassis description is an object with the key \"entities\"");
        for (const auto& [key, value] : description.items()) {
            if (key != "entities") fail("unknown key " + in_brief(Json(key)));
        }
        if (!description.contains("entities") || !description["entities"].is_array()) {
            fail("\"entities\" must be there and be a list");
        }
        std::size_t number = 0;
        const std::string file = where_;
        for (const Json& entity : description["entities"]) {
            where_ = file + "entity " + std::to_string(++number);
            read_entity(entity);
        }
    }

private:
    [[noreturn]] void fail(const std::string& what) const { throw ChassisError(where_ + what); }

    void read_entity(const Json& entity) {
        const std::string number = where_;
        where_ += ": ";
        if (!entity.is_object()) fail("an entity is an object");
        if (!entity.contains("eid") || !entity["eid"].is_string()) fail("\"eid\" must be there and be text");
        const std::string& eid_text = entity["eid"].get_ref<const std::string&>();

        auto& elements = chassis_.elements_.emplace_back();
        vesk_drin_eid_st eid;
        // An embedded NUL would hide the rest of the text from the C function.
        bool whole = eid_text.find('\0') == eid_text.npos;
        entity_kind kind = whole ? eid_from_text(eid_text.c_str(), &eid, elements.data()) : KIND_ANY;
        if (kind == KIND_ANY) fail(in_brief(entity["eid"]) + " is not an EID, such as 1/1/3/port12");

        where_ = number + " (" + eid_text + "): ";
        Appended appended = append(kind, eid);
        if (!chassis_.places_.emplace(eid_text, Chassis::Place{kind, appended.index}).second) {
            fail("another entity has the same EID");
        }
        for (const auto& [key, value] : entity.items()) {
            if (key != "eid") set(kind, appended.record, key, value);
        }
    }

    struct Appended {
        void* record;
        std::size_t index;
    };

    template <typename Record>
    static Appended append_to(std::vector<Record>* records, const vesk_drin_eid_st& eid) {
        Record& record = records->emplace_back();
        record.entity_common.eid = eid;
        VESK_MARK(&record.entity_common, VESK_ENTITY_COMMON_DATA_EID);
        return {&record, records->size() - 1};
    }

    Appended append(entity_kind kind, const vesk_drin_eid_st& eid) {
#define KIND(code, name, NAME, record) \
    if (kind == KIND_##NAME) return append_to(&chassis_.records_.name, eid);
#include "meanings.def"
        fail("no such kind of entity");
    }

    void set(entity_kind kind, void* record, const std::string& key, const Json& value) {
        const meaning* row = meaning_of_key(kind, key.c_str());
        if (row == nullptr || key != row->key) fail("unknown key " + in_brief(Json(key)));
        const std::string entity = where_;
        where_ += "\"" + key + "\": ";
        switch (row->form) {
            case FORM_NUMBER:
            case FORM_NUMBER64: set_number(*row, record, value); break;
            case FORM_CHOICE: set_choice(*row, record, value); break;
            case FORM_FLAG:
                if (!value.is_boolean()) fail(in_brief(value) + " is neither true nor false");
                meaning_set_number(row, record, value.get<bool>());
                break;
            case FORM_TEXT: set_text(*row, record, value); break;
        }
        where_ = entity;
    }

    void set_number(const meaning& row, void* record, const Json& value) const {
        // A number below 0, with a fraction or of more than 64 bits is not unsigned in the parser's eyes.
        if (!value.is_number()) fail(in_brief(value) + " is not a number");
        auto number = value.is_number_unsigned() ? std::optional(value.get<std::uint64_t>()) : std::nullopt;
        if (!number || *number < row.lowest || *number > row.highest) {
            fail(in_brief(value) + " is out of range; it takes a whole number " + range(row));
        }
        meaning_set_number(&row, record, *number);
    }

    void set_choice(const meaning& row, void* record, const Json& value) const {
        auto number = value.is_string() ? choice(row, value.get<std::string>()) : std::nullopt;
        if (!number) fail(in_brief(value) + " is not one of " + row.text);
        meaning_set_number(&row, record, *number);
    }

    void set_text(const meaning& row, void* record, const Json& value) {
        if (!value.is_string()) fail(in_brief(value) + " is not text");
        std::string text = value.get<std::string>();
        if (text.find('\0') != text.npos) fail("text cannot hold a NUL");
        if (text.size() < row.lowest || text.size() > row.highest) {
            fail("its length of " + std::to_string(text.size()) + " bytes is out of range; it goes " + range(row));
        }
        meaning_set_text(&row, record, chassis_.texts_.emplace_back(std::move(text)).data());
    }

    Chassis& chassis_;
    std::string where_;  // file and entity, for complaints
};

Chassis::Chassis(const std::string& path) { DescriptionReader(this, path).read(parse(path, read_file(path))); }

// Encode only reads a list; the member's type cannot say so.
void Chassis::add_list(entity_kind kind, vesk_resp_inv_data* answer) const {
#define KIND(code, name, NAME, record)                                                \
    if (kind == KIND_##NAME) {                                                        \
        answer->name##_list = const_cast<record*>(records_.name.data());              \
        answer->name##_list_count = static_cast<std::uint32_t>(records_.name.size()); \
        VESK_MARK(answer, VESK_RESP_INV_DATA_##NAME##_LIST);                          \
    }
#include "meanings.def"
}

vesk_resp_inv_data Chassis::all_of(entity_kind kind) const {
    vesk_resp_inv_data answer{};
    resp_inv_data_set_total(&answer, static_cast<std::uint32_t>(entity_count()));
    add_list(kind, &answer);
    return answer;
}

vesk_resp_inv_data Chassis::everything() const {
    vesk_resp_inv_data answer = all_of(KIND_ANY);
#define KIND(code, name, NAME, record) add_list(KIND_##NAME, &answer);
#include "meanings.def"
    return answer;
}

vesk_resp_inv_data_by_eid Chassis::find(const vesk_drin_eid_st& eid) const {
    vesk_resp_inv_data_by_eid answer{};
    char text[EID_TEXT_SIZE];
    eid_to_text(&eid, text);
    auto found = places_.find(text);
    if (found == places_.end()) {
        answer.lookup_error.eid = eid;
        VESK_MARK(&answer.lookup_error, VESK_EID_LOOKUP_ERROR_MSG_EID);
        eid_lookup_error_msg_set_reason(&answer.lookup_error, LOOKUP_NO_SUCH_ENTITY);
        VESK_MARK(&answer, VESK_RESP_INV_DATA_BY_EID_LOOKUP_ERROR);
        return answer;
    }
    const Place& place = found->second;
#define KIND(code, name, NAME, record)                        \
    if (place.kind == KIND_##NAME) {                          \
        answer.name = records_.name[place.index];             \
        VESK_MARK(&answer, VESK_RESP_INV_DATA_BY_EID_##NAME); \
    }
#include "meanings.def"
    return answer;
}
