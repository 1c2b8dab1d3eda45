// Gradients, the brick map with its empty radii, and "Blur Data" (smooth_field, blur_data) on
// hand-made grids.
#include <gtest/gtest.h>

#include <string>

#include "raycast_helpers.h"

namespace {

// A grid of X x Y x Z words set directly (no margin), densities from f, occlusion bits 0x80.
void raw_grid(uint32_t X, uint32_t Y, uint32_t Z, const std::function<uint32_t(int, int, int)>& f)
{
    make_grid(X, Y, Z, f);
}

const GradientRecord& grad(uint32_t x, uint32_t y, uint32_t z) { return gradients[voxel_index(x, y, z)]; }

uint32_t brick(uint32_t bx, uint32_t by, uint32_t bz) { return block_map[(bx * block_z + bz) * block_y + by]; }
uint8_t radius(uint32_t bx, uint32_t by, uint32_t bz) { return block_empty_radius[(bx * block_z + bz) * block_y + by]; }

std::string build_map_log()
{
    testing::internal::CaptureStdout();
    build_block_map();
    return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(Gradients, FlatRegionHasZeroMagnitudeAndZeroNormal)
{
    start_fresh();
    raw_grid(7, 5, 6, [](int, int, int) { return 1234u; });
    const GradientRecord& g = grad(3, 2, 3);
    EXPECT_EQ(g.magnitude, 0.0f);
    EXPECT_EQ(g.nx, 0.0f);
    EXPECT_EQ(g.ny, 0.0f);
    EXPECT_EQ(g.nz, 0.0f);
}

TEST(Gradients, StepOf4095AlongXGivesHalfMagnitudeOnBothSides)
{
    start_fresh();
    raw_grid(9, 5, 5, [](int x, int, int) { return x >= 4 ? 4095u : 0u; });
    // Central differences: (4095 - 0) / 2 on x = 3 and on x = 4.
    for (uint32_t x : {3u, 4u}) {
        const GradientRecord& g = grad(x, 2, 2);
        EXPECT_EQ(g.magnitude, 2047.5f * 0.00024420026f) << x;
        EXPECT_NEAR(g.magnitude, 0.5f, 1e-6f);
        EXPECT_EQ(g.nx, 1.0f);  // toward rising density
        EXPECT_EQ(g.ny, 0.0f);
        EXPECT_EQ(g.nz, 0.0f);
    }
    EXPECT_EQ(grad(2, 2, 2).magnitude, 0.0f);
    EXPECT_EQ(grad(6, 2, 2).magnitude, 0.0f);
}

TEST(Gradients, NeighboursOutsideTheGridCountAsZero)
{
    start_fresh();
    raw_grid(5, 7, 6, [](int, int, int) { return 1000u; });
    // On the x = 0 face the missing neighbour at x = -1 reads 0: gx = (1000 - 0) / 2.
    const GradientRecord& low = grad(0, 3, 3);
    EXPECT_EQ(low.nx, 1.0f);
    EXPECT_EQ(low.magnitude, 500.0f * 0.00024420026f);
    // On the far y face the neighbour at y = 7 reads 0: gy = (0 - 1000) / 2.
    const GradientRecord& high = grad(2, 6, 3);
    EXPECT_EQ(high.ny, -1.0f);
    // A corner has all three: (500, 500, 500) / |..|.
    const GradientRecord& corner = grad(0, 0, 0);
    EXPECT_EQ(corner.nx, corner.ny);
    EXPECT_EQ(corner.ny, corner.nz);
    EXPECT_NEAR(corner.nx, 0.57735f, 1e-5f);
    EXPECT_EQ(corner.magnitude, sqrtf(3.0f * 500.0f * 500.0f) * 0.00024420026f);
}

TEST(Gradients, OnlyDensityBitsCount)
{
    start_fresh();
    raw_grid(5, 5, 5, [](int x, int, int) { return x == 2 ? 0xff0000u : 0u; });  // occlusion only
    EXPECT_EQ(grad(1, 2, 2).magnitude, 0.0f);
    EXPECT_EQ(grad(3, 2, 2).nx, 0.0f);
}

TEST(BlockMap, SizesRoundUpPartialBricks)
{
    start_fresh();
    raw_grid(17, 16, 9, [](int, int, int) { return 0u; });
    EXPECT_EQ(block_x, 3u);
    EXPECT_EQ(block_y, 2u);
    EXPECT_EQ(block_z, 2u);
    std::string log = build_map_log();
    EXPECT_NE(log.find("17,16,9 vs. 3,2,2\n"), std::string::npos) << log;
}

TEST(BlockMap, AllZeroGridIsAllAir)
{
    start_fresh();
    raw_grid(9, 9, 9, [](int, int, int) { return 0u; });
    std::string log = build_map_log();
    EXPECT_NE(log.find("the mipmap contains 8 air and 0 solid voxels\n\t(solid voxel percentage=0.000000%)\n"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("mem usage: full-detail=2 KB, mipmap=0 KB\n"), std::string::npos) << log;
}

TEST(BlockMap, OneVoxelOfDensityOneMakesItsBrickSolid)
{
    start_fresh();
    raw_grid(19, 11, 13, [](int x, int y, int z) { return x == 17 && y == 9 && z == 4 ? 1u : 0u; });
    for (uint32_t bx = 0; bx < block_x; ++bx)
        for (uint32_t by = 0; by < block_y; ++by)
            for (uint32_t bz = 0; bz < block_z; ++bz)
                EXPECT_EQ(brick(bx, by, bz), bx == 2 && by == 1 && bz == 0 ? 1u : 0u);
    std::string log = build_map_log();
    EXPECT_NE(log.find("contains 11 air and 1 solid voxels\n\t(solid voxel percentage=8.333333%)"),
              std::string::npos)
        << log;
}

TEST(BlockMap, OcclusionBitsAreNotDensity)
{
    start_fresh();
    raw_grid(9, 9, 9, [](int, int, int) { return 0u; });  // every word carries occlusion 0x80
    for (uint32_t i = 0; i < block_x * block_y * block_z; ++i) EXPECT_EQ(block_map[i], 0u);
}

TEST(BlockMap, EmptyRadiusIsTheChessboardDistanceToSolidMinusOne)
{
    start_fresh();
    // 6 x 3 x 3 bricks (41 x 17 x 23 voxels): one solid brick at brick (0, 1, 1).
    raw_grid(41, 17, 23, [](int x, int y, int z) { return x == 3 && y == 12 && z == 12 ? 600u : 0u; });
    ASSERT_EQ(block_x, 6u);
    ASSERT_EQ(block_y, 3u);
    ASSERT_EQ(block_z, 3u);
    EXPECT_EQ(radius(0, 1, 1), 0);  // solid
    EXPECT_EQ(radius(1, 1, 1), 0);  // next to it: only its own brick is surely empty
    EXPECT_EQ(radius(1, 0, 0), 0);  // diagonal neighbours too
    EXPECT_EQ(radius(2, 2, 2), 1);
    EXPECT_EQ(radius(5, 0, 2), 4);
    // Bricks outside the map count as empty: the cube may reach past the edges.
    start_fresh();
    raw_grid(9, 9, 9, [](int, int, int) { return 0u; });
    EXPECT_EQ(radius(0, 0, 0), 254);
}

TEST(Smooth, AverageOf27WithTruncationAndTheNoiseThreshold)
{
    start_fresh();
    // 7 x 7 x 7: the data region is 2..4 on each axis, 27 voxels.
    raw_grid(7, 7, 7, [](int x, int y, int z) {
        if (x == 3 && y == 3 && z == 3) return 4095u;
        if (x == 2 && y == 2 && z == 2) return 2000u;
        return 0u;
    });
    unsigned pumps = null_gui_pumps;
    testing::internal::CaptureStdout();
    smooth_field(voxels, 4095, 0);
    std::string log = testing::internal::GetCapturedStdout();
    EXPECT_EQ(log, "smooth data finished\n");
    // One pump per layer of the first pass (7) and of the second (3).
    EXPECT_EQ(null_gui_pumps, pumps + 10);
    // The centre sees both: (4095 + 2000) / 27 = 225 (truncated): below 500, stored as 0.
    EXPECT_EQ(density_at(3, 3, 3), 0u);
    EXPECT_EQ(histo[225], 8u);  // the 8 voxels whose cubes hold both
    EXPECT_EQ(histo[151], 19u);  // 4095 / 27 = 151.67, the 19 that see the bright one only
    uint32_t counted = 0;
    for (int i = 0; i < 4096; ++i) counted += histo[i];
    EXPECT_EQ(counted, 27u);  // the margin isn't counted
    EXPECT_EQ(histo[0], 0u);
    // Occlusion stays; the margin's density field is 0.
    EXPECT_EQ(voxels[voxel_index(2, 2, 2)] >> 16, 0x80u);
    EXPECT_EQ(density_at(0, 0, 0), 0u);
}

TEST(Smooth, BinZeroCountsDataVoxelsThatAverageZeroAnd499IsDropped)
{
    start_fresh();
    // 9 x 7 x 7: data region x 2..6. A slab of 499 * 27 / 9... use a uniform block instead:
    // every data voxel whose 27 neighbours are all 499 averages 499.
    raw_grid(9, 7, 7, [](int x, int, int) { return x <= 3 ? 499u : 0u; });
    testing::internal::CaptureStdout();
    smooth_field(voxels, 4095, 0);
    testing::internal::GetCapturedStdout();
    // x = 2: neighbours x 1..3 all 499: 499. x = 3: 1..4 mixed: 18 * 499 / 27 = 332.
    // x = 4: 9 * 499 / 27 = 166. x = 5, 6: 0.
    EXPECT_EQ(histo[499], 9u);
    EXPECT_EQ(histo[332], 9u);
    EXPECT_EQ(histo[166], 9u);
    EXPECT_EQ(histo[0], 18u);
    EXPECT_EQ(density_at(2, 3, 3), 0u);  // 499 is noise
}

TEST(Smooth, ValuesAtTheThresholdAreKept)
{
    start_fresh();
    raw_grid(7, 7, 7, [](int, int, int) { return 500u; });
    testing::internal::CaptureStdout();
    smooth_field(voxels, 4095, 0);
    testing::internal::GetCapturedStdout();
    // Data voxels on the region's edge see margin voxels too, all 500: the average stays 500.
    EXPECT_EQ(density_at(3, 3, 3), 500u);
    EXPECT_EQ(density_at(2, 2, 2), 500u);
    EXPECT_EQ(histo[500], 27u);
}

TEST(BlurData, WithoutAVolumeDoesNothing)
{
    start_fresh();
    volume_loaded = 0;
    unsigned pumps = null_gui_pumps;
    refresh = 0;
    blur_data();
    EXPECT_EQ(null_gui_pumps, pumps);
    EXPECT_EQ(refresh, 0);
}

TEST(BlurData, SmoothsRecomputesAndPumps)
{
    start_fresh();
    raw_grid(9, 9, 9, [](int x, int y, int z) { return x == 4 && y == 4 && z == 4 ? 4095u : 2700u; });
    refresh = 0;
    unsigned pumps = null_gui_pumps;
    testing::internal::CaptureStdout();
    blur_data();
    std::string log = testing::internal::GetCapturedStdout();
    // 1 + 9 + 5 (smoothing) + 10 + 10 + 10 + 1.
    EXPECT_EQ(null_gui_pumps, pumps + 46);
    EXPECT_NE(log.find("smooth data finished\ncalculated gradients\n9,9,9 vs. 2,2,2\n"), std::string::npos) << log;
    EXPECT_EQ(refresh, 1);
    // (4095 + 26 * 2700) / 27 = 2751.
    EXPECT_EQ(density_at(4, 4, 4), 2751u);
    EXPECT_EQ(max_histo, 98u);  // 125 data voxels: 27 see the bright one, 98 don't
    // The margin is now 0, so the gradients changed: the data's edge has a gradient.
    EXPECT_GT(gradients[voxel_index(2, 4, 4)].magnitude, 0.0f);
}
