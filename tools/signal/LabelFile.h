#ifndef VELTO_SIGNAL_LABELFILE_H
#define VELTO_SIGNAL_LABELFILE_H

#include <string>
#include <string_view>
#include <vector>

#include "tools/signal/Label.h"
#include "tools/signal/TextFields.h"

namespace velto {
namespace signal {

// The labels file beside a recording: one "START_NS END_NS NAME" line per
// label, '#' starts a comment line, blank lines are allowed.
class LabelFile {
public:
    // Reads every label of `text`. Annotation comments are not read back.
    // On a malformed line returns false and says which and why.
    static bool parse(std::string_view text, std::vector<Label>* labels, ParseError* error);

    // One line for a label, with its newline; annotations become comments.
    static std::string formatLine(const Label& label);

    // A whole file: each of `comments` as a "# " line, then the labels in
    // file order.
    static std::string format(const std::vector<std::string>& comments, std::vector<Label> labels);

private:
    LabelFile() = delete;
};

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_LABELFILE_H
