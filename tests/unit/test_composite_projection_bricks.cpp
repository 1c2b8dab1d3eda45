// What the maximum intensity and average projections read instead of the grid and block_map:
// the densities brick by brick, and the bricks emptied of what the transfer function hides.
// Both must leave every picture as it was: the layout is checked voxel by voxel on an odd grid,
// the emptied bricks against the samples that reach across a brick's face, the pictures with
// and without the emptied bricks, and a change of the grid or of the table that the kept
// arrays must follow. Also the voxel mip ray that ends at the table's greatest opacity.
#include <gtest/gtest.h>

#include <vector>

#include "composite/composite.h"
#include "composite/projection.h"
#include "raycast_helpers.h"

namespace {

using Pass = void (*)(RenderTarget*, uint32_t*, float*, float*, float*, float*);
void run(Pass pass) { pass(&render_target, voxels, ipos, ifor, iup, istr); }

uint32_t brick_of(uint32_t bx, uint32_t by, uint32_t bz) { return (bx * block_z + bz) * block_y + by; }

void transparent_tables()
{
    for (int d = 0; d < 4096; ++d) opacity_lut[d] = 0.0f, color_lut[d] = 0;
}

// One pixel whose ray runs along +x from (-2, 3.5, 3.5): it visits the cells x = 0, 1, 2, ...
// of a grid 7 voxels high and deep through its middle.
void one_ray_along_x()
{
    set_image(1, 1);
    ipos[0] = -2.0f, ipos[1] = 3.5f, ipos[2] = 3.5f;
    ifor[0] = 1.0f, ifor[1] = 0.5f, ifor[2] = 0.5f;
    istr[0] = 0.0f, istr[1] = 1.0f, istr[2] = 0.0f;
    iup[0] = 0.0f, iup[1] = 0.0f, iup[2] = 1.0f;
}

// A 19 x 21 x 19 grid (no size a multiple of 8, three bricks along each axis) of density 500
// with three voxels of density `face`, each on the low face of a brick along one axis:
// (8, 4, 4) in brick (1, 0, 0), (4, 16, 12) in brick (0, 2, 1), (12, 12, 16) in brick
// (1, 1, 2). `face` is opaque and red, 500 transparent. A face density below 500 is found by
// the least density of a brick's footprint, one above it by the greatest.
void voxels_on_brick_faces(uint32_t face = 3000)
{
    start_fresh();
    refresh = 0;
    make_grid(19, 21, 19, [face](int x, int y, int z) {
        const bool on_face = (x == 8 && y == 4 && z == 4) || (x == 4 && y == 16 && z == 12) ||
                             (x == 12 && y == 12 && z == 16);
        return on_face ? face : 500u;
    });
    transparent_tables();
    opacity_lut[face] = 1.0f, color_lut[face] = 0xff0000;
    sample_stepsize = 0.5f;
}

// Every pass of both modes, in each interpolation it has: the pixels of each.
std::vector<std::vector<uint32_t>> every_picture()
{
    struct Step {
        Pass preview, pass;
        int interp;
    };
    const Step steps[] = {
        {nullptr, render_mip_preview, 0},         {nullptr, render_mip_preview, 1},
        {render_mip_preview, render_mip_final, 0}, {render_mip_preview, render_mip_final, 1},
        {nullptr, render_mip_final_trilinear, 2}, {nullptr, render_avg_preview, 0},
        {nullptr, render_avg_preview, 1},         {render_avg_preview, render_avg_final, 0},
        {render_avg_preview, render_avg_final, 1}, {nullptr, render_avg_final_trilinear, 2},
    };
    std::vector<std::vector<uint32_t>> pictures;
    for (const Step& s : steps) {
        interp_mode = (uint8_t)s.interp;
        clear_image();
        if (s.preview) run(s.preview);
        run(s.pass);
        pictures.emplace_back(render_target.color, render_target.color + render_target.width * render_target.height);
    }
    interp_mode = 0;
    return pictures;
}

// The pictures with the emptied bricks and with block_map's own: equal, pass by pass.
void expect_same_pictures(const char* what)
{
    projection_skip_hidden = false;
    const auto plain = every_picture();
    projection_skip_hidden = true;
    const auto skipping = every_picture();
    for (size_t k = 0; k < plain.size(); ++k) EXPECT_EQ(plain[k], skipping[k]) << what << ", pass " << k;
}

}  // namespace

