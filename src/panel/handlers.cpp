// handlers.cpp — the panel's signal handlers: each writes its render setting and sets refresh,
// so the next frame shows a preview; none renders, but "Render to File", which renders into
// buffers of its own. Also "Take Screenshot", and connect_panel_signals, which hangs every
// handler on its widget.
//
// Handlers run on the main thread inside gui_pump, in the middle of a final pass too, or at
// once when input, reset_slices or another handler sets a widget. Setting a toggle button from
// a handler runs that button's handler when its state really changes (a "fan-out"), and the
// nested handler finishes before the outer one goes on, so the order of the lines inside a
// handler is behaviour. Radio handlers marked "both" run for the button that loses the
// selection and then for the one that gains it; the second decides.
//
// Must not touch the frame buffers, the grid or the node lists, nor call a render pass.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "output/png.h"
#include "panel/panel.h"
#include "slices/slices.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

static GtkWidget* widget(const char* name) { return lookup_widget(gui_window, name); }

static int active(GtkToggleButton* b) { return gtk_toggle_button_get_active(b) == 1; }
static int is_active(const char* name) { return active(GTK_TOGGLE_BUTTON(widget(name))); }
static void set_active(const char* name, int on)
{
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(widget(name)), on);
}
static void set_range(const char* name, double v) { gtk_range_set_value(GTK_RANGE(widget(name)), v); }
static void set_spin(const char* name, double v) { gtk_spin_button_set_value(GTK_SPIN_BUTTON(widget(name)), v); }
static double value(GtkRange* r) { return gtk_range_get_value(r); }
static double value(GtkSpinButton* s) { return gtk_spin_button_get_value(s); }

static void show_vector(const char* const names[3], const float* v)
{
    for (int i = 0; i < 3; ++i) {
        char text[16];
        snprintf(text, sizeof text, "%+4.3f", v[i]);
        gtk_entry_set_text(GTK_ENTRY(widget(names[i])), text);
    }
}

// The render mode of a page of the 3D tabs. Page 0 is cuberille or, with the isovalue radio,
// interpolated first hit.
static int mode_of_3d_page(int page)
{
    switch (page) {
    case 0: return is_active("GUIStepfuncIsoval") ? mode_firsthit : mode_cuberille;
    case 1: return 4;
    case 2: return 6;
    case 3: return 8;
    case 4: return 10;
    default: return 0;
    }
}

static int current_3d_page() { return gtk_notebook_get_current_page(GTK_NOTEBOOK(widget("GUI3DTabs"))); }

// Reads the colour of a colour button into a packed setting: the pixel value that the system
// colormap gives, which on a true-colour display is 0xRRGGBB. A colour that can't be had keeps
// the old setting.
bool color_pixel(GdkColor* colour, uint32_t* pixel)
{
    GdkColormap* colormap = gdk_colormap_get_system();
    if (!gdk_colormap_alloc_color(colormap, colour, FALSE, TRUE)) return false;
    *pixel = (uint32_t)colour->pixel;
    gdk_colormap_free_colors(colormap, colour, 1);
    return true;
}

static void take_button_color(GtkColorButton* button, uint32_t* setting)
{
    GdkColor c;
    gtk_color_button_get_color(button, &c);
    if (!color_pixel(&c, setting)) puts("GTK+ color selection failure!");
}

// ---------------------------------------------------------------------------------------------
// Load and file buttons.

static void on_loadvolume_selection_changed(GtkFileChooser* chooser, gpointer)
{
    // A name the program put there itself comes back, with no name first while the chooser
    // reads the folder and then once or twice with it, all within moments. Those reports are
    // passed over; a different name, or the same one chosen again later, is the user's.
    if (chooser_echo) {
        if (g_get_monotonic_time() - chooser_echo_time < 2000000) {
            gchar* name = gtk_file_chooser_get_filename(chooser);
            bool echo = !name || strcmp(name, chooser_echo) == 0;
            g_free(name);
            if (echo) return;
        }
        free(chooser_echo);
        chooser_echo = nullptr;
    }
    // The load itself runs in the frame loop, between two frames.
    load_requested = 1;
}

static void on_smooth_data_clicked(GtkButton*, gpointer)
{
    // Blocks until the grid is smoothed; blur_data pumps the panel itself and asks for a picture.
    if (volume_loaded) blur_data();
}


