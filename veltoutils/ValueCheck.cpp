#include "veltoutils/ValueCheck.h"

#include <log/log.h>
#include <math.h>
#include <stdio.h>

namespace velto {

ValueCheck::ValueCheck(const char* tag, const char* source)
    : mTag(tag), mSource(source != nullptr ? source : "(null)"), mOk(true) {}

bool ValueCheck::finite(const char* field, double value) {
    if (isfinite(value)) return true;
    char text[32];
    snprintf(text, sizeof(text), "%g", value);
    return refuse(field, text, "not a finite number");
}

bool ValueCheck::positive(const char* field, double value) {
    if (!finite(field, value)) return false;
    if (value > 0.0) return true;
    char text[32];
    snprintf(text, sizeof(text), "%g", value);
    return refuse(field, text, "not above 0");
}

bool ValueCheck::within(const char* field, double value, double lo, double hi) {
    if (!finite(field, value)) return false;
    if (value >= lo && value <= hi) return true;
    char text[32];
    char reason[96];
    snprintf(text, sizeof(text), "%g", value);
    snprintf(reason, sizeof(reason), "not within %g to %g", lo, hi);
    return refuse(field, text, reason);
}

bool ValueCheck::ordered(const char* field, double lo, double hi) {
    char text[72];
    snprintf(text, sizeof(text), "[%g, %g]", lo, hi);
    if (!isfinite(lo) || !isfinite(hi)) return refuse(field, text, "not a finite range");
    if (lo > hi) return refuse(field, text, "reversed range");
    return true;
}

bool ValueCheck::refuse(const char* field, const char* valueText, const char* reason) {
    if (mOk) {
        __android_log_print(ANDROID_LOG_ERROR, mTag, "Refused %s = %s in %s: %s", field, valueText, mSource, reason);
    }
    mOk = false;
    return false;
}

}  // namespace velto
