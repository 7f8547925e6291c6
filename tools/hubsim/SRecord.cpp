#include "tools/hubsim/SRecord.h"

#include <cstdio>

namespace velto {
namespace hubsim {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

int SRecord::addressBytes(int type) {
    switch (type) {
        case 0:
        case 1:
        case 5:
        case 9:
            return 2;
        case 2:
        case 6:
        case 8:
            return 3;
        case 3:
        case 7:
            return 4;
        default:
            return 0;
    }
}

SRecord::Status SRecord::parse(std::string_view line, SRecord* out) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.size() < 4 || line[0] != 'S' || line[1] < '0' || line[1] > '9')
        return Status::BadFormat;
    const int type = line[1] - '0';
    const int addrBytes = addressBytes(type);
    if (addrBytes == 0 || line.size() % 2 != 0) return Status::BadFormat;
    std::vector<uint8_t> bytes;
    for (size_t i = 2; i < line.size(); i += 2) {
        const int hi = hexDigit(line[i]);
        const int lo = hexDigit(line[i + 1]);
        if (hi < 0 || lo < 0) return Status::BadFormat;
        bytes.push_back(static_cast<uint8_t>(hi * 16 + lo));
    }
    // bytes: count, address, data, checksum.
    const size_t count = bytes[0];
    if (count + 1 != bytes.size() || count < static_cast<size_t>(addrBytes) + 1)
        return Status::BadLength;
    unsigned sum = 0;
    for (size_t i = 0; i + 1 < bytes.size(); ++i) sum += bytes[i];
    if (static_cast<uint8_t>(~sum) != bytes.back()) return Status::BadChecksum;
    out->type = type;
    out->address = 0;
    for (int i = 0; i < addrBytes; ++i) out->address = (out->address << 8) | bytes[1 + i];
    out->data.assign(bytes.begin() + 1 + addrBytes, bytes.end() - 1);
    return Status::Ok;
}

std::string SRecord::format(int type, uint32_t address, const std::vector<uint8_t>& data) {
    const int addrBytes = addressBytes(type);
    if (addrBytes == 0 || data.size() + addrBytes + 1 > 255) return "";
    std::vector<uint8_t> bytes;
    bytes.push_back(static_cast<uint8_t>(data.size() + addrBytes + 1));
    for (int i = addrBytes - 1; i >= 0; --i)
        bytes.push_back(static_cast<uint8_t>(address >> (8 * i)));
    bytes.insert(bytes.end(), data.begin(), data.end());
    unsigned sum = 0;
    for (uint8_t b : bytes) sum += b;
    bytes.push_back(static_cast<uint8_t>(~sum));
    std::string line = "S" + std::to_string(type);
    char hex[3];
    for (uint8_t b : bytes) {
        snprintf(hex, sizeof(hex), "%02X", b);
        line += hex;
    }
    return line;
}

}  // namespace hubsim
}  // namespace velto
