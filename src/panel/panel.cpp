// panel.cpp — the control panel window: the whole widget tree in plain code, the registration
// of every widget under its name, init_control_panel and the screenshot dialog.
//
// Owns gui_window, gui_main_loop, gui_destroyed, the four progress bar pointers and
// pending_load_name. Called by main (init_control_panel) and by the screenshot handlers
// (create_screenshot_dialog). The handlers themselves are in handlers.cpp and are connected at
// the end of build_control_panel, once the tree stands, so the active states set while
// building fire nothing. Nothing here renders or writes a render setting except the panel
// defaults of init_control_panel.
#include <cstdio>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "panel/panel.h"
#include "transfer/transfer.h"

GtkWidget* gui_window = nullptr;
GMainLoop* gui_main_loop = nullptr;
int gui_destroyed = 0;
GtkWidget* GUIprogressBar = nullptr;
GtkWidget* GUIprogressBarShadow = nullptr;
GtkWidget* GUIprogressBarSmoothenShadow = nullptr;
GtkWidget* GUIprogressBarSmoothenData = nullptr;
char* pending_load_name = nullptr;

// ---------------------------------------------------------------------------------------------
// Builders. Each creates one widget, registers it on the window being built (a reference held
// by the window's object data, dropped with it), shows it and packs it into its parent, in
// order. Containers and labels get generic names with a running number per kind.

static GtkWidget* building;  // the top-level window under construction
static GtkTooltips* tooltips;
static int n_hbox, n_vbox, n_label, n_hseparator, n_table;

static GtkWidget* reg(GtkWidget* w, const char* name)
{
    g_object_set_data_full(G_OBJECT(building), name, gtk_widget_ref(w), (GDestroyNotify)gtk_widget_unref);
    gtk_widget_show(w);
    return w;
}

static GtkWidget* reg_generic(GtkWidget* w, const char* kind, int* counter)
{
    char name[32];
    snprintf(name, sizeof name, "%s%d", kind, ++*counter);
    return reg(w, name);
}

static void tip(GtkWidget* w, const char* text)
{
    if (text) gtk_tooltips_set_tip(tooltips, w, text, nullptr);
}

// Boxes take children from the start; a child that expands shares the spare room (sliders,
// entries, progress bars and choosers across a row, the notebooks down their column).
static GtkWidget* put(GtkWidget* parent, GtkWidget* child, bool expand = false)
{
    if (GTK_IS_BOX(parent)) gtk_box_pack_start(GTK_BOX(parent), child, expand, expand, 0);
    else gtk_container_add(GTK_CONTAINER(parent), child);
    return child;
}

static GtkWidget* row(GtkWidget* parent)
{
    return put(parent, reg_generic(gtk_hbox_new(FALSE, 0), "hbox", &n_hbox));
}

static GtkWidget* column(GtkWidget* parent)
{
    return put(parent, reg_generic(gtk_vbox_new(FALSE, 0), "vbox", &n_vbox));
}

static GtkWidget* label(GtkWidget* parent, const char* text)
{
    return put(parent, reg_generic(gtk_label_new(text), "label", &n_label));
}

static void separator(GtkWidget* parent)
{
    put(parent, reg_generic(gtk_hseparator_new(), "hseparator", &n_hseparator));
}

static GtkWidget* button(GtkWidget* parent, const char* name, const char* text, const char* tooltip = nullptr)
{
    GtkWidget* w = reg(gtk_button_new_with_label(text), name);
    tip(w, tooltip);
    return put(parent, w);
}

static GtkWidget* toggle(GtkWidget* parent, const char* name, const char* text, const char* tooltip)
{
    GtkWidget* w = reg(gtk_toggle_button_new_with_label(text), name);
    tip(w, tooltip);
    return put(parent, w);
}

static GtkWidget* check(GtkWidget* parent, const char* name, const char* text, bool active = false,
                        const char* tooltip = nullptr)
{
    GtkWidget* w = reg(gtk_check_button_new_with_label(text), name);
    if (active) gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(w), TRUE);
    tip(w, tooltip);
    return put(parent, w);
}

// A radio button joins its group; the first of a group starts active (GTK's own rule), and a
// later one marked active takes the selection over.
static GtkWidget* radio(GtkWidget* parent, const char* name, GSList** group, const char* text,
                        bool active = false, const char* tooltip = nullptr)
{
    GtkWidget* w = gtk_radio_button_new_with_label(*group, text);
    *group = gtk_radio_button_get_group(GTK_RADIO_BUTTON(w));
    reg(w, name);
    if (active) gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(w), TRUE);
    tip(w, tooltip);
    return put(parent, w);
}

static GtkWidget* entry(GtkWidget* parent, const char* name, int max_length, const char* tooltip = nullptr)
{
    GtkWidget* w = reg(gtk_entry_new(), name);
    gtk_entry_set_max_length(GTK_ENTRY(w), max_length);
    gtk_editable_set_editable(GTK_EDITABLE(w), FALSE);
    tip(w, tooltip);
    return put(parent, w, GTK_IS_HBOX(parent));
}

