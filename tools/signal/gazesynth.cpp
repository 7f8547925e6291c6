// gazesynth: writes a labelled corpus of synthetic recordings.
//
//   gazesynth --seed N --wearers K --minutes M --out DIR [--session-minutes S]
//
// DIR must be new or empty, so that two corpora never mix. Each file is
// written whole under a temporary name and then renamed. Exit status 0, 1
// when a file cannot be written, 2 for bad usage.
//
// Each wearer gets M minutes of recordings, cut into sessions of at most S
// minutes; each session starts with the calibrations. The same seed gives the
// same bytes on every run and machine.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/cli/ToolCli.h"
#include "tools/signal/RecordingSession.h"
#include "tools/signal/Rng.h"
#include "tools/signal/WearerProfile.h"

namespace {

using velto::signal::RecordingSession;
using velto::signal::Rng;
using velto::signal::WearerProfile;

// Whole or not at all: an interrupted run leaves no truncated recording.
bool writeFile(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".partial";
    FILE* f = fopen(temporary.c_str(), "w");
    if (f == nullptr) {
        fprintf(stderr, "gazesynth: cannot write %s: %s\n", temporary.c_str(), strerror(errno));
        return false;
    }
    const bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    if (fclose(f) != 0 || !ok || rename(temporary.c_str(), path.c_str()) != 0) {
        fprintf(stderr, "gazesynth: error writing %s: %s\n", path.c_str(), strerror(errno));
        remove(temporary.c_str());
        return false;
    }
    return true;
}

bool makeDir(const std::string& dir) {
    if (mkdir(dir.c_str(), 0755) == 0 || errno == EEXIST) return true;
    fprintf(stderr, "gazesynth: cannot create %s: %s\n", dir.c_str(), strerror(errno));
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Writes a labelled corpus of synthetic eye-sensor recordings."};
    uint64_t seed = 1;
    int wearers = 1;
    double minutes = 60;
    double sessionMinutes = 30;
    std::string out;
    app.add_option("--seed", seed, "Seed of the whole corpus")->required();
    app.add_option("--wearers", wearers, "Number of wearers")
            ->required()
            ->check(CLI::Range(1, 100000));
    app.add_option("--minutes", minutes, "Minutes of recordings per wearer")
            ->required()
            ->check(CLI::Range(0.1, 100000.0));
    app.add_option("--out", out, "Output directory")->required();
    app.add_option("--session-minutes", sessionMinutes, "Longest single recording")
            ->check(CLI::Range(1.0, 100000.0));
    velto::tools::addVersionFlag(app, "gazesynth");
    const int parsed = velto::tools::parseCommandLine(app, "gazesynth", argc, argv);
    if (parsed >= 0) return parsed;
    std::string reason;
    if (!velto::tools::isFreshOutputDirectory(out, &reason)) return velto::tools::usageError("gazesynth", reason);

    if (!makeDir(out)) return 1;
    std::string info;
    for (int w = 1; w <= wearers; ++w) {
        const WearerProfile wearer = WearerProfile::draw(Rng::derive(seed, 1000 + w));
        char name[64];
        snprintf(name, sizeof(name), "wearer%03d", w);
        info += std::string(name) + " " + wearer.describe() + "\n";

        const int sessions = static_cast<int>(std::ceil(minutes / sessionMinutes - 1e-9));
        double left = minutes;
        for (int r = 1; r <= sessions; ++r, left -= sessionMinutes) {
            const double length = std::min(left, sessionMinutes);
            const uint64_t recSeed = Rng::derive(seed, (static_cast<uint64_t>(w) << 20) + r);
            Rng startRng(recSeed);
            // The hub has been up for a while when a recording starts.
            const int64_t startNs = static_cast<int64_t>(startRng.uniform(20, 3600) * 1e9);
            char base[96];
            snprintf(base, sizeof(base), "%s_rec%02d", name, r);
            char seedLine[96];
            snprintf(seedLine, sizeof(seedLine), "Seed: %llu  Wearer: %d  Recording: %d",
                     static_cast<unsigned long long>(seed), w, r);
            const std::vector<std::string> recordingHeader = {
                    "<HEADER>", "Generator: gazesynth", seedLine, "Wearer: " + wearer.describe(),
                    "</HEADER>"};
            const std::vector<std::string> labelsHeader = {
                    std::string("Labels of ") + base + ".txt (gazesynth)", seedLine,
                    "START_NS END_NS NAME, in the recording's time stamps"};
            const RecordingSession::Result result = RecordingSession::generate(
                    wearer, recSeed, startNs, static_cast<int64_t>(length * 60e9), recordingHeader,
                    labelsHeader);
            const std::string path = out + "/" + base;
            if (!writeFile(path + ".txt", result.recording) ||
                !writeFile(path + ".labels", result.labels)) {
                return 1;
            }
        }
    }
    // Not named .txt, so that corpus readers do not take it for a recording.
    return writeFile(out + "/wearers.info", info) ? 0 : 1;
}
