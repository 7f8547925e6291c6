// A client of the installed library, built with nothing but
// `pkg-config --cflags --libs veltogaze`: it starts the service against the
// hub below the root given as its argument and waits for the device to be
// reported on the head.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>

#include "service/GazeServiceInterface.h"

namespace {

std::atomic<int> gDons{0};

struct Listener : velto::GazeServiceInterface::GazeListenerInterface {
    void onEyeGesture(velto::GazeServiceInterface::EyeGesture gesture, int64_t, int64_t) override {
        if (gesture == velto::GazeServiceInterface::DON) gDons.fetch_add(1);
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: client ROOT\n");
        return 2;
    }
    setenv("VELTOGAZE_ROOT", argv[1], 1);
    setenv("VELTOGAZE_THREAD_DELAY_MS", "0", 1);
    velto::GazeServiceInterface* gaze = velto::GazeServiceInterface::getInstance();
    gaze->setGazeListener(new Listener());
    if (!gaze->start() || !gaze->startGestureDetector(velto::GazeServiceInterface::DON, false, -1)) {
        fprintf(stderr, "client: the service did not start\n");
        return 1;
    }
    // Generous: the hub reports a worn device 250 ms after the detector starts.
    for (int i = 0; i < 600 && gDons.load() == 0; ++i) usleep(50000);
    gaze->stop();
    printf(gDons.load() > 0 ? "DON\n" : "no event\n");
    return gDons.load() > 0 ? 0 : 1;
}
