# The imaging modules "LUMImage" and "LUMArch", driven through their
# interfaces; the camera and the stack from several threads.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LUM_TEST_PNG REQUIRED IMPORTED_TARGET libpng)

add_library(lum_image_test_support STATIC image/ImageTestSupport.cpp)
target_link_libraries(lum_image_test_support PUBLIC lum_kit_test_support)

lum_add_test(image_test
  SOURCES image/ImageTests.cpp image/ArchiveTests.cpp
  LIBS lum_image_test_support PkgConfig::LUM_TEST_PNG)

lum_add_test(image_concurrency_test
  SOURCES image/CameraTests.cpp
  LIBS lum_image_test_support
  LABELS concurrent)

# JPEG in bands: the codec itself, the pool of coding threads, the
# read-ahead of numbered files, and the memory of pixel blocks.
lum_add_test(image_jpeg_bands_test
  SOURCES image/JpegBandsTests.cpp image/WorkerPoolTests.cpp image/ReadAheadTests.cpp
          image/PixelBlockTests.cpp
  LIBS lum_image_files lum_image_pixels
  LABELS concurrent)
