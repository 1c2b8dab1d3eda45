// display.cpp — the SDL window: opening, resizing (and going back to its size after a refused
// resize), cursors, icon, and the window doors of seam.h (clock, flip, the wait for input of
// either window, closing, the occlusion worker's thread). Owns screen and the cursors; the
// frame buffers it sizes belong to render_state.cpp.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <SDL_syswm.h>
#include <glib-unix.h>
#include <glib.h>

#include "core/core.h"
#include "core/seam.h"
#include "app/window/window.h"
#include "transfer/transfer.h"

SDL_Surface* screen = nullptr;
SDL_Cursor* cursor_cross = nullptr;
SDL_Cursor* cursor_ring = nullptr;
SDL_Cursor* sdl_cursor_default = nullptr;

SDL_Cursor* make_cursor(const char* const* image)
{
    uint8_t data[128], mask[128];
    cursor_bit_planes(image, data, mask);
    // The hot-spot line is read but not used: every cursor gets the hot spot (15, 14).
    int hot_x = 0, hot_y = 0;
    sscanf(image[36], "%d,%d", &hot_x, &hot_y);
    return SDL_CreateCursor(data, mask, 32, 32, 15, 14);
}

void init_display(int width, int height, int depth, int fullscreen)
{
    if (SDL_Init(SDL_INIT_VIDEO) < 0) {
        // Almost always no X display (main asks SDL for X11 only): say so in the same line.
        const char* display = getenv("DISPLAY");
        clean_up_and_exit(1, "Couldn't initialize SDL: %s: tavok needs an X display (DISPLAY %s%s); "
                          "tavok-render renders a volume to a PNG without one\n", SDL_GetError(),
                          display ? "is " : "is not set", display ? display : "");
    }
    screen = SDL_SetVideoMode(width, height, depth, SDL_RESIZABLE);
    if (!screen)
        clean_up_and_exit(1, "Couldn't set %dx%dx%d video mode: %s\n", width, height, depth,
                          SDL_GetError());
    printf("Set%s %dx%dx%d video mode\n", fullscreen == 1 ? " fullscreen" : "", width, height, depth);
    screen_pixels = (uint32_t*)screen->pixels;

    alloc_frame_buffers(width, height * 4 / 5, height * 4 / 5);

    SDL_WM_SetCaption("tavok by Mara Quill", "tavok");
    SDL_EnableKeyRepeat(500, 30);

    sdl_cursor_default = SDL_GetCursor();
    cursor_cross = make_cursor(cursor_cross_image);
    SDL_SetCursor(cursor_cross);
    cursor_ring = make_cursor(cursor_ring_image);

    // The icon's bytes are red, green, blue; the surface's masks read a little-endian 24-bit
    // value, whose top byte (red) is the third in memory, so each pixel is turned around.
    SDL_Surface* icon = SDL_CreateRGBSurface(0, 32, 32, 24, 0xff0000, 0xff00, 0xff, 0);
    if (icon) {
        for (int y = 0; y < 32; ++y) {
            uint8_t* row = (uint8_t*)icon->pixels + y * icon->pitch;
            for (int x = 0; x < 32; ++x) {
                const uint8_t* p = window_icon + (y * 32 + x) * 3;
                row[x * 3 + 0] = p[2];
                row[x * 3 + 1] = p[1];
                row[x * 3 + 2] = p[0];
            }
        }
        SDL_WM_SetIcon(icon, nullptr);
    }
    pencil_mask_x = pencil_mask_y = 63;
}

void resize_display(int w, int h)
{
    int bits = screen->format->BitsPerPixel;
    Uint32 flags = screen->flags;
    window_width = w;
    window_height = h;
    screen = SDL_SetVideoMode(w, h, bits, flags);
    if (!screen)
        clean_up_and_exit(1, "Resize: couldn't set %dx%dx%d video mode: %s\n", w, h, bits, SDL_GetError());
    printf("RESIZED: desired: %d %d  actually: %d %d\n", w, h, screen->w, screen->h);
    screen_pixels = (uint32_t*)screen->pixels;

    // Sized by the whole window height, although the image takes four fifths of it.
    alloc_frame_buffers(w, h * 4 / 5, h);
    compute_view_constants();

    if (volume_loaded) {
        tf_height = window_height - render_target.height;
        tf_width = window_width;
        free(tf_pixels);
        tf_pixels = (uint32_t*)malloc((size_t)tf_width * tf_height * 4);
        if (!tf_pixels) clean_up_and_exit(0, "out of mem\n");
        for (int i = 0; i < tf_width * tf_height; ++i) tf_pixels[i] = 0xcccccc;
        draw_tf_backdrop();
    }
    refresh = 1;
}

