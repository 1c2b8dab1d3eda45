// bench_cut.cpp — times what a user waits for around cutting and saving: "Apply Cut" with a
// plane and with a sphere (the cut walk alone, and the whole button with its rebuild of the
// backdrop, gradients and brick map), the abstract view at the default window's 512 x 409, a
// render to file at 1024 x 1024 in every mode this build renders, and the load of the largest
// KVX model of the shared data. Prints the median and the fastest of RUNS runs after a
// warm-up. The cut walk is given against the rebuild in the same run, as a ratio: the part of
// "Apply Cut" that is the cut's own.
//
// bench-cut [VOLUME.dat]   (no argument: the CT head of ../shared/data, else the phantom)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <unistd.h>

#include "bench_common.h"
#include "app/app.h"
#include "app/passes.h"
#include "core/core.h"
#include "core/headless/seam_null.h"
#include "raycast/raycast.h"
#include "volume/volume.h"

static int RUNS = 9, WARMUP = 2;

struct Figures {
    double median, min;
};

// Runs prepare() untimed and then what() timed, WARMUP + RUNS times.
template <class Prepare, class What> static Figures time_it(Prepare prepare, What what)
{
    std::vector<double> times;
    for (int i = 0; i < WARMUP + RUNS; ++i) {
        prepare();
        double t0 = now_ms();
        what();
        if (i >= WARMUP) times.push_back(now_ms() - t0);
    }
    return {median(times), *std::min_element(times.begin(), times.end())};
}

// One line of figures, with the hash of what the timed work left.
static void print(const char* what, Figures f, uint32_t hash)
{
    printf("  %-30s median %9.3f ms  min %9.3f ms  hash %08x\n", what, f.median, f.min, hash);
}

// The hash of a file's bytes (the PNG a render to file wrote), zero-padded to whole words.
static uint32_t file_hash(const std::string& path)
{
    std::vector<uint32_t> words;
    if (FILE* f = fopen(path.c_str(), "rb")) {
        uint32_t w = 0;
        size_t n;
        while ((n = fread(&w, 1, 4, f)) > 0) {
            words.push_back(w);
            w = 0;
        }
        fclose(f);
    }
    return fnv1a(words.data(), words.size());
}

static bool load(const std::string& path)
{
    quiet(true);
    bool ok = load_volume_file(path.c_str());
    quiet(false);
    return ok;
}

