#include "tools/signal/TextFields.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace velto {
namespace signal {

std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(pos, end - pos);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.push_back(line);
        pos = end + 1;
    }
    return lines;
}

std::vector<std::string_view> splitFields(std::string_view line) {
    std::vector<std::string_view> fields;
    size_t pos = 0;
    while (pos < line.size()) {
        while (pos < line.size() && (line[pos] == ' ' || line[pos] == '\t')) ++pos;
        size_t end = pos;
        while (end < line.size() && line[end] != ' ' && line[end] != '\t') ++end;
        if (end > pos) fields.push_back(line.substr(pos, end - pos));
        pos = end;
    }
    return fields;
}

bool parseInt64(std::string_view field, int64_t* out) {
    if (field.empty() || field.size() > 20) return false;
    size_t i = 0;
    bool negative = false;
    if (field[0] == '+' || field[0] == '-') {
        negative = field[0] == '-';
        i = 1;
    }
    if (i == field.size()) return false;
    // Accumulate as a negative number so that INT64_MIN parses too.
    int64_t value = 0;
    for (; i < field.size(); ++i) {
        const char c = field[i];
        if (c < '0' || c > '9') return false;
        const int digit = c - '0';
        if (value < (INT64_MIN + digit) / 10) return false;
        value = value * 10 - digit;
    }
    if (!negative) {
        if (value == INT64_MIN) return false;
        value = -value;
    }
    *out = value;
    return true;
}

bool parseDouble(std::string_view field, double* out) {
    if (field.empty() || field.size() > 64) return false;
    for (char c : field) {
        // Only plain decimal notation: no hex floats, no "inf" or "nan".
        if (!((c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e' || c == 'E')) {
            return false;
        }
    }
    const std::string copy(field);
    char* end = nullptr;
    errno = 0;
    const double v = strtod(copy.c_str(), &end);
    if (end != copy.c_str() + copy.size() || errno != 0 || !std::isfinite(v)) return false;
    *out = v;
    return true;
}

}  // namespace signal
}  // namespace velto
