// input.cpp — input_pump, the only reader of SDL input: it samples keys and mouse once a
// frame (and on each polled line of a final pass) and handles the events that matter.
#include "core/core.h"
#include "core/seam.h"
#include "core/window/window.h"
#include "transfer/transfer.h"

void input_pump()
{
    SDL_PumpEvents();
    Uint8* keys = SDL_GetKeyState(nullptr);

    if (keys[SDLK_ESCAPE] || keys[SDLK_q]) clean_up_and_exit(0, "<ESC> or <q> pressed. clean up!\n");

    SDL_Event event;
    while (SDL_PollEvent(&event)) {
        switch (event.type) {
        case SDL_QUIT: clean_up_and_exit(0, "Window-close or <CTRL-C>. clean up!");
        case SDL_VIDEORESIZE:
            // Tiny windows are refused: buffers and image size keep their old values.
            if (resize_allowed(event.resize.w, event.resize.h)) resize_display(event.resize.w, event.resize.h);
            break;
        case SDL_MOUSEBUTTONUP:
            last_button_up = SDL_GetTicks();
            drag_color_node = nullptr;
            drag_opacity_node = nullptr;
            break;
        default: break;
        }
    }
}
