// blockmap.cpp — build_block_map: one cell per 8 x 8 x 8 brick, 1 when any voxel of the brick
// has a density above 0, so that the ray walks can jump over empty space; and beside it
// block_empty_radius, how far the empty space around each brick reaches, so that they can
// jump over many bricks at once, and the largest densities of each brick and of what the
// samples of each cell read, so that a pass with an isovalue can pass over what lies below
// it. Called by the load path, blur and cut after densities change. Owns block_map,
// block_empty_radius, block_max_density, block_reach_density, voxel_reach,
// block_map_version and block_x/y/z; reads only the density bits of voxels.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "volume/volume.h"

uint8_t* block_empty_radius = nullptr;
uint16_t* block_max_density = nullptr;
uint16_t* block_reach_density = nullptr;
uint16_t* voxel_reach = nullptr;
uint32_t block_map_version = 0;

// Chessboard distance from every brick to the nearest brick marked 0, in place: d holds 0 for
// a marked brick and 255 for any other on entry. The two-pass chamfer over the 26 neighbours
// (exact for this metric): forward in memory order from the 13 neighbours before a brick,
// backward from the 13 after it. Bricks outside the map count as unmarked; distances stop
// growing at 255, which only understates them. So a brick at distance r >= 1 is the centre of
// a cube of radius r - 1 (in bricks) that holds no marked brick. Also used by the occlusion
// worker, with its own marks.
void brick_distances(uint8_t* d, uint32_t bx, uint32_t by, uint32_t bz)
{
    const int nx = (int)bx, ny = (int)by, nz = (int)bz;
    auto at = [&](int x, int y, int z) -> size_t { return ((size_t)x * nz + z) * ny + y; };
    auto pass = [&](int sign) {
        const int x0 = sign > 0 ? 0 : nx - 1, z0 = sign > 0 ? 0 : nz - 1, y0 = sign > 0 ? 0 : ny - 1;
        for (int x = x0; x >= 0 && x < nx; x += sign)
            for (int z = z0; z >= 0 && z < nz; z += sign)
                for (int y = y0; y >= 0 && y < ny; y += sign) {
                    uint8_t& here = d[at(x, y, z)];
                    if (here == 0) continue;
                    int best = here;
                    // The neighbours that come earlier in this pass's order: (dx, dz, dy) before
                    // (0, 0, 0) in lexicographic order, taken against the pass's direction.
                    for (int ddx = -1; ddx <= 0; ++ddx)
                        for (int ddz = -1; ddz <= 1; ++ddz)
                            for (int ddy = -1; ddy <= 1; ++ddy) {
                                if (ddx == 0 && (ddz > 0 || (ddz == 0 && ddy >= 0))) continue;
                                int xx = x + sign * ddx, zz = z + sign * ddz, yy = y + sign * ddy;
                                if (xx < 0 || xx >= nx || zz < 0 || zz >= nz || yy < 0 || yy >= ny) continue;
                                int v = d[at(xx, yy, zz)] + 1;
                                if (v < best) best = v;
                            }
                    here = (uint8_t)best;
                }
    };
    pass(1);
    pass(-1);
}

void build_pass_radius(const uint32_t* map, uint8_t* d)
{
    const size_t cells = (size_t)block_x * block_y * block_z;
    for (size_t i = 0; i < cells; ++i) d[i] = map[i] ? 0 : 255;
    brick_distances(d, block_x, block_y, block_z);
    for (size_t i = 0; i < cells; ++i)
        if (d[i]) d[i] -= 1;
}

