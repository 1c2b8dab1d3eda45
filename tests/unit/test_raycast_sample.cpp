// test_raycast_sample.cpp — the samplers: the plane sample at a walk's crossing, the trilinear
// sample and its colour reduction, the trilinear march with its brick skip and sample limit,
// and the bisection of a crossing. Grids are hand-made with a density that is linear in x, y
// and z, so that every interpolated value can be computed by hand.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "raycast/final.h"
#include "raycast/sample.h"
#include "raycast_helpers.h"

namespace {

// 100 x + 10 y + z: bilinear and trilinear interpolation of it are exact.
uint32_t linear(int x, int y, int z) { return (uint32_t)(100 * x + 10 * y + z); }

// A walk standing on cell (x, y, z), entered through face with steps and the crossing at t.
RayWalk walk_at(int x, int y, int z, int8_t face, int sx, int sy, int sz, float t)
{
    RayWalk w = {};
    w.x = x, w.y = y, w.z = z;
    w.step_x = sx, w.step_y = sy, w.step_z = sz;
    w.index = voxel_index((uint32_t)x, (uint32_t)y, (uint32_t)z);
    w.entry_face = face;
    w.cross_t = (int32_t)(t * 4096.0f);
    return w;
}

}  // namespace

TEST(PlaneSample, BilinearOnTheCrossedZPlane)
{
    start_fresh();
    make_grid(5, 5, 5, linear);
    const GridView g = grid_view(voxels);
    // q = dir * t + p = (1.125, 2.25, 3.0) on the z plane of the current cell, z = 3.
    const float p[3] = {0.5f, 1.0f, 0.5f}, dir[3] = {0.25f, 0.5f, 1.0f};
    RayWalk w = walk_at(1, 2, 3, 3, 1, 1, 1, 2.5f);
    PlaneSample s;
    ASSERT_TRUE(plane_sample(w, g, p, dir, s));
    EXPECT_EQ(s.base, voxel_index(1, 2, 3));
    EXPECT_FLOAT_EQ(s.fb, 0.125f);
    EXPECT_FLOAT_EQ(s.fc, 0.25f);
    EXPECT_FLOAT_EQ(s.gb, 0.875f);
    EXPECT_FLOAT_EQ(s.gc, 0.75f);
    // (gb v01 + fb v11) fc + (fb v10 + gb v00) gc = (0.875 * 133 + 0.125 * 233) * 0.25 +
    // (0.125 * 223 + 0.875 * 123) * 0.75 = 36.375 + 101.625
    Sample r = plane_sample_values<false>(s, g);
    EXPECT_EQ(r.density, 138.0f);
    EXPECT_EQ(r.occlusion, 128.0f);  // 0x80 everywhere
}

TEST(PlaneSample, DownwardRayTakesThePlaneJustPassed)
{
    start_fresh();
    make_grid(5, 5, 5, linear);
    const GridView g = grid_view(voxels);
    const float p[3] = {0.5f, 1.0f, 4.9f}, dir[3] = {0.25f, 0.5f, -1.0f};
    RayWalk w = walk_at(1, 2, 3, 3, 1, 1, -1, 2.5f);
    PlaneSample s;
    ASSERT_TRUE(plane_sample(w, g, p, dir, s));
    EXPECT_EQ(s.base, voxel_index(1, 2, 4));  // cell.z + 1
    EXPECT_EQ(plane_sample_values<false>(s, g).density, 139.0f);
}

TEST(PlaneSample, XAndYCrossingsUseTheirOwnPlanes)
{
    start_fresh();
    make_grid(5, 5, 5, linear);
    const GridView g = grid_view(voxels);
    // x crossing: b = y, c = z; q = (_, 1.5, 2.75).
    const float p[3] = {0.0f, 1.0f, 2.0f}, dir[3] = {1.0f, 0.25f, 0.375f};
    RayWalk w = walk_at(2, 1, 2, 1, 1, 1, 1, 2.0f);
    PlaneSample s;
    ASSERT_TRUE(plane_sample(w, g, p, dir, s));
    EXPECT_EQ(plane_sample_values<false>(s, g).density, 200.0f + 15.0f + 2.75f);
    // y crossing: b = x, c = z; q = (2.25, _, 1.5).
    const float p2[3] = {1.0f, 0.0f, 1.0f}, dir2[3] = {0.625f, 1.0f, 0.25f};
    w = walk_at(2, 2, 1, 2, 1, 1, 1, 2.0f);
    ASSERT_TRUE(plane_sample(w, g, p2, dir2, s));
    EXPECT_EQ(plane_sample_values<false>(s, g).density, 225.0f + 20.0f + 1.5f);
}

