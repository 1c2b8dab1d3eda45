// load.cpp — the load path: the loader chosen by the file's ending, then what every good load
// is followed by, whatever the format: the editor strip, the volume's diagonal, the neutral
// occlusion, gradients and brick map, the panel, the camera, the slices and the cut shapes.
// Scans of other formats come through the importer (src/import).
//
// Called by the frame loop when the chooser asked for a load (and by tavok-render, the tests
// and the benchmarks with a path). A loader either refuses a file before it touches anything
// (false: the old volume, its tables and last_volume_path stay as they were, the reason shows
// in the panel and the chooser goes back to the file on screen) or leaves a complete new grid
// with its histogram and lookup tables. Anything but a regular file (or a folder, which the
// importer reads as a DICOM series) is refused before a loader opens it.
#include <sys/stat.h>

#include <cassert>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "app/app.h"
#include "core/core.h"
#include "core/seam.h"
#include "import/import.h"
#include "slices/slices.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

static bool ends_with(const char* name, const char* tail)
{
    size_t n = strlen(name), m = strlen(tail);
    return n >= m && memcmp(name + n - m, tail, m) == 0;
}

// Scans (DICOM, NIfTI, NRRD, raw with --raw) go through the importer, which reads and converts
// the whole file before the grid is touched; the grid is then built from its samples as the
// .dat loader builds it from a file's. The importer's samples never exceed 4095.
static bool load_scan(const char* path)
{
    ImportedVolume volume;
    if (!import_volume(path, volume, volume_memory_budget())) {
        // The importer printed why; the panel shows it as it shows a loader's refusal.
        snprintf(load_refusal, sizeof load_refusal, "%s", import_refusal);
        return false;
    }
    replace_grid(volume.size[0], volume.size[1], volume.size[2]);
    bool stored = store_samples(volume.samples.data());
    assert(stored && "the importer clamps every sample to 0..4095");
    (void)stored;
    return true;
}

// Only the exact lower and upper case endings choose a palette loader; a scan goes to the
// importer; everything else, .Kvx included, is read as .dat.
static bool (*choose_loader(const char* path))(const char*)
{
    if (ends_with(path, ".kvx") || ends_with(path, ".KVX")) {
        puts("it's a *.KVX");
        return load_kvx_volume;
    }
    if (ends_with(path, ".vox") || ends_with(path, ".VOX")) {
        puts("it's a *.VOX");
        return load_vox_volume;
    }
    if (is_import_path(path)) return load_scan;
    return load_dat_volume;
}

// Only a regular file is read: opening a named pipe would wait for a writer forever, and a
// device or a socket is no volume either. A name that doesn't exist goes on to the loader,
// which says it can't open it.
static bool refuse_unreadable_kind(const char* path)
{
    struct stat st;
    if (stat(path, &st) != 0 || S_ISREG(st.st_mode)) return false;
    if (S_ISDIR(st.st_mode) && is_import_path(path)) return false;
    if (S_ISDIR(st.st_mode)) refuse_volume("can't read %s: it is a folder", path);
    else refuse_volume("can't read %s: it is not a regular file", path);
    return true;
}

bool load_volume_file(const char* path)
{
    char previous_path[sizeof last_volume_path];
    memcpy(previous_path, last_volume_path, sizeof previous_path);
    snprintf(last_volume_path, sizeof last_volume_path, "%s", path);
    printf("%s\n", path);
    flip_display();

    load_refusal[0] = 0;
    bool refused = refuse_unreadable_kind(path);
    if (!refused) {
        bool (*loader)(const char*) = choose_loader(path);
        // The worker reads and writes the grid: it ends before a loader may replace it.
        stop_shadow_thread();
        refused = !loader(path);
    }
    if (refused) {
        // The file was refused before the old volume was touched: keep everything as it was,
        // and say why where the user looks, under the volume's sizes in the panel.
        memcpy(last_volume_path, previous_path, sizeof previous_path);
        if (!load_refusal[0]) snprintf(load_refusal, sizeof load_refusal, "can't load %s", path);
        show_load_message(load_refusal);
        return false;
    }
    show_load_message("");

    // The new grid stands, with its sizes, histogram and tables.
    volume_loaded = 1;
    init_transfer_editor();
    refresh = 1;

    vol_diag = sqrtf((float)(vol_x * vol_x + vol_y * vol_y + vol_z * vol_z));
    fill_occlusion(0x80);
    calc_gradients();
    build_block_map();

    set_spin_range("GUIsliceD", -vol_diag, vol_diag);
    set_notebook_page("GUIrendermodeTabs", 0);
    ipos[0] = (float)(vol_x / 2);
    ipos[1] = (float)(vol_y / 2);
    ipos[2] = (float)(vol_z / 2);
    reset_slices();
    set_widget_active("GUIsliceXY", 1);
    refresh = 1;

    // The cut shapes follow the sliders, scaled by the new diagonal.
    cut_plane_d = -0.5f * vol_diag + (float)widget_value("GUICuttingPlaneD") * 2.0f * vol_diag;
    cut_sphere_center[0] = (float)widget_value("GUISphereXSlider") * vol_diag;
    cut_sphere_center[1] = (float)widget_value("GUISphereYSlider") * vol_diag;
    cut_sphere_center[2] = (float)widget_value("GUISphereZSlider") * vol_diag;
    float r = (float)widget_value("GUISphereRSlider") * vol_diag;
    cut_sphere_r2 = r * r;
    vol_diag_sq = vol_diag * vol_diag;
    return true;
}

void serve_load_request()
{
    refresh = 0;
    final_pending = 0;
    set_progress("GUIprogressBar", 0.0);
    char* name = take_chooser_filename();
    if (!name) set_chooser_filename(last_volume_path);
    else {
        // After a refused file the chooser goes back to the file that is really shown.
        if (!load_volume_file(name)) set_chooser_filename(last_volume_path);
        free(name);
    }
    load_requested = 0;
    set_progress("GUIprogressBar", 0.0);
    vol_diag_sq = vol_diag * vol_diag;
}
