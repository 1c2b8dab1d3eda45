// app.h — the program's top: start-up, the frame loop with its preview and final protocol,
// the load path and the render-to-file sequence. It sits above every room and calls into all
// of them; no room calls back into it (the pass table it dispatches through is in passes.h).
//
// The display-free part (this header) is in the library, so that tavok, tavok-render, the
// tests and the benchmarks run the same start-up, load path and dispatch. main, the SDL
// window and the SDL input reader (src/app/window) belong to the tavok program only.
#pragma once
#include <cstdint>

// ---------------------------------------------------------------------------------------------
// Start-up (start.cpp).

// Steps 1 to 7 of start-up without the window and the panel: every start value of the
// settings table (main's rows; the panel's and the cut's rows too, as the panel and step 5
// set them), a window of w x h with its image buffers, the view constants, the slices and the
// start camera. The window program runs the same steps around init_display and
// init_control_panel; tavok-render, the tests and the benchmarks call this.
void start_library(uint32_t w, uint32_t h);
// Steps 5 to 7 of start-up, after the window and the panel stand: the cut shapes, the view
// constants, the slices and the start camera.
void start_view();
// The start frame: eye at the volume centre (integer halves, so the origin before a load),
// looking along -z with y up.
void set_start_camera();

// ---------------------------------------------------------------------------------------------
// The frame loop (frame.cpp).

// Frame loop state, written only by the frame loop.
extern int idle_clears;          // idle frames that cleared the buffers, up to 2
extern char fps_text[7];         // frames per second of the last four frames; nothing shows it
extern unsigned frame_times[4];  // the four slots of the frame counter
extern int frame_slot;

// One frame of the main loop, and the loop itself (never returns): frame after frame, with a
// wait for input between two frames while idle_wait_ms says there is nothing to do.
void frame();
[[noreturn]] void frame_loop();
// How long the loop may wait for input after a frame: 0 when the next frame has work (a
// preview or a load due, the occlusion worker running, a key or button held, a final pass
// that may start), the time left until the pause rule lets a due final start, and otherwise
// idle_wait_limit_ms (any event ends the wait sooner).
unsigned idle_wait_ms();
constexpr unsigned idle_wait_limit_ms = 1000;

// ---------------------------------------------------------------------------------------------
// The load path (load.cpp).

// The load path of a frame: takes the chooser's file name and loads it.
void serve_load_request();
// Everything the load path does with a name: the log, the loader chosen by the file's ending,
// then what follows every good load whatever the format (slices, editor, vol_diag, neutral
// occlusion, gradients, brick map, panel, camera, cut shapes). Returns false when the loader
// refused the file; then nothing changed.
bool load_volume_file(const char* path);