TEST(PlaneSample, NoSampleAtTheFarSideOrOffTheGrid)
{
    start_fresh();
    make_grid(5, 5, 5, linear);
    const GridView g = grid_view(voxels);
    const float dir[3] = {0.25f, 0.5f, 1.0f};
    PlaneSample s;
    // cell.b + 1 reaches the size: the outermost layer has no neighbour to blend with.
    const float p[3] = {3.5f, 1.0f, 0.5f};
    EXPECT_FALSE(plane_sample(walk_at(4, 2, 3, 3, 1, 1, 1, 2.5f), g, p, dir, s));
    EXPECT_FALSE(plane_sample(walk_at(1, 4, 3, 3, 1, 1, 1, 2.5f), g, p, dir, s));
    // The crossing point lies off the grid along b.
    const float off[3] = {-1.0f, 1.0f, 0.5f};
    EXPECT_FALSE(plane_sample(walk_at(1, 2, 3, 3, 1, 1, 1, 0.25f), g, off, dir, s));
    // The cell one step back along a lies outside: the first cell of an upward ray at z = 0.
    const float q[3] = {1.0f, 2.0f, 0.0f};
    EXPECT_FALSE(plane_sample(walk_at(1, 2, 0, -1, 1, 1, 1, 0.0f), g, q, dir, s));
    // The same cell as a downward ray's is sampled on its plane z + 1.
    const float down[3] = {0.25f, 0.5f, -1.0f};
    EXPECT_TRUE(plane_sample(walk_at(1, 2, 0, -1, 1, 1, -1, 0.0f), g, q, down, s));
    EXPECT_EQ(s.base, voxel_index(1, 2, 1));
}

TEST(PlaneSample, ARayAlongAGridPlaneNeverCrossesIt)
{
    start_fresh();
    make_grid(12, 12, 12, [](int, int, int) { return 600u; });
    const GridView g = grid_view(voxels);
    // y = 5.5 throughout: no crossing of a y plane, the samples come from x and z crossings.
    const float p[3] = {0.0f, 5.5f, 0.25f}, dir[3] = {1.0f, 0.0f, 0.5f};
    RayWalk w;
    start_walk(w, g, p, p, dir);
    std::set<int> faces;
    int samples = 0;
    walk_ray<Form::final_pass, true>(w, g, [&](const RayWalk& w) {
        PlaneSample s;
        faces.insert(w.entry_face);
        if (plane_sample(w, g, p, w.dir, s)) ++samples;
        return false;
    });
    EXPECT_EQ(faces.count(2), 0u);
    EXPECT_EQ(faces.count(1), 1u);
    EXPECT_EQ(faces.count(3), 1u);
    EXPECT_GT(samples, 10);
}

TEST(PlaneSample, ColourAlongBThenC)
{
    PlaneSample s = {};
    s.fb = 0.5f, s.fc = 0.25f;
    // Along b: 0 toward 0xff0000 at w = 16383 gives 127; then along c toward 0x0000ff.
    uint32_t c = plane_color(s, 0x000000, 0xff0000, 0x0000ff, 0x0000ff);
    const int32_t wc = (int32_t)(0.25f * 32767.0f);
    EXPECT_EQ(c, color_lerp(0x7f0000, 0x0000ff, wc));
    EXPECT_EQ((c >> 16) & 0xff, (uint32_t)(127 + (((0 - 127) * wc) >> 15)));
}

TEST(TrilinearSample, LinearDensityIsExactAndUpperNeighboursAreClamped)
{
    start_fresh();
    make_grid(6, 6, 6, linear);
    const GridView g = grid_view(voxels);
    Corners k;
    const int32_t cell[3] = {1, 2, 3};
    const float pos[3] = {1.5f, 2.25f, 3.75f};
    trilinear_corners(g, cell, pos, k);
    EXPECT_EQ(k.index[0], voxel_index(1, 2, 3));
    EXPECT_EQ(k.index[7], voxel_index(2, 3, 4));
    EXPECT_FLOAT_EQ(trilinear_sample<false>(g, k).density, 150.0f + 22.5f + 3.75f);
    // The last cell along x: x + 1 is clamped to it, so nothing is extrapolated.
    const int32_t last[3] = {5, 2, 3};
    const float at[3] = {5.5f, 2.0f, 3.0f};
    trilinear_corners(g, last, at, k);
    EXPECT_EQ(k.index[4], voxel_index(5, 2, 3));
    EXPECT_FLOAT_EQ(trilinear_sample<false>(g, k).density, 523.0f);
}

