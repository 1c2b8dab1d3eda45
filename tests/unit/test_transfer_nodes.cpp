// Node lists and lookup tables: inserts, recolouring, removals, the segment fills and their
// messages. Expected table values are worked out by hand with exact integer arithmetic,
// with steps chosen to be exact binary fractions, so single-precision accumulation gives
// them exactly.
#include "transfer_helpers.h"

#include <cmath>

using TransferNodes = TransferTest;

static std::vector<uint32_t> grey_table()
{
    std::vector<uint32_t> t(4096);
    for (int i = 1; i < 4096; ++i) {
        uint32_t c = (uint32_t)(int)((float)i * 0.00024420026f * 255.0f) & 0xff;
        t[i] = c << 16 | c << 8 | c;
    }
    return t;
}

static uint32_t rgb(uint32_t r, uint32_t g, uint32_t b) { return r << 16 | g << 8 | b; }

TEST_F(TransferNodes, DefaultListsAreAGreyRamp)
{
    ASSERT_EQ(color_positions(), (std::vector<int>{0, 4095}));
    ASSERT_EQ(opacity_positions(), (std::vector<int>{0, 4095}));
    EXPECT_EQ(color_nodes->color, 0x000000u);
    EXPECT_EQ(color_nodes->next->color, 0xffffffu);
    EXPECT_EQ(opacity_nodes->opacity, 0.0f);
    EXPECT_EQ(opacity_nodes->next->opacity, 1.0f);
    EXPECT_EQ(color_nodes->prev, nullptr);
    EXPECT_EQ(color_nodes->next->next, nullptr);
    EXPECT_EQ(color_nodes->next->prev, color_nodes);
}

TEST_F(TransferNodes, DefaultNodePlacesBeforeTheFirstRepaint)
{
    quiet();
    init_transfer_editor();  // backdrop first, then the new lists: their own places stay
    said();
    EXPECT_EQ(color_nodes->scx, 0);
    EXPECT_EQ(color_nodes->scy, strip_h - 1 - bar_h / 2);
    EXPECT_EQ(color_nodes->next->scx, strip_w - 1);
    EXPECT_EQ(opacity_nodes->scx, 1);
    EXPECT_EQ(opacity_nodes->scy, strip_h - bar_h - 1);
    EXPECT_EQ(opacity_nodes->next->scx, strip_w - 2);
    EXPECT_EQ(opacity_nodes->next->scy, 1);
    draw_tf_backdrop();  // and the first repaint moves the colour ends inward
    EXPECT_EQ(color_nodes->scx, 1);
    EXPECT_EQ(color_nodes->next->scx, strip_w - 2);
}

TEST_F(TransferNodes, NewColourNodeWaitsForTheDialogBeforeTouchingTheTable)
{
    cs_color = 0x123456;
    refresh = 0;
    quiet();
    insert_color_node(100);
    EXPECT_EQ(said(), "inserted new colornode\n");
    EXPECT_EQ(refresh, 1);
    ColorNode* n = color_at(800);
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(n->color, 0x123456u);
    EXPECT_EQ(n->scx, 100);
    EXPECT_EQ(n->scy, strip_h - 1 - bar_h / 2);
    EXPECT_EQ(n->prev, color_nodes);
    EXPECT_EQ(n->next->pos, 4095);
    std::vector<uint32_t> grey = grey_table();
    EXPECT_TRUE(std::equal(grey.begin(), grey.end(), color_lut));
}

TEST_F(TransferNodes, SecondCallAtTheSameXRecoloursTheNode)
{
    cs_color = 0x123456;
    quiet();
    insert_color_node(100);
    cs_color = 0x00ff00;
    last_color_scx = 100;
    insert_color_node(100);
    EXPECT_EQ(said(), "inserted new colornode\ncolor changed\nreinterpol colors!\n");
    EXPECT_EQ(color_at(800)->color, 0x00ff00u);
    EXPECT_EQ(color_lut[800], 0x00ff00u);
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 800, 4095}));
}

