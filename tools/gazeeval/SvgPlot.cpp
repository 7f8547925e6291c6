#include "tools/gazeeval/SvgPlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace velto {
namespace gazetools {

namespace {

using signal::Label;
using signal::LabelKind;

constexpr double kLeft = 60, kRight = 20, kTop = 30, kSignalHeight = 360, kRowHeight = 18;

std::string escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string fmt(const char* format, double a, double b = 0, double c = 0, double d = 0) {
    char buf[160];
    snprintf(buf, sizeof(buf), format, a, b, c, d);
    return buf;
}

const char* colorOf(LabelKind kind) {
    switch (kind) {
        case LabelKind::Wink: return "#d62728";
        case LabelKind::DoubleBlink: return "#1f77b4";
        case LabelKind::Blink: return "#9ecae1";
        case LabelKind::LookAtScreen: return "#2ca02c";
        case LabelKind::LookAwayFromScreen: return "#98df8a";
        case LabelKind::Don:
        case LabelKind::Doff: return "#8c564b";
        default: return "#c7c7c7";
    }
}

// A step of 1, 2 or 5 times a power of ten giving about eight ticks.
double niceStep(double range) {
    const double raw = range / 8;
    const double p = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0}) {
        if (m * p >= raw) return m * p;
    }
    return 10 * p;
}

}  // namespace

