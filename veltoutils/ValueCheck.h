#ifndef VELTO_VALUE_CHECK_H
#define VELTO_VALUE_CHECK_H

namespace velto {

// Sense checks on values read from a file or computed from samples, made
// before the values are used or sent to the hub. The first refused value is
// logged as one error line under the caller's tag, naming the source (a file
// path or a computation), the field and the value:
//   "Refused DON_THRESH = -1 in /data/system/gaze/gaze_params.txt: not within 0 to 65535"
// Later refusals for the same source only answer false, so that one bad file
// costs one line. A caller chains its checks and asks ok() at the end.
class ValueCheck {
public:
    ValueCheck(const char* tag, const char* source);

    // A finite number.
    bool finite(const char* field, double value);
    // A finite number above 0.
    bool positive(const char* field, double value);
    // A finite number in [lo, hi].
    bool within(const char* field, double value, double lo, double hi);
    // A range [lo, hi] of finite numbers with lo <= hi.
    bool ordered(const char* field, double lo, double hi);
    // Refuses a value for a reason of the caller's own; always false.
    bool refuse(const char* field, const char* valueText, const char* reason);

    bool ok() const { return mOk; }

private:
    const char* mTag;
    const char* mSource;
    bool mOk;
};

}  // namespace velto

#endif  // VELTO_VALUE_CHECK_H
