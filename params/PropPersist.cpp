// Parameter persistence: XML elements and folder-stream sub-folders, and the
// declaration of parameters with named choices.
#include "params/PropPersist.h"

#include <cwctype>
#include <unordered_map>
#include <vector>

#include "module/ModuleLoader.h"
#include "params/XMLTagged.h"
#include "text/FileName.h"
#include "text/REFString.h"
#include "text/ValueConversion.h"

namespace {

SmartPtr<IString> Adopt(IString* string) { return SmartPtr<IString>::Adopt(string); }

SmartPtr<IString> NewString(const wchar_t* text) { return Adopt(ISCreate(text)); }

SmartPtr<IString> NewString(const wchar_t* text, int32_t length) {
    tagREFString view{length, const_cast<wchar_t*>(text)};
    return Adopt(ISCreate(view));
}

tagREFString ViewOf(const std::wstring& text) {
    return tagREFString{static_cast<int32_t>(text.size()), const_cast<wchar_t*>(text.data())};
}

/// The class name of `object` as the framework's component string reports it.
SmartPtr<IString> ClassNameOf(IUnknown* object) {
    SmartPtr<IComponentString> component =
        CreateObjectAs<IComponentString>(L"ComponentString", IID_IComponentString);
    SmartPtr<IString> name;
    if (component && component->put_Object(object) >= 0) component->GetNameString(1, name.Out());
    return name;
}

SmartPtr<INamedCollection> StringsOf(IString* owner) {
    SmartPtr<INamedCollection> strings;
    if (!owner) return strings;
    if (SmartPtr<IStringTable> table = CreateObjectAs<IStringTable>(L"StringTable", IID_IStringTable))
        table->GetCollection(owner, strings.Out());
    return strings;
}

/// The stored string, made relative to the install path for file names.
SmartPtr<IString> StringForSaving(const PropRecord& record, IUIPropInterrogateEx* component) {
    SmartPtr<IUnknown> stored;
    if (component->InquireEx(record.id, stored.Out()) < 0) return {};
    SmartPtr<IString> string = QueryAs<IString>(stored.Get(), IID_IString);
    if (string && (record.flags & PROP_FILENAME)) {
        SmartPtr<IString> relative;
        FILENAMECreateRelative(string.Get(), relative.Out());
        if (relative) string = relative;
    }
    return string;
}

/// A loaded file name resolved against the install path.
SmartPtr<IString> Resolved(SmartPtr<IString> name) {
    SmartPtr<IString> absolute;
    FILENAMECreateAbsolute(name.Get(), absolute.Out());
    return absolute ? absolute : name;
}

/// Lower-cased copy, for comparisons that ignore letter case.
std::wstring Lowered(const wchar_t* text, int32_t length) {
    std::wstring lowered(text, static_cast<size_t>(length));
    for (wchar_t& c : lowered) c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return lowered;
}

/// A start tag's text: leading white space and control characters skipped,
/// trailing characters up to code 32 and code 127 dropped.
CREFString TrimmedTag(const wchar_t* text, int32_t length) {
    int32_t begin = 0;
    while (begin < length &&
           (std::iswspace(static_cast<wint_t>(text[begin])) || std::iswcntrl(static_cast<wint_t>(text[begin]))))
        ++begin;
    int32_t end = length;
    while (end > begin && (text[end - 1] <= 32 || text[end - 1] == 127)) --end;
    return CREFString(end - begin, text + begin);
}

struct PersistedTag {
    const PropRecord* record;
    std::wstring tag;
};

/// Applies one element's content to a parameter.
void ApplyElement(const PersistedTag& target, IUIPropInterrogateEx* component, IXMLStream* xml,
                  const CREFString& content) {
    const PropRecord& record = *target.record;
    switch (record.Type()) {
        case PropTypeNone:
        case PropTypeByte:
        case PropTypeShort:
        case PropTypeLong: {
            // Colours come back with red and blue exchanged: the saved text is
            // "#RRGGBB" of the stored value, and reading it swaps the bytes.
            const int value = record.flags == (PROP_COLOR | PropTypeLong) ? _IS2Color(content, 10)
                                                                          : _IS2Integer(content, 10);
            component->Control(record.id, value);
            break;
        }
        case PropTypeFloat:
        case PropTypeDouble: {
            const float value = static_cast<float>(_IS2Double(content));
            // The value as it will be held is echoed into the stream.
            SmartPtr<IString> echoed = Adopt(ISCreate(static_cast<double>(value)));
            xml->WriteElement(ViewOf(target.tag), echoed.Get());
            component->Control(record.id, PROPFloatBits(value));
            break;
        }
        case PropTypeString: {
            SmartPtr<IString> string = NewString(content.text, content.length);
            if (!string) break;
            if (record.flags & PROP_FILENAME) string = Resolved(string);
            component->ControlEx(record.id, string.Get());
            break;
        }
        default: break;
    }
}

/// Reusable key strings of the folder-stream layout.
struct FolderKeys {
    SmartPtr<IString> id = NewString(L"ID");
    SmartPtr<IString> flags = NewString(L"Flags");
    SmartPtr<IString> value = NewString(L"Value");
    bool Valid() const { return id && flags && value; }
};

}  // namespace

