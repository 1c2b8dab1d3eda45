// sample.h — the interpolating samplers every pass but the cuberille rests on, written once and
// inlined into the passes: the plane sample taken where the integer walk crosses a grid plane
// (previews and the plane-sampling finals), the trilinear march with its constant step along
// the normalised ray (the trilinear finals) and its eight-voxel sample, and the bisection of a
// crossing between two samples.
//
// A sampler gives the places and weights of a sample; what is interpolated there (density,
// occlusion, normal, classified opacity, colour, gradient magnitude) is the pass's choice,
// through the blend functions below, so that a pass reads only what it uses. Nothing here
// writes anything but its results.
#pragma once
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/core.h"
#include "raycast/raycast.h"
#include "raycast/walk.h"
#include "volume/volume.h"

// ---------------------------------------------------------------------------------------------
// A sample of the density, the occlusion (the whole upper half of the voxel word) and the
// gradient normal, the last not normalised. Passes that refine a crossing keep the previous
// sample as their history, which is not reset from ray to ray.
struct Sample {
    float density;
    float occlusion;
    float normal[3];
};

// ---------------------------------------------------------------------------------------------
// The plane sample: bilinear on the grid plane that the walk has just crossed, at the exact
// point of the crossing.
//
// a is the axis of the crossing (entry_face; -1, a ray's first cell, counts as z), b and c the
// two others in the order x, y, z. The plane is that of the current cell when the ray runs up
// a, and the one just passed (cell + 1) when it runs down. v(i, j) is the voxel at offset i
// along b and j along c from the plane's base, which has the current cell's b and c.
struct PlaneSample {
    size_t base;           // index of v(0, 0)
    size_t step_b;         // index step to v(1, 0)
    size_t step_c;         // index step to v(0, 1)
    int axis_b, axis_c;    // b and c: 0 x, 1 y, 2 z
    float fb, fc, gb, gc;  // fb = q.b - trunc(q.b), gb = (trunc(q.b) - q.b) + 1; c likewise
};

// The sample at the walk's current crossing, for a ray from p with the clamped direction dir
// (w.dir). False where there is none: a neighbour beyond the grid's far side (cell + 1 at the
// size along b or c), a crossing point outside 0 <= q < size along b or c, or a plane whose
// cell one step back along a lies outside the grid. The crossing point is
// q = dir * 0.00024414062 * cross_t + p (cross_t / 4096 along the ray).
//
// It comes in two halves, since none of the tests has a side effect and the answer is the
// same in any order: plane_sample_voxels, the integer tests and the four voxels' places, and
// plane_sample_weights, the crossing point's test and the weights. A pass that can tell from
// the four voxels alone that a sample would count for nothing (all four transparent, say)
// reads them after the first half and never computes the second.
TAVOK_INLINE bool plane_sample_voxels(const RayWalk& w, const GridView& g, const float* dir, PlaneSample& s)
{
    int a;
    int32_t cell_a, step_a;
    uint32_t size_a;
    size_t stride_a;
    switch (w.entry_face) {
    case 1:
        a = 0, s.axis_b = 1, s.axis_c = 2, cell_a = w.x, step_a = w.step_x, size_a = g.size_x;
        stride_a = (size_t)g.stride_x, s.step_b = 1, s.step_c = (size_t)g.stride_z;
        break;
    case 2:
        a = 1, s.axis_b = 0, s.axis_c = 2, cell_a = w.y, step_a = w.step_y, size_a = g.size_y;
        stride_a = 1, s.step_b = (size_t)g.stride_x, s.step_c = (size_t)g.stride_z;
        break;
    default:
        a = 2, s.axis_b = 0, s.axis_c = 1, cell_a = w.z, step_a = w.step_z, size_a = g.size_z;
        stride_a = (size_t)g.stride_z, s.step_b = (size_t)g.stride_x, s.step_c = 1;
        break;
    }
    const int32_t cell[3] = {w.x, w.y, w.z};
    const uint32_t size[3] = {g.size_x, g.size_y, g.size_z};
    if (!((uint32_t)(cell[s.axis_b] + 1) < size[s.axis_b] && (uint32_t)(cell[s.axis_c] + 1) < size[s.axis_c]))
        return false;
    if ((uint32_t)(cell_a - step_a) >= size_a) return false;
    s.base = (size_t)w.index + (dir[a] < 0.0f ? stride_a : 0);
    return true;
}