static GtkWidget* progress(GtkWidget* parent, const char* name)
{
    GtkWidget* w = reg(gtk_progress_bar_new(), name);
    gtk_progress_bar_set_text(GTK_PROGRESS_BAR(w), "Progress");
    return put(parent, w, GTK_IS_HBOX(parent));
}

// Where a scale draws its value: not at all, or on a side.
enum { value_default = -1, value_hidden = -2 };

struct Adjust {
    double value, lower, upper, step, page;
};

static GtkObject* adjustment(const Adjust& a)
{
    return gtk_adjustment_new(a.value, a.lower, a.upper, a.step, a.page, 0);
}

static GtkWidget* scale_setup(GtkWidget* w, const char* name, int digits, int value_pos)
{
    reg(w, name);
    if (value_pos == value_hidden) gtk_scale_set_draw_value(GTK_SCALE(w), FALSE);
    else if (value_pos != value_default) gtk_scale_set_value_pos(GTK_SCALE(w), (GtkPositionType)value_pos);
    if (digits >= 0) gtk_scale_set_digits(GTK_SCALE(w), digits);
    return w;
}

static GtkWidget* hscale(GtkWidget* parent, const char* name, const Adjust& a, int digits = -1,
                         int value_pos = value_default)
{
    GtkWidget* w = gtk_hscale_new(GTK_ADJUSTMENT(adjustment(a)));
    return put(parent, scale_setup(w, name, digits, value_pos), GTK_IS_HBOX(parent));
}

// The four vertical sliders of the slice table: 200 pixels tall, top at 1.
static GtkWidget* vscale(const char* name, const Adjust& a, int digits, int value_pos)
{
    GtkWidget* w = gtk_vscale_new(GTK_ADJUSTMENT(adjustment(a)));
    gtk_widget_set_size_request(w, -1, 200);
    gtk_range_set_inverted(GTK_RANGE(w), TRUE);
    return scale_setup(w, name, digits, value_pos);
}

static GtkWidget* spin(GtkWidget* parent, const char* name, const Adjust& a, int digits, const char* tooltip)
{
    GtkWidget* w = reg(gtk_spin_button_new(GTK_ADJUSTMENT(adjustment(a)), 1, digits), name);
    gtk_spin_button_set_numeric(GTK_SPIN_BUTTON(w), TRUE);
    tip(w, tooltip);
    return put(parent, w, GTK_IS_HBOX(parent));
}

static GtkWidget* color_button(GtkWidget* parent, const char* name, const char* title)
{
    GtkWidget* w = reg(gtk_color_button_new(), name);
    gtk_color_button_set_title(GTK_COLOR_BUTTON(w), title);
    return put(parent, w);
}

// A notebook page: a column, with a label as its tab.
static GtkWidget* page(GtkWidget* notebook, const char* tab)
{
    GtkWidget* content = reg_generic(gtk_vbox_new(FALSE, 0), "vbox", &n_vbox);
    GtkWidget* tab_label = reg_generic(gtk_label_new(tab), "label", &n_label);
    gtk_notebook_append_page(GTK_NOTEBOOK(notebook), content, tab_label);
    return content;
}

static void table_cell(GtkWidget* table, GtkWidget* w, int r, int c)
{
    gtk_table_attach(GTK_TABLE(table), w, c, c + 1, r, r + 1, (GtkAttachOptions)(GTK_EXPAND | GTK_FILL),
                     (GtkAttachOptions)(GTK_FILL), 0, 0);
}

static void table_label(GtkWidget* table, const char* text, int r, int c)
{
    table_cell(table, reg_generic(gtk_label_new(text), "label", &n_label), r, c);
}

// ---------------------------------------------------------------------------------------------
// The tabs, in the order of the notebook.

