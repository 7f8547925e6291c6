#include "classifier/TextFile.h"

#include <errno.h>
#include <log/log.h>
#include <string.h>

#include "veltoutils/Paths.h"
#include "veltoutils/Utils.h"

namespace velto {

FILE* TextFile::openForRead(const char* tag, const char* path) {
    const android::String8 resolved = Paths::resolve(path);
    FILE* file = path != nullptr ? fopen(resolved.string(), "rt") : nullptr;
    if (file == nullptr) __android_log_print(ANDROID_LOG_ERROR, tag, "Can not open file %s.", resolved.string());
    return file;
}

FILE* TextFile::openForWrite(const char* tag, const char* path) {
    const android::String8 resolved = Paths::resolve(path);
    if (path == nullptr || !Utils::ensurePathExists(resolved.string(), false)) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "Can not create parent folder for file: %s", resolved.string());
        return nullptr;
    }
    FILE* file = fopen(resolved.string(), "wt");
    if (file == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "Can not open file %s for write: %s", resolved.string(),
                            strerror(errno));
    }
    return file;
}

}  // namespace velto
