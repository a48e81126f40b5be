// The headless property pages. Nothing is displayed: a page keeps what its
// last Show was given (counted) for GetShown, until Close. The slide page
// also lays its parameters over a viewer.
#pragma once

#include "framework/common/KitModule.h"
#include "module/object/InterfaceTable.h"
#include "module/object/Object.h"

template <class T>
class CPropertyPage : public CObject<T>, public IUIPropertyPage, public IObjectInfoImpl<T> {
public:
    HRESULT QueryInterface(const IID& iid, void** object) override {
        static const InterfaceEntry<T> kInterfaces[] = {
            InterfaceEntry<T>::template Of<IUIPropertyPage>(IID_IUIPropertyPage),
            InterfaceEntry<T>::template Of<IObjectInfo>(IID_IObjectInfo),
            InterfaceEntry<T>::End(),
        };
        return QueryInterfaceFromTable<T>(static_cast<T*>(this), kInterfaces, iid, object);
    }
    uint32_t AddRef() override { return CObject<T>::InternalAddRef(); }
    uint32_t Release() override { return CObject<T>::InternalRelease(); }
    IUnknown* PrimaryUnknown() { return static_cast<CObject<T>*>(this); }

    /// Keeps the arguments (any may be null) in place of the last ones.
    HRESULT Show(ISimpleCollection* objects, IString* name, int32_t mode, IUnknown* owner) override {
        m_Objects.Assign(objects);
        m_Name.Assign(name);
        m_Mode = mode;
        m_Owner.Assign(owner);
        m_Shown = true;
        return OnShow();
    }

    HRESULT Apply() override { return S_OK; }

    HRESULT Close() override {
        m_Shown = false;
        m_Mode = 0;
        m_Objects = nullptr;
        m_Name = nullptr;
        m_Owner = nullptr;
        return S_OK;
    }

    /// The arguments of the last Show (each output may be null); S_FALSE,
    /// null and 0 while nothing is shown.
    HRESULT GetShown(ISimpleCollection** objects, IString** name, int32_t* mode, IUnknown** owner) override {
        if (objects) m_Objects.CopyTo(objects);
        if (name) m_Name.CopyTo(name);
        if (mode) *mode = m_Mode;
        if (owner) m_Owner.CopyTo(owner);
        return m_Shown ? S_OK : S_FALSE;
    }

protected:
    /// What a page does beyond keeping the arguments; its result is Show's.
    virtual HRESULT OnShow() { return S_OK; }

    SmartPtr<ISimpleCollection> m_Objects;
    SmartPtr<IString> m_Name;
    int32_t m_Mode = 0;
    SmartPtr<IUnknown> m_Owner;
    bool m_Shown = false;
};

/// "UIPropInterrogatePropPage": the generic parameter page.
class CUIPropInterrogatePropPage final : public CPropertyPage<CUIPropInterrogatePropPage> {};
LUM_KIT_OBJECT_NAME_DECLARE(CUIPropInterrogatePropPage)

/// "UIFileArchivePropPage": the file-archive page.
class CUIFileArchivePropPage final : public CPropertyPage<CUIFileArchivePropPage> {};
LUM_KIT_OBJECT_NAME_DECLARE(CUIFileArchivePropPage)

/// "LUMCollectionPropPage": the collection page.
class CLUMCollectionPropPage final : public CPropertyPage<CLUMCollectionPropPage> {};
LUM_KIT_OBJECT_NAME_DECLARE(CLUMCollectionPropPage)

/// "UIParametersSlidePropPage": the overlay page. Shown with mode 1 for
/// (a named collection of parameters, a viewer answering ISuperCollection),
/// it adds the parameters to the viewer's overlays.
class CUIParametersSlidePropPage final : public CPropertyPage<CUIParametersSlidePropPage> {
protected:
    HRESULT OnShow() override;
};
LUM_KIT_OBJECT_NAME_DECLARE(CUIParametersSlidePropPage)
