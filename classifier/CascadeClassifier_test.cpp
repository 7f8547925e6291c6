#include "classifier/CascadeClassifier.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "classifier/SeqSample.h"
#include "tests/harness/LogCapture.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace {

const char kExample[] =
        "#blink detector, trained offline\n"
        "2 30 8.0 1\n"
        "2 0.1\n"
        "0 4 3 2 0 1 0.6 -0.25\n"
        "3 10 2 0 0 -1 0.4 0.5\n"
        "1 0.0\n"
        "1 0 5 1 0 1 1.0 0.0\n";

std::string writeDetector(const std::string& text) {
    const std::string path = "/system/etc/gaze/test/detector.txt";
    EXPECT_TRUE(test::writeFile(test::underRoot(path), text));
    return path;
}

bool loadText(CascadeClassifier* cascade, const std::string& text) {
    return cascade->loadFromFile(writeDetector(text).c_str());
}

void fill(SeqSample* sample, const std::vector<float>& values) {
    for (float v : values) sample->addNewValue(v);
}

WeakClassifier* weak(int type, int start, int interval, int size, int sign, float threshold, float alpha) {
    WeakClassifier::Feature f;
    f.type = type;
    f.start_offset = start;
    f.block_interval = interval;
    f.block_size = size;
    return new WeakClassifier(f, sign, threshold, alpha);
}

// Counts the layers that ran: each normalising layer asks once for 1/m.
class CountingSample : public SeqSample {
public:
    explicit CountingSample(int length) : SeqSample(length) {}
    float inverseMagnitude() const override {
        ++reads;
        return SeqSample::inverseMagnitude();
    }
    mutable int reads = 0;
};

TEST(WeakClassifier, BlockFeaturesOverValuesAndSobelValues) {
    // Values (i+1)^2; Sobel values 0 0 8 12 16 20 24 28 32 36.
    SeqSample s(10);
    for (int i = 1; i <= 10; ++i) s.addNewValue(static_cast<float>(i * i));
    auto value = [&s](int type, int start, int interval, int size) {
        std::unique_ptr<WeakClassifier> w(weak(type, start, interval, size, 1, 0.0f, 1.0f));
        return w->computeFeature(s, false, 0.0f, 0.0f);
    };
    EXPECT_EQ((13.0f - 61.0f) * 0.5f, value(0, 1, 1, 2));           // [1,3) - [4,6)
    EXPECT_EQ((2.0f * 41.0f - 5.0f - 113.0f) * 0.25f, value(1, 0, 1, 2));  // 2[3,5) - [0,2) - [6,8)
    EXPECT_EQ((20.0f - 36.0f) * 0.5f, value(2, 2, 0, 2));
    EXPECT_EQ((2.0f * 48.0f - 8.0f - 84.0f) * static_cast<float>(1.0 / 6.0), value(3, 0, 0, 3));
    // The second block lies past the window: its missing prefix sums read 0.
    EXPECT_EQ((181.0f - (0.0f - 385.0f)) * 0.5f, value(0, 8, 0, 2));
    EXPECT_EQ(0.0f, value(7, 0, 0, 2));
    EXPECT_EQ(0.0f, value(0, 0, 0, 0));

    // An unknown type keeps the reciprocal it had.
    WeakClassifier w;
    WeakClassifier::Feature f;
    f.type = 1;
    f.block_size = 4;
    w.setFeature(f);
    EXPECT_EQ(0.125f, w.feature().inverse_pos_block_size);
    f.type = 9;
    w.setFeature(f);
    EXPECT_EQ(0.125f, w.feature().inverse_pos_block_size);

    SeqSample flat(3);
    fill(&flat, {5.0f, 5.0f, 5.0f});
    std::unique_ptr<WeakClassifier> any(weak(0, 0, 0, 1, 1, 0.0f, 1.0f));
    EXPECT_EQ(0.0f, any->computeFeature(flat, true, 8.0f, 64.0f));  // no magnitude, no feature
}

