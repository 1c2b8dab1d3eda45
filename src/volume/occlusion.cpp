// occlusion.cpp — the occlusion precalculation: "Precalculate Occlusions" (start_occlusion),
// the worker thread (shadow_worker) with its start, cancel and wait, the shadow guard of the
// handlers, and "Blur Shadows" (blur_shadows, smooth_occlusion).
//
// Owns shadow_thread, the copy of what a calculation reads besides the grid (taken on the main
// thread when it starts), the worker's brick tables and the kept temporary of the blur.
// Called by the panel's handlers, the load path and clean_up_and_exit (stop_shadow_thread),
// tavok-render and the tests.
//
// The worker thread reads the densities and writes only bits 16-31 of the voxel words, with
// relaxed atomic read-modify-writes; besides the words it writes only shadow_progress,
// refresh and shadow_running, and it calls no GTK or SDL video function. Everything else here
// runs on the main thread.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#else
#error "the occlusion rays step three axes at once with SSE2, which every x86-64 processor has"
#endif

#define OCC_INLINE [[gnu::always_inline]] inline

static WorkerThread* shadow_thread = nullptr;

// ---------------------------------------------------------------------------------------------
// One calculation: what it reads besides the densities, copied by start_shadow_thread before
// the thread starts, and the tables the worker builds from them. The worker reads no setting
// and no lookup table of the main thread, so that light, model, isovalue and transfer function
// can be edited during a calculation (they reach the next one) without any sharing.
//
// All the arithmetic of a ray is single precision: the position p, the step s, the voxel
// trunc(p + 0.5f), the tests against 0.15f and 0.975f, t = opacity * 1.5f and the result
// trunc((1.0f - acc) * 255.0f). So an opacity stored as 0.15f counts as transparent.

struct OcclusionJob {
    uint32_t* words;       // voxels
    uint32_t size[3];      // vol_x, vol_y, vol_z
    float step[3];         // s = -light_dir * shadow_stepsize
    int soft;              // shadow_kind == 1; any other value is the hard model
    int isovalue;          // the hard model's threshold
    float opacity[4096];   // opacity_lut
};
static OcclusionJob job;

// Cells of 4 x 4 x 4 voxels, in the order of the grid (y fastest, then z, then x), sized and
// allocated by start_shadow_thread (where running out of memory may take the fatal path),
// filled by the worker. A cell "matters" when one of its voxels could change a ray's result:
// in the hard model a density at or above the isovalue, in the soft model a t = opacity * 1.5f
// above 0 (acc is never below 0, so t <= 0 never raises it).
//
// cell_ahead[c] is the size m, in cells, of the largest cube that has cell c at its corner,
// reaches from there in the directions the rays move (along the axes where the step is not 0)
// and holds no cell that matters: 0 for a cell that matters, at most 255. A ray in such a
// cube steps on without anything to look at until it leaves it. Cells outside the grid don't
// matter.
// Cells of 4 voxels a side: a cell's solid bits are one word. (Cells of 8 measured slower: fewer
// cells to enter, but many more steps in cells that matter.)
constexpr int cell_shift = 2;
constexpr uint32_t cell_side = 1u << cell_shift, cell_mask = cell_side - 1;
constexpr int cell_words = cell_side * cell_side * cell_side / 64;  // of the solid bits
static uint32_t cell_n[3];
static uint8_t* cell_ahead = nullptr;
static float* cell_t = nullptr;        // soft model: the largest t of the cell
static uint64_t* cell_solid = nullptr; // hard model: cell_words words a cell, bit
                                       // ((x & 3) * 4 + (z & 3)) * 4 + (y & 3) of them set for a
                                       // density at or above the isovalue
