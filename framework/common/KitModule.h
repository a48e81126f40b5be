// What every module of the framework kit shares: the two exported entry
// points generated from a class table, the module's component collection,
// and creation of objects of other classes by name through it.
//
// A kit module lists its classes once:
//
//     const KitClass kClasses[] = {KitClassOf<CRegistry>(), KitClassOf<CStringTable>()};
//     LUM_KIT_MODULE_ENTRY_POINTS(kClasses)
//
// and every class names itself with LUM_KIT_OBJECT_NAME, so the name that
// CreateFunction matches and the name IObjectInfo reports are one record.
#pragma once

#include <cstddef>
#include <string>

#include "lum/lum.h"
#include "module/object/ObjectInfo.h"

/// Declares, in a class's header, that its object name is defined elsewhere.
#define LUM_KIT_OBJECT_NAME_DECLARE(T) \
    template <>                        \
    const tagREFString IObjectInfoImpl<T>::m_ObjectName;

/// Defines the object name of class T (a wide string literal).
#define LUM_KIT_OBJECT_NAME(T, literal)                                                   \
    template <>                                                                           \
    const tagREFString IObjectInfoImpl<T>::m_ObjectName = {                               \
        static_cast<int32_t>(sizeof(literal) / sizeof(wchar_t) - 1), const_cast<wchar_t*>(literal)};

/// One row of a module's class table.
struct KitClass {
    const tagREFString* name;
    CreateInstanceFunction create;
};

/// The row of class T: its object name and its creation function.
template <class T>
constexpr KitClass KitClassOf() {
    return {&IObjectInfoImpl<T>::m_ObjectName, &T::_CreateInstance};
}

/// The row of class T created by another function (a shared instance, say).
template <class T>
constexpr KitClass KitClassOf(CreateInstanceFunction create) {
    return {&IObjectInfoImpl<T>::m_ObjectName, create};
}

/// True when `length`/`text` is exactly `name` (length and every character).
bool KitSameName(const tagREFString& name, int32_t length, const wchar_t* text);

/// The creation function of the row named exactly `length`/`text`, or null.
CreateInstanceFunction KitFindClass(const KitClass* table, size_t count, int32_t length,
                                    const wchar_t* text);

/// Body of the exported CreateFunction: S_OK and the creation function on an
/// exact match; E_FAIL, `*creator` untouched, otherwise.
HRESULT KitCreateFunction(const KitClass* table, size_t count, int32_t length, const wchar_t* text,
                          void** creator);

/// Body of the exported InitializeModule: keeps `collection` with a
/// reference (null keeps none) and releases the one kept before.
HRESULT KitInitializeModule(IComponentCollection* collection);

/// The collection given to InitializeModule, counted, or null.
SmartPtr<IComponentCollection> KitGivenCollection();

/// The module's collection: the one given to InitializeModule, else the
/// process's "GlobalComponentCollection" of "./CollectionsEx.so"; null when
/// neither is available.
SmartPtr<IComponentCollection> KitModuleCollection();

/// Creates an object of `className` through the module's collection.
/// E_FAIL when there is no collection; otherwise the collection's result.
HRESULT KitCreateObject(tagREFString className, const IID& iid, void** object);

template <class I>
SmartPtr<I> KitCreate(const wchar_t* className, const IID& iid, HRESULT* result = nullptr) {
    SmartPtr<I> object;
    HRESULT hr = KitCreateObject(REFStr(className), iid, object.OutVoid());
    if (result) *result = hr;
    return object;
}

/// Opens "./<file>" style module paths with dlopen(RTLD_NOW); on failure
/// writes "Module not available <file>, error <reason>" to standard error
/// and returns null. Modules are never closed.
void* KitOpenModuleFile(const std::string& file);

/// The two exported entry points of a kit module, generated from its table.
#define LUM_KIT_MODULE_ENTRY_POINTS(table)                                                     \
    extern "C" __attribute__((visibility("default"))) HRESULT InitializeModule(                \
        void* /*host*/, IComponentCollection* collection) {                                    \
        return KitInitializeModule(collection);                                                \
    }                                                                                          \
    extern "C" __attribute__((visibility("default"))) HRESULT CreateFunction(                  \
        int32_t length, const wchar_t* name, void** creator) {                                 \
        return KitCreateFunction(table, sizeof(table) / sizeof((table)[0]), length, name,     \
                                 creator);                                                     \
    }
