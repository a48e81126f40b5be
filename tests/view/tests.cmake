# The live view and the contact sheet: the host's commands run as a user runs
# them (the view in a window on an Xvfb server that the test starts), and the
# parts they are drawn with, tested on their own.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LUM_VIEW_PNG REQUIRED IMPORTED_TARGET libpng)

set(LUM_VIEW_DRAWING
  ${CMAKE_SOURCE_DIR}/tools/lumhost/BitmapFont.cpp
  ${CMAKE_SOURCE_DIR}/tools/lumhost/ViewCanvas.cpp)

# The image hand-over and the control thread also run under ThreadSanitizer.
lum_add_test(view_parts_test
  SOURCES view/view_parts_test.cpp ${LUM_VIEW_DRAWING}
          ${CMAKE_SOURCE_DIR}/tools/lumhost/ViewScript.cpp
          ${CMAKE_SOURCE_DIR}/tools/lumhost/ViewSession.cpp
  LABELS concurrent)

foreach(name view_window_test sheet_test)
  lum_add_test(${name}
    SOURCES view/${name}.cpp view/ViewTestSupport.cpp ${LUM_VIEW_DRAWING}
    LIBS PkgConfig::LUM_VIEW_PNG)
  # The view runs under AddressSanitizer with the suppressions of its
  # third-party libraries, also when the test's environment names none.
  target_compile_definitions(${name} PRIVATE
    LUM_VIEW_LSAN_SUPPRESSIONS="${CMAKE_CURRENT_SOURCE_DIR}/view/lsan.supp")
  add_dependencies(${name} lumhost)
  set_tests_properties(${name} PROPERTIES TIMEOUT 900)
endforeach()
