// start.cpp — start-up without the windows: the start values, the image buffers of a window of
// a given size, the view constants, the slices and the start camera. main runs the same steps
// around the window and the panel; tavok-render, the tests and the benchmarks call
// start_library. Writes every setting, the camera and the frame buffers.
#include "app/app.h"
#include "core/core.h"
#include "slices/slices.h"
#include "volume/volume.h"

void set_start_camera()
{
    ipos[0] = (float)(vol_x / 2);
    ipos[1] = (float)(vol_y / 2);
    ipos[2] = (float)(vol_z / 2);
    ifor[0] = 0.0f, ifor[1] = 0.0f, ifor[2] = -1.0f;
    iup[0] = 0.0f, iup[1] = 1.0f, iup[2] = 0.0f;
    istr[0] = -1.0f, istr[1] = 0.0f, istr[2] = 0.0f;
    ipos[3] = ifor[3] = iup[3] = istr[3] = 0.0f;
}

void start_view()
{
    set_cut_defaults();
    compute_view_constants();
    reset_slices();
    set_start_camera();
}

void start_library(uint32_t w, uint32_t h)
{
    set_default_settings();
    set_panel_defaults();
    load_requested = 0;
    offscreen_render = 0;
    tex_scroll_x = tex_scroll_y = 0;
    color_dialog_open = 0;
    window_width = w;
    window_height = h;
    alloc_frame_buffers(w, h * 4 / 5, h * 4 / 5);
    start_view();
}
