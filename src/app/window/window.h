// window.h — the SDL window of the tavok program: surface, cursors, resize. Not in the
// display-free library; the library reaches it through seam.h.
#pragma once
#include <SDL.h>

extern SDL_Surface* screen;  // 32 bits per pixel, its pixels are what the user sees
extern SDL_Cursor* cursor_cross;
extern SDL_Cursor* cursor_ring;
extern SDL_Cursor* sdl_cursor_default;

void init_display(int width, int height, int depth, int fullscreen);
void resize_display(int width, int height);
// After a refused resize (100 pixels or less on a side): the window takes back the size of the
// image it keeps, quietly, and the picture is drawn anew.
void restore_display_size();
// A resize asked for by the window manager: carried out now, or held back until a running
// render to file restores the window (restore_window_size).
void request_resize(int width, int height);
SDL_Cursor* make_cursor(const char* const* image);
