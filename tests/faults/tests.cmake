# Fault injection: framework modules missing, a file system that fills up,
# files that vanish during replay, images that are not images, cameras that
# fire from several threads, and components released while their threads run.
# Every case also runs under ThreadSanitizer.
lum_add_test(faults_missing_module_test
  SOURCES faults/missing_module_test.cpp
  LABELS concurrent)
lum_add_test(faults_disk_full_test
  SOURCES faults/disk_full_test.cpp
  LABELS concurrent)
lum_add_test(faults_replay_test
  SOURCES faults/replay_vanish_test.cpp camcorder/CamcorderHost.cpp player/PlayerHost.cpp
  LABELS concurrent)
# The file player's recording is reachable through no interface: the
# component is built into this test, as in the player's own tests.
file(GLOB LUM_FAULTS_PLAYER_PARTS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/components/FilePlayer*.cpp)
lum_add_test(faults_input_test
  SOURCES faults/input_test.cpp camcorder/CamcorderHost.cpp
          ${CMAKE_SOURCE_DIR}/components/LUMFilePlayerImpl.cpp ${LUM_FAULTS_PLAYER_PARTS}
          ${CMAKE_SOURCE_DIR}/components/ComponentBase.cpp
  LIBS lum_core
  LABELS concurrent)
lum_add_test(faults_release_test
  SOURCES faults/release_test.cpp camcorder/CamcorderHost.cpp
  LABELS concurrent)
