# The library's own inputs beyond the classifier's: the parameter files and
# what the hub driver delivers (device packets, the firmware image, the text
# of its attribute files).
velto_add_fuzzer(fuzz_parameter_files fuzz_parameter_files.cpp LIBS veltogaze)
velto_add_fuzzer(fuzz_hub_device fuzz_hub_device.cpp LIBS veltogaze)
velto_add_fuzzer(fuzz_hub_attributes fuzz_hub_attributes.cpp LIBS veltogaze)
