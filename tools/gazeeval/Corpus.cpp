#include "tools/gazeeval/Corpus.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "tools/signal/LabelFile.h"
#include "tools/signal/TextFields.h"

namespace velto {
namespace gazetools {

using signal::Label;
using signal::LabelKind;

// A recording covers its samples' sampling periods, so a label may reach a
// little past the first and the last sample (a recorder that stops between
// two samples labels up to its stop).
constexpr int64_t kEdgeSlackNs = 100000000;

std::string InputError::text() const {
    if (line > 0) return file + ":" + std::to_string(line) + ": " + message;
    return file + ": " + message;
}

bool insideAny(const std::vector<Span>& spans, int64_t t) {
    for (const Span& s : spans) {
        if (s.contains(t)) return true;
    }
    return false;
}

std::vector<Span> CorpusRecording::spansOf(LabelKind kind) const {
    std::vector<Span> out;
    for (const Label& l : labels) {
        if (l.kind == kind) out.push_back({l.startNs, l.endNs});
    }
    return out;
}

std::vector<Span> CorpusRecording::calibrationSpans() const {
    std::vector<Span> out;
    for (const Label& l : labels) {
        if (l.kind == LabelKind::CalibrateWink || l.kind == LabelKind::CalibrateLookAtScreen ||
            l.kind == LabelKind::CalibrateDonDoff) {
            out.push_back({l.startNs, l.endNs});
        }
    }
    return out;
}

std::vector<Span> CorpusRecording::wornSpans() const {
    std::vector<Span> out;
    bool worn = true;
    for (const Label& l : labels) {
        if (l.kind == LabelKind::Don || l.kind == LabelKind::Doff) {
            worn = l.kind == LabelKind::Doff;
            break;
        }
    }
    int64_t wornSince = firstNs;
    for (const Label& l : labels) {
        if (l.kind == LabelKind::Don && !worn) {
            worn = true;
            wornSince = l.endNs;
        } else if (l.kind == LabelKind::Doff && worn) {
            worn = false;
            if (l.startNs > wornSince) out.push_back({wornSince, l.startNs});
        }
    }
    if (worn && lastNs > wornSince) out.push_back({wornSince, lastNs});
    return out;
}

namespace {

// Median reading of the samples in [from, to]; NaN when there are none.
double medianReading(const std::vector<signal::RecordedSample>& samples, int64_t from, int64_t to) {
    const auto byTime = [](const signal::RecordedSample& s, int64_t t) { return s.timestampNs < t; };
    const auto a = std::lower_bound(samples.begin(), samples.end(), from, byTime);
    const auto b = std::lower_bound(a, samples.end(), to + 1, byTime);
    if (a == b) return std::nan("");
    std::vector<int> v;
    for (auto it = a; it != b; ++it) v.push_back(it->reading & 0x3FFF);
    std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

}  // namespace

bool CorpusRecording::lookRaisesReading(const Span& look) const {
    constexpr int64_t kMs = 1000000;
    const double before = medianReading(samples, look.startNs - 700 * kMs, look.startNs - 100 * kMs);
    // The eye has arrived after at most 400 ms; a short look is taken whole.
    double during = medianReading(samples, look.startNs + 400 * kMs, look.endNs);
    if (std::isnan(during)) during = medianReading(samples, look.startNs, look.endNs);
    return std::isnan(before) || std::isnan(during) || during >= before;
}

bool parseRecordingPair(const std::string& recordingPath, std::string_view recordingText,
                        const std::string& labelsPath, std::string_view labelsText, CorpusRecording* out,
                        InputError* error) {
    signal::ParseError pe;
    out->samples.clear();
    out->labels.clear();
    if (!signal::Recording::parse(recordingText, &out->samples, nullptr, &pe)) {
        *error = {recordingPath, pe.line, pe.message};
        return false;
    }
    if (out->samples.empty()) {
        *error = {recordingPath, 0, "no samples"};
        return false;
    }
    out->firstNs = out->lastNs = out->samples.front().timestampNs;
    for (const signal::RecordedSample& s : out->samples) {
        out->firstNs = std::min(out->firstNs, s.timestampNs);
        out->lastNs = std::max(out->lastNs, s.timestampNs);
    }
    if (!signal::LabelFile::parse(labelsText, &out->labels, &pe)) {
        *error = {labelsPath, pe.line, pe.message};
        return false;
    }
    // Partial blinks are written as comments beside their BLINK label.
    out->partialBlinks.clear();
    for (std::string_view line : signal::splitLines(labelsText)) {
        const std::vector<std::string_view> f = signal::splitFields(line);
        Span p;
        if (f.size() == 4 && f[0] == "#" && f[3] == signal::labelName(LabelKind::PartialBlink) &&
            signal::parseInt64(f[1], &p.startNs) && signal::parseInt64(f[2], &p.endNs) && p.endNs >= p.startNs) {
            out->partialBlinks.push_back(p);
        }
    }
    // The parser keeps no line numbers; label i sits on the i-th line that is
    // neither blank nor a comment.
    const std::vector<std::string_view> lines = signal::splitLines(labelsText);
    size_t next = 0;
    for (size_t i = 0; i < lines.size() && next < out->labels.size(); ++i) {
        const std::vector<std::string_view> f = signal::splitFields(lines[i]);
        if (f.empty() || f[0][0] == '#') continue;
        const Label& l = out->labels[next];
        const int lineNo = static_cast<int>(i) + 1;
        if (next > 0 && l.startNs < out->labels[next - 1].startNs) {
            *error = {labelsPath, lineNo, "label starts before the label above it (labels must be sorted by start)"};
            return false;
        }
        if (l.startNs < out->firstNs - kEdgeSlackNs || l.endNs > out->lastNs + kEdgeSlackNs) {
            char range[96];
            snprintf(range, sizeof(range), "%" PRId64 "..%" PRId64, out->firstNs, out->lastNs);
            *error = {labelsPath, lineNo, std::string("label lies outside the recording (samples span ") + range + ")"};
            return false;
        }
        ++next;
    }
    return true;
}

bool readWholeFile(const std::string& path, std::string* text) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) return false;
    text->clear();
    char buf[1 << 16];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), f)) > 0) text->append(buf, n);
    const bool ok = ferror(f) == 0;
    fclose(f);
    return ok;
}

