#include "proxdata/ProxData.h"

namespace velto {

// Constant-initialised, so other statics may copy it during start-up.
const ProxData ProxData::kInvalidInstance(0xFFFFFFFFu, -1);

void ProxData::dump(android::String8& out) const {
    out.appendFormat(kDumpFormat, static_cast<long long>(mTimestampNanos), static_cast<int>(mData & kValueMask),
                     (mData & kFlagMask) != 0 ? '1' : '0');
}

android::String8 ProxData::toString() const {
    android::String8 out;
    dump(out);
    return out;
}

}  // namespace velto