TEST_F(TransferNodes, ColourFillWritesOnlyBetweenTheNeighbours)
{
    ColorNode* l = colour_node(64, rgb(128, 0, 0));    // pos 512
    ColorNode* p = colour_node(192, rgb(32, 64, 96));  // pos 1536
    ColorNode* r = colour_node(320, 0xffffff);         // pos 2560
    ASSERT_TRUE(l && p && r);
    for (int i = 0; i < 4096; ++i) color_lut[i] = 0xaa000000;
    quiet();
    reinterpolate_colors(p);
    EXPECT_EQ(said(), "reinterpol colors!\n");

    for (int i = 0; i <= 512; ++i) ASSERT_EQ(color_lut[i], 0xaa000000u) << i;
    for (int i = 2560; i < 4096; ++i) ASSERT_EQ(color_lut[i], 0xaa000000u) << i;
    EXPECT_EQ(color_lut[1536], rgb(32, 64, 96));
    // Down to the left: steps of +96/1024, -64/1024, -96/1024 per entry.
    for (int k = 1; k < 1024; ++k)
        ASSERT_EQ(color_lut[1536 - k], rgb((1024 * 32 + 96 * k) / 1024, (1024 * 64 - 64 * k) / 1024,
                                           (1024 * 96 - 96 * k) / 1024))
            << k;
    // Up to the right: +223/1024, +191/1024, +159/1024.
    for (int k = 1; k < 1024; ++k)
        ASSERT_EQ(color_lut[1536 + k], rgb((1024 * 32 + 223 * k) / 1024, (1024 * 64 + 191 * k) / 1024,
                                           (1024 * 96 + 159 * k) / 1024))
            << k;
}

TEST_F(TransferNodes, ColourStepsAccumulateInSinglePrecision)
{
    // Black at 800 up to the white end at 4095: a step of 255/3295 per entry, which is no
    // binary fraction. The table follows the running single-precision sum, which drifts
    // away from k * step at some entries.
    ColorNode* n = colour_node(100, 0x000000);
    ASSERT_NE(n, nullptr);
    const float step = 255.0f / 3295.0f;
    float acc = 0.0f;
    int differs_from_product = 0;
    for (int k = 1; k < 3295; ++k) {
        acc += step;
        uint32_t c = (uint32_t)(int)acc & 0xff;
        ASSERT_EQ(color_lut[800 + k], rgb(c, c, c)) << k;
        if ((int)acc != (int)((float)k * step)) ++differs_from_product;
    }
    EXPECT_GT(differs_from_product, 0) << "pick a step where the two ways differ";
    EXPECT_EQ(color_lut[4095], grey_table()[4095]);  // the end's own entry stays
}

TEST_F(TransferNodes, RecolouringTheFirstNodeRewritesUpToTheNextNode)
{
    colour_node(256, 0x000000);  // pos 2048
    for (int i = 0; i < 4096; ++i) color_lut[i] = 0xaa000000;
    cs_color = rgb(0, 0, 200);
    last_color_scx = 0;
    quiet();
    insert_color_node(0);
    EXPECT_EQ(said(), "color changed\nreinterpol colors!\n");
    EXPECT_EQ(color_nodes->color, rgb(0, 0, 200));
    EXPECT_EQ(color_lut[0], rgb(0, 0, 200));
    // Its left segment is empty; the right one runs to the node at 2048, not written.
    for (int k = 1; k < 2048; ++k) ASSERT_EQ(color_lut[k], rgb(0, 0, (2048 * 200 - 200 * k) / 2048)) << k;
    for (int i = 2048; i < 4096; ++i) ASSERT_EQ(color_lut[i], 0xaa000000u) << i;
}

TEST_F(TransferNodes, AtTheFirstNodesPlaceWithoutRecolourItIsAlreadyInserted)
{
    quiet();
    insert_color_node(0);
    EXPECT_EQ(said(), "already inserted!\n");
    EXPECT_EQ(color_nodes->color, 0x000000u);
}

TEST_F(TransferNodes, RemovingANodeLeavesOneStraightRamp)
{
    colour_node(64, rgb(128, 0, 0));    // pos 512
    colour_node(192, rgb(32, 64, 96));  // pos 1536
    colour_node(320, 0xffffff);         // pos 2560
    quiet();
    remove_color_node(192);
    EXPECT_EQ(said(),
              "test remove colornode scx=192!\n"
              "test remove colornode scx=192!\n"
              "vor remove-code!\n"
              "reinterpol colors!\n"
              "removed colornode!\n");
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 512, 2560, 4095}));
    // 128,0,0 at 512 to 255,255,255 at 2560: steps 127/2048, 255/2048, 255/2048.
    EXPECT_EQ(color_lut[512], rgb(128, 0, 0));
    for (int k = 1; k < 2048; ++k)
        ASSERT_EQ(color_lut[512 + k], rgb((2048 * 128 + 127 * k) / 2048, 255 * k / 2048, 255 * k / 2048))
            << k;
    EXPECT_EQ(color_lut[2560], 0xffffffu);
}

