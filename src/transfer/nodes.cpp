// nodes.cpp — the two control-point lists behind the lookup tables (color_nodes,
// opacity_nodes), cs_color / cs_picked / last_color_scx, and every edit of a list together
// with the table segments it rewrites.
//
// Called by the editor strip's mouse rules and colour dialog (editor.cpp), by the editor's
// initialisation at each load, and by the exit (free_transfer_nodes). Writes color_lut and
// opacity_lut only between the neighbours of the node it touches; never touches the strip's
// pixels except through draw_tf_backdrop.
//
// Invariants kept here: each list is sorted by strictly rising pos (and so by scx), the first
// node has pos 0 and the last 4095, and those two are never removed or moved. A table entry
// at a node's own pos holds exactly that node's colour word or opacity.
#include <cstdio>
#include <cstdlib>

#include "core/core.h"
#include "transfer/transfer.h"

ColorNode* color_nodes = nullptr;
OpacityNode* opacity_nodes = nullptr;
uint32_t cs_color = 0;
uint32_t cs_picked = 0;
int last_color_scx = -1;

// The density a strip column stands for: (4096 / tf_width) * scx in single precision,
// truncated. Only called with a list present, so tf_width is the strip's width (> 100).
static int pos_from_scx(int scx)
{
    return (int)((4096.0f / (float)tf_width) * (float)scx);
}

// A new node linked in between prev and next, which both exist: a new node is never an end.
template <class Node>
static Node* link_node(Node* prev, Node* next, int pos, uint16_t scx, uint16_t scy)
{
    Node* node = (Node*)malloc(sizeof(Node));
    if (!node) clean_up_and_exit(0, "out of mem!");
    node->pos = (uint16_t)pos;
    node->scx = scx;
    node->scy = scy;
    node->prev = prev;
    node->next = next;
    prev->next = node;
    next->prev = node;
    return node;
}

// The node at density pos, linked in when the list has none there (for a set at a density
// rather than at a strip column: no spacing rule on the strip applies). Its marker stands at
// the strip column of pos and the given row until the next backdrop places it.
template <class Node>
static Node* node_at_density(Node* first, int pos, uint16_t scy)
{
    Node* prev = nullptr;
    Node* at = first;
    while (at->pos < pos) prev = at, at = at->next;
    if (at->pos == pos) return at;
    return link_node(prev, at, pos, (uint16_t)(pos * tf_width / 4096), scy);
}

// ---------------------------------------------------------------------------------------------
// Colour nodes.

// Writes the n entries from the node's pos toward an end at distance n (dir -1 down, +1 up):
// the node's own entry gets its colour word unchanged, the others the node's channels plus k
// steps, accumulated in single precision and truncated. The end's own entry is not written.
static void fill_color_segment(uint32_t color, int pos, uint32_t end_color, int n, int dir)
{
    if (n < 1) return;
    float r = (float)(color >> 16 & 0xff), g = (float)(color >> 8 & 0xff), b = (float)(color & 0xff);
    const float fn = (float)n;
    const float step_r = (float)((int)(end_color >> 16 & 0xff) - (int)(color >> 16 & 0xff)) / fn;
    const float step_g = (float)((int)(end_color >> 8 & 0xff) - (int)(color >> 8 & 0xff)) / fn;
    const float step_b = (float)((int)(end_color & 0xff) - (int)(color & 0xff)) / fn;
    uint32_t* entry = color_lut + pos;
    *entry = color;
    for (int k = 1; k < n; ++k) {
        r += step_r;
        g += step_g;
        b += step_b;
        entry += dir;
        *entry = ((uint32_t)(int)r & 0xff) << 16 | ((uint32_t)(int)g & 0xff) << 8 | ((uint32_t)(int)b & 0xff);
    }
}

void reinterpolate_colors(ColorNode* node)
{
    puts("reinterpol colors!");
    if (!node) {
        puts("colornode - reinterpolation error!");
        return;
    }
    // A missing neighbour stands for the table's own ends: black at 0, white at 4095.
    uint32_t left_color = node->prev ? node->prev->color : 0x000000;
    int left_pos = node->prev ? node->prev->pos : 0;
    uint32_t right_color = node->next ? node->next->color : 0xffffff;
    int right_pos = node->next ? node->next->pos : 4095;
    fill_color_segment(node->color, node->pos, left_color, node->pos - left_pos, -1);
    fill_color_segment(node->color, node->pos, right_color, right_pos - node->pos, +1);
    draw_tf_backdrop();
    refresh = 1;
}

