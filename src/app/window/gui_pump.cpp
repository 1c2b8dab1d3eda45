// gui_pump.cpp — one non-blocking turn of the GTK main context, plus the checks that end the
// program when the panel is gone and that track whether the panel has the focus.
#include "core/core.h"
#include "core/seam.h"
#include "panel/panel.h"

void gui_pump()
{
    g_main_context_iteration(nullptr, FALSE);
    if (!g_main_loop_is_running(gui_main_loop)) {
        g_main_loop_quit(gui_main_loop);
        clean_up_and_exit(0, "GUI - clean up!\n");
    }
    if (gui_destroyed) clean_up_and_exit(0, "GUI - clean up!\n");
    gui_active = gtk_window_is_active(GTK_WINDOW(gui_window)) ? 1 : 0;
}
