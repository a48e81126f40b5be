# Text helpers: reference strings and parsers (no other module needed), then
# value conversion and file names (strings from ./CollectionsEx.so).
lum_add_test(text_refstring_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/REFStringTests.cpp ${CMAKE_CURRENT_LIST_DIR}/ParserTests.cpp
  LIBS lum_core
  LABELS text)
lum_add_test(text_conversion_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/ValueConversionTests.cpp
  LIBS lum_core
  LABELS text)
lum_add_test(text_filename_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/FileNameTests.cpp
  LIBS lum_core
  LABELS text)