// ---------------------------------------------------------------------------------------------
// Notebooks. switch_page comes before the notebook shows the new page, so the new page is the
// signal's argument, not the notebook's current page.

static void on_rendermode_tabs_switch_page(GtkNotebook*, GtkNotebookPage*, guint page, gpointer)
{
    int before = render_mode;
    view_kind = view_normal;
    set_active("GUICuttingView", 0);
    switch (page) {
    case 0:
        render_mode = mode_slices;
        set_active("GUIswitch3D", 0);
        refresh = 1;
        break;
    case 1:
        render_mode = mode_of_3d_page(current_3d_page());
        if (render_mode != before) refresh = 1;
        break;
    case 2: break;
    case 3:
        if (render_mode == mode_slices) {
            render_mode = mode_of_3d_page(current_3d_page());
            refresh = 1;
        }
        break;
    default: break;
    }
}

static void on_3d_tabs_switch_page(GtkNotebook*, GtkNotebookPage*, guint page, gpointer)
{
    int before = render_mode;
    switch (page) {
    case 0:
        // Back on First Hit with a first-hit mode already set: nothing at all.
        if (render_mode == mode_cuberille || render_mode == mode_firsthit) return;
        render_mode = mode_of_3d_page(0);
        break;
    case 1: render_mode = mode_mip; break;
    case 2: render_mode = mode_avg; break;
    case 3:
        render_mode = mode_rbs;
        puts("region boundary surface tab");
        break;
    case 4:
        render_mode = mode_ics;
        puts("isovalue contour surface tab");
        break;
    default: render_mode = mode_cuberille; break;
    }
    if (render_mode != before) refresh = 1;
}

// ---------------------------------------------------------------------------------------------
// Slices tab.

static void on_slice_recenter_toggled(GtkToggleButton* b, gpointer)
{
    slice_recenter = active(b);
    if (slice_recenter) make_slice_basis();
    refresh = 1;
}

static void on_slice3d_toggled(GtkToggleButton* b, gpointer)
{
    if (active(b)) slice_kind = 3;
    make_slice_basis();
    refresh = 1;
}

template <int Axis> static void on_slice_normal_changed(GtkSpinButton* s, gpointer)
{
    slice_normal[Axis] = (float)value(s);
    make_slice_basis();
    set_active("GUIslice3D", 1);
    slice_kind = 3;
    refresh = 1;
}

static void on_slice_d_changed(GtkSpinButton* s, gpointer)
{
    slice_d = (float)value(s);
    set_active("GUIslice3D", 1);
    slice_kind = 3;
    // A held spin arrow redraws every fifth step; the release redraws in any case.
    if ((int)slice_d % 5 == 0) refresh = 1;
}

static gboolean on_slice_d_button_release(GtkWidget*, GdkEventButton*, gpointer)
{
    set_active("GUIslice3D", 1);
    slice_kind = 3;
    refresh = 1;
    return FALSE;
}

// A plane field that loses the focus (Tab, or a click into another widget or window) takes the
// text typed into it, as Enter does, so that the field never shows a value the plane doesn't
// use. A new distance is drawn at once: typing isn't a held arrow, whose steps value_changed
// draws only every fifth. (GTK's own focus-out does the update too; doing it here first makes
// the order certain.)
static gboolean on_plane_field_focus_out(GtkWidget* w, GdkEventFocus*, gpointer)
{
    const float d = slice_d;
    gtk_spin_button_update(GTK_SPIN_BUTTON(w));
    if (slice_d != d) refresh = 1;
    return FALSE;
}

static void show_slice_normal()
{
    set_spin("GUIsliceNX", slice_normal[0]);
    set_spin("GUIsliceNY", slice_normal[1]);
    set_spin("GUIsliceNZ", slice_normal[2]);
}

static void on_switch3d_toggled(GtkToggleButton* b, gpointer)
{
    if (active(b)) {
        // The cuberille view from the camera that the plane's basis placed.
        set_active("GUIslice3D", 1);
        slice_kind = 3;
        render_mode = mode_cuberille;
    } else {
        // Back to the slice: the plane follows wherever the camera went meanwhile.
        for (int i = 0; i < 3; ++i) {
            slice_center[i] = ipos[i];
            slice_normal[i] = slice_normal_unit[i] = ifor[i];
            slice_u[i] = istr[i];
            slice_v[i] = iup[i];
        }
        render_mode = mode_slices;
        make_slice_basis();
        show_slice_normal();
    }
    refresh = 1;
}

