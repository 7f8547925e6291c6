# Classifier engine and detectors: detector files, both detector list files,
# the wink calibration file.
velto_add_fuzzer(fuzz_cascade_file fuzz_cascade_file.cpp LIBS veltogaze)
velto_add_fuzzer(fuzz_detector_set_list fuzz_detector_set_list.cpp LIBS veltogaze)
velto_add_fuzzer(fuzz_wink_detector_list fuzz_wink_detector_list.cpp LIBS veltogaze)
velto_add_fuzzer(fuzz_wink_calibration_file fuzz_wink_calibration_file.cpp LIBS veltogaze)
