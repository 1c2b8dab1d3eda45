// test_pencil_tex.cpp — the five pencil paper textures: grey levels, exact extremes, greyness,
// and that they tile without a visible seam.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "core/core.h"

namespace {

constexpr int N = 64;

struct Target {
    double mean;
    int darkest;
    int lightest;
};
constexpr Target targets[5] = {
    {248.5, 221, 255}, {231.5, 162, 255}, {224.4, 165, 254}, {182.0, 85, 255}, {151.7, 67, 248},
};

int grey(uint32_t w) { return int((w >> 8) & 0xFF); }  // the green channel

// Mean absolute grey difference between columns a and b (over all rows).
double column_diff(const uint32_t* t, int a, int b) {
    double s = 0;
    for (int y = 0; y < N; ++y) s += std::abs(grey(t[a + y * N]) - grey(t[b + y * N]));
    return s / N;
}

double row_diff(const uint32_t* t, int a, int b) {
    double s = 0;
    for (int x = 0; x < N; ++x) s += std::abs(grey(t[x + a * N]) - grey(t[x + b * N]));
    return s / N;
}

// The wrap seam (63 -> 0) may differ from the interior steps by at most half again their
// mean, across columns and across rows.
bool seamless(const uint32_t* t, double* col_ratio = nullptr, double* row_ratio = nullptr) {
    double col_in = 0, row_in = 0;
    for (int i = 0; i + 1 < N; ++i) {
        col_in += column_diff(t, i, i + 1);
        row_in += row_diff(t, i, i + 1);
    }
    col_in /= N - 1;
    row_in /= N - 1;
    double col_seam = column_diff(t, N - 1, 0), row_seam = row_diff(t, N - 1, 0);
    if (col_ratio) *col_ratio = col_seam / col_in;
    if (row_ratio) *row_ratio = row_seam / row_in;
    return col_seam <= 1.5 * col_in && row_seam <= 1.5 * row_in;
}

TEST(PencilTex, MeanAndExtremes) {
    for (int k = 0; k < 5; ++k) {
        long sum = 0;
        int mn = 256, mx = -1;
        for (int i = 0; i < N * N; ++i) {
            int g = grey(pencil_tex[k][i]);
            sum += g;
            if (g < mn) mn = g;
            if (g > mx) mx = g;
        }
        double mean = double(sum) / (N * N);
        EXPECT_NEAR(mean, targets[k].mean, 1.0) << "table " << k;
        EXPECT_EQ(mn, targets[k].darkest) << "table " << k;
        EXPECT_EQ(mx, targets[k].lightest) << "table " << k;
    }
}

TEST(PencilTex, RisingDarkness) {
    double prev = 256;
    for (int k = 0; k < 5; ++k) {
        long sum = 0;
        for (int i = 0; i < N * N; ++i) sum += grey(pencil_tex[k][i]);
        double mean = double(sum) / (N * N);
        EXPECT_LT(mean, prev) << "table " << k;
        prev = mean;
    }
}

TEST(PencilTex, GreyTexels) {
    for (int k = 0; k < 5; ++k)
        for (int i = 0; i < N * N; ++i) {
            uint32_t w = pencil_tex[k][i];
            int r = int((w >> 16) & 0xFF), g = int((w >> 8) & 0xFF), b = int(w & 0xFF);
            ASSERT_EQ(w >> 24, 0u) << "table " << k << " texel " << i;
            ASSERT_LE(std::abs(r - g), 2) << "table " << k << " texel " << i;
            ASSERT_LE(std::abs(g - b), 2) << "table " << k << " texel " << i;
        }
}

TEST(PencilTex, Seamless) {
    for (int k = 0; k < 5; ++k) {
        double cr = 0, rr = 0;
        EXPECT_TRUE(seamless(pencil_tex[k], &cr, &rr))
            << "table " << k << ": seam / interior = " << cr << " (columns), " << rr << " (rows)";
    }
}

// The seam check has to be able to fail: it must reject grainy textures that do not wrap
// (a diagonal gradient, a pattern whose period is not the texture side) and accept one that
// does.
TEST(PencilTex, SeamCheckCatchesNonPeriodic) {
    static uint32_t ramp[N * N], off_period[N * N], periodic[N * N];
    uint64_t s = 12345;
    auto grain = [&s] {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return int((s >> 59) & 15);
    };
    auto tri = [](int v, int period) {  // triangle wave, 0 .. period / 2
        int m = ((v % period) + period) % period;
        return m < period / 2 ? m : period - m;
    };
    for (int y = 0; y < N; ++y)
        for (int x = 0; x < N; ++x) {
            int i = x + y * N;
            ramp[i] = uint32_t(40 + x * 2 + y + grain()) * 0x010101u;
            off_period[i] = uint32_t(60 + 3 * tri(x, 90) + 3 * tri(y, 90) + grain()) * 0x010101u;
            periodic[i] = uint32_t(60 + 3 * tri(x, N) + 3 * tri(y, N) + grain()) * 0x010101u;
        }
    EXPECT_FALSE(seamless(ramp));
    EXPECT_FALSE(seamless(off_period));
    EXPECT_TRUE(seamless(periodic));
}

}  // namespace
