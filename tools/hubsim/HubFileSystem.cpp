#include "tools/hubsim/HubFileSystem.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/signal/LabelFile.h"

namespace velto {
namespace hubsim {

namespace {

// What sysfs reports for every attribute, changed or not.
const unsigned kDefaultPollMask = POLLIN | POLLOUT | POLLRDNORM | POLLWRNORM;
const double kCacheSeconds = 1.0;

}  // namespace

HubFileSystem::HubFileSystem(std::unique_ptr<Simulation> sim, double speed, FILE* labelsOut)
    : mSim(std::move(sim)),
      mSpeed(speed),
      mStart(std::chrono::steady_clock::now()),
      mStartWall(time(nullptr)),
      mLabelsOut(labelsOut),
      mAttributes(mSim->hub().attributeNames()) {}

HubFileSystem::~HubFileSystem() {
    for (auto& kv : mHandles) {
        if (kv.second.poll != nullptr) fuse_pollhandle_destroy(kv.second.poll);
    }
}

HubFileSystem* HubFileSystem::self(fuse_req_t req) {
    return static_cast<HubFileSystem*>(fuse_req_userdata(req));
}

int64_t HubFileSystem::simNowLocked() const {
    const auto wall = std::chrono::steady_clock::now() - mStart;
    return static_cast<int64_t>(static_cast<double>(wall.count()) * mSpeed) - mHeldNs;
}

void HubFileSystem::advanceLocked() {
    const int64_t target = simNowLocked();
    if (!mPaced) {
        mSim->advanceTo(target);
        return;
    }
    // In steps shorter than a sample period, so the FIFO is checked before
    // every packet; the time the hub could not go on is held back for good.
    constexpr int64_t kStepNs = 10000000;
    HubModel& hub = mSim->hub();
    for (int64_t now = hub.simNow(); now < target;) {
        if (hub.queuedPackets() + 2 >= PacketFifo::kCapacity) {
            mHeldNs += target - now;
            return;
        }
        now = std::min(target, now + kStepNs);
        mSim->advanceTo(now);
    }
}

bool HubFileSystem::interruptOf(const std::string& attribute, Interrupt* which) const {
    if (attribute == "don_doff")
        *which = Interrupt::DonDoff;
    else if (attribute == "wink")
        *which = Interrupt::Wink;
    else
        return false;
    return true;
}

std::vector<uint8_t> HubFileSystem::takePacketsLocked(size_t size) {
    std::vector<uint8_t> bytes;
    mSim->hub().takePackets(size / Packet::kBytes, &bytes);
    // A fault may cut a read in the middle of its last packet.
    if (bytes.size() >= Packet::kBytes && mSim->hub().takePartialRead())
        bytes.resize(bytes.size() - 5);
    return bytes;
}

void HubFileSystem::collectLocked(Outbox* out) {
    HubModel& hub = mSim->hub();
    // Pollers and parked readers learn of a new packet below, right now.
    if (mReadableLog != nullptr && hub.newestQueuedTimestamp() > mLastReadable) {
        mLastReadable = hub.newestQueuedTimestamp();
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        fprintf(mReadableLog, "%llu %lld\n", static_cast<unsigned long long>(mLastReadable),
                static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec);
    }
    for (auto it = mParked.begin(); it != mParked.end();) {
        if (it->armed && it->interrupted) {
            out->errors.emplace_back(it->req, EINTR);
            it = mParked.erase(it);
        } else {
            ++it;
        }
    }
    for (auto it = mParked.begin(); it != mParked.end() && hub.queuedPackets() > 0;) {
        if (!it->armed) {
            ++it;
            continue;
        }
        out->data.emplace_back(it->req, takePacketsLocked(it->size));
        it = mParked.erase(it);
    }
    for (auto& kv : mHandles) {
        Handle& h = kv.second;
        if (h.poll == nullptr) continue;
        Interrupt which;
        const bool ready = h.kind == Kind::Data ? hub.queuedPackets() > 0
                                                : interruptOf(h.attribute, &which) &&
                                                          hub.interruptCount(which) != h.seenEvents;
        if (ready) {
            out->wakeups.push_back(h.poll);
            h.poll = nullptr;
        }
    }
    std::vector<signal::Label> labels;
    mSim->takeLabels(&labels);
    if (mLabelsOut != nullptr && !labels.empty()) {
        std::sort(labels.begin(), labels.end(), signal::labelBefore);
        for (const signal::Label& l : labels)
            fputs(signal::LabelFile::formatLine(l).c_str(), mLabelsOut);
        fflush(mLabelsOut);
    }
    std::vector<std::string> warnings;
    mSim->takeWarnings(&warnings);
    for (const std::string& w : warnings) fprintf(stderr, "veltohub-sim: warning: %s\n", w.c_str());
}

void HubFileSystem::flush(Outbox* out) {
    for (auto& d : out->data) {
        fuse_reply_buf(d.first, reinterpret_cast<const char*>(d.second.data()), d.second.size());
    }
    for (auto& e : out->errors) fuse_reply_err(e.first, e.second);
    for (fuse_pollhandle* ph : out->wakeups) {
        fuse_lowlevel_notify_poll(ph);
        fuse_pollhandle_destroy(ph);
    }
    *out = Outbox();
}

void HubFileSystem::tick() {
    Outbox out;
    {
        std::lock_guard<std::mutex> g(mLock);
        advanceLocked();
        collectLocked(&out);
    }
    flush(&out);
}

std::chrono::nanoseconds HubFileSystem::untilNextDue() {
    using std::chrono::nanoseconds;
    const nanoseconds kMin(200000), kMax(20000000);
    std::lock_guard<std::mutex> g(mLock);
    const int64_t next = mSim->nextDueNs();
    if (next == INT64_MAX) return kMax;
    const double wall = static_cast<double>(next - simNowLocked()) / mSpeed;
    if (wall <= static_cast<double>(kMin.count())) return kMin;
    if (wall >= static_cast<double>(kMax.count())) return kMax;
    return nanoseconds(static_cast<int64_t>(wall));
}

std::string HubFileSystem::control(const std::string& line) {
    Outbox out;
    std::string reply;
    {
        std::lock_guard<std::mutex> g(mLock);
        advanceLocked();
        reply = mSim->control(line);
        collectLocked(&out);
    }
    flush(&out);
    return reply;
}

bool HubFileSystem::quitRequested() {
    std::lock_guard<std::mutex> g(mLock);
    return mSim->quitRequested();
}

void HubFileSystem::shutdown() {
    Outbox out;
    {
        std::lock_guard<std::mutex> g(mLock);
        for (const ParkedRead& p : mParked) out.errors.emplace_back(p.req, EIO);
        mParked.clear();
    }
    flush(&out);
}

// --- inodes

bool HubFileSystem::isDirectory(fuse_ino_t ino) const {
    return ino == kRoot || ino == kAttrDir || ino == kPowerDir;
}

std::vector<std::pair<std::string, fuse_ino_t>> HubFileSystem::entries(fuse_ino_t dir) const {
    std::vector<std::pair<std::string, fuse_ino_t>> e;
    if (dir == kRoot) {
        e = {{"4-0035", kAttrDir}, {"veltohub", kData}, {"power", kPowerDir}};
    } else if (dir == kAttrDir) {
        for (size_t i = 0; i < mAttributes.size(); ++i)
            e.emplace_back(mAttributes[i], kAttrBase + i);
    } else if (dir == kPowerDir) {
        e = {{"wake_lock", kWakeLock}, {"wake_unlock", kWakeUnlock}};
    }
    return e;
}

bool HubFileSystem::inodeOf(fuse_ino_t parent, const char* name, fuse_ino_t* ino) const {
    for (const auto& kv : entries(parent)) {
        if (kv.first == name) {
            *ino = kv.second;
            return true;
        }
    }
    return false;
}

void HubFileSystem::fillStat(fuse_ino_t ino, struct stat* st) const {
    memset(st, 0, sizeof(*st));
    st->st_ino = ino;
    st->st_uid = getuid();
    st->st_gid = getgid();
    st->st_atime = st->st_mtime = st->st_ctime = mStartWall;
    if (isDirectory(ino)) {
        st->st_mode = S_IFDIR | 0755;
        st->st_nlink = 2;
        return;
    }
    st->st_nlink = 1;
    if (ino == kData) {
        st->st_mode = S_IFREG | 0444;
        return;
    }
    // Attribute files claim a page, as sysfs does.
    st->st_size = 4096;
    if (ino == kWakeLock || ino == kWakeUnlock) {
        st->st_mode = S_IFREG | 0644;
        return;
    }
    HubModel::Access a = HubModel::Access::Read;
    mSim->hub().access(mAttributes[ino - kAttrBase], &a);
    st->st_mode = S_IFREG | (a == HubModel::Access::Read    ? 0444
                             : a == HubModel::Access::Write ? 0200
                                                            : 0644);
}

// --- operations

void HubFileSystem::doLookup(fuse_req_t req, fuse_ino_t parent, const char* name) {
    HubFileSystem* fs = self(req);
    fuse_ino_t ino = 0;
    if (!fs->inodeOf(parent, name, &ino)) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    fuse_entry_param e;
    memset(&e, 0, sizeof(e));
    e.ino = ino;
    e.attr_timeout = kCacheSeconds;
    e.entry_timeout = kCacheSeconds;
    {
        std::lock_guard<std::mutex> g(fs->mLock);
        fs->fillStat(ino, &e.attr);
    }
    fuse_reply_entry(req, &e);
}

void HubFileSystem::doGetattr(fuse_req_t req, fuse_ino_t ino, fuse_file_info*) {
    HubFileSystem* fs = self(req);
    struct stat st;
    {
        std::lock_guard<std::mutex> g(fs->mLock);
        if (!fs->isDirectory(ino) && ino != kData && ino != kWakeLock && ino != kWakeUnlock &&
            (ino < kAttrBase || ino >= kAttrBase + fs->mAttributes.size())) {
            fuse_reply_err(req, ENOENT);
            return;
        }
        fs->fillStat(ino, &st);
    }
    fuse_reply_attr(req, &st, kCacheSeconds);
}

void HubFileSystem::doSetattr(fuse_req_t req, fuse_ino_t ino, struct stat*, int,
                              fuse_file_info* fi) {
    // Truncation (fopen "w") and time changes mean nothing to an attribute.
    doGetattr(req, ino, fi);
}

void HubFileSystem::doOpendir(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi) {
    if (!self(req)->isDirectory(ino)) {
        fuse_reply_err(req, ENOTDIR);
        return;
    }
    fuse_reply_open(req, fi);
}

void HubFileSystem::doReaddir(fuse_req_t req, fuse_ino_t ino, size_t size, off_t off,
                              fuse_file_info*) {
    HubFileSystem* fs = self(req);
    std::vector<std::pair<std::string, fuse_ino_t>> list = {{".", ino}, {"..", kRoot}};
    for (const auto& e : fs->entries(ino)) list.push_back(e);
    std::vector<char> buf(size);
    size_t used = 0;
    for (size_t i = static_cast<size_t>(off); i < list.size(); ++i) {
        struct stat st;
        memset(&st, 0, sizeof(st));
        st.st_ino = list[i].second;
        st.st_mode = fs->isDirectory(list[i].second) ? S_IFDIR : S_IFREG;
        const size_t need =
                fuse_add_direntry(req, buf.data() + used, size - used, list[i].first.c_str(), &st,
                                  static_cast<off_t>(i + 1));
        if (need > size - used) break;
        used += need;
    }
    fuse_reply_buf(req, buf.data(), used);
}

void HubFileSystem::doOpen(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi) {
    HubFileSystem* fs = self(req);
    const int mode = fi->flags & O_ACCMODE;
    const bool wantRead = mode == O_RDONLY || mode == O_RDWR;
    const bool wantWrite = mode == O_WRONLY || mode == O_RDWR;
    Handle h;
    {
        std::lock_guard<std::mutex> g(fs->mLock);
        if (ino == kData) {
            if (wantWrite) {
                fuse_reply_err(req, EACCES);
                return;
            }
            h.kind = Kind::Data;
            fs->advanceLocked();
            fs->mSim->hub().onDeviceOpen();
        } else if (ino == kWakeLock || ino == kWakeUnlock) {
            h.kind = ino == kWakeLock ? Kind::WakeLock : Kind::WakeUnlock;
        } else if (ino >= kAttrBase && ino < kAttrBase + fs->mAttributes.size()) {
            h.kind = Kind::Attribute;
            h.attribute = fs->mAttributes[ino - kAttrBase];
            HubModel::Access a = HubModel::Access::Read;
            fs->mSim->hub().access(h.attribute, &a);
            if ((wantRead && a == HubModel::Access::Write) ||
                (wantWrite && a == HubModel::Access::Read)) {
                fuse_reply_err(req, EACCES);
                return;
            }
            // Like sysfs, a new descriptor waits for the next notification.
            Interrupt which;
            if (fs->interruptOf(h.attribute, &which))
                h.seenEvents = fs->mSim->hub().interruptCount(which);
        } else {
            fuse_reply_err(req, EISDIR);
            return;
        }
        h.nonBlocking = (fi->flags & O_NONBLOCK) != 0;
        fi->fh = fs->mNextHandle++;
        fs->mHandles[fi->fh] = h;
    }
    fi->direct_io = 1;
    fi->nonseekable = ino == kData ? 1 : 0;
    fuse_reply_open(req, fi);
}

void HubFileSystem::doRelease(fuse_req_t req, fuse_ino_t, fuse_file_info* fi) {
    HubFileSystem* fs = self(req);
    fuse_pollhandle* ph = nullptr;
    {
        std::lock_guard<std::mutex> g(fs->mLock);
        auto it = fs->mHandles.find(fi->fh);
        if (it != fs->mHandles.end()) {
            ph = it->second.poll;
            fs->mHandles.erase(it);
        }
    }
    if (ph != nullptr) fuse_pollhandle_destroy(ph);
    fuse_reply_err(req, 0);
}

void HubFileSystem::onInterrupt(fuse_req_t req, void* data) {
    HubFileSystem* fs = static_cast<HubFileSystem*>(data);
    bool reply = false;
    {
        std::lock_guard<std::mutex> g(fs->mLock);
        for (auto it = fs->mParked.begin(); it != fs->mParked.end(); ++it) {
            if (it->req != req) continue;
            // Before arming we may be inside fuse_req_interrupt_func, where a
            // reply would free the request under its feet: the reader answers
            // once it has armed.
            it->interrupted = true;
            if (it->armed) {
                fs->mParked.erase(it);
                reply = true;
            }
            break;
        }
    }
    if (reply) fuse_reply_err(req, EINTR);
}

void HubFileSystem::doRead(fuse_req_t req, fuse_ino_t, size_t size, off_t off, fuse_file_info* fi) {
    HubFileSystem* fs = self(req);
    Outbox out;
    std::string text;
    int err = 0;
    bool parked = false;
    bool queuedReply = false;  // the answer is already in the outbox
    {
        std::lock_guard<std::mutex> g(fs->mLock);
        fs->advanceLocked();
        auto it = fs->mHandles.find(fi->fh);
        if (it == fs->mHandles.end()) {
            err = EBADF;
        } else if (it->second.kind == Kind::Data) {
            HubModel& hub = fs->mSim->hub();
            if (hub.takeFailure("veltohub")) {
                err = EIO;
            } else if (size < Packet::kBytes) {
                err = EINVAL;
            } else if (hub.queuedPackets() > 0) {
                out.data.emplace_back(req, fs->takePacketsLocked(size));
                queuedReply = true;
            } else if (it->second.nonBlocking) {
                err = EAGAIN;
            } else {
                fs->mParked.push_back({req, fi->fh, size, false, false});
                parked = true;
            }
        } else {
            Handle& h = it->second;
            if (off == 0) {
                if (h.kind == Kind::Attribute) {
                    err = fs->mSim->hub().read(h.attribute, &h.snapshot);
                    Interrupt which;
                    if (err == 0 && fs->interruptOf(h.attribute, &which)) {
                        h.seenEvents = fs->mSim->hub().interruptCount(which);
                    }
                } else {
                    h.snapshot = fs->mSim->wakeLocks().listText(h.kind == Kind::WakeLock);
                }
            }
            if (err == 0) {
                const size_t from = std::min(static_cast<size_t>(off), h.snapshot.size());
                text = h.snapshot.substr(from, size);
            }
        }
        fs->collectLocked(&out);
    }
    if (parked) {
        fuse_req_interrupt_func(req, onInterrupt, fs);
        std::lock_guard<std::mutex> g(fs->mLock);
        for (auto it = fs->mParked.begin(); it != fs->mParked.end(); ++it) {
            if (it->req != req) continue;
            it->armed = true;
            if (it->interrupted) {
                out.errors.emplace_back(req, EINTR);
                fs->mParked.erase(it);
            }
            break;
        }
        fs->collectLocked(&out);
    } else if (!queuedReply) {
        if (err != 0) {
            fuse_reply_err(req, err);
        } else {
            fuse_reply_buf(req, text.data(), text.size());
        }
    }
    fs->flush(&out);
}

void HubFileSystem::doWrite(fuse_req_t req, fuse_ino_t, const char* buf, size_t size, off_t,
                            fuse_file_info* fi) {
    HubFileSystem* fs = self(req);
    Outbox out;
    int err = 0;
    {
        std::lock_guard<std::mutex> g(fs->mLock);
        fs->advanceLocked();
        auto it = fs->mHandles.find(fi->fh);
        const std::string_view text(buf, size);
        if (it == fs->mHandles.end()) {
            err = EBADF;
        } else if (it->second.kind == Kind::Attribute) {
            err = fs->mSim->hub().write(it->second.attribute, text);
        } else if (it->second.kind == Kind::WakeLock) {
            err = fs->mSim->wakeLocks().lock(text);
        } else if (it->second.kind == Kind::WakeUnlock) {
            err = fs->mSim->wakeLocks().unlock(text);
        } else {
            err = EACCES;
        }
        fs->collectLocked(&out);
    }
    if (err != 0) {
        fuse_reply_err(req, err);
    } else {
        fuse_reply_write(req, size);
    }
    fs->flush(&out);
}

void HubFileSystem::doPoll(fuse_req_t req, fuse_ino_t, fuse_file_info* fi, fuse_pollhandle* ph) {
    HubFileSystem* fs = self(req);
    Outbox out;
    unsigned revents = 0;
    fuse_pollhandle* drop = ph;
    {
        std::lock_guard<std::mutex> g(fs->mLock);
        fs->advanceLocked();
        auto it = fs->mHandles.find(fi->fh);
        if (it != fs->mHandles.end()) {
            Handle& h = it->second;
            bool waitable = false;
            if (h.kind == Kind::Data) {
                revents = fs->mSim->hub().queuedPackets() > 0 ? (POLLIN | POLLRDNORM) : 0;
                waitable = revents == 0;
            } else {
                revents = kDefaultPollMask;
                Interrupt which;
                if (h.kind == Kind::Attribute && fs->interruptOf(h.attribute, &which)) {
                    const bool raised = fs->mSim->hub().interruptCount(which) != h.seenEvents;
                    if (raised) revents |= POLLPRI | POLLERR;
                    waitable = !raised;
                }
            }
            // Keep the handle to wake the poller when something happens. The
            // kernel keys every handle of a file alike, so a new one replaces
            // the old without a notification: notifying it would wake the very
            // poller that is asking now, which polls again at once, for ever.
            if (waitable && ph != nullptr) {
                drop = h.poll;
                h.poll = ph;
            }
        }
        fs->collectLocked(&out);
    }
    if (drop != nullptr) fuse_pollhandle_destroy(drop);
    fuse_reply_poll(req, revents);
    fs->flush(&out);
}

const fuse_lowlevel_ops* HubFileSystem::operations() {
    static const fuse_lowlevel_ops ops = [] {
        fuse_lowlevel_ops o;
        memset(&o, 0, sizeof(o));
        o.lookup = doLookup;
        o.getattr = doGetattr;
        o.setattr = doSetattr;
        o.opendir = doOpendir;
        o.readdir = doReaddir;
        o.open = doOpen;
        o.release = doRelease;
        o.read = doRead;
        o.write = doWrite;
        o.poll = doPoll;
        return o;
    }();
    return &ops;
}

}  // namespace hubsim
}  // namespace velto
