// The panel's doors of seam.h and the load path with the real widgets: a file chosen in the
// panel, the volume's sizes, the slice widgets set for the new volume and the slice view as
// the mode that a load brings up. Also "Take Screenshot" with its file name rule.
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/passes.h"
#include "core/seam.h"
#include "output/png.h"
#include "panel_helpers.h"
#include "transfer/transfer.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

std::string temp_file(const std::string& name)
{
    const char* dir = getenv("TMPDIR");
    return std::string(dir ? dir : "/tmp") + "/tavok_panel_" + std::to_string(getpid()) + "_" + name;
}

// A .dat file of X x Y x Z samples of one density.
std::string write_dat(const std::string& name, int X, int Y, int Z, uint16_t density)
{
    std::string path = temp_file(name);
    FILE* f = fopen(path.c_str(), "wb");
    uint16_t sizes[3] = {(uint16_t)X, (uint16_t)Y, (uint16_t)Z};
    fwrite(sizes, 2, 3, f);
    std::vector<uint16_t> samples((size_t)X * Y * Z, density);
    fwrite(samples.data(), 2, samples.size(), f);
    fclose(f);
    return path;
}

// Waits (pumping GTK) until cond holds or about two seconds have passed.
template <class F> bool pump_until(F cond)
{
    for (int i = 0; i < 200 && !cond(); ++i) {
        drain_events();
        g_usleep(10000);
    }
    return cond();
}

}  // namespace

TEST_F(Panel, ProgressBarsAndEntriesThroughTheSeam)
{
    set_progress("GUIprogressBar", 0.5);
    EXPECT_DOUBLE_EQ(gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(W("GUIprogressBar"))), 0.5);
    EXPECT_STREQ(gtk_progress_bar_get_text(GTK_PROGRESS_BAR(W("GUIprogressBar"))), "Progress");
    set_progress("GUIprogressBarShadow", 0.25);
    EXPECT_DOUBLE_EQ(gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(GUIprogressBarShadow)), 0.25);
    EXPECT_STREQ(gtk_progress_bar_get_text(GTK_PROGRESS_BAR(GUIprogressBarShadow)), "Progress");
    set_entry_text("GUIrendertime", "     1.25 sec", 0);
    EXPECT_EQ(entry_text("GUIrendertime"), "     1.25 sec");
    // A name the panel doesn't have is passed over.
    set_progress("GUInoSuchBar", 0.5);
    set_widget_value("GUInoSuchSlider", 0.5);
    EXPECT_EQ(widget_value("GUInoSuchSlider"), 0.0);
    // Widget values through the seam run the handlers, as a user's change would.
    fake_volume(9, 11, 7);
    set_widget_value("GUIsliderXZ", 0.5);
    EXPECT_EQ(slice_y, 5u);
    EXPECT_DOUBLE_EQ(widget_value("GUIsliderXZ"), 0.5);
    set_widget_active("GUIsliceYZ", 1);
    EXPECT_EQ(slice_kind, 2);
    set_notebook_page("GUIrendermodeTabs", 2);
    EXPECT_EQ(get_page("GUIrendermodeTabs"), 2);
    set_spin_range("GUIsliceD", -3, 3);
    set_widget_value("GUIsliceD", 10);
    EXPECT_DOUBLE_EQ(widget_value("GUIsliceD"), 3.0);
}

