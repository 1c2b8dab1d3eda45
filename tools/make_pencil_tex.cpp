// make_pencil_tex.cpp — writes the pencil_tex table, the five 64 x 64 paper textures of
// the pencil-sketch shading.
//
//   g++ -std=c++20 -O2 -o make-pencil-tex tools/make_pencil_tex.cpp
//   ./make-pencil-tex > pencil_tex.cpp     (the build does this into build/generated)
//
// Each texture is paper grain (value noise on the torus plus a little per-texel grain) darkened
// by graphite strokes: short tapered lines, mostly diagonal, drawn with wrap-around coordinates
// so that the texture repeats without a seam. Darker levels get more, longer and heavier
// strokes and from level 3 on a second, crossing hatch direction.
//
// The raw field is then put on the grey scale of its level: an affine map sends its minimum
// and maximum exactly to the darkest and lightest grey of the level, and a monotone curve that
// keeps both ends fixed moves the mean onto the target. Everything is deterministic: an
// integer generator with a fixed seed, and nothing from the maths library but sqrt, floor
// and fabs.
#include <cmath>  // sqrt, floor, fabs
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

constexpr int N = 64;          // texture side, a power of two
constexpr int NN = N * N;

// splitmix64: small, portable, and the same sequence everywhere.
struct Rng {
    uint64_t s;
    uint64_t next() {
        uint64_t z = (s += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }  // [0, 1)
    double range(double a, double b) { return a + (b - a) * uniform(); }
};

static int wrap(int v)
{
    return v & (N - 1);
}

static double smooth(double t)
{
    return t * t * (3.0 - 2.0 * t);
}

// Value noise with `cells` lattice cells across the texture; the lattice wraps, so the noise
// is periodic with period N in both directions. Values in [-1, 1].
static void add_value_noise(std::vector<double>& f, Rng& rng, int cells, double amp)
{
    std::vector<double> lat(cells * cells);
    for (double& v : lat) v = rng.range(-1.0, 1.0);
    const double step = double(cells) / N;
    for (int y = 0; y < N; ++y)
        for (int x = 0; x < N; ++x) {
            double gx = x * step, gy = y * step;
            int x0 = int(gx), y0 = int(gy);
            double tx = smooth(gx - x0), ty = smooth(gy - y0);
            int x1 = (x0 + 1) % cells, y1 = (y0 + 1) % cells;
            double a = lat[x0 + y0 * cells], b = lat[x1 + y0 * cells];
            double c = lat[x0 + y1 * cells], d = lat[x1 + y1 * cells];
            double top = a + (b - a) * tx, bot = c + (d - c) * tx;
            f[x + y * N] += amp * (top + (bot - top) * ty);
        }
}

// 3 x 3 box blur with wrap-around, to soften the per-texel grain a little.
static void blur_wrap(std::vector<double>& f)
{
    std::vector<double> g(NN);
    for (int y = 0; y < N; ++y)
        for (int x = 0; x < N; ++x) {
            double s = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) s += f[wrap(x + dx) + wrap(y + dy) * N];
            g[x + y * N] = s / 9.0;
        }
    f = g;
}

struct Level {
    double grain_fine;    // per-texel paper grain
    double grain_coarse;  // cloudy paper variation
    int strokes;          // strokes in the main direction
    int cross;            // strokes in the crossing direction
    double len_lo, len_hi;
    double weight_lo, weight_hi;  // darkness a stroke can take away, 0..1
    double width;         // half width of the line in texels
};

// Light to dark.
const Level levels[5] = {
    {0.060, 0.030, 6, 0, 6, 14, 0.10, 0.22, 0.75},
    {0.070, 0.040, 34, 0, 10, 26, 0.18, 0.42, 0.85},
    {0.060, 0.040, 70, 0, 12, 30, 0.16, 0.34, 0.90},
    {0.070, 0.050, 90, 40, 16, 40, 0.25, 0.50, 0.95},
    {0.080, 0.050, 120, 80, 18, 44, 0.30, 0.55, 1.00},
};

