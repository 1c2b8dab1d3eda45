// surfaces.h — the work at a sample of the two lit compositing modes, region boundary surfaces
// (rbs, mode 8) and isovalue contour surfaces (ics, mode 10), written once and inlined into
// their six passes (surfaces.cpp): the shade weight and lit colour, the alpha correction, the
// front-to-back compositing step with its byte-packed accumulator, the pixel finish, the
// contour tent, and the sample at a visited cell (voxel or plane sample) and at a march
// position (trilinear). The two modes differ only in the opacity of a sample
// (SurfaceKind); everything else here is theirs in common.
//
// Included by surfaces.cpp and the tests. Reads nothing but what it is given: the settings
// reach it through SurfaceLocals, filled once per line from the globals.
#pragma once
#include <cmath>
#include <cstdint>

#include "composite/composite.h"
#include "core/core.h"
#include "raycast/final.h"
#include "raycast/raycast.h"
#include "raycast/sample.h"
#include "raycast/walk.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// A ray ends once its accumulated opacity reaches this (the float 0x3f79999a).
constexpr float early_stop_alpha = 0.975f;

// ---------------------------------------------------------------------------------------------
// The light, held in locals for a line.
struct ShadeLocals {
    float half_vector[3], light_dir[3];
    float exponent, diffuse, specular, ambient;
    uint32_t light_color;
};
inline ShadeLocals shade_locals()
{
    return {{half_vector[0], half_vector[1], half_vector[2]},
            {light_dir[0], light_dir[1], light_dir[2]},
            light_exponent, light_diffuse, light_specular, light_ambient, light_color};
}

// How much a sample is pulled toward the light colour: ambient plus diffuse plus specular, at
// most 1. The specular power is Schlick's rational form q / (k - q k + q), no power function.
// With an occlusion factor (with_occ) diffuse and specular are multiplied by it as it stands:
// the raw upper half of the voxel word, 0..255 (128 after a load), not divided by 255, so
// anything but a fully occluded sample saturates toward the light.
template <bool with_occ>
TAVOK_INLINE float shade_weight(const ShadeLocals& L, const float* n, float occ)
{
    float q = n[0] * L.half_vector[0] + n[1] * L.half_vector[1] + n[2] * L.half_vector[2];
    const float e = n[0] * L.light_dir[0] + n[1] * L.light_dir[1] + n[2] * L.light_dir[2];
    q = q / ((L.exponent - q * L.exponent) + q);
    float diffuse = (e > 0.0f ? e : 0.0f) * L.diffuse;
    if (with_occ) diffuse = diffuse * occ;
    float specular = (q > 0.0f ? q : 0.0f) * L.specular;
    if (with_occ) specular = specular * occ;
    const float sum = L.ambient + diffuse + specular;
    return sum < 1.0f ? sum : 1.0f;
}

// The lit colour: c pulled toward the light colour by the shade weight, so that weight 0 keeps
// the transfer-function colour (shading never darkens toward black).
template <bool with_occ>
TAVOK_INLINE uint32_t lit_color(const ShadeLocals& L, uint32_t c, const float* n, float occ)
{
    return color_lerp(c, L.light_color, trunc_i32(shade_weight<with_occ>(L, n, occ) * 32767.0f));
}

// Opacity x corrected for the sample distance s: u = 1 - x, u / ((s u - s) - u) + 1, which is
// 1 - u / (s - s u + u), Schlick's rational form of 1 - (1 - x)^s. x = 0 gives exactly 0 for
// any finite s; x above 1 can give a negative result.
TAVOK_INLINE float correct_alpha(float x, float s)
{
    const float u = 1.0f - x;
    return u / ((s * u - s) - u) + 1.0f;
}

// min(a, 1) as the passes clamp: an undefined quotient (NaN) comes out as 1.
TAVOK_INLINE float at_most_one(float a) { return a < 1.0f ? a : 1.0f; }