TEST_F(Panel, LoadFromTheCommandLineShowsTheSliceView)
{
    std::string path = write_dat("load.dat", 5, 7, 3, 900);
    // The user was looking at a MIP in the 3D tab with the arbitrary plane picked.
    set_page("GUIrendermodeTabs", 1);
    set_page("GUI3DTabs", 1);
    set_active("GUIslice3D", true);
    set_active("GUIswitch3D", true);
    ASSERT_EQ(render_mode, 0);
    set_page("GUI3DTabs", 2);
    ASSERT_EQ(render_mode, 6);

    pending_load_name = strdup(path.c_str());
    load_requested = 1;
    frame();
    EXPECT_EQ(load_requested, 0);
    EXPECT_EQ(volume_loaded, 1);
    EXPECT_EQ(entry_text("GUIvolDim"), " 5 x 7 x 3");
    EXPECT_EQ(render_mode, 12);
    EXPECT_EQ(get_page("GUIrendermodeTabs"), 0);
    EXPECT_TRUE(is_active("GUIsliceXY"));
    EXPECT_FALSE(is_active("GUIswitch3D"));
    EXPECT_EQ(slice_kind, 0);
    EXPECT_EQ(slice_z, 7u / 2);
    // The sliders stand for the middle slices of the 9 x 11 x 7 grid and the start zoom.
    EXPECT_DOUBLE_EQ(get_value("GUIsliderXY"), (3 + 0.5) / 6);
    EXPECT_DOUBLE_EQ(get_value("GUIsliderXZ"), (5 + 0.5) / 10);
    EXPECT_DOUBLE_EQ(get_value("GUIsliderYZ"), (4 + 0.5) / 8);
    EXPECT_DOUBLE_EQ(get_value("GUIsliderZoom"), 0.25);
    EXPECT_EQ(slice_zoom, 256.0f);
    // The plane's distance runs over the diagonal.
    GtkAdjustment* d = gtk_spin_button_get_adjustment(GTK_SPIN_BUTTON(W("GUIsliceD")));
    EXPECT_FLOAT_EQ((float)d->upper, vol_diag);
    EXPECT_FLOAT_EQ((float)d->lower, -vol_diag);
    // The same frame showed the slice: nothing is due.
    EXPECT_EQ(refresh, 0);
    EXPECT_EQ(final_pending, 0);
    uint32_t grey = (uint32_t)(int)(900 * 0.00024420026f * 255.0f);
    EXPECT_EQ(render_target.color[204 * 512 + 256], grey << 16 | grey << 8 | grey);
    EXPECT_STREQ(last_volume_path, path.c_str());
    // The chooser shows the file, and showing it asks for no second load.
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(W("GUIloadvolume"));
    auto shown = [chooser, &path] {
        gchar* name = gtk_file_chooser_get_filename(chooser);
        bool same = name && path == name;
        g_free(name);
        return same;
    };
    EXPECT_TRUE(pump_until(shown));
    for (int i = 0; i < 30; ++i) {
        drain_events();
        g_usleep(10000);
    }
    EXPECT_EQ(load_requested, 0);
    // Chosen again later by the user, the same file loads again.
    chooser_echo_time -= 3000000;
    g_signal_emit_by_name(chooser, "selection_changed");
    EXPECT_EQ(load_requested, 1);
    EXPECT_EQ(chooser_echo, nullptr);
    load_requested = 0;
    unlink(path.c_str());
}

TEST_F(Panel, ChoosingAFileAsksForALoad)
{
    std::string path = write_dat("chosen.dat", 3, 5, 7, 1200);
    EXPECT_EQ(load_requested, 0);
    gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(W("GUIloadvolume")), path.c_str());
    EXPECT_TRUE(pump_until([] { return load_requested == 1; }));
    // The load path reads the chooser's file name.
    frame();
    EXPECT_EQ(volume_loaded, 1);
    EXPECT_EQ(vol_x, 7u);
    EXPECT_EQ(entry_text("GUIvolDim"), " 3 x 5 x 7");
    EXPECT_STREQ(last_volume_path, path.c_str());
    unlink(path.c_str());
}