static size_t cell_count = 0;
// Per axis, per voxel coordinate v: the part of the cell index that v gives, with bit 62 set
// where v lies in a cell that the grid's far face cuts (so that the sum of the three parts is
// the cell index, and a cell is whole when bits 62-63 of the sum are clear); and the part of
// the word index. In one allocation of vol_x + vol_y + vol_z entries each.
constexpr uint64_t cut_cell = (uint64_t)1 << 62;
static uint64_t* axis_cell = nullptr;
static uint64_t* axis_word = nullptr;
static size_t axis_entries = 0;

// How a step along one axis is rounded while the position stays in one binade (see jump).
struct BinadeStep {
    double inv_R;     // 1 / R, where R is the step as positions of the binade receive it; 0
                      // where that rounding depends on the position (a tie): no jumps there
    double limit[2];  // how far a position may go, for p > 0 and p < 0, so that p + s stays inside
    int64_t units[2]; // R in units of the binade's spacing u, as the change of the bit pattern
                      // of a position p > 0 (and p < 0, where |p| moves the other way)
};
constexpr int exp_min = -24, exp_max = 40;

// Everything one ray reads, as locals of the worker.
struct RayTables {
    const uint32_t* words;
    uint32_t X, Y, Z;
    const uint64_t* cell_part[3];  // axis_cell, per axis
    const uint64_t* word_part[3];  // axis_word, per axis
    float s[3];
    float t[4096];         // opacity * 1.5f
    const uint8_t* ahead;
    const float* cell_t;
    const uint64_t* solid;
    double margin;         // above the rounding of p + 0.5f anywhere in the grid
    BinadeStep binade[3][exp_max - exp_min + 1];
};

// ---------------------------------------------------------------------------------------------
// Skipping what can't matter, without changing a single step.
//
// A ray is a sequence of single-precision additions p += s, and its result depends on every
// rounding of them, so the positions must be the very ones that n additions give. Inside the
// binade [2^e, 2^(e+1)) (or its negative) every float is a multiple of u = 2^(e-23), so when p
// and the exact sum p + s both lie in it, p + s rounds to p + R, where R is s rounded to a
// multiple of u: the same R for every p of the binade, unless s lies exactly halfway between
// two multiples (then ties-to-even depends on p, and such a binade gets no jumps). Keeping p
// |s| + u short of the end of the binade it moves toward keeps p + s inside. Then n steps give
// exactly p + n R, a float of the same binade, whose bit pattern is p's moved by n R / u (the
// sign and the exponent stay, only the significand moves).
//
// A step whose voxel lies in a cube where nothing matters does nothing but step on (the start
// voxel is skipped anyway, the grid is not left, no density can end the ray or raise acc). So
// from a voxel in such a cube the ray jumps over every following step that provably stays in
// it: trunc(p + 0.5f) stays below the far face hi + 1 while p + 0.5 does by more than the
// rounding of the + 0.5f, and the same toward a low face lo (or -1 for lo = 0, where trunc
// gives 0). Positions move one way on every axis, so only the faces ahead count.

