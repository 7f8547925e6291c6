// gazetrain: trains boosted-cascade detector files from labelled corpora and
// writes the list files that group them.
//
//   gazetrain cascade --corpus DIR... --target double-blink|wink|look-up|look-down --window N --out FILE [options]
//   gazetrain trim --in FILE --out FILE --layers N
//   gazetrain set --out LIST FILE...
//   gazetrain wink-list --out LIST --corpus DIR... --detector FILE:MIN_MS:MAX_MS...
//
// Training is deterministic for a seed and a thread count does not change it.
// Every input and output path is checked before any work starts; outputs are
// written under a temporary name and renamed. Exit status 0, 1 when the work
// fails, 2 for bad usage.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

#include "tools/cli/ToolCli.h"
#include "tools/gazeeval/Replay.h"
#include "tools/gazeeval/Scoring.h"
#include "tools/gazetrain/CascadeTrainer.h"
#include "tools/gazetrain/ListFiles.h"

using namespace velto;
using namespace velto::gazetools;

namespace {

int fail(const std::string& message) {
    fprintf(stderr, "gazetrain: %s\n", message.c_str());
    return 1;
}

bool loadCorpora(const std::vector<std::string>& dirs, std::vector<CorpusRecording>* out, std::string* error) {
    for (const std::string& dir : dirs) {
        std::vector<CorpusRecording> part;
        InputError e;
        if (!loadCorpus(dir, &part, &e)) {
            *error = e.text();
            return false;
        }
        for (CorpusRecording& r : part) out->push_back(std::move(r));
    }
    return true;
}

int usage(const std::string& reason) { return tools::usageError("gazetrain", reason); }

bool isDirectory(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Splits FILE:MIN_MS:MAX_MS; false when it is not of that form.
bool parseDetectorArgument(const std::string& arg, std::string* file, double* lo, double* hi) {
    const size_t b = arg.rfind(':');
    const size_t a = b == std::string::npos || b == 0 ? std::string::npos : arg.rfind(':', b - 1);
    if (a == std::string::npos || a == 0) return false;
    *file = arg.substr(0, a);
    char* end = nullptr;
    const std::string loText = arg.substr(a + 1, b - a - 1), hiText = arg.substr(b + 1);
    *lo = strtod(loText.c_str(), &end);
    if (loText.empty() || *end != 0) return false;
    *hi = strtod(hiText.c_str(), &end);
    if (hiText.empty() || *end != 0) return false;
    return *lo >= 0 && *hi > *lo;
}

// Writes through a temporary file, so that a failed or interrupted run never
// leaves a truncated detector file under the real name.
class AtomicOutput {
public:
    explicit AtomicOutput(const std::string& path) : mPath(path), mTemporary(path + ".partial") {
        mFile = fopen(mTemporary.c_str(), "w");
    }
    ~AtomicOutput() {
        if (mFile != nullptr) fclose(mFile);
        if (!mCommitted) remove(mTemporary.c_str());
    }
    FILE* file() const { return mFile; }
    bool commit() {
        const bool ok = mFile != nullptr && fclose(mFile) == 0 && rename(mTemporary.c_str(), mPath.c_str()) == 0;
        mFile = nullptr;
        mCommitted = ok;
        return ok;
    }

private:
    std::string mPath, mTemporary;
    FILE* mFile;
    bool mCommitted = false;
};

double quantile(const std::vector<float>& v, double q) {
    return interpolatedPercentile(std::vector<double>(v.begin(), v.end()), q);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Trains boosted-cascade eye-gesture detectors from labelled recordings."};
    app.require_subcommand(1);
    const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));

