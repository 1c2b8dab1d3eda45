// Input without a window: samples of keys and mouse given to apply_input, and what they do to
// the camera, the slices, the key-table settings and the strip latch.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

#include "app/controls.h"
#include "core/headless/seam_null.h"
#include "raycast_helpers.h"
#include "slices/slices.h"

namespace {

InputSample idle()
{
    InputSample s = {};
    return s;
}

InputSample keys(void (*set)(KeyStates&))
{
    InputSample s = idle();
    set(s.keys);
    return s;
}

float dot(const float* a, const float* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

void expect_orthonormal(float tolerance)
{
    EXPECT_NEAR(dot(ifor, ifor), 1.0f, tolerance);
    EXPECT_NEAR(dot(iup, iup), 1.0f, tolerance);
    EXPECT_NEAR(dot(istr, istr), 1.0f, tolerance);
    EXPECT_NEAR(dot(ifor, iup), 0.0f, tolerance);
    EXPECT_NEAR(dot(ifor, istr), 0.0f, tolerance);
    EXPECT_NEAR(dot(iup, istr), 0.0f, tolerance);
    // Right-handed: istr x iup = ifor.
    float c[3];
    cross3(istr, iup, c);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(c[i], ifor[i], tolerance);
}

// A loaded-looking state in render mode 0 with a 512 x 409 image and a 40 x 30 x 20 grid.
void navigation_state(int mode)
{
    start_fresh();
    make_grid(40, 30, 20, [](int, int, int) { return 0u; });
    render_mode = mode;
    refresh = 0;
    slice_kind = 0;
    slice_x = 20, slice_y = 15, slice_z = 10;
    slice_zoom = 256.0f;
    slice_d = 0.0f;
    slice_recenter = 1;
    left_on_image = left_on_editor = right_on_image = right_on_editor = 0;
    // No key is down from an earlier test.
    for (bool& down : key_was_down) down = false;
}

// Holds the keys that set chooses for ms milliseconds of the fake clock, one sample every
// frame_ms (the first at the press, the last when the time is up), then one sample with the
// keys up. Returns the number of samples.
int hold_keys(void (*set)(KeyStates&), unsigned ms, unsigned frame_ms)
{
    InputSample s = keys(set);
    s.pressed = s.keys;
    int samples = 0;
    for (unsigned t = 0; t < ms; t += frame_ms) {
        apply_input(s);
        s.pressed = {};
        null_ticks += frame_ms;
        ++samples;
    }
    apply_input(idle());
    return samples + 1;
}

}  // namespace

TEST(InputKeys, MoveSpeedAndBothShiftKeys)
{
    KeyStates k = {};
    EXPECT_EQ(move_speed(k), 15.0f);
    k.left_shift = true;
    EXPECT_EQ(move_speed(k), 28.0f);
    k.right_shift = true;
    EXPECT_EQ(move_speed(k), 5.0f);  // right Shift wins
    k.left_shift = false;
    EXPECT_EQ(move_speed(k), 5.0f);
}

TEST(InputKeys, MovesAlongTheCameraAxes)
{
    navigation_state(0);
    set_start_camera();
    // Start frame: ifor (0, 0, -1), istr (-1, 0, 0), iup (0, 1, 0), eye at (20, 15, 10).
    apply_input(keys([](KeyStates& k) { k.forward = true; }));
    EXPECT_EQ(ipos[2], 10.0f - 15.0f);
    EXPECT_EQ(refresh, 1);
    apply_input(keys([](KeyStates& k) { k.back = true, k.left_shift = true, k.right_shift = true; }));
    EXPECT_EQ(ipos[2], -5.0f + 5.0f);
    apply_input(keys([](KeyStates& k) { k.right = true, k.left_shift = true; }));
    EXPECT_EQ(ipos[0], 20.0f - 28.0f);  // d moves along istr = -x
    apply_input(keys([](KeyStates& k) { k.left = true; }));
    EXPECT_EQ(ipos[0], -8.0f + 15.0f);
    apply_input(keys([](KeyStates& k) { k.up = true; }));  // f: += iup
    EXPECT_EQ(ipos[1], 30.0f);
    apply_input(keys([](KeyStates& k) { k.down = true; }));  // r: -= iup
    EXPECT_EQ(ipos[1], 15.0f);
    // Held together, the rows add up in their order.
    apply_input(keys([](KeyStates& k) { k.forward = true, k.back = true; }));
    EXPECT_EQ(ipos[2], 0.0f);
}

TEST(InputKeys, MaxRayStepsStopsAt50)
{
    navigation_state(0);
    KeyStates k = {};
    k.fewer_steps = true;
    for (int i = 0; i < 19; ++i) apply_keys(k);
    EXPECT_EQ(max_ray_steps, 50u);
    refresh = 0;
    apply_keys(k);
    EXPECT_EQ(max_ray_steps, 50u);  // 0 would be below 6
    EXPECT_EQ(refresh, 1);          // yet refresh is set
    k = {};
    k.more_steps = true;
    apply_keys(k);
    EXPECT_EQ(max_ray_steps, 100u);
    // The test is on the unsigned result: from 40 the subtraction wraps and is made.
    max_ray_steps = 40;
    k = {};
    k.fewer_steps = true;
    apply_keys(k);
    EXPECT_EQ(max_ray_steps, 40u - 50u);
    max_ray_steps = 55;
    apply_keys(k);
    EXPECT_EQ(max_ray_steps, 55u);  // 5 is below 6
    max_ray_steps = 56;
    apply_keys(k);
    EXPECT_EQ(max_ray_steps, 6u);
}

TEST(InputKeys, RefineToleranceStopsAt1And253)
{
    navigation_state(0);
    KeyStates finer = {}, coarser = {};
    finer.finer = true;
    coarser.coarser = true;
    apply_keys(coarser);
    EXPECT_EQ(refine_tolerance, 13);
    refine_tolerance = 10;
    apply_keys(finer);
    EXPECT_EQ(refine_tolerance, 7);
    for (int i = 0; i < 10; ++i) apply_keys(finer);
    EXPECT_EQ(refine_tolerance, 1);
    refresh = 0;
    apply_keys(finer);
    EXPECT_EQ(refine_tolerance, 1);
    EXPECT_EQ(refresh, 1);
    for (int i = 0; i < 100; ++i) apply_keys(coarser);
    EXPECT_EQ(refine_tolerance, 253);
}

TEST(InputKeys, PrintShowsTheCamera)
{
    navigation_state(0);
    set_start_camera();
    refresh = 0;
    testing::internal::CaptureStdout();
    apply_keys([] {
        KeyStates k = {};
        k.print = true;
        return k;
    }());
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out,
              "\n100.000000\nipos 20.000000,15.000000,10.000000\nistr -1.000000,0.000000,0.000000\n"
              "iup  0.000000,1.000000,0.000000\nifor 0.000000,0.000000,-1.000000\n\n");
    EXPECT_EQ(refresh, 0);
}

