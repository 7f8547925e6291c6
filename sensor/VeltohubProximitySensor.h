#ifndef VELTO_VELTOHUB_PROXIMITY_SENSOR_H
#define VELTO_VELTOHUB_PROXIMITY_SENSOR_H

#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <utils/List.h>
#include <utils/Mutex.h>
#include <utils/String8.h>
#include <utils/Thread.h>
#include <utils/Vector.h>

#include <atomic>

#include "proxdata/CircularBuffer.h"
#include "sensor/CommandInterface.h"
#include "sensor/LogThrottle.h"
#include "sensor/ProximitySensorInterface.h"
#include "sensor/SampleClockMonitor.h"

namespace velto {

// The proximity sensor behind the Veltohub sensor hub: a process-wide
// singleton that drives the hub through its data device, its sysfs attribute
// files and its two interrupt files.
//
// One event thread does all the waiting. It blocks in poll() on the data device
// (while streaming), the don_doff and wink interrupt files and a control pipe.
// Client threads never touch the hub's mode themselves: they queue commands and
// write one byte into the control pipe to wake the thread, which runs them.
// Every listener callback runs on the event thread with no sensor lock held.
//
// Locks: the listener mutex guards the three listener lists; the sensor mutex
// guards the hub, the command queue and the streaming requests. The listener
// mutex is always taken first; never the reverse.
//
// Hub recovery (off unless a platform service turns it on with
// setHubRecoveryEnabled before the sensor is created) finds the way back from
// hub faults on the event thread: a clock that steps back restarts every data
// listener on the new clock; a data device that fails is read again with
// back-off (and reopened); when the hub has been silent for a while, its mode
// is compared with what the service asked for and rewritten (after a hub
// reset, with the thresholds last written too). It changes what the driver
// does in the plain design (a non-blocking data device, a poll that times out,
// a stop that also ends streaming, a control pipe that must be a FIFO), hence
// the opt-in.
class VeltohubProximitySensor : public virtual ProximitySensorInterface {
public:
    // One registered data listener: it receives samples from deviceHorizonNs on.
    struct ProxDataListenerInfo {
        ProxDataListener* listener;
        int64_t deviceNowNs;      // hub clock when the listener was added
        int64_t deviceHorizonNs;  // deviceNowNs - history
    };

    // One byte written into the control pipe.
    enum GazeServiceControlCommand {
        INVALID_COMMAND = -1,
        INTERRUPT_THREAD = 0,  // wake-up only
        PROCESS_COMMANDS = 1,  // run the queued commands
    };

    static const char kDataDevicePath[];       // "/dev/veltohub"
    static const char kSysfsDirectory[];       // the hub driver's attribute directory
    static const char kControlPipePath[];      // "/data/system/gaze/gaze_service_control_pipe"
    static const char kFirmwarePath[];         // "/system/vendor/firmware/veltohub.s19"
    static const char kDataWakeLockName[];     // held while a data listener is registered
    static const char kEventWakeLockName[];    // held while one wake-up is handled
    static const unsigned int kHistorySize = 66;
    static const unsigned int kThreadDelayMillis = 15000;
    // Silence after which the hub's mode is checked: while streaming, after
    // a write of ours failed, and while only interrupts are awaited. The last
    // is long: each check reads several attributes, and a service that only
    // waits for don/doff must stay asleep.
    static const int kStreamingCheckMillis = 250;
    static const int kIdleCheckMillis = 1000;
    static const int kQuietCheckMillis = 30000;

    // The singleton, created and started on first use; null when the hub is
    // absent or could not be started (a later call tries again).
    static VeltohubProximitySensor* getInstance();
    // Hub recovery for sensors created from now on (the service creates its
    // sensor at its first start()). Off by default.
    static void setHubRecoveryEnabled(bool enabled);
    static bool isHubRecoveryEnabled();
    // Whether this sensor recovers from hub faults (fixed at its creation).
    bool recovers() const { return mRecovery; }
    // The hub is present: its `version` attribute exists.
    static bool existsOnDevice();

    VeltohubProximitySensor();
    virtual ~VeltohubProximitySensor();

    bool start();
    void stop();
    bool isStarted() const { return mThreadRunning.load(); }

