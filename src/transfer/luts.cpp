// luts.cpp — the two lookup tables every pass reads: color_lut and opacity_lut. Allocated by
// the first load and kept to the end; reset to the grey identity by each .dat load, rewritten
// segment by segment by the node edits.
#include <cstdlib>

#include "core/core.h"
#include "transfer/transfer.h"

uint32_t* color_lut = nullptr;
float* opacity_lut = nullptr;

void alloc_lookup_tables()
{
    if (!color_lut) color_lut = (uint32_t*)malloc(4096 * sizeof(uint32_t));
    if (!opacity_lut) opacity_lut = (float*)malloc(4096 * sizeof(float));
    if (!color_lut || !opacity_lut) clean_up_and_exit(0, "out of mem!");
}

void reset_grey_tables()
{
    opacity_lut[0] = 0.0f;
    color_lut[0] = 0;
    for (int i = 1; i < 4096; ++i) {
        float o = (float)i * 0.00024420026f;  // 1 / 4095
        opacity_lut[i] = o;
        uint32_t c = (uint32_t)(int)(o * 255.0f) & 0xff;  // truncation: grey 1 first at 17
        color_lut[i] = c << 16 | c << 8 | c;
    }
}
