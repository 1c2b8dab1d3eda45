// The slice view's pixels, without a window: nearest and bilinear lookups, the fade to black at
// the last row and column, opacity weighting, the arbitrary plane, zoom and the inside tests.
//
// Every picture is 4 x 4 pixels unless said otherwise, so pixel_step is 0.25 and the half
// extents 0.5: all directions are exact binary fractions, and with the recentred axes the
// pixel (row, col) of an XY slice meets p = cx + zoom * (col / 4 - 1/2), q = cz + zoom * (1/2 -
// row / 4) exactly. The expected colours below are worked out by hand from the mix rule
// c0 + (((c1 - c0) * f) >> 15) per byte, with f = trunc(fraction * 32767).
#include <gtest/gtest.h>

#include <cstring>

#include "helpers.h"
#include "slices/slices.h"
#include "transfer/transfer.h"

namespace {

// A grid of X x Y x Z voxels whose densities are f(x, y, z); no margin, no loader.
template <class F> void make_grid(uint32_t X, uint32_t Y, uint32_t Z, F f)
{
    free(voxels);
    voxels = (uint32_t*)calloc((size_t)X * Y * Z, 4);
    vol_x = X, vol_y = Y, vol_z = Z;
    for (uint32_t x = 0; x < X; ++x)
        for (uint32_t z = 0; z < Z; ++z)
            for (uint32_t y = 0; y < Y; ++y) voxels[voxel_index(x, y, z)] = f(x, y, z);
}

// Lookup tables where each density's colour is the density itself and the opacity is 1, so a
// pixel names the voxel it came from; tests overwrite entries where they need colours.
void identity_tables()
{
    alloc_lookup_tables();
    for (int i = 0; i < 4096; ++i) {
        color_lut[i] = (uint32_t)i;
        opacity_lut[i] = 1.0f;
    }
}

// A small picture with a known sentinel in every pixel, the slice state of a recentred axis
// slice, and the given zoom.
void start_picture(uint32_t w, uint32_t h, float zoom)
{
    start_fresh();
    alloc_frame_buffers(w, h, h);
    compute_view_constants();
    for (size_t i = 0; i < (size_t)w * h; ++i) render_target.color[i] = 0xdeadbeefu;
    slice_kind = 0;
    slice_recenter = 1;
    slice_filter = 0;
    slice_use_tf = 0;
    slice_d = 0.0f;
    slice_zoom = zoom;
    slice_x = slice_y = slice_z = 0;
}

uint32_t pixel(uint32_t row, uint32_t col) { return render_target.color[row * render_target.width + col]; }

uint32_t dens(uint32_t x, uint32_t y, uint32_t z) { return 1000 + 100 * x + 10 * y + z; }

// The hand-made geometry of the bilinear tests: axes as when recentred, but the centre put at
// (1.25, -, 3.75), so that with zoom 4 the columns 1..3 meet p = 0.25, 1.25, 2.25 and the rows
// 0..3 meet q = 5.75, 4.75, 3.75, 2.75. Column 0 (p = -0.75) is off the grid.
void quarter_offset_view()
{
    slice_recenter = 0;
    slice_normal_unit[0] = 0.0f, slice_normal_unit[1] = -1.0f, slice_normal_unit[2] = 0.0f;
    slice_u[0] = -1.0f, slice_u[1] = 0.0f, slice_u[2] = 0.0f;
    slice_v[0] = 0.0f, slice_v[1] = 0.0f, slice_v[2] = 1.0f;
    slice_center[0] = 1.25f;
    slice_center[2] = 3.75f;
}

}  // namespace

TEST(SliceView, NearestLookupXY)
{
    start_picture(4, 4, 4.0f);
    make_grid(5, 7, 3, dens);  // cx = 5 / 2 = 2, cz = 7 / 2 = 3: p = col, q = 5 - row
    identity_tables();
    slice_z = 1;
    render_slices(&render_target, voxels);
    for (uint32_t row = 0; row < 4; ++row)
        for (uint32_t col = 0; col < 4; ++col)
            EXPECT_EQ(pixel(row, col), dens(col, 5 - row, 1)) << row << "," << col;
    // Recentring put the axes and the centre in place.
    EXPECT_EQ(slice_normal_unit[1], -1.0f);
    EXPECT_EQ(slice_u[0], -1.0f);
    EXPECT_EQ(slice_v[2], 1.0f);
    EXPECT_EQ(slice_center[0], 2.0f);
    EXPECT_EQ(slice_center[2], 3.0f);
}