TEST(ProjectionBricks, TheDensitiesLieBrickByBrick)
{
    start_fresh();
    make_grid(19, 13, 11, [](int x, int y, int z) { return (uint32_t)(x * 7 + y * 131 + z * 1009) % 4096; });
    const ProjectionBricks b = projection_bricks();
    const GridView g = grid_view(voxels);
    for (uint32_t x = 0; x < 19; ++x)
        for (uint32_t y = 0; y < 13; ++y)
            for (uint32_t z = 0; z < 11; ++z)
                ASSERT_EQ(b.densities[bricked_index(g, x, y, z)], (x * 7 + y * 131 + z * 1009) % 4096)
                    << x << ", " << y << ", " << z;
    // Brick (2, 1, 1) starts 512 places after brick (2, 1, 0): y fastest, then z, then x.
    EXPECT_EQ(bricked_index(g, 16, 8, 8), (size_t)brick_of(2, 1, 1) * 512);
    EXPECT_EQ(bricked_index(g, 17, 9, 10), (size_t)brick_of(2, 1, 1) * 512 + 64 + 2 * 8 + 1);
}

TEST(ProjectionBricks, ABrickIsEmptiedOnlyWhenNoSampleTakenInItCouldCount)
{
    for (uint32_t face : {3000u, 100u}) {
        SCOPED_TRACE(face);
        voxels_on_brick_faces(face);
        const ProjectionBricks b = projection_bricks();
        // Every brick holds density 500, so block_map has them all solid.
        for (uint32_t i = 0; i < block_x * block_y * block_z; ++i) ASSERT_NE(block_map[i], 0u);
        // The opaque voxels' own bricks, and the brick below each along the axis of its face: a
        // plane or trilinear sample of a cell just below the face reads the voxel on it.
        EXPECT_NE(b.map[brick_of(1, 0, 0)], 0u);
        EXPECT_NE(b.map[brick_of(0, 0, 0)], 0u);  // x
        EXPECT_NE(b.map[brick_of(0, 2, 1)], 0u);
        EXPECT_NE(b.map[brick_of(0, 1, 1)], 0u);  // y
        EXPECT_NE(b.map[brick_of(1, 1, 2)], 0u);
        EXPECT_NE(b.map[brick_of(1, 1, 1)], 0u);  // z
        // Bricks none of whose cells reads an opaque voxel: emptied.
        EXPECT_EQ(b.map[brick_of(2, 0, 0)], 0u);
        EXPECT_EQ(b.map[brick_of(0, 0, 1)], 0u);
        EXPECT_EQ(b.map[brick_of(2, 2, 2)], 0u);
        EXPECT_EQ(b.map[brick_of(2, 1, 1)], 0u);
        EXPECT_EQ(b.radius[brick_of(2, 0, 0)], 0);  // a solid brick next to it
        // 500 made visible: every brick solid again, at the next pass.
        opacity_lut[500] = 0.01f;
        const ProjectionBricks again = projection_bricks();
        for (uint32_t i = 0; i < block_x * block_y * block_z; ++i) EXPECT_NE(again.map[i], 0u) << i;
    }
}

TEST(ProjectionBricks, ABrickOfDensityZeroStaysEmptyWhateverZerosOpacity)
{
    start_fresh();
    make_grid(19, 13, 11, [](int x, int, int) { return x < 16 ? 2000u : 0u; });
    transparent_tables();
    opacity_lut[0] = 0.5f, opacity_lut[2000] = 0.5f;
    const ProjectionBricks b = projection_bricks();
    EXPECT_EQ(block_map[brick_of(2, 0, 0)], 0u);
    EXPECT_EQ(b.map[brick_of(2, 0, 0)], 0u);
    EXPECT_NE(b.map[brick_of(1, 0, 0)], 0u);
}

