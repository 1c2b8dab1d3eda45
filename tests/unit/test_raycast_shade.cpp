// Surface shading: the power and rational forms of the intensity, the colour rule with its
// toon and pencil variants, occlusion, the paper background. Every expected value is worked
// out by hand in the comment beside it.
#include <gtest/gtest.h>

#include <cmath>

#include "raycast/shade.h"
#include "raycast_helpers.h"

namespace {

// The settings' start values, with a light along +z so that normals are easy to aim.
Lighting light_along_z()
{
    start_fresh();
    light_dir[0] = 0.0f, light_dir[1] = 0.0f, light_dir[2] = 1.0f;
    return current_lighting();
}

const float up_z[3] = {0.0f, 0.0f, 1.0f};

// A unit vector at angle a (radians) from +z in the x-z plane.
void tilted(float a, float* v) { v[0] = sinf(a), v[1] = 0.0f, v[2] = cosf(a); }

// Each byte of c.
int byte(uint32_t c, int k) { return (int)(c >> (8 * k) & 0xff); }

}  // namespace

TEST(Shade, AmbientIsZeroUntilItsSliderMoves)
{
    start_fresh();
    EXPECT_EQ(light_ambient, 0.0f);
    EXPECT_EQ(light_diffuse, 0.35f);
    EXPECT_EQ(light_specular, 0.55f);
    EXPECT_EQ(light_exponent, 16.0f);
    EXPECT_EQ(light_color, 0xffffffu);
    EXPECT_EQ(use_occlusion, 0);
}

TEST(Shade, PowerFormSumsTheThreeTerms)
{
    Lighting l = light_along_z();
    // n = h = l: diffuse 1 * 0.35, specular 1^16 * 0.55, ambient 0: I = 0.9.
    EXPECT_FLOAT_EQ(shade_intensity<false>(l, up_z, up_z, 0.0f), 0.35f + 0.55f);
    // Ambient is added unweighted; the sum is cut at 1.
    l.ambient = 0.05f;
    EXPECT_FLOAT_EQ(shade_intensity<false>(l, up_z, up_z, 0.0f), 0.05f + 0.35f + 0.55f);
    l.ambient = 0.5f;
    EXPECT_EQ(shade_intensity<false>(l, up_z, up_z, 0.0f), 1.0f);
    // h . n = 0.5 with exponent 16: 0.5^16 = 1/65536, times 0.55; l . n = 0.5 gives 0.175.
    l.ambient = 0.0f;
    float n[3], h[3];
    tilted(acosf(0.5f), n);
    EXPECT_NEAR(shade_intensity<false>(l, n, up_z, 0.0f), 0.5f * 0.35f + 0.55f / 65536.0f, 1e-6f);
    // A normal facing away from the light: no diffuse term, not a negative one.
    tilted(2.5f, n);
    tilted(2.5f, h);
    EXPECT_NEAR(shade_intensity<false>(l, n, h, 0.0f), 0.55f, 1e-5f);
    // No lower clamp: a negative ambient stays (h across n: no highlight either).
    l.ambient = -0.25f;
    const float across[3] = {cosf(2.5f), 0.0f, -sinf(2.5f)};
    EXPECT_FLOAT_EQ(shade_intensity<false>(l, n, across, 0.0f), -0.25f);
}

TEST(Shade, NanFromPowfCountsAsNoHighlight)
{
    Lighting l = light_along_z();
    // h . n = -0.5 with a non-integer exponent: powf gives a NaN, which is not >= 0 and becomes
    // 0. The diffuse term stays: l . n = 0.5 gives 0.175.
    l.exponent = 16.5f;
    EXPECT_TRUE(std::isnan(powf(-0.5f, 16.5f)));
    // n at 60 degrees from the light: l . n = 0.5; h = -x: h . n = -sin 60 = -0.866.
    float n[3];
    tilted(acosf(0.5f), n);
    const float h[3] = {-1.0f, 0.0f, 0.0f};
    EXPECT_FLOAT_EQ(shade_intensity<false>(l, n, h, 0.0f), 0.5f * 0.35f);
    // An odd integer exponent gives a negative power, cut to 0 as well; an even one gives a
    // positive power, which counts: (-0.866)^2 = 0.75, times 0.55.
    l.exponent = 3.0f;
    EXPECT_FLOAT_EQ(shade_intensity<false>(l, n, h, 0.0f), 0.5f * 0.35f);
    l.exponent = 2.0f;
    const float x = dot3(h, n);
    EXPECT_FLOAT_EQ(shade_intensity<false>(l, n, h, 0.0f), 0.5f * 0.35f + x * x * 0.55f);
}

