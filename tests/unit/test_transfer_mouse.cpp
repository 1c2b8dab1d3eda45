// The strip's mouse rules, driven frame by frame with positions and tick counts as input
// would drive them: the double-click latch, picking up and dragging nodes, the colour dialog
// and the right button.
#include "transfer_helpers.h"

using TransferMouse = TransferTest;

constexpr int area_y = image_h + 40;  // a row in the opacity area (strip row 40)
constexpr int bar_y = image_h + 95;   // a row on the colour bar
constexpr int bar_top = image_h + 83; // the bar's first row: y > 103 + 409 - 20 - 1

TEST_F(TransferMouse, TheBarBeginsBelowTheOpacityArea)
{
    opacity_node(200, 10);
    colour_node(200, 0x123456);
    // A right press removes a colour node on the bar and an opacity node above it.
    quiet();
    tf_right_press(200, bar_top - 1);
    EXPECT_EQ(said(), "removed colornode!\n");
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 4095}));
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 1600, 4095}));
    quiet();
    tf_right_press(200, bar_top);
    said();
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 4095}));
}

TEST_F(TransferMouse, DoubleClickAt149Milliseconds)
{
    left_frame(200, area_y, 1000);  // a press after a pause
    EXPECT_EQ(double_click, 0);
    release(1020);
    quiet();
    left_frame(200, area_y, 1149);
    std::string out = said();
    EXPECT_EQ(double_click, 1);
    EXPECT_EQ(last_double_click, 1149u);
    EXPECT_NE(out.find("opacity=0.518072\n"), std::string::npos) << out;  // 1 - 40/83
    EXPECT_NE(out.find("inserted new opacitynode\n"), std::string::npos) << out;
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 1600, 4095}));
}

TEST_F(TransferMouse, NoDoubleClickAt150Milliseconds)
{
    left_frame(200, area_y, 1000);
    release(1020);
    refresh = 1;
    quiet();
    left_frame(200, area_y, 1150);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(double_click, 0);
    EXPECT_EQ(refresh, 0);  // a press after a pause clears refresh too
    EXPECT_EQ(last_double_click, 0u);
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 4095}));
}

TEST_F(TransferMouse, HoldingTheButtonIsNoDoubleClick)
{
    for (unsigned t = 1000; t <= 1300; t += 10) left_frame(200, area_y, t);
    EXPECT_EQ(double_click, 0);
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 4095}));
}

TEST_F(TransferMouse, TheFlagStaysUpWhileHeldAndTheRepeatsAreRefused)
{
    left_frame(200, area_y, 700);
    release(720);
    left_frame(200, area_y, 800);
    ASSERT_EQ(double_click, 1);
    quiet();
    left_frame(200, area_y, 810);
    left_frame(200, area_y, 820);
    EXPECT_EQ(said(), "already inserted!\nalready inserted!\n");
    EXPECT_EQ(double_click, 1);
    EXPECT_EQ(last_double_click, 800u);
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 1600, 4095}));
}

TEST_F(TransferMouse, TwoLatchesLieMoreThan350MillisecondsApart)
{
    left_frame(300, area_y, 700);
    release(720);
    left_frame(300, area_y, 800);  // latched
    release(820);
    ASSERT_EQ(last_double_click, 800u);

    left_frame(100, area_y, 1010);  // after a pause: cleared
    release(1050);
    left_frame(100, area_y, 1150);  // 350 ms after the latch: not yet
    EXPECT_EQ(double_click, 0);
    EXPECT_EQ(last_double_click, 800u);
    release(1160);
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 2400, 4095}));

    left_frame(100, area_y, 1400);
    release(1420);
    left_frame(100, area_y, 1500);  // a later pair, 700 ms after the latch
    EXPECT_EQ(double_click, 1);
    EXPECT_EQ(last_double_click, 1500u);
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 800, 2400, 4095}));
}

TEST_F(TransferMouse, The351stMillisecondLatchesAgain)
{
    left_frame(300, area_y, 700);
    release(720);
    left_frame(300, area_y, 800);
    release(820);
    left_frame(100, area_y, 1010);
    release(1050);
    left_frame(100, area_y, 1151);
    EXPECT_EQ(double_click, 1);
    EXPECT_EQ(last_double_click, 1151u);
}

