// The KVX and VOX loaders: sizes without margin, z reversal, palette tables, KVX slab filling
// and its cull bit, VOX's swapped special values and opacities, the histogram that adds up, the
// real files of the shared data, and bad files that are refused with the old volume kept.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "helpers.h"
#include "palette_helpers.h"
#include "slices/slices.h"

// Loads through the load path, as the window does (loader, then everything derived).
static bool load(const std::string& path) { return load_volume_file(path.c_str()); }

static std::string captured_load(const std::string& path, bool* ok)
{
    testing::internal::CaptureStdout();
    *ok = load(path);
    return testing::internal::GetCapturedStdout();
}

// A 2 x 3 x 4 model whose columns are each one slab of full height, colour 10 * x + y + 1 at
// file z = 0 and 100 + z above it.
static KvxModel full_2x3x4()
{
    KvxModel m(2, 3, 4);
    for (int x = 0; x < 2; ++x)
        for (int y = 0; y < 3; ++y)
            m.column(x, y).push_back({0, 0, {uint8_t(10 * x + y + 1), 101, 102, 103}});
    m.palette = test_palette();
    return m;
}

TEST(KvxLoader, SizesHaveNoMarginAndZIsReversed)
{
    start_fresh();
    std::string path = write_bytes("sizes.kvx", kvx_bytes(full_2x3x4()));
    bool ok;
    std::string out = captured_load(path, &ok);
    ASSERT_TRUE(ok) << out;
    EXPECT_EQ(vol_x, 2u);
    EXPECT_EQ(vol_y, 3u);
    EXPECT_EQ(vol_z, 4u);
    EXPECT_STREQ(null_vol_dim, " 2 x 3 x 4");
    for (uint32_t x = 0; x < 2; ++x)
        for (uint32_t y = 0; y < 3; ++y) {
            // File z = 0 is grid z = 3; file z = k is grid z = 3 - k.
            EXPECT_EQ(density_at(x, y, 3), 10 * x + y + 1);
            for (uint32_t k = 1; k < 4; ++k) EXPECT_EQ(density_at(x, y, 3 - k), 100 + k);
        }
    // The whole word is the palette index and the neutral occlusion of a fresh load.
    EXPECT_EQ(voxels[voxel_index(1, 2, 0)], 0x800000u | 103);
    EXPECT_NE(out.find("it's a *.KVX\nstarting extraction-loop\nkvx file is 2 x 3 x 4\n"), std::string::npos) << out;
    remove(path.c_str());
}

TEST(KvxLoader, PaletteBecomesTheTables)
{
    start_fresh();
    std::vector<uint8_t> pal = test_palette();
    pal[3 * 7] = 63, pal[3 * 7 + 1] = 1, pal[3 * 7 + 2] = 0;
    KvxModel m = full_2x3x4();
    m.palette = pal;
    std::string path = write_bytes("pal.kvx", kvx_bytes(m));
    ASSERT_TRUE(load(path));
    EXPECT_EQ(color_lut[7], 0xfc0400u);  // the 6-bit channels times 4
    for (int i = 1; i < 256; ++i) {
        EXPECT_EQ(color_lut[i], palette_color(pal, i)) << i;
        EXPECT_EQ(opacity_lut[i], 0.6f) << i;
    }
    // Entry 0 is empty and palette entry 0 unused; 256 and up are transparent black.
    EXPECT_EQ(color_lut[0], 0u);
    EXPECT_EQ(opacity_lut[0], 0.0f);
    for (int i = 256; i < 4096; ++i) {
        ASSERT_EQ(color_lut[i], 0u) << i;
        ASSERT_EQ(opacity_lut[i], 0.0f) << i;
    }
    remove(path.c_str());
}