// Along axis a: lowers n to the number of further steps that stay inside the cube ahead
// (size m cells from voxel coordinate v, clipped to the grid) and inside the binade of p, and
// gives the change of p's bit pattern per step. False when not even the next step is provably
// inside.
template <int a>
OCC_INLINE bool axis_steps(const RayTables& c, uint32_t m, uint32_t v, float p, int64_t& n, int64_t& units)
{
    const float s = c.s[a];
    if (s == 0.0f) return true;  // p + 0 is p: no limit
    const int64_t size = a == 0 ? c.X : a == 1 ? c.Y : c.Z;
    const int64_t cell = v >> cell_shift;
    // The far face of the cube, as a voxel coordinate: the ray is in its last voxel already
    // when it stands on it, and then the next step is rarely provably inside.
    const int64_t face = s > 0.0f ? std::min<int64_t>(((cell + m) << cell_shift) - 1, size - 1)
                                  : std::max<int64_t>((cell + 1 - (int64_t)m) << cell_shift, 0);
    if (face == (int64_t)v) return false;
    uint32_t bits;
    memcpy(&bits, &p, 4);
    const int e = (int)((bits >> 23) & 0xff) - 127;
    if (e < exp_min || e > exp_max) return false;  // zero, tiny or huge: step by step
    const BinadeStep& b = c.binade[a][e - exp_min];
    const int negative = bits >> 31;
    const double P = p;
    const double bin_limit = b.limit[negative];
    units = b.units[negative];
    double limit;
    if (s > 0.0f) {
        limit = std::min((double)face + 0.5 - c.margin, bin_limit);
        if (units == 0) return P <= bin_limit;  // s is lost in the rounding: p stays
    } else {
        limit = std::max((face > 0 ? (double)face : -1.0) - 0.5 + c.margin, bin_limit);
        if (units == 0) return P >= bin_limit;
    }
    // The quotient (limit - P) / R, lowered by 2^-30, which is far more than the rounding of
    // the product (below 2^-32 for quotients under 2^20), so that its integer part never
    // exceeds the true count. limit and P are exact. A tie has inv_R = 0: no step.
    const int64_t na = (int64_t)((limit - P) * b.inv_R - 0x1p-30);
    if (na < n) n = na;
    return n > 0;
}

// From voxel v, in a cell whose cube ahead has size m: jumps over every following step that
// stays in the cube, clipped to the grid. Leaves p alone when the next step is not provably
// inside. The n steps land on p + n R, whose bit pattern is p's moved by n R / u: the sign and
// the exponent stay, only the significand moves.
OCC_INLINE __m128 jump(const RayTables& c, uint32_t m, const uint32_t v[4], __m128 p)
{
    alignas(16) float q[4];
    _mm_store_ps(q, p);
    int64_t n = INT64_MAX;
    int64_t u0 = 0, u1 = 0, u2 = 0;
    if (!axis_steps<0>(c, m, v[0], q[0], n, u0) || !axis_steps<1>(c, m, v[1], q[1], n, u1) ||
        !axis_steps<2>(c, m, v[2], q[2], n, u2))
        return p;
    // A ray that no axis moves steps forever: leave it to the stepping, as it is.
    if (n == INT64_MAX) return p;
    const __m128i moves = _mm_setr_epi32((int32_t)(uint32_t)(n * u0), (int32_t)(uint32_t)(n * u1),
                                         (int32_t)(uint32_t)(n * u2), 0);
    return _mm_castsi128_ps(_mm_add_epi32(_mm_castps_si128(p), moves));
}

// ---------------------------------------------------------------------------------------------
// One ray, from the centre of voxel (x, y, z) toward the light: its result 0..255.
//
// The position is kept as four floats (x, y, z, 0) and its voxel as four ints, so that one
// addition steps all three axes, one conversion truncates them (toward zero, and to
// 0x80000000 outside the int range, which fails the size test like any wrapped coordinate), and
// one comparison tests them. Each lane is the same single-precision operation as on its own.

// All four lanes of a comparison's mask set.
OCC_INLINE bool all_lanes(__m128i mask) { return _mm_movemask_epi8(mask) == 0xffff; }

// The bit of voxel v in its cell's solid words, ((v0 & m) << 2s) | ((v2 & m) << s) | (v1 & m),
// as one multiply-add of the low coordinates and a sum of the lanes.
OCC_INLINE uint32_t solid_bit(__m128i v)
{
    const __m128i weights = _mm_setr_epi32(1 << (2 * cell_shift), 1, 1 << cell_shift, 0);
    __m128i w = _mm_madd_epi16(_mm_and_si128(v, _mm_set1_epi32((int)cell_mask)), weights);
    w = _mm_add_epi32(w, _mm_shuffle_epi32(w, _MM_SHUFFLE(1, 0, 3, 2)));
    w = _mm_add_epi32(w, _mm_shuffle_epi32(w, _MM_SHUFFLE(2, 3, 0, 1)));
    return (uint32_t)_mm_cvtsi128_si32(w);
}

