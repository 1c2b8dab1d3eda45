// seam.h — the library's only doors into the two windows.
//
// The display-free library calls these plain functions where the program touches the SDL
// window or the GTK panel: the two event pumps, the clock, the flip, the progress bars and
// the few widgets that the load path and the slices set. The tavok executable implements them
// with SDL (src/core/display.cpp, src/core/input.cpp) and GTK (src/panel); tavok-render, the
// tests and the benchmarks link seam_null.cpp, where they do nothing, the clock is a variable
// and the sliders report their start values.
//
// None of these is called inside a ray or a pixel loop: the passes call the pumps and the
// progress bar once per polled line.
#pragma once
#include <cstdint>

// Event pumps: one GTK iteration with the window checks, and the SDL input step.
void gui_pump();
void input_pump();

// Milliseconds since start (SDL_GetTicks), a short sleep (SDL_Delay), SDL_Flip of the window.
// ticks_ms may be called from the occlusion worker too.
unsigned ticks_ms();
void delay_ms(unsigned ms);
void flip_display();
// Sleeps until either window has something to deliver (input, a repaint, a panel timer or
// idle task; the panel's handlers then run inside) or ms milliseconds have passed. The frame
// loop calls it between frames when there is nothing to do.
void wait_for_input(unsigned ms);
// The SDL part of the exit: default cursor back, both cursors freed, SDL_Quit.
void close_display();
// A dialog is opening over the windows: the image window gives back the pointer grab and the
// hidden cursor, and forgets the buttons held in it (their release will go to the dialog).
// The panel calls it for every dialog it maps.
void release_pointer();
// Gives the frame back its window's size after a render to file: resize_display with the
// window surface's present size, or with the size of a resize that came meanwhile and was held
// back. Without a window: the buffers of window_width x window_height, as a resize makes them.
// Either way refresh is set.
void restore_window_size();

// The occlusion worker's thread (SDL_CreateThread and SDL_WaitThread in the window program, a
// std::thread without it): start_thread runs body(nullptr) on a new thread; wait_thread waits
// until that body has returned and releases the handle, which must not be used again. A null
// handle waits for nothing. Both are called on the main thread only.
struct WorkerThread;
WorkerThread* start_thread(int (*body)(void*));
void wait_thread(WorkerThread* thread);

// Widgets by their registered name. Progress bars take a fraction; entries a text, with
// max_length > 0 also setting the entry's maximum length first; ranges and spin buttons a
// value; toggle and radio buttons an active state; notebooks a page. Setting a value runs
// the widget's handler at once, as a user's change would.
void set_progress(const char* name, double fraction);
void set_entry_text(const char* name, const char* text, int max_length);
double widget_value(const char* name);
void set_widget_value(const char* name, double value);
void set_widget_active(const char* name, int active);
void set_spin_range(const char* name, double lo, double hi);
void set_notebook_page(const char* name, int page);

// The file chooser GUIloadvolume: its file name (malloc'ed, the caller frees it) or null,
// and setting its file name (an empty name leaves it with none).
char* take_chooser_filename();
void set_chooser_filename(const char* path);
// The line under the volume's sizes in the panel: why the latest file was refused, in the
// words of the log line; an empty text takes the line away.
void show_load_message(const char* text);

// The colour dialog of the editor strip: creates it, starts it at this colour and shows it,
// setting color_dialog_open. Returns 0 when the colour can't be allocated ("GTK+ color alloc
// failed!"): the dialog then stays hidden.
int open_color_dialog(uint32_t color);
