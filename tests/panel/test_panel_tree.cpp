// The widget tree: every registered name, the kind of widget behind it and the tab it sits
// in, labels and tooltips as the panel's own texts, adjustments, radio groups and start
// states, the chooser's file filters, the start values of init_control_panel and the registry.
#include <cstring>
#include <vector>

#include "panel_helpers.h"
#include "transfer/transfer.h"

namespace {

enum Kind { Button, Check, Radio, Toggle, Spin, HScale, VScale, Entry, Progress, Notebook, Chooser, Colour, Window };

GType type_of(Kind k)
{
    switch (k) {
    case Button: return GTK_TYPE_BUTTON;
    case Check: return GTK_TYPE_CHECK_BUTTON;
    case Radio: return GTK_TYPE_RADIO_BUTTON;
    case Toggle: return GTK_TYPE_TOGGLE_BUTTON;
    case Spin: return GTK_TYPE_SPIN_BUTTON;
    case HScale: return GTK_TYPE_HSCALE;
    case VScale: return GTK_TYPE_VSCALE;
    case Entry: return GTK_TYPE_ENTRY;
    case Progress: return GTK_TYPE_PROGRESS_BAR;
    case Notebook: return GTK_TYPE_NOTEBOOK;
    case Chooser: return GTK_TYPE_FILE_CHOOSER_BUTTON;
    case Colour: return GTK_TYPE_COLOR_BUTTON;
    case Window: return GTK_TYPE_WINDOW;
    }
    return G_TYPE_NONE;
}

// Where a widget stands: -1 outside the notebooks, else the page of GUIrendermodeTabs (0
// Slices, 1 3D, 2 Light & Shadow, 3 Cutting), and for the 3D page the page of GUI3DTabs.
struct Named {
    const char* name;
    Kind kind;
    int tab;
    int tab3d;
};

const std::vector<Named> registered = {
    {"GUIwindow", Window, -1, -1},
    {"GUIloadvolume", Chooser, -1, -1},
    {"GUIvolDim", Entry, -1, -1},
    {"GUIsmoothData", Button, -1, -1},
    {"GUIprogressBarSmoothenData", Progress, -1, -1},
    {"GUIstandardScreenshot", Button, -1, -1},
    {"GUIscreenshotButton", Button, -1, -1},
    {"GUIrendermodeTabs", Notebook, -1, -1},
    {"GUIsliceUsetf", Check, 0, -1},
    {"GUIsliceFilter", Check, 0, -1},
    {"GUIsliceRecenter", Check, 0, -1},
    {"GUIslice3D", Radio, 0, -1},
    {"GUIsliceNX", Spin, 0, -1},
    {"GUIsliceNY", Spin, 0, -1},
    {"GUIsliceNZ", Spin, 0, -1},
    {"GUIsliceD", Spin, 0, -1},
    {"GUIswitch3D", Toggle, 0, -1},
    {"GUInorm3D", Button, 0, -1},
    {"GUIsliceXY", Radio, 0, -1},
    {"GUIsliceXZ", Radio, 0, -1},
    {"GUIsliceYZ", Radio, 0, -1},
    {"GUIsliderXY", VScale, 0, -1},
    {"GUIsliderXZ", VScale, 0, -1},
    {"GUIsliderYZ", VScale, 0, -1},
    {"GUIsliderZoom", VScale, 0, -1},
    {"GUI3DNoIpol", Radio, 1, -1},
    {"GUI3DInterpol", Radio, 1, -1},
    {"GUI3DIpolTrilin", Radio, 1, -1},
    {"GUIstepsize", Spin, 1, -1},
    {"GUI3DTabs", Notebook, 1, -1},
    {"GUInoipStandard", Radio, 1, 0},
    {"GUI3DNoLightmodel", Radio, 1, 0},
    {"GUI3DSimpleLightmodel", Radio, 1, 0},
    {"GUIpureShadowInfo", Radio, 1, 0},
    {"GUIStepfuncIsoval", Radio, 1, 0},
    {"GUIStepfuncIsovalSlider", HScale, 1, 0},
    {"GUI_isovalMulti1", Check, 1, 0},
    {"GUI_isovalMulti2", Check, 1, 0},
    {"GUI_isovalMulti3", Check, 1, 0},
    {"GUI_isovalMulti4", Check, 1, 0},
    {"GUI_isovalMulti1Slider", HScale, 1, 0},
    {"GUI_isovalMulti2Slider", HScale, 1, 0},
    {"GUI_isovalMulti3Slider", HScale, 1, 0},
    {"GUI_isovalMulti4Slider", HScale, 1, 0},
    {"GUIEdgeDetectionToggle", Check, 1, 0},
    {"GUIEdgeDetectionSlider", HScale, 1, 0},
    {"GUIedgeColor", Colour, 1, 0},
    {"GUIToonshadeToggle", Check, 1, 0},
    {"GUIpencilSketch", Check, 1, 0},
    {"GUIpreshadingFH", Radio, 1, 0},
    {"GUIpostshadingFH", Radio, 1, 0},
    {"GUImaxipFaint", Check, 1, 1},
    {"GUIavgFaint", Check, 1, 2},
    {"GUIrbsFaint", Check, 1, 3},
    {"GUIrbsDissolve", Check, 1, 3},
    {"GUI_rbsGradDep", HScale, 1, 3},
    {"GUI_rbsAlphaCorrection", Check, 1, 3},
    {"GUIpreshadingRBS", Radio, 1, 3},
    {"GUIpostshadingRBS", Radio, 1, 3},
    {"GUIicsFaint", Check, 1, 4},
    {"GUIicsDissolve", Check, 1, 4},
    {"GUI_icsThickness", HScale, 1, 4},
    {"GUIISCIsovalSlider", HScale, 1, 4},
    {"GUI_icsMulti1", Check, 1, 4},
    {"GUI_icsMulti2", Check, 1, 4},
    {"GUI_icsMulti3", Check, 1, 4},
    {"GUI_icsMulti4", Check, 1, 4},
    {"GUI_icsMulti1_thick", HScale, 1, 4},
    {"GUI_icsMulti2_thick", HScale, 1, 4},
    {"GUI_icsMulti3_thick", HScale, 1, 4},
    {"GUI_icsMulti4_thick", HScale, 1, 4},
    {"GUI_icsMulti1_isoval", HScale, 1, 4},
    {"GUI_icsMulti2_isoval", HScale, 1, 4},
    {"GUI_icsMulti3_isoval", HScale, 1, 4},
    {"GUI_icsMulti4_isoval", HScale, 1, 4},
    {"GUI_icsAlphaCorrection", Check, 1, 4},
    {"GUIpreshadingICS", Radio, 1, 4},
    {"GUIpostshadingICS", Radio, 1, 4},
    {"GUI_lightColor", Colour, 2, -1},
    {"GUI_lightX", Entry, 2, -1},
    {"GUI_lightY", Entry, 2, -1},
    {"GUI_lightZ", Entry, 2, -1},
    {"GUILightDirButton", Button, 2, -1},
    {"GUIambientSlider", HScale, 2, -1},
    {"GUIdiffuseSlider", HScale, 2, -1},
    {"GUIspecularSlider", HScale, 2, -1},
    {"GUIexponentSlider", HScale, 2, -1},
    {"GUIshadowStepsize", HScale, 2, -1},
    {"GUIsoftShadow", Radio, 2, -1},
    {"GUIhardShadow", Radio, 2, -1},
    {"GUI_lightShadowPrecalc", Button, 2, -1},
    {"GUIprogressBarShadow", Progress, 2, -1},
    {"GUIsmoothShadows", Button, 2, -1},
    {"GUIprogressBarSmoothenShadow", Progress, 2, -1},
    {"GUIocclusionLightBlend", Check, 2, -1},
    {"GUICuttingView", Toggle, 3, -1},
    {"GUICutWithPlane", Radio, 3, -1},
    {"GUICuttingPlaneNX", Entry, 3, -1},
    {"GUICuttingPlaneNY", Entry, 3, -1},
    {"GUICuttingPlaneNZ", Entry, 3, -1},
    {"GUICuttingPlaneNormal", Button, 3, -1},
    {"GUICuttingPlaneD", HScale, 3, -1},
    {"GUICutWithSphere", Radio, 3, -1},
    {"GUICutInsideSphere", Radio, 3, -1},
    {"GUICutOutsideSphere", Radio, 3, -1},
    {"GUISphereXSlider", HScale, 3, -1},
    {"GUISphereYSlider", HScale, 3, -1},
    {"GUISphereZSlider", HScale, 3, -1},
    {"GUISphereRSlider", HScale, 3, -1},
    {"GUICuttingPlaneApply", Button, 3, -1},
    {"GUIprogressBar", Progress, -1, -1},
    {"GUIrendertime", Entry, -1, -1},
};

const char* button_text(const char* name) { return gtk_button_get_label(GTK_BUTTON(W(name))); }

std::string tooltip(const char* name)
{
    GtkTooltipsData* data = gtk_tooltips_data_get(W(name));
    return data && data->tip_text ? data->tip_text : "";
}

// The names of a radio button's group, in GTK's list order (the newest first).
std::vector<std::string> group_of(const char* name)
{
    std::vector<std::string> names;
    for (GSList* l = gtk_radio_button_get_group(GTK_RADIO_BUTTON(W(name))); l; l = l->next) {
        for (const Named& n : registered)
            if (n.kind == Radio && W(n.name) == l->data) names.push_back(n.name);
    }
    return names;
}

GtkAdjustment* adjustment_of(const char* name)
{
    GtkWidget* w = W(name);
    if (GTK_IS_SPIN_BUTTON(w)) return gtk_spin_button_get_adjustment(GTK_SPIN_BUTTON(w));
    return gtk_range_get_adjustment(GTK_RANGE(w));
}

void expect_adjustment(const char* name, double value, double lower, double upper, double step, double page)
{
    GtkAdjustment* a = adjustment_of(name);
    EXPECT_DOUBLE_EQ(a->value, value) << name;
    EXPECT_DOUBLE_EQ(a->lower, lower) << name;
    EXPECT_DOUBLE_EQ(a->upper, upper) << name;
    EXPECT_DOUBLE_EQ(a->step_increment, step) << name;
    EXPECT_DOUBLE_EQ(a->page_increment, page) << name;
    EXPECT_DOUBLE_EQ(a->page_size, 0.0) << name;
}

}  // namespace

