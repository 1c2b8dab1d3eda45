// The occlusion precalculation: the two models on tiny grids worked out by hand (which voxels
// get a ray, the soft model's strongest opacity, the hard model's threshold, the start voxel),
// "Blur Shadows" and its margin, the worker's start, cancel and wait with their log lines
// (restart, blur, load and "Blur Data" during a calculation), the fast walk against the plain
// rules of occlusion_reference.h on many random grids and on a real scan, a render while the
// worker runs, and light model 2 of the cuberille showing the result.
//
// The headless doors run the worker on a std::thread; null_hold_worker keeps it from starting
// until it is waited for, so that what happens "during a calculation" is not left to timing.
//
// Where a ray goes: it starts at the centre (x + 0.5, y + 0.5, z + 0.5) of its voxel and stands,
// after k steps, in voxel trunc(p + 0.5). With the light along +x (light_dir (1, 0, 0), steps of
// (-0.7, 0, 0)) that is (trunc(x + 1 - 0.7 k), y + 1, z + 1): the ray of a voxel runs along the
// row one up in y and in z, and never stands in its start voxel. Only a ray that moves down on
// every axis begins in its start voxel.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/passes.h"
#include "occlusion_reference.h"
#include "raycast_helpers.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

const char* const started = "calculating occlusion\nstarted shadow-calc thread\nset thread-start call\n";
const char* const finished = "finished shadow-calc thread in ~0 milliseconds\n";
const char* const discarded = "discard shadow calc and return from func!\n";

class Occlusion : public ::testing::Test {
protected:
    void SetUp() override
    {
        start_fresh();
        null_hold_worker = 0;
        null_ticks = 1000;
        shadow_cancel = 0;
        shadow_running = 0;
        light_dir[0] = 1.0f, light_dir[1] = 0.0f, light_dir[2] = 0.0f;  // rays walk toward -x
        shadow_stepsize = 0.7f;
        shadow_kind = 2;
        isovalue = 2048;
    }
    void TearDown() override
    {
        stop_shadow_thread();
        shadow_cancel = 0;
        null_hold_worker = 0;
    }
};

// Runs a whole calculation with the current settings and returns its log. The worker is held
// until the wait, so that the main thread's lines come first.
std::string calculate()
{
    CaptureStdout();
    null_hold_worker = 1;
    start_occlusion();
    wait_for_occlusion();
    return GetCapturedStdout();
}

// The whole upper half of the voxel's word: the occlusion, with bits 24-31 that must be 0.
uint32_t occlusion(uint32_t x, uint32_t y, uint32_t z) { return voxels[voxel_index(x, y, z)] >> 16; }

// A grid of density 0 but for the voxels given, occlusion 0x80 as after a load.
struct Voxel {
    int x, y, z;
    uint32_t density;
};
void sparse_grid(uint32_t X, uint32_t Y, uint32_t Z, std::vector<Voxel> set)
{
    make_grid(X, Y, Z, [&](int x, int y, int z) {
        for (const Voxel& v : set)
            if (v.x == x && v.y == y && v.z == z) return v.density;
        return 0u;
    });
}

// The field the plain rules give for the current grid and settings.
std::vector<uint8_t> expected_field()
{
    return reference_occlusion(voxels, vol_x, vol_y, vol_z, light_dir, shadow_stepsize, shadow_kind,
                               isovalue, opacity_lut);
}

