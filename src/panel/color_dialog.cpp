// color_dialog.cpp — the colour selection dialog of the editor strip: its construction
// (create_color_dialog), the GTK side of open_color_dialog (seam.h), and the handlers that
// read the colour from GTK and hand it to the strip's dialog logic (transfer.h).
//
// tavok program only. The dialog exists from a double click on the colour bar until OK,
// Cancel or closing; color_dialog_open marks that time (and holds back final passes). What
// the colour does to the nodes is decided by color_dialog_changed / _ok / _cancel in the
// library; this file touches no node and no table.
#include <cstdio>

#include "core/core.h"
#include "core/seam.h"
#include "panel/panel.h"
#include "transfer/transfer.h"

// The dialog while it is up, null otherwise, and whether OK or Cancel answered it.
static GtkWidget* color_dialog = nullptr;
static bool color_dialog_answered = false;

// Registers a child under its name on the dialog, holding a reference for the name.
static void register_widget(GtkWidget* dialog, GtkWidget* widget, const char* name)
{
    g_object_set_data_full(G_OBJECT(dialog), name, gtk_widget_ref(widget),
                           (GDestroyNotify)gtk_widget_unref);
}

// "destroy": the dialog is gone, whatever closed it. Escape and the window's close button
// reach here through GTK's own "close" and delete handling, which destroys the dialog after
// its signals have run; a handler on "close" that destroyed it in the middle of that signal
// left GTK's default handler a window that was gone (a GLib critical). Closed so, neither OK
// nor Cancel answered it: the strip keeps the node as the double click left it.
static void on_color_dialog_destroy(GtkObject*, gpointer)
{
    color_dialog = nullptr;
    if (!color_dialog_answered) color_dialog_dismissed();
    color_dialog_closed();
}

// "color_changed": the pixel value of the colour on the screen's colormap, 0x00RRGGBB on the
// true-colour visuals the SDL window needs anyway.
static void on_color_changed(GtkColorSelection* selection, gpointer)
{
    GdkColor colour;
    gtk_color_selection_get_current_color(selection, &colour);
    uint32_t pixel;
    if (!color_pixel(&colour, &pixel)) {
        puts("GTK+ color selection failure!");
        return;
    }
    color_dialog_changed(pixel);
}

static void on_color_ok(GtkButton*, gpointer)
{
    color_dialog_answered = true;
    color_dialog_ok();
    if (color_dialog) gtk_widget_destroy(color_dialog);
}

static void on_color_cancel(GtkButton*, gpointer)
{
    color_dialog_answered = true;
    color_dialog_cancel();
    if (color_dialog) gtk_widget_destroy(color_dialog);
}

GtkWidget* create_color_dialog()
{
    GtkWidget* dialog = gtk_color_selection_dialog_new("Select A Color");
    gtk_window_set_resizable(GTK_WINDOW(dialog), FALSE);
    gtk_window_set_destroy_with_parent(GTK_WINDOW(dialog), TRUE);
    gtk_window_set_type_hint(GTK_WINDOW(dialog), GDK_WINDOW_TYPE_HINT_DIALOG);

    GtkColorSelectionDialog* parts = GTK_COLOR_SELECTION_DIALOG(dialog);
    GtkWidget* ok = parts->ok_button;
    GtkWidget* cancel = parts->cancel_button;
    GtkWidget* help = parts->help_button;
    GtkWidget* core = parts->colorsel;
    gtk_widget_set_sensitive(help, FALSE);
    gtk_color_selection_set_has_opacity_control(GTK_COLOR_SELECTION(core), FALSE);

    // The dialog names itself without a reference: one on itself would keep it alive.
    g_object_set_data(G_OBJECT(dialog), "GUIcolorSel", dialog);
    register_widget(dialog, ok, "GUIcolorSel_OkButton");
    register_widget(dialog, cancel, "GUIcolorSel_CancelButton");
    register_widget(dialog, help, "help_button1");
    register_widget(dialog, core, "GUIcolorSel_Core");

    g_signal_connect(G_OBJECT(dialog), "destroy", G_CALLBACK(on_color_dialog_destroy), nullptr);
    g_signal_connect(G_OBJECT(ok), "clicked", G_CALLBACK(on_color_ok), nullptr);
    g_signal_connect(G_OBJECT(cancel), "clicked", G_CALLBACK(on_color_cancel), nullptr);
    g_signal_connect(G_OBJECT(core), "color_changed", G_CALLBACK(on_color_changed), nullptr);
    return dialog;
}

int open_color_dialog(uint32_t color)
{
    // Only one dialog at a time: the strip asks for it only while none is up.
    if (color_dialog) gtk_widget_destroy(color_dialog);
    char text[16];
    snprintf(text, sizeof text, "#%06x", color);
    color_dialog = create_color_dialog();
    color_dialog_answered = false;

    // A colour must be allocatable on the system colormap, or the dialog can't show one.
    GdkColormap* colormap = gdk_colormap_get_system();
    GdkColor colour = {0, 0, 0, 0};
    if (!gdk_colormap_alloc_color(colormap, &colour, FALSE, TRUE)) {
        puts("GTK+ color alloc failed!");
        // Never shown: take it down again, no node is made.
        gtk_widget_destroy(color_dialog);
        return 0;
    }
    gdk_colormap_free_colors(colormap, &colour, 1);
    if (gdk_color_parse(text, &colour) == 1)
        gtk_color_selection_set_current_color(
            GTK_COLOR_SELECTION(lookup_widget(color_dialog, "GUIcolorSel_Core")), &colour);
    else
        puts("GTK+ color parse failed!");
    gtk_widget_show(color_dialog);
    color_dialog_open = 1;
    return 1;
}