TEST_F(Panel, EveryNameIsRegisteredWithItsKindAndTab)
{
    GtkWidget* tabs = W("GUIrendermodeTabs");
    GtkWidget* tabs3d = W("GUI3DTabs");
    ASSERT_NE(tabs, nullptr);
    ASSERT_NE(tabs3d, nullptr);
    EXPECT_EQ(gtk_notebook_get_n_pages(GTK_NOTEBOOK(tabs)), 4);
    EXPECT_EQ(gtk_notebook_get_n_pages(GTK_NOTEBOOK(tabs3d)), 5);
    for (const Named& n : registered) {
        GtkWidget* w = lookup_widget(gui_window, n.name);
        ASSERT_NE(w, nullptr) << n.name;
        EXPECT_EQ(G_OBJECT_TYPE(w), type_of(n.kind)) << n.name;
        // Found from any widget of the window, not only from the window.
        EXPECT_EQ(lookup_widget(W("GUIrendertime"), n.name), w) << n.name;
        if (n.tab >= 0) {
            GtkWidget* page = gtk_notebook_get_nth_page(GTK_NOTEBOOK(tabs), n.tab);
            EXPECT_TRUE(gtk_widget_is_ancestor(w, page)) << n.name << " on page " << n.tab;
        } else if (n.kind != Window) {
            EXPECT_FALSE(gtk_widget_is_ancestor(w, tabs)) << n.name;
        }
        if (n.tab3d >= 0) {
            GtkWidget* page = gtk_notebook_get_nth_page(GTK_NOTEBOOK(tabs3d), n.tab3d);
            EXPECT_TRUE(gtk_widget_is_ancestor(w, page)) << n.name << " on 3D page " << n.tab3d;
        }
    }
    EXPECT_EQ(W("GUIwindow"), gui_window);
    EXPECT_TRUE(GTK_IS_TOOLTIPS(g_object_get_data(G_OBJECT(gui_window), "tooltips")));
    // Containers and labels are registered under generic names.
    EXPECT_TRUE(GTK_IS_VBOX(W("vbox1")));
    EXPECT_TRUE(GTK_IS_HBOX(W("hbox1")));
    EXPECT_TRUE(GTK_IS_LABEL(W("label1")));
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(W("label1"))), "Load Volume:");
    EXPECT_TRUE(GTK_IS_HSEPARATOR(W("hseparator1")));
    EXPECT_TRUE(GTK_IS_TABLE(W("table1")));
}

