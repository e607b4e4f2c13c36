// What a verb writes: to standard output, or to a file that is written aside and renamed once it is whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace vesk::tool {

// What a stretch of text is, where a terminal shows it in a colour.
enum class Ink { tag, length, value, unknown, beyond, good, bad };

// Buffered; a write that fails is a Failure: "standard output: why". close() must be called at the end; without it a
// file that was written aside is taken away again.
class Output {
public:
    Output();                                  // standard output
    explicit Output(const std::string& name);  // a file; what is no regular file is written to straight away
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view text);
    void close();
    // Writes what is held for standard output, so that a line on standard error comes after it.
    static void flush_standard();
    bool is_terminal() const { return terminal_; }

    // In a colour on a terminal, unless NO_COLOR is set; else as it is.
    std::string in(Ink ink, const std::string& text) const;

    // A vesk_text_write; the context is an Output. Not 0 if a write failed, which rethrow() then throws.
    static std::int32_t write_to(const char* text, std::size_t length, void* context);
    void rethrow() const {
        if (failure_) std::rethrow_exception(failure_);
    }

private:
    void flush();
    void open_aside();

    static Output* standard_;

    std::string name_;
    std::string target_;  // the file, at the end of any links
    std::string aside_;   // written until it is whole; empty if there is none
    int file_;
    bool terminal_;
    bool coloured_;
    std::string held_;
    std::exception_ptr failure_;
};

// Of a file that does not block: until it is ready, or has an error that the next call will say.
void wait_until(int file, short events);

// "1 byte", "2 bytes".
std::string counted(std::uint64_t count, const std::string& what, const std::string& ending = "s");

// Whether a terminal or a browser would not show a character of UTF-8 but obey it: control characters, and those that
// turn the text around them, break lines or are not seen.
bool is_control(std::string_view character);

// For a terminal: control characters and bytes that are not UTF-8 as escapes.
std::string visible(std::string_view text);

// Two digits.
std::string hex_of(char byte);

// A string of a message for a terminal, a page or a line: control characters and bytes that are not UTF-8 as escapes,
// quoted, cut after `most` bytes.
std::string quote(std::string_view text, std::size_t most = 64);

// A file's name as it is, or quoted if a terminal might take it for something else.
std::string quote_name(const std::string& name);

// As it stands inside a JSON string, without its quotes; bytes that are not UTF-8 as \udc80 to \udcff.
void append_json(std::string& json, std::string_view text);

std::string html_escape(std::string_view text);

}  // namespace vesk::tool
