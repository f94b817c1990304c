// A stream line of the link protocol has a tag, the function's name, ": " and the text.
#pragma once

#include <cstdio>

// Writes an "[ERROR]" line on standard error.
[[gnu::format(printf, 2, 3)]] void error_line(const char* function, const char* format, ...);

// Writes a "[DEBUG]" line on `stream`. The caller asks its trace switch first.
[[gnu::format(printf, 3, 4)]] void trace_line(std::FILE* stream, const char* function,
                                              const char* format, ...);
