// Cutting: which voxels a plane and a sphere erase (hand-computed on small odd grids, the margin
// included), what an erased voxel keeps, and what "Apply Cut" rebuilds.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "helpers.h"

// A .dat volume of X x Y x Z samples of one density, loaded through the load path: a grid with
// a margin of 2, so (X + 4) x (Y + 4) x (Z + 4).
static void load_block(int X, int Y, int Z, int density)
{
    start_fresh();
    std::string path = write_dat("cut.dat", X, Y, Z, make_samples(X, Y, Z, [&](int, int, int) { return density; }));
    ASSERT_TRUE(load_volume_file(path.c_str()));
    remove(path.c_str());
}

// A grid whose every voxel, margin included, holds density 1000 + the low bits of its index,
// the occlusion byte 0x5a and bit 12 set, so that each erased word shows exactly what stays.
static void fill_every_voxel(uint32_t x, uint32_t y, uint32_t z)
{
    vol_x = x, vol_y = y, vol_z = z;
    free(voxels);
    voxels = (uint32_t*)malloc((size_t)x * y * z * 4);
    for (size_t i = 0; i < (size_t)x * y * z; ++i) voxels[i] = 0x5a0000u | 0x1000u | (1000 + (uint32_t)(i & 1023));
}

static bool erased(uint32_t x, uint32_t y, uint32_t z)
{
    return (voxels[voxel_index(x, y, z)] & density_mask) == 0;
}

TEST(CutPlane, NormalAlongXWithOffsetMinus10ErasesXUpTo9)
{
    start_fresh();
    fill_every_voxel(13, 5, 3);
    const float plane[4] = {1.0f, 0.0f, 0.0f, -10.0f};
    cut_with_plane(plane);
    for (uint32_t x = 0; x < 13; ++x)
        for (uint32_t y = 0; y < 5; ++y)
            for (uint32_t z = 0; z < 3; ++z) EXPECT_EQ(erased(x, y, z), x <= 9) << x << "," << y << "," << z;
}

TEST(CutPlane, ExactlyZeroSurvivesAndOnlyTheDensityGoes)
{
    start_fresh();
    fill_every_voxel(7, 3, 5);
    // z + 0.5 - 2.5 is exactly 0 at z = 2: that voxel stays; z = 0 and 1 go.
    const float plane[4] = {0.0f, 0.0f, 1.0f, -2.5f};
    std::vector<uint32_t> before(voxels, voxels + 7 * 3 * 5);
    cut_with_plane(plane);
    for (uint32_t x = 0; x < 7; ++x)
        for (uint32_t y = 0; y < 3; ++y)
            for (uint32_t z = 0; z < 5; ++z) {
                size_t i = voxel_index(x, y, z);
                if (z < 2) EXPECT_EQ(voxels[i], before[i] & 0xfffff000u);  // occlusion, bit 12 stay
                else EXPECT_EQ(voxels[i], before[i]);
            }
}

TEST(CutPlane, TermsAreAddedInTheirOrder)
{
    start_fresh();
    fill_every_voxel(1, 1, 1);
    // At the centre (0.5, 0.5, 0.5): 0.5 * 1e8 + 0.5 * -1e8 + 1 + 0.5 * -1 = 0.5 in this order,
    // a survivor; added as ((0.5e8 + 1) - 0.5e8) - 0.5 it would be -0.5 and erased, since 1
    // is lost beside 0.5e8 in single precision.
    const float plane[4] = {1e8f, -1e8f, -1.0f, 1.0f};
    cut_with_plane(plane);
    EXPECT_FALSE(erased(0, 0, 0));
    const float other[4] = {1e8f, -1e8f, 3.0f, -2.0f};  // 0 + -2 + 1.5 = -0.5: erased
    cut_with_plane(other);
    EXPECT_TRUE(erased(0, 0, 0));
}

TEST(CutSphere, InsideOutsideAndTheBoundary)
{
    start_fresh();
    fill_every_voxel(5, 6, 7);
    // Centre (2.5, 2.5, 2.5), radius 1: the voxel (2, 2, 2) has its centre there (v = -1), and
    // (3, 2, 2) sits on the sphere (v = 0) and stays with either side.
    const float sphere[4] = {2.5f, 2.5f, 2.5f, 1.0f};
    cut_with_sphere(sphere, 3);
    for (uint32_t x = 0; x < 5; ++x)
        for (uint32_t y = 0; y < 6; ++y)
            for (uint32_t z = 0; z < 7; ++z) EXPECT_EQ(erased(x, y, z), x == 2 && y == 2 && z == 2);
    fill_every_voxel(5, 6, 7);
    cut_with_sphere(sphere, 4);
    for (uint32_t x = 0; x < 5; ++x)
        for (uint32_t y = 0; y < 6; ++y)
            for (uint32_t z = 0; z < 7; ++z) {
                int manhattan = abs((int)x - 2) + abs((int)y - 2) + abs((int)z - 2);
                EXPECT_EQ(erased(x, y, z), manhattan > 1) << x << "," << y << "," << z;
            }
}