template <bool soft>
OCC_INLINE uint32_t shadow_ray(const RayTables& c, uint32_t x, uint32_t y, uint32_t z)
{
    const __m128 s = _mm_setr_ps(c.s[0], c.s[1], c.s[2], 0.0f), half = _mm_set1_ps(0.5f);
    // Unsigned v < size as a signed comparison of both with the sign bit flipped; the fourth
    // lane compares 0 with 1.
    const __m128i flip = _mm_set1_epi32(INT32_MIN);
    const __m128i size = _mm_xor_si128(_mm_setr_epi32((int)c.X, (int)c.Y, (int)c.Z, 1), flip);
    const __m128i corner = _mm_set1_epi32((int)~cell_mask), zero = _mm_setzero_si128();
    const uint64_t *const cx = c.cell_part[0], *const cy = c.cell_part[1], *const cz = c.cell_part[2];
    __m128 p = _mm_setr_ps((float)x + 0.5f, (float)y + 0.5f, (float)z + 0.5f, 0.0f);
    __m128i v;
    alignas(16) uint32_t vv[4];
    // One step and its voxel, trunc(p + 0.5f).
    auto step = [&] {
        p = _mm_add_ps(p, s);
        v = _mm_cvttps_epi32(_mm_add_ps(p, half));
    };
    // Steps in the start voxel are skipped: a voxel never shadows itself. Positions move one
    // way on every axis, so once the ray has left the start voxel it never comes back.
    const __m128i start = _mm_setr_epi32((int)x, (int)y, (int)z, 0);
    do step();
    while (all_lanes(_mm_cmpeq_epi32(v, start)));
    float acc = 0.0f;
    for (;;) {
        if (!all_lanes(_mm_cmplt_epi32(_mm_xor_si128(v, flip), size))) break;
        _mm_store_si128((__m128i*)vv, v);
        const uint64_t parts = cx[vv[0]] + cy[vv[1]] + cz[vv[2]];
        const size_t k = (size_t)(parts & (cut_cell - 1));
        // A whole cell: the ray can't leave the grid while it stays in it, so the loops below
        // only watch for the cell's end.
        const bool whole = parts < cut_cell;
        const __m128i base = _mm_and_si128(v, corner);
        auto in_cell = [&] { return whole && all_lanes(_mm_cmpeq_epi32(_mm_and_si128(_mm_xor_si128(v, base), corner), zero)); };
        uint32_t m = c.ahead[k];
        // The soft model also passes over a cell whose strongest t can't raise acc any more.
        if (soft && m == 0 && c.cell_t[k] <= acc) m = 1;
        if (m) {
            // Through a lone cell, a few steps cost less than working out a jump.
            if (m > 1) p = jump(c, m, vv, p);
            do step();
            while (in_cell());
            continue;
        }
        // A cell that matters: voxel by voxel to its end.
        if (soft) {
            const uint64_t *const wx = c.word_part[0], *const wy = c.word_part[1], *const wz = c.word_part[2];
            do {
                _mm_store_si128((__m128i*)vv, v);
                const uint32_t d = voxel_word(c.words, wx[vv[0]] + wy[vv[1]] + wz[vv[2]]) & density_mask;
                const float t = c.t[d];
                if (t > acc) {
                    acc = t;
                    if (t > 1.0f) return 0;
                    if (acc > 0.975f) return (uint32_t)(int32_t)((1.0f - acc) * 255.0f);
                }
                step();
            } while (in_cell());
        } else {
            const uint64_t* const solid = c.solid + k * cell_words;
            do {
                const uint32_t bit = solid_bit(v);
                if ((solid[bit >> 6] >> (bit & 63)) & 1) return 0;
                step();
            } while (in_cell());
        }
    }
    return (uint32_t)(int32_t)((1.0f - acc) * 255.0f);
}

