#include "proxdata/ProxDataBuffer.h"

#include <gtest/gtest.h>

#include "tests/harness/LogCapture.h"

namespace velto {
namespace {

TEST(ProxDataRecords, DumpFormatsCarryTheFlagColumns) {
    EXPECT_EQ(android::String8("1000 291 1"), ProxData(0x4123, 1000).toString());
    EXPECT_EQ(android::String8("-1 16383 1"), ProxData::kInvalidInstance.toString());
    EXPECT_EQ(android::String8("5 16383 0"), ProxData(0x8000 | 0x3FFF, 5).toString());  // bit 15 is not read

    android::String8 out;
    GazeRecord().dump(out);
    EXPECT_EQ(android::String8("-1 16383 1 0"), out);
    EXPECT_FALSE(GazeRecord().isValid());
    // The last column says whether the detector answered, never what.
    const ProxData sample(0x123, 77);
    for (int response : {0, 57, -1}) {
        out.setTo("");
        GazeRecord record(sample, response);
        record.dump(out);
        EXPECT_TRUE(record.isValid());
        EXPECT_EQ(android::String8(response == -1 ? "77 291 0 0" : "77 291 0 1"), out) << response;
    }
    GazeRecord copy;
    copy = GazeRecord(sample, 3);
    copy = copy;
    EXPECT_EQ(3, copy.mDetectorResponse);
    EXPECT_EQ(77, copy.mProxData.mTimestampNanos);
}

TEST(ProxDataBuffer, DumpListsNewestFirstWithMarkers) {
    ProxDataBuffer buffer(3);
    buffer.addPacket(ProxData(10, 100), -1);
    buffer.addPacket(ProxData(20, 200), 3);
    buffer.addMarkerPacket();
    buffer.addPacket(ProxData(30, 300), -1);  // pushes the first record out
    EXPECT_EQ(3, buffer.getNumPackets());
    EXPECT_FALSE(buffer.getRecordAtDelay(1).isValid());
    EXPECT_FALSE(buffer.getRecordAtDelay(-1).isValid());
    EXPECT_FALSE(buffer.getRecordAtDelay(3).isValid());

    android::String8 out;
    buffer.dump(out);
    EXPECT_EQ(android::String8("Dumping 3 prox data packets...\n"
                               "300 30 0 0\n"
                               "-1 16383 1 0\n"
                               "200 20 0 1\n"
                               "Done dumping prox data packets."),
              out);

    buffer.clear();
    out.setTo("");
    buffer.dump(out);
    EXPECT_EQ(android::String8("Dumping 0 prox data packets...\nDone dumping prox data packets."), out);
}

TEST(ProxDataBuffer, LogClampsTheDelayRange) {
    test::ScopedLogCapture capture;
    ProxDataBuffer buffer(8);
    for (int i = 1; i <= 3; ++i) buffer.addPacket(ProxData(0x4000 | (i * 10), i * 1000), -1);
    buffer.log(-5, 100);
    EXPECT_TRUE(test::LogCapture::contains("Led0: 30 20 10 \nTimestamps (ns): 3000 2000 1000 ", ANDROID_LOG_INFO,
                                           "GazeService:ProxDataBuffer"))
            << test::LogCapture::dump();

    // The widest numbers fill a full buffer without being cut.
    for (int i = 0; i < 8; ++i) buffer.addPacket(ProxData(0xFFFF, INT64_MIN), -1);
    buffer.log(0, 8);
    std::string wide = "Led0: ";
    for (int i = 0; i < 8; ++i) wide += "16383 ";
    wide += "\nTimestamps (ns): ";
    for (int i = 0; i < 8; ++i) wide += "-9223372036854775808 ";
    EXPECT_TRUE(test::LogCapture::contains(wide.c_str(), ANDROID_LOG_INFO, "GazeService:ProxDataBuffer"));
}

}  // namespace
}  // namespace velto
