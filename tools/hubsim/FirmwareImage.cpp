#include "tools/hubsim/FirmwareImage.h"

#include <vector>

#include "tools/hubsim/SRecord.h"

namespace velto {
namespace hubsim {

namespace {
const uint32_t kCodeStart = 0x8000;
const uint32_t kCodeEnd = 0x8A00;
}  // namespace

FirmwareImage FirmwareImage::make(int major, int minor) {
    FirmwareImage image;
    // A linear congruential filler: looks like code, same bytes for the same
    // version, different for another one.
    uint32_t x = 0x5EED0000u ^ static_cast<uint32_t>(major * 256 + minor);
    for (uint32_t a = kCodeStart; a < kCodeEnd; ++a) {
        if (a == kVersionAddress || a == kVersionAddress + 1) continue;
        x = x * 1664525u + 1013904223u;
        image.mBytes[a] = static_cast<uint8_t>(x >> 24);
    }
    image.setVersion(major, minor);
    return image;
}

bool FirmwareImage::fromText(std::string_view text, FirmwareImage* out, int* errorLine) {
    FirmwareImage image;
    int lineNo = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        ++lineNo;
        if (line.empty() || line == "\r") continue;
        SRecord r;
        if (SRecord::parse(line, &r) != SRecord::Status::Ok) {
            *errorLine = lineNo;
            return false;
        }
        if (r.type >= 1 && r.type <= 3) {
            for (size_t i = 0; i < r.data.size(); ++i) image.mBytes[r.address + i] = r.data[i];
        }
    }
    *out = std::move(image);
    return true;
}

std::string FirmwareImage::toText() const {
    std::string text = SRecord::format(0, 0, {'v', 'e', 'l', 't', 'o', 'h', 'u', 'b'}) + "\n";
    int records = 0;
    auto it = mBytes.begin();
    while (it != mBytes.end()) {
        // A record holds up to 16 consecutive bytes; the version bytes always
        // get a record of their own, the one the library looks for.
        const uint32_t start = it->first;
        const bool isVersion = start == kVersionAddress;
        std::vector<uint8_t> data;
        uint32_t next = start;
        while (it != mBytes.end() && it->first == next && data.size() < 16 && start <= 0xFFFF &&
               (isVersion ? next < kVersionAddress + 2 : next != kVersionAddress)) {
            data.push_back(it->second);
            ++it;
            ++next;
        }
        if (data.empty()) {  // beyond 16 bits: not part of this hub's memory map
            ++it;
            continue;
        }
        text += SRecord::format(1, start, data) + "\n";
        ++records;
    }
    text += SRecord::format(5, static_cast<uint32_t>(records), {}) + "\n";
    text += SRecord::format(9, kCodeStart, {}) + "\n";
    return text;
}

bool FirmwareImage::version(int* major, int* minor) const {
    auto hi = mBytes.find(kVersionAddress);
    auto lo = mBytes.find(kVersionAddress + 1);
    if (hi == mBytes.end() || lo == mBytes.end()) return false;
    *major = hi->second;
    *minor = lo->second;
    return true;
}

void FirmwareImage::setVersion(int major, int minor) {
    mBytes[kVersionAddress] = static_cast<uint8_t>(major);
    mBytes[kVersionAddress + 1] = static_cast<uint8_t>(minor);
}

}  // namespace hubsim
}  // namespace velto
