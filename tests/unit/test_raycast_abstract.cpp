// The abstract view: the closed-form box, plane and sphere tests, computed by hand on small
// boxes, which of them a pixel shows, its shading, and the replication of every second pixel.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "helpers.h"
#include "raycast/raycast.h"

// A box of the given sizes with no grid behind it: the abstract view reads no voxel.
static void box_of(uint32_t x, uint32_t y, uint32_t z)
{
    start_fresh();
    vol_x = x, vol_y = y, vol_z = z;
    vol_diag = sqrtf((float)(x * x + y * y + z * z));
    vol_diag_sq = vol_diag * vol_diag;
}

// Lighting off: every hit shows its base colour unchanged (w = 0).
static void unlit()
{
    light_ambient = light_diffuse = light_specular = 0.0f;
}

TEST(AbstractBox, FrontFaceFromOutside)
{
    box_of(10, 8, 6);
    box_eye_inside = false;
    const float eye[3] = {5.0f, 4.0f, -10.0f}, dir[3] = {0.0f, 0.0f, 2.0f};
    float n[3], t;
    EXPECT_EQ(ray_box_face(dir, eye, n, &t), 5);
    EXPECT_FLOAT_EQ(t, 10.0f);  // a distance, not a multiple of the direction
    EXPECT_EQ(n[0], 0.0f);
    EXPECT_EQ(n[1], 0.0f);
    EXPECT_EQ(n[2], 1.0f);
    // From the high side of y the face y = vol_y is number 3, its normal -y.
    const float above[3] = {5.0f, 20.0f, 3.0f}, down[3] = {0.0f, -1.0f, 0.0f};
    EXPECT_EQ(ray_box_face(down, above, n, &t), 3);
    EXPECT_FLOAT_EQ(t, 12.0f);
    EXPECT_EQ(n[1], -1.0f);
}

TEST(AbstractBox, BackFaceFromInside)
{
    box_of(10, 8, 6);
    box_eye_inside = true;
    const float eye[3] = {2.0f, 4.0f, 3.0f};
    float n[3], t;
    const float along_x[3] = {1.0f, 0.0f, 0.0f};
    EXPECT_EQ(ray_box_face(along_x, eye, n, &t), 2);
    EXPECT_FLOAT_EQ(t, 8.0f);
    EXPECT_EQ(n[0], -1.0f);
    const float down_z[3] = {0.0f, 0.0f, -3.0f};
    EXPECT_EQ(ray_box_face(down_z, eye, n, &t), 5);
    EXPECT_FLOAT_EQ(t, 3.0f);
    // Towards an edge: the nearer of two faces wins.
    const float diagonal[3] = {1.0f, 1.0f, 0.0f};  // meets y = 8 at x = 6, x = 10 only beyond it
    EXPECT_EQ(ray_box_face(diagonal, eye, n, &t), 3);
    EXPECT_FLOAT_EQ(t, sqrtf(32.0f));
}

TEST(AbstractBox, RayPointingAwayMissesAndSaysSo)
{
    box_of(10, 8, 6);
    box_eye_inside = false;
    const float eye[3] = {5.0f, 4.0f, -10.0f}, away[3] = {0.0f, 0.0f, -1.0f};
    float n[3], t = 0.0f;
    EXPECT_EQ(ray_box_face(away, eye, n, &t), 0);
    EXPECT_EQ(t, 4194304.0f);
    // A ray from outside that passes beside the box misses too.
    const float beside[3] = {1.0f, 0.0f, 0.0f};
    EXPECT_EQ(ray_box_face(beside, eye, n, &t), 0);
}

TEST(AbstractPlane, HitParallelBehindAndTheDisc)
{
    box_of(10, 10, 10);
    cut_plane_n[0] = 0.0f, cut_plane_n[1] = 0.0f, cut_plane_n[2] = 1.0f;
    cut_plane_d = -3.0f;  // the plane z = 3
    const float eye[3] = {1.0f, 1.0f, 0.0f};
    float n[3], t = 0.0f;
    const float up_z[3] = {0.0f, 0.0f, 2.0f};
    ASSERT_EQ(ray_plane(up_z, eye, n, &t), 1);
    EXPECT_FLOAT_EQ(t, 3.0f);  // along the normalised direction
    EXPECT_EQ(n[2], 1.0f);
    // Parallel: k = 0, no hit.
    const float along_x[3] = {1.0f, 0.0f, 0.0f};
    EXPECT_EQ(ray_plane(along_x, eye, n, &t), 0);
    EXPECT_EQ(t, 4194304.0f);
    // Behind the eye: t below 0.
    const float down_z[3] = {0.0f, 0.0f, -1.0f};
    EXPECT_EQ(ray_plane(down_z, eye, n, &t), 0);
    // The disc: the hit point shifted by n * d is (1, 1, 0), |m|² = 2. A diagonal of its square
    // root or less hides it.
    vol_diag_sq = 2.0f;
    EXPECT_EQ(ray_plane(up_z, eye, n, &t), 0);
    vol_diag_sq = 2.0001f;
    EXPECT_EQ(ray_plane(up_z, eye, n, &t), 1);
}

