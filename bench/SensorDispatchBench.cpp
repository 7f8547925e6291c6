// Per-sample cost of the sensor's data path on the event thread: the device
// read (one read() per 64 packets), the history ring, the listener snapshot
// and the delivery to 1 or 4 listeners. The data device is /dev/zero, so every
// packet is a zero sample, which a listener with horizon 0 receives.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include "bench/AllocationCounter.h"
#include "sensor/VeltohubTestHub.h"

namespace velto {
namespace {

struct Sink : public ProximitySensorInterface::ProxDataListener {
    int64_t sum = 0;
    void onProxData(const ProxData& data) override { sum += data.mData; }
};

void BM_SensorDispatch(benchmark::State& state) {
    test::PlainFileHub hub;
    test::PlainFileHub::set("current_timestamp", "0");
    const std::string device = test::underRoot(VeltohubProximitySensor::kDataDevicePath);
    test::makeDirs(device.substr(0, device.rfind('/')));
    unlink(device.c_str());
    if (symlink("/dev/zero", device.c_str()) != 0) {
        state.SkipWithError("cannot link the data device");
        return;
    }
    test::TestableSensor sensor;
    sensor.openDataFile();
    sensor.setStreaming(true);
    std::vector<Sink> sinks(static_cast<size_t>(state.range(0)));
    for (Sink& s : sinks) sensor.addProxDataListener(&s, 0);
    sensor.dropQueuedCommands();
    sensor.handleProxDataInterrupt();  // the first sample refreshes the snapshot
    VELTO_BENCH_NO_ALLOC(state, for (auto _ : state) { sensor.handleProxDataInterrupt(); });
    for (Sink& s : sinks) benchmark::DoNotOptimize(s.sum);
}
BENCHMARK(BM_SensorDispatch)->Arg(1)->Arg(4);

}  // namespace
}  // namespace velto

// The driver logs one line per 100 packets; the line is formatted and handed
// to this logger, which drops it, so the terminal's speed is not measured.
void discardLogLine(const struct __android_logger_data*, const char*) {}

int main(int argc, char** argv) {
    __android_log_set_logger(discardLogLine);
    // Every device path of the sensor lies below a private root.
    char root[] = "/tmp/velto-bench-XXXXXX";
    if (mkdtemp(root) == nullptr) return 1;
    setenv("VELTOGAZE_ROOT", root, 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::string cleanup = std::string("rm -rf ") + root;
    return system(cleanup.c_str()) == 0 ? 0 : 1;
}
