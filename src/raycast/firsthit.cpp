// firsthit.cpp — render mode 2, interpolated first hit: a ray stops where the density first
// reaches isovalue and the hit is lit by the interpolated gradient (shade.h). Three passes:
//   render_firsthit_preview          the lattice of walk.h, plane-sampled (any interp_mode but 0)
//   render_firsthit_final            one ray a pixel on the integer walk, plane-sampled
//                                    (interp_mode 1) or voxel by voxel (interp_mode 0)
//   render_firsthit_final_trilinear  the trilinear march, with up to four extra isosurfaces
//                                    averaged into the pixel and pre- or post-shading
// Without interpolation a voxel is a hit when its density reaches isovalue, coloured by the
// transfer function and toned by light model 1; no gradient is read. With it, the crossing
// between the last sample below the isovalue and the first at or above it is found by
// bisection (refine_crossing) and lit there with the colour of the isovalue.
//
// Called by the frame loop's dispatch through the pass table (and render to file). Reads
// voxels, gradients, block_map, color_lut and the settings; writes only the RenderTarget and,
// with edge_enabled, edge_scratch; ends by showing the image.
//
// The sample history. A hit is refined against the last sample below the isovalue, which may
// have been taken many cells earlier or by an earlier ray: the history is kept for the whole
// pass and starts at zero. Only that one sample is ever needed, so the passes remember where
// it was taken and read its occlusion and gradients only when a hit asks for them; a sample
// whose voxels all lie below the isovalue is known to be below without blending them.
//
// Bricks below the isovalue. A brick whose densities (and those one beyond its high faces,
// which its samples read) all lie below the isovalue holds no hit: the walk and the march pass
// over it in one run as over empty space (bricks_below.h), which counts its steps exactly as
// visiting it cell by cell does. What such a run leaves out is its samples, all below, of
// which only the last can matter, as the history of a hit right after it. So the passes note
// each run through a brick that holds densities (where the ray entered it), and when a hit
// asks for the history, find the last sample of the newest run that has one by stepping
// through that one brick again (LazyHistory).

#include <algorithm>
#include <cstdint>

#include "core/core.h"
#include "raycast/bricks_below.h"
#include "raycast/final.h"
#include "raycast/raycast.h"
#include "raycast/sample.h"
#include "raycast/shade.h"
#include "raycast/walk.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

