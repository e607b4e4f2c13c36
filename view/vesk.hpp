// The messages for C++20: vesk::message<vesk_pem_data> owns a message and gives its memory back, its accessors set and
// ask for the presence bit with the value, and what is no member of the message does not compile.
//
//     vesk::message<vesk_led_data> led;
//     led.set<&vesk_led_data::f3>(2u);
//     if (const std::error_code error = led.set<&vesk_led_data::f5>("green")) return error;
//     const std::optional<std::uint32_t> state = led.get<&vesk_led_data::f3>();
//
// Header only, over the structures and functions of the C headers, which stay what they are: a message's structure is
// there as .c(), and may be handed to any C function. No exceptions and no RTTI are needed; what can fail returns an
// error code. Threads: as of the C functions; a message is worked on by one thread at a time, and read by any number.
#ifndef VESK_HPP
#define VESK_HPP

#include <vesk/client_service.h>
#include <vesk/vesk_toolkit.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory_resource>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

namespace vesk {

// ==== What the generated members say =================================================================================

namespace detail {

// Of a message's structure: its four functions. Undefined for any other type.
template <class T>
struct functions;

// Of a pointer to a member: the structure that it belongs to and its presence bit; of a bytes field or a list also the
// member with its length or count. Undefined for what is no field.
template <auto Member>
struct field;

template <class T, auto Bit>
struct field_of {
    using structure = T;
    static constexpr unsigned bit = Bit;
};

template <class T, auto Count, auto Bit>
struct counted_field_of : field_of<T, Bit> {
    static constexpr auto count = Count;
};

// The words of the generated lists of members, here and in the generated headers of other libraries, which find their
// types in tables of their own.
#define VESK_MESSAGE(T)                                                          \
    template <>                                                                  \
    struct functions<T> {                                                        \
        static constexpr auto encode = T##_encode_ext;                           \
        static constexpr auto decode = T##_decode_ext;                           \
        static constexpr auto duplicate = T##_duplicate;                         \
        static constexpr auto free = T##_free_ext;                               \
        static constexpr std::string_view name = #T;                             \
        static const vesk_type* describe() noexcept { return VESK_TYPE_OF(#T); } \
    };
#define VESK_MEMBER(T, name, bit) \
    template <>                   \
    struct field<&T::name> : field_of<T, bit> {};
#define VESK_MEMBER_WITH_COUNT(T, name, count, bit) \
    template <>                                     \
    struct field<&T::name> : counted_field_of<T, &T::count, bit> {};
#define VESK_TYPE_OF(name) vesk_type_named(&name[sizeof "vesk_" - 1])  // there by its bare name
#include <vesk/client_service_members.inc>
#include <vesk/drin_eid_members.inc>
#include <vesk/inventory_db_members.inc>
#undef VESK_TYPE_OF

template <class Pointer>
struct member_pointer;
template <class Type, class T>
struct member_pointer<Type T::*> {
    using type = Type;
};
template <auto Member>
using member_type = typename member_pointer<std::remove_cv_t<decltype(Member)>>::type;

template <auto Member, class T>
concept field_of_message = requires {
    typename field<Member>::structure;
    requires std::same_as<typename field<Member>::structure, T>;
};

// A bytes field or a list. A list has elements of any kind: structures, numbers, flags, strings, vesk_bytes.
template <auto Member>
concept counted = requires {
    field<Member>::count;
};

template <auto Member>
concept list = counted<Member> && std::same_as<member_type<field<Member>::count>, std::uint32_t>;
template <auto Member>
concept bytes = counted<Member> && !list<Member>;
template <auto Member>
using element_type = std::remove_pointer_t<member_type<Member>>;

// A number or an enumerator, as of the enumerations in generated headers.
template <class Value>
concept number = std::is_arithmetic_v<Value> ||(std::is_enum_v<Value>&& std::is_convertible_v<Value, std::int32_t>);

// Whether every value of a type is one of a field's: a flag takes bool alone, a whole number what has no other values,
// a number with a fraction what is not longer. An enumerator is a number of 32 bits with a sign.
template <class Value, class Type>
constexpr bool keeps_every() {
    if constexpr (std::same_as<Type, std::uint8_t>) {
        return std::same_as<Value, bool>;
    } else if constexpr (std::same_as<Value, bool>) {
        return false;
    } else if constexpr (std::is_enum_v<Value>) {
        return std::same_as<Type, std::int32_t>;
    } else if constexpr (std::floating_point<Type>) {
        return std::floating_point<Value> && sizeof(Value) <= sizeof(Type);
    } else if constexpr (std::integral<Value> && std::is_signed_v<Type> && !std::is_signed_v<Value>) {
        return sizeof(Value) < sizeof(Type);
    } else {
        return std::integral<Value> && std::is_signed_v<Value> == std::is_signed_v<Type> &&
               sizeof(Value) <= sizeof(Type);
    }
}
template <class Value, class Type>
inline constexpr bool keeps = keeps_every<Value, Type>();

}  // namespace detail

// A message's structure, such as vesk_pem_data.
template <class T>
concept message_structure = requires {
    detail::functions<T>::encode;
};

namespace detail {

// A list of messages.
template <auto Member>
concept message_list = list<Member> && message_structure<element_type<Member>>;

}  // namespace detail

// ==== Errors =========================================================================================================

// Beside the results of the library and the toolkit, whose values an error code has as they are.
enum class error : int {
    embedded_nul = -301,  // a string with a NUL inside: the structure's would end there
    too_many = -302       // more elements than a list's count can say
};

namespace detail {

class category final : public std::error_category {
public:
    const char* name() const noexcept override { return "vesk"; }
    std::string message(int code) const override {
        switch (static_cast<error>(code)) {
            case error::embedded_nul: return "a string with a NUL inside";
            case error::too_many: return "more elements than a list can have";
            default: return vesk_toolkit_result_text(code);
        }
    }
    std::error_condition default_error_condition(int code) const noexcept override {
        if (code == VESK_NO_MEMORY) return std::errc::not_enough_memory;
        return {code, *this};
    }
};

}  // namespace detail

// Of every error code here. Its message is that of vesk_toolkit_result_text; VESK_NO_MEMORY equals
// std::errc::not_enough_memory.
inline const std::error_category& category() noexcept {
    static const detail::category only;
    return only;
}

// The result of a C function as an error code; false if it is VESK_OK.
inline std::error_code make_error_code(std::int32_t result) noexcept { return {result, category()}; }
inline std::error_code make_error_code(error code) noexcept { return {static_cast<int>(code), category()}; }

// ==== Memory =========================================================================================================

// Where the blocks of a message come from and go to: the two callbacks of the C functions with their context. What it
// refers to must outlive every message that uses it.
struct memory {
    vesk_alloc alloc;      // asked for each block
    vesk_release release;  // gets each of them back
    void* context;         // handed to both

