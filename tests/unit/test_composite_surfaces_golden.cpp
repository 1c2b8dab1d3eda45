// Golden images of the region boundary and isovalue contour passes on the bundled phantom,
// frozen as FNV-1a checksums of the colour buffer: each of the six passes, and the options
// that change their sample work (interpolation, alpha correction, classification order,
// pre-shading, occlusion, faint whisps, the extra contour shells). A golden freezes behaviour,
// it proves nothing: test_composite_surfaces.cpp does that. When a rule is changed on
// purpose, print the new sums (the failure message shows them) and replace the ones below.
//
// Skipped with a message when make-phantom is not built.
#include <gtest/gtest.h>

#include <functional>

#include "composite/composite.h"
#include "golden_helpers.h"

namespace {

// Skin faint and warm, bone bright: opacity 0.25 for 1000..1200, 0 in the brain, 0.8 from 2400.
void skin_and_bone_tables()
{
    for (int d = 0; d < 4096; ++d) {
        opacity_lut[d] = d >= 2400 ? 0.8f : d >= 1000 && d < 1200 ? 0.25f : 0.0f;
        color_lut[d] = d >= 2400 ? 0xf0e8d8u : 0xd08060u;
    }
}

struct Golden {
    const char* what;
    void (*pass)(RenderTarget*, uint32_t*, float*, float*, float*, float*);
    std::function<void()> set;
    uint32_t hash;
};

void check(const Golden* goldens, size_t n)
{
    for (size_t k = 0; k < n; ++k) {
        const Golden& g = goldens[k];
        start_fresh();
        set_image(160, 128);
        golden_camera();
        refresh = 0;
        prev_cross_t = 0;
        skin_and_bone_tables();
        light_ambient = 0.1f;
        g.set();
        prepare_preview_vectors();
        clear_image();
        // The finals read what the preview left (lattice_step, mask, the kept pixels).
        if (g.pass != render_rbs_preview && g.pass != render_ics_preview) {
            const bool rbs = g.pass == render_rbs_final || g.pass == render_rbs_final_trilinear;
            (rbs ? render_rbs_preview : render_ics_preview)(&render_target, voxels, ipos, ifor, iup, istr);
        }
        g.pass(&render_target, voxels, ipos, ifor, iup, istr);
        EXPECT_EQ(image_hash(), g.hash) << g.what << ": 0x" << std::hex << image_hash();
        uint32_t lit = 0;
        for (uint32_t i = 0; i < 160 * 128; ++i) lit += render_target.color[i] != 0;
        EXPECT_GT(lit, 160u * 128u / 10) << g.what << ": not a blank picture";
    }
}

}  // namespace

TEST(GoldenSurfaces, RegionBoundaryImages)
{
    start_fresh();
    if (!load_phantom()) GTEST_SKIP() << "make-phantom is not built: no phantom, no golden images";
    ASSERT_EQ(vol_x, 196u);
    const Golden goldens[] = {
        {"rbs preview, voxels", render_rbs_preview, [] { interp_mode = 0; }, 0x22dbfc62u},
        {"rbs preview, plane samples", render_rbs_preview, [] { interp_mode = 1; }, 0x1dac6ab7u},
        {"rbs final, voxels", render_rbs_final, [] { interp_mode = 0; }, 0xfbab2616u},
        {"rbs final, plane samples", render_rbs_final, [] { interp_mode = 1; }, 0xbe2bef42u},
        {"rbs final, plane samples, no correction, occlusion, faint whisps", render_rbs_final,
         [] { interp_mode = 1, rbs_alpha_correction = 0, use_occlusion = 1, faint_whisps = 1; }, 0xe0075828u},
        {"rbs final, plane samples, gradient dependency 4", render_rbs_final,
         [] { interp_mode = 1, rbs_grad_dep = 4.0f; }, 0x7b018a60u},
        {"rbs trilinear", render_rbs_final_trilinear, [] { interp_mode = 2; }, 0x7cd040a0u},
        {"rbs trilinear, modified classification, pre-shading", render_rbs_final_trilinear,
         [] { interp_mode = 2, rbs_dissolve = 1, pre_shading = 1; }, 0xa8331ed8u},
        {"rbs trilinear, no correction, occlusion, faint whisps", render_rbs_final_trilinear,
         [] { interp_mode = 2, rbs_alpha_correction = 0, use_occlusion = 1, faint_whisps = 1; }, 0x419d1400u},
    };
    check(goldens, std::size(goldens));
}

TEST(GoldenSurfaces, IsovalueContourImages)
{
    start_fresh();
    if (!load_phantom()) GTEST_SKIP() << "make-phantom is not built: no phantom, no golden images";
    ASSERT_EQ(vol_x, 196u);
    // The outer table of the skull, a thick shell, and the skin as extra shells.
    auto iso = [] {
        isovalue = 2600;
        ics_thickness = 2.0f;
        opacity_lut[1000] = 0.25f;
    };
    const Golden goldens[] = {
        {"ics preview, voxels", render_ics_preview, [&] { iso(), interp_mode = 0; }, 0xbd0e5d77u},
        {"ics preview, plane samples", render_ics_preview, [&] { iso(), interp_mode = 1; }, 0xadf56026u},
        {"ics final, voxels", render_ics_final, [&] { iso(), interp_mode = 0; }, 0x78a4c40eu},
        {"ics final, plane samples, occlusion", render_ics_final,
         [&] { iso(), interp_mode = 1, use_occlusion = 1; }, 0x6e65ea0u},
        {"ics trilinear", render_ics_final_trilinear, [&] { iso(), interp_mode = 2; }, 0xe199d19u},
        {"ics trilinear, two extra shells, modified classification", render_ics_final_trilinear,
         [&] {
             iso(), interp_mode = 2, ics_dissolve = 1;
             surface_on[0] = surface_on[2] = 1;
             surface_isovalue[0] = 1100, surface_isovalue[2] = 3300;
             surface_thickness[2] = 0.5f;
         }, 0x44098b71u},
        {"ics trilinear, no correction, pre-shading, faint whisps", render_ics_final_trilinear,
         [&] { iso(), interp_mode = 2, ics_alpha_correction = 0, pre_shading = 1, faint_whisps = 1; }, 0x3278eb75u},
    };
    check(goldens, std::size(goldens));
}