// Every voxel of the grid holds what the plain rules give, and nothing above bit 23.
void expect_reference_field(const char* what)
{
    const std::vector<uint8_t> expected = expected_field();
    size_t wrong = 0, first = 0;
    for (size_t i = 0; i < expected.size(); ++i)
        if ((voxels[i] >> 16) != expected[i] && wrong++ == 0) first = i;
    EXPECT_EQ(wrong, 0u) << what << ": first at word " << first << ": " << (voxels[first] >> 16) << " instead of "
                         << (int)expected[first];
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Which voxels get a ray.

TEST_F(Occlusion, Density500AndOpacity015GetNoRay)
{
    // An opaque wall at x = 1: every ray from right of it crosses it.
    std::vector<Voxel> set = {{5, 1, 1, 500}, {5, 2, 1, 501}};
    for (int y = 0; y < 5; ++y)
        for (int z = 0; z < 4; ++z) set.push_back({1, y, z, 4000});
    sparse_grid(9, 5, 4, set);
    opacity_lut[500] = 1.0f;
    opacity_lut[501] = 0.15f;
    EXPECT_EQ(calculate(), std::string(started) + finished);
    EXPECT_EQ(occlusion(5, 1, 1), 255u);  // 500: no ray, whatever its opacity
    EXPECT_EQ(occlusion(5, 2, 1), 255u);  // 501 at 0.15: no ray either
    EXPECT_EQ(occlusion(7, 1, 1), 255u);  // empty space
    // The wall's own rays run along the wall one row up: shadowed, but for the top row in y
    // and z, whose first voxel is outside the grid.
    EXPECT_EQ(occlusion(1, 2, 1), 0u);
    EXPECT_EQ(occlusion(1, 4, 1), 255u);

    opacity_lut[501] = 0.16f;  // now it shoots a ray, and the wall is in its way
    calculate();
    EXPECT_EQ(occlusion(5, 2, 1), 0u);
    EXPECT_EQ(occlusion(5, 1, 1), 255u);
}

// ---------------------------------------------------------------------------------------------
// The soft model.

TEST_F(Occlusion, SoftRayThroughOpacityHalfEndsAt63)
{
    shadow_kind = 1;
    // Rays from the row y = z = 0 run along the row y = z = 1, which holds density 2000 at
    // opacity 0.5 for x = 1..5.
    std::vector<Voxel> set;
    for (int x = 1; x <= 6; ++x) set.push_back({x, 0, 0, 2000});
    for (int x = 1; x <= 5; ++x) set.push_back({x, 1, 1, 2000});
    sparse_grid(7, 3, 3, set);
    opacity_lut[2000] = 0.5f;
    calculate();
    // t = 0.75 is the strongest, never above 0.975: (1 - 0.75) * 255 = 63.75, truncated.
    for (int x = 1; x <= 6; ++x) EXPECT_EQ(occlusion(x, 0, 0), 63u) << x;
    // The row's own rays run along y = z = 2, which is empty.
    EXPECT_EQ(occlusion(3, 1, 1), 255u);

    // The ray keeps going to the grid's edge: a stronger voxel at x = 0 is found behind the
    // row (p + 0.5 in (-1, 1) truncates to voxel 0). t = 0.6 * 1.5 = 0.9, and
    // (1 - 0.9) * 255 = 25.5, truncated.
    set.push_back({0, 1, 1, 3000});
    sparse_grid(7, 3, 3, set);
    opacity_lut[2000] = 0.5f;
    opacity_lut[3000] = 0.6f;
    calculate();
    for (int x = 1; x <= 6; ++x) EXPECT_EQ(occlusion(x, 0, 0), 25u) << x;
}

TEST_F(Occlusion, SoftSingleVoxelAboveTwoThirdsGivesZero)
{
    shadow_kind = 1;
    sparse_grid(7, 3, 3, {{5, 0, 0, 2000}, {2, 1, 1, 2500}});
    opacity_lut[2000] = 0.5f;
    opacity_lut[2500] = 0.7f;  // t = 1.05 > 1: the ray ends with 0
    calculate();
    EXPECT_EQ(occlusion(5, 0, 0), 0u);
    // Just below 2/3 the ray ends too, since acc = 0.99 passes 0.975, but with what is left:
    // (1 - 0.99) * 255 = 2.55, truncated.
    opacity_lut[2500] = 0.66f;
    calculate();
    EXPECT_EQ(occlusion(5, 0, 0), 2u);
}

TEST_F(Occlusion, SoftRayGoesOnAtExactly0975)
{
    shadow_kind = 1;
    // 0x1.4ccccep-1 (0.65000004) * 1.5f rounds to 0.975f exactly: acc = 0.975 is not above
    // 0.975, so the ray goes on and meets t = 1.05 further on.
    sparse_grid(7, 3, 3, {{5, 0, 0, 2000}, {3, 1, 1, 2600}, {1, 1, 1, 2500}});
    opacity_lut[2000] = 0.5f;
    opacity_lut[2600] = 0x1.4ccccep-1f;
    ASSERT_EQ(opacity_lut[2600] * 1.5f, 0.975f);
    opacity_lut[2500] = 0.7f;
    calculate();
    EXPECT_EQ(occlusion(5, 0, 0), 0u);
    // Without the voxel behind, the ray ends at the edge with (1 - 0.975) * 255 = 6.4.
    opacity_lut[2500] = 0.0f;
    calculate();
    EXPECT_EQ(occlusion(5, 0, 0), 6u);
}

// ---------------------------------------------------------------------------------------------
// The hard model.

TEST_F(Occlusion, HardModelZeroAtExactlyTheIsovalue)
{
    sparse_grid(7, 3, 3, {{2, 1, 1, 2048}, {5, 0, 0, 3000}});
    calculate();
    EXPECT_EQ(occlusion(5, 0, 0), 0u);
    EXPECT_EQ(occlusion(2, 1, 1), 255u);  // its own ray finds nothing
    sparse_grid(7, 3, 3, {{2, 1, 1, 2047}, {5, 0, 0, 3000}});
    calculate();
    // Nothing stands in any ray's way now.
    for (size_t i = 0; i < (size_t)vol_x * vol_y * vol_z; ++i) EXPECT_EQ(voxels[i] >> 16, 255u) << i;
}

TEST_F(Occlusion, StepsInTheStartVoxelAreSkipped)
{
    // Light along (1, 1, 1): the ray moves down on every axis, 0.0577 a step at a step size of
    // 0.1, and p + 0.5 = 5 - 0.0577 k stays in the start voxel (4, 4, 4) for k = 1 to 17. Its
    // density is above the isovalue, but those steps don't count: the ray goes on.
    light_dir[0] = light_dir[1] = light_dir[2] = 1.0f;
    normalize3(light_dir);
    shadow_stepsize = 0.1f;
    sparse_grid(7, 7, 7, {{4, 4, 4, 3000}});
    calculate();
    EXPECT_EQ(occlusion(4, 4, 4), 255u);
    // It goes on through (3, 3, 3) to (2, 2, 2), where it finds the isovalue.
    sparse_grid(7, 7, 7, {{4, 4, 4, 3000}, {2, 2, 2, 2048}});
    calculate();
    EXPECT_EQ(occlusion(4, 4, 4), 0u);
    expect_reference_field("step 0.1");
}

// ---------------------------------------------------------------------------------------------
// "Blur Shadows".

TEST_F(Occlusion, BlurShadowsLeavesTheMarginAtZero)
{
    sparse_grid(9, 8, 7, {});
    calculate();  // nothing casts a shadow: 255 everywhere
    voxels[voxel_index(4, 4, 3)] &= 0xffffu;  // one fully occluded voxel inside
    null_gui_pumps = 0;
    blur_shadows();
    EXPECT_EQ(refresh, 1);
    // One pump before, one per z layer of the first pass, one after; the bar ends at 0.
    EXPECT_EQ(null_gui_pumps, 2u + 7u);
    EXPECT_EQ(null_progress_smooth_shadow, 0.0);
    for (uint32_t x = 0; x < 9; ++x)
        for (uint32_t y = 0; y < 8; ++y)
            for (uint32_t z = 0; z < 7; ++z) {
                const bool margin = x < 2 || x >= 7 || y < 2 || y >= 6 || z < 2 || z >= 5;
                const bool near = std::abs((int)x - 4) <= 1 && std::abs((int)y - 4) <= 1 && std::abs((int)z - 3) <= 1;
                // 26 * 255 / 27 = 245.6 next to the dark voxel; the margin reads 0, not 255.
                const uint32_t expected = margin ? 0u : near ? 245u : 255u;
                EXPECT_EQ(occlusion(x, y, z), expected) << x << "," << y << "," << z;
                EXPECT_EQ(voxels[voxel_index(x, y, z)] & 0xffffu, 0u);  // densities untouched
            }
}

TEST_F(Occlusion, BlurShadowsOnAThinGridClearsTheField)
{
    sparse_grid(9, 8, 4, {{3, 3, 2, 3000}});
    calculate();
    blur_shadows();
    for (uint32_t x = 0; x < 9; ++x)
        for (uint32_t y = 0; y < 8; ++y)
            for (uint32_t z = 0; z < 4; ++z) EXPECT_EQ(occlusion(x, y, z), 0u);
    EXPECT_EQ(density_at(3, 3, 2), 3000u);
}

TEST_F(Occlusion, BlurShadowsWithoutAVolumeDoesNothing)
{
    volume_loaded = 0;
    null_gui_pumps = 0;
    refresh = 0;
    blur_shadows();
    EXPECT_EQ(null_gui_pumps, 0u);
    EXPECT_EQ(refresh, 0);
}

// ---------------------------------------------------------------------------------------------
// Start, cancel and wait.

TEST_F(Occlusion, WithoutAVolumeOnlyTheFirstLine)
{
    volume_loaded = 0;
    CaptureStdout();
    start_occlusion();
    EXPECT_EQ(GetCapturedStdout(), "calculating occlusion\n");
    EXPECT_EQ(shadow_running, 0);
}

TEST_F(Occlusion, TheEndSetsRefreshAndClearsTheProgress)
{
    sparse_grid(7, 5, 9, {{3, 2, 4, 3000}});
    refresh = 0;
    shadow_progress = 0.5f;
    null_progress_shadow = 1.0;
    calculate();
    EXPECT_EQ(refresh, 1);
    EXPECT_EQ(shadow_running, 0);
    EXPECT_EQ(shadow_progress, 0.0f);
    EXPECT_EQ(null_progress_shadow, 0.0);  // the bar was zeroed by the start
    // The frame loop shows the fraction every frame (here without a volume, so that the frame
    // does nothing else).
    volume_loaded = 0;
    shadow_progress = 0.25f;
    frame();
    EXPECT_EQ(null_progress_shadow, 0.25);
    shadow_progress = 0.0f;
}

TEST_F(Occlusion, RestartDuringACalculation)
{
    sparse_grid(7, 5, 9, {{3, 2, 4, 3000}, {1, 2, 4, 2500}});
    null_hold_worker = 1;
    CaptureStdout();
    start_occlusion();
    start_occlusion();  // the first worker has not run yet: it sees the cancel at its first ray
    wait_for_occlusion();
    EXPECT_EQ(GetCapturedStdout(), std::string(started) + "calculating occlusion\n" + discarded + finished +
                                       "started shadow-calc thread\nset thread-start call\n" + finished);
    EXPECT_EQ(shadow_cancel, 0);
    expect_reference_field("after the restart");
}

TEST_F(Occlusion, BlurShadowsDuringACalculationBlursThePartialField)
{
    // The first voxel that needs a ray is the first of layer z = 3: the discarded worker has
    // stored 255 in layers 0 to 2, and layers 3 on keep the 0x80 of the load.
    sparse_grid(6, 5, 8, {{0, 0, 3, 3000}});
    null_hold_worker = 1;
    CaptureStdout();
    start_occlusion();
    blur_shadows();
    EXPECT_EQ(GetCapturedStdout(), std::string(started) + discarded + finished);
    EXPECT_EQ(shadow_cancel, 0);
    EXPECT_EQ(shadow_running, 0);
    // Interior layers: z = 2 averages two layers of 255 and one of 128 (212.7), z = 3 one
    // and two (170.3), z = 4 and 5 only 128.
    const uint32_t by_layer[8] = {0, 0, 212, 170, 128, 128, 0, 0};
    for (uint32_t x = 0; x < 6; ++x)
        for (uint32_t y = 0; y < 5; ++y)
            for (uint32_t z = 0; z < 8; ++z) {
                const bool margin = x < 2 || x >= 4 || y < 2 || y >= 3;
                EXPECT_EQ(occlusion(x, y, z), margin ? 0u : by_layer[z]) << x << "," << y << "," << z;
            }
}

TEST_F(Occlusion, LoadDuringACalculationStopsItAndLeavesTheCancelRaised)
{
    sparse_grid(6, 5, 8, {{0, 0, 3, 3000}});
    std::string path = write_dat("occlusion_load.dat", 3, 4, 5, make_samples(3, 4, 5, [](int x, int, int) {
                                     return x == 1 ? 3000 : 0;
                                 }));
    null_hold_worker = 1;
    CaptureStdout();
    start_occlusion();
    ASSERT_TRUE(load_volume_file(path.c_str()));
    std::string log = GetCapturedStdout();
    EXPECT_EQ(log.rfind(std::string(started) + path + "\n" + discarded + finished, 0), 0u) << log;
    EXPECT_EQ(shadow_cancel, 1);  // the next start clears it
    EXPECT_EQ(shadow_running, 0);
    EXPECT_EQ(occlusion(2, 2, 2), 0x80u);  // the new volume's neutral field
    std::string again = calculate();
    EXPECT_EQ(again, std::string(started) + finished);
    expect_reference_field("after the load");
    remove(path.c_str());
}

TEST_F(Occlusion, BlurDataDuringACalculationStopsIt)
{
    sparse_grid(6, 5, 8, {{0, 0, 3, 3000}});
    null_hold_worker = 1;
    CaptureStdout();
    start_occlusion();
    blur_data();
    std::string log = GetCapturedStdout();
    EXPECT_EQ(log.rfind(std::string(started) + discarded + finished, 0), 0u) << log;
    EXPECT_EQ(shadow_cancel, 0);
    EXPECT_EQ(shadow_running, 0);
}

TEST_F(Occlusion, TheSettingsOfTheCalculationAreTakenAtItsStart)
{
    sparse_grid(7, 3, 3, {{2, 1, 1, 2048}, {5, 0, 0, 3000}});
    null_hold_worker = 1;
    CaptureStdout();
    start_occlusion();
    // Changed before the worker has read anything: it still uses what was set at its start.
    isovalue = 3001;
    light_dir[0] = -1.0f;
    for (int d = 0; d < 4096; ++d) opacity_lut[d] = 0.0f;
    wait_for_occlusion();
    GetCapturedStdout();
    EXPECT_EQ(occlusion(5, 0, 0), 0u);
}

// A click on "Precalculate Occlusions" while a blur pumps the panel starts a worker beside the
// blur. The words are shared without a lock, and every access on both sides is atomic: the
// blur's densities come out as without the worker, and the occlusion half keeps its top byte
// at 0.
TEST_F(Occlusion, CalculationStartedFromThePumpsOfABlur)
{
    auto grid = [] {
        make_grid(23, 19, 17, [](int x, int y, int z) { return (x * 31 + y * 17 + z * 7) % 23 < 9 ? 2600u : 0u; });
    };
    grid();
    CaptureStdout();
    blur_data();
    GetCapturedStdout();
    std::vector<uint32_t> blurred(voxels, voxels + (size_t)23 * 19 * 17);

    grid();
    static int pumps;
    pumps = 0;
    null_pump_hook = [] {
        if (++pumps == 3) start_occlusion();
    };
    CaptureStdout();
    blur_data();
    wait_for_occlusion();
    pumps = 0;
    blur_shadows();  // and once more while the shadows are blurred
    wait_for_occlusion();
    null_pump_hook = nullptr;
    GetCapturedStdout();
    for (size_t i = 0; i < blurred.size(); ++i) {
        ASSERT_EQ(voxels[i] & 0xffff, blurred[i] & 0xffff) << i;
        ASSERT_EQ(voxels[i] >> 24, 0u) << i;
    }
}

// ---------------------------------------------------------------------------------------------
// The fast walk holds every result of the plain rules.

TEST_F(Occlusion, FastWalkMatchesThePlainRulesOnRandomGrids)
{
    std::mt19937 rng(20240611);
    auto uniform = [&](float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(rng); };
    auto integer = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    for (int trial = 0; trial < 60; ++trial) {
        const uint32_t X = integer(3, 37), Y = integer(3, 37), Z = integer(3, 37);
        // A few blobs of random density in empty space, some of them solid.
        struct Blob {
            float c[3], r;
            uint32_t d;
        };
        std::vector<Blob> blobs(integer(1, 6));
        for (Blob& b : blobs)
            b = {{uniform(0, X), uniform(0, Y), uniform(0, Z)}, uniform(0.5f, 9.0f), (uint32_t)integer(400, 4095)};
        const int noise = integer(0, 2);
        make_grid(X, Y, Z, [&](int x, int y, int z) {
            uint32_t d = 0;
            for (const Blob& b : blobs) {
                float dx = x - b.c[0], dy = y - b.c[1], dz = z - b.c[2];
                if (dx * dx + dy * dy + dz * dz <= b.r * b.r) d = b.d;
            }
            if (noise && (x * 7 + y * 13 + z * 5) % 11 == 0) d = (d + 1234) % 4096;
            return d;
        });
        for (int d = 0; d < 4096; ++d) opacity_lut[d] = integer(0, 3) ? uniform(0.0f, 0.7f) : 0.0f;
        // Directions along the axes, with tiny components, and anywhere.
        float l[3];
        switch (trial % 4) {
        case 0: l[0] = 0, l[1] = 0, l[2] = 0, l[integer(0, 2)] = integer(0, 1) ? 1.0f : -1.0f; break;
        case 1: l[0] = uniform(-1, 1), l[1] = 1e-6f * uniform(-1, 1), l[2] = uniform(-1, 1); break;
        default: l[0] = uniform(-1, 1), l[1] = uniform(-1, 1), l[2] = uniform(-1, 1); break;
        }
        normalize3(l);
        for (int a = 0; a < 3; ++a) light_dir[a] = l[a];
        const float steps[] = {0.1f, 0.3f, 0.5f, 0.7f, 1.0f, 1.7f, 4.0f};
        shadow_stepsize = steps[integer(0, 6)];
        shadow_kind = integer(1, 2);
        isovalue = integer(0, 4200);
        calculate();
        expect_reference_field(("trial " + std::to_string(trial)).c_str());
        if (HasFailure()) break;
    }
}

// A step that is exactly halfway between two floats of a binade (s = 0.5 + 2^-15 on positions
// of 512 to 1024) rounds each way by the parity of the position: no jump may be taken there.
TEST_F(Occlusion, FastWalkAcrossBinadesWithTiesMatchesThePlainRules)
{
    shadow_stepsize = 0.500030517578125f;
    for (int kind = 1; kind <= 2; ++kind) {
        shadow_kind = kind;
        make_grid(1100, 3, 3, [](int x, int y, int z) {
            if (y != 1 || z != 1) return 0u;
            return x % 97 == 5 ? 3000u : x % 13 == 0 ? 1800u : 900u;
        });
        calculate();
        expect_reference_field(kind == 1 ? "soft" : "hard");
    }
}

TEST_F(Occlusion, FastWalkMatchesThePlainRulesOnARealScan)
{
    const std::string path = std::string(TAVOK_SHARED_DATA) + "/ct-headsq-64x64x93.dat";
    if (access(path.c_str(), R_OK) != 0) GTEST_SKIP() << path << " is absent";
    CaptureStdout();
    ASSERT_TRUE(load_volume_file(path.c_str()));
    GetCapturedStdout();
    isovalue = 1400;
    for (int kind = 1; kind <= 2; ++kind) {
        shadow_kind = kind;
        calculate();
        expect_reference_field(kind == 1 ? "soft" : "hard");
    }
}

// The main thread renders while the worker rewrites the occlusion half of the words: every
// pass of the table (preview and final, in each interpolation, light model 2 for the occlusion
// grey), over and over until the worker ends. The passes read old or new values, the
// densities never change, and the field ends complete.
TEST_F(Occlusion, RenderingWhileTheWorkerRuns)
{
    make_grid(41, 37, 29, [](int x, int y, int z) {
        return (x - 20) * (x - 20) + (y - 18) * (y - 18) + (z - 14) * (z - 14) < 150 ? 2600u : (x + y + z) % 9 == 0 ? 900u : 0u;
    });
    std::vector<uint32_t> densities(voxels, voxels + (size_t)41 * 37 * 29);
    for (uint32_t& d : densities) d &= 0xffff;
    shadow_kind = 1;
    shadow_stepsize = 0.1f;
    set_image(64, 48);
    set_camera(20.5f, 18.5f, -30.0f, 0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f);
    light_model = 2;
    use_occlusion = 1;
    CaptureStdout();
    start_occlusion();
    int rounds = 0;
    do {
        for (const RenderPass& row : render_passes) {
            if (!row.preview) continue;
            render_mode = row.mode;
            for (int interp = 0; interp < 3; ++interp) {
                interp_mode = (uint8_t)interp;
                clear_image();
                run_preview();
                run_final();
            }
        }
        ++rounds;
    } while (shadow_running);
    wait_for_occlusion();
    GetCapturedStdout();
    EXPECT_GE(rounds, 1);
    for (size_t i = 0; i < densities.size(); ++i) ASSERT_EQ(voxels[i] & 0xffff, densities[i]) << i;
    expect_reference_field("after rendering beside it");
}

// ---------------------------------------------------------------------------------------------
// Light model 2 of the cuberille shows the computed factors.

TEST_F(Occlusion, CuberilleShowsTheComputedOcclusion)
{
    // A floor at z <= 2 and a block floating above it at z 7..8; the light comes from above
    // and from -x (rays walk toward +x and +z), so the block's shadow falls on the floor to
    // its -x side, where a camera straight above sees it.
    make_grid(21, 9, 12, [](int x, int y, int z) {
        if (z <= 2) return 3000u;
        if (z >= 7 && z <= 8 && x >= 12 && x <= 15 && y >= 2 && y <= 6) return 3000u;
        return 0u;
    });
    opaque_from(2000, 0x336699);
    light_dir[0] = -0.6f, light_dir[1] = 0.0f, light_dir[2] = -0.8f;
    set_image(9, 9);
    light_model = 2;
    auto centre_after_looking_down_at = [](float x, float y) {
        set_camera(x, y, 11.5f, 0.0f, 0.0f, -1.0f, 0.0f, 1.0f, 0.0f);
        clear_image();
        render_cuberille_final(&render_target, voxels, ipos, ifor, iup, istr);
        return pixel(4, 4);
    };
    EXPECT_EQ(centre_after_looking_down_at(8.5f, 4.5f), 0x808080u);  // the neutral field
    calculate();
    // Floor voxel (8, 4, 2): its ray, from (8.5, 4.5, 2.5) by (0.42, 0, 0.56), stands in voxel
    // (12, 5, 7) of the block at its eighth step.
    EXPECT_EQ(occlusion(8, 4, 2), 0u);
    EXPECT_EQ(centre_after_looking_down_at(8.5f, 4.5f), 0x000000u);
    EXPECT_EQ(centre_after_looking_down_at(3.5f, 4.5f), 0xffffffu);   // open floor
    EXPECT_EQ(centre_after_looking_down_at(13.5f, 4.5f), 0xffffffu);  // the block's top
}