static void build_slices_page(GtkWidget* tabs)
{
    GtkWidget* p = page(tabs, "Slices");
    check(p, "GUIsliceUsetf", "Use Transfer Function", false,
          "Use Transfer Function for Slice-colors or generate gray-scale images based on the "
          "encountered density.");
    check(p, "GUIsliceFilter", "Bilinear Filtering", true,
          "Switch between no filtering and bilinear filtering (looks better but is slightly "
          "slower). NOTE: Does not affect \"Arbitrary Slicing\".");
    check(p, "GUIsliceRecenter", "Recenter Slice", true,
          "If disabled, use WSADRF to move around and rotate (hold right mouse button and move "
          "mouse in x-direction) else the slice is automatically centered with respect to the "
          "window.");
    separator(p);

    GSList* kinds = nullptr;
    GtkWidget* r = row(p);
    radio(r, "GUIslice3D", &kinds, "Arbitrary Slicing", false,
          "Set arbitrary cut-plane for slicing (Slice along the viewing direction which equals "
          "the cut-plane normal [nx,ny,nz]). NOTE: Only the \"Zoom\"-Slider will affect this "
          "slicing-mode.");
    label(r, "arbitrary plane equation:\nnx*x + ny*y + nz*z +d = 0");

    r = row(p);
    label(r, " nx:");
    spin(r, "GUIsliceNX", {1, -1, 1, 0.1, 1}, 2, "Define x-component of plane-normal.");
    label(r, " ny:");
    spin(r, "GUIsliceNY", {0, -1, 1, 0.1, 1}, 2, "Define y-component of plane-normal.");
    label(r, " nz:");
    spin(r, "GUIsliceNZ", {0, -1, 1, 0.1, 1}, 2, "Define z-component of plane-normal.");
    label(r, " d:");
    spin(r, "GUIsliceD", {0, -1, 1, 1, 1}, 0, "Set orthogonal distance of cut-plane to coordinate-origin.");

    r = row(p);
    toggle(r, "GUIswitch3D", "3D View / Slice View",
           "Switch between 3D display and \"Slice-only\". Helps in finding the desired cut-plane "
           "and/or get an idea, where the volume is cut.");
    button(r, "GUInorm3D", "normalize (nx, ny, nz)",
           "Update the display of the internally already normalized components nx, ny and nz "
           "which make up the plane's normal.");
    separator(p);

    GtkWidget* t = reg_generic(gtk_table_new(4, 4, FALSE), "table", &n_table);
    gtk_table_set_row_spacings(GTK_TABLE(t), 2);
    gtk_table_set_col_spacings(GTK_TABLE(t), 20);
    gtk_container_set_border_width(GTK_CONTAINER(t), 5);
    gtk_widget_set_size_request(t, -1, 330);
    put(p, t);
    GtkWidget* w = gtk_radio_button_new_with_label(kinds, "XY");
    kinds = gtk_radio_button_get_group(GTK_RADIO_BUTTON(w));
    reg(w, "GUIsliceXY");
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(w), TRUE);
    tip(w, "Show XY-slices. Use slider to adjust Z-value of current plane.");
    table_cell(t, w, 0, 0);
    w = gtk_radio_button_new_with_label(kinds, "XZ");
    kinds = gtk_radio_button_get_group(GTK_RADIO_BUTTON(w));
    reg(w, "GUIsliceXZ");
    tip(w, "Show XZ-slices. Use slider to adjust Y-value of current plane.");
    table_cell(t, w, 0, 1);
    w = gtk_radio_button_new_with_label(kinds, "YZ");
    kinds = gtk_radio_button_get_group(GTK_RADIO_BUTTON(w));
    reg(w, "GUIsliceYZ");
    tip(w, "Show YZ-slices. Use slider to adjust X-value of current plane.");
    table_cell(t, w, 0, 2);
    table_label(t, "Zoom", 0, 3);
    table_label(t, "MaxZ-1", 1, 0);
    table_label(t, "MaxY-1", 1, 1);
    table_label(t, "MaxX-1", 1, 2);
    table_label(t, "Max Dist", 1, 3);
    // The first slider's value position is set although its value is not drawn.
    w = vscale("GUIsliderXY", {0.5, 0, 1, 0, 0}, 3, value_hidden);
    gtk_scale_set_value_pos(GTK_SCALE(w), GTK_POS_BOTTOM);
    table_cell(t, w, 2, 0);
    table_cell(t, vscale("GUIsliderXZ", {0.5, 0, 1, 0, 0}, 3, value_hidden), 2, 1);
    table_cell(t, vscale("GUIsliderYZ", {0.5, 0, 1, 0, 0}, 3, value_hidden), 2, 2);
    table_cell(t, vscale("GUIsliderZoom", {0.496644, 0, 1, 0, 0}, -1, value_hidden), 2, 3);
    table_label(t, "0", 3, 0);
    table_label(t, "0", 3, 1);
    table_label(t, "0", 3, 2);
    table_label(t, "Min Dist", 3, 3);
}

// The pre- and post-shading pair that closes the First Hit, RBS and ICS tabs.
static void shading_order_rows(GtkWidget* p, const char* pre, const char* post)
{
    GSList* order = nullptr;
    GtkWidget* outer = row(p);
    GtkWidget* inner = row(outer);
    label(inner, "");
    radio(inner, pre, &order, "pre-shading");
    radio(inner, post, &order, "post-shading", true);
    label(outer, "(Trilinear Interp. only)");
}