namespace {

// ---------------------------------------------------------------------------------------------
// What every ray of a pass reads, copied from the settings once per line.
struct FirstHitFrame {
    Lighting light;
    int iso;              // isovalue
    float iso_f;          // isovalue as a float, for interpolated densities
    uint32_t base;        // the colour of the isosurface: color_lut[isovalue]
    const uint32_t* colors;
    bool paper;           // pencil_sketch: the background is the paper texture
    bool edges;           // edge_enabled: the finals keep depths for edge detection
    int scroll_x, scroll_y;  // tex_scroll_x, tex_scroll_y: the preview's paper slides
};

// The colour table's entry for an isovalue; a value outside the table (only --set can give
// one) takes its nearest end.
TAVOK_INLINE uint32_t isovalue_color(const uint32_t* colors, int iso)
{
    return colors[iso < 0 ? 0 : iso > 4095 ? 4095 : iso];
}

FirstHitFrame firsthit_frame()
{
    FirstHitFrame fh;
    fh.light = current_lighting();
    fh.iso = isovalue;
    fh.iso_f = (float)isovalue;
    fh.colors = color_lut;
    fh.base = isovalue_color(color_lut, isovalue);
    fh.paper = pencil_sketch != 0;
    fh.edges = edge_enabled != 0;
    fh.scroll_x = tex_scroll_x, fh.scroll_y = tex_scroll_y;
    return fh;
}

// The way a pass finds and colours a hit, chosen once per pass or line: without interpolation
// by the light model (2 acts like 1), or plane-sampled with one of the six shadings (the look,
// plus three with occlusion).
enum : int { voxel_model0 = 0, voxel_model1 = 1, plane_first = 2, kinds = 8 };
int current_kind(bool interpolate)
{
    if (!interpolate) return light_model == 0 ? voxel_model0 : voxel_model1;
    return plane_first + (int)current_look() + (use_occlusion ? 3 : 0);
}
// The shading code of a plane kind: the look, plus 3 with occlusion.
constexpr Look look_of(int shading) { return Look(shading % 3); }
constexpr bool occlusion_of(int shading) { return shading >= 3; }

template <class F> TAVOK_INLINE void choose_kind(int kind, F&& f)
{
    choose<0, 1, 2, 3, 4, 5, 6, 7>(kind, f);
}

// ---------------------------------------------------------------------------------------------
// Lighting a crossing (post-shading): the crossing lies between the previous sample prev,
// below the isovalue, and the current one cur, at or above it. The refine weights blend the
// two samples' occlusion and their normals, each normalised first; the half vector is taken
// from the ray's own direction (ray_dir: the clamped direction of the walk, or the march's).
template <int shading>
TAVOK_INLINE uint32_t shade_crossing(const Lighting& l, const Sample& cur, const Sample& prev, float iso,
                                     const float* ray_dir, uint32_t base, uint32_t x, uint32_t y)
{
    const CrossingWeights cw = refine_crossing(cur.density, prev.density, iso);
    float v[3] = {ray_dir[0], ray_dir[1], ray_dir[2]};
    normalize3(v);
    const float o = cw.current * cur.occlusion + cw.previous * prev.occlusion;
    float a[3] = {cur.normal[0], cur.normal[1], cur.normal[2]};
    float b[3] = {prev.normal[0], prev.normal[1], prev.normal[2]};
    normalize3(a);
    normalize3(b);
    float n[3];
    for (int k = 0; k < 3; ++k) n[k] = cw.current * a[k] + cw.previous * b[k];
    normalize3(n);
    float h[3] = {l.dir[0] + v[0], l.dir[1] + v[1], l.dir[2] + v[2]};
    normalize3(h);
    const float I = shade_intensity<occlusion_of(shading)>(l, n, h, o);
    return shade_color<look_of(shading), occlusion_of(shading)>(l, I, base, o, x, y);
}

// ---------------------------------------------------------------------------------------------
// The history, kept lazily. `where` is the place of the last sample the pass took and found
// below; `runs` are the runs through bricks below the isovalue since then, oldest first, each
// noted where the ray entered its brick. The history is the last sample of the newest run that
// has one (none: the step limit ended the ray before it, or no cell of it has a plane sample),
// else the sample at `where`. last_in(run, place) finds a run's last sample; read_at(place)
// reads one.
template <class Place, class Run>
struct LazyHistory {
    static constexpr int capacity = 16;
    Sample last = {};      // the history, once read
    Place where = {};
    bool pending = false;  // `where` is newer than `last`
    Run runs[capacity];
    int n_runs = 0;