TEST_F(Panel, UnknownNamesGiveNull)
{
    EXPECT_EQ(lookup_widget(gui_window, "GUIdoesNotExist"), nullptr);
    EXPECT_EQ(lookup_widget(W("GUIsliceXY"), "GUIsliderQQ"), nullptr);
}

TEST_F(Panel, DialogWidgetsFindTheDialogsNamesNotThePanels)
{
    GtkWidget* dialog = create_screenshot_dialog();
    GtkWidget* open = lookup_widget(dialog, "GUIscreenshot_OPEN");
    ASSERT_NE(open, nullptr);
    EXPECT_EQ(lookup_widget(open, "GUIscreenshotDialog"), dialog);
    EXPECT_NE(lookup_widget(open, "GUIscreenshot_CANCEL"), nullptr);
    EXPECT_NE(lookup_widget(open, "dialog_vbox1"), nullptr);
    EXPECT_NE(lookup_widget(open, "dialog_action_area1"), nullptr);
    EXPECT_STREQ(gtk_button_get_label(GTK_BUTTON(open)), "gtk-open");
    EXPECT_STREQ(gtk_button_get_label(GTK_BUTTON(lookup_widget(open, "GUIscreenshot_CANCEL"))), "gtk-cancel");
    EXPECT_EQ(gtk_file_chooser_get_action(GTK_FILE_CHOOSER(dialog)), GTK_FILE_CHOOSER_ACTION_SAVE);
    EXPECT_EQ(gtk_dialog_get_response_for_widget(GTK_DIALOG(dialog), open), GTK_RESPONSE_OK);
    EXPECT_TRUE(GTK_WIDGET_HAS_DEFAULT(open));
    // The panel's names are not the dialog's.
    EXPECT_EQ(lookup_widget(open, "GUIsliceXY"), nullptr);
    EXPECT_EQ(lookup_widget(W("GUIsliceXY"), "GUIscreenshot_OPEN"), nullptr);
    gtk_widget_destroy(dialog);

    GtkWidget* colour = create_color_dialog();
    GtkWidget* ok = lookup_widget(colour, "GUIcolorSel_OkButton");
    ASSERT_NE(ok, nullptr);
    EXPECT_EQ(lookup_widget(ok, "GUIcolorSel"), colour);
    EXPECT_EQ(lookup_widget(ok, "GUIsliceXY"), nullptr);
    gtk_widget_destroy(colour);
}

