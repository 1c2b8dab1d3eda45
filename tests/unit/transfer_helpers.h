// transfer_helpers.h — a loaded-looking start state for the transfer function tests: a 512 x
// 512 window (image 409 rows, strip 512 x 103, colour bar 20, opacity area 83 rows), grey
// identity tables, the default node lists, and small tools to look at lists and the strip.
//
// At this width a strip column is exactly 8 densities: pos = 8 * x and a marker sits at
// x = pos / 8, which keeps hand computations short.
#pragma once
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "helpers.h"
#include "transfer/transfer.h"

constexpr int image_h = 409;  // render_target.height of a 512 x 512 window
constexpr int strip_w = 512, strip_h = 103, bar_h = 20, hist_h = 83;

class TransferTest : public ::testing::Test {
public:
    void SetUp() override
    {
        start_fresh();
        memset(histo, 0, sizeof histo);
        alloc_lookup_tables();
        reset_grey_tables();
        volume_loaded = 1;
        cs_color = 0;
        cs_picked = 0;
        last_color_scx = -1;
        color_dialog_open = 0;
        double_click = 0;
        last_double_click = 0;
        last_button_up = 0;
        left_press_times[0] = left_press_times[1] = 0;
        left_press_slot = 0;
        screen_pixels = nullptr;
        testing::internal::CaptureStdout();
        init_transfer_editor();
        // The first repaint moves the default end markers one pixel inward, as the first
        // edit or resize would.
        draw_tf_backdrop();
        testing::internal::GetCapturedStdout();
    }
    void TearDown() override
    {
        testing::internal::CaptureStdout();
        free_transfer_nodes();
        testing::internal::GetCapturedStdout();
        free(tf_pixels);
        tf_pixels = nullptr;
        volume_loaded = 0;
        color_dialog_open = 0;
        screen_pixels = nullptr;
    }

    static void quiet() { testing::internal::CaptureStdout(); }
    static std::string said() { return testing::internal::GetCapturedStdout(); }

    // One frame of input with the left button held on the strip: the time goes into the
    // ring first, as input does, then the strip's rules run.
    static void left_frame(int x, int y, unsigned now)
    {
        left_press_times[left_press_slot] = now;
        left_press_slot ^= 1;
        tf_left_press(x, y, now);
    }
    // A button-up event.
    static void release(unsigned now)
    {
        last_button_up = now;
        drag_color_node = nullptr;
        drag_opacity_node = nullptr;
    }

    static uint32_t strip(int x, int y) { return tf_pixels[y * tf_width + x]; }

    static std::vector<int> color_positions()
    {
        std::vector<int> p;
        for (ColorNode* n = color_nodes; n; n = n->next) p.push_back(n->pos);
        return p;
    }
    static std::vector<int> opacity_positions()
    {
        std::vector<int> p;
        for (OpacityNode* n = opacity_nodes; n; n = n->next) p.push_back(n->pos);
        return p;
    }
    static ColorNode* color_at(int pos)
    {
        for (ColorNode* n = color_nodes; n; n = n->next)
            if (n->pos == pos) return n;
        return nullptr;
    }
    static OpacityNode* opacity_at(int pos)
    {
        for (OpacityNode* n = opacity_nodes; n; n = n->next)
            if (n->pos == pos) return n;
        return nullptr;
    }
    // Places a colour node with the given colour at strip x (pos 8x) and writes its segments.
    static ColorNode* colour_node(int x, uint32_t colour)
    {
        quiet();
        cs_color = colour;
        insert_color_node((uint16_t)x);
        last_color_scx = x;
        insert_color_node((uint16_t)x);
        last_color_scx = -1;
        said();
        return color_at(8 * x);
    }
    // Places an opacity node at strip x with the mouse on strip row `row`.
    static OpacityNode* opacity_node(int x, int row)
    {
        quiet();
        insert_opacity_node((uint16_t)x, (uint16_t)(image_h + row));
        said();
        return opacity_at(8 * x);
    }
};