    TAVOK_INLINE void took(const Place& p)
    {
        where = p;
        pending = true;
        n_runs = 0;
    }
    // A full list is settled first: only its newest run with a sample can still matter.
    template <class LastIn> TAVOK_INLINE void passed(const Run& r, LastIn&& last_in)
    {
        if (n_runs == capacity) settle(last_in);
        runs[n_runs++] = r;
    }
    template <class LastIn> void settle(LastIn&& last_in)
    {
        while (n_runs > 0) {
            Place p;
            if (last_in(runs[--n_runs], p)) {
                took(p);
                return;
            }
        }
    }
    template <class LastIn, class ReadAt> const Sample& read(LastIn&& last_in, ReadAt&& read_at)
    {
        settle(last_in);
        if (pending) {
            last = read_at(where);
            pending = false;
        }
        return last;
    }
};

// ---------------------------------------------------------------------------------------------
// The plane-sampling passes.

// A stretch of a ray whose cells were not all sampled, to be searched backwards for its last
// plane sample: from `from` (a walk state as stepping leaves it, reached after `moves` moves;
// a cell of the stretch itself only when from_counts) back to the cell after the ray's first,
// which was sampled on the spot. The ray's start point places the samples.
struct PlaneTrail {
    RayWalk from;
    uint32_t moves;
    bool from_counts;
    uint32_t first_moves;  // moves of the ray's first cell
    int32_t first[3];      // the ray's first cell
    float p[3];
};
using PlaneHistory = LazyHistory<PlaneSample, PlaneTrail>;

// The last plane sample of a trail: its cells from the newest back, each one that the walk
// cell by cell would have visited (it lies in a brick that holds densities, solid, and the
// step limit of the pass's form lets it through), until one has a sample. Every move of the
// walk counts one step, so the cell k steps back was reached after moves - k moves.
template <Form form>
bool last_plane_sample_in(const PlaneTrail& trail, const GridView& g, const uint32_t* solid, PlaneSample& out)
{
    RayWalk w = trail.from;
    uint32_t m = trail.moves;
    if (!trail.from_counts) step_back(w, trail.first), m -= 1;
    for (; m > trail.first_moves; step_back(w, trail.first), m -= 1) {
        if (form == Form::final_pass ? m >= g.max_steps : m - 1 >= g.max_steps) continue;
        // A run that leaves the grid may end a few cells beyond it (the rest of a partial brick).
        if (cell_inside(w, g) && solid[brick_index(w, g)] && plane_sample(w, g, trail.p, w.dir, out)) return true;
    }
    return false;
}

template <Form form>
TAVOK_INLINE const Sample& plane_history(PlaneHistory& hist, const GridView& g, const uint32_t* solid)
{
    return hist.read([&](const PlaneTrail& t, PlaneSample& s) { return last_plane_sample_in<form>(t, g, solid, s); },
                     [&](const PlaneSample& s) { return plane_sample_values<true>(s, g); });
}

// The grid of a plane-sampling pass, two ways: as it is (whole), and passing over the bricks
// below the isovalue (below, bricks_below); with interpolation a sample reaches one voxel
// beyond its cell (voxel_reach).
struct FirstHitGrid {
    GridView whole, below;
    const uint16_t* reach;
};
TAVOK_INLINE FirstHitGrid firsthit_grid(const GridView& whole, int kind, int iso)
{
    const BelowKind below = kind >= plane_first ? BelowKind::plane : BelowKind::voxel;
    return {whole, passing_over(whole, bricks_below(iso, below)), voxel_reach};
}

// What a plane-sampling ray keeps while it walks. The cells it passes over in runs or visits
// without sampling are the ones the walk cell by cell would have sampled and found below the
// isovalue; they are searched for the history only when it is needed (at a hit, or by a later
// ray), so the ray notes only whether it has met any since its last sample. A ray that can't
// be stepped back (walk_is_reversible) walks the grid as it is and samples every cell.
struct PlaneRay {
    const float* p;
    bool eager;        // sample every visited cell; nothing is left to search
    bool first;        // the next visit is the ray's first cell, sampled on the spot
    bool unsampled;    // a cell that may hold the history has gone unsampled since the last sample
    uint32_t last_visit;  // moves of the cell visited last
    uint32_t first_moves;
    int32_t first_cell[3];
};

// The visit of a cell without interpolation: its density against the isovalue, in integers.
template <int model>
TAVOK_INLINE bool voxel_hit(const RayWalk& w, const GridView& g, const FirstHitFrame& fh, uint32_t& out)
{
    const uint32_t d = voxel_word(g.voxels, w.index) & density_mask;
    if ((int)d < fh.iso) return false;
    out = model == voxel_model0 ? fh.colors[d] : face_tone(fh.colors[d], w.entry_face);
    return true;
}

// Notes the cells of the ray up to `from` that went unsampled, as a trail to search when the
// history is next needed.
template <Form form>
[[gnu::noinline]] void note_trail(const RayWalk& from, uint32_t moves, bool from_counts, const PlaneRay& ray,
                                  PlaneHistory& hist, const GridView& g, const uint32_t* solid)
{
    hist.passed({from, moves, from_counts, ray.first_moves, {ray.first_cell[0], ray.first_cell[1], ray.first_cell[2]},
                 {ray.p[0], ray.p[1], ray.p[2]}},
                [&](const PlaneTrail& t, PlaneSample& s) { return last_plane_sample_in<form>(t, g, solid, s); });
}

// Notes the unsampled end of a ray that stopped without a hit. How it stopped tells where its
// last cell is: a guarded step left the grid from the cell visited last, moving only that
// coordinate (the axis choice, taken again on the unchanged t values, says which), and no move
// was counted since that visit; a run ended beyond the grid, after steps + 1 moves; or the step
// limit stopped the ray at a cell it did not visit, after steps + 1 moves, or after steps
// where a final counts before it tests.
template <Form form>
[[gnu::noinline]] void note_trail_at_end(const RayWalk& w, const GridView& g, const PlaneRay& ray, PlaneHistory& hist,
                                         const uint32_t* solid)
{
    if (ray.eager) return;
    if (!cell_inside(w, g) && w.steps == ray.last_visit) {
        RayWalk last = w;
        if (w.t_x < w.t_y) {
            if (w.t_x < w.t_z) last.x -= w.step_x;
            else last.z -= w.step_z;
        } else if (w.t_y < w.t_z) {
            last.y -= w.step_y;
        } else {
            last.z -= w.step_z;
        }
        note_trail<form>(last, w.steps, true, ray, hist, g, solid);
        return;
    }
    const uint32_t moves = form == Form::final_pass && cell_inside(w, g) ? w.steps : w.steps + 1;
    note_trail<form>(w, moves, false, ray, hist, g, solid);
}

// The colour of a hit on the plane sample s: once a ray, kept out of the walk's loop.
template <int shading, Form form>
[[gnu::noinline, gnu::cold]] uint32_t light_plane_hit(const PlaneSample& s, const RayWalk& w, const PlaneRay& ray,
                                                    const GridView& g, const uint32_t* solid, PlaneHistory& hist,
                                                    const FirstHitFrame& fh, uint32_t x, uint32_t y)
{
    if (ray.unsampled) note_trail<form>(w, w.steps, false, ray, hist, g, solid);
    const Sample& prev = plane_history<form>(hist, g, solid);
    const Sample cur = plane_sample_values<true>(s, g);
    return shade_crossing<shading>(fh.light, cur, prev, fh.iso_f, w.dir, fh.base, x, y);
}

// The visit of a cell with interpolation. A cell whose reach is below the isovalue holds no
// hit and is left unsampled. Otherwise the sample on the plane just crossed: none, go on;
// below the isovalue, it is the history so far; else a hit, lit at the refined crossing.
// (x, y) is the pixel, for the pencil texel.
template <int shading, Form form>
TAVOK_INLINE bool plane_hit(const RayWalk& w, const FirstHitGrid& fg, const GridView& g, PlaneRay& ray,
                            PlaneHistory& hist, const FirstHitFrame& fh, uint32_t x, uint32_t y, uint32_t& out)
{
    ray.last_visit = w.steps;
    if (!(ray.eager | ray.first) && (int)fg.reach[w.index] < fh.iso) {
        ray.unsampled = true;
        return false;
    }
    ray.first = false;
    PlaneSample s;
    if (!plane_sample(w, g, ray.p, w.dir, s)) return false;
    const uint32_t* const v = g.voxels;
    const uint32_t d00 = voxel_word(v, s.base) & density_mask;
    const uint32_t d10 = voxel_word(v, s.base + s.step_b) & density_mask;
    const uint32_t d01 = voxel_word(v, s.base + s.step_c) & density_mask;
    const uint32_t d11 = voxel_word(v, s.base + s.step_b + s.step_c) & density_mask;
    // The blend is a convex combination (fb + gb and fc + gc are 1 to within a few units of
    // the last place), so four densities of at most isovalue - 1 blend to below isovalue.
    const uint32_t top = std::max(std::max(d00, d10), std::max(d01, d11));
    if ((int)top < fh.iso ||
        plane_blend(s, (float)d00, (float)d10, (float)d01, (float)d11) < fh.iso_f) {
        hist.took(s);
        ray.unsampled = false;
        return false;
    }
    out = light_plane_hit<shading, form>(s, w, ray, g, fg.whole.block_map, hist, fh, x, y);
    return true;
}

// One ray of a plane-sampling pass from its first cell, which lies in the grid: true at a hit,
// its colour in out.
template <int kind, Form form>
TAVOK_INLINE bool firsthit_walk(RayWalk& w, const FirstHitGrid& fg, const float* p, PlaneHistory& hist,
                                const FirstHitFrame& fh, uint32_t x, uint32_t y, uint32_t& out)
{
    if constexpr (kind < plane_first) {
        return walk_ray<form, true>(w, fg.below, [&](const RayWalk& w) TAVOK_LAMBDA_INLINE {
            return voxel_hit<kind>(w, fg.below, fh, out);
        });
    } else {
        const uint32_t* const solid = fg.whole.block_map;
        PlaneRay ray = {p, !walk_is_reversible(w, fg.whole), true, false, w.steps, w.steps, {w.x, w.y, w.z}};
        const GridView& g = ray.eager ? fg.whole : fg.below;
        if (walk_ray<form, true>(
                w, g,
                [&](const RayWalk& w) TAVOK_LAMBDA_INLINE {
                    return plane_hit<kind - plane_first, form>(w, fg, g, ray, hist, fh, x, y, out);
                },
                // A run that starts in a brick with densities passes cells that might have been
                // sampled; one from an empty brick crosses empty bricks only.
                [&](const RayWalk&, uint32_t brick) TAVOK_LAMBDA_INLINE { ray.unsampled |= solid[brick] != 0; }))
            return true;
        if (ray.unsampled) note_trail_at_end<form>(w, g, ray, hist, solid);
        return false;
    }
}

// The pencil texel of a hit needs the pixel's coordinates; other looks don't.
constexpr bool needs_pixel(int kind)
{
    return kind >= plane_first && look_of(kind - plane_first) == Look::pencil;
}

// ---------------------------------------------------------------------------------------------
// Preview: the lattice of walk.h, L = 16, tolerances T >> 2, T >> 1, T, depth replicated by the
// block fill for edge detection. mask is not written. Every miss, and a hit of colour 0, gets
// the background with the paper slid by the scroll; hit texels don't slide.
template <int kind>
void firsthit_preview(RenderTarget* target, uint32_t* voxels, const RayFrame& f)
{
    const FirstHitFrame fh = firsthit_frame();
    const FirstHitGrid fg = firsthit_grid(grid_view(voxels), kind, fh.iso);
    const GridView& g = fg.below;
    uint32_t* const color = target->color;
    uint32_t* const depth = target->depth;
    const uint32_t W = target->width;
    const uint32_t T = refine_tolerance;
    const LatticeRules rules = {firsthit_lattice, preview_limit_simple, {T >> 2, T >> 1, T}, true};
    PlaneHistory hist;

    auto background = [&](uint32_t i) {
        return paper_color(fh.paper, fh.light, i % W + (uint32_t)fh.scroll_x, i / W + (uint32_t)fh.scroll_y);
    };
    auto cast = [&](uint32_t i, const float* dir, uint32_t start_depth) {
        float p[3];
        RayWalk w;
        const PreviewStart entry = start_preview_walk(w, g, f, dir, start_depth, p);
        if (entry == PreviewStart::missed) {
            color[i] = background(i), depth[i] = no_depth;
            return;
        }
        // A first cell outside the grid casts nothing: the pixel keeps what it has.
        if (entry == PreviewStart::outside) return;
        const uint32_t x = needs_pixel(kind) ? i % W : 0, y = needs_pixel(kind) ? i / W : 0;
        uint32_t hit = 0;
        if (firsthit_walk<kind, Form::preview>(w, fg, p, hist, fh, x, y, hit) && hit != 0) {
            color[i] = hit, depth[i] = (uint32_t)w.cross_t;
        } else {
            color[i] = background(i), depth[i] = no_depth;
        }
    };
    auto clear = [&](uint32_t i) { color[i] = background(i), depth[i] = no_depth; };
    run_preview_lattice(target, f, rules, cast, clear);
}

// ---------------------------------------------------------------------------------------------
// Final: one ray a pixel, polling on odd lines. The first sample of a ray is its first crossing:
// cross_t starts at 0x3FFFFF, which puts the first cell's own sample about a thousand ray units
// away, outside the grid. Depths are written only for edge detection: the crossing of a hit,
// no_depth for a ray that saw nothing, and nothing for a ray that missed the box (the
// preview's depth stays).
template <int kind>
void firsthit_final_line(uint32_t* row, uint32_t* depth_row, uint32_t width, uint32_t y, const GridView& whole,
                         const RayFrame& f, const float* line_dir, const FirstHitFrame& fh, PlaneHistory& hist)
{
    const FirstHitGrid fg = firsthit_grid(whole, kind, fh.iso);
    const GridView& g = fg.below;
    line_pixels(f, line_dir, width, [&](uint32_t x, const float* dir) {
        RayWalk w;
        float p[3];
        const RayStart start = start_final_ray<true>(w, g, f, dir, p, 0x3fffff);
        uint32_t hit = 0;
        if (start == RayStart::in_grid &&
            firsthit_walk<kind, Form::final_pass>(w, fg, p, hist, fh, x, y, hit)) {
            row[x] = hit;
            if (fh.edges) depth_row[x] = (uint32_t)w.cross_t;
            return;
        }
        row[x] = paper_color(fh.paper, fh.light, x, y);
        if (fh.edges && start != RayStart::missed_box) depth_row[x] = no_depth;
    });
}

// ---------------------------------------------------------------------------------------------
// Trilinear final: the march of sample.h at sample_stepsize. Beside the main surface, up to
// four extra surfaces (surface_on, surface_isovalue) are found along the same ray, each with a
// history of its own; the ray ends once the main surface and every extra one that is on have
// been hit, so with no extra surface the main hit ends it at once. The pixel averages the
// colours of the extra surfaces hit and the main surface's colour, the latter only when the
// main surface was the last one hit.
//
// Pre-shading lights a hit at the sample itself, with its normalised gradient, the frame's
// half_vector and the rational specular form, and leaves out toon, pencil and occlusion.
// Post-shading lights it at the refined crossing as the plane-sampling passes do.

// A place of the march: a sample's base cell and position.
struct MarchPlace {
    int32_t cell[3];
    float pos[3];
};
// A run through a brick below the isovalue: the position where the march entered it, its
// number n (the advances from the ray's first position), and the ray's step vector.
struct MarchRun {
    MarchPlace at;
    float s[3];
    uint32_t n;
};
using MarchHistory = LazyHistory<MarchPlace, MarchRun>;

TAVOK_INLINE uint32_t brick_of_cell(const GridView& g, const int32_t* c)
{
    return (((uint32_t)c[0] >> 3) * g.block_z + ((uint32_t)c[2] >> 3)) * g.block_y + ((uint32_t)c[1] >> 3);
}

// The last position of a run's brick that the march sampling it would have sampled: from the
// run's first position on, each that the sample limit lets through, advancing as the march
// does until the ray leaves the brick or the grid.
bool last_march_sample_in(const MarchRun& r, const GridView& g, float limit, MarchPlace& out)
{
    MarchPlace at = r.at;
    const uint32_t size[3] = {g.size_x, g.size_y, g.size_z};
    const uint32_t brick = brick_of_cell(g, at.cell);
    bool found = false;
    for (uint32_t n = r.n; !(limit <= (float)n); ++n) {
        out = at, found = true;
        for (int a = 0; a < 3; ++a) {
            at.pos[a] += r.s[a];
            at.cell[a] = trunc_i32(at.pos[a]);
            if ((uint32_t)at.cell[a] >= size[a]) return true;
        }
        if (brick_of_cell(g, at.cell) != brick) break;
    }
    return found;
}

TAVOK_INLINE Sample march_sample_at(const MarchPlace& m, const GridView& g)
{
    Corners k;
    trilinear_corners(g, m.cell, m.pos, k);
    return trilinear_sample<true>(g, k);
}

TAVOK_INLINE const Sample& march_history(MarchHistory& h, const GridView& g, float limit)
{
    return h.read([&](const MarchRun& r, MarchPlace& m) { return last_march_sample_in(r, g, limit, m); },
                  [&](const MarchPlace& m) { return march_sample_at(m, g); });
}

// The histories of one pass: the main surface's and the four extra surfaces'.
struct TrilinearHistories {
    MarchHistory main, extra[4];
};

// The extra surfaces, copied from the settings once per line.
struct ExtraSurfaces {
    int n_on;          // how many are on
    int on[4];         // surface_on
    int iso[4];        // surface_isovalue
    float iso_f[4];
    uint32_t base[4];  // color_lut of the isovalue
};

// The lit colour of a surface of isovalue iso and colour base, hit at the sample cur.
// shading < 0: pre-shading, at the sample itself; the history plays no part.
template <int shading>
TAVOK_INLINE uint32_t shade_sample(const FirstHitFrame& fh, const Sample& cur, MarchHistory& hist, const GridView& g,
                                   float limit, float iso, uint32_t base, const float* dir, const float* half,
                                   uint32_t x, uint32_t y)
{
    if constexpr (shading < 0) {
        // The refine weights would not be used: the sample's own normal, normalised.
        float n[3] = {cur.normal[0], cur.normal[1], cur.normal[2]};
        normalize3(n);
        return shade_plain(shade_intensity_rational(fh.light, n, half), base, fh.light.color);
    } else {
        return shade_crossing<shading>(fh.light, cur, march_history(hist, g, limit), iso, dir, base, x, y);
    }
}

// One ray of the trilinear final from p: true with the pixel when a surface was hit. started:
// the march began (its first position lies in the grid). g passes over the bricks below all the
// isovalues; solid is the volume's own brick map.
template <int shading, bool with_extras>
TAVOK_INLINE bool trilinear_ray(const GridView& g, const uint32_t* solid, const float* p, const float* dir,
                                float stepsize, float limit, const FirstHitFrame& fh, const ExtraSurfaces& ex,
                                TrilinearHistories& hs, const float* half, uint32_t x, uint32_t y,
                                uint32_t& pixel, bool& started)
{
    bool main_hit = false;
    int last_hit = 0;  // 0 nothing yet, 1 the main surface, 2 + k the extra surface k
    int surface_hit[4] = {0, 0, 0, 0};
    uint32_t surface_color[4] = {0, 0, 0, 0};
    uint32_t main_color = 0;
    int hits = 0;
    bool have_step = false;
    float step[3] = {0.0f, 0.0f, 0.0f};
    const uint16_t* const reach = voxel_reach;
    auto last_in = [&](const MarchRun& r, MarchPlace& m) { return last_march_sample_in(r, g, limit, m); };
    started = march_ray(
        g, p, dir, stepsize,
        [&](const int32_t* cell, const float* pos) TAVOK_LAMBDA_INLINE {
            // At a position of the grid the eight weights lie in 0..1 and sum to 1 to within a
            // few units of the last place: a sample whose eight voxels (the cell's reach) all
            // lie below an isovalue is below it, and neither its weights nor its blend are
            // needed. A position slightly below 0 on an axis still counts as cell 0, with a
            // negative fraction that weighs beyond the voxels: it is blended.
            const bool in_grid = pos[0] >= 0.0f && pos[1] >= 0.0f && pos[2] >= 0.0f;
            const int top = in_grid ? reach[((size_t)cell[0] * g.size_z + (size_t)cell[2]) * g.size_y + (size_t)cell[1]]
                                    : INT32_MAX;
            Corners k;
            bool weighed = false, blended = false, have_sample = false;
            float density = 0.0f;
            auto corners = [&]() -> const Corners& {
                if (!weighed) trilinear_corners(g, cell, pos, k), weighed = true;
                return k;
            };
            auto below = [&](int iso, float iso_f) {
                if (top < iso) return true;
                if (!blended) {
                    density = trilinear_value(corners(), [&](size_t i) {
                        return (float)(voxel_word(g.voxels, i) & density_mask);
                    });
                    blended = true;
                }
                return density < iso_f;
            };
            const MarchPlace here = {{cell[0], cell[1], cell[2]}, {pos[0], pos[1], pos[2]}};
            Sample cur;
            auto sample = [&]() -> const Sample& {
                if (!have_sample) cur = trilinear_sample<true>(g, corners()), have_sample = true;
                return cur;
            };
            if (!main_hit) {
                if (below(fh.iso, fh.iso_f)) {
                    hs.main.took(here);
                } else {
                    main_color = shade_sample<shading>(fh, sample(), hs.main, g, limit, fh.iso_f, fh.base, dir,
                                                       half, x, y);
                    main_hit = true;
                    last_hit = 1;
                }
            }
            if constexpr (with_extras) {
                for (int s = 0; s < 4; ++s) {
                    if (!ex.on[s] || surface_hit[s]) continue;
                    if (below(ex.iso[s], ex.iso_f[s])) {
                        hs.extra[s].took(here);
                    } else {
                        surface_color[s] = shade_sample<shading>(fh, sample(), hs.extra[s], g, limit, ex.iso_f[s],
                                                                 ex.base[s], dir, half, x, y);
                        surface_hit[s] = 1;
                        hits += 1;
                        last_hit = s + 2;
                    }
                }
            }
            return main_hit && hits == ex.n_on;
        },
        [&](const int32_t* cell, const float* pos, uint32_t n) {
            if (!solid[brick_of_cell(g, cell)]) return;
            if (!have_step) march_step(dir, stepsize, step), have_step = true;
            const MarchRun r = {{{cell[0], cell[1], cell[2]}, {pos[0], pos[1], pos[2]}}, {step[0], step[1], step[2]}, n};
            if (!main_hit) hs.main.passed(r, last_in);
            if constexpr (with_extras)
                for (int s = 0; s < 4; ++s)
                    if (ex.on[s] && !surface_hit[s]) hs.extra[s].passed(r, last_in);
        });
    if (!started || last_hit == 0) return false;
    // With no extra surface on, the main colour is the pixel. Otherwise the colours of the
    // extra surfaces hit are averaged, with the main surface's only when it was the last hit.
    if (!with_extras || ex.n_on == 0) {
        pixel = main_color & 0xffffff;
        return true;
    }
    uint32_t r = 0, gr = 0, b = 0, n = 0;
    if (last_hit == 1) {
        r = main_color >> 16 & 0xff, gr = main_color >> 8 & 0xff, b = main_color & 0xff;
        n = 1;
    }
    for (int s = 0; s < 4; ++s)
        if (surface_hit[s]) {
            r += surface_color[s] >> 16 & 0xff, gr += surface_color[s] >> 8 & 0xff, b += surface_color[s] & 0xff;
            n += 1;
        }
    pixel = (r / n) << 16 | (gr / n) << 8 | b / n;
    return true;
}

template <int shading, bool with_extras>
void firsthit_trilinear_line(uint32_t* row, uint32_t* depth_row, uint32_t width, uint32_t y, const GridView& whole,
                             const RayFrame& f, const float* line_dir, const FirstHitFrame& fh,
                             const ExtraSurfaces& ex, TrilinearHistories& hs)
{
    const float stepsize = sample_stepsize;
    const float limit = march_limit(whole, stepsize);
    const float half[3] = {half_vector[0], half_vector[1], half_vector[2]};
    // Bricks below every isovalue of the ray are passed over.
    int lowest = fh.iso;
    if (with_extras)
        for (int s = 0; s < 4; ++s)
            if (ex.on[s]) lowest = std::min(lowest, ex.iso[s]);
    const GridView g = passing_over(whole, bricks_below(lowest, BelowKind::march));
    line_pixels(f, line_dir, width, [&](uint32_t x, const float* dir) {
        float p[3];
        bool started = false;
        uint32_t pixel = 0;
        bool hit = false;
        if (f.eye_inside || ray_box_entry(dir, f.eye, p)) {
            if (f.eye_inside) p[0] = f.eye[0], p[1] = f.eye[1], p[2] = f.eye[2];
            hit = trilinear_ray<shading, with_extras>(g, whole.block_map, p, dir, stepsize, limit, fh, ex, hs, half,
                                                      x, y, pixel, started);
        }
        if (hit) {
            row[x] = pixel;
            // A constant: edge detection sees only silhouettes in this pass.
            if (fh.edges) depth_row[x] = 0x3fffff;
            return;
        }
        row[x] = paper_color(fh.paper, fh.light, x, y);
        if (fh.edges && started) depth_row[x] = no_depth;
    });
    // The histories stay for the next line; a poll between lines may replace the grid, so
    // they are read now.
    march_history(hs.main, whole, limit);
    for (MarchHistory& h : hs.extra) march_history(h, whole, limit);
}

// Ends a pass that ran to its last line: edge lines, or the plain copy.
void finish(const RenderTarget* target)
{
    if (edge_enabled) detect_edges(target);
    else show_image(target);
}

}  // namespace

