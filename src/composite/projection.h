// projection.h — what the maximum intensity and average projections (mip.cpp, avg.cpp) share,
// written once: their samples, classified before they are interpolated, and the three pass
// drivers (preview, final, trilinear final) into which each mode puts its per-ray state.
//
// Private to src/composite. Reads voxels, block_map (through projection_bricks), opacity_lut,
// color_lut and the settings of the passes; writes only the RenderTarget (and what
// smooth_image and show_image write).
//
// A mode is a record with two static members:
//   preview:   its public preview function, which a final that gives up calls;
//   ray<kind>(f): calls f with the start state of one ray (a Ray, below) for the sample kind
//              and the settings of the moment, so that every option becomes a template
//              parameter of the Ray once per pass (preview) or once per line (finals).
// A Ray has
//   take(o, density, color): a sample that counts (o > 0); density() and color() compute the
//              sample's interpolated density and colour only when called. True ends the ray.
//   finish(t), finish_preview(t): the pixel of a ray that saw something, in the finals and in
//              the preview.
// Whether a ray saw anything, the preview's depth and mask, the pixels a final keeps from the
// preview, polling and giving up are the drivers' business.
#pragma once
#include <cstdint>
#include <cstring>

#include "composite/composite.h"
#include "core/core.h"
#include "raycast/final.h"
#include "raycast/sample.h"
#include "raycast/walk.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// ---------------------------------------------------------------------------------------------
// What the projections read of the grid (projection_bricks.cpp), made once per change of the
// densities or of the opacities, at the start of a pass; the arrays stay valid until the next
// call.
//
// map, radius: the bricks they walk. A brick is empty when no sample taken in it could have an
// opacity other than 0 under the current transfer function, so the walk and the march pass it
// as they pass air, and the pictures are the same.
// densities: the density of every voxel, brick by brick (bricked_index): the 512 densities of
// an 8 x 8 x 8 brick lie in one kilobyte, so that a ray crossing a brick, and the rays beside
// it, find them in the cache, where the grid's own order puts the cells of a ray along x a
// whole slice apart. The voxel and trilinear samples read them (measured 10 to 30 % faster);
// the plane samples read the grid, whose four places come from the walk's index for less
// than their four brick places cost (measured slower from bricks).
struct ProjectionBricks {
    const uint32_t* map;        // in place of block_map
    const uint8_t* radius;      // in place of block_empty_radius
    const uint16_t* densities;  // at bricked_index
};
ProjectionBricks projection_bricks();
// False: the density bricks (block_map) as they are. For the tests that show both walk alike.
extern bool projection_skip_hidden;

TAVOK_INLINE GridView with_bricks(GridView g, const ProjectionBricks& b)
{
    g.block_map = b.map;
    g.empty_radius = b.radius;
    return g;
}

// The place of voxel (x, y, z) in densities: its brick's number (block_map's order) times 512,
// then x, z, y within the brick, three bits each.
TAVOK_INLINE size_t bricked_index(const GridView& g, uint32_t x, uint32_t y, uint32_t z)
{
    const size_t brick = ((size_t)(x >> 3) * g.block_z + (z >> 3)) * g.block_y + (y >> 3);
    return brick << 9 | (x & 7) << 6 | (z & 7) << 3 | (y & 7);
}

// The three kinds of sample: the voxel of each visited cell (interp_mode 0), the plane sample
// where the walk crosses a grid plane (1, and 2 in the preview), the eight-voxel sample of the
// trilinear march (2 in the finals).
enum class SampleKind { voxel, plane, trilinear };

// The transfer function and the densities as a pass reads them, hoisted out of the loops.
struct Classification {
    const float* opacity;
    const uint32_t* colors;
    const uint16_t* densities;  // ProjectionBricks::densities
};
TAVOK_INLINE Classification classification(const ProjectionBricks& b) { return {opacity_lut, color_lut, b.densities}; }

// ---------------------------------------------------------------------------------------------
// Samples, classified first: each voxel's density is looked up in the tables, and what is
// interpolated is the opacities (with the sampler's weights) and the colours (by color_lerp).
// A sample whose opacity o is 0 or less counts for nothing; one that counts goes to
// take(o, density, color).
//
// A sample all of whose voxels have opacity 0 blends to 0 whatever its weights, so it is
// passed over as soon as the voxels are read, before any weight is computed.

