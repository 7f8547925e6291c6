#ifndef VELTO_HUBSIM_FIRMWAREIMAGE_H
#define VELTO_HUBSIM_FIRMWAREIMAGE_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace velto {
namespace hubsim {

// The memory content of a hub firmware image: bytes by address. The two
// bytes at 0x8480 hold the version, major then minor.
class FirmwareImage {
public:
    static constexpr uint32_t kVersionAddress = 0x8480;

    // Builds the simulator's image for a version: filler code around the
    // version record, deterministic for a version.
    static FirmwareImage make(int major, int minor);

    // Reads S-record text (whole file). On a bad line, returns false and
    // sets `errorLine` (1-based).
    static bool fromText(std::string_view text, FirmwareImage* out, int* errorLine);

    // The image as S-record text: a header, data records of 16 bytes with the
    // version on its own record at 0x8480, a count and an end record.
    std::string toText() const;

    bool version(int* major, int* minor) const;
    void setVersion(int major, int minor);

    void setByte(uint32_t address, uint8_t value) { mBytes[address] = value; }
    bool empty() const { return mBytes.empty(); }
    bool operator==(const FirmwareImage& other) const { return mBytes == other.mBytes; }
    bool operator!=(const FirmwareImage& other) const { return !(*this == other); }

private:
    std::map<uint32_t, uint8_t> mBytes;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_FIRMWAREIMAGE_H