TEST_F(TransferNodes, ColourInsertNearANodePlacesNothingAndSaysNothing)
{
    colour_node(200, 0x123456);  // pos 1600
    for (int x : {198, 199, 201, 202}) {
        quiet();
        refresh = 0;
        insert_color_node((uint16_t)x);
        EXPECT_EQ(said(), "") << x;
        EXPECT_EQ(refresh, 1);
    }
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 1600, 4095}));
    quiet();
    insert_color_node(200);  // the node's own pos
    EXPECT_EQ(said(), "already inserted!\n");
    quiet();
    insert_color_node(203);
    insert_color_node(197);
    EXPECT_EQ(said(), "inserted new colornode\ninserted new colornode\n");
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 1576, 1600, 1624, 4095}));
}

TEST_F(TransferNodes, OpacityInsertNearANodeRepaintsButPlacesNothing)
{
    opacity_node(200, 40);
    ASSERT_EQ(opacity_positions(), (std::vector<int>{0, 1600, 4095}));
    for (int x : {198, 199, 201, 202}) {
        for (int i = 0; i < strip_w * strip_h; ++i) tf_pixels[i] = 0x123456;
        quiet();
        insert_opacity_node((uint16_t)x, image_h + 10);
        EXPECT_EQ(said(), "") << x;
        EXPECT_EQ(strip(0, strip_h - 1), color_lut[0]) << "the strip is repainted";
    }
    quiet();
    insert_opacity_node(200, image_h + 10);
    insert_opacity_node(0, image_h + 10);  // pos 0, the first node's
    EXPECT_EQ(said(), "already inserted!\nalready inserted!\n");
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 1600, 4095}));
}

TEST_F(TransferNodes, OpacityInsertOpacityFollowsTheRow)
{
    quiet();
    insert_opacity_node(100, image_h + 0);  // top row: opaque
    EXPECT_EQ(said(), "opacity=1.000000\ninserted new opacitynode\n");
    OpacityNode* n = opacity_at(800);
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(n->opacity, 1.0f);
    EXPECT_EQ(opacity_lut[800], 1.0f);
    // After the insert's repaint the marker sits on its row, clamped to the area's inside.
    EXPECT_EQ(n->scx, 100);
    EXPECT_EQ(n->scy, 1);

    OpacityNode* m = opacity_node(300, 50);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->opacity, 1.0f - 50.0f / 83.0f);
    // Its marker row comes back from the opacity, so it may land one row higher.
    EXPECT_EQ(m->scy, (uint16_t)(int)((1.0f - m->opacity) * 83.0f));
    EXPECT_TRUE(m->scy == 49 || m->scy == 50) << m->scy;
}

TEST_F(TransferNodes, OpacityInsertAtTheBottomClampsOnlyToZero)
{
    // The bottom row of the area gives 1/83; one row lower (the insert takes any row) and a
    // mouse above the strip both give 0.0, below the drag floor of 0.01.
    OpacityNode* a = opacity_node(100, hist_h - 1);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->opacity, 1.0f - 82.0f / 83.0f);
    EXPECT_LT(a->opacity, 0.013f);

    quiet();
    insert_opacity_node(200, image_h + hist_h);
    EXPECT_EQ(said(), "opacity=0.000000\ninserted new opacitynode\n");
    EXPECT_EQ(opacity_at(1600)->opacity, 0.0f);
    EXPECT_EQ(opacity_lut[1600], 0.0f);

    quiet();
    insert_opacity_node(300, image_h - 5);  // 16-bit wrap: a huge row, clamped to 0
    said();
    EXPECT_EQ(opacity_at(2400)->opacity, 0.0f);
}

