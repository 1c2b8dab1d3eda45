// bench_import.cpp — times opening a scan against opening the same grid as a .dat file, both
// through the whole load path (loader, editor, gradients, brick map, slices, camera). The scan's
// side is read, map, turn, resample, then the grid built as the .dat loader builds it; the
// .dat is the one tavok-import would write from the scan, so both end in the same grid. Prints
// the median and the fastest of RUNS runs after a warm-up (the files are then in the page
// cache for both), the median of the importer alone, and the ratio of the medians.
//
// bench-import [SCAN ...] (a DICOM series folder or file, NIfTI, NRRD; default: the T1 head
// of mricron-data). A CT series to time:
//   /usr/bin/python3 tests/cli/test_import_cli.py --write-series /tmp/ct-series
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_common.h"
#include "app/app.h"
#include "core/core.h"
#include "import/import.h"
#include "volume/volume.h"

static int RUNS = 7, WARMUP = 1;

static bool write_dat(const std::string& path, const ImportedVolume& v)
{
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) return false;
    for (int a = 0; a < 3; ++a) {
        uint8_t b[2] = {(uint8_t)v.size[a], (uint8_t)(v.size[a] >> 8)};
        fwrite(b, 1, 2, f);
    }
    std::vector<uint8_t> block(v.samples.size() * 2);
    for (size_t i = 0; i < v.samples.size(); ++i) {
        block[2 * i] = (uint8_t)v.samples[i];
        block[2 * i + 1] = (uint8_t)(v.samples[i] >> 8);
    }
    bool ok = fwrite(block.data(), 1, block.size(), f) == block.size();
    return fclose(f) == 0 && ok;
}

static void bench_scan(const char* scan)
{
    ImportedVolume v;
    quiet(true);
    bool ok = import_volume(scan, v);
    quiet(false);
    if (!ok) {
        printf("%s: can't be imported, skipped\n", scan);
        return;
    }
    std::string dat = std::string(getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp") + "/bench_import_" +
                      std::to_string(getpid()) + ".dat";
    if (!write_dat(dat, v)) {
        printf("%s: can't write %s, skipped\n", scan, dat.c_str());
        return;
    }
    std::vector<double> t_scan, t_dat, t_import;
    for (int i = 0; i < WARMUP + RUNS; ++i) {
        // Alternating, so that the machine's load falls on both alike.
        quiet(true);
        double t0 = now_ms();
        ok = load_volume_file(scan);
        double t1 = now_ms();
        ok = load_volume_file(dat.c_str()) && ok;
        double t2 = now_ms();
        ImportedVolume again;
        import_volume(scan, again);
        double t3 = now_ms();
        quiet(false);
        if (!ok) {
            printf("%s: a load failed, skipped\n", scan);
            break;
        }
        if (i < WARMUP) continue;
        t_scan.push_back(t1 - t0);
        t_dat.push_back(t2 - t1);
        t_import.push_back(t3 - t2);
    }
    remove(dat.c_str());
    if (t_scan.empty()) return;
    double ms = median(t_scan), md = median(t_dat);
    printf("%s -> %u x %u x %u\n", scan, v.size[0], v.size[1], v.size[2]);
    printf("  scan load: median %8.1f ms, min %8.1f ms  (importer alone: median %.1f ms)\n", ms,
           *std::min_element(t_scan.begin(), t_scan.end()), median(t_import));
    printf("  .dat load: median %8.1f ms, min %8.1f ms\n", md,
           *std::min_element(t_dat.begin(), t_dat.end()));
    printf("  scan / .dat: %.2f\n", ms / md);
}

int main(int argc, char** argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (const char* r = getenv("RUNS")) RUNS = std::max(1, atoi(r));
    start_library(512, 512);
    std::vector<const char*> scans(argv + 1, argv + argc);
    if (scans.empty()) scans.push_back("/usr/share/mricron/templates/ch2.nii.gz");
    printf("bench-import: %d runs after %d warm-up, medians\n", RUNS, WARMUP);
    for (const char* scan : scans) bench_scan(scan);
    return 0;
}
