// palette_helpers.h — hand-made KVX and VOX files for the tests of the palette loaders.
#pragma once
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "helpers.h"

// One slab of a KVX column: its first z, its cull byte and its palette indices by rising z.
struct KvxSlab {
    uint8_t ztop;
    uint8_t cull;
    std::vector<uint8_t> colours;
};

// A KVX model: sizes, slabs per column (column (x, y) at x * ysiz + y) and the palette.
struct KvxModel {
    int xsiz, ysiz, zsiz;
    std::vector<std::vector<KvxSlab>> columns;
    std::vector<uint8_t> palette = std::vector<uint8_t>(768, 0);
    KvxModel(int x, int y, int z) : xsiz(x), ysiz(y), zsiz(z), columns((size_t)x * y) {}
    std::vector<KvxSlab>& column(int x, int y) { return columns[(size_t)x * ysiz + y]; }
};

inline void put_le32(std::vector<uint8_t>& b, size_t at, int32_t v)
{
    for (int i = 0; i < 4; ++i) b[at + i] = uint8_t((uint32_t)v >> (8 * i));
}
inline void put_le16(std::vector<uint8_t>& b, size_t at, int16_t v)
{
    b[at] = uint8_t((uint16_t)v), b[at + 1] = uint8_t((uint16_t)v >> 8);
}

// Byte offsets inside a KVX file as kvx_bytes lays it out, for tests that corrupt one field.
struct KvxLayout {
    size_t xoffset_at = 28;  // file offset of xoffset[0]
    size_t xyoffset_at;      // file offset of xyoffset[0][0]
    size_t slabs_at;         // file offset of the first slab
    size_t palette_at;       // file offset of the palette
};

// Lays a model out as a KVX file with one mip level: numbytes, sizes, pivots, xoffset[],
// xyoffset[], the slabs plane by plane, the palette.
inline std::vector<uint8_t> kvx_bytes(const KvxModel& m, KvxLayout* layout = nullptr)
{
    const size_t tables = 24 + 4 * (m.xsiz + 1) + 2 * (size_t)m.xsiz * (m.ysiz + 1);
    std::vector<uint8_t> level(tables, 0);
    put_le32(level, 0, m.xsiz);
    put_le32(level, 4, m.ysiz);
    put_le32(level, 8, m.zsiz);
    put_le32(level, 12, m.xsiz * 128);
    put_le32(level, 16, m.ysiz * 128);
    put_le32(level, 20, m.zsiz * 128);
    for (int x = 0; x <= m.xsiz; ++x) {
        put_le32(level, 24 + 4 * x, int32_t(level.size() - 24));
        if (x == m.xsiz) break;
        size_t plane = level.size();
        for (int y = 0; y <= m.ysiz; ++y) {
            put_le16(level, 24 + 4 * (m.xsiz + 1) + 2 * ((size_t)x * (m.ysiz + 1) + y),
                     int16_t(level.size() - plane));
            if (y == m.ysiz) break;
            for (const KvxSlab& s : m.columns[(size_t)x * m.ysiz + y]) {
                level.push_back(s.ztop);
                level.push_back(uint8_t(s.colours.size()));
                level.push_back(s.cull);
                level.insert(level.end(), s.colours.begin(), s.colours.end());
            }
        }
    }
    std::vector<uint8_t> file;
    file.reserve(4 + level.size() + 768);
    file.resize(4);
    put_le32(file, 0, int32_t(level.size()));
    for (uint8_t b : level) file.push_back(b);
    if (layout) {
        layout->xyoffset_at = 4 + 24 + 4 * (m.xsiz + 1);
        layout->slabs_at = 4 + tables;
        layout->palette_at = file.size();
    }
    for (uint8_t b : m.palette) file.push_back(b);
    return file;
}

// A VOX file: sizes, indices with x outermost and z innermost (index (x * ysiz + y) * zsiz + z),
// the palette.
inline std::vector<uint8_t> vox_bytes(int xs, int ys, int zs, const std::vector<uint8_t>& indices,
                                      const std::vector<uint8_t>& palette)
{
    std::vector<uint8_t> file;
    file.reserve(12 + indices.size() + palette.size());
    file.resize(12);
    put_le32(file, 0, xs);
    put_le32(file, 4, ys);
    put_le32(file, 8, zs);
    for (uint8_t b : indices) file.push_back(b);
    for (uint8_t b : palette) file.push_back(b);
    return file;
}

inline std::string write_bytes(const std::string& name, const std::vector<uint8_t>& bytes)
{
    std::string path = temp_path(name);
    FILE* f = fopen(path.c_str(), "wb");
    if (!bytes.empty()) fwrite(bytes.data(), 1, bytes.size(), f);
    fclose(f);
    return path;
}

// A palette whose entry i is (i % 64, (i / 4) % 64, 63 - i % 64): every entry distinct in some
// channel, all values 0..63.
inline std::vector<uint8_t> test_palette()
{
    std::vector<uint8_t> p(768);
    for (int i = 0; i < 256; ++i) {
        p[3 * i] = uint8_t(i % 64);
        p[3 * i + 1] = uint8_t((i / 4) % 64);
        p[3 * i + 2] = uint8_t(63 - i % 64);
    }
    return p;
}

inline uint32_t palette_color(const std::vector<uint8_t>& p, int i)
{
    return (uint32_t)p[3 * i] << 18 | (uint32_t)p[3 * i + 1] << 10 | (uint32_t)p[3 * i + 2] << 2;
}