    // cascade
    CLI::App* cascadeCmd = app.add_subcommand("cascade", "Train one cascade detector file");
    std::vector<std::string> corpora, negativeCorpora;
    std::string out, targetName;
    TargetSetup setup;
    CascadeParams params;
    params.threads = std::min(cores, 2);
    cascadeCmd->add_option("--corpus", corpora, "Corpus directories to train on")->required();
    cascadeCmd->add_option("--negatives-corpus", negativeCorpora,
                           "Corpus directories that hold no gesture: every window is a negative");
    cascadeCmd->add_option("--negatives-share", params.negativesOnlyShare,
                           "Share of each layer's negatives drawn from the --negatives-corpus recordings "
                           "(default: drawn with the rest)")
            ->check(CLI::Range(0.0, 1.0));
    cascadeCmd->add_option("--target", targetName, "double-blink, wink, look-up or look-down")
            ->required()
            ->check(CLI::IsMember({"double-blink", "wink", "look-up", "look-down"}));
    cascadeCmd->add_option("--window", setup.windowLength, "Window length in samples at 32 Hz")
            ->required()
            ->check(CLI::Range(4, 256));
    cascadeCmd->add_option("--out", out, "Detector file to write")->required();
    cascadeCmd->add_option("--min-ms", setup.minDurationMs, "Shortest labelled gesture to learn");
    cascadeCmd->add_option("--max-ms", setup.maxDurationMs, "Longest labelled gesture to learn");
    cascadeCmd->add_option("--band-from-ms", setup.bandFromMs, "Positive windows end from this long after the event")
            ->capture_default_str();
    cascadeCmd->add_option("--band-to-ms", setup.bandToMs, "... up to this long after it")->capture_default_str();
    cascadeCmd->add_option("--pre-margin-ms", setup.preMarginMs, "Positive windows start this long before the event")
            ->capture_default_str();
    cascadeCmd->add_option("--ignore-before-ms", setup.ignoreBeforeMs, "Unused windows before an event's end")
            ->capture_default_str();
    cascadeCmd->add_option("--ignore-after-ms", setup.ignoreAfterMs, "Unused windows after an event's end")
            ->capture_default_str();
    cascadeCmd->add_option("--layers", params.maxLayers, "Most layers")->capture_default_str();
    cascadeCmd->add_option("--layer-detection", params.layer.minDetection, "Positives each layer keeps")
            ->capture_default_str();
    cascadeCmd->add_option("--layer-fp", params.layer.maxFalsePositive, "Negatives each layer may pass")
            ->capture_default_str();
    cascadeCmd->add_option("--max-weaks", params.layer.maxWeaks, "Most weak classifiers per layer")
            ->capture_default_str();
    cascadeCmd->add_option("--positives", params.maxPositives, "Most positive windows")->capture_default_str();
    cascadeCmd->add_option("--negatives", params.negativesPerLayer, "Negative windows per layer")
            ->capture_default_str();
    cascadeCmd->add_option("--min-negatives", params.minNegatives, "Stop when fewer negatives are left")
            ->capture_default_str();
    cascadeCmd->add_flag("--returns-as-negatives", setup.returnsAsNegatives,
                         "Looks: the return from a look the other way is a negative, not left out (long windows)");
    cascadeCmd->add_flag("--skip-look-calibration", setup.skipLookCalibration,
                         "Looks: no example from windows that reach into a look-at-screen calibration");
    cascadeCmd->add_option("--feature-stride", params.features.stride,
                           "Block sizes, intervals and ends of features on a grid of this many samples, "
                           "except near the newest end (for long windows)")
            ->check(CLI::Range(1, 64))
            ->capture_default_str();
    cascadeCmd->add_option("--fine-span", params.features.fineSpan,
                           "Newest samples whose features keep full resolution with --feature-stride")
            ->check(CLI::Range(0, 256))
            ->capture_default_str();
    cascadeCmd->add_option("--falloff", params.scaling.falloff, "Feature falloff magnitude")->capture_default_str();
    cascadeCmd->add_option("--seed", params.seed, "Seed of the example draws")->capture_default_str();
    cascadeCmd->add_option("--threads", params.threads, "Threads")->check(CLI::Range(1, 64))->capture_default_str();

    // set
    CLI::App* setCmd = app.add_subcommand("set", "Write a detector-set list file");
    std::string setOut;
    std::vector<std::string> setFiles;
    setCmd->add_option("--out", setOut, "List file to write")->required();
    setCmd->add_option("files", setFiles, "Detector files, in the list file's directory")->required();

