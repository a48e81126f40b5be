// The source camera of the commands that record (--camera test|aravis[:ID]):
// the synthetic camera "LUMTestCamera", or a camera of the Aravis library
// ("LUMAravis.LUMAravisCamera"), configured from --size, --bits and --fps
// where the camera supports them. Also the "cameras" command, which lists
// the cameras that Aravis finds.
#pragma once

#include <string>
#include <vector>

#include "lum/lum.h"

class FrameworkHost;

/// The usage lines of --camera, shared by every command that takes it.
extern const char* const kCameraOptionUsage;

/// What a command asks of its source camera.
struct CameraRequest {
    std::string camera = "test";  // the --camera value
    int width = 640, height = 480;
    int bits = 8;
    int fps = 25;
    // Which of the values above the user gave. The synthetic camera takes
    // them all (with the command's defaults); an Aravis camera keeps its own
    // settings for those not given.
    bool hasSize = false, hasBits = false, hasFps = false;
};

struct CameraChoice {
    SmartPtr<ICamera> camera;
    bool aravis = false;
    std::string description;  // "the synthetic camera", "Aravis camera Fake_1"
    std::string error;        // why there is no camera
    int exitCode = 0;         // 2: a bad --camera value; 1: no camera
};

/// Splits a --camera value: "test", "aravis" (the first camera Aravis
/// finds) or "aravis:ID". False for anything else.
bool ParseCameraChoice(const std::string& text, bool* aravis, std::string* id);

class Options;
/// Why the command's --camera value is not one of those; empty when it is.
std::string CameraOptionProblem(const Options& options);

/// The request of a command's --camera, --size, --bits and --fps, with the
/// values the command settled on for the last three (bits: 8, 24 or 32).
CameraRequest RequestFromOptions(const Options& options, int width, int height, int bits, int fps);

/// Creates and configures the camera of `request`. Settings the camera
/// lacks altogether are skipped with a note on standard error; values it
/// refuses are an error.
CameraChoice OpenSourceCamera(FrameworkHost& host, const CameraRequest& request);

/// The frame rate the camera reports (code 4), or `fallback`.
int CameraFrameRate(ICamera* camera, int fallback);

/// "200 delivered, 0 incomplete, 0 dropped" for an Aravis camera.
std::string AravisCounters(ICamera* camera);

/// Sets which Aravis interfaces are searched, from the environment:
/// LUM_ARAVIS_FAKE=1 enables the in-process fake camera, and
/// LUM_ARAVIS_INTERFACES (a comma-separated list) limits the search to the
/// interfaces it names. Runs once.
void SelectAravisInterfaces();

/// Frees what Aravis holds, if it was used. Call once every camera is released.
void EndAravis();

/// "cameras": lists the attached Aravis devices.
int CamerasCommand(FrameworkHost& host, const std::vector<std::string>& args);
