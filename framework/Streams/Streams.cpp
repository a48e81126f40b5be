// "Streams.so": byte and XML streams and the wide-to-UTF-8 transform.
#include "framework/Streams/AsciiStream.h"
#include "framework/Streams/DataStream.h"
#include "framework/Streams/XmlStream.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CXMLStream>(),
    {&CXMLStream::kExName, &CXMLStream::CreateExInstance},
    KitClassOf<CASCIIStream>(),
    KitClassOf<CDataStream>(),
};

}  // namespace

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
