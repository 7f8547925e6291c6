# veltohub-sim and the signal model: scenarios, recordings, labels, firmware images.
velto_add_fuzzer(fuzz_scenario fuzz_scenario.cpp LIBS velto_hubsim)
velto_add_fuzzer(fuzz_recording fuzz_recording.cpp LIBS velto_signal)
velto_add_fuzzer(fuzz_labels fuzz_labels.cpp LIBS velto_signal)
velto_add_fuzzer(fuzz_hub_firmware fuzz_hub_firmware.cpp LIBS velto_hubsim)