TEST(KvxLoader, CullBitDecidesWhetherTheGapAboveASlabIsFilled)
{
    start_fresh();
    KvxModel m(1, 2, 9);
    m.palette = test_palette();
    // Column (0, 0): a slab at z 1..2, then one at z 6 with the cull bit clear: z 3..5 take
    // that slab's first colour. z 0 lies above the first slab and is filled with its colour.
    m.column(0, 0) = {{1, 0x00, {20, 21}}, {6, 0x2f, {30, 31}}};
    // Column (0, 1): the same with the cull bit set on both slabs: the gaps stay empty.
    m.column(0, 1) = {{1, 0x10, {20, 21}}, {6, 0x3f, {30, 31}}};
    std::string path = write_bytes("cull.kvx", kvx_bytes(m));
    ASSERT_TRUE(load(path));
    auto file_z = [](uint32_t y, uint32_t z) { return density_at(0, y, 8 - z); };
    std::vector<uint32_t> filled = {20, 20, 21, 30, 30, 30, 30, 31, 0};
    std::vector<uint32_t> gaps = {0, 20, 21, 0, 0, 0, 30, 31, 0};
    for (uint32_t z = 0; z < 9; ++z) {
        EXPECT_EQ(file_z(0, z), filled[z]) << "z " << z;
        EXPECT_EQ(file_z(1, z), gaps[z]) << "z " << z;
    }
    remove(path.c_str());
}

TEST(KvxLoader, ColourZeroIsEntry128AndCounted)
{
    start_fresh();
    KvxModel m(1, 1, 5);
    m.palette = test_palette();
    // Colour 0 stored in a slab and used to fill the gap above it: three voxels of 0x80.
    m.column(0, 0) = {{2, 0, {0, 9}}};
    std::string path = write_bytes("zero.kvx", kvx_bytes(m));
    memset(histo, 0, sizeof histo);
    ASSERT_TRUE(load(path));
    EXPECT_EQ(density_at(0, 0, 4), 128u);  // file z 0, filled
    EXPECT_EQ(density_at(0, 0, 3), 128u);  // file z 1, filled
    EXPECT_EQ(density_at(0, 0, 2), 128u);  // file z 2, stored 0
    EXPECT_EQ(density_at(0, 0, 1), 9u);
    EXPECT_EQ(density_at(0, 0, 0), 0u);
    EXPECT_EQ(histo[128], 3u);
    EXPECT_EQ(histo[9], 1u);
    EXPECT_EQ(histo[0], 0u);
    EXPECT_EQ(color_lut[128], palette_color(m.palette, 128));
    remove(path.c_str());
}

TEST(KvxLoader, ColumnWithNoSlabsStaysEmpty)
{
    start_fresh();
    KvxModel m(2, 2, 3);
    m.palette = test_palette();
    m.column(1, 1) = {{0, 0, {5, 6, 7}}};  // the three others have A = B
    KvxLayout layout;
    std::vector<uint8_t> bytes = kvx_bytes(m, &layout);
    // Plane 0 holds no slab at all: its three column offsets are equal.
    EXPECT_EQ(bytes[layout.xyoffset_at], bytes[layout.xyoffset_at + 4]);
    std::string path = write_bytes("empty-columns.kvx", bytes);
    ASSERT_TRUE(load(path));
    for (uint32_t x = 0; x < 2; ++x)
        for (uint32_t y = 0; y < 2; ++y)
            for (uint32_t z = 0; z < 3; ++z)
                EXPECT_EQ(density_at(x, y, z), x == 1 && y == 1 ? 7u - z : 0u);
    remove(path.c_str());
}

TEST(KvxLoader, SlabOfNoVoxelsFillsNothing)
{
    start_fresh();
    KvxModel m(1, 1, 6);
    m.palette = test_palette();
    // A slab of zleng 0 at z 3 has no colour for the gap above it; the next slab fills from 3.
    m.column(0, 0) = {{3, 0, {}}, {5, 0, {40}}};
    std::string path = write_bytes("zleng0.kvx", kvx_bytes(m));
    ASSERT_TRUE(load(path));
    std::vector<uint32_t> expected = {0, 0, 0, 40, 40, 40};  // by file z
    for (uint32_t z = 0; z < 6; ++z) EXPECT_EQ(density_at(0, 0, 5 - z), expected[z]) << z;
    remove(path.c_str());
}