TEST_F(TransferMouse, OpacityDragStopsAtANeighboursZoneAndResumes)
{
    opacity_node(100, 10);
    OpacityNode* n = opacity_node(200, 10);
    opacity_node(300, 10);
    quiet();
    left_frame(201, image_h + 20, 5000);  // picks the node at 200 and moves it at once
    EXPECT_EQ(drag_opacity_node, n);
    EXPECT_EQ(n->pos, 1608);
    EXPECT_EQ(n->opacity, 1.0f - 20.0f / 83.0f);
    EXPECT_EQ(opacity_lut[1608], n->opacity);

    left_frame(250, image_h + 30, 5010);
    EXPECT_EQ(n->pos, 2000);
    EXPECT_EQ(n->scx, 250);
    const float at_250 = 1.0f - 30.0f / 83.0f;
    EXPECT_EQ(n->opacity, at_250);

    left_frame(298, image_h + 60, 5020);  // 298 + 2 is not left of the neighbour at 300
    EXPECT_EQ(n->pos, 2000);
    EXPECT_EQ(n->opacity, at_250);
    EXPECT_EQ(drag_opacity_node, n);  // the drag goes on

    left_frame(297, image_h + 60, 5030);
    EXPECT_EQ(n->pos, 2376);
    left_frame(400, image_h + 60, 5040);  // beyond the neighbour: refused
    EXPECT_EQ(n->pos, 2376);
    left_frame(260, image_h + 60, 5050);  // back in the gap: follows again
    EXPECT_EQ(n->pos, 2080);
    left_frame(102, image_h + 60, 5060);  // 100 + 2 is not left of 102
    EXPECT_EQ(n->pos, 2080);
    left_frame(103, image_h + 60, 5070);
    EXPECT_EQ(n->pos, 824);
    said();
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 800, 824, 2400, 4095}));
    release(5080);
    EXPECT_EQ(drag_opacity_node, nullptr);
}

TEST_F(TransferMouse, ColourDragKeepsItsRowAndMovesTheColour)
{
    colour_node(100, 0x0000ff);
    ColorNode* n = colour_node(200, 0xff0000);
    colour_node(300, 0x00ff00);
    quiet();
    left_frame(199, bar_y, 5000);
    EXPECT_EQ(drag_color_node, n);
    EXPECT_EQ(n->pos, 1592);
    EXPECT_EQ(color_lut[1592], 0xff0000u);
    left_frame(250, image_h + 10, 5010);  // the mouse may leave the bar: the drag stays
    EXPECT_EQ(n->pos, 2000);
    EXPECT_EQ(n->scy, 92);
    EXPECT_EQ(color_lut[2000], 0xff0000u);
    left_frame(299, bar_y, 5020);
    EXPECT_EQ(n->pos, 2000);
    said();
}

TEST_F(TransferMouse, ADragCanNotMakeANodeTransparent)
{
    OpacityNode* n = opacity_node(200, 10);
    left_frame(200, area_y, 5000);  // picked up in the opacity area
    ASSERT_EQ(drag_opacity_node, n);
    left_frame(200, image_h + strip_h - 1, 5010);  // and dragged down to the bar's last row
    EXPECT_EQ(n->opacity, 0.01f);
    EXPECT_EQ(opacity_lut[1600], 0.01f);
    left_frame(200, image_h + hist_h - 1, 5020);  // the area's bottom row: 1/83 is above it
    EXPECT_EQ(n->opacity, 1.0f - 82.0f / 83.0f);
    left_frame(200, image_h - 50, 5030);  // up into the image: the top, opaque
    EXPECT_EQ(n->opacity, 1.0f);
    EXPECT_EQ(n->scy, 1);
}

TEST_F(TransferMouse, EndNodesCanNotBePickedUp)
{
    std::vector<uint32_t> colours(color_lut, color_lut + 4096);
    std::vector<float> opacities(opacity_lut, opacity_lut + 4096);
    unsigned t = 5000;
    for (int x : {0, 1, 2, 3, 508, 509, 510, 511}) {
        for (int y : {area_y, bar_y}) {
            left_frame(x, y, t);
            EXPECT_EQ(drag_color_node, nullptr) << x;
            EXPECT_EQ(drag_opacity_node, nullptr) << x;
            left_frame(256, y, t + 10);
            release(t + 20);
            t += 1000;
        }
    }
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 4095}));
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 4095}));
    EXPECT_TRUE(std::equal(colours.begin(), colours.end(), color_lut));
    EXPECT_TRUE(std::equal(opacities.begin(), opacities.end(), opacity_lut));
}

TEST_F(TransferMouse, DoubleClickWithoutAGapChangesNothing)
{
    // The first press lands away from the node (a first press on it would pick it up and
    // drag it under the mouse); the second is the double click.
    opacity_node(200, 10);
    std::vector<float> opacities(opacity_lut, opacity_lut + 4096);
    left_frame(150, area_y, 1000);
    release(1010);
    quiet();
    left_frame(201, area_y, 1100);
    EXPECT_EQ(said(), "");
    left_frame(150, area_y, 2000);
    release(2010);
    quiet();
    left_frame(200, area_y, 2100);
    EXPECT_EQ(said(), "already inserted!\n");
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 1600, 4095}));
    EXPECT_TRUE(std::equal(opacities.begin(), opacities.end(), opacity_lut));
}

// A double click on the colour bar at x, from a pause. Its first press already picks up a
// node within 2 pixels and drags it to x.
static void double_click_bar(int x, unsigned t)
{
    TransferTest::release(t - 100);
    left_press_times[0] = left_press_times[1] = t - 1000;
    TransferTest::left_frame(x, bar_y, t);
    TransferTest::release(t + 20);
    TransferTest::left_frame(x, bar_y, t + 100);
}