TEST(Shade, OcclusionWeightsDiffuseAndSpecularOnly)
{
    Lighting l = light_along_z();
    l.ambient = 0.1f;
    // o = 255 is full light: 0.003921569 * 255 rounds to 1.
    EXPECT_FLOAT_EQ(shade_intensity<true>(l, up_z, up_z, 255.0f), 0.1f + 0.35f + 0.55f);
    // The fresh volume's 0x80 = 128 halves both terms (128/255 = 0.50196), not the ambient.
    const float half = 0.003921569f * 128.0f;
    EXPECT_FLOAT_EQ(shade_intensity<true>(l, up_z, up_z, 128.0f), 0.1f + 0.35f * half + 0.55f * half);
    // o = 0: ambient alone.
    EXPECT_FLOAT_EQ(shade_intensity<true>(l, up_z, up_z, 0.0f), 0.1f);
    // Without use_occlusion o plays no part.
    EXPECT_FLOAT_EQ(shade_intensity<false>(l, up_z, up_z, 0.0f), 0.1f + 0.35f + 0.55f);
}

TEST(Shade, RationalFormWithoutThePowerOrOcclusion)
{
    Lighting l = light_along_z();
    // x = 1 gives 1: I = 0.35 + 0.55.
    EXPECT_FLOAT_EQ(shade_intensity_rational(l, up_z, up_z), 0.9f);
    // x = 0 gives 0: h perpendicular to n, diffuse 0.35 along the light.
    const float across[3] = {1.0f, 0.0f, 0.0f};
    EXPECT_FLOAT_EQ(shade_intensity_rational(l, up_z, across), 0.35f);
    // x = 0.5, e = 16: 0.5 / (16 - 8 + 0.5) = 1/17, times 0.55; l . n = 0.5.
    float n[3];
    tilted(acosf(0.5f), n);
    EXPECT_NEAR(shade_intensity_rational(l, n, up_z), 0.5f * 0.35f + 0.55f / 17.0f, 1e-6f);
}

TEST(Shade, PlainRuleMovesTowardTheLight)
{
    Lighting l = light_along_z();
    // I = 1: w = 32767, and a byte 0 moves to (255 * 32767) >> 15 = 254, not 255.
    EXPECT_EQ(intensity_weight(1.0f), 32767);
    EXPECT_EQ((shade_color<Look::plain, false>(l, 1.0f, 0x000000u, 0.0f, 0, 0)), 0xfefefeu);
    // I = 0 leaves the transfer-function colour.
    EXPECT_EQ((shade_color<Look::plain, false>(l, 0.0f, 0x123456u, 0.0f, 0, 0)), 0x123456u);
    // A coloured light: I = 0.5, w = 16383: 0x40 toward 0xc0 moves by (128 * 16383) >> 15 = 63.
    l.color = 0xc00000u;
    EXPECT_EQ((shade_color<Look::plain, false>(l, 0.5f, 0x404040u, 0.0f, 0, 0)), 0x7f2020u);
    // The rule is the same for the abstract view's caller.
    EXPECT_EQ(shade_plain(0.5f, 0x404040u, 0xc00000u), 0x7f2020u);
}

TEST(Shade, ToonBandsScaleAndMove)
{
    Lighting l = light_along_z();
    const uint32_t c = 0xc8c8c8u;  // 200 in each byte
    // Above 0.7: band 1, w = 32767: 200 -> (200 * 32767) >> 15 = 199 -> 199 + ((56 * 32767) >> 15)
    // = 199 + 55 = 254.
    EXPECT_EQ((shade_color<Look::toon, false>(l, 0.71f, c, 0.0f, 0, 0)), 0xfefefeu);
    EXPECT_EQ((shade_color<Look::toon, false>(l, 1.0f, c, 0.0f, 0, 0)), 0xfefefeu);
    // 0.5 < I <= 0.7: band 0.7, w = trunc(0.7f * 32767) = 22936: 200 -> 4587200 >> 15 = 139 ->
    // 139 + ((116 * 22936) >> 15) = 139 + 81 = 220.
    EXPECT_EQ((shade_color<Look::toon, false>(l, 0.7f, c, 0.0f, 0, 0)), 0xdcdcdcu);
    EXPECT_EQ((shade_color<Look::toon, false>(l, 0.51f, c, 0.0f, 0, 0)), 0xdcdcdcu);
    // I <= 0.5: band 0.3, w = 9830: 200 -> 1966000 >> 15 = 59 -> 59 + ((196 * 9830) >> 15) = 59 + 58
    // = 117.
    EXPECT_EQ((shade_color<Look::toon, false>(l, 0.5f, c, 0.0f, 0, 0)), 0x757575u);
    EXPECT_EQ((shade_color<Look::toon, false>(l, -1.0f, c, 0.0f, 0, 0)), 0x757575u);
    // Without use_occlusion o has no effect.
    EXPECT_EQ((shade_color<Look::toon, false>(l, 0.5f, c, 255.0f, 0, 0)), 0x757575u);
    EXPECT_EQ((shade_color<Look::toon, false>(l, 0.5f, c, 0.0f, 0, 0)), 0x757575u);
}

