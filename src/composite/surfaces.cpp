// surfaces.cpp — the six passes of the lit compositing modes: region boundary surfaces (mode 8,
// render_rbs_*) and isovalue contour surfaces (mode 10, render_ics_*). Each ray is composited
// front to back and ends once it is nearly opaque; the sample work is that of surfaces.h, the
// same for both modes but for a sample's opacity, given to the one walk or the one march.
//
// Called by the frame loop's dispatch through the pass table (and by render to file). Reads
// voxels, gradients, block_map, the lookup tables and the settings; writes only the
// RenderTarget (edge_scratch through smooth_image) and prev_cross_t, then shows the image.
//
// How the passes differ:
//   preview          lattice 32, refinement down to preview_limit_surface, no alpha
//                    correction, smooth_image before the copy;
//   final            interp_mode 0 or 1; polls every line and stops on refresh or the colour
//                    dialog, showing what is done. rbs casts every pixel and corrects alpha by
//                    the crossing distance; ics casts only the pixels the preview did not;
//   final_trilinear  the march; polls every line and before every eighth pixel; shows its
//                    image only if not stopped by a change (or rendering to file).
#include <cstdint>

#include "composite/composite.h"
#include "composite/surfaces.h"
#include "core/core.h"
#include "raycast/final.h"
#include "raycast/walk.h"

int32_t prev_cross_t = 0;

// The cell form of the walk's samples for an interp_mode: the voxel itself at 0, the plane
// sample otherwise, shaded with occlusion when use_occlusion is on.
static int cell_form()
{
    if (interp_mode == interp_none) return (int)CellForm::voxel;
    return (int)(use_occlusion ? CellForm::plane_occlusion : CellForm::plane);
}

// ---------------------------------------------------------------------------------------------
// Preview: the lattice of walk.h. A ray leaves its depth at its first sample of positive
// opacity, even when the pixel comes out black; a ray that saw nothing makes the pixel black
// and leaves no_depth only where the pixel was black before it.
template <SurfaceKind kind, CellForm form>
static void surface_preview(RenderTarget* target, uint32_t* voxels, const RayFrame& f)
{
    const GridView g = grid_view(voxels);
    const SurfaceLocals L = surface_locals();
    const bool faint = faint_whisps;
    uint32_t* const color = target->color;
    uint32_t* const depth = target->depth;
    uint8_t* const mask = target->mask;
    const uint32_t T = refine_tolerance;
    const LatticeRules rules = {surface_lattice, preview_limit_surface, {T >> 2, T >> 1, T}, false};

    auto cast = [&](uint32_t i, const float* dir, uint32_t start_depth) {
        float p[3];
        RayWalk w;
        const PreviewStart entry = start_preview_walk(w, g, f, dir, start_depth, p);
        if (entry == PreviewStart::missed) {
            mask[i] = 2, color[i] = 0, depth[i] = no_depth;
            return;
        }
        if (entry == PreviewStart::outside) return;
        const uint32_t before = color[i];
        RayAccum acc;
        walk_ray<Form::preview, true>(w, g, [&](const RayWalk& w) {
            return surface_cell<kind, form, false>(acc, w, g, p, L,
                                                   [&](const RayWalk& w) { depth[i] = (uint32_t)w.cross_t; });
        });
        mask[i] = 1;
        color[i] = finish_pixel(acc, faint);
        if (!acc.seen && before == 0) depth[i] = no_depth;
    };
    auto clear = [&](uint32_t i) { color[i] = 0, depth[i] = no_depth; };
    run_preview_lattice(target, f, rules, cast, clear);
}

template <SurfaceKind kind>
static void surface_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                            float* istr)
{
    lattice_step = surface_lattice;
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    choose<0, 1, 2>(cell_form(), [&](auto form) {
        surface_preview<kind, (CellForm)form.value>(target, voxels, f);
    });
    smooth_image(target);
    show_image(target);
}

// ---------------------------------------------------------------------------------------------
// Final, interp_mode 0 or 1: the walk from the eye or the box entry, cross_t starting at
// 0x3fffff so that a final's first cell yields no plane sample. The rbs final keeps
// prev_cross_t at every step, carried from ray to ray (and pass to pass) in the global: the
// first visit of a ray sees what the ray before left there.
template <SurfaceKind kind, CellForm form, bool corrected, bool faint>
static void surface_final_line(uint32_t* row, uint32_t y, uint32_t width, const GridView& g,
                               const RayFrame& f, const float* line_dir, const uint8_t* mask)
{
    constexpr bool keep_prev = kind == SurfaceKind::rbs;
    const SurfaceLocals L = surface_locals();
    // The ics final keeps the pixels whose ray the preview cast: it casts a pixel off the
    // preview's first lattice that the preview left unmarked, and column 0 in any case.
    const uint32_t lattice_mask = (uint32_t)lattice_step - 1;
    const bool lattice_line = (y & lattice_mask) == 0;
    const uint8_t* const mask_row = mask + (size_t)y * width;
    int32_t prev = prev_cross_t;
    line_pixels(f, line_dir, width, [&](uint32_t x, const float* dir) {
        if (kind == SurfaceKind::ics && x >= 1 &&
            ((lattice_line && (x & lattice_mask) == 0) || mask_row[x] != 0))
            return;
        RayAccum acc;
        RayWalk w;
        float p[3] = {0.0f, 0.0f, 0.0f};  // set by the ray start; zeroed for the compiler's sake
        w.prev_cross_t = prev;
        if (start_final_ray<true, keep_prev>(w, g, f, dir, p, 0x3fffff) == RayStart::in_grid) {
            walk_ray<Form::final_pass, true, keep_prev>(w, g, [&](const RayWalk& w) {
                return surface_cell<kind, form, corrected>(acc, w, g, p, L, [](const RayWalk&) {});
            });
        }
        if (keep_prev) prev = w.prev_cross_t;
        row[x] = finish_pixel<faint>(acc);
    });
    prev_cross_t = prev;
}

