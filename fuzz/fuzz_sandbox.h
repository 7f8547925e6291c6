#ifndef VELTO_FUZZ_SANDBOX_H
#define VELTO_FUZZ_SANDBOX_H

#include <android/log.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

// A private root for the file loaders under fuzz: VELTOGAZE_ROOT points at a
// fresh temporary directory, so absolute names in fuzzed list files stay
// inside it, and stdin reads nothing. Inputs that climb out with ".." are
// skipped by the targets. Log lines are formatted as always but not printed.
namespace velto {
namespace fuzz {

inline const std::string& sandboxRoot() {
    static const std::string root = [] {
        char dirTemplate[] = "/tmp/velto-fuzz-XXXXXX";
        const char* dir = mkdtemp(dirTemplate);
        if (dir == nullptr) abort();
        setenv("VELTOGAZE_ROOT", dir, 1);
        const int devNull = open("/dev/null", O_RDONLY);
        if (devNull >= 0) dup2(devNull, 0);
        __android_log_set_logger([](const struct __android_logger_data*, const char*) {});
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        return std::string(dir);
    }();
    return root;
}

// Writes `size` bytes to the device path (below the root); false on failure.
inline bool writeUnderRoot(const std::string& devicePath, const void* data, size_t size) {
    FILE* f = fopen((sandboxRoot() + devicePath).c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = fwrite(data, 1, size, f) == size;
    return fclose(f) == 0 && ok;
}

inline bool climbsOut(const uint8_t* data, size_t size) {
    return memmem(data, size, "..", 2) != nullptr;
}

// For the list-file targets: writes the input up to a line "----" as the list
// file `listPath`, the rest as the detector file "/f.txt", and a valid
// detector "/a.txt" for lists to name. False for inputs that climb out of the
// root or when a file cannot be written.
inline bool writeListAndDetectors(const uint8_t* data, size_t size, const char* listPath) {
    static const char kGoodDetector[] = "1 4 0.0 0\n1 0.0\n0 3 1 100 0 1 1.0 50\n";
    sandboxRoot();
    if (climbsOut(data, size)) return false;
    static const bool ready = writeUnderRoot("/a.txt", kGoodDetector, strlen(kGoodDetector));
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find("----\n");
    const std::string list = input.substr(0, split);
    const std::string detector = split == std::string::npos ? std::string() : input.substr(split + 5);
    return ready && writeUnderRoot("/f.txt", detector.data(), detector.size()) &&
           writeUnderRoot(listPath, list.data(), list.size());
}

}  // namespace fuzz
}  // namespace velto

#endif  // VELTO_FUZZ_SANDBOX_H