TEST(Shade, ToonDarkBandWithOcclusionLevels)
{
    Lighting l = light_along_z();
    const uint32_t c = 0xc8c8c8u;
    // o = 255 (light level 1 > 0.75): g = 0.99, band 0.297, w = trunc(0.99f * 0.3f * 32767) = 9731:
    // 200 -> 1946200 >> 15 = 59 -> 59 + ((196 * 9731) >> 15) = 59 + 58 = 117.
    EXPECT_EQ(trunc_i32(0.99f * 0.3f * 32767.0f), 9731);
    EXPECT_EQ((shade_color<Look::toon, true>(l, 0.4f, c, 255.0f, 0, 0)), 0x757575u);
    // o = 128 (level 0.502 > 0.5): g = 0.75, w = 7372: 200 -> 1474400 >> 15 = 44 ->
    // 44 + ((211 * 7372) >> 15) = 44 + 47 = 91.
    EXPECT_EQ((shade_color<Look::toon, true>(l, 0.4f, c, 128.0f, 0, 0)), 0x5b5b5bu);
    // o = 100 (level 0.39): g = 0.5, w = 4915: 200 -> 983000 >> 15 = 29 -> 29 + ((226 * 4915) >> 15)
    // = 29 + 33 = 62.
    EXPECT_EQ((shade_color<Look::toon, true>(l, 0.4f, c, 100.0f, 0, 0)), 0x3e3e3eu);
    // The light bands ignore occlusion.
    EXPECT_EQ((shade_color<Look::toon, true>(l, 0.7f, c, 0.0f, 0, 0)), 0xdcdcdcu);
}

TEST(Shade, PencilPicksTexturesByBandAndIgnoresTheColour)
{
    Lighting l = light_along_z();
    // Pixel (70, 3): texel (70 & 63) + (3 & 63) * 64 = 6 + 192 = 198. Hit texels do not scroll.
    const uint32_t t = 198;
    tex_scroll_x = 17, tex_scroll_y = 5;
    EXPECT_EQ((shade_color<Look::pencil, false>(l, 0.8f, 0xff0000u, 0.0f, 70, 3)), pencil_tex[1][t]);
    EXPECT_EQ((shade_color<Look::pencil, false>(l, 0.7f, 0x00ff00u, 0.0f, 70, 3)), pencil_tex[2][t]);
    EXPECT_EQ((shade_color<Look::pencil, false>(l, 0.5f, 0x0000ffu, 0.0f, 70, 3)), pencil_tex[3][t]);
    EXPECT_EQ((shade_color<Look::pencil, false>(l, 0.3f, 0x000000u, 0.0f, 70, 3)), pencil_tex[4][t]);
    // The darkest with occlusion: each byte scaled by g, here 0.75 (o = 128): w = 24575.
    const uint32_t dark = pencil_tex[4][t];
    uint32_t want = 0;
    for (int k = 0; k < 4; ++k) want |= (uint32_t)((byte(dark, k) * 24575) >> 15) << (8 * k);
    EXPECT_EQ(trunc_i32(0.75f * 32767.0f), 24575);
    EXPECT_EQ((shade_color<Look::pencil, true>(l, 0.3f, 0, 128.0f, 70, 3)), want);
    EXPECT_NE(want, dark);
}

TEST(Shade, PaperBackground)
{
    Lighting l = light_along_z();
    // Without pencil the background is black; with it, texture 0 at the pixel's texel.
    EXPECT_EQ(paper_color(false, l, 70, 3), 0u);
    EXPECT_EQ(paper_color(true, l, 70, 3), pencil_tex[0][198]);
    // The masks wrap: pixel (64 + 6, 64 + 3) has the same texel.
    EXPECT_EQ(paper_color(true, l, 70, 67), pencil_tex[0][198]);
}

TEST(Shade, LookFollowsTheToggles)
{
    start_fresh();
    EXPECT_EQ(current_look(), Look::plain);
    toon_shading = 1;
    EXPECT_EQ(current_look(), Look::toon);
    pencil_sketch = 1;
    EXPECT_EQ(current_look(), Look::pencil);
    // Pencil without toon (only --set can make it): the tests go in order, and toon off is plain.
    toon_shading = 0;
    EXPECT_EQ(current_look(), Look::plain);
}
