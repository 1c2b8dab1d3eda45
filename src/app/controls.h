// controls.h — what input_pump does with one sample of the keyboard and the mouse: camera
// navigation (mouse look, roll, moves), slice stepping and zoom, the middle-button kind
// switch, the key table, and the latch that hands presses on the editor strip to the
// transfer room. Display-free: the window's input_pump (src/app/window/sdl_input.cpp) reads SDL
// and calls apply_input; tests call it with made-up samples.
//
// Writes the camera frame, refresh, the mouse globals of core.h, max_ray_steps,
// refine_tolerance, tex_scroll_x/y and the slice state; drives widgets through seam.h.
#pragma once
#include <cstdint>

// The keys of the key table that are down, one flag per row (a row's keys are alternatives),
// and the two shift modifiers.
struct KeyStates {
    bool print;      // p
    bool forward;    // w or cursor up
    bool back;       // s or cursor down
    bool left;       // a or cursor left
    bool right;      // d or cursor right
    bool down;       // r or right Ctrl
    bool up;         // f or keypad 0
    bool more_steps; // keypad plus
    bool fewer_steps;// keypad minus
    bool finer;      // 9: lower refine_tolerance
    bool coarser;    // 0: raise refine_tolerance
    bool page_up;
    bool page_down;
    bool end;
    bool home;
    bool quit;       // Escape or q
    bool left_shift;
    bool right_shift;
};

// One call's sample of the input state.
struct InputSample {
    int dx, dy;                 // relative mouse motion since the last sample
    bool left, middle, right;   // buttons held
    int x, y;                   // pointer position in the window
    KeyStates keys;
};

// What the window has to do with the pointer after a sample.
enum class PointerCapture { none, capture, release };

// Steps 2 to 7 of input_pump: button latches, left, middle and right button, pointer
// capture, keys. The events (step 8) stay with the window; a button release goes to
// mouse_button_released. Returns what to do with the cursor and the grab: capture (hide and
// grab) when a held button acts on the image, release (show and ungrab) when all buttons are
// up; capture is also returned while a button is held on the strip by a press that began on
// the image.
PointerCapture apply_input(const InputSample& s);

// Any button's release: last_button_up = now, no node drag goes on.
void mouse_button_released();

// The camera moves, exposed for tests and for the window's use. Angles are pixels of mouse
// motion times 0.0043633236 radians (a quarter degree a pixel).
void mouse_look(int dx, int dy);   // turn about iup (dx) and istr (dy), then orthonormalise
void roll_camera(int dx);          // turn about ifor
// Moves the current axis slice by one voxel (+1 or -1), or the arbitrary plane's slice_d by
// one unit, and puts the new place on its widget.
void step_slice(int direction);

// Move speed of the keys: 15, 28 with left Shift, 5 with right Shift (which wins).
float move_speed(const KeyStates& k);
// The key table, every row tested in order while its key is down.
void apply_keys(const KeyStates& k);