// One tapered line from (px, py) along (dx, dy), drawn into a per-stroke coverage buffer by
// stepping along it and splatting a tent of half width `w`; coordinates wrap around.
static void draw_stroke(std::vector<double>& tone, const std::vector<double>& tooth, double px,
                        double py, double dx, double dy, double len, double weight, double w,
                        Rng& rng)
{
    std::vector<double> cov(NN, 0.0);
    // a slight bend: the direction drifts linearly along the stroke
    double bend = rng.range(-0.004, 0.004);
    const double step = 0.25;
    int n = int(len / step);
    double x = px, y = py;
    for (int i = 0; i <= n; ++i) {
        double t = double(i) / n;
        double pressure = 4.0 * t * (1.0 - t);  // light at both ends
        pressure = 0.35 + 0.65 * pressure;
        int ix0 = int(std::floor(x - w)) - 1, iy0 = int(std::floor(y - w)) - 1;
        int ix1 = int(std::floor(x + w)) + 1, iy1 = int(std::floor(y + w)) + 1;
        for (int iy = iy0; iy <= iy1; ++iy)
            for (int ix = ix0; ix <= ix1; ++ix) {
                double ex = ix + 0.5 - x, ey = iy + 0.5 - y;
                // distance across the line only, so the stroke has crisp sides
                double across = std::fabs(ex * dy - ey * dx);
                double along = ex * dx + ey * dy;
                if (std::fabs(along) > step) continue;
                double c = 1.0 - across / (w + 0.5);
                if (c <= 0) continue;
                c *= pressure;
                double& dst = cov[wrap(ix) + wrap(iy) * N];
                if (c > dst) dst = c;
            }
        x += dx * step;
        y += dy * step;
        double ndx = dx - bend * dy, ndy = dy + bend * dx;
        double l = std::sqrt(ndx * ndx + ndy * ndy);
        dx = ndx / l;
        dy = ndy / l;
    }
    // graphite catches on the raised grain of the paper: the tooth modulates the stroke
    for (int i = 0; i < NN; ++i)
        if (cov[i] > 0) tone[i] *= 1.0 - weight * cov[i] * tooth[i];
}

static void draw_hatch(std::vector<double>& tone, const std::vector<double>& tooth,
                       const Level& L, int count, double angle_dx, double angle_dy, Rng& rng)
{
    for (int s = 0; s < count; ++s) {
        // jitter the direction a little around the hatch direction
        double jx = angle_dx + rng.range(-0.12, 0.12), jy = angle_dy + rng.range(-0.12, 0.12);
        double l = std::sqrt(jx * jx + jy * jy);
        draw_stroke(tone, tooth, rng.range(0, N), rng.range(0, N), jx / l, jy / l,
                    rng.range(L.len_lo, L.len_hi), rng.range(L.weight_lo, L.weight_hi),
                    L.width * rng.range(0.7, 1.2), rng);
    }
}

// Field -> grey in [lo, hi]: affine onto [0, 1], then the curve t / (t + k (1 - t)), which
// keeps 0 and 1 fixed, is monotone, and darkens for k > 1. k is found by bisection so that the
// mean of the rounded greys hits the target.
static std::vector<int> to_grey(const std::vector<double>& f, int lo, int hi, double target,
                                double& k_out)
{
    double mn = f[0], mx = f[0];
    for (double v : f) {
        if (v < mn) mn = v;
        if (v > mx) mx = v;
    }
    std::vector<double> t(NN);
    for (int i = 0; i < NN; ++i) t[i] = (f[i] - mn) / (mx - mn);
    auto apply = [&](double k, std::vector<int>& out) {
        long sum = 0;
        for (int i = 0; i < NN; ++i) {
            double v = t[i] / (t[i] + k * (1.0 - t[i]));
            int g = int(std::floor(lo + (hi - lo) * v + 0.5));
            out[i] = g;
            sum += g;
        }
        return double(sum) / NN;
    };
    std::vector<int> a(NN), b(NN);
    double klo = 1.0 / 64, khi = 64.0;  // larger k -> darker
    for (int it = 0; it < 100; ++it) {
        double km = std::sqrt(klo * khi);
        if (apply(km, a) > target) klo = km; else khi = km;
    }
    double ma = apply(klo, a), mb = apply(khi, b);
    bool take_a = std::fabs(ma - target) <= std::fabs(mb - target);
    k_out = take_a ? klo : khi;
    return take_a ? a : b;
}


