# Archive files of a component and the date record, written and read with the
# framework's streams (./Streams.so); xmllint checks the XML archives.
lum_add_test(archive_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/ArchiveTests.cpp ${CMAKE_CURRENT_LIST_DIR}/DateTimerTests.cpp
          ${CMAKE_SOURCE_DIR}/components/DateTimer.cpp
  LIBS lum_params_probe lum_core
  LABELS archive)