TEST_F(Panel, WindowProperties)
{
    GtkWindow* window = GTK_WINDOW(gui_window);
    EXPECT_STREQ(gtk_window_get_title(window), "tavok by Mara Quill");
    EXPECT_STREQ(gtk_window_get_icon_name(window), "gtk-execute");
    EXPECT_EQ(gtk_window_get_gravity(window), GDK_GRAVITY_NORTH_EAST);
    EXPECT_FALSE(gtk_window_get_focus_on_map(window));
    int w = 0, h = 0;
    gtk_widget_get_size_request(gui_window, &w, &h);
    EXPECT_EQ(w, 475);
    gtk_window_get_default_size(window, &w, &h);
    EXPECT_EQ(w, 100);
    gtk_widget_get_size_request(W("vbox1"), &w, &h);
    EXPECT_EQ(w, 490);
    EXPECT_EQ(tooltip("GUIwindow"), "Direct Volume Rendering controls");
    EXPECT_TRUE(GTK_WIDGET_VISIBLE(gui_window));
    EXPECT_TRUE(GTK_WIDGET_VISIBLE(W("GUIsliceXY")));
    EXPECT_EQ(gtk_notebook_get_tab_pos(GTK_NOTEBOOK(W("GUIrendermodeTabs"))), GTK_POS_LEFT);
    EXPECT_EQ(gtk_notebook_get_tab_pos(GTK_NOTEBOOK(W("GUI3DTabs"))), GTK_POS_TOP);
    GtkWidget* tabs = W("GUIrendermodeTabs");
    const char* tab_texts[4] = {"Slices", "3D", "  Light\n     &\nShadow", "Cutting\nPlane\n     &\nSphere"};
    for (int i = 0; i < 4; ++i)
        EXPECT_STREQ(gtk_notebook_get_tab_label_text(GTK_NOTEBOOK(tabs), gtk_notebook_get_nth_page(GTK_NOTEBOOK(tabs), i)),
                     tab_texts[i]);
    const char* tab3d_texts[5] = {"First Hit", "MIP", "AVG", "RBS", "ICS"};
    GtkWidget* tabs3d = W("GUI3DTabs");
    for (int i = 0; i < 5; ++i)
        EXPECT_STREQ(gtk_notebook_get_tab_label_text(GTK_NOTEBOOK(tabs3d), gtk_notebook_get_nth_page(GTK_NOTEBOOK(tabs3d), i)),
                     tab3d_texts[i]);
}