// The second half: the crossing point on the plane that plane_sample_voxels chose, its test
// and the four weights.
TAVOK_INLINE bool plane_sample_weights(const RayWalk& w, const GridView& g, const float* p, const float* dir,
                                       PlaneSample& s)
{
    const int b = s.axis_b, c = s.axis_c;
    const uint32_t size[3] = {g.size_x, g.size_y, g.size_z};
    const float t = (float)w.cross_t;
    const float qb = dir[b] * 0.00024414062f * t + p[b];
    const float qc = dir[c] * 0.00024414062f * t + p[c];
    if (!(qb >= 0.0f && qb < (float)size[b] && qc >= 0.0f && qc < (float)size[c])) return false;
    const float tb = (float)trunc_i32(qb), tc = (float)trunc_i32(qc);
    s.fb = qb - tb;
    s.fc = qc - tc;
    s.gb = (tb - qb) + 1.0f;
    s.gc = (tc - qc) + 1.0f;
    return true;
}

TAVOK_INLINE bool plane_sample(const RayWalk& w, const GridView& g, const float* p, const float* dir,
                               PlaneSample& s)
{
    return plane_sample_voxels(w, g, dir, s) && plane_sample_weights(w, g, p, dir, s);
}

// The blend of the four values at v(0, 0), v(1, 0), v(0, 1), v(1, 1):
// (gb * v01 + fb * v11) * fc + (fb * v10 + gb * v00) * gc, in this order.
TAVOK_INLINE float plane_blend(const PlaneSample& s, float v00, float v10, float v01, float v11)
{
    return (s.gb * v01 + s.fb * v11) * s.fc + (s.fb * v10 + s.gb * v00) * s.gc;
}

// The blend of value(index) over the four voxels.
template <class Value>
TAVOK_INLINE float plane_value(const PlaneSample& s, Value&& value)
{
    return plane_blend(s, value(s.base), value(s.base + s.step_b), value(s.base + s.step_c),
                       value(s.base + s.step_b + s.step_c));
}

// The gradient normal at the crossing, not normalised: the same weights on nx, ny, nz.
TAVOK_INLINE void plane_sample_normal(const PlaneSample& s, const GridView& g, float* normal)
{
    const GradientRecord* const r = g.gradients;
    const GradientRecord &r00 = r[s.base], &r10 = r[s.base + s.step_b], &r01 = r[s.base + s.step_c],
                         &r11 = r[s.base + s.step_b + s.step_c];
    normal[0] = plane_blend(s, r00.nx, r10.nx, r01.nx, r11.nx);
    normal[1] = plane_blend(s, r00.ny, r10.ny, r01.ny, r11.ny);
    normal[2] = plane_blend(s, r00.nz, r10.nz, r01.nz, r11.nz);
}

// Density and occlusion at the crossing (and, with_normal, the gradient normal), one read of
// each of the four words.
template <bool with_normal>
TAVOK_INLINE Sample plane_sample_values(const PlaneSample& s, const GridView& g)
{
    const size_t i00 = s.base, i10 = s.base + s.step_b, i01 = s.base + s.step_c,
                 i11 = s.base + s.step_b + s.step_c;
    const uint32_t w00 = voxel_word(g.voxels, i00), w10 = voxel_word(g.voxels, i10),
                   w01 = voxel_word(g.voxels, i01), w11 = voxel_word(g.voxels, i11);
    Sample r;
    r.density = plane_blend(s, (float)(w00 & density_mask), (float)(w10 & density_mask),
                            (float)(w01 & density_mask), (float)(w11 & density_mask));
    r.occlusion = plane_blend(s, (float)(w00 >> 16), (float)(w10 >> 16), (float)(w01 >> 16),
                              (float)(w11 >> 16));
    if (with_normal) plane_sample_normal(s, g, r.normal);
    return r;
}

