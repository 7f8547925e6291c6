#ifndef VELTO_GAZECTL_EVENT_PRINTER_H
#define VELTO_GAZECTL_EVENT_PRINTER_H

#include <stdint.h>
#include <stdio.h>

#include <mutex>
#include <string>
#include <vector>

#include "service/GazeServiceInterface.h"

namespace velto {
namespace gazectl {

// Prints the events of `gazectl watch`, one line each (text or one JSON
// object), from the main thread. A burst of the same gesture (an interrupt
// storm sends dozens of DON events in a row) becomes one line with a count
// once the burst is over.
class EventPrinter {
public:
    struct Event {
        GazeServiceInterface::EyeGesture gesture = GazeServiceInterface::NUM_EYE_GESTURES;
        int64_t startNanos = 0;  // monotonic, as the service reports
        int64_t endNanos = 0;
        int64_t wallNanos = 0;  // wall clock when it arrived
    };

    // Events of one gesture closer than this belong to one burst.
    static const int64_t kBurstGapNanos = 500000000;

    EventPrinter(FILE* out, bool json, int64_t startNanos) : mOut(out), mJson(json), mStartNanos(startNanos) {}

    // From the sensor thread.
    void add(const Event& event);
    // From the main thread: prints what is due at monotonic time `nowNanos`;
    // `flushAll` prints held bursts too (at exit). false once the output
    // cannot be written (a closed pipe).
    bool print(int64_t nowNanos, bool flushAll);
    int printed() const { return mPrinted; }

    std::string format(const Event& first, const Event& last, int count) const;

private:
    struct Burst {
        Event first, last;
        int count = 0;  // events after the first, not yet printed
    };

    FILE* mOut;
    bool mJson;
    int64_t mStartNanos;
    std::mutex mLock;
    std::vector<Event> mPending;
    Burst mBursts[GazeServiceInterface::NUM_EYE_GESTURES];
    int mPrinted = 0;
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_EVENT_PRINTER_H