SmartPtr<INamedCollection> PROPOwnerNames(IUnknown* component) {
    SmartPtr<IString> owner = ClassNameOf(component);
    return StringsOf(owner.Get());
}

std::wstring PROPTag(INamedCollection* names, int32_t id) {
    wchar_t key[16];
    _swprintf(key, 16, L"%i", id);
    if (names) {
        SmartPtr<IUnknown> item;
        if (names->get_ItemByName(REFStr(key), item.Out()) >= 0) {
            if (SmartPtr<IString> display = QueryAs<IString>(item.Get(), IID_IString)) {
                wchar_t* text = nullptr;
                int32_t length = 0;
                if (display->GetText(&text, &length) >= 0) {
                    std::wstring tag = text && length > 0 ? std::wstring(text, static_cast<size_t>(length))
                                                          : std::wstring();
                    for (wchar_t& c : tag)
                        if (c == L' ') c = L'_';
                    return tag;
                }
            }
        }
    }
    return key;
}

HRESULT PROPDeclareChoices(CPropList& list, IUnknown* component, int32_t id, void* member, int32_t flags,
                           IUnknown* owner, int32_t number, const int32_t* values, int32_t valueCount) {
    SmartPtr<IString> ownerName = QueryAs<IString>(owner, IID_IString);
    if (!ownerName) ownerName = ClassNameOf(owner ? owner : component);
    SmartPtr<INamedCollection> strings = StringsOf(ownerName.Get());
    if (!strings) return E_FAIL;

    wchar_t key[16];
    _swprintf(key, 16, L"%i", number);
    SmartPtr<IUnknown> item;
    strings->get_ItemByName(REFStr(key), item.Out());
    SmartPtr<IString> choices = QueryAs<IString>(item.Get(), IID_IString);
    if (!choices) return E_FAIL;
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (choices->GetText(&text, &length) < 0 || !text || length < 0) length = 0;

    SmartPtr<ISuperCollection> collection = SmartPtr<ISuperCollection>::Adopt(CREFString::CreateCollection());
    if (collection) {
        int32_t start = 0;
        for (int32_t index = 0;; ++index) {
            int32_t end = start;
            while (end < length && text[end] != L'|') ++end;
            SmartPtr<IVariant> value = SmartPtr<IVariant>::Adopt(CREFString::CreateVariant());
            if (value) value->put_Integer(values && index < valueCount ? values[index] : index);
            collection->AddNamed(tagREFString{end - start, text ? text + start : nullptr}, value.Get());
            if (end >= length) break;
            start = end + 1;
        }
    }

    PropRecord* record = list.Append();
    if (!record) return E_FAIL;
    record->id = id;
    record->value = member;
    record->flags = static_cast<uint32_t>(flags);
    if ((record->flags & PROP_TYPE_MASK) == PropTypeNone) record->flags += PropTypeLong;
    if (collection) {
        record->kind = PROP_KIND_ENUMERATION;
        record->enumeration = collection.Detach();
    } else {
        record->kind = PROP_KIND_RANGE;
        record->range.minimum = 0;
        record->range.maximum = (flags & 0xF0) == PROP_BOOLEAN ? 1 : 0;
    }
    return S_OK;
}

