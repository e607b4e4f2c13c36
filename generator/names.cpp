#include "generator/names.hpp"

#include <algorithm>
#include <cctype>

namespace vesk::generator {
namespace {

// Of C up to C23 and C++ up to C++23, the names of types that generated members have, and macros in small letters that
// stand for something by themselves (not those that are called): of the C library, of POSIX, and of gcc and clang.
// tests/generator/check_names holds them to what the headers here define.
const std::set<std::string> words{
    // keywords
    "alignas", "alignof", "asm", "auto", "bool", "break", "case", "catch", "char", "char16_t", "char32_t", "char8_t",
    "class", "co_await", "co_return", "co_yield", "concept", "const", "const_cast", "consteval", "constexpr",
    "constinit", "continue", "decltype", "default", "delete", "do", "double", "dynamic_cast", "else", "enum",
    "explicit", "export", "extern", "false", "float", "for", "friend", "goto", "if", "inline", "int", "long", "mutable",
    "namespace", "new", "noexcept", "nullptr", "operator", "private", "protected", "public", "register",
    "reinterpret_cast", "requires", "restrict", "return", "short", "signed", "sizeof", "static", "static_assert",
    "static_cast", "struct", "switch", "template", "this", "thread_local", "throw", "true", "try", "typedef", "typeid",
    "typename", "typeof", "typeof_unqual", "union", "unsigned", "using", "virtual", "void", "volatile", "wchar_t",
    "while",
    // alternative tokens
    "and", "and_eq", "bitand", "bitor", "compl", "not", "not_eq", "or", "or_eq", "xor", "xor_eq",
    // types of members
    "int32_t", "int64_t", "uint8_t", "uint32_t", "uint64_t", "vesk_bytes",
    // macros of the C library, and what is called as if it were a function but is often one
    "assert", "complex", "errno", "imaginary", "math_errhandling", "noreturn", "offsetof", "setjmp", "stderr", "stdin",
    "stdout",
    // of POSIX and of systems
    "d_fileno", "h_addr", "h_errno", "i386", "ifa_broadaddr", "ifa_dstaddr", "ifc_buf", "ifc_req", "ifr_addr",
    "ifr_bandwidth", "ifr_broadaddr", "ifr_data", "ifr_dstaddr", "ifr_flags", "ifr_hwaddr", "ifr_ifindex", "ifr_map",
    "ifr_metric", "ifr_mtu", "ifr_name", "ifr_netmask", "ifr_newname", "ifr_qlen", "ifr_slave", "linux", "major",
    "makedev", "minor", "s6_addr", "s6_addr16", "s6_addr32", "sa_handler", "sa_sigaction", "sched_priority", "si_addr",
    "si_addr_lsb", "si_arch", "si_band", "si_call_addr", "si_fd", "si_int", "si_lower", "si_overrun", "si_pid",
    "si_pkey", "si_ptr", "si_status", "si_stime", "si_syscall", "si_timerid", "si_uid", "si_upper", "si_utime",
    "si_value", "sigev_notify_attributes", "sigev_notify_function", "st_atime", "st_ctime", "st_mtime", "unix",
    "ut_addr", "ut_name", "ut_time", "ut_xtime"};

// Of the runtime, and the families of macros with two underscores that the C library has: FLT_MAX_EXP.
const std::set<std::string> prefixes{"atomic", "dbl", "dec", "fe",  "flt", "fp",   "int",
                                     "ldbl",   "mb",  "sig", "std", "tss", "uint", "vesk"};

bool is_in_capitals(const std::string& name) {
    return std::none_of(name.begin(), name.end(), [](unsigned char c) { return std::islower(c); });
}

template <class IsTaken>
std::string apply_rule(const std::string& wanted, IsTaken is_taken) {
    const std::string name = fold_underscores(wanted);
    if (!is_taken(name) && is_identifier(name)) return name;
    const std::string longer = fold_underscores(name + "_");
    return !is_taken(longer) && is_identifier(longer) ? longer : std::string();
}

}  // namespace

std::string upper_case(const std::string& text) {
    std::string upper = text;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    return upper;
}

std::string fold_underscores(const std::string& name) {
    std::string folded;
    for (const char c : name) {
        if (c != '_' || (!folded.empty() && folded.back() != '_')) folded += c;
    }
    return folded;
}

std::string identifier_of(const std::string& name) {
    std::string identifier = name;
    for (char& c : identifier) {
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    }
    identifier = fold_underscores(identifier);
    if (!identifier.empty() && identifier.back() == '_') identifier.pop_back();
    return identifier;
}

bool is_identifier(const std::string& name) {
    return !name.empty() && !std::isdigit(static_cast<unsigned char>(name.front())) &&
           std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) || c == '_'; });
}

bool is_reserved_prefix(const std::string& prefix) {
    return std::any_of(prefixes.begin(), prefixes.end(), [&](const std::string& reserved) {
        return prefix == reserved || prefix.rfind(reserved + "_", 0) == 0;
    });
}

bool Scope::add(const std::string& name) { return !words.contains(name) && names_.insert(name).second; }

std::string Scope::add_by_rule(const std::string& wanted) {
    const auto is_taken = [&](const std::string& name) { return words.contains(name) || names_.contains(name); };
    const std::string name = apply_rule(wanted, is_taken);
    names_.insert(name);
    return name;
}

std::string MemberScope::add_by_rule(const std::string& wanted) {
    const std::string name = apply_rule(wanted, [&](const std::string& candidate) {
        const bool is_for_macros = is_in_capitals(candidate) && !candidate.ends_with('_');
        return candidate.empty() || is_for_macros || words.contains(candidate) || types_.contains(candidate) ||
               names_.contains(candidate);
    });
    names_.insert(name);
    return name;
}

}  // namespace vesk::generator
