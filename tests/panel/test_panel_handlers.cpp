// The handlers, driven with the calls that a user's clicks cause: each writes its setting and
// sets refresh (or says it doesn't), the fan-outs between widgets end with agreeing states,
// and the notebooks and slice widgets switch the render mode.
#include <cmath>
#include <string>

#include "panel_helpers.h"
#include "transfer/transfer.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

TEST_F(Panel, FaintWhispsTogglesAgree)
{
    click("GUIrbsFaint");
    EXPECT_EQ(faint_whisps, 1);
    EXPECT_EQ(refresh, 1);
    for (const char* n : {"GUImaxipFaint", "GUIavgFaint", "GUIrbsFaint", "GUIicsFaint"}) EXPECT_TRUE(is_active(n)) << n;
    refresh = 0;
    click("GUImaxipFaint");
    EXPECT_EQ(faint_whisps, 0);
    EXPECT_EQ(refresh, 1);
    for (const char* n : {"GUImaxipFaint", "GUIavgFaint", "GUIrbsFaint", "GUIicsFaint"}) EXPECT_FALSE(is_active(n)) << n;
}

TEST_F(Panel, PencilNeedsToonButToonStaysWithoutPencil)
{
    set_active("GUIpencilSketch", true);
    EXPECT_EQ(pencil_sketch, 1);
    EXPECT_EQ(toon_shading, 1);
    EXPECT_TRUE(is_active("GUIToonshadeToggle"));
    // Turning the pencil off leaves toon shading on.
    set_active("GUIpencilSketch", false);
    EXPECT_EQ(pencil_sketch, 0);
    EXPECT_EQ(toon_shading, 1);
    EXPECT_TRUE(is_active("GUIToonshadeToggle"));
    // Turning toon shading off takes the pencil with it.
    set_active("GUIpencilSketch", true);
    set_active("GUIToonshadeToggle", false);
    EXPECT_EQ(toon_shading, 0);
    EXPECT_EQ(pencil_sketch, 0);
    EXPECT_FALSE(is_active("GUIpencilSketch"));
    EXPECT_EQ(refresh, 1);
}

TEST_F(Panel, ShadingOrderIsOneForThreeTabs)
{
    set_active("GUIpreshadingRBS", true);
    EXPECT_EQ(pre_shading, 1);
    for (const char* n : {"GUIpreshadingFH", "GUIpreshadingRBS", "GUIpreshadingICS"}) EXPECT_TRUE(is_active(n)) << n;
    for (const char* n : {"GUIpostshadingFH", "GUIpostshadingRBS", "GUIpostshadingICS"}) EXPECT_FALSE(is_active(n)) << n;
    EXPECT_EQ(refresh, 1);
    refresh = 0;
    set_active("GUIpostshadingICS", true);
    EXPECT_EQ(pre_shading, 0);
    for (const char* n : {"GUIpreshadingFH", "GUIpreshadingRBS", "GUIpreshadingICS"}) EXPECT_FALSE(is_active(n)) << n;
    for (const char* n : {"GUIpostshadingFH", "GUIpostshadingRBS", "GUIpostshadingICS"}) EXPECT_TRUE(is_active(n)) << n;
    EXPECT_EQ(refresh, 1);
}

TEST_F(Panel, IsovalueSlidersMirrorEachOther)
{
    set_value("GUIStepfuncIsovalSlider", 1234.7);
    EXPECT_EQ(isovalue, 1234);
    EXPECT_DOUBLE_EQ(get_value("GUIISCIsovalSlider"), 1234.7);
    EXPECT_TRUE(is_active("GUIStepfuncIsoval"));
    EXPECT_EQ(render_mode, 2);  // First Hit is the page of the 3D tabs
    EXPECT_EQ(refresh, 1);

    // On the ICS page, with the isovalue radio already on, the mode is 10.
    set_page("GUI3DTabs", 4);
    set_value("GUIISCIsovalSlider", 3000);
    EXPECT_EQ(isovalue, 3000);
    EXPECT_DOUBLE_EQ(get_value("GUIStepfuncIsovalSlider"), 3000);
    EXPECT_EQ(render_mode, 10);
}