/// The names collection given, or else the owner's own from its string table.
static SmartPtr<INamedCollection> NamesOrOwners(INamedCollection* names, IUIPropInterrogateEx* component) {
    return names ? SmartPtr<INamedCollection>(names) : PROPOwnerNames(component);
}

void PROPSaveXML(const CPropList& list, IUIPropInterrogateEx* component, INamedCollection* names,
                 IDataStream* stream) {
    SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
    if (!xml) return;
    SmartPtr<INamedCollection> nameList = NamesOrOwners(names, component);
    names = nameList.Get();
    if (!names) return;

    for (int32_t i = 0; i < list.Count(); ++i) {
        const PropRecord& record = *list.At(i);
        if (record.flags & PROP_NOT_PERSISTED) continue;
        SmartPtr<IString> text;
        const uint32_t type = record.Type();
        if (type <= PropTypeLong) {
            int32_t value = 0;
            if (component->Inquire(record.id, &value) < 0) continue;
            text = Adopt(record.flags == (PROP_COLOR | PropTypeLong) ? ISCreateHex(value) : ISCreate(value));
        } else if (type == PropTypeFloat || type == PropTypeDouble) {
            int32_t bits = 0;
            if (component->Inquire(record.id, &bits) < 0) continue;
            text = Adopt(ISCreate(static_cast<double>(PROPBitsFloat(bits))));
        } else if (type == PropTypeString) {
            text = StringForSaving(record, component);
        } else {
            continue;
        }
        const std::wstring tag = PROPTag(names, record.id);
        xml->WriteElement(ViewOf(tag), text.Get());
    }
}

void PROPLoadXML(const CPropList& list, IUIPropInterrogateEx* component, INamedCollection* names,
                 IDataStream* stream) {
    SmartPtr<IXMLStream> xml = QueryAs<IXMLStream>(stream, IID_IXMLStream);
    if (!xml) return;
    SmartPtr<INamedCollection> nameList = NamesOrOwners(names, component);
    names = nameList.Get();

    // Tags of the persisted parameters, lower-cased, in declaration order.
    std::vector<PersistedTag> targets;
    std::unordered_map<std::wstring, std::vector<size_t>> byTag;
    for (int32_t i = 0; i < list.Count(); ++i) {
        const PropRecord* record = list.At(i);
        if (record->flags & PROP_NOT_PERSISTED) continue;
        std::wstring tag = PROPTag(names, record->id);
        std::wstring lowered = Lowered(tag.data(), static_cast<int32_t>(tag.size()));
        byTag[lowered].push_back(targets.size());
        targets.push_back({record, std::move(tag)});
    }

    // The stream's unread text: the view stays valid while elements are
    // echoed into the stream.
    SmartPtr<IString> whole = QueryAs<IString>(stream, IID_IString);
    wchar_t* text = nullptr;
    int32_t length = 0;
    if (!whole || whole->GetText(&text, &length) < 0 || !text || length <= 0) return;

    CXMLTaggedSearch search(text, length);
    CREFString rest(length, text);
    // The last start tag found, valid for every scan that begins between
    // `scannedFrom` and it.
    int32_t scannedFrom = -1, open = -1, close = -1;
    for (;;) {
        const int32_t from = static_cast<int32_t>(rest.text - text);
        if (from < scannedFrom || from > open) {
            open = from;
            while (open < length && !(text[open] == L'<' && !(open + 1 < length && text[open + 1] == L'/'))) ++open;
            if (open >= length) break;
            close = open + 1;
            while (close < length && text[close] != L'>') ++close;
            if (close >= length) break;
            scannedFrom = from;
        }
        const CREFString tag = TrimmedTag(text + open + 1, close - open - 1);
        CREFString attributes, content;
        if (XMLGetTAGGED(&rest, tag, &attributes, &content, 1, &search) < 0) {
            // Not an element: go on after this start tag's "<".
            rest = CREFString(length - open - 1, text + open + 1);
            continue;
        }
        auto found = byTag.find(Lowered(tag.text, tag.length));
        if (found == byTag.end()) continue;
        for (size_t target : found->second) ApplyElement(targets[target], component, xml.Get(), content);
    }
}

