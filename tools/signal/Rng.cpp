#include "tools/signal/Rng.h"

#include <cmath>

namespace velto {
namespace signal {

namespace {

uint64_t splitmix64(uint64_t* x) {
    uint64_t z = (*x += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

uint64_t rotl(uint64_t x, int k) {
    return (x << k) | (x >> (64 - k));
}

const double kTwoPi = 6.283185307179586;

}  // namespace

Rng::Rng(uint64_t seed) {
    uint64_t x = seed;
    for (uint64_t& s : mState) s = splitmix64(&x);
}

uint64_t Rng::derive(uint64_t seed, uint64_t tag) {
    uint64_t x = seed ^ (tag * 0xD1B54A32D192ED03ULL);
    splitmix64(&x);
    return splitmix64(&x);
}

uint64_t Rng::next() {
    const uint64_t result = rotl(mState[1] * 5, 7) * 9;
    const uint64_t t = mState[1] << 17;
    mState[2] ^= mState[0];
    mState[3] ^= mState[1];
    mState[1] ^= mState[2];
    mState[0] ^= mState[3];
    mState[2] ^= t;
    mState[3] = rotl(mState[3], 45);
    return result;
}

double Rng::uniform() {
    // The top 53 bits make an exactly representable double in [0, 1).
    return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0);
}

int64_t Rng::uniformInt(int64_t lo, int64_t hi) {
    if (hi <= lo) return lo;
    const uint64_t span = static_cast<uint64_t>(hi - lo) + 1;
    return lo + static_cast<int64_t>(next() % span);
}

double Rng::normal() {
    // 1 - uniform() lies in (0, 1], so the logarithm is finite.
    const double u1 = 1.0 - uniform();
    const double u2 = uniform();
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(kTwoPi * u2);
}

double Rng::clampedNormal(double mean, double sd, double lo, double hi) {
    const double v = normal(mean, sd);
    return v < lo ? lo : (v > hi ? hi : v);
}

double Rng::exponential(double mean) {
    return -mean * std::log(1.0 - uniform());
}

double Rng::logUniform(double lo, double hi) {
    return std::exp(uniform(std::log(lo), std::log(hi)));
}

}  // namespace signal
}  // namespace velto