void restore_display_size()
{
    // The X window was made smaller than the image it keeps. Left so, a grab would warp the
    // pointer to the middle of the image, outside the window, and SDL would wait for that
    // motion forever: the window goes back to its size instead, and its picture is drawn anew
    // (after a render to file, which must not be broken off, as any resize then).
    if (offscreen_render) {
        request_resize(screen->w, screen->h);
        return;
    }
    int bits = screen->format->BitsPerPixel;
    int w = screen->w, h = screen->h;
    screen = SDL_SetVideoMode(w, h, bits, screen->flags);
    if (!screen)
        clean_up_and_exit(1, "Resize: couldn't set %dx%dx%d video mode: %s\n", w, h, bits, SDL_GetError());
    screen_pixels = (uint32_t*)screen->pixels;
    refresh = 1;
}

// A resize that comes while a render to file holds the 1024 x 1024 buffers (the final passes
// pump input on their polled lines) would free them under the pass: it waits for the end.
static int held_width = 0, held_height = 0;

void request_resize(int w, int h)
{
    if (!offscreen_render) {
        resize_display(w, h);
        return;
    }
    held_width = w;
    held_height = h;
}

void restore_window_size()
{
    int w = held_width ? held_width : screen->w, h = held_height ? held_height : screen->h;
    held_width = held_height = 0;
    resize_display(w, h);
}

// The SDL window's X connection, watched by the GTK main context while the loop waits: the one
// sleep wakes for input of either window. 0 until the first wait.
static guint sdl_connection_watch = 0;

static gboolean on_sdl_connection(gint, GIOCondition, gpointer) { return TRUE; }
static gboolean on_wait_over(gpointer over)
{
    *(bool*)over = true;
    return FALSE;
}

void wait_for_input(unsigned ms)
{
    if (!sdl_connection_watch) {
        SDL_SysWMinfo info;
        SDL_VERSION(&info.version);
        if (SDL_GetWMInfo(&info) <= 0 || info.subsystem != SDL_SYSWM_X11) {
            // A driver without an X connection: sleep a little between frames at least.
            SDL_Delay(ms < 10 ? ms : 10);
            return;
        }
        sdl_connection_watch = g_unix_fd_add(ConnectionNumber(info.info.x11.display), G_IO_IN,
                                             on_sdl_connection, nullptr);
    }
    // Events that SDL has read from the connection already (a flip reads what has come) would
    // never show on it again: take them in first, and don't sleep when there are any.
    SDL_PumpEvents();
    SDL_Event event;
    if (SDL_PeepEvents(&event, 1, SDL_PEEKEVENT, SDL_ALLEVENTS) > 0) return;
    bool over = false;
    guint timer = g_timeout_add(ms, on_wait_over, &over);
    g_main_context_iteration(nullptr, TRUE);
    if (!over) g_source_remove(timer);
}

unsigned ticks_ms() { return SDL_GetTicks(); }

// The handle is SDL's own thread record behind the opaque name of seam.h.
WorkerThread* start_thread(int (*body)(void*))
{
    return reinterpret_cast<WorkerThread*>(SDL_CreateThread(body, nullptr));
}

void wait_thread(WorkerThread* thread)
{
    if (thread) SDL_WaitThread(reinterpret_cast<SDL_Thread*>(thread), nullptr);
}
void delay_ms(unsigned ms) { SDL_Delay(ms); }
void flip_display() { SDL_Flip(screen); }

void close_display()
{
    if (sdl_cursor_default) SDL_SetCursor(sdl_cursor_default);
    if (cursor_cross) SDL_FreeCursor(cursor_cross);
    if (cursor_ring) SDL_FreeCursor(cursor_ring);
    SDL_Quit();
}
