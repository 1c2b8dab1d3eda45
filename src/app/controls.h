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
    KeyStates keys;             // keys held
    KeyStates pressed;          // keys that went down since the last sample, even if already up
};

// The key throttle. The key table's rows act when their key goes down, not on every call:
// input_pump runs once a frame and on every polled line of a final pass, and a frame takes a
// few milliseconds, so a row that acted on every call would fly the camera hundreds of voxels
// on a tap. A row that steps (every row but p and Escape/q) acts at once when its key goes
// down, and then once for every further key_step_ms of wall time that the key stays down,
// counted from the press: a tap is one step (15 voxels, 28, 5), a key held for a second is 25
// or 26 steps whatever the frame time. A slow sample takes the steps that fell due since the
// last one, at most key_steps_at_once of them, so a long pause (a load, a slow pass) never
// turns into a jump. p prints once per press; Escape or q quits as soon as it is down.
// Shift only sets the speed and is read as it is.
constexpr unsigned key_step_ms = 40;
constexpr int key_steps_at_once = 5;

// When the key of each row went down, and how many steps it took since; reset by the row's
// next press. Written only by apply_input.
extern unsigned key_down_since[16];
extern unsigned key_steps_taken[16];
extern bool key_was_down[16];

// True while the last sample held a button or a key of the table: the frame loop keeps
// running frames for it (a held key steps with time, a held button acts on every frame).
bool input_held();

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
// One step of the key table: every row whose key is set acts once, in the table's order.
// apply_input calls it through the throttle; tests call it to step rows by hand.
void apply_keys(const KeyStates& k);
// The throttle: the rows of held (and just pressed) keys that are due at now act, each as many
// times as its steps fell due, through apply_keys.
void apply_keys_throttled(const KeyStates& held, const KeyStates& pressed, unsigned now);