static void on_norm3d_clicked(GtkButton*, gpointer)
{
    slice_kind = 3;
    set_active("GUIslice3D", 1);
    puts("redisplay correct normal vec-components");
    show_slice_normal();
    refresh = 1;
}

template <int Kind> static void on_slice_axis_toggled(GtkToggleButton* b, gpointer)
{
    render_mode = mode_slices;
    set_active("GUIswitch3D", 0);
    if (active(b)) slice_kind = Kind;
    refresh = 1;
}

static void on_slider_yz_changed(GtkRange* r, gpointer)
{
    render_mode = mode_slices;
    slice_x = slice_index_at(vol_x, value(r));
    set_active("GUIswitch3D", 0);
    refresh = 1;
}

static void on_slider_xz_changed(GtkRange* r, gpointer)
{
    render_mode = mode_slices;
    slice_y = slice_index_at(vol_y, value(r));
    set_active("GUIswitch3D", 0);
    refresh = 1;
}

static void on_slider_xy_changed(GtkRange* r, gpointer)
{
    render_mode = mode_slices;
    slice_z = slice_index_at(vol_z, value(r));
    set_active("GUIswitch3D", 0);
    // Only this slider brings its radio up; the two others leave the slice kind alone.
    set_active("GUIsliceXY", 1);
    refresh = 1;
}

// Clicking a slice slider (it takes the focus) shows its slice kind; no refresh of its own.
static void on_slider_yz_grab_focus(GtkWidget*, gpointer)
{
    set_active("GUIsliceYZ", 1);
    render_mode = mode_slices;
    set_active("GUIswitch3D", 0);
}

static void on_slider_xz_grab_focus(GtkWidget*, gpointer)
{
    set_active("GUIsliceXZ", 1);
    render_mode = mode_slices;
    set_active("GUIswitch3D", 0);
}

static void on_slider_xy_grab_focus(GtkWidget*, gpointer)
{
    set_active("GUIsliceXY", 1);
    render_mode = mode_slices;
    set_active("GUIswitch3D", 0);
}

static void on_slider_zoom_changed(GtkRange* r, gpointer)
{
    float old = slice_zoom;
    float zoom = (float)(value(r) * 1024.0);
    if (zoom < 3.0f) zoom = 3.0f;
    if (zoom > 1024.0f) zoom = 1024.0f;
    slice_zoom = zoom;
    render_mode = mode_slices;
    set_active("GUIswitch3D", 0);
    if (slice_kind == 3) move_slice_along_view(slice_zoom - old);
    refresh = 1;
}

// ---------------------------------------------------------------------------------------------
// 3D tab.

static void on_stepsize_changed(GtkSpinButton* s, gpointer)
{
    sample_stepsize = (float)value(s);
    interp_mode = interp_trilinear;
    set_active("GUI3DIpolTrilin", 1);
    refresh = 1;
}

template <int Model> static void on_light_model_toggled(GtkToggleButton*, gpointer)  // both
{
    // The light models belong to the cuberille: its radio comes first, its handler sets mode 0.
    set_active("GUInoipStandard", 1);
    light_model = Model;
    refresh = 1;
}

static void on_stepfunc_isoval_toggled(GtkToggleButton* b, gpointer)
{
    if (active(b)) render_mode = mode_firsthit;
    refresh = 1;
}

// The isovalue sliders of First Hit and ICS show one value: each sets both, the other's handler
// runs once with the same value and the next set changes nothing.
static void on_isovalue_changed(GtkRange* r, gpointer)
{
    double v = value(r);
    isovalue = (int)v;
    render_mode = current_3d_page() != 0 ? mode_ics : mode_firsthit;
    set_range("GUIStepfuncIsovalSlider", v);
    set_range("GUIISCIsovalSlider", v);
    set_active("GUIStepfuncIsoval", 1);
    draw_tf_backdrop();
    refresh = 1;
}

static void on_isovalue_grab_focus(GtkWidget*, gpointer)
{
    render_mode = current_3d_page() == 0 ? mode_firsthit : mode_ics;
    set_active("GUIStepfuncIsoval", 1);
    refresh = 1;
}

static const char* const isoval_multi[4] = {"GUI_isovalMulti1", "GUI_isovalMulti2", "GUI_isovalMulti3",
                                            "GUI_isovalMulti4"};
