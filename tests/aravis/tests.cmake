# "LUMAravisCamera" with Aravis's in-process fake device (and a GigE Vision
# fake on the loopback interface): alone, streaming, and recorded through
# the camcorder; and the host's camera commands.
find_package(PkgConfig REQUIRED)
if(NOT TARGET PkgConfig::LUM_ARAVIS)
  pkg_check_modules(LUM_ARAVIS REQUIRED IMPORTED_TARGET GLOBAL aravis-0.8)
endif()

lum_add_test(aravis_test
  SOURCES aravis/AravisTestSupport.cpp aravis/CameraTests.cpp aravis/StreamingTests.cpp
          aravis/RecordingTests.cpp aravis/GigEVisionTests.cpp camcorder/CamcorderHost.cpp
  LIBS PkgConfig::LUM_ARAVIS
  LABELS concurrent)

add_test(NAME aravis_host_test COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/aravis/host_cameras_test.sh
         WORKING_DIRECTORY ${LUM_OUTPUT_DIR})
