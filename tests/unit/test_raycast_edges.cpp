// Edge lines: the grey image from depths, the Prewitt pair on whole packed words, what the
// border and small images keep, and where the three first-hit passes take their depths from.
// Depth buffers are laid out by hand and the edge pixels worked out by hand.
#include <gtest/gtest.h>

#include <vector>

#include "raycast_helpers.h"

namespace {

// A w x h target with every colour c and every depth no_depth, shown off screen.
void edge_image(uint32_t w, uint32_t h, uint32_t c)
{
    start_fresh();
    refresh = 0;
    set_image(w, h);
    offscreen_render = 1;
    for (uint32_t i = 0; i < w * h; ++i) render_target.color[i] = c, render_target.depth[i] = no_depth;
}

void set_depth(uint32_t x, uint32_t y, uint32_t d) { render_target.depth[y * render_target.width + x] = d; }
uint32_t shown(uint32_t x, uint32_t y) { return offscreen_pixels[y * render_target.width + x]; }

}  // namespace

TEST(Edges, GreyLevelsFromDepth)
{
    // A depth of 2048000 is half of max_ray_steps * 4096 = 4096000: g = trunc(0.5 * 4) = 2,
    // grey 253. The grey image is what edge_scratch keeps.
    edge_image(4, 3, 0x123456u);
    set_depth(1, 1, 2048000);
    set_depth(2, 1, 0);              // a hit at the very start: background
    set_depth(0, 0, 4096000 * 100);  // far beyond: g = 400, cut to 255, grey 0
    set_depth(3, 2, 4096);           // g = trunc(0.001 * 4) = 0: white
    detect_edges(&render_target);
    EXPECT_EQ(edge_scratch[1 * 4 + 1], 0xfdfdfdu);
    EXPECT_EQ(edge_scratch[1 * 4 + 2], 0u);
    EXPECT_EQ(edge_scratch[0], 0u);
    EXPECT_EQ(edge_scratch[2 * 4 + 3], 0xffffffu);
    EXPECT_EQ(edge_scratch[0 * 4 + 1], 0u);  // no_depth
    // A larger strength spreads the depths: 8 gives g = 4, grey 251.
    edge_strength = 8.0f;
    detect_edges(&render_target);
    EXPECT_EQ(edge_scratch[1 * 4 + 1], 0xfbfbfbu);
}

TEST(Edges, PrewittOnAHandMadeBlock)
{
    // 7 x 7: a 3 x 3 block of grey 253 at x, y = 2..4, on background. Every interior pixel whose
    // neighbourhood holds both greys is an edge; the centre (3, 3), inside the block, and the
    // border keep the picture's colours.
    edge_image(7, 7, 0x102030u);
    edge_color = 0xabcdefu;
    for (uint32_t y = 2; y <= 4; ++y)
        for (uint32_t x = 2; x <= 4; ++x) set_depth(x, y, 2048000);
    detect_edges(&render_target);
    for (uint32_t y = 0; y < 7; ++y)
        for (uint32_t x = 0; x < 7; ++x) {
            const bool interior = x >= 1 && x <= 5 && y >= 1 && y <= 5;
            const bool edge = interior && !(x == 3 && y == 3);
            EXPECT_EQ(shown(x, y), edge ? 0xabcdefu : 0x102030u) << x << ", " << y;
        }
    // The target itself keeps the picture.
    EXPECT_EQ(render_target.color[3 * 7 + 3], 0x102030u);
}

TEST(Edges, OppositeSumsThatCancelDrawNothing)
{
    // Greys at (1, 1) and (3, 3) only: at (2, 2) gx = E(1,1) - E(3,3) + 0x80 = 0x80 and
    // gy = E(1,1) - E(3,3) + 0x80 = 0x80, so (gx + gy) >> 1 = 0x80: no edge, although the
    // neighbourhood is not flat. At (1, 2): gx = E(0,1) - E(2,1) + ... = 0 - 0 + 0x80 (no grey
    // in columns 0 and 2 of rows 1..3), gy = E(1,1) - E(1,3) + 0x80 = G + 0x80 -> 255:
    // (0x80 + 255) >> 1 = 191: an edge.
    edge_image(5, 5, 0u);
    edge_color = 0xffu;
    set_depth(1, 1, 2048000);
    set_depth(3, 3, 2048000);
    detect_edges(&render_target);
    EXPECT_EQ(shown(2, 2), 0u);
    EXPECT_EQ(shown(1, 2), 0xffu);
    EXPECT_EQ(shown(2, 1), 0xffu);
}

TEST(Edges, ImagesBelowThreeRowsOrColumnsAreThePlainCopy)
{
    for (int wide = 0; wide < 2; ++wide) {
        const uint32_t w = wide ? 9 : 2, h = wide ? 2 : 9;
        edge_image(w, h, 0x445566u);
        for (uint32_t i = 0; i < w * h; ++i) render_target.color[i] = 0x445566u + i;
        for (uint32_t i = 0; i < w * h; i += 2) render_target.depth[i] = 4096 * (i + 1);
        detect_edges(&render_target);
        for (uint32_t i = 0; i < w * h; ++i) EXPECT_EQ(offscreen_pixels[i], 0x445566u + i);
    }
}

