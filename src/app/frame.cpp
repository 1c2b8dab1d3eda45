// frame.cpp — the frame loop: the one main loop of the program and its preview and final
// protocol. Each frame pumps both event sources, clears the buffers where the protocol asks,
// serves a load request and runs at most one pass, through the pass table (passes.h).
//
// Owns idle_clears and the frame counter; writes final_pending and refresh. Everything that
// changes the picture sets refresh; only the dispatch renders (and render to file, which runs
// the passes itself).
//
// Between frames the loop sleeps while there is nothing to do: no preview or load due, no
// final that may run, no worker, no key or button held. It waits for the next event of either
// window (input, a repaint, a panel timer) and runs the next frame at once when one comes, so
// a preview follows input as soon as it would have without the wait. A loop that ran frame
// after frame to find nothing new cost a whole core with the panel focused (where the frame's
// own 2 ms pause doesn't apply) and much of one without.
#include <cstdio>

#include "app/app.h"
#include "app/controls.h"
#include "app/passes.h"
#include "core/core.h"
#include "core/seam.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

int idle_clears = 0;
char fps_text[7];
unsigned frame_times[4];
int frame_slot = 0;

// A preview of a mode that has a final pass leaves that final due; the slice view doesn't.
static void preview_path()
{
    if (volume_loaded && !load_requested) {
        prepare_preview_vectors();
        if (view_kind == view_abstract) {
            // In place of the mode's preview; it leaves final_pending as it was, so a final
            // that was due still follows and draws over it.
            render_abstract_view(&render_target, voxels, ipos, ifor, iup, istr);
        } else if (mode_is_rendered(render_mode)) {
            run_preview();
            if (find_pass(render_mode)->final) final_pending = 1;
        }
    }
    refresh = 0;
}

static void final_path()
{
    if (refresh) {
        preview_path();
        return;
    }
    if (!volume_loaded || color_dialog_open || load_requested) return;
    set_progress("GUIprogressBar", 0.0);
    bool ran = false;
    const RenderPass* row = find_pass(render_mode);
    if (row && row->final && final_pending && pause_rule_met()) {
        unsigned t0 = ticks_ms();
        ran = run_final();
        char text[16];
        snprintf(text, 15, "%9.2f sec", (ticks_ms() - t0) * 0.001);
        set_entry_text("GUIrendertime", text, 0);
        final_pending = 0;
    }
    if (!ran && !gui_active) delay_ms(2);
    set_progress("GUIprogressBar", 0.0);
}

void frame()
{
    unsigned frame_start = ticks_ms();
    if (!refresh && !final_pending && idle_clears < 2) {
        clear_frame_buffers();
        idle_clears += 1;
    }
    gui_pump();
    set_progress("GUIprogressBarShadow", shadow_progress);
    input_pump();
    if (refresh) {
        idle_clears = 0;
        set_progress("GUIprogressBar", 0.0);
    }
    if (!final_pending || refresh) clear_frame_buffers();
    clamp_forward();
    if (volume_loaded) draw_tf_overlay();
    if (load_requested) serve_load_request();

    // While the panel lacks the focus the strip holds nothing back; with the focus, a left
    // button held on the strip holds back previews and finals until it is released.
    if (!gui_active && volume_loaded) final_path();
    else if (refresh && !left_on_editor) preview_path();
    else if (final_pending && !left_on_editor) final_path();

    flip_display();

    frame_times[frame_slot++] = ticks_ms() - frame_start;
    if (frame_slot == 4) {
        unsigned sum = frame_times[0] + 1 + frame_times[1] + frame_times[2] + frame_times[3];
        snprintf(fps_text, 7, "%4.2f", 4000.0 / sum);
        frame_slot = 0;
    }
}

unsigned idle_wait_ms()
{
    // Work for the very next frame: a preview or a load due, a worker whose progress shows,
    // a key or a button held (they act with time, or on every frame).
    if (refresh || load_requested || shadow_running || input_held()) return 0;
    // A final pass that may start now runs in the next frame; one held back by the colour
    // dialog waits for it to close, which is an event.
    const RenderPass* row = find_pass(render_mode);
    if (volume_loaded && !color_dialog_open && final_pending && row && row->final) {
        if (pause_rule_met()) return 0;
        // The pause rule starts the final 351 ms after the last double click.
        const unsigned waited = ticks_ms() - last_double_click;
        return waited < 351u ? 351u - waited : 1u;
    }
    return idle_wait_limit_ms;
}

void frame_loop()
{
    for (;;) {
        frame();
        if (unsigned ms = idle_wait_ms()) wait_for_input(ms);
    }
}

