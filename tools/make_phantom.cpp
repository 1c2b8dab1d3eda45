// make_phantom.cpp — writes the bundled sample volume: a synthetic head that reads like a CT
// scan, in the .dat format that tavok loads.
//
//   make-phantom OUT.dat [--size X Y Z]        (default 192 192 160)
//
// .dat: three little-endian uint16 sizes X, Y, Z, then X*Y*Z little-endian uint16 samples,
// x fastest, then y, then z. Samples are 0..4095.
//
// Density classes: air below 500 (0..~150 with noise), fat, muscle and skin 1000..1200,
// cerebrospinal fluid ~1050, brain 1300..1700 (grey matter darker than white), a lesion ~2000,
// calcifications ~2500, bone 2400..3600 (the inner and outer tables of the skull denser than
// the diploe between them), teeth 3800..4095 and one metal filling clipped at 4095. Every
// boundary is blended over a voxel or two, as partial volume blurs it in a real scan, and
// scanner noise of up to +-50 lies on everything inside the head.
//
// Orientation: x runs across the head from ear to ear, y from the back of the head to the
// face, z from the neck to the top of the head. The anatomy is laid out in a design space of
// 192 x 192 x 160 units and scaled to the requested size, so any size gives the same head.
//
// The output is the same on every machine: the noise comes from an integer hash of lattice
// and voxel coordinates, and the geometry uses only + - * / and sqrt in double precision.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cmath>  // sqrt only
#include <vector>

// ---------------------------------------------------------------------------------------------
// Noise

constexpr uint64_t seed = 0x5EED'C0FF'EE12'3457ull;

// The splitmix64 finaliser.
static uint64_t mix64(uint64_t z)
{
    z += 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

static uint64_t hash3(int64_t x, int64_t y, int64_t z, uint64_t salt)
{
    return mix64(seed ^ (salt * 0xD1B54A32D192ED03ull) ^ (uint64_t(x) * 0x8CB92BA72F3D8DD7ull) ^
                 (uint64_t(y) * 0xABC98388FB8FAC03ull) ^ (uint64_t(z) * 0xF1357AEA2E62A9C5ull));
}

// Lattice value in [-1, 1].
static double lattice(int64_t x, int64_t y, int64_t z, uint64_t salt)
{
    return double(hash3(x, y, z, salt) >> 11) * (2.0 / 9007199254740992.0) - 1.0;
}

static double fade(double t)
{
    return t * t * (3.0 - 2.0 * t);
}

static int64_t ifloor(double v)
{
    int64_t i = int64_t(v);
    return (double(i) > v) ? i - 1 : i;
}

// Smooth value noise, lattice spacing 1, values in [-1, 1].
static double vnoise(double x, double y, double z, uint64_t salt)
{
    int64_t ix = ifloor(x), iy = ifloor(y), iz = ifloor(z);
    double tx = fade(x - double(ix)), ty = fade(y - double(iy)), tz = fade(z - double(iz));
    double c[2][2][2];
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j < 2; ++j)
            for (int i = 0; i < 2; ++i) c[k][j][i] = lattice(ix + i, iy + j, iz + k, salt);
    double v[2];
    for (int k = 0; k < 2; ++k) {
        double a = c[k][0][0] + (c[k][0][1] - c[k][0][0]) * tx;
        double b = c[k][1][0] + (c[k][1][1] - c[k][1][0]) * tx;
        v[k] = a + (b - a) * ty;
    }
    return v[0] + (v[1] - v[0]) * tz;
}

// Scanner noise of one voxel: roughly Gaussian (sum of four uniform bytes), about -1..1 with a
// standard deviation near 0.29.
static double grain(uint64_t index)
{
    uint64_t h = mix64(seed ^ 0xA5A5A5A5ull ^ (index * 0x9E3779B97F4A7C15ull));
    int s = int(h & 255) + int((h >> 8) & 255) + int((h >> 16) & 255) + int((h >> 24) & 255);
    return double(s - 510) / 510.0;
}

// ---------------------------------------------------------------------------------------------
// Geometry, in design units (1 unit = 1 voxel at 192 x 192 x 160)

struct P {
    double x, y, z;
};

static double clamp01(double v)
{
    return v < 0 ? 0 : v > 1 ? 1 : v;
}
static double maxd(double a, double b)
{
    return a > b ? a : b;
}
static double mind(double a, double b)
{
    return a < b ? a : b;
}

