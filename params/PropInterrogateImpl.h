// IUIPropInterrogateImpl<T, Interface, GrowthStep>: the numbered parameter
// list of a component and the interrogation interface over it.
//
// A component declares its parameters in FinalConstruct (DeclareParameter
// for free values and switches, PropE for named choices); each parameter
// points at the component's own member. Hosts read and write them by number
// through IUIPropInterrogate(Ex), and the four persistence operations save
// and load the whole list.
//
// A component that answers Inquire/Control itself (its override serves the
// same slot of every interface it derives) reaches the list's behaviour as
// IUIPropInterrogateImpl::Inquire/Control, or through FindParameter and the
// typed PROPReadInteger/PROPWriteInteger.
#pragma once

#include <new>

#include "lum/lum.h"
#include "params/PropList.h"
#include "params/PropPersist.h"
#include "text/REFString.h"

template <class T, class Interface, int GrowthStep>
class IUIPropInterrogateImpl : public Interface {
    static_assert(sizeof(SmartPtr<IString>) == sizeof(IString*), "string members may be held in a SmartPtr");

public:
    // IUIPropInterrogate
    HRESULT Inquire(int32_t code, int32_t* value) override {
        if (code == PROP_LIST_QUERY) {
            if (value) *value = m_Parameters.Count();
            return S_OK;
        }
        const PropRecord* record = m_Parameters.Find(code);
        if (!record) return E_INVALIDARG;
        return PROPReadInteger(*record, value);
    }

    /// No range or enumeration check: the caller (a property page) is trusted.
    HRESULT Control(int32_t code, int32_t value) override {
        const PropRecord* record = m_Parameters.Find(code);
        if (!record) return E_INVALIDARG;
        PROPWriteInteger(*record, value);
        return S_OK;
    }

    HRESULT ParameterRange(int32_t code, int32_t* minimum, int32_t* maximum) override {
        if (minimum) *minimum = 0;
        if (maximum) *maximum = 0;
        if (code == PROP_LIST_QUERY) {
            if (m_Parameters.Count() == 0) return E_FAIL;
            int32_t lowest = m_Parameters.At(0)->id, highest = lowest;
            for (int32_t i = 1; i < m_Parameters.Count(); ++i) {
                const int32_t id = m_Parameters.At(i)->id;
                if (id < lowest) lowest = id;
                if (id > highest) highest = id;
            }
            if (minimum) *minimum = lowest;
            if (maximum) *maximum = highest;
            return S_OK;
        }
        const PropRecord* record = m_Parameters.Find(code);
        if (!record || record->kind != PROP_KIND_RANGE) return E_INVALIDARG;
        if (minimum) *minimum = record->range.minimum;
        if (maximum) *maximum = record->range.maximum;
        return S_OK;
    }

    HRESULT ParameterEnumeration(int32_t code, IUnknown** list) override {
        if (!list) return E_POINTER;
        *list = nullptr;
        const PropRecord* record = m_Parameters.Find(code);
        if (!record || record->kind != PROP_KIND_ENUMERATION) return E_INVALIDARG;
        *list = record->enumeration;
        if (*list) (*list)->AddRef();
        return S_OK;
    }

    // IUIPropInterrogateEx
    HRESULT InquireEx(int32_t code, IUnknown** value) override {
        if (value) *value = nullptr;
        const PropRecord* record = m_Parameters.Find(code);
        if (!record) return E_INVALIDARG;
        if (!value || !record->value) return static_cast<HRESULT>(record->flags);
        switch (record->Type()) {
            case PropTypeDouble: {
                IVariant* variant = CREFString::CreateVariant();
                if (!variant) return E_FAIL;
                variant->put_Double(PROPLoad<double>(record->value));
                *value = variant;
                break;
            }
            case PropTypeString: {
                IString* stored = *static_cast<IString* const*>(record->value);
                if (stored) stored->AddRef();
                *value = stored;
                break;
            }
            case PropTypeObject: {
                IUnknown* stored = *static_cast<IUnknown* const*>(record->value);
                if (stored) stored->AddRef();
                *value = stored;
                break;
            }
            default: return E_FAIL;
        }
        return static_cast<HRESULT>(record->flags);
    }