    // The same callbacks with the same context.
    friend bool operator==(const memory&, const memory&) = default;
};

// malloc and free.
inline memory heap() noexcept {
    return {[](std::uint64_t size, void*) -> void* {
                return size <= SIZE_MAX ? std::malloc(size != 0 ? static_cast<std::size_t>(size) : 1) : nullptr;
            },
            [](void* block, void*) { std::free(block); }, nullptr};
}

// An arena of the toolkit. Giving back does nothing; closing the arena gives back everything.
inline memory memory_of(vesk_arena& arena) noexcept { return {vesk_arena_alloc, vesk_arena_release, &arena}; }

// A memory resource. It wants the size of a block back, which stands before the block: 16 bytes more each (as many as
// the strictest alignment), and a block is aligned as malloc's. A resource that throws std::bad_alloc is out of memory.
inline memory memory_of(std::pmr::memory_resource& resource) noexcept {
    constexpr static std::size_t before = alignof(std::max_align_t);
    static_assert(before >= sizeof(std::size_t));
    return {[](std::uint64_t size, void* context) -> void* {
                if (size > PTRDIFF_MAX - before) return nullptr;
                const std::size_t all = static_cast<std::size_t>(size) + before;
                void* block = nullptr;
#if defined(__cpp_exceptions)
                try {
                    block = static_cast<std::pmr::memory_resource*>(context)->allocate(all, before);
                } catch (const std::bad_alloc&) {
                    return nullptr;
                }
#else
                block = static_cast<std::pmr::memory_resource*>(context)->allocate(all, before);
#endif
                std::memcpy(block, &all, sizeof all);
                return static_cast<std::byte*>(block) + before;
            },
            [](void* block, void* context) {
                std::byte* const whole = static_cast<std::byte*>(block) - before;
                std::size_t all;
                std::memcpy(&all, whole, sizeof all);
                static_cast<std::pmr::memory_resource*>(context)->deallocate(whole, all, before);
            },
            &resource};
}

namespace detail {

// An array of `count` structures, whose first `kept` are those of `old`; null if there is no memory. `old` stays as it
// is.
template <class Element>
Element* array_with(const memory& memory, const Element* old, std::size_t kept, std::size_t count) noexcept {
    auto* const array = static_cast<Element*>(memory.alloc(std::uint64_t{count} * sizeof(Element), memory.context));
    if (array != nullptr && kept != 0) std::memcpy(array, old, kept * sizeof(Element));
    return array;
}

// Gives back what an element of a list owns.
template <class Element>
void release_element(const memory& memory, Element& element) noexcept {
    if constexpr (message_structure<Element>) {
        functions<Element>::free(&element, memory.release, memory.context, 0);
    } else if constexpr (std::is_same_v<Element, char*>) {
        if (element != nullptr) memory.release(element, memory.context);
    } else if constexpr (std::is_same_v<Element, vesk_bytes>) {
        if (element.data != nullptr) memory.release(element.data, memory.context);
    }
}

// A copy with a NUL at its end. error::embedded_nul, VESK_NO_MEMORY: there is none.
inline std::error_code copy_text(const memory& memory, std::string_view text, char*& copy) noexcept {
    if (text.find('\0') != std::string_view::npos) return make_error_code(error::embedded_nul);
    copy = static_cast<char*>(memory.alloc(text.size() + 1, memory.context));
    if (copy == nullptr) return make_error_code(std::int32_t{VESK_NO_MEMORY});
    if (!text.empty()) std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return {};
}

inline std::error_code copy_bytes(const memory& memory, std::span<const std::byte> bytes,
                                  std::uint8_t*& copy) noexcept {
    copy = static_cast<std::uint8_t*>(memory.alloc(bytes.size(), memory.context));
    if (copy == nullptr) return make_error_code(std::int32_t{VESK_NO_MEMORY});
    if (!bytes.empty()) std::memcpy(copy, bytes.data(), bytes.size());
    return {};
}

}  // namespace detail

// ==== Reading ========================================================================================================

template <message_structure T>
class view;

namespace detail {

// What get returns: numbers as they are, a flag as bool, a string as a string_view, bytes as a span of bytes, a list as
// a span of its elements as they stand in the array, a nested message as a view.
template <auto Member, class T>
constexpr void check_member() {
    static_assert(field_of_message<Member, T>, "vesk: this is no field of the message");
}

template <auto Member, class T>
auto value_of(const T& message) noexcept {
    using type = member_type<Member>;
    if constexpr (counted<Member>) {
        const auto count = message.*field<Member>::count;
        if constexpr (bytes<Member>) {
            return std::span<const std::byte>(reinterpret_cast<const std::byte*>(message.*Member), count);
        } else {
            return std::span<const element_type<Member>>(message.*Member, count);
        }
    } else if constexpr (std::is_same_v<type, char*>) {
        return message.*Member != nullptr ? std::string_view(message.*Member) : std::string_view();
    } else if constexpr (std::is_same_v<type, std::uint8_t>) {
        return message.*Member != 0;
    } else if constexpr (message_structure<type>) {
        return view<type>(message.*Member);
    } else {
        return message.*Member;
    }
}

}  // namespace detail

// Reads a message's structure, which must outlive it; it owns nothing.
template <message_structure T>
class view {
public:
    // Of a message that is a C structure.
    explicit view(const T& structure) noexcept : structure_(&structure) {}

