// walk.h — the skeleton every ray caster is built on, written once and stamped out inline in
// each pass: the frame set-up (first ray and increments), ray_box_entry, the ray start with
// its sign rule and fixed-point set-up, the integer walk with brick skipping (walk_ray) and the
// adaptive preview lattice (run_preview_lattice).
//
// Used by every render pass of src/raycast and src/composite. Nothing here writes a global:
// the walk reads the grid through a GridView of const locals, and the lattice writes only the
// RenderTarget it is given and whatever the pass's own per-ray step writes.
//
// How a pass uses it: final.h drives the finals (line loop, polling, ray start); a preview
// sets lattice_step, fills a LatticeRules and hands run_preview_lattice a cast step
// (preview_ray_start, start_walk from the shifted cell point, the first-cell test, cross_t =
// trunc(start_depth * 0.9), walk_ray<Form::preview, true>, the store rules) and a clear step
// for all-miss cells. cuberille.cpp is the model pass.
#pragma once
#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/core.h"
#include "raycast/raycast.h"
#include "volume/volume.h"

#define TAVOK_INLINE [[gnu::always_inline]] inline
// The same for a lambda, written after its parameter list: a pass's per-cell work given to the
// walk or the march is stamped into the loop, not called.
#define TAVOK_LAMBDA_INLINE __attribute__((always_inline))

// ---------------------------------------------------------------------------------------------
// Float to 32-bit int the way the processor truncates toward zero. A value outside the int
// range gives what the conversion instruction gives (0x80000000 on x86), not undefined
// behaviour: the set-up of a ray with a tiny negative direction component relies on it.
TAVOK_INLINE int32_t trunc_i32(float f)
{
#if defined(__x86_64__) || defined(__i386__)
    // The instruction itself: the compiler folds a conversion of a known constant with
    // saturation, which would make a constant ray differ from a computed one.
    int32_t r;
    asm("cvttss2si %1, %0" : "=r"(r) : "x"(f));
    return r;
#else
    if (!(f > -2147483904.0f && f < 2147483648.0f)) return INT32_MIN;
    return (int32_t)f;
#endif
}

// Signed 32-bit addition that wraps as the processor's does; t values of rays with huge dt
// may pass the int range, and their wrap-around is part of how such a ray walks.
TAVOK_INLINE int32_t wrap_add(int32_t a, int32_t b) { return (int32_t)((uint32_t)a + (uint32_t)b); }
TAVOK_INLINE int32_t wrap_sub(int32_t a, int32_t b) { return (int32_t)((uint32_t)a - (uint32_t)b); }

// ---------------------------------------------------------------------------------------------
// Frame set-up, once per pass. The image plane stands one ifor ahead of the eye; the short
// side of the image spans one unit of it.
struct RayFrame {
    float eye[3];        // ipos
    bool eye_inside;     // 0 <= ipos <= size on every axis, all bounds inclusive
    float first[3];      // ray_dir of pixel (0, 0): ifor - istr * half_extent_str - iup * half_extent_up
    float pixel_inc[3];  // pixel_step * istr, one pixel along a row
    float line_inc[3];   // pixel_step * iup, one line down
};
// The target's size gives the image plane (view_extents).
void setup_ray_frame(RayFrame& f, const RenderTarget* target, const float* ipos, const float* ifor,
                     const float* iup, const float* istr);

// Where a ray from an eye outside the box first meets it. Axes in the order x, y, z; the
// nearest candidate wins, an equal distance keeps the earlier axis. For a negative direction
// component the point lies on the plane of the last cell (size - 1) while the distance is
// measured to the plane one beyond it. False: the ray never enters. The face is not told.
// Inline: it runs once for every ray that starts outside the box.
TAVOK_INLINE bool ray_box_entry(const float* direction, const float* eye, float* out_point)
{
    const float size[3] = {(float)vol_x, (float)vol_y, (float)vol_z};
    // 4194304 stands for infinity: a candidate that far away is no entry.
    float best = 4194304.0f;
    for (int a = 0; a < 3; ++a) {
        const int b = a == 0 ? 1 : 0, c = a == 2 ? 1 : 2;
        float t, plane, term;
        if (direction[a] < 0.0f) {
            if (eye[a] < size[a]) continue;
            // Aims at the plane of the last cell, while the distance term takes the plane one
            // beyond it.
            t = ((size[a] - eye[a]) - 1.0f) / direction[a];
            plane = size[a] - 1.0f;
            term = eye[a] - size[a];
        } else {
            if (eye[a] >= 0.0f) continue;
            t = -eye[a] / direction[a];
            plane = 0.0f;
            term = eye[a];
        }
        const float pb = t * direction[b] + eye[b];
        const float pc = t * direction[c] + eye[c];
        // NaN from a zero component fails these tests too.
        if (!(0.0f <= pb && pb <= size[b] && 0.0f <= pc && pc <= size[c])) continue;
        const float db = eye[b] - pb, dc = eye[c] - pc;
        const float distance = sqrtf(term * term + db * db + dc * dc);
        if (distance < best) {
            out_point[a] = plane;
            out_point[b] = pb;
            out_point[c] = pc;
            best = distance;
        }
    }
    return best != 4194304.0f;
}

