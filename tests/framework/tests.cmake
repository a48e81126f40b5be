# The framework kit's modules, driven through dlopen and interface slots.

# Probe modules for the global collection's loading rules: "KitProbe.so"
# reports how it was initialised, "KitNoEntry.so" lacks CreateFunction.
lum_add_module(KitProbe KitProbe ${CMAKE_CURRENT_SOURCE_DIR}/framework/probe/probe.map
  framework/probe/KitProbe.cpp $<TARGET_OBJECTS:lum_identifiers>)
lum_add_module(KitNoEntry KitNoEntry ${CMAKE_CURRENT_SOURCE_DIR}/framework/probe/noentry.map
  framework/probe/KitNoEntry.cpp)

add_library(lum_kit_test_support STATIC framework/KitTestSupport.cpp)
target_link_libraries(lum_kit_test_support PUBLIC lum_test_support)

lum_add_test(framework_collections_test
  SOURCES framework/EntryPointTests.cpp framework/ResolutionTests.cpp
          framework/StringVariantTests.cpp framework/CollectionTests.cpp
  LIBS lum_kit_test_support)
add_dependencies(framework_collections_test KitProbe KitNoEntry)

lum_add_test(framework_registry_test
  SOURCES framework/RegistryTests.cpp framework/StringTableTests.cpp
  LIBS lum_kit_test_support)

lum_add_test(framework_concurrency_test
  SOURCES framework/ConcurrencyTests.cpp
  LIBS lum_kit_test_support
  LABELS concurrent)
add_dependencies(framework_concurrency_test KitProbe)
