// projection_bricks.cpp — what the maximum intensity and average projections read instead of
// block_map and the grid: a brick map in which a brick is empty when no sample taken in it can
// have an opacity other than 0 under the current transfer function, not only when its
// densities are 0 (tissue that the transfer function hides is then passed brick by brick, or
// cube by cube, without reading a voxel), and the densities copied brick by brick.
//
// Called at the start of each projection pass (projection.h). Reads voxels (density bits),
// block_map with its sizes and block_reach_density, block_map_version and opacity_lut; writes
// only its own arrays, which stay as they are until the next pass asks. Must not be called
// while a pass is walking them.
//
// Why the pictures can't change: the map only empties bricks that block_map holds solid (a
// brick of density 0 stays empty whatever opacity 0 has, so the samples that block_map's
// empty bricks never take are not taken here either). A sample counts only when its opacity
// is not 0, and every sample of a cell reads voxels of the cell's footprint alone: the voxel
// sample the cell's own voxel, a plane sample four voxels of cell + {0, 1} on each axis, the
// trilinear sample the eight corners cell + {0, 1}. A solid brick of block_map stays solid
// when any density of its footprint, the voxels 8b .. 8b + 8 on each axis, has an opacity
// other than 0: every cell of a brick that is emptied would have sampled nothing. The walk
// and the march count a step for every move of the ray, whatever they read, and test the
// limit only before a visit, so each ray still ends before the same first sample; a run
// through empty space leaves cross_t and the entry face as stepping does.
#include <cstring>
#include <vector>

#include "composite/projection.h"

bool projection_skip_hidden = true;

namespace {

// Per brick, the least density of its footprint (the greatest is block_reach_density), and the
// densities brick by brick, for block_map_version range_version. Independent of the transfer
// function.
std::vector<uint16_t> range_lo, bricked;
uint32_t range_version = 0;
bool have_ranges = false;

// The map and radii for the opacities in seen_opacity and the ranges of map_version.
std::vector<uint32_t> map;
std::vector<uint8_t> radius;
float seen_opacity[4096];
uint32_t map_version = 0;
bool have_map = false;

// The footprint of brick b along an axis of n voxels: 8b .. 8b + 8, cut at n - 1.
inline uint32_t footprint_end(uint32_t b, uint32_t n) { return 8 * b + 8 < n ? 8 * b + 8 : n - 1; }

// One pass over the grid in memory order: each row (x, z) copied into its bricks, and the
// least density of its y footprints folded into the slab of x (per z brick), the slab folded
// into the bricks of x. A voxel on a brick's low face belongs to the footprint of the brick
// below it as well.
void build_ranges()
{
    const uint32_t X = vol_x, Y = vol_y, Z = vol_z, by = block_y, bz = block_z;
    const size_t bricks = (size_t)block_x * by * bz;
    range_lo.assign(bricks, 0xffff);
    std::vector<uint16_t> slab((size_t)bz * by), row_lo(by);
    // Whole bricks: the cells of a partial brick beyond the grid stay 0 and are never read.
    bricked.assign(bricks << 9, 0);
    for (uint32_t x = 0; x < X; ++x) {
        std::fill(slab.begin(), slab.end(), 0xffff);
        for (uint32_t z = 0; z < Z; ++z) {
            const uint32_t* row = voxels + ((size_t)x * Z + z) * Y;
            uint16_t* to = bricked.data() + ((((size_t)(x >> 3) * bz + (z >> 3)) * by) << 9 | (x & 7) << 6 | (z & 7) << 3);
            for (uint32_t y = 0; y < Y; ++y) to[(size_t)(y >> 3) << 9 | (y & 7)] = (uint16_t)(voxel_word(row, y) & density_mask);
            for (uint32_t b = 0; b < by; ++b) {
                uint32_t lo = 0xffff;
                for (uint32_t y = 8 * b, end = footprint_end(b, Y); y <= end; ++y) {
                    const uint32_t d = voxel_word(row, y) & density_mask;
                    lo = d < lo ? d : lo;
                }
                row_lo[b] = (uint16_t)lo;
            }
            auto fold_row = [&](uint32_t cz) {
                uint16_t* lo = &slab[(size_t)cz * by];
                for (uint32_t b = 0; b < by; ++b) lo[b] = row_lo[b] < lo[b] ? row_lo[b] : lo[b];
            };
            fold_row(z >> 3);
            if ((z & 7) == 0 && z > 0) fold_row((z >> 3) - 1);
        }
        auto fold_slab = [&](uint32_t cx) {
            uint16_t* lo = &range_lo[(size_t)cx * bz * by];
            for (size_t i = 0; i < (size_t)bz * by; ++i) lo[i] = slab[i] < lo[i] ? slab[i] : lo[i];
        };
        fold_slab(x >> 3);
        if ((x & 7) == 0 && x > 0) fold_slab((x >> 3) - 1);
    }
}

// Solid where block_map is solid and the footprint's densities, from range_lo to
// block_reach_density, hold one of opacity other than 0; the radii from this map.
void build_map()
{
    uint32_t nonzero_below[4097];
    nonzero_below[0] = 0;
    for (int d = 0; d < 4096; ++d) nonzero_below[d + 1] = nonzero_below[d] + (opacity_lut[d] != 0.0f);
    const size_t bricks = range_lo.size();
    map.resize(bricks);
    radius.resize(bricks);
    for (size_t i = 0; i < bricks; ++i)
        map[i] = block_map[i] != 0 && nonzero_below[block_reach_density[i] + 1] != nonzero_below[range_lo[i]];
    build_pass_radius(map.data(), radius.data());
}

}  // namespace

ProjectionBricks projection_bricks()
{
    if (!have_ranges || range_version != block_map_version) {
        build_ranges();
        range_version = block_map_version;
        have_ranges = true;
        have_map = false;
    }
    if (!projection_skip_hidden) return {block_map, block_empty_radius, bricked.data()};
    if (!have_map || map_version != range_version || memcmp(seen_opacity, opacity_lut, sizeof seen_opacity) != 0) {
        build_map();
        memcpy(seen_opacity, opacity_lut, sizeof seen_opacity);
        map_version = range_version;
        have_map = true;
    }
    return {map.data(), radius.data(), bricked.data()};
}