// ---------------------------------------------------------------------------------------------
// What the walk reads of the grid, hoisted into const locals of the pass so that nothing in
// the loop goes back to a global.
struct GridView {
    const uint32_t* voxels;
    const GradientRecord* gradients;
    const uint32_t* block_map;
    const uint8_t* empty_radius;  // block_empty_radius
    uint32_t size_x, size_y, size_z;  // vol_x, vol_y, vol_z
    uint32_t block_y, block_z;
    int64_t stride_x, stride_y, stride_z;  // voxel index steps: vol_y * vol_z, 1, vol_y
    uint32_t max_steps;                    // max_ray_steps
};
TAVOK_INLINE GridView grid_view(const uint32_t* voxel_words)
{
    GridView g;
    g.voxels = voxel_words;
    g.gradients = gradients;
    g.block_map = block_map;
    g.empty_radius = block_empty_radius;
    g.size_x = vol_x, g.size_y = vol_y, g.size_z = vol_z;
    g.block_y = block_y, g.block_z = block_z;
    g.stride_x = (int64_t)vol_y * vol_z, g.stride_y = 1, g.stride_z = vol_y;
    g.max_steps = max_ray_steps;
    return g;
}

// The state of one ray's walk; nothing of it outlives the ray. t values are fixed point with
// 12 fractional bits: 4096 is one unit of the ray parameter along the unnormalised direction.
struct RayWalk {
    int32_t x, y, z;                       // current cell
    int32_t step_x, step_y, step_z;        // +1 or -1
    int32_t t_x, t_y, t_z;                 // t where the ray leaves the cell through that axis
    int32_t dt_x, dt_y, dt_z;              // t between two planes of that axis, > 0 normally
    int64_t stride_x, stride_y, stride_z;  // index steps with the sign of the step
    int64_t index;                         // voxel index of the current cell, kept by strides
    int32_t cross_t;   // t of the last plane crossed; kept only by walks that ask for it
    // cross_t before its last change, kept only by walks that ask for it (keep_prev_cross_t):
    // the step's length along the ray. start_walk leaves it alone, so that a pass can carry
    // it from one ray to the next.
    int32_t prev_cross_t;
    int8_t entry_face; // axis of the last crossing, 1 x, 2 y, 3 z; -1 before the first step
    uint32_t steps;    // steps counted against max_ray_steps
    float dir[3];      // the ray's direction after the sign rule raised small components
    // 1 / dt, raised by 2^-20, for computing runs through empty space (run_through_empty);
    // taken at the ray's first run only, as many rays of a preview never meet empty space.
    bool have_inverse_dt;
    float inverse_dt_x, inverse_dt_y, inverse_dt_z;
};

// Sets up the walk of a ray with direction dir (taken as it stands, before the sign rule)
// that starts at p. The first cell is cell_point truncated; the fractions to the first planes
// are measured from p, so every t stays on the scale of the ray from p. Finals and lattice
// rays pass p for both; a preview's refining ray passes a point further along the ray.
//
// Sign rule: a negative component steps -1 and its fraction is p - cell; any other steps +1,
// its fraction is (cell + 1) - p, and below 0.0001 it is raised to 0.0001 (so an exact 0
// walks with dt of about 40,960,000). A negative component is left alone, however small.
TAVOK_INLINE void start_walk(RayWalk& w, const GridView& g, const float* p, const float* cell_point,
                             const float* dir)
{
    int32_t cell[3], step[3], t[3], dt[3];
    for (int a = 0; a < 3; ++a) {
        cell[a] = trunc_i32(cell_point[a]);
        float component = dir[a], fraction;
        if (component < 0.0f) {
            step[a] = -1;
            fraction = p[a] - (float)cell[a];
        } else {
            step[a] = 1;
            fraction = (float)(cell[a] + 1) - p[a];
            if (component < 0.0001f) component = 0.0001f;
        }
        float inverse = 1.0f / component;
        dt[a] = trunc_i32((float)step[a] * inverse * 4096.0f);
        t[a] = trunc_i32(fraction * fabsf(inverse) * 4096.0f);
        w.dir[a] = component;
    }
    w.x = cell[0], w.y = cell[1], w.z = cell[2];
    w.step_x = step[0], w.step_y = step[1], w.step_z = step[2];
    w.t_x = t[0], w.t_y = t[1], w.t_z = t[2];
    w.dt_x = dt[0], w.dt_y = dt[1], w.dt_z = dt[2];
    w.have_inverse_dt = false;
    w.stride_x = step[0] > 0 ? g.stride_x : -g.stride_x;
    w.stride_y = step[1] > 0 ? g.stride_y : -g.stride_y;
    w.stride_z = step[2] > 0 ? g.stride_z : -g.stride_z;
    w.index = ((int64_t)cell[0] * g.size_z + cell[2]) * g.size_y + cell[1];
    w.cross_t = 0;
    w.entry_face = -1;
    w.steps = 0;
}