// ---------------------------------------------------------------------------------------------
// The state of one ray. The colour accumulator is the packed word itself: it is unpacked,
// added to, truncated and repacked at every sample, so that each sample's contribution is cut
// to whole grey levels (an accumulator in floats gives a different, brighter image).
struct RayAccum {
    uint32_t color = 0;  // 0x00RRGGBB
    float alpha = 0.0f;  // accumulated opacity
    bool seen = false;   // a sample of positive opacity was met
};

// Front to back: each channel becomes trunc(c * a * T + acc), clamped to 0..255, with
// T = 1 - alpha; alpha += a T. True when the ray ends (alpha reached 0.975).
TAVOK_INLINE bool composite_sample(RayAccum& r, uint32_t c, float a)
{
    const float T = 1.0f - r.alpha;
    uint32_t out = 0;
    for (int shift = 16; shift >= 0; shift -= 8) {
        const float v = (float)((c >> shift) & 0xff) * a * T + (float)((r.color >> shift) & 0xff);
        int32_t i = trunc_i32(v);
        i = i < 0 ? 0 : i > 255 ? 255 : i;
        out |= (uint32_t)i << shift;
    }
    r.alpha = a * T + r.alpha;
    r.color = out;
    return r.alpha >= early_stop_alpha;
}

// The pixel of a finished ray: black when nothing was seen; otherwise the accumulated colour,
// with faint whisps weighted once more by the total opacity, w = trunc(alpha * 32767), each
// channel (c * w) >> 15, so thin rays fade toward the background. A negative total opacity
// (possible only after a correction of an opacity above 1) gives black channels, not wrapped
// bytes.
template <bool faint>
TAVOK_INLINE uint32_t finish_pixel(const RayAccum& r)
{
    if (!r.seen) return 0;
    if (!faint) return r.color;
    const int32_t w = trunc_i32(r.alpha * 32767.0f);
    uint32_t out = 0;
    for (int shift = 16; shift >= 0; shift -= 8) {
        const int32_t v = ((int32_t)((r.color >> shift) & 0xff) * w) >> 15;
        out |= (uint32_t)(v < 0 ? 0 : v) << shift;
    }
    return out;
}
inline uint32_t finish_pixel(const RayAccum& r, bool faint)
{
    return faint ? finish_pixel<true>(r) : finish_pixel<false>(r);
}

// ---------------------------------------------------------------------------------------------
// The contour tent of the ics mode: 1 at the isovalue, falling linearly to 0 at thick * 4095 *
// m density units from it (4095 turns the stored magnitude back into density per voxel).
// A density that truncates to the isovalue where m truncates to 0 is full strength, so that a
// flat region at the isovalue still shows; m <= 0 otherwise gives 0. Both edges of the tent
// count as inside.
//
// The last step is (|iso - d| / (m * -4095)) / thick + 1. The trilinear final shares the
// reciprocal 1 / (m * -4095) among its surfaces and multiplies by it (shared_reciprocal),
// which rounds differently from the division; recip is that reciprocal, formed only when
// m > 0 (contour_reciprocal).
template <bool shared_reciprocal = false>
TAVOK_INLINE float contour_factor(float d, float m, int iso, float thick, float recip = 0.0f)
{
    if (trunc_i32(d) == iso && trunc_i32(m) == 0) return 1.0f;
    if (m <= 0.0f) return 0.0f;
    const float r = thick * 4095.0f * m;
    const float fiso = (float)iso;
    if (fiso < d - r || fiso > d + r) return 0.0f;
    if (shared_reciprocal) return (fabsf(fiso - d) * recip) / thick + 1.0f;
    return (fabsf(fiso - d) / (m * -4095.0f)) / thick + 1.0f;
}
TAVOK_INLINE float contour_reciprocal(float m) { return m > 0.0f ? 1.0f / (m * -4095.0f) : 0.0f; }

// ---------------------------------------------------------------------------------------------
// Settings of the two modes, held in locals for a line.
enum class SurfaceKind { rbs, ics };

