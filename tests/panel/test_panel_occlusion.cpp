// The light and shadow tab with the occlusion worker behind it: "Precalculate Occlusions" and
// "Blur Shadows" with their bars, and the handlers that stop a running calculation before they
// write a setting it reads (step size, soft, hard). The worker is held until it is waited for
// (null_hold_worker), so that "during a calculation" is certain.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "core/seam.h"
#include "panel_helpers.h"
#include "transfer/transfer.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

const std::string started = "calculating occlusion\nstarted shadow-calc thread\nset thread-start call\n";
const std::string finished = "finished shadow-calc thread in ~0 milliseconds\n";
const std::string discarded = "discard shadow calc and return from func!\n";

// Loads a 5 x 4 x 3 volume (a 9 x 8 x 7 grid) with one dense sample in its middle: that one
// voxel needs a ray, and every voxel before it in the worker's order is transparent.
void load_small_volume()
{
    const char* dir = getenv("TMPDIR");
    std::string path = std::string(dir ? dir : "/tmp") + "/tavok_panel_occlusion_" + std::to_string(getpid()) + ".dat";
    FILE* f = fopen(path.c_str(), "wb");
    uint16_t sizes[3] = {5, 4, 3};
    fwrite(sizes, 2, 3, f);
    std::vector<uint16_t> samples(5 * 4 * 3, 0);
    samples[2 + 5 * (2 + 4 * 1)] = 3000;  // file sample (2, 2, 1): grid voxel (4, 4, 3)
    fwrite(samples.data(), 2, samples.size(), f);
    fclose(f);
    CaptureStdout();
    ASSERT_TRUE(load_volume_file(path.c_str()));
    GetCapturedStdout();
    remove(path.c_str());
    shadow_cancel = 0;  // as the next start would leave it
}

double bar(const char* name) { return gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(W(name))); }

uint32_t occlusion(uint32_t x, uint32_t y, uint32_t z) { return voxels[voxel_index(x, y, z)] >> 16; }

struct HeldWorker : Panel {
    void SetUp() override
    {
        Panel::SetUp();
        null_hold_worker = 1;
    }
    void TearDown() override
    {
        stop_shadow_thread();
        shadow_cancel = 0;
        null_hold_worker = 0;
    }
};

}  // namespace

TEST_F(HeldWorker, PrecalculateWithoutAVolumeOnlyLogs)
{
    CaptureStdout();
    click("GUI_lightShadowPrecalc");
    EXPECT_EQ(GetCapturedStdout(), "calculating occlusion\n");
    EXPECT_EQ(shadow_running, 0);
    click("GUIsmoothShadows");  // nothing at all without a volume
    EXPECT_EQ(refresh, 0);
}

TEST_F(HeldWorker, PrecalculateStartsTheWorker)
{
    load_small_volume();
    set_progress("GUIprogressBarShadow", 0.5);
    refresh = 0;
    CaptureStdout();
    click("GUI_lightShadowPrecalc");
    EXPECT_EQ(shadow_running, 1);
    EXPECT_EQ(bar("GUIprogressBarShadow"), 0.0);  // zeroed before the start
    EXPECT_EQ(refresh, 0);                        // the button itself redraws nothing
    wait_for_occlusion();
    EXPECT_EQ(GetCapturedStdout(), started + finished);
    EXPECT_EQ(refresh, 1);  // the worker's last act
    EXPECT_EQ(shadow_running, 0);
    EXPECT_EQ(occlusion(0, 0, 0), 255u);
}

TEST_F(HeldWorker, ShadowSettingsStopARunningCalculation)
{
    load_small_volume();
    struct Change {
        const char* what;
        void (*act)();
        bool (*written)();
    } changes[] = {
        {"step size", [] { set_value("GUIshadowStepsize", 2.5); }, [] { return shadow_stepsize == 2.5f; }},
        {"hard", [] { set_active("GUIhardShadow", true); }, [] { return shadow_kind == 2; }},
        {"soft", [] { set_active("GUIsoftShadow", true); }, [] { return shadow_kind == 1; }},
    };
    for (const Change& c : changes) {
        CaptureStdout();
        click("GUI_lightShadowPrecalc");
        c.act();
        EXPECT_EQ(GetCapturedStdout(), started + discarded + finished) << c.what;
        EXPECT_TRUE(c.written()) << c.what;
        EXPECT_EQ(shadow_running, 0) << c.what;
        EXPECT_EQ(shadow_cancel, 0) << c.what;  // put back: the next start runs
        null_hold_worker = 1;
    }
}

TEST_F(HeldWorker, BlurShadowsDuringACalculation)
{
    load_small_volume();
    CaptureStdout();
    click("GUI_lightShadowPrecalc");
    click("GUIsmoothShadows");
    EXPECT_EQ(GetCapturedStdout(), started + discarded + finished);
    EXPECT_EQ(shadow_cancel, 0);
    EXPECT_EQ(bar("GUIprogressBarSmoothenShadow"), 0.0);
    EXPECT_EQ(refresh, 1);
    // The discarded worker stored 255 in every voxel before (4, 4, 3), which is the first that
    // needs a ray; the rest kept the load's 0x80. The margin ends at 0.
    EXPECT_EQ(occlusion(0, 0, 0), 0u);
    EXPECT_EQ(occlusion(4, 4, 1), 0u);
    EXPECT_EQ(occlusion(4, 4, 5), 0u);
    // The 3 x 3 x 3 cubes, 255s and 128s counted: (4, 2, 2) lies wholly before the cut; (4, 4, 2)
    // has 22 of 255 and 5 of 128, 231.5; (4, 4, 3) 13 and 14, 189.1; (5, 5, 4) only 128s.
    EXPECT_EQ(occlusion(4, 2, 2), 255u);
    EXPECT_EQ(occlusion(4, 4, 2), 231u);
    EXPECT_EQ(occlusion(4, 4, 3), 189u);
    EXPECT_EQ(occlusion(5, 5, 4), 128u);
}
