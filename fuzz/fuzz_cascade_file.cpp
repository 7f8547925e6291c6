// The detector file reader: whatever loads must hold only finite numbers,
// classify without fault and write back to a file that loads again, to an
// equal cascade.
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "classifier/CascadeClassifier.h"
#include "classifier/SeqSample.h"
#include "fuzz/fuzz_sandbox.h"

namespace {

bool hasNonFinite(const velto::CascadeClassifier& c) {
    if (!isfinite(c.featureFalloffThreshold())) return true;
    for (int i = 0; i < c.numLayers(); ++i) {
        const velto::EnsembleClassifier* layer = c.layer(i);
        if (!isfinite(layer->threshold())) return true;
        for (int j = 0; j < layer->numWeaks(); ++j) {
            const velto::WeakClassifier* w = layer->weak(j);
            if (!isfinite(w->threshold()) || !isfinite(w->alpha())) return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    velto::fuzz::sandboxRoot();
    FILE* in = fmemopen(const_cast<uint8_t*>(data), size, "r");
    if (in == nullptr) return 0;
    velto::CascadeClassifier cascade;
    const bool loaded = cascade.loadFromFile(in);
    fclose(in);

    // A window shaped by the input, whatever the cascade's own length.
    velto::SeqSample sample(48);
    for (size_t i = 0; i < 60; ++i) sample.addNewValue(size > 0 ? static_cast<float>(data[i % size]) * 7.0f : 0.0f);
    cascade.setPosSampleMagnitudeRange(velto::Interval<float>(0.0f, 1e30f));
    (void)cascade.classify(sample);
    char text[2048];
    cascade.getDebugString(text, sizeof(text));
    if (!loaded) return 0;
    if (hasNonFinite(cascade)) abort();

    char* buffer = nullptr;
    size_t length = 0;
    FILE* out = open_memstream(&buffer, &length);
    if (out == nullptr) return 0;
    const bool written = cascade.writeToFile(out);
    fclose(out);
    if (!written) abort();
    FILE* back = fmemopen(buffer, length, "r");
    velto::CascadeClassifier reloaded;
    const bool reloadedOk = back != nullptr && reloaded.loadFromFile(back);
    if (back != nullptr) fclose(back);
    free(buffer);
    reloaded.setPosSampleMagnitudeRange(velto::Interval<float>(0.0f, 1e30f));
    if (!reloadedOk || !reloaded.equals(cascade)) abort();
    return 0;
}
