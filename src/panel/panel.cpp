// panel.cpp — the control panel window: its construction and start-up.
#include <cstdio>
#include <cstring>

#include "core/core.h"
#include "panel/panel.h"

GtkWidget* gui_window = nullptr;
GMainLoop* gui_main_loop = nullptr;
int gui_destroyed = 0;
GtkWidget* GUIprogressBar = nullptr;
GtkWidget* GUIprogressBarShadow = nullptr;
GtkWidget* GUIprogressBarSmoothenShadow = nullptr;
GtkWidget* GUIprogressBarSmoothenData = nullptr;
char* pending_load_name = nullptr;

GtkWidget* build_control_panel()
{
    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_widget_set_size_request(window, 475, -1);
    gtk_window_set_default_size(GTK_WINDOW(window), 100, -1);
    gtk_window_set_title(GTK_WINDOW(window), "tavok by Mara Quill");
    g_object_set_data(G_OBJECT(window), "GUIwindow", window);
    return window;
}

static gboolean on_window_destroy(GtkWidget*, gpointer)
{
    gui_destroyed = 1;
    g_print("delete event occured\n");
    return TRUE;
}

void init_control_panel(int* argc, char*** argv)
{
    gui_main_loop = g_main_loop_new(nullptr, TRUE);
    gui_destroyed = 0;
    gui_active = 1;
    gtk_set_locale();
    gtk_init(argc, argv);
    gui_window = build_control_panel();
    gtk_widget_show(gui_window);
    g_signal_connect(G_OBJECT(gui_window), "destroy", G_CALLBACK(on_window_destroy), nullptr);
    color_dialog_open = 0;
    last_volume_path[0] = 0;
    set_panel_defaults();
}
