# "Streams.so": the XML text model and its folder view, the byte stream
# and the UTF-8 transform.
lum_add_test(streams_test
  SOURCES streams/StreamsTestSupport.cpp streams/XmlTextTests.cpp streams/XmlFolderTests.cpp
          streams/ByteStreamTests.cpp
  LIBS lum_kit_test_support)
