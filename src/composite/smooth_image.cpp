// smooth_image.cpp — the 5-point image filter of the compositing passes. Reads and writes the
// target's color, uses edge_scratch as its copy.
#include <cstring>

#include "composite/composite.h"

void smooth_image(RenderTarget* target)
{
    const uint32_t w = target->width, h = target->height;
    uint32_t* const color = target->color;
    memcpy(edge_scratch, color, (size_t)w * h * 4);
    if (w <= 2 || h <= 2) return;
    const uint32_t* const e = edge_scratch;
    for (uint32_t y = 1; y < h - 1; ++y) {
        for (uint32_t x = 1; x < w - 1; ++x) {
            const size_t i = (size_t)y * w + x;
            const uint32_t up = e[i - w], down = e[i + w], left = e[i - 1], right = e[i + 1], c = e[i];
            uint32_t out = 0;
            for (int shift = 0; shift < 24; shift += 8) {
                const uint32_t sum = ((up >> shift) & 0xff) + ((down >> shift) & 0xff) +
                                     ((left >> shift) & 0xff) + ((right >> shift) & 0xff);
                out |= (((sum >> 2) + ((c >> shift) & 0xff)) >> 1) << shift;
            }
            color[i] = out;
        }
    }
}
