// seam_null_panel.cpp — the panel doors of seam.h for programs without a panel. Widgets keep
// no state, except that the sliders the load path reads report the values the panel starts
// with, so that a headless load computes the same cut shapes as the window's first load.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/headless/seam_null.h"
#include "core/seam.h"

const char* null_chooser_name = nullptr;
unsigned null_gui_pumps = 0;
double null_progress_render = 0.0;
double null_progress_shadow = 0.0;
double null_progress_smooth_shadow = 0.0;
char null_render_time[32];
char null_vol_dim[32];
char null_load_message[8192];

void (*null_pump_hook)() = nullptr;

void gui_pump()
{
    ++null_gui_pumps;
    if (null_pump_hook) null_pump_hook();
}

void set_progress(const char* name, double fraction)
{
    if (strcmp(name, "GUIprogressBar") == 0) null_progress_render = fraction;
    if (strcmp(name, "GUIprogressBarShadow") == 0) null_progress_shadow = fraction;
    if (strcmp(name, "GUIprogressBarSmoothenShadow") == 0) null_progress_smooth_shadow = fraction;
}

void set_entry_text(const char* name, const char* text, int max_length)
{
    if (strcmp(name, "GUIrendertime") == 0) snprintf(null_render_time, sizeof null_render_time, "%s", text);
    if (strcmp(name, "GUIvolDim") == 0) snprintf(null_vol_dim, sizeof null_vol_dim, "%s", text);
}

double widget_value(const char* name)
{
    // Start values of the sliders that the load path reads.
    if (strcmp(name, "GUISphereRSlider") == 0) return 0.3;
    return 0.0;
}

void set_widget_value(const char*, double) {}
void set_widget_active(const char*, int) {}
void set_spin_range(const char*, double, double) {}
void set_notebook_page(const char*, int) {}

char* take_chooser_filename()
{
    if (!null_chooser_name) return nullptr;
    char* name = strdup(null_chooser_name);
    null_chooser_name = nullptr;
    return name;
}

void set_chooser_filename(const char*) {}

void show_load_message(const char* text) { snprintf(null_load_message, sizeof null_load_message, "%s", text); }

int open_color_dialog(uint32_t)
{
    color_dialog_open = 1;
    return 1;
}
