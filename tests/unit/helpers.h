// helpers.h — small tools for the unit tests: hand-made .dat files and a known start state.
#pragma once
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
}

inline uint32_t density_at(uint32_t x, uint32_t y, uint32_t z)
{
    return voxels[voxel_index(x, y, z)] & density_mask;
}