// Approximate signed distance to an axis-aligned ellipsoid (negative inside): the normalised
// radius minus one over the length of its gradient, exact on the surface to first order.
static double sd_ellipsoid(P p, P c, P r)
{
    double ux = (p.x - c.x) / r.x, uy = (p.y - c.y) / r.y, uz = (p.z - c.z) / r.z;
    double q = std::sqrt(ux * ux + uy * uy + uz * uz);
    if (q < 1e-9) return -mind(r.x, mind(r.y, r.z));
    double gx = ux / r.x, gy = uy / r.y, gz = uz / r.z;
    double g = std::sqrt(gx * gx + gy * gy + gz * gz) / q;
    return (q - 1.0) / g;
}

static double sd_sphere(P p, P c, double r)
{
    double dx = p.x - c.x, dy = p.y - c.y, dz = p.z - c.z;
    return std::sqrt(dx * dx + dy * dy + dz * dz) - r;
}

// Vertical cylinder of radius r around (cx, cy) between z0 and z1.
static double sd_zcyl(P p, double cx, double cy, double r, double z0, double z1)
{
    double dx = p.x - cx, dy = p.y - cy;
    double radial = std::sqrt(dx * dx + dy * dy) - r;
    double axial = maxd(z0 - p.z, p.z - z1);
    if (radial > 0 && axial > 0) return std::sqrt(radial * radial + axial * axial);
    return maxd(radial, axial);
}

// Smooth union of two distances, blend width k.
static double smin(double a, double b, double k)
{
    double h = maxd(k - (a > b ? a - b : b - a), 0.0) / k;
    return mind(a, b) - h * h * k * 0.25;
}

// Coverage of a shape from its signed distance: 1 inside, 0 outside, a smooth ramp `w` wide
// across the surface — the partial-volume blend of a real scan.
static double cover(double d, double w)
{
    double s = clamp01(0.5 - d / w);
    return s * s * (3.0 - 2.0 * s);
}

static double lerp(double a, double b, double t)
{
    return a + (b - a) * t;
}

static double absd(double v)
{
    return v < 0 ? -v : v;
}

// Distance-like measure for a band a <= v <= b (negative inside).
static double band(double v, double a, double b)
{
    return maxd(a - v, v - b);
}

// Layout. The cranial cavity is an ellipsoid cut by a sloping skull base that sits high under
// the frontal lobes and low at the back; the face and the neck are joined onto the cranium.
const P cranium_c{96, 92, 88}, cranium_r{70, 84, 64};
const P face_c{96, 116, 40}, face_r{56, 56, 42};
static double skull_base(double x, double y)
{
    double side = (x - 96.0) / 70.0;  // the middle fossae dip at the sides
    return 28.0 + (y - 40.0) * (30.0 / 130.0) - 9.0 * side * side;
}

// Normalised radius of the point in a horizontal ellipse: 1 on the ellipse. The jaw bones and
// the teeth are bands of this around arches that open towards the back of the head; times
// the mean radius it is close enough to a distance for the partial-volume ramps.
static double arch(P p, double cx, double cy, double rx, double ry)
{
    double ax = (p.x - cx) / rx, ay = (p.y - cy) / ry;
    return std::sqrt(ax * ax + ay * ay);
}