void PROPSaveFolderStream(const CPropList& list, IUIPropInterrogateEx* component, INamedCollection* names,
                          IFolderStream* folder) {
    if (!folder) return;
    SmartPtr<INamedCollection> nameList = NamesOrOwners(names, component);
    names = nameList.Get();
    if (!names) return;
    FolderKeys keys;
    if (!keys.Valid()) return;

    for (int32_t i = 0; i < list.Count(); ++i) {
        const PropRecord& record = *list.At(i);
        if (record.flags & PROP_NOT_PERSISTED) continue;
        const std::wstring tag = PROPTag(names, record.id);
        SmartPtr<IString> folderName = NewString(tag.data(), static_cast<int32_t>(tag.size()));
        SmartPtr<IFolderStream> sub;
        if (!folderName || folder->CreateFolder(folderName.Get(), sub.Out()) < 0 || !sub) continue;
        int32_t id = record.id;
        uint32_t flags = record.flags;
        sub->WriteValue(keys.id.Get(), &id, 4, 0);
        sub->WriteValue(keys.flags.Get(), &flags, 4, 0);
        const uint32_t type = record.Type();
        if (type <= PropTypeLong) {
            int32_t value = 0;
            if (component->Inquire(record.id, &value) >= 0) sub->WriteValue(keys.value.Get(), &value, 4, 0);
        } else if (type == PropTypeFloat || type == PropTypeDouble) {
            int32_t bits = 0;
            if (component->Inquire(record.id, &bits) >= 0) {
                double value = PROPBitsFloat(bits);
                sub->WriteValue(keys.value.Get(), &value, 8, 0);
            }
        } else if (type == PropTypeString) {
            SmartPtr<IString> string = StringForSaving(record, component);
            sub->WriteString(keys.value.Get(), string.Get());
        } else if (type == PropTypeObject) {
            SmartPtr<IUnknown> object;
            if (component->InquireEx(record.id, object.Out()) >= 0 && object)
                sub->WriteObject(keys.value.Get(), object.Get());
        }
    }
}

void PROPLoadFolderStream(const CPropList& list, IUIPropInterrogateEx* component, IFolderStream* folder) {
    if (!folder) return;
    FolderKeys keys;
    if (!keys.Valid()) return;
    for (int32_t index = 0;; ++index) {
        SmartPtr<IVariant> which = SmartPtr<IVariant>::Adopt(CREFString::CreateVariant());
        if (!which) return;
        which->put_Integer(index);
        SmartPtr<IFolderStream> sub;
        if (folder->OpenFolder(which.Get(), sub.Out()) < 0 || !sub) return;

        int32_t id = 0;
        uint32_t flags = 0;
        if (sub->ReadValue(keys.id.Get(), &id, 4, 0) < 0 || sub->ReadValue(keys.flags.Get(), &flags, 4, 0) < 0)
            continue;
        const PropRecord* record = list.Find(id);
        if (!record || (record->flags & PROP_NOT_PERSISTED) || (flags & PROP_TYPE_MASK) != record->Type()) continue;

        switch (record->Type()) {
            case PropTypeNone:
            case PropTypeByte:
            case PropTypeShort:
            case PropTypeLong: {
                int32_t value = 0;
                if (sub->ReadValue(keys.value.Get(), &value, 4, 0) >= 0) component->Control(id, value);
                break;
            }
            case PropTypeFloat:
            case PropTypeDouble: {
                double value = 0.0;
                if (sub->ReadValue(keys.value.Get(), &value, 8, 0) >= 0)
                    component->Control(id, PROPFloatBits(static_cast<float>(value)));
                break;
            }
            case PropTypeString: {
                SmartPtr<IString> string = SmartPtr<IString>::Adopt(CREFString::CreateString());
                if (!string || sub->ReadString(keys.value.Get(), string.Get()) < 0) break;
                // The stored flags say whether the text was saved relative.
                if (flags & PROP_FILENAME) string = Resolved(string);
                component->ControlEx(id, string.Get());
                break;
            }
            case PropTypeObject: {
                SmartPtr<IUnknown> object;
                if (sub->ReadObject(keys.value.Get(), object.Out()) >= 0 && object)
                    component->ControlEx(id, object.Get());
                break;
            }
            default: break;
        }
    }
}
