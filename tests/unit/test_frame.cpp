// The frame loop without a window: start state, ifor clamp, buffer clears, the load path,
// the pause rule and the frame counter.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "app/controls.h"
#include "raycast_helpers.h"
#include "transfer/transfer.h"

TEST(Settings, StartValuesOfTheTable)
{
    start_library(512, 512);
    EXPECT_EQ(refresh, 1);
    EXPECT_EQ(render_mode, 12);
    EXPECT_EQ(view_kind, 0);
    EXPECT_EQ(interp_mode, 0);
    EXPECT_EQ(shadow_stepsize, 0.7f);
    EXPECT_EQ(max_ray_steps, 1000u);
    EXPECT_EQ(sample_stepsize, 0.7f);
    EXPECT_EQ(preview_limit_cuberille, 2);
    EXPECT_EQ(preview_limit_simple, 4);
    EXPECT_EQ(preview_limit_surface, 8);
    EXPECT_EQ(edge_color, 0xccccccu);
    EXPECT_EQ(edge_strength, 4.0f);
    EXPECT_EQ(shadow_kind, 2);
    EXPECT_EQ(light_diffuse, 0.35f);
    EXPECT_EQ(light_specular, 0.55f);
    EXPECT_EQ(light_exponent, 16.0f);
    EXPECT_EQ(light_ambient, 0.0f);  // the slider shows 0.1, the setting waits for it to move
    EXPECT_EQ(rbs_alpha_correction, 1);
    EXPECT_EQ(ics_alpha_correction, 1);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(surface_tint[k], 0x11aa11u);
        EXPECT_EQ(surface_thickness[k], 1.0f);
        EXPECT_EQ(surface_isovalue[k], 0);
    }
    EXPECT_EQ(window_width, 512u);
    EXPECT_EQ(cut_sphere_r2, 1600.0f);
    EXPECT_EQ(abstract_sphere_color, 0xcc0000u);
    EXPECT_EQ(abstract_box_color, 0xcc00u);
    EXPECT_EQ(abstract_plane_color, 0xccu);
    EXPECT_EQ(light_color, 0xffffffu);
    EXPECT_EQ(light_dir[0], 0.70710677f);
    EXPECT_EQ(light_dir[2], -0.70710677f);
    EXPECT_EQ(isovalue, 2048);
    EXPECT_EQ(refine_tolerance, 10);
}

TEST(Settings, RegistryNamesEverySettingOnce)
{
    int found = 0;
    for (int i = 0; i < settings_registry_size; ++i) {
        for (int j = i + 1; j < settings_registry_size; ++j)
            EXPECT_STRNE(settings_registry[i].name, settings_registry[j].name);
        if (strcmp(settings_registry[i].name, "light_dir") == 0) {
            EXPECT_EQ(settings_registry[i].count, 3);
            EXPECT_EQ(settings_registry[i].value, (void*)light_dir);
            ++found;
        }
        if (strcmp(settings_registry[i].name, "edge_color") == 0) {
            EXPECT_EQ(settings_registry[i].type, SettingType::Color);
            ++found;
        }
        if (strcmp(settings_registry[i].name, "max_ray_steps") == 0) {
            EXPECT_EQ(settings_registry[i].type, SettingType::UInt);
            ++found;
        }
        if (strcmp(settings_registry[i].name, "surface_isovalue") == 0) {
            EXPECT_EQ(settings_registry[i].count, 4);
            ++found;
        }
    }
    EXPECT_EQ(found, 4);
}

TEST(Frame, ForwardClamp)
{
    start_fresh();
    ifor[0] = 0.0f;
    ifor[1] = -0.00005f;
    ifor[2] = 0.0001f;
    clamp_forward();
    EXPECT_EQ(ifor[0], 0.0001f);
    EXPECT_EQ(ifor[1], -0.0001f);
    EXPECT_EQ(ifor[2], 0.0001f);
    ifor[0] = -0.0f;
    ifor[1] = 0.5f;
    ifor[2] = -0.00009f;
    clamp_forward();
    EXPECT_EQ(ifor[0], 0.0001f);  // -0.0 counts as 0.0
    EXPECT_EQ(ifor[1], 0.5f);
    EXPECT_EQ(ifor[2], -0.0001f);
}

