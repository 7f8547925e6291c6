#include "veltoutils/Paths.h"

#include <stdlib.h>
#include <string.h>

namespace velto {

namespace {

android::String8 readRoot() {
    const char* env = getenv("VELTOGAZE_ROOT");
    android::String8 root(env != nullptr ? env : "");
    // "/" and "dir/" mean the same as "" and "dir".
    while (root.length() > 0 && root.string()[root.length() - 1] == '/') {
        root.setTo(root.string(), root.length() - 1);
    }
    return root;
}

}  // namespace

const android::String8& Paths::root() {
    static const android::String8 sRoot = readRoot();
    return sRoot;
}

android::String8 Paths::resolve(const char* path) {
    if (path == nullptr) return android::String8();
    const android::String8& prefix = root();
    if (prefix.length() == 0 || path[0] != '/') return android::String8(path);
    const size_t n = prefix.length();
    if (strncmp(path, prefix.string(), n) == 0 && (path[n] == '/' || path[n] == '\0')) {
        return android::String8(path);
    }
    android::String8 out(prefix);
    out.append(path);
    return out;
}

}  // namespace velto
