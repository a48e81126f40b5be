// lumhost: the command-line host of the camera module.
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/lumhost/CameraChoice.h"
#include "tools/lumhost/Commands.h"
#include "tools/lumhost/FrameworkHost.h"

namespace {

struct Command {
    const char* name;
    const char* summary;
    int (*run)(FrameworkHost&, const std::vector<std::string>&);
};

const Command kCommands[] = {
    {"probe", "create every component of the camera module and list what it answers", &ProbeCommand},
    {"record", "record a camera to JPEG/BMP files or an AVI (record --help)", &RecordCommand},
    {"play", "play a recording back through the camcorder (play --help)", &PlayCommand},
    {"replay", "replay a folder of images as a live camera through the file player (replay --help)",
     &ReplayCommand},
    {"watch", "print each new image of a folder as the file grab delivers it (watch --help)", &WatchCommand},
    {"stack", "record into a stack and save it, or load and play a stack (stack --help)", &StackCommand},
    {"view", "show a camera, recording, stack or folder live in a window (view --help)", &ViewCommand},
    {"sheet", "draw a contact sheet of a folder of images or an AVI file (sheet --help)", &SheetCommand},
    {"cameras", "list the cameras that Aravis finds (cameras --help)", &CamerasCommand},
};

void Usage(FILE* out) {
    std::fprintf(out,
                 "usage: lumhost COMMAND [ARGS...]\n"
                 "Run from the folder that holds LUMCamcorder.so and the framework modules.\n\n"
                 "commands:\n");
    for (const Command& c : kCommands) std::fprintf(out, "  %-7s %s\n", c.name, c.summary);
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
        Usage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    const Command* command = nullptr;
    for (const Command& c : kCommands)
        if (!std::strcmp(c.name, argv[1])) command = &c;
    if (!command) {
        std::fprintf(stderr, "lumhost: unknown command '%s'\n\n", argv[1]);
        Usage(stderr);
        return 2;
    }
    FrameworkHost host;
    if (!host.Start()) {
        std::fprintf(stderr, "lumhost: %s\n", host.Error().c_str());
        return 1;
    }
    int status = command->run(host, std::vector<std::string>(argv + 2, argv + argc));
    host.Stop();
    EndAravis();
    return status;
}
