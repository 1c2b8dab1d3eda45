// main.cpp — start-up of the tavok program: defaults, banner, window, panel, cut shapes, view,
// slices and camera, then the frame loop, which never returns.
//
// tavok [FILE]: a file named on the command line (after GTK has taken its own options) is
// handed to the load path as the file chooser would hand it, so the first frames load it.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "app/window/window.h"
#include "panel/panel.h"
#include "app/app.h"

static const char* program_name;

int main(int argc, char** argv)
{
    // Log lines are part of the behaviour; keep them in order and prompt when piped.
    setvbuf(stdout, nullptr, _IOLBF, 0);

    set_default_settings();
    puts("tavok by Mara Quill");
    puts("https://tavok.org/");
    puts("");

    program_name = argv[0];
    window_width = 512;
    window_height = 512;
    init_display(512, 512, 32, 0);
    init_control_panel(&argc, &argv);

    if (argc > 1 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0))
        clean_up_and_exit(0, "usage: %s [FILE]\n  FILE  a volume to load at start (.dat, .kvx, .vox)\n",
                          program_name);

    start_view();

    if (argc > 1) {
        if (argc > 2) printf("only the first file is loaded: %s\n", argv[1]);
        pending_load_name = strdup(argv[1]);
        load_requested = 1;
    }
    frame_loop();
}
