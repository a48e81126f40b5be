# "LUMVideo": the motion-JPEG writer and the AVI reader, through their
# interfaces; files checked with ffprobe/ffmpeg where those are installed.
add_library(lum_video_test_support STATIC video/VideoTestSupport.cpp)
target_link_libraries(lum_video_test_support PUBLIC lum_image_test_support)

lum_add_test(video_test
  SOURCES video/WriterTests.cpp video/ReaderTests.cpp
  LIBS lum_video_test_support lum_video_core)

# The driver of bench/avi_over_4gb.sh: built with the tests, never run by
# them.
add_executable(video_avi_bench video/AviBenchDriver.cpp)
set_target_properties(video_avi_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${LUM_TEST_DIR})
target_link_libraries(video_avi_bench PRIVATE lum_framework_common)
add_dependencies(video_avi_bench lum_framework_modules)