TEST(AbstractSphere, FromOutsideTheNormalFacesTheCentre)
{
    box_of(10, 10, 10);
    cut_sphere_center[0] = cut_sphere_center[1] = cut_sphere_center[2] = 5.0f;
    cut_sphere_r2 = 4.0f;
    const float eye[3] = {5.0f, 5.0f, -5.0f}, dir[3] = {0.0f, 0.0f, 0.5f};
    float n[3], t;
    // b = 10, D = 100 - 100 + 4 = 4, s = 2: near = 8, at (5, 5, 3).
    EXPECT_EQ(ray_sphere(dir, eye, n, &t), 1);
    EXPECT_FLOAT_EQ(t, 8.0f);
    EXPECT_EQ(n[0], 0.0f);
    EXPECT_EQ(n[1], 0.0f);
    EXPECT_FLOAT_EQ(n[2], 1.0f);  // from (5, 5, 3) toward the centre
}

TEST(AbstractSphere, FromInsideTheInnerWallFacesOutward)
{
    box_of(10, 10, 10);
    cut_sphere_center[0] = cut_sphere_center[1] = cut_sphere_center[2] = 5.0f;
    cut_sphere_r2 = 4.0f;
    const float eye[3] = {5.0f, 5.0f, 4.0f}, dir[3] = {0.0f, 0.0f, 1.0f};
    float n[3], t;
    // o = (0, 0, -1), b = 1, D = 1 - 1 + 4 = 4, s = 2: near = -1 < 0, the far wall at t = 3.
    EXPECT_EQ(ray_sphere(dir, eye, n, &t), -1);
    EXPECT_FLOAT_EQ(t, 3.0f);
    EXPECT_FLOAT_EQ(n[2], 1.0f);  // at (5, 5, 7), away from the centre
}

TEST(AbstractSphere, BehindTheEyeAndBesideIt)
{
    box_of(10, 10, 10);
    cut_sphere_center[0] = cut_sphere_center[1] = cut_sphere_center[2] = 5.0f;
    cut_sphere_r2 = 4.0f;
    float n[3], t = 0.0f;
    const float past[3] = {5.0f, 5.0f, 10.0f}, dir[3] = {0.0f, 0.0f, 1.0f};
    EXPECT_EQ(ray_sphere(dir, past, n, &t), 0);  // b + s = -3
    EXPECT_EQ(t, 4194304.0f);
    const float beside[3] = {8.0f, 5.0f, -5.0f};  // passes 3 from the centre: D = -5
    EXPECT_EQ(ray_sphere(dir, beside, n, &t), 0);
    const float grazing[3] = {7.0f, 5.0f, -5.0f};  // touches: D = 0, not above
    EXPECT_EQ(ray_sphere(dir, grazing, n, &t), 0);
}

// A camera whose image rays are (dx, dy, 1) with dx, dy = -0.5 + 0.1 * column or line: eye at
// ipos, looking along +z, strafe +x, up +y (rows run along up).
static void look_along_z(float x, float y, float z)
{
    ipos[0] = x, ipos[1] = y, ipos[2] = z;
    ifor[0] = 0.0f, ifor[1] = 0.0f, ifor[2] = 1.0f;
    istr[0] = 1.0f, istr[1] = 0.0f, istr[2] = 0.0f;
    iup[0] = 0.0f, iup[1] = 1.0f, iup[2] = 0.0f;
    prepare_preview_vectors();
}

static void render_abstract(uint32_t w, uint32_t h, uint32_t fill)
{
    alloc_frame_buffers(w, h, h);
    compute_view_constants();
    for (size_t i = 0; i < (size_t)w * h; ++i) render_target.color[i] = fill;
    render_abstract_view(&render_target, voxels, ipos, ifor, iup, istr);
}

static uint32_t pixel(uint32_t x, uint32_t y) { return render_target.color[(size_t)y * render_target.width + x]; }

TEST(AbstractView, EyeInsideThePlaneShowsWhereNearerThanTheBackFace)
{
    box_of(20, 20, 20);
    unlit();
    look_along_z(10.0f, 10.0f, 10.0f);
    // The plane x = 12: a ray (dx, dy, 1) meets it at 2 / dx along x and the back face z = 20
    // at 10 along z, so the plane is nearer where dx > 0.2. Visited columns 0, 2, 4, 6, 8 have
    // dx = -0.5, -0.3, -0.1, 0.1, 0.3: only column 8 (and its copy, 9) shows the plane.
    cut_kind = 1;
    cut_plane_n[0] = 1.0f, cut_plane_n[1] = 0.0f, cut_plane_n[2] = 0.0f;
    cut_plane_d = -12.0f;
    render_abstract(10, 10, 0);
    for (uint32_t y = 0; y < 10; ++y)
        for (uint32_t x = 0; x < 10; ++x) EXPECT_EQ(pixel(x, y), x >= 8 ? 0xccu : 0xcc00u) << x << "," << y;
    EXPECT_TRUE(box_eye_inside);
}

