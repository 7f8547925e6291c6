#ifndef VELTO_COMMAND_INTERFACE_H
#define VELTO_COMMAND_INTERFACE_H

#include <utils/String8.h>

namespace velto {

// A unit of deferred work that a client thread queues for the sensor's event
// thread, which runs it once and deletes it.
class CommandInterface {
public:
    virtual ~CommandInterface() {}
    virtual android::String8 toString() const = 0;
    virtual void execute() = 0;
};

}  // namespace velto

#endif  // VELTO_COMMAND_INTERFACE_H