// The current cell lies in the grid: coordinates compared unsigned, so -1 fails like size.
TAVOK_INLINE bool cell_inside(const RayWalk& w, const GridView& g)
{
    return ((uint32_t)w.x < g.size_x) & ((uint32_t)w.y < g.size_y) & ((uint32_t)w.z < g.size_z);
}

TAVOK_INLINE uint32_t brick_index(const RayWalk& w, const GridView& g)
{
    return (((uint32_t)w.x >> 3) * g.block_z + ((uint32_t)w.z >> 3)) * g.block_y + ((uint32_t)w.y >> 3);
}

// ---------------------------------------------------------------------------------------------
// One step along a given axis. The axis is a template parameter, so that each of the three
// branches of the axis choice compiles to straight code on its own fields.
template <int A> struct WalkAxis;
template <> struct WalkAxis<0> {
    static constexpr int32_t RayWalk::*cell = &RayWalk::x;
    static constexpr int32_t RayWalk::*step = &RayWalk::step_x;
    static constexpr int32_t RayWalk::*t = &RayWalk::t_x;
    static constexpr int32_t RayWalk::*dt = &RayWalk::dt_x;
    static constexpr int64_t RayWalk::*stride = &RayWalk::stride_x;
    static constexpr uint32_t GridView::*size = &GridView::size_x;
    static constexpr int8_t face = 1;
};
template <> struct WalkAxis<1> {
    static constexpr int32_t RayWalk::*cell = &RayWalk::y;
    static constexpr int32_t RayWalk::*step = &RayWalk::step_y;
    static constexpr int32_t RayWalk::*t = &RayWalk::t_y;
    static constexpr int32_t RayWalk::*dt = &RayWalk::dt_y;
    static constexpr int64_t RayWalk::*stride = &RayWalk::stride_y;
    static constexpr uint32_t GridView::*size = &GridView::size_y;
    static constexpr int8_t face = 2;
};
template <> struct WalkAxis<2> {
    static constexpr int32_t RayWalk::*cell = &RayWalk::z;
    static constexpr int32_t RayWalk::*step = &RayWalk::step_z;
    static constexpr int32_t RayWalk::*t = &RayWalk::t_z;
    static constexpr int32_t RayWalk::*dt = &RayWalk::dt_z;
    static constexpr int64_t RayWalk::*stride = &RayWalk::stride_z;
    static constexpr uint32_t GridView::*size = &GridView::size_z;
    static constexpr int8_t face = 3;
};

// A guarded step along axis A: false when the new coordinate is outside the grid on that axis
// (only the stepped axis is tested); the ray has then left the grid, and nothing but the
// coordinate has moved. crossed: the step entered a new brick, which is exactly when the low
// three bits of the coordinate are 0 after a +1 step or 7 after a -1 step.
template <int A, bool keep_cross_t, bool keep_prev_cross_t>
TAVOK_INLINE bool guarded_step(RayWalk& w, const GridView& g, bool& crossed)
{
    using X = WalkAxis<A>;
    const int32_t c = w.*X::cell + w.*X::step;
    w.*X::cell = c;
    if ((uint32_t)c >= g.*X::size) return false;
    crossed = (c & 7) == ((w.*X::step >> 1) & 7);
    if (keep_prev_cross_t) w.prev_cross_t = w.cross_t;
    if (keep_cross_t) w.cross_t = w.*X::t;
    w.*X::t = wrap_add(w.*X::t, w.*X::dt);
    w.index += w.*X::stride;
    w.entry_face = X::face;
    return true;
}

// The axis choice, the same everywhere: x only when strictly first, y before z only when
// strictly below it, so z wins every tie and y wins a tie with x.
template <bool keep_cross_t, bool keep_prev_cross_t = false>
TAVOK_INLINE bool guarded_step(RayWalk& w, const GridView& g, bool& crossed)
{
    if (w.t_x < w.t_y) {
        if (w.t_x < w.t_z) return guarded_step<0, keep_cross_t, keep_prev_cross_t>(w, g, crossed);
        return guarded_step<2, keep_cross_t, keep_prev_cross_t>(w, g, crossed);
    }
    if (w.t_y < w.t_z) return guarded_step<1, keep_cross_t, keep_prev_cross_t>(w, g, crossed);
    return guarded_step<2, keep_cross_t, keep_prev_cross_t>(w, g, crossed);
}

