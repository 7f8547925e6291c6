#ifndef VELTO_GAZE_RECORD_H
#define VELTO_GAZE_RECORD_H

#include <stdint.h>
#include <utils/String8.h>

#include "proxdata/ProxData.h"

namespace velto {

// One sample together with the detector's answer for it.
class GazeRecord {
public:
    // The detector's answer when it detected nothing.
    static constexpr int kInvalidDetectorResponse = -1;
    // A shared invalid record (no sample, no answer).
    static const GazeRecord kInvalidInstance;

    GazeRecord();
    GazeRecord(const ProxData& data, int detectorResponse);
    GazeRecord(const GazeRecord& other);
    GazeRecord& operator=(const GazeRecord& other);
    virtual ~GazeRecord() {}

    bool isValid() const { return mIsValid; }

    // Appends the sample's dump and " 1" when the detector answered, else " 0".
    // Log readers expect this flag column, never the answer itself.
    void dump(android::String8& out) const;

    bool mIsValid;
    ProxData mProxData;
    int32_t mDetectorResponse;
};

}  // namespace velto

#endif  // VELTO_GAZE_RECORD_H
