// bricks_below.h — for a pass whose rays stop where the density reaches an isovalue: a brick
// map in which every brick whose densities all lie below the isovalue counts as empty, so that
// the walk and the march pass over it in one run, as they pass over empty space.
//
// Used by the first-hit passes (firsthit.cpp). Derived from block_map, block_empty_radius and
// the brick densities of the volume room, and kept until the threshold or the brick map
// changes; writes nothing else.
#pragma once
#include <cstdint>

#include "raycast/walk.h"

// What a ray tests at a cell, which decides what "below" must cover:
//   voxel: the cell's own voxel (block_max_density). A run may cross any cube of passed
//          bricks.
//   plane: a plane sample, which reads up to one voxel beyond the cell (block_reach_density)
//          and never outside 0 <= q < size. A run from an empty brick crosses empty bricks
//          only, so that the pass learns from where runs start whether they passed cells with
//          densities.
//   march: a trilinear sample, as plane; and a position slightly below 0 on an axis counts
//          as cell 0 there with a negative fraction, which weighs beyond the voxels: the
//          bricks with densities on the grid's low faces are always visited.
enum class BelowKind { voxel, plane, march };

struct BricksBelow {
    const uint32_t* map;    // 0: pass over the brick; else visit it
    const uint8_t* radius;  // beside each brick: the radius of the cube of bricks a run from it
                            // crosses in one go (build_pass_radius)
};
// The map for rays of the given kind that stop at densities of threshold and above. Valid
// until the next call for the same kind or the next brick map.
BricksBelow bricks_below(int threshold, BelowKind kind);

// The grid view g with the map of b in place of block_map.
TAVOK_INLINE GridView passing_over(GridView g, const BricksBelow& b)
{
    g.block_map = b.map;
    g.empty_radius = b.radius;
    return g;
}
