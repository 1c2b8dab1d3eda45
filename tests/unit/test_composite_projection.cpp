// Render modes 4 and 6, the maximum intensity and average projections, on grids small enough to
// work out by hand: the maximum over classified opacity (strictly greater, so the nearer of
// equal maxima stays), the stop at 0.975, interpolation after classification, "Faint Whisps",
// the mean over one sample more than were seen, its rounding rules, the step limit, what the
// preview writes to depth and mask, which pixels the finals cast, and how the finals give way.
//
// Most scenes are slabs: a grid whose density depends on x only, seen by one ray along x. The
// pixel of a 1 x 1 image looks at the corner of the image plane, ifor - istr/2 - iup/2, so with
// ifor = (1, 0.5, 0.5) its ray runs exactly along +x: its y and z components are 0 (raised to
// 0.0001 by the walk's sign rule, which moves it by 0.001 over the grid), and from an eye at
// x = -2 it enters at x = 0 and visits the cells x = 0, 1, 2, ... at cross_t = 4096 x.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "composite/composite.h"
#include "raycast_helpers.h"

namespace {

using Pass = void (*)(RenderTarget*, uint32_t*, float*, float*, float*, float*);
void run(Pass pass) { pass(&render_target, voxels, ipos, ifor, iup, istr); }

struct Mode {
    const char* name;
    Pass preview, final, trilinear;
};
const Mode mip = {"mip", render_mip_preview, render_mip_final, render_mip_final_trilinear};
const Mode avg = {"avg", render_avg_preview, render_avg_final, render_avg_final_trilinear};

// A fresh program with a grid of X x Y x Z whose density depends on x only, every opacity 0
// and every colour black; trilinear samples 1 apart.
void slabs(const std::vector<uint32_t>& density, uint32_t Y = 7, uint32_t Z = 7)
{
    start_fresh();
    refresh = 0;
    make_grid((uint32_t)density.size(), Y, Z, [&](int x, int, int) { return density[x]; });
    for (int d = 0; d < 4096; ++d) opacity_lut[d] = 0.0f, color_lut[d] = 0;
    sample_stepsize = 1.0f;
}

void classify(uint32_t density, float opacity, uint32_t color)
{
    opacity_lut[density] = opacity;
    color_lut[density] = color;
}

// One pixel looking along +x from (-2, y, z), or along -x from (x, y, z).
void set_vectors(float* v, float x, float y, float z) { v[0] = x, v[1] = y, v[2] = z, v[3] = 0.0f; }
void ray_along_x(float y = 3.5f, float z = 3.5f)
{
    set_image(1, 1);
    set_vectors(ipos, -2.0f, y, z);
    set_vectors(ifor, 1.0f, 0.5f, 0.5f);
    set_vectors(istr, 0.0f, 1.0f, 0.0f);
    set_vectors(iup, 0.0f, 0.0f, 1.0f);
}
void ray_back_along_x(float x)
{
    ray_along_x();
    ipos[0] = x;
    ifor[0] = -1.0f;
}

// The one pixel after a pass, the buffers cleared first.
uint32_t one_pixel(Pass pass)
{
    clear_image();
    run(pass);
    return pixel(0, 0);
}

uint32_t grey(uint32_t level) { return level * 0x010101u; }

std::vector<uint32_t> image()
{
    return {render_target.color, render_target.color + render_target.width * render_target.height};
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Maximum intensity projection

TEST(Mip, AnOpacityOfAtLeast0975EndsTheRayAtTheFirstSuchSample)
{
    // Slab 2 thin and red, slab 5 at 0.975 and green, slab 8 fully opaque and blue: every pass
    // stops at slab 5, so the nearer red loses and the farther blue is never reached.
    slabs({0, 0, 1000, 0, 0, 2000, 0, 0, 3000, 0, 0});
    classify(1000, 0.5f, 0xff0000);
    classify(2000, 0.975f, 0x00ff00);
    classify(3000, 1.0f, 0x0000ff);
    ray_along_x();
    EXPECT_EQ(one_pixel(render_mip_preview), 0x00ff00u);
    EXPECT_EQ(depth_at(0, 0), 2u * 4096);  // the first sample that counted, slab 2
    EXPECT_EQ(mask_at(0, 0), 1);
    EXPECT_EQ(one_pixel(render_mip_final), 0x00ff00u);
    EXPECT_EQ(one_pixel(render_mip_final_trilinear), 0x00ff00u);
    interp_mode = interp_bilinear;
    EXPECT_EQ(one_pixel(render_mip_preview), 0x00ff00u);
    EXPECT_EQ(one_pixel(render_mip_final), 0x00ff00u);

    // One step below the threshold the ray goes on, and blue is the maximum.
    opacity_lut[2000] = std::nextafter(0.975f, 0.0f);
    interp_mode = interp_none;
    EXPECT_EQ(one_pixel(render_mip_final), 0x0000ffu);
    EXPECT_EQ(one_pixel(render_mip_final_trilinear), 0x0000ffu);
}

TEST(Mip, WithAnOpaqueDensityTheImageIsAnUnlitFirstHit)
{
    // Many rays, all crossing a thin red slab and then an opaque green one: with voxel samples
    // the whole image is the green of the first opaque slab, without any face shading. (The
    // interpolating samples of slanted rays blend the slab with its transparent black
    // neighbours: their first sample past 0.975 is a mix.)
    start_fresh();
    refresh = 0;
    make_grid(11, 31, 31, [](int x, int, int) { return x == 3 ? 1000u : x == 6 ? 2000u : x == 9 ? 3000u : 0u; });
    for (int d = 0; d < 4096; ++d) opacity_lut[d] = 0.0f, color_lut[d] = 0;
    classify(1000, 0.3f, 0xff0000);
    classify(2000, 1.0f, 0x00ff00);
    classify(3000, 1.0f, 0x0000ff);
    set_image(9, 7);
    set_camera(-3.0f, 15.5f, 15.5f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
    for (Pass pass : {mip.preview, mip.final}) {
        clear_image();
        if (pass == mip.final) run(mip.preview);  // whose lattice pixels the final keeps
        run(pass);
        // The preview reaches no pixel of the last column: no refining cell has it as a corner.
        const uint32_t width = pass == mip.preview ? 8 : 9;
        for (uint32_t y = 0; y < 7; ++y)
            for (uint32_t x = 0; x < width; ++x) ASSERT_EQ(pixel(x, y), 0x00ff00u) << x << ", " << y;
    }
}

TEST(Mip, OfEqualOpacitiesTheNearerSampleStays)
{
    slabs({0, 0, 0, 1000, 0, 0, 1100, 0, 0, 0, 0});
    classify(1000, 0.5f, 0xff0000);
    classify(1100, 0.5f, 0x00ff00);
    ray_along_x();
    EXPECT_EQ(one_pixel(render_mip_preview), 0xff0000u);
    EXPECT_EQ(one_pixel(render_mip_final), 0xff0000u);
    EXPECT_EQ(one_pixel(render_mip_final_trilinear), 0xff0000u);
    // From the other side the green slab is the nearer one.
    ray_back_along_x(13.0f);
    EXPECT_EQ(one_pixel(render_mip_preview), 0x00ff00u);
    EXPECT_EQ(one_pixel(render_mip_final), 0x00ff00u);
    EXPECT_EQ(one_pixel(render_mip_final_trilinear), 0x00ff00u);
    // A hair more opacity behind wins.
    opacity_lut[1000] = std::nextafter(0.5f, 1.0f);
    EXPECT_EQ(one_pixel(render_mip_final), 0xff0000u);
}

TEST(Mip, FaintWhispsScalesByTheMaximumOpacity)
{
    slabs({0, 0, 1000, 0, 0, 0, 0, 0, 0, 0, 0});
    classify(1000, 1.0f, 0xffffff);
    ray_along_x();
    faint_whisps = 1;
    // w = truncate(1.0 * 32767) = 32767: 255 * 32767 >> 15 = 254.
    EXPECT_EQ(one_pixel(render_mip_final), 0xfefefeu);
    EXPECT_EQ(one_pixel(render_mip_preview), 0xfefefeu);
    EXPECT_EQ(one_pixel(render_mip_final_trilinear), 0xfefefeu);
    classify(1000, 1.0f, 0x80ff01);
    EXPECT_EQ(one_pixel(render_mip_final), 0x7ffe00u);  // 128 -> 127, 1 -> 0
    // 0.5: w = 16383, 255 -> 127. 0.975 (0.97500002): w = 31947, 255 -> 248.
    classify(1000, 0.5f, 0xffffff);
    EXPECT_EQ(one_pixel(render_mip_final), grey(127));
    classify(1000, 0.975f, 0xffffff);
    EXPECT_EQ(one_pixel(render_mip_final), grey(248));
    faint_whisps = 0;
    EXPECT_EQ(one_pixel(render_mip_final), 0xffffffu);
}

TEST(Mip, OpacityIsComparedAfterInterpolation)
{
    // One opaque red voxel at (5, 3, 3) among transparent black ones. The voxel walk passes
    // through that very cell and finds opacity 1. The plane sample where the ray crosses x = 5
    // and the trilinear sample at x = 5 weigh it by a quarter (the ray runs through the middle
    // of the four voxels (5, 3..4, 3..4)): the maximum stays near 0.25, below the peak, and its
    // colour is red blended with black. Colour, by color_lerp with weights of one half
    // (16383; the walk's 0.001 of drift doesn't change the result): along y 255 -> 127, then
    // along z 127 -> 63.
    slabs({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    voxels[voxel_index(5, 3, 3)] = 3000 | 0x800000u;
    testing::internal::CaptureStdout();
    build_block_map();
    testing::internal::GetCapturedStdout();
    classify(3000, 1.0f, 0xff0000);
    ray_along_x();
    EXPECT_EQ(one_pixel(render_mip_final), 0xff0000u);
    EXPECT_EQ(one_pixel(render_mip_final_trilinear), 0x3f0000u);
    interp_mode = interp_bilinear;
    EXPECT_EQ(one_pixel(render_mip_final), 0x3f0000u);
    // With faint whisps the quarter shows: w is about 8191, 63 -> 15; the voxel sample keeps
    // its full opacity, 255 -> 254.
    faint_whisps = 1;
    EXPECT_EQ(one_pixel(render_mip_final), 0x0f0000u);
    interp_mode = interp_none;
    EXPECT_EQ(one_pixel(render_mip_final), 0xfe0000u);
    interp_mode = interp_trilinear;
    EXPECT_EQ(one_pixel(render_mip_final_trilinear), 0x0f0000u);
}

TEST(Mip, AVoxelSampleTakesItsColourAfterTheWalkAPlaneSampleFromItsNeighbours)
{
    // Slab 4 holds two densities: 1000 at y = 3 and 1001 at y = 4, equally opaque, red and
    // blue. The voxel walk stays in row y = 3 and shows the colour of density 1000; the plane
    // sample mixes both rows (255 -> 127 along y).
    start_fresh();
    refresh = 0;
    make_grid(11, 7, 7, [](int x, int y, int) { return x == 4 ? (y == 4 ? 1001u : 1000u) : 0u; });
    for (int d = 0; d < 4096; ++d) opacity_lut[d] = 0.0f, color_lut[d] = 0;
    classify(1000, 0.5f, 0xff0000);
    classify(1001, 0.5f, 0x0000ff);
    ray_along_x();
    EXPECT_EQ(one_pixel(render_mip_final), 0xff0000u);
    interp_mode = interp_bilinear;
    EXPECT_EQ(one_pixel(render_mip_final), 0x7f007fu);  // red 255 + (-255 w >> 15), blue 255 w >> 15
}

TEST(Projection, AllOpacitiesZeroGiveBlackAndNoDepth)
{
    // Bright colours everywhere, nothing opaque.
    for (const Mode* mode : {&mip, &avg}) {
        for (int interp = 0; interp < 3; ++interp) {
            start_fresh();
            refresh = 0;
            make_grid(13, 11, 9, [](int x, int y, int z) { return 600u + 300u * ((x + 2 * y + 3 * z) % 11); });
            for (int d = 0; d < 4096; ++d) opacity_lut[d] = 0.0f, color_lut[d] = 0xffffff;
            interp_mode = (uint8_t)interp;
            set_image(23, 19);
            set_camera(-5.0f, 5.5f, 4.5f, 1.0f, 0.05f, 0.1f, 0.0f, 1.0f, 0.0f);
            for (Pass pass : {mode->preview, mode->final, mode->trilinear}) {
                clear_image();
                if (pass != mode->preview) run(mode->preview);
                run(pass);
                for (uint32_t i = 0; i < 23 * 19; ++i)
                    ASSERT_EQ(render_target.color[i], 0u) << mode->name << " interp " << interp << " at " << i;
            }
            // The preview hit nothing: every ray's pixel and every emptied cell says no_depth,
            // and no pixel holds a real depth (pixels that no ray reached keep the cleared 0).
            clear_image();
            run(mode->preview);
            for (uint32_t y = 0; y < 19; y += 16)
                for (uint32_t x = 0; x < 23; x += 16) {
                    EXPECT_EQ(depth_at(x, y), no_depth);
                    EXPECT_EQ(mask_at(x, y), 1);
                }
            for (uint32_t i = 0; i < 23 * 19; ++i) {
                ASSERT_TRUE(render_target.depth[i] == no_depth || render_target.depth[i] == 0) << i;
                if (render_target.mask[i]) {
                    ASSERT_EQ(render_target.depth[i], no_depth) << i;
                }
            }
        }
    }
}

// ---------------------------------------------------------------------------------------------
// Average value projection. Colours are unique per density (d * 4097), so that a pixel names
// the table entry it came from.

namespace {
void numbered_colours()
{
    for (uint32_t d = 0; d < 4096; ++d) color_lut[d] = d * 4097u;
}
}  // namespace

TEST(Avg, TheMeanCountsOneSampleMore)
{
    // One sample of 1000: mean 1000 / 2 = 500, in every pass that averages density.
    slabs({0, 0, 0, 0, 1000, 0, 0, 0, 0, 0, 0});
    numbered_colours();
    opacity_lut[1000] = 0.5f;
    ray_along_x();
    EXPECT_EQ(one_pixel(render_avg_preview), color_lut[500]);
    EXPECT_EQ(depth_at(0, 0), 4u * 4096);
    EXPECT_EQ(one_pixel(render_avg_final), color_lut[500]);
    // One sample of 4000: the preview takes color_lut[2000].
    slabs({0, 0, 0, 0, 4000, 0, 0, 0, 0, 0, 0});
    numbered_colours();
    opacity_lut[4000] = 1.0f;
    ray_along_x();
    EXPECT_EQ(one_pixel(render_avg_preview), color_lut[2000]);
    EXPECT_EQ(one_pixel(render_avg_final), color_lut[2000]);
}

TEST(Avg, PlaneSamplesStartAtTheFirstCellInThePreviewAndTheFirstCrossingInTheFinal)
{
    // Only slab 0 is visible. The preview samples a ray's first cell as a z plane at the entry
    // point, where the weight along x is 0: one sample of 1000, mean 500. The plane final starts
    // far along the ray, so the first cell yields nothing, and its next sample lies on the
    // plane x = 1, which is empty.
    slabs({1000, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    numbered_colours();
    opacity_lut[1000] = 0.5f;
    interp_mode = interp_bilinear;
    ray_along_x();
    EXPECT_EQ(one_pixel(render_avg_preview), color_lut[500]);
    EXPECT_EQ(depth_at(0, 0), 0u);
    EXPECT_EQ(one_pixel(render_avg_final), 0u);
    interp_mode = interp_none;
    EXPECT_EQ(one_pixel(render_avg_final), color_lut[500]);
}

TEST(Avg, TheFinalMixesTwoTableEntriesThePreviewTakesOne)
{
    // 1000 and 1002: mean 2002 / 3 = 667.33331 in floats. The preview takes color_lut[667]; the
    // final mixes 667 toward 668 by truncate(0.33331299 * 32767) = 10921: 0 -> 84 for a step
    // from black to white.
    slabs({0, 0, 1000, 0, 0, 1002, 0, 0, 0, 0, 0});
    numbered_colours();
    opacity_lut[1000] = opacity_lut[1002] = 0.25f;
    color_lut[667] = 0x000000, color_lut[668] = 0xffffff;
    ray_along_x();
    EXPECT_EQ(one_pixel(render_avg_preview), 0x000000u);
    EXPECT_EQ(one_pixel(render_avg_final), grey(84));
}

TEST(Avg, AWholeNumberMeanIsExactlyItsTableEntry)
{
    // 1000 and 2000: mean 3000 / 3 = 1000 exactly, so w = 0 however far 1001 lies.
    slabs({0, 0, 1000, 0, 0, 0, 2000, 0, 0, 0, 0});
    numbered_colours();
    opacity_lut[1000] = opacity_lut[2000] = 0.5f;
    color_lut[1000] = 0x102030, color_lut[1001] = 0xffffff;
    ray_along_x();
    EXPECT_EQ(one_pixel(render_avg_final), 0x102030u);
    EXPECT_EQ(one_pixel(render_avg_preview), 0x102030u);
}

TEST(Avg, SinglePrecisionCanLiftTheMeanToTheLastEntryWhichMixesDownward)
{
    // A row of 4095s, added in floats (max_ray_steps above 4096). The ray along x also steps
    // once in y and once in z halfway (its zero components walk as 0.0001), so a row of n
    // cells gives n + 2 samples. Past 2^25 every 4095 added rounds to 4096, and the mean creeps
    // up: over 8196 samples it is 4095.0 exactly (w = 0: the last entry), over 10002 it is
    // 4095.1807. i = 4095 has no entry above it: the final mixes toward color_lut[4094] by
    // truncate(0.18066406 * 32767) = 5919, white 255 -> 208.
    for (uint32_t n : {8194u, 10000u}) {
        start_fresh();
        refresh = 0;
        // Three voxels across, so that the drift of the zero components keeps the ray in the
        // grid up to x = n.
        make_grid(n, 3, 3, [](int, int, int) { return 4095u; });
        for (int d = 0; d < 4096; ++d) opacity_lut[d] = 0.0f, color_lut[d] = 0;
        classify(4095, 1.0f, 0xffffff);
        max_ray_steps = 20000;
        ray_along_x(1.5f, 1.5f);
        EXPECT_EQ(one_pixel(render_avg_final), n == 8194 ? 0xffffffu : grey(208)) << n;
        EXPECT_EQ(one_pixel(render_avg_preview), 0xffffffu) << n;
        // In whole numbers the mean would stay below 4095 and take the entry below.
        if (n == 10000) {
            max_ray_steps = 4096;
            EXPECT_EQ(one_pixel(render_avg_preview), 0u);
        }
    }
}

TEST(Avg, FaintWhispsDimsEvenAFullyOpaqueRay)
{
    // Three samples of opacity 1: sum_alpha / n = 3 / 4, w = 24575, 255 -> 191.
    slabs({0, 0, 1000, 1000, 1000, 0, 0, 0, 0, 0, 0});
    classify(1000, 1.0f, 0xffffff);
    for (int d = 0; d < 4096; ++d) color_lut[d] = 0xffffff;
    faint_whisps = 1;
    ray_along_x();
    EXPECT_EQ(one_pixel(render_avg_preview), grey(191));
    EXPECT_EQ(one_pixel(render_avg_final), grey(191));
    // The trilinear march meets the slab at x = 2, 3, 4 as well; it averages the colours, which
    // the extra count dims first: 255 * 3 / 4 = 191, then 191 -> 143.
    EXPECT_EQ(one_pixel(render_avg_final_trilinear), grey(143));
    faint_whisps = 0;
    EXPECT_EQ(one_pixel(render_avg_final), 0xffffffu);
}

TEST(Avg, TheTrilinearFinalAveragesColoursChannelByChannel)
{
    // The march samples x = 0, 2, 3, 4, ...: (10 + 1) / 3 = 3, (11 + 2) / 3 = 4, (12 + 3) / 3 = 5.
    slabs({0, 0, 1000, 1100, 0, 0, 0, 0, 0, 0, 0});
    classify(1000, 0.5f, 0x0a0b0c);
    classify(1100, 0.5f, 0x010203);
    ray_along_x();
    EXPECT_EQ(one_pixel(render_avg_final_trilinear), 0x030405u);
}

TEST(Avg, ARayThatRunsOutOfStepsKeepsTheMeanOfWhatItSaw)
{
    // Twenty cells of 600 and max_ray_steps 5. The final counts a step before it tests: cells 0
    // to 4, mean 3000 / 6 = 500. The preview tests before it counts and sees one more cell:
    // 3600 / 7 = 514.29.
    slabs(std::vector<uint32_t>(20, 600));
    numbered_colours();
    opacity_lut[600] = 0.5f;
    max_ray_steps = 5;
    ray_along_x();
    EXPECT_EQ(one_pixel(render_avg_final), color_lut[500]);
    EXPECT_EQ(one_pixel(render_avg_preview), color_lut[514]);
    // All twenty: 12000 / 21 = 571.43.
    max_ray_steps = 1000;
    EXPECT_EQ(one_pixel(render_avg_preview), color_lut[571]);
}

// ---------------------------------------------------------------------------------------------
// The preview's marks, the pixels the finals cast, giving way.

namespace {
// The eye inside a uniform opaque grid: every ray's first cell is the answer.
void inside_uniform(uint32_t w, uint32_t h, uint32_t color)
{
    start_fresh();
    refresh = 0;
    make_grid(11, 31, 31, [](int, int, int) { return 1000u; });
    // Every colour the same, so that an average of 1000s is the same colour too.
    for (int d = 0; d < 4096; ++d) opacity_lut[d] = 0.0f, color_lut[d] = color;
    classify(1000, 1.0f, color);
    set_image(w, h);
    set_camera(5.5f, 15.5f, 15.5f, 1.0f, 0.1f, 0.2f, 0.0f, 1.0f, 0.0f);
}
}  // namespace

TEST(ProjectionPreview, ARayThatSeesNothingKeepsTheMarksOfAPixelThatHeldAColour)
{
    // A first preview leaves colour, depth and mask; a second one over the same buffers, with
    // every opacity 0, finds a colour in each pixel it casts: the pixel becomes 0 but depth and
    // mask stay. Over cleared buffers the same ray marks the pixel as a miss.
    for (const Mode* mode : {&mip, &avg}) {
        slabs({0, 0, 1000, 0, 0, 0, 0, 0, 0, 0, 0});
        classify(1000, 0.5f, 0x123456);
        for (int d = 0; d < 4096; ++d) color_lut[d] = 0x123456;
        ray_along_x();
        clear_image();
        run(mode->preview);
        ASSERT_NE(pixel(0, 0), 0u);
        render_target.mask[0] = 7;
        opacity_lut[1000] = 0.0f;
        run(mode->preview);
        EXPECT_EQ(pixel(0, 0), 0u) << mode->name;
        EXPECT_EQ(depth_at(0, 0), 2u * 4096) << mode->name;
        EXPECT_EQ(mask_at(0, 0), 7) << mode->name;
        clear_image();
        run(mode->preview);
        EXPECT_EQ(depth_at(0, 0), no_depth) << mode->name;
        EXPECT_EQ(mask_at(0, 0), 1) << mode->name;
        // A ray that misses the box: mask 2.
        ifor[0] = -1.0f;
        clear_image();
        run(mode->preview);
        EXPECT_EQ(mask_at(0, 0), 2) << mode->name;
        EXPECT_EQ(depth_at(0, 0), no_depth) << mode->name;
    }
}

TEST(ProjectionPreview, ABlackHitKeepsItsDepth)
{
    // A sample that counts but whose colour is black: the pixel is 0 and yet a hit, with the
    // depth of the sample.
    slabs({0, 0, 0, 1000, 0, 0, 0, 0, 0, 0, 0});
    classify(1000, 0.5f, 0x000000);
    ray_along_x();
    for (const Mode* mode : {&mip, &avg}) {
        EXPECT_EQ(one_pixel(mode->preview), 0u);
        EXPECT_EQ(depth_at(0, 0), 3u * 4096) << mode->name;
        EXPECT_EQ(mask_at(0, 0), 1) << mode->name;
    }
}

TEST(ProjectionFinal, CastsOnlyWhatThePreviewDidNotAndColumnZero)
{
    // An image two lines high is not smoothed, so every pixel shows whether it was cast: a cast
    // pixel turns green, a kept one keeps the marker. Pixel (x, y) is cast when it lies off the
    // lattice of lattice_step (x or y not a multiple) and its mask is 0, or when x = 0.
    for (const Mode* mode : {&mip, &avg}) {
        for (int lattice : {16, 8}) {
            inside_uniform(37, 2, 0x00ff00);
            const uint32_t marker = 0x123456;
            for (uint32_t i = 0; i < 74; ++i) {
                render_target.color[i] = marker;
                render_target.mask[i] = (uint8_t)(i % 3 == 0 ? 1 : i % 7 == 0 ? 2 : 0);
                render_target.depth[i] = 99;
            }
            lattice_step = lattice;
            run(mode->final);
            const uint32_t m = (uint32_t)lattice - 1;
            int cast = 0;
            for (uint32_t y = 0; y < 2; ++y)
                for (uint32_t x = 0; x < 37; ++x) {
                    const uint32_t i = y * 37 + x;
                    const bool expect_cast = x < 1 || (((x & m) != 0 || (y & m) != 0) && render_target.mask[i] == 0);
                    EXPECT_EQ(pixel(x, y), expect_cast ? 0x00ff00u : marker)
                        << mode->name << " lattice " << lattice << " at " << x << ", " << y;
                    EXPECT_EQ(render_target.depth[i], 99u);  // the final writes no depth
                    cast += expect_cast;
                }
            EXPECT_GT(cast, 20);
            EXPECT_LT(cast, 74);
            // The trilinear final casts everything (an average of colours is a little darker
            // than the colour: the mean counts one sample more).
            for (uint32_t i = 0; i < 74; ++i) render_target.color[i] = marker;
            run(mode->trilinear);
            for (uint32_t i = 0; i < 74; ++i) ASSERT_NE(render_target.color[i], marker) << mode->name << i;
        }
    }
}

TEST(ProjectionFinal, SmoothsTheWholePictureItLeaves)
{
    // lattice_step 1 puts every pixel on the lattice, so the final casts column 0 only and
    // keeps the rest as the buffer holds it; then the whole picture goes through the 5-point
    // filter. The trilinear final casts every pixel and doesn't smooth.
    for (const Mode* mode : {&mip, &avg}) {
        inside_uniform(13, 9, 0x00ff00);
        std::vector<uint32_t> expected(13 * 9);
        for (uint32_t i = 0; i < 13 * 9; ++i) {
            render_target.color[i] = (i * 0x2f1d07u) & 0xffffff;
            expected[i] = i % 13 == 0 ? 0x00ff00u : render_target.color[i];
        }
        lattice_step = 1;
        run(mode->final);
        std::vector<uint32_t> rendered = image();
        std::copy(expected.begin(), expected.end(), render_target.color);
        smooth_image(&render_target);
        EXPECT_EQ(rendered, image()) << mode->name;
        EXPECT_NE(rendered, expected) << mode->name;
        if (mode == &mip) {
            // Every mip ray here stops in its first cell: one colour, not smoothed, nothing kept.
            for (uint32_t i = 0; i < 13 * 9; ++i) render_target.color[i] = (i * 0x2f1d07u) & 0xffffff;
            run(mode->trilinear);
            for (uint32_t i = 0; i < 13 * 9; ++i) ASSERT_EQ(render_target.color[i], 0x00ff00u) << i;
        }
    }
}

TEST(ProjectionFinal, AChangeOnAnOddLineFallsBackToThePreviewSmoothed)
{
    for (const Mode* mode : {&mip, &avg}) {
        start_fresh();
        refresh = 0;
        make_grid(11, 31, 31, [](int x, int y, int z) { return 600u + 100u * ((x + 2 * y + 3 * z) % 13); });
        for (uint32_t d = 0; d < 4096; ++d) opacity_lut[d] = d >= 600 ? 0.1f + (float)(d % 200) * 0.004f : 0.0f, color_lut[d] = d * 4097u;
        set_image(21, 17);
        set_camera(-4.0f, 15.5f, 15.5f, 1.0f, 0.1f, 0.2f, 0.0f, 1.0f, 0.0f);
        clear_image();
        run(mode->preview);
        smooth_image(&render_target);
        std::vector<uint32_t> expected(render_target.color, render_target.color + 21 * 17);
        // A change is waiting: line 1's poll sees it, clears color and depth, draws the
        // preview, which the closing steps smooth.
        clear_image();
        run(mode->preview);
        for (uint32_t i = 0; i < 21 * 17; ++i) render_target.color[i] = 0xabcdef;
        refresh = 1;
        unsigned pumps = null_gui_pumps;
        run(mode->final);
        EXPECT_EQ(null_gui_pumps, pumps + 1) << mode->name;
        EXPECT_EQ(std::vector<uint32_t>(render_target.color, render_target.color + 21 * 17), expected) << mode->name;
        EXPECT_EQ(refresh, 1);
        // Unhindered it polls lines 1, 3, ..., 15.
        refresh = 0;
        pumps = null_gui_pumps;
        run(mode->final);
        EXPECT_EQ(null_gui_pumps, pumps + 8) << mode->name;
        EXPECT_EQ(null_progress_render, 15.0 / 17);
    }
}

namespace {
unsigned hook_pumps;
std::function<void(unsigned)> hook_action;
void counting_hook()
{
    ++hook_pumps;
    if (hook_action) hook_action(hook_pumps);
}

// A 12 x 6 picture with something in it for both modes.
void polling_scene()
{
    start_fresh();
    refresh = 0;
    make_grid(11, 31, 31, [](int x, int y, int z) { return 600u + 100u * ((x + 2 * y + 3 * z) % 13); });
    for (uint32_t d = 0; d < 4096; ++d) opacity_lut[d] = d >= 600 ? 0.1f + (float)(d % 200) * 0.004f : 0.0f, color_lut[d] = d * 4097u;
    set_image(12, 6);
    set_camera(-4.0f, 15.5f, 15.5f, 1.0f, 0.1f, 0.2f, 0.0f, 1.0f, 0.0f);
    hook_pumps = 0;
    hook_action = nullptr;
    null_pump_hook = counting_hook;
}

}  // namespace

TEST(ProjectionTrilinear, PollsEveryLineAndEveryEighthPixel)
{
    for (const Mode* mode : {&mip, &avg}) {
        polling_scene();
        run(mode->trilinear);
        // Each of 6 lines: the line's poll, then before x = 0 and x = 8.
        EXPECT_EQ(hook_pumps, 6u * 3) << mode->name;
        EXPECT_EQ(null_progress_render, 5.0 / 6);
    }
}

TEST(ProjectionTrilinear, AChangeAtTheStartOfALineEndsThePassWithThePreview)
{
    for (const Mode* mode : {&mip, &avg}) {
        polling_scene();
        clear_image();
        run(mode->preview);
        const std::vector<uint32_t> preview = image();
        for (uint32_t i = 0; i < 72; ++i) render_target.color[i] = 0xabcdef, render_target.depth[i] = 5;
        refresh = 1;
        offscreen_render = 1;
        memset(offscreen_pixels, 0, 72 * 4);
        run(mode->trilinear);
        EXPECT_EQ(hook_pumps, 1u) << mode->name;  // line 0's poll, and no further
        EXPECT_EQ(image(), preview) << mode->name;
        EXPECT_EQ(depth_at(1, 1), 0u);  // cleared, and not a pixel any preview ray writes
        // During a render to file the image is copied whatever refresh says.
        EXPECT_EQ(std::vector<uint32_t>(offscreen_pixels, offscreen_pixels + 72), preview);
    }
}

TEST(ProjectionTrilinear, TheColourDialogInsideALineEndsOnlyThatLine)
{
    // The dialog opens at the poll before pixel 8 of line 0 and closes at line 1's poll: line 0
    // gives up (the buffers are cleared and the preview drawn), the other lines render.
    for (const Mode* mode : {&mip, &avg}) {
        polling_scene();
        run(mode->trilinear);
        const std::vector<uint32_t> exact = image();
        clear_image();
        run(mode->preview);
        const std::vector<uint32_t> preview = image();
        ASSERT_NE(std::vector<uint32_t>(exact.begin(), exact.begin() + 12),
                  std::vector<uint32_t>(preview.begin(), preview.begin() + 12));
        hook_pumps = 0;
        hook_action = [](unsigned n) {
            if (n == 3) color_dialog_open = 1;
            if (n == 4) color_dialog_open = 0;
        };
        run(mode->trilinear);
        std::vector<uint32_t> expected = exact;
        for (int x = 0; x < 12; ++x) expected[x] = preview[x];
        EXPECT_EQ(image(), expected) << mode->name;
        EXPECT_EQ(hook_pumps, 3u + 5 * 3) << mode->name;
    }
}

TEST(ProjectionTrilinear, AChangeInsideALineIsSeenAgainAtTheNextLine)
{
    // refresh set at the poll before pixel 8 of line 0: the line gives up and draws the
    // preview; line 1's poll finds refresh still set and draws it again, then the pass ends.
    // The "user" recolours everything at that second poll, so only a second preview can show
    // the new colours. With refresh set, nothing goes to the display.
    for (const Mode* mode : {&mip, &avg}) {
        polling_scene();
        for (uint32_t d = 0; d < 4096; ++d) color_lut[d] = 0x0000ff;
        clear_image();
        run(mode->preview);
        const std::vector<uint32_t> blue_preview = image();
        for (uint32_t d = 0; d < 4096; ++d) color_lut[d] = d * 4097u;
        static uint32_t shown[72];
        screen_pixels = shown;
        memset(shown, 0, sizeof shown);
        hook_pumps = 0;
        hook_action = [](unsigned n) {
            if (n == 3) refresh = 1;
            if (n == 4)
                for (uint32_t d = 0; d < 4096; ++d) color_lut[d] = 0x0000ff;
        };
        clear_image();
        run(mode->trilinear);
        EXPECT_EQ(hook_pumps, 4u) << mode->name;
        EXPECT_EQ(image(), blue_preview) << mode->name;
        // The preview shows itself; the final's closing copy is skipped, which leaves the
        // second preview's picture there.
        EXPECT_EQ(std::vector<uint32_t>(shown, shown + 72), blue_preview);
        screen_pixels = nullptr;
    }
}

// ---------------------------------------------------------------------------------------------
// Through the frame loop: modes 4 and 6 draw their preview on the frame that finds refresh set,
// and their final only when the last double click in the editor strip is more than 350 ms old.

TEST(ProjectionFrame, TheFinalWaitsForThePauseAfterADoubleClick)
{
    for (int mode : {4, 6}) {
        for (int interp : {0, 2}) {
            start_fresh();
            std::string path = write_dat("projection_frame.dat", 13, 11, 9,
                                         make_samples(13, 11, 9, [](int x, int, int) { return x >= 6 ? 3000 : 0; }));
            null_chooser_name = path.c_str();
            load_requested = 1;
            testing::internal::CaptureStdout();
            frame();  // the load; it leaves refresh set
            testing::internal::GetCapturedStdout();
            remove(path.c_str());
            ASSERT_EQ(volume_loaded, 1);
            render_mode = mode;
            interp_mode = (uint8_t)interp;
            gui_active = 1;  // the panel has the focus: no idle delay moves the clock
            set_camera(-6.0f, 7.5f, 6.5f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
            null_render_time[0] = 0;
            null_ticks = 5000;
            last_double_click = 5000;
            refresh = 1;
            frame();
            EXPECT_EQ(refresh, 0);
            EXPECT_EQ(final_pending, 1);
            EXPECT_EQ(lattice_step, 16);
            EXPECT_NE(mask_at(0, 0), 0);
            // At 0 and at exactly 350 ms after the double click the final waits.
            unsigned pumps = null_gui_pumps;
            frame();
            null_ticks = 5350;
            frame();
            EXPECT_EQ(final_pending, 1) << mode;
            EXPECT_STREQ(null_render_time, "") << mode;
            EXPECT_EQ(null_gui_pumps, pumps + 2) << mode;  // the frames' own pumps, no final's
            null_ticks = 5351;
            frame();
            EXPECT_EQ(final_pending, 0) << mode;
            EXPECT_STREQ(null_render_time, "     0.00 sec") << mode;
            EXPECT_GT(null_gui_pumps, pumps + 3) << mode;  // the final polled its lines
            // The slab of 3000 seen through its face: the grey of 3000 in the middle.
            EXPECT_NE(pixel(256, 204), 0u) << mode;
        }
    }
}
