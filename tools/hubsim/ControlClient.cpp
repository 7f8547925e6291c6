#include "tools/hubsim/ControlClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace velto {
namespace hubsim {

bool ControlClient::socketAddress(const std::string& path, sockaddr_un* addr, std::string* error) {
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr->sun_path)) {
        *error = "control socket path too long: " + path;
        return false;
    }
    memcpy(addr->sun_path, path.c_str(), path.size());
    return true;
}

bool ControlClient::connect(const std::string& socketPath, std::string* error) {
    close();
    sockaddr_un addr;
    if (!socketAddress(socketPath, &addr, error)) return false;
    mFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (mFd < 0 || ::connect(mFd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        *error = "cannot connect to " + socketPath + ": " + strerror(errno);
        close();
        return false;
    }
    return true;
}

void ControlClient::close() {
    if (mFd >= 0) ::close(mFd);
    mFd = -1;
}

std::string ControlClient::command(const std::string& line, int timeoutMs) {
    if (mFd < 0) return "ERR not connected";
    const std::string out = line + "\n";
    if (send(mFd, out.data(), out.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(out.size())) {
        close();
        return "ERR send failed";
    }
    std::string reply;
    while (true) {
        pollfd p = {mFd, POLLIN, 0};
        const int r = poll(&p, 1, timeoutMs);
        if (r < 0 && errno == EINTR) continue;
        char c;
        if (r <= 0 || recv(mFd, &c, 1, 0) != 1) break;
        if (c == '\n') return reply;
        reply.push_back(c);
    }
    close();
    return "ERR no reply";
}

}  // namespace hubsim
}  // namespace velto