TEST_F(Panel, IsovalueRadioComesAfterTheMode)
{
    // The mode is written first; making the isovalue radio active afterwards runs the radio
    // pair's handlers, and the one that gains (mode 2) decides.
    set_page("GUI3DTabs", 4);
    EXPECT_EQ(render_mode, 10);
    set_value("GUIISCIsovalSlider", 2500);
    EXPECT_TRUE(is_active("GUIStepfuncIsoval"));
    EXPECT_EQ(render_mode, 2);
    // From then on the radio stays and the ICS slider keeps mode 10.
    set_value("GUIISCIsovalSlider", 2600);
    EXPECT_EQ(render_mode, 10);
}

TEST_F(Panel, IsovalueSliderFocus)
{
    render_mode = 12;
    focus("GUIStepfuncIsovalSlider");
    EXPECT_EQ(render_mode, 2);
    EXPECT_TRUE(is_active("GUIStepfuncIsoval"));
    EXPECT_EQ(refresh, 1);
    set_page("GUI3DTabs", 4);
    refresh = 0;
    focus("GUIISCIsovalSlider");
    EXPECT_EQ(render_mode, 10);
    EXPECT_EQ(refresh, 1);
}

TEST_F(Panel, SliceSlidersSetTheirIndexAndOnlyXYSelectsItsRadio)
{
    fake_volume(9, 11, 7);
    set_active("GUIsliceYZ", true);
    EXPECT_EQ(slice_kind, 2);
    set_value("GUIsliderXZ", 0.75);
    EXPECT_EQ(slice_y, 7u);  // (11 - 1) * 0.75 = 7.5, truncated
    EXPECT_EQ(render_mode, 12);
    EXPECT_TRUE(is_active("GUIsliceYZ"));
    EXPECT_EQ(slice_kind, 2);
    set_value("GUIsliderYZ", 0.6);
    EXPECT_EQ(slice_x, 4u);  // 8 * 0.6 = 4.8
    EXPECT_TRUE(is_active("GUIsliceYZ"));
    refresh = 0;
    set_value("GUIsliderXY", 0.5);
    EXPECT_EQ(slice_z, 3u);
    EXPECT_TRUE(is_active("GUIsliceXY"));
    EXPECT_EQ(slice_kind, 0);
    EXPECT_EQ(refresh, 1);
}

TEST_F(Panel, SliceSliderFocusShowsItsKind)
{
    render_mode = 4;
    focus("GUIsliderYZ");
    EXPECT_TRUE(is_active("GUIsliceYZ"));
    EXPECT_EQ(slice_kind, 2);
    EXPECT_EQ(render_mode, 12);
    focus("GUIsliderXZ");
    EXPECT_EQ(slice_kind, 1);
    focus("GUIsliderXY");
    EXPECT_EQ(slice_kind, 0);
    // The same kind again changes nothing and asks for no picture.
    refresh = 0;
    focus("GUIsliderXY");
    EXPECT_EQ(refresh, 0);
}

TEST_F(Panel, SliceKindRadios)
{
    render_mode = 4;
    set_active("GUIsliceXZ", true);
    EXPECT_EQ(slice_kind, 1);
    EXPECT_EQ(render_mode, 12);
    set_active("GUIslice3D", true);
    EXPECT_EQ(slice_kind, 3);
    EXPECT_EQ(refresh, 1);
    set_active("GUIsliceYZ", true);
    EXPECT_EQ(slice_kind, 2);
}

TEST_F(Panel, ZoomSliderScalesAndLimits)
{
    fake_volume(9, 11, 7);
    set_value("GUIsliderZoom", 0.5);
    EXPECT_EQ(slice_zoom, 512.0f);
    EXPECT_EQ(render_mode, 12);
    set_value("GUIsliderZoom", 0.001);
    EXPECT_EQ(slice_zoom, 3.0f);
    set_value("GUIsliderZoom", 1.0);
    EXPECT_EQ(slice_zoom, 1024.0f);

    // The arbitrary plane moves along its view by the change of zoom.
    set_value("GUIsliderZoom", 0.25);
    set_active("GUIslice3D", true);
    set_active("GUIsliceRecenter", false);
    for (int i = 0; i < 3; ++i) slice_center[i] = 1.0f, slice_normal_unit[i] = i == 2 ? 1.0f : 0.0f;
    set_value("GUIsliderZoom", 0.5);  // 256 -> 512
    EXPECT_EQ(slice_center[2], 1.0f - 256.0f);
    EXPECT_EQ(slice_center[0], 1.0f);
    EXPECT_EQ(ipos[2], 1.0f - 256.0f);
}

