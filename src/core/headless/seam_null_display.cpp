// seam_null_display.cpp — the window doors of seam.h for programs without a window
// (tavok-render, tests, benchmarks). There is no input, the clock is null_ticks, which tests
// may set, and a flip shows nothing.
#include "core/core.h"
#include "core/seam.h"
#include "core/headless/seam_null.h"

unsigned null_ticks = 0;

void input_pump() {}
unsigned ticks_ms() { return null_ticks; }
void delay_ms(unsigned ms) { null_ticks += ms; }
void flip_display() {}
void close_display() {}
void release_pointer() {}

void restore_window_size()
{
    alloc_frame_buffers(window_width, window_height * 4 / 5, window_height);
    compute_view_constants();
    refresh = 1;
}
