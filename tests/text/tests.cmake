# Text helpers: reference strings and parsers (no other module needed).
lum_add_test(text_refstring_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/REFStringTests.cpp
  LIBS lum_core
  LABELS text)
