// frame.cpp — the frame loop: the one main loop of the program, its preview and final
// protocol, the load path and the dispatch to the render passes.
//
// Owns final_pending, volume_loaded, idle_clears, the frame counter, vol_diag and
// last_volume_path. Everything that changes the picture sets refresh; only the dispatch here
// renders (and render to file, which runs the passes itself).
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "raycast/raycast.h"
#include "slices/slices.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

int final_pending = 0;
int volume_loaded = 0;
int idle_clears = 0;
char fps_text[7];
unsigned frame_times[4];
int frame_slot = 0;
float vol_diag = 0.0f;
float vol_diag_sq = 0.0f;
char last_volume_path[4096];
int gui_active = 0;
int color_dialog_open = 0;

// Clears color and depth, and mask in whole 32-bit words: width * height / 4 of them, so up
// to three trailing bytes of mask keep their value.
static void clear_frame_buffers()
{
    size_t pixels = (size_t)render_target.width * render_target.height;
    memset(render_target.color, 0, pixels * 4);
    memset(render_target.depth, 0, pixels * 4);
    memset(render_target.mask, 0, pixels / 4 * 4);
}

// The dispatch table: one case per mode in each of the three switches.
bool mode_is_rendered(int mode)
{
    switch (mode) {
    case 0: return true;
    case 12: return true;
    default: return false;
    }
}

void run_preview()
{
    switch (render_mode) {
    case 0:
        render_cuberille_preview(&render_target, voxels, ipos, ifor, iup, istr);
        break;
    case 12: render_slices(&render_target, voxels); break;
    default: break;
    }
}

bool run_final()
{
    switch (render_mode) {
    case 0:
        // interp_mode is not looked at: the cuberille has no interpolating final.
        render_cuberille_final(&render_target, voxels, ipos, ifor, iup, istr);
        return true;
    default: return false;
    }
}

// Previews of modes 0 to 10 leave a final pass due; the slice view and the abstract view don't.
static void preview_path()
{
    if (volume_loaded && !load_requested) {
        for (int i = 0; i < 3; ++i) view_dir[i] = ifor[i];
        normalize3(view_dir);
        for (int i = 0; i < 3; ++i) half_vector[i] = light_dir[i] + view_dir[i];
        normalize3(half_vector);
        if (mode_is_rendered(render_mode)) {
            run_preview();
            if (render_mode <= 10) final_pending = 1;
        }
    }
    refresh = 0;
}

// Modes 4 to 10 wait until a double click in the editor strip is more than 350 ms old, so
// that a node can be placed without a slow final pass in between.
bool pause_rule_met()
{
    bool waits = render_mode == 4 || render_mode == 6 || render_mode == 8 || render_mode == 10;
    return !waits || ticks_ms() - last_double_click > 350u;
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
    if (render_mode <= 10 && final_pending && pause_rule_met()) {
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

void frame_loop()
{
    for (;;) frame();
}

static bool ends_with(const char* name, const char* tail)
{
    size_t n = strlen(name), m = strlen(tail);
    return n >= m && memcmp(name + n - m, tail, m) == 0;
}

bool load_volume_file(const char* path)
{
    char previous_path[sizeof last_volume_path];
    memcpy(previous_path, last_volume_path, sizeof previous_path);
    snprintf(last_volume_path, sizeof last_volume_path, "%s", path);
    printf("%s\n", path);
    flip_display();

    // Only the exact lower and upper case endings choose a palette loader; everything else,
    // .Kvx included, is read as .dat.
    bool loaded;
    if (ends_with(path, ".kvx") || ends_with(path, ".KVX")) {
        puts("it's a *.KVX");
        stop_shadow_thread();
        loaded = false;  // palette volumes are not read by this build
        printf("can't read %s: palette volumes are not supported yet\n", path);
    } else if (ends_with(path, ".vox") || ends_with(path, ".VOX")) {
        puts("it's a *.VOX");
        stop_shadow_thread();
        loaded = false;
        printf("can't read %s: palette volumes are not supported yet\n", path);
    } else {
        stop_shadow_thread();
        loaded = load_dat_volume(path);
    }
    if (!loaded) {
        // The file was refused before the old volume was touched: keep everything as it was.
        memcpy(last_volume_path, previous_path, sizeof previous_path);
        return false;
    }

    vol_diag = sqrtf((float)(vol_x * vol_x + vol_y * vol_y + vol_z * vol_z));
    fill_occlusion(0x80);
    calc_gradients();
    build_block_map();

    set_spin_range("GUIsliceD", -vol_diag, vol_diag);
    set_notebook_page("GUIrendermodeTabs", 0);
    ipos[0] = (float)(vol_x / 2);
    ipos[1] = (float)(vol_y / 2);
    ipos[2] = (float)(vol_z / 2);
    reset_slices();
    set_widget_active("GUIsliceXY", 1);
    refresh = 1;

    // The cut shapes follow the sliders, scaled by the new diagonal.
    cut_plane_d = -0.5f * vol_diag + (float)widget_value("GUICuttingPlaneD") * 2.0f * vol_diag;
    cut_sphere_center[0] = (float)widget_value("GUISphereXSlider") * vol_diag;
    cut_sphere_center[1] = (float)widget_value("GUISphereYSlider") * vol_diag;
    cut_sphere_center[2] = (float)widget_value("GUISphereZSlider") * vol_diag;
    float r = (float)widget_value("GUISphereRSlider") * vol_diag;
    cut_sphere_r2 = r * r;
    vol_diag_sq = vol_diag * vol_diag;
    return true;
}

void serve_load_request()
{
    refresh = 0;
    final_pending = 0;
    set_progress("GUIprogressBar", 0.0);
    char* name = take_chooser_filename();
    if (!name) set_chooser_filename(last_volume_path);
    else {
        load_volume_file(name);
        free(name);
    }
    load_requested = 0;
    set_progress("GUIprogressBar", 0.0);
    vol_diag_sq = vol_diag * vol_diag;
}