TEST(InputKeys, PageUpAtTheLastSliceOnlySetsRefresh)
{
    navigation_state(0);
    slice_z = 19;  // vol_z - 1
    KeyStates k = {};
    k.page_up = true;
    apply_keys(k);
    EXPECT_EQ(slice_z, 19u);
    EXPECT_EQ(refresh, 1);
    k = {};
    k.page_down = true;
    apply_keys(k);
    EXPECT_EQ(slice_z, 18u);
    slice_kind = 2;
    slice_x = 0;
    apply_keys(k);
    EXPECT_EQ(slice_x, 0u);
    slice_kind = 3;
    apply_keys(k);
    apply_keys(k);
    EXPECT_EQ(slice_d, -2.0f);  // the plane has no bound
}

TEST(InputKeys, ZoomKeysAndTheirBounds)
{
    navigation_state(0);
    slice_zoom = 11.0f;
    KeyStates end = {}, home = {};
    end.end = true;
    home.home = true;
    apply_keys(end);
    EXPECT_EQ(slice_zoom, 8.0f);
    apply_keys(end);
    EXPECT_EQ(slice_zoom, 8.0f);
    slice_zoom = 1020.0f;
    apply_keys(home);
    EXPECT_EQ(slice_zoom, 1023.0f);
    apply_keys(home);
    EXPECT_EQ(slice_zoom, 1023.0f);
}

