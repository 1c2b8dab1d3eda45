// test_composite_smooth.cpp — smooth_image on small hand-made images.
#include <gtest/gtest.h>

#include "composite/composite.h"
#include "raycast_helpers.h"

TEST(SmoothImage, FivePointsInIntegersBorderKept)
{
    start_fresh();
    set_image(4, 3);
    // A single bright pixel at (1, 1) and a grey neighbour at (2, 1).
    for (uint32_t i = 0; i < 12; ++i) render_target.color[i] = 0x01000000u;  // top byte set
    render_target.color[1 * 4 + 1] = 0x00ff8010;
    render_target.color[1 * 4 + 2] = 0x00404040;
    smooth_image(&render_target);
    // (1, 1): neighbours up 0x00, down 0x00, left 0x00, right 0x40: ((0x40 >> 2) + c) >> 1.
    EXPECT_EQ(pixel(1, 1), (uint32_t)((((0x10 + 0xff) >> 1) << 16) | (((0x10 + 0x80) >> 1) << 8) |
                                      ((0x10 + 0x10) >> 1)));
    // (2, 1): left is the bright pixel: ((0xff >> 2) + 0x40) >> 1 = 63 + 64 >> 1 = 63 in red.
    EXPECT_EQ(pixel(2, 1), (uint32_t)((((0xff >> 2) + 0x40) >> 1) << 16 | (((0x80 >> 2) + 0x40) >> 1) << 8 |
                                      (((0x10 >> 2) + 0x40) >> 1)));
    // The border keeps its words, top byte included.
    EXPECT_EQ(pixel(0, 0), 0x01000000u);
    EXPECT_EQ(pixel(3, 1), 0x01000000u);
    EXPECT_EQ(pixel(1, 2), 0x01000000u);
    // The copy is in edge_scratch.
    EXPECT_EQ(edge_scratch[1 * 4 + 1], 0x00ff8010u);
}

TEST(SmoothImage, ThinImagesStayAsTheyAre)
{
    start_fresh();
    for (uint32_t h : {1u, 2u}) {
        set_image(5, h);
        for (uint32_t i = 0; i < 5 * h; ++i) render_target.color[i] = 0x123456u * (i + 1);
        smooth_image(&render_target);
        for (uint32_t i = 0; i < 5 * h; ++i) EXPECT_EQ(render_target.color[i], 0x123456u * (i + 1));
    }
    set_image(2, 6);
    for (uint32_t i = 0; i < 12; ++i) render_target.color[i] = 0xabcdefu + i;
    smooth_image(&render_target);
    for (uint32_t i = 0; i < 12; ++i) EXPECT_EQ(render_target.color[i], 0xabcdefu + i);
}
