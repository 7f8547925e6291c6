#include "veltoutils/KMeansCluster.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

android::Vector<float> values(std::initializer_list<float> list) {
    android::Vector<float> v;
    for (float f : list) v.push(f);
    return v;
}

TEST(KMeansCluster, SeparatesTwoWellSeparatedGroups) {
    KMeansCluster k;
    k.addCenter(0.0f);  // seeds away from the data move onto it
    k.addCenter(2000.0f);
    ASSERT_TRUE(k.computeClusters(values({100, 102, 98, 101, 99, 1300, 1290, 1310, 1305, 1295})));
    ASSERT_EQ(2, k.getNumClusters());
    EXPECT_FLOAT_EQ(100.0f, k.getCenters()[0]);
    EXPECT_FLOAT_EQ(1300.0f, k.getCenters()[1]);
    EXPECT_EQ(0, k.classify(600.0f));
    EXPECT_EQ(1, k.classify(800.0f));
    EXPECT_EQ(android::String8("[100.00, 1300.00]"), k.getCentersAsString());
    EXPECT_LE(k.getNumIterations(), KMeansCluster::kMaxIterations);
}

TEST(KMeansCluster, DegenerateInputs) {
    // Equal values: the tie goes to the lower index, the other centre empties
    // and is dropped.
    KMeansCluster same;
    same.addCenter(50.0f);
    same.addCenter(50.0f);
    ASSERT_TRUE(same.computeClusters(values({50, 50, 50})));
    EXPECT_EQ(1, same.getNumClusters());
    EXPECT_FLOAT_EQ(50.0f, same.getCenters()[0]);

    // A seed that attracts no value disappears; the others keep their order.
    KMeansCluster far;
    far.addCenter(10.0f);
    far.addCenter(-1000.0f);
    far.addCenter(20.0f);
    ASSERT_TRUE(far.computeClusters(values({9, 11, 19, 21})));
    ASSERT_EQ(2, far.getNumClusters());
    EXPECT_FLOAT_EQ(10.0f, far.getCenters()[0]);
    EXPECT_FLOAT_EQ(20.0f, far.getCenters()[1]);

    // Nothing to cluster, or nothing to cluster around.
    KMeansCluster empty;
    empty.addCenter(1.0f);
    EXPECT_FALSE(empty.computeClusters(android::Vector<float>()));
    EXPECT_EQ(1, empty.getNumClusters());
    KMeansCluster unseeded;
    EXPECT_FALSE(unseeded.computeClusters(values({1, 2})));
    EXPECT_EQ(-1, unseeded.classify(1.0f));

    // Equidistant value: lower index.
    KMeansCluster tie;
    tie.addCenter(0.0f);
    tie.addCenter(10.0f);
    EXPECT_EQ(0, tie.classify(5.0f));
}

}  // namespace
}  // namespace velto