// The chooser opens the importer's scans (any file of a DICOM series opens the series); a scan
// that fails to read leaves the volume, the size entry and the path as they were.
TEST_F(Panel, ChoosingAScanLoadsItAndABadOneChangesNothing)
{
    const char* ct = "/usr/lib/python3/dist-packages/pydicom/data/test_files/CT_small.dcm";
    FILE* in = fopen(ct, "rb");
    if (!in) GTEST_SKIP() << "needs python3-pydicom";
    std::vector<char> bytes(1 << 20);
    bytes.resize(fread(bytes.data(), 1, bytes.size(), in));
    fclose(in);
    std::string folder = temp_file("series");
    mkdir(folder.c_str(), 0700);
    std::string path = folder + "/IM0001";
    FILE* out = fopen(path.c_str(), "wb");
    fwrite(bytes.data(), 1, bytes.size(), out);
    fclose(out);

    CaptureStdout();
    gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(W("GUIloadvolume")), path.c_str());
    EXPECT_TRUE(pump_until([] { return load_requested == 1; }));
    frame();
    std::string log = GetCapturedStdout();
    EXPECT_NE(log.find("mapped hounsfield units -1024..3071 to 0..4095\n"), std::string::npos) << log;
    EXPECT_EQ(volume_loaded, 1);
    EXPECT_EQ(vol_x, 132u);
    EXPECT_EQ(entry_text("GUIvolDim"), " 128 x 128 x 1");
    EXPECT_STREQ(last_volume_path, path.c_str());
    const uint32_t* grid = voxels;

    std::string broken = temp_file("broken.nii");
    out = fopen(broken.c_str(), "wb");
    fputs("not a scan", out);
    fclose(out);
    for (int i = 0; i < 30; ++i) {
        drain_events();
        g_usleep(10000);
    }
    load_requested = 0;
    CaptureStdout();
    gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(W("GUIloadvolume")), broken.c_str());
    EXPECT_TRUE(pump_until([] { return load_requested == 1; }));
    frame();
    log = GetCapturedStdout();
    EXPECT_NE(log.find("can't read " + broken + ": not a NIfTI file that niftilib can read\n"), std::string::npos) << log;
    EXPECT_EQ(voxels, grid);
    EXPECT_EQ(vol_x, 132u);
    EXPECT_EQ(entry_text("GUIvolDim"), " 128 x 128 x 1");
    EXPECT_STREQ(last_volume_path, path.c_str());
    unlink(broken.c_str());
    unlink(path.c_str());
    rmdir(folder.c_str());
}

namespace {

std::string chooser_name()
{
    gchar* name = gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(W("GUIloadvolume")));
    std::string copy = name ? name : "";
    g_free(name);
    return copy;
}

std::string load_message() { return gtk_label_get_text(GTK_LABEL(W("GUIloadMessage"))); }
bool load_message_shown() { return GTK_WIDGET_VISIBLE(W("GUIloadMessage")); }

}  // namespace

TEST_F(Panel, ARefusedFileSaysWhyInThePanelAndTheChooserKeepsTheFileShown)
{
    // At start there is nothing to say.
    EXPECT_FALSE(load_message_shown());
    // A file named on the command line that can't be read: the reason under the sizes, and the
    // chooser, which showed the name at once, shows none again.
    std::string missing = temp_file("missing.dat");
    CaptureStdout();
    pending_load_name = strdup(missing.c_str());
    load_requested = 1;
    frame();
    GetCapturedStdout();
    EXPECT_EQ(volume_loaded, 0);
    EXPECT_TRUE(load_message_shown());
    EXPECT_EQ(load_message(), "can't open file " + missing);
    EXPECT_TRUE(pump_until([] { return chooser_name().empty(); })) << chooser_name();
    EXPECT_EQ(load_requested, 0);

    // A good file: the line goes away.
    std::string good = write_dat("good.dat", 4, 5, 6, 1500);
    gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(W("GUIloadvolume")), good.c_str());
    ASSERT_TRUE(pump_until([] { return load_requested == 1; }));
    CaptureStdout();
    frame();
    GetCapturedStdout();
    EXPECT_EQ(volume_loaded, 1);
    EXPECT_FALSE(load_message_shown());
    EXPECT_EQ(entry_text("GUIvolDim"), " 4 x 5 x 6");

    // A truncated file chosen in the panel: refused, the reason shows, the sizes and the
    // chooser go on showing the volume on screen.
    std::string cut = temp_file("cut.dat");
    FILE* f = fopen(cut.c_str(), "wb");
    uint16_t sizes[3] = {9, 9, 9};
    fwrite(sizes, 2, 3, f);
    fwrite(sizes, 2, 3, f);
    fclose(f);
    gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(W("GUIloadvolume")), cut.c_str());
    ASSERT_TRUE(pump_until([] { return load_requested == 1; }));
    CaptureStdout();
    frame();
    std::string log = GetCapturedStdout();
    EXPECT_NE(log.find("file " + cut + " is too short"), std::string::npos) << log;
    EXPECT_TRUE(load_message_shown());
    EXPECT_EQ(load_message(), "file " + cut + " is too short: 9 x 9 x 9 needs 1464 bytes, it has 12");
    EXPECT_EQ(entry_text("GUIvolDim"), " 4 x 5 x 6");
    EXPECT_STREQ(last_volume_path, good.c_str());
    EXPECT_TRUE(pump_until([&good] { return chooser_name() == good; })) << chooser_name();
    // Going back asks for no load of its own.
    for (int i = 0; i < 30; ++i) {
        drain_events();
        g_usleep(10000);
    }
    EXPECT_EQ(load_requested, 0);
    unlink(cut.c_str());
    unlink(good.c_str());
}

