#include "tools/gazectl/SimControl.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace velto {
namespace gazectl {

SimControl::~SimControl() {
    if (mFd >= 0) close(mFd);
}

bool SimControl::connect(const std::string& socketPath, std::string* error) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof(addr.sun_path)) {
        *error = "control socket path too long: " + socketPath;
        return false;
    }
    strncpy(addr.sun_path, socketPath.c_str(), sizeof(addr.sun_path) - 1);
    mFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (mFd < 0 || ::connect(mFd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        *error = "cannot connect to " + socketPath + ": " + strerror(errno);
        return false;
    }
    return true;
}

std::string SimControl::command(const std::string& line) {
    if (mFd < 0) return "ERR not connected";
    const std::string out = line + "\n";
    if (write(mFd, out.data(), out.size()) != static_cast<ssize_t>(out.size())) return "ERR write failed";
    for (;;) {
        size_t newline = mPending.find('\n');
        if (newline != std::string::npos) {
            std::string reply = mPending.substr(0, newline);
            mPending.erase(0, newline + 1);
            return reply;
        }
        char buffer[256];
        ssize_t n = read(mFd, buffer, sizeof(buffer));
        if (n <= 0) return "ERR simulator closed the connection";
        mPending.append(buffer, static_cast<size_t>(n));
    }
}

}  // namespace gazectl
}  // namespace velto
