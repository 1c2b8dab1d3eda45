// Golden images of the maximum intensity and average projections on the bundled phantom,
// frozen as FNV-1a checksums of the colour buffer: every pass in every interpolation, with and
// without "Faint Whisps". A golden freezes behaviour, it proves nothing: the hand-computed
// tests of test_composite_projection.cpp do that. When a rule is changed on purpose, print the
// new sums (the failure message shows them) and replace the ones below.
//
// Skipped with a message when make-phantom is not built.
#include <gtest/gtest.h>

#include "composite/composite.h"
#include "composite/projection.h"
#include "golden_helpers.h"

namespace {

// Skin faint and reddish, brain fainter, bone pale and nearly opaque (bone 1.0: a mip ray ends
// at the first bone); nothing below 1000.
void skin_and_bone(float bone)
{
    for (int d = 0; d < 4096; ++d) {
        opacity_lut[d] = d < 1000 ? 0.0f : d < 1300 ? 0.08f : d < 2400 ? 0.03f + (float)(d - 1300) * 0.0003f : bone;
        const uint32_t r = (uint32_t)(d >> 4), g = (uint32_t)(d * 3 >> 6), b = (uint32_t)(d >> 5);
        color_lut[d] = (r > 255 ? 255 : r) << 16 | (g > 255 ? 255 : g) << 8 | (b > 255 ? 255 : b);
    }
}

using Pass = void (*)(RenderTarget*, uint32_t*, float*, float*, float*, float*);

struct Golden {
    const char* what;
    Pass pass;
    int interp;
    int faint;
    float bone;
    uint32_t hash;
};

void check(const Golden* goldens, size_t n)
{
    for (size_t k = 0; k < n; ++k) {
        const Golden& g = goldens[k];
        clear_image();
        interp_mode = (uint8_t)g.interp;
        faint_whisps = g.faint;
        skin_and_bone(g.bone);
        // A final keeps what the preview of the same settings left.
        if (g.pass == render_mip_final) render_mip_preview(&render_target, voxels, ipos, ifor, iup, istr);
        if (g.pass == render_avg_final) render_avg_preview(&render_target, voxels, ipos, ifor, iup, istr);
        g.pass(&render_target, voxels, ipos, ifor, iup, istr);
        EXPECT_EQ(image_hash(), g.hash) << g.what << ": 0x" << std::hex << image_hash();
    }
    faint_whisps = 0;
    interp_mode = 0;
}

void golden_scene()
{
    start_fresh();
    set_image(256, 205);
    // Outside the phantom's box, looking at its face from the front, the head filling the picture.
    set_camera(96.0f, 290.0f, 90.0f, 0.0f, -1.0f, -0.05f, 0.0f, 0.0f, -1.0f);
    clamp_forward();
    refresh = 0;
    skin_and_bone(0.9f);
}

}  // namespace

TEST(GoldenMip, PhantomImages)
{
    start_fresh();
    if (!load_phantom()) GTEST_SKIP() << "make-phantom is not built: no phantom, no golden images";
    golden_scene();
    const Golden goldens[] = {
        {"preview, none", render_mip_preview, 0, 0, 0.9f, 0xad54379du},
        {"preview, bilinear", render_mip_preview, 1, 0, 0.9f, 0xa2b62a85u},
        {"final, none", render_mip_final, 0, 0, 0.9f, 0x712514au},
        {"final, bilinear", render_mip_final, 1, 0, 0.9f, 0xedf10094u},
        {"final, trilinear", render_mip_final_trilinear, 2, 0, 0.9f, 0xbbaf7d36u},
        {"faint: final, none", render_mip_final, 0, 1, 0.9f, 0xb71f2c73u},
        {"faint: final, bilinear", render_mip_final, 1, 1, 0.9f, 0xd41c6b3eu},
        {"faint: final, trilinear", render_mip_final_trilinear, 2, 1, 0.9f, 0xd50e3678u},
        {"opaque bone: preview, none", render_mip_preview, 0, 0, 1.0f, 0xad54379du},
        {"opaque bone: final, none", render_mip_final, 0, 0, 1.0f, 0x712514au},
        {"opaque bone: final, bilinear", render_mip_final, 1, 0, 1.0f, 0xf0b4f6eau},
        {"opaque bone: final, trilinear", render_mip_final_trilinear, 2, 0, 1.0f, 0xa7035e78u},
    };
    check(goldens, std::size(goldens));
    // Not a blank picture: a quarter of the pixels or more see the head.
    uint32_t lit = 0;
    for (uint32_t i = 0; i < 256 * 205; ++i) lit += render_target.color[i] != 0;
    EXPECT_GT(lit, 256u * 205 / 4);
}