    // wink-list
    CLI::App* winkCmd = app.add_subcommand("wink-list", "Write the wink detector list with measured duration ranges");
    std::string winkOut;
    std::vector<std::string> winkCorpora, winkDetectors;
    double lowQuantile = 0.05, highQuantile = 0.95;
    winkCmd->add_option("--out", winkOut, "List file to write")->required();
    winkCmd->add_option("--corpus", winkCorpora, "Corpus directories to measure on")->required();
    winkCmd->add_option("--detector", winkDetectors, "FILE:MIN_MS:MAX_MS, the labelled wink durations it learned")
            ->required();
    winkCmd->add_option("--low-quantile", lowQuantile, "Listed range starts at this quantile")->capture_default_str();
    winkCmd->add_option("--high-quantile", highQuantile, "... and ends at this one")->capture_default_str();

    // trim
    CLI::App* trimCmd = app.add_subcommand("trim", "Keep the first layers of a detector file");
    std::string trimIn, trimOut;
    int trimLayers = 1;
    trimCmd->add_option("--in", trimIn, "Detector file to read")->required();
    trimCmd->add_option("--out", trimOut, "Detector file to write")->required();
    trimCmd->add_option("--layers", trimLayers, "Layers to keep")->required()->check(CLI::PositiveNumber);

    tools::addVersionFlag(app, "gazetrain");
    const int parsed = tools::parseCommandLine(app, "gazetrain", argc, argv);
    if (parsed >= 0) return parsed;

    // Minutes of training must not end in "cannot write".
    std::string reason;
    const std::string output = *cascadeCmd ? out : *trimCmd ? trimOut : *setCmd ? setOut : winkOut;
    if (!tools::isWritableFilePath(output, &reason)) return usage("--out: " + reason);
    for (const std::string& dir : *cascadeCmd ? corpora : winkCorpora) {
        if (!*cascadeCmd && !*winkCmd) break;
        if (!isDirectory(dir)) return usage("--corpus: " + dir + " is not a directory");
    }
    for (const std::string& dir : negativeCorpora) {
        if (!isDirectory(dir)) return usage("--negatives-corpus: " + dir + " is not a directory");
    }
    if (*cascadeCmd && params.negativesOnlyShare >= 0 && negativeCorpora.empty())
        return usage("--negatives-share needs --negatives-corpus");
    if (*cascadeCmd && setup.minDurationMs > setup.maxDurationMs) return usage("--min-ms is above --max-ms");
    if (*cascadeCmd && setup.bandFromMs > setup.bandToMs) return usage("--band-from-ms is above --band-to-ms");
    if (*trimCmd && access(trimIn.c_str(), R_OK) != 0) return usage("--in: cannot read " + trimIn);
    if (*winkCmd) {
        if (!(lowQuantile >= 0 && lowQuantile < highQuantile && highQuantile <= 1))
            return usage("the quantiles must satisfy 0 <= --low-quantile < --high-quantile <= 1");
        for (const std::string& d : winkDetectors) {
            std::string file;
            double lo, hi;
            if (!parseDetectorArgument(d, &file, &lo, &hi)) return usage("--detector wants FILE:MIN_MS:MAX_MS, not " + d);
            if (access(file.c_str(), R_OK) != 0) return usage("--detector: cannot read " + file);
        }
    }

    routeLibraryLog(false);
    std::string error;

