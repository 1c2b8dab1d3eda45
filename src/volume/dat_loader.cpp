// dat_loader.cpp — reads the native .dat volume: three little-endian 16-bit sizes X, Y, Z,
// then X * Y * Z little-endian 16-bit samples, x fastest, then y, then z.
//
// The file is checked before anything of the old volume is touched: a file that can't be
// opened, one with a size of 0, one shorter than its header says and one whose grid would not
// fit the 32-bit voxel index or the memory budget are refused with a message (refuse_volume),
// and the old volume, its tables and the panel's size entry stay as they were. A sample above
// 4095, and failed allocations, are fatal.
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/seam.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// The grid's sizes of the new volume, set by replace_grid; store_samples fills that grid.
static uint32_t new_x, new_y, new_z;

void replace_grid(uint32_t fx, uint32_t fy, uint32_t fz)
{
    char dims[64];
    snprintf(dims, sizeof dims, " %d x %d x %d", fx, fy, fz);
    set_entry_text("GUIvolDim", dims, (int)strlen(dims));

    if (volume_loaded) {
        free(voxels);
        voxels = nullptr;
    }
    voxels = (uint32_t*)calloc((size_t)(fx + 4) * (fy + 4) * (fz + 4), 4);
    if (!voxels) clean_up_and_exit(0, "failed to allocate %dx%dx%d voxel-grid\n", fx, fy, fz);
    memset(histo, 0, sizeof histo);
    if (!volume_loaded) alloc_lookup_tables();
    reset_grey_tables();
    new_x = fx;
    new_y = fy;
    new_z = fz;
}

bool store_samples(const uint16_t* samples)
{
    // The grid's sizes with the margin; sample (x, y, z) lands on (x+2, y+2, z+2).
    const uint32_t fx = new_x, fy = new_y, fz = new_z;
    vol_x = fx + 4;
    vol_y = fy + 4;
    vol_z = fz + 4;
    size_t i = 0;
    for (uint32_t z = 0; z < fz; ++z)
        for (uint32_t y = 0; y < fy; ++y)
            for (uint32_t x = 0; x < fx; ++x, ++i) {
                uint32_t v = samples[i];
                if (v > 4095) return false;
                histo[v] += 1;
                if (v >= 500) voxels[voxel_index(x + 2, y + 2, z + 2)] = v;
            }
    return true;
}

bool load_dat_volume(const char* path)
{
    FILE* file = fopen(path, "rb");
    if (!file) return refuse_volume("can't open file %s", path);
    uint8_t header[6];
    fseek(file, 0, SEEK_END);
    long file_size = ftell(file);
    fseek(file, 0, SEEK_SET);
    if (file_size < 6 || fread(header, 1, 6, file) != 6) {
        fclose(file);
        return refuse_volume("file %s is too short: it has %ld bytes, the header needs 6", path,
                             file_size < 0 ? 0L : file_size);
    }
    uint32_t fx = header[0] | header[1] << 8;
    uint32_t fy = header[2] | header[3] << 8;
    uint32_t fz = header[4] | header[5] << 8;
    printf("Orlen-data x=%d, y=%d, z=%d\n", fx, fy, fz);

    // A size of 0 gives a grid of margin only, with nothing in it to show.
    if (fx == 0 || fy == 0 || fz == 0) {
        fclose(file);
        return refuse_volume("file %s holds no samples: its size is %d x %d x %d", path, fx, fy, fz);
    }
    long long samples = (long long)fx * fy * fz;
    long long needed = 6 + 2 * samples;
    if (file_size < needed) {
        fclose(file);
        return refuse_volume("file %s is too short: %d x %d x %d needs %lld bytes, it has %ld", path,
                             fx, fy, fz, needed, file_size);
    }
    long long words = (long long)(fx + 4) * (fy + 4) * (fz + 4);
    if (words > max_grid_words) {
        fclose(file);
        return refuse_volume("file %s is too large: %d x %d x %d gives a grid of %lld voxels, at most "
                             "%lld fit", path, fx, fy, fz, words, max_grid_words);
    }

    // A grid the machine can't hold with its gradients would end in the fatal path after the
    // old volume is gone (a sparse file can pass the length check at no cost).
    uint64_t memory = (uint64_t)words * (4 + sizeof(GradientRecord));
    if (memory > volume_memory_budget()) {
        fclose(file);
        return refuse_volume("file %s is too large: %d x %d x %d gives a grid of %lld voxels, which "
                             "needs %llu MB with its gradients, at most %llu MB fit", path, fx, fy, fz,
                             words, (unsigned long long)(memory >> 20),
                             (unsigned long long)(volume_memory_budget() >> 20));
    }

    replace_grid(fx, fy, fz);
    uint16_t* block = (uint16_t*)malloc((size_t)samples * 2 + 1);
    if (!block) clean_up_and_exit(0, "out of mem!");
    size_t got = fread(block, 2, (size_t)samples, file);
    (void)got;  // the length was checked against the header above
    if constexpr (std::endian::native == std::endian::big)
        for (long long i = 0; i < samples; ++i) block[i] = __builtin_bswap16(block[i]);
    if (!store_samples(block)) {
        // The process ends here; the temporary and the file go first all the same, so that a
        // harness that catches the fatal path (tests/fuzz) sees no leak.
        free(block);
        fclose(file);
        clean_up_and_exit(0, "error in file %s", path);
    }
    free(block);
    fclose(file);

    return true;
}
