// sdl_input.cpp — input_pump, the only reader of SDL input: once a frame (and on each polled line
// of a final pass) it takes the window's events, samples the keys, the mouse buttons and
// motion, hands the sample to apply_input (src/app/controls.cpp, display-free), hides and grabs
// or shows and frees the pointer as that asks, and then acts on the events that matter: window
// close, resize and button releases. Also release_pointer, the seam door that a dialog's
// opening calls. Part of the tavok program only; everything it changes is done in the library.
//
// Keys and buttons count only when they went down in this window. SDL's own key state marks
// every key that is physically down when the window gets the focus back (an Escape that just
// closed a dialog above it, for one), and its button state keeps a button down whose release
// went to another window. So a key acts only after its key-down event reached this window, and
// stops at its key-up or at any loss of the keyboard focus; a button is held from its press
// event in this window to its release event, or until a dialog opens (release_pointer).
// Mouse motion comes from SDL_GetRelativeMouseState as before.
#include <cstring>

#include "core/core.h"
#include "app/controls.h"
#include "core/seam.h"
#include "app/window/window.h"

// Keys that went down while this window had the focus, by SDL key code, and those of them that
// went down since the last sample.
static uint8_t key_armed[SDLK_LAST];
static uint8_t key_pressed[SDLK_LAST];
// Buttons pressed in this window and not yet released (SDL_BUTTON masks of 1 to 3).
static Uint8 buttons_held = 0;
// Set by release_pointer while a sample is applied: the capture that sample asks for is void.
static bool pointer_released = false;

void release_pointer()
{
    SDL_WM_GrabInput(SDL_GRAB_OFF);
    SDL_ShowCursor(1);
    if (buttons_held) {
        // The release will go to the dialog, never here: count it now.
        buttons_held = 0;
        mouse_button_released();
    }
    pointer_released = true;
}

// What the queue held besides keys and buttons, acted on after the sample.
struct WindowEvents {
    bool quit = false;
    bool resize = false;
    int width = 0, height = 0;
    int releases = 0;
};

static void take_events(WindowEvents& ev)
{
    SDL_Event event;
    while (SDL_PollEvent(&event)) {
        switch (event.type) {
        case SDL_KEYDOWN: {
            // Key repeat sends more key-downs of a held key: only the first is a press.
            const SDLKey k = event.key.keysym.sym;
            if (!key_armed[k]) key_pressed[k] = 1;
            key_armed[k] = 1;
            break;
        }
        case SDL_KEYUP: key_armed[event.key.keysym.sym] = 0; break;
        case SDL_ACTIVEEVENT:
            if (!event.active.gain && (event.active.state & SDL_APPINPUTFOCUS))
                memset(key_armed, 0, sizeof key_armed);
            break;
        case SDL_MOUSEBUTTONDOWN:
            if (event.button.button <= SDL_BUTTON_RIGHT) buttons_held |= SDL_BUTTON(event.button.button);
            break;
        case SDL_MOUSEBUTTONUP:
            if (event.button.button <= SDL_BUTTON_RIGHT) buttons_held &= ~SDL_BUTTON(event.button.button);
            ev.releases += 1;
            break;
        case SDL_QUIT: ev.quit = true; break;
        case SDL_VIDEORESIZE:
            ev.resize = true;
            ev.width = event.resize.w;
            ev.height = event.resize.h;
            break;
        default: break;
        }
    }
}

// A row's keys: held (down in this window now) and pressed (went down since the last sample).
static void row(bool& held, bool& pressed, SDLKey a, SDLKey b = SDLK_UNKNOWN)
{
    held = key_armed[a] || (b != SDLK_UNKNOWN && key_armed[b]);
    pressed = key_pressed[a] || (b != SDLK_UNKNOWN && key_pressed[b]);
}

void input_pump()
{
    SDL_PumpEvents();
    WindowEvents ev;
    take_events(ev);

    InputSample s;
    SDL_GetRelativeMouseState(&s.dx, &s.dy);
    s.left = buttons_held & SDL_BUTTON(SDL_BUTTON_LEFT);
    s.middle = buttons_held & SDL_BUTTON(SDL_BUTTON_MIDDLE);
    s.right = buttons_held & SDL_BUTTON(SDL_BUTTON_RIGHT);
    s.x = s.y = 0;
    if (s.left || s.right) SDL_GetMouseState(&s.x, &s.y);

    KeyStates &k = s.keys, &p = s.pressed;
    row(k.print, p.print, SDLK_p);
    row(k.forward, p.forward, SDLK_w, SDLK_UP);
    row(k.back, p.back, SDLK_s, SDLK_DOWN);
    row(k.left, p.left, SDLK_a, SDLK_LEFT);
    row(k.right, p.right, SDLK_d, SDLK_RIGHT);
    row(k.down, p.down, SDLK_r, SDLK_RCTRL);
    row(k.up, p.up, SDLK_f, SDLK_KP0);
    row(k.more_steps, p.more_steps, SDLK_KP_PLUS);
    row(k.fewer_steps, p.fewer_steps, SDLK_KP_MINUS);
    row(k.finer, p.finer, SDLK_9);
    row(k.coarser, p.coarser, SDLK_0);
    row(k.page_up, p.page_up, SDLK_PAGEUP);
    row(k.page_down, p.page_down, SDLK_PAGEDOWN);
    row(k.end, p.end, SDLK_END);
    row(k.home, p.home, SDLK_HOME);
    row(k.quit, p.quit, SDLK_ESCAPE, SDLK_q);
    memset(key_pressed, 0, sizeof key_pressed);
    const SDLMod mods = SDL_GetModState();
    k.left_shift = p.left_shift = mods & KMOD_LSHIFT;
    k.right_shift = p.right_shift = mods & KMOD_RSHIFT;

    pointer_released = false;
    PointerCapture capture = apply_input(s);
    // A dialog that opened meanwhile (a double click on the colour bar) took the pointer back.
    if (pointer_released) capture = PointerCapture::none;
    switch (capture) {
    case PointerCapture::capture:
        SDL_ShowCursor(0);
        SDL_WM_GrabInput(SDL_GRAB_ON);
        break;
    case PointerCapture::release:
        SDL_ShowCursor(1);
        SDL_WM_GrabInput(SDL_GRAB_OFF);
        break;
    case PointerCapture::none: break;
    }

    if (ev.quit) clean_up_and_exit(0, "Window-close or <CTRL-C>. clean up!");
    if (ev.resize) {
        // Tiny windows are refused: buffers and image size keep their old values, and the
        // window goes back to the size it keeps.
        if (resize_allowed(ev.width, ev.height)) request_resize(ev.width, ev.height);
        else restore_display_size();
    }
    for (int i = 0; i < ev.releases; ++i) mouse_button_released();
}
