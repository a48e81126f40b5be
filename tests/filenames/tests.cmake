# "FileNames" (file lists, extension tables, the folder watch) and
# "UIPropPages" (the headless pages, viewer and message window).
lum_add_test(filenames_test
  SOURCES filenames/FileListTests.cpp
  LIBS lum_image_test_support)

lum_add_test(filenames_watch_test
  SOURCES filenames/WatchTests.cpp
  LIBS lum_image_test_support
  LABELS concurrent)

lum_add_test(uipages_test
  SOURCES filenames/PagesTests.cpp
  LIBS lum_image_test_support
  LABELS concurrent)