TEST(AbstractView, EyeInsideTheSphereShowsItsInnerWall)
{
    box_of(20, 20, 20);
    unlit();
    look_along_z(10.0f, 10.0f, 10.0f);
    cut_kind = 2;
    cut_sphere_center[0] = cut_sphere_center[1] = cut_sphere_center[2] = 10.0f;
    cut_sphere_r2 = 16.0f;  // radius 4, well inside the box's back face
    render_abstract(6, 6, 0);
    for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < 6; ++x) EXPECT_EQ(pixel(x, y), 0xcc0000u) << x << "," << y;
}

TEST(AbstractView, BoxHidesAShapeBehindItsFrontFace)
{
    box_of(20, 20, 20);
    unlit();
    look_along_z(10.0f, 10.0f, -30.0f);
    // From outside, the sphere inside the box lies behind the front face z = 0: the box shows.
    cut_kind = 2;
    cut_sphere_center[0] = cut_sphere_center[1] = cut_sphere_center[2] = 10.0f;
    cut_sphere_r2 = 25.0f;
    render_abstract(4, 4, 0);
    EXPECT_FALSE(box_eye_inside);
    EXPECT_EQ(pixel(2, 2), 0xcc00u);
    // In front of the box the sphere hides it.
    cut_sphere_center[2] = -10.0f;
    render_abstract(4, 4, 0);
    EXPECT_EQ(pixel(2, 2), 0xcc0000u);
}

TEST(AbstractView, OddSizeReplicatesInsideTheImage)
{
    box_of(20, 20, 20);
    unlit();
    // Looking at the box's lower left corner from outside: rays of the first visited column and
    // line miss it (dx or dy = -0.5 from the corner), the others hit the front face.
    look_along_z(2.0f, 2.0f, -10.0f);
    cut_kind = 0;
    const uint32_t untouched = 0x123456;
    render_abstract(5, 3, untouched);
    // Visited pixels: columns 0, 2, 4 of lines 0 and 2. Column 0 or line 0 misses the box
    // (x or y = 2 - 0.5 * 10 < 0 at z = 0); the rest hit it.
    auto visited = [](uint32_t x, uint32_t y) { return x == 0 || y == 0 ? 0x123456u : 0xcc00u; };
    for (uint32_t y = 0; y < 3; ++y)
        for (uint32_t x = 0; x < 5; ++x) {
            uint32_t sx = x & ~1u, sy = y & ~1u;  // the visited pixel it is a copy of
            EXPECT_EQ(pixel(x, y), visited(sx, sy)) << x << "," << y;
        }
    // Nothing was written past the image: the buffers are exactly 5 x 3 (ASan guards them).
}

TEST(AbstractView, ShadingIsTheRationalFormAndThePlainColourRule)
{
    box_of(20, 20, 20);
    look_along_z(10.0f, 10.0f, -5.0f);  // pixel (0, 0) looks along (-0.5, -0.5, 1) at (7.5, 7.5, 0)
    // Light from the eye: light_dir = view_dir = (0, 0, 1), so h = (0, 0, 1); the front face's
    // normal (0, 0, 1) gives h.n = l.n = 1.
    light_dir[0] = 0.0f, light_dir[1] = 0.0f, light_dir[2] = 1.0f;
    prepare_preview_vectors();
    light_ambient = 0.1f, light_diffuse = 0.5f, light_specular = 0.25f, light_exponent = 4.0f;
    light_color = 0xffffff;
    cut_kind = 0;
    render_abstract(2, 2, 0);
    // I = 0.1 + 0.5 + 0.25 * 1 / (4 - 4 + 1) = 0.85, w = trunc(0.85 * 32767) = 27851: red and
    // blue 0 + (255 * 27851 >> 15) = 216, green 204 + (51 * 27851 >> 15) = 247.
    EXPECT_EQ(pixel(0, 0), 0xd8f7d8u);
    // Above 1 the intensity is cut to 1: w = 32767, each byte c + ((255 - c) * 32767 >> 15).
    light_ambient = 0.5f;
    render_abstract(2, 2, 0);
    EXPECT_EQ(pixel(0, 0), 0xfefefeu);
    // A light along the face: l.n = 0, and h = normalise((1, 0, 0) + (0, 0, 1)), h.n = 0.7071:
    // s = 0.70711 / (4 - 2.82843 + 0.70711) = 0.37639, I = 0.25 * 0.37639 = 0.09410,
    // w = 3083: green 204 + (51 * 3083 >> 15) = 208, red and blue (255 * 3083) >> 15 = 23.
    light_ambient = 0.0f;
    light_dir[0] = 1.0f, light_dir[2] = 0.0f;
    prepare_preview_vectors();
    render_abstract(2, 2, 0);
    EXPECT_EQ(pixel(0, 0), 0x17d017u);
}
