// controls.cpp — the display-free half of input_pump: what one sample of keys and mouse does to
// the camera, the slices, the render settings of the key table and the strip latch. The SDL
// half (src/app/window/sdl_input.cpp) reads the state, calls apply_input and applies the pointer
// capture it asks for.
//
// Writes ipos/ifor/iup/istr, refresh, the mouse globals, max_ray_steps, refine_tolerance,
// tex_scroll_x/y and the slice state (slice_kind, slice indexes, slice_zoom, slice_d,
// slice_center, slice_u, slice_v); sets slice widgets through seam.h, whose handlers run at
// once in the window. Hands presses that belong to the editor strip to the transfer room
// (tf_left_press, tf_right_press) and never touches the strip itself.
#include <cmath>
#include <cstdio>

#include "core/core.h"
#include "app/controls.h"
#include "core/seam.h"
#include "slices/slices.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// A quarter of a degree per pixel of mouse motion.
static constexpr long double radians_per_pixel = 0.0043633236L;

// Sine and cosine of a pixel count, in extended precision, kept as floats.
static void turn(int pixels, float& c, float& s)
{
    const long double a = (long double)pixels * radians_per_pixel;
    c = (float)cosl(a);
    s = (float)sinl(a);
}

void mouse_look(int dx, int dy)
{
    float ca, sa, cb, sb, f[3], g[3];
    turn(dx, ca, sa);
    turn(dy, cb, sb);
    // Horizontal: turn ifor toward istr, about iup.
    for (int i = 0; i < 3; ++i) f[i] = ca * ifor[i] + sa * istr[i];
    normalize3(f);
    for (int i = 0; i < 3; ++i) ifor[i] = f[i];
    cross3(iup, ifor, istr);
    normalize3(istr);
    // Vertical: turn iup toward g = istr x iup (the forward direction in the new frame),
    // about istr; then rebuild ifor and iup from istr, so the frame is orthonormal again on
    // every call.
    cross3(istr, iup, g);
    normalize3(g);
    for (int i = 0; i < 3; ++i) iup[i] = cb * iup[i] + sb * g[i];
    normalize3(iup);
    cross3(istr, iup, ifor);
    normalize3(ifor);
    cross3(ifor, istr, iup);
    normalize3(iup);
}

void roll_camera(int dx)
{
    float ca, sa;
    turn(dx, ca, sa);
    for (int i = 0; i < 3; ++i) istr[i] = ca * istr[i] + sa * iup[i];
    normalize3(istr);
    cross3(ifor, istr, iup);
    normalize3(iup);
    cross3(iup, ifor, istr);
    normalize3(istr);
}

void step_slice(int direction)
{
    if (slice_kind == 3) {
        // The arbitrary plane has no bound of its own.
        slice_d += (float)direction * 1.0f;
        set_widget_value("GUIsliceD", slice_d);
        return;
    }
    uint32_t* index = slice_kind == 0 ? &slice_z : slice_kind == 1 ? &slice_y : &slice_x;
    const uint32_t limit = slice_kind == 0 ? vol_z : slice_kind == 1 ? vol_y : vol_x;
    const char* widget = slice_kind == 0 ? "GUIsliderXY" : slice_kind == 1 ? "GUIsliderXZ" : "GUIsliderYZ";
    if (direction > 0) {
        if (*index + 1 >= limit) return;
        *index += 1;
    } else {
        if (*index == 0) return;
        *index -= 1;
    }
    // The handler multiplies back and truncates; the half keeps it on this index.
    set_widget_value(widget, (*index + 0.5) / (double)(limit - 1));
}

float move_speed(const KeyStates& k)
{
    if (k.right_shift) return 5.0f;
    if (k.left_shift) return 28.0f;
    return 15.0f;
}

static void show_zoom() { set_widget_value("GUIsliderZoom", slice_zoom * 0.0009765625); }

// ipos += amount * v.
static void move_eye(const float* v, float amount)
{
    for (int i = 0; i < 3; ++i) ipos[i] += amount * v[i];
}

// The slice view's sideways moves: the arbitrary plane moves its centre along the image axis
// v by amount; an axis slice moves the x and z of its centre the other way and leaves y,
// whatever v says.
static void move_slice_center(const float* v, float amount)
{
    if (slice_kind == 3) {
        for (int i = 0; i < 3; ++i) slice_center[i] += amount * v[i];
    } else {
        slice_center[0] -= amount * v[0];
        slice_center[2] -= amount * v[2];
    }
}