// The walk one cell back, the inverse of a step: for a ray whose steps are the events of three
// arithmetic sequences of t (every dt > 0 and no t ever wrapping; see walk_is_reversible).
// first is the ray's first cell, or any cell of the walk that the caller never steps back
// beyond. The entry face says which axis stepped last; once that step is undone, the cell's
// own entry is the latest crossing made before it: among the axes that have stepped since
// first (their coordinate differs from it), the largest t - dt, and at equal t the one the
// forward walk took last (z before y before x, so x among equals). Back at first, the entry
// face is -1 and cross_t is left as it is: a first cell's entry is the pass's own, and an
// earlier cell's is not told. steps is not touched.
TAVOK_INLINE void step_back(RayWalk& w, const int32_t* first)
{
    switch (w.entry_face) {
    case 1: w.x -= w.step_x, w.t_x -= w.dt_x, w.index -= w.stride_x; break;
    case 2: w.y -= w.step_y, w.t_y -= w.dt_y, w.index -= w.stride_y; break;
    default: w.z -= w.step_z, w.t_z -= w.dt_z, w.index -= w.stride_z; break;
    }
    int8_t face = -1;
    int32_t latest = 0;
    if (w.z != first[2]) latest = w.t_z - w.dt_z, face = 3;
    if (w.y != first[1] && (face < 0 || w.t_y - w.dt_y >= latest)) latest = w.t_y - w.dt_y, face = 2;
    if (w.x != first[0] && (face < 0 || w.t_x - w.dt_x >= latest)) latest = w.t_x - w.dt_x, face = 1;
    if (face > 0) w.cross_t = latest;
    w.entry_face = face;
}

// The ray's t values never wrap and every dt is positive, so that step_back undoes its steps:
// an axis steps at most size + 2 times before it leaves the grid (a final's ray may start one
// cell outside), and only its own steps raise its t. Taken at the ray's start. False for the rare rays with a component so near 0 that the set-up's dt overflowed
// or nearly did.
TAVOK_INLINE bool walk_is_reversible(const RayWalk& w, const GridView& g)
{
    return w.dt_x > 0 && w.dt_y > 0 && w.dt_z > 0 && w.t_x >= 0 && w.t_y >= 0 && w.t_z >= 0 &&
           (int64_t)w.t_x + (int64_t)w.dt_x * (g.size_x + 2) < INT32_MAX &&
           (int64_t)w.t_y + (int64_t)w.dt_y * (g.size_y + 2) < INT32_MAX &&
           (int64_t)w.t_z + (int64_t)w.dt_z * (g.size_z + 2) < INT32_MAX;
}

// The run through one empty brick: unguarded steps by the axis choice until a step enters
// another brick. The cells of an empty brick are not read, so the run is computed where it
// ends instead of stepped: see run_through_empty. This is the step-by-step form, kept for the
// rays whose t values wrap around (a dt that overflowed in the set-up), where the computed
// form does not hold. Only coordinates and t move per step; since every step moves one
// coordinate by one, steps, index, entry_face and cross_t are set once at the end, to the
// values that stepping them one by one gives.
// It takes and returns the walk by value, so that the walk of the common path, whose address
// is never taken, can live in registers. With keep_prev_cross_t the t of each step is noted,
// so that the one before the last is at hand at the end.
template <bool keep_cross_t, bool keep_prev_cross_t>
[[gnu::noinline]] RayWalk run_through_brick_by_steps(RayWalk w)
{
    int32_t x = w.x, y = w.y, z = w.z, tx = w.t_x, ty = w.t_y, tz = w.t_z;
    const int32_t sx = w.step_x, sy = w.step_y, sz = w.step_z;
    const int32_t dx = w.dt_x, dy = w.dt_y, dz = w.dt_z;
    const int32_t ex = (sx >> 1) & 7, ey = (sy >> 1) & 7, ez = (sz >> 1) & 7;
    int32_t last_t = w.cross_t, before_last_t = w.cross_t;
    int8_t face;
    for (;;) {
        if (tx < ty) {
            if (tx < tz) {
                if (keep_prev_cross_t) before_last_t = last_t, last_t = tx;
                x += sx, tx = wrap_add(tx, dx);
                if ((x & 7) == ex) { face = 1; break; }
                continue;
            }
        } else if (ty < tz) {
            if (keep_prev_cross_t) before_last_t = last_t, last_t = ty;
            y += sy, ty = wrap_add(ty, dy);
            if ((y & 7) == ey) { face = 2; break; }
            continue;
        }
        if (keep_prev_cross_t) before_last_t = last_t, last_t = tz;
        z += sz, tz = wrap_add(tz, dz);
        if ((z & 7) == ez) { face = 3; break; }
    }
    if (keep_prev_cross_t) w.prev_cross_t = before_last_t;
    const int32_t nx = (x - w.x) * sx, ny = (y - w.y) * sy, nz = (z - w.z) * sz;
    w.steps += (uint32_t)(nx + ny + nz);
    w.index += nx * w.stride_x + ny * w.stride_y + nz * w.stride_z;
    if (keep_cross_t)
        w.cross_t = face == 1 ? wrap_sub(tx, dx) : face == 2 ? wrap_sub(ty, dy) : wrap_sub(tz, dz);
    w.x = x, w.y = y, w.z = z, w.t_x = tx, w.t_y = ty, w.t_z = tz;
    w.entry_face = face;
    return w;
}

