// seam_gtk.cpp — the panel doors of seam.h in the tavok program: widgets by their registered
// names. A name that the panel doesn't have is passed over in silence. Setting a value or an
// active state runs the widget's handler at once, as a user's change would. Owns chooser_echo.
//
// Called by the library (load path, slices, input, long operations) on the main thread only.
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "panel/panel.h"

static GtkWidget* find(const char* name)
{
    if (!gui_window) return nullptr;
    return (GtkWidget*)g_object_get_data(G_OBJECT(gui_window), name);
}

void set_progress(const char* name, double fraction)
{
    GtkWidget* w = find(name);
    if (w) gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(w), fraction);
}

void set_entry_text(const char* name, const char* text, int max_length)
{
    GtkWidget* w = find(name);
    if (!w) return;
    if (max_length > 0) gtk_entry_set_max_length(GTK_ENTRY(w), max_length);
    gtk_entry_set_text(GTK_ENTRY(w), text);
}

double widget_value(const char* name)
{
    GtkWidget* w = find(name);
    if (!w) return 0.0;
    if (GTK_IS_SPIN_BUTTON(w)) return gtk_spin_button_get_value(GTK_SPIN_BUTTON(w));
    if (GTK_IS_RANGE(w)) return gtk_range_get_value(GTK_RANGE(w));
    return 0.0;
}

void set_widget_value(const char* name, double value)
{
    GtkWidget* w = find(name);
    if (!w) return;
    if (GTK_IS_SPIN_BUTTON(w)) gtk_spin_button_set_value(GTK_SPIN_BUTTON(w), value);
    else if (GTK_IS_RANGE(w)) gtk_range_set_value(GTK_RANGE(w), value);
}

void set_widget_active(const char* name, int active)
{
    GtkWidget* w = find(name);
    if (w && GTK_IS_TOGGLE_BUTTON(w)) gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(w), active);
}

void set_spin_range(const char* name, double lo, double hi)
{
    GtkWidget* w = find(name);
    if (w && GTK_IS_SPIN_BUTTON(w)) gtk_spin_button_set_range(GTK_SPIN_BUTTON(w), lo, hi);
}

void set_notebook_page(const char* name, int page)
{
    GtkWidget* w = find(name);
    if (w && GTK_IS_NOTEBOOK(w)) gtk_notebook_set_current_page(GTK_NOTEBOOK(w), page);
}

char* chooser_echo = nullptr;
gint64 chooser_echo_time = 0;

// Puts a file name into the chooser for the user to see, and remembers it: the chooser reports
// it back as a selection a moment later, which its handler then passes over.
static void show_in_chooser(GtkWidget* chooser, const char* path)
{
    free(chooser_echo);
    chooser_echo = strdup(path);
    chooser_echo_time = g_get_monotonic_time();
    gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(chooser), path);
}

char* take_chooser_filename()
{
    // A file named on the command line goes first; the chooser shows it from then on.
    if (pending_load_name) {
        char* name = pending_load_name;
        pending_load_name = nullptr;
        if (GtkWidget* w = find("GUIloadvolume")) show_in_chooser(w, name);
        return name;
    }
    GtkWidget* w = find("GUIloadvolume");
    if (!w) return nullptr;
    gchar* name = gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(w));
    if (!name) return nullptr;
    char* copy = strdup(name);
    g_free(name);
    return copy;
}

void set_chooser_filename(const char* path)
{
    GtkWidget* w = find("GUIloadvolume");
    if (!w) return;
    if (path[0]) {
        show_in_chooser(w, path);
        return;
    }
    // No file on screen: the chooser shows none either. It reports that back too.
    free(chooser_echo);
    chooser_echo = strdup("");
    chooser_echo_time = g_get_monotonic_time();
    gtk_file_chooser_unselect_all(GTK_FILE_CHOOSER(w));
}

void show_load_message(const char* text)
{
    GtkWidget* w = find("GUIloadMessage");
    if (!w) return;
    gtk_label_set_text(GTK_LABEL(w), text);
    gtk_widget_set_tooltip_text(w, text[0] ? text : nullptr);
    if (text[0]) gtk_widget_show(w);
    else gtk_widget_hide(w);
}
