#ifndef VELTO_HUBSIM_HUBMODEL_H
#define VELTO_HUBSIM_HUBMODEL_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <deque>
#include <vector>

#include "tools/hubsim/DebugFifo.h"
#include "tools/hubsim/DonDoffDetector.h"
#include "tools/hubsim/FirmwareImage.h"
#include "tools/hubsim/FirmwareUpdater.h"
#include "tools/hubsim/LowPowerWinkDetector.h"
#include "tools/hubsim/PacketFifo.h"

namespace velto {
namespace hubsim {

// How the hub starts: the firmware it runs and what its driver shows.
struct HubConfig {
    FirmwareImage installed = FirmwareImage::make(1, 0);
    bool hasVersion = true;  // without it the hub looks absent to the library
    int bootloaderVersion = 5;
    int proxVersion = 17;
    int64_t clockStartNs = 1000000000;  // hub time when the simulation starts
};

enum class Interrupt { DonDoff = 0, Wink = 1 };

// The sensor hub and its kernel driver as the library sees them: attributes
// as text, the passthrough FIFO of packets, the two interrupts, the clock and
// firmware flashing, plus the faults a test can ask for.
//
// Time comes from outside: the caller advances the simulation time and feeds
// each sensor conversion (onSample). Hub time stamps are the simulation time
// plus an offset that faults (clock jumps, resets) change. No threads, no
// files; errors are errno values.
class HubModel {
public:
    enum class Access { Read, Write, ReadWrite };

    explicit HubModel(HubConfig config);

    // --- time and samples
    void advanceTo(int64_t simNs);
    // One conversion of the sensor at `simNs` (ignored while paused).
    void onSample(int64_t simNs, uint16_t reading);
    int64_t hubTime() const { return mSimNow + mClockOffset; }
    int64_t hubTimeAt(int64_t simNs) const { return simNs + mClockOffset; }
    int64_t simNow() const { return mSimNow; }

    // --- attributes
    // Every attribute name, in the order of the driver's directory.
    std::vector<std::string> attributeNames() const;
    bool hasAttribute(std::string_view name) const;
    // Whether any hub has an attribute of this name.
    static bool isAttributeName(std::string_view name);
    bool access(std::string_view name, Access* out) const;
    // A read through the file: 0 or an errno value. Reading `mcu_debug16`
    // takes a word from the FIFO, reading `wink` clears its latch.
    int read(std::string_view name, std::string* out);
    // The value without side effects or faults (for the control socket).
    int peek(std::string_view name, std::string* out) const;
    // A write through the file: 0 or EINVAL (not a number, or not allowed),
    // ERANGE (too big), EACCES (read-only), EIO (fault), ENOENT.
    int write(std::string_view name, std::string_view text);
    // Texts written to an attribute so far, oldest first (trailing newline
    // removed; at most the last 256).
    std::vector<std::string> writesTo(std::string_view name) const;

    // --- data device
    // The driver flushes its FIFO when the device is opened.
    void onDeviceOpen();
    size_t queuedPackets() const { return mFifo.size(); }
    uint64_t newestQueuedTimestamp() const { return mFifo.newestTimestamp(); }
    // Moves up to `max` packets, as bytes, into `out`.
    size_t takePackets(size_t max, std::vector<uint8_t>* out);
    // True once per read that a partial-packet fault should cut short.
    bool takePartialRead();

    // --- interrupts: each raise counts one notification of the attribute
    uint64_t interruptCount(Interrupt which) const { return mInterrupts[static_cast<int>(which)]; }
    bool donned() const { return mDonDoff.donned(); }