template <SurfaceKind kind>
static void surface_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                          float* istr)
{
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    const uint32_t width = target->width;
    run_final_lines<Polling::every_line>(
        target, f, voxels,
        [&](uint32_t y, const float* line_dir, const GridView& g) {
            uint32_t* row = target->color + (size_t)y * width;
            const bool corrected = kind == SurfaceKind::rbs && rbs_alpha_correction;
            choose<0, 1, 2>(cell_form(), [&](auto form) {
                choose<0, 1>(corrected, [&](auto corrected) {
                    choose<0, 1>(faint_whisps != 0, [&](auto faint) {
                        surface_final_line<kind, (CellForm)form.value, corrected.value, faint.value>(
                            row, y, width, g, f, line_dir, target->mask);
                    });
                });
            });
        },
        [&](uint32_t) {});
    // Stopped or not, what is done is shown.
    show_image(target);
}

// ---------------------------------------------------------------------------------------------
// Final, interp_mode 2: the trilinear march along every pixel's ray, polled before every
// eighth pixel; a stop inside a line ends the line, and the next line's poll ends the pass.
template <SurfaceKind kind, Shading shading, bool corrected, bool dissolve>
static bool surface_trilinear_line(uint32_t* row, uint32_t width, const GridView& g, const RayFrame& f,
                                   const float* line_dir)
{
    const SurfaceLocals L = surface_locals();
    const bool faint = faint_whisps;
    return line_pixels<true>(f, line_dir, width, [&](uint32_t x, const float* dir) {
        RayAccum acc;
        float p[3] = {0.0f, 0.0f, 0.0f};  // set by the ray start; zeroed for the compiler's sake
        if (f.eye_inside) {
            p[0] = f.eye[0], p[1] = f.eye[1], p[2] = f.eye[2];
        } else if (!ray_box_entry(dir, f.eye, p)) {
            row[x] = 0;
            return;
        }
        march_ray(g, p, dir, L.stepsize, [&](const int32_t* cell, const float* pos) {
            return surface_march_sample<kind, shading, corrected, dissolve>(acc, g, cell, pos, L);
        });
        row[x] = finish_pixel(acc, faint);
    });
}

// The options of a trilinear final that make a difference, as one number each: shading
// (pre-shading never sees occlusion), and alpha correction with its classification. In the
// ics mode "Modified Classification" acts only with alpha correction on.
static int trilinear_shading()
{
    if (pre_shading) return (int)Shading::pre;
    return (int)(use_occlusion ? Shading::post_occlusion : Shading::post);
}

template <SurfaceKind kind>
static void surface_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                                    float* iup, float* istr)
{
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    const uint32_t width = target->width;
    run_final_lines<Polling::inside_lines>(
        target, f, voxels,
        [&](uint32_t y, const float* line_dir, const GridView& g) {
            uint32_t* row = target->color + (size_t)y * width;
            const bool corrected = kind == SurfaceKind::rbs ? rbs_alpha_correction != 0
                                                            : ics_alpha_correction != 0;
            const bool dissolve = kind == SurfaceKind::rbs ? rbs_dissolve != 0
                                                           : ics_dissolve != 0 && ics_alpha_correction != 0;
            choose<0, 1, 2>(trilinear_shading(), [&](auto shading) {
                choose<0, 1>(corrected, [&](auto corrected) {
                    choose<0, 1>(dissolve, [&](auto dissolve) {
                        surface_trilinear_line<kind, (Shading)shading.value, corrected.value, dissolve.value>(
                            row, width, g, f, line_dir);
                    });
                });
            });
        },
        [&](uint32_t) {});
    // A pass stopped by a change shows nothing: the preview that follows will.
    if (!refresh || offscreen_render) show_image(target);
}

// ---------------------------------------------------------------------------------------------
// The six entry points of the pass table.

void render_rbs_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup, float* istr)
{
    surface_preview<SurfaceKind::rbs>(target, voxels, ipos, ifor, iup, istr);
}
void render_rbs_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup, float* istr)
{
    surface_final<SurfaceKind::rbs>(target, voxels, ipos, ifor, iup, istr);
}
void render_rbs_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                                float* istr)
{
    surface_final_trilinear<SurfaceKind::rbs>(target, voxels, ipos, ifor, iup, istr);
}
void render_ics_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup, float* istr)
{
    surface_preview<SurfaceKind::ics>(target, voxels, ipos, ifor, iup, istr);
}
void render_ics_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup, float* istr)
{
    surface_final<SurfaceKind::ics>(target, voxels, ipos, ifor, iup, istr);
}
void render_ics_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                                float* istr)
{
    surface_final_trilinear<SurfaceKind::ics>(target, voxels, ipos, ifor, iup, istr);
}
