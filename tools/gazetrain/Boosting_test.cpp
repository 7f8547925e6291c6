#include "tools/gazetrain/Boosting.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <set>
#include <tuple>

#include "classifier/CascadeClassifier.h"
#include "tests/harness/TestRoot.h"

namespace velto {
namespace gazetools {
namespace {

TEST(BoostingTest, EnumeratesEveryBlockFeatureThatFitsOnce) {
    const int L = 9;
    const std::vector<WeakClassifier::Feature> features = enumerateFeatures(L);
    std::set<std::tuple<int, int, int, int>> seen;
    size_t expected = 0;
    for (int type = 0; type < 4; ++type) {
        const int blocks = (type == 1 || type == 3) ? 3 : 2;
        for (int b = 1; b <= L; ++b) {
            for (int g = 0; g <= L; ++g) {
                for (int s = 0; s <= L; ++s) expected += s + blocks * b + (blocks - 1) * g <= L;
            }
        }
    }
    for (const WeakClassifier::Feature& f : features) {
        const int blocks = (f.type == 1 || f.type == 3) ? 3 : 2;
        EXPECT_LE(f.start_offset + blocks * f.block_size + (blocks - 1) * f.block_interval, L);
        EXPECT_GE(f.block_size, 1);
        EXPECT_TRUE(seen.insert({f.type, f.start_offset, f.block_size, f.block_interval}).second);
    }
    EXPECT_EQ(expected, features.size());
}

TEST(BoostingTest, AStrideKeepsACoarseGridAndEveryFeatureNearTheNewestEnd) {
    const int L = 50, K = 4;
    FeatureGrid grid;
    grid.stride = K;
    grid.fineSpan = 12;
    const auto all = enumerateFeatures(L);
    const auto some = enumerateFeatures(L, grid);
    std::set<std::tuple<int, int, int, int>> full, kept;
    for (const auto& f : all) full.insert({f.type, f.start_offset, f.block_size, f.block_interval});
    size_t fine = 0, coarseEndingAtTheNewest = 0;
    for (const auto& f : some) {
        EXPECT_TRUE(full.count({f.type, f.start_offset, f.block_size, f.block_interval}));
        EXPECT_TRUE(kept.insert({f.type, f.start_offset, f.block_size, f.block_interval}).second);
        const int blocks = (f.type == 1 || f.type == 3) ? 3 : 2;
        const int end = f.start_offset + blocks * f.block_size + (blocks - 1) * f.block_interval;
        if (f.start_offset >= L - grid.fineSpan) {
            ++fine;
        } else {
            EXPECT_EQ(0, f.block_size % K);
            EXPECT_EQ(0, f.block_interval % K);
            EXPECT_EQ(0, (L - end) % K);
            coarseEndingAtTheNewest += end == L;
        }
    }
    // Everything within the fine span, as if it were a window of its own.
    EXPECT_EQ(enumerateFeatures(grid.fineSpan).size(), fine);
    EXPECT_GT(coarseEndingAtTheNewest, 0u);
    EXPECT_LT(some.size(), all.size() / 4);
    grid.stride = 1;
    EXPECT_EQ(all.size(), enumerateFeatures(L, grid).size());
}

// Windows of a few shapes and levels, as a detector would hold them.
std::vector<std::unique_ptr<SeqSample>> someWindows(int L, int count) {
    std::vector<std::unique_ptr<SeqSample>> out;
    uint32_t r = 12345;
    for (int k = 0; k < count; ++k) {
        std::unique_ptr<SeqSample> w(new SeqSample(L));
        for (int i = 0; i < L + k % 5; ++i) {
            r = r * 1664525u + 1013904223u;
            const float noise = static_cast<float>(r >> 24) / 32.0f;
            const float bump = (k % 3 == 0 && i > L / 3 && i < L / 2) ? 40.0f + k : 0.0f;
            w->addNewValue(500.0f + 10.0f * (k % 7) + noise + bump);
        }
        out.push_back(std::move(w));
    }
    return out;
}

TEST(BoostingTest, BinsDecideExactlyAsTheLibrarysStumps) {
    const int L = 12;
    const auto windows = someWindows(L, 300);
    std::vector<const SeqSample*> ptrs;
    for (const auto& w : windows) ptrs.push_back(w.get());
    FeatureScaling scaling;
    scaling.falloff = 30.0f;
    const std::vector<WeakClassifier::Feature> features = enumerateFeatures(L);
    const FeatureMatrix matrix(features, ptrs, scaling, 2);
    ASSERT_EQ(features.size(), matrix.numFeatures());
    size_t checked = 0;
    for (size_t f = 0; f < matrix.numFeatures(); f += 37) {
        const std::vector<float>& edges = matrix.edges(f);
        ASSERT_LE(edges.size(), static_cast<size_t>(FeatureMatrix::kMaxEdges));
        for (size_t k = 1; k < edges.size(); ++k) ASSERT_LT(edges[k - 1], edges[k]);
        for (size_t e = 0; e < edges.size(); e += 7) {
            const WeakClassifier stump(matrix.feature(f), 1, edges[e], 1.0f);
            for (size_t i = 0; i < ptrs.size(); ++i) {
                const bool above = matrix.bins(f)[i] > e;
                ASSERT_EQ(above ? 1 : -1, stump.classify(*ptrs[i], true, scaling.falloff, 900.0f))
                        << "feature " << f << " edge " << e << " window " << i;
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 10000u);
}

TEST(BoostingTest, ThresholdKeepsTheAskedShareOfPositives) {
    // 10 scores; keeping 80 % keeps the 8 highest, so the threshold lies
    // between the 8th (0.2) and the 9th (-0.1).
    const std::vector<float> scores = {0.9f, 0.8f, 0.7f, 0.6f, 0.5f, 0.4f, 0.3f, 0.2f, -0.1f, -0.5f};
    const float thr = thresholdForDetection(scores, 0.8);
    EXPECT_LT(thr, 0.2f);
    EXPECT_GT(thr, -0.1f);
    // Ties at the kept score all pass.
    const float tied = thresholdForDetection({0.5f, 0.5f, 0.5f, 0.1f}, 0.5);
    EXPECT_LT(tied, 0.5f);
    EXPECT_GT(tied, 0.1f);
    // Everything at the lowest possible score still passes, within the bound
    // the file format allows.
    const float lowest = thresholdForDetection({-1.0f, -1.0f}, 1.0);
    EXPECT_LT(lowest, -1.0f);
    EXPECT_GE(lowest, -EnsembleClassifier::kMaxNormalizedSum);
}

TEST(BoostingTest, NormalisedLayersLoadBackAndKeepTheirVotes) {
    EnsembleClassifier layer;
    WeakClassifier::Feature f;
    f.block_size = 2;
    f.updateInversePosBlockSize();
    // Alphas that add up to far more than 1, chosen so that float rounding
    // matters.
    for (int i = 0; i < 37; ++i) layer.addWeak(new WeakClassifier(f, i % 2 ? 1 : -1, 0.01f * i, 0.7f + 0.013f * i));
    layer.setThreshold(3.3f);
    ASSERT_TRUE(normalizeLayer(&layer));
    float sum = 0.0f;
    for (int i = 0; i < layer.numWeaks(); ++i) sum += layer.weak(i)->alpha();
    EXPECT_LE(sum, 1.0f);
    EXPECT_GT(sum, 0.9999f);
    EXPECT_LE(std::fabs(layer.threshold()), 1.0f);

    CascadeClassifier cascade;
    cascade.setSampleLength(8);
    cascade.setFeatureFalloffThreshold(16.0f);
    EnsembleClassifier* copy = new EnsembleClassifier();
    copy->copy(layer);
    cascade.addLayer(copy);
    const std::string path = test::underRoot("/normalised.txt");
    ASSERT_TRUE(cascade.saveToFile(path.c_str()));
    CascadeClassifier loaded;
    ASSERT_TRUE(loaded.loadFromFile(path.c_str()));
    EXPECT_TRUE(loaded.equals(cascade));

    // A layer with a non-positive alpha is not a boosted layer.
    EnsembleClassifier bad;
    bad.addWeak(new WeakClassifier(f, 1, 0.0f, 0.0f));
    EXPECT_FALSE(normalizeLayer(&bad));
}

}  // namespace
}  // namespace gazetools
}  // namespace velto