    // The structure, for C functions.
    const T& c() const noexcept { return *structure_; }

    // Whether the field's presence bit is set.
    template <auto Member>
    bool has() const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            return VESK_HAS(structure_, detail::field<Member>::bit);
        } else {
            return false;
        }
    }

    // The field's value, nothing if its presence bit is clear. What it points to belongs to the message.
    template <auto Member>
    auto get() const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            using type = decltype(detail::value_of<Member>(*structure_));
            return has<Member>() ? std::optional<type>(detail::value_of<Member>(*structure_)) : std::nullopt;
        } else {
            return std::optional<int>();
        }
    }

    // The bytes that encoding takes.
    std::uint64_t encoded_size() const noexcept {
        return detail::functions<T>::encode(structure_, nullptr, 0, nullptr, nullptr, 0);
    }

    // Encodes into `buffer` and sets `length` to the bytes that the encoding takes. VESK_TOO_SHORT if these are more
    // than there are: the buffer then holds the beginning.
    [[nodiscard]] std::error_code encode(std::span<std::byte> buffer, std::uint64_t& length) const noexcept {
        length = detail::functions<T>::encode(structure_, buffer.data(), buffer.size(), nullptr, nullptr, 0);
        return make_error_code(length <= buffer.size() ? std::int32_t{VESK_OK} : std::int32_t{VESK_TOO_SHORT});
    }

