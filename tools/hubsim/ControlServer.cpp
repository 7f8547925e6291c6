#include "tools/hubsim/ControlServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "tools/hubsim/ControlClient.h"

namespace velto {
namespace hubsim {

namespace {
const size_t kMaxLine = 4096;

bool writeAll(int fd, const std::string& s) {
    size_t done = 0;
    while (done < s.size()) {
        const ssize_t n = send(fd, s.data() + done, s.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}
}  // namespace

ControlServer::~ControlServer() {
    stop();
}

bool ControlServer::start(const std::string& path, Handler handler, std::string* error) {
    sockaddr_un addr;
    if (!ControlClient::socketAddress(path, &addr, error)) return false;
    struct stat st;
    if (lstat(path.c_str(), &st) == 0) {
        if (!S_ISSOCK(st.st_mode)) {
            *error = path + " exists and is not a socket";
            return false;
        }
        unlink(path.c_str());
    }
    mListen = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (mListen < 0 || bind(mListen, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
        listen(mListen, 8) != 0 || pipe2(mWake, O_CLOEXEC) != 0) {
        *error = "cannot listen on " + path + ": " + strerror(errno);
        if (mListen >= 0) close(mListen);
        mListen = -1;
        return false;
    }
    mPath = path;
    mHandler = std::move(handler);
    mThread = std::thread([this] { serve(); });
    return true;
}

void ControlServer::stop() {
    if (mThread.joinable()) {
        const char c = 'q';
        if (write(mWake[1], &c, 1) < 0) {
            // The thread is gone already; nothing to wake.
        }
        mThread.join();
    }
    for (auto& kv : mClients) close(kv.first);
    mClients.clear();
    for (int& fd : mWake) {
        if (fd >= 0) close(fd);
        fd = -1;
    }
    if (mListen >= 0) {
        close(mListen);
        mListen = -1;
        unlink(mPath.c_str());
    }
}

void ControlServer::serve() {
    while (true) {
        std::vector<pollfd> fds = {{mWake[0], POLLIN, 0}, {mListen, POLLIN, 0}};
        for (const auto& kv : mClients) fds.push_back({kv.first, POLLIN, 0});
        if (poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[0].revents != 0) return;
        if (fds[1].revents & POLLIN) {
            const int c = accept4(mListen, nullptr, nullptr, SOCK_CLOEXEC);
            if (c >= 0) mClients[c] = std::string();
        }
        for (size_t i = 2; i < fds.size(); ++i) {
            if (fds[i].revents == 0) continue;
            const int fd = fds[i].fd;
            char buf[512];
            const ssize_t n = recv(fd, buf, sizeof(buf), 0);
            bool drop = n <= 0;
            std::string& pending = mClients[fd];
            if (n > 0) pending.append(buf, static_cast<size_t>(n));
            size_t eol;
            while (!drop && (eol = pending.find('\n')) != std::string::npos) {
                std::string line = pending.substr(0, eol);
                pending.erase(0, eol + 1);
                if (!line.empty() && line.back() == '\r') line.pop_back();
                drop = !writeAll(fd, mHandler(line) + "\n");
            }
            if (!drop && pending.size() > kMaxLine) {
                writeAll(fd, "ERR line too long\n");
                drop = true;
            }
            if (drop) {
                close(fd);
                mClients.erase(fd);
            }
        }
    }
}

}  // namespace hubsim
}  // namespace velto