bool loadCorpus(const std::string& dir, std::vector<CorpusRecording>* out, InputError* error) {
    out->clear();
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        *error = {dir, 0, std::string("cannot open the corpus directory: ") + strerror(errno)};
        return false;
    }
    std::vector<std::string> names;
    while (const dirent* e = readdir(d)) {
        const std::string n = e->d_name;
        if (n.size() > 4 && n.compare(n.size() - 4, 4, ".txt") == 0) names.push_back(n.substr(0, n.size() - 4));
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    if (names.empty()) {
        *error = {dir, 0, "the corpus holds no recordings (no X.txt with X.labels)"};
        return false;
    }
    std::string recText, labelsText;
    for (const std::string& name : names) {
        CorpusRecording rec;
        rec.name = name;
        rec.recordingPath = dir + "/" + name + ".txt";
        rec.labelsPath = dir + "/" + name + ".labels";
        if (!readWholeFile(rec.recordingPath, &recText)) {
            *error = {rec.recordingPath, 0, std::string("cannot read: ") + strerror(errno)};
            return false;
        }
        if (!readWholeFile(rec.labelsPath, &labelsText)) {
            *error = {rec.labelsPath, 0, "cannot read the labels of this recording"};
            return false;
        }
        if (!parseRecordingPair(rec.recordingPath, recText, rec.labelsPath, labelsText, &rec, error)) return false;
        out->push_back(std::move(rec));
    }
    return true;
}

}  // namespace gazetools
}  // namespace velto
