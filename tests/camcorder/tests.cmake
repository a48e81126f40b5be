lum_add_test(camcorder_test
  SOURCES camcorder/CamcorderHost.cpp camcorder/recording_test.cpp camcorder/playback_test.cpp camcorder/settings_test.cpp
            camcorder/fullsize_test.cpp
  LABELS concurrent)