private:
    const T* structure_;
};

// ==== Writing ========================================================================================================

// Writes a message's structure, whose blocks come from `memory` and go back there; it owns neither.
template <message_structure T>
class editor {
public:
    // Of a message that is a C structure, whose blocks are all from `memory`.
    editor(T& structure, const memory& memory) noexcept : structure_(&structure), memory_(memory) {}

    // The structure, for C functions, and its memory.
    T& c() const noexcept { return *structure_; }
    const memory& allocator() const noexcept { return memory_; }

    // As in view.
    operator view<T>() const noexcept { return view<T>(*structure_); }  // NOLINT: an editor is a view that writes, too
    template <auto Member>
    bool has() const noexcept {
        return view<T>(*structure_).template has<Member>();
    }
    template <auto Member>
    auto get() const noexcept {
        return view<T>(*structure_).template get<Member>();
    }

    // Sets a number or a flag and its presence bit. A number of another type, whose values the field cannot all hold,
    // does not compile.
    template <auto Member, detail::number Value>
    void set(Value value) const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            using type = detail::member_type<Member>;
            static_assert(std::is_arithmetic_v<type>, "vesk: the field is no number");
            if constexpr (std::is_arithmetic_v<type>) {
                static_assert(detail::keeps<Value, type>, "vesk: the field's type does not hold every such number");
                structure_->*Member = static_cast<type>(value);
                VESK_MARK(structure_, detail::field<Member>::bit);
            }
        }
    }

    // Sets a string to a copy, and its presence bit. error::embedded_nul, VESK_NO_MEMORY: the field is then as it was.
    template <auto Member>
    [[nodiscard]] std::error_code set(std::string_view text) const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            static_assert(std::is_same_v<detail::member_type<Member>, char*>, "vesk: the field is no string");
            if constexpr (std::is_same_v<detail::member_type<Member>, char*>) {
                char* copy;
                if (const std::error_code failed = detail::copy_text(memory_, text, copy)) return failed;
                replace<Member>(copy);
            }
        }
        return {};
    }
    template <auto Member>
    [[nodiscard]] std::error_code set(const char* text) const noexcept {
        return set<Member>(std::string_view(text));
    }

    // Sets a bytes field to a copy, and its presence bit. VESK_NO_MEMORY: the field is then as it was.
    template <auto Member>
    [[nodiscard]] std::error_code set(std::span<const std::byte> bytes) const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            static_assert(detail::bytes<Member>, "vesk: the field is no bytes field");
            if constexpr (detail::bytes<Member>) {
                std::uint8_t* copy;
                if (const std::error_code failed = detail::copy_bytes(memory_, bytes, copy)) return failed;
                replace<Member>(copy);
                structure_->*detail::field<Member>::count = bytes.size();
            }
        }
        return {};
    }

    // A nested message, whose presence bit is set by asking for it.
    template <auto Member>
    auto edit() const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            using type = detail::member_type<Member>;
            static_assert(message_structure<type>, "vesk: the field is no nested message");
            if constexpr (message_structure<type>) {
                VESK_MARK(structure_, detail::field<Member>::bit);
                return editor<type>(structure_->*Member, memory_);
            }
        }
    }

    // An element of a list of messages, which has to be below its count.
    template <auto Member>
    auto edit(std::size_t index) const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            static_assert(detail::message_list<Member>, "vesk: the field is no list of messages");
            if constexpr (detail::message_list<Member>) {
                return editor<detail::element_type<Member>>((structure_->*Member)[index], memory_);
            }
        }
    }

    // Makes a list `count` elements long and sets its presence bit: those beyond are given back, new ones are empty.
    // error::too_many, VESK_NO_MEMORY: the list is then as it was. Spans and editors of its elements are void
    // afterwards.
    template <auto Member>
    [[nodiscard]] std::error_code resize(std::size_t count) const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            static_assert(detail::list<Member>, "vesk: the field is no list");
            if constexpr (detail::list<Member>) {
                using element = detail::element_type<Member>;
                std::uint32_t& old_count = structure_->*detail::field<Member>::count;
                if (count > UINT32_MAX) return make_error_code(error::too_many);
                element* array = nullptr;
                if (count != 0) {
                    const std::size_t kept = count < old_count ? count : old_count;
                    array = detail::array_with(memory_, structure_->*Member, kept, count);
                    if (array == nullptr) return make_error_code(std::int32_t{VESK_NO_MEMORY});
                    std::memset(static_cast<void*>(array + kept), 0, (count - kept) * sizeof(element));
                }
                for (std::size_t i = count; i < old_count; ++i) {
                    detail::release_element(memory_, (structure_->*Member)[i]);
                }
                replace<Member>(array);
                old_count = static_cast<std::uint32_t>(count);
            }
        }
        return {};
    }

    // Sets an element of a list of numbers, flags, strings or bytes, which has to be below its count, as set does a
    // field.
    template <auto Member, detail::number Value>
    void set(std::size_t index, Value value) const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            static_assert(detail::list<Member>, "vesk: the field is no list");
            if constexpr (detail::list<Member>) {
                using element = detail::element_type<Member>;
                static_assert(std::is_arithmetic_v<element>, "vesk: the list is not of numbers");
                static_assert(detail::keeps<Value, element>, "vesk: the field's type does not hold every such number");
                if constexpr (std::is_arithmetic_v<element>) {
                    (structure_->*Member)[index] = static_cast<element>(value);
                }
            }
        }
    }
    template <auto Member>
    [[nodiscard]] std::error_code set(std::size_t index, std::string_view text) const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            static_assert(std::is_same_v<detail::member_type<Member>, char**>, "vesk: the field is no list of strings");
            if constexpr (std::is_same_v<detail::member_type<Member>, char**>) {
                char* copy;
                if (const std::error_code failed = detail::copy_text(memory_, text, copy)) return failed;
                detail::release_element(memory_, (structure_->*Member)[index]);
                (structure_->*Member)[index] = copy;
            }
        }
        return {};
    }
    template <auto Member>
    [[nodiscard]] std::error_code set(std::size_t index, const char* text) const noexcept {
        return set<Member>(index, std::string_view(text));
    }
    template <auto Member>
    [[nodiscard]] std::error_code set(std::size_t index, std::span<const std::byte> bytes) const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            static_assert(std::is_same_v<detail::member_type<Member>, vesk_bytes*>,
                          "vesk: the field is no list of bytes");
            if constexpr (std::is_same_v<detail::member_type<Member>, vesk_bytes*>) {
                std::uint8_t* copy;
                if (const std::error_code failed = detail::copy_bytes(memory_, bytes, copy)) return failed;
                detail::release_element(memory_, (structure_->*Member)[index]);
                (structure_->*Member)[index] = {copy, bytes.size()};
            }
        }
        return {};
    }

    // Makes a field absent, and gives back what it owns.
    template <auto Member>
    void clear() const noexcept {
        detail::check_member<Member, T>();
        if constexpr (detail::field_of_message<Member, T>) {
            using type = detail::member_type<Member>;
            if constexpr (detail::list<Member>) {
                (void)resize<Member>(0);
            } else if constexpr (std::is_pointer_v<type>) {
                replace<Member>(nullptr);
                if constexpr (detail::counted<Member>) structure_->*detail::field<Member>::count = 0;
            } else if constexpr (message_structure<type>) {
                detail::functions<type>::free(&(structure_->*Member), memory_.release, memory_.context, 0);
                structure_->*Member = type{};
            } else {
                structure_->*Member = 0;
            }
            VESK_UNMARK(structure_, detail::field<Member>::bit);
        }
    }

