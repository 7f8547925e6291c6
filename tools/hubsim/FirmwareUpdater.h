#ifndef VELTO_HUBSIM_FIRMWAREUPDATER_H
#define VELTO_HUBSIM_FIRMWAREUPDATER_H

#include <string>
#include <string_view>

#include "tools/hubsim/FirmwareImage.h"

namespace velto {
namespace hubsim {

// The hub's download session: `update_fw_enable` "1" opens it, the image
// arrives as S-record text through `update_fw_data` in pieces of any size
// (a line may be split across writes), and "0" flashes it or "254" compares
// it with the installed image. The outcome is a status code, shown by
// `flash_status`.
class FirmwareUpdater {
public:
    enum Status {
        kOk = 0,
        kReceiving = 1,       // a session is open
        kBadRecord = 2,       // a line is not an S-record, or its length is wrong
        kBadChecksum = 3,     // a record's checksum does not match
        kNoVersion = 4,       // flashing an image without the version record
        kVerifyMismatch = 5,  // the data differs from the installed image
        kNotOpen = 6,         // "0" or "254" without "1" first
    };

    bool receiving() const { return mReceiving; }
    void open();
    // Takes a piece of text; false when no session is open.
    bool feed(std::string_view text);
    // Ends the session: flash (true) or verify (false) against `installed`,
    // which a successful flash replaces. Returns the status.
    int finish(bool flash, FirmwareImage* installed);

private:
    void takeLine(std::string_view line);

    bool mReceiving = false;
    int mError = kOk;
    std::string mPending;
    FirmwareImage mImage;
};

}  // namespace hubsim
}  // namespace velto

#endif  // VELTO_HUBSIM_FIRMWAREUPDATER_H
