# "Streams.so": the XML text model and its folder view, the folder-stream
# file, the byte stream, the UTF-8 transform and the file origin record.
lum_add_test(streams_test
  SOURCES streams/StreamsTestSupport.cpp streams/XmlTextTests.cpp streams/XmlFolderTests.cpp
          streams/FolderStreamTests.cpp streams/ByteStreamTests.cpp
  LIBS lum_kit_test_support)