TEST(InputKeys, SliceViewMovesTheAxisSliceCentreTheOtherWay)
{
    navigation_state(12);
    slice_u[0] = -1.0f, slice_u[1] = 0.0f, slice_u[2] = 0.0f;
    slice_v[0] = 0.0f, slice_v[1] = 0.5f, slice_v[2] = 1.0f;
    slice_center[0] = 10.0f, slice_center[1] = 7.0f, slice_center[2] = 4.0f;
    float before[3] = {ipos[0], ipos[1], ipos[2]};
    KeyStates k = {};
    k.right = true;  // d: axis slice x, z -= s * u, s = 15 / 4
    apply_keys(k);
    EXPECT_EQ(slice_center[0], 10.0f + 3.75f);
    EXPECT_EQ(slice_center[1], 7.0f);
    k = {};
    k.up = true;  // f: x, z -= s * v; y stays although v has a y part
    apply_keys(k);
    EXPECT_EQ(slice_center[2], 4.0f - 3.75f);
    EXPECT_EQ(slice_center[1], 7.0f);
    EXPECT_EQ(ipos[0], before[0]);  // the camera doesn't move in the slice view
    // The arbitrary plane moves with the image axes.
    slice_kind = 3;
    k = {};
    k.left = true;  // a: centre -= s * u
    apply_keys(k);
    EXPECT_EQ(slice_center[0], 13.75f + 3.75f);
    // w zooms in by 3.
    k = {};
    k.forward = true;
    apply_keys(k);
    EXPECT_EQ(slice_zoom, 253.0f);
}

TEST(InputMouse, MouseLookTurnsAboutUpAndStrafe)
{
    navigation_state(0);
    set_start_camera();
    // 360 pixels are 90 degrees: ifor turns onto istr.
    mouse_look(360, 0);
    EXPECT_NEAR(ifor[0], -1.0f, 1e-6f);
    EXPECT_NEAR(ifor[2], 0.0f, 1e-6f);
    EXPECT_NEAR(iup[1], 1.0f, 1e-6f);
    EXPECT_NEAR(istr[2], 1.0f, 1e-6f);
    expect_orthonormal(1e-6f);
    // Vertically, iup turns toward ifor: moving the mouse down looks down.
    set_start_camera();
    mouse_look(0, 360);
    EXPECT_NEAR(ifor[1], -1.0f, 1e-6f);
    EXPECT_NEAR(iup[2], -1.0f, 1e-6f);
    expect_orthonormal(1e-6f);
    EXPECT_EQ(ipos[0], 20.0f);  // the eye stays
}

TEST(InputMouse, OrthonormalAfterManySmallTurns)
{
    navigation_state(0);
    set_start_camera();
    std::mt19937 rng(7);
    for (int i = 0; i < 20000; ++i) {
        int dx = (int)(rng() % 7) - 3, dy = (int)(rng() % 7) - 3;
        mouse_look(dx, dy);
        if (i % 5 == 0) roll_camera((int)(rng() % 5) - 2);
    }
    expect_orthonormal(2e-6f);
}

TEST(InputMouse, RollTurnsAboutForward)
{
    navigation_state(0);
    set_start_camera();
    roll_camera(360);  // 90 degrees: istr turns onto iup
    EXPECT_NEAR(istr[1], 1.0f, 1e-6f);
    EXPECT_NEAR(iup[0], 1.0f, 1e-6f);
    EXPECT_NEAR(ifor[2], -1.0f, 1e-6f);
    expect_orthonormal(1e-6f);
}