TEST_F(Panel, SliceDistanceRedrawsEveryFifthStepAndOnRelease)
{
    fake_volume(9, 11, 7);
    set_active("GUIslice3D", true);
    gtk_spin_button_set_range(GTK_SPIN_BUTTON(W("GUIsliceD")), -20, 20);
    refresh = 0;
    set_value("GUIsliceD", 3);
    EXPECT_EQ(slice_d, 3.0f);
    EXPECT_EQ(slice_kind, 3);
    EXPECT_EQ(refresh, 0);
    set_value("GUIsliceD", 4);
    EXPECT_EQ(slice_d, 4.0f);
    EXPECT_EQ(refresh, 0);
    set_value("GUIsliceD", 5);
    EXPECT_EQ(refresh, 1);
    refresh = 0;
    set_value("GUIsliceD", -10);
    EXPECT_EQ(refresh, 1);
    refresh = 0;
    set_value("GUIsliceD", -11);
    EXPECT_EQ(refresh, 0);

    // Letting go of the button always redraws, and the event goes on to the spin button.
    GdkEvent* event = gdk_event_new(GDK_BUTTON_RELEASE);
    event->button.window = (GdkWindow*)g_object_ref(gui_window->window);
    event->button.button = 1;
    gboolean handled = TRUE;
    g_signal_emit_by_name(W("GUIsliceD"), "button_release_event", event, &handled);
    gdk_event_free(event);
    EXPECT_FALSE(handled);
    EXPECT_EQ(refresh, 1);
    EXPECT_EQ(slice_kind, 3);

    // From an axis slice, the distance brings up the arbitrary plane.
    set_active("GUIsliceXY", true);
    set_value("GUIsliceD", 2);
    EXPECT_TRUE(is_active("GUIslice3D"));
    EXPECT_EQ(slice_kind, 3);
}

TEST_F(Panel, SliceNormalSpinsAndNormalize)
{
    fake_volume(9, 11, 7);
    set_value("GUIsliceNY", 0.8);
    EXPECT_TRUE(is_active("GUIslice3D"));
    EXPECT_EQ(slice_kind, 3);
    EXPECT_EQ(refresh, 1);
    // The spin holds 1.0 for x; after normalising, (1, 0.8, 0) / |.|.
    float len = sqrtf(1.0f + 0.64f);
    EXPECT_NEAR(slice_normal[0], 1.0f / len, 1e-6f);
    EXPECT_NEAR(slice_normal[1], 0.8f / len, 1e-6f);
    EXPECT_EQ(ifor[1], slice_normal_unit[1]);
    EXPECT_DOUBLE_EQ(get_value("GUIsliceNX"), 1.0);  // the spins don't show it yet

    set_active("GUIsliceXY", true);
    refresh = 0;
    CaptureStdout();
    click("GUInorm3D");
    EXPECT_EQ(GetCapturedStdout(), "redisplay correct normal vec-components\n");
    EXPECT_EQ(slice_kind, 3);
    EXPECT_TRUE(is_active("GUIslice3D"));
    EXPECT_NEAR(get_value("GUIsliceNX"), 1.0 / len, 1e-6);
    EXPECT_NEAR(get_value("GUIsliceNY"), 0.8 / len, 1e-6);
    EXPECT_EQ(refresh, 1);
}

