// The slice plane's basis, the start values and the moves along the view, without a window;
// and the slice view as what the frame loop shows after a load.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "helpers.h"
#include "slices/slices.h"
#include "transfer/transfer.h"

namespace {

void empty_grid(uint32_t X, uint32_t Y, uint32_t Z)
{
    free(voxels);
    voxels = (uint32_t*)calloc((size_t)X * Y * Z, 4);
    vol_x = X, vol_y = Y, vol_z = Z;
}

float dot(const float* a, const float* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

void expect_right_handed_unit_frame()
{
    const float* n = slice_normal_unit;
    EXPECT_NEAR(dot(slice_u, slice_u), 1.0f, 1e-5f);
    EXPECT_NEAR(dot(slice_v, slice_v), 1.0f, 1e-5f);
    EXPECT_NEAR(dot(n, n), 1.0f, 1e-5f);
    EXPECT_NEAR(dot(slice_u, n), 0.0f, 1e-5f);
    EXPECT_NEAR(dot(slice_v, n), 0.0f, 1e-5f);
    EXPECT_NEAR(dot(slice_u, slice_v), 0.0f, 1e-5f);
    // istr x iup = ifor, as for the camera.
    float c[3] = {slice_u[1] * slice_v[2] - slice_u[2] * slice_v[1],
                  slice_u[2] * slice_v[0] - slice_u[0] * slice_v[2],
                  slice_u[0] * slice_v[1] - slice_u[1] * slice_v[0]};
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(c[i], n[i], 1e-5f);
    // The camera is the slice's view.
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ipos[i], slice_center[i]);
        EXPECT_EQ(ifor[i], n[i]);
        EXPECT_EQ(iup[i], slice_v[i]);
        EXPECT_EQ(istr[i], slice_u[i]);
    }
}

}  // namespace

TEST(SliceBasis, ZeroNormalBecomesX)
{
    start_fresh();
    empty_grid(9, 7, 5);
    slice_d = 0.0f;
    slice_zoom = 256.0f;
    slice_normal[0] = slice_normal[1] = slice_normal[2] = 0.0f;
    make_slice_basis();
    EXPECT_EQ(slice_normal[0], 1.0f);
    EXPECT_EQ(slice_normal[1], 0.0f);
    EXPECT_EQ(slice_normal[2], 0.0f);
    EXPECT_EQ(slice_normal_unit[0], 1.0f);
    // Eye 256 before the centre (4, 3, 2) against the normal.
    EXPECT_EQ(slice_center[0], 4.0f - 256.0f);
    EXPECT_EQ(slice_center[1], 3.0f);
    EXPECT_EQ(slice_center[2], 2.0f);
    expect_right_handed_unit_frame();
}

TEST(SliceBasis, ComponentsBelowFiveThousandthsCountAsZero)
{
    start_fresh();
    empty_grid(9, 7, 5);
    slice_normal[0] = slice_normal[1] = slice_normal[2] = 0.004f;
    make_slice_basis();
    EXPECT_EQ(slice_normal[0], 1.0f);
    EXPECT_EQ(slice_normal[1], 0.0f);
    EXPECT_EQ(slice_normal[2], 0.0f);

    // One component at 0.005 keeps the vector; it is only normalised.
    slice_normal[0] = 0.004f, slice_normal[1] = 0.0f, slice_normal[2] = 0.005f;
    make_slice_basis();
    float len = sqrtf(0.004f * 0.004f + 0.005f * 0.005f);
    EXPECT_NEAR(slice_normal[0], 0.004f / len, 1e-6f);
    EXPECT_NEAR(slice_normal[2], 0.005f / len, 1e-6f);
    expect_right_handed_unit_frame();
}

