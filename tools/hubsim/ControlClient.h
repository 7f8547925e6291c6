#ifndef VELTO_HUBSIM_CONTROLCLIENT_H
#define VELTO_HUBSIM_CONTROLCLIENT_H

#include <sys/un.h>

#include <string>

namespace velto {
namespace hubsim {

// A client of veltohub-sim's control socket: one command line out, one reply
// line back.
class ControlClient {
public:
    ControlClient() = default;
    ~ControlClient() { close(); }
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    bool connect(const std::string& socketPath, std::string* error);
    bool connected() const { return mFd >= 0; }
    // The reply without its newline; "ERR ..." when the simulator cannot be
    // reached or does not answer within `timeoutMs` (the connection is then
    // closed).
    std::string command(const std::string& line, int timeoutMs = 10000);
    void close();

    // The socket address of `path`; false when the path does not fit.
    static bool socketAddress(const std::string& path, sockaddr_un* addr, std::string* error);

private:
    int mFd = -1;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_CONTROLCLIENT_H
