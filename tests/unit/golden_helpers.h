// golden_helpers.h — the bundled phantom and the camera of the golden-image tests.
#pragma once
#include <unistd.h>

#include <cstdio>
#include <string>

#include "raycast_helpers.h"

// Loads the phantom that make-phantom writes into the build folder (making it first if need
// be). False when make-phantom is not built.
inline bool load_phantom()
{
    std::string dir = TAVOK_BUILD_DIR;
    std::string path = dir + "/phantom.dat", tool = dir + "/make-phantom";
    if (access(path.c_str(), R_OK) != 0) {
        if (access(tool.c_str(), X_OK) != 0) return false;
        // Written under a name of its own and then renamed, since tests running side by side
        // may make it at the same time: none of them may read a half-written file.
        std::string part = path + "." + std::to_string(getpid());
        std::string command = tool + " " + part + " > /dev/null";
        if (system(command.c_str()) != 0 || rename(part.c_str(), path.c_str()) != 0) return false;
    }
    testing::internal::CaptureStdout();
    bool loaded = load_volume_file(path.c_str());
    testing::internal::GetCapturedStdout();
    return loaded;
}

// Outside the phantom's box, looking at its centre from the front, from the side and from
// above.
inline void golden_camera()
{
    set_camera(-60.0f, 300.0f, 190.0f, 158.0f, -202.0f, -108.0f, 0.0f, 0.0f, 1.0f);
    clamp_forward();
}
