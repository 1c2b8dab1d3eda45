// core.h — the application core's public header: camera, render target, view constants,
// frame-loop state, frame buffers, the static images (cursors, icon, pencil textures) and the
// one exit. The render settings themselves are in settings.h; the doors to the two windows
// are in seam.h.
//
// Everything declared here is in the display-free library. The SDL window (display.cpp),
// SDL input (input.cpp) and main (main.cpp) belong to the tavok executable only.
#pragma once
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/settings.h"

// ---------------------------------------------------------------------------------------------
// Camera frame, in voxel coordinates. x, y, z and a fourth float that stays 0.
// Written by input (mouse look, keys), the slice basis and the load path; read by every pass
// through its arguments. The frame loop clamps ifor once a frame (clamp_forward).
extern float ipos[4];  // eye
extern float ifor[4];  // forward
extern float iup[4];   // up
extern float istr[4];  // strafe; istr x iup = ifor
// Turns the camera to look along forward with up as near to `up` as the frame allows:
// ifor = normalise(forward), istr = normalise(up x ifor), iup = normalise(ifor x istr), so that
// istr x iup = ifor. ipos stays.
void look_along(const float* forward, const float* up);

// ---------------------------------------------------------------------------------------------
// The image a pass writes. One global instance; the buffers belong to the frame-buffer code
// below and are replaced on resize and, for a render to file, swapped for a 1024 x 1024 set.
struct RenderTarget {
    uint32_t width;    // image width = window width
    uint32_t height;   // window height * 4 / 5; the strip below belongs to the editor
    uint32_t* color;   // width * height packed 0x00RRGGBB pixels, row-major
    uint32_t* depth;   // ray parameter of the hit, 12 fractional bits; no_depth = nothing hit
    uint8_t* mask;     // preview state: 0 not cast, 1 cast, 2 cast and missed the box
};
extern RenderTarget render_target;
constexpr uint32_t no_depth = 0x400000;

// Buffers of the frame, all malloc'ed (alloc_frame_buffers). edge_scratch is the copy of the
// frame that edge detection reads; offscreen_pixels takes the image while offscreen_render is
// set. screen_pixels points at the window surface's pixels (32 bits each, no row padding) and
// is null without a window: the passes and the editor strip copy into it when it is there.
extern uint32_t* edge_scratch;
extern uint32_t* offscreen_pixels;
extern uint32_t* screen_pixels;

// Frees and allocates edge_scratch, offscreen_pixels, color, depth (w * rows words each) and
// mask (w * rows bytes), in that order, and sets render_target to w x image_h. The fatal path
// "out of memory\n" (status 1) takes any failure.
void alloc_frame_buffers(uint32_t w, uint32_t image_h, uint32_t rows);

// A resize request is carried out only when both sides are more than 100 pixels.
inline bool resize_allowed(int w, int h) { return w > 100 && h > 100; }

// Derived view constants, recomputed from render_target at start and on every resize.
extern float view_long_side, view_short_side, view_aspect, view_aspect_inverse;
extern float half_extent_str, half_extent_up;  // half the image plane along istr, iup
extern float pixel_step, pixel_step_copy;      // 1 / short side
void compute_view_constants();
// The image plane of a target, by the same rule: the short side spans one unit, so pixels are
// square. What the passes lay their rays out with.
struct ViewExtents {
    float half_str, half_up;  // half the image plane along istr and iup
    float pixel_step;         // 1 / short side
};
ViewExtents view_extents(const RenderTarget* target);

// Per-frame vectors, written just before a preview: ifor and light_dir + view_dir normalised.
extern float view_dir[3];
extern float half_vector[3];
// Computes view_dir and half_vector from the camera and the light, as the frame loop does
// before every preview.
void prepare_preview_vectors();

// ---------------------------------------------------------------------------------------------
// Program state that is not a setting. load_requested: the file chooser asked for a load, the
// frame loop serves it. offscreen_render: a render to file runs, the passes show their image in
// offscreen_pixels. window_width, window_height: the SDL window (the image is its upper four
// fifths, the editor strip the rest). tex_scroll_x, tex_scroll_y: the scroll of the pencil
// paper, which follows the mouse while a button is held.
extern int load_requested;
extern int offscreen_render;
extern unsigned window_width, window_height;
extern int tex_scroll_x, tex_scroll_y;