int main()
{
    const int dark[5] = {221, 162, 165, 85, 67};
    const int light[5] = {255, 255, 254, 255, 248};
    const double mean[5] = {248.5, 231.5, 224.4, 182.0, 151.7};

    Rng rng{0x7A70C0DE5EEDull};
    std::vector<int> tex[5];
    double curve_k[5];
    for (int k = 0; k < 5; ++k) {
        const Level& L = levels[k];
        // paper: fine per-texel grain softened once, plus cloudy variation
        std::vector<double> grain(NN, 0.0);
        for (double& v : grain) v = rng.range(-1.0, 1.0);
        blur_wrap(grain);
        std::vector<double> cloud(NN, 0.0);
        add_value_noise(cloud, rng, 4, 0.6);
        add_value_noise(cloud, rng, 8, 0.3);
        add_value_noise(cloud, rng, 16, 0.2);
        std::vector<double> tone(NN), tooth(NN);
        for (int i = 0; i < NN; ++i) {
            tone[i] = 1.0 + L.grain_fine * grain[i] * 3.0 + L.grain_coarse * cloud[i];
            tooth[i] = 0.75 + 0.25 * 3.0 * grain[i];  // raised grain takes more graphite
            if (tooth[i] < 0.3) tooth[i] = 0.3;
        }
        // main hatch runs from lower left to upper right, the cross hatch the other way
        draw_hatch(tone, tooth, L, L.strokes, 0.70710678, -0.70710678, rng);
        draw_hatch(tone, tooth, L, L.cross, 0.80, 0.60, rng);
        tex[k] = to_grey(tone, dark[k], light[k], mean[k], curve_k[k]);
    }

    // Check what the tables promise after rounding. The curve leaves the mean within a few
    // hundredths; should it not, nudge texels strictly between the extremes by one grey level,
    // in a fixed scattered order, until it is.
    for (int k = 0; k < 5; ++k) {
        std::vector<int>& g = tex[k];
        long sum = 0;
        for (int v : g) sum += v;
        long want = long(std::floor(mean[k] * NN + 0.5));
        for (int i = 0, j = 0; sum != want && i < 4 * NN; ++i, j = (j + 1553) & (NN - 1)) {
            int d = sum < want ? 1 : -1;
            if (g[j] + d > dark[k] && g[j] + d < light[k] && g[j] > dark[k] && g[j] < light[k]) {
                g[j] += d;
                sum += d;
            }
        }
        int mn = 255, mx = 0;
        for (int v : g) {
            if (v < mn) mn = v;
            if (v > mx) mx = v;
        }
        double m = double(sum) / NN;
        if (mn != dark[k] || mx != light[k] || std::fabs(m - mean[k]) > 0.1) {
            fprintf(stderr, "make-pencil-tex: level %d off target (mean %.3f, %d..%d)\n", k,
                         m, mn, mx);
            return 1;
        }
    }

    // statistics go to stderr, the source file to stdout
    for (int k = 0; k < 5; ++k) {
        long sum = 0;
        int mn = 255, mx = 0;
        for (int g : tex[k]) {
            sum += g;
            if (g < mn) mn = g;
            if (g > mx) mx = g;
        }
        fprintf(stderr, "pencil_tex[%d]: mean %.3f  darkest %d  lightest %d  (curve k %.3f)\n",
                k, double(sum) / NN, mn, mx, curve_k[k]);
    }

    printf(
        "// pencil_tex.cpp — the five 64 x 64 paper textures of the pencil-sketch shading,\n"
        "// light to dark: paper grain and diagonal graphite strokes, tileable in both\n"
        "// directions. Texel (x, y) is pencil_tex[level][x + y * 64], a grey 0x00RRGGBB word.\n"
        "//\n"
        "// Generated at build time by tools/make_pencil_tex.cpp; do not edit.\n"
        "#include \"core/core.h\"\n"
        "\n"
        "const uint32_t pencil_tex[5][4096] = {\n");
    for (int k = 0; k < 5; ++k) {
        printf("    {  // level %d, mean grey %.1f, %d .. %d\n", k, mean[k], dark[k], light[k]);
        for (int i = 0; i < NN; i += 8) {
            printf("   ");
            for (int j = 0; j < 8; ++j) {
                unsigned g = unsigned(tex[k][i + j]);
                printf(" 0x%08X,", (g << 16) | (g << 8) | g);
            }
            printf("\n");
        }
        printf("    },\n");
    }
    printf("};\n");
    return 0;
}