private:
    template <auto Member>
    void replace(detail::member_type<Member> block) const noexcept {
        if (structure_->*Member != nullptr) memory_.release(structure_->*Member, memory_.context);
        structure_->*Member = block;
        VESK_MARK(structure_, detail::field<Member>::bit);
    }

    T* structure_;
    memory memory_;
};

// ==== Owning =========================================================================================================

// A message with its memory: the heap, if none is named. Empty at first. Moving leaves the other one empty.
template <message_structure T>
class message {
public:
    // Empty, on the heap or in the memory that is named.
    message() noexcept : message(heap()) {}
    explicit message(const memory& memory) noexcept : structure_{}, memory_(memory) {}
    message(const message&) = delete;  // copy, which can say that there is no memory
    message& operator=(const message&) = delete;
    // Takes over what the other one holds, with its memory.
    message(message&& other) noexcept
        : structure_(std::exchange(other.structure_, T{})),
          memory_(other.memory_),
          flags_(std::exchange(other.flags_, 0)) {}
    message& operator=(message&& other) noexcept {
        if (this != &other) {
            clear();
            structure_ = std::exchange(other.structure_, T{});
            memory_ = other.memory_;
            flags_ = std::exchange(other.flags_, 0);
        }
        return *this;
    }
    ~message() { clear(); }

