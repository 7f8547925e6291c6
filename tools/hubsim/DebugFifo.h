#ifndef VELTO_HUBSIM_DEBUGFIFO_H
#define VELTO_HUBSIM_DEBUGFIFO_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace velto {
namespace hubsim {

// The hub's debug FIFO behind `mcu_debug16`: 15-bit words, one per read; the
// last word carries bit 0x8000 and an empty FIFO reads 0. The hub fills it
// with the readings around each don/doff decision.
class DebugFifo {
public:
    static constexpr size_t kCapacity = 64;

    void clear() { mWords.clear(); }
    // Replaces the content with `words` (kept to 15 bits; 0 becomes 1 because
    // a 0 word means "empty" to the reader). Only the newest kCapacity stay.
    void fill(const std::vector<uint16_t>& words);
    // Appends words after the current content.
    void append(const std::vector<uint16_t>& words);
    uint16_t read();
    uint16_t peek() const;
    size_t size() const { return mWords.size(); }

private:
    std::deque<uint16_t> mWords;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_DEBUGFIFO_H
