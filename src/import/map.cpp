// map.cpp — from stored samples to 12-bit densities: the choice of the mapping (Hounsfield
// units, a window, or the 0.5 % to 99.5 % range of the values), its log line, and the one pass
// that maps every sample and turns the file's axes onto the grid's.
//
// Called by import.cpp; reads import_options; writes only the grids it is given.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "import/import_local.h"

size_t sample_bytes(SampleType type)
{
    switch (type) {
    case SampleType::u8:
    case SampleType::i8: return 1;
    case SampleType::u16:
    case SampleType::i16: return 2;
    case SampleType::u32:
    case SampleType::i32:
    case SampleType::f32: return 4;
    case SampleType::f64: return 8;
    }
    return 1;
}

const char* sample_type_name(SampleType type)
{
    static const char* const names[] = {"u8", "i8", "u16", "i16", "u32", "i32", "f32", "f64"};
    return names[(int)type];
}

// Calls f with the samples as their C++ type: the one switch on the type, per volume.
template <class F> static void with_typed_samples(const SourceVolume& src, F f)
{
    switch (src.type) {
    case SampleType::u8: f((const uint8_t*)src.data); break;
    case SampleType::i8: f((const int8_t*)src.data); break;
    case SampleType::u16: f((const uint16_t*)src.data); break;
    case SampleType::i16: f((const int16_t*)src.data); break;
    case SampleType::u32: f((const uint32_t*)src.data); break;
    case SampleType::i32: f((const int32_t*)src.data); break;
    case SampleType::f32: f((const float*)src.data); break;
    case SampleType::f64: f((const double*)src.data); break;
    }
}

static size_t sample_count(const SourceVolume& src)
{
    return (size_t)src.size[0] * src.size[1] * src.size[2];
}

// The stored samples at ranks count * 5 / 1000 and count * 995 / 1000 of the sorted samples
// (NaN left out). Types of 8 and 16 bits are counted exactly in a histogram; wider ones are
// ranked on every stride-th sample, at most 2^22 of them, so the answer is the same on every
// run.
template <class T> static bool stored_percentiles(const T* s, size_t count, double& lo, double& hi)
{
    if constexpr (sizeof(T) <= 2) {
        constexpr int bins = 1 << (8 * sizeof(T));
        constexpr int bias = std::is_signed_v<T> ? bins / 2 : 0;
        std::vector<uint64_t> h(bins, 0);
        for (size_t i = 0; i < count; ++i) h[(int)s[i] + bias] += 1;
        uint64_t rank_lo = (uint64_t)count * 5 / 1000, rank_hi = (uint64_t)count * 995 / 1000;
        if (rank_hi >= count) rank_hi = count - 1;
        uint64_t seen = 0;
        bool have_lo = false;
        for (int b = 0; b < bins; ++b) {
            seen += h[b];
            if (!have_lo && seen > rank_lo) {
                lo = b - bias;
                have_lo = true;
            }
            if (seen > rank_hi) {
                hi = b - bias;
                return true;
            }
        }
        return false;
    } else {
        size_t stride = (count + (1u << 22) - 1) >> 22;
        std::vector<T> sample;
        sample.reserve(count / stride + 1);
        for (size_t i = 0; i < count; i += stride)
            if (s[i] == s[i]) sample.push_back(s[i]);
        if (sample.empty()) return false;
        size_t n = sample.size();
        size_t rank_lo = n * 5 / 1000, rank_hi = std::min(n - 1, n * 995 / 1000);
        std::nth_element(sample.begin(), sample.begin() + rank_lo, sample.end());
        lo = (double)sample[rank_lo];
        std::nth_element(sample.begin(), sample.begin() + rank_hi, sample.end());
        hi = (double)sample[rank_hi];
        return true;
    }
}

// The smallest and largest sample, NaN left out.
template <class T> static bool stored_extremes(const T* s, size_t count, double& lo, double& hi)
{
    bool any = false;
    T a = 0, b = 0;
    for (size_t i = 0; i < count; ++i) {
        if (!(s[i] == s[i])) continue;
        if (!any || s[i] < a) a = s[i];
        if (!any || s[i] > b) b = s[i];
        any = true;
    }
    lo = (double)a;
    hi = (double)b;
    return any;
}

// value lo maps to 0, value hi to 4095, with value = stored * slope + intercept.
static Mapping linear_mapping(const SourceVolume& src, double lo, double hi)
{
    Mapping m;
    double k = 4095.0 / (hi - lo);
    m.scale = src.slope * k;
    m.offset = (src.intercept - lo) * k;
    return m;
}