void apply_keys(const KeyStates& k)
{
    const float speed = move_speed(k), s = speed / 4.0f;
    const bool slices = render_mode == mode_slices;
    if (k.print) {
        printf("\n");
        printf("%f\n", 100.0);
        printf("ipos %f,%f,%f\n", ipos[0], ipos[1], ipos[2]);
        printf("istr %f,%f,%f\n", istr[0], istr[1], istr[2]);
        printf("iup  %f,%f,%f\n", iup[0], iup[1], iup[2]);
        printf("ifor %f,%f,%f\n", ifor[0], ifor[1], ifor[2]);
        printf("\n");
    }
    // Movement rows set refresh in both columns, so that the slice view follows the keys too.
    if (k.forward) {
        refresh = 1;
        if (!slices) move_eye(ifor, speed);
        else {
            if (slice_zoom > 10.0f) slice_zoom -= 3.0f;
            show_zoom();
            if (slice_kind == 3) move_slice_along_view(-3.0f);
        }
    }
    if (k.back) {
        refresh = 1;
        if (!slices) move_eye(ifor, -speed);
        else {
            if (slice_zoom < 1021.0f) slice_zoom += 3.0f;
            show_zoom();
            if (slice_kind == 3) move_slice_along_view(3.0f);
        }
    }
    // a, d, r, f: an axis slice moves its centre against the arbitrary plane's direction.
    if (k.left) {
        refresh = 1;
        if (!slices) move_eye(istr, -speed);
        else move_slice_center(slice_u, -s);
    }
    if (k.right) {
        refresh = 1;
        if (!slices) move_eye(istr, speed);
        else move_slice_center(slice_u, s);
    }
    if (k.down) {
        refresh = 1;
        if (!slices) move_eye(iup, -speed);
        else move_slice_center(slice_v, -s);
    }
    if (k.up) {
        refresh = 1;
        if (!slices) move_eye(iup, speed);
        else move_slice_center(slice_v, s);
    }
    if (k.more_steps) {
        max_ray_steps += 50;
        refresh = 1;
    }
    if (k.fewer_steps) {
        refresh = 1;
        // Compared as unsigned: from a value below 50 the subtraction wraps and is allowed.
        if (max_ray_steps - 50u >= 6u) max_ray_steps -= 50;
    }
    if (k.finer) {
        refresh = 1;
        if (refine_tolerance > 3) refine_tolerance -= 3;
    }
    if (k.coarser) {
        refresh = 1;
        if (refine_tolerance < 252) refine_tolerance += 3;
    }
    if (k.page_up) {
        refresh = 1;
        step_slice(+1);
    }
    if (k.page_down) {
        refresh = 1;
        step_slice(-1);
    }
    if (k.end) {
        refresh = 1;
        if (slice_zoom > 10.0f) slice_zoom -= 3.0f;
        show_zoom();
    }
    if (k.home) {
        refresh = 1;
        if (slice_zoom < 1021.0f) slice_zoom += 3.0f;
        show_zoom();
    }
    if (k.quit) clean_up_and_exit(0, "<ESC> or <q> pressed. clean up!\n");
}

// ---------------------------------------------------------------------------------------------
// The key throttle (see controls.h).

// The rows of the key table in its order; the last two fields of KeyStates are the shifts.
static constexpr bool KeyStates::*key_rows[16] = {
    &KeyStates::print,      &KeyStates::forward,     &KeyStates::back,  &KeyStates::left,
    &KeyStates::right,      &KeyStates::down,        &KeyStates::up,    &KeyStates::more_steps,
    &KeyStates::fewer_steps, &KeyStates::finer,      &KeyStates::coarser, &KeyStates::page_up,
    &KeyStates::page_down,  &KeyStates::end,         &KeyStates::home,  &KeyStates::quit,
};
static constexpr int row_print = 0, row_quit = 15;

unsigned key_down_since[16];
unsigned key_steps_taken[16];
bool key_was_down[16];
static bool held_in_last_sample = false;

bool input_held() { return held_in_last_sample; }

// How many times row r acts in this sample.
static int due_steps(int r, bool held, bool pressed, unsigned now)
{
    const bool fresh = pressed || (held && !key_was_down[r]);
    key_was_down[r] = held;
    if (fresh) {
        key_down_since[r] = now;
        key_steps_taken[r] = 1;
        return 1;
    }
    if (!held || r == row_print) return 0;
    if (r == row_quit) return 1;
    // Steps due since the press: one at the press, one more every key_step_ms.
    const unsigned due = (now - key_down_since[r]) / key_step_ms + 1;
    unsigned steps = due - key_steps_taken[r];
    key_steps_taken[r] = due;
    return steps > (unsigned)key_steps_at_once ? key_steps_at_once : (int)steps;
}