static const char* const isoval_multi_slider[4] = {"GUI_isovalMulti1Slider", "GUI_isovalMulti2Slider",
                                                   "GUI_isovalMulti3Slider", "GUI_isovalMulti4Slider"};
static const char* const ics_multi[4] = {"GUI_icsMulti1", "GUI_icsMulti2", "GUI_icsMulti3", "GUI_icsMulti4"};
static const char* const ics_multi_isoval[4] = {"GUI_icsMulti1_isoval", "GUI_icsMulti2_isoval",
                                                "GUI_icsMulti3_isoval", "GUI_icsMulti4_isoval"};
static const char* const ics_multi_thick[4] = {"GUI_icsMulti1_thick", "GUI_icsMulti2_thick",
                                               "GUI_icsMulti3_thick", "GUI_icsMulti4_thick"};

// The extra surfaces have a check box and an isovalue slider in both the First Hit and the ICS
// tab; each mirrors its partner.
template <int N> static void on_isoval_multi_toggled(GtkToggleButton* b, gpointer)
{
    surface_on[N] = active(b);
    set_active(ics_multi[N], surface_on[N]);
    draw_tf_backdrop();
    refresh = 1;
}

template <int N> static void on_ics_multi_toggled(GtkToggleButton* b, gpointer)
{
    surface_on[N] = active(b);
    set_active(isoval_multi[N], surface_on[N]);
    draw_tf_backdrop();
    refresh = 1;
}

template <int N> static void on_isoval_multi_changed(GtkRange* r, gpointer)
{
    surface_isovalue[N] = (int)value(r);
    set_range(ics_multi_isoval[N], surface_isovalue[N]);
    draw_tf_backdrop();
    refresh = 1;
}

template <int N> static void on_ics_multi_isoval_changed(GtkRange* r, gpointer)
{
    surface_isovalue[N] = (int)value(r);
    set_range(isoval_multi_slider[N], surface_isovalue[N]);
    draw_tf_backdrop();
    refresh = 1;
}

template <int N> static void on_ics_multi_thick_changed(GtkRange* r, gpointer)
{
    surface_thickness[N] = (float)value(r);
    draw_tf_backdrop();
    refresh = 1;
}

static void on_edge_slider_grab_focus(GtkWidget*, gpointer) {}

static void on_edge_color_set(GtkColorButton* b, gpointer)
{
    take_button_color(b, &edge_color);
    refresh = 1;
}

static void on_toon_toggled(GtkToggleButton* b, gpointer)
{
    if (active(b)) {
        toon_shading = 1;
    } else {
        // The pencil is a kind of toon shading: it goes with it.
        toon_shading = 0;
        pencil_sketch = 0;
        set_active("GUIpencilSketch", 0);
    }
    refresh = 1;
}

static void on_pencil_toggled(GtkToggleButton* b, gpointer)
{
    if (active(b)) {
        pencil_sketch = 1;
        toon_shading = 1;
        set_active("GUIToonshadeToggle", 1);
    } else {
        pencil_sketch = 0;  // toon shading stays on
    }
    refresh = 1;
}

// One shading order for all three tabs. Setting a radio button inactive changes nothing while it
// is the only active one of its group, so the chain runs through the buttons that gain.
static void on_preshading_toggled(GtkToggleButton* b, gpointer)
{
    int on = active(b);
    pre_shading = on;
    set_active("GUIpreshadingFH", on);
    set_active("GUIpreshadingRBS", on);
    set_active("GUIpreshadingICS", on);
    refresh = 1;
}

static void on_postshading_toggled(GtkToggleButton* b, gpointer)
{
    int on = active(b);
    pre_shading = !on;
    set_active("GUIpostshadingFH", on);
    set_active("GUIpostshadingRBS", on);
    set_active("GUIpostshadingICS", on);
    refresh = 1;
}

// One "Faint Whisps" setting for the four compositing tabs: each check box sets the others,
// whose handlers run until all four agree.
static void on_faint_toggled(GtkToggleButton* b, gpointer)
{
    int on = active(b);
    faint_whisps = on;
    set_active("GUImaxipFaint", on);
    set_active("GUIavgFaint", on);
    set_active("GUIrbsFaint", on);
    set_active("GUIicsFaint", on);
    refresh = 1;
}

static void on_rbs_grad_dep_changed(GtkRange* r, gpointer)
{
    // The slider runs 0.1 to 1, the setting 10 to 1.
    rbs_grad_dep = (float)(1.0 / value(r));
    refresh = 1;
}

