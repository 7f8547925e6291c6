#ifndef VELTO_PROXDATA_BUFFER_H
#define VELTO_PROXDATA_BUFFER_H

#include <utils/String8.h>

#include "proxdata/CircularBuffer.h"
#include "proxdata/ProxData.h"
#include "service/GazeRecord.h"

namespace velto {

// The recent samples of a module, each with the detector's answer to it, kept
// for dumps and logs. Newest at delay 0.
class ProxDataBuffer {
public:
    explicit ProxDataBuffer(unsigned int capacity);
    virtual ~ProxDataBuffer() {}

    void addPacket(const ProxData& data, int detectorResponse);
    // An invalid record that marks a point in the stream (e.g. a mode change).
    void addMarkerPacket();

    // The record at `delay` (0 = newest); the invalid record when out of range.
    const GazeRecord& getRecordAtDelay(int delay) const;
    int getNumPackets() const { return static_cast<int>(mRecords.size()); }
    void clear() { mRecords.clear(); }

    // Appends every record, newest first, one per line.
    void dump(android::String8& out) const;
    // Logs the readings and time stamps of delays [fromDelay, toDelay), newest first.
    void log(int fromDelay, int toDelay) const;

private:
    CircularBuffer<GazeRecord> mRecords;
};

}  // namespace velto

#endif  // VELTO_PROXDATA_BUFFER_H