// How many steps an axis whose next step is at t, with increment dt > 0, takes at t values up
// to and including last: floor((last - t) / dt) + 1, or 0 when last < t. With s = last - t +
// dt, cut at 0 below (every s up to 0 gives 0), that is floor(s / dt). The quotient is
// estimated with the ray's reciprocal of dt, which is raised by 2^-20 so that the estimate is
// never below the true quotient (float rounding of s and of the product stays under 2^-22),
// and at most a hair above it; the one correction that can be needed is therefore downward
// and rare, and the result is exact.
TAVOK_INLINE int64_t steps_up_to(int64_t last, int64_t t, int64_t dt, float inverse_dt)
{
    int64_t s = last - t + dt;
    s = s < 0 ? 0 : s;
    int64_t k = (int64_t)((float)s * inverse_dt);
    while (k * dt > s) --k;
    while ((k + 1) * dt <= s) ++k;
    return k;
}

// The run through empty space, computed where it ends. In empty bricks the walk reads
// nothing and counts every move of the ray from cell to cell (the skip loop's steps, and the
// one counted before each guarded step that follows a run), and it stops at the first cell
// that lies in a solid brick or outside the grid. So a run may cross any box of empty bricks
// in one go: here, the cube of radius r bricks around the current brick (block_empty_radius),
// r = 0 being the brick alone.
//
// The walk's steps are the events of three arithmetic sequences, axis a stepping at t_a,
// t_a + dt_a, ..., taken in the order of t with z before y before x at equal t (the axis
// choice). Axis a leaves the box with its n_a-th step, at e_a = t_a + (n_a - 1) dt_a; the run
// ends with the first of these in that order, and every axis has by then taken each of its
// steps that comes before it in that order: the steps at t below e, and those at t = e if the
// axis comes before the leaving one (for the leaving axis itself that gives its n_a steps).
// The result is what stepping one by one gives, bit for bit, as long as no t wraps around;
// rays whose t could wrap are stepped (run_through_brick_by_steps, one brick at a time). The
// first cell must lie in the grid.
//
// keep_prev_cross_t: cross_t before the run's last step is the t of the step before it. Steps
// come in the order of t, so that is the largest t of all the ray's steps but the last: the
// last step of each other axis (its t now less its dt), the one before the last of the
// leaving axis (e less its dt), and cross_t before the run (the step that led into it). An
// axis that never stepped gives its t less dt, which lies at or below the ray's start.
template <bool keep_cross_t, bool keep_prev_cross_t = false>
TAVOK_INLINE void run_through_empty(RayWalk& w, int32_t r)
{
    const int64_t tx = w.t_x, ty = w.t_y, tz = w.t_z, dx = w.dt_x, dy = w.dt_y, dz = w.dt_z;
    // Cells to go along each axis until the ray is out of the box: the box spans the bricks
    // b - r .. b + r, that is cells 8 (b - r) .. 8 (b + r) + 7.
    const int32_t span = 8 * r;
    const int64_t nx = w.step_x > 0 ? 8 - (w.x & 7) + span : (w.x & 7) + 1 + span;
    const int64_t ny = w.step_y > 0 ? 8 - (w.y & 7) + span : (w.y & 7) + 1 + span;
    const int64_t nz = w.step_z > 0 ? 8 - (w.z & 7) + span : (w.z & 7) + 1 + span;
    const int64_t ex = tx + (nx - 1) * dx, ey = ty + (ny - 1) * dy, ez = tz + (nz - 1) * dz;
    // The leaving axis (0 x, 1 y, 2 z) and its t; the later axis wins a tie. Selected with
    // masks: which axis leaves first follows the ray's slopes and is not predictable.
    const int64_t my = -(int64_t)(ey <= ex);
    int64_t e = (ey & my) | (ex & ~my);
    const int64_t mz = -(int64_t)(ez <= e);
    e = (ez & mz) | (e & ~mz);
    const int leaving = (int)(mz & 2) | (int)(my & ~mz & 1);
    // After the run every t is at most e + its dt: no t wraps when that stays in range.
    const int64_t dmax = dx > dy ? (dx > dz ? dx : dz) : (dy > dz ? dy : dz);
    if (((dx <= 0) | (dy <= 0) | (dz <= 0)) || e + dmax > INT32_MAX) {
        w = run_through_brick_by_steps<keep_cross_t, keep_prev_cross_t>(w);
        return;
    }
    if (!w.have_inverse_dt) {
        w.inverse_dt_x = 1.00000095f / (float)dx;  // 1 + 2^-20
        w.inverse_dt_y = 1.00000095f / (float)dy;
        w.inverse_dt_z = 1.00000095f / (float)dz;
        w.have_inverse_dt = true;
    }
    const int64_t kx = steps_up_to(e - (leaving > 0), tx, dx, w.inverse_dt_x);
    const int64_t ky = steps_up_to(e - (leaving > 1), ty, dy, w.inverse_dt_y);
    const int64_t kz = steps_up_to(e, tz, dz, w.inverse_dt_z);
    w.x += (int32_t)kx * w.step_x, w.y += (int32_t)ky * w.step_y, w.z += (int32_t)kz * w.step_z;
    w.t_x = (int32_t)(tx + kx * dx), w.t_y = (int32_t)(ty + ky * dy), w.t_z = (int32_t)(tz + kz * dz);
    w.steps += (uint32_t)(kx + ky + kz);
    w.index += kx * w.stride_x + ky * w.stride_y + kz * w.stride_z;
    w.entry_face = (int8_t)(leaving + 1);
    if (keep_prev_cross_t) {
        int64_t before = w.cross_t;
        const int64_t t_prior[3] = {tx + (kx - 1) * dx, ty + (ky - 1) * dy, tz + (kz - 1) * dz};
        const int64_t d[3] = {dx, dy, dz};
        for (int a = 0; a < 3; ++a) {
            const int64_t t = a == leaving ? t_prior[a] - d[a] : t_prior[a];
            if (t > before) before = t;
        }
        w.prev_cross_t = (int32_t)before;
    }
    if (keep_cross_t) w.cross_t = (int32_t)e;
}

