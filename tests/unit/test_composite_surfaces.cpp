// Region boundary surfaces (mode 8) and isovalue contour surfaces (mode 10): the shade weight,
// the alpha correction, the byte-packed compositing step, the pixel finish, the contour tent,
// and the six passes on tiny grids whose answers are worked out by hand.
//
// Most pass tests use one ray: a 1 x 1 image whose ray runs along (1, 0.5, 0.25) from an eye
// outside the box at (-4, 0, 2), entering at (0, 2, 3). Every crossing of that ray falls on
// multiples of a quarter, so plane samples and their weights are exact.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <vector>

#include "composite/composite.h"
#include "composite/surfaces.h"
#include "raycast_helpers.h"

namespace {

// The settings of a fresh start, a 1 x 1 image, and the camera of the one exact ray.
void one_ray_scene()
{
    start_fresh();
    refresh = 0;
    set_image(1, 1);
    prev_cross_t = 0;
    ipos[0] = -4.0f, ipos[1] = 0.0f, ipos[2] = 2.0f;
    // ray = ifor - 0.5 istr - 0.5 iup = (1, 0.5, 0.25)
    ifor[0] = 1.0f, ifor[1] = 1.0f, ifor[2] = 0.75f;
    istr[0] = 0.0f, istr[1] = 0.0f, istr[2] = 1.0f;
    iup[0] = 0.0f, iup[1] = 1.0f, iup[2] = 0.0f;
}

// A 15 x 11 x 9 grid of density(x) with every gradient record set by hand.
void slab_grid(const std::function<uint32_t(int)>& density, float m, float nx = 0.0f, float ny = 0.0f,
               float nz = 1.0f)
{
    make_grid(15, 11, 9, [&](int x, int, int) { return density(x); });
    for (size_t i = 0; i < (size_t)15 * 11 * 9; ++i) gradients[i] = {nx, ny, nz, m};
}

// No light at all: every sample keeps its transfer-function colour.
void no_light()
{
    light_ambient = light_diffuse = light_specular = 0.0f;
}

void tables(float opacity, uint32_t color)
{
    for (int d = 0; d < 4096; ++d) opacity_lut[d] = d ? opacity : 0.0f, color_lut[d] = d ? color : 0u;
}

void run(void (*pass)(RenderTarget*, uint32_t*, float*, float*, float*, float*))
{
    prepare_preview_vectors();
    pass(&render_target, voxels, ipos, ifor, iup, istr);
}

std::vector<uint32_t> image()
{
    return std::vector<uint32_t>(render_target.color,
                                 render_target.color + render_target.width * render_target.height);
}

// The walk of the one exact ray standing in cell (x, y, z), having crossed a plane of axis
// face (1, 2, 3) at t = cross_t / 4096, the crossing before at prev / 4096.
RayWalk walk_at(int x, int y, int z, int8_t face, int32_t cross_t, int32_t prev, float* p)
{
    const float dir[3] = {1.0f, 0.5f, 0.25f};
    p[0] = 0.0f, p[1] = 2.0f, p[2] = 3.0f;
    RayWalk w;
    const GridView g = grid_view(voxels);
    start_walk(w, g, p, p, dir);
    w.x = x, w.y = y, w.z = z;
    w.index = (int64_t)voxel_index(x, y, z);
    w.entry_face = face;
    w.cross_t = cross_t;
    w.prev_cross_t = prev;
    return w;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The pieces.

TEST(SurfaceCompositing, StepIsCutToWholeLevelsAtEverySample)
{
    RayAccum r;
    EXPECT_FALSE(composite_sample(r, 0x804020u, 0.5f));
    EXPECT_EQ(r.color, 0x402010u);  // 128, 64, 32 at half opacity
    EXPECT_EQ(r.alpha, 0.5f);
    EXPECT_FALSE(composite_sample(r, 0xff0000u, 0.5f));
    EXPECT_EQ(r.color, 0x7f2010u);  // 255 * 0.5 * 0.5 + 64 = 127.75 -> 127
    EXPECT_EQ(r.alpha, 0.75f);
    // Less than one level is lost: 1 * 0.5 * 0.25 adds nothing, though alpha grows.
    EXPECT_FALSE(composite_sample(r, 0x010101u, 0.5f));
    EXPECT_EQ(r.color, 0x7f2010u);
    EXPECT_EQ(r.alpha, 0.875f);
    // Clamped to 0..255, byte 3 stays 0.
    RayAccum s;
    s.color = 0xf0f0f0u;
    composite_sample(s, 0xffffffffu, 0.5f);
    EXPECT_EQ(s.color, 0xffffffu);
    composite_sample(s, 0xffffffu, -2.0f);
    EXPECT_EQ(s.color, 0x000000u);
}

TEST(SurfaceCompositing, RayEndsAtThreshold)
{
    RayAccum r;
    EXPECT_FALSE(composite_sample(r, 0u, 0.97f));
    RayAccum s;
    EXPECT_TRUE(composite_sample(s, 0u, 0.975f));
    EXPECT_EQ(s.alpha, 0.975f);
    EXPECT_EQ(early_stop_alpha, std::bit_cast<float>(0x3f79999au));
}

TEST(SurfaceCompositing, AlphaCorrection)
{
    // m = 0 (x = 0): u = 1 makes the correction 1 / (-1) + 1 = 0 for any distance.
    for (float s : {0.01f, 0.7f, 1.0f, 1023.99976f, -1023.0f}) EXPECT_EQ(correct_alpha(0.0f, s), 0.0f) << s;
    // Two crossings at the same t: 0 for u != 0; for u = 0 the quotient is undefined and the
    // clamp makes it 1.
    EXPECT_EQ(correct_alpha(0.3f, 0.0f), 0.0f);
    EXPECT_TRUE(std::isnan(correct_alpha(1.0f, 0.0f)));
    EXPECT_EQ(at_most_one(correct_alpha(1.0f, 0.0f)), 1.0f);
    // One unit: the opacity itself; Schlick's form at two units: 1 - 0.5 / 1.5.
    EXPECT_EQ(correct_alpha(0.25f, 1.0f), 0.25f);
    EXPECT_FLOAT_EQ(correct_alpha(0.5f, 2.0f), 2.0f / 3.0f);
    // A product above 1 corrected at a short distance comes out negative: u = -1,
    // -1 / ((-0.25 - 0.25) + 1) + 1 = -1.
    EXPECT_EQ(correct_alpha(2.0f, 0.25f), -1.0f);
}

TEST(SurfaceShading, WeightAndLitColour)
{
    ShadeLocals L = {{0.0f, 0.0f, 1.0f}, {0.0f, 0.0f, 1.0f}, 16.0f, 0.35f, 0.55f, 0.0f, 0xffffffu};
    const float up[3] = {0.0f, 0.0f, 1.0f}, tilted[3] = {0.0f, 0.6f, 0.8f}, away[3] = {0.0f, 0.0f, -1.0f};
    // q = 1: 1 / ((16 - 16) + 1) = 1; e = 1: 0.35 + 0.55.
    EXPECT_FLOAT_EQ(shade_weight<false>(L, up, 0.0f), 0.9f);
    // q = 0.8: 0.8 / ((16 - 12.8) + 0.8) = 0.2; e = 0.8: 0.28 + 0.11.
    EXPECT_FLOAT_EQ(shade_weight<false>(L, tilted, 0.0f), 0.39f);
    // The occlusion factor is used raw: 2 doubles diffuse and specular, 128 saturates.
    EXPECT_FLOAT_EQ(shade_weight<true>(L, tilted, 2.0f), 0.78f);
    EXPECT_EQ(shade_weight<true>(L, tilted, 128.0f), 1.0f);
    EXPECT_EQ(shade_weight<true>(L, tilted, 0.0f), 0.0f);
    // Facing away: nothing but ambient.
    L.ambient = 0.1f;
    EXPECT_FLOAT_EQ(shade_weight<false>(L, away, 0.0f), 0.1f);
    // Weight 0 keeps the colour; the lit colour moves toward the light, never toward black.
    L.ambient = L.diffuse = L.specular = 0.0f;
    EXPECT_EQ(lit_color<false>(L, 0x123456u, up, 0.0f), 0x123456u);
    L.diffuse = 0.5f;
    // 0x12 + ((0xff - 0x12) * 16383 >> 15) = 18 + 118 = 136
    EXPECT_EQ(lit_color<false>(L, 0x121212u, up, 0.0f), 0x888888u);
}

TEST(SurfaceShading, FullAmbientGivesTheLightColourUpToOneLevel)
{
    ShadeLocals L = {{0.0f, 0.0f, 1.0f}, {0.0f, 0.0f, 1.0f}, 16.0f, 0.0f, 0.0f, 1.0f, 0u};
    const float n[3] = {0.0f, 1.0f, 0.0f};
    for (uint32_t light : {0xffffffu, 0x808080u, 0x1020f0u, 0u})
        for (uint32_t c : {0u, 0xffffffu, 0xff0000u, 0x3c7a11u}) {
            L.light_color = light;
            const uint32_t lit = lit_color<false>(L, c, n, 0.0f);
            for (int shift = 0; shift < 24; shift += 8) {
                const int want = (int)((light >> shift) & 0xff), got = (int)((lit >> shift) & 0xff);
                EXPECT_TRUE(got == want || got == want - 1) << std::hex << light << " " << c << " " << lit;
            }
        }
    // A rising byte stops one short: 0x10 + (239 * 32767 >> 15) = 254.
    L.light_color = 0xffffffu;
    EXPECT_EQ(lit_color<false>(L, 0x101010u, n, 0.0f), 0xfefefeu);
}

TEST(SurfaceFinish, FaintWhisps)
{
    RayAccum unseen;
    EXPECT_EQ(finish_pixel<true>(unseen), 0u);
    EXPECT_EQ(finish_pixel<false>(unseen), 0u);
    // A ray that stops at its first sample with 0.975: 255 * 0.975 = 248.6 -> 248, then
    // w = trunc(0.975 * 32767) = 31947 and 248 * 31947 >> 15 = 241.
    RayAccum r;
    r.seen = true;
    EXPECT_TRUE(composite_sample(r, 0xffffffu, 0.975f));
    EXPECT_EQ(r.color, 0xf8f8f8u);
    EXPECT_EQ(finish_pixel<false>(r), 0xf8f8f8u);
    EXPECT_EQ(finish_pixel<true>(r), 0xf1f1f1u);
    // Full opacity is scaled by 32767 / 32768 at most: 255 -> 254.
    RayAccum full;
    full.seen = true;
    composite_sample(full, 0xffffffu, 1.0f);
    EXPECT_EQ(finish_pixel<true>(full), 0xfefefeu);
    // acc_color 0 gives 0 either way.
    RayAccum dark;
    dark.seen = true;
    composite_sample(dark, 0u, 0.5f);
    EXPECT_EQ(finish_pixel<true>(dark), 0u);
}

TEST(ContourFactor, FlatRegionsAndTheTent)
{
    // m = 0: 1 when the density truncates to the isovalue, 0 otherwise.
    EXPECT_EQ(contour_factor(2048.0f, 0.0f, 2048, 1.0f), 1.0f);
    EXPECT_EQ(contour_factor(2048.9f, 0.0f, 2048, 1.0f), 1.0f);
    EXPECT_EQ(contour_factor(2047.9f, 0.0f, 2048, 1.0f), 0.0f);
    EXPECT_EQ(contour_factor(3000.0f, 0.0f, 2048, 1.0f), 0.0f);
    // m below 1 truncates to 0 too: between iso and iso + 1 is on the surface, just below goes
    // through the tent (r = 4.095): 1 - 0.5 / 4.095.
    EXPECT_EQ(contour_factor(2048.5f, 0.001f, 2048, 1.0f), 1.0f);
    EXPECT_FLOAT_EQ(contour_factor(2047.5f, 0.001f, 2048, 1.0f), 1.0f - 0.5f / 4.095f);
    // The tent: r = 2 * 4095 * 0.01 = 81.9; 40.95 away is half way.
    EXPECT_NEAR(contour_factor(2088.95f, 0.01f, 2048, 2.0f), 0.5f, 1e-5f);
    EXPECT_NEAR(contour_factor(2007.05f, 0.01f, 2048, 2.0f), 0.5f, 1e-5f);
    EXPECT_EQ(contour_factor(2130.0f, 0.01f, 2048, 2.0f), 0.0f);
    EXPECT_EQ(contour_factor(1966.0f, 0.01f, 2048, 2.0f), 0.0f);
    EXPECT_EQ(contour_factor(2100.0f, -0.5f, 2048, 1.0f), 0.0f);
    // The shared reciprocal rounds its own way but means the same.
    EXPECT_NEAR(contour_factor<true>(2088.95f, 0.01f, 2048, 2.0f, contour_reciprocal(0.01f)), 0.5f, 1e-5f);
    // f = 0 gives a = 0 through the correction too (u = 1).
    EXPECT_EQ(correct_alpha(contour_factor(3000.0f, 0.01f, 2048, 1.0f) * 0.8f, 0.7f), 0.0f);
}

TEST(SurfaceClassification, OpacityAtAnInterpolatedDensity)
{
    std::vector<float> op(4096, 0.0f);
    op[0] = 0.25f, op[1000] = 0.5f, op[1001] = 1.0f, op[4094] = 0.75f, op[4095] = 1.0f;
    EXPECT_EQ(opacity_at_density(op.data(), 1000.0f), 0.5f);
    EXPECT_EQ(opacity_at_density(op.data(), 1000.25f), 0.625f);  // 0.25 * 1 + 0.75 * 0.5
    EXPECT_EQ(opacity_at_density(op.data(), 4094.5f), 0.875f);
    EXPECT_EQ(opacity_at_density(op.data(), 4095.0f), 0.0f);  // j = i = 4095: both weights 0
    // Beyond the table (a first trilinear sample weighted by a negative fraction): its ends.
    EXPECT_EQ(opacity_at_density(op.data(), -79.4f), 0.25f);
    EXPECT_EQ(opacity_at_density(op.data(), 4200.0f), 0.0f);
}

// ---------------------------------------------------------------------------------------------
// Region boundary surfaces at the sample and through the passes.

TEST(RbsSamples, DensityOf4095AddsNothingYetIsSeen)
{
    // All four voxels of every plane sample at 4095: d = 4095 exactly, j = i = 4095 and both
    // weights 0, so o2 = 0 though the table gives 1 there.
    one_ray_scene();
    slab_grid([](int) { return 4095u; }, 0.5f);
    tables(1.0f, 0xffffffu);
    no_light();
    interp_mode = interp_bilinear;
    run(render_rbs_preview);
    EXPECT_EQ(pixel(0, 0), 0u);
    // seen: the depth of the first positive sample (the first cell, t = 0), not no_depth.
    EXPECT_EQ(depth_at(0, 0), 0u);
    EXPECT_EQ(mask_at(0, 0), 1);
    // The same grid at 4094 composites white.
    clear_image();
    slab_grid([](int) { return 4094u; }, 0.5f);
    run(render_rbs_preview);
    EXPECT_NE(pixel(0, 0), 0u);
    // And a grid that the ray never sees: no_depth.
    clear_image();
    tables(0.0f, 0xffffffu);
    run(render_rbs_preview);
    EXPECT_EQ(pixel(0, 0), 0u);
    EXPECT_EQ(depth_at(0, 0), no_depth);
}

TEST(RbsSamples, ZeroMagnitudeGivesZeroOpacityWithOrWithoutCorrection)
{
    for (uint8_t interp : {interp_none, interp_bilinear})
        for (int corrected : {0, 1}) {
            one_ray_scene();
            slab_grid([](int x) { return x >= 5 ? 3000u : 0u; }, 0.0f);
            tables(1.0f, 0xffffffu);
            no_light();
            light_ambient = 1.0f;
            interp_mode = interp;
            rbs_alpha_correction = corrected;
            faint_whisps = 1;
            run(render_rbs_final);
            EXPECT_EQ(pixel(0, 0), 0u) << (int)interp << corrected;
            clear_image();
            run(render_rbs_preview);
            EXPECT_EQ(pixel(0, 0), 0u);
            EXPECT_LT(depth_at(0, 0), no_depth);  // seen
            // With a magnitude the same ray composites.
            slab_grid([](int x) { return x >= 5 ? 3000u : 0u; }, 0.5f);
            run(render_rbs_final);
            EXPECT_NE(pixel(0, 0), 0u) << (int)interp << corrected;
        }
}

TEST(RbsSamples, CorrectionOfZeroDistance)
{
    // Two crossings at the same t: s = 0 makes a = 0 for x < 1, and x = 1 gives 0 / 0, which
    // the clamp turns into 1.
    one_ray_scene();
    slab_grid([](int) { return 3000u; }, 0.5f);
    tables(1.0f, 0x646464u);
    no_light();
    const SurfaceLocals L = surface_locals();
    const GridView g = grid_view(voxels);
    float p[3];
    RayWalk w = walk_at(4, 4, 4, 1, 4 * 4096, 4 * 4096, p);
    RayAccum acc;
    surface_cell<SurfaceKind::rbs, CellForm::plane, true>(acc, w, g, p, L, [](const RayWalk&) {});
    EXPECT_TRUE(acc.seen);
    EXPECT_EQ(acc.alpha, 0.0f);
    rbs_grad_dep = 2.0f;  // x = 1 * 0.5 * 2 = 1
    const SurfaceLocals L2 = surface_locals();
    EXPECT_TRUE((surface_cell<SurfaceKind::rbs, CellForm::plane, true>(acc, w, g, p, L2, [](const RayWalk&) {})));
    EXPECT_EQ(acc.alpha, 1.0f);
    EXPECT_EQ(acc.color, 0x646464u);
}

TEST(RbsSamples, NegativeOpacityAfterCorrectionInThePlaneFinal)
{
    // x = o2 m grad_dep = 1 * 0.5 * 4 = 2 at a crossing 0.25 after the one before: a = -1,
    // which takes alpha down to -1 and the colour (clamped) stays 0. The next crossing, one
    // unit on, has a = min(2, 1) = 1 with T = 2: 100 * 1 * 2 = 200.
    one_ray_scene();
    slab_grid([](int) { return 3000u; }, 0.5f);
    tables(1.0f, 0x646464u);
    no_light();
    rbs_grad_dep = 4.0f;
    const SurfaceLocals L = surface_locals();
    const GridView g = grid_view(voxels);
    float p[3];
    RayAccum acc;
    RayWalk w = walk_at(4, 4, 4, 1, 4 * 4096, 4 * 4096 - 1024, p);
    EXPECT_FALSE((surface_cell<SurfaceKind::rbs, CellForm::plane, true>(acc, w, g, p, L, [](const RayWalk&) {})));
    EXPECT_EQ(acc.alpha, -1.0f);
    EXPECT_EQ(acc.color, 0u);
    w = walk_at(6, 5, 4, 1, 6 * 4096, 5 * 4096, p);
    EXPECT_TRUE((surface_cell<SurfaceKind::rbs, CellForm::plane, true>(acc, w, g, p, L, [](const RayWalk&) {})));
    EXPECT_EQ(acc.alpha, 1.0f);
    EXPECT_EQ(acc.color, 0xc8c8c8u);
    // The preview never corrects: the same first sample is clamped to 1.
    RayAccum plain;
    w = walk_at(4, 4, 4, 1, 4 * 4096, 4 * 4096 - 1024, p);
    surface_cell<SurfaceKind::rbs, CellForm::plane, false>(plain, w, g, p, L, [](const RayWalk&) {});
    EXPECT_EQ(plain.alpha, 1.0f);
    EXPECT_EQ(plain.color, 0x646464u);
}

TEST(RbsPasses, NoLightShowsPureTransferFunctionColours)
{
    // One sample of opacity 1 ends the ray: the pixel is the sample's colour, exactly when the
    // light is off, pulled toward white with the default light.
    for (uint8_t interp : {interp_none, interp_bilinear, interp_trilinear}) {
        one_ray_scene();
        slab_grid([](int x) { return x >= 5 ? 3000u : 0u; }, 1.0f, 0.0f, 0.6f, 0.8f);
        tables(1.0f, 0x3c7a11u);
        color_lut[0] = 0x3c7a11u;  // the march blends in the margin's colour at the edge
        interp_mode = interp;
        no_light();
        run(render_rbs_preview);
        EXPECT_EQ(pixel(0, 0), 0x3c7a11u) << (int)interp;
        run(interp == interp_trilinear ? render_rbs_final_trilinear : render_rbs_final);
        EXPECT_EQ(pixel(0, 0), 0x3c7a11u) << (int)interp;
        light_diffuse = 0.35f, light_specular = 0.55f;
        run(interp == interp_trilinear ? render_rbs_final_trilinear : render_rbs_final);
        EXPECT_NE(pixel(0, 0), 0x3c7a11u) << (int)interp;
        // Full ambient: the light colour up to the one-level loss of a rising byte.
        light_diffuse = light_specular = 0.0f, light_ambient = 1.0f;
        light_color = 0x80c0ffu;
        run(interp == interp_trilinear ? render_rbs_final_trilinear : render_rbs_final);
        EXPECT_EQ(pixel(0, 0), 0x7fbffeu) << (int)interp;
    }
}

TEST(RbsPasses, FirstSampleStopWithFaintWhisps)
{
    // The eye inside a uniform grid, voxel samples: the first cell has a = 1 * 1 * 0.975
    // (corrected over the ray's first, huge distance in the final, which keeps it near 1).
    start_fresh();
    refresh = 0;
    set_image(3, 3);
    make_grid(9, 7, 11, [](int, int, int) { return 2000u; });
    for (size_t i = 0; i < (size_t)9 * 7 * 11; ++i) gradients[i] = {0.0f, 0.0f, 1.0f, 1.0f};
    tables(0.975f, 0xffffffu);
    no_light();
    set_camera(4.5f, 3.5f, 5.5f, 0.2f, 0.1f, 1.0f, 0.0f, 1.0f, 0.0f);
    interp_mode = interp_none;
    faint_whisps = 1;
    run(render_rbs_preview);
    for (uint32_t y = 0; y < 3; ++y)
        for (uint32_t x = 0; x < 3; ++x) ASSERT_EQ(pixel(x, y), 0xf1f1f1u);  // 248, then 241
    faint_whisps = 0;
    rbs_alpha_correction = 0;
    run(render_rbs_final);
    EXPECT_EQ(pixel(1, 1), 0xf8f8f8u);
    // Just below the threshold the ray goes on: 0.97 then 0.97 * 0.03: 247, then 254.
    tables(0.97f, 0xffffffu);
    run(render_rbs_final);
    EXPECT_EQ(pixel(1, 1), 0xfefefeu);
}

TEST(RbsPasses, DissolveAndPreShadingDoNothingWithPlaneSamples)
{
    start_fresh();
    refresh = 0;
    set_image(23, 17);
    make_grid(19, 15, 13, [](int x, int y, int z) {
        return (uint32_t)((x * 7 + y * 13 + z * 29) % 11 < 6 ? 900 + ((x * 131 + y * 71 + z * 37) % 2000) : 0);
    });
    for (int d = 0; d < 4096; ++d) opacity_lut[d] = d < 1200 ? 0.0f : 0.2f + 0.1f * (float)(d % 7);
    set_camera(-15.0f, 20.0f, 25.0f, 1.0f, -0.6f, -0.9f, 0.0f, 1.0f, 0.0f);
    interp_mode = interp_bilinear;
    light_ambient = 0.1f;
    run(render_rbs_final);
    const std::vector<uint32_t> plain = image();
    rbs_dissolve = 1;
    run(render_rbs_final);
    EXPECT_EQ(image(), plain);
    run(render_rbs_preview);
    const std::vector<uint32_t> preview_dissolve = image();
    rbs_dissolve = 0;
    pre_shading = 1;
    run(render_rbs_final);
    EXPECT_EQ(image(), plain);
    run(render_rbs_preview);
    EXPECT_EQ(image(), preview_dissolve);
    // The trilinear final does read both, on this grid.
    pre_shading = 0;
    run(render_rbs_final_trilinear);
    const std::vector<uint32_t> trilinear = image();
    rbs_dissolve = 1;
    run(render_rbs_final_trilinear);
    EXPECT_NE(image(), trilinear);
    rbs_dissolve = 0;
    pre_shading = 1;
    run(render_rbs_final_trilinear);
    EXPECT_NE(image(), trilinear);
}

TEST(RbsPasses, PreviewKeepsTheDepthOfABlackRay)
{
    // The samples are black: the pixel is 0, yet the depth is that of the first positive
    // sample, the crossing into x = 5 at t = 5 (plane x = 5, all four voxels 3000). A first
    // hit would count a black pixel as a miss.
    one_ray_scene();
    slab_grid([](int x) { return x >= 5 ? 3000u : 0u; }, 1.0f);
    tables(0.5f, 0u);
    no_light();
    interp_mode = interp_bilinear;
    run(render_rbs_preview);
    EXPECT_EQ(pixel(0, 0), 0u);
    EXPECT_EQ(depth_at(0, 0), 5u * 4096u);
}

TEST(RbsPasses, FinalPollsEveryLineAndStopsAtOnce)
{
    start_fresh();
    set_image(7, 5);
    make_grid(9, 7, 11, [](int, int, int) { return 2000u; });
    set_camera(-10.0f, 3.5f, 5.5f, 1.0f, 0.0f, 0.05f, 0.0f, 1.0f, 0.0f);
    for (auto pass : {render_rbs_final, render_ics_final}) {
        refresh = 0;
        unsigned pumps = null_gui_pumps;
        run(pass);
        EXPECT_EQ(null_gui_pumps, pumps + 5);
        EXPECT_EQ(null_progress_render, 4.0 / 5);
        // A change waiting: nothing is cast, the image is left as it was.
        for (uint32_t i = 0; i < 35; ++i) render_target.color[i] = 0x123456u;
        refresh = 1;
        pumps = null_gui_pumps;
        run(pass);
        EXPECT_EQ(null_gui_pumps, pumps + 1);
        EXPECT_EQ(pixel(3, 2), 0x123456u);
        refresh = 0;
        color_dialog_open = 1;
        run(pass);
        EXPECT_EQ(pixel(3, 2), 0x123456u);
        color_dialog_open = 0;
    }
    // The trilinear finals poll before every eighth pixel as well: 5 lines, 1 in each.
    for (auto pass : {render_rbs_final_trilinear, render_ics_final_trilinear}) {
        refresh = 0;
        unsigned pumps = null_gui_pumps;
        interp_mode = interp_trilinear;
        run(pass);
        EXPECT_EQ(null_gui_pumps, pumps + 10);
    }
}

// ---------------------------------------------------------------------------------------------
// Isovalue contour surfaces.

TEST(IcsPasses, IsovalueOfZeroOpacityCompositesNothing)
{
    // Density 3000 behind x = 5 (m = 0.01: tent half-width 40.95), isovalue 2999 whose own
    // opacity is 0 while 3000 has 0.5: every gated sample is seen, nothing is composited.
    one_ray_scene();
    slab_grid([](int x) { return x >= 5 ? 3000u : 0u; }, 0.01f);
    tables(0.5f, 0xffffffu);
    no_light();
    isovalue = 2999;
    opacity_lut[2999] = 0.0f;
    for (uint8_t interp : {interp_none, interp_bilinear}) {
        interp_mode = interp;
        clear_image();
        run(render_ics_preview);
        EXPECT_EQ(pixel(0, 0), 0u);
        EXPECT_EQ(depth_at(0, 0), 5u * 4096u) << (int)interp;  // seen at the crossing into x = 5
        run(render_ics_final);
        EXPECT_EQ(pixel(0, 0), 0u);
    }
    // The trilinear final without correction still shows the shell, through o; with it, the
    // isovalue's opacity 0 goes in and nothing shows.
    interp_mode = interp_trilinear;
    ics_alpha_correction = 0;
    run(render_ics_final_trilinear);
    EXPECT_NE(pixel(0, 0), 0u);
    ics_alpha_correction = 1;
    run(render_ics_final_trilinear);
    EXPECT_EQ(pixel(0, 0), 0u);
    // With the isovalue's opacity back the preview shows it.
    opacity_lut[2999] = 0.5f;
    interp_mode = interp_bilinear;
    run(render_ics_preview);
    EXPECT_NE(pixel(0, 0), 0u);
}

TEST(IcsPasses, GateComesBeforeTheTent)
{
    // The isovalue itself transparent: a sample right on it adds nothing and is not even seen.
    one_ray_scene();
    slab_grid([](int x) { return x >= 5 ? 3000u : 0u; }, 0.0f);
    tables(0.5f, 0xffffffu);
    no_light();
    isovalue = 3000;
    opacity_lut[3000] = 0.0f;
    for (uint8_t interp : {interp_none, interp_bilinear}) {
        interp_mode = interp;
        clear_image();
        run(render_ics_preview);
        EXPECT_EQ(pixel(0, 0), 0u);
        EXPECT_EQ(depth_at(0, 0), no_depth) << (int)interp;
    }
}

TEST(IcsPasses, OptionTableOfTheTrilinearFinal)
{
    // Density 3010, isovalue 3000, m = 0.01 (tent half-width 40.95): f = 1 - 10 / 40.95. Which
    // of opacity_lut[3010] (o) and opacity_lut[3000] (the isovalue's) changes the image tells
    // which opacity goes in before the factor.
    one_ray_scene();
    slab_grid([](int x) { return x >= 5 ? 3010u : 0u; }, 0.01f);
    no_light();
    interp_mode = interp_trilinear;
    sample_stepsize = 1.0f;
    isovalue = 3000;
    auto render_with = [&](float o, float iso_opacity) {
        tables(0.0f, 0xffffffu);
        opacity_lut[3010] = o;
        opacity_lut[3000] = iso_opacity;
        run(render_ics_final_trilinear);
        return pixel(0, 0);
    };
    struct Row {
        int correction, dissolve;
        bool reads_o, reads_iso;
    } rows[] = {{0, 0, true, false}, {0, 1, true, false}, {1, 0, false, true}, {1, 1, true, false}};
    for (const Row& r : rows) {
        ics_alpha_correction = r.correction;
        ics_dissolve = r.dissolve;
        const uint32_t base = render_with(0.3f, 0.6f);
        EXPECT_NE(base, 0u);
        EXPECT_EQ(render_with(0.4f, 0.6f) != base, r.reads_o) << r.correction << r.dissolve;
        EXPECT_EQ(render_with(0.3f, 0.9f) != base, r.reads_iso) << r.correction << r.dissolve;
    }
    // Without correction dissolve makes no difference at all.
    ics_alpha_correction = 0;
    ics_dissolve = 0;
    const uint32_t off = render_with(0.3f, 0.6f);
    ics_dissolve = 1;
    EXPECT_EQ(render_with(0.3f, 0.6f), off);
}

TEST(IcsPasses, TwoExtraSurfacesOnTheMainIsovalueMakeTheShellDenser)
{
    // Uniform density 3000 behind x = 5, isovalue 3000, o = 0.5 and no correction: one
    // surface gives a = 0.5 at each sample inside, three give 1 - 0.5^3 = 0.875 (the factor
    // is 1 there, give or take the rounding of the eight weights).
    // One surface: 127, 190, 221, 236, 243, 246 (alpha 0.984375, stop).
    // Three: 223 (0.875), 250 (0.984375, stop).
    one_ray_scene();
    slab_grid([](int x) { return x >= 5 ? 3000u : 0u; }, 0.01f);
    tables(0.5f, 0xffffffu);
    no_light();
    interp_mode = interp_trilinear;
    sample_stepsize = 1.0f;
    ics_alpha_correction = 0;
    isovalue = 3000;
    run(render_ics_final_trilinear);
    EXPECT_EQ(pixel(0, 0), 0xf6f6f6u);
    surface_on[1] = surface_on[3] = 1;
    surface_isovalue[1] = surface_isovalue[3] = 3000;
    run(render_ics_final_trilinear);
    EXPECT_EQ(pixel(0, 0), 0xfafafau);
    // Plane samples know only the main surface.
    interp_mode = interp_bilinear;
    run(render_ics_final);
    const uint32_t with_extras = pixel(0, 0);
    surface_on[1] = surface_on[3] = 0;
    run(render_ics_final);
    EXPECT_EQ(pixel(0, 0), with_extras);
}

TEST(IcsPasses, ExtraSurfaceIsovalueStartsAtZero)
{
    // A fresh start has surface_isovalue 0: switching a surface on without moving its slider
    // puts a shell at density 0, around the empty margin, where the opacity table lets it.
    start_fresh();
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(surface_isovalue[i], 0);
        EXPECT_EQ(surface_on[i], 0);
        EXPECT_EQ(surface_thickness[i], 1.0f);
    }
    one_ray_scene();
    // Real gradients: about 500 / 4095 at the edge of the slab, a tent of 500 around 0 there.
    make_grid(15, 11, 9, [](int x, int, int) { return x >= 5 ? 1000u : 0u; });
    tables(0.5f, 0xffffffu);
    no_light();
    interp_mode = interp_trilinear;
    isovalue = 4000;  // far from any density: the main surface shows nothing
    run(render_ics_final_trilinear);
    EXPECT_EQ(pixel(0, 0), 0u);
    surface_on[2] = 1;
    run(render_ics_final_trilinear);
    EXPECT_NE(pixel(0, 0), 0u);
}

TEST(IcsPasses, FinalKeepsThePixelsThePreviewCast)
{
    start_fresh();
    refresh = 0;
    set_image(70, 40);
    make_grid(19, 15, 13, [](int x, int y, int z) { return (uint32_t)(1000 + ((x * 131 + y * 71 + z * 37) % 2000)); });
    tables(0.3f, 0xffffffu);
    isovalue = 2000;
    ics_thickness = 5.0f;
    set_camera(-15.0f, 20.0f, 25.0f, 1.0f, -0.6f, -0.9f, 0.0f, 1.0f, 0.0f);
    interp_mode = interp_bilinear;
    run(render_ics_preview);
    // Mark every pixel the final must keep; the final overwrites only the others.
    std::vector<uint8_t> mask(render_target.mask, render_target.mask + 70 * 40);
    for (uint32_t i = 0; i < 70 * 40; ++i) render_target.color[i] = 0x00abcdefu;
    run(render_ics_final);
    int kept = 0;
    for (uint32_t y = 0; y < 40; ++y)
        for (uint32_t x = 0; x < 70; ++x) {
            const bool cast = x < 1 || (((x & 31) != 0 || (y & 31) != 0) && mask[y * 70 + x] == 0);
            if (!cast) {
                ASSERT_EQ(pixel(x, y), 0x00abcdefu) << x << ", " << y;
                ++kept;
            } else {
                ASSERT_NE(pixel(x, y), 0x00abcdefu) << x << ", " << y;
            }
        }
    EXPECT_GT(kept, 4);
    // The rbs final casts them all.
    for (uint32_t i = 0; i < 70 * 40; ++i) render_target.color[i] = 0x00abcdefu;
    run(render_rbs_final);
    for (uint32_t i = 0; i < 70 * 40; ++i) ASSERT_NE(render_target.color[i], 0x00abcdefu);
}