// The colour at the crossing from the four packed colours by color_lerp: along b first, with
// truncate(fb * 32767.0), for j = 0 and j = 1, then along c with truncate(fc * 32767.0).
TAVOK_INLINE uint32_t plane_color(const PlaneSample& s, uint32_t c00, uint32_t c10, uint32_t c01,
                                  uint32_t c11)
{
    const int32_t wb = trunc_i32(s.fb * 32767.0f), wc = trunc_i32(s.fc * 32767.0f);
    return color_lerp(color_lerp(c00, c10, wb), color_lerp(c01, c11, wb), wc);
}

// ---------------------------------------------------------------------------------------------
// The trilinear sample: eight voxels around a position, weighted by its fractions.

// The corners of a sample: index[k] and weight w[k] for k = 4 dx + 2 dy + dz, dx, dy, dz the
// offsets 0 or 1 from the base cell along x, y, z. The upper neighbours are clamped to the
// grid's last cell (only the high side: the base cell itself lies in the grid).
struct Corners {
    size_t index[8];
    float w[8];
    float fx, fy, fz;  // pos - trunc(pos) on each axis
};

// The places of the eight corners of a sample whose base cell is cell (the first half of
// trilinear_corners): a pass that can tell from the eight voxels alone that the sample counts
// for nothing reads them after this and never computes the weights.
TAVOK_INLINE void trilinear_indices(const GridView& g, const int32_t* cell, Corners& k)
{
    const uint32_t x = (uint32_t)cell[0], y = (uint32_t)cell[1], z = (uint32_t)cell[2];
    const uint32_t x1 = x + 1 < g.size_x ? x + 1 : g.size_x - 1;
    const uint32_t y1 = y + 1 < g.size_y ? y + 1 : g.size_y - 1;
    const uint32_t z1 = z + 1 < g.size_z ? z + 1 : g.size_z - 1;
    const size_t sy = g.size_y, sz = g.size_z;
    const size_t xs[2] = {(size_t)x * sz, (size_t)x1 * sz};
    const size_t zs[2] = {(size_t)z, (size_t)z1};
    const size_t ys[2] = {(size_t)y, (size_t)y1};
    for (int dx = 0; dx < 2; ++dx)
        for (int dy = 0; dy < 2; ++dy)
            for (int dz = 0; dz < 2; ++dz) k.index[dx * 4 + dy * 2 + dz] = (xs[dx] + zs[dz]) * sy + ys[dy];
}

// The fractions and the eight weights of a sample at pos (the second half).
TAVOK_INLINE void trilinear_weights(const float* pos, Corners& k)
{
    k.fx = pos[0] - (float)trunc_i32(pos[0]);
    k.fy = pos[1] - (float)trunc_i32(pos[1]);
    k.fz = pos[2] - (float)trunc_i32(pos[2]);
    const float gx = 1.0f - k.fx, gy = 1.0f - k.fy, gz = 1.0f - k.fz;
    const float wx[2] = {gx, k.fx}, wy[2] = {gy, k.fy}, wz[2] = {gz, k.fz};
    for (int dx = 0; dx < 2; ++dx)
        for (int dy = 0; dy < 2; ++dy)
            for (int dz = 0; dz < 2; ++dz) k.w[dx * 4 + dy * 2 + dz] = wx[dx] * wy[dy] * wz[dz];
}

TAVOK_INLINE void trilinear_corners(const GridView& g, const int32_t* cell, const float* pos, Corners& k)
{
    trilinear_indices(g, cell, k);
    trilinear_weights(pos, k);
}

// The weighted sum of value(index) over the eight corners, in the order of k.
template <class Value>
TAVOK_INLINE float trilinear_value(const Corners& k, Value&& value)
{
    float sum = k.w[0] * value(k.index[0]);
    for (int n = 1; n < 8; ++n) sum += k.w[n] * value(k.index[n]);
    return sum;
}

