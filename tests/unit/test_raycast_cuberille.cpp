// Render mode 0, cuberille first hit, and the preview lattice it runs on: the opacity band,
// the three light models with the asymmetric lighten and darken, what the final writes, the
// refinement rules (flat cells, all-miss cells, the nine-tenths restart, the right edge, the
// tolerance) and the odd-line interruption. Tiny grids whose pictures are worked out by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "raycast_helpers.h"

namespace {

void preview() { render_cuberille_preview(&render_target, voxels, ipos, ifor, iup, istr); }
void final_pass() { render_cuberille_final(&render_target, voxels, ipos, ifor, iup, istr); }

// Every pixel of the image has this colour.
void expect_all(uint32_t color)
{
    for (uint32_t y = 0; y < render_target.height; ++y)
        for (uint32_t x = 0; x < render_target.width; ++x)
            ASSERT_EQ(pixel(x, y), color) << "at " << x << ", " << y;
}

// A grid of one density everywhere and the eye inside it: every ray stops in its first cell
// when that density is in the opacity band.
void uniform_grid_eye_inside(float opacity, uint32_t color)
{
    start_fresh();
    refresh = 0;
    set_image(5, 5);
    make_grid(7, 7, 7, [](int, int, int) { return 1000u; });
    opaque_from(4096, 0);
    opacity_lut[1000] = opacity;
    color_lut[1000] = color;
    set_camera(3.5f, 3.5f, 3.5f, 0.3f, 0.2f, 1.0f, 0.0f, 1.0f, 0.0f);
}

}  // namespace

TEST(CuberilleShading, LightenAndDarkenAreAsymmetric)
{
    EXPECT_EQ(lighten(0x646464u), 0x7b7b7bu);  // 100 -> 123
    EXPECT_EQ(darken(0x646464u), 0x545454u);   // 100 -> 84
    EXPECT_EQ(lighten(0x000000u), 0x262626u);  // 0 -> 38
    EXPECT_EQ(darken(0xffffffu), 0xd8d8d8u);   // 255 -> 216
    EXPECT_EQ(lighten(0xffffffu), 0xffffffu);
    EXPECT_EQ(darken(0x000000u), 0x000000u);
    // Bytes move on their own; a top byte is pulled toward 0 both ways.
    EXPECT_EQ(lighten(0x64ff0064u), 0x54ff267bu);
    EXPECT_EQ(darken(0x64ff0064u), 0x54d80054u);
}

TEST(Cuberille, OpacityBandIsInclusiveAtBothEnds)
{
    const uint32_t c = 0x123456;
    struct Case {
        float opacity;
        bool hit;
    } cases[] = {{1.0f, true}, {0.2f, true}, {0.5f, true}, {std::nextafter(0.2f, 0.0f), false},
                 {std::nextafter(1.0f, 2.0f), false}, {0.0f, false}};
    for (const Case& k : cases) {
        uniform_grid_eye_inside(k.opacity, c);
        final_pass();
        expect_all(k.hit ? c : 0u);
    }
}

TEST(Cuberille, BelowTheBandEverythingIsBlackInEveryLightModel)
{
    for (int model = 0; model < 3; ++model) {
        start_fresh();
        refresh = 0;
        set_image(9, 7);
        make_grid(11, 9, 13, [](int x, int y, int z) { return 500u + 200u * ((x + y + z) % 10); });
        // Opacity up to 0.199 everywhere, colours bright.
        for (int d = 0; d < 4096; ++d) opacity_lut[d] = 0.199f * (float)d / 4095.0f, color_lut[d] = 0xffffff;
        light_model = model;
        set_camera(-6.0f, 4.0f, 6.0f, 1.0f, 0.1f, 0.05f, 0.0f, 1.0f, 0.0f);
        final_pass();
        expect_all(0u);
        clear_image();
        preview();
        expect_all(0u);
    }
}