static void build_first_hit_page(GtkWidget* tabs)
{
    GtkWidget* p = page(tabs, "First Hit");
    label(p, "First Hit Raycasting (Binary Classification)");
    separator(p);
    GtkWidget* c = column(p);

    GSList* first_hit_kind = nullptr;
    GSList* light_models = nullptr;
    GtkWidget* r = row(c);
    radio(r, "GUInoipStandard", &first_hit_kind, "Cuberille:\n( no Interpolation/\n  no Lighting )", true,
          "Render each voxel as a cube (this is equal to nearest neighbor interpolation). NOTE: is "
          "not affected by setting bilinear or trilinear interpolation!");
    GtkWidget* models = column(r);
    radio(models, "GUI3DNoLightmodel", &light_models, "No Lightmodel");
    radio(models, "GUI3DSimpleLightmodel", &light_models, "Simple Lightmodel");
    radio(models, "GUIpureShadowInfo", &light_models, "Show occlusion data only", false,
          "Show the occlusion factors for all models (white means no occusion at all while black "
          "voxels are fully occluded) - open tab \"Light&Shadow\" for further information.");
    separator(c);

    r = row(c);
    radio(r, "GUIStepfuncIsoval", &first_hit_kind, "Isovalue (Density): ", false,
          "\"Step-function\" behaviour: values \"<Density\" are considered as air and values "
          "\">=Density\" are considered solid. NOTE: The transferfunction is ignored in this "
          "mode. When the slider is active, use the left/right cursor-keys to change the "
          "isovalue by 1.");
    hscale(r, "GUIStepfuncIsovalSlider", {2048, 1, 4095, 1, 0}, 0, GTK_POS_LEFT);
    label(c, "Additional Surfaces to blend with\n (\"Trilinear Interpolation\"-Mode only ):");
    static const char* const checks[4] = {"GUI_isovalMulti1", "GUI_isovalMulti2", "GUI_isovalMulti3",
                                          "GUI_isovalMulti4"};
    static const char* const texts[4] = {"surface 1 ", "surface 2 ", "surface 3 ", "surface 4 "};
    static const char* const sliders[4] = {"GUI_isovalMulti1Slider", "GUI_isovalMulti2Slider",
                                           "GUI_isovalMulti3Slider", "GUI_isovalMulti4Slider"};
    for (int n = 0; n < 4; ++n) {
        r = row(c);
        check(r, checks[n], texts[n]);
        label(r, "Isovalue: ");
        hscale(r, sliders[n], {1, 1, 4095, 1, 0}, 0, GTK_POS_LEFT);
    }
    separator(c);

    r = row(c);
    check(r, "GUIEdgeDetectionToggle", "Edge Detection   ", false,
          "Toggle edge detection. Use slider to detect less(left) or more(right) edges.");
    hscale(r, "GUIEdgeDetectionSlider", {4, 0.1, 24, 0.1, 1}, -1, value_hidden);
    r = row(c);
    label(r, "\tEdge Color:\t    ");
    color_button(r, "GUIedgeColor", "Select A Color");
    r = row(c);
    label(r, "");
    check(r, "GUIToonshadeToggle", "Toonshading", false,
          "NOTE: works only for bilinear- and trilinear interpolation, respectively.");
    r = row(c);
    label(r, "");
    check(r, "GUIpencilSketch", "\"Pencil Sketch\" shading");
    separator(c);
    shading_order_rows(c, "GUIpreshadingFH", "GUIpostshadingFH");
}

static void build_projection_pages(GtkWidget* tabs)
{
    GtkWidget* p = page(tabs, "MIP");
    label(p, "Maximum Intensity Projection");
    separator(p);
    check(p, "GUImaxipFaint", "\"Faint Whisps\"-compositing");

    p = page(tabs, "AVG");
    label(p, "Average Value Projection (\"X-ray image\")");
    separator(p);
    check(p, "GUIavgFaint", "\"Faint Whisps\"-compositing");
}

static void build_rbs_page(GtkWidget* tabs)
{
    GtkWidget* p = page(tabs, "RBS");
    label(p, "Region Boundary Surface - Classification (\"Isosurfaces\")");
    separator(p);
    GtkWidget* r = row(p);
    check(r, "GUIrbsFaint", "\"Faint Whisps\"-compositing");
    check(r, "GUIrbsDissolve", "Modified Classification\n(Trilinear Interp. only)");
    separator(p);
    r = row(p);
    label(r, "Gradient dependency: ");
    hscale(r, "GUI_rbsGradDep", {1, 0.1, 1, 0.1, 0.25});
    separator(p);
    check(p, "GUI_rbsAlphaCorrection", "Alpha Correction ", true);
    shading_order_rows(p, "GUIpreshadingRBS", "GUIpostshadingRBS");
}

