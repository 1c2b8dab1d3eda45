// cut.cpp — cutting the volume with a plane or a sphere: "Apply Cut" erases densities from the
// grid for good (only a new load brings them back), so that no render pass needs to know of
// cuts. Called by the panel's GUICuttingPlaneApply handler and by tavok-render's --cut.
//
// Writes the density bits of voxels, then what depends on them: the editor's backdrop, the
// gradients and the brick map. Leaves histo (it keeps showing what was cut away), the
// occlusion bits (an erased voxel keeps its occlusion and its neighbours their shadows) and
// bits 12-15 alone. Stops the occlusion worker first: it reads densities and would write
// back occlusion for voxels the cut is erasing.
#include <vector>

#include "core/core.h"
#include "core/seam.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// Erasing clears the density and nothing else.
constexpr uint32_t erase_mask = 0xfffff000u;

// A voxel's place in these tests is its centre, (x + 0.5, y + 0.5, z + 0.5), margin included.
// The walk goes in memory order (x, then z, then y innermost); each voxel's test stands alone,
// so the order changes nothing but the speed.

void cut_with_plane(const float* plane)
{
    const float nx = plane[0], ny = plane[1], nz = plane[2], d = plane[3];
    uint32_t* word = voxels;
    for (uint32_t x = 0; x < vol_x; ++x) {
        const float px = (float)x + 0.5f;
        for (uint32_t z = 0; z < vol_z; ++z) {
            const float pz = (float)z + 0.5f;
            for (uint32_t y = 0; y < vol_y; ++y, ++word) {
                const float py = (float)y + 0.5f;
                // Single precision, in this order of addition; exactly 0.0 survives.
                if (px * nx + py * ny + d + pz * nz < 0.0f) *word &= erase_mask;
            }
        }
    }
}

void cut_with_sphere(const float* sphere, int side)
{
    const float cx = sphere[0], cy = sphere[1], cz = sphere[2], r2 = sphere[3];
    // The squares of each axis once, then per voxel ((dx² + dy²) + dz²) - r², the same sums in
    // the same order as a voxel-by-voxel evaluation.
    std::vector<float> dy2(vol_y), dz2(vol_z);
    for (uint32_t y = 0; y < vol_y; ++y) {
        float dy = (float)y + 0.5f - cy;
        dy2[y] = dy * dy;
    }
    for (uint32_t z = 0; z < vol_z; ++z) {
        float dz = (float)z + 0.5f - cz;
        dz2[z] = dz * dz;
    }
    uint32_t* word = voxels;
    for (uint32_t x = 0; x < vol_x; ++x) {
        const float dx = (float)x + 0.5f - cx;
        const float dx2 = dx * dx;
        for (uint32_t z = 0; z < vol_z; ++z) {
            const float dz = dz2[z];
            // 3 erases the inside (v < 0), 4 the outside (v > 0); v = 0 survives either way.
            // Any other side erases nothing, though the walk still runs.
            if (side == 3) {
                for (uint32_t y = 0; y < vol_y; ++y, ++word)
                    if (dx2 + dy2[y] + dz - r2 < 0.0f) *word &= erase_mask;
            } else if (side == 4) {
                for (uint32_t y = 0; y < vol_y; ++y, ++word)
                    if (dx2 + dy2[y] + dz - r2 > 0.0f) *word &= erase_mask;
            } else {
                word += vol_y;
            }
        }
    }
}

void apply_cut()
{
    // The one departure from the other bulk changes' order: the worker goes first here too,
    // so that it can't write back old occlusion for a voxel the cut erases.
    shadow_guard();
    if (cut_kind == 1) {
        const float plane[4] = {cut_plane_n[0], cut_plane_n[1], cut_plane_n[2], cut_plane_d};
        cut_with_plane(plane);
    } else if (cut_kind == 2) {
        const float sphere[4] = {cut_sphere_center[0], cut_sphere_center[1], cut_sphere_center[2],
                                 cut_sphere_r2};
        cut_with_sphere(sphere, cut_sphere_side);
    }
    // histo isn't recounted, so this gives the value it had: the histogram of the strip keeps
    // showing the densities as they were loaded or last blurred.
    compute_max_histo();
    draw_tf_backdrop();
    calc_gradients();
    build_block_map();
    refresh = 1;
}