TEST_F(Panel, SwitchTo3DAndBackCarriesTheCameraIntoTheSlice)
{
    fake_volume(9, 11, 7);
    set_active("GUIslice3D", true);
    set_active("GUIswitch3D", true);
    EXPECT_TRUE(is_active("GUIswitch3D"));
    EXPECT_EQ(slice_kind, 3);
    EXPECT_EQ(render_mode, 0);
    // The camera moves in the 3D view: now it looks along +z.
    const float pos[3] = {4, 5, -20}, fwd[3] = {0, 0, 1}, up[3] = {0, 1, 0}, str[3] = {1, 0, 0};
    for (int i = 0; i < 3; ++i) ipos[i] = pos[i], ifor[i] = fwd[i], iup[i] = up[i], istr[i] = str[i];
    set_active("GUIsliceRecenter", false);
    refresh = 0;
    set_active("GUIswitch3D", false);
    EXPECT_EQ(render_mode, 12);
    EXPECT_EQ(refresh, 1);
    EXPECT_EQ(slice_normal[0], 0.0f);
    EXPECT_EQ(slice_normal[2], 1.0f);
    EXPECT_EQ(slice_normal_unit[2], 1.0f);
    EXPECT_DOUBLE_EQ(get_value("GUIsliceNX"), 0.0);
    EXPECT_DOUBLE_EQ(get_value("GUIsliceNY"), 0.0);
    EXPECT_DOUBLE_EQ(get_value("GUIsliceNZ"), 1.0);
    EXPECT_EQ(slice_kind, 3);
    // The basis was rebuilt from the new normal: the eye stands zoom + d before the middle.
    EXPECT_EQ(slice_center[2], (float)(7 / 2) - slice_zoom - slice_d);
    EXPECT_EQ(ipos[2], slice_center[2]);
}

TEST_F(Panel, SwitchTo3DFromAnAxisSlice)
{
    // The 3D button first brings up the arbitrary plane. The XY radio that loses the selection
    // runs its handler, which takes the 3D button off again before the button's own handler
    // goes on: the mode is the cuberille's all the same, and a second press keeps the button in.
    fake_volume(9, 11, 7);
    ASSERT_TRUE(is_active("GUIsliceXY"));
    set_active("GUIswitch3D", true);
    EXPECT_TRUE(is_active("GUIslice3D"));
    EXPECT_EQ(slice_kind, 3);
    EXPECT_EQ(render_mode, 0);
    EXPECT_FALSE(is_active("GUIswitch3D"));
    set_active("GUIswitch3D", true);
    EXPECT_TRUE(is_active("GUIswitch3D"));
    EXPECT_EQ(render_mode, 0);
}

TEST_F(Panel, TabsSwitchModesAndTheAbstractViewOff)
{
    EXPECT_EQ(render_mode, 12);
    set_page("GUIrendermodeTabs", 1);
    EXPECT_EQ(render_mode, 0);  // First Hit without the isovalue radio: cuberille
    EXPECT_EQ(view_kind, 20);
    EXPECT_EQ(refresh, 1);
    refresh = 0;
    set_page("GUI3DTabs", 1);
    EXPECT_EQ(render_mode, 4);
    EXPECT_EQ(refresh, 1);
    set_page("GUI3DTabs", 2);
    EXPECT_EQ(render_mode, 6);
    CaptureStdout();
    set_page("GUI3DTabs", 3);
    EXPECT_EQ(GetCapturedStdout(), "region boundary surface tab\n");
    EXPECT_EQ(render_mode, 8);
    CaptureStdout();
    set_page("GUI3DTabs", 4);
    EXPECT_EQ(GetCapturedStdout(), "isovalue contour surface tab\n");
    EXPECT_EQ(render_mode, 10);

    // The light tab changes nothing and asks for no picture.
    refresh = 0;
    set_page("GUIrendermodeTabs", 2);
    EXPECT_EQ(render_mode, 10);
    EXPECT_EQ(refresh, 0);
    // Cutting from a 3D mode keeps it.
    set_page("GUIrendermodeTabs", 3);
    EXPECT_EQ(render_mode, 10);
    EXPECT_EQ(refresh, 0);

    set_active("GUICuttingView", true);
    EXPECT_EQ(view_kind, 10);
    EXPECT_EQ(refresh, 1);
    // Back to the slices: the abstract view goes off as well.
    set_page("GUIrendermodeTabs", 0);
    EXPECT_FALSE(is_active("GUICuttingView"));
    EXPECT_EQ(view_kind, 20);
    EXPECT_EQ(render_mode, 12);

    // Cutting from the slice view picks the 3D mode of the 3D tabs' page.
    refresh = 0;
    set_page("GUIrendermodeTabs", 3);
    EXPECT_EQ(render_mode, 10);
    EXPECT_EQ(refresh, 1);
    // The 3D tab with the mode its page already gives: no picture.
    refresh = 0;
    set_page("GUIrendermodeTabs", 1);
    EXPECT_EQ(render_mode, 10);
    EXPECT_EQ(refresh, 0);
}

