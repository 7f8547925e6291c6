# What `cmake --install build --prefix P` puts where:
#   P/bin                       the programs (veltohub-sim, gazectl, gazesynth, gazetrain, gazeeval)
#   P/lib                       libveltogaze, libveltoutils, libhardware_legacy
#   P/include/veltogaze/        the headers, by subsystem ("service/GazeServiceInterface.h")
#   P/lib/pkgconfig/veltogaze.pc
#   P/share/veltogaze/gaze/     the shipped detector and list files
#   P/share/veltogaze/firmware/ the simulated hub's firmware image
#   P/share/veltogaze/scenarios/ simulator scenarios, the demo's wearer among them
#   P/share/doc/veltogaze/      README and docs
# Everything finds its libraries through a RUNPATH relative to itself, so an
# installed tree runs from anywhere and can be moved as a whole. The platform's
# Android libraries live in a private directory of their own, which goes into
# every RUNPATH as it stands.
include(GNUInstallDirs)

file(RELATIVE_PATH _velto_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(VELTO_PROGRAM_RPATH "$ORIGIN/${_velto_bin_to_lib}" ${ANDROID_LIB_DIR})
set(VELTO_LIBRARY_RPATH "$ORIGIN" ${ANDROID_LIB_DIR})

set(VELTO_INSTALLED_PROGRAMS veltohub-sim gazectl gazesynth gazetrain gazeeval)
foreach(program ${VELTO_INSTALLED_PROGRAMS})
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "${VELTO_PROGRAM_RPATH}")
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

set_target_properties(veltogaze veltoutils hardware_legacy PROPERTIES INSTALL_RPATH "${VELTO_LIBRARY_RPATH}")
install(TARGETS veltogaze veltoutils hardware_legacy
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(subsystem service sensor proxdata classifier detectors modules calibration veltoutils)
  install(DIRECTORY ${subsystem}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/veltogaze/${subsystem}
    FILES_MATCHING PATTERN "*.h" PATTERN "*_test*" EXCLUDE)
endforeach()
install(DIRECTORY platform/hardware_legacy DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/veltogaze
  FILES_MATCHING PATTERN "*.h")

# Data the programs look for beside themselves (../share/veltogaze).
set(VELTO_DATADIR ${CMAKE_INSTALL_DATADIR}/veltogaze)
install(DIRECTORY etc/gaze/ DESTINATION ${VELTO_DATADIR}/gaze
  FILES_MATCHING PATTERN "*.txt" PATTERN "CMakeLists.txt" EXCLUDE)
if(TARGET velto_hub_firmware)
  install(FILES ${CMAKE_BINARY_DIR}/etc/veltohub.s19 DESTINATION ${VELTO_DATADIR}/firmware)
endif()
install(DIRECTORY tools/hubsim/scenarios/ DESTINATION ${VELTO_DATADIR}/scenarios FILES_MATCHING PATTERN "*.txt")
install(FILES tools/gazectl/demo-wearer.txt DESTINATION ${VELTO_DATADIR}/scenarios)
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})

# veltogaze.pc names the prefix given at install time (--prefix), so it is
# written then rather than at configure time.
install(CODE "
  set(VELTO_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(VELTO_PC_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(VELTO_PC_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(VELTO_PC_VERSION \"${PROJECT_VERSION}\")
  set(VELTO_PC_ANDROID_LIB_DIR \"${ANDROID_LIB_DIR}\")
  set(VELTO_PC_ANDROID_INCLUDE_DIR \"${ANDROID_INCLUDE_DIR}\")
  configure_file(\"${CMAKE_CURRENT_SOURCE_DIR}/cmake/veltogaze.pc.in\" \"${CMAKE_CURRENT_BINARY_DIR}/veltogaze.pc\" @ONLY)
")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/veltogaze.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