    if (*cascadeCmd) {
        setup.target = targetName == "double-blink" ? Target::DoubleBlink
                      : targetName == "wink"       ? Target::Wink
                      : targetName == "look-up"    ? Target::LookUp
                                                   : Target::LookDown;
        const auto start = std::chrono::steady_clock::now();
        std::vector<CorpusRecording> corpus, negativesOnly;
        if (!loadCorpora(corpora, &corpus, &error)) return fail(error);
        if (!loadCorpora(negativeCorpora, &negativesOnly, &error)) return fail(error);
        std::vector<TrainingStream> streams;
        int events = 0;
        for (const CorpusRecording& rec : corpus) {
            streams.push_back(prepareStream(rec, setup));
            events += streams.back().events;
        }
        for (const CorpusRecording& rec : negativesOnly) streams.push_back(prepareNegativeStream(rec, setup));
        corpus.clear();
        fprintf(stderr, "gazetrain: %zu recordings (%zu of them negatives only), %d events to learn\n",
                streams.size(), negativesOnly.size(), events);
        negativesOnly.clear();
        CascadeTrainer trainer(streams, setup.windowLength, params);
        trainer.train([](const std::string& line) { fprintf(stderr, "gazetrain: %s\n", line.c_str()); });
        if (trainer.cascade().numLayers() == 0) return fail("no layer was trained");
        AtomicOutput output(out);
        FILE* f = output.file();
        if (f == nullptr) return fail(out + ": cannot write");
        std::string durations;
        if (setup.target == Target::Wink) {
            char buf[64];
            snprintf(buf, sizeof(buf), ", winks of %.0f..%.0f ms", setup.minDurationMs, setup.maxDurationMs);
            durations = buf;
        }
        if (params.features.stride > 1) {
            char buf[96];
            snprintf(buf, sizeof(buf), ", features on a grid of %d samples but in the newest %d",
                     params.features.stride, params.features.fineSpan);
            durations += buf;
        }
        fprintf(f, "# %s detector trained by gazetrain: window %d%s, positives from %.0f to %.0f ms after the event, "
                   "%d layers, seed %llu\n",
                targetName.c_str(), setup.windowLength, durations.c_str(), setup.bandFromMs, setup.bandToMs,
                trainer.cascade().numLayers(), static_cast<unsigned long long>(params.seed));
        if (!trainer.cascade().writeToFile(f) || !output.commit()) return fail(out + ": cannot write");
        fprintf(stderr, "gazetrain: wrote %s in %.0f s\n", out.c_str(),
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        return 0;
    }
    if (*trimCmd) {
        CascadeClassifier cascade;
        if (!cascade.loadFromFile(trimIn.c_str())) return fail(trimIn + ": the library cannot load this detector");
        if (trimLayers < cascade.numLayers()) cascade.removeLastKLayers(cascade.numLayers() - trimLayers);
        AtomicOutput output(trimOut);
        FILE* f = output.file();
        if (f == nullptr) return fail(trimOut + ": cannot write");
        fprintf(f, "# the first %d layers of %s\n", cascade.numLayers(), trimIn.c_str());
        return cascade.writeToFile(f) && output.commit() ? 0 : fail(trimOut + ": cannot write");
    }
    if (*setCmd) {
        if (!writeDetectorSetList(setOut, setFiles, &error)) return fail(error);
        return 0;
    }
    std::vector<CorpusRecording> corpus;
    if (!loadCorpora(winkCorpora, &corpus, &error)) return fail(error);
    std::vector<WinkListEntry> entries;
    for (const std::string& d : winkDetectors) {
        std::string file;
        double lo = 0, hi = 0;
        parseDetectorArgument(d, &file, &lo, &hi);  // checked above
        std::vector<float> durations;
        int labels = 0;
        if (!measureWinkDurations(corpus, file, lo, hi, &durations, &labels, &error)) return fail(error);
        if (durations.size() < 10) return fail(file + ": too few detections to measure (" +
                                               std::to_string(durations.size()) + ")");
        // The detector suits wearers whose winks measure between the two
        // quantiles. Calibration widens a wearer's measured durations by a
        // margin of min(50 + d / 4, 200) ms each way and takes a detector
        // whose listed range reaches within 50 ms of that, so the list gives
        // the range such wearers end up with.
        const double shortest = quantile(durations, lowQuantile), longest = quantile(durations, highQuantile);
        auto margin = [](double d) { return std::min(50.0 + 0.25 * d, 200.0); };
        WinkListEntry e;
        e.detectorFile = file;
        e.durationRangeMs.min = static_cast<float>(std::floor(std::max(280.0, shortest - margin(shortest) + 50.0)));
        e.durationRangeMs.max = static_cast<float>(std::ceil(std::min(800.0, longest + margin(longest) - 50.0)));
        fprintf(stderr,
                "gazetrain: %s detects %zu of %d winks of %.0f..%.0f ms, measuring %.0f..%.0f ms (median %.0f); "
                "listed for %.0f..%.0f ms\n",
                file.c_str(), durations.size(), labels, lo, hi, shortest, longest, quantile(durations, 0.5),
                e.durationRangeMs.min, e.durationRangeMs.max);
        entries.push_back(e);
    }
    if (!writeWinkList(winkOut, entries, &error)) return fail(error);
    return 0;
}
