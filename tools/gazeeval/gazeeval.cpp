// gazeeval: replays a labelled corpus through the library's detectors and
// scores them, beside a simple threshold baseline.
//
//   gazeeval --corpus DIR [--section DIR]... [--models DIR] [--json] [--per-recording]
//            [--detections FILE.tsv] [--look-threshold T]
//            [--plot FILE.svg [--plot-recording NAME] [--plot-from S] [--plot-to S]]
//
// Each --section is another corpus (real recordings, say) reported under its
// own name beside the main one.
//
// Every option is checked before any work starts (exit status 2), and every
// input is read and checked before anything is written: on bad input the
// error names the file and line, the exit status is 1, and no report or
// picture is produced.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "tools/cli/ToolCli.h"
#include "tools/common/InstalledData.h"
#include "tools/gazeeval/Evaluation.h"
#include "tools/gazeeval/SvgPlot.h"

using namespace velto::gazetools;

namespace {

bool writeText(const std::string& path, const std::string& text) {
    FILE* f = fopen(path.c_str(), "w");
    if (f == nullptr) return false;
    const bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    return fclose(f) == 0 && ok;
}

int fail(const std::string& message) {
    fprintf(stderr, "gazeeval: %s\n", message.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Scores the shipped detectors on a labelled corpus."};
    std::vector<std::string> sectionDirs;
    float lookThreshold = 24.0f;
    // Installed, the shipped detector files lie beside the program.
    std::string corpusDir, modelsDir = velto::tools::findInstalledData("gaze", "etc/gaze"), plotPath, plotRecording,
                           detectionsPath;
    bool json = false, perRecording = false, verbose = false;
    double plotFrom = 0, plotTo = -1;
    int threads = static_cast<int>(std::max(1u, std::min(2u, std::thread::hardware_concurrency())));
    app.add_option("--corpus", corpusDir, "Directory of recordings X.txt with labels X.labels")->required();
    app.add_option("--section", sectionDirs, "Another corpus, reported as its own section (repeatable)");
    app.add_option("--look-threshold", lookThreshold,
                   "Look-at-screen threshold for recordings without a look calibration (0: no look detection "
                   "there; 24 is what a calibration on the faintest modelled look gives)")
            ->capture_default_str()
            ->check(CLI::Range(0.0f, 500.0f));
    app.add_option("--models", modelsDir, "Directory of the detector and list files")->capture_default_str();
    app.add_flag("--json", json, "Print the report as one JSON object");
    app.add_flag("--per-recording", perRecording, "Add every recording's scores to the JSON report");
    app.add_option("--plot", plotPath, "Draw a recording with its labels and detections to this SVG file");
    app.add_option("--plot-recording", plotRecording, "Recording to draw (default: the first)");
    app.add_option("--plot-from", plotFrom, "Start of the drawing, seconds from the recording's start");
    app.add_option("--plot-to", plotTo, "End of the drawing, seconds from the recording's start (default: its end)");
    app.add_option("--detections", detectionsPath, "Write every detection with its outcome to this TSV file");
    app.add_option("--threads", threads, "Recordings replayed at once")->check(CLI::Range(1, 64));
    app.add_flag("--verbose", verbose, "Show the library's log on stderr");
    velto::tools::addVersionFlag(app, "gazeeval");
    const int parsed = velto::tools::parseCommandLine(app, "gazeeval", argc, argv);
    if (parsed >= 0) return parsed;
    auto usage = [](const std::string& reason) { return velto::tools::usageError("gazeeval", reason); };
    struct stat st;
    if (stat(corpusDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return usage("--corpus: " + corpusDir + " is not a directory");
    if (stat(modelsDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return usage("--models: " + modelsDir + " is not a directory");
    for (const std::string& dir : sectionDirs) {
        if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return usage("--section: " + dir + " is not a directory");
    }
    std::string reason;
    if (!plotPath.empty() && !velto::tools::isWritableFilePath(plotPath, &reason)) return usage("--plot: " + reason);
    if (!detectionsPath.empty() && !velto::tools::isWritableFilePath(detectionsPath, &reason))
        return usage("--detections: " + reason);
    if (plotPath.empty() && (!plotRecording.empty() || plotFrom != 0 || plotTo != -1))
        return usage("--plot-recording, --plot-from and --plot-to need --plot");
    if (!(plotFrom >= 0) || (plotTo != -1 && !(plotTo > plotFrom)))
        return usage("the drawing needs 0 <= --plot-from < --plot-to");
    if (perRecording && !json) return usage("--per-recording needs --json");

    routeLibraryLog(verbose);
    std::vector<CorpusRecording> corpus;
    InputError inputError;
    if (!loadCorpus(corpusDir, &corpus, &inputError)) return fail(inputError.text());
    std::vector<std::vector<CorpusRecording>> sections(sectionDirs.size());
    for (size_t i = 0; i < sectionDirs.size(); ++i) {
        if (!loadCorpus(sectionDirs[i], &sections[i], &inputError)) return fail(inputError.text());
    }
    const CorpusRecording* plotted = nullptr;
    size_t plottedIndex = 0;
    if (!plotPath.empty()) {
        for (size_t i = 0; i < corpus.size() && plotted == nullptr; ++i) {
            if (plotRecording.empty() || corpus[i].name == plotRecording) plotted = &corpus[plottedIndex = i];
        }
        if (plotted == nullptr) return fail(corpusDir + ": no recording named " + plotRecording);
    }

    const ModelFiles models = ModelFiles::inDirectory(modelsDir);
    std::string error;
    if (!models.check(&error)) return fail(error);
    CorpusReport report;
    std::vector<RecordingReplay> replays;
    if (!evaluateCorpus(corpus, models, defaultScratchDir(), threads, &report,
                        plotted != nullptr ? &replays : nullptr, &error, lookThreshold)) {
        return fail(error);
    }
    report.name = corpusDir;
    std::vector<CorpusReport> sectionReports(sections.size());
    for (size_t i = 0; i < sections.size(); ++i) {
        if (!evaluateCorpus(sections[i], models, defaultScratchDir(), threads, &sectionReports[i], nullptr, &error,
                            lookThreshold)) {
            return fail(error);
        }
        sectionReports[i].name = sectionDirs[i];
    }

    if (plotted != nullptr) {
        const RecordingReplay& r = replays[plottedIndex];
        const std::vector<PlotMarks> marks = {
                {"DOUBLE_BLINK", "#1f77b4", r.doubleBlink.cascade},
                {"DOUBLE_BLINK baseline", "#6baed6", r.doubleBlink.baseline},
                {"WINK", "#d62728", r.wink.cascade},
                {"WINK baseline", "#fc9272", r.wink.baseline},
                {"LOOK_AT_SCREEN", "#2ca02c", r.lookAtScreen.cascade},
                {"LOOK_AT_SCREEN baseline", "#a1d99b", r.lookAtScreen.baseline},
        };
        const int64_t from = plotted->firstNs + static_cast<int64_t>(std::llround(plotFrom * 1e9));
        const int64_t to = plotTo < 0 ? plotted->lastNs
                                      : plotted->firstNs + static_cast<int64_t>(std::llround(plotTo * 1e9));
        if (!writeText(plotPath, renderSvg(*plotted, from, to, marks))) return fail(plotPath + ": cannot write");
    }
    if (!detectionsPath.empty() && !writeText(detectionsPath, detectionsToTsv(report))) {
        return fail(detectionsPath + ": cannot write");
    }
    if (json) {
        nlohmann::ordered_json j = reportToJson(report, perRecording);
        if (!sectionReports.empty()) {
            j["sections"] = nlohmann::ordered_json::array();
            for (const CorpusReport& r : sectionReports) j["sections"].push_back(sectionToJson(r));
        }
        printf("%s\n", j.dump(2).c_str());
    } else {
        printf("%s", reportToText(report).c_str());
        for (const CorpusReport& r : sectionReports) printf("%s", sectionToText(r).c_str());
    }
    return 0;
}
