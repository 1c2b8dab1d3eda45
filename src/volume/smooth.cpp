// smooth.cpp — "Blur Data": smooth_field, a 3 x 3 x 3 box filter over one bit field of the
// voxel words, and blur_data, the button's handler, which runs it on the densities and then
// everything that depends on them (histogram scale, editor backdrop, gradients, brick map).
// Called from the panel's GUIsmoothData handler inside gui_pump. Writes voxels and histo;
// leaves the occlusion bits and the lookup tables alone.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "core/core.h"
#include "core/seam.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// The words are read and changed atomically, the field's bits only: the pumps in here run panel
// handlers, and "Precalculate Occlusions" among them starts a worker that rewrites the upper
// half of the same words meanwhile.
void smooth_field(uint32_t* words, uint32_t mask, int shift)
{
    const int nx = (int)vol_x, ny = (int)vol_y, nz = (int)vol_z;
    const int64_t sx = (int64_t)ny * nz, sz = ny;
    uint16_t* copy = (uint16_t*)malloc((size_t)nx * ny * nz * 2 + 2);
    if (!copy) clean_up_and_exit(0, "out of mem");

    // First pass: take the field out of every word, margin included. The filter then reads
    // only this copy, so the order of the second pass doesn't matter.
    for (int z = 0; z < nz; ++z) {
        set_progress("GUIprogressBarSmoothenData", z * (0.2 / nz));
        gui_pump();
        for (int x = 0; x < nx; ++x)
            for (int y = 0; y < ny; ++y) {
                int64_t i = (x * sx) + z * sz + y;
                const uint32_t field = voxel_word(words, i) & mask;
                copy[i] = (uint16_t)(field >> shift);
                if (field) __atomic_fetch_and(words + i, ~mask, __ATOMIC_RELAXED);
            }
    }

    for (int i = 0; i < 4096; ++i) histo[i] = 0;

    // Second pass over the data region, two voxels in from every face: the margin keeps a
    // field of 0 and is not counted.
    for (int z = 2; z < nz - 2; ++z) {
        set_progress("GUIprogressBarSmoothenData", z * (0.6 / nz) + 0.2);
        gui_pump();
        for (int x = 2; x < nx - 2; ++x)
            for (int y = 2; y < ny - 2; ++y) {
                int64_t i = (x * sx) + z * sz + y;
                uint32_t sum = 0;
                for (int dx = -1; dx <= 1; ++dx)
                    for (int dz = -1; dz <= 1; ++dz) {
                        const uint16_t* run = copy + i + dx * sx + dz * sz;
                        sum += (uint32_t)run[-1] + run[0] + run[1];
                    }
                uint32_t value = sum / 27;
                // Counted before the noise threshold, as the loader counts.
                histo[value] += 1;
                if (value >= 500) __atomic_fetch_or(words + i, value << shift, __ATOMIC_RELAXED);
            }
    }
    free(copy);
    puts("smooth data finished");
}

void blur_data()
{
    if (!voxels || !volume_loaded) return;
    // The worker writes the same words: it must be gone before the filter runs.
    shadow_guard();
    set_progress("GUIprogressBarSmoothenData", 0.0);
    gui_pump();
    smooth_field(voxels, 4095, 0);
    for (int i = 0; i < 10; ++i) gui_pump();
    compute_max_histo();
    draw_tf_backdrop();
    set_progress("GUIprogressBarSmoothenData", 0.85);
    for (int i = 0; i < 10; ++i) gui_pump();
    calc_gradients();
    set_progress("GUIprogressBarSmoothenData", 0.9);
    for (int i = 0; i < 10; ++i) gui_pump();
    build_block_map();
    set_progress("GUIprogressBarSmoothenData", 0.0);
    gui_pump();
    refresh = 1;
}