TEST_F(Panel, LabelsAndTooltipsAreThePanelsOwnTexts)
{
    EXPECT_STREQ(button_text("GUIsmoothData"), "Blur Data");
    EXPECT_STREQ(button_text("GUIstandardScreenshot"), "Take Screenshot");
    EXPECT_STREQ(button_text("GUIscreenshotButton"), "Render to File (1024x1024 pixels)");
    EXPECT_STREQ(button_text("GUIsliceUsetf"), "Use Transfer Function");
    EXPECT_STREQ(button_text("GUIswitch3D"), "3D View / Slice View");
    EXPECT_STREQ(button_text("GUInorm3D"), "normalize (nx, ny, nz)");
    EXPECT_STREQ(button_text("GUIsliceXZ"), "XZ");
    EXPECT_STREQ(button_text("GUInoipStandard"), "Cuberille:\n( no Interpolation/\n  no Lighting )");
    EXPECT_STREQ(button_text("GUIStepfuncIsoval"), "Isovalue (Density): ");
    EXPECT_STREQ(button_text("GUI_isovalMulti3"), "surface 3 ");
    EXPECT_STREQ(button_text("GUI_icsMulti2"), "surface 2: ");
    EXPECT_STREQ(button_text("GUIEdgeDetectionToggle"), "Edge Detection   ");
    EXPECT_STREQ(button_text("GUIpencilSketch"), "\"Pencil Sketch\" shading");
    EXPECT_STREQ(button_text("GUImaxipFaint"), "\"Faint Whisps\"-compositing");
    EXPECT_STREQ(button_text("GUIrbsDissolve"), "Modified Classification\n(Trilinear Interp. only)");
    EXPECT_STREQ(button_text("GUI_rbsAlphaCorrection"), "Alpha Correction ");
    EXPECT_STREQ(button_text("GUI_icsAlphaCorrection"), "Alpha Correction");
    EXPECT_STREQ(button_text("GUIsmoothShadows"), "          Blur Shadows       ");
    EXPECT_STREQ(button_text("GUICutInsideSphere"), "Cut away voxels inside the Sphere");
    EXPECT_STREQ(button_text("GUI3DInterpol"), "Bilinear Interpolation. Sample at grid-intersections only.");
    EXPECT_STREQ(button_text("GUI3DIpolTrilin"), "Trilinear Interpolation. Sample-distance: ");

    EXPECT_EQ(tooltip("GUIsliceFilter"),
              "Switch between no filtering and bilinear filtering (looks better but is slightly slower). "
              "NOTE: Does not affect \"Arbitrary Slicing\".");
    EXPECT_EQ(tooltip("GUIslice3D"),
              "Set arbitrary cut-plane for slicing (Slice along the viewing direction which equals the "
              "cut-plane normal [nx,ny,nz]). NOTE: Only the \"Zoom\"-Slider will affect this slicing-mode.");
    EXPECT_EQ(tooltip("GUIsliceD"), "Set orthogonal distance of cut-plane to coordinate-origin.");
    EXPECT_EQ(tooltip("GUIsliceYZ"), "Show YZ-slices. Use slider to adjust X-value of current plane.");
    EXPECT_EQ(tooltip("GUIStepfuncIsoval"),
              "\"Step-function\" behaviour: values \"<Density\" are considered as air and values "
              "\">=Density\" are considered solid. NOTE: The transferfunction is ignored in this mode. "
              "When the slider is active, use the left/right cursor-keys to change the isovalue by 1.");
    EXPECT_EQ(tooltip("GUIpureShadowInfo"),
              "Show the occlusion factors for all models (white means no occusion at all while black "
              "voxels are fully occluded) - open tab \"Light&Shadow\" for further information.");
    EXPECT_EQ(tooltip("GUI_lightShadowPrecalc"),
              "Precalculate the occlusions based on current opacities and the lightvector. NOTE: any "
              "change that is made to the transfer-function invalidates the precomputed data; simply "
              "press the button again to refresh it. Also, try to match the isovalue that is currently "
              "set (the density) with the opacities from the transferfunction. Initially, the occlusion "
              "is set to \"half-occluded everywhere\".");
    EXPECT_EQ(tooltip("GUICuttingView"),
              "Switch between 3D display and \"Slice-only\". Helps in finding the desired cut-plane "
              "and/or get an idea, where the volume is cut.");
    EXPECT_EQ(tooltip("GUIvolDim"), "Volume Dimensions");
    EXPECT_EQ(tooltip("GUIrendertime"), "Last Rendertime");
    EXPECT_EQ(tooltip("GUIstepsize"), "Set stepsize.");
    EXPECT_EQ(tooltip("GUILightDirButton"), "Use view-vector of current camera as the new light vector.");
    EXPECT_EQ(tooltip("GUIsliceXY"), "Show XY-slices. Use slider to adjust Z-value of current plane.");
    EXPECT_EQ(tooltip("GUIToonshadeToggle"), "NOTE: works only for bilinear- and trilinear interpolation, respectively.");
    EXPECT_EQ(tooltip("GUI3DNoIpol"), "");

    EXPECT_STREQ(gtk_color_button_get_title(GTK_COLOR_BUTTON(W("GUIedgeColor"))), "Select A Color");
    EXPECT_STREQ(gtk_color_button_get_title(GTK_COLOR_BUTTON(W("GUI_lightColor"))), "Select a Color for the Lightsource");
    EXPECT_STREQ(gtk_file_chooser_button_get_title(GTK_FILE_CHOOSER_BUTTON(W("GUIloadvolume"))), "Select A File");
    for (const char* bar : {"GUIprogressBar", "GUIprogressBarShadow", "GUIprogressBarSmoothenShadow",
                            "GUIprogressBarSmoothenData"})
        EXPECT_STREQ(gtk_progress_bar_get_text(GTK_PROGRESS_BAR(W(bar))), "Progress") << bar;
}