    // ProximitySensorInterface
    android::String8 getNameString() const override;
    android::String8 getVersionString() const override;
    android::String8 getParameterString(const android::String8& separator) const override;
    android::String8 getParameterString() const override;
    android::String8 getRawFifoDataString(const android::String8& separator) const override;
    bool isHardwareAvailable() const override;
    void setPause(bool pause) override;
    TriStateBool isPaused() const override;
    bool forceFirmwareUpdate() override;
    void flush() override;
    bool setMCUParams(const MCUParams& params) override;
    bool getMCUParams(MCUParams* params) const override;
    bool setDonThreshold(unsigned short threshold) override;
    bool setDoffThreshold(unsigned short threshold) override;
    bool setDonMaxThreshold(unsigned short threshold) override;
    void addDonDoffListener(DonDoffListener* listener, bool notifyNow) override;
    void removeDonDoffListener(DonDoffListener* listener) override;
    bool isDonDoffEnabled() const override;
    bool isLowPowerMode() const override;
    void addLowPowerWinkListener(LowPowerWinkListener* listener) override;
    void removeLowPowerWinkListener(LowPowerWinkListener* listener) override;
    void addProxDataListener(ProxDataListener* listener) override;
    void addProxDataListener(ProxDataListener* listener, long long historyMs) override;
    void removeProxDataListener(ProxDataListener* listener) override;

    virtual bool getDonThreshold(unsigned short* threshold) const;
    virtual bool getDoffThreshold(unsigned short* threshold) const;
    virtual bool getDonMaxThreshold(unsigned short* threshold) const;
    virtual bool requestStartStreamingData_l();
    virtual bool requestStopStreamingData_l();
    virtual bool isStreamingData() const;
    virtual bool readOnePacket(ProxData* out);

    // Attribute helpers. `node` is a name in the attribute directory or a full path.
    static android::String8 getFullPath(const android::String8& dir, const android::String8& node);
    bool setActivityThreshold(unsigned short threshold);
    long long readCurrentTimestampFromHub() const;

protected:
    class VeltohubThread;
    class BaseCommand;
    class PauseCommand;
    class StreamingControlCommand;
    class FlushFifoCommand;
    class StreamHistoricalDataCommand;
    friend class VeltohubThread;
    friend class PauseCommand;
    friend class StreamingControlCommand;
    friend class FlushFifoCommand;
    friend class StreamHistoricalDataCommand;

    // Device and attribute access.
    bool openDataFile();
    void closeDataFile();
    bool writeToSysfsFile(const android::String8& node, const android::String8& value);
    bool readInputSysfsRegisterFile(const char* dir, const char* node, android::String8* out) const;
    android::String8 getParameterStringForSysfsNode(const char* node) const;
    void appendRawFifoData(android::String8& out, const android::String8& separator) const;
    bool getThreshold(const char* node, unsigned short* threshold) const;
    bool setThreshold(const char* node, unsigned short threshold);
    bool readDonDoffStateFromFile_l(int fd) const;
    void enableDonDoffInterrupts(bool on);
    void enableLowPowerWinkInterrupts(bool on);

    // Control pipe and command queue.
    bool ensureControlPipeExists_l();
    void setupExecutionControlPipe();
    void setupRequestControlPipe();
    void tearDownExecutionControlPipe();
    void tearDownRequestControlPipe();
    void destroyControlPipe();
    void queueControlSignal_l(GazeServiceControlCommand signal);
    GazeServiceControlCommand readControlSignal();
    void handleControlCommand(GazeServiceControlCommand signal);
    void queueCommand_l(CommandInterface* command);
    void processOneCommand();
    int processAllCommands();  // how many ran
    void requestInterruptThread();

    // Event loop.
    void startThread_l();
    void stopThread();
    bool setupPollingStructs();
    bool setupInterruptPollingStruct(struct pollfd* entry, const android::String8& node);
    void closePollingStructs();
    bool executeEventLoopOnceBlocking();
    void handleProxDataInterrupt();
    void handleDonDoffInterrupt();
    void handleLowPowerWinkInterrupt();
    void startStreamingData();
    void stopStreamingData();
    void executeFlushFifo();
    void setPauseInternal(bool pause);
    TriStateBool readPauseState() const;
    void incrementWakeLock_l();
    void decrementWakeLock_l();
    int pollTimeoutMillis(int64_t nowMs) const;