// ---------------------------------------------------------------------------------------------
// Light and shadow tab.

static void on_light_color_set(GtkColorButton* b, gpointer)
{
    take_button_color(b, &light_color);
    puts("light color set!");
    refresh = 1;
}

// The light and the cutting plane's normal take the view direction: ifor normalised, shown in
// their three entries.
static void take_view_direction(float* v, const char* const entries[3])
{
    for (int i = 0; i < 3; ++i) v[i] = ifor[i];
    normalize3(v);
    show_vector(entries, v);
    refresh = 1;
}

static void on_light_dir_clicked(GtkButton*, gpointer)
{
    static const char* const entries[3] = {"GUI_lightX", "GUI_lightY", "GUI_lightZ"};
    take_view_direction(light_dir, entries);
}

// The shadow settings change only the next occlusion calculation: no refresh. They are
// written only after shadow_guard (volume.h), so a running worker never sees them change.
static void on_shadow_stepsize_changed(GtkRange* r, gpointer)
{
    shadow_guard();
    shadow_stepsize = (float)value(r);
}

static void on_soft_shadow_toggled(GtkToggleButton* b, gpointer)
{
    if (!active(b)) return;
    shadow_guard();
    shadow_kind = 1;
}

static void on_hard_shadow_toggled(GtkToggleButton* b, gpointer)
{
    if (!active(b)) return;
    shadow_guard();
    shadow_kind = 2;
}

// "Precalculate Occlusions" and "Blur Shadows": both stop a running calculation first.
static void on_shadow_precalc_clicked(GtkButton*, gpointer) { start_occlusion(); }

static void on_smooth_shadows_clicked(GtkButton*, gpointer) { blur_shadows(); }

// ---------------------------------------------------------------------------------------------
// Cutting tab.

static void on_cutting_view_toggled(GtkToggleButton* b, gpointer)
{
    view_kind = active(b) ? view_abstract : view_normal;
    // The abstract view stands in for a 3D mode; from the slice view it picks the first hit kind.
    if (render_mode == mode_slices) render_mode = is_active("GUIStepfuncIsoval") ? mode_firsthit : mode_cuberille;
    refresh = 1;
}

static void on_cut_plane_normal_clicked(GtkButton*, gpointer)
{
    static const char* const entries[3] = {"GUICuttingPlaneNX", "GUICuttingPlaneNY", "GUICuttingPlaneNZ"};
    take_view_direction(cut_plane_n, entries);
}

// The cut sliders run -1 to 1 (radius 0 to 1) in units of the volume diagonal, in the same
// single-precision arithmetic as the load path, which takes them again for each volume.
static void on_cut_plane_d_changed(GtkRange* r, gpointer)
{
    cut_plane_d = -0.5f * vol_diag + (float)value(r) * 2.0f * vol_diag;
    refresh = 1;
}

template <int Axis> static void on_sphere_center_changed(GtkRange* r, gpointer)
{
    cut_sphere_center[Axis] = (float)value(r) * vol_diag;
    refresh = 1;
}

static void on_sphere_radius_changed(GtkRange* r, gpointer)
{
    float radius = (float)value(r) * vol_diag;
    cut_sphere_r2 = radius * radius;
    refresh = 1;
}

static void on_cut_apply_clicked(GtkButton*, gpointer)
{
    // Blocks until the grid is cut and its gradients and brick map are rebuilt; asks for a
    // picture itself.
    apply_cut();
}

// ---------------------------------------------------------------------------------------------
// Take Screenshot.

void take_screenshot(GtkButton*, gpointer)
{
    // The panel is pumped from inside a render to file, whose buffers are not the window's.
    if (offscreen_render) return;
    GtkWidget* dialog = create_screenshot_dialog();
    if (volume_loaded && gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_OK) {
        gchar* name = gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(dialog));
        if (!name || !name[0]) {
            puts("no file name given: nothing saved");
        } else if (!screen_pixels) {
            puts("no window image to save");
        } else {
            char* path = screenshot_path(name);
            // The window surface has no row padding: its image area is the first
            // width * height pixels, the editor strip below is left out.
            png_write_image(path, screen_pixels, (int)render_target.width, (int)render_target.height);
            free(path);
        }
        g_free(name);
    }
    gtk_widget_destroy(dialog);
}