int main(int argc, char** argv)
{
    std::string shared = TAVOK_SHARED_DATA;
    std::string volume = argc > 1 ? argv[1] : shared + "/ct-head-256x256x108.dat";
    if (argc < 2 && access(volume.c_str(), R_OK) != 0) volume = std::string(TAVOK_BUILD_DIR) + "/phantom.dat";
    start_library(512, 512);
    if (!load(volume)) {
        fprintf(stderr, "bench-cut: can't load %s\n", volume.c_str());
        return 1;
    }
    printf("%s: grid %u x %u x %u, %d runs\n", volume.c_str(), vol_x, vol_y, vol_z, RUNS);

    // Each run cuts the loaded grid afresh: the densities are put back (untimed) first.
    const size_t words = (size_t)vol_x * vol_y * vol_z;
    std::vector<uint32_t> grid(voxels, voxels + words);
    auto restore = [&] { memcpy(voxels, grid.data(), words * 4); };
    // A plane through the middle, slanted, and a sphere of a third of the diagonal at the centre.
    const float plane[4] = {0.6f, 0.48f, -0.64f, -(0.6f * vol_x / 2 + 0.48f * vol_y / 2 - 0.64f * vol_z / 2)};
    const float sphere[4] = {vol_x / 2.0f, vol_y / 2.0f, vol_z / 2.0f, vol_diag * vol_diag / 9.0f};
    auto grid_hash = [&] { return fnv1a(voxels, words); };
    Figures plane_walk = time_it(restore, [&] { cut_with_plane(plane); });
    const uint32_t plane_hash = grid_hash();
    Figures sphere_walk = time_it(restore, [&] { cut_with_sphere(sphere, 3); });
    const uint32_t sphere_hash = grid_hash();
    auto apply = [&](int kind) {
        cut_kind = kind;
        for (int i = 0; i < 3; ++i) cut_plane_n[i] = plane[i], cut_sphere_center[i] = sphere[i];
        cut_plane_d = plane[3];
        cut_sphere_r2 = sphere[3];
        cut_sphere_side = 3;
        return time_it(restore, [&] {
            quiet(true);
            apply_cut();
            quiet(false);
        });
    };
    Figures plane_apply = apply(1);
    const uint32_t plane_apply_hash = grid_hash();
    Figures sphere_apply = apply(2);
    const uint32_t sphere_apply_hash = grid_hash();
    restore();
    printf(" Apply Cut\n");
    print("plane: the cut walk", plane_walk, plane_hash);
    print("plane: the whole button", plane_apply, plane_apply_hash);
    print("sphere: the cut walk", sphere_walk, sphere_hash);
    print("sphere: the whole button", sphere_apply, sphere_apply_hash);
    printf("  the cut walk is %.1f%% (plane) and %.1f%% (sphere) of the button\n",
           100.0 * plane_walk.median / plane_apply.median, 100.0 * sphere_walk.median / sphere_apply.median);

    // The abstract view as the window shows it after a load: the eye at the volume's centre,
    // inside the box, the sphere in front of it.
    alloc_frame_buffers(512, 409, 409);
    compute_view_constants();
    cut_kind = 2;
    cut_sphere_center[2] = vol_z / 2.0f - vol_z / 3.0f;
    set_start_camera();
    prepare_preview_vectors();
    printf(" the abstract view, 512 x 409\n");
    const size_t pixels = (size_t)render_target.width * render_target.height;
    auto abstract = [&](const char* what) {
        Figures f = time_it([&] { memset(render_target.color, 0, pixels * 4); },
                            [] { render_abstract_view(&render_target, voxels, ipos, ifor, iup, istr); });
        print(what, f, fnv1a(render_target.color, pixels));
    };
    abstract("box and sphere, eye inside");
    ipos[2] = vol_z + 2.0f * vol_diag;  // far above, looking down: the whole box in view
    abstract("box and sphere, eye outside");
    cut_kind = 1;
    abstract("box and plane, eye outside");

    // Render to file from the default window, in every mode this build renders, from outside
    // the box: the preview, the final and the PNG file.
    printf(" render to file, 1024 x 1024, eye outside\n");
    std::string out = "/tmp/bench-cut-" + std::to_string(getpid()) + ".png";
    for (const RenderPass& row : render_passes) {
        if (!row.preview) continue;
        render_mode = row.mode;
        Figures f = time_it([] { alloc_frame_buffers(512, 409, 512); }, [&] {
            quiet(true);
            render_to_file_at(out.c_str());
            quiet(false);
        });
        print(row.name, f, file_hash(out));
    }
    remove(out.c_str());

    // The largest KVX model: the load alone, and the whole load path with gradients and map.
    std::string kvx = shared + "/kvx/voxeldoom-spidp.kvx";
    if (access(kvx.c_str(), R_OK) == 0) {
        printf(" %s\n", kvx.c_str());
        Figures alone = time_it([] {}, [&] {
            quiet(true);
            load_kvx_volume(kvx.c_str());
            quiet(false);
        });
        print("load_kvx_volume", alone, fnv1a(voxels, (size_t)vol_x * vol_y * vol_z));
        Figures path = time_it([] {}, [&] { load(kvx); });
        print("the whole load path", path, fnv1a(voxels, (size_t)vol_x * vol_y * vol_z));
        printf("  grid %u x %u x %u\n", vol_x, vol_y, vol_z);
    } else {
        printf(" skipped: the KVX load (no shared data at %s)\n", kvx.c_str());
    }
    return 0;
}