    // The structure, for C functions, and its memory. What it points to stays the message's.
    T& c() noexcept { return structure_; }
    const T& c() const noexcept { return structure_; }
    const memory& allocator() const noexcept { return memory_; }

    // For reading and for writing it.
    operator view<T>() const noexcept { return view<T>(structure_); }  // NOLINT: as a string is one of string_view
    editor<T> edit() noexcept { return editor<T>(structure_, memory_); }

    // Gives back what it owns; it is empty then.
    void clear() noexcept {
        detail::functions<T>::free(&structure_, memory_.release, memory_.context, flags_);
        structure_ = T{};
        flags_ = 0;
    }

    // Becomes what the bytes say. After an error it is empty. With VESK_BYTES_BY_REFERENCE its bytes fields point into
    // `bytes`, which then must outlive it: such a message is read, and cleared as a whole, but nothing in it is set,
    // resized or cleared by itself.
    [[nodiscard]] std::error_code decode(std::span<const std::byte> bytes, std::uint32_t flags = 0) noexcept {
        clear();
        flags_ = flags;
        const std::int32_t result = detail::functions<T>::decode(&structure_, bytes.data(), bytes.size(), memory_.alloc,
                                                                 memory_.context, flags);
        if (result != VESK_OK) clear();
        return make_error_code(result);
    }

    // Becomes a copy, in its own memory. After an error it is empty. `other` may be the message itself.
    [[nodiscard]] std::error_code copy(view<T> other) noexcept {
        if (&other.c() == &structure_) return {};
        clear();
        const std::int32_t result =
            detail::functions<T>::duplicate(&structure_, &other.c(), memory_.alloc, memory_.context);
        if (result != VESK_OK) clear();
        return make_error_code(result);
    }

    // Whether its bytes fields point into what it was decoded from.
    bool is_by_reference() const noexcept { return (flags_ & VESK_BYTES_BY_REFERENCE) != 0; }

    // As in view.
    std::uint64_t encoded_size() const noexcept { return view<T>(structure_).encoded_size(); }
    [[nodiscard]] std::error_code encode(std::span<std::byte> buffer, std::uint64_t& length) const noexcept {
        return view<T>(structure_).encode(buffer, length);
    }

