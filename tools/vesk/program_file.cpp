#include "tools/vesk/program_file.hpp"

#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>

#include "recorder/recorded_types.hpp"
#include "tools/vesk/failure.hpp"
#include "tools/vesk/input.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/recording.hpp"

namespace vesk::tool {
namespace {

// The machine's own kind of ELF file, which may be damaged or made to deceive: nothing is read without looking whether
// it is there.
class Elf {
public:
    explicit Elf(const Input& input) : input_(input) {
        const auto* const header = at<ElfW(Ehdr)>(0);
        if (header == nullptr || std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0) return;
        is_elf_ = true;
        header_ = *header;
    }

    bool is_elf() const { return is_elf_; }

    bool is_of_this_machine() const {
        constexpr int own_class = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
        const Input program("/proc/self/exe", Form::raw);
        const Elf own(program);
        return header_.e_ident[EI_CLASS] == own_class && header_.e_machine == own.header_.e_machine &&
               header_.e_ident[EI_DATA] == own.header_.e_ident[EI_DATA];
    }

    // A program without one is started by nobody who preloads.
    bool names_a_loader() const {
        for (unsigned i = 0; i < header_.e_phnum; ++i) {
            const auto* const segment = at<ElfW(Phdr)>(header_.e_phoff + i * std::uint64_t{header_.e_phentsize});
            if (segment != nullptr && segment->p_type == PT_INTERP) return true;
        }
        return false;
    }

    // Calls look(name, is_defined) for each function or thing that its symbol tables name.
    template <class Look>
    void for_each_symbol(Look look) const {
        for (unsigned i = 0; i < header_.e_shnum; ++i) {
            const ElfW(Shdr)* const table = section(i);
            if (table == nullptr || (table->sh_type != SHT_SYMTAB && table->sh_type != SHT_DYNSYM)) continue;
            const ElfW(Shdr)* const names = section(table->sh_link);
            if (names == nullptr) continue;
            for (std::uint64_t done = 0; done + sizeof(ElfW(Sym)) <= table->sh_size; done += sizeof(ElfW(Sym))) {
                const auto* const symbol = at<ElfW(Sym)>(table->sh_offset + done);
                if (symbol == nullptr) break;
                look(text(names->sh_offset + symbol->st_name), symbol->st_shndx != SHN_UNDEF);
            }
        }
    }

private:
    // Files are mapped or in a block, and what is in them is aligned by their makers; null if it is not, or not there.
    template <class Part>
    const Part* at(std::uint64_t offset) const {
        if (offset > input_.size() || input_.size() - offset < sizeof(Part)) return nullptr;
        const std::uint8_t* const place = input_.data() + offset;
        return reinterpret_cast<std::uintptr_t>(place) % alignof(Part) == 0 ? reinterpret_cast<const Part*>(place)
                                                                            : nullptr;
    }

    const ElfW(Shdr) * section(std::uint64_t number) const {
        return at<ElfW(Shdr)>(header_.e_shoff + number * header_.e_shentsize);
    }

    std::string_view text(std::uint64_t offset) const {
        if (offset >= input_.size()) return {};
        const char* const begin = reinterpret_cast<const char*>(input_.data()) + offset;
        return {begin, strnlen(begin, input_.size() - offset)};
    }

    const Input& input_;
    bool is_elf_ = false;
    ElfW(Ehdr) header_{};
};

bool is_recorded(std::string_view name) {
    static const std::string_view types[] = {
#define VESK_NAME(Message) #Message,
        VESK_RECORDED_TYPES(VESK_NAME)
#undef VESK_NAME
    };
    for (const std::string_view suffix : recording::operation_suffixes) {
        if (!name.ends_with(suffix)) continue;
        const std::string_view type = name.substr(0, name.size() - suffix.size());
        for (const std::string_view known : types) {
            if (type == known) return true;
        }
    }
    return false;
}

bool may_be_run(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return false;
    if (!S_ISREG(status.st_mode)) errno = S_ISDIR(status.st_mode) ? EISDIR : EACCES;
    return S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::string find_program(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        if (may_be_run(name)) return name;
        throw Failure(quote_name(name) + " cannot be started: " + because(errno));
    }
    const char* const set = std::getenv("PATH");
    std::string_view path = set != nullptr ? set : "/usr/local/bin:/usr/bin:/bin";
    while (true) {
        const std::size_t length = path.find(':');
        const std::string folder(path.substr(0, length));
        const std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
        if (!name.empty() && may_be_run(candidate)) return candidate;
        if (length == std::string_view::npos) break;
        path.remove_prefix(length + 1);
    }
    throw Failure(quote_name(name) + " cannot be started: no folder of PATH has such a program");
}

void refuse_unrecordable(const std::string& path) {
    const std::string name = quote_name(path);
    struct stat status;
    if (stat(path.c_str(), &status) != 0) throw Failure(name + " cannot be started: " + because(errno));
    if (((status.st_mode & S_ISUID) != 0 && status.st_uid != geteuid()) ||
        ((status.st_mode & S_ISGID) != 0 && status.st_gid != getegid())) {
        throw Failure(name + " runs as another user: nothing can be preloaded into it");
    }
    if (access(path.c_str(), R_OK) != 0) return;  // the loader reads what this user may not
    const Input input(path, Form::raw);
    const Elf elf(input);
    if (!elf.is_elf()) return;
    if (!elf.is_of_this_machine()) throw Failure(name + " is for another machine than vesk: it cannot be recorded");
    if (!elf.names_a_loader()) throw Failure(name + " is linked statically: nothing can be preloaded into it");

    bool has_them = false;
    bool wants_them = false;
    std::set<std::string_view> of_identifier;
    elf.for_each_symbol([&](std::string_view symbol, bool defined) {
        if (is_recorded(symbol)) (defined ? has_them : wants_them) = true;
        if (symbol.starts_with("vesk_drin_eid_st_") && !defined) of_identifier.insert(symbol);
    });
    // A library that is linked in without its names still shows by the identifier's functions, all of which it needs.
    if (has_them || (of_identifier.size() == recording::operation_count && !wants_them)) {
        throw Failure(name + " has the library linked statically: its calls cannot be recorded");
    }
}

}  // namespace vesk::tool
