// The editor strip's painting: geometry, histogram columns, isovalue and surface marks, the
// colour bar, marker places, the overlay's lines, squares and markers, and the copy into
// the window. Pixels are checked against hand-worked values.
#include "transfer_helpers.h"

using TransferStrip = TransferTest;

constexpr uint32_t grey = 0x7f7f7f, ground = 0xeeeeee, orange = 0xfc9800;

TEST_F(TransferStrip, InitialisationSizesAndReports)
{
    histo[700] = 7;
    histo[300] = 50;  // below 500: left out of the scale
    quiet();
    init_transfer_editor();
    EXPECT_EQ(said(), "max_histo = 7\ntransferfunc surface is 512 x 103\n");
    EXPECT_EQ(max_histo, 7u);
    EXPECT_EQ(drag_color_node, nullptr);
    EXPECT_EQ(drag_opacity_node, nullptr);
}

TEST_F(TransferStrip, A512By103StripHasA20RowBarAnd83OpacityRows)
{
    EXPECT_EQ(tf_width, 512);
    EXPECT_EQ(tf_height, 103);
    EXPECT_EQ(tf_bar_h, 20);
    isovalue = -1;  // no orange column
    draw_tf_backdrop();
    for (int x : {0, 3, 100, 300, 511}) {
        for (int y = 0; y < 83; ++y) {
            uint32_t p = strip(x, y);
            ASSERT_TRUE(p == grey || p == ground) << x << "," << y;
        }
        for (int y = 83; y < 103; ++y) ASSERT_EQ(strip(x, y), color_lut[8 * x]) << x << "," << y;
    }
}

TEST_F(TransferStrip, HistogramColumnsAreLinearAndShowTheFirstDensityOnly)
{
    histo[800] = 100;   // the scale: the strongest bin from 500 up
    histo[808] = 50;    // column 101 stands for 808..815
    histo[809] = 100;   // shares column 101: not shown
    histo[400] = 1000;  // below 500: clipped at the top
    isovalue = -1;
    quiet();
    init_transfer_editor();
    said();
    ASSERT_EQ(max_histo, 100u);
    // Levels grow by 100/83 per row from the bottom: 82 rows reach 98.8 <= 100, and 50
    // covers rows 0..41 from the bottom (41 * 1.2048 = 49.4, 42 * 1.2048 = 50.6).
    for (int y = 0; y < 83; ++y) {
        EXPECT_EQ(strip(100, y), grey) << y;
        EXPECT_EQ(strip(50, y), grey) << y;
        EXPECT_EQ(strip(101, y), y >= 41 ? grey : ground) << y;
        EXPECT_EQ(strip(200, y), y == 82 ? grey : ground) << y;  // empty bin: bottom row only
    }
}

TEST_F(TransferStrip, IsovalueColumnIsOrangeOverTheWholeOpacityArea)
{
    histo[1000] = 5;
    isovalue = 1000;  // column 125 stands for 1000..1007
    draw_tf_backdrop();
    for (int y = 0; y < 83; ++y) {
        ASSERT_EQ(strip(125, y), orange) << y;
        ASSERT_NE(strip(124, y), orange) << y;
        ASSERT_NE(strip(126, y), orange) << y;
    }
    for (int y = 83; y < 103; ++y) ASSERT_EQ(strip(125, y), color_lut[1000]) << y;
    isovalue = 1007;
    draw_tf_backdrop();
    EXPECT_EQ(strip(125, 0), orange);
    isovalue = 1008;
    draw_tf_backdrop();
    EXPECT_NE(strip(125, 0), orange);
    EXPECT_EQ(strip(126, 0), orange);
}

TEST_F(TransferStrip, SurfaceMarksCoverTheOrangeAndEachOtherInOrder)
{
    isovalue = 1000;
    surface_on[0] = 1, surface_isovalue[0] = 1001, surface_tint[0] = 0x0000ff;
    surface_on[2] = 1, surface_isovalue[2] = 1003, surface_tint[2] = 0x00ff00;
    surface_on[1] = 0, surface_isovalue[1] = 1600, surface_tint[1] = 0xff0000;  // off
    surface_on[3] = 1, surface_isovalue[3] = 2400;                               // 0x11aa11
    draw_tf_backdrop();
    for (int y = 0; y < 83; ++y) {
        ASSERT_EQ(strip(125, y), 0x00ff00u) << y;
        ASSERT_NE(strip(200, y), 0xff0000u) << y;
        ASSERT_EQ(strip(300, y), 0x11aa11u) << y;
    }
    EXPECT_EQ(strip(125, 90), color_lut[1000]);
}