TEST(WeakClassifier, FalloffFactorAndStrictThreshold) {
    SeqSample s(10);
    for (int i = 1; i <= 10; ++i) s.addNewValue(static_cast<float>(i * i));  // magnitude 99
    std::unique_ptr<WeakClassifier> w(weak(0, 1, 1, 2, 1, -24.0f, 1.0f));
    // Below the falloff magnitude the factor is the tangent of 1/m at the falloff.
    const float tangent = 2.0f / 200.0f - 99.0f / (200.0f * 200.0f);
    EXPECT_EQ(-48.0f * (0.5f * tangent), w->computeFeature(s, true, 200.0f, 200.0f * 200.0f));
    EXPECT_EQ(-48.0f * (0.5f * s.inverseMagnitude()), w->computeFeature(s, true, 50.0f, 2500.0f));

    // Feature -24 exactly at the threshold votes as below it.
    EXPECT_EQ(-1, w->classify(s, false, 0.0f, 0.0f));
    w->setSign(-1);
    EXPECT_EQ(1, w->classify(s, false, 0.0f, 0.0f));
    w->setThreshold(-24.5f);
    EXPECT_EQ(-1, w->classify(s, false, 0.0f, 0.0f));

    EnsembleClassifier e;
    e.addWeak(weak(0, 1, 1, 2, 1, -30.0f, 0.6f));  // +1
    e.addWeak(weak(0, 1, 1, 2, 1, -20.0f, 0.4f));  // -1
    float score = 7.0f;
    EXPECT_EQ(1, e.classify(s, false, 0.0f, 0.0f, &score));
    EXPECT_FLOAT_EQ(0.2f, score);
    e.setThreshold(0.25f);
    EXPECT_EQ(-1, e.classify(s, false, 0.0f, 0.0f, &score));

    SeqSample filling(10);
    fill(&filling, {1.0f, 2.0f});
    score = 7.0f;
    EXPECT_EQ(-1, e.classify(filling, false, 0.0f, 0.0f, &score));
    EXPECT_EQ(7.0f, score);  // untouched while the window is not full
}

// The feature as its definition reads, through the window's own accessors.
float referenceFeature(const SeqSample& s, const WeakClassifier& w, bool normalize, float falloff) {
    const WeakClassifier::Feature& f = w.feature();
    const float m = s.magnitude();
    if (m < 1.1920929e-7f) return 0.0f;
    float scale = f.inverse_pos_block_size;
    if (normalize) scale = scale * (m < falloff ? 2.0f / falloff - m / (falloff * falloff) : s.inverseMagnitude());
    auto sum = [&](int a, int b) {
        return f.type >= 2 ? s.integralSobelValueAt(b) - s.integralSobelValueAt(a)
                           : s.integralValueAt(b) - s.integralValueAt(a);
    };
    const int st = f.start_offset, b = f.block_size, g = f.block_interval;
    const float A = sum(st, st + b), B = sum(st + b + g, st + 2 * b + g), C = sum(st + 2 * b + 2 * g, st + 3 * b + 2 * g);
    return f.type % 2 == 0 ? (A - B) * scale : (2.0f * B - A - C) * scale;
}

TEST(EnsembleClassifier, ScoresMatchTheFeatureDefinitionExactly) {
    // Random features (some running past the window) over random windows,
    // with and without normalisation and on both sides of the falloff.
    uint32_t state = 7;
    auto next = [&state](int n) {
        state = state * 1103515245u + 12345u;
        return static_cast<int>((state >> 8) % static_cast<uint32_t>(n));
    };
    for (int round = 0; round < 200; ++round) {
        const int L = 8 + next(57);
        SeqSample s(L);
        for (int i = 0; i < L + next(3 * L); ++i) s.addNewValue(500.0f + 0.37f * static_cast<float>(next(1000)));
        EnsembleClassifier e;
        for (int i = 0; i < 12; ++i) {
            e.addWeak(weak(next(4), next(L), next(L / 4 + 1), next(L / 3 + 1), next(2) ? 1 : -1,
                           0.01f * static_cast<float>(next(200) - 100), 0.01f * static_cast<float>(1 + next(20))));
        }
        const bool normalize = next(2) == 1;
        const float falloff = 100.0f * static_cast<float>(next(8));
        float expected = 0.0f;
        for (int i = 0; i < e.numWeaks(); ++i) {
            const WeakClassifier& w = *e.weak(i);
            const float feature = referenceFeature(s, w, normalize, falloff);
            ASSERT_EQ(feature, w.computeFeature(s, normalize, falloff, falloff * falloff)) << "round " << round;
            const int h = feature > w.threshold() ? 1 : -1;
            expected += w.alpha() * static_cast<float>(w.sign() * h);
        }
        float score = 0.0f;
        e.classify(s, normalize, falloff, falloff * falloff, &score);
        ASSERT_EQ(expected, score) << "round " << round;
    }
}