// The store of a result: the occlusion half of the word goes from what was read to r, as a
// clear of the upper half followed by an OR of r, each a relaxed atomic read-modify-write on
// the whole word, so that the density bits are never written, not even with their own value.
// Bits that are already right are left out of both steps: the clear takes only the bits that
// must go, the OR only those that must come, and a step with nothing to do is skipped (a
// reader meanwhile sees the bits both values share, where the full clear would show 0). The
// end value is the same.
OCC_INLINE void store_occlusion(uint32_t* words, size_t i, uint32_t word, uint32_t r)
{
    const uint32_t old = word >> 16;
    if (const uint32_t clear = old & ~r) __atomic_fetch_and(words + i, ~(clear << 16), __ATOMIC_RELAXED);
    if (const uint32_t set = r & ~old) __atomic_fetch_or(words + i, set << 16, __ATOMIC_RELAXED);
}

// The cell tables of this job, from one pass over the grid in memory order: the solid bits
// (hard) or the largest t (soft) of every cell, then the cubes ahead of the cells.
static void build_cell_tables(RayTables& c)
{
    const uint32_t X = c.X, Y = c.Y, Z = c.Z;
    const uint32_t CX = cell_n[0], CY = cell_n[1], CZ = cell_n[2];
    uint8_t* ahead = cell_ahead;
    if (job.soft) {
        for (size_t i = 0; i < cell_count; ++i) cell_t[i] = 0.0f;
        for (uint32_t x = 0; x < X; ++x)
            for (uint32_t z = 0; z < Z; ++z) {
                const uint32_t* row = c.words + ((size_t)x * Z + z) * Y;
                float* cells = cell_t + ((size_t)(x >> cell_shift) * CZ + (z >> cell_shift)) * CY;
                for (uint32_t y = 0; y < Y; ++y) {
                    const float t = c.t[voxel_word(row, y) & density_mask];
                    if (t > cells[y >> cell_shift]) cells[y >> cell_shift] = t;
                }
            }
        for (size_t i = 0; i < cell_count; ++i) ahead[i] = cell_t[i] > 0.0f ? 0 : 255;
    } else {
        memset(cell_solid, 0, cell_count * cell_words * 8);
        const int iso = job.isovalue;
        for (uint32_t x = 0; x < X; ++x)
            for (uint32_t z = 0; z < Z; ++z) {
                const uint32_t* row = c.words + ((size_t)x * Z + z) * Y;
                uint64_t* cells = cell_solid + ((size_t)(x >> cell_shift) * CZ + (z >> cell_shift)) * CY * cell_words;
                const uint32_t high = ((x & cell_mask) << cell_shift | (z & cell_mask)) << cell_shift;
                for (uint32_t y = 0; y < Y; ++y)
                    if ((int)(voxel_word(row, y) & density_mask) >= iso) {
                        const uint32_t bit = high | (y & cell_mask);
                        cells[(y >> cell_shift) * cell_words + (bit >> 6)] |= (uint64_t)1 << (bit & 63);
                    }
            }
        for (size_t i = 0; i < cell_count; ++i) {
            uint64_t any = 0;
            for (int w = 0; w < cell_words; ++w) any |= cell_solid[i * cell_words + w];
            ahead[i] = any ? 0 : 255;
        }
    }

    // The cubes ahead: a cell that doesn't matter reaches one cell further than the smallest
    // cube of its neighbours ahead (one step along any non-empty set of the moving axes), the
    // largest-empty-square rule in up to three dimensions. The cells are taken from the far
    // end backward, so that those ahead are done first.
    const int n[3] = {(int)CX, (int)CY, (int)CZ};
    int sign[3];
    for (int a = 0; a < 3; ++a) sign[a] = c.s[a] > 0.0f ? 1 : c.s[a] < 0.0f ? -1 : 0;
    auto index = [&](int cx, int cy, int cz) { return ((size_t)cx * CZ + cz) * CY + cy; };
    auto loop = [&](int a, auto&& body) {
        if (sign[a] > 0)
            for (int i = n[a] - 1; i >= 0; --i) body(i);
        else
            for (int i = 0; i < n[a]; ++i) body(i);
    };
    loop(0, [&](int cx) {
        loop(2, [&](int cz) {
            loop(1, [&](int cy) {
                uint8_t& here = ahead[index(cx, cy, cz)];
                if (here == 0) return;
                int smallest = 255;
                for (int set = 1; set < 8; ++set) {
                    int q[3] = {cx, cy, cz};
                    bool moves = true;
                    for (int a = 0; a < 3; ++a)
                        if (set & (1 << a)) {
                            if (!sign[a]) moves = false;
                            q[a] += sign[a];
                        }
                    if (!moves) continue;
                    if (q[0] < 0 || q[0] >= n[0] || q[1] < 0 || q[1] >= n[1] || q[2] < 0 || q[2] >= n[2])
                        continue;  // outside the grid nothing matters
                    smallest = std::min<int>(smallest, ahead[index(q[0], q[1], q[2])]);
                }
                here = (uint8_t)std::min(255, smallest + 1);
            });
        });
    });
}

