// Golden images of the cuberille passes on the bundled phantom, frozen as FNV-1a checksums of
// the colour buffer. A golden freezes behaviour, it proves nothing: the hand-computed tests
// beside it do that. When a rule is changed on purpose, print the new sums (the failure
// message shows them) and replace the ones below.
//
// Skipped with a message when make-phantom is not built.
#include <gtest/gtest.h>

#include "golden_helpers.h"

namespace {

// Bone only: densities of 2400 and above opaque, the rest at 0.1, below the band.
void bone_tables()
{
    reset_grey_tables();
    for (int d = 0; d < 4096; ++d) opacity_lut[d] = d >= 2400 ? 1.0f : 0.1f;
}

}  // namespace

TEST(GoldenCuberille, PhantomImages)
{
    start_fresh();
    if (!load_phantom()) GTEST_SKIP() << "make-phantom is not built: no phantom, no golden images";
    ASSERT_EQ(vol_x, 196u);
    golden_camera();
    refresh = 0;
    // The grey identity is what a load leaves with no edit: the skin is the first hit.
    struct Golden {
        const char* what;
        bool bone;
        int light_model;
        bool final;
        uint32_t hash;
    } goldens[] = {
        {"skin: preview, light model 1", false, 1, false, 0x94fd0985u},
        {"skin: final, light model 0", false, 0, true, 0xb71f41feu},
        {"skin: final, light model 1", false, 1, true, 0xb09e9c06u},
        {"skin: final, light model 2", false, 2, true, 0xbd546a45u},
        {"bone: preview, light model 1", true, 1, false, 0x72c9bf05u},
        {"bone: final, light model 1", true, 1, true, 0xacc3e00du},
    };
    for (const Golden& g : goldens) {
        clear_image();
        if (g.bone) bone_tables();
        else reset_grey_tables();
        light_model = g.light_model;
        if (g.final) render_cuberille_final(&render_target, voxels, ipos, ifor, iup, istr);
        else render_cuberille_preview(&render_target, voxels, ipos, ifor, iup, istr);
        EXPECT_EQ(image_hash(), g.hash) << g.what << ": 0x" << std::hex << image_hash();
    }
    // Not a blank picture: an eighth of the pixels or more see the skull.
    uint32_t lit = 0;
    for (uint32_t i = 0; i < render_target.width * render_target.height; ++i) lit += render_target.color[i] != 0;
    EXPECT_GT(lit, render_target.width * render_target.height / 8);
}
