#ifndef VELTO_HUBSIM_CONTROLSERVER_H
#define VELTO_HUBSIM_CONTROLSERVER_H

#include <functional>
#include <map>
#include <string>
#include <thread>

namespace velto {
namespace hubsim {

// The control socket: a unix stream socket where each line is a command and
// each command gets exactly one reply line. Any number of clients may be
// connected; one thread serves them all, a line at a time.
class ControlServer {
public:
    using Handler = std::function<std::string(const std::string& line)>;

    ~ControlServer();
    // Binds `path` (replacing a stale socket file there) and starts serving.
    bool start(const std::string& path, Handler handler, std::string* error);
    void stop();

private:
    void serve();

    std::string mPath;
    Handler mHandler;
    int mListen = -1;
    int mWake[2] = {-1, -1};
    std::thread mThread;
    std::map<int, std::string> mClients;  // descriptor -> partial line
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_CONTROLSERVER_H
