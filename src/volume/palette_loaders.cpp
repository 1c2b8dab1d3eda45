// palette_loaders.cpp — reads the two palette voxel formats, KVX and VOX, into the grid.
//
// Owns import_cube and import_palette, the scratch into which both formats are unpacked first:
// a 256 x 256 x 256 cube of palette indices, byte (x, y, z) at (x << 16) + (y << 8) + z with 0
// for empty, and 256 palette entries of 6-bit red, green, blue. Called by the load path only,
// after it has stopped the occlusion worker. Writes voxels, vol_x/y/z, histo (adding to it:
// these loaders never clear it), the lookup tables and the panel's size entry. The common tail
// of every load (slices, editor strip, refresh) is the load path's, not the loaders'.
//
// A palette volume has no margin: vol_x/y/z are the file's own sizes, 1 to 256. A density is a
// palette index, 1 to 255, and the tables hold the palette at those indices, opacity 0.6 (a VOX
// file raises the indices it uses to 0.7); every other entry is transparent black, so the table
// lookup that every pass does anyway yields the palette colour. The grid takes the cube with z
// reversed: file z = 0 lands on grid z = vol_z - 1.
//
// Every file is checked whole before anything is touched: sizes from 1 to 256, a block and a
// palette that fit the file, column offsets and slab runs inside the block and the model's box,
// palette values of 6 bits. A bad file gets one message on standard output and false, and the
// old volume, its tables, its histogram and the size entry stay as they were; import_cube is
// scratch and may hold anything afterwards. The unpacking that follows trusts the checks.
//
// The grid is allocated at the model's size, vol_x * vol_y * vol_z words, not at a fixed 256³:
// nothing reads past the sizes, and a tight block lets AddressSanitizer prove that.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/core.h"
#include "core/seam.h"
#include "transfer/transfer.h"
#include "volume/volume.h"

static uint8_t import_cube[256 * 256 * 256];
static uint8_t import_palette[768];

[[gnu::always_inline]] static inline size_t cube_at(uint32_t x, uint32_t y, uint32_t z)
{
    return ((size_t)x << 16) + ((size_t)y << 8) + z;
}

