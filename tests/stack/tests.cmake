lum_add_test(stack_camcorder_test
  SOURCES camcorder/CamcorderHost.cpp stack/stack_camcorder_test.cpp stack/stack_files_test.cpp)
