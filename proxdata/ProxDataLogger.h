#ifndef VELTO_PROXDATA_LOGGER_H
#define VELTO_PROXDATA_LOGGER_H

#include <stdio.h>
#include <utils/Mutex.h>
#include <utils/String8.h>

#include "proxdata/ProxData.h"
#include "sensor/ProximitySensorInterface.h"

namespace velto {

// Writes the raw-data log: "# " comment lines (the header), then one line per
// sample, "<time stamp ns> <reading> <flag>". Registered as a data listener
// while a log is open; samples arrive on the sensor thread while the service
// opens and closes the file from a client thread, so the file is guarded by a
// lock of its own that is never held while calling out.
class ProxDataLogger : public virtual ProximitySensorInterface::ProxDataListener {
public:
    static const char kLogDirectory[];

    ProxDataLogger();
    virtual ~ProxDataLogger();

    // Opens "<log directory>/<fileName>" for writing (truncating); an empty
    // name makes one from the device ID and the epoch time in ns.
    bool open(const android::String8& fileName);
    bool open() { return open(android::String8("")); }
    bool close();
    bool isOpen() const;

    bool writeComment(const android::String8& text);
    bool writePacket(const ProxData& data);

    // Writes the sample while a log is open; drops it silently otherwise.
    virtual void onProxData(const ProxData& data);

    // The path of the open file as it was opened; empty when closed.
    android::String8 getOpenPath() const;

private:
    bool writePacket_l(const ProxData& data);

    mutable android::Mutex mLock;
    FILE* mFile;
    android::String8 mFileName;
    android::String8 mOpenPath;
};

}  // namespace velto

#endif  // VELTO_PROXDATA_LOGGER_H