static int32_t le32(const uint8_t* p)
{
    return (int32_t)((uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24);
}
static int16_t le16(const uint8_t* p) { return (int16_t)(p[0] | p[1] << 8); }

// Opens a file and tells its size; false (and the message of an unopenable file) when it
// can't be opened or measured.
static FILE* open_measured(const char* path, long* size)
{
    FILE* file = fopen(path, "rb");
    if (!file || fseek(file, 0, SEEK_END) != 0 || (*size = ftell(file)) < 0) {
        if (file) fclose(file);
        refuse_volume("can't open file %s", path);
        return nullptr;
    }
    return file;
}

static bool read_at(FILE* file, long offset, void* into, size_t bytes)
{
    return fseek(file, offset, SEEK_SET) == 0 && fread(into, 1, bytes, file) == bytes;
}

// The palette is the last 768 bytes of the file, in both formats. Its channels are 6 bits.
static bool read_palette(FILE* file, long size, const char* kind, const char* path)
{
    if (!read_at(file, size - 768, import_palette, 768)) {
        refuse_volume("%s file %s: its palette can't be read", kind, path);
        return false;
    }
    for (int i = 0; i < 768; ++i)
        if (import_palette[i] > 63) {
            refuse_volume("%s file %s: palette entry %d has the value %d, a palette value is 0 to 63",
                   kind, path, i / 3, import_palette[i]);
            return false;
        }
    return true;
}

static bool sizes_fit(long long x, long long y, long long z, const char* kind, const char* path)
{
    if (x >= 1 && x <= 256 && y >= 1 && y <= 256 && z >= 1 && z <= 256) return true;
    refuse_volume("%s file %s has the sizes %lld x %lld x %lld: each must be 1 to 256", kind, path,
                  x, y, z);
    return false;
}

// Palette to tables: entries 1 to 255 take the palette's colour, the 6-bit channels times 4,
// and opacity 0.6; entry 0 and everything from 256 up is transparent black.
static void palette_to_tables()
{
    alloc_lookup_tables();
    for (int i = 0; i < 4096; ++i) {
        if (i >= 1 && i <= 255) {
            const uint8_t* p = import_palette + 3 * i;
            opacity_lut[i] = 0.6f;
            color_lut[i] = (uint32_t)p[0] << 18 | (uint32_t)p[1] << 10 | (uint32_t)p[2] << 2;
        } else {
            opacity_lut[i] = 0.0f;
            color_lut[i] = 0;
        }
    }
}

static void show_sizes()
{
    char dims[64];
    snprintf(dims, sizeof dims, " %d x %d x %d", (int)vol_x, (int)vol_y, (int)vol_z);
    set_entry_text("GUIvolDim", dims, (int)strlen(dims));
}

// Replaces the grid by the cube's vol_x x vol_y x vol_z corner, z reversed; the words hold the
// palette index and nothing else.
static void cube_to_grid()
{
    if (volume_loaded) {
        free(voxels);
        voxels = nullptr;
    }
    voxels = (uint32_t*)malloc((size_t)vol_x * vol_y * vol_z * 4);
    if (!voxels) clean_up_and_exit(0, "failed to allocate %dx%dx%d voxel-grid\n", vol_x, vol_y, vol_z);
    uint32_t* word = voxels;
    for (uint32_t x = 0; x < vol_x; ++x)
        for (uint32_t z = 0; z < vol_z; ++z) {
            const uint8_t* row = import_cube + cube_at(x, 0, vol_z - 1 - z);
            for (uint32_t y = 0; y < vol_y; ++y) *word++ = row[(size_t)y << 8];
        }
}

// ---------------------------------------------------------------------------------------------
// KVX. Only the first mip level and the palette are read. The level, at file offset 4, is
// numbytes long: xsiz, ysiz, zsiz and the three pivots (signed 32 bits each), then xoffset[]
// (xsiz + 1 signed 32-bit plane offsets, counted from the start of xoffset[]), then
// xyoffset[x][y] (ysiz + 1 signed 16-bit column offsets within the plane per x), then the
// slabs. Column (x, y) covers [A, B) with A from xyoffset[x][y] and B from xyoffset[x][y + 1];
// it is a run of slabs: ztop, zleng, cull byte, zleng palette indices.

namespace {
struct KvxLevel {
    const uint8_t* bytes;  // the level, offsets below count from its first byte (file offset 4)
    int32_t numbytes;
    uint32_t xsiz, ysiz, zsiz;
    long long tables_end;  // first byte after xyoffset[]
};
}  // namespace

constexpr long long kvx_xoffset_at = 24;  // xoffset[] follows the sizes and the pivots

static int32_t kvx_xoffset(const KvxLevel& k, uint32_t x) { return le32(k.bytes + kvx_xoffset_at + 4 * x); }

// Where column (x, y) begins: its A, or with y + 1 its B. In 64 bits, so that no offset wraps.
static long long kvx_column_at(const KvxLevel& k, uint32_t x, uint32_t y)
{
    long long xyoffset_at = kvx_xoffset_at + 4 * ((long long)k.xsiz + 1);
    int16_t in_plane = le16(k.bytes + xyoffset_at + 2 * ((long long)x * (k.ysiz + 1) + y));
    return kvx_xoffset_at + kvx_xoffset(k, x) + in_plane;
}

// Every column inside the slab area and every slab inside its column and the model's box.
static bool check_kvx_columns(const KvxLevel& k, const char* path)
{
    for (uint32_t x = 0; x < k.xsiz; ++x)
        for (uint32_t y = 0; y < k.ysiz; ++y) {
            long long a = kvx_column_at(k, x, y), b = kvx_column_at(k, x, y + 1);
            if (a < k.tables_end || b < a || b > k.numbytes) {
                refuse_volume("kvx file %s: column %d,%d runs from byte %lld to %lld, outside the slabs "
                       "at %lld to %d", path, x, y, a, b, k.tables_end, k.numbytes);
                return false;
            }
            for (long long at = a; at < b;) {
                if (at + 3 > b || at + 3 + k.bytes[at + 1] > b) {
                    refuse_volume("kvx file %s: a slab of column %d,%d runs past the column's end",
                                  path, x, y);
                    return false;
                }
                uint32_t ztop = k.bytes[at], zleng = k.bytes[at + 1];
                if (ztop + zleng > k.zsiz) {
                    refuse_volume("kvx file %s: a slab of column %d,%d reaches z = %d, the model is %d high",
                           path, x, y, ztop + zleng, k.zsiz);
                    return false;
                }
                at += 3 + zleng;
            }
        }
    return true;
}

// A KVX voxel is never empty: a colour byte of 0 is stored as 0x80. Each stored byte counts.
[[gnu::always_inline]] static inline void put_kvx_voxel(uint8_t* column, uint32_t z, uint8_t colour)
{
    uint8_t c = colour ? colour : 0x80;
    column[z] = c;
    histo[c] += 1;
}

// Unpacks the checked columns into the cube. The file stores the surface only: a slab whose
// cull byte has bit 4 clear fills the gap above it, from the end of the slab before, with its
// own first colour; with the bit set the gap stays empty. A slab of no voxels has no colour
// and fills nothing.
static void unpack_kvx_columns(const KvxLevel& k)
{
    for (uint32_t x = 0; x < k.xsiz; ++x) {
        memset(import_cube + cube_at(x, 0, 0), 0, (size_t)k.ysiz << 8);
        for (uint32_t y = 0; y < k.ysiz; ++y) {
            uint8_t* column = import_cube + cube_at(x, y, 0);
            long long at = kvx_column_at(k, x, y), end = kvx_column_at(k, x, y + 1);
            uint32_t cursor = 0;
            while (at < end) {
                const uint8_t* slab = k.bytes + at;
                uint32_t ztop = slab[0], zleng = slab[1];
                if (!(slab[2] & 0x10) && zleng > 0)
                    for (uint32_t z = cursor; z < ztop; ++z) put_kvx_voxel(column, z, slab[3]);
                for (uint32_t i = 0; i < zleng; ++i) put_kvx_voxel(column, ztop + i, slab[3 + i]);
                cursor = ztop + zleng;
                at += 3 + zleng;
            }
        }
    }
}

bool load_kvx_volume(const char* path)
{
    long size;
    FILE* file = open_measured(path, &size);
    if (!file) return false;

    // The level's header and tables, at least, and the palette must fit the file.
    uint8_t head[4];
    if (size < 4 + 24 + 768 || !read_at(file, 0, head, 4)) {
        refuse_volume("kvx file %s is too short: it has %ld bytes, a header and a palette need %d", path,
               size, 4 + 24 + 768);
        fclose(file);
        return false;
    }
    KvxLevel k = {};
    k.numbytes = le32(head);
    if (k.numbytes < 24 || 4 + (long long)k.numbytes > size - 768) {
        refuse_volume("kvx file %s: numbytes %d does not fit: the file has %ld bytes for the first level "
               "and the palette", path, k.numbytes, size);
        fclose(file);
        return false;
    }
    std::vector<uint8_t> level((size_t)k.numbytes);
    if (!read_at(file, 4, level.data(), level.size())) {
        refuse_volume("kvx file %s: its first level can't be read", path);
        fclose(file);
        return false;
    }
    bool palette_ok = read_palette(file, size, "kvx", path);
    fclose(file);
    if (!palette_ok) return false;

    k.bytes = level.data();
    int32_t xsiz = le32(k.bytes), ysiz = le32(k.bytes + 4), zsiz = le32(k.bytes + 8);
    if (!sizes_fit(xsiz, ysiz, zsiz, "kvx", path)) return false;
    k.xsiz = (uint32_t)xsiz, k.ysiz = (uint32_t)ysiz, k.zsiz = (uint32_t)zsiz;
    k.tables_end = kvx_xoffset_at + 4 * ((long long)xsiz + 1) + 2 * (long long)xsiz * (ysiz + 1);
    if (k.tables_end > k.numbytes) {
        refuse_volume("kvx file %s: the offsets of %d x %d columns need %lld bytes, numbytes is %d", path,
               xsiz, ysiz, k.tables_end, k.numbytes);
        return false;
    }
    if (!check_kvx_columns(k, path)) return false;

    // The file is good: from here on the old volume gives way.
    palette_to_tables();
    vol_x = k.xsiz, vol_y = k.ysiz, vol_z = k.zsiz;
    show_sizes();
    if (kvx_xoffset(k, 0) != (int32_t)((vol_y * 2 + 6) * vol_x + 4)) fputs("corrupt kvx file!\n", stderr);
    puts("starting extraction-loop");
    unpack_kvx_columns(k);
    cube_to_grid();
    printf("kvx file is %d x %d x %d\n", vol_x, vol_y, vol_z);
    return true;
}

// ---------------------------------------------------------------------------------------------
// VOX: three 32-bit sizes, then x * y * z palette indices with x outermost and z innermost, 255
// meaning empty, then the palette.

bool load_vox_volume(const char* path)
{
    long size;
    FILE* file = open_measured(path, &size);
    if (!file) return false;

    uint8_t head[12];
    if (size < 12 + 768 || !read_at(file, 0, head, 12)) {
        refuse_volume("vox file %s is too short: it has %ld bytes, a header and a palette need %d", path,
               size, 12 + 768);
        fclose(file);
        return false;
    }
    // The sizes are read unsigned: a size with the top bit set is one too large, not negative.
    long long sx = (uint32_t)le32(head), sy = (uint32_t)le32(head + 4), sz = (uint32_t)le32(head + 8);
    if (!sizes_fit(sx, sy, sz, "vox", path)) {
        fclose(file);
        return false;
    }
    long long needed = 12 + sx * sy * sz + 768;
    if (size < needed) {
        refuse_volume("vox file %s is too short: %lld x %lld x %lld voxels and the palette need %lld bytes, "
               "it has %ld", path, sx, sy, sz, needed, size);
        fclose(file);
        return false;
    }
    // One read, then each (x, y) column of the file fills the start of its 256-byte row of
    // the cube.
    std::vector<uint8_t> block((size_t)(sx * sy * sz));
    if (!read_at(file, 12, block.data(), block.size())) {
        refuse_volume("vox file %s: its voxels can't be read", path);
        fclose(file);
        return false;
    }
    const uint8_t* column = block.data();
    for (uint32_t x = 0; x < sx; ++x)
        for (uint32_t y = 0; y < sy; ++y, column += sz) memcpy(import_cube + cube_at(x, y, 0), column, (size_t)sz);
    bool palette_ok = read_palette(file, size, "vox", path);
    fclose(file);
    if (!palette_ok) return false;

    // The file is good: from here on the old volume gives way.
    vol_x = (uint32_t)sx, vol_y = (uint32_t)sy, vol_z = (uint32_t)sz;
    show_sizes();
    palette_to_tables();
    // The file's 255 is empty space and its 0 a real colour, but density 0 must be empty: the
    // two swap places. An index that occurs gets opacity 0.7 — 255 too, when the file has empty
    // space, since the swap comes after — and a 0 is counted in bin 0x101 and shows as palette
    // entry 255. Per voxel, so one pass does what a copy and a second pass would.
    for (uint32_t x = 0; x < vol_x; ++x)
        for (uint32_t y = 0; y < vol_y; ++y) {
            uint8_t* column = import_cube + cube_at(x, y, 0);
            for (uint32_t z = 0; z < vol_z; ++z) {
                uint8_t c = column[z];
                if (c == 0) {
                    histo[0x101] += 1;
                    opacity_lut[0x101] = 0.0f;
                    column[z] = 0xff;
                } else {
                    histo[c] += 1;
                    opacity_lut[c] = 0.7f;
                    if (c == 0xff) column[z] = 0;
                }
            }
        }
    cube_to_grid();
    printf("vox file is %d x %d x %d\n", vol_x, vol_y, vol_z);
    return true;
}
