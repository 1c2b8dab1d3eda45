// gradients.cpp — calc_gradients: one GradientRecord per voxel, the unit normal toward rising
// density and the gradient magnitude scaled to 0..1. Called by the load path, blur and cut
// after densities change. Owns the gradients array; reads only the density bits of voxels.
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "core/core.h"
#include "volume/volume.h"

void calc_gradients()
{
    // free(nullptr) is harmless, so the old array goes whether or not a volume was loaded.
    free(gradients);
    gradients = nullptr;
    size_t count = (size_t)vol_x * vol_y * vol_z;
    gradients = (GradientRecord*)malloc(count * sizeof(GradientRecord));
    if (!gradients) clean_up_and_exit(0, "out of mem!");

    // Each record depends on its six neighbours only, so the grid is walked in memory order
    // (y fastest) for the cache; the values are those of any other order.
    const uint32_t* const v = voxels;
    const int64_t sx = (int64_t)vol_y * vol_z, sz = vol_y;
    const uint32_t nx = vol_x, ny = vol_y, nz = vol_z;
    for (uint32_t x = 0; x < nx; ++x)
        for (uint32_t z = 0; z < nz; ++z) {
            int64_t row = ((int64_t)x * nz + z) * ny;
            for (uint32_t y = 0; y < ny; ++y) {
                int64_t i = row + y;
                // A neighbour outside the grid counts as density 0.
                float xm = x > 0 ? (float)(voxel_word(v, i - sx) & density_mask) : 0.0f;
                float xp = x < nx - 1 ? (float)(voxel_word(v, i + sx) & density_mask) : 0.0f;
                float ym = y > 0 ? (float)(voxel_word(v, i - 1) & density_mask) : 0.0f;
                float yp = y < ny - 1 ? (float)(voxel_word(v, i + 1) & density_mask) : 0.0f;
                float zm = z > 0 ? (float)(voxel_word(v, i - sz) & density_mask) : 0.0f;
                float zp = z < nz - 1 ? (float)(voxel_word(v, i + sz) & density_mask) : 0.0f;
                float gx = (xp - xm) * 0.5f;
                float gy = (yp - ym) * 0.5f;
                float gz = (zp - zm) * 0.5f;
                float m = sqrtf(gx * gx + gy * gy + gz * gz);
                GradientRecord& g = gradients[i];
                g.magnitude = m * 0.00024420026f;
                // A flat voxel keeps the normal (0, 0, 0): 0 times anything finite.
                if (m <= 0.001f) m = 0.001f;
                float inverse = 1.0f / m;
                g.nx = gx * inverse;
                g.ny = gy * inverse;
                g.nz = gz * inverse;
            }
        }
    puts("calculated gradients");
}