// ---------------------------------------------------------------------------------------------

void render_firsthit_preview(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                             float* istr)
{
    lattice_step = firsthit_lattice;
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    // The preview samples planes in any interpolation but none: the trilinear final has it too.
    choose_kind(current_kind(interp_mode != interp_none),
                [&](auto kind) { firsthit_preview<kind>(target, voxels, f); });
    finish(target);
}

void render_firsthit_final(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor, float* iup,
                           float* istr)
{
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    const uint32_t width = target->width;
    PlaneHistory hist;
    const bool done = run_final_lines<Polling::odd_lines>(
        target, f, voxels,
        [&](uint32_t y, const float* line_dir, const GridView& g) {
            const FirstHitFrame fh = firsthit_frame();
            uint32_t* row = target->color + (size_t)y * width;
            uint32_t* depth_row = target->depth + (size_t)y * width;
            choose_kind(current_kind(interp_mode != interp_none), [&](auto kind) {
                firsthit_final_line<kind>(row, depth_row, width, y, g, f, line_dir, fh, hist);
            });
            // A poll between lines may replace the grid: the history is read now.
            plane_history<Form::final_pass>(hist, g, g.block_map);
        },
        [&](uint32_t) { render_firsthit_preview(target, voxels, ipos, ifor, iup, istr); });
    if (done) finish(target);
    else show_image(target);
}