    HRESULT ControlEx(int32_t code, IUnknown* value) override {
        const PropRecord* record = m_Parameters.Find(code);
        if (!record) return E_INVALIDARG;
        switch (record->Type()) {
            case PropTypeDouble: {
                SmartPtr<IVariant> variant = QueryAs<IVariant>(value, IID_IVariant);
                double number = 0.0;
                if (!variant || !record->value || variant->get_Double(&number) < 0) return E_FAIL;
                PROPStore<double>(record->value, number);
                return S_OK;
            }
            case PropTypeString: {
                // The new string is taken before the old one is let go, so
                // storing the string already held cannot destroy it.
                IString* string = nullptr;
                if (value) value->QueryInterface(IID_IString, reinterpret_cast<void**>(&string));
                ReplaceMember(record, string);
                return S_OK;
            }
            case PropTypeObject:
                if (value) value->AddRef();
                ReplaceMember(record, value);
                return S_OK;
            default: return E_FAIL;
        }
    }

    // Persistence. The trailing flags are accepted and not used; every
    // operation returns 0: a failure only means that less was written or
    // applied.
    virtual HRESULT UIPropInterrogate_SaveFolderStream(INamedCollection* names, IFolderStream* folder,
                                                       int32_t flags) {
        try {
            PROPSaveFolderStream(m_Parameters, this, names, folder);
        } catch (const std::bad_alloc&) {
        }
        return S_OK;
    }
    virtual HRESULT UIPropInterrogate_LoadFolderStream(IFolderStream* folder, int32_t flags) {
        try {
            PROPLoadFolderStream(m_Parameters, this, folder);
        } catch (const std::bad_alloc&) {
        }
        return S_OK;
    }
    virtual HRESULT UIPropInterrogate_SaveXML(INamedCollection* names, IDataStream* stream, int32_t flags) {
        try {
            PROPSaveXML(m_Parameters, this, names, stream);
        } catch (const std::bad_alloc&) {
        }
        return S_OK;
    }
    virtual HRESULT UIPropInterrogate_LoadXML(INamedCollection* names, IDataStream* stream, int32_t flags) {
        try {
            PROPLoadXML(m_Parameters, this, names, stream);
        } catch (const std::bad_alloc&) {
        }
        return S_OK;
    }

protected:
    IUIPropInterrogateImpl() : m_Parameters(GrowthStep) {}
    ~IUIPropInterrogateImpl() = default;

    /// Declares a parameter with a range: minimum and maximum 0 for free
    /// values, 0 and 1 with flag 0x10 for switches. Type 0 is stored as 3.
    HRESULT DeclareParameter(int32_t id, void* member, int32_t flags, int32_t minimum = 0, int32_t maximum = 0) {
        return m_Parameters.DeclareRange(id, member, flags, minimum, maximum);
    }

    /// Declares a parameter with named choices: string `number` of the
    /// owner's string table, items separated by "|", valued `values[i]`
    /// (i < `valueCount`) or i. The owner is `owner` itself when it is a
    /// string, else its class name; null means this component.
    HRESULT PropE(int32_t id, void* member, int32_t flags, IUnknown* owner, int32_t number,
                  const int32_t* values = nullptr, int32_t valueCount = 0) {
        try {
            return PROPDeclareChoices(m_Parameters, this, id, member, flags, owner, number, values, valueCount);
        } catch (const std::bad_alloc&) {
            return E_FAIL;
        }
    }

    PropRecord* FindParameter(int32_t code) const { return m_Parameters.Find(code); }

    CPropList m_Parameters;

private:
    /// Stores `replacement` (whose reference passes to the member) in a
    /// string or object member under the component's lock; what the member
    /// held is released once the lock is given back.
    template <class I>
    void ReplaceMember(const PropRecord* record, I* replacement) {
        if (!record->value) {
            if (replacement) replacement->Release();
            return;
        }
        T* component = static_cast<T*>(this);
        const bool locked = component->Lock() == 0;
        I*& member = *static_cast<I**>(record->value);
        I* old = member;
        member = replacement;
        if (locked) component->Unlock();
        if (old) old->Release();
    }
};
