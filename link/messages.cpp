#include "link/messages.h"

#include <array>
#include <cstdarg>

namespace {

// Prints a line by one write, so that lines of several writers do not mix.
void print_line(std::FILE* stream, const char* tag, const char* function, const char* format,
                std::va_list arguments) {
    std::array<char, 1024> text{};  // the dump of the longest frame needs some 850
    std::vsnprintf(text.data(), text.size(), format, arguments);
    std::fprintf(stream, "%s%s: %s\n", tag, function, text.data());
}

}  // namespace

void error_line(const char* function, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print_line(stderr, "[ERROR]", function, format, arguments);
    va_end(arguments);
}

void trace_line(std::FILE* stream, const char* function, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print_line(stream, "[DEBUG]", function, format, arguments);
    va_end(arguments);
}
