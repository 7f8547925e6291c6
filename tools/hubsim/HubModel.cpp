#include "tools/hubsim/HubModel.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <utility>

namespace velto {
namespace hubsim {

namespace {

struct AttributeInfo {
    const char* name;
    HubModel::Access access;
};

using A = HubModel::Access;
const AttributeInfo kAttributes[] = {
        {"name", A::Read},
        {"version", A::Read},
        {"bootloader_version", A::Read},
        {"prox_version", A::Read},
        {"pause", A::ReadWrite},
        {"pause_for_audio", A::Read},
        {"led_drive", A::Read},
        {"passthru_enable", A::ReadWrite},
        {"don_doff_enable", A::ReadWrite},
        {"wink_enable", A::ReadWrite},
        {"wink_flag_enable", A::ReadWrite},
        {"don_threshold", A::ReadWrite},
        {"doff_threshold", A::ReadWrite},
        {"don_max_threshold", A::ReadWrite},
        {"activity_threshold", A::ReadWrite},
        {"detector_gain", A::ReadWrite},
        {"wink_min", A::ReadWrite},
        {"wink_max", A::ReadWrite},
        {"current_timestamp", A::Read},
        {"mcu_debug16", A::Read},
        {"error_code", A::Read},
        {"driver_flags", A::Read},
        {"last_timestamp", A::Read},
        {"irq", A::Read},
        {"irq_status", A::Read},
        {"last_irq_status", A::Read},
        {"irq_timestamp", A::Read},
        {"timer_count", A::Read},
        {"error_count", A::Read},
        {"don_doff", A::Read},
        {"wink", A::Read},
        {"update_fw_enable", A::Write},
        {"update_fw_data", A::Write},
        {"flash_status", A::Read},
        {"proxraw", A::Read},
};

const AttributeInfo* find(std::string_view name) {
    for (const AttributeInfo& a : kAttributes)
        if (name == a.name) return &a;
    return nullptr;
}

// Like the kernel's kstrtouint with base 10: digits, an optional '+', one
// trailing newline.
int parseUnsigned(std::string_view text, uint64_t max, uint64_t* out) {
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    if (!text.empty() && text[0] == '+') text.remove_prefix(1);
    if (text.empty()) return EINVAL;
    uint64_t v = 0;
    bool tooBig = false;
    for (char c : text) {
        if (c < '0' || c > '9') return EINVAL;
        if (v > (UINT64_MAX - 9) / 10) tooBig = true;
        v = v * 10 + static_cast<uint64_t>(c - '0');
    }
    if (tooBig || v > max) return ERANGE;
    *out = v;
    return 0;
}

std::string number(int64_t v) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%" PRId64 "\n", v);
    return buf;
}

// Bits of irq_status.
const int kIrqDonDoff = 0x1;
const int kIrqWink = 0x2;
const int kIrqFifoOverflow = 0x8;
const int kErrorFifoOverflow = 1;

const size_t kRecentReadings = 16;
const size_t kMaxWritesKept = 256;
const int64_t kResetClockNs = 1000000;  // the hub clock a millisecond after a reset
const int kIrqLine = 181;

}  // namespace

HubModel::HubModel(HubConfig config)
    : mConfig(std::move(config)), mClockOffset(mConfig.clockStartNs) {}

std::vector<std::string> HubModel::attributeNames() const {
    std::vector<std::string> names;
    for (const AttributeInfo& a : kAttributes)
        if (hasAttribute(a.name)) names.push_back(a.name);
    return names;
}

bool HubModel::isAttributeName(std::string_view name) {
    return find(name) != nullptr;
}

bool HubModel::hasAttribute(std::string_view name) const {
    if (name == "version" && !mConfig.hasVersion) return false;
    return find(name) != nullptr;
}

bool HubModel::access(std::string_view name, Access* out) const {
    if (!hasAttribute(name)) return false;
    *out = find(name)->access;
    return true;
}

void HubModel::advanceTo(int64_t simNs) {
    if (simNs > mSimNow) mSimNow = simNs;
    if (!mHeld.empty() && mSimNow >= mHoldUntil) {
        for (const Packet& p : mHeld) pushToFifo(p);
        mHeld.clear();
    }
    while (mStormLeft > 0 && mSimNow >= mStormNext) {
        raise(mStormWhich);
        --mStormLeft;
        mStormNext += mStormStep;
    }
}

void HubModel::raise(Interrupt which) {
    ++mInterrupts[static_cast<int>(which)];
    mLastIrqStatus = mIrqStatus;
    mIrqStatus = which == Interrupt::DonDoff ? kIrqDonDoff : kIrqWink;
    mIrqTimestamp = hubTime();
}

void HubModel::onSample(int64_t simNs, uint16_t reading) {
    advanceTo(simNs);
    if (mSettings.paused) return;
    // The wink interrupt comes one conversion after the packet that carries
    // the first flag, so a driver that serves its device before its interrupt
    // files has that packet in hand when it handles the interrupt.
    if (mWinkIrqPending) {
        mWinkIrqPending = false;
        if (mSettings.winkEnable && mSettings.winkFlagEnable) {
            mWinkLatched = true;
            raise(Interrupt::Wink);
        }
    }
    reading &= 0x3FFF;
    ++mTimerCount;
    ++mStats.samples;
    const int64_t ts = hubTimeAt(simNs);
    mLastTimestamp = ts;
    mLastReading = reading;
    mRecent.push_back(reading);
    if (mRecent.size() > kRecentReadings) mRecent.erase(mRecent.begin());

    uint16_t value = reading;
    if (mSettings.donDoffEnable &&
        mDonDoff.update(reading, {mSettings.don, mSettings.doff, mSettings.donMax})) {
        // The firmware leaves the readings behind its decision in the debug
        // FIFO.
        mDebug.fill(mRecent);
        raise(Interrupt::DonDoff);
    }
    if (mSettings.winkEnable) {
        const LowPowerWinkDetector::Result r = mWink.update(
                simNs, reading, {mSettings.gain, mSettings.winkMin, mSettings.winkMax});
        if (r.flag) value |= 0x4000;
        if (r.fire && mSettings.winkFlagEnable) mWinkIrqPending = true;
    }
    if (!mSettings.passthru) {
        mPretrigger.push_back(Packet{static_cast<uint64_t>(ts), value});
        if (mPretrigger.size() > PacketFifo::kCapacity) mPretrigger.pop_front();
        return;
    }
    {
        ++mStats.packetsMade;
        const Packet p{static_cast<uint64_t>(ts), value};
        if (mDropLeft > 0) {
            --mDropLeft;
            ++mStats.dropped;
            return;
        }
        queue(p);
        if (mDuplicateLeft > 0) {
            --mDuplicateLeft;
            ++mStats.duplicated;
            queue(p);
        }
    }
}

void HubModel::queue(const Packet& p) {
    if (mSimNow < mHoldUntil) {
        mHeld.push_back(p);
        return;
    }
    pushToFifo(p);
}

void HubModel::pushToFifo(const Packet& p) {
    if (!mFifo.push(p)) {
        mErrorCode = kErrorFifoOverflow;
        ++mErrorCount;
        mLastIrqStatus = mIrqStatus;
        mIrqStatus = kIrqFifoOverflow;
    }
}

void HubModel::delayPackets(int64_t ns) {
    mHoldUntil = mSimNow + ns;
}

void HubModel::onDeviceOpen() {
    mFifo.clear();
    mHeld.clear();
    mPretrigger.clear();
}

size_t HubModel::takePackets(size_t max, std::vector<uint8_t>* out) {
    const size_t n = mFifo.take(max, out);
    mStats.packetsDelivered += n;
    return n;
}

bool HubModel::takePartialRead() {
    if (mPartialLeft <= 0) return false;
    --mPartialLeft;
    return true;
}

void HubModel::failOperations(const std::string& name, int count) {
    if (count == 0) {
        mFailures.erase(name);
    } else {
        mFailures[name] = count;
    }
}

bool HubModel::takeFailure(std::string_view name) {
    auto it = mFailures.find(name);
    if (it == mFailures.end()) return false;
    if (it->second > 0 && --it->second == 0) mFailures.erase(it);
    return true;
}

void HubModel::storm(Interrupt which, int count, int64_t overNs) {
    mStormWhich = which;
    mStormLeft = count;
    mStormStep = count > 0 ? overNs / count : 0;
    mStormNext = mSimNow;
    advanceTo(mSimNow);
}

void HubModel::softReset() {
    mSettings = Settings();
    mFifo.clear();
    mHeld.clear();
    mPretrigger.clear();
    mHoldUntil = -1;
    mDonDoff.reset();
    mWink.reset();
    mWinkLatched = false;
    mWinkIrqPending = false;
    mDebug.clear();
    mRecent.clear();
    mIrqStatus = mLastIrqStatus = 0;
    mIrqTimestamp = mLastTimestamp = 0;
    mTimerCount = mErrorCount = 0;
    mErrorCode = 0;
}

void HubModel::reset() {
    softReset();
    mUpdater = FirmwareUpdater();
    mFlashStatus = 0;
    mClockOffset = kResetClockNs - mSimNow;
}

std::string HubModel::versionText() const {
    int major = 0, minor = 0;
    mConfig.installed.version(&major, &minor);
    return std::to_string(major) + "." + std::to_string(minor) + "\n";
}

int HubModel::driverFlags() const {
    return (mSettings.passthru ? 1 : 0) | (mSettings.paused ? 2 : 0) |
           (mSettings.donDoffEnable ? 4 : 0) | (mSettings.winkEnable ? 8 : 0);
}

int HubModel::peek(std::string_view name, std::string* out) const {
    Access a;
    if (!access(name, &a)) return ENOENT;
    if (a == Access::Write) return EACCES;
    const Settings& s = mSettings;
    if (name == "name")
        *out = "veltohub\n";
    else if (name == "version")
        *out = versionText();
    else if (name == "bootloader_version")
        *out = number(mConfig.bootloaderVersion);
    else if (name == "prox_version")
        *out = number(mConfig.proxVersion);
    else if (name == "pause")
        *out = number(s.paused);
    else if (name == "pause_for_audio")
        *out = number(s.pauseForAudio);
    else if (name == "led_drive")
        *out = number(s.ledDrive);
    else if (name == "passthru_enable")
        *out = number(s.passthru);
    else if (name == "don_doff_enable")
        *out = number(s.donDoffEnable);
    else if (name == "wink_enable")
        *out = number(s.winkEnable);
    else if (name == "wink_flag_enable")
        *out = number(s.winkFlagEnable);
    else if (name == "don_threshold")
        *out = number(s.don);
    else if (name == "doff_threshold")
        *out = number(s.doff);
    else if (name == "don_max_threshold")
        *out = number(s.donMax);
    else if (name == "activity_threshold")
        *out = number(s.activity);
    else if (name == "detector_gain")
        *out = number(s.gain);
    else if (name == "wink_min")
        *out = number(s.winkMin);
    else if (name == "wink_max")
        *out = number(s.winkMax);
    else if (name == "current_timestamp")
        *out = number(hubTime());
    else if (name == "mcu_debug16")
        *out = number(mDebug.peek());
    else if (name == "error_code")
        *out = number(mErrorCode);
    else if (name == "driver_flags")
        *out = number(driverFlags());
    else if (name == "last_timestamp")
        *out = number(mLastTimestamp);
    else if (name == "irq")
        *out = number(kIrqLine);
    else if (name == "irq_status")
        *out = number(mIrqStatus);
    else if (name == "last_irq_status")
        *out = number(mLastIrqStatus);
    else if (name == "irq_timestamp")
        *out = number(mIrqTimestamp);
    else if (name == "timer_count")
        *out = number(static_cast<int64_t>(mTimerCount));
    else if (name == "error_count")
        *out = number(static_cast<int64_t>(mErrorCount));
    else if (name == "don_doff")
        *out = mDonDoff.donned() ? "1\n" : "0\n";
    else if (name == "wink")
        *out = mWinkLatched ? "1\n" : "0\n";
    else if (name == "flash_status")
        *out = number(mFlashStatus);
    else if (name == "proxraw")
        *out = number(mLastReading);
    else
        return ENOENT;
    return 0;
}

int HubModel::read(std::string_view name, std::string* out) {
    if (!hasAttribute(name)) return ENOENT;
    if (takeFailure(name)) return EIO;
    const int err = peek(name, out);
    if (err != 0) return err;
    if (name == "mcu_debug16") mDebug.read();
    if (name == "wink") mWinkLatched = false;
    return 0;
}

int HubModel::write(std::string_view name, std::string_view text) {
    Access a;
    if (!access(name, &a)) return ENOENT;
    if (a == Access::Read) return EACCES;
    if (takeFailure(name)) return EIO;
    std::vector<std::string>& log = mWrites[std::string(name)];
    std::string_view shown = text;
    while (!shown.empty() && shown.back() == '\n') shown.remove_suffix(1);
    log.emplace_back(shown);
    if (log.size() > kMaxWritesKept) log.erase(log.begin());

    if (name == "update_fw_data") return mUpdater.feed(text) ? 0 : EIO;
    if (name == "update_fw_enable") return writeFirmwareControl(text);
    return writeSetting(name, text);
}

int HubModel::writeSetting(std::string_view name, std::string_view text) {
    uint64_t v = 0;
    const bool isFlag = name == "pause" || name == "passthru_enable" || name == "don_doff_enable" ||
                        name == "wink_enable" || name == "wink_flag_enable";
    const int err = parseUnsigned(text, isFlag ? 0xFFFFFFFFu : 0xFFFF, &v);
    if (err != 0) return err;
    Settings& s = mSettings;
    const bool on = v != 0;
    if (name == "pause") {
        // The wink detector's idea of the open eye is stale after a pause.
        if (s.paused && !on) mWink.reset();
        s.paused = on;
    } else if (name == "passthru_enable") {
        if (s.passthru && !on) {
            mFifo.clear();
            mHeld.clear();
        }
        if (!s.passthru && on) {
            for (const Packet& p : mPretrigger) {
                ++mStats.packetsMade;
                queue(p);
            }
        }
        mPretrigger.clear();
        s.passthru = on;
    } else if (name == "don_doff_enable") {
        if (on && !s.donDoffEnable) mDonDoff.reset();
        s.donDoffEnable = on;
    } else if (name == "wink_enable") {
        if (on && !s.winkEnable) mWink.reset();
        s.winkEnable = on;
    } else if (name == "wink_flag_enable") {
        s.winkFlagEnable = on;
    } else if (name == "detector_gain") {
        if (v > 2) return EINVAL;
        s.gain = static_cast<int>(v);
    } else {
        const uint16_t u = static_cast<uint16_t>(v);
        if (name == "don_threshold")
            s.don = u;
        else if (name == "doff_threshold")
            s.doff = u;
        else if (name == "don_max_threshold")
            s.donMax = u;
        else if (name == "activity_threshold")
            s.activity = u;
        else if (name == "wink_min")
            s.winkMin = u;
        else if (name == "wink_max")
            s.winkMax = u;
        else
            return EACCES;
    }
    return 0;
}

int HubModel::writeFirmwareControl(std::string_view text) {
    uint64_t v = 0;
    const int err = parseUnsigned(text, 0xFFFF, &v);
    if (err != 0) return err;
    if (v == 1) {
        mUpdater.open();
        mFlashStatus = FirmwareUpdater::kReceiving;
        return 0;
    }
    if (v != 0 && v != 254) return EINVAL;
    const bool flash = v == 0;
    if (mForcedFlashStatus >= 0) {
        // A failing flash leaves the installed firmware alone.
        FirmwareImage scratch = mConfig.installed;
        mUpdater.finish(flash, &scratch);
        mFlashStatus = mForcedFlashStatus;
        mForcedFlashStatus = -1;
        return 0;
    }
    mFlashStatus = mUpdater.finish(flash, &mConfig.installed);
    if (flash && mFlashStatus == FirmwareUpdater::kOk) {
        // The hub restarts into the new firmware.
        ++mStats.flashes;
        softReset();
    }
    return 0;
}

std::vector<std::string> HubModel::writesTo(std::string_view name) const {
    auto it = mWrites.find(name);
    return it == mWrites.end() ? std::vector<std::string>() : it->second;
}

HubModel::Stats HubModel::stats() const {
    Stats s = mStats;
    s.overflows = mFifo.overflows();
    return s;
}

}  // namespace hubsim
}  // namespace velto