static void prepare_ray_tables(RayTables& c)
{
    c.words = job.words;
    c.X = job.size[0], c.Y = job.size[1], c.Z = job.size[2];
    // The index parts: the cell of (v0, v1, v2) is ((v0 >> 2) * CZ + (v2 >> 2)) * CY + (v1 >> 2),
    // its word (v0 * Z + v2) * Y + v1.
    const uint32_t CY = cell_n[1], CZ = cell_n[2];
    const uint64_t cell_stride[3] = {(uint64_t)CZ * CY, 1, CY};
    const uint64_t word_stride[3] = {(uint64_t)c.Z * c.Y, 1, c.Y};
    uint64_t* cell_part = axis_cell;
    uint64_t* word_part = axis_word;
    for (int a = 0; a < 3; ++a) {
        const uint32_t size = job.size[a];
        const uint32_t whole_end = size & ~cell_mask;  // voxels from here on lie in a cut cell
        for (uint32_t v = 0; v < size; ++v) {
            cell_part[v] = (v >> cell_shift) * cell_stride[a] + (v >= whole_end ? cut_cell : 0);
            word_part[v] = v * word_stride[a];
        }
        c.cell_part[a] = cell_part, c.word_part[a] = word_part;
        cell_part += size, word_part += size;
    }
    for (int d = 0; d < 4096; ++d) c.t[d] = job.opacity[d] * 1.5f;
    c.ahead = cell_ahead;
    c.cell_t = cell_t;
    c.solid = cell_solid;
    // Every position of a ray inside the grid is below 2^E in magnitude; the rounding of
    // p + 0.5f there is at most half of 2^(E-23).
    uint32_t largest = std::max(std::max(c.X, c.Y), c.Z);
    int E = 1;
    while (std::ldexp(1.0, E) < (double)largest + 2.0) ++E;
    c.margin = std::ldexp(1.0, E - 21);
    for (int a = 0; a < 3; ++a) {
        const float s = job.step[a];
        c.s[a] = s;
        const double abs_s = std::fabs((double)s);
        for (int e = exp_min; e <= exp_max; ++e) {
            BinadeStep& b = c.binade[a][e - exp_min];
            const double u = std::ldexp(1.0, e - 23);
            const double k = (double)s / u;  // exact
            const double R = std::floor(k + 0.5) * u;
            const bool tie = k - std::floor(k) == 0.5;
            b.inv_R = tie || R == 0.0 ? 0.0 : 1.0 / R;
            b.units[0] = tie ? 1 : (int64_t)(R / u);
            b.units[1] = -b.units[0];
            // Moving up, p may reach 2^(e+1) - |s| - u (or -(2^e + |s| + u) below 0); moving
            // down, 2^e + |s| + u (or -(2^(e+1) - |s| - u)).
            const double low = std::ldexp(1.0, e) + abs_s + u, high = std::ldexp(1.0, e + 1) - abs_s - u;
            b.limit[0] = s > 0.0f ? high : low;
            b.limit[1] = s > 0.0f ? -low : -high;
        }
    }
    build_cell_tables(c);
}

