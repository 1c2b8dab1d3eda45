// fuzz_loader.cpp — the libFuzzer target of one volume loader, chosen when it is built:
// TAVOK_FUZZ_DAT (fuzz-dat), TAVOK_FUZZ_KVX (fuzz-kvx) or TAVOK_FUZZ_VOX (fuzz-vox). Built
// with clang, ASan and UBSan by scripts/fuzz; links the window-less library like the tests.
//
// Each input is handed to the loader as a file (a memfd, opened by its /proc/self/fd name)
// while a small base volume is loaded. Whatever the bytes, this must hold:
// - no memory error and no undefined behaviour (the sanitizers end the run);
// - a refused file changes nothing: the grid's pointer, sizes and words, the histogram, both
//   tables and the size entry are as before;
// - an accepted file leaves what a reference reading of its bytes gives: the whole grid for
//   .dat and VOX, and for KVX the sizes, densities of 0 to 255 and the palette in the tables;
// - the only fatal path a loader may take is the .dat loader's "error in file" for a sample
//   above 4095, with status 0, and only for a file that has such a sample where it is read.
// A broken promise prints what broke and traps, which libFuzzer reports as a crash.
//
// The fatal path ends the process by design, and libFuzzer treats an exit as a crash. The
// fuzz link therefore wraps clean_up_and_exit (-Wl,--wrap): while a loader runs, the wrapper
// turns the call into an exception carrying the status and the message, which the harness
// checks against the rule above before it goes on with the next input. Any other fatal call,
// or one outside a loader, trips the harness; nothing is swallowed.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "app/app.h"
#include "core/core.h"
#include "core/headless/seam_null.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

#if defined(TAVOK_FUZZ_DAT)
#define LOADER load_dat_volume
#elif defined(TAVOK_FUZZ_KVX)
#define LOADER load_kvx_volume
#elif defined(TAVOK_FUZZ_VOX)
#define LOADER load_vox_volume
#else
#error "define TAVOK_FUZZ_DAT, TAVOK_FUZZ_KVX or TAVOK_FUZZ_VOX"
#endif

// ---------------------------------------------------------------------------------------------
// The fatal path, caught while a loader runs.

struct FatalExit {
    int status;
    std::string message;
};

static bool in_loader = false;

[[noreturn]] static void broken(const char* format, ...) __attribute__((format(printf, 1, 2)));
static void broken(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    fputs("fuzz harness: ", stderr);
    vfprintf(stderr, format, args);
    va_end(args);
    fputc('\n', stderr);
    __builtin_trap();
}

// Stands in for clean_up_and_exit(int, const char*, ...), by its mangled name, in the whole
// link (-Wl,--wrap=_Z17clean_up_and_exitiPKcz).
extern "C" [[noreturn]] void __wrap__Z17clean_up_and_exitiPKcz(int status, const char* format, ...)
{
    char message[4200];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof message, format, args);
    va_end(args);
    if (!in_loader) broken("fatal path outside a loader: status %d, \"%s\"", status, message);
    throw FatalExit{status, message};
}

// ---------------------------------------------------------------------------------------------
// Files in memory.

struct MemFile {
    int fd;
    char path[64];
};

static MemFile make_memfile(const char* name)
{
    MemFile f;
    f.fd = memfd_create(name, 0);
    if (f.fd < 0) broken("memfd_create failed");
    snprintf(f.path, sizeof f.path, "/proc/self/fd/%d", f.fd);
    return f;
}

static void fill_memfile(const MemFile& f, const uint8_t* data, size_t size)
{
    if (ftruncate(f.fd, 0) != 0 || (size && pwrite(f.fd, data, size, 0) != (ssize_t)size))
        broken("can't write the input to its memfd");
}

static MemFile input_file, base_file;

static uint32_t le(const uint8_t* p, int bytes)
{
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | p[i];
    return v;
}

// ---------------------------------------------------------------------------------------------
// The base volume, and what a refused file must leave alone.

struct Snapshot {
    uint32_t* grid;
    uint32_t x, y, z;
    int loaded;
    std::vector<uint32_t> words, hist, colors;
    std::vector<float> opacities;
    std::string dims;
};

