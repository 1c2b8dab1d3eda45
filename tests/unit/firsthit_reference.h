// firsthit_reference.h — a slow and literal reading of the interpolated first hit, to hold the
// fast passes to: every cell of every solid brick visited, every plane sample and every march
// sample taken in full (density, occlusion, normal) and stored at once as the history, the
// light computed step by step as the rules give it. It shares only the skeleton (frame, ray
// start, the walk over the volume's own brick map, the march, the samplers) and the shading
// rules of shade.h, which have hand-computed tests of their own.
//
// It renders into render_target like the passes, without polling and without showing.
#pragma once
#include <cmath>
#include <cstdint>

#include "raycast/final.h"
#include "raycast/sample.h"
#include "raycast/shade.h"
#include "raycast_helpers.h"

namespace reference {

// The shade of a crossing between cur and prev, by the steps of the plane-sampling visit:
// refine weights, view vector from the ray's direction, occlusion, normals, half vector.
inline uint32_t lit_crossing(const Sample& cur, const Sample& prev, float iso, const float* ray_dir, uint32_t base,
                             uint32_t x, uint32_t y)
{
    const Lighting l = current_lighting();
    const CrossingWeights w = refine_crossing(cur.density, prev.density, iso);
    float v[3] = {ray_dir[0], ray_dir[1], ray_dir[2]};
    float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (length <= 0.001f) length = 0.001f;
    const float inverse = 1.0f / length;
    for (float& c : v) c *= inverse;
    const float o = w.current * cur.occlusion + w.previous * prev.occlusion;
    float a[3], b[3], n[3], h[3];
    for (int k = 0; k < 3; ++k) a[k] = cur.normal[k], b[k] = prev.normal[k];
    normalize3(a);
    normalize3(b);
    for (int k = 0; k < 3; ++k) n[k] = w.current * a[k] + w.previous * b[k];
    normalize3(n);
    for (int k = 0; k < 3; ++k) h[k] = light_dir[k] + v[k];
    normalize3(h);
    const bool occ = use_occlusion != 0;
    const float I = occ ? shade_intensity<true>(l, n, h, o) : shade_intensity<false>(l, n, h, o);
    switch (current_look()) {
    case Look::plain:
        return occ ? shade_color<Look::plain, true>(l, I, base, o, x, y) : shade_color<Look::plain, false>(l, I, base, o, x, y);
    case Look::toon:
        return occ ? shade_color<Look::toon, true>(l, I, base, o, x, y) : shade_color<Look::toon, false>(l, I, base, o, x, y);
    default:
        return occ ? shade_color<Look::pencil, true>(l, I, base, o, x, y)
                   : shade_color<Look::pencil, false>(l, I, base, o, x, y);
    }
}

inline uint32_t iso_color(int iso) { return color_lut[iso < 0 ? 0 : iso > 4095 ? 4095 : iso]; }

inline uint32_t background(uint32_t x, uint32_t y)
{
    return paper_color(pencil_sketch != 0, current_lighting(), x, y);
}

// The visit of one cell, either way: true at a hit, with its colour. hist is the history.
inline bool visit(const RayWalk& w, const GridView& g, const float* p, Sample& hist, uint32_t x, uint32_t y,
                  uint32_t& out)
{
    if (interp_mode == interp_none) {
        const uint32_t d = voxels[w.index] & 0xfff;
        if ((int)d < isovalue) return false;
        out = light_model == 0 ? color_lut[d] : face_tone(color_lut[d], w.entry_face);
        return true;
    }
    PlaneSample s;
    if (!plane_sample(w, g, p, w.dir, s)) return false;
    const Sample cur = plane_sample_values<true>(s, g);
    if (cur.density < (float)isovalue) {
        hist = cur;
        return false;
    }
    out = lit_crossing(cur, hist, (float)isovalue, w.dir, iso_color(isovalue), x, y);
    return true;
}

// render_firsthit_final without polling: one ray a pixel over the volume's own brick map.
inline void final_pass()
{
    RayFrame f;
    setup_ray_frame(f, &render_target, ipos, ifor, iup, istr);
    const GridView g = grid_view(voxels);
    const uint32_t W = render_target.width, H = render_target.height;
    Sample hist = {};
    float line[3] = {f.first[0], f.first[1], f.first[2]};
    for (uint32_t y = 0; y < H; ++y) {
        line_pixels(f, line, W, [&](uint32_t x, const float* dir) {
            const size_t i = (size_t)y * W + x;
            RayWalk w;
            float p[3];
            const RayStart start = start_final_ray<true>(w, g, f, dir, p, 0x3fffff);
            uint32_t hit = 0;
            if (start == RayStart::in_grid &&
                walk_ray<Form::final_pass, true>(w, g, [&](const RayWalk& w) { return visit(w, g, p, hist, x, y, hit); })) {
                render_target.color[i] = hit;
                if (edge_enabled) render_target.depth[i] = (uint32_t)w.cross_t;
            } else {
                render_target.color[i] = background(x, y);
                if (edge_enabled && start != RayStart::missed_box) render_target.depth[i] = no_depth;
            }
        });
        for (int a = 0; a < 3; ++a) line[a] = line[a] + f.line_inc[a];
    }
}

// render_firsthit_preview, without the final copy: the lattice with a literal cast step.
inline void preview()
{
    lattice_step = 16;
    RayFrame f;
    setup_ray_frame(f, &render_target, ipos, ifor, iup, istr);
    const GridView g = grid_view(voxels);
    const uint32_t W = render_target.width;
    const uint32_t T = refine_tolerance;
    const LatticeRules rules = {16, preview_limit_simple, {T >> 2, T >> 1, T}, true};
    Sample hist = {};
    const bool interpolate = interp_mode != interp_none;
    auto scrolled = [&](uint32_t i) { return background(i % W + (uint32_t)tex_scroll_x, i / W + (uint32_t)tex_scroll_y); };
    auto cast = [&](uint32_t i, const float* dir, uint32_t start_depth) {
        float p[3], cell_point[3];
        if (!preview_ray_start(f, dir, start_depth, p, cell_point)) {
            render_target.color[i] = scrolled(i), render_target.depth[i] = no_depth;
            return;
        }
        RayWalk w;
        start_walk(w, g, p, cell_point, dir);
        if (!cell_inside(w, g)) return;
        w.cross_t = trunc_i32((float)start_depth * 0.9f);
        uint32_t hit = 0;
        const uint8_t keep = interp_mode;
        interp_mode = interpolate ? interp_bilinear : interp_none;
        const bool found = walk_ray<Form::preview, true>(
            w, g, [&](const RayWalk& w) { return visit(w, g, p, hist, i % W, i / W, hit); });
        interp_mode = keep;
        if (found && hit != 0) {
            render_target.color[i] = hit, render_target.depth[i] = (uint32_t)w.cross_t;
        } else {
            render_target.color[i] = scrolled(i), render_target.depth[i] = no_depth;
        }
    };
    auto clear = [&](uint32_t i) { render_target.color[i] = scrolled(i), render_target.depth[i] = no_depth; };
    run_preview_lattice(&render_target, f, rules, cast, clear);
}

// render_firsthit_final_trilinear without polling: the march over the volume's own brick
// map, five histories, pre- or post-shading, the extra surfaces averaged in.
inline void trilinear_pass()
{
    RayFrame f;
    setup_ray_frame(f, &render_target, ipos, ifor, iup, istr);
    const GridView g = grid_view(voxels);
    const uint32_t W = render_target.width, H = render_target.height;
    Sample hist[5] = {};
    int n_on = 0;
    for (int k = 0; k < 4; ++k) n_on += surface_on[k] != 0;
    float line[3] = {f.first[0], f.first[1], f.first[2]};
    for (uint32_t y = 0; y < H; ++y) {
        line_pixels(f, line, W, [&](uint32_t x, const float* dir) {
            const size_t i = (size_t)y * W + x;
            float p[3];
            bool main_hit = false;
            int last_hit = 0, hit[4] = {0, 0, 0, 0};
            uint32_t main_color = 0, color[4] = {0, 0, 0, 0};
            // Lights a hit of the surface with history h.
            auto light = [&](const Sample& cur, Sample& h, int iso) {
                if (pre_shading) {
                    const Lighting l = current_lighting();
                    const float I = shade_intensity_rational(l, cur.normal, half_vector);
                    return shade_plain(I, iso_color(iso), light_color);
                }
                return lit_crossing(cur, h, (float)iso, dir, iso_color(iso), x, y);
            };
            bool started = false;
            if (f.eye_inside || ray_box_entry(dir, f.eye, p)) {
                if (f.eye_inside) p[0] = f.eye[0], p[1] = f.eye[1], p[2] = f.eye[2];
                started = march_ray(g, p, dir, sample_stepsize, [&](const int32_t* cell, const float* pos) {
                    Corners k;
                    trilinear_corners(g, cell, pos, k);
                    Sample s = trilinear_sample<true>(g, k);
                    if (pre_shading) normalize3(s.normal);
                    if (!main_hit) {
                        if (s.density >= (float)isovalue) {
                            main_color = light(s, hist[0], isovalue);
                            main_hit = true;
                            last_hit = 1;
                        } else {
                            hist[0] = s;
                        }
                    }
                    int hits = 0;
                    for (int m = 0; m < 4; ++m) {
                        if (surface_on[m] && !hit[m]) {
                            if (s.density < (float)surface_isovalue[m]) {
                                hist[1 + m] = s;
                            } else {
                                color[m] = light(s, hist[1 + m], surface_isovalue[m]);
                                hit[m] = 1;
                                last_hit = m + 2;
                            }
                        }
                        hits += hit[m];
                    }
                    return main_hit && hits == n_on;
                });
            }
            if (!started || last_hit == 0) {
                render_target.color[i] = background(x, y);
                if (edge_enabled && started) render_target.depth[i] = no_depth;
                return;
            }
            if (edge_enabled) render_target.depth[i] = 0x3fffff;
            uint32_t r = 0, gg = 0, b = 0, n = 0;
            if (last_hit == 1) r = main_color >> 16 & 0xff, gg = main_color >> 8 & 0xff, b = main_color & 0xff, n = 1;
            if (n_on == 0) {
                render_target.color[i] = main_color & 0xffffff;
                return;
            }
            for (int m = 0; m < 4; ++m)
                if (hit[m]) r += color[m] >> 16 & 0xff, gg += color[m] >> 8 & 0xff, b += color[m] & 0xff, n += 1;
            render_target.color[i] = (r / n) << 16 | (gg / n) << 8 | b / n;
        });
        for (int a = 0; a < 3; ++a) line[a] = line[a] + f.line_inc[a];
    }
}

}  // namespace reference
