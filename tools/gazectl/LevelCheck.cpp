#include "tools/gazectl/LevelCheck.h"

#include <stdio.h>

#include <algorithm>
#include <cmath>

namespace velto {
namespace gazectl {

namespace {

float median(std::vector<float> v) {
    if (v.empty()) return 0;
    const size_t mid = v.size() / 2;
    std::nth_element(v.begin(), v.begin() + static_cast<long>(mid), v.end());
    return v[mid];
}

// Scaled median absolute deviation: the standard deviation for Gaussian
// noise, unmoved by the few blinks among the samples.
float robustSpread(const std::vector<float>& v, float centre) {
    std::vector<float> deviations;
    deviations.reserve(v.size());
    for (float x : v) deviations.push_back(std::fabs(x - centre));
    return 1.4826f * median(deviations);
}

std::string format(const char* fmt, double a, double b = 0, double c = 0) {
    char buf[200];
    snprintf(buf, sizeof(buf), fmt, a, b, c);
    return buf;
}

}  // namespace

size_t LevelCheck::longestHeld(const std::vector<bool>& member, size_t maxGap) {
    size_t best = 0, runStart = 0, gap = 0;
    bool inRun = false;
    for (size_t i = 0; i < member.size(); ++i) {
        if (member[i]) {
            if (!inRun) runStart = i;
            inRun = true;
            gap = 0;
            best = std::max(best, i - runStart + 1);
        } else if (inRun && ++gap > maxGap) {
            inRun = false;
        }
    }
    return best;
}

LevelCheck::Result LevelCheck::analyze(const std::vector<float>& readings, const Rules& rules) {
    Result r;
    const size_t holdSamples = static_cast<size_t>(std::ceil(rules.minHoldSeconds * rules.sampleRateHz));
    if (readings.size() < 2 * holdSamples) {
        r.reason = format("only %.1f s of readings arrived; each level needs %.1f s", readings.size() / rules.sampleRateHz,
                          rules.minHoldSeconds);
        return r;
    }
    // Two-means from the 10th and 90th percentiles, split at the midpoint.
    std::vector<float> sorted(readings);
    std::sort(sorted.begin(), sorted.end());
    float lo = sorted[sorted.size() / 10], hi = sorted[sorted.size() * 9 / 10];
    std::vector<bool> upper(readings.size());
    for (int iteration = 0; iteration < 50; ++iteration) {
        const float split = (lo + hi) / 2;
        double sumLo = 0, sumHi = 0;
        size_t nLo = 0, nHi = 0;
        for (size_t i = 0; i < readings.size(); ++i) {
            upper[i] = readings[i] > split;
            (upper[i] ? sumHi : sumLo) += readings[i];
            ++(upper[i] ? nHi : nLo);
        }
        if (nLo == 0 || nHi == 0) break;
        const float newLo = static_cast<float>(sumLo / nLo), newHi = static_cast<float>(sumHi / nHi);
        if (newLo == lo && newHi == hi) break;
        lo = newLo;
        hi = newHi;
    }
    std::vector<float> lowerValues, upperValues;
    std::vector<bool> lowerMember(readings.size());
    for (size_t i = 0; i < readings.size(); ++i) {
        (upper[i] ? upperValues : lowerValues).push_back(readings[i]);
        lowerMember[i] = !upper[i];
    }
    r.lower = median(lowerValues);
    r.upper = median(upperValues);
    r.noise = std::max(robustSpread(lowerValues, r.lower), robustSpread(upperValues, r.upper));
    // A blink (up to about 400 ms) inside a held level is forgiven.
    const size_t maxGap = static_cast<size_t>(0.45 * rules.sampleRateHz);
    r.lowerHeldSeconds = longestHeld(lowerMember, maxGap) / rules.sampleRateHz;
    r.upperHeldSeconds = longestHeld(upper, maxGap) / rules.sampleRateHz;

    const float separation = r.upper - r.lower;
    if (lowerValues.empty() || upperValues.empty() ||
        separation < std::max(rules.minSeparation, rules.minSeparationInNoise * r.noise)) {
        r.reason = format("the readings show one level only (about %.0f, noise %.1f)", median(readings), r.noise);
    } else if (r.lowerHeldSeconds < rules.minHoldSeconds) {
        r.reason = format("the lower level (%.0f) was held only %.1f s; hold it at least %.1f s", r.lower,
                          r.lowerHeldSeconds, rules.minHoldSeconds);
    } else if (r.upperHeldSeconds < rules.minHoldSeconds) {
        r.reason = format("the upper level (%.0f) was held only %.1f s; hold it at least %.1f s", r.upper,
                          r.upperHeldSeconds, rules.minHoldSeconds);
    } else if (rules.lowerLevelBelow > 0 && r.lower >= rules.lowerLevelBelow &&
               r.upper < rules.orUpperTimesLower * r.lower) {
        r.reason = format("both levels (%.0f and %.0f) look like the device on the head; take it off during the "
                          "interval",
                          r.lower, r.upper);
    } else {
        r.ok = true;
    }
    return r;
}

}  // namespace gazectl
}  // namespace velto