static Snapshot take_snapshot()
{
    size_t n = (size_t)vol_x * vol_y * vol_z;
    return {voxels, vol_x, vol_y, vol_z, volume_loaded,
            std::vector<uint32_t>(voxels, voxels + n), std::vector<uint32_t>(histo, histo + 4096),
            std::vector<uint32_t>(color_lut, color_lut + 4096),
            std::vector<float>(opacity_lut, opacity_lut + 4096), null_vol_dim};
}

static bool same_as(const Snapshot& s)
{
    size_t n = (size_t)s.x * s.y * s.z;
    return voxels == s.grid && vol_x == s.x && vol_y == s.y && vol_z == s.z &&
           volume_loaded == s.loaded && memcmp(voxels, s.words.data(), n * 4) == 0 &&
           memcmp(histo, s.hist.data(), sizeof histo) == 0 &&
           memcmp(color_lut, s.colors.data(), 4096 * 4) == 0 &&
           memcmp(opacity_lut, s.opacities.data(), 4096 * 4) == 0 && s.dims == null_vol_dim;
}

static Snapshot base;

// A 3 x 4 x 5 .dat volume with distinct densities, loaded before every input.
static void load_base()
{
    if (!load_dat_volume(base_file.path)) broken("the base volume does not load");
    volume_loaded = 1;  // the load path's mark: from now on a loader frees the grid it replaces
    fill_occlusion(0x80);
    base = take_snapshot();
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    start_library(64, 64);
    // Every grid the loader accepts is read back whole for each input: keep them small. The
    // budget check itself is what the fuzzer then exercises at the large end.
    volume_memory_limit = 16ull << 20;
    input_file = make_memfile("input");
    base_file = make_memfile("base");
    std::vector<uint8_t> dat = {3, 0, 4, 0, 5, 0};
    for (int i = 0; i < 60; ++i) {
        uint16_t v = uint16_t(480 + 57 * i);
        dat.push_back(uint8_t(v));
        dat.push_back(uint8_t(v >> 8));
    }
    fill_memfile(base_file, dat.data(), dat.size());
    load_base();
    return 0;
}

// ---------------------------------------------------------------------------------------------
// Reference readings of an accepted file.

[[maybe_unused]] static void check_dat(const uint8_t* data, size_t size)
{
    uint32_t X = le(data, 2), Y = le(data + 2, 2), Z = le(data + 4, 2);
    if (vol_x != X + 4 || vol_y != Y + 4 || vol_z != Z + 4)
        broken("dat: grid %u x %u x %u for the file's %u x %u x %u", vol_x, vol_y, vol_z, X, Y, Z);
    if (size < 6 + 2 * (size_t)X * Y * Z) broken("dat: accepted a file shorter than its header says");
    std::vector<uint32_t> counts(4096, 0);
    size_t i = 0;
    for (uint32_t z = 0; z < Z; ++z)
        for (uint32_t y = 0; y < Y; ++y)
            for (uint32_t x = 0; x < X; ++x, ++i) {
                uint32_t v = le(data + 6 + 2 * i, 2);
                if (v > 4095) broken("dat: accepted a sample of %u", v);
                counts[v] += 1;
            }
    for (uint32_t x = 0; x < vol_x; ++x)
        for (uint32_t y = 0; y < vol_y; ++y)
            for (uint32_t z = 0; z < vol_z; ++z) {
                uint32_t expected = 0;
                if (x >= 2 && y >= 2 && z >= 2 && x < X + 2 && y < Y + 2 && z < Z + 2) {
                    uint32_t v = le(data + 6 + 2 * ((x - 2) + (size_t)X * ((y - 2) + (size_t)Y * (z - 2))), 2);
                    expected = v >= 500 ? v : 0;
                }
                if (voxels[voxel_index(x, y, z)] != expected)
                    broken("dat: voxel %u,%u,%u is 0x%x, not %u", x, y, z, voxels[voxel_index(x, y, z)], expected);
            }
    if (memcmp(histo, counts.data(), sizeof histo) != 0) broken("dat: histogram differs from the file's counts");
}

