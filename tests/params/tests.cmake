# Parameters: the list and its interrogation, element cutting, and saving and
# loading through the framework's streams (./Streams.so), with a test
# component declared from the module's templates.
add_library(lum_params_probe STATIC ${CMAKE_CURRENT_LIST_DIR}/ArchiveProbe.cpp)
target_link_libraries(lum_params_probe PUBLIC lum_core lum_test_support)

lum_add_test(params_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/InterrogationTests.cpp ${CMAKE_CURRENT_LIST_DIR}/XMLTaggedTests.cpp
          ${CMAKE_CURRENT_LIST_DIR}/PersistenceTests.cpp
  LIBS lum_params_probe lum_core
  LABELS params)
