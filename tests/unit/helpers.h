// helpers.h — small tools for the unit tests: hand-made .dat files and a known start state.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/passes.h"
#include "core/core.h"
#include "core/headless/seam_null.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

// A file in the test's temporary folder, removed by the caller when it wants.
inline std::string temp_path(const std::string& name)
{
    const char* dir = getenv("TMPDIR");
    return std::string(dir ? dir : "/tmp") + "/tavok_test_" + std::to_string(getpid()) + "_" + name;
}

// Writes a .dat file: sizes, then samples with x fastest. truncate_by drops bytes at the end.
inline std::string write_dat(const std::string& name, int X, int Y, int Z,
                             const std::vector<uint16_t>& samples, size_t truncate_by = 0)
{
    std::string path = temp_path(name);
    std::vector<uint8_t> bytes = {uint8_t(X), uint8_t(X >> 8), uint8_t(Y), uint8_t(Y >> 8),
                                  uint8_t(Z), uint8_t(Z >> 8)};
    for (uint16_t s : samples) {
        bytes.push_back(uint8_t(s));
        bytes.push_back(uint8_t(s >> 8));
    }
    bytes.resize(bytes.size() - truncate_by);
    FILE* f = fopen(path.c_str(), "wb");
    fwrite(bytes.data(), 1, bytes.size(), f);
    fclose(f);
    return path;
}

// A volume of X x Y x Z samples whose value is given by f(x, y, z).
template <class F> std::vector<uint16_t> make_samples(int X, int Y, int Z, F f)
{
    std::vector<uint16_t> s;
    for (int z = 0; z < Z; ++z)
        for (int y = 0; y < Y; ++y)
            for (int x = 0; x < X; ++x) s.push_back(uint16_t(f(x, y, z)));
    return s;
}

// The state of a program just started, with a 512 x 512 window's buffers and no volume.
inline void start_fresh()
{
    start_library(512, 512);
    final_pending = 0;
    idle_clears = 0;
    null_ticks = 0;
    null_chooser_name = nullptr;
    null_pump_hook = nullptr;
}

inline uint32_t density_at(uint32_t x, uint32_t y, uint32_t z)
{
    return voxels[voxel_index(x, y, z)] & density_mask;
}

// Snapshot of what a refused file must leave alone: the grid (pointer, sizes, words), the
// histogram, both tables and the panel's size entry.
struct VolumeSnapshot {
    uint32_t* grid;
    uint32_t x, y, z;
    std::vector<uint32_t> words;
    std::vector<uint32_t> hist;
    std::vector<uint32_t> colors;
    std::vector<float> opacities;
    std::string dims;
    VolumeSnapshot()
        : grid(voxels), x(vol_x), y(vol_y), z(vol_z),
          words(voxels, voxels + (size_t)vol_x * vol_y * vol_z), hist(histo, histo + 4096),
          colors(color_lut, color_lut + 4096), opacities(opacity_lut, opacity_lut + 4096),
          dims(null_vol_dim) {}
    void expect_unchanged() const
    {
        EXPECT_EQ(voxels, grid);
        EXPECT_EQ(vol_x, x);
        EXPECT_EQ(vol_y, y);
        EXPECT_EQ(vol_z, z);
        EXPECT_EQ(std::vector<uint32_t>(voxels, voxels + (size_t)x * y * z), words);
        EXPECT_EQ(std::vector<uint32_t>(histo, histo + 4096), hist);
        EXPECT_EQ(std::vector<uint32_t>(color_lut, color_lut + 4096), colors);
        EXPECT_EQ(std::vector<float>(opacity_lut, opacity_lut + 4096), opacities);
        EXPECT_EQ(std::string(null_vol_dim), dims);
    }
};
