#include "tools/signal/LabelFile.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace velto {
namespace signal {

bool LabelFile::parse(std::string_view text, std::vector<Label>* labels, ParseError* error) {
    const std::vector<std::string_view> lines = splitLines(text);
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::vector<std::string_view> f = splitFields(lines[i]);
        if (f.empty() || f[0][0] == '#') continue;
        const int lineNo = static_cast<int>(i) + 1;
        if (f.size() != 3) {
            *error = {lineNo, "expected START_NS END_NS NAME"};
            return false;
        }
        Label label;
        if (!parseInt64(f[0], &label.startNs) || !parseInt64(f[1], &label.endNs)) {
            *error = {lineNo, "time stamps must be integers in nanoseconds"};
            return false;
        }
        if (label.endNs < label.startNs) {
            *error = {lineNo, "label ends before it starts"};
            return false;
        }
        if (!labelKindFromName(std::string(f[2]).c_str(), &label.kind)) {
            *error = {lineNo, "unknown label name '" + std::string(f[2]) + "'"};
            return false;
        }
        labels->push_back(label);
    }
    return true;
}

std::string LabelFile::formatLine(const Label& label) {
    char buf[96];
    snprintf(buf, sizeof(buf), "%s%" PRId64 " %" PRId64 " %s\n",
             isAnnotation(label.kind) ? "# " : "", label.startNs, label.endNs,
             labelName(label.kind));
    return buf;
}

std::string LabelFile::format(const std::vector<std::string>& comments, std::vector<Label> labels) {
    std::string out;
    for (const std::string& c : comments) out += "# " + c + "\n";
    std::sort(labels.begin(), labels.end(), labelBefore);
    for (const Label& l : labels) out += formatLine(l);
    return out;
}

}  // namespace signal
}  // namespace velto
