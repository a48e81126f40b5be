#include "tests/fuzz/FuzzProbe.h"

#include "module/ModuleLoader.h"
#include "text/ValueConversion.h"

template <>
const tagREFString IObjectInfoImpl<CFuzzProbe>::m_ObjectName = {9, const_cast<wchar_t*>(L"FuzzProbe")};

const InterfaceEntry<CFuzzProbe> CFuzzProbe::kInterfaces[] = {
    InterfaceEntry<CFuzzProbe>::Of<IObjectInfoImpl<CFuzzProbe>>(IID_IObjectInfo),
    InterfaceEntry<CFuzzProbe>::Of<IDataPersist>(IID_IDataPersist),
    InterfaceEntry<CFuzzProbe>::Of<IUIPropInterrogateImpl<CFuzzProbe, IUIPropInterrogateEx, 10>>(
        IID_IUIPropInterrogate),
    InterfaceEntry<CFuzzProbe>::Of<IUIPropInterrogateImpl<CFuzzProbe, IUIPropInterrogateEx, 10>>(
        IID_IUIPropInterrogateEx),
    InterfaceEntry<CFuzzProbe>::Of<IFileArchiveImpl<CFuzzProbe, IFileArchive>>(IID_IFileArchive),
    InterfaceEntry<CFuzzProbe>::End(),
};

HRESULT CFuzzProbe::FinalConstruct() {
    DeclareParameter(FuzzByte, &m_Byte, 1);
    DeclareParameter(FuzzShort, &m_Short, 2);
    DeclareParameter(FuzzLong, &m_Long, 0);
    DeclareParameter(FuzzColour, &m_Colour, 0x23);
    DeclareParameter(FuzzFloat, &m_Float, 4);
    DeclareParameter(FuzzDouble, &m_Double, 5);
    DeclareParameter(FuzzLabel, &m_Label, 6);
    DeclareParameter(FuzzFile, &m_File, 0x106);
    DeclareParameter(FuzzObject, &m_Object, 7);
    DeclareParameter(FuzzVolatile, &m_Volatile, 0x04000003);
    m_Label = SmartPtr<IString>::Adopt(ISCreate(L"take one"));
    m_File = SmartPtr<IString>::Adopt(ISCreate(L"recordings/take1.avi"));
    return S_OK;
}

void CFuzzProbe::FinalRelease() {
    m_Label.Reset();
    m_File.Reset();
    m_Object.Reset();
}

HRESULT CFuzzProbe::Save(IDataStream* stream, int32_t flags) {
    if (QueryAs<IXMLStream>(stream, IID_IXMLStream))
        return UIPropInterrogate_SaveXML(FuzzProbeNames(), stream, flags);
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    return UIPropInterrogate_SaveFolderStream(FuzzProbeNames(), folder.Get(), flags);
}

HRESULT CFuzzProbe::Load(IDataStream* stream, int32_t flags) {
    if (QueryAs<IXMLStream>(stream, IID_IXMLStream))
        return UIPropInterrogate_LoadXML(FuzzProbeNames(), stream, flags);
    SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
    if (!folder) return E_FAIL;
    return UIPropInterrogate_LoadFolderStream(folder.Get(), flags);
}

SmartPtr<CFuzzProbe> NewFuzzProbe() {
    void* unknown = nullptr;
    if (CObject<CFuzzProbe>::_CreateInstance(nullptr, &IID_IUnknown, &unknown) < 0 || !unknown) return {};
    return SmartPtr<CFuzzProbe>::Adopt(
        static_cast<CFuzzProbe*>(static_cast<CObject<CFuzzProbe>*>(static_cast<IUnknown*>(unknown))));
}

INamedCollection* FuzzProbeNames() {
    static SmartPtr<INamedCollection> names = [] {
        SmartPtr<IParametersCreatable> list = CreateObjectAs<IParametersCreatable>(L"Parameters", IID_IParametersCreatable);
        static const wchar_t* const kNames[][2] = {
            {L"1", L"Byte Value"}, {L"2", L"Short Value"}, {L"3", L"Frame Rate"}, {L"4", L"Colour"},
            {L"5", L"Float Value"}, {L"6", L"Double Value"}, {L"7", L"Label"}, {L"8", L"File Name"},
            {L"9", L"Object"}, {L"10", L"Volatile"},
        };
        if (list)
            for (const auto& entry : kNames) list->AddText(REFStr(entry[0]), REFStr(entry[1]));
        return QueryAs<INamedCollection>(list.Get(), IID_INamedCollection);
    }();
    return names.Get();
}