void render_to_file(GtkButton*, gpointer)
{
    // One at a time: the final passes pump the panel, where this button could be pressed again.
    if (offscreen_render) return;
    GtkWidget* dialog = create_screenshot_dialog();
    if (volume_loaded && gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_OK) {
        gchar* name = gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(dialog));
        if (!name || !name[0]) {
            puts("no file name given: nothing saved");
        } else {
            char* path = screenshot_path(name);
            render_to_file_at(path);
            free(path);
        }
        g_free(name);
    } else {
        puts("no action performed");
    }
    gtk_widget_destroy(dialog);
}

// ---------------------------------------------------------------------------------------------

// The handlers of the widgets that only write their setting, and set refresh: a check box's
// state, a slider's value, or the value a radio button stands for. The row's setting and value
// come as the signal's data. Radio buttons run for the button that loses the selection and
// then for the one that gains it, without looking at their state: the second decides.
struct Binding;
static void bound_flag(GtkToggleButton* b, gpointer row);
static void bound_float(GtkRange* r, gpointer row);
static void bound_radio(GtkToggleButton*, gpointer row);
static void bound_radio_quiet(GtkToggleButton*, gpointer row);

// One row a connection: the widget, its signal and handler, and for the bound handlers the
// setting they write (and a radio's value).
enum class Setting { none, int_flag, float_value, int_value, byte_value };
struct Binding {
    const char* widget;
    const char* signal;
    GCallback handler;
    Setting kind = Setting::none;
    void* setting = nullptr;
    int value = 0;
};

static void write_setting(const Binding* row, double v)
{
    switch (row->kind) {
    case Setting::int_flag:
    case Setting::int_value: *(int*)row->setting = (int)v; break;
    case Setting::float_value: *(float*)row->setting = (float)v; break;
    case Setting::byte_value: *(uint8_t*)row->setting = (uint8_t)v; break;
    case Setting::none: break;
    }
}
static void bound_flag(GtkToggleButton* b, gpointer row)
{
    write_setting((const Binding*)row, active(b));
    refresh = 1;
}
static void bound_float(GtkRange* r, gpointer row)
{
    write_setting((const Binding*)row, value(r));
    refresh = 1;
}
static void bound_radio(GtkToggleButton*, gpointer row)
{
    write_setting((const Binding*)row, ((const Binding*)row)->value);
    refresh = 1;
}
// Which side of the sphere goes shows only when the cut is applied: no refresh.
static void bound_radio_quiet(GtkToggleButton*, gpointer row)
{
    write_setting((const Binding*)row, ((const Binding*)row)->value);
}

#define FLAG(widget, setting) {widget, "toggled", G_CALLBACK(bound_flag), Setting::int_flag, &setting}
#define SLIDER(widget, setting) {widget, "value_changed", G_CALLBACK(bound_float), Setting::float_value, &setting}
#define RADIO(widget, setting, kind, v) {widget, "toggled", G_CALLBACK(bound_radio), kind, &setting, v}
#define OWN(widget, signal, handler) {widget, signal, G_CALLBACK(handler)}