Mapping choose_mapping(const SourceVolume& src)
{
    if (import_options.window) {
        double lo = import_options.window_lo, hi = import_options.window_hi;
        printf("mapped values %g..%g to 0..4095 (--window)\n", lo, hi);
        return linear_mapping(src, lo, hi);
    }
    if (src.hounsfield) {
        puts("mapped hounsfield units -1024..3071 to 0..4095");
        Mapping m;
        m.scale = src.slope;
        m.offset = src.intercept + 1024.0;
        return m;
    }
    double lo = 0.0, hi = 0.0;
    bool found = false;
    size_t count = sample_count(src);
    with_typed_samples(src, [&](auto s) { found = stored_percentiles(s, count, lo, hi); });
    if (found && lo == hi)
        with_typed_samples(src, [&](auto s) { found = stored_extremes(s, count, lo, hi); });
    lo = lo * src.slope + src.intercept;
    hi = hi * src.slope + src.intercept;
    if (lo > hi) std::swap(lo, hi);
    if (!found || lo == hi) {
        // Nothing to spread: every sample is the same value (or none is a number).
        printf("mapped values %g..%g to 0..4095: every sample is %g\n", lo, lo + 1.0, lo);
        return linear_mapping(src, lo, lo + 1.0);
    }
    printf("mapped values %g..%g (0.5 %% to 99.5 %% of the samples) to 0..4095\n", lo, hi);
    return linear_mapping(src, lo, hi);
}

// ---------------------------------------------------------------------------------------------
// Axes.

AxisTurn choose_turn(const double axis[3][3])
{
    // Of the six ways to give each file axis its own grid axis, the one whose file axes lie
    // closest to their grid axes (the largest sum of |cosine|); ties keep the file's order.
    static const int perms[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    AxisTurn turn;
    double best = -1.0;
    for (const auto& p : perms) {
        double score = fabs(axis[0][p[0]]) + fabs(axis[1][p[1]]) + fabs(axis[2][p[2]]);
        if (score > best + 1e-9) {
            best = score;
            for (int a = 0; a < 3; ++a) {
                turn.axis_of[a] = p[a];
                turn.flipped[a] = axis[a][p[a]] < 0.0;
            }
        }
    }
    return turn;
}

[[gnu::always_inline]] static inline uint16_t to_density(double v)
{
    // Half up; NaN fails both tests and lands on 0.
    v = floor(v + 0.5);
    if (v >= 4095.0) return 4095;
    if (v > 0.0) return (uint16_t)v;
    return 0;
}

void map_and_turn(const SourceVolume& src, const Mapping& map, const AxisTurn& turn, Grid16& out)
{
    for (int a = 0; a < 3; ++a) out.n[turn.axis_of[a]] = src.size[a];
    const size_t stride[3] = {1, out.n[0], (size_t)out.n[0] * out.n[1]};
    out.v.assign(sample_count(src), 0);

    // Where file sample (0, 0, 0) lands and how far each file axis steps in the grid.
    ptrdiff_t step[3];
    size_t base = 0;
    for (int a = 0; a < 3; ++a) {
        size_t s = stride[turn.axis_of[a]];
        step[a] = turn.flipped[a] ? -(ptrdiff_t)s : (ptrdiff_t)s;
        if (turn.flipped[a]) base += (src.size[a] - 1) * s;
    }
    const uint32_t ni = src.size[0], nj = src.size[1], nk = src.size[2];
    const double scale = map.scale, offset = map.offset;
    uint16_t* grid = out.v.data();

    with_typed_samples(src, [&](auto s) {
        using T = std::remove_cv_t<std::remove_pointer_t<decltype(s)>>;
        // Types of 8 and 16 bits go through a table of every stored value.
        std::vector<uint16_t> table;
        constexpr bool tabled = sizeof(T) <= 2 && std::is_integral_v<T>;
        constexpr int bias = tabled && std::is_signed_v<T> ? 1 << (8 * sizeof(T) - 1) : 0;
        if constexpr (tabled) {
            table.resize(1 << (8 * sizeof(T)));
            for (size_t b = 0; b < table.size(); ++b)
                table[b] = to_density((double)((int)b - bias) * scale + offset);
        }
        const T* in = s;
        for (uint32_t k = 0; k < nk; ++k) {
            for (uint32_t j = 0; j < nj; ++j) {
                uint16_t* o = grid + base + k * step[2] + j * step[1];
                const ptrdiff_t di = step[0];
                if constexpr (tabled) {
                    const uint16_t* t = table.data() + bias;
                    for (uint32_t i = 0; i < ni; ++i, o += di) *o = t[(int)*in++];
                } else {
                    for (uint32_t i = 0; i < ni; ++i, o += di) *o = to_density((double)*in++ * scale + offset);
                }
            }
        }
    });
}
