#ifndef VELTO_PATHS_H
#define VELTO_PATHS_H

#include <utils/String8.h>

namespace velto {

// The one place where a device path becomes the path actually opened.
//
// On a device VELTOGAZE_ROOT is unset and every path is used as it stands. On
// a host it names a directory that stands in for "/" (the hub simulator mounts
// its files there), and every absolute device path is opened below it. The
// variable is read once, on first use.
class Paths {
public:
    // The root prefix without a trailing '/', or empty.
    static const android::String8& root();

    // Absolute paths get the root prefix; relative paths are returned as they
    // are. A path that already lies below the root is left alone, so a path
    // may be resolved again on its way through several layers.
    static android::String8 resolve(const char* path);
    static android::String8 resolve(const android::String8& path) { return resolve(path.string()); }

private:
    Paths() = delete;
};

}  // namespace velto

#endif  // VELTO_PATHS_H
