// render_state.cpp — camera, render target, frame buffers and view constants.
// Owns ipos/ifor/iup/istr, render_target and its buffers, edge_scratch, offscreen_pixels,
// the view constants, the shared state of the render protocol (final_pending, volume_loaded,
// vol_diag, ...) and the mouse state shared by input and the editor strip. The buffers
// are replaced by alloc_frame_buffers (start, resize, render to file); nothing else frees them
// but the exit.
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"

float ipos[4] = {0.0f, 0.0f, 0.0f, 0.0f};
float ifor[4] = {0.0f, 0.0f, -1.0f, 0.0f};
float iup[4] = {0.0f, 1.0f, 0.0f, 0.0f};
float istr[4] = {-1.0f, 0.0f, 0.0f, 0.0f};

int load_requested = 0;
int offscreen_render = 0;
unsigned window_width = 512, window_height = 512;
int tex_scroll_x = 0, tex_scroll_y = 0;

int final_pending = 0;
int volume_loaded = 0;
float vol_diag = 0.0f;
float vol_diag_sq = 0.0f;
char last_volume_path[4096];
int gui_active = 0;
int color_dialog_open = 0;

RenderTarget render_target = {0, 0, nullptr, nullptr, nullptr};
uint32_t* edge_scratch = nullptr;
uint32_t* offscreen_pixels = nullptr;
uint32_t* screen_pixels = nullptr;

float view_long_side, view_short_side, view_aspect, view_aspect_inverse;
float half_extent_str, half_extent_up;
float pixel_step, pixel_step_copy;
float view_dir[3];
float half_vector[3];

int mouse_x, mouse_y;
int left_on_image, left_on_editor;
int right_on_image, right_on_editor;
unsigned left_press_times[2];
int left_press_slot;
uint8_t double_click;
unsigned last_double_click;
unsigned last_button_up;
unsigned last_slice_switch;

void alloc_frame_buffers(uint32_t w, uint32_t image_h, uint32_t rows)
{
    // Sizes in size_t: a 16383 x 16383 window must not wrap the byte counts.
    size_t words = (size_t)w * rows;
    free(edge_scratch);
    edge_scratch = (uint32_t*)malloc(words * 4);
    free(offscreen_pixels);
    offscreen_pixels = (uint32_t*)malloc(words * 4);
    free(render_target.color);
    render_target.color = (uint32_t*)malloc(words * 4);
    free(render_target.depth);
    render_target.depth = (uint32_t*)malloc(words * 4);
    free(render_target.mask);
    render_target.mask = (uint8_t*)malloc(words);
    if (!edge_scratch || !offscreen_pixels || !render_target.color || !render_target.depth ||
        !render_target.mask)
        clean_up_and_exit(1, "out of memory\n");
    // The frame loop clears these before every preview; a fresh buffer starts cleared too, so
    // that no pass ever reads what malloc left.
    memset(render_target.color, 0, words * 4);
    memset(render_target.depth, 0, words * 4);
    memset(render_target.mask, 0, words);
    memset(edge_scratch, 0, words * 4);
    memset(offscreen_pixels, 0, words * 4);
    render_target.width = w;
    render_target.height = image_h;
}

// The two cases of the rule, with everything the globals keep.
struct ViewProportions {
    float long_side, short_side, aspect, aspect_inverse, half_str, half_up, pixel_step;
};
static ViewProportions view_proportions(uint32_t width, uint32_t height)
{
    ViewProportions v;
    float w = (float)width, h = (float)height;
    if (w < h) {
        v.long_side = h;
        v.short_side = w;
        v.aspect = w / h;
        v.half_str = 0.5f;
        v.aspect_inverse = 1.0f / v.aspect;
        v.half_up = 0.5f * v.aspect_inverse;
    } else {
        v.long_side = w;
        v.short_side = h;
        v.aspect = h / w;
        v.half_up = 0.5f;
        v.aspect_inverse = 1.0f / v.aspect;
        v.half_str = 0.5f * v.aspect_inverse;
    }
    v.pixel_step = 1.0f / v.short_side;
    return v;
}

void compute_view_constants()
{
    ViewProportions v = view_proportions(render_target.width, render_target.height);
    view_long_side = v.long_side;
    view_short_side = v.short_side;
    view_aspect = v.aspect;
    view_aspect_inverse = v.aspect_inverse;
    half_extent_str = v.half_str;
    half_extent_up = v.half_up;
    pixel_step = pixel_step_copy = v.pixel_step;
}

ViewExtents view_extents(const RenderTarget* target)
{
    ViewProportions v = view_proportions(target->width, target->height);
    return {v.half_str, v.half_up, v.pixel_step};
}

void cross3(const float* a, const float* b, float* c)
{
    c[0] = a[1] * b[2] - a[2] * b[1];
    c[1] = a[2] * b[0] - a[0] * b[2];
    c[2] = a[0] * b[1] - a[1] * b[0];
}

void look_along(const float* forward, const float* up)
{
    for (int i = 0; i < 3; ++i) ifor[i] = forward[i];
    normalize3(ifor);
    cross3(up, ifor, istr);
    normalize3(istr);
    cross3(ifor, istr, iup);
    normalize3(iup);
    ifor[3] = iup[3] = istr[3] = 0.0f;
}

void set_cut_defaults()
{
    set_cut_settings();
    for (int i = 0; i < 3; ++i) cut_plane_n[i] = light_dir[i];
    normalize3(cut_plane_n);
    const char* entries[3] = {"GUICuttingPlaneNX", "GUICuttingPlaneNY", "GUICuttingPlaneNZ"};
    for (int i = 0; i < 3; ++i) {
        char text[16];
        snprintf(text, sizeof text, "%+4.3f", cut_plane_n[i]);
        set_entry_text(entries[i], text, 0);
    }
}

void prepare_preview_vectors()
{
    for (int i = 0; i < 3; ++i) view_dir[i] = ifor[i];
    normalize3(view_dir);
    for (int i = 0; i < 3; ++i) half_vector[i] = light_dir[i] + view_dir[i];
    normalize3(half_vector);
}

void clamp_forward()
{
    for (int i = 0; i < 3; ++i)
        if (fabsf(ifor[i]) < 0.0001f) ifor[i] = ifor[i] >= 0.0f ? 0.0001f : -0.0001f;
}

uint32_t* display_pixels() { return offscreen_render ? offscreen_pixels : screen_pixels; }

void show_image(const RenderTarget* target)
{
    if (uint32_t* shown = display_pixels())
        memcpy(shown, target->color, (size_t)target->width * target->height * 4);
}
