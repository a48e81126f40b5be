// Declaring parameters with named choices, and saving and loading a whole
// parameter list to XML and to folder streams. Written once for every
// component: the component is reached through its own interrogation
// interface, so that its Inquire/Control overrides apply.
#pragma once

#include <string>

#include "lum/lum.h"
#include "params/PropList.h"

/// The owner's named collection of strings (parameter names and choice
/// lists): the component's class name ("ComponentString", name index 1)
/// looked up in the "StringTable". Null when there is none.
SmartPtr<INamedCollection> PROPOwnerNames(IUnknown* component);

/// The element or sub-folder name of a parameter: its display name from
/// `names` (key "%i") with blanks turned into underscores, or the decimal
/// identifier without a names collection or entry.
std::wstring PROPTag(INamedCollection* names, int32_t id);

/// Declares a parameter whose choices are the "|"-separated items of string
/// `number` of the owner's string table. The owner is `owner` itself when it
/// is a string, else the class name of `owner` (or of `component` when
/// `owner` is null). Item i gets the value `values[i]` when i < `valueCount`,
/// else i. E_FAIL, with nothing declared, when the owner has no strings or
/// no such string.
HRESULT PROPDeclareChoices(CPropList& list, IUnknown* component, int32_t id, void* member, int32_t flags,
                           IUnknown* owner, int32_t number, const int32_t* values, int32_t valueCount);

/// Writes one element per persisted parameter into the stream's IXMLStream.
/// Names default to the owner's; without any nothing is written.
void PROPSaveXML(const CPropList& list, IUIPropInterrogateEx* component, INamedCollection* names,
                 IDataStream* stream);
/// Applies the elements of the stream's unread text to the parameters whose
/// tags they carry (letter case ignored); unknown elements are skipped.
void PROPLoadXML(const CPropList& list, IUIPropInterrogateEx* component, INamedCollection* names,
                 IDataStream* stream);
/// Writes one sub-folder ("ID", "Flags", "Value") per persisted parameter.
void PROPSaveFolderStream(const CPropList& list, IUIPropInterrogateEx* component, INamedCollection* names,
                          IFolderStream* folder);
/// Applies every sub-folder whose identifier and type match a persisted
/// parameter; the sub-folders' names are not used.
void PROPLoadFolderStream(const CPropList& list, IUIPropInterrogateEx* component, IFolderStream* folder);