void insert_color_node(uint16_t scx)
{
    if (!color_nodes) {
        refresh = 1;
        return;
    }
    const int pos = pos_from_scx(scx);
    ColorNode* found = color_nodes;
    // Both table ends answer to the first node: the end nodes can't be recoloured apart.
    if (pos != 0 && pos != 4095) {
        ColorNode* prev = nullptr;
        ColorNode* cur = color_nodes;
        for (;;) {
            if (prev && prev->scx + 2 < scx && scx + 2 < cur->scx) {
                ColorNode* node =
                    link_node(prev, cur, pos, scx, (uint16_t)(tf_height - 1 - tf_bar_h / 2));
                node->color = cs_color;
                // The table waits for the colour dialog to confirm the node's colour.
                puts("inserted new colornode");
                refresh = 1;
                return;
            }
            if (!cur->next) {
                // Too close to a node at another pos: nothing placed, nothing said.
                refresh = 1;
                return;
            }
            prev = cur;
            cur = cur->next;
            if (cur->pos == pos) {
                found = cur;
                break;
            }
        }
    }
    // Recolouring passes through here: the second call at the same x finds the node that
    // the first call placed (or picked), and last_color_scx says it is that very x.
    if ((int)scx == last_color_scx) {
        puts("color changed");
        found->color = cs_color;
        reinterpolate_colors(found);
    } else {
        puts("already inserted!");
    }
    refresh = 1;
}

void remove_color_node(uint16_t scx)
{
    ColorNode* prev = nullptr;
    for (ColorNode* node = color_nodes; node; prev = node, node = node->next) {
        if (!prev || node->pos == 0 || node->pos == 4095) continue;
        printf("test remove colornode scx=%d!\n", scx);
        if (scx <= node->scx + 2 && node->scx <= scx + 2) {
            puts("vor remove-code!");
            prev->next = node->next;
            if (node->next) node->next->prev = prev;
            // A drag may hold the node (right button pressed during a left drag, or Cancel
            // while the dialog is up): it must not outlive it.
            if (drag_color_node == node) drag_color_node = nullptr;
            free(node);
            // The previous node spans the joined segment: one straight ramp to the next.
            reinterpolate_colors(prev);
            puts("removed colornode!");
            refresh = 1;
            return;
        }
    }
    refresh = 1;
}

// ---------------------------------------------------------------------------------------------
// Opacity nodes.

// As fill_color_segment, for one float per entry.
static void fill_opacity_segment(float opacity, int pos, float end_opacity, int n, int dir)
{
    if (n < 1) return;
    const float step = (end_opacity - opacity) / (float)n;
    float value = opacity;
    float* entry = opacity_lut + pos;
    *entry = value;
    for (int k = 1; k < n; ++k) {
        value += step;
        entry += dir;
        *entry = value;
    }
}

void reinterpolate_opacity(OpacityNode* node)
{
    if (!node) return;
    float left_opacity = node->prev ? node->prev->opacity : 0.0f;
    int left_pos = node->prev ? node->prev->pos : 0;
    float right_opacity = node->next ? node->next->opacity : 1.0f;
    int right_pos = node->next ? node->next->pos : 4095;
    fill_opacity_segment(node->opacity, node->pos, left_opacity, node->pos - left_pos, -1);
    fill_opacity_segment(node->opacity, node->pos, right_opacity, right_pos - node->pos, +1);
}

// Every way out of the opacity insert repaints the strip, even when nothing was placed.
static void end_opacity_insert()
{
    draw_tf_backdrop();
    refresh = 1;
}

void insert_opacity_node(uint16_t scx, uint16_t mouse_y)
{
    if (!opacity_nodes) return end_opacity_insert();
    const int pos = pos_from_scx(scx);
    if (pos == 0 || pos == 4095 || pos == opacity_nodes->pos) {
        puts("already inserted!");
        return end_opacity_insert();
    }
    OpacityNode* prev = nullptr;
    OpacityNode* cur = opacity_nodes;
    for (;;) {
        if (prev && prev->scx + 2 < scx && scx + 2 < cur->scx) break;
        if (!cur->next) return end_opacity_insert();  // no gap: nothing placed, nothing said
        prev = cur;
        cur = cur->next;
        if (cur->pos == pos) {
            puts("already inserted!");
            return end_opacity_insert();
        }
    }

    // The strip lies below the image. A mouse above the strip wraps around in 16 bits to a
    // huge scy, and so to opacity 0 through the clamp below.
    const uint16_t scy = (uint16_t)(mouse_y - render_target.height);
    float opacity = 1.0f - (float)scy / (float)(tf_height - tf_bar_h);
    if (opacity < 0.0f) opacity = 0.0f;
    if (opacity > 1.0f) opacity = 1.0f;
    OpacityNode* node = link_node(prev, cur, pos, scx, scy);
    node->opacity = opacity;
    printf("opacity=%f\n", opacity);
    reinterpolate_opacity(node);
    puts("inserted new opacitynode");
    end_opacity_insert();
}