// The walk over every voxel, z outermost, then y, x innermost. False when it saw the cancel
// flag; the voxels stored until then keep their new value.
template <bool soft>
static bool run_occlusion(const RayTables& c)
{
    const uint32_t X = c.X, Y = c.Y, Z = c.Z;
    const size_t x_stride = (size_t)Y * Z;
    uint32_t* const words = job.words;
    // 1 for a density that needs a ray: above 500 and more opaque than 0.15.
    uint8_t needs_ray[4096];
    for (int d = 0; d < 4096; ++d) needs_ray[d] = d >= 501 && !(job.opacity[d] <= 0.15f);
    for (uint32_t z = 0; z < Z; ++z) {
        shadow_progress.store((float)z / (float)Z, std::memory_order_relaxed);
        for (uint32_t y = 0; y < Y; ++y) {
            size_t i = (size_t)z * Y + y;
            for (uint32_t x = 0; x < X; ++x, i += x_stride) {
                const uint32_t word = voxel_word(words, i);
                uint32_t r = 255;
                if (needs_ray[word & density_mask]) {
                    // The cancel flag is looked at only here, before a ray.
                    if (shadow_cancel.load(std::memory_order_relaxed)) return false;
                    r = shadow_ray<soft>(c, x, y, z);
                }
                store_occlusion(words, i, word, r);
            }
        }
    }
    return true;
}

int shadow_worker(void*)
{
    const unsigned t0 = ticks_ms();
    static RayTables tables;  // only one worker runs at a time
    prepare_ray_tables(tables);
    const bool finished = job.soft ? run_occlusion<true>(tables) : run_occlusion<false>(tables);
    if (!finished) puts("discard shadow calc and return from func!");
    shadow_progress = 0.0f;
    printf("finished shadow-calc thread in ~%d milliseconds\n", (int)(ticks_ms() - t0));
    refresh = 1;
    shadow_running = 0;
    return 0;
}

// ---------------------------------------------------------------------------------------------
// Start, stop, wait: main thread only.

void start_shadow_thread()
{
    puts("started shadow-calc thread");
    // A worker that ended by itself was not waited for; its thread has finished, so this wait
    // only releases the handle before a new one takes its place.
    wait_thread(shadow_thread);
    shadow_thread = nullptr;
    shadow_running = 1;

    job.words = voxels;
    job.size[0] = vol_x, job.size[1] = vol_y, job.size[2] = vol_z;
    for (int a = 0; a < 3; ++a) job.step[a] = -light_dir[a] * shadow_stepsize;
    job.soft = shadow_kind == 1;
    job.isovalue = isovalue;
    memcpy(job.opacity, opacity_lut, sizeof job.opacity);

    for (int a = 0; a < 3; ++a) cell_n[a] = (job.size[a] + cell_mask) >> cell_shift;
    const size_t cells = (size_t)cell_n[0] * cell_n[1] * cell_n[2];
    if (cells != cell_count || !cell_ahead) {
        free(cell_ahead);
        free(cell_t);
        free(cell_solid);
        cell_ahead = (uint8_t*)malloc(cells + 1);
        cell_t = (float*)malloc(cells * sizeof(float) + 4);
        cell_solid = (uint64_t*)malloc(cells * cell_words * 8 + 8);
        if (!cell_ahead || !cell_t || !cell_solid) clean_up_and_exit(0, "out of mem");
        cell_count = cells;
    }
    const size_t entries = (size_t)job.size[0] + job.size[1] + job.size[2];
    if (entries != axis_entries || !axis_cell) {
        free(axis_cell);
        free(axis_word);
        axis_cell = (uint64_t*)malloc(entries * 8 + 8);
        axis_word = (uint64_t*)malloc(entries * 8 + 8);
        if (!axis_cell || !axis_word) clean_up_and_exit(0, "out of mem");
        axis_entries = entries;
    }
    shadow_thread = start_thread(shadow_worker);
}

