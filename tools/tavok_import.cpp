// tavok_import.cpp — tavok-import, the batch converter: a DICOM series, NIfTI, NRRD or raw
// file to a .dat file, through exactly the importer that tavok's load path runs, so that the
// .dat loads to the same grid as the file it came from.
//
//   tavok-import IN OUT.dat [--raw X,Y,Z,TYPE[,le|be]] [--window LO,HI] [--keep-grid]
//                [--max-size N]
//
// Owns its command line and the progress bar on the terminal (standard error, only when that is
// a terminal and the work takes a moment). The importer's log goes to standard output; an error
// is one line, exit status 2, and no output file.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "import/import.h"

static const char usage_text[] =
    "usage: tavok-import IN OUT.dat [options]\n"
    "Converts a scan to a .dat volume that tavok loads: IN is a DICOM series (its folder, or any\n"
    "of its files), a NIfTI-1 or NIfTI-2 file (.nii, .nii.gz, .hdr/.img), an NRRD file (.nrrd,\n"
    "or .nhdr with its data) or raw samples (with --raw). Values are mapped to densities\n"
    "0..4095, the axes turned so that x runs to the patient's right, y to the face and z to the\n"
    "crown, and non-cubic voxels resampled to cubes.\n"
    "Options:\n";

// The bar shows once a stage (reading, resampling) has taken a quarter of a second, so that
// quick files stay quiet; it is wiped when the stage ends.
static std::chrono::steady_clock::time_point stage_start;
static bool in_stage = false, bar_shown = false;
static int bar_percent = -1;

static void terminal_bar(double fraction)
{
    using namespace std::chrono;
    if (!in_stage) {
        in_stage = true;
        stage_start = steady_clock::now();
    }
    if (fraction >= 1.0) {
        if (bar_shown) fprintf(stderr, "\r%50s\r", "");
        in_stage = bar_shown = false;
        bar_percent = -1;
        return;
    }
    int percent = (int)(fraction * 100.0);
    if (percent == bar_percent) return;
    if (!bar_shown && duration<double>(steady_clock::now() - stage_start).count() < 0.25) return;
    bar_shown = true;
    bar_percent = percent;
    char bar[41];
    for (int i = 0; i < 40; ++i) bar[i] = i < percent * 40 / 100 ? '#' : '.';
    bar[40] = 0;
    fprintf(stderr, "\r[%s] %3d %%", bar, percent);
    fflush(stderr);
}

static bool write_dat(const char* path, const ImportedVolume& v)
{
    FILE* file = fopen(path, "wb");
    if (!file) return false;
    uint8_t header[6];
    for (int a = 0; a < 3; ++a) {
        header[2 * a] = (uint8_t)v.size[a];
        header[2 * a + 1] = (uint8_t)(v.size[a] >> 8);
    }
    bool ok = fwrite(header, 1, 6, file) == 6;
    // Little-endian samples; on a little-endian host the vector already is the file's block.
    std::vector<uint8_t> block(v.samples.size() * 2);
    for (size_t i = 0; i < v.samples.size(); ++i) {
        block[2 * i] = (uint8_t)v.samples[i];
        block[2 * i + 1] = (uint8_t)(v.samples[i] >> 8);
    }
    ok = ok && fwrite(block.data(), 1, block.size(), file) == block.size();
    ok = fclose(file) == 0 && ok;
    if (!ok) remove(path);
    return ok;
}

int main(int argc, char** argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const char* files[2] = {nullptr, nullptr};
    int n_files = 0;
    for (int k = 1; k < argc; ++k) {
        if (strcmp(argv[k], "-h") == 0 || strcmp(argv[k], "--help") == 0) {
            fputs(usage_text, stdout);
            fputs(import_usage_text, stdout);
            return 0;
        }
        std::string error;
        int used = parse_import_option(argc, argv, k, error);
        if (used < 0) {
            fprintf(stderr, "tavok-import: %s\n", error.c_str());
            return 2;
        }
        if (used > 0) {
            k += used - 1;
            continue;
        }
        if (argv[k][0] == '-' && argv[k][1] != 0) {
            fprintf(stderr, "tavok-import: unknown option %s (tavok-import --help lists them)\n", argv[k]);
            return 2;
        }
        if (n_files == 2) {
            fprintf(stderr, "tavok-import: one input and one output, not also %s\n", argv[k]);
            return 2;
        }
        files[n_files++] = argv[k];
    }
    if (n_files < 2) {
        fputs(usage_text, stderr);
        fputs(import_usage_text, stderr);
        return 2;
    }
    if (isatty(2)) import_progress = terminal_bar;

    ImportedVolume volume;
    if (!import_volume(files[0], volume)) {
        fflush(stdout);
        fprintf(stderr, "tavok-import: can't convert %s\n", files[0]);
        return 2;
    }
    if (!write_dat(files[1], volume)) {
        fprintf(stderr, "tavok-import: can't write %s\n", files[1]);
        return 2;
    }
    printf("wrote %s: %u x %u x %u\n", files[1], volume.size[0], volume.size[1], volume.size[2]);
    return 0;
}
