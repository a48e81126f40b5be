#include "framework/UIPropPages/MessageWindow.h"

#include <cstdio>
#include <string>

#include "framework/common/KitText.h"

LUM_KIT_OBJECT_NAME(CMessageWindow, L"MessageWindow")

const InterfaceEntry<CMessageWindow> CMessageWindow::kInterfaces[] = {
    InterfaceEntry<CMessageWindow>::Of<IMessageWindow>(IID_IMessageWindow),
    InterfaceEntry<CMessageWindow>::Of<IObjectInfo>(IID_IObjectInfo),
    InterfaceEntry<CMessageWindow>::End(),
};

HRESULT CMessageWindow::ShowText(tagREFString text) {
    std::wstring wide;
    if (!KitViewText(text, wide)) return E_POINTER;
    std::string line = KitEncodeUtf8(wide);
    line.push_back('\n');
    if (std::fwrite(line.data(), 1, line.size(), stderr) != line.size()) return E_FAIL;
    std::fflush(stderr);
    return S_OK;
}

HRESULT CMessageWindow::Close() { return S_OK; }
