#include "tools/lumhost/CameraChoice.h"

#include <arv.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>

#include "tools/lumhost/FrameworkHost.h"
#include "tools/lumhost/Options.h"

const char* const kCameraOptionUsage =
    "  --camera C      source camera: test (the synthetic camera, the default),\n"
    "                  aravis (the first camera Aravis finds) or aravis:ID (the\n"
    "                  Aravis camera ID, as 'lumhost cameras' lists it); an Aravis\n"
    "                  camera keeps its own size, format and rate unless --size,\n"
    "                  --bits or --fps are given\n";

namespace {

// Codes of "LUMAravisCamera" (and, for 1-4, of the synthetic camera).
enum : int32_t {
    kWidth = 1,
    kHeight = 2,
    kBits = 3,
    kFrameRate = 4,
    kDelivered = 20,
    kIncomplete = 21,
    kDropped = 22,
};

bool g_AravisSelected = false;

/// Applies one setting; false (with `error` set) when the camera refuses
/// the value. A setting the camera lacks is skipped with a note.
bool Apply(ICamera* camera, int32_t code, int32_t value, const std::string& option, std::string& error) {
    const HRESULT hr = camera->Control(code, value);
    if (hr >= 0) return true;
    if (hr == E_NOTIMPL) {
        std::fprintf(stderr, "lumhost: the camera has no such setting: %s ignored\n", option.c_str());
        return true;
    }
    error = "the camera refuses " + option + (hr == E_INVALIDARG ? "" : " (" + ResultText(hr) + ")");
    return false;
}

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

/// The message for a --camera value that names no camera.
std::string CameraValueProblem(const std::string& text) {
    return "--camera must be test, aravis or aravis:ID, not '" + text + "'";
}

}  // namespace

bool ParseCameraChoice(const std::string& text, bool* aravis, std::string* id) {
    id->clear();
    if (text == "test") {
        *aravis = false;
        return true;
    }
    if (text == "aravis") {
        *aravis = true;
        return true;
    }
    if (text.rfind("aravis:", 0) == 0) {
        *aravis = true;
        *id = text.substr(7);
        return true;
    }
    return false;
}

void SelectAravisInterfaces() {
    if (g_AravisSelected) return;
    g_AravisSelected = true;
    const bool fake = Environment("LUM_ARAVIS_FAKE") == "1";
    const std::string list = Environment("LUM_ARAVIS_INTERFACES");
    std::set<std::string> wanted;
    std::stringstream items(list);
    for (std::string item; std::getline(items, item, ',');)
        if (!item.empty()) wanted.insert(item);
    std::set<std::string> known;
    for (unsigned i = 0; i < arv_get_n_interfaces(); ++i) {
        const std::string name = arv_get_interface_id(i);
        known.insert(name);
        const bool enable = (name != "Fake" || fake) && (list.empty() || wanted.count(name));
        if (enable)
            arv_enable_interface(name.c_str());
        else
            arv_disable_interface(name.c_str());
    }
    for (const std::string& name : wanted) {
        if (known.count(name)) continue;
        std::string names;
        for (const std::string& k : known) names += (names.empty() ? "" : ", ") + k;
        std::fprintf(stderr, "lumhost: LUM_ARAVIS_INTERFACES names '%s', which Aravis does not have (it has %s)\n",
                     name.c_str(), names.c_str());
    }
}

void EndAravis() {
    if (g_AravisSelected) arv_shutdown();
    g_AravisSelected = false;
}

CameraChoice OpenSourceCamera(FrameworkHost& host, const CameraRequest& request) {
    CameraChoice choice;
    std::string id;
    if (!ParseCameraChoice(request.camera, &choice.aravis, &id)) {
        choice.error = CameraValueProblem(request.camera);
        choice.exitCode = 2;
        return choice;
    }
    choice.exitCode = 1;
    if (!choice.aravis) {
        choice.description = "the synthetic camera";
        SmartPtr<ICamera> camera = host.Create<ICamera>(L"LUMTestCamera", IID_ICamera);
        if (!camera) {
            choice.error = "cannot create the synthetic camera";
            return choice;
        }
        camera->Control(kWidth, request.width);
        camera->Control(kHeight, request.height);
        camera->Control(kBits, request.bits);
        camera->Control(kFrameRate, request.fps);
        choice.camera = camera;
        choice.exitCode = 0;
        return choice;
    }

    SelectAravisInterfaces();
    choice.description = id.empty() ? "the first Aravis camera" : "Aravis camera " + id;
    HRESULT hr = E_FAIL;
    SmartPtr<ICamera> camera = host.Create<ICamera>(L"LUMAravis.LUMAravisCamera", IID_ICamera, &hr);
    if (!camera) {
        choice.error = "cannot create an Aravis camera (LUMAravis.so missing?) (" + ResultText(hr) + ")";
        return choice;
    }
    const std::wstring wide = Widen(id);
    if (camera->LoadParameters(tagREFString{static_cast<int32_t>(wide.size()), const_cast<wchar_t*>(wide.c_str())}) <
        0) {
        choice.error = id.empty() ? "Aravis finds no camera ('lumhost cameras' lists what it finds)"
                                  : "Aravis cannot open a camera '" + id + "' ('lumhost cameras' lists the cameras)";
        return choice;
    }
    const std::string size = std::to_string(request.width) + "x" + std::to_string(request.height);
    if ((request.hasSize && (!Apply(camera.Get(), kWidth, request.width, "--size " + size, choice.error) ||
                             !Apply(camera.Get(), kHeight, request.height, "--size " + size, choice.error))) ||
        (request.hasBits &&
         !Apply(camera.Get(), kBits, request.bits, "--bits " + std::to_string(request.bits), choice.error)) ||
        (request.hasFps &&
         !Apply(camera.Get(), kFrameRate, request.fps, "--fps " + std::to_string(request.fps), choice.error)))
        return choice;
    choice.camera = camera;
    choice.exitCode = 0;
    return choice;
}