TEST(TrilinearSample, NormalUsesTheSameWeights)
{
    start_fresh();
    make_grid(6, 6, 6, linear);
    const GridView g = grid_view(voxels);
    Corners k;
    const int32_t cell[3] = {2, 2, 2};
    const float pos[3] = {2.5f, 2.5f, 2.5f};
    trilinear_corners(g, cell, pos, k);
    Sample r = trilinear_sample<true>(g, k);
    // Inside, every gradient is (100, 10, 1) / |.|.
    const float n = sqrtf(100.0f * 100.0f + 10.0f * 10.0f + 1.0f);
    EXPECT_NEAR(r.normal[0], 100.0f / n, 1e-6);
    EXPECT_NEAR(r.normal[1], 10.0f / n, 1e-6);
    EXPECT_NEAR(r.normal[2], 1.0f / n, 1e-6);
}

TEST(TrilinearSample, ColourAlongZThenXThenY)
{
    Corners k = {};
    k.fz = 0.5f, k.fx = 0.0f, k.fy = 0.0f;
    uint32_t c[8] = {0, 0xff0000, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(trilinear_color(k, c), 0x7f0000u);
    k.fz = 0.0f, k.fx = 0.5f;
    uint32_t d[8] = {0, 0, 0, 0, 0x00ff00, 0, 0, 0};
    EXPECT_EQ(trilinear_color(k, d), 0x007f00u);
    k.fx = 0.0f, k.fy = 0.5f;
    uint32_t e[8] = {0, 0, 0x0000ff, 0, 0, 0, 0, 0};
    EXPECT_EQ(trilinear_color(k, e), 0x00007fu);
}

TEST(TrilinearMarch, SmallestStepGivesAHundredThousandSamples)
{
    start_fresh();
    make_grid(1010, 3, 3, [](int, int, int) { return 600u; });
    const GridView g = grid_view(voxels);
    ASSERT_EQ(max_ray_steps, 1000u);
    const float p[3] = {0.0f, 1.5f, 1.5f}, dir[3] = {0.5f, 0.0f, 0.0f};
    uint32_t samples = 0;
    EXPECT_TRUE(march_ray(g, p, dir, 0.01f, [&](const int32_t*, const float*) {
        ++samples;
        return false;
    }));
    EXPECT_EQ(samples, 100000u);
}

TEST(TrilinearMarch, FirstPositionOutsideTheGridIsAMiss)
{
    start_fresh();
    make_grid(5, 5, 5, linear);
    const GridView g = grid_view(voxels);
    // p on the far x face, dir pointing on: p + dir lies beyond the grid.
    const float p[3] = {5.0f, 2.0f, 2.0f}, dir[3] = {0.5f, 0.0f, 0.0f};
    int samples = 0;
    EXPECT_FALSE(march_ray(g, p, dir, 0.7f, [&](const int32_t*, const float*) { return ++samples, false; }));
    EXPECT_EQ(samples, 0);
    // Pointing back in, the first base cell is p's, clamped into the grid.
    const float back[3] = {-0.5f, 0.0f, 0.0f};
    std::vector<int> cells;
    EXPECT_TRUE(march_ray(g, p, back, 0.7f, [&](const int32_t* c, const float*) {
        cells.push_back(c[0]);
        return false;
    }));
    ASSERT_FALSE(cells.empty());
    EXPECT_EQ(cells[0], 4);
}

TEST(TrilinearMarch, NeverReadsOutsideTheGrid)
{
    start_fresh();
    make_grid(7, 9, 11, [](int x, int y, int z) { return 600u + (uint32_t)(x + y + z); });
    const GridView g = grid_view(voxels);
    const size_t n = (size_t)vol_x * vol_y * vol_z;
    srand(7);
    int rays = 0, samples = 0;
    for (int r = 0; r < 2000; ++r) {
        // Starts anywhere in the box, the far faces included, in any direction.
        float p[3], dir[3];
        const float size[3] = {7.0f, 9.0f, 11.0f};
        for (int a = 0; a < 3; ++a) {
            p[a] = size[a] * (float)(rand() % 1001) / 1000.0f;
            dir[a] = (float)(rand() % 2001 - 1000) / 400.0f;
        }
        rays += march_ray(g, p, dir, 0.3f, [&](const int32_t* cell, const float* pos) {
            Corners k;
            trilinear_corners(g, cell, pos, k);
            for (size_t i : k.index) EXPECT_LT(i, n);
            ++samples;
            return false;
        });
    }
    EXPECT_GT(rays, 100);
    EXPECT_GT(samples, 1000);
}

TEST(TrilinearMarch, EmptyBricksAreCrossedWithoutSamples)
{
    start_fresh();
    // x < 8 and x >= 16 solid, the bricks between empty.
    make_grid(24, 8, 8, [](int x, int, int) { return x < 8 || x >= 16 ? 600u : 0u; });
    const GridView g = grid_view(voxels);
    const float p[3] = {0.0f, 4.0f, 4.0f}, dir[3] = {0.5f, 0.0f, 0.0f};
    std::vector<float> xs;
    march_ray(g, p, dir, 0.5f, [&](const int32_t*, const float* pos) {
        xs.push_back(pos[0]);
        return false;
    });
    bool in_gap = false;
    for (float x : xs) in_gap |= x >= 8.0f && x < 16.0f;
    EXPECT_FALSE(in_gap);
    EXPECT_EQ(xs.front(), 0.5f);
    // Solid x < 8: 0.5 .. 7.5; then the first sample past the gap at 16.0; on to 23.5.
    EXPECT_EQ(xs.size(), 15u + 16u);
}

TEST(TrilinearMarch, SkippedAdvancesCountAgainstTheLimit)
{
    start_fresh();
    make_grid(40, 8, 8, [](int x, int, int) { return x < 8 || x >= 16 ? 600u : 0u; });
    max_ray_steps = 24;
    const GridView g = grid_view(voxels);
    const float p[3] = {0.0f, 4.0f, 4.0f}, dir[3] = {1.0f, 0.0f, 0.0f};
    // Step 1, a limit of 24. The samples at x = 1 .. 7 leave the count at 6 when the advance
    // after the seventh enters the empty brick at 8; the run to 16 counts its 7 advances inside
    // the brick, one for reaching a solid brick and one for the step: 15 before the sample at
    // 16. From there the count stands at x after the sample at x, and the sample at 24 reaches
    // the limit.
    std::vector<float> xs;
    march_ray(g, p, dir, 1.0f, [&](const int32_t*, const float* pos) {
        xs.push_back(pos[0]);
        return false;
    });
    ASSERT_FALSE(xs.empty());
    EXPECT_EQ(xs.back(), 24.0f);
    EXPECT_EQ(xs.size(), 7u + 9u);
}

TEST(RefineCrossing, WeightsAreMultiplesOfAThirtySecond)
{
    srand(11);
    for (int n = 0; n < 1000; ++n) {
        const float P = (float)(rand() % 2000), I = P + 1.0f + (float)(rand() % 1000);
        const float C = I + (float)(rand() % 1000);
        CrossingWeights w = refine_crossing(C, P, I);
        const float k = w.current * 32.0f;
        EXPECT_EQ(k, floorf(k));
        EXPECT_GE(w.current, 1.0f / 32.0f);
        EXPECT_LE(w.current, 31.0f / 32.0f);
        EXPECT_EQ(w.previous, 1.0f - w.current);
    }
}

TEST(RefineCrossing, HalfOnlyWhenBothEqualTheIsovalue)
{
    EXPECT_EQ(refine_crossing(100.0f, 100.0f, 100.0f).current, 0.5f);
    // C = I alone: the bisection moves toward C, to 31/32.
    EXPECT_EQ(refine_crossing(100.0f, 0.0f, 100.0f).current, 31.0f / 32.0f);
    // An exact hit stops early on a coarser multiple.
    EXPECT_EQ(refine_crossing(200.0f, 0.0f, 100.0f).current, 0.5f);
    EXPECT_EQ(refine_crossing(400.0f, 0.0f, 300.0f).current, 0.75f);
    // Linear in between: P = 0, C = 320, I = 100 lands at 10/32 exactly.
    EXPECT_EQ(refine_crossing(320.0f, 0.0f, 100.0f).current, 10.0f / 32.0f);
}

TEST(Choose, PicksTheMatchingValueOrTheFirst)
{
    int seen = -1;
    choose<0, 1, 2>(2, [&](auto v) { seen = decltype(v)::value; });
    EXPECT_EQ(seen, 2);
    choose<0, 1, 2>(1, [&](auto v) { seen = decltype(v)::value; });
    EXPECT_EQ(seen, 1);
    choose<0, 1, 2>(7, [&](auto v) { seen = decltype(v)::value; });
    EXPECT_EQ(seen, 0);
}
