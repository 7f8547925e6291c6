#ifndef VELTO_UTILS_H
#define VELTO_UTILS_H

#include <stdint.h>
#include <utils/String8.h>

namespace velto {

// A boolean that may also be unknown, for states read back from hardware.
enum TriStateBool {
    TRI_STATE_FALSE = 0,
    TRI_STATE_TRUE = 1,
    TRI_STATE_UNKNOWN = 2,
};

// Small helpers shared by the library and its tools. The file helpers take
// device paths and open them below the root prefix (Paths::resolve); they keep
// errno from the failing call so that callers can report it.
class Utils {
public:
    // The device serial number (property ro.serialno; VELTOGAZE_SERIAL on host
    // builds); its first letter is the hardware revision. Empty when unreadable.
    static android::String8 getVeltoSerialNumber();

    // An identifier of this device that is safe inside a file name: the serial
    // number with anything but letters, digits, '-' and '_' replaced by '_', or
    // "unknown" when the serial number cannot be read.
    static android::String8 getDeviceID();

    // Wall-clock time since the epoch, in nanoseconds.
    static int64_t getEpochTimeNanos();
    // Local wall-clock time, e.g. "2026-11-22 03:14:20.123 +0000".
    static android::String8 getEpochTimeHumanReadableString();

    static TriStateBool toTriStateBool(bool value) { return value ? TRI_STATE_TRUE : TRI_STATE_FALSE; }
    static const char* triStateBoolToString(TriStateBool value);

    // Creates the missing directories of `path`: of the path itself when
    // `isDirectory`, else of its parent. True when the directory exists after.
    static bool ensurePathExists(const char* path, bool isDirectory);
    static bool doesFileExist(const char* path);

    // Reads the whole file into `out` (which may be null). Returns 0, or a
    // negative errno value; `logErrors` false leaves the message to the caller.
    static int readFileContents(const char* path, bool logErrors, android::String8* out);

    // Writes `value` with one write() call, as a kernel attribute expects. The
    // file must exist unless `create`.
    // Returns 0, or a negative errno value.
    static int writeStringToFile(const char* path, const android::String8& value, bool create = false);

    // Removes every trailing '\n'.
    static android::String8 stripTrailingNewlines(const android::String8& text);

private:
    Utils() = delete;
};

}  // namespace velto

#endif  // VELTO_UTILS_H
