#include "modules/GazeServiceModuleCommon.h"

#include "service/GazeService.h"

namespace velto {

int64_t timeoutMillisToSamples(int timeoutMillis) {
    // In single precision and truncated toward zero: 1000 ms give 32 samples,
    // 31 ms give none.
    return static_cast<int64_t>(static_cast<float>(timeoutMillis) * GazeService::kExpectedDataRateHertz / 1000.0f);
}

}  // namespace velto
