// "Streams.so": byte, XML and folder streams, the wide-to-UTF-8 transform
// and the file origin record.
#include "framework/Streams/AsciiStream.h"
#include "framework/Streams/DataStream.h"
#include "framework/Streams/FileInfo.h"
#include "framework/Streams/FolderStream.h"
#include "framework/Streams/XmlStream.h"

namespace {

const KitClass kClasses[] = {
    KitClassOf<CXMLStream>(),
    {&CXMLStream::kExName, &CXMLStream::CreateExInstance},
    KitClassOf<CFolderStream>(),
    KitClassOf<CASCIIStream>(),
    KitClassOf<CDataStream>(),
    KitClassOf<CFileInfo>(),
};

}  // namespace

LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
