// registry.cpp — the names of the panel's widgets. Every widget is registered on its
// top-level window under its name; lookup_widget finds it from any widget of that window.
#include "panel/panel.h"

GtkWidget* lookup_widget(GtkWidget* widget, const gchar* name)
{
    GtkWidget* parent;
    GtkWidget* found;
    for (;;) {
        if (GTK_IS_MENU(widget)) parent = gtk_menu_get_attach_widget(GTK_MENU(widget));
        else parent = widget->parent;
        if (!parent) parent = (GtkWidget*)g_object_get_data(G_OBJECT(widget), "GladeParentKey");
        if (parent == nullptr) break;
        widget = parent;
    }
    found = (GtkWidget*)g_object_get_data(G_OBJECT(widget), name);
    if (!found) g_warning("Widget not found: %s", name);
    return found;
}