TEST(CutSphere, RadiusZeroInsideAndHugeOutsideEraseNothing)
{
    start_fresh();
    fill_every_voxel(9, 7, 5);
    std::vector<uint32_t> before(voxels, voxels + 9 * 7 * 5);
    // v is never below 0 with r = 0, even at a voxel centre.
    const float point[4] = {4.5f, 3.5f, 2.5f, 0.0f};
    cut_with_sphere(point, 3);
    EXPECT_EQ(std::vector<uint32_t>(voxels, voxels + 9 * 7 * 5), before);
    // Centred in the grid, larger than the diagonal: nothing lies outside.
    float diag = sqrtf(9 * 9 + 7 * 7 + 5 * 5);
    const float big[4] = {4.5f, 3.5f, 2.5f, (diag + 1.0f) * (diag + 1.0f)};
    cut_with_sphere(big, 4);
    EXPECT_EQ(std::vector<uint32_t>(voxels, voxels + 9 * 7 * 5), before);
    // Any side but 3 and 4 erases nothing, even with everything inside.
    cut_with_sphere(big, 5);
    EXPECT_EQ(std::vector<uint32_t>(voxels, voxels + 9 * 7 * 5), before);
}

TEST(CutSphere, EveryVoxelAgainstTheRuleOnAnOddGrid)
{
    start_fresh();
    fill_every_voxel(11, 9, 13);
    const float sphere[4] = {3.7f, 6.1f, 5.3f, 17.25f};
    for (int side : {3, 4}) {
        fill_every_voxel(11, 9, 13);
        cut_with_sphere(sphere, side);
        for (uint32_t x = 0; x < 11; ++x)
            for (uint32_t y = 0; y < 9; ++y)
                for (uint32_t z = 0; z < 13; ++z) {
                    float dx = (float)x + 0.5f - 3.7f, dy = (float)y + 0.5f - 6.1f, dz = (float)z + 0.5f - 5.3f;
                    float v = dx * dx + dy * dy + dz * dz - 17.25f;
                    EXPECT_EQ(erased(x, y, z), side == 3 ? v < 0.0f : v > 0.0f) << x << "," << y << "," << z;
                }
    }
}

TEST(ApplyCut, CrossesTheMarginAndKeepsHistogramAndOcclusion)
{
    load_block(9, 7, 5, 2000);  // grid 13 x 11 x 9, data at 2..10, 2..8, 2..6
    fill_occlusion(0x77);
    std::vector<uint32_t> hist(histo, histo + 4096);
    uint32_t max_before = max_histo;
    // The plane x + y = 6 runs through the margin's corner and the data alike: every voxel with
    // (x + 0.5) + (y + 0.5) < 6 goes, margin or not.
    cut_kind = 1;
    cut_plane_n[0] = 1.0f, cut_plane_n[1] = 1.0f, cut_plane_n[2] = 0.0f;
    cut_plane_d = -6.0f;
    refresh = 0;
    apply_cut();
    for (uint32_t x = 0; x < vol_x; ++x)
        for (uint32_t y = 0; y < vol_y; ++y)
            for (uint32_t z = 0; z < vol_z; ++z) {
                uint32_t word = voxels[voxel_index(x, y, z)];
                bool data = x >= 2 && x <= 10 && y >= 2 && y <= 8 && z >= 2 && z <= 6;
                bool cut = x + y + 1 < 6;
                EXPECT_EQ(word & density_mask, data && !cut ? 2000u : 0u) << x << "," << y << "," << z;
                EXPECT_EQ(word >> 16, 0x77u);  // occlusion stays, erased or not
            }
    EXPECT_EQ(std::vector<uint32_t>(histo, histo + 4096), hist);  // not recounted
    EXPECT_EQ(max_histo, max_before);
    EXPECT_EQ(refresh, 1);
}

TEST(ApplyCut, RebuildsGradientsAndBrickMap)
{
    load_block(20, 5, 5, 3000);  // grid 24 x 9 x 9: bricks 0..2 along x
    ASSERT_EQ(block_x, 3u);
    // Erase x < 16: bricks 0 and 1 along x become empty.
    cut_kind = 1;
    cut_plane_n[0] = 1.0f, cut_plane_n[1] = 0.0f, cut_plane_n[2] = 0.0f;
    cut_plane_d = -16.0f;
    apply_cut();
    for (uint32_t bz = 0; bz < block_z; ++bz)
        for (uint32_t by = 0; by < block_y; ++by) {
            EXPECT_EQ(block_map[(0 * block_z + bz) * block_y + by], 0u);
            EXPECT_EQ(block_map[(1 * block_z + bz) * block_y + by], 0u);
        }
    EXPECT_NE(block_map[(2 * block_z + 0) * block_y + 0], 0u);
    // The cut face at x = 16 shades like any face: the step 0 -> 3000 gives gx = 1500 there.
    const GradientRecord& g = gradients[voxel_index(16, 4, 4)];
    EXPECT_FLOAT_EQ(g.nx, 1.0f);
    EXPECT_FLOAT_EQ(g.magnitude, 1500.0f * 0.00024420026f);
    EXPECT_FLOAT_EQ(gradients[voxel_index(15, 4, 4)].nx, 1.0f);
}