TEST(GoldenAvg, PhantomImages)
{
    start_fresh();
    if (!load_phantom()) GTEST_SKIP() << "make-phantom is not built: no phantom, no golden images";
    golden_scene();
    const Golden goldens[] = {
        {"preview, none", render_avg_preview, 0, 0, 0.9f, 0x1333ddb5u},
        {"preview, bilinear", render_avg_preview, 1, 0, 0.9f, 0x1375021du},
        {"final, none", render_avg_final, 0, 0, 0.9f, 0xb23f3f86u},
        {"final, bilinear", render_avg_final, 1, 0, 0.9f, 0x49855a14u},
        {"final, trilinear", render_avg_final_trilinear, 2, 0, 0.9f, 0x8f4a1806u},
        {"faint: final, none", render_avg_final, 0, 1, 0.9f, 0x6ba42758u},
        {"faint: final, bilinear", render_avg_final, 1, 1, 0.9f, 0xf463ca55u},
        {"faint: final, trilinear", render_avg_final_trilinear, 2, 1, 0.9f, 0xa87eeb5bu},
    };
    check(goldens, std::size(goldens));
    uint32_t lit = 0;
    for (uint32_t i = 0; i < 256 * 205; ++i) lit += render_target.color[i] != 0;
    EXPECT_GT(lit, 256u * 205 / 4);
}

// The voxel samples' densities are summed as integers while max_ray_steps is at most 4096 and
// in floats above it: no ray here is long enough for the float sum to lose a bit, so both
// give the same picture.
TEST(GoldenAvg, WholeNumberAndFloatSumsAgree)
{
    start_fresh();
    if (!load_phantom()) GTEST_SKIP() << "make-phantom is not built: no phantom, no golden images";
    golden_scene();
    for (Pass pass : {render_avg_preview, render_avg_final}) {
        uint32_t hashes[2];
        for (int k = 0; k < 2; ++k) {
            max_ray_steps = k ? 4097 : 4096;
            clear_image();
            render_avg_preview(&render_target, voxels, ipos, ifor, iup, istr);
            if (pass != render_avg_preview) pass(&render_target, voxels, ipos, ifor, iup, istr);
            hashes[k] = image_hash();
        }
        EXPECT_EQ(hashes[0], hashes[1]);
    }
}

// The bricks that the transfer function empties change no pixel of the phantom: with the skin
// hidden, every pass in every interpolation draws the same picture walking block_map's bricks
// as walking the emptied ones, and some bricks are emptied indeed.
TEST(GoldenProjections, TheEmptiedBricksChangeNoPixel)
{
    start_fresh();
    if (!load_phantom()) GTEST_SKIP() << "make-phantom is not built: no phantom, no golden images";
    golden_scene();
    skin_and_bone(0.9f);
    for (int d = 0; d < 1300; ++d) opacity_lut[d] = 0.0f;
    const ProjectionBricks b = projection_bricks();
    uint32_t emptied = 0;
    for (uint32_t i = 0; i < block_x * block_y * block_z; ++i) emptied += block_map[i] != 0 && b.map[i] == 0;
    EXPECT_GT(emptied, 0u);
    struct Step {
        Pass preview, pass;
        int interp;
    };
    const Step steps[] = {
        {nullptr, render_mip_preview, 1},          {render_mip_preview, render_mip_final, 0},
        {render_mip_preview, render_mip_final, 1}, {nullptr, render_mip_final_trilinear, 2},
        {nullptr, render_avg_preview, 1},          {render_avg_preview, render_avg_final, 0},
        {render_avg_preview, render_avg_final, 1}, {nullptr, render_avg_final_trilinear, 2},
    };
    for (const Step& s : steps) {
        uint32_t hashes[2];
        for (int skip = 0; skip < 2; ++skip) {
            projection_skip_hidden = skip != 0;
            interp_mode = (uint8_t)s.interp;
            clear_image();
            if (s.preview) s.preview(&render_target, voxels, ipos, ifor, iup, istr);
            s.pass(&render_target, voxels, ipos, ifor, iup, istr);
            hashes[skip] = image_hash();
        }
        EXPECT_EQ(hashes[0], hashes[1]) << "pass " << (&s - steps);
    }
    projection_skip_hidden = true;
    interp_mode = 0;
}
