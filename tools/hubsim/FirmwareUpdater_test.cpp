#include "tools/hubsim/FirmwareUpdater.h"

#include <gtest/gtest.h>

#include "tools/hubsim/HubModel.h"
#include "tools/hubsim/SRecord.h"

namespace velto {
namespace hubsim {
namespace {

// Writes `text` the way the library does: line by line, in pieces of at most
// 79 characters.
void download(HubModel& hub, const std::string& text, const char* finish) {
    ASSERT_EQ(hub.write("update_fw_enable", "1"), 0);
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t eol = text.find('\n', pos);
        const size_t lineEnd = eol == std::string::npos ? text.size() : eol + 1;
        for (size_t p = pos; p < lineEnd; p += 79) {
            ASSERT_EQ(
                    hub.write("update_fw_data", text.substr(p, std::min<size_t>(79, lineEnd - p))),
                    0);
        }
        pos = lineEnd;
    }
    ASSERT_EQ(hub.write("update_fw_enable", finish), 0);
}

std::string status(HubModel& hub) {
    std::string s;
    hub.read("flash_status", &s);
    return s;
}

TEST(SRecordTest, ChecksumsAndLengthsAreVerified) {
    const std::string line = SRecord::format(1, 0x8480, {0x03, 0x07});
    EXPECT_EQ(line, "S10584800307EC");
    SRecord r;
    ASSERT_EQ(SRecord::parse(line + "\r", &r), SRecord::Status::Ok);
    EXPECT_EQ(r.address, 0x8480u);
    EXPECT_EQ(r.data, (std::vector<uint8_t>{3, 7}));
    EXPECT_EQ(SRecord::parse("S10584800307ED", &r), SRecord::Status::BadChecksum);
    EXPECT_EQ(SRecord::parse("S10684800307EC", &r), SRecord::Status::BadLength);
    EXPECT_EQ(SRecord::parse("S4058480030", &r), SRecord::Status::BadFormat);
    EXPECT_EQ(SRecord::parse("S1058480030GEC", &r), SRecord::Status::BadFormat);
    EXPECT_EQ(SRecord::parse("X10584800307EC", &r), SRecord::Status::BadFormat);
}

TEST(FirmwareUpdaterTest, FlashingChangesTheVersionOnlyForAGoodImage) {
    HubModel hub(HubConfig{});  // runs 1.0
    const std::string v37 = FirmwareImage::make(3, 7).toText();
    EXPECT_NE(v37.find("\nS10584800307EC\n"), std::string::npos);

    // Verifying another image fails; verifying the installed one passes.
    download(hub, v37, "254");
    EXPECT_EQ(status(hub), "5\n");
    download(hub, FirmwareImage::make(1, 0).toText(), "254");
    EXPECT_EQ(status(hub), "0\n");

    // One corrupted checksum spoils the whole download.
    std::string bad = v37;
    const size_t at = bad.find("S1058480");
    bad[at + 13] = bad[at + 13] == 'C' ? 'D' : 'C';
    download(hub, bad, "0");
    EXPECT_EQ(status(hub), "3\n");
    std::string version;
    hub.read("version", &version);
    EXPECT_EQ(version, "1.0\n");

    hub.write("don_threshold", "777");
    download(hub, v37, "0");
    EXPECT_EQ(status(hub), "0\n");
    hub.read("version", &version);
    EXPECT_EQ(version, "3.7\n");
    std::string don;
    hub.read("don_threshold", &don);
    EXPECT_EQ(don, "450\n");  // the hub restarted
    download(hub, v37, "254");
    EXPECT_EQ(status(hub), "0\n");
}

TEST(FirmwareUpdaterTest, RefusesSessionsOutOfOrderAndImagesWithoutVersion) {
    HubModel hub(HubConfig{});
    EXPECT_EQ(hub.write("update_fw_data", "S9030000FC\n"), EIO);  // no session open
    ASSERT_EQ(hub.write("update_fw_enable", "0"), 0);
    EXPECT_EQ(status(hub), "6\n");
    EXPECT_EQ(hub.write("update_fw_enable", "7"), EINVAL);
    download(hub, SRecord::format(1, 0x8000, {1, 2, 3}) + "\n", "0");
    EXPECT_EQ(status(hub), "4\n");
    download(hub, "hello\n", "0");
    EXPECT_EQ(status(hub), "2\n");
    // A forced failure leaves the firmware alone even for a good image.
    hub.forceFlashStatus(9);
    download(hub, FirmwareImage::make(2, 0).toText(), "0");
    EXPECT_EQ(status(hub), "9\n");
    std::string version;
    hub.read("version", &version);
    EXPECT_EQ(version, "1.0\n");
}

TEST(FirmwareImageTest, TextRoundTripsAndBadLinesAreLocated) {
    const FirmwareImage image = FirmwareImage::make(4, 2);
    FirmwareImage back;
    int line = 0;
    ASSERT_TRUE(FirmwareImage::fromText(image.toText(), &back, &line));
    EXPECT_TRUE(back == image);
    int major = 0, minor = 0;
    ASSERT_TRUE(back.version(&major, &minor));
    EXPECT_EQ(major, 4);
    EXPECT_EQ(minor, 2);
    EXPECT_FALSE(FirmwareImage::fromText("S00600004844521B\n\nS1 broken\n", &back, &line));
    EXPECT_EQ(line, 3);
}

}  // namespace
}  // namespace hubsim
}  // namespace velto