TEST(Cuberille, EyeInsideAnOpaqueCellDarkensTheWholeImage)
{
    uniform_grid_eye_inside(1.0f, 0x646464);
    light_model = 1;
    final_pass();
    expect_all(0x545454u);  // every ray hits its first cell, entered through no plane
    light_model = 0;
    final_pass();
    expect_all(0x646464u);
}

TEST(Cuberille, OcclusionGreyInLightModelTwo)
{
    uniform_grid_eye_inside(1.0f, 0x646464);
    light_model = 2;
    final_pass();
    expect_all(0x808080u);  // the occlusion byte every load starts with
    voxels[voxel_index(3, 3, 3)] = (voxels[voxel_index(3, 3, 3)] & 0xffff) | (0x3cu << 16);
    final_pass();
    expect_all(0x3c3c3cu);
}

// An opaque slab behind empty space: every ray comes into the slab through the plane that
// bounds it, so the face shading of light model 1 follows the slab's axis.
TEST(Cuberille, FaceShadingFollowsThePlaneOfEntry)
{
    const uint32_t c = 0x646464;
    struct Slab {
        int axis;
        uint32_t expected;
    } slabs[] = {{0, c}, {1, 0x7b7b7bu}, {2, 0x545454u}};
    for (const Slab& s : slabs) {
        start_fresh();
        refresh = 0;
        set_image(5, 5);
        make_grid(11, 11, 11, [&](int x, int y, int z) {
            int v[3] = {x, y, z};
            return v[s.axis] >= 6 ? 1000u : 0u;
        });
        opaque_from(1000, c);
        light_model = 1;
        float f[3] = {0, 0, 0};
        f[s.axis] = 1.0f;
        float up[3] = {0, 0, 0};
        up[s.axis == 1 ? 2 : 1] = 1.0f;
        set_camera(5.5f, 5.5f, 5.5f, f[0], f[1], f[2], up[0], up[1], up[2]);
        final_pass();
        expect_all(s.expected);
    }
}

