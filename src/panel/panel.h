// panel.h — the GTK+ 2 control panel: the widget tree, the registry of widget names, the
// dialogs, and the signal handlers that write the render settings.
//
// tavok executable only (links GTK). The library reaches the panel through seam.h, whose GTK
// side lives here too (seam_gtk.cpp). Handlers run on the main thread inside gui_pump (also in
// the middle of a final pass) or at once when a seam door sets a widget's value.
#pragma once
#include <gtk/gtk.h>

#include <cstdint>

// Kept by init_control_panel; live to the end of the process.
extern GtkWidget* gui_window;       // the top-level panel window
extern GMainLoop* gui_main_loop;    // created running; only its running state is asked
extern int gui_destroyed;           // the panel window was destroyed
extern GtkWidget* GUIprogressBar;   // the four progress bars, kept by init_control_panel
extern GtkWidget* GUIprogressBarShadow;
extern GtkWidget* GUIprogressBarSmoothenShadow;
extern GtkWidget* GUIprogressBarSmoothenData;
// A file named on the command line: the chooser hands it to the first load request.
extern char* pending_load_name;
// The file name that the program itself last put into GUIloadvolume (malloc'ed), or null, and
// when (g_get_monotonic_time). The chooser reports such a name back as a selection within
// moments; that is no request to load it again.
extern char* chooser_echo;
extern gint64 chooser_echo_time;

// The widget tree, every widget registered on the window under its name, the handlers
// connected once it stands. Not yet shown.
// The pixel value of a colour on the system colormap (0x00RRGGBB on a true-colour display),
// allocated and freed again. False when the colormap can't give it.
bool color_pixel(GdkColor* colour, uint32_t* pixel);

GtkWidget* build_control_panel();
// Main loop state, gtk_init, the tree shown, the panel defaults (light colour and vector,
// isovalue) and their widgets, the chooser's file filters, the progress bars, the edge colour.
void init_control_panel(int* argc, char*** argv);
// The widget registered under name in the top-level window (or dialog) of widget; null and the
// warning "Widget not found: %s" when there is none.
GtkWidget* lookup_widget(GtkWidget* widget, const gchar* name);
// The save dialog of "Take Screenshot" and "Render to File", with its own registered names.
GtkWidget* create_screenshot_dialog();
GtkWidget* create_color_dialog();

// Connects every handler of the panel to its widget (handlers.cpp); build_control_panel calls
// it last.
void connect_panel_signals(GtkWidget* window);

// "clicked" of GUIstandardScreenshot: asks for a file name and saves the image area of the
// window surface (the first render_target.height rows) as PNG. Nothing without a volume.
void take_screenshot(GtkButton* button, gpointer);
// "clicked" of GUIscreenshotButton: asks for a file name and renders the view at 1024 x 1024
// into it (render_to_file_at). "no action performed" without a volume or an OK.
void render_to_file(GtkButton* button, gpointer);
