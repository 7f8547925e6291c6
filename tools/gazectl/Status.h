#ifndef VELTO_GAZECTL_STATUS_H
#define VELTO_GAZECTL_STATUS_H

#include <nlohmann/json.hpp>
#include <string>

namespace velto {
namespace gazectl {

// `gazectl status`: what a person bringing the service up needs to know,
// read from the hub's files and the stored calibrations without starting the
// service (so nothing is flashed, streamed or written).
class Status {
public:
    // Everything as one JSON object; "hub"/"present" is false without a hub.
    static nlohmann::json gather();
    // The same for a person.
    static std::string toText(const nlohmann::json& status);
};

}  // namespace gazectl
}  // namespace velto

#endif  // VELTO_GAZECTL_STATUS_H
