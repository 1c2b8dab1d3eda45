// panel.h — the GTK+ 2 control panel: the widget tree, the registry of widget names, the
// dialogs, and the signal handlers that write the render settings.
//
// tavok executable only (links GTK). The library reaches the panel through seam.h, whose GTK
// side lives here too (seam_gtk.cpp).
#pragma once
#include <gtk/gtk.h>

extern GtkWidget* gui_window;       // the top-level panel window
extern GMainLoop* gui_main_loop;    // created running; only its running state is asked
extern int gui_destroyed;           // the panel window was destroyed
extern GtkWidget* GUIprogressBar;   // the four progress bars, kept by init_control_panel
extern GtkWidget* GUIprogressBarShadow;
extern GtkWidget* GUIprogressBarSmoothenShadow;
extern GtkWidget* GUIprogressBarSmoothenData;
// A file named on the command line: the chooser hands it to the first load request.
extern char* pending_load_name;

GtkWidget* build_control_panel();
void init_control_panel(int* argc, char*** argv);
GtkWidget* lookup_widget(GtkWidget* widget, const gchar* name);
GtkWidget* create_screenshot_dialog();
GtkWidget* create_color_dialog();
