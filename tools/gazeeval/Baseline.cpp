#include "tools/gazeeval/Baseline.h"

#include <algorithm>
#include <cmath>

namespace velto {
namespace gazetools {

namespace {

constexpr int64_t kMs = 1000000;

float median(std::vector<float> v) {
    if (v.empty()) return 0.0f;
    const size_t mid = v.size() / 2;
    std::nth_element(v.begin(), v.begin() + static_cast<long>(mid), v.end());
    return v[mid];
}

}  // namespace

ThresholdBaseline::ThresholdBaseline(const CorpusRecording& rec) : mRec(rec) {
    const std::vector<signal::RecordedSample>& s = rec.samples;
    const size_t n = s.size();

    std::vector<float> diffs;
    diffs.reserve(n);
    for (size_t i = 1; i < n; ++i) diffs.push_back(std::fabs(static_cast<float>(s[i].reading) - s[i - 1].reading));
    // For white noise of deviation sd, |x_i - x_(i-1)| has median 0.954 sd.
    mNoise = std::max(median(diffs) / 0.954f, 0.5f);

    // The level: a running median over the readings from 3 s to 1 s back,
    // kept as a sorted window.
    mLevel.assign(n, 0.0f);
    std::vector<float> window;
    size_t lo = 0, hi = 0;  // window = samples [lo, hi)
    for (size_t i = 0; i < n; ++i) {
        const int64_t t = s[i].timestampNs;
        while (hi < i && s[hi].timestampNs <= t - 1000 * kMs) {
            const float v = s[hi++].reading;
            window.insert(std::upper_bound(window.begin(), window.end(), v), v);
        }
        while (lo < hi && s[lo].timestampNs <= t - 3000 * kMs) {
            const float v = s[lo++].reading;
            window.erase(std::lower_bound(window.begin(), window.end(), v));
        }
        mLevel[i] = window.empty() ? static_cast<float>(s[i].reading) : window[window.size() / 2];
    }

    const float threshold = std::max(5.0f * mNoise, 10.0f);
    bool open = false;
    Closure c{};
    for (size_t i = 0; i < n; ++i) {
        const float d = static_cast<float>(s[i].reading) - mLevel[i];
        if (d > threshold) {
            if (!open) c = {s[i].timestampNs, s[i].timestampNs, d};
            open = true;
            c.peak = std::max(c.peak, d);
        } else if (open) {
            c.endNs = s[i].timestampNs;
            mClosures.push_back(c);
            open = false;
        }
    }
}

std::vector<int64_t> ThresholdBaseline::doubleBlinks() const {
    std::vector<int64_t> out;
    for (size_t i = 1; i < mClosures.size(); ++i) {
        const Closure& a = mClosures[i - 1];
        const Closure& b = mClosures[i];
        if (a.endNs - a.startNs > 500 * kMs || b.endNs - b.startNs > 500 * kMs) continue;
        if (b.startNs - a.startNs > 700 * kMs) continue;
        if (!out.empty() && b.endNs - out.back() < 500 * kMs) continue;
        out.push_back(b.endNs);
        ++i;  // the second closure does not start another pair
    }
    return out;
}

std::vector<int64_t> ThresholdBaseline::winks(const Span& calibration) const {
    std::vector<int64_t> out;
    if (calibration.endNs <= calibration.startNs) return out;
    std::vector<float> peaks;
    for (const Closure& c : mClosures) {
        if (calibration.contains(c.startNs) && c.endNs - c.startNs >= 200 * kMs) peaks.push_back(c.peak);
    }
    if (peaks.empty()) return out;
    std::sort(peaks.rbegin(), peaks.rend());
    peaks.resize(std::min<size_t>(peaks.size(), 3));
    float mean = 0.0f;
    for (float p : peaks) mean += p / static_cast<float>(peaks.size());
    for (const Closure& c : mClosures) {
        if (c.startNs <= calibration.endNs) continue;
        const int64_t d = c.endNs - c.startNs;
        if (d < 250 * kMs || d > 900 * kMs || c.peak < 0.7f * mean || c.peak > 1.5f * mean) continue;
        if (!out.empty() && c.endNs - out.back() < 1600 * kMs) continue;
        out.push_back(c.endNs);
    }
    return out;
}

std::vector<int64_t> ThresholdBaseline::looksAtScreen(int64_t fromNs, float threshold) const {
    std::vector<int64_t> out;
    const std::vector<signal::RecordedSample>& s = mRec.samples;
    float sum = 0.0f;
    int above = 0;
    bool armed = true;
    for (size_t i = 0; i < s.size(); ++i) {
        sum += s[i].reading;
        if (i >= 8) sum -= s[i - 8].reading;
        if (i < 7 || s[i].timestampNs < fromNs) continue;
        const float d = sum / 8.0f - mLevel[i];
        above = d > threshold ? above + 1 : 0;
        if (!armed && d < 0.5f * threshold) armed = true;
        if (armed && above >= 10) {
            out.push_back(s[i].timestampNs);
            armed = false;
        }
    }
    return out;
}

}  // namespace gazetools
}  // namespace velto
