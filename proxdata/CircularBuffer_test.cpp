#include "proxdata/CircularBuffer.h"

#include <gtest/gtest.h>

#include "proxdata/ProxData.h"

namespace velto {
namespace {

TEST(CircularBuffer, DelaysBeforeAndAfterWrapAround) {
    CircularBuffer<int> ring(3, -7);
    EXPECT_EQ(0u, ring.size());
    EXPECT_EQ(3u, ring.capacity());
    EXPECT_EQ(-7, ring.getAtDelay(0));

    ring.add(1);
    ring.add(2);
    EXPECT_EQ(2u, ring.size());
    EXPECT_EQ(2, ring.getAtDelay(0));
    EXPECT_EQ(1, ring.getAtDelay(1));
    EXPECT_EQ(-7, ring.getAtDelay(2));  // not filled yet

    for (int v = 3; v <= 5; ++v) ring.add(v);
    EXPECT_EQ(3u, ring.size());
    EXPECT_EQ(5, ring.getAtDelay(0));
    EXPECT_EQ(4, ring.getAtDelay(1));
    EXPECT_EQ(3, ring.getAtDelay(2));
    EXPECT_EQ(-7, ring.getAtDelay(3));
    EXPECT_EQ(-7, ring.getAtDelay(0xFFFFFFFFu));

    // Many laps later the newest three are still in order.
    for (int v = 6; v <= 1000; ++v) ring.add(v);
    EXPECT_EQ(1000, ring.getAtDelay(0));
    EXPECT_EQ(998, ring.getAtDelay(2));
}

TEST(CircularBuffer, ClearKeepsCapacityAndBehavesAsNew) {
    CircularBuffer<float> ring(4);
    for (int i = 0; i < 6; ++i) ring.add(static_cast<float>(i));
    ring.clear();
    EXPECT_EQ(0u, ring.size());
    EXPECT_EQ(4u, ring.capacity());
    EXPECT_EQ(0.0f, ring.getAtDelay(0));
    ring.add(9.0f);
    ring.add(8.0f);
    EXPECT_EQ(8.0f, ring.getAtDelay(0));
    EXPECT_EQ(9.0f, ring.getAtDelay(1));
    EXPECT_EQ(0.0f, ring.getAtDelay(2));
}

TEST(CircularBuffer, StorageIsNotMovedByAdds) {
    CircularBuffer<ProxData> ring(66, ProxData::kInvalidInstance);
    ring.add(ProxData(1, 1));
    const ProxData* first = &ring.getAtDelay(0);
    for (int i = 2; i <= 200; ++i) ring.add(ProxData(i, i));
    // Every element still lies in the storage reserved at construction.
    for (unsigned int d = 0; d < ring.size(); ++d) {
        const ProxData* p = &ring.getAtDelay(d);
        EXPECT_TRUE(p >= first && p < first + 66) << d;
    }
    EXPECT_EQ(-1, ring.getAtDelay(66).mTimestampNanos);

    // A clear keeps the storage too: the next value lands where the first did.
    ring.clear();
    ring.add(ProxData(5, 5));
    EXPECT_EQ(first, &ring.getAtDelay(0));
    EXPECT_EQ(1u, ring.size());
}

TEST(CircularBuffer, CapacityOneKeepsOnlyTheNewest) {
    CircularBuffer<bool> ring(1);
    ring.add(true);
    ring.add(false);
    EXPECT_EQ(1u, ring.size());
    EXPECT_FALSE(ring.getAtDelay(0));
}

}  // namespace
}  // namespace velto