TEST_F(TransferMouse, DoubleClickOnTheBarPlacesANodeThatOkColours)
{
    std::vector<uint32_t> colours(color_lut, color_lut + 4096);
    quiet();
    double_click_bar(200, 3000);
    EXPECT_EQ(said(), "inserted new colornode\n");
    EXPECT_EQ(color_dialog_open, 1);
    EXPECT_EQ(last_color_scx, 200);
    EXPECT_EQ(color_at(1600)->color, 0u);  // cs_color, still 0
    EXPECT_TRUE(std::equal(colours.begin(), colours.end(), color_lut));

    // While the dialog is up, held frames do nothing more.
    quiet();
    left_frame(200, bar_y, 3110);
    EXPECT_EQ(said(), "");

    color_dialog_changed(0x3366cc);
    EXPECT_EQ(cs_picked, 0x3366ccu);
    quiet();
    color_dialog_ok();
    EXPECT_EQ(said(), "color select OK\ncs_color=3366cc\ncolor changed\nreinterpol colors!\n");
    EXPECT_EQ(cs_color, 0x3366ccu);
    EXPECT_EQ(color_lut[1600], 0x3366ccu);
    color_dialog_closed();
    EXPECT_EQ(color_dialog_open, 0);
}

TEST_F(TransferMouse, DoubleClickOnANodePaintsItAtOnceAndCancelRemovesIt)
{
    colour_node(200, 0x112233);
    cs_color = 0xabcdef;  // the last accepted colour
    quiet();
    double_click_bar(201, 3000);
    // The first press drags the node to x 201, the second paints it with cs_color.
    EXPECT_EQ(said(), "reinterpol colors!\nreinterpol colors!\n");
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 1608, 4095}));
    EXPECT_EQ(color_at(1608)->color, 0xabcdefu);
    EXPECT_EQ(color_lut[1608], 0xabcdefu);
    EXPECT_EQ(last_color_scx, 201);

    quiet();
    color_dialog_cancel();
    std::string out = said();
    EXPECT_EQ(out.rfind("color select Cancel\ncs_color=abcdef\n", 0), 0u) << out;
    EXPECT_NE(out.find("removed colornode!\n"), std::string::npos) << out;
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 4095}));
}

TEST_F(TransferMouse, CancelAtTheFirstNodeKeepsItsNewColour)
{
    cs_color = 0x445566;
    quiet();
    double_click_bar(0, 3000);
    EXPECT_EQ(said(), "color changed\nreinterpol colors!\n");
    EXPECT_EQ(color_nodes->color, 0x445566u);
    quiet();
    color_dialog_cancel();
    EXPECT_EQ(said(), "color select Cancel\ncs_color=445566\n");
    EXPECT_EQ(color_nodes->color, 0x445566u);
    EXPECT_EQ(color_lut[0], 0x445566u);
}

TEST_F(TransferMouse, AnOpenDialogBlocksLeftEditsAndColourRemovalOnly)
{
    colour_node(200, 0x123456);
    opacity_node(300, 10);
    color_dialog_open = 1;
    left_frame(200, bar_y, 5000);
    left_frame(300, area_y, 6000);
    EXPECT_EQ(drag_color_node, nullptr);
    EXPECT_EQ(drag_opacity_node, nullptr);
    release(6010);
    left_frame(100, area_y, 6100);  // a double click on the opacity area
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 2400, 4095}));
    quiet();
    tf_right_press(200, bar_y);
    tf_right_press(300, area_y);
    EXPECT_EQ(said(), "removed colornode!\n");
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 1600, 4095}));
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 4095}));
}

TEST_F(TransferMouse, ARightSweepRemovesEveryNodeItPasses)
{
    for (int x : {100, 200, 300}) {
        opacity_node(x, 10);
        colour_node(x, 0x123456);
    }
    quiet();
    for (int x = 90; x <= 320; x += 3) {
        tf_right_press(x, area_y);
        tf_right_press(x, bar_y);
    }
    said();
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 4095}));
    EXPECT_EQ(color_positions(), (std::vector<int>{0, 4095}));
    // One straight ramp again from transparent black to opaque white.
    EXPECT_NEAR(opacity_lut[2048], 2048.0f / 4095.0f, 1e-5);
}

TEST_F(TransferMouse, ADragHeldThroughARightRemovalLetsGo)
{
    OpacityNode* n = opacity_node(200, 10);
    left_frame(200, area_y, 5000);
    ASSERT_EQ(drag_opacity_node, n);
    quiet();
    tf_right_press(200, area_y);
    said();
    EXPECT_EQ(drag_opacity_node, nullptr);
    left_frame(220, area_y, 5010);  // nothing left to drag; no node comes from nowhere
    EXPECT_EQ(opacity_positions(), (std::vector<int>{0, 4095}));
}