TEST(Frame, WithoutVolumeTheFirstFrameClearsRefreshAndDrawsNothing)
{
    start_fresh();
    int loaded = volume_loaded;
    volume_loaded = 0;
    render_target.color[100] = 0x123456;
    ASSERT_EQ(refresh, 1);
    frame();
    EXPECT_EQ(refresh, 0);
    EXPECT_EQ(final_pending, 0);
    EXPECT_EQ(render_target.color[100], 0u);  // cleared, and no pass wrote anything
    ifor[0] = 0.0f;
    for (int i = 0; i < 5; ++i) frame();
    EXPECT_EQ(ifor[0], 0.0001f);  // the clamp runs every frame
    volume_loaded = loaded;
}

TEST(Frame, IdleFramesClearTheBuffersButMaskKeepsItsTail)
{
    start_fresh();
    // A 3 x 3 image: 9 mask bytes, of which 9 / 4 = 2 words are cleared and 1 byte stays.
    alloc_frame_buffers(3, 3, 3);
    render_target.mask[8] = 7;
    render_target.mask[7] = 7;
    render_target.depth[8] = 99;
    refresh = 0;
    final_pending = 0;
    frame();
    EXPECT_EQ(render_target.mask[7], 0);
    EXPECT_EQ(render_target.mask[8], 7);
    EXPECT_EQ(render_target.depth[8], 0u);
    EXPECT_EQ(idle_clears, 1);  // only the first clear of a frame counts
    frame();
    frame();
    EXPECT_EQ(idle_clears, 2);  // and it counts up to two
    alloc_frame_buffers(512, 409, 409);
}

TEST(Frame, PauseRuleWaitsStrictlyMoreThan350ms)
{
    start_fresh();
    last_double_click = 1000;
    for (int mode : {4, 6, 8, 10}) {
        render_mode = mode;
        null_ticks = 1350;
        EXPECT_FALSE(pause_rule_met()) << mode;
        null_ticks = 1351;
        EXPECT_TRUE(pause_rule_met()) << mode;
    }
    for (int mode : {0, 2, 12}) {
        render_mode = mode;
        null_ticks = 1000;
        EXPECT_TRUE(pause_rule_met()) << mode;
    }
    // Unsigned difference: a click "after" now is far in the past.
    render_mode = 4;
    last_double_click = 0xfffffff0u;
    null_ticks = 10;
    EXPECT_FALSE(pause_rule_met());
}

TEST(Frame, FrameCounterFormatsEveryFourthFrame)
{
    start_fresh();
    gui_active = 1;  // with the panel in focus nothing sleeps, so every frame takes 0 ms
    frame_slot = 0;
    memset(fps_text, 0, sizeof fps_text);
    for (int i = 0; i < 3; ++i) frame();
    EXPECT_STREQ(fps_text, "");
    frame();
    // Four frames of 0 ms: 4000 / (0 + 1 + 0 + 0 + 0), cut to six characters.
    EXPECT_STREQ(fps_text, "4000.0");
    EXPECT_EQ(frame_slot, 0);
}

