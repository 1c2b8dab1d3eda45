// resample.cpp — box reduction and trilinear resampling of 16-bit grids, the two ways the
// importer changes a grid's sizes. Called by import.cpp; touches only the grids it is given.
#include <cmath>

#include "import/import_local.h"

void box_reduce(const Grid16& in, const uint32_t k[3], Grid16& out)
{
    for (int a = 0; a < 3; ++a) out.n[a] = (in.n[a] + k[a] - 1) / k[a];
    const uint32_t nx = in.n[0], ny = in.n[1], nz = in.n[2];
    const uint32_t ox = out.n[0], oy = out.n[1], oz = out.n[2];
    out.v.assign((size_t)ox * oy * oz, 0);
    // Sums of whole output rows, one input slice at a time; a row of counts beside them.
    std::vector<uint64_t> sum((size_t)ox * oy);
    std::vector<uint32_t> count((size_t)ox * oy);
    for (uint32_t z = 0; z < oz; ++z) {
        std::fill(sum.begin(), sum.end(), 0);
        std::fill(count.begin(), count.end(), 0);
        uint32_t z1 = std::min(nz, (z + 1) * k[2]);
        for (uint32_t iz = z * k[2]; iz < z1; ++iz)
            for (uint32_t iy = 0; iy < ny; ++iy) {
                const uint16_t* row = in.v.data() + ((size_t)iz * ny + iy) * nx;
                size_t o = (size_t)(iy / k[1]) * ox;
                for (uint32_t ix = 0; ix < nx; ++ix) {
                    sum[o + ix / k[0]] += row[ix];
                    count[o + ix / k[0]] += 1;
                }
            }
        uint16_t* dst = out.v.data() + (size_t)z * ox * oy;
        for (size_t i = 0; i < (size_t)ox * oy; ++i)
            dst[i] = (uint16_t)((sum[i] + count[i] / 2) / count[i]);
        report_progress((z + 1.0) / oz);
    }
}

// Per output coordinate: the lower input index, the offset to the upper one (0 at the last
// voxel) and the weight of the upper one.
struct LerpAxis {
    std::vector<size_t> lower, upper;
    std::vector<double> weight;
};

static LerpAxis lerp_axis(uint32_t n_in, uint32_t n_out, double step, size_t stride)
{
    LerpAxis axis;
    for (uint32_t i = 0; i < n_out; ++i) {
        double p = i * step;
        uint32_t i0 = (uint32_t)p;
        double w = p - i0;
        if (i0 >= n_in - 1) {
            i0 = n_in - 1;
            w = 0.0;
        }
        axis.lower.push_back(i0 * stride);
        axis.upper.push_back(w > 0.0 ? (i0 + 1) * stride : i0 * stride);
        axis.weight.push_back(w);
    }
    return axis;
}

// Every interpolated value lies between samples of 0 or more, so truncating value + 0.5 is
// rounding half up.
void resample_trilinear(const Grid16& in, const double step[3], const uint32_t n[3], Grid16& out)
{
    for (int a = 0; a < 3; ++a) out.n[a] = n[a];
    out.v.assign((size_t)n[0] * n[1] * n[2], 0);
    const size_t sy = in.n[0], sz = (size_t)in.n[0] * in.n[1];
    const LerpAxis ax = lerp_axis(in.n[0], n[0], step[0], 1);
    const LerpAxis ay = lerp_axis(in.n[1], n[1], step[1], sy);
    const LerpAxis az = lerp_axis(in.n[2], n[2], step[2], sz);
    const uint16_t* v = in.v.data();
    uint16_t* o = out.v.data();
    if (step[0] == 1.0 && step[1] == 1.0 && n[0] == in.n[0] && n[1] == in.n[1]) {
        // Only z changes (the usual CT: square pixels, thicker slices): with no weight in x and
        // y the general formula is e + (f - e) * wz of two input slices, computed here alike.
        for (uint32_t z = 0; z < n[2]; ++z) {
            const uint16_t* e = v + az.lower[z];
            const uint16_t* f = v + az.upper[z];
            const double wz = az.weight[z];
            for (size_t i = 0; i < sz; ++i) *o++ = (uint16_t)(e[i] + (f[i] - e[i]) * wz + 0.5);
            report_progress((z + 1.0) / n[2]);
        }
        return;
    }
    for (uint32_t z = 0; z < n[2]; ++z) {
        const size_t z0 = az.lower[z], z1 = az.upper[z];
        const double wz = az.weight[z];
        for (uint32_t y = 0; y < n[1]; ++y) {
            const size_t y0 = ay.lower[y], y1 = ay.upper[y];
            const double wy = ay.weight[y];
            const uint16_t* p00 = v + z0 + y0;
            const uint16_t* p01 = v + z0 + y1;
            const uint16_t* p10 = v + z1 + y0;
            const uint16_t* p11 = v + z1 + y1;
            for (uint32_t x = 0; x < n[0]; ++x) {
                const size_t x0 = ax.lower[x], x1 = ax.upper[x];
                const double wx = ax.weight[x];
                double a = p00[x0] + (p00[x1] - p00[x0]) * wx;
                double b = p01[x0] + (p01[x1] - p01[x0]) * wx;
                double c = p10[x0] + (p10[x1] - p10[x0]) * wx;
                double d = p11[x0] + (p11[x1] - p11[x0]) * wx;
                double e = a + (b - a) * wy;
                double f = c + (d - c) * wy;
                *o++ = (uint16_t)(e + (f - e) * wz + 0.5);
            }
        }
        report_progress((z + 1.0) / n[2]);
    }
}