static const Binding bindings[] = {
    OWN("GUIloadvolume", "selection_changed", on_loadvolume_selection_changed),
    OWN("GUIsmoothData", "clicked", on_smooth_data_clicked),
    OWN("GUIstandardScreenshot", "clicked", take_screenshot),
    OWN("GUIscreenshotButton", "clicked", render_to_file),
    OWN("GUIrendermodeTabs", "switch_page", on_rendermode_tabs_switch_page),
    OWN("GUI3DTabs", "switch_page", on_3d_tabs_switch_page),

    // Slices tab.
    FLAG("GUIsliceUsetf", slice_use_tf),
    FLAG("GUIsliceFilter", slice_filter),
    OWN("GUIsliceRecenter", "toggled", on_slice_recenter_toggled),
    OWN("GUIslice3D", "toggled", on_slice3d_toggled),
    OWN("GUIsliceNX", "value_changed", on_slice_normal_changed<0>),
    OWN("GUIsliceNY", "value_changed", on_slice_normal_changed<1>),
    OWN("GUIsliceNZ", "value_changed", on_slice_normal_changed<2>),
    OWN("GUIsliceD", "value_changed", on_slice_d_changed),
    OWN("GUIsliceD", "button_release_event", on_slice_d_button_release),
    OWN("GUIsliceNX", "focus-out-event", on_plane_field_focus_out),
    OWN("GUIsliceNY", "focus-out-event", on_plane_field_focus_out),
    OWN("GUIsliceNZ", "focus-out-event", on_plane_field_focus_out),
    OWN("GUIsliceD", "focus-out-event", on_plane_field_focus_out),
    OWN("GUIswitch3D", "toggled", on_switch3d_toggled),
    OWN("GUInorm3D", "clicked", on_norm3d_clicked),
    OWN("GUIsliceXY", "toggled", on_slice_axis_toggled<0>),
    OWN("GUIsliceXZ", "toggled", on_slice_axis_toggled<1>),
    OWN("GUIsliceYZ", "toggled", on_slice_axis_toggled<2>),
    OWN("GUIsliderYZ", "value_changed", on_slider_yz_changed),
    OWN("GUIsliderXZ", "value_changed", on_slider_xz_changed),
    OWN("GUIsliderXY", "value_changed", on_slider_xy_changed),
    OWN("GUIsliderYZ", "grab_focus", on_slider_yz_grab_focus),
    OWN("GUIsliderXZ", "grab_focus", on_slider_xz_grab_focus),
    OWN("GUIsliderXY", "grab_focus", on_slider_xy_grab_focus),
    OWN("GUIsliderZoom", "value_changed", on_slider_zoom_changed),

    // 3D tab.
    RADIO("GUI3DNoIpol", interp_mode, Setting::byte_value, interp_none),
    RADIO("GUI3DInterpol", interp_mode, Setting::byte_value, interp_bilinear),
    RADIO("GUI3DIpolTrilin", interp_mode, Setting::byte_value, interp_trilinear),
    OWN("GUIstepsize", "value_changed", on_stepsize_changed),
    RADIO("GUInoipStandard", render_mode, Setting::int_value, mode_cuberille),
    OWN("GUI3DNoLightmodel", "toggled", on_light_model_toggled<0>),
    OWN("GUI3DSimpleLightmodel", "toggled", on_light_model_toggled<1>),
    OWN("GUIpureShadowInfo", "toggled", on_light_model_toggled<2>),
    OWN("GUIStepfuncIsoval", "toggled", on_stepfunc_isoval_toggled),
    OWN("GUIStepfuncIsovalSlider", "value_changed", on_isovalue_changed),
    OWN("GUIISCIsovalSlider", "value_changed", on_isovalue_changed),
    OWN("GUIStepfuncIsovalSlider", "grab_focus", on_isovalue_grab_focus),
    OWN("GUIISCIsovalSlider", "grab_focus", on_isovalue_grab_focus),
    OWN("GUI_isovalMulti1", "toggled", on_isoval_multi_toggled<0>),
    OWN("GUI_isovalMulti2", "toggled", on_isoval_multi_toggled<1>),
    OWN("GUI_isovalMulti3", "toggled", on_isoval_multi_toggled<2>),
    OWN("GUI_isovalMulti4", "toggled", on_isoval_multi_toggled<3>),
    OWN("GUI_icsMulti1", "toggled", on_ics_multi_toggled<0>),
    OWN("GUI_icsMulti2", "toggled", on_ics_multi_toggled<1>),
    OWN("GUI_icsMulti3", "toggled", on_ics_multi_toggled<2>),
    OWN("GUI_icsMulti4", "toggled", on_ics_multi_toggled<3>),
    OWN("GUI_isovalMulti1Slider", "value_changed", on_isoval_multi_changed<0>),
    OWN("GUI_isovalMulti2Slider", "value_changed", on_isoval_multi_changed<1>),
    OWN("GUI_isovalMulti3Slider", "value_changed", on_isoval_multi_changed<2>),
    OWN("GUI_isovalMulti4Slider", "value_changed", on_isoval_multi_changed<3>),
    OWN("GUI_icsMulti1_isoval", "value_changed", on_ics_multi_isoval_changed<0>),
    OWN("GUI_icsMulti2_isoval", "value_changed", on_ics_multi_isoval_changed<1>),
    OWN("GUI_icsMulti3_isoval", "value_changed", on_ics_multi_isoval_changed<2>),
    OWN("GUI_icsMulti4_isoval", "value_changed", on_ics_multi_isoval_changed<3>),
    OWN("GUI_icsMulti1_thick", "value_changed", on_ics_multi_thick_changed<0>),
    OWN("GUI_icsMulti2_thick", "value_changed", on_ics_multi_thick_changed<1>),
    OWN("GUI_icsMulti3_thick", "value_changed", on_ics_multi_thick_changed<2>),
    OWN("GUI_icsMulti4_thick", "value_changed", on_ics_multi_thick_changed<3>),
    FLAG("GUIEdgeDetectionToggle", edge_enabled),
    SLIDER("GUIEdgeDetectionSlider", edge_strength),
    OWN("GUIEdgeDetectionSlider", "grab_focus", on_edge_slider_grab_focus),
    OWN("GUIedgeColor", "color_set", on_edge_color_set),
    OWN("GUIToonshadeToggle", "toggled", on_toon_toggled),
    OWN("GUIpencilSketch", "toggled", on_pencil_toggled),
    OWN("GUIpreshadingFH", "toggled", on_preshading_toggled),
    OWN("GUIpreshadingRBS", "toggled", on_preshading_toggled),
    OWN("GUIpreshadingICS", "toggled", on_preshading_toggled),
    OWN("GUIpostshadingFH", "toggled", on_postshading_toggled),
    OWN("GUIpostshadingRBS", "toggled", on_postshading_toggled),
    OWN("GUIpostshadingICS", "toggled", on_postshading_toggled),
    OWN("GUImaxipFaint", "toggled", on_faint_toggled),
    OWN("GUIavgFaint", "toggled", on_faint_toggled),
    OWN("GUIrbsFaint", "toggled", on_faint_toggled),
    OWN("GUIicsFaint", "toggled", on_faint_toggled),
    FLAG("GUIrbsDissolve", rbs_dissolve),
    FLAG("GUIicsDissolve", ics_dissolve),
    OWN("GUI_rbsGradDep", "value_changed", on_rbs_grad_dep_changed),
    FLAG("GUI_rbsAlphaCorrection", rbs_alpha_correction),
    FLAG("GUI_icsAlphaCorrection", ics_alpha_correction),
    SLIDER("GUI_icsThickness", ics_thickness),

    // Light and shadow tab.
    OWN("GUI_lightColor", "color_set", on_light_color_set),
    OWN("GUILightDirButton", "clicked", on_light_dir_clicked),
    SLIDER("GUIambientSlider", light_ambient),
    SLIDER("GUIdiffuseSlider", light_diffuse),
    SLIDER("GUIspecularSlider", light_specular),
    SLIDER("GUIexponentSlider", light_exponent),
    OWN("GUIshadowStepsize", "value_changed", on_shadow_stepsize_changed),
    OWN("GUIsoftShadow", "toggled", on_soft_shadow_toggled),
    OWN("GUIhardShadow", "toggled", on_hard_shadow_toggled),
    OWN("GUI_lightShadowPrecalc", "clicked", on_shadow_precalc_clicked),
    OWN("GUIsmoothShadows", "clicked", on_smooth_shadows_clicked),
    FLAG("GUIocclusionLightBlend", use_occlusion),

    // Cutting tab.
    OWN("GUICuttingView", "toggled", on_cutting_view_toggled),
    RADIO("GUICutWithPlane", cut_kind, Setting::int_value, 1),
    RADIO("GUICutWithSphere", cut_kind, Setting::int_value, 2),
    {"GUICutInsideSphere", "toggled", G_CALLBACK(bound_radio_quiet), Setting::int_value, &cut_sphere_side, 3},
    {"GUICutOutsideSphere", "toggled", G_CALLBACK(bound_radio_quiet), Setting::int_value, &cut_sphere_side, 4},
    OWN("GUICuttingPlaneNormal", "clicked", on_cut_plane_normal_clicked),
    OWN("GUICuttingPlaneD", "value_changed", on_cut_plane_d_changed),
    OWN("GUISphereXSlider", "value_changed", on_sphere_center_changed<0>),
    OWN("GUISphereYSlider", "value_changed", on_sphere_center_changed<1>),
    OWN("GUISphereZSlider", "value_changed", on_sphere_center_changed<2>),
    OWN("GUISphereRSlider", "value_changed", on_sphere_radius_changed),
    OWN("GUICuttingPlaneApply", "clicked", on_cut_apply_clicked),
};

#undef FLAG
#undef SLIDER
#undef RADIO
#undef OWN

void connect_panel_signals(GtkWidget* window)
{
    for (const Binding& row : bindings)
        g_signal_connect(G_OBJECT(lookup_widget(window, row.widget)), row.signal, row.handler,
                         (gpointer)&row);
}