TEST(Frame, LoadPathFromTheChooser)
{
    start_fresh();
    auto samples = make_samples(10, 12, 14, [](int x, int y, int z) { return 600 + x + y + z; });
    std::string path = write_dat("chooser.dat", 10, 12, 14, samples);
    null_chooser_name = path.c_str();
    load_requested = 1;
    testing::internal::CaptureStdout();
    frame();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind(path + "\nOrlen-data x=10, y=12, z=14\n", 0), 0u) << out;
    EXPECT_EQ(load_requested, 0);
    EXPECT_EQ(volume_loaded, 1);
    EXPECT_STREQ(last_volume_path, path.c_str());
    EXPECT_EQ(vol_diag, sqrtf((float)(14 * 14 + 16 * 16 + 18 * 18)));
    EXPECT_EQ(vol_diag_sq, vol_diag * vol_diag);
    // Cut shapes from the sliders' start values: plane slider 0, sphere at 0, radius 0.3.
    EXPECT_EQ(cut_plane_d, -0.5f * vol_diag);
    EXPECT_EQ(cut_sphere_center[0], 0.0f);
    float r = 0.3f * vol_diag;
    EXPECT_FLOAT_EQ(cut_sphere_r2, r * r);
    // The occlusion field starts neutral.
    EXPECT_EQ(voxels[voxel_index(5, 5, 5)] >> 16, 0x80u);
    remove(path.c_str());
}

TEST(Frame, LoadPathWithoutAFileNameLoadsNothing)
{
    start_fresh();
    null_chooser_name = nullptr;
    load_requested = 1;
    refresh = 1;
    final_pending = 1;
    frame();
    EXPECT_EQ(load_requested, 0);
    EXPECT_EQ(final_pending, 0);
}

TEST(Frame, RefusedFileKeepsTheLastPathAndVolume)
{
    start_fresh();
    std::string good = write_dat("keep.dat", 3, 3, 3, make_samples(3, 3, 3, [](int, int, int) { return 800; }));
    ASSERT_TRUE(load_volume_file(good.c_str()));
    uint32_t* grid = voxels;
    float diag = vol_diag;
    std::string missing = temp_path("missing.dat");
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_volume_file(missing.c_str()));
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(voxels, grid);
    EXPECT_EQ(vol_diag, diag);
    EXPECT_STREQ(last_volume_path, good.c_str());
    remove(good.c_str());
}

TEST(Frame, FileTypeIsTheExactEnding)
{
    start_fresh();
    auto samples = make_samples(2, 2, 2, [](int, int, int) { return 1500; });
    // A mixed-case ending goes to the .dat loader.
    std::string mixed = write_dat("volume.Vox", 2, 2, 2, samples);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(load_volume_file(mixed.c_str()));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.find("it's a"), std::string::npos) << out;
    std::string raw = write_dat("volume.raw", 2, 2, 2, samples);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(load_volume_file(raw.c_str()));
    testing::internal::GetCapturedStdout();
    std::string upper = temp_path("x.KVX");
    testing::internal::CaptureStdout();
    load_volume_file(upper.c_str());
    out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("it's a *.KVX\n"), std::string::npos) << out;
    remove(mixed.c_str());
    remove(raw.c_str());
}

// A loaded 13 x 11 x 9 slab in cuberille mode with a preview due, the panel in focus.
static std::string load_slab_for_dispatch()
{
    start_fresh();
    std::string path = write_dat("dispatch.dat", 13, 11, 9,
                                 make_samples(13, 11, 9, [](int x, int, int) { return x >= 6 ? 3000 : 0; }));
    testing::internal::CaptureStdout();
    EXPECT_TRUE(load_volume_file(path.c_str()));
    testing::internal::GetCapturedStdout();
    render_mode = 0;
    gui_active = 1;
    left_on_editor = 0;
    color_dialog_open = 0;
    final_pending = 0;
    refresh = 1;
    null_render_time[0] = 0;
    return path;
}

TEST(Dispatch, ColourDialogHoldsBackFinalsButNotPreviews)
{
    std::string path = load_slab_for_dispatch();
    color_dialog_open = 1;
    frame();
    EXPECT_EQ(refresh, 0);        // the preview ran
    EXPECT_EQ(final_pending, 1);
    frame();
    frame();
    EXPECT_EQ(final_pending, 1);  // no final while the dialog is up
    EXPECT_STREQ(null_render_time, "");
    color_dialog_open = 0;
    frame();
    EXPECT_EQ(final_pending, 0);
    EXPECT_STREQ(null_render_time, "     0.00 sec");
    remove(path.c_str());
}

