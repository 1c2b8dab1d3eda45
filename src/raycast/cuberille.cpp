// cuberille.cpp — render mode 0, cuberille first hit: a ray stops at the first voxel whose
// opacity lies in 0.2 .. 1.0 and the pixel takes that voxel's transfer-function colour, shaded
// in three tones by the face the ray came in through (light model 1) or replaced by the voxel's
// occlusion grey (light model 2). No interpolation, no gradients.
//
// Called by the frame loop's dispatch (and by render to file). Reads voxels, block_map, the
// lookup tables, light_model and max_ray_steps; writes only the RenderTarget, then shows it.
#include <cstdint>

#include "core/core.h"
#include "raycast/raycast.h"
#include "raycast/final.h"
#include "raycast/walk.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// The voxel of density d stops a cuberille ray: a fixed band, so that colour alone never
// makes a voxel visible.
TAVOK_INLINE bool cuberille_hit(const float* opacity, uint32_t d)
{
    const float a = opacity[d];
    return a >= 0.2f && a <= 1.0f;
}

template <int model>
TAVOK_INLINE uint32_t cuberille_color(const uint32_t* colors, uint32_t word, int8_t entry_face)
{
    if (model == 2) return ((word >> 16) & 0xff) * 0x010101u;
    const uint32_t c = colors[word & density_mask];
    return model == 0 ? c : face_tone(c, entry_face);
}

// ---------------------------------------------------------------------------------------------
// Preview: the lattice of walk.h with the cuberille step. L = 8; tolerances T/8, T/4, T.
template <int model>
static void cuberille_preview(RenderTarget* target, uint32_t* voxels, const RayFrame& f)
{
    const GridView g = grid_view(voxels);
    const float* const opacity = opacity_lut;
    const uint32_t* const colors = color_lut;
    uint32_t* const color = target->color;
    uint32_t* const depth = target->depth;
    uint8_t* const mask = target->mask;
    const uint32_t T = refine_tolerance;
    LatticeRules rules = {lattice_step, preview_limit_cuberille, {T / 8, T / 4, T}, false};

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
        walk_ray<Form::preview, true>(w, g, [&](const RayWalk& w) {
            const uint32_t word = voxel_word(g.voxels, w.index);
            if (!cuberille_hit(opacity, word & density_mask)) return false;
            color[i] = cuberille_color<model>(colors, word, w.entry_face);
            mask[i] = 1;
            depth[i] = (uint32_t)w.cross_t;
            return true;
        });
        // A black hit counts as a miss.
        if (color[i] == 0) depth[i] = no_depth, mask[i] = 1;
    };
    auto clear = [&](uint32_t i) { color[i] = 0, depth[i] = no_depth; };
    run_preview_lattice(target, f, rules, cast, clear);
}

void render_cuberille_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                              float* iup, float* istr)
{
    lattice_step = cuberille_lattice;
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    choose<0, 1, 2>(light_model, [&](auto model) { cuberille_preview<model>(target, voxels, f); });
    show_image(target);
}

// ---------------------------------------------------------------------------------------------
// Final: one ray per pixel, line by line, polling the user on odd lines. The light model is
// chosen per line.
template <int model>
static void cuberille_final_line(uint32_t* row, uint32_t width, const GridView& g, const RayFrame& f,
                                 const float* line_dir)
{
    const float* const opacity = opacity_lut;
    const uint32_t* const colors = color_lut;
    const uint32_t* const vox = g.voxels;
    line_pixels(f, line_dir, width, [&](uint32_t x, const float* dir) {
        uint32_t pixel = 0;
        RayWalk w;
        float p[3];
        if (start_final_ray<false>(w, g, f, dir, p, 0) == RayStart::in_grid) {
            walk_ray<Form::final_pass, false>(w, g, [&](const RayWalk& w) {
                const uint32_t word = voxel_word(vox, w.index);
                if (!cuberille_hit(opacity, word & density_mask)) return false;
                pixel = cuberille_color<model>(colors, word, w.entry_face);
                return true;
            });
        }
        row[x] = pixel;
    });
}

void render_cuberille_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                            float* iup, float* istr)
{
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    const uint32_t width = target->width;
    run_final_lines<Polling::odd_lines>(
        target, f, voxels,
        [&](uint32_t y, const float* line_dir, const GridView& g) {
            uint32_t* row = target->color + (size_t)y * width;
            choose<0, 1, 2>(light_model, [&](auto model) {
                cuberille_final_line<model>(row, width, g, f, line_dir);
            });
        },
        [&](uint32_t) { render_cuberille_preview(target, voxels, ipos, ifor, iup, istr); });
    show_image(target);
}