TEST(Edges, DepthZeroIsBackground)
{
    // A surface at grey 253 everywhere but one pixel of depth 0: that pixel reads as background
    // and draws a ring of edges around it; with no_depth there it is the same ring.
    for (uint32_t hole : {0u, no_depth}) {
        edge_image(5, 5, 0x111111u);
        edge_color = 0x222222u;
        for (uint32_t i = 0; i < 25; ++i) render_target.depth[i] = 2048000;
        set_depth(2, 2, hole);
        detect_edges(&render_target);
        for (uint32_t y = 1; y <= 3; ++y)
            for (uint32_t x = 1; x <= 3; ++x) EXPECT_EQ(shown(x, y), x == 2 && y == 2 ? 0x111111u : 0x222222u);
    }
}

TEST(Edges, LargeStepLimitLeavesOnlySteepJumps)
{
    // Two surfaces, 10 and 60 ray units away, side by side over a background column. With
    // max_ray_steps 1000 they are greys 255 and 255 - trunc(0.06 * 4) = 255 as well... take
    // strength 24: 255 - trunc(0.01 * 24) = 255 and 255 - trunc(0.06 * 24) = 254, an edge
    // between them. With max_ray_steps 100000 both are 255: only the background column
    // borders draw.
    for (unsigned limit : {1000u, 100000u}) {
        edge_image(9, 5, 0u);
        edge_color = 0x999999u;
        edge_strength = 24.0f;
        max_ray_steps = limit;
        for (uint32_t y = 0; y < 5; ++y)
            for (uint32_t x = 0; x < 9; ++x) set_depth(x, y, x == 8 ? no_depth : x < 4 ? 10 * 4096 : 60 * 4096);
        detect_edges(&render_target);
        // (3, 2) and (4, 2) border the two surfaces; (6, 2) lies inside the far one; (7, 2)
        // borders the background column.
        EXPECT_EQ(shown(3, 2), limit == 1000u ? 0x999999u : 0u) << limit;
        EXPECT_EQ(shown(4, 2), limit == 1000u ? 0x999999u : 0u) << limit;
        EXPECT_EQ(shown(6, 2), 0u) << limit;
        EXPECT_EQ(shown(7, 2), 0x999999u) << limit;
    }
}

// Where the passes take their depths: a slab at x >= 6 with a step toward the eye at y >= 4
// (x >= 4 there), seen along +x from 10 units before the box; the image's outer ring misses
// the box.
constexpr uint32_t side = 32, pixels = side * side;
void step_scene()
{
    start_fresh();
    refresh = 0;
    set_image(side, side);
    offscreen_render = 1;
    make_grid(11, 9, 9, [](int x, int y, int) { return x >= (y >= 4 ? 4 : 6) ? 3000u : 0u; });
    opaque_from(0, 0x808080u);
    isovalue = 2000;
    interp_mode = interp_bilinear;
    edge_enabled = 1;
    edge_color = 0xff00ffu;  // a colour no grey surface takes
    set_camera(-10.0f, 4.5f, 4.5f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
}

TEST(Edges, FinalDrawsCreasesTrilinearOnlySilhouettes)
{
    step_scene();
    clear_image();
    render_firsthit_preview(&render_target, voxels, ipos, ifor, iup, istr);
    const std::vector<uint32_t> preview_depth(render_target.depth, render_target.depth + pixels);
    render_firsthit_final(&render_target, voxels, ipos, ifor, iup, istr);
    // Hits keep their crossing, misses in the box no_depth; a ray that missed the box keeps
    // the preview's depth.
    int crossings = 0, kept = 0;
    for (uint32_t i = 0; i < pixels; ++i) {
        const uint32_t d = render_target.depth[i];
        if (render_target.color[i] != 0) crossings += d < no_depth && d != 0x3fffff;
        else kept += d == preview_depth[i];
    }
    EXPECT_GT(crossings, 40);
    EXPECT_GT(kept, 0);
    // The step between the slab (x = 6) and the ledge (x = 4) is a crease in depth: an edge
    // somewhere along the row where the ledge begins.
    std::vector<uint32_t> final_shown(offscreen_pixels, offscreen_pixels + pixels);
    clear_image();
    interp_mode = interp_trilinear;
    render_firsthit_final_trilinear(&render_target, voxels, ipos, ifor, iup, istr);
    // Every hit has the one depth 0x3FFFFF: no crease, only silhouettes against background.
    int creases_final = 0, creases_trilinear = 0;
    for (uint32_t y = 1; y + 1 < side; ++y)
        for (uint32_t x = 1; x + 1 < side; ++x) {
            bool all_hit = true;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) all_hit &= render_target.color[(y + dy) * side + x + dx] != 0;
            if (!all_hit) continue;
            creases_final += final_shown[y * side + x] == edge_color;
            creases_trilinear += offscreen_pixels[y * side + x] == edge_color;
        }
    EXPECT_GT(creases_final, 0);
    EXPECT_EQ(creases_trilinear, 0);
    for (uint32_t i = 0; i < pixels; ++i) {
        if (render_target.color[i] != 0) {
            EXPECT_EQ(render_target.depth[i], 0x3fffffu);
        }
    }
}

TEST(Edges, PencilPaperUnderTheLines)
{
    step_scene();
    pencil_sketch = 1, toon_shading = 1;
    render_firsthit_final(&render_target, voxels, ipos, ifor, iup, istr);
    // Background pixels away from any surface show the paper; edges are drawn over it.
    int paper = 0, lines = 0;
    for (uint32_t y = 0; y < side; ++y)
        for (uint32_t x = 0; x < side; ++x) {
            const uint32_t c = shown(x, y);
            paper += c == pencil_tex[0][x + y * 64];
            lines += c == edge_color;
        }
    EXPECT_GT(paper, 10);
    EXPECT_GT(lines, 5);
}