void remove_opacity_node(uint16_t scx)
{
    OpacityNode* prev = nullptr;
    for (OpacityNode* node = opacity_nodes; node; prev = node, node = node->next) {
        if (!prev || node->pos == 0 || node->pos == 4095) continue;
        if (scx <= node->scx + 2 && node->scx <= scx + 2) {
            prev->next = node->next;
            if (node->next) node->next->prev = prev;
            if (drag_opacity_node == node) drag_opacity_node = nullptr;
            free(node);
            reinterpolate_opacity(prev);
            puts("removed colornode!");  // the opacity side shares the colour message
            refresh = 1;
            return;
        }
    }
    refresh = 1;
}

// ---------------------------------------------------------------------------------------------

// Frees one pair of lists and returns how many nodes each had.
static void free_lists(ColorNode* colors, OpacityNode* opacities, int* color_count, int* opacity_count)
{
    *color_count = *opacity_count = 0;
    while (colors) {
        ColorNode* next = colors->next;
        free(colors);
        colors = next;
        ++*color_count;
    }
    while (opacities) {
        OpacityNode* next = opacities->next;
        free(opacities);
        opacities = next;
        ++*opacity_count;
    }
}

void free_transfer_nodes()
{
    int colors, opacities;
    free_lists(color_nodes, opacity_nodes, &colors, &opacities);
    color_nodes = nullptr;
    opacity_nodes = nullptr;
    drag_color_node = nullptr;
    drag_opacity_node = nullptr;
    printf("\nfreed %d color nodes and %d opacity nodes\n", colors, opacities);
}

void make_default_nodes()
{
    // The lists of the previous volume go without a message: nothing points into them once
    // the heads are replaced, and the count printed at exit is that of the current lists.
    int colors, opacities;
    free_lists(color_nodes, opacity_nodes, &colors, &opacities);
    color_nodes = nullptr;
    opacity_nodes = nullptr;

    ColorNode* black = (ColorNode*)malloc(sizeof(ColorNode));
    ColorNode* white = (ColorNode*)malloc(sizeof(ColorNode));
    OpacityNode* clear = (OpacityNode*)malloc(sizeof(OpacityNode));
    OpacityNode* opaque = (OpacityNode*)malloc(sizeof(OpacityNode));
    if (!black || !white || !clear || !opaque) clean_up_and_exit(0, "out of mem!");

    // A grey ramp, the same as the identity tables a .dat load starts with. The places are
    // provisional: the next backdrop moves the end markers one pixel inward.
    const uint16_t bar_row = (uint16_t)(tf_height - 1 - tf_bar_h / 2);
    *black = {0x000000, 0, 0, bar_row, white, nullptr};
    *white = {0xffffff, 4095, (uint16_t)(tf_width - 1), bar_row, nullptr, black};
    *clear = {0.0f, 0, 1, (uint16_t)(tf_height - tf_bar_h - 1), opaque, nullptr};
    *opaque = {1.0f, 4095, (uint16_t)(tf_width - 2), 1, nullptr, clear};
    color_nodes = black;
    opacity_nodes = clear;
}

// ---------------------------------------------------------------------------------------------
// Nodes set at a density (tavok-render's --color and --opacity).

void set_color_node_at(int pos, uint32_t color)
{
    ColorNode* node = node_at_density(color_nodes, pos, (uint16_t)(tf_height - 1 - tf_bar_h / 2));
    node->color = color;
    reinterpolate_colors(node);
}

void set_opacity_node_at(int pos, float opacity)
{
    OpacityNode* node = node_at_density(opacity_nodes, pos, 0);
    node->opacity = opacity;
    reinterpolate_opacity(node);
    draw_tf_backdrop();
}