TEST(Cuberille, FirstCellOnTheBoxIsDarkened)
{
    start_fresh();
    refresh = 0;
    set_image(5, 5);
    make_grid(9, 9, 9, [](int, int, int) { return 1000u; });
    opaque_from(1000, 0x646464);
    light_model = 1;
    // From outside, the entry point's cell is the first cell of the walk.
    set_camera(-3.0f, 4.5f, 4.5f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
    final_pass();
    expect_all(0x545454u);
    // Looking away, nothing is met.
    set_camera(-3.0f, 4.5f, 4.5f, -1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
    final_pass();
    expect_all(0u);
}

TEST(Cuberille, FinalWritesNeitherDepthNorMask)
{
    uniform_grid_eye_inside(1.0f, 0x112233);
    size_t n = 25;
    for (size_t i = 0; i < n; ++i) render_target.depth[i] = 77, render_target.mask[i] = 2;
    final_pass();
    for (size_t i = 0; i < n; ++i) {
        EXPECT_EQ(render_target.depth[i], 77u);
        EXPECT_EQ(render_target.mask[i], 2);
    }
}

TEST(Cuberille, BlackHitIsZeroInTheFinalAndAMissInThePreview)
{
    uniform_grid_eye_inside(1.0f, 0x000000);
    final_pass();
    expect_all(0u);
    clear_image();
    preview();
    expect_all(0u);
    // The lattice pixel's ray hit, but the hit counts as a miss.
    EXPECT_EQ(depth_at(0, 0), no_depth);
    EXPECT_EQ(mask_at(0, 0), 1);
}

TEST(Cuberille, EyeOnTheFarFace)
{
    start_fresh();
    refresh = 0;
    set_image(9, 9);
    make_grid(6, 6, 6, [](int, int, int) { return 1000u; });
    opaque_from(1000, 0x445566);
    set_camera(6.0f, 3.0f, 3.0f, -1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
    // The eye counts as inside; the first cell of every ray is x = 6, outside the grid.
    preview();
    expect_all(0u);  // the preview casts nothing
    for (uint32_t i = 0; i < 81; ++i) ASSERT_EQ(render_target.mask[i], 0);
    final_pass();
    expect_all(0x445566u);  // the final steps in and meets the cells at x = 5
}

TEST(CuberillePreview, EmptySceneCastsNoRefiningRay)
{
    start_fresh();
    set_image(17, 17);
    make_grid(9, 9, 9, [](int, int, int) { return 0u; });
    set_camera(4.5f, 4.5f, 4.5f, 0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f);
    preview();
    EXPECT_EQ(lattice_step, 8);
    expect_all(0u);
    // An all-miss cell writes its centre, left and top pixels; the bottom border copies down;
    // but nothing writes the pixels right of the last cells of a row. So the last column of
    // level-2 cells (centres at x = 14) finds a corner at x = 16, rows 4 and 12, still 0 and
    // casts (rays that miss). Everywhere left of it no refining ray is cast.
    for (uint32_t y = 0; y < 17; ++y)
        for (uint32_t x = 0; x < 17; ++x) {
            bool lattice = x % 8 == 0 && y % 8 == 0;
            if (x < 12) {
                ASSERT_EQ(mask_at(x, y), lattice ? 1 : 0) << x << ", " << y;
            }
            if (lattice) {
                ASSERT_EQ(depth_at(x, y), no_depth);
            }
        }
    EXPECT_EQ(depth_at(16, 4), 0u);
    EXPECT_EQ(mask_at(14, 2), 1);
    // The cleared pixels of all-miss cells.
    EXPECT_EQ(depth_at(4, 4), no_depth);
    EXPECT_EQ(depth_at(0, 4), no_depth);
    EXPECT_EQ(depth_at(4, 0), no_depth);
}

TEST(CuberillePreview, MissingTheBoxIsMaskTwo)
{
    start_fresh();
    set_image(9, 9);
    make_grid(9, 9, 9, [](int, int, int) { return 1000u; });
    opaque_from(1000, 0x223344);
    set_camera(-10.0f, 4.5f, 4.5f, -1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
    preview();
    EXPECT_EQ(mask_at(0, 0), 2);
    EXPECT_EQ(depth_at(8, 8), no_depth);
    EXPECT_EQ(pixel(8, 8), 0u);
}

// A wall of one colour at z >= wall_z seen from z = 1.5 in a wide grid, 17 x 17 pixels:
// lattice at 0, 8, 16; level 1 centres at 4, 12; level 2 centres at 2, 6, 10, 14.
static void wall_scene(int wall_z, uint32_t width)
{
    start_fresh();
    set_image(width, 17);
    make_grid(41, 31, 20, [&](int x, int, int z) { return z >= wall_z ? (x >= 16 ? 2001u : 2000u) : 0u; });
    opaque_from(2000, 0x101010);
    color_lut[2001] = 0x101011;  // one step apart in blue
    set_camera(15.5f, 15.5f, 1.5f, 0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f);
}

TEST(CuberillePreview, FarFlatCellsAreFilledWithoutRays)
{
    wall_scene(15, 17);  // 13.5 units away
    preview();
    // Left half of the image sees x < 16 only (density 2000): its cells are flat.
    EXPECT_EQ(mask_at(4, 4), 0);
    EXPECT_EQ(mask_at(0, 4), 0);
    EXPECT_EQ(mask_at(4, 0), 0);
    EXPECT_EQ(pixel(4, 4), 0x101010u);
    EXPECT_EQ(depth_at(4, 4), depth_at(0, 0));
    EXPECT_EQ(depth_at(0, 0), (uint32_t)(13.5 * 4096));  // z planes from 1.5 to 15
    EXPECT_EQ(mask_at(0, 0), 1);
}

TEST(CuberillePreview, NearFlatSurfaceIsRefinedAnyway)
{
    wall_scene(8, 17);  // 6.5 units away: below the ten units of the flat rule
    preview();
    EXPECT_EQ(depth_at(0, 0), (uint32_t)(6.5 * 4096));
    EXPECT_EQ(mask_at(4, 4), 1);
    EXPECT_EQ(mask_at(2, 2), 1);
    EXPECT_EQ(pixel(4, 4), 0x101010u);
}

TEST(CuberillePreview, ToleranceOfModeZero)
{
    // The cell centred at (12, 4) has corners at x = 8 (wall x = 15, 0x101010) and x = 16
    // (wall x = 21, 0x101011): one apart in one byte.
    wall_scene(15, 17);
    refine_tolerance = 10;  // level 1: 10 / 8 = 1, flat
    preview();
    EXPECT_EQ(pixel(8, 0), 0x101010u);
    EXPECT_EQ(pixel(16, 0), 0x101011u);
    EXPECT_EQ(mask_at(12, 4), 0);
    clear_image();
    refine_tolerance = 3;  // 3 / 8 = 0: only equal colours are flat
    preview();
    EXPECT_EQ(mask_at(12, 4), 1);
    EXPECT_EQ(mask_at(4, 4), 0);  // equal corners stay flat
}

TEST(CuberillePreview, RightEdgeCentresAreAlwaysRefined)
{
    wall_scene(15, 21);  // width 21: the centre x = 20 has no pixel at x + 4
    preview();
    EXPECT_EQ(mask_at(4, 4), 0);
    // Its right corners are its own column, never written: depth 0 reads as a hit at 0.
    EXPECT_EQ(mask_at(20, 4), 1);
    EXPECT_EQ(mask_at(20, 12), 1);
    EXPECT_EQ(pixel(20, 4), 0x101011u);
}

// The centre (4, 4) of the first cell: a blob at (14, 14, 7) is seen by rays near it only,
// 5.5 units away; a patch at z = 10 (8.5 units), x and y 10 and 11, by the corner (0, 0) only.
static void restart_scene(bool patch)
{
    start_fresh();
    refresh = 0;
    set_image(17, 17);
    make_grid(31, 31, 20, [&](int x, int y, int z) {
        if (x == 14 && y == 14 && z == 7) return 3000u;
        if (patch && z == 10 && x >= 10 && x < 12 && y >= 10 && y < 12) return 2000u;
        return 0u;
    });
    opaque_from(1500, 0);
    color_lut[2000] = 0x00aa00;
    color_lut[3000] = 0xcc0000;
    set_camera(15.5f, 15.5f, 1.5f, 0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f);
}

TEST(CuberillePreview, RefiningRaysStartAtNineTenthsOfTheNearestCorner)
{
    restart_scene(true);
    preview();
    EXPECT_EQ(pixel(0, 0), 0x00aa00u);
    EXPECT_EQ(depth_at(0, 0), (uint32_t)(8.5 * 4096));
    // The centre's ray starts at 0.9 * 8.5 units, past the blob, and meets nothing.
    EXPECT_EQ(mask_at(4, 4), 1);
    EXPECT_EQ(pixel(4, 4), 0u);
    final_pass();
    EXPECT_EQ(pixel(4, 4), 0xcc0000u);
    EXPECT_EQ(pixel(0, 0), 0x00aa00u);
}

TEST(CuberillePreview, ThinFeatureBetweenMissingCornersIsLost)
{
    restart_scene(false);
    preview();
    // All four corners missed: the centre is cleared without a ray.
    EXPECT_EQ(mask_at(4, 4), 0);
    EXPECT_EQ(pixel(4, 4), 0u);
    final_pass();
    EXPECT_EQ(pixel(4, 4), 0xcc0000u);
}

TEST(CuberilleFinal, ChangeOnAnOddLineFallsBackToThePreview)
{
    wall_scene(8, 17);
    light_model = 1;
    preview();
    std::vector<uint32_t> preview_image(render_target.color, render_target.color + 17 * 17);
    ASSERT_EQ(pixel(0, 0), 0x0d0d0du);  // the wall, darkened
    // A change waiting: the final polls at line 1, clears and draws the preview instead. A
    // final that ran through would leave depth alone; the preview writes it.
    for (size_t i = 0; i < 17 * 17; ++i) render_target.mask[i] = 9, render_target.depth[i] = 5;
    refresh = 1;
    unsigned pumps = null_gui_pumps;
    final_pass();
    EXPECT_EQ(null_gui_pumps, pumps + 1);
    EXPECT_EQ(null_progress_render, 1.0 / 17);
    std::vector<uint32_t> fallback(render_target.color, render_target.color + 17 * 17);
    EXPECT_EQ(fallback, preview_image);
    EXPECT_EQ(depth_at(0, 0), (uint32_t)(6.5 * 4096));
    EXPECT_EQ(depth_at(1, 1), 0u);  // cleared by the final, not written by the preview
    EXPECT_EQ(refresh, 1);  // the final never clears it
    // mask was not cleared first: pixels that no preview ray wrote keep the 9.
    EXPECT_EQ(mask_at(1, 1), 9);
}

// The window resized inside a poll of a final (the soak found it): the pumps make the buffers
// anew at 17 x 3 and set refresh. The poll still shows line 7 of the 17 the pass ran at, not
// 7 / 3 (past the end of the bar, which GTK refuses with a critical); the pass gives up.
TEST(CuberilleFinal, AResizeInsideAPollShowsTheLineOfTheOldHeight)
{
    wall_scene(8, 17);
    refresh = 0;
    static unsigned polls;
    polls = 0;
    null_pump_hook = [] {
        if (++polls == 4) {  // the poll before line 7
            set_image(17, 3);
            refresh = 1;
        }
    };
    final_pass();
    null_pump_hook = nullptr;
    EXPECT_EQ(polls, 4u);
    EXPECT_EQ(null_progress_render, 7.0 / 17);
    EXPECT_EQ(render_target.height, 3u);
    EXPECT_EQ(refresh, 1);  // the pass gave up; the next frame draws the new size
    refresh = 0;
}

TEST(CuberilleFinal, PollsEveryOddLineAndAOneLineImageIsNeverInterrupted)
{
    wall_scene(8, 17);
    refresh = 0;
    unsigned pumps = null_gui_pumps;
    final_pass();
    EXPECT_EQ(null_gui_pumps, pumps + 8);  // lines 1, 3, ..., 15
    EXPECT_EQ(null_progress_render, 15.0 / 17);
    // One line: line 0 always runs, so even a waiting change doesn't stop it.
    set_image(17, 1);
    refresh = 1;
    pumps = null_gui_pumps;
    final_pass();
    EXPECT_EQ(null_gui_pumps, pumps);
    EXPECT_EQ(pixel(8, 0), 0x101010u);
}

// The frame loop with mode 0: a preview on the frame that finds refresh set, the final on the
// next one, with its render time; then the loop idles.
TEST(CuberilleFrame, PreviewThenFinalThroughTheFrameLoop)
{
    start_fresh();
    std::string path = write_dat("cuberille_frame.dat", 13, 11, 9,
                                 make_samples(13, 11, 9, [](int x, int, int) { return x >= 6 ? 3000 : 0; }));
    null_chooser_name = path.c_str();
    load_requested = 1;
    testing::internal::CaptureStdout();
    frame();  // the load; it leaves refresh set
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(volume_loaded, 1);
    render_mode = 0;
    gui_active = 1;  // the panel has the focus: the loop takes the preview path first
    null_render_time[0] = 0;
    set_camera(-6.0f, 7.5f, 6.5f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
    refresh = 1;
    frame();
    EXPECT_EQ(refresh, 0);
    EXPECT_EQ(final_pending, 1);
    EXPECT_EQ(lattice_step, 8);
    EXPECT_NE(mask_at(0, 0), 0);  // the preview wrote its lattice
    EXPECT_STREQ(null_render_time, "");
    frame();
    EXPECT_EQ(final_pending, 0);
    EXPECT_STREQ(null_render_time, "     0.00 sec");  // the fake clock stands still
    // The final drew the slab: densities 3000 seen through the x = 8 face (x = 6 in the file).
    uint32_t grey = (uint32_t)(3000 * (1.0f / 4095.0f) * 255.0f);
    EXPECT_EQ(pixel(256, 204), grey * 0x010101u);
    remove(path.c_str());
}