TEST_F(Panel, FirstHitPageKeepsAFirstHitMode)
{
    set_page("GUIrendermodeTabs", 1);
    set_page("GUI3DTabs", 1);
    EXPECT_EQ(render_mode, 4);
    render_mode = 2;
    refresh = 0;
    set_page("GUI3DTabs", 0);
    EXPECT_EQ(render_mode, 2);
    EXPECT_EQ(refresh, 0);
    // From another mode the page picks by the isovalue radio.
    set_page("GUI3DTabs", 2);
    set_active("GUIStepfuncIsoval", true);
    render_mode = 6;
    set_page("GUI3DTabs", 0);
    EXPECT_EQ(render_mode, 2);
    set_page("GUI3DTabs", 2);
    set_active("GUInoipStandard", true);
    render_mode = 6;
    set_page("GUI3DTabs", 0);
    EXPECT_EQ(render_mode, 0);
}

TEST_F(Panel, CuttingViewFromTheSliceView)
{
    EXPECT_EQ(render_mode, 12);
    set_active("GUICuttingView", true);
    EXPECT_EQ(view_kind, 10);
    EXPECT_EQ(render_mode, 0);
    set_active("GUICuttingView", false);
    EXPECT_EQ(view_kind, 20);
    render_mode = 12;
    set_active("GUIStepfuncIsoval", true);
    render_mode = 12;
    set_active("GUICuttingView", true);
    EXPECT_EQ(render_mode, 2);
}

TEST_F(Panel, InterpolationRadiosAndStepsize)
{
    set_active("GUI3DIpolTrilin", true);
    EXPECT_EQ(interp_mode, 2);
    set_active("GUI3DInterpol", true);
    EXPECT_EQ(interp_mode, 1);
    set_active("GUI3DNoIpol", true);
    EXPECT_EQ(interp_mode, 0);
    refresh = 0;
    set_value("GUIstepsize", 1.5);
    EXPECT_EQ(sample_stepsize, 1.5f);
    EXPECT_EQ(interp_mode, 2);
    EXPECT_TRUE(is_active("GUI3DIpolTrilin"));
    EXPECT_EQ(refresh, 1);
}

TEST_F(Panel, LightModelsBringTheCuberilleFirst)
{
    set_active("GUIStepfuncIsoval", true);
    EXPECT_EQ(render_mode, 2);
    set_active("GUIpureShadowInfo", true);
    EXPECT_TRUE(is_active("GUInoipStandard"));
    EXPECT_EQ(render_mode, 0);
    EXPECT_EQ(light_model, 2);
    set_active("GUI3DSimpleLightmodel", true);
    EXPECT_EQ(light_model, 1);
    set_active("GUI3DNoLightmodel", true);
    EXPECT_EQ(light_model, 0);
    // The cuberille radio sets mode 0 whichever way it turns: the gaining radio decides.
    set_active("GUIStepfuncIsoval", true);
    EXPECT_EQ(render_mode, 2);
    set_active("GUInoipStandard", true);
    EXPECT_EQ(render_mode, 0);
}