TEST(CascadeClassifier, GatesAndEarlyRejection) {
    CascadeClassifier cascade;
    EXPECT_EQ(-1, cascade.classify(SeqSample(3)));  // no layers, empty window
    // Three layers of one weak each, value0 - value1 against -1: +1 on the
    // windows below.
    for (int i = 0; i < 3; ++i) {
        EnsembleClassifier* layer = new EnsembleClassifier();
        layer->addWeak(weak(0, 0, 0, 1, 1, -1.0f, 1.0f));
        cascade.addLayer(layer);
    }
    SeqSample s(4);
    fill(&s, {0.0f, 0.0f, 0.0f});
    EXPECT_EQ(-1, cascade.classify(s));  // not full
    s.addNewValue(5.0f);                 // magnitude exactly 5: the default range's minimum
    EXPECT_EQ(1, cascade.classify(s));
    SeqSample weakWindow(4);
    fill(&weakWindow, {0.0f, 0.0f, 0.0f, 4.999f});
    EXPECT_EQ(-1, cascade.classify(weakWindow));

    cascade.setPosSampleMagnitudeRange(Interval<float>(0.0f, 5.0f));
    EXPECT_EQ(1, cascade.classify(s));  // max inclusive too
    cascade.setMaxMinSampleValue(-0.5f);  // the window's minimum 0 lies above it
    EXPECT_EQ(-1, cascade.classify(s));
    cascade.setMaxMinSampleValue(0.0f);
    cascade.setMinMaxSampleValue(5.5f);  // the window's maximum 5 lies below it
    EXPECT_EQ(-1, cascade.classify(s));
    cascade.setMinMaxSampleValue(5.0f);
    EXPECT_EQ(1, cascade.classify(s));

    CountingSample counted(4);
    fill(&counted, {0.0f, 0.0f, 0.0f, 5.0f});
    counted.reads = 0;
    EXPECT_EQ(1, cascade.classify(counted));
    EXPECT_EQ(3, counted.reads);
    cascade.editLayer(1)->editWeak(0)->setThreshold(1.0f);  // the second layer now says no
    counted.reads = 0;
    EXPECT_EQ(-1, cascade.classify(counted));
    EXPECT_EQ(2, counted.reads);  // the third never ran
}

TEST(CascadeClassifier, LoadsTheDetectorFileGrammar) {
    test::ScopedLogCapture capture;
    CascadeClassifier c;
    ASSERT_TRUE(loadText(&c, kExample));
    EXPECT_EQ(2, c.numLayers());
    EXPECT_EQ(30, c.sampleLength());
    EXPECT_EQ(8.0f, c.featureFalloffThreshold());
    EXPECT_TRUE(c.isMagnitudeNormalized());
    ASSERT_EQ(2, c.layer(0)->numWeaks());
    const WeakClassifier* w = c.layer(0)->weak(0);  // block_size before block_interval, alpha before threshold
    EXPECT_EQ(4, w->feature().start_offset);
    EXPECT_EQ(3, w->feature().block_size);
    EXPECT_EQ(2, w->feature().block_interval);
    EXPECT_EQ(0.6f, w->alpha());
    EXPECT_EQ(-0.25f, w->threshold());
    EXPECT_EQ(0.1f, c.layer(0)->threshold());
    EXPECT_EQ(0.25f, c.layer(0)->weak(1)->feature().inverse_pos_block_size);  // three blocks of 2

    ASSERT_TRUE(loadText(&c, "1 30 8.0 0\n1 0.0\n1 0 5 1 0 1 1.0 0.0"));  // no final newline
    EXPECT_FALSE(c.isMagnitudeNormalized());
    ASSERT_TRUE(loadText(&c, "1 30 8.0\n\n1 0.0\n#\n1 0 5 1 0 1 1.00001 0.0\n"));
    EXPECT_TRUE(c.isMagnitudeNormalized());

    ASSERT_TRUE(loadText(&c, "#" + std::string(600, 'x') + "\n" + kExample));
    EXPECT_TRUE(test::LogCapture::contains("Found long comment line in detector file: #xxx", ANDROID_LOG_WARN));
}