// The two forms of the step limit, one apart on purpose: a final counts the step and then
// tests, a preview tests and then counts.
enum class Form { final_pass, preview };

// The walk of one ray from the current cell. visit(const RayWalk&) is the mode's work at a
// cell and returns true to end the ray (a hit); walk_ray then returns true. False: the ray
// left the grid or ran out of max_ray_steps. The first cell is visited as it stands (no brick
// test); callers make sure that it lies in the grid (see enter_grid).
//
// The steps, one cell at a time: visit; choose the axis; a guarded step (leaving the grid ends
// the ray); the brick test of the new cell; if the brick is empty, the skip through empty
// space; count the step and test the limit (the two forms); visit again.
//
// After each guarded step the cell's brick is looked up, but only when the step crossed into
// a new brick: inside one brick the answer can't change, and every visited cell but the first
// lies in a brick that was found solid. Empty space is passed without reading voxels and
// without testing the limit. Stepping through it one cell at a time, one brick at a time,
// counts each move of the ray from cell to cell once (the skip loop's steps, and the step
// counted before the guarded step that follows a run ending in a further empty brick), ends
// the ray once it is outside the grid (a partial brick at the far end is run to its end
// first, which changes nothing), and goes on at the first cell of a solid brick; that is what
// run_through_empty computes, cube by cube. So steps counts a visited cell, a cell of an empty
// brick, and one more for each run of skipped cells that ends in a further empty brick:
// max_ray_steps bounds work, not distance.
//
// keep_prev_cross_t: prev_cross_t follows every step, skipped cells included. Such a walk
// runs through empty space one brick at a time, never a cube of bricks, so that a ray that
// leaves the grid through empty space stops where the step-by-step rules stop it, at the
// first brick it enters outside the grid: the prev_cross_t it leaves behind is then the same.
//
// on_run(w, brick), where given, is told of every run before it starts, with the walk on the
// run's first cell and the index of its brick: what a pass needs that passes over bricks that
// hold densities (a map of its own in place of block_map), whose cells go unvisited.
template <Form form, bool keep_cross_t, bool keep_prev_cross_t = false, class Visit, class OnRun>
TAVOK_INLINE bool walk_ray(RayWalk& w, const GridView& g, Visit&& visit, OnRun&& on_run)
{
    static_assert(keep_cross_t || !keep_prev_cross_t, "prev_cross_t is taken from cross_t");
    const uint32_t* const bricks = g.block_map;
    const uint8_t* const radius = g.empty_radius;
    const uint32_t limit = g.max_steps;
    if (visit(static_cast<const RayWalk&>(w))) return true;
    bool brick_known_solid = false;  // the current cell's brick was found solid
    for (;;) {
        bool crossed;
        if (!guarded_step<keep_cross_t, keep_prev_cross_t>(w, g, crossed)) return false;
        if (crossed || !brick_known_solid) {
            uint32_t brick = brick_index(w, g);
            // Empty space: run through it without reading voxels, from empty cube to empty
            // cube, until a cell lies in a solid brick or outside the grid.
            while (bricks[brick] == 0) {
                on_run(static_cast<const RayWalk&>(w), brick);
                run_through_empty<keep_cross_t, keep_prev_cross_t>(w, keep_prev_cross_t ? 0 : radius[brick]);
                if (!cell_inside(w, g)) return false;
                brick = brick_index(w, g);
                if (keep_prev_cross_t && bricks[brick] == 0) {
                    // From the first cell of a further empty brick the rules take a guarded
                    // step (counted first), which may leave the grid before the brick ends.
                    w.steps += 1;
                    bool unused;
                    if (!guarded_step<keep_cross_t, true>(w, g, unused)) return false;
                    brick = brick_index(w, g);
                }
            }
        }
        brick_known_solid = true;
        if (form == Form::final_pass) {
            w.steps += 1;
            if (w.steps >= limit) return false;
        } else {
            if (w.steps >= limit) return false;
            w.steps += 1;
        }
        if (visit(static_cast<const RayWalk&>(w))) return true;
    }
}

