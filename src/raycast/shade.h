// shade.h — surface shading, written once and inlined wherever a surface is lit: the scalar
// intensity of ambient, diffuse and specular light (a power form for hits shaded after the
// crossing is found, a rational form without the maths library for pre-shaded hits and the
// abstract view), and the colour rule that moves a surface colour toward the light colour by
// that intensity, with its toon and pencil variants and the darkening by precalculated
// occlusion. Also the background of the first-hit passes: black, or the paper texture.
//
// Used by the first-hit passes (firsthit.cpp) and by any pass that lights a surface (the
// abstract view uses shade_intensity_rational and shade_plain). Reads the light settings only
// through a Lighting record that a pass fills once per line (current_lighting), the pencil
// textures and nothing else; writes nothing.
//
// powf is the one function of the maths library used here, once per hit.
#pragma once
#include <cmath>
#include <cstdint>

#include "core/core.h"
#include "raycast/raycast.h"
#include "raycast/walk.h"

// The light settings a shaded pass reads, copied into a local once per line so that no hit
// reads a global.
struct Lighting {
    float ambient, diffuse, specular, exponent;  // light_ambient ... light_exponent
    float dir[3];                                // light_dir, a unit vector
    uint32_t color;                              // light_color, the colour surfaces move toward
    int mask_x, mask_y;                          // pencil_mask_x, pencil_mask_y
};
TAVOK_INLINE Lighting current_lighting()
{
    Lighting l;
    l.ambient = light_ambient, l.diffuse = light_diffuse, l.specular = light_specular;
    l.exponent = light_exponent;
    l.dir[0] = light_dir[0], l.dir[1] = light_dir[1], l.dir[2] = light_dir[2];
    l.color = light_color;
    l.mask_x = pencil_mask_x, l.mask_y = pencil_mask_y;
    return l;
}

TAVOK_INLINE float dot3(const float* a, const float* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// 1/255: an occlusion value o of 0..255 as a fraction of full light.
constexpr float occlusion_scale = 0.003921569f;

// The intensity of the light on a surface of unit normal n seen along the unit half vector h,
// with s the specular base (from h . n) already computed by the caller's form. The diffuse
// term is l . n, cut to 0 when negative; the specular one is cut to 0 when it is not >= 0, so
// that the NaN of powf of a negative base with a non-integer exponent counts as no highlight.
// With occlusion both are weighted by o / 255; the ambient term never is. I is clamped to 1
// from above only: its terms are not negative in normal use.
template <bool occlusion>
TAVOK_INLINE float light_terms(const Lighting& l, const float* n, float s, float o)
{
    float d = dot3(l.dir, n);
    if (d < 0.0f) d = 0.0f;
    d *= l.diffuse;
    if (occlusion) d *= occlusion_scale * o;
    if (!(s >= 0.0f)) s = 0.0f;
    s *= l.specular;
    if (occlusion) s *= occlusion_scale * o;
    float I = l.ambient + d + s;
    if (I > 1.0f) I = 1.0f;
    return I;
}

// The power form, for hits shaded after the crossing is found (post-shading): the specular
// base is powf(h . n, light_exponent). o is the occlusion value at the hit, 0..255, used only
// with occlusion (use_occlusion).
template <bool occlusion>
TAVOK_INLINE float shade_intensity(const Lighting& l, const float* n, const float* h, float o)
{
    return light_terms<occlusion>(l, n, powf(dot3(h, n), l.exponent), o);
}

// The rational form, for pre-shaded hits and the abstract view: with x = h . n and e the
// exponent, the specular base is x / (e - e x + x), one division in place of the power (1 at
// x = 1, 0 at x = 0). Occlusion is never applied. A zero denominator (x = e / (e - 1)) gives
// what the floats give.
TAVOK_INLINE float shade_intensity_rational(const Lighting& l, const float* n, const float* h)
{
    const float x = dot3(h, n), e = l.exponent;
    return light_terms<false>(l, n, x / (e - e * x + x), 0.0f);
}

// An intensity as a 15-bit fraction for color_lerp: truncate(I * 32767). I = 1 gives 32767,
// which moves a byte 0 toward 255 only to 254.
TAVOK_INLINE int32_t intensity_weight(float I) { return trunc_i32(I * 32767.0f); }

// The plain colour rule: base moved toward the light colour by I. Lighting makes a surface
// lighter, never darker: I = 0 leaves the transfer-function colour, I = 1 gives nearly the light
// colour, so a white light bleaches highlights and an unlit face keeps its full colour.
TAVOK_INLINE uint32_t shade_plain(float I, uint32_t base, uint32_t light)
{
    return color_lerp(base, light, intensity_weight(I));
}

// Each byte (top byte too) scaled by a 15-bit fraction: (c * w) >> 15.
TAVOK_INLINE uint32_t color_scale(uint32_t c, int32_t w)
{
    uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8)
        out |= (uint32_t)(((int32_t)((c >> shift) & 0xff) * w) >> 15 & 0xff) << shift;
    return out;
}

