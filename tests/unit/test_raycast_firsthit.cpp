// Render mode 2, interpolated first hit: the voxel, plane-sampled and trilinear hits, the sample
// history that runs from ray to ray, the extra surfaces, pre- and post-shading, backgrounds and
// depths, the polling and stop rules. Tiny grids whose pictures are worked out by hand, and the
// three passes against a slow literal reading of the rules on many random scenes.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "core/headless/seam_null.h"
#include "firsthit_reference.h"
#include "raycast/shade.h"
#include "raycast_helpers.h"

namespace {

void preview() { render_firsthit_preview(&render_target, voxels, ipos, ifor, iup, istr); }
void final_pass() { render_firsthit_final(&render_target, voxels, ipos, ifor, iup, istr); }
void trilinear() { render_firsthit_final_trilinear(&render_target, voxels, ipos, ifor, iup, istr); }

std::vector<uint32_t> colors() { return {render_target.color, render_target.color + render_target.width * render_target.height}; }
std::vector<uint32_t> depths() { return {render_target.depth, render_target.depth + render_target.width * render_target.height}; }

// Every pixel has this colour.
void expect_all(uint32_t color)
{
    for (uint32_t y = 0; y < render_target.height; ++y)
        for (uint32_t x = 0; x < render_target.width; ++x) ASSERT_EQ(pixel(x, y), color) << "at " << x << ", " << y;
}

// A fresh start with a small image, the frame's half vector computed, nothing polled.
void scene(uint32_t w, uint32_t h)
{
    start_fresh();
    refresh = 0;
    set_image(w, h);
}

// Every gradient normal set by hand.
void set_normals(float nx, float ny, float nz)
{
    for (size_t i = 0, n = (size_t)vol_x * vol_y * vol_z; i < n; ++i) gradients[i] = {nx, ny, nz, 1.0f};
}

// Where two images first differ, for a failure message.
std::string at(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b)
{
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        if (a[i] != b[i]) return ", first at pixel " + std::to_string(i);
    return "";
}

// Occlusion bits of every voxel.
void set_occlusion(uint32_t o)
{
    for (size_t i = 0, n = (size_t)vol_x * vol_y * vol_z; i < n; ++i) voxels[i] = (voxels[i] & 0xfff) | o << 16;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Without interpolation: the voxel's density against the isovalue, the colour of the table.

TEST(FirstHitVoxel, DensityAtTheIsovalueIsAHitWithItsOwnColour)
{
    scene(7, 5);
    // A wall at x >= 6 of density 1200, 1300 at x = 8; the eye looks along +x from x = 1.5.
    make_grid(11, 7, 9, [](int x, int, int) { return x >= 8 ? 1300u : x >= 6 ? 1200u : 0u; });
    for (int d = 0; d < 4096; ++d) color_lut[d] = (uint32_t)d;
    set_camera(1.5f, 3.5f, 4.5f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f);
    isovalue = 1200;
    final_pass();
    // Light model 0: the table's colour of the voxel hit, the first of the wall.
    EXPECT_EQ(pixel(3, 2), 1200u);
    isovalue = 1201;
    final_pass();
    EXPECT_EQ(pixel(3, 2), 1300u);
    // Light model 1 (and 2, which acts like it): entered through an x plane, unchanged.
    light_model = 2;
    final_pass();
    EXPECT_EQ(pixel(3, 2), 1300u);
    // Above every density: background.
    isovalue = 1301;
    final_pass();
    expect_all(0u);
}

TEST(FirstHitVoxel, LightModelOneTonesByTheFace)
{
    scene(5, 5);
    // Rays along +z onto a slab at z >= 4: entered through a z plane, darkened; along +y onto a
    // slab at y >= 4: lightened.
    make_grid(9, 9, 9, [](int, int, int z) { return z >= 4 ? 2000u : 0u; });
    opaque_from(0, 0x646464u);
    isovalue = 2000;
    light_model = 1;
    set_camera(4.5f, 4.5f, 0.5f, 0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f);
    final_pass();
    EXPECT_EQ(pixel(2, 2), 0x545454u);  // 100 darkens to 84
    make_grid(9, 9, 9, [](int, int y, int) { return y >= 4 ? 2000u : 0u; });
    opaque_from(0, 0x646464u);
    set_camera(4.5f, 0.5f, 4.5f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f);
    final_pass();
    EXPECT_EQ(pixel(2, 2), 0x7b7b7bu);  // 100 lightens to 123
    // Light model 0 leaves it.
    light_model = 0;
    final_pass();
    EXPECT_EQ(pixel(2, 2), 0x646464u);
}

// ---------------------------------------------------------------------------------------------
// Plane sampling: the hit refined against the last sample below, lit with the isovalue's colour.

// Densities along +z: 1000 up to z = 3, then 3000; normals face the eye (-z), occlusion 255.
// The eye at z = 0.5 looks along +z.
void wall_along_z(uint32_t image_w, uint32_t image_h)
{
    scene(image_w, image_h);
    make_grid(7, 7, 9, [](int, int, int z) { return z >= 4 ? 3000u : 1000u; });
    set_normals(0.0f, 0.0f, -1.0f);
    set_occlusion(255);
    for (int d = 0; d < 4096; ++d) color_lut[d] = 0x204060u;
    isovalue = 2000;
    interp_mode = interp_bilinear;
    set_camera(3.5f, 3.5f, 0.5f, 0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f);
}

TEST(FirstHitPlane, HitIsLitWithTheIsovaluesColour)
{
    wall_along_z(2, 2);
    // Pixel (1, 1) of a 2 x 2 image looks along ifor. The colour of the isovalue, whatever the density found: 2000 -> 0x204060, 3000 -> other.
    color_lut[3000] = 0xffffffu;
    // The ray along +z crosses z planes 1, 2, 3 (1000, below) and 4 (3000): refined between
    // 1000 and 3000 for 2000: w = 0.5 exactly (v = 2000 at once). n = (0, 0, -1) from both;
    // v = (0, 0, 1) (x and y raised to 0.0001); h = normalise(light_dir + v) =
    // normalise(0.7071, 0, 0.2929). l . n = 0.7071 -> d = 0.2475; h . n = -0.3827, whose 16th
    // power (an integer exponent) is 2.1e-7, times 0.55. I = 0.24749.
    // Colour: w = trunc(I * 32767) = 8109: 0x20 -> 32 + ((223 * 8109) >> 15) = 32 + 55 = 87;
    // 0x40 -> 64 + ((191 * 8109) >> 15) = 64 + 47 = 111; 0x60 -> 96 + ((159 * 8109) >> 15) = 96 + 39.
    final_pass();
    EXPECT_EQ(pixel(1, 1), (87u << 16) | (111u << 8) | 135u);
    // With edges on, the depth is the crossing of the hit: z = 4, 3.5 ray units from z = 0.5.
    edge_enabled = 1;
    final_pass();
    EXPECT_EQ(depth_at(1, 1), 0x3800u);
}

TEST(FirstHitPlane, OcclusionAtTheHitBlendsTheTwoSamples)
{
    wall_along_z(2, 2);
    // Occlusion 255 in front, 51 from z = 4 on: o = 0.5 * 51 + 0.5 * 255 = 153 (level 0.6).
    for (uint32_t x = 0; x < vol_x; ++x)
        for (uint32_t y = 0; y < vol_y; ++y)
            for (uint32_t z = 4; z < vol_z; ++z) voxels[voxel_index(x, y, z)] = 3000u | 51u << 16;
    use_occlusion = 1;
    toon_shading = 1;
    light_diffuse = 0.0f, light_specular = 0.0f;
    // I = 0 <= 0.5: the dark band, darkened by g = 0.75 (level 0.6 > 0.5): w = 7372.
    // 0x20: 32 -> (32 * 7372) >> 15 = 7 -> 7 + ((248 * 7372) >> 15) = 7 + 55 = 62;
    // 0x40: 64 -> 14 -> 14 + ((241 * 7372) >> 15) = 14 + 54 = 68; 0x60: 96 -> 21 -> 21 + 52 = 73.
    final_pass();
    EXPECT_EQ(pixel(1, 1), (62u << 16) | (68u << 8) | 73u);
}

TEST(FirstHitPlane, EyeInsideSolidHitsAtTheFirstCrossingAgainstTheHistorySoFar)
{
    // Uniform 3000 (iso 2000) with occlusion 255: every ray's first crossing is a hit, and no
    // ray ever stores a sample, so every hit is refined against the pass's starting history,
    // zero: refine(3000, 0, 2000) = 21/32, o = 21/32 * 255 = 167.3 (level 0.656: g = 0.75).
    scene(4, 3);
    make_grid(9, 7, 11, [](int, int, int) { return 3000u; });
    set_normals(0.0f, 0.0f, 0.0f);
    set_occlusion(255);
    for (int d = 0; d < 4096; ++d) color_lut[d] = 0x204060u;
    isovalue = 2000;
    interp_mode = interp_bilinear;
    use_occlusion = 1;
    toon_shading = 1;
    set_camera(4.5f, 3.5f, 5.5f, 0.3f, 0.2f, 1.0f, 0.0f, 1.0f, 0.0f);
    EXPECT_EQ(refine_crossing(3000.0f, 0.0f, 2000.0f).current, 0.65625f);
    // Null normals: I = 0, the dark band with g = 0.75: 0x3e4449 as above.
    final_pass();
    expect_all((62u << 16) | (68u << 8) | 73u);
    // Every hit is at the first crossing: with edges on, each depth is the ray's first crossing
    // (none of them 0x3FFFFF, which the first cell would give).
    edge_enabled = 1;
    final_pass();
    for (uint32_t y = 0; y < 3; ++y)
        for (uint32_t x = 0; x < 4; ++x) EXPECT_LT(depth_at(x, y), 4096u) << x << ", " << y;
    // The preview samples the first cell itself, at the eye: a hit at depth 0.
    clear_image();
    preview();
    EXPECT_EQ(pixel(0, 0), (62u << 16) | (68u << 8) | 73u);
    EXPECT_EQ(depth_at(0, 0), 0u);
}

TEST(FirstHitPlane, FirstCrossingHitTakesThePreviousRaysLastSample)
{
    // Air (density 0, occlusion 255) at x <= 3, 3000 (occlusion 0) from x = 4; the eye at
    // (3.9, 2.5, 2.5). An image of 2 x 1 looking along +z with istr = +x: pixel 0 looks along
    // (-1, -0.5, 1), pixel 1 along (0, -0.5, 1).
    scene(2, 1);
    make_grid(9, 7, 9, [](int x, int, int) { return x >= 4 ? 3000u : 0u; });
    for (size_t i = 0, n = (size_t)vol_x * vol_y * vol_z; i < n; ++i)
        voxels[i] = (voxels[i] & 0xfff) ? (voxels[i] & 0xfff) : 255u << 16;
    set_normals(light_dir[0], light_dir[1], light_dir[2]);  // l . n = 1
    for (int d = 0; d < 4096; ++d) color_lut[d] = 0u;
    light_specular = 0.0f;
    isovalue = 2000;
    interp_mode = interp_bilinear;
    use_occlusion = 1;
    set_camera(3.9f, 2.5f, 2.5f, 0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f);
    ASSERT_EQ(istr[0], 1.0f);
    // Pixel 0 samples the z = 3 plane at x = 3.4 (1200, below), then planes in the air (0,
    // occlusion 255) until it leaves the grid: no hit, and its last sample (0, 255) is the
    // history. Pixel 1's first crossing, the z = 3 plane at x = 3.90005, is a hit (2700, with
    // occlusion 0.1 * 255 = 25.5): refined against (0, 255), w = 23/32, and
    // o = 23/32 * 25.5 + 9/32 * 255 = 90.0. I = 0.35 * 90.0 / 255 = 0.1236: each byte of the
    // black base moves to (255 * 4049) >> 15 = 31. Against a zero history o would be 18.3 and
    // the bytes (255 * 824) >> 15 = 6.
    EXPECT_EQ(refine_crossing(2700.0f, 0.0f, 2000.0f).current, 0.71875f);
    final_pass();
    EXPECT_EQ(pixel(0, 0), 0u);
    EXPECT_EQ(pixel(1, 0), 0x1f1f1fu);
    // The preview samples a ray's first cell at its start: pixel 0's lattice ray hits at the
    // eye (q.x = 3.9: 2700) against the starting zero history: (255 * 824) >> 15 = 6, and the
    // block fill gives pixel 1 the same.
    clear_image();
    preview();
    EXPECT_EQ(pixel(0, 0), 0x060606u);
    EXPECT_EQ(pixel(1, 0), 0x060606u);
}

TEST(FirstHitPlane, IsovalueAboveEveryDensityIsAllBackground)
{
    for (int interp = 0; interp < 3; ++interp) {
        scene(9, 7);
        make_grid(13, 11, 9, [](int x, int y, int z) { return 500u + 100u * (uint32_t)((x + y + z) % 30); });
        opaque_from(0, 0xffffffu);
        isovalue = 3500;
        interp_mode = (uint8_t)interp;
        edge_enabled = 1;
        set_camera(-5.0f, 5.5f, 4.5f, 1.0f, 0.05f, 0.02f, 0.0f, 1.0f, 0.0f);
        clear_image();
        preview();
        expect_all(0u);
        // The lattice rays saw nothing. (Pixels of the last column that no cell reaches keep
        // the cleared 0: the width is no multiple of the lattice.)
        EXPECT_EQ(depth_at(0, 0), no_depth);
        EXPECT_EQ(depth_at(4, 4), no_depth);
        clear_image();
        if (interp == 2) trilinear();
        else final_pass();
        expect_all(0u);
        // Every ray met the box and saw nothing: no_depth everywhere. In the trilinear final a
        // ray whose first position (one ray direction beyond the entry) lies outside the grid
        // doesn't start and writes no depth.
        int seen_nothing = 0;
        for (uint32_t i = 0; i < 9 * 7; ++i) {
            if (interp == 2 && render_target.depth[i] == 0) continue;
            EXPECT_EQ(render_target.depth[i], no_depth) << interp;
            seen_nothing += 1;
        }
        EXPECT_GT(seen_nothing, 9 * 7 / 2);
        // With the pencil the background is the paper, each pixel its own texel in a final.
        pencil_sketch = 1, toon_shading = 1;
        if (interp == 2) trilinear();
        else final_pass();
        for (uint32_t y = 0; y < 7; ++y)
            for (uint32_t x = 0; x < 9; ++x) EXPECT_EQ(pixel(x, y), pencil_tex[0][x + y * 64]);
    }
}

TEST(FirstHitPlane, PreviewPaperScrollsButHitTexelsDoNot)
{
    scene(16, 16);
    make_grid(9, 9, 9, [](int, int, int) { return 0u; });
    pencil_sketch = 1, toon_shading = 1;
    interp_mode = interp_bilinear;
    tex_scroll_x = 5, tex_scroll_y = -3;
    set_camera(-20.0f, 4.5f, 4.5f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
    preview();
    // Nothing is hit: the lattice pixel (0, 0) takes texel (5, -3 & 63 = 61), and the block
    // fill copies it over its 4 x 4 block.
    EXPECT_EQ(pixel(0, 0), pencil_tex[0][5 + 61 * 64]);
    EXPECT_EQ(pixel(3, 3), pencil_tex[0][5 + 61 * 64]);
    // The final's paper does not scroll.
    final_pass();
    EXPECT_EQ(pixel(3, 3), pencil_tex[0][3 + 3 * 64]);
}

// ---------------------------------------------------------------------------------------------
// The trilinear final: extra surfaces.

// Densities rising along +x, 100 per voxel; rays along +x; no light (I = 0), so that each hit
// shows its isovalue's colour.
void ramp_along_x(uint32_t w, uint32_t h)
{
    scene(w, h);
    make_grid(31, 7, 7, [](int x, int, int) { return 100u * (uint32_t)x; });
    light_diffuse = light_specular = 0.0f;
    interp_mode = interp_trilinear;
    set_camera(0.5f, 3.5f, 3.5f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
    for (int d = 0; d < 4096; ++d) color_lut[d] = 0x010101u;
    color_lut[2000] = 0x306090u;  // A, the main surface
    color_lut[1000] = 0x102030u;  // B
}

TEST(FirstHitTrilinear, SurfaceOnTheMainIsovalueRemovesTheMainColour)
{
    ramp_along_x(2, 2);
    isovalue = 2000;
    surface_on[0] = 1, surface_isovalue[0] = 2000;
    surface_on[1] = 1, surface_isovalue[1] = 1000;
    // Along the ray: surface 1 (B) first, then the main and surface 0 (A) on the same sample,
    // the main first: surface 0 is the last hit, and the main colour stays out:
    // (A + B) / 2 = (0x30 + 0x10) / 2, (0x60 + 0x20) / 2, (0x90 + 0x30) / 2.
    trilinear();
    EXPECT_EQ(pixel(1, 1), 0x204060u);
    // Without surface 0 the main surface is the last hit and counts: (A + B) / 2 as well, so
    // take surface 1 away instead: the main and surface 0, A and A: A.
    surface_on[1] = 0;
    trilinear();
    EXPECT_EQ(pixel(1, 1), 0x306090u);
    // Surface 1 alone beside the main: the main is last, (B + A) / 2.
    surface_on[0] = 0, surface_on[1] = 1;
    trilinear();
    EXPECT_EQ(pixel(1, 1), 0x204060u);
    // Surface 1 twice (surfaces 1 and 2 on 1000) and the main last: (B + B + A) / 3 =
    // (0x50 / 3, 0xa0 / 3, 0xf0 / 3) = (26, 53, 80).
    surface_on[2] = 1, surface_isovalue[2] = 1000;
    trilinear();
    EXPECT_EQ(pixel(1, 1), (26u << 16) | (53u << 8) | 80u);
}

TEST(FirstHitTrilinear, OnlyAnExtraSurfaceReached)
{
    ramp_along_x(2, 2);
    isovalue = 4000;  // never reached: the ramp ends at 3000
    surface_on[3] = 1, surface_isovalue[3] = 1000;
    edge_enabled = 1;
    trilinear();
    // The ray runs to the end of the grid and shows surface 3 alone; with edges, a hit's
    // depth is the constant 0x3FFFFF.
    EXPECT_EQ(pixel(1, 1), 0x102030u);
    EXPECT_EQ(depth_at(1, 1), 0x3fffffu);
    // With no surface reached at all: background and no_depth.
    surface_isovalue[3] = 3500;
    trilinear();
    EXPECT_EQ(pixel(1, 1), 0u);
    EXPECT_EQ(depth_at(1, 1), no_depth);
}

TEST(FirstHitTrilinear, MainColourLosesItsTopByteOnlyWithoutExtraSurfaces)
{
    ramp_along_x(2, 2);
    isovalue = 2000;
    color_lut[2000] = 0xab306090u;
    trilinear();
    EXPECT_EQ(pixel(1, 1), 0x306090u);
}

TEST(FirstHitTrilinear, PreShadingUsesTheSampleNormalAndTheFrameHalfVector)
{
    ramp_along_x(2, 2);
    isovalue = 2000;
    pre_shading = 1;
    light_diffuse = 0.35f, light_specular = 0.55f;
    set_normals(0.0f, 0.0f, 2.0f);  // normalised at the sample: (0, 0, 1)
    // half_vector of the frame, set by hand: along the normal, so that the rational form has
    // x = 1 and gives 1. l . n = -0.7071 < 0: no diffuse term. I = 0.55.
    half_vector[0] = 0.0f, half_vector[1] = 0.0f, half_vector[2] = 1.0f;
    // Toon, pencil and occlusion are left out.
    toon_shading = 1, pencil_sketch = 1, use_occlusion = 1;
    // w = trunc(0.55 * 32767) = 18021: 0x30 -> 48 + ((207 * 18021) >> 15) = 48 + 113 = 161;
    // 0x60 -> 96 + ((159 * 18021) >> 15) = 96 + 87 = 183; 0x90 -> 144 + ((111 * 18021) >> 15) =
    // 144 + 61 = 205.
    trilinear();
    EXPECT_EQ(pixel(1, 1), (161u << 16) | (183u << 8) | 205u);
}

TEST(FirstHitPreviewAndFinal, ExtraSurfacesChangeNothing)
{
    ramp_along_x(13, 11);
    isovalue = 2000;
    light_diffuse = 0.35f, light_specular = 0.55f;
    set_camera(-4.0f, 3.0f, 3.5f, 1.0f, 0.1f, 0.05f, 0.0f, 1.0f, 0.0f);
    for (int interp = 0; interp < 2; ++interp) {
        interp_mode = (uint8_t)interp;
        clear_image();
        preview();
        std::vector<uint32_t> p0 = colors();
        final_pass();
        std::vector<uint32_t> f0 = colors();
        surface_on[0] = 1, surface_isovalue[0] = 1000;
        surface_on[2] = 1, surface_isovalue[2] = 2500;
        clear_image();
        preview();
        EXPECT_EQ(colors(), p0);
        final_pass();
        EXPECT_EQ(colors(), f0);
        surface_on[0] = surface_on[2] = 0;
    }
}

TEST(FirstHitPreview, TrilinearPreviewIsPlaneSampled)
{
    ramp_along_x(13, 11);
    isovalue = 2000;
    light_diffuse = 0.35f, light_specular = 0.55f;
    set_camera(-4.0f, 3.0f, 3.5f, 1.0f, 0.1f, 0.05f, 0.0f, 1.0f, 0.0f);
    interp_mode = interp_bilinear;
    clear_image();
    preview();
    std::vector<uint32_t> bilinear = colors();
    interp_mode = interp_trilinear;
    clear_image();
    preview();
    EXPECT_EQ(colors(), bilinear);
    interp_mode = interp_none;
    clear_image();
    preview();
    EXPECT_NE(colors(), bilinear);
}

// ---------------------------------------------------------------------------------------------
// Polling and stopping.

TEST(FirstHitFinal, ChangeOnAnOddLineFallsBackToThePreview)
{
    ramp_along_x(13, 11);
    isovalue = 2000;
    set_camera(-4.0f, 3.0f, 3.5f, 1.0f, 0.1f, 0.05f, 0.0f, 1.0f, 0.0f);
    interp_mode = interp_bilinear;
    clear_image();
    preview();
    const std::vector<uint32_t> preview_image = colors();
    refresh = 1;
    const unsigned pumps = null_gui_pumps;
    final_pass();
    EXPECT_EQ(null_gui_pumps, pumps + 1);
    EXPECT_EQ(colors(), preview_image);
    EXPECT_EQ(refresh, 1);
}

TEST(FirstHitTrilinear, PollsEveryLineAndStopsAtOnce)
{
    ramp_along_x(13, 11);
    isovalue = 2000;
    refresh = 0;
    unsigned pumps = null_gui_pumps;
    trilinear();
    EXPECT_EQ(null_gui_pumps, pumps + 11);  // lines 0 to 10
    // A change waiting: it stops before line 0, draws no preview, and the buffers keep what
    // they had.
    for (size_t i = 0; i < 13 * 11; ++i) render_target.color[i] = 7;
    refresh = 1;
    pumps = null_gui_pumps;
    trilinear();
    EXPECT_EQ(null_gui_pumps, pumps + 1);
    expect_all(7u);
    // The colour dialog open stops it too.
    refresh = 0;
    color_dialog_open = 1;
    trilinear();
    expect_all(7u);
    color_dialog_open = 0;
}

// The colour dialog opening in the middle of a trilinear final: the pass stops at the next line
// and shows the lines done so far, as no preview is on its way. A change (refresh) instead
// shows nothing: the next frame's preview replaces the picture.
unsigned pumps_before_acting;
void open_dialog_at_line_3()
{
    if (null_gui_pumps == pumps_before_acting + 4) color_dialog_open = 1;
}
void change_at_line_3()
{
    if (null_gui_pumps == pumps_before_acting + 4) refresh = 1;
}

TEST(FirstHitTrilinear, StoppedByTheColourDialogShowsTheLinesDone)
{
    ramp_along_x(6, 6);
    isovalue = 2000;
    trilinear();
    const std::vector<uint32_t> full = colors();
    std::vector<uint32_t> screen(36, 0xdeadu);
    screen_pixels = screen.data();
    for (int changed = 0; changed < 2; ++changed) {
        std::fill(screen.begin(), screen.end(), 0xdeadu);
        for (size_t i = 0; i < 36; ++i) render_target.color[i] = 5;
        refresh = 0;
        pumps_before_acting = null_gui_pumps;
        null_pump_hook = changed ? change_at_line_3 : open_dialog_at_line_3;
        trilinear();
        null_pump_hook = nullptr;
        // Lines 0 to 2 were rendered; the poll before line 3 stopped the pass.
        for (uint32_t y = 0; y < 6; ++y)
            for (uint32_t x = 0; x < 6; ++x) {
                const size_t i = y * 6 + x;
                EXPECT_EQ(render_target.color[i], y < 3 ? full[i] : 5u) << x << ", " << y;
                if (changed) EXPECT_EQ(screen[i], 0xdeadu);
                else EXPECT_EQ(screen[i], render_target.color[i]);
            }
        color_dialog_open = 0;
    }
    screen_pixels = nullptr;
    refresh = 0;
}

// The dispatch clears color, depth and mask before the trilinear final, which writes no mask
// and leaves the cleared depth where a ray never started.
TEST(FirstHitDispatch, TrilinearFinalStartsFromClearedBuffers)
{
    ramp_along_x(10, 8);
    isovalue = 2000;
    set_camera(-40.0f, 3.5f, 3.5f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);  // the box is small in the view
    render_mode = mode_firsthit;
    interp_mode = interp_trilinear;
    for (size_t i = 0; i < 80; ++i) render_target.color[i] = 9, render_target.depth[i] = 9, render_target.mask[i] = 9;
    ASSERT_TRUE(run_final());
    int missed = 0;
    for (size_t i = 0; i < 80; ++i) {
        EXPECT_EQ(render_target.mask[i], 0);
        EXPECT_NE(render_target.color[i], 9u);
        missed += render_target.depth[i] == 0;
    }
    EXPECT_GT(missed, 40);
    // The plane-sampling final is entered as the preview left the buffers: a ray that missed
    // the box keeps the depth it found.
    interp_mode = interp_bilinear;
    edge_enabled = 1;
    for (size_t i = 0; i < 80; ++i) render_target.depth[i] = 9;
    ASSERT_TRUE(run_final());
    EXPECT_EQ(render_target.depth[0], 9u);
}

// ---------------------------------------------------------------------------------------------
// The three passes against the literal reading, on random scenes: grids with empty bricks,
// bricks below and above the isovalue, random occlusion; eyes inside and outside; every
// interpolation, light model and look; small step limits; extra surfaces; pre- and post-shading.

TEST(FirstHitPasses, AgreeWithTheLiteralReading)
{
    std::mt19937 rng(2024);
    auto uniform = [&](float a, float b) { return std::uniform_real_distribution<float>(a, b)(rng); };
    auto chance = [&](double p) { return std::bernoulli_distribution(p)(rng); };
    int scenes = 0, hits = 0;
    for (int k = 0; k < 300; ++k) {
        scene(9 + rng() % 23, 7 + rng() % 19);
        const uint32_t X = 9 + rng() % 31, Y = 9 + rng() % 31, Z = 9 + rng() % 31;
        const uint32_t bx = X / 8 + 1, by = Y / 8 + 1, bz = Z / 8 + 1;
        std::vector<int> kind(bx * by * bz);
        for (int& c : kind) c = rng() % 4;  // empty, low, mixed, high
        make_grid(X, Y, Z, [&](int x, int y, int z) -> uint32_t {
            switch (kind[((size_t)(x / 8) * bz + z / 8) * by + y / 8]) {
            case 0: return 0u;
            case 1: return 500u + rng() % 900;
            case 2: return chance(0.5) ? 0u : rng() % 4096;
            default: return 1500u + rng() % 2596;
            }
        });
        for (size_t i = 0, n = (size_t)X * Y * Z; i < n; ++i) voxels[i] = (voxels[i] & 0xfff) | (rng() % 256) << 16;
        for (int d = 0; d < 4096; ++d) color_lut[d] = rng() & 0xffffff;
        isovalue = chance(0.1) ? 4000 : 600 + (int)(rng() % 2500);
        interp_mode = (uint8_t)(rng() % 3);
        light_model = rng() % 3;
        toon_shading = chance(0.3);
        pencil_sketch = toon_shading && chance(0.4);
        use_occlusion = chance(0.4);
        edge_enabled = chance(0.5);
        pre_shading = chance(0.3);
        light_ambient = uniform(0.0f, 0.3f);
        light_exponent = chance(0.3) ? 16.5f : uniform(1.0f, 40.0f);
        sample_stepsize = uniform(0.3f, 1.5f);
        max_ray_steps = chance(0.3) ? 3 + rng() % 40 : 1000;
        refine_tolerance = (uint8_t)(rng() % 12);
        tex_scroll_x = (int)(rng() % 100) - 50, tex_scroll_y = (int)(rng() % 100) - 50;
        for (int s = 0; s < 4; ++s) {
            surface_on[s] = chance(0.25);
            surface_isovalue[s] = 500 + (int)(rng() % 3000);
        }
        float eye[3], forward[3];
        const bool inside = chance(0.4);
        const float size[3] = {(float)X, (float)Y, (float)Z};
        for (int a = 0; a < 3; ++a) {
            eye[a] = inside ? uniform(0.0f, size[a]) : uniform(-size[a], 2.0f * size[a]);
            forward[a] = size[a] * 0.5f - eye[a] + uniform(-4.0f, 4.0f);
            if (inside) forward[a] = uniform(-1.0f, 1.0f);
        }
        if (chance(0.1)) forward[rng() % 3] = 0.0f;  // a component of 0: the 0.0001 floor
        // A component so small and negative that dt overflows: a ray that can't be stepped back.
        if (chance(0.1)) forward[rng() % 3] = -1e-9f;
        // The eye on a far face: the first cell of a final lies outside the grid.
        if (chance(0.05)) eye[0] = size[0];
        set_camera(eye[0], eye[1], eye[2], forward[0], forward[1], forward[2], uniform(-1, 1), uniform(-1, 1), 1.0f);
        if (chance(0.1)) ifor[rng() % 3] = -1e-9f;  // kept by the clamp only when it is below -0.0001
        clamp_forward();
        prepare_preview_vectors();

        const size_t n = (size_t)render_target.width * render_target.height;
        auto run = [&](auto pass) {
            clear_image();
            for (size_t i = 0; i < n; ++i) render_target.depth[i] = 0x1234;  // what a preview left
            pass();
            return std::make_pair(colors(), depths());
        };
        auto fast_preview = run([] { preview(); });
        auto slow_preview = run([] { reference::preview(); });
        ASSERT_EQ(fast_preview.first, slow_preview.first) << "preview colours, scene " << k << at(fast_preview.first, slow_preview.first);
        ASSERT_EQ(fast_preview.second, slow_preview.second) << "preview depths, scene " << k << at(fast_preview.second, slow_preview.second);
        if (interp_mode == interp_trilinear) {
            auto fast = run([] { trilinear(); });
            auto slow = run([] { reference::trilinear_pass(); });
            ASSERT_EQ(fast.first, slow.first) << "trilinear colours, scene " << k << at(fast.first, slow.first);
            ASSERT_EQ(fast.second, slow.second) << "trilinear depths, scene " << k << at(fast.second, slow.second);
            for (uint32_t c : fast.first) hits += c != 0;
        } else {
            auto fast = run([] { final_pass(); });
            auto slow = run([] { reference::final_pass(); });
            ASSERT_EQ(fast.first, slow.first) << "final colours, scene " << k << at(fast.first, slow.first);
            ASSERT_EQ(fast.second, slow.second) << "final depths, scene " << k << at(fast.second, slow.second);
            for (uint32_t c : fast.first) hits += c != 0;
        }
        ++scenes;
    }
    EXPECT_EQ(scenes, 300);
    EXPECT_GT(hits, 10000);
}
