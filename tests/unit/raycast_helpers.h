// raycast_helpers.h — hand-made grids for the ray-casting tests: a grid filled cell by cell
// (no .dat margin unless the test makes one), with its gradients and brick map built, the
// lookup tables in place and a camera set by hand.
#pragma once
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "helpers.h"
#include "raycast/raycast.h"
#include "raycast/walk.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// Replaces the grid by an X x Y x Z one whose density at (x, y, z) is f(x, y, z), occlusion
// bits 0x80 as after a load, and rebuilds gradients and the brick map. Output of the builders
// is swallowed.
inline void make_grid(uint32_t X, uint32_t Y, uint32_t Z, const std::function<uint32_t(int, int, int)>& f)
{
    free(voxels);
    vol_x = X, vol_y = Y, vol_z = Z;
    voxels = (uint32_t*)calloc((size_t)X * Y * Z, 4);
    for (uint32_t x = 0; x < X; ++x)
        for (uint32_t y = 0; y < Y; ++y)
            for (uint32_t z = 0; z < Z; ++z) voxels[voxel_index(x, y, z)] = f(x, y, z) | 0x800000u;
    volume_loaded = 1;
    alloc_lookup_tables();
    reset_grey_tables();
    testing::internal::CaptureStdout();
    calc_gradients();
    build_block_map();
    testing::internal::GetCapturedStdout();
}

// Every density at or above `from` opaque (1.0) with colour `color`; all below transparent.
inline void opaque_from(uint32_t from, uint32_t color)
{
    for (uint32_t d = 0; d < 4096; ++d) {
        opacity_lut[d] = d >= from ? 1.0f : 0.0f;
        color_lut[d] = d >= from ? color : 0u;
    }
}

// A camera at eye looking along forward, with up as close to `up` as the frame allows:
// istr = up x ifor, iup = ifor x istr, all normalised, so that istr x iup = ifor.
inline void set_camera(float ex, float ey, float ez, float fx, float fy, float fz, float ux, float uy,
                       float uz)
{
    ipos[0] = ex, ipos[1] = ey, ipos[2] = ez, ipos[3] = 0.0f;
    const float forward[3] = {fx, fy, fz}, up[3] = {ux, uy, uz};
    look_along(forward, up);
}

// An image of w x h pixels (buffers cleared), with its view constants.
inline void set_image(uint32_t w, uint32_t h)
{
    alloc_frame_buffers(w, h, h);
    compute_view_constants();
}

inline void clear_image()
{
    size_t n = (size_t)render_target.width * render_target.height;
    memset(render_target.color, 0, n * 4);
    memset(render_target.depth, 0, n * 4);
    memset(render_target.mask, 0, n);
}

inline uint32_t pixel(uint32_t x, uint32_t y) { return render_target.color[y * render_target.width + x]; }
inline uint32_t depth_at(uint32_t x, uint32_t y) { return render_target.depth[y * render_target.width + x]; }
inline uint8_t mask_at(uint32_t x, uint32_t y) { return render_target.mask[y * render_target.width + x]; }

// FNV-1a over the colour words of the image.
inline uint32_t image_hash()
{
    uint32_t h = 2166136261u;
    const uint8_t* b = (const uint8_t*)render_target.color;
    size_t n = (size_t)render_target.width * render_target.height * 4;
    for (size_t i = 0; i < n; ++i) h = (h ^ b[i]) * 16777619u;
    return h;
}