// The looks of a lit surface: the plain rule (toon_shading off), toon bands (toon on, pencil
// off), and pencil strokes (pencil_sketch on, which the panel allows only with toon on).
enum class Look { plain, toon, pencil };
TAVOK_INLINE Look current_look()
{
    if (!toon_shading) return Look::plain;
    return pencil_sketch ? Look::pencil : Look::toon;
}

// The texel of pixel (x, y) in a 64 x 64 pencil texture.
TAVOK_INLINE uint32_t texel_index(const Lighting& l, uint32_t x, uint32_t y)
{
    return (x & (uint32_t)l.mask_x) + (y & (uint32_t)l.mask_y) * (uint32_t)(l.mask_x + 1);
}

// The shaded colour of a hit at pixel (x, y): intensity I, transfer-function colour base,
// occlusion value o (0..255; looked at only with occlusion).
//   plain:  base moved toward the light colour by I.
//   toon:   I in three bands, above 0.7 full light, above 0.5 0.7, else 0.3, which with
//           occlusion is darkened further by the occlusion level g (0.99 above three quarters
//           of full light, 0.75 above half, else 0.5); each byte is first scaled by the band
//           and then moved toward the light colour by it: the dark band is the darkest.
//   pencil: the transfer-function colour is not used; the band picks one of the four stroke
//           textures of rising darkness, whose darkest is, with occlusion, scaled by g.
// Hit texels do not scroll: (x, y) are the pixel's own coordinates.
template <Look look, bool occlusion>
TAVOK_INLINE uint32_t shade_color(const Lighting& l, float I, uint32_t base, float o, uint32_t x,
                                  uint32_t y)
{
    if (look == Look::plain) return shade_plain(I, base, l.color);
    const float light_level = occlusion_scale * o;
    const float g = light_level > 0.75f ? 0.99f : light_level > 0.5f ? 0.75f : 0.5f;
    if (look == Look::toon) {
        float band;
        if (I > 0.7f) band = 1.0f;
        else if (I > 0.5f) band = 0.7f;
        else band = occlusion ? g * 0.3f : 0.3f;
        const int32_t w = intensity_weight(band);
        return color_lerp(color_scale(base, w), l.color, w);
    }
    const uint32_t t = texel_index(l, x, y);
    if (I > 0.7f) return pencil_tex[1][t];
    if (I > 0.5f) return pencil_tex[2][t];
    if (I > 0.3f) return pencil_tex[3][t];
    if (occlusion) return color_scale(pencil_tex[4][t], intensity_weight(g));
    return pencil_tex[4][t];
}

// The background of a first-hit pass where a ray saw nothing: black, or with pencil_sketch
// the paper (texture 0), so that the whole picture is drawn on it. The finals take the pixel's
// own texel; the preview slides the paper by tex_scroll_x, tex_scroll_y, which follow the
// mouse, so that during a drag the paper moves under the drawing.
TAVOK_INLINE uint32_t paper_color(bool paper, const Lighting& l, uint32_t x, uint32_t y)
{
    return paper ? pencil_tex[0][texel_index(l, x, y)] : 0u;
}