TEST_F(Panel, BlurDataNeedsAVolume)
{
    CaptureStdout();
    click("GUIsmoothData");
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_EQ(refresh, 0);

    // A single voxel of 2700 in a 5 x 5 x 5 block of 0 (with the margin, 9 x 9 x 9): the box
    // filter spreads it to 100 in its 27 neighbours, which the noise threshold then drops.
    std::string path = temp_file("blur.dat");
    FILE* f = fopen(path.c_str(), "wb");
    uint16_t sizes[3] = {5, 5, 5};
    fwrite(sizes, 2, 3, f);
    for (int i = 0; i < 125; ++i) {
        uint16_t v = i == 62 ? 2700 : 0;
        fwrite(&v, 2, 1, f);
    }
    fclose(f);
    ASSERT_TRUE(load_volume_file(path.c_str()));
    ASSERT_EQ(voxels[voxel_index(4, 4, 4)] & density_mask, 2700u);
    refresh = 0;
    CaptureStdout();
    click("GUIsmoothData");
    std::string log = GetCapturedStdout();
    EXPECT_NE(log.find("smooth data finished"), std::string::npos) << log;
    EXPECT_EQ(voxels[voxel_index(4, 4, 4)] & density_mask, 0u);
    EXPECT_EQ(refresh, 1);
    unlink(path.c_str());
}

// The rule both image buttons share (screenshot_path, in the output room).
TEST_F(Panel, ScreenshotFileNameRule)
{
    struct Case {
        const char* name;
        const char* path;
        const char* log;
        const char* name_after;
    };
    const Case cases[] = {
        {"ab", "ab.png", "adding <.png> to filename!\nsaving to file ab.png\n", "ab"},
        {"x.png", "x.png.png", "adding <.png> to filename!\nsaving to file x.png.png\n", "x.png"},
        {"image.jpg", "image.jpg.png", "\t.jpg\n\tadding <.png> to filename!\nsaving to file image.jpg.png\n", "image.jpg"},
        {"SHOT.PNG", "SHOT.PNG", "\t.PNG\n\tit's a <.png>\nsaving to file SHOT.PNG\n", "SHOT.png"},
        {"ab.png", "ab.png", "\t.png\n\tit's a <.png>\nsaving to file ab.png\n", "ab.png"},
        {"/tmp/shot.Png", "/tmp/shot.Png", "\t.Png\n\tit's a <.png>\nsaving to file /tmp/shot.Png\n", "/tmp/shot.png"},
    };
    for (const Case& c : cases) {
        char name[64];
        strcpy(name, c.name);
        CaptureStdout();
        char* path = screenshot_path(name);
        EXPECT_EQ(GetCapturedStdout(), c.log) << c.name;
        EXPECT_STREQ(path, c.path) << c.name;
        EXPECT_STREQ(name, c.name_after) << c.name;
        free(path);
    }
}