TEST(Dispatch, LeftButtonOnTheStripHoldsBackBothWhileThePanelHasTheFocus)
{
    std::string path = load_slab_for_dispatch();
    left_on_editor = 1;
    frame();
    EXPECT_EQ(refresh, 1);  // no preview
    EXPECT_EQ(final_pending, 0);
    final_pending = 1;
    refresh = 0;
    frame();
    EXPECT_EQ(final_pending, 1);  // no final either
    // Released: the pending preview runs.
    left_on_editor = 0;
    refresh = 1;
    frame();
    EXPECT_EQ(refresh, 0);
    EXPECT_EQ(final_pending, 1);
    remove(path.c_str());
}

TEST(Dispatch, WithoutThePanelFocusTheStripHoldsNothingBack)
{
    std::string path = load_slab_for_dispatch();
    gui_active = 0;
    left_on_editor = 1;
    frame();
    EXPECT_EQ(refresh, 0);  // the final path took the preview path
    EXPECT_EQ(final_pending, 1);
    frame();
    EXPECT_EQ(final_pending, 0);  // and the final ran
    EXPECT_STREQ(null_render_time, "     0.00 sec");
    left_on_editor = 0;
    remove(path.c_str());
}

TEST(Dispatch, TheSliceViewNeverLeavesAFinalDue)
{
    std::string path = load_slab_for_dispatch();
    render_mode = 12;
    strcpy(null_render_time, "keep");
    frame();
    EXPECT_EQ(refresh, 0);
    EXPECT_EQ(final_pending, 0);
    frame();
    EXPECT_STREQ(null_render_time, "keep");  // no final, so the render time stays
    remove(path.c_str());
}

TEST(Dispatch, ALoadRequestHoldsBackThePreview)
{
    std::string path = load_slab_for_dispatch();
    // The chooser has no name: the load path runs, clears refresh and final_pending itself,
    // and no pass runs in that frame (a preview would have left a final due).
    null_chooser_name = nullptr;
    load_requested = 1;
    frame();
    EXPECT_EQ(load_requested, 0);
    EXPECT_EQ(final_pending, 0);
    remove(path.c_str());
}

TEST(Settings, EachAssignerSetsItsOwnRowsOnly)
{
    start_library(512, 512);
    isovalue = 7, cut_sphere_r2 = 7.0f, slice_zoom = 7.0f, render_mode = 7;
    set_default_settings();  // main's rows
    EXPECT_EQ(render_mode, 12);
    EXPECT_EQ(isovalue, 7);
    EXPECT_EQ(cut_sphere_r2, 7.0f);
    EXPECT_EQ(slice_zoom, 7.0f);
    set_cut_settings();
    EXPECT_EQ(cut_sphere_r2, 1600.0f);
    EXPECT_EQ(isovalue, 7);
    set_panel_defaults();
    EXPECT_EQ(isovalue, 2048);
    EXPECT_EQ(slice_zoom, 7.0f);
    set_slice_settings();
    EXPECT_EQ(slice_zoom, 256.0f);
    EXPECT_EQ(slice_normal[0], 1.0f);
}

TEST(Settings, RegistryReachesTheSliceViewAndLeavesOutWhatIsNoSetting)
{
    auto find = [](const char* name) -> const SettingInfo* {
        for (int i = 0; i < settings_registry_size; ++i)
            if (strcmp(settings_registry[i].name, name) == 0) return &settings_registry[i];
        return nullptr;
    };
    for (const char* name : {"slice_kind", "slice_use_tf", "slice_filter", "slice_x", "slice_y",
                             "slice_z", "slice_zoom", "slice_normal", "slice_d", "slice_recenter"})
        EXPECT_NE(find(name), nullptr) << name;
    EXPECT_EQ(find("slice_normal")->count, 3);
    EXPECT_EQ(find("slice_x")->type, SettingType::UInt);
    EXPECT_EQ(find("surface_tint")->type, SettingType::Color);
    EXPECT_EQ(find("abstract_box_color")->type, SettingType::Color);
    for (const char* name : {"surface_hit", "surface_hit_color", "load_requested", "offscreen_render",
                             "window_width", "window_height", "tex_scroll_x", "tex_scroll_y"})
        EXPECT_EQ(find(name), nullptr) << name;
}

