// bricks_below.cpp — the brick maps of bricks_below.h, one kept per kind of test, rebuilt when
// the threshold or the brick map changes: a few passes over the bricks, once per isovalue, not
// once per frame.
// Called by the first-hit passes; owns the two maps.
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "raycast/bricks_below.h"
#include "volume/volume.h"

namespace {

struct Kept {
    uint32_t* map = nullptr;  // the words, and after them the radii
    size_t cells = 0;
    uint32_t version = 0;     // block_map_version when built
    int threshold = 0;
};
Kept kept[3];

}  // namespace

BricksBelow bricks_below(int threshold, BelowKind kind)
{
    Kept& k = kept[(int)kind];
    const size_t cells = (size_t)block_x * block_y * block_z;
    if (!k.map || k.cells != cells || k.version != block_map_version || k.threshold != threshold) {
        if (k.cells != cells || !k.map) {
            free(k.map);
            k.map = (uint32_t*)malloc(cells * 5 + 4);
            if (!k.map) clean_up_and_exit(1, "out of memory\n");
            k.cells = cells;
        }
        const uint16_t* const top = kind == BelowKind::voxel ? block_max_density : block_reach_density;
        for (size_t i = 0; i < cells; ++i) k.map[i] = block_map[i] != 0 && (int)top[i] >= threshold;
        if (kind == BelowKind::march)
            for (uint32_t x = 0; x < block_x; ++x)
                for (uint32_t z = 0; z < block_z; ++z)
                    for (uint32_t y = 0; y < block_y; ++y) {
                        const size_t i = ((size_t)x * block_z + z) * block_y + y;
                        if (block_map[i] && (x == 0 || y == 0 || z == 0)) k.map[i] = 1;
                    }
        uint8_t* const radius = (uint8_t*)(k.map + cells);
        build_pass_radius(k.map, radius);
        // From an empty brick, a run then crosses the empty bricks around it only.
        if (kind != BelowKind::voxel)
            for (size_t i = 0; i < cells; ++i)
                if (!block_map[i]) radius[i] = block_empty_radius[i];
        k.version = block_map_version;
        k.threshold = threshold;
    }
    return {k.map, (const uint8_t*)(k.map + cells)};
}
