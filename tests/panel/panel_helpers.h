// panel_helpers.h — the real control panel, in-process, under an X server of its own: a test
// fixture that builds a fresh panel for every test, and the calls that a user's clicks cause.
//
// The panel binary links the GTK panel, the display-free library and the window-less display
// doors (no SDL window: flips and input do nothing, the clock is null_ticks).
#pragma once
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

#include "app/app.h"
#include "app/passes.h"
#include "core/core.h"
#include "core/headless/seam_null.h"
#include "panel/panel.h"
#include "slices/slices.h"
#include "volume/volume.h"

inline GtkWidget* W(const char* name) { return lookup_widget(gui_window, name); }

inline bool is_active(const char* name) { return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(W(name))); }
// A click on a check box, toggle or radio button that ends with it in the given state.
inline void set_active(const char* name, bool on) { gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(W(name)), on); }
// A click that flips a check box or toggle button.
inline void click(const char* name) { gtk_button_clicked(GTK_BUTTON(W(name))); }
// A slider dragged or a spin button typed into.
inline void set_value(const char* name, double v)
{
    GtkWidget* w = W(name);
    if (GTK_IS_SPIN_BUTTON(w)) gtk_spin_button_set_value(GTK_SPIN_BUTTON(w), v);
    else gtk_range_set_value(GTK_RANGE(w), v);
}
inline double get_value(const char* name)
{
    GtkWidget* w = W(name);
    if (GTK_IS_SPIN_BUTTON(w)) return gtk_spin_button_get_value(GTK_SPIN_BUTTON(w));
    return gtk_range_get_value(GTK_RANGE(w));
}
inline void set_page(const char* name, int page) { gtk_notebook_set_current_page(GTK_NOTEBOOK(W(name)), page); }
inline int get_page(const char* name) { return gtk_notebook_get_current_page(GTK_NOTEBOOK(W(name))); }
inline std::string entry_text(const char* name) { return gtk_entry_get_text(GTK_ENTRY(W(name))); }
// A click into a widget: it takes the keyboard focus, as a slider does when pressed.
inline void focus(const char* name) { gtk_widget_grab_focus(W(name)); }

// Runs whatever GTK has queued (idle work of the widgets), without blocking.
inline void drain_events()
{
    while (gtk_events_pending()) gtk_main_iteration_do(FALSE);
}

// An empty grid of the given sizes, as a loaded volume would leave it, for the handlers that
// scale by the sizes or the diagonal.
inline void fake_volume(uint32_t X, uint32_t Y, uint32_t Z)
{
    free(voxels);
    voxels = (uint32_t*)calloc((size_t)X * Y * Z, 4);
    vol_x = X, vol_y = Y, vol_z = Z;
    vol_diag = sqrtf((float)(X * X + Y * Y + Z * Z));
    volume_loaded = 1;
}

// Every test starts from a program just started: defaults, a 512 x 512 window's buffers, no
// volume, and a panel built anew with its handlers connected.
class Panel : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (gui_window) {
            gtk_widget_destroy(gui_window);
            gui_window = nullptr;
            drain_events();
        }
        set_default_settings();
        free(voxels);
        voxels = nullptr;
        vol_x = vol_y = vol_z = 0;
        vol_diag = 0.0f;
        volume_loaded = 0;
        window_width = window_height = 512;
        alloc_frame_buffers(512, 409, 409);
        compute_view_constants();
        set_start_camera();
        final_pending = 0;
        null_ticks = 0;
        static int argc = 1;
        static char name[] = "tavok_panel_tests";
        static char* args[] = {name, nullptr};
        static char** argv = args;
        init_control_panel(&argc, &argv);
        // The rest of main's start: the cut shapes, the view, the slices (their sliders'
        // handlers run) and the camera.
        start_view();
        drain_events();
        refresh = 0;
    }
};