TEST(SliceView, NearestLookupXZAndUpperBoundaryIsOutside)
{
    start_picture(4, 4, 4.0f);
    make_grid(5, 7, 3, dens);  // XZ: p = x (a = 5), q = z (b = 3); cx = 2, cz = 1
    identity_tables();
    slice_kind = 1;
    slice_y = 4;
    render_slices(&render_target, voxels);
    // Row 0 meets q = 3.0, exactly the size of z: outside, never written.
    for (uint32_t col = 0; col < 4; ++col) EXPECT_EQ(pixel(0, col), 0xdeadbeefu);
    // Rows 1..3 meet q = 2, 1, 0; column 0 meets p = 0.0, which is inside.
    for (uint32_t row = 1; row < 4; ++row)
        for (uint32_t col = 0; col < 4; ++col)
            EXPECT_EQ(pixel(row, col), dens(col, 4, 3 - row)) << row << "," << col;
}

TEST(SliceView, NearestLookupYZ)
{
    start_picture(4, 4, 4.0f);
    make_grid(5, 7, 3, dens);  // YZ: p = y (a = 7), q = z (b = 3); cx = 3, cz = 1
    identity_tables();
    slice_kind = 2;
    slice_x = 3;
    render_slices(&render_target, voxels);
    for (uint32_t col = 0; col < 4; ++col) EXPECT_EQ(pixel(0, col), 0xdeadbeefu);
    for (uint32_t row = 1; row < 4; ++row)
        for (uint32_t col = 0; col < 4; ++col)
            EXPECT_EQ(pixel(row, col), dens(3, 1 + col, 3 - row)) << row << "," << col;
}

TEST(SliceView, PixelsOffTheSliceAreNotWritten)
{
    start_picture(4, 4, 256.0f);  // 64 voxels a pixel: only the pixels at the centre meet the grid
    make_grid(3, 5, 3, [](uint32_t, uint32_t, uint32_t) { return 1500u; });
    identity_tables();
    slice_z = 1;
    render_slices(&render_target, voxels);
    // p = 1 + 256 * (col / 4 - 1/2): only col 2 (p = 1) is on the grid; q = 2 + 256 * (1/2 -
    // row / 4): only row 2 (q = 2).
    for (uint32_t row = 0; row < 4; ++row)
        for (uint32_t col = 0; col < 4; ++col)
            EXPECT_EQ(pixel(row, col), row == 2 && col == 2 ? 1500u : 0xdeadbeefu) << row << "," << col;
}

TEST(SliceView, BilinearMixOfFourVoxels)
{
    start_picture(4, 4, 4.0f);
    make_grid(3, 6, 3, [](uint32_t x, uint32_t y, uint32_t z) {
        if (z != 1) return 0u;
        if (x == 0 && y == 4) return 1001u;  // A: black
        if (x == 1 && y == 4) return 1002u;  // B: blue 255
        if (x == 0 && y == 5) return 1003u;  // C: green 255
        if (x == 1 && y == 5) return 1004u;  // D: red 255
        return 0u;
    });
    identity_tables();
    color_lut[1001] = 0x000000;
    color_lut[1002] = 0x0000ff;
    color_lut[1003] = 0x00ff00;
    color_lut[1004] = 0xff0000;
    slice_z = 1;
    slice_filter = 1;
    quarter_offset_view();
    render_slices(&render_target, voxels);
    // Pixel (1, 1): p = 0.25, q = 4.75, so fp = 0.25 (f = 8191) and fq = 0.75 (f = 24575).
    // mix(A, B) = blue 255 * 8191 >> 15 = 63: 0x00003f. mix(C, D): red 63, green 255 - 64 = 191.
    // Then along q: red 63 * 24575 >> 15 = 47, green 191 * 24575 >> 15 = 143, blue 63 - 48 = 15.
    EXPECT_EQ(pixel(1, 1), 0x2f8f0fu);
}

TEST(SliceView, BilinearLastRowAndColumnFadeToBlack)
{
    start_picture(4, 4, 4.0f);
    make_grid(3, 6, 3, [](uint32_t, uint32_t, uint32_t) { return 2000u; });
    identity_tables();
    color_lut[2000] = 0xc86432;  // 200, 100, 50
    slice_z = 1;
    slice_filter = 1;
    quarter_offset_view();
    render_slices(&render_target, voxels);
    // Inside, four equal neighbours: the colour itself.
    EXPECT_EQ(pixel(1, 1), 0xc86432u);
    EXPECT_EQ(pixel(3, 2), 0xc86432u);
    // Row 0 (q = 5.75) is the last row of y: along p only, mixed with black by fq = 0.75:
    // 200 - 150 = 50, 100 - 75 = 25, 50 - 38 = 12.
    EXPECT_EQ(pixel(0, 1), 0x32190cu);
    EXPECT_EQ(pixel(0, 2), 0x32190cu);
    // Column 3 (p = 2.25) is the last column of x: along q only; both rows of the pair are mixed
    // with black by fp = 0.25: 200 - 50 = 150, 100 - 25 = 75, 50 - 13 = 37.
    EXPECT_EQ(pixel(1, 3), 0x964b25u);
    // The corner has no neighbour at all: the voxel's colour unmixed.
    EXPECT_EQ(pixel(0, 3), 0xc86432u);
    // Column 0 (p = -0.75) is off the grid.
    EXPECT_EQ(pixel(2, 0), 0xdeadbeefu);
}