TEST(KvxLoader, UnexpectedFirstPlaneOffsetOnlyWarns)
{
    start_fresh();
    KvxModel m = full_2x3x4();
    KvxLayout layout;
    std::vector<uint8_t> bytes = kvx_bytes(m, &layout);
    // Move every column of plane 0 by one byte: xoffset[0] grows by 1, its xyoffsets shrink by 1.
    // Move every column of plane 0 by nothing: xoffset[0] one more than the expected 28, the
    // offsets within the plane one less.
    put_le32(bytes, layout.xoffset_at, (3 * 2 + 6) * 2 + 4 + 1);
    for (int y = 0; y <= 3; ++y) {
        int16_t v = int16_t(bytes[layout.xyoffset_at + 2 * y] | bytes[layout.xyoffset_at + 2 * y + 1] << 8);
        put_le16(bytes, layout.xyoffset_at + 2 * y, int16_t(v - 1));
    }
    std::string path = write_bytes("warn.kvx", bytes);
    testing::internal::CaptureStderr();
    ASSERT_TRUE(load(path));
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "corrupt kvx file!\n");
    EXPECT_EQ(density_at(0, 0, 3), 1u);  // the model is read all the same
    EXPECT_EQ(density_at(1, 2, 3), 13u);
    remove(path.c_str());
}

TEST(KvxLoader, HistogramAddsUpAcrossLoadsAndMaxHistoStaysOne)
{
    start_fresh();
    memset(histo, 0, sizeof histo);
    std::string path = write_bytes("histo.kvx", kvx_bytes(full_2x3x4()));
    ASSERT_TRUE(load(path));
    EXPECT_EQ(histo[101], 6u);
    EXPECT_EQ(max_histo, 1u);
    ASSERT_TRUE(load(path));
    EXPECT_EQ(histo[101], 12u);  // not reset
    EXPECT_EQ(histo[1], 2u);
    EXPECT_EQ(max_histo, 1u);
    remove(path.c_str());
}

TEST(KvxLoader, BlurErasesAPaletteVolume)
{
    start_fresh();
    std::string path = write_bytes("blur.kvx", kvx_bytes(full_2x3x4()));
    ASSERT_TRUE(load(path));
    blur_data();
    for (size_t i = 0; i < (size_t)vol_x * vol_y * vol_z; ++i) ASSERT_EQ(voxels[i] & density_mask, 0u);
    remove(path.c_str());
}

// Every index lies below the occlusion pass's threshold of 501: it skips each voxel and writes
// full light (255) everywhere, the solid voxels too, and leaves the densities alone.
TEST(KvxLoader, OcclusionWritesFullLightEverywhere)
{
    start_fresh();
    std::string path = write_bytes("occlusion.kvx", kvx_bytes(full_2x3x4()));
    ASSERT_TRUE(load(path));
    std::vector<uint32_t> before(voxels, voxels + (size_t)vol_x * vol_y * vol_z);
    for (int kind : {1, 2}) {
        shadow_kind = kind;
        testing::internal::CaptureStdout();
        start_occlusion();
        wait_for_occlusion();
        testing::internal::GetCapturedStdout();
        for (size_t i = 0; i < before.size(); ++i) {
            ASSERT_EQ(voxels[i] >> 16 & 0xff, 255u) << "voxel " << i << ", shadow_kind " << kind;
            ASSERT_EQ(voxels[i] & 0xffffu, before[i] & 0xffffu) << "voxel " << i;
        }
    }
    remove(path.c_str());
}

// ---------------------------------------------------------------------------------------------

// A 2 x 2 x 3 VOX model: index (x * 2 + y) * 3 + z.
static std::vector<uint8_t> vox_2x2x3(const std::vector<uint8_t>& indices)
{
    return vox_bytes(2, 2, 3, indices, test_palette());
}