TEST(InputMouse, LeftDragOnTheImageTurnsAndCaptures)
{
    navigation_state(0);
    set_start_camera();
    InputSample s = idle();
    s.left = true, s.dx = 10, s.x = 100, s.y = 100;
    EXPECT_EQ(apply_input(s), PointerCapture::capture);
    EXPECT_EQ(left_on_image, 1);
    EXPECT_EQ(refresh, 1);
    EXPECT_LT(ifor[0], 0.0f);
    EXPECT_EQ(tex_scroll_x, -5);
    s.dx = -3, s.dy = 4;
    apply_input(s);
    EXPECT_EQ(tex_scroll_x, -5 + 2);  // -3 >> 1 is -2
    EXPECT_EQ(tex_scroll_y, 4);
    EXPECT_EQ(apply_input(idle()), PointerCapture::release);
    EXPECT_EQ(left_on_image, 0);
}

TEST(InputMouse, PressOnTheStripStaysWithTheStrip)
{
    navigation_state(0);
    set_start_camera();
    volume_loaded = 1;
    InputSample s = idle();
    s.left = true, s.x = 50, s.y = 450;  // below the image (height 409)
    EXPECT_EQ(apply_input(s), PointerCapture::none);
    EXPECT_EQ(left_on_editor, 1);
    // Dragging up into the image keeps it with the editor: the camera doesn't turn.
    s.y = 100, s.dx = 40;
    apply_input(s);
    EXPECT_EQ(left_on_editor, 1);
    EXPECT_EQ(left_on_image, 0);
    EXPECT_EQ(ifor[0], 0.0f);
    apply_input(idle());
    EXPECT_EQ(left_on_editor, 0);
    // A press that began on the image keeps turning below it.
    s.y = 100;
    apply_input(s);
    s.y = 480;
    apply_input(s);
    EXPECT_EQ(left_on_image, 1);
    EXPECT_EQ(left_on_editor, 0);
    EXPECT_LT(ifor[0], 0.0f);
}

TEST(InputMouse, WithoutAVolumeAPressOnTheStripTurnsTheCamera)
{
    navigation_state(0);
    set_start_camera();
    volume_loaded = 0;
    InputSample s = idle();
    s.left = true, s.x = 50, s.y = 450, s.dx = 40;
    EXPECT_EQ(apply_input(s), PointerCapture::capture);
    EXPECT_EQ(left_on_editor, 1);
    EXPECT_LT(ifor[0], 0.0f);
    apply_input(idle());
    s = idle();
    s.right = true, s.x = 50, s.y = 450, s.dx = 40;
    apply_input(s);
    EXPECT_GT(istr[1], 0.0f);  // rolled
}

TEST(InputMouse, LeftPressTimesRing)
{
    navigation_state(0);
    InputSample s = idle();
    s.left = true, s.x = 10, s.y = 10;
    left_press_slot = 0;
    null_ticks = 1000;
    apply_input(s);
    null_ticks = 1016;
    apply_input(s);
    null_ticks = 1033;
    apply_input(s);
    EXPECT_EQ(left_press_times[0], 1033u);
    EXPECT_EQ(left_press_times[1], 1016u);
    EXPECT_EQ(left_press_slot, 1);
}

TEST(InputMouse, SliceViewStepsWithVerticalDrag)
{
    navigation_state(12);
    InputSample s = idle();
    s.left = true, s.x = 10, s.y = 10, s.dy = -5;
    apply_input(s);
    EXPECT_EQ(slice_z, 11u);
    s.dy = 3;
    apply_input(s);
    apply_input(s);
    EXPECT_EQ(slice_z, 9u);
    // A still mouse moves nothing, but a new preview is due on every frame.
    s.dy = 0;
    refresh = 0;
    apply_input(s);
    EXPECT_EQ(slice_z, 9u);
    EXPECT_EQ(refresh, 1);
}