TEST(ApplyCut, OtherKindCutsNothingButStillRebuilds)
{
    load_block(5, 5, 5, 3000);
    // A density written behind the derived data's back: only a rebuild shows it.
    voxels[voxel_index(4, 4, 4)] = 0;
    cut_kind = 7;
    refresh = 0;
    std::vector<uint32_t> before(voxels, voxels + (size_t)vol_x * vol_y * vol_z);
    apply_cut();
    EXPECT_EQ(std::vector<uint32_t>(voxels, voxels + (size_t)vol_x * vol_y * vol_z), before);
    EXPECT_GT(gradients[voxel_index(3, 4, 4)].magnitude, 0.0f);  // the hole now has a gradient
    EXPECT_EQ(refresh, 1);
}

TEST(ApplyCut, WithNoVolumeOnlyLogs)
{
    start_fresh();
    volume_loaded = 0;
    free(voxels);
    voxels = nullptr;
    vol_x = vol_y = vol_z = 0;
    cut_kind = 2;
    apply_cut();
    EXPECT_EQ(refresh, 1);
}

// "Apply Cut" while the occlusion worker runs: the worker is stopped before a voxel is erased
// (it would write old occlusion back beside the cut), its cancel flag is put back so that the
// next start runs, and a calculation started afterwards sees the cut grid. The worker is held
// until it is waited for, so the calculation is surely under way when the cut comes; once let
// go it stores full light in the empty voxels it passes and gives up at the first voxel that
// needs a ray.
static std::vector<uint32_t> occlusion_after_a_stopped_calculation(bool with_cut)
{
    load_block(9, 7, 5, 3000);  // grid 13 x 11 x 9, occlusion 0x80 everywhere
    light_dir[0] = 1.0f, light_dir[1] = 0.0f, light_dir[2] = 0.0f;
    shadow_cancel = 0;
    shadow_running = 0;
    null_hold_worker = 1;
    testing::internal::CaptureStdout();
    start_occlusion();
    EXPECT_EQ(shadow_running, 1);
    if (with_cut) {
        cut_kind = 1;
        cut_plane_n[0] = 1.0f, cut_plane_n[1] = 0.0f, cut_plane_n[2] = 0.0f;
        cut_plane_d = -6.0f;  // x + 0.5 < 6 goes: x = 0..5
        apply_cut();
    } else {
        shadow_guard();
    }
    std::string log = testing::internal::GetCapturedStdout();
    EXPECT_EQ(shadow_running, 0);
    EXPECT_EQ(shadow_cancel, 0);
    size_t discarded = log.find("discard shadow calc and return from func!\n");
    EXPECT_NE(discarded, std::string::npos) << log;
    if (with_cut) {
        EXPECT_LT(discarded, log.find("calculated gradients\n")) << "the worker ends before the rebuild";
    }
    null_hold_worker = 0;
    std::vector<uint32_t> field((size_t)vol_x * vol_y * vol_z);
    for (size_t i = 0; i < field.size(); ++i) field[i] = voxels[i] >> 16;
    return field;
}

TEST(ApplyCut, DuringAnOcclusionCalculationStopsTheWorkerFirst)
{
    // The worker saw the grid as it was before the cut: it left the same occlusion as one
    // stopped without a cut, though the cut has since erased what lies before x = 6.
    std::vector<uint32_t> uncut = occlusion_after_a_stopped_calculation(false);
    std::vector<uint32_t> cut = occlusion_after_a_stopped_calculation(true);
    EXPECT_EQ(cut, uncut);
    for (uint32_t x = 0; x < vol_x; ++x)
        for (uint32_t y = 0; y < vol_y; ++y)
            for (uint32_t z = 0; z < vol_z; ++z) {
                bool data = x >= 2 && x <= 10 && y >= 2 && y <= 8 && z >= 2 && z <= 6;
                EXPECT_EQ(voxels[voxel_index(x, y, z)] & density_mask, data && x >= 6 ? 3000u : 0u)
                    << x << "," << y << "," << z;
            }

    // A new calculation runs to its end on the cut grid and leaves the densities alone.
    std::vector<uint32_t> densities((size_t)vol_x * vol_y * vol_z);
    for (size_t i = 0; i < densities.size(); ++i) densities[i] = voxels[i] & density_mask;
    testing::internal::CaptureStdout();
    start_occlusion();
    wait_for_occlusion();
    std::string log = testing::internal::GetCapturedStdout();
    EXPECT_NE(log.find("finished shadow-calc thread"), std::string::npos) << log;
    for (size_t i = 0; i < densities.size(); ++i) ASSERT_EQ(voxels[i] & density_mask, densities[i]);
    size_t changed = 0;
    for (size_t i = 0; i < densities.size(); ++i) changed += (voxels[i] >> 16) != cut[i];
    EXPECT_GT(changed, 0u);  // the field is the new calculation's
    stop_shadow_thread();
    shadow_cancel = 0;
}
