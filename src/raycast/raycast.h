// raycast.h — the first-hit ray casters and the skeleton all ray casters share: frame set-up,
// ray-box entry, the integer walk with brick skipping, and the adaptive preview lattice. The
// skeleton itself is in walk.h, which passes include; this header is what the rest of the
// program calls.
//
// Every pass reads voxels, gradients, block_map, the lookup tables and the settings, writes
// only the RenderTarget, and ends by showing the image (show_image).
#pragma once
#include <cstdint>

#include "core/core.h"

// Pixel distance of the first preview lattice, set by each preview and read by the finals.
extern int lattice_step;

// Render mode 0, cuberille first hit. The preview leaves color, depth, mask and lattice_step
// for the final; the final recomputes every pixel and gives up on a change (odd lines).
constexpr int cuberille_lattice = 8;  // the preview's first lattice
void render_cuberille_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                              float* iup, float* istr);
void render_cuberille_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                            float* iup, float* istr);

// The three-tone face shading of light model 1 (cuberille, and the plane-sampling first hit
// without interpolation): a y face is lightened, a z face and a ray's first cell darkened,
// an x face left as it is. Each byte c moves toward its target byte by
// c + (((target - c) * 5000) >> 15), the shift arithmetic on signed 32 bits, so that the two
// directions are not symmetric: 100 lightens to 123 but darkens to 84; 0 lightens to 38 and
// 255 darkens to 216. Lightening aims at 0x00ffffff, so a top byte is pulled toward 0 too.
inline uint32_t shade_toward(uint32_t c, uint32_t target)
{
    uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        int32_t b = (int32_t)((c >> shift) & 0xff), t = (int32_t)((target >> shift) & 0xff);
        out |= (uint32_t)((b + (((t - b) * 5000) >> 15)) & 0xff) << shift;
    }
    return out;
}
inline uint32_t lighten(uint32_t c) { return shade_toward(c, 0x00ffffffu); }
inline uint32_t darken(uint32_t c) { return shade_toward(c, 0u); }