struct SurfaceLocals {
    const float* opacity;   // opacity_lut
    const uint32_t* colors; // color_lut
    ShadeLocals light;
    float grad_dep;         // rbs_grad_dep
    int isovalue;
    float iso_opacity;      // opacity_lut[isovalue]
    float thickness;        // ics_thickness
    float stepsize;         // sample_stepsize
    int extra_count;        // extra ics surfaces switched on, in the order 1 to 4
    int extra_isovalue[4];
    float extra_thickness[4];
};
inline SurfaceLocals surface_locals()
{
    SurfaceLocals L;
    L.opacity = opacity_lut;
    L.colors = color_lut;
    L.light = shade_locals();
    L.grad_dep = rbs_grad_dep;
    L.isovalue = isovalue;
    L.iso_opacity = opacity_lut[(uint32_t)isovalue & density_mask];
    L.thickness = ics_thickness;
    L.stepsize = sample_stepsize;
    L.extra_count = 0;
    for (int i = 0; i < 4; ++i)
        if (surface_on[i]) {
            L.extra_isovalue[L.extra_count] = surface_isovalue[i];
            L.extra_thickness[L.extra_count] = surface_thickness[i];
            ++L.extra_count;
        }
    return L;
}

// The opacity at an interpolated density d: linear between the two table entries around it,
// (d - i) op[j] + (j - d) op[i], i = trunc(d), j = i + 1 (4095 at the top, where both weights
// are then 0). Densities from the samplers lie in 0..4095 but for the trilinear march's first
// sample, whose fractions come from a position that may lie just outside the grid (a
// fraction below 0 weighs a corner negatively): such a density is taken at the nearer end of
// the table instead of reading beside it.
TAVOK_INLINE float opacity_at_density(const float* opacity, float d)
{
    d = d > 0.0f ? (d < 4095.0f ? d : 4095.0f) : 0.0f;
    const int32_t i = trunc_i32(d);
    const int32_t j = i + 1 < 4096 ? i + 1 : 4095;
    return (d - (float)i) * opacity[j] + ((float)j - d) * opacity[i];
}

// The compositing step of a sample whose colour is formed only when it can show: when even a
// channel of 255 would add less than 0.99 of a level, (255 a) T < 0.99, no channel of the
// accumulator can change (the products c a T grow with c, and acc + p with p < 0.99 stays
// below acc + 1 after rounding), so only the opacity is accumulated and the lit colour,
// with its gradient reads, normalising and shading, is never made. The result is the one
// composite_sample gives, bit for bit: it is composite_sample with the colour left out where
// it cannot matter. A negative, undefined or infinite product takes the full step.
template <class Color>
TAVOK_INLINE bool composite_lazy(RayAccum& r, float a, Color&& color)
{
    const float T = 1.0f - r.alpha;
    if (a >= 0.0f && 255.0f * a * T < 0.99f) {
        r.alpha = a * T + r.alpha;
        return r.alpha >= early_stop_alpha;
    }
    return composite_sample(r, color(), a);
}

