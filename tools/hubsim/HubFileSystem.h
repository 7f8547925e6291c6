#ifndef VELTO_HUBSIM_HUBFILESYSTEM_H
#define VELTO_HUBSIM_HUBFILESYSTEM_H

#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/hubsim/Simulation.h"

namespace velto {
namespace hubsim {

// The FUSE file system of the simulated hub (low-level libfuse API):
//
//   4-0035/            the driver's attribute directory, one file per attribute
//   veltohub           the data device
//   power/wake_lock    the kernel's wake-lock files
//   power/wake_unlock
//
// Attribute files behave like sysfs: each read at offset 0 shows a fresh
// value (direct I/O, so lseek(0) + read works on a kept descriptor) and
// re-arms the descriptor; poll reports POLLPRI|POLLERR once the hub has
// raised the attribute's interrupt since. The data device returns whole
// 10-byte packets, parks a blocking read until a packet arrives, and polls
// readable while packets are queued.
//
// One mutex guards the simulation and all file state. Replies and poll
// notifications are sent after it is released.
class HubFileSystem {
public:
    HubFileSystem(std::unique_ptr<Simulation> sim, double speed, FILE* labelsOut);

    // Writes "HUB_NS MONOTONIC_NS" whenever packets become readable: the
    // newest one's hub time stamp and the CLOCK_MONOTONIC time, so a client
    // can time the way from the device to its callback. Off when null.
    void setReadableLog(FILE* out) { mReadableLog = out; }
    ~HubFileSystem();

    // Paced: the hub clock holds while the packet FIFO is nearly full, so a
    // reader that falls behind (a loaded machine) slows the run down instead
    // of losing packets. Off by default: a real hub does not wait.
    void setPaced(bool paced) { mPaced = paced; }

    static const fuse_lowlevel_ops* operations();
    void setSession(fuse_session* session) { mSession = session; }

    // Brings the simulation up to the wall-clock time and delivers what
    // became due: parked reads, poll wake-ups, labels, warnings.
    void tick();
    // How long the caller may sleep before the next tick is useful.
    std::chrono::nanoseconds untilNextDue();
    // One control line; the reply without a newline.
    std::string control(const std::string& line);
    bool quitRequested();
    // Answers every parked read (the file system is going away).
    void shutdown();

private:
    enum Inode : fuse_ino_t {
        kRoot = 1,
        kAttrDir = 2,
        kData = 3,
        kPowerDir = 4,
        kWakeLock = 5,
        kWakeUnlock = 6,
        kAttrBase = 100,
    };
    enum class Kind { Attribute, Data, WakeLock, WakeUnlock };

    struct Handle {
        Kind kind;
        std::string attribute;
        std::string snapshot;     // the text of the last read at offset 0
        uint64_t seenEvents = 0;  // interrupt count at the last read (or open)
        bool nonBlocking = false;
        fuse_pollhandle* poll = nullptr;
    };
    struct ParkedRead {
        fuse_req_t req;
        uint64_t handle;
        size_t size;
        bool armed;  // the interrupt callback is registered: may be answered
        bool interrupted;
    };
    // What to send once the lock is released.
    struct Outbox {
        std::vector<std::pair<fuse_req_t, std::vector<uint8_t>>> data;
        std::vector<std::pair<fuse_req_t, int>> errors;
        std::vector<fuse_pollhandle*> wakeups;
    };

    int64_t simNowLocked() const;
    void advanceLocked();
    void collectLocked(Outbox* out);
    void flush(Outbox* out);
    bool isDirectory(fuse_ino_t ino) const;
    bool inodeOf(fuse_ino_t parent, const char* name, fuse_ino_t* ino) const;
    void fillStat(fuse_ino_t ino, struct stat* st) const;
    std::vector<std::pair<std::string, fuse_ino_t>> entries(fuse_ino_t dir) const;
    bool interruptOf(const std::string& attribute, Interrupt* which) const;
    std::vector<uint8_t> takePacketsLocked(size_t size);

    static HubFileSystem* self(fuse_req_t req);
    static void onInterrupt(fuse_req_t req, void* data);
    static void doLookup(fuse_req_t req, fuse_ino_t parent, const char* name);
    static void doGetattr(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi);
    static void doSetattr(fuse_req_t req, fuse_ino_t ino, struct stat* attr, int toSet,
                          fuse_file_info* fi);
    static void doOpendir(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi);
    static void doReaddir(fuse_req_t req, fuse_ino_t ino, size_t size, off_t off,
                          fuse_file_info* fi);
    static void doOpen(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi);
    static void doRelease(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi);
    static void doRead(fuse_req_t req, fuse_ino_t ino, size_t size, off_t off, fuse_file_info* fi);
    static void doWrite(fuse_req_t req, fuse_ino_t ino, const char* buf, size_t size, off_t off,
                        fuse_file_info* fi);
    static void doPoll(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi, fuse_pollhandle* ph);

    std::mutex mLock;
    std::unique_ptr<Simulation> mSim;
    const double mSpeed;
    bool mPaced = false;
    int64_t mHeldNs = 0;  // hub time lost while paced
    const std::chrono::steady_clock::time_point mStart;
    const time_t mStartWall;
    FILE* mLabelsOut;
    fuse_session* mSession = nullptr;
    std::vector<std::string> mAttributes;  // inode kAttrBase + index
    std::map<uint64_t, Handle> mHandles;
    uint64_t mNextHandle = 1;
    std::deque<ParkedRead> mParked;
    uint64_t mNotified[2] = {0, 0};  // interrupt counts already announced to pollers
    FILE* mReadableLog = nullptr;
    uint64_t mLastReadable = 0;  // time stamp of the last packet written to it
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_HUBFILESYSTEM_H
