#include "tests/fuzz/FuzzProbe.h"

#include "module/ModuleLoader.h"
#include "text/ValueConversion.h"

template <>
const tagREFString IObjectInfoImpl<CFuzzProbe>::m_ObjectName = {9, const_cast<wchar_t*>(L"FuzzProbe")};

LUM_PARAM_PROBE_INTERFACES(CFuzzProbe);

HRESULT CFuzzProbe::FinalConstruct() {
    DeclareProbeParameters();
    m_Byte = 7;
    m_Short = -3;
    m_Long = 25;
    m_Colour = 0x00FF8040;
    m_Float = 1.5f;
    m_Double = 0.1;
    m_Label = SmartPtr<IString>::Adopt(ISCreate(L"take one"));
    m_File = SmartPtr<IString>::Adopt(ISCreate(L"recordings/take1.avi"));
    m_Volatile = kFuzzVolatileValue;
    return S_OK;
}

INamedCollection* CFuzzProbe::Names() {
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