// The reach of each cell: the largest density of the eight voxels from (x, y, z) to
// (x + 1, y + 1, z + 1), the upper ones clamped to the grid, which is what an interpolated
// sample in the cell reads. Taken as the largest of two along y, then of two such along z,
// then along x, in place. A brick's reach is the largest reach of its cells.
static void build_reach()
{
    uint16_t* const r = voxel_reach;
    const uint32_t* const v = voxels;
    const size_t sy = vol_y, sz = vol_z;
    for (size_t i = 0, n = (size_t)vol_x * vol_y * vol_z; i < n; ++i) r[i] = (uint16_t)(voxel_word(v, i) & density_mask);
    for (size_t row = 0, rows = (size_t)vol_x * vol_z; row < rows; ++row) {
        uint16_t* const line = r + row * sy;
        for (size_t y = 0; y + 1 < sy; ++y) line[y] = std::max(line[y], line[y + 1]);
    }
    for (size_t x = 0; x < vol_x; ++x)
        for (size_t z = 0; z + 1 < sz; ++z) {
            uint16_t* const line = r + (x * sz + z) * sy;
            for (size_t y = 0; y < sy; ++y) line[y] = std::max(line[y], line[y + sy]);
        }
    const size_t plane = sy * sz;
    for (size_t x = 0; x + 1 < vol_x; ++x) {
        uint16_t* const here = r + x * plane;
        for (size_t i = 0; i < plane; ++i) here[i] = std::max(here[i], here[i + plane]);
    }
    for (uint32_t x = 0; x < vol_x; ++x)
        for (uint32_t z = 0; z < vol_z; ++z) {
            const uint16_t* line = r + ((size_t)x * vol_z + z) * vol_y;
            uint16_t* top = block_reach_density + ((size_t)(x >> 3) * block_z + (z >> 3)) * block_y;
            for (uint32_t y = 0; y < vol_y; ++y) top[y >> 3] = std::max(top[y >> 3], line[y]);
        }
}

void build_block_map()
{
    block_x = vol_x / 8 + (vol_x % 8 ? 1 : 0);
    block_y = vol_y / 8 + (vol_y % 8 ? 1 : 0);
    block_z = vol_z / 8 + (vol_z % 8 ? 1 : 0);
    printf("%d,%d,%d vs. %d,%d,%d\n", vol_x, vol_y, vol_z, block_x, block_y, block_z);

    // The densities, the cells' reach and the radii live in the same allocation, after the
    // words, so that whoever frees block_map frees them too.
    free(block_map);
    block_map = nullptr;
    block_empty_radius = nullptr;
    block_max_density = block_reach_density = voxel_reach = nullptr;
    size_t cells = (size_t)block_x * block_y * block_z;
    size_t grid = (size_t)vol_x * vol_y * vol_z;
    block_map = (uint32_t*)malloc(cells * 9 + grid * 2 + 4);
    if (!block_map) clean_up_and_exit(0, "MIP: out of mem!");
    memset(block_map, 0, cells * 8);
    block_max_density = (uint16_t*)(block_map + cells);
    block_reach_density = block_max_density + cells;
    voxel_reach = block_reach_density + cells;
    block_empty_radius = (uint8_t*)(voxel_reach + grid);
    block_map_version += 1;

    // Densities are never negative, so a brick's density sum is 0 exactly when every density
    // in it is 0: marking the brick of each non-zero voxel gives the same map as summing, and
    // lets the grid be read once in memory order. A partial brick at the high end of an axis
    // sees only the voxels inside the grid.
    const uint32_t* const v = voxels;
    for (uint32_t x = 0; x < vol_x; ++x)
        for (uint32_t z = 0; z < vol_z; ++z) {
            const uint32_t* row = v + ((size_t)x * vol_z + z) * vol_y;
            const size_t first = ((size_t)(x >> 3) * block_z + (z >> 3)) * block_y;
            uint32_t* cell = block_map + first;
            uint16_t* top = block_max_density + first;
            for (uint32_t y = 0; y < vol_y; ++y) {
                const uint16_t d = (uint16_t)(voxel_word(row, y) & density_mask);
                if (d) cell[y >> 3] = 1;
                if (d > top[y >> 3]) top[y >> 3] = d;
            }
        }
    build_reach();

    build_pass_radius(block_map, block_empty_radius);

    int air = 0, solid = 0;
    for (size_t i = 0; i < cells; ++i) (block_map[i] ? solid : air) += 1;
    // The counts are of bricks, whatever the words say. With no brick at all the percentage
    // is 0 rather than 0 / 0.
    double percentage = air + solid ? solid * 100.0 / (air + solid) : 0.0;
    printf("the mipmap contains %d air and %d solid voxels\n\t(solid voxel percentage=%f%%)\n", air,
           solid, percentage);
    printf("mem usage: full-detail=%d KB, mipmap=%d KB\n",
           (int)((uint64_t)vol_x * vol_y * 4 * vol_z >> 10),
           (int)((uint64_t)block_x * block_y * 4 * block_z >> 10));
}
