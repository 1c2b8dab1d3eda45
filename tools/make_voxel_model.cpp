// make_voxel_model.cpp — make-voxel-model, writes the project's own palette voxel model: a
// small island with a tree, a rock and the sea around it, 64 x 64 x 40 voxels in 12 colours.
// The file's ending chooses the format: .kvx writes KVX (one level, every solid voxel stored,
// runs as slabs whose cull bit keeps the gaps between them empty), anything else VOX.
//
//     make-voxel-model island.vox
//     make-voxel-model island.kvx
//
// Stands alone: it shares no code with the program, so that it checks the loaders from the
// outside. Both files hold the same model and render alike. Heights run up along the grid's z:
// both formats store z downward (file z = 0 is the top), and the loaders turn it over.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

constexpr int size_x = 64, size_y = 64, size_z = 40;

// Palette entries, 6-bit red, green, blue.
enum Colour : uint8_t {
    empty = 0,
    sea = 1, sea_light, sand, grass, grass_dark, earth, bark, leaves, leaves_light, rock, rock_dark,
};
static const uint8_t palette_entries[][3] = {
    {0, 0, 0},    {8, 22, 46},  {14, 32, 54}, {55, 48, 30}, {20, 42, 12}, {13, 33, 9},
    {33, 22, 12}, {28, 17, 8},  {9, 36, 11},  {22, 48, 15}, {38, 37, 36}, {25, 25, 27},
};

// A fixed hash of a voxel, for the speckle of the surfaces.
static uint32_t speckle(int x, int y, int z)
{
    uint32_t h = (uint32_t)x * 73856093u ^ (uint32_t)y * 19349663u ^ (uint32_t)z * 83492791u;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    return h ^ h >> 15;
}

// The model by height h (0 at the bottom, up along the grid's z).
static uint8_t model(int x, int y, int h)
{
    const float cx = 31.5f, cy = 31.5f;
    const float dx = (float)x - cx, dy = (float)y - cy, r = sqrtf(dx * dx + dy * dy);
    const int sea_level = 5;
    // The island: a hill of radius 26 whose top is 14 high, gentler toward the beach.
    const float hill = 14.0f * cosf(fminf(r / 27.0f, 1.0f) * 1.5707964f) + 3.0f * cosf(dx * 0.21f) * sinf(dy * 0.17f);
    const int ground = r < 27.0f ? (int)hill : -1;
    // A tree standing off the hill's top, and a rock on the beach.
    const float tx = 35.0f, ty = 28.0f;
    const float tr = sqrtf(((float)x - tx) * ((float)x - tx) + ((float)y - ty) * ((float)y - ty));
    const int trunk_top = 32;
    if (tr < 1.8f && h > ground - 1 && h <= trunk_top) return bark;
    const float lx = (float)x - tx, ly = (float)y - ty, lz = (float)h - 31.0f;
    if (lx * lx + ly * ly + lz * lz * 1.6f < 64.0f) return speckle(x, y, h) % 4 ? leaves : leaves_light;
    const float rx = (float)x - 47.0f, ry = (float)y - 17.0f, rz = (float)h - 6.0f;
    if (rx * rx + ry * ry * 1.3f + rz * rz * 2.0f < 16.0f) return speckle(x, y, h) % 3 ? rock : rock_dark;
    if (h <= ground) {
        if (ground <= sea_level + 1) return sand;
        if (h == ground) return speckle(x, y, h) % 5 ? grass : grass_dark;
        return h >= ground - 1 ? grass_dark : earth;
    }
    if (h <= sea_level) return speckle(x, y, 0) % 7 ? sea : sea_light;
    return empty;
}

static void put32(std::vector<uint8_t>& b, int32_t v)
{
    for (int i = 0; i < 4; ++i) b.push_back((uint8_t)((uint32_t)v >> (8 * i)));
}

// The model by file coordinates: z runs down from the top.
static uint8_t at(int x, int y, int z) { return model(x, y, size_z - 1 - z); }