TEST_F(TransferNodes, OpacityFillWritesOnlyBetweenTheNeighbours)
{
    OpacityNode* l = opacity_node(64, 10);   // pos 512
    OpacityNode* p = opacity_node(192, 10);  // pos 1536
    OpacityNode* r = opacity_node(320, 10);  // pos 2560
    ASSERT_TRUE(l && p && r);
    l->opacity = 0.25f;
    p->opacity = 0.75f;
    r->opacity = 0.5f;
    for (int i = 0; i < 4096; ++i) opacity_lut[i] = -1.0f;
    reinterpolate_opacity(p);
    for (int i = 0; i <= 512; ++i) ASSERT_EQ(opacity_lut[i], -1.0f) << i;
    for (int i = 2560; i < 4096; ++i) ASSERT_EQ(opacity_lut[i], -1.0f) << i;
    EXPECT_EQ(opacity_lut[1536], 0.75f);
    for (int k = 1; k < 1024; ++k) {
        ASSERT_EQ(opacity_lut[1536 - k], 0.75f - (float)k * (0.5f / 1024.0f)) << k;
        ASSERT_EQ(opacity_lut[1536 + k], 0.75f - (float)k * (0.25f / 1024.0f)) << k;
    }
}

TEST_F(TransferNodes, OpacityRemovalMakesOneRampAndSharesTheColourMessage)
{
    OpacityNode* l = opacity_node(64, 10);
    opacity_node(192, 70);
    OpacityNode* r = opacity_node(320, 10);
    l->opacity = 0.25f;
    r->opacity = 0.75f;
    quiet();
    remove_opacity_node(193);
    EXPECT_EQ(said(), "removed colornode!\n");
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 512, 2560, 4095}));
    for (int k = 0; k < 2048; ++k) ASSERT_EQ(opacity_lut[512 + k], 0.25f + (float)k * (0.5f / 2048.0f)) << k;
}

TEST_F(TransferNodes, EndNodesAreNeverRemoved)
{
    for (int x : {0, 1, 2, 509, 510, 511}) {
        quiet();
        remove_color_node((uint16_t)x);
        remove_opacity_node((uint16_t)x);
        EXPECT_EQ(said(), "") << x;  // no candidate at all: not even the test message
    }
    colour_node(6, 0x123456);
    quiet();
    remove_color_node(1);
    EXPECT_EQ(said(), "test remove colornode scx=1!\n");
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 48, 4095}));
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 4095}));
}

TEST_F(TransferNodes, NodeColourWordIsCopiedUnchanged)
{
    colour_node(100, 0xff123456);
    EXPECT_EQ(color_lut[800], 0xff123456u);
    EXPECT_EQ(color_lut[799] >> 24, 0u);
    EXPECT_EQ(color_lut[801] >> 24, 0u);
    // One step toward black at pos 0 (800 entries away): 0x12 - 0x12/800 = 17.98 truncates
    // to 0x11, and so on; the top byte plays no part in the channels.
    EXPECT_EQ(color_lut[799], rgb(0x11, 0x33, 0x55));
}

TEST_F(TransferNodes, ReinterpolatingNothingIsReported)
{
    quiet();
    reinterpolate_colors(nullptr);
    reinterpolate_opacity(nullptr);
    EXPECT_EQ(said(), "reinterpol colors!\ncolornode - reinterpolation error!\n");
}

TEST_F(TransferNodes, WithoutListsTheEditsOnlyAskForAPicture)
{
    ColorNode* colours = color_nodes;
    OpacityNode* opacities = opacity_nodes;
    color_nodes = nullptr;
    opacity_nodes = nullptr;
    refresh = 0;
    quiet();
    insert_color_node(100);
    insert_opacity_node(100, image_h + 10);
    remove_color_node(100);
    remove_opacity_node(100);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(refresh, 1);
    color_nodes = colours;
    opacity_nodes = opacities;
}

TEST_F(TransferNodes, FreeingCountsBothLists)
{
    colour_node(100, 0x123456);
    opacity_node(100, 10);
    opacity_node(200, 10);
    quiet();
    free_transfer_nodes();
    EXPECT_EQ(said(), "\nfreed 3 color nodes and 4 opacity nodes\n");
    EXPECT_EQ(color_nodes, nullptr);
    EXPECT_EQ(opacity_nodes, nullptr);
}
