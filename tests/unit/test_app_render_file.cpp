// Render to file without a window: a 1024 x 1024 PNG of the view from a window of another size,
// the same pixels as the mode's preview and final at that size, view_kind left out, the slice
// view in mode 12, and the window's buffers and view constants given back afterwards.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/app.h"
#include "app/passes.h"
#include "helpers.h"
#include "png_helpers.h"
#include "slices/slices.h"

// A 300 x 200 window (image 300 x 160) holding a ball in a 21 x 19 x 17 .dat volume, looked at
// from outside in the cuberille mode.
static void window_with_ball()
{
    start_library(300, 200);
    auto samples = make_samples(21, 19, 17, [](int x, int y, int z) {
        return (x - 10) * (x - 10) + (y - 9) * (y - 9) + (z - 8) * (z - 8) < 49 ? 2500 : 0;
    });
    std::string path = write_dat("rtf-ball.dat", 21, 19, 17, samples);
    ASSERT_TRUE(load_volume_file(path.c_str()));
    remove(path.c_str());
    render_mode = mode_cuberille;
    ipos[0] = 12.5f, ipos[1] = 11.5f, ipos[2] = -30.0f;
    const float forward[3] = {0.0f, 0.0f, 1.0f}, up[3] = {0.0f, 1.0f, 0.0f};
    look_along(forward, up);
}

// The image as the file holds it, 0x00RRGGBB (alpha must be 255).
static std::vector<uint32_t> file_pixels(const std::string& path, int* w, int* h)
{
    std::vector<uint32_t> rgba, out;
    std::string why;
    EXPECT_TRUE(decode_png(read_file(path), w, h, &rgba, &why)) << why;
    for (uint32_t p : rgba) {
        EXPECT_EQ(p & 0xff, 0xffu);
        out.push_back(p >> 8);
    }
    return out;
}

// What the mode's preview and final give at 1024 x 1024 into offscreen_pixels, done by hand.
static std::vector<uint32_t> rendered_by_hand()
{
    offscreen_render = 1;
    alloc_frame_buffers(1024, 1024, 1024);
    compute_view_constants();
    prepare_preview_vectors();
    refresh = 0;
    run_preview();
    if (find_pass(render_mode)->final) run_final();
    offscreen_render = 0;
    return std::vector<uint32_t>(offscreen_pixels, offscreen_pixels + 1024 * 1024);
}

TEST(RenderToFile, A1024SquareFromAWindowOfAnotherSize)
{
    window_with_ball();
    std::string path = temp_path("rtf.png");
    refresh = 1;  // a change still waiting for its preview does not cut the final short
    testing::internal::CaptureStdout();
    render_to_file_at(path.c_str());
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("saved the file\n"), std::string::npos) << out;
    // The window's image size, buffers and view constants are back, and a picture is due.
    EXPECT_EQ(render_target.width, 300u);
    EXPECT_EQ(render_target.height, 160u);
    EXPECT_EQ(pixel_step, 1.0f / 160.0f);
    EXPECT_EQ(half_extent_up, 0.5f);
    EXPECT_EQ(offscreen_render, 0);
    EXPECT_EQ(refresh, 1);

    int w = 0, h = 0;
    std::vector<uint32_t> file = file_pixels(path, &w, &h);
    EXPECT_EQ(w, 1024);
    EXPECT_EQ(h, 1024);
    std::vector<uint32_t> expected = rendered_by_hand();
    EXPECT_TRUE(file == expected) << "the file differs from the preview and final at 1024 x 1024";
    // The ball is in it, in the middle, and the corners are black.
    EXPECT_NE(file[512 * 1024 + 500], 0u);
    EXPECT_EQ(file[0], 0u);
    remove(path.c_str());
}

TEST(RenderToFile, TheAbstractViewNeverReachesAFile)
{
    window_with_ball();
    std::string plain = temp_path("rtf-plain.png"), abstract = temp_path("rtf-abstract.png");
    testing::internal::CaptureStdout();
    render_to_file_at(plain.c_str());
    view_kind = view_abstract;
    render_to_file_at(abstract.c_str());
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(read_file(plain), read_file(abstract));
    remove(plain.c_str());
    remove(abstract.c_str());
}

TEST(RenderToFile, ModeTwelveSavesTheSliceView)
{
    window_with_ball();
    render_mode = mode_slices;
    std::string path = temp_path("rtf-slices.png");
    testing::internal::CaptureStdout();
    render_to_file_at(path.c_str());
    testing::internal::GetCapturedStdout();
    int w = 0, h = 0;
    std::vector<uint32_t> file = file_pixels(path, &w, &h);
    offscreen_render = 1;
    alloc_frame_buffers(1024, 1024, 1024);
    compute_view_constants();
    render_slices(&render_target, voxels);
    offscreen_render = 0;
    EXPECT_TRUE(file == std::vector<uint32_t>(offscreen_pixels, offscreen_pixels + 1024 * 1024));
    size_t lit = 0;
    for (uint32_t p : file) lit += p != 0;
    EXPECT_GT(lit, 1000u);  // the slice through the ball shows
    remove(path.c_str());
}