TEST_F(Panel, ExtraSurfacesMirrorBetweenTabs)
{
    set_active("GUI_isovalMulti2", true);
    EXPECT_EQ(surface_on[1], 1);
    EXPECT_TRUE(is_active("GUI_icsMulti2"));
    set_active("GUI_icsMulti2", false);
    EXPECT_EQ(surface_on[1], 0);
    EXPECT_FALSE(is_active("GUI_isovalMulti2"));
    set_active("GUI_icsMulti4", true);
    EXPECT_EQ(surface_on[3], 1);
    EXPECT_TRUE(is_active("GUI_isovalMulti4"));

    set_value("GUI_isovalMulti3Slider", 777.6);
    EXPECT_EQ(surface_isovalue[2], 777);
    EXPECT_DOUBLE_EQ(get_value("GUI_icsMulti3_isoval"), 777.0);
    EXPECT_DOUBLE_EQ(get_value("GUI_isovalMulti3Slider"), 777.0);  // the mirror set it back whole
    set_value("GUI_icsMulti1_isoval", 100);
    EXPECT_EQ(surface_isovalue[0], 100);
    EXPECT_DOUBLE_EQ(get_value("GUI_isovalMulti1Slider"), 100.0);
    EXPECT_EQ(surface_isovalue[1], 0);

    refresh = 0;
    set_value("GUI_icsMulti4_thick", 2.5);
    EXPECT_EQ(surface_thickness[3], 2.5f);
    EXPECT_EQ(surface_thickness[0], 1.0f);
    EXPECT_EQ(refresh, 1);
}

TEST_F(Panel, PlainSettingsFollowTheirWidgets)
{
    struct Slider {
        const char* name;
        double v;
        float* setting;
        float want;
    };
    const Slider sliders[] = {
        {"GUIambientSlider", 0.3, &light_ambient, 0.3f},
        {"GUIdiffuseSlider", 0.6, &light_diffuse, 0.6f},
        {"GUIspecularSlider", 0.2, &light_specular, 0.2f},
        {"GUIexponentSlider", 40, &light_exponent, 40.0f},
        {"GUIEdgeDetectionSlider", 7.5, &edge_strength, 7.5f},
        {"GUI_rbsGradDep", 0.5, &rbs_grad_dep, 2.0f},
        {"GUI_rbsGradDep", 0.1, &rbs_grad_dep, (float)(1.0 / 0.1)},
        {"GUI_icsThickness", 3.5, &ics_thickness, 3.5f},
    };
    for (const Slider& s : sliders) {
        refresh = 0;
        set_value(s.name, s.v);
        EXPECT_EQ(*s.setting, s.want) << s.name;
        EXPECT_EQ(refresh, 1) << s.name;
    }
    struct Check {
        const char* name;
        int* setting;
    };
    const Check checks[] = {
        {"GUIEdgeDetectionToggle", &edge_enabled}, {"GUIrbsDissolve", &rbs_dissolve},
        {"GUIicsDissolve", &ics_dissolve},         {"GUIocclusionLightBlend", &use_occlusion},
        {"GUIsliceUsetf", &slice_use_tf},
    };
    for (const Check& c : checks) {
        refresh = 0;
        click(c.name);
        EXPECT_EQ(*c.setting, 1) << c.name;
        EXPECT_EQ(refresh, 1) << c.name;
        click(c.name);
        EXPECT_EQ(*c.setting, 0) << c.name;
    }
    const Check on_at_start[] = {
        {"GUI_rbsAlphaCorrection", &rbs_alpha_correction}, {"GUI_icsAlphaCorrection", &ics_alpha_correction},
        {"GUIsliceFilter", &slice_filter},                 {"GUIsliceRecenter", &slice_recenter},
    };
    for (const Check& c : on_at_start) {
        refresh = 0;
        click(c.name);
        EXPECT_EQ(*c.setting, 0) << c.name;
        EXPECT_EQ(refresh, 1) << c.name;
        click(c.name);
        EXPECT_EQ(*c.setting, 1) << c.name;
    }
}

TEST_F(Panel, ShadowSettingsWaitForTheWorkerAndDontRedraw)
{
    set_value("GUIshadowStepsize", 2.0);
    EXPECT_EQ(shadow_stepsize, 2.0f);
    set_active("GUIhardShadow", true);
    EXPECT_EQ(shadow_kind, 2);
    set_active("GUIsoftShadow", true);
    EXPECT_EQ(shadow_kind, 1);
    EXPECT_EQ(refresh, 0);

    // With the worker marked running, the guard stops it and puts the cancel flag back.
    shadow_running = 1;
    shadow_cancel = 1;
    set_active("GUIhardShadow", true);
    EXPECT_EQ(shadow_kind, 2);
    EXPECT_EQ(shadow_cancel, 0);
    shadow_running = 0;
    // Without a worker the flag is left alone (the load path leaves it at 1).
    shadow_cancel = 1;
    set_value("GUIshadowStepsize", 1.0);
    EXPECT_EQ(shadow_cancel, 1);
    shadow_cancel = 0;
    EXPECT_EQ(refresh, 0);
}