static void build_ics_page(GtkWidget* tabs)
{
    GtkWidget* p = page(tabs, "ICS");
    label(p, "Isovalue Contour Surface");
    separator(p);
    GtkWidget* r = row(p);
    check(r, "GUIicsFaint", "\"Faint Whisps\"-compositing");
    check(r, "GUIicsDissolve", "Modified Classification\n(Trilinear Interp. only)");
    separator(p);
    label(p, "Iso - Surface parameters:");
    r = row(p);
    label(r, "\"Thickness\" of isosurface: ");
    hscale(r, "GUI_icsThickness", {1, 0.1, 10, 0.1, 1}, -1, GTK_POS_LEFT);
    r = row(p);
    label(r, "Isovalue (Density): ");
    hscale(r, "GUIISCIsovalSlider", {2048, 1, 4095, 1, 0}, 0, GTK_POS_LEFT);
    separator(p);
    label(p, "Additional Surfaces to blend with:\n(\"Trilinear Interpolation\"-Mode only)");
    separator(p);
    static const char* const checks[4] = {"GUI_icsMulti1", "GUI_icsMulti2", "GUI_icsMulti3", "GUI_icsMulti4"};
    static const char* const texts[4] = {"surface 1: ", "surface 2: ", "surface 3: ", "surface 4: "};
    static const char* const thick[4] = {"GUI_icsMulti1_thick", "GUI_icsMulti2_thick", "GUI_icsMulti3_thick",
                                         "GUI_icsMulti4_thick"};
    static const char* const isoval[4] = {"GUI_icsMulti1_isoval", "GUI_icsMulti2_isoval",
                                          "GUI_icsMulti3_isoval", "GUI_icsMulti4_isoval"};
    for (int n = 0; n < 4; ++n) {
        r = row(p);
        check(r, checks[n], texts[n]);
        GtkWidget* names = column(r);
        label(names, "\"Thickness\":");
        label(names, "Isovalue: ");
        GtkWidget* sliders = put(r, reg_generic(gtk_vbox_new(FALSE, 0), "vbox", &n_vbox), true);
        hscale(sliders, thick[n], {1, 0.1, 10, 0.1, 1}, -1, GTK_POS_LEFT);
        hscale(sliders, isoval[n], {1, 1, 4095, 1, 0}, 0, GTK_POS_LEFT);
        separator(p);
    }
    check(p, "GUI_icsAlphaCorrection", "Alpha Correction", true);
    separator(p);
    shading_order_rows(p, "GUIpreshadingICS", "GUIpostshadingICS");
}

static void build_3d_page(GtkWidget* tabs)
{
    GtkWidget* p = page(tabs, "3D");
    GSList* interpolation = nullptr;
    radio(p, "GUI3DNoIpol", &interpolation, "No Interpolation (no lighting).");
    radio(p, "GUI3DInterpol", &interpolation, "Bilinear Interpolation. Sample at grid-intersections only.");
    GtkWidget* r = row(p);
    radio(r, "GUI3DIpolTrilin", &interpolation, "Trilinear Interpolation. Sample-distance: ", false,
          "NOTE: since trilinear interpolation is performance-consuming, the \"preview\" will be "
          "bilinearly interpolated only.");
    spin(r, "GUIstepsize", {0.7, 0.01, 16, 0.1, 1}, 2, "Set stepsize.");
    separator(p);

    GtkWidget* tabs3d = put(p, reg(gtk_notebook_new(), "GUI3DTabs"), true);
    build_first_hit_page(tabs3d);
    build_projection_pages(tabs3d);
    build_rbs_page(tabs3d);
    build_ics_page(tabs3d);
}

static void build_light_page(GtkWidget* tabs)
{
    GtkWidget* p = page(tabs, "  Light\n     &\nShadow");
    GtkWidget* r = row(p);
    label(r, "Set Lightcolor ");
    color_button(r, "GUI_lightColor", "Select a Color for the Lightsource");
    separator(p);
    label(p, "Current Light Vector:");
    r = row(p);
    entry(r, "GUI_lightX", 6);
    entry(r, "GUI_lightY", 6);
    entry(r, "GUI_lightZ", 6);
    button(p, "GUILightDirButton", "Set new Lightvector", "Use view-vector of current camera as the new light vector.");
    separator(p);
    label(p, "Material/Light Properties:");
    r = row(p);
    label(r, "ambient factor    ");
    hscale(r, "GUIambientSlider", {0.1, 0, 1, 0.1, 1}, 2);
    r = row(p);
    label(r, "diffuse factor     ");
    hscale(r, "GUIdiffuseSlider", {0.35, 0, 1, 0.1, 1}, 2);
    r = row(p);
    label(r, "specular factor  ");
    hscale(r, "GUIspecularSlider", {0.55, 0, 1, 0.1, 1}, 2);
    r = row(p);
    label(r, "phong exponent");
    hscale(r, "GUIexponentSlider", {16, 1, 96, 0.1, 1});
    separator(p);
    r = row(p);
    label(r, "Stepsize for \nShadowcalculation: ");
    hscale(r, "GUIshadowStepsize", {0.7, 0.1, 4, 0.1, 1}, -1, GTK_POS_LEFT);
    GSList* shadows = nullptr;
    radio(p, "GUIsoftShadow", &shadows, "Soft Shadows");
    radio(p, "GUIhardShadow", &shadows, "Hard Shadows");
    r = row(p);
    button(r, "GUI_lightShadowPrecalc", "Precalculate Occlusions",
           "Precalculate the occlusions based on current opacities and the lightvector. NOTE: any "
           "change that is made to the transfer-function invalidates the precomputed data; simply "
           "press the button again to refresh it. Also, try to match the isovalue that is "
           "currently set (the density) with the opacities from the transferfunction. Initially, "
           "the occlusion is set to \"half-occluded everywhere\".");
    progress(r, "GUIprogressBarShadow");
    r = row(p);
    button(r, "GUIsmoothShadows", "          Blur Shadows       ");
    progress(r, "GUIprogressBarSmoothenShadow");
    check(p, "GUIocclusionLightBlend", "Use Occlusion Data for Rendering", false,
          "Blend occlusion-data with local lightmodel (if correctly set, occluded regions will be "
          "in shadow).");
}

