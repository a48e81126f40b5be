// The date record's clock readings and its XML and folder-stream forms.
#include "components/DateTimer.h"

#include <ctime>

#include "params/XMLTagged.h"
#include "text/REFString.h"
#include "text/ValueConversion.h"

namespace {

/// Sets every field but WeekDay from `t`; the day of the week goes to
/// `*weekDay` when asked for.
void BreakDown(time_t t, DATETIME& date, int16_t* weekDay) {
    std::tm local{};
    if (!localtime_r(&t, &local)) return;
    if (weekDay) *weekDay = static_cast<int16_t>(local.tm_wday);
    date.Day = static_cast<int16_t>(local.tm_mday);
    date.Month = static_cast<int16_t>(local.tm_mon + 1);
    date.Year = static_cast<int16_t>(local.tm_year + 1900);
    date.Hour = static_cast<int16_t>(local.tm_hour);
    date.Minute = static_cast<int16_t>(local.tm_min);
    date.Second = static_cast<float>(local.tm_sec);
}

/// The integer fields of the XML form, in the order they are written.
struct IntegerField {
    const wchar_t* tag;
    int16_t DATETIME::*field;
};
constexpr IntegerField kXMLFields[] = {
    {L"WeekDay", &DATETIME::WeekDay}, {L"Day", &DATETIME::Day},       {L"Month", &DATETIME::Month},
    {L"Year", &DATETIME::Year},       {L"Hour", &DATETIME::Hour},     {L"Minute", &DATETIME::Minute},
};
/// The 16-bit records of the folder-stream form (WeekDay is not one).
constexpr IntegerField kFolderFields[] = {
    {L"Day", &DATETIME::Day},   {L"Month", &DATETIME::Month},   {L"Year", &DATETIME::Year},
    {L"Hour", &DATETIME::Hour}, {L"Minute", &DATETIME::Minute},
};
constexpr int32_t kRecordShort = 2;
constexpr int32_t kRecordFloat = 4;

SmartPtr<IString> Key(const wchar_t* text) { return SmartPtr<IString>::Adopt(ISCreate(text)); }

/// The variant's value as text (integers "%d", doubles with the fewest
/// decimals that show the value).
HRESULT WriteVariant(IXMLStream* xml, const wchar_t* tag, IVariant* value) {
    SmartPtr<IString> text = SmartPtr<IString>::Adopt(ISCreate(value));
    if (!text) return E_FAIL;
    return xml->WriteElement(REFStr(tag), text.Get());
}

HRESULT SaveXML(const DATETIME& date, IXMLStream* xml) {
    SmartPtr<IVariant> value = SmartPtr<IVariant>::Adopt(CREFString::CreateVariant());
    if (!value) return E_FAIL;
    bool complete = xml->OpenElement(REFStr(L"DATETIME")) >= 0;
    for (const IntegerField& field : kXMLFields) {
        value->put_Integer(date.*field.field);
        complete = WriteVariant(xml, field.tag, value.Get()) >= 0 && complete;
    }
    value->put_Double(static_cast<double>(date.Second));
    complete = WriteVariant(xml, L"Second", value.Get()) >= 0 && complete;
    complete = xml->CloseElement() == S_OK && complete;
    return complete ? S_OK : E_FAIL;
}

HRESULT LoadXML(DATETIME& date, IDataStream* stream) {
    SmartPtr<IString> whole = QueryAs<IString>(stream, IID_IString);
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (!whole || whole->GetText(&text, &length) < 0 || !text || length < 0) length = 0;
    // The values are looked up inside "DATETIME"; without that element a
    // failed cut leaves `scope` as the whole text, where they are looked up
    // instead.
    CREFString all(length, text);
    CREFString attributes, scope;
    XMLGetTAGGED(&all, CREFString(L"DATETIME"), &attributes, &scope, 0);
    bool complete = true;
    for (const IntegerField& field : kXMLFields) {
        CREFString within = scope, content;
        if (XMLGetTAGGED(&within, CREFString(field.tag), &attributes, &content, 0) < 0) {
            complete = false;
            continue;
        }
        date.*field.field = static_cast<int16_t>(_IS2Integer(content, 10));
    }
    CREFString within = scope, content;
    if (XMLGetTAGGED(&within, CREFString(L"Second"), &attributes, &content, 0) < 0) {
        complete = false;
    } else if (content.length > 0 && content.text[0] == L'#') {
        date.Second = static_cast<float>(_IS2Integer(content, 10));
    } else {
        date.Second = static_cast<float>(_IS2Double(content));
    }
    return complete ? S_OK : S_FALSE;
}

HRESULT SaveFolder(DATETIME& date, IFolderStream* folder) {
    bool complete = true;
    for (const IntegerField& field : kFolderFields) {
        SmartPtr<IString> key = Key(field.tag);
        complete = key && folder->WriteRecord(key.Get(), &(date.*field.field), kRecordShort) >= 0 && complete;
    }
    SmartPtr<IString> key = Key(L"Second");
    complete = key && folder->WriteRecord(key.Get(), &date.Second, kRecordFloat) >= 0 && complete;
    return complete ? S_OK : E_FAIL;
}

HRESULT LoadFolder(DATETIME& date, IFolderStream* folder) {
    bool complete = true;
    for (const IntegerField& field : kFolderFields) {
        SmartPtr<IString> key = Key(field.tag);
        complete = key && folder->ReadRecord(key.Get(), &(date.*field.field), kRecordShort) >= 0 && complete;
    }
    SmartPtr<IString> key = Key(L"Second");
    complete = key && folder->ReadRecord(key.Get(), &date.Second, kRecordFloat) >= 0 && complete;
    return complete ? S_OK : S_FALSE;
}

}  // namespace

HRESULT CDateTimer::Reset() {
    const time_t now = std::time(nullptr);
    m_SystemTime = static_cast<int64_t>(now);
    BreakDown(now, *this, &WeekDay);
    return S_OK;
}

HRESULT CDateTimer::SetLinuxTime(long t) {
    BreakDown(static_cast<time_t>(t), *this, nullptr);
    return S_OK;
}

HRESULT CDateTimer::Save(IDataStream* stream, int32_t /*flags*/) {
    if (!stream) return E_POINTER;
    if (SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream)) return SaveXML(*this, xml.Get());
    if (SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream))
        return SaveFolder(*this, folder.Get());
    return E_NOINTERFACE;
}

HRESULT CDateTimer::Load(IDataStream* stream, int32_t /*flags*/) {
    if (!stream) return E_POINTER;
    if (QueryAs<IXMLStream>(stream, IID_IXMLStream)) return LoadXML(*this, stream);
    if (SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream))
        return LoadFolder(*this, folder.Get());
    return E_NOINTERFACE;
}