TEST(VoxLoader, SizesZReversalAndTheSwapOf255And0)
{
    start_fresh();
    memset(histo, 0, sizeof histo);
    std::vector<uint8_t> idx = {7, 255, 0,  8, 9, 10,  255, 255, 255,  0, 0, 1};
    std::string path = write_bytes("swap.vox", vox_2x2x3(idx));
    bool ok;
    std::string out = captured_load(path, &ok);
    ASSERT_TRUE(ok) << out;
    EXPECT_EQ(vol_x, 2u);
    EXPECT_EQ(vol_y, 2u);
    EXPECT_EQ(vol_z, 3u);
    EXPECT_STREQ(null_vol_dim, " 2 x 2 x 3");
    EXPECT_NE(out.find("it's a *.VOX\nvox file is 2 x 2 x 3\n"), std::string::npos) << out;
    // 255 is empty space, 0 a solid voxel shown with palette entry 255; z is reversed.
    auto file_voxel = [](uint32_t x, uint32_t y, uint32_t z) { return density_at(x, y, 2 - z); };
    EXPECT_EQ(file_voxel(0, 0, 0), 7u);
    EXPECT_EQ(file_voxel(0, 0, 1), 0u);
    EXPECT_EQ(file_voxel(0, 0, 2), 255u);
    EXPECT_EQ(file_voxel(0, 1, 2), 10u);
    for (uint32_t z = 0; z < 3; ++z) EXPECT_EQ(file_voxel(1, 0, z), 0u);
    EXPECT_EQ(file_voxel(1, 1, 0), 255u);
    EXPECT_EQ(file_voxel(1, 1, 2), 1u);
    EXPECT_EQ(color_lut[255], palette_color(test_palette(), 255));
    // The file's 0s are counted in bin 0x101, its 255s in bin 255.
    EXPECT_EQ(histo[0x101], 3u);
    EXPECT_EQ(histo[255], 4u);
    EXPECT_EQ(histo[7], 1u);
    EXPECT_EQ(histo[0], 0u);
    remove(path.c_str());
}

TEST(VoxLoader, IndicesThatOccurHaveOpacity07)
{
    start_fresh();
    std::vector<uint8_t> idx = {7, 255, 0,  8, 9, 10,  255, 255, 255,  0, 0, 1};
    std::string path = write_bytes("opacity.vox", vox_2x2x3(idx));
    ASSERT_TRUE(load(path));
    for (int i : {1, 7, 8, 9, 10}) EXPECT_EQ(opacity_lut[i], 0.7f) << i;
    for (int i : {2, 6, 11, 128, 254}) EXPECT_EQ(opacity_lut[i], 0.6f) << i;
    // The empty 255s raise entry 255 too, which after the swap draws the file's 0s.
    EXPECT_EQ(opacity_lut[255], 0.7f);
    EXPECT_EQ(opacity_lut[0], 0.0f);
    EXPECT_EQ(opacity_lut[0x101], 0.0f);
    remove(path.c_str());

    // Without empty space entry 255 keeps 0.6.
    std::string full = write_bytes("full.vox", vox_2x2x3(std::vector<uint8_t>(12, 0)));
    ASSERT_TRUE(load(full));
    EXPECT_EQ(opacity_lut[255], 0.6f);
    EXPECT_EQ(density_at(1, 1, 1), 255u);
    remove(full.c_str());
}

TEST(VoxLoader, TrailingBytesBeforeThePaletteAreIgnored)
{
    start_fresh();
    std::vector<uint8_t> idx(12, 3);
    idx.push_back(99);  // one byte more than 2 x 2 x 3 before the palette
    std::string path = write_bytes("trailing.vox", vox_2x2x3(idx));
    ASSERT_TRUE(load(path));
    EXPECT_EQ(density_at(1, 1, 0), 3u);
    EXPECT_EQ(color_lut[3], palette_color(test_palette(), 3));
    remove(path.c_str());
}

// ---------------------------------------------------------------------------------------------
// Bad files: each is refused with its message, and the volume on screen stays.

struct BadFile {
    const char* name;
    std::vector<uint8_t> bytes;
    std::string message;  // a part of the expected output
};

static void expect_refused(const BadFile& bad)
{
    std::string path = write_bytes(bad.name, bad.bytes);
    VolumeSnapshot before;
    std::string last = last_volume_path;
    bool ok;
    std::string out = captured_load(path, &ok);
    EXPECT_FALSE(ok) << bad.name;
    EXPECT_NE(out.find(bad.message), std::string::npos) << bad.name << ": " << out;
    before.expect_unchanged();
    EXPECT_EQ(std::string(last_volume_path), last) << bad.name;
    remove(path.c_str());
}