int CameraFrameRate(ICamera* camera, int fallback) {
    int32_t rate = 0;
    return camera && camera->Inquire(kFrameRate, &rate) >= 0 && rate > 0 ? rate : fallback;
}

std::string AravisCounters(ICamera* camera) {
    int32_t delivered = 0, incomplete = 0, dropped = 0;
    camera->Inquire(kDelivered, &delivered);
    camera->Inquire(kIncomplete, &incomplete);
    camera->Inquire(kDropped, &dropped);
    return std::to_string(delivered) + " delivered, " + std::to_string(incomplete) + " incomplete, " +
           std::to_string(dropped) + " dropped";
}

namespace {

const char* kCamerasUsage =
    "usage: lumhost cameras\n"
    "Lists the cameras that Aravis finds (GigE Vision on every network interface,\n"
    "USB3 Vision): id, vendor, model, serial number and address. Record one with\n"
    "  lumhost record --camera aravis:ID ...\n"
    "Environment:\n"
    "  LUM_ARAVIS_FAKE=1          also offer Aravis's in-process fake camera (id\n"
    "                             Fake_1), for tests and demos without a camera;\n"
    "                             every command that takes --camera honours it\n"
    "  LUM_ARAVIS_INTERFACES=L    search only the Aravis interfaces named in the\n"
    "                             comma-separated list L (GigEVision, USB3Vision,\n"
    "                             Fake), e.g. Fake to send no discovery on a network\n";

std::string Field(const char* text) { return text && *text ? text : "-"; }

}  // namespace

int CamerasCommand(FrameworkHost& /*host*/, const std::vector<std::string>& args) {
    Options options(args, {}, {"help"});
    if (options.Has("help")) {
        std::fputs(kCamerasUsage, stdout);
        return 0;
    }
    if (!options.Error().empty()) {
        std::fprintf(stderr, "lumhost cameras: %s\n\n%s", options.Error().c_str(), kCamerasUsage);
        return 2;
    }
    SelectAravisInterfaces();
    arv_update_device_list();
    std::vector<std::vector<std::string>> rows = {{"ID", "VENDOR", "MODEL", "SERIAL", "ADDRESS"}};
    for (unsigned i = 0; i < arv_get_n_devices(); ++i)
        rows.push_back({Field(arv_get_device_id(i)), Field(arv_get_device_vendor(i)), Field(arv_get_device_model(i)),
                        Field(arv_get_device_serial_nbr(i)), Field(arv_get_device_address(i))});
    if (rows.size() == 1) {
        std::printf("no cameras found%s\n",
                    Environment("LUM_ARAVIS_FAKE") == "1" ? "" : " (LUM_ARAVIS_FAKE=1 offers Aravis's fake camera)");
        return 0;
    }
    std::vector<size_t> widths(rows[0].size(), 0);
    for (const auto& row : rows)
        for (size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], row[c].size());
    for (const auto& row : rows) {
        std::string line;
        for (size_t c = 0; c < row.size(); ++c) {
            line += row[c];
            if (c + 1 < row.size()) line += std::string(widths[c] - row[c].size() + 2, ' ');
        }
        std::printf("%s\n", line.c_str());
    }
    std::printf("%zu camera%s\n", rows.size() - 1, rows.size() == 2 ? "" : "s");
    return 0;
}

std::string CameraOptionProblem(const Options& options) {
    bool aravis = false;
    std::string id;
    const std::string text = options.Text("camera", "test");
    return ParseCameraChoice(text, &aravis, &id) ? "" : CameraValueProblem(text);
}

CameraRequest RequestFromOptions(const Options& options, int width, int height, int bits, int fps) {
    CameraRequest request;
    request.camera = options.Text("camera", "test");
    request.width = width;
    request.height = height;
    request.bits = bits;
    request.fps = fps;
    request.hasSize = options.Has("size");
    request.hasBits = options.Has("bits");
    request.hasFps = options.Has("fps");
    return request;
}
