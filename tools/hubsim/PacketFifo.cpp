#include "tools/hubsim/PacketFifo.h"

namespace velto {
namespace hubsim {

void Packet::appendTo(std::vector<uint8_t>* out) const {
    for (int i = 0; i < 8; ++i) out->push_back(static_cast<uint8_t>(timestampNs >> (8 * i)));
    out->push_back(static_cast<uint8_t>(value));
    out->push_back(static_cast<uint8_t>(value >> 8));
}

bool PacketFifo::push(const Packet& p) {
    if (mPackets.size() >= kCapacity) {
        ++mOverflows;
        return false;
    }
    mPackets.push_back(p);
    return true;
}

size_t PacketFifo::take(size_t max, std::vector<uint8_t>* out) {
    size_t n = 0;
    while (n < max && !mPackets.empty()) {
        mPackets.front().appendTo(out);
        mPackets.pop_front();
        ++n;
    }
    return n;
}

}  // namespace hubsim
}  // namespace velto
