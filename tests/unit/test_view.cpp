// View constants, resizes and the static images of the window.
#include <gtest/gtest.h>

#include "helpers.h"

static void set_window(uint32_t w, uint32_t h)
{
    alloc_frame_buffers(w, h * 4 / 5, h);
    compute_view_constants();
}

TEST(View, SquareWindow)
{
    set_window(512, 512);
    EXPECT_EQ(render_target.height, 409u);
    // 512 x 409 is wider than high: the height is the short side.
    EXPECT_EQ(half_extent_up, 0.5f);
    EXPECT_EQ(half_extent_str, 0.5f * (512.0f / 409.0f));
    EXPECT_EQ(pixel_step, 1.0f / 409.0f);
    // A square image has both half extents 0.5.
    alloc_frame_buffers(512, 512, 512);
    compute_view_constants();
    EXPECT_EQ(half_extent_str, 0.5f);
    EXPECT_EQ(half_extent_up, 0.5f);
    EXPECT_EQ(view_aspect, 1.0f);
    EXPECT_EQ(pixel_step, 1.0f / 512.0f);
}

TEST(View, WideAndTallWindows)
{
    set_window(800, 300);
    EXPECT_EQ(render_target.height, 240u);
    EXPECT_EQ(pixel_step, 1.0f / 240.0f);
    EXPECT_EQ(pixel_step_copy, pixel_step);
    EXPECT_EQ(view_long_side, 800.0f);
    EXPECT_EQ(view_short_side, 240.0f);
    EXPECT_EQ(half_extent_up, 0.5f);
    EXPECT_EQ(view_aspect, 240.0f / 800.0f);
    EXPECT_EQ(half_extent_str, 0.5f * (1.0f / (240.0f / 800.0f)));
    set_window(200, 500);  // image 200 x 400: the width is the short side
    EXPECT_EQ(half_extent_str, 0.5f);
    EXPECT_EQ(view_aspect, 0.5f);
    EXPECT_EQ(half_extent_up, 1.0f);
    EXPECT_EQ(pixel_step, 1.0f / 200.0f);
    alloc_frame_buffers(512, 409, 409);
    compute_view_constants();
}

TEST(View, ResizeRuleAndTruncatedHeight)
{
    EXPECT_FALSE(resize_allowed(100, 300));
    EXPECT_FALSE(resize_allowed(300, 100));
    EXPECT_TRUE(resize_allowed(101, 101));
    set_window(101, 101);
    EXPECT_EQ(render_target.height, 80u);
    set_window(512, 513);
    EXPECT_EQ(render_target.height, 410u);
    EXPECT_EQ(513u - render_target.height, 103u);  // the editor strip
    alloc_frame_buffers(512, 409, 409);
    compute_view_constants();
}

TEST(View, Normalising)
{
    float v[3] = {3.0f, 0.0f, 4.0f};
    normalize3(v);
    EXPECT_EQ(v[0], 3.0f * (1.0f / 5.0f));
    EXPECT_EQ(v[2], 4.0f * (1.0f / 5.0f));
    float tiny[3] = {0.0005f, 0.0f, 0.0f};  // shorter than 0.001: divided by 0.001
    normalize3(tiny);
    EXPECT_FLOAT_EQ(tiny[0], 0.5f);
    float zero[3] = {0.0f, 0.0f, 0.0f};
    normalize3(zero);
    EXPECT_EQ(zero[0], 0.0f);
}

static bool bit(const uint8_t* plane, int row, int col) { return plane[row * 4 + col / 8] & (0x80 >> (col % 8)); }

TEST(Images, CrossCursorBitPlanes)
{
    uint8_t data[128], mask[128];
    cursor_bit_planes(cursor_cross_image, data, mask);
    // Row 8: 'X' at 11 and 20, in both planes.
    EXPECT_TRUE(bit(data, 8, 11) && bit(mask, 8, 11));
    EXPECT_TRUE(bit(data, 8, 20) && bit(mask, 8, 20));
    EXPECT_FALSE(bit(mask, 8, 12));
    // Row 9: "X.X" at 10: the '.' is in the mask only.
    EXPECT_TRUE(bit(data, 9, 10) && bit(mask, 9, 10));
    EXPECT_TRUE(!bit(data, 9, 11) && bit(mask, 9, 11));
    EXPECT_TRUE(bit(data, 9, 12) && bit(mask, 9, 12));
    // Rows 12 and 15: 'X' at 13 and 18; the centre rows 13 and 14 are empty.
    for (int row : {12, 15}) EXPECT_TRUE(bit(data, row, 13) && bit(data, row, 18)) << row;
    int set = 0;
    for (int i = 0; i < 128; ++i) set += __builtin_popcount(mask[i]);
    // 4 single pixels and 16 strokes of three in the 10 drawn rows.
    EXPECT_EQ(set, 2 * (2 + 6 + 6 + 6 + 2));
    EXPECT_EQ(data[13 * 4] | data[13 * 4 + 1] | data[13 * 4 + 2] | data[13 * 4 + 3], 0);
    EXPECT_STREQ(cursor_cross_image[0], "    32    32        3            1");
    EXPECT_STREQ(cursor_cross_image[36], "16,16");
}

TEST(Images, RingCursorBitPlanes)
{
    uint8_t data[128], mask[128];
    cursor_bit_planes(cursor_ring_image, data, mask);
    for (int col = 13; col < 17; ++col) EXPECT_TRUE(bit(data, 10, col) && bit(data, 18, col));
    EXPECT_TRUE(bit(data, 12, 11) && !bit(data, 12, 12) && bit(mask, 12, 12) && bit(data, 12, 13));
    EXPECT_TRUE(bit(data, 14, 10) && !bit(data, 14, 11) && bit(data, 14, 12));
    EXPECT_TRUE(bit(data, 14, 17) && bit(mask, 14, 18) && bit(data, 14, 19));
    EXPECT_STREQ(cursor_ring_image[36], "0,0");
}

TEST(Images, CursorHotSpotLineHasNoEffectOnThePlanes)
{
    const char* other[37];
    for (int i = 0; i < 37; ++i) other[i] = cursor_cross_image[i];
    other[36] = "3,29";
    uint8_t d1[128], m1[128], d2[128], m2[128];
    cursor_bit_planes(cursor_cross_image, d1, m1);
    cursor_bit_planes(other, d2, m2);
    EXPECT_EQ(memcmp(d1, d2, 128), 0);
    EXPECT_EQ(memcmp(m1, m2, 128), 0);
}