TEST(PassTable, OneRowPerModeWithItsRules)
{
    const int modes[] = {mode_cuberille, mode_firsthit, mode_mip, mode_avg, mode_rbs, mode_ics, mode_slices};
    EXPECT_EQ(sizeof render_passes / sizeof render_passes[0], sizeof modes / sizeof modes[0]);
    for (int mode : modes) {
        const RenderPass* row = find_pass(mode);
        ASSERT_NE(row, nullptr) << mode;
        EXPECT_EQ(row->mode, mode);
        // Modes 4 to 10 wait for the pause rule, and only they.
        EXPECT_EQ(row->pause_rule, mode >= mode_mip && mode <= mode_ics) << mode;
        // The finals of mip, avg and ics keep the preview's exact pixels.
        EXPECT_EQ(row->final_keeps_preview_rays, mode == mode_mip || mode == mode_avg || mode == mode_ics);
        // Only the slice view has no lattice and no final.
        EXPECT_EQ(row->lattice == 0, mode == mode_slices);
        if (row->preview && mode != mode_slices) {
            EXPECT_NE(row->final, nullptr) << mode;
        }
    }
    EXPECT_EQ(find_pass(1), nullptr);
    EXPECT_EQ(find_pass(14), nullptr);
    for (const RenderPass& a : render_passes)
        for (const RenderPass& b : render_passes)
            if (&a != &b) {
                EXPECT_STRNE(a.name, b.name);
            }
    EXPECT_TRUE(mode_is_rendered(mode_cuberille));
    EXPECT_TRUE(mode_is_rendered(mode_slices));
}

TEST(PassTable, EachPreviewSetsTheLatticeOfItsRow)
{
    start_fresh();
    make_grid(20, 20, 20, [](int x, int y, int z) { return x > 5 && y > 5 && z > 5 ? 3000u : 0u; });
    set_camera(10.0f, 10.0f, -30.0f, 0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f);
    for (const RenderPass& row : render_passes) {
        if (!row.preview || !row.lattice) continue;
        render_mode = row.mode;
        lattice_step = -1;
        clear_frame_buffers();
        prepare_preview_vectors();
        run_preview();
        EXPECT_EQ(lattice_step, row.lattice) << row.name;
    }
}

