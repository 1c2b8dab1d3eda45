// render_file.cpp — "Render to File": the current view rendered afresh at 1024 x 1024, whatever
// the window's size, and saved as PNG. The panel's handler asks for the name; this is the rest.
//
// Swaps the frame buffers for a 1024 x 1024 set with offscreen_render set, so that every pass
// shows its image in offscreen_pixels, renders through the pass table (the preview, then the
// final of render_mode and interp_mode; view_kind plays no part, so the abstract view never
// reaches a file), writes the file and gives the window its size and buffers back, which asks
// for a fresh picture. The final passes pump the interface on their polled lines as always; a
// change made there ends the final early, as it would on screen, and the file keeps what was
// done by then.
#include <cstdio>

#include "app/app.h"
#include "app/passes.h"
#include "core/core.h"
#include "core/seam.h"
#include "output/png.h"

constexpr uint32_t file_side = 1024;

void render_to_file_at(const char* path)
{
    offscreen_render = 1;
    alloc_frame_buffers(file_side, file_side, file_side);
    compute_view_constants();
    prepare_preview_vectors();
    // A change still waiting for its preview would end the final at its first polled line and
    // leave a preview in the file: the window's restore below asks for that picture anyway.
    refresh = 0;
    run_preview();
    if (mode_is_rendered(render_mode) && find_pass(render_mode)->final) run_final();
    png_write_image(path, offscreen_pixels, (int)file_side, (int)file_side);
    restore_window_size();
    puts("saved the file");
    offscreen_render = 0;
}