TEST(InputMouse, MiddleButtonSwitchesTheSliceKindAtMostEvery250ms)
{
    navigation_state(0);
    last_slice_switch = 0;
    null_ticks = 1000;
    InputSample s = idle();
    s.middle = true, s.dx = 5;
    EXPECT_EQ(apply_input(s), PointerCapture::capture);
    EXPECT_EQ(slice_kind, 1);
    null_ticks = 1250;  // exactly 250 ms later: not yet
    apply_input(s);
    EXPECT_EQ(slice_kind, 1);
    null_ticks = 1251;
    apply_input(s);
    EXPECT_EQ(slice_kind, 2);
    null_ticks = 1600;
    apply_input(s);
    null_ticks = 2000;
    apply_input(s);
    EXPECT_EQ(slice_kind, 0);  // 3 wraps to 0
    s.dx = -1;
    null_ticks = 2300;
    apply_input(s);
    EXPECT_EQ(slice_kind, 3);  // 0 wraps to 3
    s.dx = 0;
    null_ticks = 2600;
    apply_input(s);
    EXPECT_EQ(slice_kind, 3);
    EXPECT_EQ(last_slice_switch, 2600u);
}

TEST(InputMouse, RightButtonInTheSliceView)
{
    navigation_state(12);
    // Recentred: vertical motion zooms by 6 within its bounds.
    InputSample s = idle();
    s.right = true, s.x = 10, s.y = 10, s.dy = 2;
    slice_zoom = 1017.0f;
    apply_input(s);
    EXPECT_EQ(slice_zoom, 1023.0f);
    apply_input(s);
    EXPECT_EQ(slice_zoom, 1023.0f);
    s.dy = -1;
    slice_zoom = 14.0f;
    apply_input(s);
    EXPECT_EQ(slice_zoom, 8.0f);
    apply_input(s);
    EXPECT_EQ(slice_zoom, 8.0f);
    // Not recentred: horizontal motion turns the slice's image axes.
    slice_recenter = 0;
    slice_kind = 3;
    slice_normal_unit[0] = 0.0f, slice_normal_unit[1] = 0.0f, slice_normal_unit[2] = 1.0f;
    slice_u[0] = 1.0f, slice_u[1] = 0.0f, slice_u[2] = 0.0f;
    slice_v[0] = 0.0f, slice_v[1] = 1.0f, slice_v[2] = 0.0f;
    s.dx = 360, s.dy = 0;
    apply_input(s);
    EXPECT_NEAR(slice_u[1], 1.0f, 1e-6f);
    // Arbitrary plane: v = n x u.
    EXPECT_NEAR(slice_v[0], -1.0f, 1e-6f);
}

TEST(InputMouse, ButtonReleaseEndsDrags)
{
    navigation_state(0);
    null_ticks = 4321;
    ColorNode node = {};
    drag_color_node = &node;
    mouse_button_released();
    EXPECT_EQ(last_button_up, 4321u);
    EXPECT_EQ(drag_color_node, nullptr);
    EXPECT_EQ(drag_opacity_node, nullptr);
}

// ---------------------------------------------------------------------------------------------
// The key throttle: one step at the press, one more per 40 ms the key stays down, whatever the
// frame time.

TEST(InputThrottle, ATapIsOneStep)
{
    navigation_state(0);
    set_start_camera();
    null_ticks = 1000;
    // Down and up again between two samples: the press still counts, once.
    InputSample s = idle();
    s.pressed.back = true;
    apply_input(s);
    EXPECT_EQ(ipos[2], 10.0f + 15.0f);
    apply_input(idle());
    EXPECT_EQ(ipos[2], 25.0f);
    // Down for less than 40 ms, sampled every 5 ms: one step.
    hold_keys([](KeyStates& k) { k.back = true; }, 35, 5);
    EXPECT_EQ(ipos[2], 40.0f);
    // With left Shift: one step of 28.
    hold_keys([](KeyStates& k) { k.forward = true, k.left_shift = true; }, 20, 1);
    EXPECT_EQ(ipos[2], 12.0f);
}