void apply_keys_throttled(const KeyStates& held, const KeyStates& pressed, unsigned now)
{
    int steps[16], most = 0;
    for (int r = 0; r < 16; ++r) {
        steps[r] = due_steps(r, held.*key_rows[r], pressed.*key_rows[r], now);
        if (steps[r] > most) most = steps[r];
    }
    // Round by round, so that each round keeps the table's order among the rows.
    for (int round = 0; round < most; ++round) {
        KeyStates step = {};
        step.left_shift = held.left_shift;
        step.right_shift = held.right_shift;
        for (int r = 0; r < 16; ++r) step.*key_rows[r] = steps[r] > round;
        apply_keys(step);
    }
}

// ---------------------------------------------------------------------------------------------
// Mouse.

// Where a held button's press began: the position at the press decides, and a drag that
// crosses the border stays with its side until the release.
static void latch(int& on_image, int& on_editor)
{
    if (mouse_y > (int)render_target.height) {
        if (!on_image) on_editor = 1;
    } else if (!on_editor) {
        on_image = 1;
    }
}

PointerCapture apply_input(const InputSample& s)
{
    const unsigned now = ticks_ms();
    bool capture = false;
    if (!s.left) left_on_image = left_on_editor = 0;
    if (!s.right) right_on_image = right_on_editor = 0;

    if (s.left) {
        refresh = 1;
        left_press_times[left_press_slot] = now;
        left_press_slot ^= 1;
        mouse_x = s.x, mouse_y = s.y;
        latch(left_on_image, left_on_editor);
        if (left_on_editor && volume_loaded) {
            // The strip's rules may clear refresh again.
            tf_left_press(mouse_x, mouse_y, now);
        } else {
            capture = true;
            if (render_mode == mode_slices) {
                if (s.dy < 0) step_slice(+1);
                else if (s.dy > 0) step_slice(-1);
            } else {
                mouse_look(s.dx, s.dy);
            }
        }
    }

    if (s.middle) {
        refresh = 1;
        capture = true;
        if (now - last_slice_switch > 250u) {
            last_slice_switch = now;
            if (s.dx > 0) slice_kind = slice_kind == 3 ? 0 : slice_kind + 1;
            else if (s.dx < 0) slice_kind = slice_kind == 0 ? 3 : slice_kind - 1;
            static const char* const radio[4] = {"GUIsliceXY", "GUIsliceXZ", "GUIsliceYZ", "GUIslice3D"};
            if (slice_kind >= 0 && slice_kind <= 3) set_widget_active(radio[slice_kind], 1);
        }
    }

    if (s.right) {
        refresh = 1;
        mouse_x = s.x, mouse_y = s.y;
        latch(right_on_image, right_on_editor);
        if (right_on_editor && volume_loaded) {
            tf_right_press(mouse_x, mouse_y);
        } else {
            capture = true;
            float ca, sa;
            if (render_mode != mode_slices) {
                roll_camera(s.dx);
            } else if (!slice_recenter) {
                turn(s.dx, ca, sa);
                for (int i = 0; i < 3; ++i) slice_u[i] = ca * slice_u[i] + sa * slice_v[i];
                normalize3(slice_u);
                if (slice_kind == 3) cross3(slice_normal_unit, slice_u, slice_v);
                else cross3(slice_u, slice_normal_unit, slice_v);
                normalize3(slice_v);
            } else {
                if (s.dy > 0 && slice_zoom < 1018.0f) slice_zoom += 6.0f;
                else if (s.dy < 0 && slice_zoom > 13.0f) slice_zoom -= 6.0f;
                show_zoom();
            }
        }
    }

    PointerCapture result = capture ? PointerCapture::capture : PointerCapture::none;
    if (!s.left && !s.middle && !s.right) {
        result = PointerCapture::release;
    } else {
        tex_scroll_y += s.dy;
        tex_scroll_x -= s.dx >> 1;  // arithmetic shift: rounds toward minus infinity
    }

    bool any_key = false;
    for (int r = 0; r < 16; ++r) any_key = any_key || s.keys.*key_rows[r];
    held_in_last_sample = s.left || s.middle || s.right || any_key;
    apply_keys_throttled(s.keys, s.pressed, now);
    return result;
}

void mouse_button_released()
{
    last_button_up = ticks_ms();
    drag_color_node = nullptr;
    drag_opacity_node = nullptr;
}