TEST_F(Panel, ColourButtonsStoreThePackedColour)
{
    GdkColor c = {0, 0x1212, 0x3434, 0x5656};
    gtk_color_button_set_color(GTK_COLOR_BUTTON(W("GUIedgeColor")), &c);
    g_signal_emit_by_name(W("GUIedgeColor"), "color_set");
    EXPECT_EQ(edge_color, 0x123456u);
    EXPECT_EQ(refresh, 1);

    refresh = 0;
    GdkColor d = {0, 0xff00, 0x8000, 0x0100};
    gtk_color_button_set_color(GTK_COLOR_BUTTON(W("GUI_lightColor")), &d);
    CaptureStdout();
    g_signal_emit_by_name(W("GUI_lightColor"), "color_set");
    EXPECT_EQ(GetCapturedStdout(), "light color set!\n");
    EXPECT_EQ(light_color, 0xff8001u);
    EXPECT_EQ(refresh, 1);
}

TEST_F(Panel, ViewVectorsForLightAndCut)
{
    ifor[0] = 3.0f, ifor[1] = 0.0f, ifor[2] = -4.0f;
    click("GUILightDirButton");
    EXPECT_FLOAT_EQ(light_dir[0], 0.6f);
    EXPECT_FLOAT_EQ(light_dir[2], -0.8f);
    EXPECT_EQ(entry_text("GUI_lightX"), "+0.600");
    EXPECT_EQ(entry_text("GUI_lightY"), "+0.000");
    EXPECT_EQ(entry_text("GUI_lightZ"), "-0.800");
    EXPECT_EQ(refresh, 1);

    refresh = 0;
    ifor[0] = 0.0f, ifor[1] = -2.0f, ifor[2] = 0.0f;
    click("GUICuttingPlaneNormal");
    EXPECT_EQ(cut_plane_n[1], -1.0f);
    EXPECT_EQ(entry_text("GUICuttingPlaneNX"), "+0.000");
    EXPECT_EQ(entry_text("GUICuttingPlaneNY"), "-1.000");
    EXPECT_EQ(refresh, 1);
}

TEST_F(Panel, CutSlidersScaleByTheDiagonal)
{
    fake_volume(12, 3, 4);  // diagonal 13
    ASSERT_EQ(vol_diag, 13.0f);
    set_value("GUICuttingPlaneD", 0.75);
    EXPECT_EQ(cut_plane_d, -6.5f + 0.75f * 2.0f * 13.0f);
    EXPECT_EQ(refresh, 1);
    set_value("GUISphereXSlider", -0.5);
    set_value("GUISphereYSlider", 0.25);
    set_value("GUISphereZSlider", 1.0);
    EXPECT_EQ(cut_sphere_center[0], -6.5f);
    EXPECT_EQ(cut_sphere_center[1], 3.25f);
    EXPECT_EQ(cut_sphere_center[2], 13.0f);
    set_value("GUISphereRSlider", 0.5);
    EXPECT_EQ(cut_sphere_r2, 6.5f * 6.5f);

    set_active("GUICutWithSphere", true);
    EXPECT_EQ(cut_kind, 2);
    set_active("GUICutWithPlane", true);
    EXPECT_EQ(cut_kind, 1);
    refresh = 0;
    set_active("GUICutOutsideSphere", true);
    EXPECT_EQ(cut_sphere_side, 4);
    set_active("GUICutInsideSphere", true);
    EXPECT_EQ(cut_sphere_side, 3);
    EXPECT_EQ(refresh, 0);  // the side shows only when a cut is applied
}

