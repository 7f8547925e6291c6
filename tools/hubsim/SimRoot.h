#ifndef VELTO_HUBSIM_SIMROOT_H
#define VELTO_HUBSIM_SIMROOT_H

#include <string>
#include <vector>

namespace velto {
namespace hubsim {

// The directory that stands in for "/" for the library (VELTOGAZE_ROOT): the
// simulator mounts its file system at ROOT/.veltohub and links the device
// paths to it, and prepares the real directories the library reads and
// writes.
class SimRoot {
public:
    static constexpr const char* kAttributeDir = "/sys/devices/platform/omap_i2c.4/i2c-4/4-0035";
    // How the simulator's mounts show in /proc/self/mountinfo.
    static constexpr const char* kFileSystemType = "fuse.veltohub-sim";

    // Takes `root` for a simulator: creates it when missing; refuses one that
    // is a mount point or holds anything but what a simulator that exited
    // cleanly leaves behind (its real directories, without links or mount
    // point). Sets `absolute` to its real path.
    static bool claim(const std::string& root, std::string* absolute, std::string* error);
    // The same checks as claim() without creating anything.
    static bool isUsable(const std::string& root, std::string* error);
    static std::string mountPoint(const std::string& absoluteRoot) {
        return absoluteRoot + "/.veltohub";
    }
    // Lays out the tree once the file system is mounted: directories, the
    // detector files copied from `gazeEtc` (if it exists), the firmware image
    // and the links into the mount.
    static bool populate(const std::string& absoluteRoot, const std::string& gazeEtc,
                         const std::string& firmware, std::string* error);
    // Removes the links and the mount point (after unmounting); the files the
    // library wrote stay.
    static void depopulate(const std::string& absoluteRoot);
    // Whether `path` is a mount point of this process's mount namespace.
    static bool isMountPoint(const std::string& absolutePath);
    // Detaches the mounts of simulators that died together with their
    // unmount helper (a test runner killing a whole process tree does that):
    // only mounts of this file system type whose connection is gone. Returns
    // the mount points it detached.
    static std::vector<std::string> sweepDeadMounts();

private:
    SimRoot() = delete;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_SIMROOT_H
