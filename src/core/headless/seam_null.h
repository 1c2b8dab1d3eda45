// seam_null.h — what the window-less doors of seam.h let a program or a test control.
#pragma once
#include <atomic>

// The clock of ticks_ms(); delay_ms() advances it. Atomic, since the occlusion worker reads it.
extern std::atomic<unsigned> null_ticks;
// The next file name the "chooser" hands to the load path, or null.
extern const char* null_chooser_name;
// When set, gui_pump() calls it, as if the user did something in the panel during that pump.
extern void (*null_pump_hook)();
// How many times gui_pump() ran, and the last value given to each progress bar.
extern unsigned null_gui_pumps;
extern double null_progress_render;
extern double null_progress_shadow;          // GUIprogressBarShadow
extern double null_progress_smooth_shadow;   // GUIprogressBarSmoothenShadow
// While set, a worker started through start_thread waits before it runs until wait_thread is
// called for it, so that a test can act while it certainly has not begun: a worker that is
// waited for always runs.
extern std::atomic<int> null_hold_worker;
// The last text put into GUIrendertime and GUIvolDim.
extern char null_render_time[32];
extern char null_vol_dim[32];
// The text of the panel's load message line (empty: no line).
extern char null_load_message[8192];