static void build_cutting_page(GtkWidget* tabs)
{
    GtkWidget* p = page(tabs, "Cutting\nPlane\n     &\nSphere");
    toggle(p, "GUICuttingView", "Abstract / 3D View",
           "Switch between 3D display and \"Slice-only\". Helps in finding the desired cut-plane "
           "and/or get an idea, where the volume is cut.");
    separator(p);
    GSList* shapes = nullptr;
    radio(p, "GUICutWithPlane", &shapes, "Cut with Plane");
    label(p, "Current Cutting Plane's Normalvector:");
    GtkWidget* r = row(p);
    entry(r, "GUICuttingPlaneNX", 10);
    entry(r, "GUICuttingPlaneNY", 10);
    entry(r, "GUICuttingPlaneNZ", 10);
    button(p, "GUICuttingPlaneNormal", "Set new Planenormal");
    label(p, "Current Cutting Plane's Distance to Origin: ");
    hscale(p, "GUICuttingPlaneD", {0, -1, 1, 0, 0}, -1, value_hidden);
    separator(p);
    radio(p, "GUICutWithSphere", &shapes, "Cut with Sphere");
    r = row(p);
    label(r, "");
    GtkWidget* sides_column = column(r);
    GSList* sides = nullptr;
    radio(sides_column, "GUICutInsideSphere", &sides, "Cut away voxels inside the Sphere");
    radio(sides_column, "GUICutOutsideSphere", &sides, "Cut away voxels outside the Sphere");
    r = row(p);
    label(r, "Spherecenter X: ");
    hscale(r, "GUISphereXSlider", {0, -1, 1, 0, 0}, -1, value_hidden);
    r = row(p);
    label(r, "Spherecenter Y: ");
    hscale(r, "GUISphereYSlider", {0, -1, 1, 0, 0}, -1, value_hidden);
    r = row(p);
    label(r, "Spherecenter Z: ");
    hscale(r, "GUISphereZSlider", {0, -1, 1, 0, 0}, -1, value_hidden);
    r = row(p);
    label(r, "Sphereradius:     ");
    hscale(r, "GUISphereRSlider", {0.3, 0, 1, 0, 0}, -1, value_hidden);
    separator(p);
    button(p, "GUICuttingPlaneApply", "Apply Cut");
}

GtkWidget* build_control_panel()
{
    n_hbox = n_vbox = n_label = n_hseparator = n_table = 0;
    building = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* window = building;
    g_object_set_data(G_OBJECT(window), "GUIwindow", window);
    tooltips = gtk_tooltips_new();
    g_object_set_data(G_OBJECT(window), "tooltips", tooltips);
    gtk_widget_set_size_request(window, 475, -1);
    gtk_window_set_default_size(GTK_WINDOW(window), 100, -1);
    gtk_window_set_title(GTK_WINDOW(window), "tavok by Mara Quill");
    gtk_window_set_icon_name(GTK_WINDOW(window), "gtk-execute");
    gtk_window_set_gravity(GTK_WINDOW(window), GDK_GRAVITY_NORTH_EAST);
    gtk_window_set_focus_on_map(GTK_WINDOW(window), FALSE);
    tip(window, "Direct Volume Rendering controls");

    GtkWidget* main_column = reg_generic(gtk_vbox_new(FALSE, 0), "vbox", &n_vbox);
    gtk_widget_set_size_request(main_column, 490, -1);
    gtk_container_add(GTK_CONTAINER(window), main_column);

    GtkWidget* r = row(main_column);
    label(r, "Load Volume:");
    put(r, reg(gtk_file_chooser_button_new("Select A File", GTK_FILE_CHOOSER_ACTION_OPEN), "GUIloadvolume"), true);

    r = row(main_column);
    entry(r, "GUIvolDim", 15, "Volume Dimensions");
    GtkWidget* blur = row(r);
    button(blur, "GUIsmoothData", "Blur Data");
    progress(blur, "GUIprogressBarSmoothenData");
    // Our own line under the volume's sizes: why the latest file was refused, in the words of
    // its log line, in dark red; hidden while there is nothing to say (show_load_message).
    GtkWidget* message = put(main_column, reg(gtk_label_new(""), "GUIloadMessage"));
    gtk_misc_set_alignment(GTK_MISC(message), 0.0f, 0.5f);
    gtk_misc_set_padding(GTK_MISC(message), 4, 2);
    gtk_label_set_line_wrap(GTK_LABEL(message), TRUE);
    gtk_label_set_line_wrap_mode(GTK_LABEL(message), PANGO_WRAP_WORD_CHAR);
    gtk_widget_set_size_request(message, 480, -1);
    GdkColor dark_red = {0, 0xaaaa, 0, 0};
    gtk_widget_modify_fg(message, GTK_STATE_NORMAL, &dark_red);
    gtk_widget_hide(message);

    r = row(main_column);
    button(r, "GUIstandardScreenshot", "Take Screenshot");
    button(r, "GUIscreenshotButton", "Render to File (1024x1024 pixels)");

    GtkWidget* tabs = put(main_column, reg(gtk_notebook_new(), "GUIrendermodeTabs"), true);
    gtk_notebook_set_tab_pos(GTK_NOTEBOOK(tabs), GTK_POS_LEFT);
    build_slices_page(tabs);
    build_3d_page(tabs);
    build_light_page(tabs);
    build_cutting_page(tabs);

    r = row(main_column);
    progress(r, "GUIprogressBar");
    entry(r, "GUIrendertime", 15, "Last Rendertime");
    separator(main_column);

    connect_panel_signals(window);
    building = nullptr;
    return window;
}

