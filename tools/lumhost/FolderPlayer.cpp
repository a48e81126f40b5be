#include "tools/lumhost/FolderPlayer.h"

#include <cstring>
#include <filesystem>

#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

int32_t FloatBits(double value) {
    const float narrow = static_cast<float>(value);
    int32_t bits = 0;
    std::memcpy(&bits, &narrow, sizeof bits);
    return bits;
}

SmartPtr<IString> HostString(FrameworkHost& host, const std::wstring& text) {
    SmartPtr<IString> string = host.Create<IString>(L"CreatableString", IID_IString);
    if (string) string->SetText(static_cast<int32_t>(text.size()), text.c_str());
    return string;
}

FolderPlayer OpenFolderPlayer(FrameworkHost& host, const std::string& folder, double fps, bool backward,
                              int retention) {
    FolderPlayer result;
    if (!std::filesystem::is_directory(folder)) {
        result.error = "no folder " + folder;
        return result;
    }
    SmartPtr<ICamera> player = host.Create<ICamera>(L"LUMFilePlayer", IID_ICamera);
    SmartPtr<IUIPropInterrogateEx> parameters =
        player ? player.As<IUIPropInterrogateEx>(IID_IUIPropInterrogateEx) : nullptr;
    SmartPtr<ISimpleCollection> files = player ? player.As<ISimpleCollection>(IID_ISimpleCollection) : nullptr;
    if (!parameters || !files) {
        result.error = "cannot create the file player";
        return result;
    }
    const std::wstring path = Widen(std::filesystem::absolute(folder).lexically_normal().string());
    SmartPtr<IString> pattern = HostString(host, path);
    parameters->ControlEx(50, pattern.Get());  // the folder, listed in name order
    files->get_Count(&result.count);
    parameters->Control(52, FloatBits(fps));
    parameters->Control(54, backward ? 1 : 0);
    parameters->Control(57, retention);
    // Every step moves first and shows then: start one before the first
    // file (or at the first, which steps back to the last).
    parameters->Control(55, backward ? 0 : -1);
    result.camera = player;
    return result;
}
