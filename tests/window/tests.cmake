# "LUMCamWindow" and "LUMFileGrab" of the camera module, driven as a host
# drives them; the file grab's watch runs on a thread of its own.
lum_add_test(window_camwindow_test
  SOURCES window/CamWindowTests.cpp
  LIBS lum_image_test_support)

lum_add_test(window_filegrab_test
  SOURCES window/FileGrabTests.cpp
  LIBS lum_image_test_support
  LABELS concurrent)