TEST(ProjectionBricks, EveryPassDrawsTheSamePictureWithTheEmptiedBricks)
{
    // Rays slanted through the grid, so that plane and trilinear samples of cells in the
    // brick below the opaque voxel reach it across the brick's face.
    voxels_on_brick_faces();
    for (int view = 0; view < 3; ++view) {
        // Across each face in turn, slanted.
        set_image(23, 17);
        if (view == 0) set_camera(-6.0f, 2.0f, 2.5f, 1.0f, 0.17f, 0.15f, 0.0f, 0.0f, 1.0f);
        if (view == 1) set_camera(3.5f, -6.0f, 10.5f, 0.05f, 1.0f, 0.1f, 0.0f, 0.0f, 1.0f);
        if (view == 2) set_camera(11.0f, 11.0f, -6.0f, 0.06f, 0.07f, 1.0f, 0.0f, 1.0f, 0.0f);
        clamp_forward();
        const auto pictures = every_picture();
        uint32_t lit = 0;
        for (uint32_t c : pictures[4]) lit += c != 0;
        EXPECT_GT(lit, 0u) << "the trilinear mip final sees an opaque voxel, view " << view;
        expect_same_pictures("voxels on the bricks' faces");
    }

    // A grid that is all transparent but for a band across it: more bricks emptied.
    start_fresh();
    refresh = 0;
    make_grid(21, 19, 17, [](int x, int y, int z) { return 1000u + (uint32_t)((x * 37 + y * 11 + z * 5) % 300) * 3; });
    transparent_tables();
    for (int d = 1600; d < 1700; ++d) opacity_lut[d] = 0.4f + (float)(d - 1600) * 0.005f, color_lut[d] = 0x204080u + (uint32_t)d;
    set_image(23, 17);
    set_camera(-9.0f, -4.0f, 30.0f, 1.0f, 0.8f, -0.9f, 0.0f, 0.0f, 1.0f);
    clamp_forward();
    sample_stepsize = 0.7f;
    expect_same_pictures("a band of densities");
}

TEST(ProjectionBricks, FollowTheGridWhenItIsReplaced)
{
    // The same size, another density at the same place: the pass must read the new one.
    for (uint32_t density : {1000u, 2000u}) {
        start_fresh();
        refresh = 0;
        make_grid(11, 7, 7, [&](int x, int, int) { return x == 5 ? density : 0u; });
        transparent_tables();
        opacity_lut[1000] = 1.0f, color_lut[1000] = 0xff0000;
        opacity_lut[2000] = 1.0f, color_lut[2000] = 0x00ff00;
        one_ray_along_x();
        clear_image();
        run(render_mip_final);
        EXPECT_EQ(pixel(0, 0), density == 1000 ? 0xff0000u : 0x00ff00u);
    }
}

TEST(Mip, AVoxelRayEndsAtTheTablesGreatestOpacityWithThePixelItWouldHaveHad)
{
    // Along +x: red at 0.5, green at 0.6, blue at 0.6, white at 0.55; no opacity in the table
    // above 0.6. The ray ends at green, which the farther blue could not have beaten (strictly
    // greater wins), and the white behind it is below.
    start_fresh();
    refresh = 0;
    const uint32_t density[11] = {0, 0, 1000, 0, 2000, 0, 3000, 0, 3500, 0, 0};
    make_grid(11, 7, 7, [&](int x, int, int) { return density[x]; });
    transparent_tables();
    opacity_lut[1000] = 0.5f, color_lut[1000] = 0xff0000;
    opacity_lut[2000] = 0.6f, color_lut[2000] = 0x00ff00;
    opacity_lut[3000] = 0.6f, color_lut[3000] = 0x0000ff;
    opacity_lut[3500] = 0.55f, color_lut[3500] = 0xffffff;
    one_ray_along_x();
    for (Pass pass : {render_mip_preview, render_mip_final}) {
        clear_image();
        run(pass);
        EXPECT_EQ(pixel(0, 0), 0x00ff00u);
    }
    // "Faint Whisps": w = trunc(0.6 * 32767) = 19660, 255 * 19660 >> 15 = 152.
    faint_whisps = 1;
    clear_image();
    run(render_mip_final);
    EXPECT_EQ(pixel(0, 0), 0x009800u);
    faint_whisps = 0;
    // Green a step lower: the ray goes on to blue, the table's greatest.
    opacity_lut[2000] = 0.59f;
    clear_image();
    run(render_mip_final);
    EXPECT_EQ(pixel(0, 0), 0x0000ffu);
    // White raised above them all: the ray goes on past blue to white.
    opacity_lut[3500] = 0.7f;
    clear_image();
    run(render_mip_final);
    EXPECT_EQ(pixel(0, 0), 0xffffffu);
}