TEST(Dispatch, TheLoopWaitsForInputOnlyWhenNothingIsDue)
{
    start_fresh();
    apply_input(InputSample{});  // no key or button held
    // Without a volume the first frame clears refresh; then there is nothing to do.
    EXPECT_EQ(idle_wait_ms(), 0u);
    frame();
    EXPECT_EQ(idle_wait_ms(), idle_wait_limit_ms);
    load_requested = 1;
    EXPECT_EQ(idle_wait_ms(), 0u);
    load_requested = 0;

    std::string path = load_slab_for_dispatch();
    EXPECT_EQ(idle_wait_ms(), 0u);  // the preview is due
    frame();
    ASSERT_EQ(final_pending, 1);
    EXPECT_EQ(idle_wait_ms(), 0u);  // the final may start at once in cuberille
    frame();
    ASSERT_EQ(final_pending, 0);
    EXPECT_EQ(idle_wait_ms(), idle_wait_limit_ms);

    // A held key or button steps with time: frames go on.
    InputSample held = {};
    held.keys.forward = true;
    apply_input(held);
    EXPECT_EQ(idle_wait_ms(), 0u);
    apply_input(InputSample{});
    refresh = 0;
    held = {};
    held.middle = true;
    apply_input(held);
    EXPECT_EQ(idle_wait_ms(), 0u);
    apply_input(InputSample{});
    refresh = 0;
    EXPECT_EQ(idle_wait_ms(), idle_wait_limit_ms);

    // The occlusion worker's progress shows frame by frame.
    shadow_running = 1;
    EXPECT_EQ(idle_wait_ms(), 0u);
    shadow_running = 0;

    // A final held back by the pause rule: the wait ends when the rule lets it start, 351 ms
    // after the double click. (A mode with a final and the rule, once this build has one.)
    int paused = -1;
    for (const RenderPass& row : render_passes)
        if (row.final && row.pause_rule) paused = row.mode;
    final_pending = 1;
    if (paused >= 0) {
        render_mode = paused;
        last_double_click = null_ticks;
        null_ticks += 100;
        EXPECT_EQ(idle_wait_ms(), 251u);
        null_ticks += 250;
        EXPECT_EQ(idle_wait_ms(), 1u);
        null_ticks += 1;
        EXPECT_EQ(idle_wait_ms(), 0u);
    } else {
        std::puts("no mode of this build has a final with the pause rule: that case is not tried");
    }
    // One held back by the colour dialog waits for the dialog, an event.
    render_mode = 0;
    EXPECT_EQ(idle_wait_ms(), 0u);
    color_dialog_open = 1;
    EXPECT_EQ(idle_wait_ms(), idle_wait_limit_ms);
    color_dialog_open = 0;
    // A final left due by a 3D mode has none to run in the slice view.
    render_mode = 12;
    EXPECT_EQ(idle_wait_ms(), idle_wait_limit_ms);
    final_pending = 0;
    remove(path.c_str());
}

// The abstract view stands in for the preview; a final that was due still follows and draws
// over it, and with none due the abstract image stays.
TEST(Dispatch, AbstractViewInPlaceOfThePreviewLeavesADueFinalDue)
{
    std::string path = load_slab_for_dispatch();
    std::vector<uint32_t> surface((size_t)window_width * window_height, 0);  // image and strip
    screen_pixels = surface.data();
    // Eye in front of the slab's box, looking at it: the box's green face fills the middle
    // (no cutting shape in the way).
    cut_kind = 0;
    ipos[0] = 8.5f, ipos[1] = 7.5f, ipos[2] = -40.0f;
    const float forward[3] = {0.0f, 0.0f, 1.0f}, up[3] = {0.0f, 1.0f, 0.0f};
    look_along(forward, up);
    const size_t middle = (size_t)(render_target.height / 2) * render_target.width + render_target.width / 2;

    // A final is due when the toggle comes on: the abstract view is drawn, the final stays due.
    frame();  // preview: final due
    ASSERT_EQ(final_pending, 1);
    view_kind = view_abstract;
    refresh = 1;
    frame();
    EXPECT_EQ(refresh, 0);
    EXPECT_EQ(final_pending, 1);
    uint32_t abstract_middle = surface[middle];
    EXPECT_GT((abstract_middle >> 8) & 0xff, (abstract_middle >> 16) & 0xff);  // green above red
    // The next frame runs that final pass, which overwrites the abstract image.
    frame();
    EXPECT_EQ(final_pending, 0);
    EXPECT_STREQ(null_render_time, "     0.00 sec");
    EXPECT_NE(surface[middle], abstract_middle);

    // With no final due the abstract view stays: no final follows it.
    refresh = 1;
    frame();
    EXPECT_EQ(final_pending, 0);
    EXPECT_EQ(surface[middle], abstract_middle);
    frame();
    frame();
    EXPECT_EQ(surface[middle], abstract_middle);
    screen_pixels = nullptr;
    view_kind = view_normal;
    remove(path.c_str());
}