// ---------------------------------------------------------------------------------------------

static gboolean on_window_destroy(GtkWidget*, gpointer)
{
    gui_destroyed = 1;
    g_print("delete event occured\n");
    return TRUE;
}

// Every dialog that GTK maps (the colour dialog of the strip, the chooser's and the colour
// buttons' dialogs, the save dialogs) first takes the pointer back from the image window: a
// grab or a hidden cursor left there would lock the user out of the dialog. Popups (menus,
// tooltips) are no dialogs and pass.
static gboolean on_any_window_map(GSignalInvocationHint*, guint, const GValue* params, gpointer)
{
    GObject* object = (GObject*)g_value_get_object(&params[0]);
    if (GTK_IS_WINDOW(object) && (GtkWidget*)object != gui_window &&
        gtk_window_get_window_type(GTK_WINDOW(object)) == GTK_WINDOW_TOPLEVEL)
        release_pointer();
    return TRUE;  // stay hooked
}

// Shows a packed colour in a colour button the way the panel does at its start; 0 when the
// colour could not be had (the message is printed, the button keeps its colour).
static int show_button_color(const char* name, uint32_t color)
{
    char text[16];
    snprintf(text, sizeof text, "#%06x", color);
    GdkColor c = {};
    if (!gdk_colormap_alloc_color(gdk_colormap_get_system(), &c, FALSE, TRUE)) {
        puts("GTK+ color alloc failed!");
        return 0;
    }
    if (gdk_color_parse(text, &c) != 1) {
        puts("GTK+ color parse failed!");
        return 0;
    }
    gtk_color_button_set_color(GTK_COLOR_BUTTON(lookup_widget(gui_window, name)), &c);
    return 1;
}

static void add_filter(GtkWidget* chooser, const char* name, const char* const* patterns, int count)
{
    GtkFileFilter* filter = gtk_file_filter_new();
    gtk_file_filter_set_name(filter, name);
    for (int i = 0; i < count; ++i) gtk_file_filter_add_pattern(filter, patterns[i]);
    gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(chooser), filter);
}

