#include "service/GazeRecord.h"

namespace velto {

const GazeRecord GazeRecord::kInvalidInstance;

GazeRecord::GazeRecord()
    : mIsValid(false), mProxData(ProxData::kInvalidInstance), mDetectorResponse(kInvalidDetectorResponse) {}

GazeRecord::GazeRecord(const ProxData& data, int detectorResponse)
    : mIsValid(true), mProxData(data), mDetectorResponse(detectorResponse) {}

GazeRecord::GazeRecord(const GazeRecord& other)
    : mIsValid(other.mIsValid), mProxData(other.mProxData), mDetectorResponse(other.mDetectorResponse) {}

GazeRecord& GazeRecord::operator=(const GazeRecord& other) {
    if (this != &other) {
        mIsValid = other.mIsValid;
        mProxData = other.mProxData;
        mDetectorResponse = other.mDetectorResponse;
    }
    return *this;
}

void GazeRecord::dump(android::String8& out) const {
    mProxData.dump(out);
    out.appendFormat(" %d", mDetectorResponse != kInvalidDetectorResponse ? 1 : 0);
}

}  // namespace velto
