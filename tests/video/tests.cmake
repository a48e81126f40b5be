# "LUMVideo": the motion-JPEG writer and the AVI reader, through their
# interfaces; files checked with ffprobe/ffmpeg where those are installed.
add_library(lum_video_test_support STATIC video/VideoTestSupport.cpp)
target_link_libraries(lum_video_test_support PUBLIC lum_image_test_support)

lum_add_test(video_test
  SOURCES video/WriterTests.cpp video/ReaderTests.cpp
  LIBS lum_video_test_support lum_video_core)