TEST_F(TransferStrip, APaletteInTheTableShowsOnTheBarAtOnce)
{
    // As after a KVX load: the lists still say grey, the table holds a palette.
    for (uint32_t i = 0; i < 4096; ++i) color_lut[i] = (i * 2654435761u) >> 8 & 0xffffff;
    draw_tf_backdrop();
    for (int x = 0; x < 512; ++x)
        for (int y = 83; y < 103; ++y) ASSERT_EQ(strip(x, y), color_lut[8 * x]) << x << "," << y;
}

TEST_F(TransferStrip, MarkerPlacesFollowPosAndOpacity)
{
    EXPECT_EQ(color_nodes->scx, 1);
    EXPECT_EQ(color_nodes->scy, 92);  // 103 - 20/2 - 1, the bar's middle row
    EXPECT_EQ(color_nodes->next->scx, 510);
    EXPECT_EQ(opacity_nodes->scx, 1);
    EXPECT_EQ(opacity_nodes->scy, 81);  // 83 rows down, kept two above the area's end
    EXPECT_EQ(opacity_nodes->next->scx, 510);
    EXPECT_EQ(opacity_nodes->next->scy, 1);

    colour_node(200, 0x123456);
    OpacityNode* o = opacity_node(200, 10);
    o->opacity = 0.5f;
    // A resize to 700 x 600: image 480 rows, strip 700 x 120, bar 24, opacity area 96.
    window_width = 700;
    window_height = 600;
    alloc_frame_buffers(700, 480, 600);
    tf_width = 700;
    tf_height = 120;
    free(tf_pixels);
    tf_pixels = (uint32_t*)malloc(700 * 120 * 4);
    draw_tf_backdrop();
    EXPECT_EQ(tf_bar_h, 24);
    ColorNode* c = color_at(1600);
    EXPECT_EQ(c->scx, 273);  // 1600 * 700 / 4096 = 273.4
    EXPECT_EQ(c->scy, 107);  // 120 - 12 - 1
    EXPECT_EQ(o->scx, 273);
    EXPECT_EQ(o->scy, 48);  // (1 - 0.5) * 96
    EXPECT_EQ(color_at(4095)->scx, 698);
    EXPECT_EQ(opacity_nodes->scy, 94);
}

TEST_F(TransferStrip, BackdropWithoutAStripDoesNothing)
{
    uint32_t* pixels = tf_pixels;
    tf_pixels = nullptr;
    draw_tf_backdrop();
    draw_tf_overlay();
    tf_pixels = pixels;
    SUCCEED();  // nothing to crash on: the panel redraws the strip before any load
}

static void clear_strip(uint32_t colour)
{
    for (int i = 0; i < tf_width * tf_height; ++i) tf_pixels[i] = colour;
}

static void place(OpacityNode* n, int x, int y)
{
    n->scx = (uint16_t)x;
    n->scy = (uint16_t)y;
}

TEST_F(TransferStrip, CurveIsBresenhamFromThePreviousNodeBothEndsIncluded)
{
    const uint32_t white = 0xffffff;
    clear_strip(white);
    place(opacity_nodes, 10, 10);
    place(opacity_nodes->next, 22, 14);
    draw_tf_overlay();
    // dx 12, dy 4: the decision starts at -4 and moves by +8 / -16; y steps after x 11,
    // 14, 17 and 20.
    const int line_y[] = {10, 10, 11, 11, 11, 12, 12, 12, 13, 13, 13, 14, 14};
    for (int x = 12; x <= 20; ++x)
        for (int y = 7; y <= 17; ++y) EXPECT_EQ(strip(x, y), y == line_y[x - 10] ? 0u : white) << x << "," << y;

    // A steep one runs on y: x steps once, after row 8.
    clear_strip(white);
    place(opacity_nodes, 30, 5);
    place(opacity_nodes->next, 31, 12);
    draw_tf_overlay();
    for (int y = 7; y <= 10; ++y) {
        EXPECT_EQ(strip(30, y), y <= 8 ? 0u : white) << y;
        EXPECT_EQ(strip(31, y), y >= 9 ? 0u : white) << y;
    }
}

