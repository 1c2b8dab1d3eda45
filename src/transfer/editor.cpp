// editor.cpp — the transfer function editor strip under the image: tf_pixels and its size,
// tf_bar_h, the drag pointers; its two painting layers (backdrop, overlay); the strip's
// per-frame mouse rules; and the colour dialog's signal logic.
//
// Called by the loaders (init_transfer_editor), the frame loop (draw_tf_overlay once a frame
// with a volume), resize_display and the panel's isovalue handlers (draw_tf_backdrop), input
// (tf_left_press / tf_right_press while a press belongs to the strip) and the GTK colour dialog
// (color_dialog_*). Reaches the dialog only through open_color_dialog of seam.h. Writes the
// window's pixels only below the image rows, and only when the window layout is in force.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

int tf_width = 0, tf_height = 0;
int tf_bar_h = 15;  // never seen: the first backdrop sets it
uint32_t* tf_pixels = nullptr;
ColorNode* drag_color_node = nullptr;
OpacityNode* drag_opacity_node = nullptr;

void init_transfer_editor()
{
    compute_max_histo();
    printf("max_histo = %d\n", (int)max_histo);
    tf_height = (int)window_height - (int)render_target.height;
    tf_width = (int)window_width;
    printf("transferfunc surface is %d x %d\n", tf_width, tf_height);
    uint32_t* pixels = (uint32_t*)realloc(tf_pixels, (size_t)tf_width * tf_height * 4);
    if (!pixels) clean_up_and_exit(0, "out of mem\n");
    tf_pixels = pixels;
    for (int i = 0; i < tf_width * tf_height; ++i) tf_pixels[i] = 0xeeeeee;
    draw_tf_backdrop();
    make_default_nodes();
    drag_color_node = nullptr;
    drag_opacity_node = nullptr;
}

// ---------------------------------------------------------------------------------------------
// Backdrop: histogram, isovalue marks, colour bar, marker places.

void draw_tf_backdrop()
{
    // Panel handlers redraw the strip on every isovalue change, also before the first load.
    if (!tf_pixels) return;
    tf_bar_h = (tf_height * 200) / 1000;
    const int w = tf_width;
    const int hist_h = tf_height - tf_bar_h;
    const float step = 4096.0f / (float)w;
    const float level_step = (float)max_histo / (float)hist_h;

    float d = 0.0f;
    for (int x = 0; x < w; ++x, d += step) {
        int i0 = (int)d;
        if (i0 > 4095) i0 = 4095;
        const int i1 = (int)(d + step);
        // Of the densities that share a column only the first is shown.
        const float count = (float)histo[i0];
        const uint32_t colour = color_lut[i0];

        // A marked column is one colour over the whole opacity area; the later surfaces
        // cover the earlier ones and all of them cover the orange isovalue mark.
        bool marked = false;
        uint32_t mark = 0;
        if (i0 <= isovalue && isovalue < i1) marked = true, mark = 0xfc9800;
        for (int k = 0; k < 4; ++k)
            if (surface_on[k] && i0 <= surface_isovalue[k] && surface_isovalue[k] < i1)
                marked = true, mark = surface_tint[k];

        uint32_t* p = tf_pixels + (size_t)(hist_h - 1) * w + x;
        if (marked) {
            for (int row = 0; row < hist_h; ++row, p -= w) *p = mark;
        } else {
            // Bottom row upward; the level is accumulated, so the bottom row (level 0) is
            // always grey and the strongest bin above 500 reaches the top.
            float level = 0.0f;
            for (int row = 0; row < hist_h; ++row, p -= w, level += level_step)
                *p = count >= level ? 0x7f7f7f : 0xeeeeee;
        }
        uint32_t* bar = tf_pixels + (size_t)hist_h * w + x;
        for (int row = 0; row < tf_bar_h; ++row, bar += w) *bar = colour;
    }

    // Marker places follow from pos and opacity alone, so a resize puts every node back.
    int bar_row = tf_height - tf_bar_h / 2 - 1;
    if (bar_row > tf_height - 2) bar_row = tf_height - 2;
    if (bar_row == 0) bar_row = 1;
    for (ColorNode* n = color_nodes; n; n = n->next) {
        uint16_t scx = (uint16_t)(int)((float)(n->pos * w) * 0.00024414063f);
        if (scx >= w - 1) scx = (uint16_t)(w - 2);
        if (scx == 0) scx = 1;
        n->scx = scx;
        n->scy = (uint16_t)bar_row;
    }
    for (OpacityNode* n = opacity_nodes; n; n = n->next) {
        uint16_t scx = (uint16_t)(int)((float)(n->pos * w) * 0.00024414063f);
        if (scx >= w - 1) scx = (uint16_t)(w - 2);
        if (scx == 0) scx = 1;
        uint16_t scy = (uint16_t)(int)((1.0f - n->opacity) * (float)hist_h);
        if (scy > hist_h - 2) scy = (uint16_t)(hist_h - 2);
        if (scy == 0) scy = 1;
        n->scx = scx;
        n->scy = scy;
    }
}

