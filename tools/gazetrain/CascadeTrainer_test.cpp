#include "tools/gazetrain/CascadeTrainer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "tests/harness/TestRoot.h"
#include "tools/gazeeval/Corpus.h"
#include "tools/signal/RecordingSession.h"
#include "tools/signal/WearerProfile.h"

namespace velto {
namespace gazetools {
namespace {

// Two short synthetic recordings with many double blinks; with
// `negativesOffset`, a third that is taken as negatives only, its readings
// raised by that much so that its windows can be told apart.
std::vector<TrainingStream> tinyCorpus(const TargetSetup& setup, int negativesOffset = 0) {
    std::vector<TrainingStream> streams;
    for (uint64_t w = 1; w <= (negativesOffset > 0 ? 3u : 2u); ++w) {
        signal::WearerProfile wearer = signal::WearerProfile::draw(1000 + w);
        wearer.set("double-blink-rate", 10);
        wearer.set("doff-rate", 0);
        const auto result = signal::RecordingSession::generate(wearer, 77 + w, 10000000000LL, 240000000000LL, {}, {});
        CorpusRecording rec;
        InputError error;
        EXPECT_TRUE(parseRecordingPair("r.txt", result.recording, "r.labels", result.labels, &rec, &error))
                << error.text();
        if (w == 3) {
            for (auto& sample : rec.samples) sample.reading = static_cast<uint16_t>(sample.reading + negativesOffset);
            streams.push_back(prepareNegativeStream(rec, setup));
        } else {
            streams.push_back(prepareStream(rec, setup));
        }
    }
    return streams;
}

CascadeParams tinyParams(int threads) {
    CascadeParams p;
    p.maxLayers = 3;
    p.negativesPerLayer = 600;
    p.minNegatives = 5;
    p.layer.maxWeaks = 8;
    p.layer.maxFalsePositive = 0.3;
    p.threads = threads;
    p.seed = 5;
    p.keepExamples = true;
    return p;
}

// Trains and returns the detector file's text.
std::string trainToText(CascadeTrainer* trainer) {
    trainer->train([](const std::string&) {});
    char* buf = nullptr;
    size_t size = 0;
    FILE* f = open_memstream(&buf, &size);
    EXPECT_TRUE(trainer->cascade().writeToFile(f));
    fclose(f);
    std::string text(buf, size);
    free(buf);
    return text;
}

TEST(CascadeTrainerTest, WrittenFilesClassifyAsTheTrainerPredicted) {
    TargetSetup setup;
    setup.target = Target::DoubleBlink;
    setup.windowLength = 28;
    const std::vector<TrainingStream> streams = tinyCorpus(setup);
    int events = 0;
    for (const TrainingStream& s : streams) events += s.events;
    ASSERT_GE(events, 20);

    const CascadeParams params = tinyParams(2);
    CascadeTrainer trainer(streams, setup.windowLength, params);
    const std::string text = trainToText(&trainer);
    ASSERT_GE(trainer.cascade().numLayers(), 2);

    const std::string path = test::underRoot("/trained.txt");
    ASSERT_TRUE(test::writeFile(path, text));
    CascadeClassifier loaded;
    ASSERT_TRUE(loaded.loadFromFile(path.c_str())) << "the library refuses the trained file";
    EXPECT_EQ(setup.windowLength, loaded.sampleLength());
    ASSERT_EQ(trainer.cascade().numLayers(), loaded.numLayers());

    // Each loaded layer gives every training window of its own layer the
    // trainer's score and decision.
    ASSERT_EQ(static_cast<size_t>(loaded.numLayers()), trainer.examples().size());
    for (int k = 0; k < loaded.numLayers(); ++k) {
        const LayerExamples& ex = trainer.examples()[static_cast<size_t>(k)];
        const EnsembleClassifier* layer = loaded.layer(k);
        float alphaSum = 0.0f;
        for (int i = 0; i < layer->numWeaks(); ++i) alphaSum += layer->weak(i)->alpha();
        EXPECT_LE(alphaSum, EnsembleClassifier::kMaxNormalizedSum);
        EXPECT_LE(std::fabs(layer->threshold()), EnsembleClassifier::kMaxNormalizedSum);
        size_t passedPositives = 0;
        for (size_t i = 0; i < ex.windows.size(); ++i) {
            float score = 0.0f;
            const int vote = layer->classify(*ex.windows[i], loaded.isMagnitudeNormalized(),
                                             loaded.featureFalloffThreshold(),
                                             loaded.featureFalloffThreshold() * loaded.featureFalloffThreshold(),
                                             &score);
            ASSERT_EQ(ex.scores[i], score) << "layer " << k << " window " << i;
            ASSERT_EQ(ex.passed[i], vote > 0) << "layer " << k << " window " << i;
            if (i < ex.numPositives) passedPositives += ex.passed[i];
        }
        EXPECT_GE(passedPositives, static_cast<size_t>(0.99 * ex.numPositives));
    }
    // The whole cascade passes exactly the positives the trainer kept.
    for (const auto& w : trainer.survivingPositives()) EXPECT_EQ(1, loaded.classify(*w));
    EXPECT_GT(trainer.survivingPositives().size(), trainer.initialPositives() * 9 / 10);
    // Each layer passes fewer of the corpus's negative windows.
    size_t before = trainer.poolSize();
    for (const LayerSummary& s : trainer.summaries()) {
        EXPECT_LT(s.poolPassed, before);
        before = s.poolPassed;
    }
    EXPECT_LT(before * 2, trainer.poolSize());
}

TEST(CascadeTrainerTest, NegativesOnlyCorporaGiveTheirShareOfEachLayer) {
    TargetSetup setup;
    setup.windowLength = 24;
    constexpr int kOffset = 6000;
    const std::vector<TrainingStream> streams = tinyCorpus(setup, kOffset);
    for (size_t i = 0; i < 2; ++i) {
        for (float v : streams[i].grid.values) ASSERT_LT(v, kOffset);
    }
    ASSERT_TRUE(streams[2].negativesOnly);
    ASSERT_EQ(0, streams[2].positives) << "its double blinks must not become positives";

    auto fromNegativesOnly = [&](double share, size_t* positives) {
        CascadeParams p = tinyParams(2);
        p.maxLayers = 2;
        p.negativesOnlyShare = share;
        CascadeTrainer trainer(streams, setup.windowLength, p);
        trainer.train([](const std::string&) {});
        std::vector<size_t> counts;
        for (const LayerExamples& ex : trainer.examples()) {
            size_t n = 0;
            for (size_t i = ex.numPositives; i < ex.windows.size(); ++i) n += ex.windows[i]->valueAt(0) >= kOffset;
            for (size_t i = 0; i < ex.numPositives; ++i) EXPECT_LT(ex.windows[i]->valueAt(0), kOffset);
            counts.push_back(n);
        }
        *positives = trainer.initialPositives();
        return counts;
    };
    size_t positivesAlike = 0, positivesShared = 0;
    const std::vector<size_t> alike = fromNegativesOnly(-1.0, &positivesAlike);
    const std::vector<size_t> shared = fromNegativesOnly(0.5, &positivesShared);
    EXPECT_EQ(positivesAlike, positivesShared);
    ASSERT_EQ(2u, shared.size());
    // A third of the windows, drawn alike: about a third of the first layer.
    EXPECT_GT(alike[0], 150u);
    EXPECT_LT(alike[0], 250u);
    // With a share, exactly that share as long as the cascade passes enough.
    EXPECT_EQ(300u, shared[0]);
    EXPECT_EQ(300u, shared[1]);
}

TEST(CascadeTrainerTest, SameSeedSameFileWhateverTheThreads) {
    TargetSetup setup;
    setup.target = Target::DoubleBlink;
    setup.windowLength = 24;
    const std::vector<TrainingStream> streams = tinyCorpus(setup);
    CascadeParams one = tinyParams(1), two = tinyParams(2);
    one.maxLayers = two.maxLayers = 2;
    CascadeTrainer a(streams, setup.windowLength, one), b(streams, setup.windowLength, two);
    const std::string textA = trainToText(&a);
    const std::string textB = trainToText(&b);
    EXPECT_EQ(textA, textB);

    // Another seed draws other negatives.
    CascadeParams other = tinyParams(2);
    other.maxLayers = 2;
    other.seed = 6;
    CascadeTrainer c(streams, setup.windowLength, other);
    EXPECT_NE(textA, trainToText(&c));
}

}  // namespace
}  // namespace gazetools
}  // namespace velto