// Density at a point of the design space. `index` seeds the scanner noise of the voxel, `w` is
// the width of the partial-volume blend. Each structure is laid over what is beneath it with
// its coverage, so the order below is the order of precedence.
static double head_value(P p, uint64_t index, double w)
{
    const double n = grain(index);
    const double air = 50.0 + 45.0 * n;

    double d_cran = sd_ellipsoid(p, cranium_c, cranium_r);
    double d_face = sd_ellipsoid(p, face_c, face_r);
    double d_neck = sd_zcyl(p, 96, 84, 40, -100, 62);
    // the nose: narrower at the bridge, and leaning back towards it
    double taper = 1.0 - 0.45 * clamp01((p.z - 38.0) / 28.0);
    P pn{96.0 + (p.x - 96.0) / taper, p.y + 0.3 * (p.z - 50.0), p.z};
    double d_nose = sd_ellipsoid(pn, P{96, 167, 50}, P{8, 12, 15}) * taper;
    double d_head = smin(smin(smin(d_cran, d_face, 14), d_neck, 14), d_nose, 6);
    if (d_head > 2.0 * w) return air;

    const double tex = vnoise(p.x / 6, p.y / 6, p.z / 6, 2);

    // --- soft tissue: skin over a layer of fat over muscle, with some fat pockets -------------
    double depth = -d_head;  // below the skin
    double v = 1095.0 + 35.0 * tex;
    if (depth > 6) {
        double pocket = vnoise(p.x / 11, p.y / 11, p.z / 11, 3);
        v = lerp(v, 1015.0 + 20 * tex, 0.8 * cover(0.25 - pocket, 0.3));
    }
    v = lerp(v, 1010.0 + 15 * tex, cover(band(depth, 2.0, 4.5), w));  // subcutaneous fat
    v = lerp(v, 1175.0 + 20 * tex, cover(depth - 2.0, w));            // skin

    // --- skull: 5..12 below the cranium surface; dense outer and inner tables, porous diploe
    double d_cav = maxd(d_cran, skull_base(p.x, p.y) - p.z);  // cut by the skull base
    double inner = -d_cav;  // depth inside the cut cranium
    double d_foramen = sd_zcyl(p, 96, 68, 9.5, -100, 60);
    double skull = cover(band(inner, 5.0, 12.0), w) * (1.0 - cover(d_foramen, w));
    if (skull > 0) {
        double t = inner - 5.0;  // 0..7 across the bone
        double pores = vnoise(p.x / 2.5, p.y / 2.5, p.z / 2.5, 4);
        double diploe = 2650.0 + 250.0 * pores;
        double table = 3450.0 + 80.0 * tex;
        v = lerp(v, lerp(table, diploe, cover(band(t, 2.0, 5.0), 1.4)), skull);
    }

    // --- brain ---------------------------------------------------------------------------------
    // Cerebrospinal fluid fills 12..13.5 below the cranium surface, the brain the rest; the
    // brainstem runs down through the foramen and becomes the cord.
    if (inner > 12.0 - 2.0 * w) {
        const double csf = 1045.0 + 15.0 * tex;
        double cortex_depth = inner - 13.5;  // below the brain surface
        // folding: the zero crossings of this noise are the sulci; the cerebellum under the
        // back of the brain is folded finer
        double cereb = cover(sd_ellipsoid(p, P{96, 54, 44}, P{52, 30, 22}), 2.0);
        double fs = 9.0 - 5.0 * cereb;
        double fold = vnoise(p.x / fs, p.y / fs, p.z / fs, 5) +
                      0.5 * vnoise(p.x / (0.5 * fs), p.y / (0.5 * fs), p.z / (0.5 * fs), 6);
        double grey = 1385.0 + 35.0 * vnoise(p.x / 3, p.y / 3, p.z / 3, 7);
        double white = 1610.0 + 35.0 * vnoise(p.x / 5, p.y / 5, p.z / 5, 8);
        // grey matter down to 5..10 below the surface, following the folds
        double b = lerp(white, grey, cover(cortex_depth - (6.5 + 2.5 * fold), 1.8));
        // sulci: thin clefts of fluid near the surface
        double sulcus = cover(absd(fold) - 0.07, 0.08) * cover(cortex_depth - 9.0, 3.0);
        b = lerp(b, csf, sulcus * (1.0 - 0.5 * cereb));
        // the fissure between the hemispheres, from the top down to the corpus callosum
        double fissure = cover(absd(p.x - 95.0) - 0.6, w) *
                         cover(80.0 + 0.15 * (p.y - 92.0) - p.z, 3.0) * (1.0 - cereb);
        b = lerp(b, csf, fissure);
        b = lerp(csf, b, cover(13.5 - inner, w));  // the fluid layer outside the brain
        v = lerp(v, b, cover(12.0 - inner, w) * (1.0 - skull));
    }
    double d_stem = sd_zcyl(p, 96, 68, 6.5, 0, 80);
    if (d_stem < 2.0 * w && inner < 16.0) {
        // below the cavity: the cord in a sleeve of fluid; inside it: the white brainstem
        double cord = lerp(1045.0, 1150.0 + 15 * tex, cover(d_stem + 2.5, w));
        double stem = lerp(cord, 1565.0 + 20 * tex, cover(13.5 - inner, w));
        v = lerp(v, stem, cover(d_stem, w) * (1.0 - skull * (1.0 - cover(d_foramen, w))));
    }
    double brain = cover(13.5 - inner, w);
    if (brain > 0) {
        // ventricles: two lateral horns spreading apart and dipping towards the front and the
        // back, and the thin third ventricle between them
        const double fluid = 1050.0 + 10 * tex;
        for (int side = -1; side <= 1; side += 2) {
            double dy = p.y - 94.0;
            P c{96.0 + side * (8.0 + 0.0011 * dy * dy), 94, 92.0 - 0.004 * dy * dy};
            v = lerp(v, fluid, cover(sd_ellipsoid(p, c, P{5.5, 30, 7.5}), w) * brain);
        }
        v = lerp(v, fluid, cover(sd_ellipsoid(p, P{96, 96, 77}, P{2.0, 13, 7}), w) * brain);

        // a calcified pineal gland behind the third ventricle, and a calcification in the
        // choroid plexus of one ventricle
        v = lerp(v, 2520.0 + 40 * tex, cover(sd_sphere(p, P{96, 80, 78}, 2.6), w));
        v = lerp(v, 2460.0 + 40 * tex, cover(sd_sphere(p, P{106, 70, 90}, 1.9), w));

        // a lesion in the frontal lobe: a mid-density mass with a ragged edge in a halo of
        // lower-density oedema
        double rough = vnoise(p.x / 3, p.y / 3, p.z / 3, 9);
        double d_halo = sd_sphere(p, P{126, 130, 106}, 15.0 + 2.5 * rough);
        if (d_halo < 3.0) {
            double d_mass = sd_sphere(p, P{126, 130, 106}, 9.5 + 1.6 * rough);
            v = lerp(v, 1330.0 + 15 * tex, cover(d_halo, 3.0) * brain);
            double core = 1960.0 + 60.0 * vnoise(p.x / 2, p.y / 2, p.z / 2, 10);
            v = lerp(v, core, cover(d_mass, w) * brain);
        }
        // a small cyst at the back of the other hemisphere
        v = lerp(v, 1070.0, cover(sd_sphere(p, P{68, 40, 98}, 4.5), w) * brain);
    }

    // --- face ----------------------------------------------------------------------------------
    if (p.y > 80 && p.z < 90) {
        // orbits: a bony cup holding the eye, opening to the front below the frontal lobes
        for (int side = -1; side <= 1; side += 2) {
            P oc{96.0 + side * 27.0, 147, 64};
            double d_orb = sd_sphere(p, oc, 13.0);
            if (d_orb > 2.0 + 2.0 * w) continue;
            double in_head = cover(d_head + 2.0, w);  // closed lids: skin over the eye
            P ec{oc.x, 150, 64};
            double d_eye = sd_sphere(p, ec, 10.0);
            double fill = 1005.0 + 20.0 * tex;                          // orbital fat
            double onx = p.x - (oc.x + side * 0.12 * (146.0 - p.y)), onz = p.z - 63.0;
            double d_nerve = maxd(std::sqrt(onx * onx + onz * onz) - 2.3, p.y - 147.0);
            fill = lerp(fill, 1150.0 + 10 * tex, cover(d_nerve, w));     // optic nerve
            fill = lerp(fill, 1240.0, cover(d_eye, w));                  // sclera
            fill = lerp(fill, 1060.0 + 8 * tex, cover(d_eye + 1.3, w));  // vitreous
            double d_lens = sd_ellipsoid(p, P{oc.x, 158.3, 64}, P{4.0, 1.8, 4.0});
            fill = lerp(fill, 1330.0, cover(d_lens, w));                 // lens
            // the wall of the cup, open at the front and not proud of the skull
            double wall = cover(band(d_orb, 0.0, 2.0), w) * cover(p.y - 151.0, 3.0) *
                          cover(d_cran + 5.0, w);
            v = lerp(v, 2900.0 + 100 * tex, wall * in_head);
            v = lerp(v, fill, cover(d_orb, w) * in_head);
        }

        // the facial skeleton: a plate of bone 5..10 under the skin of the face, from the
        // upper jaw up to the forehead, with the two orbits and the nasal opening cut out
        double fdepth = -smin(d_cran, d_face, 14);
        double d_orbits =
            mind(sd_sphere(p, P{69, 147, 64}, 12.5), sd_sphere(p, P{123, 147, 64}, 12.5));
        double d_aperture = sd_ellipsoid(p, P{96, 170, 45}, P{7, 30, 10});
        double cheek = cover(band(fdepth, 5.0, 10.0), w) * cover(band(p.z, 34.0, 80.0), w) *
                       cover(122.0 - p.y, 4.0) * (1.0 - cover(mind(d_orbits, d_aperture), w));
        // the maxilla: a ridge of bone along the upper dental arch, and the hard palate
        double ra = arch(p, 96, 116, 31, 44);
        double maxilla = cover(band(ra, 0.74, 1.06) * 37.0, w) *
                         cover(band(p.z, 33.0, 44.0), w) * cover(108.0 - p.y, w);
        double palate = cover((ra - 0.9) * 37.0, w) * cover(band(p.z, 33.5, 36.0), w) *
                        cover(108.0 - p.y, w);
        // the mandible: a U of bone along the lower arch, with the rami rising at the back
        double rm = arch(p, 96, 108, 38, 56);
        double chin = 6.0 + 0.16 * absd(p.x - 96.0);  // the lower edge rises to the sides
        double body = cover(band(rm, 0.76, 0.95) * 47.0, w) * cover(band(p.z, chin, 26.0), w) *
                      cover(104.0 - p.y, w);
        double ramus = cover(band(absd(p.x - 96.0), 31.0, 37.0), w) *
                       cover(band(p.y, 94.0, 110.0), w) * cover(band(p.z, 10.0, 52.0), w);
        double jaw = maxd(maxd(cheek, maxilla), maxd(palate, maxd(body, ramus)));
        if (jaw > 0) {
            double pores = vnoise(p.x / 2.5, p.y / 2.5, p.z / 2.5, 11);
            v = lerp(v, 2750.0 + 250.0 * pores, jaw * cover(d_head + 2.0, w));
        }

        // teeth: crowns along an arch in each jaw, closed on the bite, roots into the bone.
        // The gaps between teeth fall at even steps of x over the arch radius, so the front
        // teeth come out narrower than the molars at the sides.
        double rt = arch(p, 96, 118, 30, 42);
        if (rt > 0.78 && rt < 1.08 && p.y > 108.0 && p.z > 10.0 && p.z < 46.0) {
            double k = ((p.x - 96.0) / 30.0 / rt + 1.0) * 7.0;
            double f = k - double(ifloor(k));
            double gap = cover(f - 0.07, 0.06) + cover(0.93 - f, 0.06);
            double tooth = cover(band(rt, 0.86, 1.0), 0.04) * (1.0 - clamp01(gap));
            double crowns = cover(band(p.z, 19.0, 26.2), w) + cover(band(p.z, 26.8, 34.0), w);
            double roots = cover(band(p.z, 12.0, 42.0), w) * (1.0 - clamp01(crowns)) *
                           cover(band(rt, 0.9, 0.96), 0.04);
            double enamel = 3880.0 + 215.0 * cover(0.96 - rt, 0.03);
            v = lerp(v, enamel + 30.0 * tex, tooth * clamp01(crowns));
            v = lerp(v, 3250.0 + 60 * tex, tooth * roots);
        }
        // a metal filling in one molar, denser than anything else
        v = lerp(v, 4500.0, cover(sd_sphere(p, P{122, 140, 30}, 2.2), w));

        // air: nasal cavity, maxillary sinuses, and the airway from the back of the nose down
        // the throat; a thin bony lining around the sinuses
        double d_nasal = sd_ellipsoid(p, P{96, 150, 48}, P{6.0, 24, 11});
        double d_sinus = mind(sd_ellipsoid(p, P{75, 144, 50}, P{9, 12, 7}),
                              sd_ellipsoid(p, P{117, 144, 50}, P{9, 12, 7}));
        double d_airway = mind(sd_zcyl(p, 96, 106, 5.5, -100, 46),
                               sd_ellipsoid(p, P{96, 118, 46}, P{5.5, 14, 5}));
        double d_air = mind(d_nasal, mind(d_sinus, d_airway));
        if (d_air < 3.0 + 2.0 * w) {
            v = lerp(v, 2700.0 + 60 * tex, cover(band(d_sinus, 0.0, 1.2), w));
            v = lerp(v, 70.0 + 45.0 * n, cover(d_air, w));
        }
    }

    // --- cervical spine: vertebral bodies with discs between them, arches around the canal
    if (p.z < 48 && p.y > 44 && p.y < 100) {
        double d_body = sd_zcyl(p, 96, 86, 10.0, -100, 36.0);
        double d_arch = sd_zcyl(p, 96, 68, 10.5, -100, 38.0);
        double d_canal = sd_zcyl(p, 96, 68, 6.5, -100, 100);
        double seg = p.z / 9.0 - double(ifloor(p.z / 9.0));  // 0..1 within one vertebra
        double disc = cover(band(seg, 0.12, 0.88), 0.06);      // 0 on a disc
        double vert = maxd(cover(d_body, w), cover(d_arch, w) * (1.0 - cover(d_canal, w)));
        if (vert > 0) {
            double rim = cover(-d_body - 1.8, 1.2);  // the dense shell of the body
            double spongy = 2500.0 + 150.0 * vnoise(p.x / 2, p.y / 2, p.z / 2, 12);
            double bone = lerp(spongy, 3250.0, rim);
            bone = lerp(1120.0 + 15 * tex, bone, disc);
            v = lerp(v, bone, vert);
        }
    }

    v += 50.0 * n;                          // scanner noise
    return lerp(air, v, cover(d_head, w));  // the skin blends into the air
}

