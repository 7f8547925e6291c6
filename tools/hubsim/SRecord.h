#ifndef VELTO_HUBSIM_SRECORD_H
#define VELTO_HUBSIM_SRECORD_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velto {
namespace hubsim {

// One Motorola S-record line: "S", the type digit, the byte count, the
// address, the data and a checksum, all in hexadecimal. The checksum is the
// ones' complement of the low byte of the sum of count, address and data.
struct SRecord {
    enum class Status { Ok, BadFormat, BadLength, BadChecksum };

    int type = 0;          // 0..9
    uint32_t address = 0;  // 16, 24 or 32 bits wide depending on the type
    std::vector<uint8_t> data;

    // Reads one line (without its newline; a trailing '\r' is allowed).
    static Status parse(std::string_view line, SRecord* out);
    // The line for a record, with its checksum and without a newline; empty
    // for a type that does not exist (4) or data too long for one record.
    static std::string format(int type, uint32_t address, const std::vector<uint8_t>& data);
    // Address width in bytes of a record type, 0 for an invalid type.
    static int addressBytes(int type);
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_SRECORD_H