namespace {

struct DialogAnswer {
    std::string folder, name;
    int response;
    bool named = false;     // folder and name are in the dialog
    bool answered = false;  // a button was pressed
    bool done = false;      // the dialog is gone after the answer; the timer has ended
};

// Answers the screenshot dialog as the user would: first a folder and a name, on a later tick
// the button. The save dialog may refuse OK while it is still reading the folder, so the button
// is pressed again on each tick until the dialog goes away.
gboolean answer_dialog(gpointer data)
{
    DialogAnswer* a = (DialogAnswer*)data;
    GList* windows = gtk_window_list_toplevels();
    GtkWidget* dialog = nullptr;
    for (GList* l = windows; l; l = l->next)
        if (GTK_IS_FILE_CHOOSER_DIALOG(l->data) && GTK_WIDGET_MAPPED(l->data)) dialog = GTK_WIDGET(l->data);
    g_list_free(windows);
    if (!dialog) {
        a->done = a->answered;
        return a->done ? FALSE : TRUE;
    }
    if (!a->named) {
        gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(dialog), a->folder.c_str());
        gtk_file_chooser_set_current_name(GTK_FILE_CHOOSER(dialog), a->name.c_str());
        a->named = true;
        return TRUE;
    }
    gtk_dialog_response(GTK_DIALOG(dialog), a->response);
    a->answered = true;
    return TRUE;
}

}  // namespace

TEST_F(Panel, TakeScreenshotSavesTheImageAreaOfTheWindow)
{
    // A window of 7 x 6 pixels: the image is 7 x 4 (6 * 4 / 5), the row below is the strip.
    alloc_frame_buffers(7, 4, 6);
    std::vector<uint32_t> surface(7 * 6);
    for (size_t i = 0; i < surface.size(); ++i) surface[i] = 0x010203u * (uint32_t)i;
    screen_pixels = surface.data();
    fake_volume(9, 11, 7);

    char dir_template[] = "/tmp/tavok_shot_XXXXXX";
    std::string dir = mkdtemp(dir_template);
    DialogAnswer answer = {dir, "view.PNG", GTK_RESPONSE_OK};
    guint source = g_timeout_add(50, answer_dialog, &answer);
    CaptureStdout();
    click("GUIstandardScreenshot");
    std::string log = GetCapturedStdout();
    if (!answer.done) g_source_remove(source);
    screen_pixels = nullptr;
    ASSERT_TRUE(answer.answered);
    std::string path = dir + "/view.PNG";
    EXPECT_EQ(log, "\t.PNG\n\tit's a <.png>\nsaving to file " + path + "\n");
    EXPECT_EQ(refresh, 0);

    FILE* f = fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::vector<unsigned char> file(4096);
    file.resize(fread(file.data(), 1, file.size(), f));
    fclose(f);
    ASSERT_EQ(file.size(), png_file_size(7, 4));
    // Width and height in the header, then the image rows: the strip row is not in the file.
    EXPECT_EQ(file[19], 7);
    EXPECT_EQ(file[23], 4);
    // The zlib stream of the one IDAT chunk starts at byte 41.
    uint32_t idat_length = file[33] << 24 | file[34] << 16 | file[35] << 8 | file[36];
    std::vector<unsigned char> raw(4 * (7 * 4 + 1));
    uLongf raw_size = raw.size();
    ASSERT_EQ(uncompress(raw.data(), &raw_size, file.data() + 41, idat_length), Z_OK);
    ASSERT_EQ(raw_size, raw.size());
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 7; ++x) {
            const unsigned char* p = &raw[y * (7 * 4 + 1) + 1 + x * 4];
            uint32_t want = surface[y * 7 + x];
            EXPECT_EQ((uint32_t)(p[0] << 16 | p[1] << 8 | p[2]), want) << x << "," << y;
            EXPECT_EQ(p[3], 255);
        }
    unlink(path.c_str());
    rmdir(dir.c_str());
}

TEST_F(Panel, TakeScreenshotCancelledOrWithoutVolumeSavesNothing)
{
    std::vector<uint32_t> surface(512 * 512, 0x808080u);
    screen_pixels = surface.data();
    char dir_template[] = "/tmp/tavok_shot_XXXXXX";
    std::string dir = mkdtemp(dir_template);

    // Without a volume the dialog is made and destroyed, never shown.
    CaptureStdout();
    click("GUIstandardScreenshot");
    EXPECT_EQ(GetCapturedStdout(), "");

    fake_volume(9, 11, 7);
    DialogAnswer answer = {dir, "never.png", GTK_RESPONSE_CANCEL};
    guint source = g_timeout_add(50, answer_dialog, &answer);
    CaptureStdout();
    click("GUIstandardScreenshot");
    EXPECT_EQ(GetCapturedStdout(), "");
    if (!answer.done) g_source_remove(source);
    screen_pixels = nullptr;
    EXPECT_TRUE(answer.answered);
    EXPECT_NE(access((dir + "/never.png").c_str(), F_OK), 0);
    // No dialog is left on the screen.
    drain_events();
    GList* windows = gtk_window_list_toplevels();
    for (GList* l = windows; l; l = l->next)
        EXPECT_FALSE(GTK_IS_FILE_CHOOSER_DIALOG(l->data) && GTK_WIDGET_VISIBLE(l->data));
    g_list_free(windows);
    rmdir(dir.c_str());
}