TEST_F(Panel, AdjustmentsAndScales)
{
    expect_adjustment("GUIsliceNX", 1, -1, 1, 0.1, 1);
    expect_adjustment("GUIsliceNZ", 0, -1, 1, 0.1, 1);
    expect_adjustment("GUIsliceD", 0, -1, 1, 1, 1);
    expect_adjustment("GUIstepsize", 0.7, 0.01, 16, 0.1, 1);
    expect_adjustment("GUIStepfuncIsovalSlider", 2048, 1, 4095, 1, 0);
    expect_adjustment("GUI_isovalMulti2Slider", 1, 1, 4095, 1, 0);
    expect_adjustment("GUIEdgeDetectionSlider", 4, 0.1, 24, 0.1, 1);
    expect_adjustment("GUI_rbsGradDep", 1, 0.1, 1, 0.1, 0.25);
    expect_adjustment("GUI_icsThickness", 1, 0.1, 10, 0.1, 1);
    expect_adjustment("GUIISCIsovalSlider", 2048, 1, 4095, 1, 0);
    expect_adjustment("GUI_icsMulti4_thick", 1, 0.1, 10, 0.1, 1);
    expect_adjustment("GUI_icsMulti4_isoval", 1, 1, 4095, 1, 0);
    expect_adjustment("GUIambientSlider", 0.1, 0, 1, 0.1, 1);
    expect_adjustment("GUIexponentSlider", 16, 1, 96, 0.1, 1);
    expect_adjustment("GUIshadowStepsize", 0.7, 0.1, 4, 0.1, 1);
    expect_adjustment("GUICuttingPlaneD", 0, -1, 1, 0, 0);
    expect_adjustment("GUISphereRSlider", 0.3, 0, 1, 0, 0);
    expect_adjustment("GUISphereYSlider", 0, -1, 1, 0, 0);
    // The slice sliders after the start's reset_slices with no volume.
    GtkAdjustment* zoom = adjustment_of("GUIsliderZoom");
    EXPECT_DOUBLE_EQ(zoom->lower, 0.0);
    EXPECT_DOUBLE_EQ(zoom->upper, 1.0);
    EXPECT_DOUBLE_EQ(zoom->value, 0.25);

    EXPECT_EQ(gtk_spin_button_get_digits(GTK_SPIN_BUTTON(W("GUIsliceNY"))), 2u);
    EXPECT_EQ(gtk_spin_button_get_digits(GTK_SPIN_BUTTON(W("GUIsliceD"))), 0u);
    EXPECT_TRUE(gtk_spin_button_get_numeric(GTK_SPIN_BUTTON(W("GUIsliceD"))));
    EXPECT_EQ(gtk_scale_get_digits(GTK_SCALE(W("GUIsliderXY"))), 3);
    EXPECT_FALSE(gtk_scale_get_draw_value(GTK_SCALE(W("GUIsliderXY"))));
    EXPECT_EQ(gtk_scale_get_value_pos(GTK_SCALE(W("GUIsliderXY"))), GTK_POS_BOTTOM);
    EXPECT_TRUE(gtk_range_get_inverted(GTK_RANGE(W("GUIsliderZoom"))));
    EXPECT_TRUE(gtk_range_get_inverted(GTK_RANGE(W("GUIsliderYZ"))));
    int w = 0, h = 0;
    gtk_widget_get_size_request(W("GUIsliderXZ"), &w, &h);
    EXPECT_EQ(h, 200);
    EXPECT_EQ(gtk_scale_get_digits(GTK_SCALE(W("GUIStepfuncIsovalSlider"))), 0);
    EXPECT_EQ(gtk_scale_get_value_pos(GTK_SCALE(W("GUIStepfuncIsovalSlider"))), GTK_POS_LEFT);
    EXPECT_EQ(gtk_scale_get_digits(GTK_SCALE(W("GUIdiffuseSlider"))), 2);
    EXPECT_TRUE(gtk_scale_get_draw_value(GTK_SCALE(W("GUIdiffuseSlider"))));
    EXPECT_FALSE(gtk_scale_get_draw_value(GTK_SCALE(W("GUIEdgeDetectionSlider"))));
    EXPECT_FALSE(gtk_scale_get_draw_value(GTK_SCALE(W("GUISphereXSlider"))));

    for (const char* e : {"GUIvolDim", "GUIrendertime"}) {
        EXPECT_EQ(gtk_entry_get_max_length(GTK_ENTRY(W(e))), 15) << e;
        EXPECT_FALSE(gtk_editable_get_editable(GTK_EDITABLE(W(e)))) << e;
    }
    EXPECT_EQ(gtk_entry_get_max_length(GTK_ENTRY(W("GUI_lightY"))), 6);
    EXPECT_EQ(gtk_entry_get_max_length(GTK_ENTRY(W("GUICuttingPlaneNZ"))), 10);
    EXPECT_FALSE(gtk_editable_get_editable(GTK_EDITABLE(W("GUICuttingPlaneNZ"))));

    GtkTable* table = GTK_TABLE(W("table1"));
    guint rows = 0, columns = 0;
    gtk_table_get_size(table, &rows, &columns);
    EXPECT_EQ(rows, 4u);
    EXPECT_EQ(columns, 4u);
    EXPECT_EQ(gtk_table_get_default_row_spacing(table), 2u);
    EXPECT_EQ(gtk_table_get_default_col_spacing(table), 20u);
    EXPECT_EQ(gtk_container_get_border_width(GTK_CONTAINER(table)), 5u);
}