// The sample of the walk's current cell: the cell's own voxel, or the plane sample of the
// crossing (none where the plane sampler has none). p is the ray's start, from which the
// crossing point is measured.
template <SampleKind kind, class Take>
TAVOK_INLINE bool sample_cell(const RayWalk& w, const GridView& g, const float* p, const Classification& t,
                              Take&& take)
{
    static_assert(kind != SampleKind::trilinear, "the walk samples voxels or planes");
    if constexpr (kind == SampleKind::voxel) {
        const uint32_t v = t.densities[bricked_index(g, (uint32_t)w.x, (uint32_t)w.y, (uint32_t)w.z)];
        const float o = t.opacity[v];
        if (o <= 0.0f) return false;
        return take(o, [&] { return v; }, [&] { return t.colors[v]; });
    } else {
        PlaneSample s;
        if (!plane_sample_voxels(w, g, w.dir, s)) return false;
        const size_t i10 = s.base + s.step_b, i01 = s.base + s.step_c;
        const uint32_t d00 = voxel_word(g.voxels, s.base) & density_mask;
        const uint32_t d10 = voxel_word(g.voxels, i10) & density_mask;
        const uint32_t d01 = voxel_word(g.voxels, i01) & density_mask;
        const uint32_t d11 = voxel_word(g.voxels, i01 + s.step_b) & density_mask;
        const float o00 = t.opacity[d00], o10 = t.opacity[d10], o01 = t.opacity[d01], o11 = t.opacity[d11];
        if ((o00 == 0.0f) & (o10 == 0.0f) & (o01 == 0.0f) & (o11 == 0.0f)) return false;
        if (!plane_sample_weights(w, g, p, w.dir, s)) return false;
        const float o = plane_blend(s, o00, o10, o01, o11);
        if (o <= 0.0f) return false;
        return take(
            o, [&] { return plane_blend(s, (float)d00, (float)d10, (float)d01, (float)d11); },
            [&] { return plane_color(s, t.colors[d00], t.colors[d10], t.colors[d01], t.colors[d11]); });
    }
}

// The sample of the trilinear march at pos with its base cell: o = the sum of w_k *
// opacity(d_k) over the eight corners in their order, the colour reduced along z, x, y.
template <class Take>
TAVOK_INLINE bool sample_corners(const GridView& g, const int32_t* cell, const float* pos,
                                 const Classification& t, Take&& take)
{
    // The eight corners in trilinear_indices' order, by their places; the far ones held at the
    // grid's last cell as there.
    Corners k;
    const uint32_t x = (uint32_t)cell[0], y = (uint32_t)cell[1], z = (uint32_t)cell[2];
    const uint32_t xs[2] = {x, x + 1 < g.size_x ? x + 1 : g.size_x - 1};
    const uint32_t ys[2] = {y, y + 1 < g.size_y ? y + 1 : g.size_y - 1};
    const uint32_t zs[2] = {z, z + 1 < g.size_z ? z + 1 : g.size_z - 1};
    for (int dx = 0; dx < 2; ++dx)
        for (int dy = 0; dy < 2; ++dy)
            for (int dz = 0; dz < 2; ++dz) k.index[dx * 4 + dy * 2 + dz] = bricked_index(g, xs[dx], ys[dy], zs[dz]);
    uint32_t d[8];
    float o8[8];
    bool any = false;
    for (int n = 0; n < 8; ++n) {
        d[n] = t.densities[k.index[n]];
        o8[n] = t.opacity[d[n]];
        any |= o8[n] != 0.0f;
    }
    if (!any) return false;
    trilinear_weights(pos, k);
    float o = k.w[0] * o8[0];
    for (int n = 1; n < 8; ++n) o += k.w[n] * o8[n];
    if (o <= 0.0f) return false;
    return take(
        o,
        [&] {
            float density = k.w[0] * (float)d[0];
            for (int n = 1; n < 8; ++n) density += k.w[n] * (float)d[n];
            return density;
        },
        [&] {
            uint32_t c[8];
            for (int n = 0; n < 8; ++n) c[n] = t.colors[d[n]];
            return trilinear_color(k, c);
        });
}

// ---------------------------------------------------------------------------------------------
// "Faint Whisps": each channel of c times w = truncate(alpha * 32767.0), shifted right by 15.
// alpha = 1 gives w = 32767, so 255 becomes 254. A channel is kept in its byte (the trilinear
// weights of a position a hair below 0 can lift an opacity above 1).
TAVOK_INLINE uint32_t faint_scale(uint32_t c, float alpha)
{
    const uint32_t w = (uint32_t)trunc_i32(alpha * 32767.0f);
    uint32_t out = 0;
    for (int shift = 0; shift < 24; shift += 8) out |= ((((c >> shift) & 0xff) * w >> 15) & 0xff) << shift;
    return out;
}