void render_firsthit_final_trilinear(RenderTarget* target, uint32_t* voxels, float* ipos, float* ifor,
                                     float* iup, float* istr)
{
    RayFrame f;
    setup_ray_frame(f, target, ipos, ifor, iup, istr);
    const uint32_t width = target->width;
    TrilinearHistories hs;
    const bool done = run_final_lines<Polling::every_line>(
        target, f, voxels,
        [&](uint32_t y, const float* line_dir, const GridView& g) {
            const FirstHitFrame fh = firsthit_frame();
            ExtraSurfaces ex = {};
            for (int s = 0; s < 4; ++s) {
                ex.on[s] = surface_on[s] != 0;
                ex.n_on += ex.on[s];
                ex.iso[s] = surface_isovalue[s];
                ex.iso_f[s] = (float)surface_isovalue[s];
                ex.base[s] = isovalue_color(fh.colors, surface_isovalue[s]);
            }
            uint32_t* row = target->color + (size_t)y * width;
            uint32_t* depth_row = target->depth + (size_t)y * width;
            const int shading = pre_shading ? -1 : (int)current_look() + (use_occlusion ? 3 : 0);
            choose<0, 1>(ex.n_on > 0, [&](auto extras) {
                choose<-1, 0, 1, 2, 3, 4, 5>(shading, [&](auto s) {
                    firsthit_trilinear_line<s, extras>(row, depth_row, width, y, g, f, line_dir, fh, ex, hs);
                });
            });
        },
        [](uint32_t) {});
    // Broken off: the lines done so far are shown only when no new preview is on its way (the
    // colour dialog stopped the pass), or into a render to file.
    if (done) finish(target);
    else if (!refresh || offscreen_render) show_image(target);
}
