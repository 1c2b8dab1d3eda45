// Golden images of the interpolated first hit on the bundled phantom, frozen as FNV-1a
// checksums of the colour buffer (and, where edges are drawn, of the shown image): every
// interpolation, the light models, toon, pencil, edges, occlusion with the fresh volume's 0x80,
// extra surfaces, pre-shading. A golden freezes behaviour, it proves nothing: the hand-computed
// tests and the literal reading (test_raycast_firsthit.cpp) do that; a few of the phantom's
// pictures are held to the literal reading here too. When a rule is changed on purpose, print
// the new sums (the failure message shows them) and replace the ones below.
//
// Skipped with a message when make-phantom is not built.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

#include "firsthit_reference.h"
#include "golden_helpers.h"

namespace {

// Outside the phantom's box, looking at its face from the front and a little above.
void face_camera()
{
    set_camera(96.0f, 330.0f, 120.0f, 0.0f, -1.0f, -0.15f, 0.0f, 0.0f, -1.0f);
    clamp_forward();
    prepare_preview_vectors();
}

uint32_t shown_hash()
{
    uint32_t h = 2166136261u;
    const uint8_t* b = (const uint8_t*)offscreen_pixels;
    for (size_t i = 0, n = (size_t)render_target.width * render_target.height * 4; i < n; ++i) h = (h ^ b[i]) * 16777619u;
    return h;
}

struct Golden {
    const char* what;
    int pass;  // 0 preview, 1 final, 2 trilinear final
    uint8_t interp;
    int light_model;
    int iso;
    bool toon, pencil, edges, occlusion, extras, pre;
    uint32_t hash;
};

void apply(const Golden& g)
{
    reset_grey_tables();
    interp_mode = g.interp;
    light_model = g.light_model;
    isovalue = g.iso;
    toon_shading = g.toon || g.pencil;
    pencil_sketch = g.pencil;
    edge_enabled = g.edges;
    use_occlusion = g.occlusion;
    pre_shading = g.pre;
    light_ambient = 0.1f;
    for (int s = 0; s < 4; ++s) surface_on[s] = 0;
    if (g.extras) {
        // Skin and the lesion beside the bone, each in a colour of its own.
        surface_on[0] = 1, surface_isovalue[0] = 1000, color_lut[1000] = 0xc08060u;
        surface_on[1] = 1, surface_isovalue[1] = 1900, color_lut[1900] = 0x40a040u;
    }
}

void run(const Golden& g)
{
    clear_image();
    if (g.pass == 0) render_firsthit_preview(&render_target, voxels, ipos, ifor, iup, istr);
    else if (g.pass == 1) render_firsthit_final(&render_target, voxels, ipos, ifor, iup, istr);
    else render_firsthit_final_trilinear(&render_target, voxels, ipos, ifor, iup, istr);
}

}  // namespace

TEST(GoldenFirstHit, PhantomImages)
{
    start_fresh();
    if (!load_phantom()) GTEST_SKIP() << "make-phantom is not built: no phantom, no golden images";
    face_camera();
    refresh = 0;
    offscreen_render = 1;
    // clang-format off
    const Golden goldens[] = {
        // what                                  pass interp lm iso   toon  pencil edges  occl   extras pre
        {"skin, no interpolation, model 0",      1, 0, 0, 1000, false, false, false, false, false, false, 0xace32e78u},
        {"skin, no interpolation, model 1",      1, 0, 1, 1000, false, false, false, false, false, false, 0x9dd9e85du},
        {"skin, no interpolation, model 2",      1, 0, 2, 1000, false, false, false, false, false, false, 0x9dd9e85du},
        {"bone, bilinear",                       1, 1, 0, 2400, false, false, false, false, false, false, 0x47157fd1u},
        {"bone, bilinear preview",               0, 1, 0, 2400, false, false, false, false, false, false, 0x9a85c6c5u},
        {"bone, trilinear",                      2, 2, 0, 2400, false, false, false, false, false, false, 0x9262108cu},
        {"skin, bilinear, toon",                 1, 1, 0, 1000, true,  false, false, false, false, false, 0x0abf2fe4u},
        {"skin, bilinear, pencil",               1, 1, 0, 1000, false, true,  false, false, false, false, 0x9ef31559u},
        {"skin, pencil preview",                 0, 1, 0, 1000, false, true,  false, false, false, false, 0x728a9045u},
        {"skin, bilinear, edges",                1, 1, 0, 1000, false, false, true,  false, false, false, 0xb2356106u},
        {"skin, preview, edges",                 0, 1, 0, 1000, false, false, true,  false, false, false, 0xbf7efab7u},
        {"skin, trilinear, edges",               2, 2, 0, 1000, false, false, true,  false, false, false, 0x346190fcu},
        {"bone, bilinear, occlusion 0x80",       1, 1, 0, 2400, false, false, false, true,  false, false, 0x3a91851eu},
        {"bone, trilinear, toon and occlusion",  2, 2, 0, 2400, true,  false, false, true,  false, false, 0xd9a8b35du},
        {"bone, trilinear, extra surfaces",      2, 2, 0, 2400, false, false, false, false, true,  false, 0xa89e97a2u},
        {"bone, trilinear, pre-shading, extras", 2, 2, 0, 2400, false, false, false, false, true,  true,  0xde26b1a2u},
    };
    // clang-format on
    for (const Golden& g : goldens) {
        apply(g);
        run(g);
        const uint32_t h = g.edges ? shown_hash() : image_hash();
        EXPECT_EQ(h, g.hash) << g.what << ": 0x" << std::hex << h;
    }
    // Not a blank picture: the skull covers a good part of the image.
    apply(goldens[3]);
    run(goldens[3]);
    uint32_t lit = 0;
    for (uint32_t i = 0; i < render_target.width * render_target.height; ++i) lit += render_target.color[i] != 0;
    EXPECT_GT(lit, render_target.width * render_target.height / 8);
}

// The phantom through the passes and through the literal reading, on a smaller image: the
// skin and the bone, plane-sampled and trilinear with extra surfaces, lit with occlusion.
TEST(GoldenFirstHit, PhantomAgreesWithTheLiteralReading)
{
    start_fresh();
    if (!load_phantom()) GTEST_SKIP() << "make-phantom is not built";
    set_image(160, 128);
    face_camera();
    refresh = 0;
    const Golden cases[] = {
        {"skin, preview", 0, 1, 0, 1000, false, false, false, true, false, false, 0},
        {"bone, bilinear, toon", 1, 1, 0, 2400, true, false, true, true, false, false, 0},
        {"bone, trilinear, extras", 2, 2, 0, 2400, false, false, true, true, true, false, 0},
    };
    for (const Golden& g : cases) {
        apply(g);
        run(g);
        const std::vector<uint32_t> fast(render_target.color, render_target.color + 160 * 128);
        const std::vector<uint32_t> fast_depth(render_target.depth, render_target.depth + 160 * 128);
        clear_image();
        if (g.pass == 0) reference::preview();
        else if (g.pass == 1) reference::final_pass();
        else reference::trilinear_pass();
        EXPECT_TRUE(fast == std::vector<uint32_t>(render_target.color, render_target.color + 160 * 128)) << g.what;
        EXPECT_TRUE(fast_depth == std::vector<uint32_t>(render_target.depth, render_target.depth + 160 * 128)) << g.what;
    }
}
