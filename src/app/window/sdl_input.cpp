// sdl_input.cpp — input_pump, the only reader of SDL input: once a frame (and on each polled line
// of a final pass) it samples the keys, the mouse buttons and motion, hands the sample to
// apply_input (src/app/controls.cpp, display-free), hides and grabs or shows and frees the
// pointer as that asks, and handles the events that matter: window close, resize and button
// releases. Part of the tavok program only; everything it changes is done in the library.
#include "core/core.h"
#include "app/controls.h"
#include "core/seam.h"
#include "app/window/window.h"

void input_pump()
{
    SDL_PumpEvents();
    const Uint8* keys = SDL_GetKeyState(nullptr);
    InputSample s;
    const Uint8 buttons = SDL_GetRelativeMouseState(&s.dx, &s.dy);
    const SDLMod mods = SDL_GetModState();
    s.left = buttons & SDL_BUTTON(SDL_BUTTON_LEFT);
    s.middle = buttons & SDL_BUTTON(SDL_BUTTON_MIDDLE);
    s.right = buttons & SDL_BUTTON(SDL_BUTTON_RIGHT);
    s.x = s.y = 0;
    if (s.left || s.right) SDL_GetMouseState(&s.x, &s.y);

    KeyStates& k = s.keys;
    k.print = keys[SDLK_p];
    k.forward = keys[SDLK_w] || keys[SDLK_UP];
    k.back = keys[SDLK_s] || keys[SDLK_DOWN];
    k.left = keys[SDLK_a] || keys[SDLK_LEFT];
    k.right = keys[SDLK_d] || keys[SDLK_RIGHT];
    k.down = keys[SDLK_r] || keys[SDLK_RCTRL];
    k.up = keys[SDLK_f] || keys[SDLK_KP0];
    k.more_steps = keys[SDLK_KP_PLUS];
    k.fewer_steps = keys[SDLK_KP_MINUS];
    k.finer = keys[SDLK_9];
    k.coarser = keys[SDLK_0];
    k.page_up = keys[SDLK_PAGEUP];
    k.page_down = keys[SDLK_PAGEDOWN];
    k.end = keys[SDLK_END];
    k.home = keys[SDLK_HOME];
    k.quit = keys[SDLK_ESCAPE] || keys[SDLK_q];
    k.left_shift = mods & KMOD_LSHIFT;
    k.right_shift = mods & KMOD_RSHIFT;

    switch (apply_input(s)) {
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

    SDL_Event event;
    while (SDL_PollEvent(&event)) {
        switch (event.type) {
        case SDL_QUIT: clean_up_and_exit(0, "Window-close or <CTRL-C>. clean up!");
        case SDL_VIDEORESIZE:
            // Tiny windows are refused: buffers and image size keep their old values.
            if (resize_allowed(event.resize.w, event.resize.h)) resize_display(event.resize.w, event.resize.h);
            break;
        case SDL_MOUSEBUTTONUP: mouse_button_released(); break;
        default: break;
        }
    }
}
