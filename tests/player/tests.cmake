# The file player driven as a host drives it, through "./LUMCamcorder.so":
# stepping, overlays, settings and bad folders; its live thread separately.
lum_add_test(player_test
  SOURCES player/PlayerHost.cpp player/replay_test.cpp player/overlay_test.cpp
          player/persistence_test.cpp player/badfiles_test.cpp)
lum_add_test(player_live_test
  SOURCES player/PlayerHost.cpp player/live_test.cpp
  LABELS concurrent)

# Recording another camera is reachable through no interface: the component
# is built into this test and created directly.
file(GLOB LUM_PLAYER_PARTS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/components/FilePlayer*.cpp)
lum_add_test(player_recording_test
  SOURCES player/PlayerHost.cpp player/recording_test.cpp
          ${CMAKE_SOURCE_DIR}/components/LUMFilePlayerImpl.cpp ${LUM_PLAYER_PARTS}
          ${CMAKE_SOURCE_DIR}/components/ComponentBase.cpp
  LIBS lum_core
  LABELS concurrent)