// ---------------------------------------------------------------------------------------------
// Overlay: curve, node markers, copy into the window.

// Bresenham on the major axis, from (x0, y0) to (x1, y1), both ends included. The line
// stops at its first pixel outside the strip: the nodes lie inside it after every backdrop,
// so this only guards the memory.
static void draw_line(int x0, int y0, int x1, int y1, uint32_t colour)
{
    const int w = tf_width, h = tf_height;
    const int adx = abs(x1 - x0), ady = abs(y1 - y0);
    const int sx = x1 < x0 ? -1 : 1, sy = y1 < y0 ? -1 : 1;
    const bool x_major = adx >= ady;
    const int dx = x_major ? adx : ady;  // the larger extent
    const int dy = x_major ? ady : adx;  // the smaller
    int x = x0, y = y0;
    int e = 2 * dy - dx;
    for (int i = 0; i <= dx; ++i) {
        if ((unsigned)x >= (unsigned)w || (unsigned)y >= (unsigned)h) return;
        tf_pixels[(size_t)y * w + x] = colour;
        if (e >= 0) {
            if (x_major) y += sy;
            else x += sx;
            e += 2 * (dy - dx);
        } else {
            e += 2 * dy;
        }
        if (x_major) x += sx;
        else y += sy;
    }
}

static inline void put_pixel(int x, int y, uint32_t colour)
{
    tf_pixels[(size_t)y * tf_width + x] = colour;
}

void draw_tf_overlay()
{
    if (!tf_pixels) return;
    const int w = tf_width, h = tf_height;

    OpacityNode* prev = nullptr;
    for (OpacityNode* n = opacity_nodes; n; prev = n, n = n->next) {
        if (prev) draw_line(prev->scx, prev->scy, n->scx, n->scy, 0);
        // A black 3 x 3 square, cut at the left, right and top edges; its lowest row is left
        // out where it would be the strip's last row or beyond.
        for (int y = n->scy - 1; y <= n->scy + 1; ++y) {
            if (y < 0) continue;
            if (y == n->scy + 1 && y >= h - 1) continue;
            if (y >= h) continue;
            for (int x = n->scx - 1; x <= n->scx + 1; ++x)
                if (x >= 0 && x < w) put_pixel(x, y, 0);
        }
    }

    // Colour markers in the inverse of their colour, so they stand out on the bar. On the
    // bar they are 2 x 2; the row below would be painted only inside the opacity area.
    for (ColorNode* n = color_nodes; n; n = n->next) {
        const uint32_t m = ~n->color & 0xffffff;
        const int x = n->scx, y = n->scy;
        if (x >= w || y >= h) continue;  // places come from the backdrop; guard the memory
        put_pixel(x, y, m);
        if (y != 0) put_pixel(x, y - 1, m);
        if (x != 0) {
            put_pixel(x - 1, y, m);
            if (y != 0) put_pixel(x - 1, y - 1, m);
        }
        if (y < h - tf_bar_h - 2) {
            put_pixel(x, y + 1, m);
            if (x != 0) put_pixel(x - 1, y + 1, m);
        }
    }

    // One block below the image rows; the window surface has 32-bit pixels and no row
    // padding. While a render to file has swapped in its own target the window layout is
    // not in force, and the strip waits for the next frame.
    if (screen_pixels && render_target.width == (uint32_t)w &&
        render_target.height + (uint32_t)h == window_height)
        memcpy(screen_pixels + (size_t)render_target.height * w, tf_pixels, (size_t)w * h * 4);
}

// ---------------------------------------------------------------------------------------------
// Mouse rules of the strip.

// The drag step. A node moves only into the gap between its neighbours' 2-pixel zones; a
// refused move keeps both the node and the drag, so the node follows again once the mouse
// is back in the gap.
static uint16_t drag_pos(int x)
{
    uint16_t pos = (uint16_t)(int)((4096.0f / (float)tf_width) * (float)x);
    if (pos == 0) pos = 1;
    if (pos >= 4095) pos = 4094;
    return pos;
}

static void drag_color(ColorNode* node, int x)
{
    const uint16_t pos = drag_pos(x);
    if (!(node->prev->scx + 2 < x && x + 2 < node->next->scx)) return;
    node->scx = (uint16_t)x;
    node->pos = pos;
    reinterpolate_colors(node);
    draw_tf_backdrop();
}