    // --- faults
    // The next `count` operations on `name` (an attribute or "veltohub", the
    // data device) fail with EIO; -1 for all until cleared with 0.
    void failOperations(const std::string& name, int count);
    // Consumes one pending failure of `name`; true when the operation fails.
    bool takeFailure(std::string_view name);
    void dropPackets(int count) { mDropLeft += count; }
    void duplicatePackets(int count) { mDuplicateLeft += count; }
    // Packets made in the next `ns` are held back and then queued at once.
    void delayPackets(int64_t ns);
    // The hub clock (and so every later time stamp) moves by `ns`.
    void jumpClock(int64_t ns) { mClockOffset += ns; }
    // Power-on reset: every setting back to its default, FIFOs empty, the
    // clock restarts near zero. The installed firmware stays.
    void reset();
    // `count` notifications of `which` spread over `overNs`, without any
    // change of state behind them.
    void storm(Interrupt which, int count, int64_t overNs);
    void cutNextReads(int count) { mPartialLeft += count; }
    // The next flash or verification ends with `status` instead.
    void forceFlashStatus(int status) { mForcedFlashStatus = status; }
    // Appends words to the debug FIFO.
    void pushDebugWords(const std::vector<uint16_t>& words) { mDebug.append(words); }

    struct Stats {
        uint64_t samples = 0;           // conversions while running
        uint64_t packetsMade = 0;       // packets for the FIFO while streaming
        uint64_t packetsDelivered = 0;  // taken by readers of the device
        uint64_t overflows = 0;         // lost because the FIFO was full
        uint64_t dropped = 0;           // lost to a drop fault
        uint64_t duplicated = 0;
        uint64_t flashes = 0;  // successful flashes
    };
    Stats stats() const;

private:
    struct Settings {
        bool paused = true;
        bool passthru = false;
        bool donDoffEnable = false;
        bool winkEnable = false;
        bool winkFlagEnable = false;
        uint16_t don = 450;
        uint16_t doff = 400;
        uint16_t donMax = 2000;
        uint16_t activity = 5;
        int gain = 2;
        uint16_t winkMin = 0;
        uint16_t winkMax = 680;
        int pauseForAudio = 0;
        int ledDrive = 12;
    };

    void raise(Interrupt which);
    void queue(const Packet& p);
    void pushToFifo(const Packet& p);
    void softReset();
    int writeSetting(std::string_view name, std::string_view text);
    int writeFirmwareControl(std::string_view text);
    std::string versionText() const;
    int driverFlags() const;

    HubConfig mConfig;  // its image is the running firmware, replaced by a flash
    Settings mSettings;
    int64_t mSimNow = 0;
    int64_t mClockOffset;

    PacketFifo mFifo;
    std::vector<Packet> mHeld;
    // The last conversions while not streaming: turning passthrough on queues
    // them first, so a listener that asks for history right after a
    // low-power wink sees the wink from its start.
    std::deque<Packet> mPretrigger;
    int64_t mHoldUntil = -1;
    DonDoffDetector mDonDoff;
    LowPowerWinkDetector mWink;
    bool mWinkLatched = false;
    bool mWinkIrqPending = false;  // raised with the next conversion
    DebugFifo mDebug;
    std::vector<uint16_t> mRecent;  // the last readings, for the debug FIFO
    FirmwareUpdater mUpdater;
    int mFlashStatus = 0;
    int mForcedFlashStatus = -1;

    uint64_t mInterrupts[2] = {0, 0};
    int mIrqStatus = 0;
    int mLastIrqStatus = 0;
    int64_t mIrqTimestamp = 0;
    int64_t mLastTimestamp = 0;
    uint16_t mLastReading = 0;
    uint64_t mTimerCount = 0;
    uint64_t mErrorCount = 0;
    int mErrorCode = 0;

    int mDropLeft = 0;
    int mDuplicateLeft = 0;
    int mPartialLeft = 0;
    Interrupt mStormWhich = Interrupt::DonDoff;
    int mStormLeft = 0;
    int64_t mStormNext = 0;
    int64_t mStormStep = 0;
    std::map<std::string, int, std::less<>> mFailures;
    std::map<std::string, std::vector<std::string>, std::less<>> mWrites;
    Stats mStats;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_HUBMODEL_H
