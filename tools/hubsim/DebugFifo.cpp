#include "tools/hubsim/DebugFifo.h"

namespace velto {
namespace hubsim {

void DebugFifo::fill(const std::vector<uint16_t>& words) {
    mWords.clear();
    append(words);
}

void DebugFifo::append(const std::vector<uint16_t>& words) {
    for (uint16_t w : words) {
        const uint16_t v = w & 0x7FFF;
        mWords.push_back(v == 0 ? 1 : v);
        if (mWords.size() > kCapacity) mWords.pop_front();
    }
}

uint16_t DebugFifo::peek() const {
    if (mWords.empty()) return 0;
    return mWords.size() == 1 ? (mWords.front() | 0x8000) : mWords.front();
}

uint16_t DebugFifo::read() {
    const uint16_t w = peek();
    if (!mWords.empty()) mWords.pop_front();
    return w;
}

}  // namespace hubsim
}  // namespace velto
