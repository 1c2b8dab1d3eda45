// walk.cpp — the out-of-line pieces of the shared ray skeleton (walk.h): the frame set-up,
// ray_box_entry, the odd-line interruption of the finals, and lattice_step. Called by every
// ray-casting pass; writes nothing but lattice_step's definition and, on an interruption, the
// color and depth buffers of the target.
#include <cmath>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "raycast/walk.h"
#include "volume/volume.h"

int lattice_step = 8;

void setup_ray_frame(RayFrame& f, const float* ipos, const float* ifor, const float* iup,
                     const float* istr)
{
    for (int a = 0; a < 3; ++a) f.eye[a] = ipos[a];
    // Six inclusive bounds against the sizes: the upper one is one beyond the last cell.
    f.eye_inside = 0.0f <= ipos[0] && ipos[0] <= (float)vol_x && 0.0f <= ipos[1] &&
                   ipos[1] <= (float)vol_y && 0.0f <= ipos[2] && ipos[2] <= (float)vol_z;
    for (int a = 0; a < 3; ++a) {
        f.first[a] = ifor[a] - istr[a] * half_extent_str - iup[a] * half_extent_up;
        f.pixel_inc[a] = pixel_step * istr[a];
        f.line_inc[a] = pixel_step * iup[a];
    }
}

bool ray_box_entry(const float* direction, const float* eye, float* out_point)
{
    const float size[3] = {(float)vol_x, (float)vol_y, (float)vol_z};
    // 4194304 stands for infinity: a candidate that far away is no entry.
    float best = 4194304.0f;
    for (int a = 0; a < 3; ++a) {
        const int b = a == 0 ? 1 : 0, c = a == 2 ? 1 : 2;
        float t, plane, term;
        if (direction[a] < 0.0f) {
            if (eye[a] < size[a]) continue;
            // Aims at the plane of the last cell, while the distance term takes the plane one
            // beyond it.
            t = ((size[a] - eye[a]) - 1.0f) / direction[a];
            plane = size[a] - 1.0f;
            term = eye[a] - size[a];
        } else {
            if (eye[a] >= 0.0f) continue;
            t = -eye[a] / direction[a];
            plane = 0.0f;
            term = eye[a];
        }
        const float pb = t * direction[b] + eye[b];
        const float pc = t * direction[c] + eye[c];
        // NaN from a zero component fails these tests too.
        if (!(0.0f <= pb && pb <= size[b] && 0.0f <= pc && pc <= size[c])) continue;
        const float db = eye[b] - pb, dc = eye[c] - pc;
        const float distance = sqrtf(term * term + db * db + dc * dc);
        if (distance < best) {
            out_point[a] = plane;
            out_point[b] = pb;
            out_point[c] = pc;
            best = distance;
        }
    }
    return best != 4194304.0f;
}

bool odd_line_interrupted(RenderTarget* target, uint32_t y)
{
    gui_pump();
    input_pump();
    set_progress("GUIprogressBar", (double)y / target->height);
    if (!refresh) return false;
    size_t pixels = (size_t)target->width * target->height;
    memset(target->color, 0, pixels * 4);
    memset(target->depth, 0, pixels * 4);
    return true;
}
