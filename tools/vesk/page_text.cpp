#include "tools/vesk/page_text.hpp"

// The assembler puts the file in as it is; VESK_PAGE is its path.
asm(".pushsection .rodata\n"
    "vesk_page_begin: .incbin \"" VESK_PAGE
    "\"\n"
    "vesk_page_end:\n"
    ".popsection\n");

extern "C" {
[[gnu::visibility("hidden")]] extern const char vesk_page_begin[];
[[gnu::visibility("hidden")]] extern const char vesk_page_end[];
}

namespace vesk::tool {

const std::string_view page_text(vesk_page_begin, static_cast<std::size_t>(vesk_page_end - vesk_page_begin));

}  // namespace vesk::tool