TEST(InputThrottle, HeldForASecondIs25StepsWhateverTheFrameTime)
{
    for (unsigned frame_ms : {1u, 3u, 7u, 16u, 33u, 39u, 40u, 41u, 60u}) {
        navigation_state(0);
        set_start_camera();
        null_ticks = 5000 + frame_ms;
        int samples = hold_keys([](KeyStates& k) { k.forward = true; }, 1000, frame_ms);
        const float steps = (10.0f - ipos[2]) / 15.0f;
        EXPECT_GE(steps, 24.0f) << "frame time " << frame_ms << " ms, " << samples << " samples";
        EXPECT_LE(steps, 26.0f) << "frame time " << frame_ms << " ms, " << samples << " samples";
        EXPECT_EQ(steps, std::floor(steps)) << "whole steps only";
    }
    // Slower frames can't see the release sooner than the next sample: the count falls short
    // by at most the steps of one frame, and never overshoots.
    for (unsigned frame_ms : {100u, 190u}) {
        navigation_state(0);
        set_start_camera();
        null_ticks = 9000;
        hold_keys([](KeyStates& k) { k.forward = true; }, 1000, frame_ms);
        const float steps = (10.0f - ipos[2]) / 15.0f;
        EXPECT_LE(steps, 26.0f) << "frame time " << frame_ms;
        EXPECT_GE(steps, 25.0f - frame_ms / 40) << "frame time " << frame_ms;
    }
}

TEST(InputThrottle, NeverMoreThanOneStepPer40ms)
{
    navigation_state(0);
    set_start_camera();
    null_ticks = 700;
    InputSample s = keys([](KeyStates& k) { k.right = true; });
    s.pressed = s.keys;
    apply_input(s);
    s.pressed = {};
    EXPECT_EQ(ipos[0], 20.0f - 15.0f);
    // 39 ms later nothing more; at 40 ms the second step.
    for (int t = 1; t < 40; ++t) {
        null_ticks += 1;
        apply_input(s);
    }
    EXPECT_EQ(ipos[0], 5.0f);
    null_ticks += 1;
    apply_input(s);
    EXPECT_EQ(ipos[0], -10.0f);
    // A stall of two seconds takes at most five steps, not fifty.
    null_ticks += 2000;
    apply_input(s);
    EXPECT_EQ(ipos[0], -10.0f - 5 * 15.0f);
    // And then the pace goes on from the press.
    null_ticks += 40;
    apply_input(s);
    EXPECT_EQ(ipos[0], -100.0f);
}

TEST(InputThrottle, PrintOncePerPressAndEveryStepRowIsThrottled)
{
    navigation_state(0);
    set_start_camera();
    null_ticks = 10000;
    testing::internal::CaptureStdout();
    hold_keys([](KeyStates& k) { k.print = true; }, 500, 10);
    std::string out = testing::internal::GetCapturedStdout();
    size_t prints = 0;
    for (size_t at = out.find("ipos "); at != std::string::npos; at = out.find("ipos ", at + 1)) ++prints;
    EXPECT_EQ(prints, 1u) << out;
    // The other stepping rows keep the same pace: 100 ms held at 10 ms frames is 3 steps.
    max_ray_steps = 1000;
    hold_keys([](KeyStates& k) { k.more_steps = true; }, 100, 10);
    EXPECT_EQ(max_ray_steps, 1150u);
    refine_tolerance = 10;
    hold_keys([](KeyStates& k) { k.coarser = true; }, 100, 10);
    EXPECT_EQ(refine_tolerance, 19);
    slice_zoom = 256.0f;
    hold_keys([](KeyStates& k) { k.home = true; }, 100, 10);
    EXPECT_EQ(slice_zoom, 265.0f);
    slice_kind = 0, slice_z = 10;
    hold_keys([](KeyStates& k) { k.page_up = true; }, 100, 10);
    EXPECT_EQ(slice_z, 13u);
}

TEST(InputThrottle, InputHeldWhileAKeyOrButtonIsDown)
{
    navigation_state(0);
    apply_input(idle());
    EXPECT_FALSE(input_held());
    InputSample s = keys([](KeyStates& k) { k.left = true; });
    apply_input(s);
    EXPECT_TRUE(input_held());
    s = idle();
    s.middle = true;
    apply_input(s);
    EXPECT_TRUE(input_held());
    apply_input(idle());
    EXPECT_FALSE(input_held());
}