void stop_shadow_thread()
{
    shadow_cancel = 1;
    wait_thread(shadow_thread);
    shadow_thread = nullptr;
}

void wait_for_occlusion()
{
    wait_thread(shadow_thread);
    shadow_thread = nullptr;
}

void shadow_guard()
{
    if (shadow_running == 1) {
        stop_shadow_thread();
        shadow_cancel = 0;
    }
}

void start_occlusion()
{
    puts("calculating occlusion");
    if (!volume_loaded) return;
    if (shadow_running == 1) stop_shadow_thread();
    // Also after a load, which leaves the flag raised.
    shadow_cancel = 0;
    set_progress("GUIprogressBarShadow", 0.0);
    start_shadow_thread();
    puts("set thread-start call");
}

// ---------------------------------------------------------------------------------------------
// "Blur Shadows".

// The temporary copy of the field. It is not freed after a blur but kept for the next one,
// and replaced only when the grid's size changes.
static uint16_t* smooth_copy = nullptr;
static size_t smooth_copy_words = 0;

void smooth_occlusion()
{
    const int nx = (int)vol_x, ny = (int)vol_y, nz = (int)vol_z;
    const size_t count = (size_t)nx * ny * nz;
    if (count != smooth_copy_words || !smooth_copy) {
        free(smooth_copy);
        smooth_copy = (uint16_t*)malloc(count * 2 + 2);
        if (!smooth_copy) clean_up_and_exit(0, "out of mem");
        smooth_copy_words = count;
    }
    uint16_t* const copy = smooth_copy;
    uint32_t* const words = voxels;
    const int64_t sx = (int64_t)ny * nz, sz = ny;

    // First pass: take bits 16-31 out of every word, margin included. The words are changed
    // with atomic read-modify-writes of the upper half only: a calculation started from a
    // pump in here runs beside this loop.
    for (int z = 0; z < nz; ++z) {
        set_progress("GUIprogressBarSmoothenShadow", (double)z / nz);
        gui_pump();
        for (int x = 0; x < nx; ++x)
            for (int y = 0; y < ny; ++y) {
                const int64_t i = x * sx + z * sz + y;
                const uint32_t upper = voxel_word(words, i) >> 16;
                copy[i] = (uint16_t)upper;
                if (upper) __atomic_fetch_and(words + i, 0xffffu, __ATOMIC_RELAXED);
            }
    }

    // Second pass: the 27 values of the cube around each voxel two or more in from every face,
    // summed with equal weights and divided by 27 with truncation. The two outer layers keep
    // the empty field of the first pass: occlusion 0, fully occluded.
    for (int z = 2; z < nz - 2; ++z)
        for (int x = 2; x < nx - 2; ++x)
            for (int y = 2; y < ny - 2; ++y) {
                const int64_t i = x * sx + z * sz + y;
                uint32_t sum = 0;
                for (int dx = -1; dx <= 1; ++dx)
                    for (int dz = -1; dz <= 1; ++dz) {
                        const uint16_t* run = copy + i + dx * sx + dz * sz;
                        sum += (uint32_t)run[-1] + run[0] + run[1];
                    }
                if (const uint32_t value = sum / 27)
                    __atomic_fetch_or(words + i, value << 16, __ATOMIC_RELAXED);
            }
}

void blur_shadows()
{
    if (!volume_loaded) return;
    shadow_guard();
    set_progress("GUIprogressBarSmoothenShadow", 0.0);
    gui_pump();
    smooth_occlusion();
    set_progress("GUIprogressBarSmoothenShadow", 0.0);
    gui_pump();
    refresh = 1;
}
