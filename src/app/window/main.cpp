// main.cpp — start-up of the tavok program: defaults, banner, window, panel, cut shapes, view,
// slices and camera, then the frame loop, which never returns.
//
// tavok [FILE] [import options]: a file named on the command line (after GTK has taken its own
// options) is handed to the load path as the file chooser would hand it, so the first frames
// load it; the importer's options (--raw, --window, --keep-grid, --max-size) hold for it and for
// every file chosen later. tavok --help prints the usage before anything else and opens no
// window.
//
// The window is X11 only. SDL 1.2 would fall back to a text-mode driver without a display,
// taking over the terminal (alternate screen, mouse tracking, escape codes) before the panel
// gives up; so the X11 driver is asked for unless SDL_VIDEODRIVER names another, and without
// a display the start fails at once with one line on standard error and status 1.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/core.h"
#include "core/seam.h"
#include "app/window/window.h"
#include "panel/panel.h"
#include "app/app.h"
#include "import/import.h"

static const char* program_name;

static bool asks_for_help(int argc, char** argv)
{
    for (int k = 1; k < argc; ++k)
        if (strcmp(argv[k], "--help") == 0 || strcmp(argv[k], "-h") == 0) return true;
    return false;
}

int main(int argc, char** argv)
{
    // Log lines are part of the behaviour; keep them in order and prompt when piped.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    program_name = argv[0];
    if (asks_for_help(argc, argv)) {
        printf("usage: %s [FILE] [options]\n"
               "  FILE  a volume to load at start: .dat, .kvx, .vox, a DICOM series (its\n"
               "        folder or any of its files), NIfTI, NRRD, or raw with --raw\n%s"
               "The window needs an X display; tavok-render renders a volume to a PNG without one.\n",
               program_name, import_usage_text);
        return 0;
    }
    // Only X11 shows the window; a driver the user names is the user's choice.
    setenv("SDL_VIDEODRIVER", "x11", 0);

    set_default_settings();
    puts("tavok by Mara Quill");
    puts("https://tavok.org/");
    puts("");

    window_width = 512;
    window_height = 512;
    init_display(512, 512, 32, 0);
    init_control_panel(&argc, &argv);

    // The importer's options hold for the file named here and for every file chosen later.
    const char* file = nullptr;
    bool more_files = false;
    for (int k = 1; k < argc; ++k) {
        std::string error;
        int used = parse_import_option(argc, argv, k, error);
        if (used < 0) clean_up_and_exit(2, "%s: %s\n", program_name, error.c_str());
        if (used > 0) k += used - 1;
        else if (!file) file = argv[k];
        else more_files = true;
    }

    start_view();

    if (file) {
        if (more_files) printf("only the first file is loaded: %s\n", file);
        pending_load_name = strdup(file);
        load_requested = 1;
    }
    frame_loop();
}