    // Recovery (event thread).
    void noteDataRead(bool ok, int64_t nowMs);
    void retryDataDevice(int64_t nowMs);
    void noteSampleClock(const ProxData& sample);
    void restartListenersOnNewClock(const ProxData& sample, int64_t fromNs);
    void checkHubState(int64_t nowMs);
    bool writeHubQuietly(const char* node, const char* value) const;
    bool readHubQuietly(const char* node, android::String8* out) const;
    void rememberHubSetting(const android::String8& node, const android::String8& value);
    static void stopAtExit();

    // Listener bookkeeping and dispatch.
    void syncProxDataListenersIterator_l();
    void dispatchProxData(const ProxData& sample);
    void processOneProxFrameWithOneListener(const ProxDataListenerInfo& info, const ProxData& sample);
    void invokeListenerWithHistoricalPackets(const ProxDataListenerInfo& info);
    void setDonDoffStateAndCallListenersIfNeeded(bool donned);
    void callLowPowerWinkListeners();
    void removeAllListeners();
    void updateProxSensorStatus_l();

    // Firmware.
    bool checkFirmware(bool force);
    bool downloadFirmware(FILE* image, bool checksumOnly);

    // The resolved attribute directory (with its trailing '/').
    const android::String8& sysfsDir() const { return mSysfsDir; }

    static android::Mutex smSingletonLock;
    static VeltohubProximitySensor* smSingleton;
    static std::atomic<bool> smHubRecoveryEnabled;

    // Hub recovery on (see the class comment); set at construction.
    bool mRecovery;

    mutable android::Mutex mSensorLock;
    mutable android::Mutex mListenerLock;

    android::Vector<DonDoffListener*> mDonDoffListeners;
    android::Vector<LowPowerWinkListener*> mLowPowerWinkListeners;
    android::Vector<ProxDataListenerInfo> mProxDataListeners;
    // The event thread's private copy, refreshed when the list changed.
    android::Vector<ProxDataListenerInfo> mProxDataListenersSnapshot;
    bool mProxDataListenersChanged;

    // Newest samples read from the hub, for listeners that ask for history.
    CircularBuffer<ProxData> mHistoryBuffer;
    std::atomic<bool> mDonDoffState;
    std::atomic<bool> mUserPaused;
    int64_t mIgnoredPacketCount;

    // Device reading state: one read() serves up to kBatchPackets packets.
    static const int kPacketSize = 10;
    static const int kBatchPackets = 64;
    int mDataFd;
    uint8_t mBatch[kPacketSize * kBatchPackets];
    unsigned int mBatchCursor;
    unsigned int mBatchPacketsLeft;
    uint64_t mPacketCount;
    // Failed reads in a row. After a few, the device leaves the poll set and
    // is read again at mDeviceRetryAtMs (-1: not backing off).
    int mFailedReads;
    bool mReadWouldBlock;  // the last read found nothing to read
    int64_t mFailingSinceMs;
    int64_t mLastReopenMs;
    int64_t mDeviceRetryAtMs;
    LogThrottle mReadFailureLog;

    // Control pipe and command queue.
    int mRequestPipeFd;
    int mExecutionPipeFd;
    android::List<CommandInterface*> mCommands;

    // Poll set: data device, don_doff, wink, control pipe.
    struct pollfd mPollFds[4];
    volatile int32_t mStreaming;
    android::sp<VeltohubThread> mThread;
    std::atomic<bool> mThreadRunning;

    // What the event thread last asked of the hub, to check it against.
    bool mWantPaused;
    bool mWantStreaming;
    // A write of the hub's mode failed: keep checking it even with nobody
    // listening, until it is found as it should be.
    std::atomic<bool> mHubStateSuspect;
    int64_t mNextSuspectCheckMs;
    // Listeners of all kinds, for the event thread's choice of time-out.
    std::atomic<int> mListenerCount;
    SampleClockMonitor mClockMonitor;
    int64_t mLastHubClockNs;  // the hub's clock as last seen (packet or attribute)
    static const int64_t kUnknownClock = INT64_MIN;
    LogThrottle mStreamLog;
    bool mStreamRestarted;  // the next gap spans a time without streaming
    LogThrottle mHubStateLog;
    // The hub's thresholds as last written, restored after a hub reset.
    mutable android::Mutex mHubSettingsLock;
    android::String8 mHubSettings[7];

    android::String8 mSysfsDir;
};

}  // namespace velto

#endif  // VELTO_VELTOHUB_PROXIMITY_SENSOR_H
