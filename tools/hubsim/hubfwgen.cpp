// hubfwgen: writes the firmware image of the simulated hub.
//
//   hubfwgen MAJOR.MINOR OUT.s19
//
// The image is S-record text with the version record at 0x8480; the build
// runs this once and the simulator ships the result as veltohub.s19.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/hubsim/FirmwareImage.h"

int main(int argc, char** argv) {
    int major = 0, minor = 0;
    char extra = 0;
    if (argc != 3 || sscanf(argv[1], "%d.%d%c", &major, &minor, &extra) != 2 || major < 0 ||
        major > 255 || minor < 0 || minor > 255) {
        fprintf(stderr, "usage: hubfwgen MAJOR.MINOR OUT.s19\n");
        return 2;
    }
    const std::string text = velto::hubsim::FirmwareImage::make(major, minor).toText();
    FILE* f = fopen(argv[2], "w");
    if (f == nullptr || fwrite(text.data(), 1, text.size(), f) != text.size() || fclose(f) != 0) {
        fprintf(stderr, "hubfwgen: cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
