// seam_null.h — what the window-less doors of seam.h let a program or a test control.
#pragma once

// The clock of ticks_ms(); delay_ms() advances it.
extern unsigned null_ticks;
// The next file name the "chooser" hands to the load path, or null.
extern const char* null_chooser_name;
// How many times gui_pump() ran, and the last value given to each progress bar.
extern unsigned null_gui_pumps;
extern double null_progress_render;
// The last text put into GUIrendertime and GUIvolDim.
extern char null_render_time[32];
extern char null_vol_dim[32];
// The text of the panel's load message line (empty: no line).
extern char null_load_message[8192];