// Density, occlusion (the whole upper half of each word) and, with_normal, the normal, all with
// the same weights; one read of each of the eight words.
template <bool with_normal>
TAVOK_INLINE Sample trilinear_sample(const GridView& g, const Corners& k)
{
    Sample r;
    uint32_t word[8];
    for (int n = 0; n < 8; ++n) word[n] = voxel_word(g.voxels, k.index[n]);
    r.density = k.w[0] * (float)(word[0] & density_mask);
    r.occlusion = k.w[0] * (float)(word[0] >> 16);
    for (int n = 1; n < 8; ++n) {
        r.density += k.w[n] * (float)(word[n] & density_mask);
        r.occlusion += k.w[n] * (float)(word[n] >> 16);
    }
    if (with_normal) {
        const GradientRecord* const gr = g.gradients;
        r.normal[0] = k.w[0] * gr[k.index[0]].nx;
        r.normal[1] = k.w[0] * gr[k.index[0]].ny;
        r.normal[2] = k.w[0] * gr[k.index[0]].nz;
        for (int n = 1; n < 8; ++n) {
            r.normal[0] += k.w[n] * gr[k.index[n]].nx;
            r.normal[1] += k.w[n] * gr[k.index[n]].ny;
            r.normal[2] += k.w[n] * gr[k.index[n]].nz;
        }
    }
    return r;
}

// The colour of the eight corner colours (in the order of k) by color_lerp: along z with fz
// for the four (x, y) columns, then along x with fx for the two y rows, last along y with fy.
TAVOK_INLINE uint32_t trilinear_color(const Corners& k, const uint32_t* c)
{
    const int32_t wz = trunc_i32(k.fz * 32767.0f), wx = trunc_i32(k.fx * 32767.0f),
                  wy = trunc_i32(k.fy * 32767.0f);
    const uint32_t x0y0 = color_lerp(c[0], c[1], wz), x0y1 = color_lerp(c[2], c[3], wz);
    const uint32_t x1y0 = color_lerp(c[4], c[5], wz), x1y1 = color_lerp(c[6], c[7], wz);
    const uint32_t y0 = color_lerp(x0y0, x1y0, wx), y1 = color_lerp(x0y1, x1y1, wx);
    return color_lerp(y0, y1, wy);
}

// ---------------------------------------------------------------------------------------------
// The step vector of the march: the unnormalised direction dir made a unit vector (its length
// raised to 0.001 if it is no more) times the sample distance.
TAVOK_INLINE void march_step(const float* dir, float stepsize, float* s)
{
    float length = sqrtf(dir[0] * dir[0] + dir[1] * dir[1] + dir[2] * dir[2]);
    if (length <= 0.001f) length = 0.001f;
    const float inverse = 1.0f / length;
    for (int a = 0; a < 3; ++a) s[a] = dir[a] * inverse * stepsize;
}

// The march's limit on its sample count: the ray ends once limit <= (float) count.
TAVOK_INLINE float march_limit(const GridView& g, float stepsize)
{
    return (float)g.max_steps * (1.0f / stepsize);
}