// ---------------------------------------------------------------------------------------------
// The preview: the lattice of walk.h (first step projection_lattice, refinement down to
// preview_limit_simple, tolerances T >> 1, T, T) with the projection's ray.
//
// A ray's outcome at pixel i: a miss of the box is mask 2, colour 0, no_depth. A ray that saw
// a sample stored the cross_t of its first one in depth as it went; its pixel takes the
// mode's colour (even black) and mask 1. A ray that saw nothing makes the pixel 0; if the pixel
// held 0 before the ray it also gets no_depth and mask 1, while a pixel that held a colour
// (a block fill of the level before) keeps its depth and mask.
template <class Mode, SampleKind kind>
static void projection_preview_lattice(RenderTarget* target, uint32_t* voxels, const RayFrame& f)
{
    Mode::template ray<kind>([&](auto start) {
        const ProjectionBricks bricks = projection_bricks();
        const GridView g = with_bricks(grid_view(voxels), bricks);
        const Classification t = classification(bricks);
        uint32_t* const color = target->color;
        uint32_t* const depth = target->depth;
        uint8_t* const mask = target->mask;
        const uint32_t T = refine_tolerance;
        const LatticeRules rules = {lattice_step, preview_limit_simple, {T >> 1, T, T}, false};

        auto cast = [&](uint32_t i, const float* dir, uint32_t start_depth) {
            float p[3];
            RayWalk w;
            const PreviewStart entry = start_preview_walk(w, g, f, dir, start_depth, p);
            if (entry == PreviewStart::missed) {
                mask[i] = 2, color[i] = 0, depth[i] = no_depth;
                return;
            }
            // A first cell outside the grid casts nothing: the pixel keeps what it has.
            if (entry == PreviewStart::outside) return;
            const uint32_t held = color[i];
            auto r = start;
            bool seen = false;
            walk_ray<Form::preview, true>(w, g, [&](const RayWalk& w) {
                return sample_cell<kind>(w, g, p, t, [&](float o, auto&& density, auto&& c) {
                    if (!seen) seen = true, depth[i] = (uint32_t)w.cross_t;
                    return r.take(o, density, c);
                });
            });
            if (seen) {
                color[i] = r.finish_preview(t);
                mask[i] = 1;
            } else {
                color[i] = 0;
                if (held == 0) depth[i] = no_depth, mask[i] = 1;
            }
        };
        auto clear = [&](uint32_t i) { color[i] = 0, depth[i] = no_depth; };
        run_preview_lattice(target, f, rules, cast, clear);
    });
}

// The preview pass: interp_mode 0 takes voxel samples, 1 and 2 plane samples. The image is
// shown as it stands, not smoothed.
template <class Mode>
void projection_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                        float* istr)
{
    lattice_step = projection_lattice;
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    if (interp_mode == interp_none) projection_preview_lattice<Mode, SampleKind::voxel>(target, voxels, f);
    else projection_preview_lattice<Mode, SampleKind::plane>(target, voxels, f);
    show_image(target);
}

// ---------------------------------------------------------------------------------------------
// The final (interp_mode 0 and 1). It keeps what the preview's rays found: pixel (x, y) is cast
// only when it lies off the first lattice (x or y not a multiple of lattice_step) and no
// refining ray marked it, or when x is 0, since column 0 is cast again in any case. A cast
// pixel is 0 unless its ray saw something; depth and mask are left alone. The plane samples'
// walk starts with cross_t at 0x3fffff, far along the ray, so that a ray's first cell yields no
// sample.
template <class Mode, SampleKind kind>
TAVOK_INLINE void projection_final_line(uint32_t* row, const uint8_t* mask_row, uint32_t y, uint32_t width,
                                        uint32_t lattice_mask, const GridView& g, const Classification& t,
                                        const RayFrame& f, const float* line_dir)
{
    constexpr bool plane = kind == SampleKind::plane;
    const bool lattice_line = (y & lattice_mask) == 0;
    Mode::template ray<kind>([&](auto start) {
        line_pixels(f, line_dir, width, [&](uint32_t x, const float* dir) {
            if (x >= 1 && ((lattice_line && (x & lattice_mask) == 0) || mask_row[x] != 0)) return;
            uint32_t pixel = 0;
            RayWalk w;
            float p[3] = {};  // ray_box_entry writes it whole when it succeeds
            if (start_final_ray<plane>(w, g, f, dir, p, 0x3fffff) == RayStart::in_grid) {
                auto r = start;
                bool seen = false;
                walk_ray<Form::final_pass, plane>(w, g, [&](const RayWalk& w) {
                    return sample_cell<kind>(w, g, p, t, [&](float o, auto&& density, auto&& c) {
                        seen = true;
                        return r.take(o, density, c);
                    });
                });
                if (seen) pixel = r.finish(t);
            }
            row[x] = pixel;
        });
    });
}