TEST(SliceBasis, PlaneAlongZ)
{
    start_fresh();
    empty_grid(9, 7, 5);
    slice_d = 3.0f;
    slice_zoom = 100.0f;
    slice_normal[0] = 0.0f, slice_normal[1] = 0.0f, slice_normal[2] = 2.0f;
    make_slice_basis();
    EXPECT_EQ(slice_normal[2], 1.0f);
    // dist = d + zoom = 103; centre (4, 3, 2 - 103).
    EXPECT_EQ(slice_center[0], 4.0f);
    EXPECT_EQ(slice_center[1], 3.0f);
    EXPECT_EQ(slice_center[2], -101.0f);
    // z is solved: w = (2, 2, 0), so v = n x w points to (-1, 1, 0) and u = v x n to (1, 1, 0).
    const float h = 0.70710677f;
    EXPECT_NEAR(slice_v[0], -h, 1e-6f);
    EXPECT_NEAR(slice_v[1], h, 1e-6f);
    EXPECT_EQ(slice_v[2], 0.0f);
    EXPECT_NEAR(slice_u[0], h, 1e-6f);
    EXPECT_NEAR(slice_u[1], h, 1e-6f);
    EXPECT_EQ(slice_u[2], 0.0f);
    expect_right_handed_unit_frame();
}

TEST(SliceBasis, SlantedNormalsGiveAnOrthonormalFrame)
{
    start_fresh();
    empty_grid(9, 7, 5);
    const float normals[][3] = {{3, 4, 0}, {-3, 4, 0}, {0, -4, 3}, {1, 1, 1}, {-0.2f, 0.1f, -0.9f},
                                {0.5f, -0.5f, 0.5f}, {0.01f, 0.0f, 0.0f}, {0, 0.3f, 0.3f}};
    for (auto& n : normals) {
        slice_d = -7.0f;
        for (int i = 0; i < 3; ++i) slice_normal[i] = n[i];
        make_slice_basis();
        expect_right_handed_unit_frame();
        // The centre stands zoom + d before the middle of the grid, along the normal.
        EXPECT_NEAR(slice_center[0], 4.0f - slice_normal_unit[0] * (slice_zoom - 7.0f), 1e-3f);
        EXPECT_NEAR(slice_center[2], 2.0f - slice_normal_unit[2] * (slice_zoom - 7.0f), 1e-3f);
    }
}

TEST(SliceBasis, ResetSlicesStartValues)
{
    start_fresh();
    empty_grid(9, 7, 5);
    slice_kind = 3, slice_d = 12.0f, slice_recenter = 0, slice_filter = 0, slice_zoom = 40.0f;
    slice_use_tf = 1;
    slice_x = slice_y = slice_z = 1;
    slice_normal[1] = 1.0f;
    reset_slices();
    EXPECT_EQ(slice_kind, 0);
    EXPECT_EQ(slice_d, 0.0f);
    EXPECT_EQ(slice_recenter, 1);
    EXPECT_EQ(slice_filter, 1);
    EXPECT_EQ(slice_use_tf, 1);  // not a start value of reset_slices: it stays
    EXPECT_EQ(slice_zoom, 256.0f);
    EXPECT_EQ(slice_x, 4u);
    EXPECT_EQ(slice_y, 3u);
    EXPECT_EQ(slice_z, 2u);
    EXPECT_EQ(slice_normal[0], 1.0f);
    EXPECT_EQ(slice_normal[1], 0.0f);
    EXPECT_EQ(slice_normal_unit[0], 1.0f);
    EXPECT_EQ(slice_center[0], 4.0f - 256.0f);
    EXPECT_EQ(slice_center[1], 3.0f);
    EXPECT_EQ(slice_center[2], 2.0f);
    expect_right_handed_unit_frame();
}

TEST(SliceBasis, SliderPositionsKeepTheirIndex)
{
    // The slider stands at (index + 0.5) / (size - 1); the handler's (size - 1) * v truncated
    // comes back to the index, for every index of odd and even sizes.
    for (uint32_t size : {2u, 7u, 8u, 97u, 260u}) {
        for (uint32_t i = 0; i + 1 < size; ++i)
            EXPECT_EQ(slice_index_at(size, slice_slider_position(i, size)), i) << size << " " << i;
        EXPECT_EQ(slice_index_at(size, 1.0), size - 1);
        EXPECT_EQ(slice_index_at(size, 0.0), 0u);
    }
    EXPECT_EQ(slice_slider_position(3, 7), 3.5 / 6.0);
    EXPECT_EQ(slice_index_at(0, 0.7), 0u);  // no volume
}