// ---------------------------------------------------------------------------------------------

static int usage(const char* msg)
{
    fprintf(stderr, "make-phantom: %s (usage: make-phantom OUT.dat [--size X Y Z])\n", msg);
    return 2;
}

static bool parse_size(const char* s, int& out)
{
    char* end = nullptr;
    long v = strtol(s, &end, 10);
    if (!*s || *end || v < 8 || v > 1024) return false;
    out = int(v);
    return true;
}

int main(int argc, char** argv)
{
    const char* out = nullptr;
    int X = 192, Y = 192, Z = 160;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--size") == 0) {
            if (i + 3 >= argc) return usage("--size takes three numbers");
            if (!parse_size(argv[i + 1], X) || !parse_size(argv[i + 2], Y) ||
                !parse_size(argv[i + 3], Z))
                return usage("each size must be a whole number from 8 to 1024");
            i += 3;
        } else if (argv[i][0] == '-' && argv[i][1] != 0) {
            return usage("unknown option");
        } else if (out) {
            return usage("more than one output file");
        } else {
            out = argv[i];
        }
    }
    if (!out) return usage("no output file");

    // voxel -> design space: 192 x 192 x 160 units whatever the size
    const double sx = 192.0 / X, sy = 192.0 / Y, sz = 160.0 / Z;
    const double blend = 1.3 * maxd(1.0, maxd(sx, maxd(sy, sz)));

    FILE* f = fopen(out, "wb");
    if (!f) {
        fprintf(stderr, "make-phantom: can't open %s for writing\n", out);
        return 2;
    }
    const uint8_t header[6] = {uint8_t(X), uint8_t(X >> 8), uint8_t(Y),
                               uint8_t(Y >> 8), uint8_t(Z), uint8_t(Z >> 8)};
    bool ok = fwrite(header, 1, 6, f) == 6;
    // one z slice at a time, bytes in file order
    std::vector<uint8_t> slice(size_t(X) * Y * 2);
    uint64_t index = 0;
    for (int z = 0; z < Z && ok; ++z) {
        uint8_t* o = slice.data();
        for (int y = 0; y < Y; ++y)
            for (int x = 0; x < X; ++x, ++index, o += 2) {
                P p{(x + 0.5) * sx, (y + 0.5) * sy, (z + 0.5) * sz};
                int64_t v = ifloor(head_value(p, index, blend) + 0.5);
                v = v < 0 ? 0 : v > 4095 ? 4095 : v;
                o[0] = uint8_t(v);
                o[1] = uint8_t(v >> 8);
            }
        ok = fwrite(slice.data(), 1, slice.size(), f) == slice.size();
    }
    ok = (fclose(f) == 0) && ok;
    if (!ok) {
        fprintf(stderr, "make-phantom: failed writing %s\n", out);
        remove(out);  // no half-written volume left behind
        return 2;
    }
    printf("wrote %s (%d x %d x %d)\n", out, X, Y, Z);
    return 0;
}
