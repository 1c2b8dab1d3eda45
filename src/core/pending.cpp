// pending.cpp — entries of rooms that are still being built. The frame loop, the loader and
// the exit call them already; each room deletes its entries here when its own code lands,
// and this file goes when it is empty. Nothing here draws, prints or changes a setting.
#include "raycast/raycast.h"
#include "slices/slices.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// Transfer room: strip and node lists.
int tf_width = 0, tf_height = 0, tf_bar_h = 15;
uint32_t* tf_pixels = nullptr;
ColorNode* color_nodes = nullptr;
OpacityNode* opacity_nodes = nullptr;
ColorNode* drag_color_node = nullptr;
OpacityNode* drag_opacity_node = nullptr;
void draw_tf_backdrop() {}
void tf_left_press(int, int, unsigned) {}
void tf_right_press(int, int) {}
void init_transfer_editor() { compute_max_histo(); }
void draw_tf_overlay() {}
void free_transfer_nodes() {}

// Volume room: derived data.
void calc_gradients() {}
void build_block_map() {}