// A good volume to refuse against: a small .dat with a distinctive grid.
static void load_a_good_volume()
{
    start_fresh();
    auto samples = make_samples(3, 4, 5, [](int x, int y, int z) { return 600 + x + 7 * y + 31 * z; });
    std::string good = write_dat("good-before-bad.dat", 3, 4, 5, samples);
    ASSERT_TRUE(load(good));
    remove(good.c_str());
}

TEST(PaletteLoaders, CorruptKvxFilesKeepTheOldVolume)
{
    load_a_good_volume();
    KvxModel m = full_2x3x4();
    KvxLayout at;
    const std::vector<uint8_t> good = kvx_bytes(m, &at);
    auto with = [&](auto change) { std::vector<uint8_t> b = good; change(b); return b; };
    const int32_t numbytes = int32_t(at.palette_at - 4);
    std::vector<BadFile> bad = {
        {"short.kvx", std::vector<uint8_t>(good.begin(), good.begin() + 795),
         "is too short: it has 795 bytes, a header and a palette need 796"},
        {"negative-numbytes.kvx", with([](auto& b) { put_le32(b, 0, -5); }), "numbytes -5 does not fit"},
        {"small-numbytes.kvx", with([](auto& b) { put_le32(b, 0, 23); }), "numbytes 23 does not fit"},
        {"numbytes-into-palette.kvx", with([&](auto& b) { put_le32(b, 0, numbytes + 1); }),
         "numbytes " + std::to_string(numbytes + 1) + " does not fit"},
        {"palette-missing.kvx", std::vector<uint8_t>(good.begin(), good.end() - 1),
         "numbytes " + std::to_string(numbytes) + " does not fit"},
        {"xsiz-0.kvx", with([](auto& b) { put_le32(b, 4, 0); }), "has the sizes 0 x 3 x 4: each must be 1 to 256"},
        {"ysiz-257.kvx", with([](auto& b) { put_le32(b, 8, 257); }), "has the sizes 2 x 257 x 4"},
        {"zsiz-negative.kvx", with([](auto& b) { put_le32(b, 12, -1); }), "has the sizes 2 x 3 x -1"},
        {"tables-too-big.kvx", with([](auto& b) { put_le32(b, 8, 200); }),
         "the offsets of 2 x 200 columns need 840 bytes, numbytes is " + std::to_string(numbytes)},
        {"column-before-slabs.kvx", with([&](auto& b) { put_le16(b, at.xyoffset_at, -1); }),
         "column 0,0 runs from byte"},
        {"column-backwards.kvx", with([&](auto& b) { put_le16(b, at.xyoffset_at + 2, 0); put_le16(b, at.xyoffset_at, 7); }),
         "column 0,0 runs from byte"},
        {"column-past-block.kvx", with([&](auto& b) { put_le32(b, at.xoffset_at + 4, 30000); }),
         "column 1,0 runs from byte"},
        {"plane-offset-huge.kvx", with([&](auto& b) { put_le32(b, at.xoffset_at + 4, 0x7fffffff); }),
         "column 1,0 runs from byte"},
        {"slab-past-column.kvx", with([&](auto& b) { b[at.slabs_at + 1] = 5; }),
         "a slab of column 0,0 runs past the column's end"},
        {"slab-header-cut.kvx", with([&](auto& b) { put_le16(b, at.xyoffset_at + 2, 2); }),
         "a slab of column 0,0 runs past the column's end"},
        {"slab-past-model.kvx", with([&](auto& b) { b[at.slabs_at] = 1; }),
         "a slab of column 0,0 reaches z = 5, the model is 4 high"},
        {"slab-past-cube.kvx", with([&](auto& b) { b[at.slabs_at] = 255; }),
         "a slab of column 0,0 reaches z = 259, the model is 4 high"},
        {"palette-8-bit.kvx", with([&](auto& b) { b[at.palette_at + 3 * 9 + 1] = 64; }),
         "palette entry 9 has the value 64, a palette value is 0 to 63"},
    };
    for (const BadFile& f : bad) expect_refused(f);

    std::string missing = temp_path("missing.kvx");
    expect_refused({"empty.kvx", {}, "is too short: it has 0 bytes"});
    VolumeSnapshot before;
    bool ok;
    std::string out = captured_load(missing, &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(out, missing + "\nit's a *.KVX\ncan't open file " + missing + "\n");
    before.expect_unchanged();
}

TEST(PaletteLoaders, CorruptVoxFilesKeepTheOldVolume)
{
    load_a_good_volume();
    const std::vector<uint8_t> good = vox_2x2x3(std::vector<uint8_t>(12, 4));
    auto with = [&](auto change) { std::vector<uint8_t> b = good; change(b); return b; };
    std::vector<BadFile> bad = {
        {"short.vox", std::vector<uint8_t>(good.begin(), good.begin() + 779),
         "is too short: it has 779 bytes, a header and a palette need 780"},
        {"x-0.vox", with([](auto& b) { put_le32(b, 0, 0); }), "has the sizes 0 x 2 x 3: each must be 1 to 256"},
        {"z-257.vox", with([](auto& b) { put_le32(b, 8, 257); }), "has the sizes 2 x 2 x 257"},
        {"y-top-bit.vox", with([](auto& b) { put_le32(b, 4, int32_t(0x80000002u)); }), "has the sizes 2 x 2147483650 x 3"},
        {"voxels-missing.vox", std::vector<uint8_t>(good.begin(), good.end() - 1),
         "is too short: 2 x 2 x 3 voxels and the palette need 792 bytes, it has 791"},
        {"bigger-than-file.vox", with([](auto& b) { put_le32(b, 0, 256); }),
         "is too short: 256 x 2 x 3 voxels and the palette need 2316 bytes, it has 792"},
        {"palette-8-bit.vox", with([&](auto& b) { b[b.size() - 1] = 255; }),
         "palette entry 255 has the value 255, a palette value is 0 to 63"},
    };
    for (const BadFile& f : bad) expect_refused(f);

    std::string missing = temp_path("missing.vox");
    VolumeSnapshot before;
    bool ok;
    std::string out = captured_load(missing, &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(out, missing + "\nit's a *.VOX\ncan't open file " + missing + "\n");
    before.expect_unchanged();
}

TEST(PaletteLoaders, OnlyExactEndingsChooseAPaletteLoader)
{
    start_fresh();
    std::string upper = write_bytes("model.KVX", kvx_bytes(full_2x3x4()));
    ASSERT_TRUE(load(upper));
    EXPECT_EQ(vol_x, 2u);
    std::string vox_upper = write_bytes("model.VOX", vox_2x2x3(std::vector<uint8_t>(12, 4)));
    ASSERT_TRUE(load(vox_upper));
    EXPECT_EQ(vol_z, 3u);
    // .Kvx goes to the .dat loader, which reads numbytes 94 and xsiz 2 as the sizes 94 x 0 x 2
    // and refuses a volume with a size of 0.
    std::string mixed = write_bytes("model.Kvx", kvx_bytes(full_2x3x4()));
    bool ok;
    std::string out = captured_load(mixed, &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(out.find("it's a"), std::string::npos) << out;
    EXPECT_NE(out.find("Orlen-data x=94, y=0, z=2\n"), std::string::npos) << out;
    EXPECT_NE(out.find("holds no samples: its size is 94 x 0 x 2\n"), std::string::npos) << out;
    EXPECT_EQ(vol_z, 3u);
    remove(upper.c_str());
    remove(vox_upper.c_str());
    remove(mixed.c_str());
}

// ---------------------------------------------------------------------------------------------
// The real files of the shared data.

static std::string shared(const char* name) { return std::string(TAVOK_SHARED_DATA) + "/" + name; }

static bool have(const std::string& path) { return access(path.c_str(), R_OK) == 0; }

TEST(PaletteLoaders, EveryRealKvxAndVoxFileLoads)
{
    struct Real { const char* name; uint32_t x, y, z; };
    const Real files[] = {
        {"kvx/duke3d-4891_storecrap.kvx", 160, 16, 69}, {"kvx/powerslave-0540_tree.kvx", 157, 153, 159},
        {"kvx/powerslave-0736_scarab_a.kvx", 19, 5, 23}, {"kvx/vengi-slab6_vox_test.kvx", 39, 13, 43},
        {"kvx/voxeldoom-spidp.kvx", 198, 224, 120},     {"kvx/voxeldoom-zzzface3.kvx", 72, 256, 127},
        {"vox/vengi-slab6_vox_test.vox", 39, 13, 43},
    };
    start_fresh();
    for (const Real& f : files) {
        std::string path = shared(f.name);
        if (!have(path)) GTEST_SKIP() << "no shared data at " << path;
        testing::internal::CaptureStderr();
        bool ok;
        std::string out = captured_load(path, &ok);
        std::string err = testing::internal::GetCapturedStderr();
        ASSERT_TRUE(ok) << f.name << ": " << out;
        EXPECT_EQ(err, "") << f.name;  // xoffset[0] is as expected in every real file
        EXPECT_EQ(vol_x, f.x) << f.name;
        EXPECT_EQ(vol_y, f.y) << f.name;
        EXPECT_EQ(vol_z, f.z) << f.name;
        size_t solid = 0;
        for (size_t i = 0; i < (size_t)vol_x * vol_y * vol_z; ++i) {
            uint32_t d = voxels[i] & density_mask;
            ASSERT_LE(d, 255u);
            solid += d != 0;
        }
        EXPECT_GT(solid, 0u) << f.name;
    }
}

// The two files of one model: every surface voxel of the VOX model (solid, with a face on
// empty space or on the box) has the same colour at the same place in the KVX model, and the
// KVX model has nothing where the VOX model is empty.
TEST(PaletteLoaders, KvxAndVoxOfOneModelAgreeOnTheSurface)
{
    std::string kvx = shared("kvx/vengi-slab6_vox_test.kvx"), vox = shared("vox/vengi-slab6_vox_test.vox");
    if (!have(kvx) || !have(vox)) GTEST_SKIP() << "no shared data";
    start_fresh();
    ASSERT_TRUE(load(vox));
    std::vector<uint32_t> vox_colour((size_t)vol_x * vol_y * vol_z), vox_density(vox_colour.size());
    for (size_t i = 0; i < vox_colour.size(); ++i) {
        vox_density[i] = voxels[i] & density_mask;
        vox_colour[i] = color_lut[vox_density[i]];
    }
    ASSERT_TRUE(load(kvx));
    ASSERT_EQ(vox_colour.size(), (size_t)vol_x * vol_y * vol_z);
    auto empty = [&](int x, int y, int z) {
        if (x < 0 || y < 0 || z < 0 || x >= (int)vol_x || y >= (int)vol_y || z >= (int)vol_z) return true;
        return vox_density[voxel_index(x, y, z)] == 0;
    };
    size_t surface = 0, solid_vox = 0, solid_kvx = 0;
    for (int x = 0; x < (int)vol_x; ++x)
        for (int y = 0; y < (int)vol_y; ++y)
            for (int z = 0; z < (int)vol_z; ++z) {
                size_t i = voxel_index(x, y, z);
                uint32_t d = voxels[i] & density_mask;
                solid_kvx += d != 0;
                if (vox_density[i] == 0) {
                    EXPECT_EQ(d, 0u) << x << "," << y << "," << z;
                    continue;
                }
                solid_vox += 1;
                bool on_surface = empty(x - 1, y, z) || empty(x + 1, y, z) || empty(x, y - 1, z) ||
                                  empty(x, y + 1, z) || empty(x, y, z - 1) || empty(x, y, z + 1);
                if (!on_surface) continue;
                surface += 1;
                EXPECT_EQ(color_lut[d], vox_colour[i]) << x << "," << y << "," << z;
            }
    EXPECT_EQ(solid_vox, 2612u);
    EXPECT_EQ(surface, 1531u);
    EXPECT_GE(solid_kvx, surface);
}