TEST_F(Panel, ClosingThePanelMarksItDestroyed)
{
    CaptureStdout();
    gtk_widget_destroy(gui_window);
    EXPECT_EQ(GetCapturedStdout(), "delete event occured\n");
    EXPECT_EQ(gui_destroyed, 1);
    gui_window = nullptr;
}

// "Render to File" from a window of 300 x 200: a 1024 x 1024 file of the view, then the window's
// size and buffers back and a fresh picture asked for.
TEST_F(Panel, RenderToFileWritesA1024SquareAndRestoresTheWindow)
{
    window_width = 300, window_height = 200;
    alloc_frame_buffers(300, 160, 200);
    compute_view_constants();
    std::string volume = "/tmp/tavok_panel_rtf_" + std::to_string(getpid()) + ".dat";
    {
        FILE* f = fopen(volume.c_str(), "wb");
        uint16_t header[3] = {5, 6, 7};
        fwrite(header, 2, 3, f);
        for (int i = 0; i < 5 * 6 * 7; ++i) {
            uint16_t v = 3000;
            fwrite(&v, 2, 1, f);
        }
        fclose(f);
    }
    ASSERT_TRUE(load_volume_file(volume.c_str()));
    render_mode = mode_slices;

    char dir_template[] = "/tmp/tavok_rtf_XXXXXX";
    std::string dir = mkdtemp(dir_template);
    DialogAnswer answer = {dir, "big", GTK_RESPONSE_OK};
    guint source = g_timeout_add(50, answer_dialog, &answer);
    refresh = 0;
    CaptureStdout();
    click("GUIscreenshotButton");
    std::string log = GetCapturedStdout();
    if (!answer.done) g_source_remove(source);
    ASSERT_TRUE(answer.answered);
    std::string path = dir + "/big.png";
    EXPECT_NE(log.find("saving to file " + path + "\n"), std::string::npos) << log;
    EXPECT_NE(log.find("saved the file\n"), std::string::npos) << log;
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ((uint64_t)st.st_size, png_file_size(1024, 1024));
    // The window's image size and view constants are back; a preview is due.
    EXPECT_EQ(render_target.width, 300u);
    EXPECT_EQ(render_target.height, 160u);
    EXPECT_EQ(pixel_step, 1.0f / 160.0f);
    EXPECT_EQ(offscreen_render, 0);
    EXPECT_EQ(refresh, 1);
    unlink(path.c_str());
    rmdir(dir.c_str());
    unlink(volume.c_str());
}

TEST_F(Panel, RenderToFileCancelledOrWithoutVolumeDoesNothing)
{
    CaptureStdout();
    click("GUIscreenshotButton");  // no volume: the dialog is made and destroyed, never shown
    EXPECT_EQ(GetCapturedStdout(), "no action performed\n");

    fake_volume(9, 11, 7);
    char dir_template[] = "/tmp/tavok_rtf_XXXXXX";
    std::string dir = mkdtemp(dir_template);
    DialogAnswer answer = {dir, "never.png", GTK_RESPONSE_CANCEL};
    guint source = g_timeout_add(50, answer_dialog, &answer);
    uint32_t width = render_target.width;
    CaptureStdout();
    click("GUIscreenshotButton");
    EXPECT_EQ(GetCapturedStdout(), "no action performed\n");
    if (!answer.done) g_source_remove(source);
    EXPECT_TRUE(answer.answered);
    EXPECT_NE(access((dir + "/never.png").c_str(), F_OK), 0);
    EXPECT_EQ(render_target.width, width);
    rmdir(dir.c_str());
}