template <Form form, bool keep_cross_t, bool keep_prev_cross_t = false, class Visit>
TAVOK_INLINE bool walk_ray(RayWalk& w, const GridView& g, Visit&& visit)
{
    return walk_ray<form, keep_cross_t, keep_prev_cross_t>(w, g, visit, [](const RayWalk&, uint32_t) {});
}

// A final whose first cell lies outside the grid (the eye on a far face, or an entry point on
// the far edge of a face) must not read it: the index lies beyond the array. Instead the ray
// is stepped on, guarded and without visits, each step counted, until every coordinate is in
// the grid; then the walk starts there as at a first cell. False: the ray never gets in.
template <bool keep_cross_t, bool keep_prev_cross_t = false>
TAVOK_INLINE bool enter_grid(RayWalk& w, const GridView& g)
{
    while (!cell_inside(w, g)) {
        bool crossed;
        if (!guarded_step<keep_cross_t, keep_prev_cross_t>(w, g, crossed)) return false;
        w.steps += 1;
        if (w.steps >= g.max_steps) return false;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// The adaptive preview (shared by every preview pass).
//
// The colour tolerance of the three refinement levels (T' of level 1, 2, 3 and beyond) from
// refine_tolerance, per mode.
struct LatticeRules {
    int lattice;          // L: 8 cuberille, 16 firsthit/mip/avg, 32 rbs/ics
    int limit;            // refinement stops when the lattice size is at or below it
    uint32_t tolerance[3];
    bool fill_depth;      // the final block fill replicates depth too (firsthit)
};

// Each colour byte (bits 16-23, 8-15, 0-7) of a and b differs by at most tol.
TAVOK_INLINE bool colors_close(uint32_t a, uint32_t b, uint32_t tol)
{
    for (int shift = 16; shift >= 0; shift -= 8) {
        int d = (int)((a >> shift) & 0xff) - (int)((b >> shift) & 0xff);
        if ((uint32_t)(d < 0 ? -d : d) > tol) return false;
    }
    return true;
}

// The lattice, its refinement and the block fill. The mode brings two steps:
//   cast(i, dir, start_depth): cast the ray of pixel i with direction dir (before clamping)
//     from start_depth (0 on the first lattice) and store its outcome in the target;
//   clear(i): what a pixel of a cell whose four corners saw nothing becomes.
// Directions are accumulated by single-precision addition, as in the finals. The image is not
// shown here; the pass does that.
template <class Cast, class Clear>
TAVOK_INLINE void run_preview_lattice(RenderTarget* target, const RayFrame& f, const LatticeRules& r,
                                      Cast&& cast, Clear&& clear)
{
    const int W = (int)target->width, H = (int)target->height;
    const int L = r.lattice;
    uint32_t rays = 0;
    uint32_t* const color = target->color;
    uint32_t* const depth = target->depth;
    const float fl = (float)L;

    // Step one: one ray every L pixels, from the start of the ray.
    {
        float along[3], down[3], dir[3], line[3];
        for (int a = 0; a < 3; ++a) {
            along[a] = f.pixel_inc[a] * fl;
            down[a] = f.line_inc[a] * fl;
            dir[a] = f.first[a];
        }
        for (int y = 0; y < H; y += L) {
            for (int a = 0; a < 3; ++a) line[a] = dir[a];
            for (int x = 0; x < W; x += L) {
                cast((uint32_t)(y * W + x), (const float*)dir, 0u);
                rays += 1;
                for (int a = 0; a < 3; ++a) dir[a] = dir[a] + along[a];
            }
            for (int a = 0; a < 3; ++a) dir[a] = line[a] + down[a];
        }
    }

    // Step two: refinement, level by level, on cells whose corners are known.
    int v = L;
    for (int n = 1;; ++n) {
        const int half = L >> n, step = L >> (n - 1);
        const uint32_t tol = r.tolerance[n < 3 ? n - 1 : 2];
        const float halff = (float)half;
        const float scale = (float)(1 << n), scale_prev = (float)(1 << (n - 1));
        float dir[3], line[3], along[3], down[3];
        for (int a = 0; a < 3; ++a) {
            dir[a] = f.first[a] + (f.pixel_inc[a] * fl + f.line_inc[a] * fl) / scale;
            along[a] = f.pixel_inc[a] * fl / scale_prev;
            down[a] = f.line_inc[a] * fl / scale_prev;
        }
        for (int y = half; y < H; y += step) {
            for (int a = 0; a < 3; ++a) line[a] = dir[a];
            const int down_off = y + half < H ? half * W : 0;
            const int up_off = half * W;
            const bool bottom = y + step >= H - half;
            for (int x = half; x < W; x += step) {
                const int c = y * W + x;
                const int right = x + half < W ? half : 0, left = half;
                const int tl = c - left - up_off, tr = c + right - up_off;
                const int bl = c - left + down_off, br = c + right + down_off;
                if (depth[tl] >= no_depth && depth[bl] >= no_depth && depth[tr] >= no_depth &&
                    depth[br] >= no_depth) {
                    // Nothing at any corner: the cell is taken as empty.
                    clear((uint32_t)c);
                    clear((uint32_t)(c - left));
                    clear((uint32_t)(c - up_off));
                } else if (depth[tl] > 0x9fff && depth[tr] > 0x9fff && depth[bl] > 0x9fff &&
                           depth[br] > 0x9fff && colors_close(color[tl], color[tr], tol) &&
                           colors_close(color[bl], color[br], tol) &&
                           colors_close(color[tl], color[bl], tol) &&
                           colors_close(color[tr], color[br], tol)) {
                    // Flat and at least ten ray units away: filled from the top-left corner.
                    const uint32_t fc = color[tl], fd = depth[tl];
                    const int fill[5] = {c, c + down_off, c - up_off, c + right, c - left};
                    for (int k = 0; k < 5; ++k) color[fill[k]] = fc, depth[fill[k]] = fd;
                } else {
                    // Rays again, started at nine tenths of the nearest corner's depth.
                    uint32_t start = depth[tl];
                    if (depth[tr] < start) start = depth[tr];
                    if (depth[bl] < start) start = depth[bl];
                    if (depth[br] < start) start = depth[br];
                    float side[3];
                    for (int a = 0; a < 3; ++a) side[a] = dir[a] - f.pixel_inc[a] * halff;
                    cast((uint32_t)(c - left), (const float*)side, start);
                    for (int a = 0; a < 3; ++a) side[a] = dir[a] - f.line_inc[a] * halff;
                    cast((uint32_t)(c - up_off), (const float*)side, start);
                    cast((uint32_t)c, (const float*)dir, start);
                    rays += 3;
                }
                // The last row of centres also fills the row below it.
                if (bottom) {
                    color[c + down_off] = color[c];
                    depth[c + down_off] = depth[c];
                }
                for (int a = 0; a < 3; ++a) dir[a] = dir[a] + along[a];
            }
            for (int a = 0; a < 3; ++a) dir[a] = line[a] + down[a];
        }
        v >>= 1;
        // A lattice of 1 has no finer level, whatever the limit says.
        if (v <= r.limit || v <= 1) break;
    }
    lattice_rays = rays;

    // Step three: blocks of v x v take the colour of their top-left pixel. Each block row is
    // made once along its top line and then copied to the lines below.
    if (v >= 2) {
        for (int y = 0; y < H; y += v) {
            uint32_t* const top = color + (size_t)y * W;
            uint32_t* const top_depth = depth + (size_t)y * W;
            for (int x = 0; x < W; x += v) {
                const int xe = x + v < W ? x + v : W;
                for (int xx = x + 1; xx < xe; ++xx) top[xx] = top[x];
                if (r.fill_depth)
                    for (int xx = x + 1; xx < xe; ++xx) top_depth[xx] = top_depth[x];
            }
            const int ye = y + v < H ? y + v : H;
            for (int yy = y + 1; yy < ye; ++yy) {
                memcpy(color + (size_t)yy * W, top, (size_t)W * 4);
                if (r.fill_depth) memcpy(depth + (size_t)yy * W, top_depth, (size_t)W * 4);
            }
        }
    }
}

// The start of a preview ray: p is the eye when it is inside the box, else the entry point
// (false: the ray misses the box). cell_point is where the walk's first cell is taken: p moved
// along the unclamped direction to nine tenths of start_depth.
TAVOK_INLINE bool preview_ray_start(const RayFrame& f, const float* dir, uint32_t start_depth,
                                    float* p, float* cell_point)
{
    if (f.eye_inside) {
        p[0] = f.eye[0], p[1] = f.eye[1], p[2] = f.eye[2];
    } else if (!ray_box_entry(dir, f.eye, p)) {
        return false;
    }
    const float s = (float)start_depth * 0.00021972656f;  // 0.9 / 4096
    for (int a = 0; a < 3; ++a) cell_point[a] = p[a] + dir[a] * s;
    return true;
}

// A preview ray made ready to walk, the same for every preview: missed, the ray misses the box;
// outside, its first cell lies outside the grid, so it casts nothing and the pixel keeps what
// it has; in_grid, w is set up from the cell point with cross_t at nine tenths of start_depth,
// and p holds the ray's start (the plane samples measure from it).
enum class PreviewStart { missed, outside, in_grid };
TAVOK_INLINE PreviewStart start_preview_walk(RayWalk& w, const GridView& g, const RayFrame& f, const float* dir,
                                             uint32_t start_depth, float* p)
{
    float cell_point[3];
    if (!preview_ray_start(f, dir, start_depth, p, cell_point)) return PreviewStart::missed;
    start_walk(w, g, p, cell_point, dir);
    if (!cell_inside(w, g)) return PreviewStart::outside;
    w.cross_t = trunc_i32((float)start_depth * 0.9f);
    return PreviewStart::in_grid;
}