TEST(CascadeClassifier, RejectsMalformedFilesWithOneReason) {
    struct Case {
        std::string text;
        const char* message;
    };
    const std::vector<Case> cases = {
            {"1 30 8.0\n1 0.0\n0 4 3 2 0 0 0.6 -0.25\n", "Bad weak classifier sign 0."},
            {"1 30 8.0\n1 0.0\n0 4 3 2 0 2 1.0 0\n", "Bad weak classifier sign 2."},
            {"1 30 8.0\n1 0.0\n0 4 3 2 0 -2 1.0 0\n", "Bad weak classifier sign -2."},
            {"1 30 8.0\n1 0.0\n0 4 3 2 0 1 0.6\n", "Bad line format 0 4 3 2 0 1 0.6"},
            {"1 30 8.0\n1 0.0\n0 4 3 2 0 1 1.00002 0\n", "hasn't been normalized. alpha_sum=1.0000200272"},
            {"1 30 8.0\n1 1.00002\n0 4 3 2 0 1 0.5 0\n", "hasn't been normalized"},
            {"1 30 8.0\n1\n0 4 3 2 0 1 0.5 0\n", "Bad line format 1"},
            {"1 30 8.0\n0 0.5\n", "Ensemble must have at least one weak classifier."},
            {"0 30 8.0\n", "Cascade must have at least one layer."},
            {"1 30\n", "Bad line format 1 30"},
            {" # a comment after column 0\n", "Bad line format  # a comment"},
            {"1 30 8.0\n1 0.0\n0 4 3 2 0 1 0.5 0 " + std::string(120, '0') + "\n", "Found long non-comment line"},
            {"1 30 8.0\n1 0.0\n", "Incomplete classifier file."},
            {"#only a comment\n", "Incomplete classifier file."},
            // Non-finite numbers pass every other check and would never vote.
            {"1 30 nan\n1 0.0\n0 4 3 2 0 1 0.5 0\n", "Non-finite feature falloff threshold"},
            {"1 30 8.0\n1 nan\n0 4 3 2 0 1 0.5 0\n", "Non-finite threshold in ensemble line"},
            {"1 30 8.0\n1 0.0\n0 4 3 2 0 1 nan 0\n", "Non-finite alpha in weak classifier line"},
            {"1 30 8.0\n1 0.0\n0 4 3 2 0 1 -inf 0\n", "Non-finite alpha in weak classifier line"},
            {"1 30 8.0\n1 0.0\n0 4 3 2 0 1 0.5 inf\n", "Non-finite threshold in weak classifier line"},
    };
    for (const Case& c : cases) {
        test::ScopedLogCapture capture;
        CascadeClassifier cascade;
        EXPECT_FALSE(loadText(&cascade, c.text)) << c.text;
        EXPECT_TRUE(test::LogCapture::contains(c.message, ANDROID_LOG_ERROR)) << c.text << test::LogCapture::dump();
    }

    // A missing layer: the one already loaded stays, the reason is named.
    test::ScopedLogCapture capture;
    CascadeClassifier partial;
    EXPECT_FALSE(loadText(&partial, "2 30 8.0\n1 0.0\n0 4 3 2 0 1 0.5 0\n"));
    EXPECT_TRUE(test::LogCapture::contains("Fail to load layer 1 from file.", ANDROID_LOG_ERROR,
                                           "GazeService:CascadeClassifier"));
    EXPECT_EQ(1, partial.numLayers());
    EXPECT_FALSE(partial.loadFromFile("/system/etc/gaze/test/absent.txt"));
    EXPECT_TRUE(test::LogCapture::contains("Can not open file " + test::underRoot("/system/etc/gaze/test/absent.txt")));
}

TEST(CascadeClassifier, WrittenFileLoadsBackEqualAndCopiesCompare) {
    CascadeClassifier original;
    ASSERT_TRUE(loadText(&original, kExample));
    original.editLayer(1)->editWeak(0)->setThreshold(0.1f + 1e-7f);  // needs full float precision
    original.setFeatureFalloffThreshold(7.3f);
    const char path[] = "/data/system/gaze/test/written/detector.txt";
    ASSERT_TRUE(original.saveToFile(path));
    EXPECT_FALSE(original.saveToFile("/data/system/gaze/test/written/detector.txt/below_a_file"));
    CascadeClassifier reloaded;
    ASSERT_TRUE(reloaded.loadFromFile(path));
    EXPECT_TRUE(original.equals(reloaded));

    CascadeClassifier copied;
    copied.copy(original);
    EXPECT_TRUE(copied.equals(original));
    copied.editLayer(0)->editWeak(1)->setAlpha(0.41f);
    EXPECT_FALSE(copied.equals(original));
    copied.removeLastKLayers(1);
    EXPECT_EQ(1, copied.numLayers());
    copied.removeLastKLayers(5);
    EXPECT_EQ(0, copied.numLayers());

    char text[64];
    original.getDebugString(text, sizeof(text));
    EXPECT_STREQ("num_layers=2, feature_falloff_threshold=7.300000, sample_length", text);  // cut to fit
}

}  // namespace
}  // namespace velto