TEST(SliceBasis, MoveAlongTheView)
{
    start_fresh();
    empty_grid(9, 7, 5);
    slice_normal_unit[0] = 0.0f, slice_normal_unit[1] = 1.0f, slice_normal_unit[2] = 0.0f;
    slice_center[0] = 1.0f, slice_center[1] = 2.0f, slice_center[2] = 3.0f;
    slice_recenter = 0;
    move_slice_along_view(-3.0f);
    EXPECT_EQ(slice_center[0], 1.0f);
    EXPECT_EQ(slice_center[1], 5.0f);
    EXPECT_EQ(slice_center[2], 3.0f);
    EXPECT_EQ(ipos[1], 5.0f);

    // Recentred: the distance is ignored, the centre goes to zoom + d before the middle.
    slice_recenter = 1;
    slice_zoom = 20.0f;
    slice_d = 2.0f;
    move_slice_along_view(100.0f);
    EXPECT_EQ(slice_center[0], 4.0f);
    EXPECT_EQ(slice_center[1], 3.0f - 22.0f);
    EXPECT_EQ(slice_center[2], 2.0f);
    EXPECT_EQ(ipos[0], 4.0f);
    EXPECT_EQ(ipos[1], -19.0f);
}

TEST(SliceBasis, RecentredArbitraryPlaneRebuildsItsBasisEachPicture)
{
    start_fresh();
    empty_grid(9, 7, 5);
    alloc_lookup_tables();
    reset_grey_tables();
    slice_kind = 3;
    slice_recenter = 1;
    slice_normal[0] = 0.0f, slice_normal[1] = 0.0f, slice_normal[2] = 5.0f;
    render_slices(&render_target, voxels);
    EXPECT_EQ(slice_normal[2], 1.0f);
    EXPECT_EQ(slice_normal_unit[2], 1.0f);
    EXPECT_EQ(ifor[2], 1.0f);
}

TEST(SliceBasis, LoadShowsTheMiddleXYSliceAndLeavesNoFinalDue)
{
    start_fresh();
    // 5 x 7 x 3 samples of density 800 (the loader adds a margin of 2); the grey tables show
    // density d as trunc(d / 4095 * 255).
    auto path = write_dat("slices_load.dat", 5, 7, 3,
                          make_samples(5, 7, 3, [](int, int, int) { return 800; }));
    null_chooser_name = path.c_str();
    load_requested = 1;
    slice_use_tf = 0;  // the load keeps it: only the panel's check box sets it
    strcpy(null_render_time, "unchanged");
    frame();  // the load, and the slice view's one pass in the same frame
    EXPECT_EQ(render_mode, 12);
    EXPECT_EQ(slice_kind, 0);
    EXPECT_EQ(slice_z, 7u / 2);
    EXPECT_EQ(refresh, 0);
    EXPECT_EQ(final_pending, 0);
    // The centre pixel of the 512 x 409 picture shows the middle of the grid.
    uint32_t grey = (uint32_t)(int)(800 * 0.00024420026f * 255.0f);
    uint32_t centre = render_target.color[204 * 512 + 256];
    EXPECT_EQ(centre, grey << 16 | grey << 8 | grey);
    // The picture spans 256 voxels across its 409 rows: the 9 x 11 voxel grid is a small
    // rectangle in the middle, everything around it black.
    EXPECT_EQ(render_target.color[0], 0u);
    EXPECT_EQ(render_target.color[204 * 512 + 10], 0u);
    size_t lit = 0;
    for (size_t i = 0; i < (size_t)512 * 409; ++i) lit += render_target.color[i] != 0;
    EXPECT_GT(lit, 0u);
    EXPECT_LT(lit, 512u * 409u / 50);

    // Nothing is due afterwards: the next frames idle and the render time stays as it was.
    frame();
    frame();
    EXPECT_EQ(final_pending, 0);
    EXPECT_STREQ(null_render_time, "unchanged");
    unlink(path.c_str());
}