static void check_palette_tables(const uint8_t* palette)
{
    for (int i = 0; i < 4096; ++i) {
        uint32_t expected = 0;
        if (i >= 1 && i <= 255)
            expected = le(palette + 3 * i, 1) << 18 | le(palette + 3 * i + 1, 1) << 10 | le(palette + 3 * i + 2, 1) << 2;
        if (color_lut[i] != expected) broken("palette: color_lut[%d] is 0x%x, not 0x%x", i, color_lut[i], expected);
        if (expected > 0xffffff) broken("palette: a colour word with a top byte");
    }
}

[[maybe_unused]] static void check_vox(const uint8_t* data, size_t size)
{
    uint32_t X = le(data, 4), Y = le(data + 4, 4), Z = le(data + 8, 4);
    if (vol_x != X || vol_y != Y || vol_z != Z) broken("vox: grid %u x %u x %u for %u x %u x %u", vol_x, vol_y, vol_z, X, Y, Z);
    if (X < 1 || Y < 1 || Z < 1 || X > 256 || Y > 256 || Z > 256) broken("vox: accepted the sizes %u x %u x %u", X, Y, Z);
    if (size < 12 + (size_t)X * Y * Z + 768) broken("vox: accepted a file shorter than its sizes say");
    for (uint32_t x = 0; x < X; ++x)
        for (uint32_t y = 0; y < Y; ++y)
            for (uint32_t z = 0; z < Z; ++z) {
                uint32_t c = data[12 + ((size_t)x * Y + y) * Z + (Z - 1 - z)];
                uint32_t expected = c == 0 ? 255 : c == 255 ? 0 : c;
                if (voxels[voxel_index(x, y, z)] != expected)
                    broken("vox: voxel %u,%u,%u is 0x%x, not %u", x, y, z, voxels[voxel_index(x, y, z)], expected);
            }
    check_palette_tables(data + size - 768);
}

[[maybe_unused]] static void check_kvx(const uint8_t* data, size_t size)
{
    // The first level starts at byte 4, after numbytes; its sizes are its first three words.
    int32_t X = (int32_t)le(data + 4, 4), Y = (int32_t)le(data + 8, 4), Z = (int32_t)le(data + 12, 4);
    if ((int32_t)vol_x != X || (int32_t)vol_y != Y || (int32_t)vol_z != Z)
        broken("kvx: grid %u x %u x %u for %d x %d x %d", vol_x, vol_y, vol_z, X, Y, Z);
    if (X < 1 || Y < 1 || Z < 1 || X > 256 || Y > 256 || Z > 256) broken("kvx: accepted the sizes %d x %d x %d", X, Y, Z);
    for (size_t i = 0, n = (size_t)X * Y * Z; i < n; ++i)
        if (voxels[i] > 255) broken("kvx: word %zu is 0x%x", i, voxels[i]);
    check_palette_tables(data + size - 768);
}

// ---------------------------------------------------------------------------------------------

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fill_memfile(input_file, data, size);
    bool accepted = false;
    in_loader = true;
    try {
        accepted = LOADER(input_file.path);
    } catch (const FatalExit& fatal) {
        in_loader = false;
#if defined(TAVOK_FUZZ_DAT)
        // Only a sample above 4095 may end the program, and the file must have one where the
        // loader reads: within the samples its sizes promise.
        std::string expected = std::string("error in file ") + input_file.path;
        if (fatal.status != 0 || fatal.message != expected)
            broken("dat: fatal path with status %d, \"%s\"", fatal.status, fatal.message.c_str());
        size_t samples = size < 6 ? 0 : (size_t)le(data, 2) * le(data + 2, 2) * le(data + 4, 2);
        bool has_bad = false;
        for (size_t i = 0; size >= 6 + 2 * samples && i < samples && !has_bad; ++i)
            has_bad = le(data + 6 + 2 * i, 2) > 4095;
        if (!has_bad) broken("dat: \"%s\" for a file without a sample above 4095", fatal.message.c_str());
        load_base();
        return 0;
#else
        broken("fatal path with status %d, \"%s\"", fatal.status, fatal.message.c_str());
#endif
    }
    in_loader = false;
    if (!accepted) {
        if (!same_as(base)) broken("a refused file changed the volume");
        return 0;
    }
#if defined(TAVOK_FUZZ_DAT)
    check_dat(data, size);
#elif defined(TAVOK_FUZZ_KVX)
    check_kvx(data, size);
#else
    check_vox(data, size);
#endif
    load_base();
    return 0;
}