// ---------------------------------------------------------------------------------------------
// The trilinear march: samples every sample_stepsize along the normalised ray, jumping over
// empty bricks, up to max_ray_steps / sample_stepsize samples.
//
// The ray starts at p (the eye, or the entry point onto the box) and its first sample stands at
// pos = p + dir, one image-plane distance ahead (dir unnormalised and not clamped). When
// trunc(pos) lies outside the grid the march doesn't start (false: the pixel counts as a miss
// of the box). The first sample's base cell is trunc(p), clamped into the grid (p may lie on
// the box's far faces), while its fractions come from pos; later samples take the cell of
// their own position.
//
// sample(cell, pos) is the pass's work at a sample (cell: the base cell, three ints; pos: three
// floats) and returns true to end the ray. After a sample the march advances pos by the step
// vector axis by axis, x, y, z, truncating the cell of each axis and ending the ray when it
// leaves the grid on that axis. In an empty brick it keeps advancing without reading until the
// brick changes; every such advance but the last counts one sample against the limit, and a
// run that ends in a solid brick counts one more. A run that ends in another empty brick makes
// one more advance, counted twice, and looks again. Then the sample count rises by one, and
// the ray ends when (float) max_ray_steps * (1 / sample_stepsize) <= (float) count.
//
// on_run(cell, pos, n) is told of every position at which the march enters a brick that the
// grid view passes over, before it moves on through it: n is the number of advances from the
// first position to this one, which is what the sample count would be at this position had
// the brick been sampled. It matters to a pass whose grid view passes over bricks that hold
// densities (a map of its own in place of block_map); the positions in such a brick are not
// sampled, and the pass may need to know which they were.
template <class Visit, class OnRun>
TAVOK_INLINE bool march_ray(const GridView& g, const float* p, const float* dir, float stepsize, Visit&& sample,
                            OnRun&& on_run)
{
    float s[3];
    march_step(dir, stepsize, s);
    const uint32_t size[3] = {g.size_x, g.size_y, g.size_z};
    const float limit = march_limit(g, stepsize);

    float pos[3] = {p[0] + dir[0], p[1] + dir[1], p[2] + dir[2]};
    int32_t cell[3];
    for (int a = 0; a < 3; ++a)
        if ((uint32_t)trunc_i32(pos[a]) >= size[a]) return false;
    for (int a = 0; a < 3; ++a) {
        const int32_t c = trunc_i32(p[a]);
        cell[a] = (uint32_t)c < size[a] ? c : (c < 0 ? 0 : (int32_t)size[a] - 1);
    }

    auto brick_of = [&](const int32_t* c) {
        return (((uint32_t)c[0] >> 3) * g.block_z + ((uint32_t)c[2] >> 3)) * g.block_y +
               ((uint32_t)c[1] >> 3);
    };
    // One advance with its per-axis bound test; false when the ray has left the grid.
    auto advance = [&]() {
        for (int a = 0; a < 3; ++a) {
            pos[a] += s[a];
            cell[a] = trunc_i32(pos[a]);
            if ((uint32_t)cell[a] >= size[a]) return false;
        }
        return true;
    };

    uint32_t count = 0;
    for (;;) {
        if (sample((const int32_t*)cell, (const float*)pos)) return true;
        if (!advance()) return true;
        while (g.block_map[brick_of(cell)] == 0) {
            // The advance to this position is not counted yet.
            on_run((const int32_t*)cell, (const float*)pos, count + 1);
            // Empty brick: advance without reading until the brick changes.
            const uint32_t bx = (uint32_t)cell[0] >> 3, by = (uint32_t)cell[1] >> 3,
                           bz = (uint32_t)cell[2] >> 3;
            for (;;) {
                for (int a = 0; a < 3; ++a) {
                    pos[a] += s[a];
                    cell[a] = trunc_i32(pos[a]);
                }
                if (((uint32_t)cell[0] >> 3) != bx || ((uint32_t)cell[1] >> 3) != by ||
                    ((uint32_t)cell[2] >> 3) != bz)
                    break;
                count += 1;
            }
            for (int a = 0; a < 3; ++a)
                if ((uint32_t)cell[a] >= size[a]) return true;
            if (g.block_map[brick_of(cell)] != 0) {
                count += 1;
                break;
            }
            // Neither this advance nor the one into the brick before is counted yet.
            on_run((const int32_t*)cell, (const float*)pos, count + 2);
            if (!advance()) return true;
            count += 2;
        }
        count += 1;
        if (limit <= (float)count) return true;
    }
}

template <class Visit>
TAVOK_INLINE bool march_ray(const GridView& g, const float* p, const float* dir, float stepsize, Visit&& sample)
{
    return march_ray(g, p, dir, stepsize, sample, [](const int32_t*, const float*, uint32_t) {});
}

// ---------------------------------------------------------------------------------------------
// The crossing between a previous value P below the isovalue I and a current value C at or
// above it, found by four bisection steps on the assumption that the value varies linearly:
// w = 0.5, h = 0.25; four times v = w C + (1 - w) P; stop if v = I; w += h if v < I, else
// w -= h; h /= 2. w weighs the current sample, 1 - w the previous one: multiples of 1/32 from
// 1/32 to 31/32, or a coarser multiple when an exact equality stopped early. No voxel is read.
struct CrossingWeights {
    float current, previous;
};
TAVOK_INLINE CrossingWeights refine_crossing(float current, float previous, float isovalue)
{
    float w = 0.5f, h = 0.25f;
    for (int n = 0; n < 4; ++n) {
        const float v = w * current + (1.0f - w) * previous;
        if (v == isovalue) break;
        if (v < isovalue) w += h;
        else w -= h;
        h *= 0.5f;
    }
    return {w, 1.0f - w};
}