// n / max(|n|, 0.001), multiplied by the reciprocal: the one normalising rule.
TAVOK_INLINE void normalize_normal(float* n)
{
    float length = sqrtf(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (length <= 0.001f) length = 0.001f;
    const float inverse = 1.0f / length;
    n[0] *= inverse, n[1] *= inverse, n[2] *= inverse;
}

// ---------------------------------------------------------------------------------------------
// The sample at a cell of the walk (previews and the two non-trilinear finals).
//
// form: voxel sample (interp_mode 0), plane sample (otherwise), plane sample shaded with the
// current cell's occlusion (use_occlusion). corrected: the rbs final's alpha correction with
// s = (cross_t - prev_cross_t) / 4096 (the ics passes of this kind never correct). on_seen(w)
// runs once, at the ray's first sample of positive opacity (the preview stores its depth
// there). p is the ray's start, for the plane sample. Returns true when the ray ends.
enum class CellForm { voxel, plane, plane_occlusion };

template <SurfaceKind kind, CellForm form, bool corrected, class Seen>
TAVOK_INLINE bool surface_cell(RayAccum& acc, const RayWalk& w, const GridView& g, const float* p,
                               const SurfaceLocals& L, Seen&& on_seen)
{
    const float* const op = L.opacity;
    if (form == CellForm::voxel) {
        const uint32_t v = voxel_word(g.voxels, (size_t)w.index) & density_mask;
        const float o = op[v];
        if (o <= 0.0f) return false;
        if (!acc.seen) acc.seen = true, on_seen(w);
        const GradientRecord& r = g.gradients[w.index];
        float a;
        if (kind == SurfaceKind::rbs) {
            a = r.magnitude * L.grad_dep * o;
            if (corrected)
                a = correct_alpha(a, (float)wrap_sub(w.cross_t, w.prev_cross_t) * 0.00024414062f);
            a = at_most_one(a);
        } else {
            a = contour_factor((float)v, r.magnitude, L.isovalue, L.thickness) * L.iso_opacity;
        }
        return composite_lazy(acc, a, [&] {
            const float n[3] = {r.nx, r.ny, r.nz};
            return lit_color<false>(L.light, L.colors[v], n, 0.0f);
        });
    } else {
        PlaneSample s;
        if (!plane_sample(w, g, p, w.dir, s)) return false;
        const size_t i00 = s.base, i10 = s.base + s.step_b, i01 = s.base + s.step_c,
                     i11 = s.base + s.step_b + s.step_c;
        const uint32_t d00 = voxel_word(g.voxels, i00) & density_mask,
                       d10 = voxel_word(g.voxels, i10) & density_mask,
                       d01 = voxel_word(g.voxels, i01) & density_mask,
                       d11 = voxel_word(g.voxels, i11) & density_mask;
        const float o = plane_blend(s, op[d00], op[d10], op[d01], op[d11]);
        if (o <= 0.0f) return false;
        if (!acc.seen) acc.seen = true, on_seen(w);
        const GradientRecord* const gr = g.gradients;
        const float d = plane_blend(s, (float)d00, (float)d10, (float)d01, (float)d11);
        const float m = plane_blend(s, gr[i00].magnitude, gr[i10].magnitude, gr[i01].magnitude,
                                    gr[i11].magnitude);
        float a;
        if (kind == SurfaceKind::rbs) {
            a = opacity_at_density(op, d) * m * L.grad_dep;
            if (corrected)
                a = correct_alpha(a, (float)wrap_sub(w.cross_t, w.prev_cross_t) * 0.00024414062f);
            // No lower clamp: a corrected opacity above 1 can come out negative.
            a = at_most_one(a);
        } else {
            a = contour_factor(d, m, L.isovalue, L.thickness) * L.iso_opacity;
        }
        return composite_lazy(acc, a, [&] {
            float n[3];
            plane_sample_normal(s, g, n);
            normalize_normal(n);
            const uint32_t c = plane_color(s, L.colors[d00], L.colors[d10], L.colors[d01], L.colors[d11]);
            constexpr bool with_occ = form == CellForm::plane_occlusion;
            const float occ = with_occ ? (float)(voxel_word(g.voxels, (size_t)w.index) >> 16) : 0.0f;
            return lit_color<with_occ>(L.light, c, n, occ);
        });
    }
}

// ---------------------------------------------------------------------------------------------
// The sample at a position of the trilinear march (the two trilinear finals).
//
// shading: pre (each corner's colour lit by its stored normal before the colours are
// blended; no occlusion ever), post (the blended colour lit by the normalised interpolated
// normal), post with the interpolated occlusion. corrected: the mode's alpha correction with
// s = sample_stepsize. dissolve: rbs "Modified Classification" (the interpolated classified
// opacity instead of the opacity at the interpolated density); ics: the interpolated
// opacity instead of the isovalue's before the correction. Returns true when the ray ends.
enum class Shading { pre, post, post_occlusion };

template <SurfaceKind kind, Shading shading, bool corrected, bool dissolve>
TAVOK_INLINE bool surface_march_sample(RayAccum& acc, const GridView& g, const int32_t* cell,
                                       const float* pos, const SurfaceLocals& L)
{
    const float* const op = L.opacity;
    Corners k;
    trilinear_corners(g, cell, pos, k);
    uint32_t d[8];
    for (int n = 0; n < 8; ++n) d[n] = voxel_word(g.voxels, k.index[n]) & density_mask;
    float o = k.w[0] * op[d[0]];
    for (int n = 1; n < 8; ++n) o += k.w[n] * op[d[n]];
    if (o <= 0.0f) return false;
    acc.seen = true;
    const GradientRecord* const gr = g.gradients;
    float m = k.w[0] * gr[k.index[0]].magnitude;
    for (int n = 1; n < 8; ++n) m += k.w[n] * gr[k.index[n]].magnitude;
    auto density = [&] {
        float sum = k.w[0] * (float)d[0];
        for (int n = 1; n < 8; ++n) sum += k.w[n] * (float)d[n];
        return sum;
    };
    float a;
    if (kind == SurfaceKind::rbs) {
        if (!dissolve) o = opacity_at_density(op, density());
        if (!corrected) {
            a = o * L.grad_dep * m;
        } else {
            a = correct_alpha(at_most_one(m * o * L.grad_dep), L.stepsize);
        }
        a = at_most_one(a);
    } else {
        const float dd = density();
        const float recip = contour_reciprocal(m);
        const float b = dissolve ? o : L.iso_opacity;
        float f = contour_factor<true>(dd, m, L.isovalue, L.thickness, recip);
        a = corrected ? correct_alpha(f * b, L.stepsize) : f * o;
        float T = 1.0f - at_most_one(a);
        for (int i = 0; i < L.extra_count; ++i) {
            f = contour_factor<true>(dd, m, L.extra_isovalue[i], L.extra_thickness[i], recip);
            const float ai = at_most_one(corrected ? correct_alpha(f * b, L.stepsize) : f * o);
            T = T * (1.0f - ai);
        }
        a = 1.0f - T;
    }
    return composite_lazy(acc, a, [&] {
        uint32_t c;
        if (shading == Shading::pre) {
            uint32_t lit[8];
            for (int n = 0; n < 8; ++n) {
                const GradientRecord& r = gr[k.index[n]];
                const float normal[3] = {r.nx, r.ny, r.nz};
                lit[n] = lit_color<false>(L.light, L.colors[d[n]], normal, 0.0f);
            }
            c = trilinear_color(k, lit);
        } else {
            uint32_t raw[8];
            for (int n = 0; n < 8; ++n) raw[n] = L.colors[d[n]];
            c = trilinear_color(k, raw);
            float n3[3] = {k.w[0] * gr[k.index[0]].nx, k.w[0] * gr[k.index[0]].ny, k.w[0] * gr[k.index[0]].nz};
            for (int n = 1; n < 8; ++n) {
                n3[0] += k.w[n] * gr[k.index[n]].nx;
                n3[1] += k.w[n] * gr[k.index[n]].ny;
                n3[2] += k.w[n] * gr[k.index[n]].nz;
            }
            normalize_normal(n3);
            constexpr bool with_occ = shading == Shading::post_occlusion;
            float occ = 0.0f;
            if (with_occ) {
                occ = k.w[0] * (float)(voxel_word(g.voxels, k.index[0]) >> 16);
                for (int n = 1; n < 8; ++n) occ += k.w[n] * (float)(voxel_word(g.voxels, k.index[n]) >> 16);
            }
            c = lit_color<with_occ>(L.light, c, n3, occ);
        }
        return c;
    });
}