TEST_F(TransferStrip, NodeSquaresAreCutAtTheEdgesAndAboveTheLastRow)
{
    const uint32_t white = 0xffffff;
    clear_strip(white);
    place(opacity_nodes, 0, 0);
    place(opacity_nodes->next, 300, 101);  // the row below would be the strip's last
    draw_tf_overlay();
    for (int x = 0; x <= 1; ++x)
        for (int y = 0; y <= 1; ++y) EXPECT_EQ(strip(x, y), 0u);
    EXPECT_EQ(strip(2, 0), white);
    EXPECT_EQ(strip(0, 2), white);
    for (int x = 299; x <= 301; ++x) {
        EXPECT_EQ(strip(x, 100), 0u);
        EXPECT_EQ(strip(x, 101), 0u);
        EXPECT_EQ(strip(x, 102), white);
    }
    clear_strip(white);
    place(opacity_nodes->next, 300, 100);
    draw_tf_overlay();
    for (int x = 299; x <= 301; ++x) EXPECT_EQ(strip(x, 101), 0u);
    EXPECT_EQ(strip(301, 102), white);
}

TEST_F(TransferStrip, ColourMarkersAreTwoByTwoInTheInverseColour)
{
    colour_node(200, 0xff123456);
    draw_tf_backdrop();
    draw_tf_overlay();
    // First node, black: a white marker at (1, 92), (1, 91), (0, 92), (0, 91).
    for (int x : {0, 1})
        for (int y : {91, 92}) EXPECT_EQ(strip(x, y), 0xffffffu);
    EXPECT_EQ(strip(2, 92), color_lut[16]);
    EXPECT_EQ(strip(1, 93), color_lut[8]);
    // Last node, white: a black marker.
    for (int x : {509, 510})
        for (int y : {91, 92}) EXPECT_EQ(strip(x, y), 0u);
    EXPECT_EQ(strip(511, 92), color_lut[4088]);
    // The inverse of the low 24 bits only.
    for (int x : {199, 200})
        for (int y : {91, 92}) EXPECT_EQ(strip(x, y), 0xedcba9u);
    EXPECT_EQ(strip(200, 93), color_lut[1600]);
    EXPECT_EQ(strip(201, 92), color_lut[1608]);
}

TEST_F(TransferStrip, DefaultCurveRunsFromCornerToCorner)
{
    draw_tf_overlay();
    EXPECT_EQ(strip(1, 81), 0u);
    EXPECT_EQ(strip(510, 1), 0u);
    for (int x = 0; x <= 2; ++x)
        for (int y = 80; y <= 82; ++y) EXPECT_EQ(strip(x, y), 0u) << x << "," << y;
    for (int x = 509; x <= 511; ++x)
        for (int y = 0; y <= 2; ++y) EXPECT_EQ(strip(x, y), 0u) << x << "," << y;
    // Halfway the line has come down 40 of its 80 rows.
    int black = 0;
    for (int y = 0; y < 83; ++y) black += strip(255, y) == 0;
    EXPECT_EQ(black, 1);
    EXPECT_EQ(strip(255, 41), 0u);
}

TEST_F(TransferStrip, TheStripIsCopiedBelowTheImageRows)
{
    std::vector<uint32_t> window(512 * 512, 0x555555);
    screen_pixels = window.data();
    draw_tf_overlay();
    EXPECT_EQ(window[408 * 512 + 511], 0x555555u);
    EXPECT_EQ(0, memcmp(window.data() + 409 * 512, tf_pixels, 512 * 103 * 4));

    // While a render to file has its own 1024 x 1024 target, the window is left alone.
    std::fill(window.begin(), window.end(), 0x555555);
    RenderTarget kept = render_target;
    render_target.width = render_target.height = 1024;
    draw_tf_overlay();
    render_target = kept;
    EXPECT_EQ(window[409 * 512], 0x555555u);
    screen_pixels = nullptr;
}
