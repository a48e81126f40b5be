#include "components/ComponentBase.h"

#include "text/REFString.h"

SmartPtr<IString> MakeString(const wchar_t* text) {
    SmartPtr<IString> string = SmartPtr<IString>::Adopt(CREFString::CreateString());
    if (string) string->SetText(-1, text);
    return string;
}