TEST_F(Panel, RadioGroupsAndStartStates)
{
    // GTK lists a group newest first, so each list is the order of creation turned around.
    EXPECT_EQ(group_of("GUIsliceXY"), (std::vector<std::string>{"GUIsliceYZ", "GUIsliceXZ", "GUIsliceXY", "GUIslice3D"}));
    EXPECT_EQ(group_of("GUI3DNoIpol"), (std::vector<std::string>{"GUI3DIpolTrilin", "GUI3DInterpol", "GUI3DNoIpol"}));
    EXPECT_EQ(group_of("GUIStepfuncIsoval"), (std::vector<std::string>{"GUIStepfuncIsoval", "GUInoipStandard"}));
    EXPECT_EQ(group_of("GUI3DNoLightmodel"),
              (std::vector<std::string>{"GUIpureShadowInfo", "GUI3DSimpleLightmodel", "GUI3DNoLightmodel"}));
    EXPECT_EQ(group_of("GUIpreshadingFH"), (std::vector<std::string>{"GUIpostshadingFH", "GUIpreshadingFH"}));
    EXPECT_EQ(group_of("GUIpreshadingRBS"), (std::vector<std::string>{"GUIpostshadingRBS", "GUIpreshadingRBS"}));
    EXPECT_EQ(group_of("GUIpostshadingICS"), (std::vector<std::string>{"GUIpostshadingICS", "GUIpreshadingICS"}));
    EXPECT_EQ(group_of("GUIsoftShadow"), (std::vector<std::string>{"GUIhardShadow", "GUIsoftShadow"}));
    EXPECT_EQ(group_of("GUICutWithPlane"), (std::vector<std::string>{"GUICutWithSphere", "GUICutWithPlane"}));
    EXPECT_EQ(group_of("GUICutInsideSphere"), (std::vector<std::string>{"GUICutOutsideSphere", "GUICutInsideSphere"}));

    for (const char* on : {"GUIsliceXY", "GUI3DNoIpol", "GUInoipStandard", "GUI3DNoLightmodel", "GUIpostshadingFH",
                           "GUIpostshadingRBS", "GUIpostshadingICS", "GUIsoftShadow", "GUICutWithPlane",
                           "GUICutInsideSphere", "GUIsliceFilter", "GUIsliceRecenter", "GUI_rbsAlphaCorrection",
                           "GUI_icsAlphaCorrection"})
        EXPECT_TRUE(is_active(on)) << on;
    for (const char* off : {"GUIslice3D", "GUIsliceXZ", "GUIsliceYZ", "GUIStepfuncIsoval", "GUIsliceUsetf",
                            "GUIswitch3D", "GUICuttingView", "GUIhardShadow", "GUIpreshadingFH", "GUImaxipFaint",
                            "GUI_isovalMulti1", "GUI_icsMulti4", "GUIEdgeDetectionToggle", "GUIToonshadeToggle",
                            "GUIpencilSketch", "GUIocclusionLightBlend", "GUIrbsDissolve"})
        EXPECT_FALSE(is_active(off)) << off;
    EXPECT_EQ(get_page("GUIrendermodeTabs"), 0);
    EXPECT_EQ(get_page("GUI3DTabs"), 0);
}

