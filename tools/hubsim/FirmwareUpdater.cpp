#include "tools/hubsim/FirmwareUpdater.h"

#include "tools/hubsim/SRecord.h"

namespace velto {
namespace hubsim {

void FirmwareUpdater::open() {
    mReceiving = true;
    mError = kOk;
    mPending.clear();
    mImage = FirmwareImage();
}

bool FirmwareUpdater::feed(std::string_view text) {
    if (!mReceiving) return false;
    for (char c : text) {
        if (c == '\n') {
            takeLine(mPending);
            mPending.clear();
        } else if (mPending.size() < 1024) {
            mPending.push_back(c);
        } else {
            mError = mError == kOk ? kBadRecord : mError;  // no record is that long
        }
    }
    return true;
}

void FirmwareUpdater::takeLine(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) return;
    SRecord r;
    const SRecord::Status s = SRecord::parse(line, &r);
    // The first error is the one reported.
    if (s != SRecord::Status::Ok) {
        if (mError == kOk) mError = s == SRecord::Status::BadChecksum ? kBadChecksum : kBadRecord;
        return;
    }
    if (r.type >= 1 && r.type <= 3) {
        for (size_t i = 0; i < r.data.size(); ++i)
            mImage.setByte(r.address + static_cast<uint32_t>(i), r.data[i]);
    }
}

int FirmwareUpdater::finish(bool flash, FirmwareImage* installed) {
    if (!mReceiving) return kNotOpen;
    if (!mPending.empty()) takeLine(mPending);
    mPending.clear();
    mReceiving = false;
    if (mError != kOk) return mError;
    if (!flash) return mImage == *installed ? kOk : kVerifyMismatch;
    int major = 0, minor = 0;
    if (!mImage.version(&major, &minor)) return kNoVersion;
    *installed = mImage;
    return kOk;
}

}  // namespace hubsim
}  // namespace velto