static void drag_opacity(OpacityNode* node, int x, int y)
{
    const uint16_t pos = drag_pos(x);
    if (!(node->prev->scx + 2 < x && x + 2 < node->next->scx)) return;
    node->scx = (uint16_t)x;
    node->pos = pos;
    node->scy = (uint16_t)(y < (int)render_target.height ? 0 : y - (int)render_target.height);
    float opacity = 1.0f - (float)node->scy / (float)(tf_height - tf_bar_h);
    // Unlike an insert, a drag never makes a node fully transparent.
    if (opacity < 0.01f) opacity = 0.01f;
    node->opacity = opacity;
    reinterpolate_opacity(node);
    draw_tf_backdrop();
}

// The first node other than the two ends whose marker is within 2 pixels of x.
template <class Node> static Node* node_near(Node* list, int x)
{
    for (Node* n = list; n; n = n->next)
        if (n->prev && n->next && abs((int)n->scx - x) <= 2) return n;
    return nullptr;
}

// Double click on the colour bar: start the dialog at cs_color, then paint the node under the
// mouse with cs_color at once, or place a new one there.
static void open_color_dialog_at(int x)
{
    if (!open_color_dialog(cs_color)) return;  // no colour: the dialog stays hidden
    if (!drag_color_node) {
        ColorNode* node = node_near(color_nodes, x);
        if (node) {
            last_color_scx = x;
            node->color = cs_color;
            reinterpolate_colors(node);
            draw_tf_backdrop();
            refresh = 1;
            return;
        }
    }
    last_color_scx = x;
    insert_color_node((uint16_t)x);
    draw_tf_overlay();
}

void tf_left_press(int x, int y, unsigned now)
{
    if (!tf_pixels || !color_nodes) return;

    // Double click: this frame follows the previous frame with the button down, and the last
    // release, by less than 150 ms each. The flag stays up while the button stays down; a
    // press after a pause clears it. Two latches lie more than 350 ms apart.
    const unsigned before = left_press_times[left_press_times[0] == now ? 1 : 0];
    if (now - before < 150u) {
        if (now - last_button_up < 150u && now - last_double_click > 350u) {
            double_click = 1;
            last_double_click = now;
        }
    } else {
        double_click = 0;
        refresh = 0;
    }

    if (!double_click && drag_color_node) return drag_color(drag_color_node, x);
    if (!double_click && drag_opacity_node) return drag_opacity(drag_opacity_node, x, y);
    if (color_dialog_open) return;

    if (y > tf_height + (int)render_target.height - tf_bar_h - 1) {  // the colour bar
        if (double_click) return open_color_dialog_at(x);
        drag_color_node = node_near(color_nodes, x);
        if (drag_color_node) drag_color(drag_color_node, x);
    } else {  // the opacity area, or above it after a press that began on the strip
        if (double_click) {
            // Repeats on every frame the button stays down; the repeats are refused.
            insert_opacity_node((uint16_t)x, (uint16_t)y);
            draw_tf_overlay();
            return;
        }
        drag_opacity_node = node_near(opacity_nodes, x);
        if (drag_opacity_node) drag_opacity(drag_opacity_node, x, y);
    }
}

void tf_right_press(int x, int y)
{
    if (!tf_pixels || !color_nodes) return;
    if (y > tf_height + (int)render_target.height - tf_bar_h - 1) {
        if (!color_dialog_open) remove_color_node((uint16_t)x);
    } else {
        // Opacity removal stays possible while the colour dialog is up.
        remove_opacity_node((uint16_t)x);
        draw_tf_backdrop();
    }
}

// ---------------------------------------------------------------------------------------------
// Colour dialog signals (the GTK side reads the colour and destroys the dialog).

void color_dialog_changed(uint32_t picked)
{
    cs_picked = picked;
}

void color_dialog_ok()
{
    puts("color select OK");
    cs_color = cs_picked;
    printf("cs_color=%x\n", cs_color);
    // Finds the node placed or picked at that x and recolours it ("color changed").
    insert_color_node((uint16_t)last_color_scx);
}

void color_dialog_cancel()
{
    puts("color select Cancel");
    printf("cs_color=%x\n", cs_color);
    // Removes the node at that x whether the double click placed it or found it; the first
    // node can't be removed and keeps cs_color.
    remove_color_node((uint16_t)last_color_scx);
}

void color_dialog_dismissed()
{
    // The node placed or found at last_color_scx keeps cs_color, given it at the double click,
    // and the table takes it up now (a new node waited for OK to do so), so that the bar and
    // the image show what the marker says. It is what OK with the colour unchanged would do.
    if (ColorNode* node = node_near(color_nodes, last_color_scx)) reinterpolate_colors(node);
}

void color_dialog_closed()
{
    color_dialog_open = 0;
}
