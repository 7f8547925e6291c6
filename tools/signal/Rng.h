#ifndef VELTO_SIGNAL_RNG_H
#define VELTO_SIGNAL_RNG_H

#include <cstdint>

namespace velto {
namespace signal {

// A small deterministic random source (xoshiro256** seeded through
// splitmix64) with its own distributions. The standard library's
// distributions differ between implementations; these do not, so a seed gives
// the same corpus on every machine.
class Rng {
public:
    explicit Rng(uint64_t seed);

    // A seed for an independent stream, derived from a parent seed and a tag;
    // used so that adding events does not shift the noise of a recording.
    static uint64_t derive(uint64_t seed, uint64_t tag);

    uint64_t next();
    // Uniform in [0, 1).
    double uniform();
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    // Uniform integer in [lo, hi].
    int64_t uniformInt(int64_t lo, int64_t hi);
    bool chance(double p) { return uniform() < p; }
    // Standard normal (Box-Muller, one value per call).
    double normal();
    double normal(double mean, double sd) { return mean + sd * normal(); }
    // Normal clamped to [lo, hi].
    double clampedNormal(double mean, double sd, double lo, double hi);
    // Exponential with the given mean.
    double exponential(double mean);
    // log-uniform in [lo, hi] (both positive): spreads levels evenly by ratio.
    double logUniform(double lo, double hi);

private:
    uint64_t mState[4];
};

}  // namespace signal
}  // namespace velto

#endif  // VELTO_SIGNAL_RNG_H
