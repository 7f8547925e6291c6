#ifndef VELTO_HUBSIM_PACKETFIFO_H
#define VELTO_HUBSIM_PACKETFIFO_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace velto {
namespace hubsim {

// One sample as the data device delivers it.
struct Packet {
    uint64_t timestampNs = 0;
    uint16_t value = 0;

    static constexpr size_t kBytes = 10;
    // Little-endian 64-bit time stamp, then the 16-bit value.
    void appendTo(std::vector<uint8_t>* out) const;
};

// The driver's passthrough FIFO of 64 packets. Like a kernel kfifo it keeps
// the oldest packets when full and drops what does not fit.
class PacketFifo {
public:
    static constexpr size_t kCapacity = 64;

    // False (and counted as an overflow) when full.
    bool push(const Packet& p);
    // Moves up to `max` packets, oldest first, into `out` as bytes.
    size_t take(size_t max, std::vector<uint8_t>* out);
    void clear() { mPackets.clear(); }
    size_t size() const { return mPackets.size(); }
    // The time stamp of the packet queued last; 0 when empty.
    uint64_t newestTimestamp() const { return mPackets.empty() ? 0 : mPackets.back().timestampNs; }
    uint64_t overflows() const { return mOverflows; }

private:
    std::deque<Packet> mPackets;
    uint64_t mOverflows = 0;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_PACKETFIFO_H