static std::vector<uint8_t> palette()
{
    std::vector<uint8_t> p(768, 0);
    for (size_t i = 0; i < sizeof palette_entries / sizeof palette_entries[0]; ++i)
        for (int c = 0; c < 3; ++c) p[3 * i + c] = palette_entries[i][c];
    return p;
}

// VOX: sizes, then the indices with x outermost and z innermost, 255 for empty, the palette.
static std::vector<uint8_t> vox()
{
    std::vector<uint8_t> b;
    put32(b, size_x);
    put32(b, size_y);
    put32(b, size_z);
    for (int x = 0; x < size_x; ++x)
        for (int y = 0; y < size_y; ++y)
            for (int z = 0; z < size_z; ++z) {
                uint8_t c = at(x, y, z);
                b.push_back(c == empty ? 255 : c);
            }
    std::vector<uint8_t> p = palette();
    b.insert(b.end(), p.begin(), p.end());
    return b;
}

// KVX: numbytes, sizes, pivots (times 256), xoffset[], xyoffset[][], the slabs, the palette.
// Each run of solid voxels in a column is one slab; its cull byte has bit 4 set, so that the
// gap above it stays empty, and the low bits say which faces show (all of them here).
static std::vector<uint8_t> kvx()
{
    std::vector<std::vector<uint8_t>> planes(size_x);
    std::vector<std::vector<int16_t>> column_at(size_x, std::vector<int16_t>(size_y + 1));
    for (int x = 0; x < size_x; ++x) {
        std::vector<uint8_t>& plane = planes[x];
        for (int y = 0; y < size_y; ++y) {
            column_at[x][y] = (int16_t)plane.size();
            for (int z = 0; z < size_z;) {
                if (at(x, y, z) == empty) {
                    ++z;
                    continue;
                }
                int end = z;
                while (end < size_z && at(x, y, end) != empty) ++end;
                plane.push_back((uint8_t)z);
                plane.push_back((uint8_t)(end - z));
                plane.push_back(0x10 | 0x0f);
                for (int k = z; k < end; ++k) plane.push_back(at(x, y, k));
                z = end;
            }
        }
        column_at[x][size_y] = (int16_t)plane.size();
    }
    std::vector<uint8_t> level;
    put32(level, size_x);
    put32(level, size_y);
    put32(level, size_z);
    put32(level, size_x * 128);
    put32(level, size_y * 128);
    put32(level, size_z * 256);
    // Plane offsets count from the start of xoffset[]: past both tables, then plane by plane.
    int32_t offset = 4 * (size_x + 1) + 2 * size_x * (size_y + 1);
    for (int x = 0; x <= size_x; ++x) {
        put32(level, offset);
        if (x < size_x) offset += (int32_t)planes[x].size();
    }
    for (int x = 0; x < size_x; ++x)
        for (int y = 0; y <= size_y; ++y) {
            level.push_back((uint8_t)column_at[x][y]);
            level.push_back((uint8_t)((uint16_t)column_at[x][y] >> 8));
        }
    for (const std::vector<uint8_t>& plane : planes) level.insert(level.end(), plane.begin(), plane.end());
    std::vector<uint8_t> b;
    put32(b, (int32_t)level.size());
    b.insert(b.end(), level.begin(), level.end());
    std::vector<uint8_t> p = palette();
    b.insert(b.end(), p.begin(), p.end());
    return b;
}

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: make-voxel-model OUT.vox | OUT.kvx\n");
        return 2;
    }
    const char* path = argv[1];
    size_t n = strlen(path);
    bool as_kvx = n >= 4 && (strcmp(path + n - 4, ".kvx") == 0 || strcmp(path + n - 4, ".KVX") == 0);
    std::vector<uint8_t> bytes = as_kvx ? kvx() : vox();
    FILE* f = fopen(path, "wb");
    if (!f || fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size() || fclose(f) != 0) {
        fprintf(stderr, "make-voxel-model: can't write %s\n", path);
        return 1;
    }
    printf("wrote %s: %d x %d x %d voxels, %zu bytes\n", path, size_x, size_y, size_z, bytes.size());
    return 0;
}