TEST_F(Panel, StartValuesOfInitAndTheirMismatches)
{
    EXPECT_EQ(entry_text("GUI_lightX"), "+0.707");
    EXPECT_EQ(entry_text("GUI_lightY"), "+0.000");
    EXPECT_EQ(entry_text("GUI_lightZ"), "-0.707");
    EXPECT_EQ(light_color, 0xffffffu);
    EXPECT_EQ(isovalue, 2048);
    EXPECT_EQ(color_dialog_open, 0);
    EXPECT_EQ(cs_color, 0u);
    EXPECT_STREQ(last_volume_path, "");
    EXPECT_EQ(gui_destroyed, 0);
    EXPECT_EQ(gui_active, 1);
    EXPECT_TRUE(g_main_loop_is_running(gui_main_loop));
    GdkColor c;
    gtk_color_button_get_color(GTK_COLOR_BUTTON(W("GUI_lightColor")), &c);
    EXPECT_EQ(c.red >> 8, 0xff);
    EXPECT_EQ(c.green >> 8, 0xff);
    EXPECT_EQ(c.blue >> 8, 0xff);
    gtk_color_button_get_color(GTK_COLOR_BUTTON(W("GUIedgeColor")), &c);
    EXPECT_EQ(c.red >> 8, 0xcc);
    EXPECT_EQ(c.green >> 8, 0xcc);
    EXPECT_EQ(c.blue >> 8, 0xcc);
    EXPECT_EQ(GUIprogressBar, W("GUIprogressBar"));
    EXPECT_EQ(GUIprogressBarShadow, W("GUIprogressBarShadow"));
    EXPECT_EQ(GUIprogressBarSmoothenShadow, W("GUIprogressBarSmoothenShadow"));
    EXPECT_EQ(GUIprogressBarSmoothenData, W("GUIprogressBarSmoothenData"));

    // The panel and the settings are not synchronised at start, and stay so until a signal.
    EXPECT_EQ(light_ambient, 0.0f);
    EXPECT_DOUBLE_EQ(get_value("GUIambientSlider"), 0.1);
    EXPECT_EQ(surface_isovalue[0], 0);
    EXPECT_DOUBLE_EQ(get_value("GUI_isovalMulti1Slider"), 1.0);
    EXPECT_EQ(shadow_kind, 2);
    EXPECT_TRUE(is_active("GUIsoftShadow"));
    EXPECT_EQ(cut_sphere_r2, 1600.0f);
    EXPECT_EQ(interp_mode, 0);
}

TEST_F(Panel, FileFiltersOfTheChooser)
{
    GSList* filters = gtk_file_chooser_list_filters(GTK_FILE_CHOOSER(W("GUIloadvolume")));
    ASSERT_EQ(g_slist_length(filters), 4u);
    const char* names[4] = {"Volume Data (*.dat)", "KVX/VOX Data (*.kvx, *.vox)",
                            "Scans (DICOM *.dcm, NIfTI *.nii *.nii.gz, NRRD *.nrrd *.nhdr)",
                            "All Files (*.*)"};
    GtkFileFilter* f[4];
    int i = 0;
    for (GSList* l = filters; l; l = l->next, ++i) {
        f[i] = GTK_FILE_FILTER(l->data);
        EXPECT_STREQ(gtk_file_filter_get_name(f[i]), names[i]);
    }
    g_slist_free(filters);
    auto accepts = [](GtkFileFilter* filter, const char* file) {
        GtkFileFilterInfo info = {};
        info.contains = GTK_FILE_FILTER_DISPLAY_NAME;
        info.display_name = file;
        return gtk_file_filter_filter(filter, &info) != 0;
    };
    EXPECT_TRUE(accepts(f[0], "head.dat"));
    EXPECT_TRUE(accepts(f[0], "HEAD.DAT"));
    EXPECT_FALSE(accepts(f[0], "head.Dat"));
    EXPECT_FALSE(accepts(f[0], "head.kvx"));
    // Upper and lower case only, as the load path tells the loaders apart.
    EXPECT_TRUE(accepts(f[1], "a.kvx"));
    EXPECT_TRUE(accepts(f[1], "a.KVX"));
    EXPECT_TRUE(accepts(f[1], "a.vox"));
    EXPECT_TRUE(accepts(f[1], "a.VOX"));
    EXPECT_FALSE(accepts(f[1], "a.Kvx"));
    EXPECT_FALSE(accepts(f[1], "a.vOx"));
    EXPECT_FALSE(accepts(f[1], "a.dat"));
    // The scans the importer reads.
    for (const char* scan : {"IM0001.dcm", "brain.nii", "brain.nii.gz", "t1.hdr", "vol.nrrd", "vol.nhdr", "CT.IMA"})
        EXPECT_TRUE(accepts(f[2], scan)) << scan;
    EXPECT_FALSE(accepts(f[2], "head.dat"));
    EXPECT_FALSE(accepts(f[2], "brain.nii.bak"));
    EXPECT_TRUE(accepts(f[3], "anything.at.all"));
    EXPECT_FALSE(accepts(f[3], "no_dot"));
}