TEST(SliceView, NearestIgnoresTheFractions)
{
    start_picture(4, 4, 4.0f);
    make_grid(3, 6, 3, dens);
    identity_tables();
    slice_z = 1;
    slice_filter = 0;
    quarter_offset_view();
    render_slices(&render_target, voxels);
    EXPECT_EQ(pixel(0, 3), dens(2, 5, 1));
    EXPECT_EQ(pixel(1, 1), dens(0, 4, 1));
    EXPECT_EQ(pixel(3, 2), dens(1, 2, 1));
}

TEST(SliceView, OpacityWeighting)
{
    start_picture(4, 4, 4.0f);
    make_grid(5, 7, 3, [](uint32_t, uint32_t, uint32_t) { return 3000u; });
    identity_tables();
    color_lut[3000] = 0xc86432;
    opacity_lut[3000] = 0.5f;  // a = trunc(0.5 * 32767) = 16383
    slice_z = 1;
    slice_use_tf = 1;
    render_slices(&render_target, voxels);
    // 200 * 16383 >> 15 = 99, 100 -> 49, 50 -> 24.
    EXPECT_EQ(pixel(2, 2), 0x633118u);

    // Without the transfer function the same voxel shows its colour alone.
    slice_use_tf = 0;
    render_slices(&render_target, voxels);
    EXPECT_EQ(pixel(2, 2), 0xc86432u);
}

TEST(SliceView, BilinearOpacityWeighting)
{
    start_picture(4, 4, 4.0f);
    // Columns of alternating opacity 0 and 1, all of one colour: at fp = 0.25 between an
    // opacity-0 voxel A (x = 0) and an opacity-1 voxel B (x = 1), the opacity is
    // fq * (0.25 * 1 + 0.75 * 0) + 0.25 * (0.75 * 0 + 0.25 * 1) = 0.25.
    make_grid(3, 6, 3, [](uint32_t x, uint32_t, uint32_t) { return x == 1 ? 3001u : 3000u; });
    identity_tables();
    color_lut[3000] = color_lut[3001] = 0xc86432;
    opacity_lut[3000] = 0.0f;
    opacity_lut[3001] = 1.0f;
    slice_z = 1;
    slice_filter = 1;
    slice_use_tf = 1;
    quarter_offset_view();
    render_slices(&render_target, voxels);
    // a = trunc(0.25 * 32767) = 8191: 200 -> 49, 100 -> 24, 50 -> 12.
    EXPECT_EQ(pixel(1, 1), 0x31180cu);
    // Last row (q = 5.75), along p only: (0.75 * 0 + 0.25 * 1) * 0.25 = 0.0625, a = 2047:
    // the colour is first faded to (50, 25, 12), then weighted: 50 * 2047 >> 15 = 3, 25 -> 1,
    // 12 -> 0.
    EXPECT_EQ(pixel(0, 1), 0x030100u);
    // Last column (p = 2.25, x = 2, opacity 0), along q only: opacity 0, so black.
    EXPECT_EQ(pixel(1, 3), 0u);
}

TEST(SliceView, ArbitraryPlaneIsNeverFiltered)
{
    start_picture(4, 4, 4.0f);
    make_grid(3, 6, 4, dens);
    identity_tables();
    // The plane z = 1 (n = (0, 0, 1), d = -1), seen from (2.5, 2.5, -3) along +z with x to the
    // right and y down the rows: t = rhs / 1 = 1 + 3 = 4, so the pixel meets
    // (0.5 + col, 0.5 + row, 1) — halfway between voxels, where a filter would mix.
    slice_kind = 3;
    slice_recenter = 0;
    slice_d = -1.0f;
    slice_normal[0] = slice_normal[1] = 0.0f, slice_normal[2] = 1.0f;
    for (int i = 0; i < 3; ++i) slice_normal_unit[i] = slice_normal[i];
    slice_u[0] = 1.0f, slice_u[1] = 0.0f, slice_u[2] = 0.0f;
    slice_v[0] = 0.0f, slice_v[1] = 1.0f, slice_v[2] = 0.0f;
    slice_center[0] = 2.5f, slice_center[1] = 2.5f, slice_center[2] = -3.0f;
    for (int filter = 0; filter < 2; ++filter) {
        slice_filter = filter;
        for (size_t i = 0; i < 16; ++i) render_target.color[i] = 0xdeadbeefu;
        render_slices(&render_target, voxels);
        for (uint32_t row = 0; row < 4; ++row)
            for (uint32_t col = 0; col < 4; ++col) {
                // x = 3.5 is beyond the 3 columns of the grid.
                uint32_t want = col < 3 ? dens(col, row, 1) : 0xdeadbeefu;
                EXPECT_EQ(pixel(row, col), want) << "filter " << filter << " " << row << "," << col;
            }
    }
}