    // As in view and editor.
    template <auto Member>
    bool has() const noexcept {
        return view<T>(structure_).template has<Member>();
    }
    template <auto Member>
    auto get() const noexcept {
        return view<T>(structure_).template get<Member>();
    }
    template <auto Member, class Value>
    auto set(const Value& value) noexcept {
        return edit().template set<Member>(value);
    }
    template <auto Member, class Value>
    auto set(std::size_t index, const Value& value) noexcept {
        return edit().template set<Member>(index, value);
    }
    template <auto Member>
    auto edit() noexcept {
        return edit().template edit<Member>();
    }
    template <auto Member>
    auto edit(std::size_t index) noexcept {
        return edit().template edit<Member>(index);
    }
    template <auto Member>
    [[nodiscard]] std::error_code resize(std::size_t count) noexcept {
        return edit().template resize<Member>(count);
    }
    template <auto Member>
    void clear() noexcept {
        edit().template clear<Member>();
    }

private:
    T structure_;
    memory memory_;
    std::uint32_t flags_ = 0;  // those of the decode, which free wants again
};

// view(message) and view(editor) read the message.
template <class T>
view(const message<T>&) -> view<T>;
template <class T>
view(const editor<T>&) -> view<T>;

// A list that grows: the structure has an array and a count, but no capacity, so the array grows here, in the memory of
// the message that it is for, and goes into the message as a whole. What was not put into a message is given back.
template <auto Member>
requires detail::message_list<Member>
class list_builder {
public:
    // Of the message that has the list, and of its elements.
    using structure = typename detail::field<Member>::structure;
    using element = detail::element_type<Member>;

    // Empty; the list grows in `memory`.
    explicit list_builder(const memory& memory) noexcept : memory_(memory) {}
    list_builder(const list_builder&) = delete;
    list_builder& operator=(const list_builder&) = delete;
    list_builder(list_builder&& other) noexcept
        : array_(std::exchange(other.array_, nullptr)),
          count_(std::exchange(other.count_, 0)),
          capacity_(std::exchange(other.capacity_, 0)),
          memory_(other.memory_) {}
    list_builder& operator=(list_builder&&) = delete;
    ~list_builder() { drop(); }

    // The elements so far.
    std::uint32_t size() const noexcept { return count_; }

    // Appends an empty element, which edit(size() - 1) fills. error::too_many, VESK_NO_MEMORY: nothing is appended.
    // Editors of its elements are void afterwards.
    [[nodiscard]] std::error_code append() noexcept {
        if (count_ == capacity_) {
            if (capacity_ > UINT32_MAX / 2) return make_error_code(error::too_many);
            const std::uint32_t more = capacity_ != 0 ? capacity_ * 2 : 4;
            element* const array = detail::array_with(memory_, array_, count_, more);
            if (array == nullptr) return make_error_code(std::int32_t{VESK_NO_MEMORY});
            if (array_ != nullptr) memory_.release(array_, memory_.context);
            array_ = array;
            capacity_ = more;
        }
        array_[count_++] = element{};
        return {};
    }

    // Appends a copy.
    [[nodiscard]] std::error_code append(view<element> other) noexcept {
        message<element> copy(memory_);
        if (const std::error_code failed = copy.copy(other)) return failed;
        return append(std::move(copy));
    }

    // Appends what a message holds: takes it over if it is in the same memory, else a copy.
    [[nodiscard]] std::error_code append(message<element>&& other) noexcept {
        if (!(other.allocator() == memory_) || other.is_by_reference()) return append(view<element>(other));
        if (const std::error_code failed = append()) return failed;
        array_[count_ - 1] = std::exchange(other.c(), element{});
        return {};
    }

    // An element, which has to be one of those so far.
    editor<element> edit(std::size_t index) noexcept { return editor<element>(array_[index], memory_); }

    // Puts the list into a message, in the place of the one that it has, and sets its presence bit. The builder is
    // empty afterwards. The message has to be in the builder's memory.
    void put(editor<structure> target) noexcept {
        target.template clear<Member>();
        target.c().*Member = std::exchange(array_, nullptr);
        target.c().*detail::field<Member>::count = std::exchange(count_, 0);
        VESK_MARK(&target.c(), detail::field<Member>::bit);
        capacity_ = 0;
    }

private:
    void drop() noexcept {
        for (std::uint32_t i = 0; i < count_; ++i) {
            detail::functions<element>::free(&array_[i], memory_.release, memory_.context, 0);
        }
        if (array_ != nullptr) memory_.release(array_, memory_.context);
    }

    element* array_ = nullptr;
    std::uint32_t count_ = 0;
    std::uint32_t capacity_ = 0;
    memory memory_;
};

}  // namespace vesk

#endif
