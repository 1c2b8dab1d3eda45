// walk.cpp — the out-of-line pieces of the shared ray skeleton (walk.h, final.h): the frame
// set-up, the polling of the finals, and lattice_step. Called by every ray-casting
// pass; writes lattice_step and lattice_rays and, on an interruption, the color and depth
// buffers of the target.
#include <cmath>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "raycast/final.h"
#include "raycast/walk.h"
#include "volume/volume.h"

int lattice_step = 8;
uint32_t lattice_rays = 0;

void setup_ray_frame(RayFrame& f, const RenderTarget* target, const float* ipos, const float* ifor,
                     const float* iup, const float* istr)
{
    const ViewExtents v = view_extents(target);
    for (int a = 0; a < 3; ++a) f.eye[a] = ipos[a];
    // Six inclusive bounds against the sizes: the upper one is one beyond the last cell.
    f.eye_inside = 0.0f <= ipos[0] && ipos[0] <= (float)vol_x && 0.0f <= ipos[1] &&
                   ipos[1] <= (float)vol_y && 0.0f <= ipos[2] && ipos[2] <= (float)vol_z;
    for (int a = 0; a < 3; ++a) {
        f.first[a] = ifor[a] - istr[a] * v.half_str - iup[a] * v.half_up;
        f.pixel_inc[a] = v.pixel_step * istr[a];
        f.line_inc[a] = v.pixel_step * iup[a];
    }
}

bool poll_final_line(RenderTarget* target, uint32_t y, Polling polling)
{
    // The line's share of the height the pass runs at: a resize of the window inside the pumps
    // makes the buffers anew at another height (and sets refresh, which ends the pass), and a
    // line of the old image measured against a smaller height would be past the whole bar.
    const double done = (double)y / target->height;
    gui_pump();
    input_pump();
    set_progress("GUIprogressBar", done);
    if (polling != Polling::odd_lines) return refresh || color_dialog_open;
    if (!refresh) return false;
    size_t pixels = (size_t)target->width * target->height;
    memset(target->color, 0, pixels * 4);
    memset(target->depth, 0, pixels * 4);
    return true;
}

bool poll_inside_line()
{
    gui_pump();
    input_pump();
    return refresh || color_dialog_open;
}
