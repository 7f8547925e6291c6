# Debian ships the AOSP platform libraries (Android 10) without pkg-config
# files: find them in their private directory and wrap them in targets whose
# headers are SYSTEM includes, so their warnings do not drown ours. CMake
# records the runpath of these libraries in everything that links them.
set(ANDROID_LIB_DIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
set(ANDROID_INCLUDE_DIR /usr/include/android)

foreach(lib utils cutils log)
  find_library(ANDROID_${lib}_LIBRARY ${lib} PATHS ${ANDROID_LIB_DIR} NO_DEFAULT_PATH)
  if(NOT ANDROID_${lib}_LIBRARY)
    message(FATAL_ERROR "Android lib${lib} not found in ${ANDROID_LIB_DIR}; run scripts/install-deps")
  endif()
  add_library(android::${lib} SHARED IMPORTED GLOBAL)
  set_target_properties(android::${lib} PROPERTIES IMPORTED_LOCATION ${ANDROID_${lib}_LIBRARY})
  target_include_directories(android::${lib} SYSTEM INTERFACE ${ANDROID_INCLUDE_DIR})
endforeach()

add_library(android_platform INTERFACE)
target_link_libraries(android_platform INTERFACE android::utils android::cutils android::log)
