#ifndef VELTO_TEXT_BUFFER_H
#define VELTO_TEXT_BUFFER_H

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

namespace velto {

// Debug strings of the classifiers are built in caller-provided char buffers;
// this appends to one without ever writing past its end.
class TextBuffer {
public:
    __attribute__((format(printf, 3, 4))) static void append(char* buffer, size_t size, const char* format, ...) {
        const size_t used = strnlen(buffer, size);
        if (used + 1 >= size) return;
        va_list args;
        va_start(args, format);
        vsnprintf(buffer + used, size - used, format, args);
        va_end(args);
    }

private:
    TextBuffer() = delete;
};

}  // namespace velto

#endif  // VELTO_TEXT_BUFFER_H