TEST_F(Panel, ApplyCutErasesWhatTheChosenShapeAsks)
{
    fake_volume(9, 5, 3);
    for (size_t i = 0; i < 9 * 5 * 3; ++i) voxels[i] = 0x800000u | 3000u;
    // The plane slider at 0.5 puts the offset at -0.5 * diag + diag = diag / 2: with the normal
    // (-1, 0, 0) the voxels with x + 0.5 > diag / 2 go.
    set_value("GUICuttingPlaneD", 0.5);
    cut_plane_n[0] = -1.0f, cut_plane_n[1] = 0.0f, cut_plane_n[2] = 0.0f;
    set_active("GUICutWithSphere", true);
    set_active("GUICutWithPlane", true);
    refresh = 0;
    click("GUICuttingPlaneApply");
    EXPECT_EQ(refresh, 1);
    float half = vol_diag * 0.5f;
    for (uint32_t x = 0; x < 9; ++x)
        for (uint32_t y = 0; y < 5; ++y)
            for (uint32_t z = 0; z < 3; ++z) {
                uint32_t word = voxels[voxel_index(x, y, z)];
                EXPECT_EQ(word & density_mask, (float)x + 0.5f > half ? 0u : 3000u) << x;
                EXPECT_EQ(word >> 16, 0x80u);  // occlusion stays
            }
    // Gradients and brick map were rebuilt: the gradient at the new face points into the volume.
    ASSERT_NE(block_map, nullptr);
    uint32_t last = (uint32_t)(half - 0.5f);  // the last voxel kept along x
    EXPECT_LT(gradients[voxel_index(last, 2, 1)].nx, 0.0f);
}

TEST_F(Panel, TheEdgeSliderFocusHandlerDoesNothing)
{
    fake_volume(9, 11, 7);
    CaptureStdout();
    focus("GUIEdgeDetectionSlider");
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_EQ(refresh, 0);
}

namespace {

// Tab to the next field, or a click into the image window: the widget loses the focus.
void lose_focus(GtkWidget* w)
{
    GdkEvent* out = gdk_event_new(GDK_FOCUS_CHANGE);
    out->focus_change.window = (GdkWindow*)g_object_ref(w->window);
    out->focus_change.in = FALSE;
    gtk_widget_send_focus_change(w, out);
    gdk_event_free(out);
    drain_events();
}

}  // namespace

TEST_F(Panel, PlaneFieldsTakeATypedValueWhenTheyLoseTheFocus)
{
    fake_volume(20, 20, 20);
    gtk_spin_button_set_range(GTK_SPIN_BUTTON(W("GUIsliceD")), -30, 30);
    // The plane first, at d = 5.
    set_value("GUIsliceD", 5);
    ASSERT_EQ(slice_kind, 3);
    // A value typed into a field counts once the field loses the focus, and the picture follows.
    struct Field { const char* name; const char* text; double value; };
    const Field fields[] = {{"GUIsliceNX", "0.25", 0.25}, {"GUIsliceNY", "-0.5", -0.5},
                            {"GUIsliceNZ", "0.75", 0.75}, {"GUIsliceD", "7", 7.0}};
    for (const Field& f : fields) {
        GtkWidget* spin = W(f.name);
        gtk_widget_grab_focus(spin);
        gtk_entry_set_text(GTK_ENTRY(spin), f.text);
        drain_events();
        refresh = 0;
        lose_focus(spin);
        EXPECT_DOUBLE_EQ(gtk_spin_button_get_value(GTK_SPIN_BUTTON(spin)), f.value) << f.name;
        EXPECT_EQ(refresh, 1) << f.name << ": the picture shows the plane the field shows";
        EXPECT_EQ(slice_kind, 3) << f.name;
    }
    EXPECT_EQ(slice_d, 7.0f);
    // Each component went into the normal as its field lost the focus (the normal is
    // normalised after each, as on Enter): the last one typed, 0.75, is there before that.
    EXPECT_NEAR(slice_normal_unit[2], 0.6f, 1e-6f);  // (0.894, -0.447, 0.75) normalised
    // A field left without a change asks for nothing.
    refresh = 0;
    lose_focus(W("GUIsliceNX"));
    EXPECT_EQ(refresh, 0);
}
