// edges.cpp — edge lines for the first-hit mode: the depth buffer becomes a grey image (near
// bright, far dark, nothing black), a 3 x 3 difference filter runs over it, and every pixel
// with any response is painted in edge_color over the rendered picture.
//
// Called as the last step of the three first-hit passes when edge_enabled is set, in place of
// the copy to the display, which it does itself. Reads the target's color and depth,
// edge_strength, edge_color and max_ray_steps; writes edge_scratch and the display image
// (display_pixels), never the target.
#include <cstdint>
#include <cstring>

#include "core/core.h"
#include "raycast/raycast.h"
#include "raycast/walk.h"

void detect_edges(const RenderTarget* target)
{
    uint32_t* const D = display_pixels();
    if (!D) return;
    const uint32_t W = target->width, H = target->height;
    const size_t pixels = (size_t)W * H;

    // The grey image. max_ray_steps * 4096 is the longest depth a ray can report (the shift
    // wraps as the unsigned word does); a larger strength spreads the depths over more greys.
    // A depth of 0 (a hit at the very start of a ray) counts as background, like no_depth.
    const uint32_t* const depth = target->depth;
    const float longest = (float)(uint32_t)(max_ray_steps << 12);
    const float strength = edge_strength;
    for (size_t i = 0; i < pixels; ++i) {
        const uint32_t z = depth[i];
        if (z == 0 || z == no_depth) {
            D[i] = 0;
            continue;
        }
        int32_t g = trunc_i32((float)z / longest * strength);
        if (g > 255) g = 255;
        D[i] = (uint32_t)(255 - g) * 0x010101u;
    }
    memcpy(edge_scratch, D, pixels * 4);
    memcpy(D, target->color, pixels * 4);

    // A Prewitt pair on the grey image, biased by 128 and clamped to a byte. The sums are taken
    // on whole packed words, so one grey step is a difference of 0x010101, far beyond the
    // clamp: gx and gy are in effect 0, 128 or 255, and every pixel with a response is an edge
    // unless opposite sums cancel exactly. The strength acts through the grey levels alone:
    // neighbours on the same level give no edge. The one-pixel border keeps its colours, and
    // an image of fewer than three rows or columns gets no edges.
    const int32_t* const E = (const int32_t*)edge_scratch;
    const uint32_t edge = edge_color;
    for (uint32_t y = 1; y + 1 < H; ++y) {
        const int32_t* const up = E + (size_t)(y - 1) * W;
        const int32_t* const mid = E + (size_t)y * W;
        const int32_t* const down = E + (size_t)(y + 1) * W;
        uint32_t* const out = D + (size_t)y * W;
        for (uint32_t x = 1; x + 1 < W; ++x) {
            int32_t gx = up[x - 1] - up[x + 1] + mid[x - 1] - mid[x + 1] + down[x - 1] - down[x + 1] + 0x80;
            int32_t gy = up[x - 1] - down[x - 1] + up[x] - down[x] + up[x + 1] - down[x + 1] + 0x80;
            gx = gx < 0 ? 0 : gx > 255 ? 255 : gx;
            gy = gy < 0 ? 0 : gy > 255 ? 255 : gy;
            if ((gx + gy) >> 1 != 0x80) out[x] = edge;
        }
    }
}
