#ifndef VELTO_ATOMIC_FILE_H
#define VELTO_ATOMIC_FILE_H

#include <utils/String8.h>

namespace velto {

// Replaces a small file so that readers see either the old contents or the
// new ones, never a truncated mix, even when the disk fills up or the power
// fails half-way: the new contents go to a temporary file in the same
// directory, are flushed to the disk, and the temporary file is renamed over
// the target.
//
// The two steps are separate so that a caller can stage a file, do work that
// may still fail (write the values to the hub), and only then commit or
// discard. A staged file that is neither is discarded by the destructor.
class AtomicFile {
public:
    // `path` is a device path; it is opened below the root prefix.
    explicit AtomicFile(const char* path);
    ~AtomicFile();

    // Creates the missing parent directories and writes `contents` to a new
    // temporary file beside the target, flushed to the disk. The target is not
    // touched. On failure nothing is left behind and errno tells why.
    bool stage(const android::String8& contents);
    // Renames the staged file over the target. On failure the target keeps its
    // old contents, the staged file is removed and errno tells why.
    bool commit();
    // Removes the staged file, if any.
    void discard();

    // Which step of the last stage() or commit() failed, for callers that
    // report opening and writing apart.
    enum Step { NONE, CREATE, WRITE, RENAME };
    Step failedStep() const { return mFailedStep; }

    // The path actually written (with the root prefix).
    const android::String8& path() const { return mPath; }

    // stage() and commit() in one.
    static bool write(const char* path, const android::String8& contents);

private:
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    android::String8 mPath;
    android::String8 mTempPath;  // empty while nothing is staged
    Step mFailedStep;
};

}  // namespace velto

#endif  // VELTO_ATOMIC_FILE_H
