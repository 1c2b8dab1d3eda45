// transfer.h — the transfer function: lookup tables, the node lists behind them, and the
// editor strip under the image.
//
// color_lut and opacity_lut are complete at all times and are read by every pass without a
// test. They are written only here (node edits) and by the loaders (reset to grey or to a
// palette). The node lists and the strip belong to this room alone.
#pragma once
#include <cstdint>

// 4096 entries each, indexed by density. Allocated by the first load, reused afterwards.
extern uint32_t* color_lut;   // 0x00RRGGBB
extern float* opacity_lut;    // 0.0 transparent .. 1.0 opaque
// Allocates both tables if they don't exist yet (the fatal path on failure); the loaders call
// it before they fill the tables.
void alloc_lookup_tables();
// Puts both tables back to the grey identity: opacity i * (1/4095) in single precision, grey
// trunc(opacity * 255) in all three bytes. Grey 1 is first reached at density 17.
void reset_grey_tables();

struct ColorNode {
    uint32_t color;   // 0x00RRGGBB
    uint16_t pos;     // density 0..4095
    uint16_t scx;     // marker x on the strip
    uint16_t scy;     // marker y on the strip
    ColorNode* next;  // by rising pos, null at the last
    ColorNode* prev;  // null at the first
};
struct OpacityNode {
    float opacity;    // 0.0 .. 1.0
    uint16_t pos;
    uint16_t scx;
    uint16_t scy;
    OpacityNode* next;
    OpacityNode* prev;
};
// First nodes of the lists, null before the first load. Sorted by strictly rising pos; the
// first has pos 0, the last 4095, and neither can be removed or moved.
extern ColorNode* color_nodes;
extern OpacityNode* opacity_nodes;
extern uint32_t cs_color;      // colour of the next colour node; last colour accepted
extern uint32_t cs_picked;     // colour most recently seen in the colour dialog
extern int last_color_scx;     // strip x of the latest colour edit, -1 at start

void insert_color_node(uint16_t scx);
void remove_color_node(uint16_t scx);
void reinterpolate_colors(ColorNode* node);
void insert_opacity_node(uint16_t scx, uint16_t mouse_y);
void remove_opacity_node(uint16_t scx);
void reinterpolate_opacity(OpacityNode* node);
void free_transfer_nodes();
// The node at density pos (0..4095) takes this colour or opacity, or a new node is linked in
// there; the table segments on either side are rewritten and the strip repainted, as after any
// edit. Densities 0 and 4095 find the end nodes. For a volume that is loaded.
void set_color_node_at(int pos, uint32_t color);
void set_opacity_node_at(int pos, float opacity);
// The default lists of a fresh load (a grey ramp: black and transparent at 0, white and
// opaque at 4095), replacing the current ones; called by init_transfer_editor.
void make_default_nodes();

// ---------------------------------------------------------------------------------------------
// The editor strip: tf_width x tf_height pixels below the image, painted in two layers.
extern int tf_width, tf_height, tf_bar_h;
extern uint32_t* tf_pixels;
extern ColorNode* drag_color_node;
extern OpacityNode* drag_opacity_node;

// Called by each loader once the grid and histo are complete: max_histo, the strip, the
// default node lists.
void init_transfer_editor();
// Repaints the whole strip from histo, color_lut and the isovalues; recomputes tf_bar_h and
// the marker places of all nodes.
void draw_tf_backdrop();
// Paints the opacity curve and the markers and copies the strip into the window.
void draw_tf_overlay();

// The strip's mouse rules, run by input on each frame in which a button is held with the
// press on the strip (x, y in window pixels; now = ticks of this frame, already stored in
// left_press_times). A button release (input) sets last_button_up and clears both drags.
void tf_left_press(int x, int y, unsigned now);
void tf_right_press(int x, int y);

// The colour dialog's signals, after GTK has read the colour: "color_changed" stores the
// picked colour, OK accepts it for the node at last_color_scx, Cancel removes that node.
// The GTK side (src/panel) opens the dialog through open_color_dialog() of seam.h and
// destroys it after OK and Cancel.
void color_dialog_changed(uint32_t picked);
void color_dialog_ok();
void color_dialog_cancel();
// The dialog was closed without OK or Cancel (Escape, or the window's close button): the node
// that the double click placed or found stays, with cs_color, the colour it was given then,
// and the table now shows it; as OK with the colour left as it was.
void color_dialog_dismissed();
// The dialog is gone, however it was closed: final passes may run again.
void color_dialog_closed();
