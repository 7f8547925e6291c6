#ifndef VELTO_SIGNAL_TEXTFIELDS_H
#define VELTO_SIGNAL_TEXTFIELDS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velto {
namespace signal {

// Where a text input went wrong: the 1-based line and what was wrong with it.
struct ParseError {
    int line = 0;
    std::string message;
};

// Small strict helpers shared by the parsers of labels, recordings and
// scenarios: whole fields only, no silent truncation.

// Splits `text` into lines (without the '\n'; a trailing '\r' is dropped too).
// A final line without newline counts; an empty text gives no lines.
std::vector<std::string_view> splitLines(std::string_view text);
// Fields separated by blanks or tabs.
std::vector<std::string_view> splitFields(std::string_view line);
// A whole field as a decimal signed 64-bit integer (optional sign).
bool parseInt64(std::string_view field, int64_t* out);
// A whole field as a finite decimal number.
bool parseDouble(std::string_view field, double* out);

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_TEXTFIELDS_H