std::string renderSvg(const CorpusRecording& rec, int64_t fromNs, int64_t toNs, const std::vector<PlotMarks>& marks) {
    if (toNs <= fromNs) toNs = fromNs + 1;
    const double seconds = static_cast<double>(toNs - fromNs) * 1e-9;
    const double plotWidth = std::clamp(seconds * 20.0, 1200.0, 8000.0);
    std::map<LabelKind, int> rows;
    for (const Label& l : rec.labels) {
        if (l.endNs >= fromNs && l.startNs <= toNs) rows.emplace(l.kind, 0);
    }
    int row = 0;
    for (auto& r : rows) r.second = row++;
    const double bandsTop = kTop + kSignalHeight + 30;
    const double marksTop = bandsTop + rows.size() * kRowHeight + 6;
    const double height = marksTop + marks.size() * kRowHeight + 10;
    const double width = kLeft + plotWidth + kRight + 160;
    auto xOf = [&](int64_t t) { return kLeft + static_cast<double>(t - fromNs) * 1e-9 / seconds * plotWidth; };

    float lo = 16383, hi = 0;
    for (const auto& s : rec.samples) {
        if (s.timestampNs < fromNs || s.timestampNs > toNs) continue;
        lo = std::min(lo, static_cast<float>(s.reading));
        hi = std::max(hi, static_cast<float>(s.reading));
    }
    if (hi < lo) lo = 0, hi = 1;
    const double pad = std::max(1.0, (hi - lo) * 0.05);
    const double yLo = lo - pad, yHi = hi + pad;
    auto yOf = [&](double v) { return kTop + (yHi - v) / (yHi - yLo) * kSignalHeight; };

    std::string svg = fmt("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" ", width, height) +
                      "font-family=\"sans-serif\" font-size=\"11\">\n<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    svg += "<text x=\"" + fmt("%.0f", kLeft) + "\" y=\"18\" font-size=\"13\">" + escape(rec.name) +
           fmt(" (%.1f s to %.1f s)", (fromNs - rec.firstNs) * 1e-9, (toNs - rec.firstNs) * 1e-9) + "</text>\n";

    // Axes and grid.
    svg += fmt("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" stroke=\"#888\"/>\n", kLeft, kTop,
               plotWidth, kSignalHeight);
    const double ys = niceStep(yHi - yLo);
    for (double v = std::ceil(yLo / ys) * ys; v <= yHi; v += ys) {
        svg += fmt("<line x1=\"%.1f\" x2=\"%.1f\" y1=\"%.1f\" y2=\"%.1f\" stroke=\"#eee\"/>", kLeft, kLeft + plotWidth,
                   yOf(v), yOf(v));
        svg += fmt("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\">%.0f</text>\n", kLeft - 4, yOf(v) + 4, v);
    }
    const double yMid = kTop + kSignalHeight / 2;
    svg += fmt("<text x=\"14\" y=\"%.1f\" text-anchor=\"middle\" transform=\"rotate(-90 14 %.1f)\">"
               "proximity reading</text>\n",
               yMid, yMid);
    const double xs = niceStep(seconds);
    const double offset = (fromNs - rec.firstNs) * 1e-9;
    for (double t = std::ceil(offset / xs) * xs; t <= offset + seconds; t += xs) {
        const double x = kLeft + (t - offset) / seconds * plotWidth;
        svg += fmt("<line x1=\"%.1f\" x2=\"%.1f\" y1=\"%.1f\" y2=\"%.1f\" stroke=\"#eee\"/>", x, x, kTop,
                   kTop + kSignalHeight);
        svg += fmt("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%g s</text>\n", x, kTop + kSignalHeight + 14, t);
    }

    // The readings: one point per sample, or the range of each pixel column
    // where there are more samples than columns.
    std::string path;
    int column = -1;
    float cLo = 0, cHi = 0;
    auto point = [&](double x, double y) {
        char buf[48];
        snprintf(buf, sizeof(buf), "%c%.2f %.1f ", path.empty() ? 'M' : 'L', x, y);
        path += buf;
    };
    auto flush = [&]() {
        if (column < 0) return;
        point(kLeft + column, yOf(cLo));
        point(kLeft + column, yOf(cHi));
    };
    const bool dense = seconds * 32 > plotWidth;
    for (const auto& s : rec.samples) {
        if (s.timestampNs < fromNs || s.timestampNs > toNs) continue;
        const float v = s.reading;
        if (!dense) {
            point(xOf(s.timestampNs), yOf(v));
            continue;
        }
        const int c = static_cast<int>(xOf(s.timestampNs) - kLeft);
        if (c != column) {
            flush();
            column = c;
            cLo = cHi = v;
        }
        cLo = std::min(cLo, v);
        cHi = std::max(cHi, v);
    }
    if (dense) flush();
    svg += "<path fill=\"none\" stroke=\"#333\" stroke-width=\"1\" d=\"" + path + "\"/>\n";

    // Label bands.
    for (const auto& r : rows) {
        const double y = bandsTop + r.second * kRowHeight;
        svg += fmt("<text x=\"%.1f\" y=\"%.1f\">", kLeft + plotWidth + 6, y + 12) +
               escape(signal::labelName(r.first)) + "</text>\n";
    }
    for (const Label& l : rec.labels) {
        if (l.endNs < fromNs || l.startNs > toNs) continue;
        const double y = bandsTop + rows[l.kind] * kRowHeight;
        const double x0 = xOf(std::max(l.startNs, fromNs)), x1 = xOf(std::min(l.endNs, toNs));
        svg += fmt("<rect x=\"%.2f\" y=\"%.1f\" width=\"%.2f\" height=\"%.1f\" ", x0, y + 2, std::max(x1 - x0, 1.0),
                   kRowHeight - 4) +
               "fill=\"" + colorOf(l.kind) + "\"/>\n";
    }

    // Detection marks, also as lines across the signal.
    for (size_t m = 0; m < marks.size(); ++m) {
        const double y = marksTop + m * kRowHeight;
        svg += fmt("<text x=\"%.1f\" y=\"%.1f\">", kLeft + plotWidth + 6, y + 12) + escape(marks[m].name) + "</text>\n";
        for (int64_t t : marks[m].timesNs) {
            if (t < fromNs || t > toNs) continue;
            const double x = xOf(t);
            svg += fmt("<line x1=\"%.2f\" x2=\"%.2f\" y1=\"%.1f\" y2=\"%.1f\" ", x, x, y + 2, y + kRowHeight - 2) +
                   "stroke=\"" + marks[m].color + "\" stroke-width=\"2\"/>";
            svg += fmt("<line x1=\"%.2f\" x2=\"%.2f\" y1=\"%.1f\" y2=\"%.1f\" ", x, x, kTop, kTop + kSignalHeight) +
                   "stroke=\"" + marks[m].color + "\" stroke-opacity=\"0.35\"/>\n";
        }
    }
    svg += "</svg>\n";
    return svg;
}

}  // namespace gazetools
}  // namespace velto
