lum_add_test(module_identifiers_test SOURCES module/identifiers_test.cpp)
lum_add_test(module_entry_test SOURCES module/entry_test.cpp)
lum_add_test(module_identity_test SOURCES module/identity_test.cpp module/component_events_test.cpp)
lum_add_test(module_object_test SOURCES module/object_test.cpp module/event_source_test.cpp
             LIBS lum_core LABELS concurrent)

# The shipped module exports its three entry points only and needs nothing
# beyond the C and C++ runtimes (checked on the plain build: sanitizer builds
# add their own runtime).
if(LUM_SANITIZE STREQUAL "")
  add_test(NAME module_exports_test
           COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/module/check_exports.sh ${LUM_OUTPUT_DIR}/LUMCamcorder.so)
endif()
