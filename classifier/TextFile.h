#ifndef VELTO_TEXT_FILE_H
#define VELTO_TEXT_FILE_H

#include <stdio.h>
#include <utils/String8.h>

namespace velto {

// Opening the detector, list and calibration files: below the root prefix,
// with the one log line (under the caller's tag) that names the path actually
// opened when it fails.
class TextFile {
public:
    // Mode "rt"; logs "Can not open file %s.".
    static FILE* openForRead(const char* tag, const char* path);
    // Mode "wt", parent directories created; logs "Can not create parent
    // folder for file: %s" or "Can not open file %s for write: %s".
    static FILE* openForWrite(const char* tag, const char* path);

private:
    TextFile() = delete;
};

}  // namespace velto

#endif  // VELTO_TEXT_FILE_H