void init_control_panel(int* argc, char*** argv)
{
    gui_main_loop = g_main_loop_new(nullptr, TRUE);
    gui_destroyed = 0;
    gui_active = 1;

    gtk_set_locale();
    gtk_init(argc, argv);

    gui_window = build_control_panel();
    // The widget class stands once the tree is built: every window mapped from now on.
    g_signal_add_emission_hook(g_signal_lookup("map", GTK_TYPE_WIDGET), 0, on_any_window_map,
                               nullptr, nullptr);
    gtk_widget_show(gui_window);
    g_signal_connect(G_OBJECT(gui_window), "destroy", G_CALLBACK(on_window_destroy), nullptr);

    color_dialog_open = 0;
    cs_picked = 0;
    cs_color = 0;
    last_volume_path[0] = 0;

    // light_color, light_dir and isovalue start here, not in main.
    set_panel_defaults();
    show_button_color("GUI_lightColor", light_color);
    const char* light_entries[3] = {"GUI_lightX", "GUI_lightY", "GUI_lightZ"};
    for (int i = 0; i < 3; ++i) {
        char text[16];
        snprintf(text, sizeof text, "%+4.3f", light_dir[i]);
        gtk_entry_set_text(GTK_ENTRY(lookup_widget(gui_window, light_entries[i])), text);
    }

    GtkWidget* chooser = lookup_widget(gui_window, "GUIloadvolume");
    static const char* const dat[] = {"*.DAT", "*.dat"};
    static const char* const palette[] = {"*.KVX", "*.kvx", "*.VOX", "*.vox"};
    static const char* const all[] = {"*.*"};
    add_filter(chooser, "Volume Data (*.dat)", dat, 2);
    add_filter(chooser, "KVX/VOX Data (*.kvx, *.vox)", palette, 4);
    // The importer's scans: any one file of a DICOM series opens the series (DICOM files
    // without an ending show under "All Files").
    static const char* const scans[] = {"*.dcm", "*.DCM", "*.dicom", "*.ima", "*.IMA", "*.nii",
                                        "*.NII", "*.nii.gz", "*.NII.GZ", "*.hdr", "*.HDR",
                                        "*.nrrd", "*.NRRD", "*.nhdr", "*.NHDR"};
    add_filter(chooser, "Scans (DICOM *.dcm, NIfTI *.nii *.nii.gz, NRRD *.nrrd *.nhdr)", scans,
               (int)(sizeof scans / sizeof scans[0]));
    add_filter(chooser, "All Files (*.*)", all, 1);

    GUIprogressBar = lookup_widget(gui_window, "GUIprogressBar");
    GUIprogressBarShadow = lookup_widget(gui_window, "GUIprogressBarShadow");
    GUIprogressBarSmoothenShadow = lookup_widget(gui_window, "GUIprogressBarSmoothenShadow");
    GUIprogressBarSmoothenData = lookup_widget(gui_window, "GUIprogressBarSmoothenData");

    if (!show_button_color("GUIedgeColor", edge_color)) return;
}

// ---------------------------------------------------------------------------------------------

static void on_dialog_nothing(GtkWidget*, gpointer) {}

static void on_dialog_file_activated(GtkFileChooser* chooser, gpointer)
{
    gchar* name = gtk_file_chooser_get_filename(chooser);
    printf("file activated %s\n", name ? name : "");
    g_free(name);
}

GtkWidget* create_screenshot_dialog()
{
    GtkWidget* dialog = gtk_file_chooser_dialog_new("", nullptr, GTK_FILE_CHOOSER_ACTION_SAVE, nullptr, nullptr);
    gtk_window_set_destroy_with_parent(GTK_WINDOW(dialog), TRUE);
    gtk_window_set_type_hint(GTK_WINDOW(dialog), GDK_WINDOW_TYPE_HINT_DIALOG);
    GtkWidget* vbox = GTK_DIALOG(dialog)->vbox;
    GtkWidget* actions = GTK_DIALOG(dialog)->action_area;

    GtkWidget* cancel = gtk_button_new_from_stock("gtk-cancel");
    gtk_dialog_add_action_widget(GTK_DIALOG(dialog), cancel, GTK_RESPONSE_CANCEL);
    GTK_WIDGET_SET_FLAGS(cancel, GTK_CAN_DEFAULT);
    GtkWidget* open = gtk_button_new_from_stock("gtk-open");
    gtk_dialog_add_action_widget(GTK_DIALOG(dialog), open, GTK_RESPONSE_OK);
    GTK_WIDGET_SET_FLAGS(open, GTK_CAN_DEFAULT);
    gtk_widget_show(cancel);
    gtk_widget_show(open);

    g_object_set_data(G_OBJECT(dialog), "GUIscreenshotDialog", dialog);
    const struct { GtkWidget* w; const char* name; } named[] = {
        {vbox, "dialog_vbox1"}, {actions, "dialog_action_area1"},
        {cancel, "GUIscreenshot_CANCEL"}, {open, "GUIscreenshot_OPEN"}};
    for (auto& n : named)
        g_object_set_data_full(G_OBJECT(dialog), n.name, gtk_widget_ref(n.w), (GDestroyNotify)gtk_widget_unref);

    g_signal_connect(G_OBJECT(dialog), "destroy", G_CALLBACK(on_dialog_nothing), nullptr);
    g_signal_connect(G_OBJECT(dialog), "close", G_CALLBACK(on_dialog_nothing), nullptr);
    g_signal_connect(G_OBJECT(dialog), "selection_changed", G_CALLBACK(on_dialog_nothing), nullptr);
    g_signal_connect(G_OBJECT(dialog), "file_activated", G_CALLBACK(on_dialog_file_activated), nullptr);
    g_signal_connect(G_OBJECT(cancel), "clicked", G_CALLBACK(on_dialog_nothing), nullptr);
    g_signal_connect(G_OBJECT(open), "clicked", G_CALLBACK(on_dialog_nothing), nullptr);

    gtk_widget_grab_default(open);
    return dialog;
}