// State of the render protocol and of the loaded volume that every room may read. Written by
// the frame loop and the load path (src/app), gui_active by the GTK pump, color_dialog_open by
// the colour dialog.
extern int final_pending;        // a preview was shown and its final pass is due
extern int volume_loaded;        // 0 until the first good load, then 1
extern float vol_diag;           // volume diagonal with the margin
extern float vol_diag_sq;
extern char last_volume_path[4096];
extern int gui_active;           // the control panel is the active window
extern int color_dialog_open;    // the colour dialog is up: no final pass runs

// Mouse state shared by input and the editor strip (Parts of input and transfer editor).
extern int mouse_x, mouse_y;
extern int left_on_image, left_on_editor;    // where the held left press began
extern int right_on_image, right_on_editor;  // the same for the right button
extern unsigned left_press_times[2];         // ring of the last two frames with left held
extern int left_press_slot;
extern uint8_t double_click;                 // double-click latch of the strip
extern unsigned last_double_click;           // ticks of the latest latch; drives the pause rule
extern unsigned last_button_up;              // ticks of the latest button release
extern unsigned last_slice_switch;           // ticks of the latest middle-button kind switch

// Normalising, the one rule of the system: a length of 0.001 or less counts as 0.001, so a
// null vector stays null instead of dividing by zero. Inline: shaded passes normalise normals
// at every sample.
[[gnu::always_inline]] inline void normalize3(float* v)
{
    float length = sqrtf(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (length <= 0.001f) length = 0.001f;
    const float inverse = 1.0f / length;
    v[0] *= inverse;
    v[1] *= inverse;
    v[2] *= inverse;
}
// c = a x b, in single precision. c must not be a or b.
void cross3(const float* a, const float* b, float* c);

// Replaces each component of ifor whose magnitude is below 0.0001 by +-0.0001 (0.0 goes to
// +0.0001). A lasting change: the traversal divides by these components.
void clamp_forward();

// Start values of the cut shapes, and the plane normal shown in the cutting tab's entries:
// plane cut, normal = light_dir normalised, sphere of squared radius 1600 at the origin, and
// the colours of the abstract view. Step 5 of start-up, for the window and tavok-render.
void set_cut_defaults();

// "Render to File" after its dialog (defined in app/render_file.cpp, like the exit below, so
// that the panel's handler reaches the pass table without including the program's top): the
// current view rendered at 1024 x 1024 into swapped frame buffers (offscreen_render set, the
// preview and then the final of render_mode through the pass table, view_kind left out),
// written to path as PNG, then the window's size and buffers restored (restore_window_size),
// "saved the file", offscreen_render 0.
void render_to_file_at(const char* path);

// The only exit: message to standard error, stop the worker, free, close the window, exit.
[[noreturn]] void clean_up_and_exit(int status, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// Copies the target's color (width * height words) to the window surface, or to
// offscreen_pixels while offscreen_render is set. The end of every pass.
void show_image(const RenderTarget* target);
// The image a pass shows into: offscreen_pixels while offscreen_render is set, else the window
// surface's pixels (null without a window).
uint32_t* display_pixels();

// ---------------------------------------------------------------------------------------------
// Static images (images.cpp).
// XPM-like cursor images: header, three colour lines, 32 rows of 32, hot-spot line.
extern const char* const cursor_cross_image[37];
extern const char* const cursor_ring_image[37];
// Builds the two 128-byte bit planes of a cursor image: 'X' sets data and mask, '.' the mask.
void cursor_bit_planes(const char* const* image, uint8_t data[128], uint8_t mask[128]);
// Window icon, 32 x 32, three bytes a pixel, red first.
extern const uint8_t window_icon[3072];
// Five 64 x 64 grey paper textures of rising darkness for pencil shading, 0x00RRGGBB.
// Tileable: texel (x, y) continues seamlessly into (x & 63, y & 63).
extern const uint32_t pencil_tex[5][4096];
extern int pencil_mask_x, pencil_mask_y;  // 63 once the window is up: texel index =
                                          // (x & mx) + (y & my) * (mx + 1)