// Polls on odd lines; on a change (color and depth are then cleared) it draws the mode's
// preview instead. Either way the image is smoothed and shown.
template <class Mode>
void projection_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                      float* istr)
{
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    const uint32_t width = target->width;
    const uint32_t lattice_mask = (uint32_t)lattice_step - 1;
    const ProjectionBricks bricks = projection_bricks();
    run_final_lines<Polling::odd_lines>(
        target, f, voxels,
        [&](uint32_t y, const float* line_dir, const GridView& grid) {
            uint32_t* const row = target->color + (size_t)y * width;
            const uint8_t* const mask_row = target->mask + (size_t)y * width;
            const GridView g = with_bricks(grid, bricks);
            const Classification t = classification(bricks);
            if (interp_mode == interp_none)
                projection_final_line<Mode, SampleKind::voxel>(row, mask_row, y, width, lattice_mask, g, t, f, line_dir);
            else
                projection_final_line<Mode, SampleKind::plane>(row, mask_row, y, width, lattice_mask, g, t, f, line_dir);
        },
        [&](uint32_t) { Mode::preview(target, voxels, ipos, ifor, iup, istr); });
    smooth_image(target);
    show_image(target);
}

// ---------------------------------------------------------------------------------------------
// The trilinear final: every pixel, by the trilinear march from the eye or the box entry. A
// ray that misses the box, or whose first sample falls outside the grid, gives 0.
template <class Mode>
TAVOK_INLINE bool projection_trilinear_line(uint32_t* row, uint32_t width, const GridView& g,
                                            const Classification& t, const RayFrame& f, const float* line_dir)
{
    const float stepsize = sample_stepsize;
    bool whole = true;
    Mode::template ray<SampleKind::trilinear>([&](auto start) {
        whole = line_pixels<true>(f, line_dir, width, [&](uint32_t x, const float* dir) {
            uint32_t pixel = 0;
            float p[3];
            if (f.eye_inside) p[0] = f.eye[0], p[1] = f.eye[1], p[2] = f.eye[2];
            if (f.eye_inside || ray_box_entry(dir, f.eye, p)) {
                auto r = start;
                bool seen = false;
                march_ray(g, p, dir, stepsize, [&](const int32_t* cell, const float* pos) {
                    return sample_corners(g, cell, pos, t, [&](float o, auto&& density, auto&& c) {
                        seen = true;
                        return r.take(o, density, c);
                    });
                });
                if (seen) pixel = r.finish(t);
            }
            row[x] = pixel;
        });
    });
    return whole;
}

// Polls at every line and before every pixel whose x is a multiple of 8, giving up on a change
// or an open colour dialog: color and depth are cleared and the preview is drawn. At the start
// of a line that ends the pass; inside a line it ends only the line, so that the next line's
// poll fires as well while the cause stands, and the preview is drawn a second time. The image
// goes to offscreen_pixels during a render to file, else to the display only when refresh is 0.
template <class Mode>
void projection_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                                float* istr)
{
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    const uint32_t width = target->width;
    auto give_up = [&] {
        const size_t pixels = (size_t)width * target->height;
        memset(target->color, 0, pixels * 4);
        memset(target->depth, 0, pixels * 4);
        Mode::preview(target, voxels, ipos, ifor, iup, istr);
    };
    const ProjectionBricks bricks = projection_bricks();
    run_final_lines<Polling::inside_lines>(
        target, f, voxels,
        [&](uint32_t y, const float* line_dir, const GridView& grid) {
            uint32_t* const row = target->color + (size_t)y * width;
            if (!projection_trilinear_line<Mode>(row, width, with_bricks(grid, bricks), classification(bricks), f,
                                                 line_dir))
                give_up();
        },
        [&](uint32_t) { give_up(); });
    if (offscreen_render || !refresh) show_image(target);
}