TEST(SliceView, ArbitraryPlaneUpperBoundaryIsOutside)
{
    start_picture(4, 4, 4.0f);
    make_grid(4, 4, 4, dens);
    identity_tables();
    // The plane z = 4, exactly the size of z: every point fails the strict test.
    slice_kind = 3;
    slice_recenter = 0;
    slice_d = -4.0f;
    slice_normal[0] = slice_normal[1] = 0.0f, slice_normal[2] = 1.0f;
    for (int i = 0; i < 3; ++i) slice_normal_unit[i] = slice_normal[i];
    slice_u[0] = 1.0f, slice_u[1] = 0.0f, slice_u[2] = 0.0f;
    slice_v[0] = 0.0f, slice_v[1] = 1.0f, slice_v[2] = 0.0f;
    slice_center[0] = 2.0f, slice_center[1] = 2.0f, slice_center[2] = -4.0f;
    render_slices(&render_target, voxels);
    for (size_t i = 0; i < 16; ++i) EXPECT_EQ(render_target.color[i], 0xdeadbeefu);
    // The plane z = 0 is inside: t = 4, x = col, y = row.
    slice_d = 0.0f;
    render_slices(&render_target, voxels);
    for (uint32_t row = 0; row < 4; ++row)
        for (uint32_t col = 0; col < 4; ++col) EXPECT_EQ(pixel(row, col), dens(col, row, 0));
}

TEST(SliceView, ViewParallelToTheSliceStaysBlack)
{
    start_picture(4, 4, 4.0f);
    make_grid(5, 7, 3, dens);
    identity_tables();
    // An axis slice whose view axis has no y: s is infinite, every p and q fails.
    slice_recenter = 0;
    slice_normal_unit[0] = 0.0f, slice_normal_unit[1] = 0.0f, slice_normal_unit[2] = 1.0f;
    slice_u[0] = -1.0f, slice_u[1] = 0.0f, slice_u[2] = 0.0f;
    slice_v[0] = 0.0f, slice_v[1] = 0.0f, slice_v[2] = 1.0f;
    slice_center[0] = 2.0f, slice_center[2] = 3.0f;
    render_slices(&render_target, voxels);
    for (size_t i = 0; i < 16; ++i) EXPECT_EQ(render_target.color[i], 0xdeadbeefu);
}

TEST(SliceView, Zoom1024ShowsFourTimesTheVoxelsOf256)
{
    // A 64 x 64 picture of a grid 1031 voxels wide whose colour is the x index. The first and
    // last pixel of a row meet p = cx - zoom / 2 and p = cx - zoom / 2 + zoom * 63 / 64.
    start_picture(64, 64, 256.0f);
    make_grid(1031, 5, 3, [](uint32_t x, uint32_t, uint32_t) { return x; });
    identity_tables();
    slice_z = 1;
    render_slices(&render_target, voxels);
    uint32_t first256 = pixel(32, 0), last256 = pixel(32, 63);
    EXPECT_EQ(first256, 515u - 128u);
    EXPECT_EQ(last256 - first256, 252u);

    slice_zoom = 1024.0f;
    render_slices(&render_target, voxels);
    uint32_t first1024 = pixel(32, 0), last1024 = pixel(32, 63);
    EXPECT_EQ(first1024, 515u - 512u);
    EXPECT_EQ(last1024 - first1024, 4u * (last256 - first256));
}

TEST(SliceView, OffscreenRenderGoesToTheOffscreenPixels)
{
    start_picture(4, 4, 4.0f);
    make_grid(5, 7, 3, dens);
    identity_tables();
    slice_z = 1;
    memset(offscreen_pixels, 0, 16 * 4);
    offscreen_render = 1;
    render_slices(&render_target, voxels);
    offscreen_render = 0;
    for (uint32_t i = 0; i < 16; ++i) EXPECT_EQ(offscreen_pixels[i], render_target.color[i]);
    EXPECT_EQ(offscreen_pixels[0], dens(0, 5, 1));
}
