// The .dat loader: layout, margin, noise threshold, histogram, grey tables, bad files.
#include <gtest/gtest.h>

#include <cstring>
#include <sys/stat.h>

#include "helpers.h"
#include "transfer/transfer.h"

TEST(DatLoader, GridLayoutAndMarginOfA3x5x7File)
{
    start_fresh();
    // Every sample distinct and above the noise threshold: 1000 + x + 10 y + 100 z.
    auto samples = make_samples(3, 5, 7, [](int x, int y, int z) { return 1000 + x + 10 * y + 100 * z; });
    std::string path = write_dat("grid.dat", 3, 5, 7, samples);
    ASSERT_TRUE(load_dat_volume(path.c_str()));
    EXPECT_EQ(vol_x, 7u);
    EXPECT_EQ(vol_y, 9u);
    EXPECT_EQ(vol_z, 11u);
    EXPECT_EQ(voxel_index(3, 4, 5), (3u * 11 + 5) * 9 + 4);
    // File sample (1, 2, 3) lands on grid voxel (3, 4, 5).
    EXPECT_EQ(voxels[(3 * 11 + 5) * 9 + 4], 1000u + 1 + 20 + 300);
    // The margin holds 0 at coordinates 0, 1, size - 2 and size - 1 of every axis.
    for (uint32_t x = 0; x < vol_x; ++x)
        for (uint32_t y = 0; y < vol_y; ++y)
            for (uint32_t z = 0; z < vol_z; ++z) {
                bool inside = x >= 2 && x < vol_x - 2 && y >= 2 && y < vol_y - 2 && z >= 2 && z < vol_z - 2;
                uint32_t word = voxels[voxel_index(x, y, z)];
                if (inside) EXPECT_EQ(word, 1000u + (x - 2) + 10 * (y - 2) + 100 * (z - 2));
                else EXPECT_EQ(word, 0u) << x << "," << y << "," << z;
            }
    // The size entry shows the file's sizes behind one blank, not the grid's.
    EXPECT_STREQ(null_vol_dim, " 3 x 5 x 7");
    remove(path.c_str());
}

TEST(DatLoader, NoiseThresholdCountsButDropsBelow500)
{
    start_fresh();
    std::vector<uint16_t> samples = {499, 500, 4095, 0, 1, 499};
    std::string path = write_dat("threshold.dat", 6, 1, 1, samples);
    ASSERT_TRUE(load_dat_volume(path.c_str()));
    EXPECT_EQ(density_at(2, 2, 2), 0u);     // 499 stored as 0
    EXPECT_EQ(density_at(3, 2, 2), 500u);   // 500 kept
    EXPECT_EQ(density_at(4, 2, 2), 4095u);  // 4095 accepted
    EXPECT_EQ(histo[499], 2u);
    EXPECT_EQ(histo[500], 1u);
    EXPECT_EQ(histo[4095], 1u);
    EXPECT_EQ(histo[0], 1u);
    EXPECT_EQ(histo[1], 1u);
    compute_max_histo();
    EXPECT_EQ(max_histo, 1u);
    remove(path.c_str());
}

TEST(DatLoader, SampleAbove4095IsFatalWithStatusZero)
{
    start_fresh();
    std::vector<uint16_t> samples = {600, 4096, 700};
    std::string path = write_dat("bad.dat", 3, 1, 1, samples);
    std::string expected = "error in file " + path;
    EXPECT_EXIT(load_dat_volume(path.c_str()), testing::ExitedWithCode(0), expected);
    remove(path.c_str());
}

TEST(DatLoader, AllBelow500GivesEmptyGridAndMaxHistoOne)
{
    start_fresh();
    auto samples = make_samples(4, 4, 4, [](int x, int y, int z) { return (x + y + z) * 30; });
    std::string path = write_dat("quiet.dat", 4, 4, 4, samples);
    ASSERT_TRUE(load_dat_volume(path.c_str()));
    size_t n = (size_t)vol_x * vol_y * vol_z;
    for (size_t i = 0; i < n; ++i) ASSERT_EQ(voxels[i], 0u);
    uint32_t total = 0;
    for (uint32_t c : histo) total += c;
    EXPECT_EQ(total, 64u);
    compute_max_histo();
    EXPECT_EQ(max_histo, 1u);
    remove(path.c_str());
}

TEST(DatLoader, MaxHistoIgnoresBinsBelow500)
{
    start_fresh();
    std::vector<uint16_t> samples = {100, 100, 100, 100, 900, 900, 1200};
    std::string path = write_dat("histo.dat", 7, 1, 1, samples);
    ASSERT_TRUE(load_dat_volume(path.c_str()));
    compute_max_histo();
    EXPECT_EQ(histo[100], 4u);
    EXPECT_EQ(max_histo, 2u);
    remove(path.c_str());
}

TEST(DatLoader, GreyIdentityTables)
{
    start_fresh();
    std::string path = write_dat("grey.dat", 1, 1, 1, {700});
    ASSERT_TRUE(load_dat_volume(path.c_str()));
    EXPECT_EQ(opacity_lut[0], 0.0f);
    EXPECT_EQ(color_lut[0], 0u);
    EXPECT_EQ(color_lut[16], 0u);          // truncation: 16 / 4095 * 255 < 1
    EXPECT_EQ(color_lut[17], 0x010101u);   // grey 1 is first reached at 17
    EXPECT_EQ(opacity_lut[4095], 1.0f);
    EXPECT_EQ(color_lut[4095], 0xffffffu);
    EXPECT_FLOAT_EQ(opacity_lut[2048], 2048.0f / 4095.0f);
    for (int i = 0; i < 4096; ++i) ASSERT_EQ(color_lut[i] >> 24, 0u);
    // A later load puts edited tables back to grey.
    color_lut[1000] = 0x123456;
    opacity_lut[1000] = 0.5f;
    ASSERT_TRUE(load_dat_volume(path.c_str()));
    EXPECT_EQ(color_lut[1000], 0x3e3e3eu);
    EXPECT_EQ(opacity_lut[1000], 1000 * 0.00024420026f);
    remove(path.c_str());
}

TEST(DatLoader, FillOcclusionTouchesOnlyTheUpperHalf)
{
    start_fresh();
    std::string path = write_dat("occ.dat", 2, 2, 2, {600, 700, 800, 900, 1000, 1100, 1200, 4095});
    ASSERT_TRUE(load_dat_volume(path.c_str()));
    fill_occlusion(0x80);
    EXPECT_EQ(voxels[voxel_index(2, 2, 2)], 0x800000u | 600);
    EXPECT_EQ(voxels[voxel_index(0, 0, 0)], 0x800000u);
    fill_occlusion(0xff);
    EXPECT_EQ(voxels[voxel_index(3, 3, 3)], 0xff0000u | 4095);
    remove(path.c_str());
}

TEST(DatLoader, TruncatedFileKeepsTheOldVolume)
{
    start_fresh();
    auto samples = make_samples(4, 3, 2, [](int x, int y, int z) { return 600 + x * y * z; });
    std::string good = write_dat("good.dat", 4, 3, 2, samples);
    ASSERT_TRUE(load_dat_volume(good.c_str()));
    VolumeSnapshot before;
    std::string cut = write_dat("cut.dat", 5, 5, 5, make_samples(5, 5, 5, [](int, int, int) { return 900; }), 3);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_dat_volume(cut.c_str()));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("file " + cut + " is too short: 5 x 5 x 5 needs 256 bytes, it has 253"), std::string::npos) << out;
    before.expect_unchanged();

    std::string stub = write_dat("stub.dat", 0, 0, 0, {}, 2);  // four bytes: no whole header
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_dat_volume(stub.c_str()));
    out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("file " + stub + " is too short"), std::string::npos) << out;
    before.expect_unchanged();
    remove(good.c_str());
    remove(cut.c_str());
    remove(stub.c_str());
}

TEST(DatLoader, MissingFileKeepsTheOldVolume)
{
    start_fresh();
    std::string good = write_dat("good2.dat", 2, 2, 2, {600, 700, 800, 900, 1000, 1100, 1200, 1300});
    ASSERT_TRUE(load_dat_volume(good.c_str()));
    VolumeSnapshot before;
    std::string missing = temp_path("does-not-exist.dat");
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_dat_volume(missing.c_str()));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "can't open file " + missing + "\n");
    before.expect_unchanged();
    remove(good.c_str());
}

TEST(DatLoader, OversizedGridIsRefusedBeforeAnythingIsFreed)
{
    start_fresh();
    std::string good = write_dat("good3.dat", 2, 2, 2, {600, 700, 800, 900, 1000, 1100, 1200, 1300});
    ASSERT_TRUE(load_dat_volume(good.c_str()));
    VolumeSnapshot before;
    // A header that promises more bytes than the file has is refused first...
    std::string huge = write_dat("huge.dat", 65535, 65535, 2, {});
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_dat_volume(huge.c_str()));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("is too short: 65535 x 65535 x 2 needs 17179344906 bytes, it has 6"), std::string::npos) << out;
    before.expect_unchanged();
    // ...and one that has them (a sparse file costs no disk) but whose grid would not fit the
    // 32-bit voxel index is refused too.
    ASSERT_EQ(truncate(huge.c_str(), 17179344906LL), 0);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_dat_volume(huge.c_str()));
    out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("file " + huge + " is too large: 65535 x 65535 x 2 gives a grid of 25772163126 voxels, at most 2147483647 fit"),
              std::string::npos) << out;
    before.expect_unchanged();
    remove(good.c_str());
    remove(huge.c_str());
}

TEST(DatLoader, GridBeyondTheMemoryBudgetIsRefused)
{
    start_fresh();
    std::string good = write_dat("good4.dat", 2, 2, 2, {600, 700, 800, 900, 1000, 1100, 1200, 1300});
    ASSERT_TRUE(load_dat_volume(good.c_str()));
    VolumeSnapshot before;
    // A grid of 1004 x 1004 x 304 words (a sparse file of 600 MB that costs no disk): 1.2 GB
    // of words and 4.7 GB of gradients.
    std::string big = write_dat("big.dat", 1000, 1000, 300, {});
    ASSERT_EQ(truncate(big.c_str(), 6 + 2 * 300000000LL), 0);
    volume_memory_limit = 1ull << 30;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_dat_volume(big.c_str()));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("file " + big + " is too large: 1000 x 1000 x 300 gives a grid of 306436864 "
                       "voxels, which needs 5844 MB with its gradients, at most 1024 MB fit"),
              std::string::npos) << out;
    before.expect_unchanged();
    // Within the budget a grid loads: 5 x 9 x 10 words.
    std::string small = write_dat("small.dat", 1, 5, 6, std::vector<uint16_t>(30, 600));
    EXPECT_TRUE(load_dat_volume(small.c_str()));
    EXPECT_EQ(vol_x * vol_y * vol_z, 450u);
    volume_memory_limit = 0;
    remove(good.c_str());
    remove(big.c_str());
    remove(small.c_str());
}

TEST(DatLoader, LogLineGivesTheFileSizes)
{
    start_fresh();
    std::string path = write_dat("log.dat", 3, 2, 1, {600, 600, 600, 600, 600, 600});
    testing::internal::CaptureStdout();
    ASSERT_TRUE(load_dat_volume(path.c_str()));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("Orlen-data x=3, y=2, z=1\n", 0), 0u) << out;
    remove(path.c_str());
}

TEST(DatLoader, ASizeOf0OnAnyAxisIsRefused)
{
    start_fresh();
    std::string good = write_dat("good4.dat", 2, 2, 2, {600, 700, 800, 900, 1000, 1100, 1200, 1300});
    ASSERT_TRUE(load_dat_volume(good.c_str()));
    VolumeSnapshot before;
    const int sizes[3][3] = {{0, 10, 10}, {10, 0, 10}, {3, 5, 0}};
    for (const auto& s : sizes) {
        std::string empty = write_dat("empty.dat", s[0], s[1], s[2], {});
        testing::internal::CaptureStdout();
        EXPECT_FALSE(load_dat_volume(empty.c_str()));
        std::string out = testing::internal::GetCapturedStdout();
        std::string reason = "file " + empty + " holds no samples: its size is " + std::to_string(s[0]) +
                             " x " + std::to_string(s[1]) + " x " + std::to_string(s[2]);
        EXPECT_NE(out.find(reason + "\n"), std::string::npos) << out;
        // The reason is kept, without the newline, for the panel and tavok-render.
        EXPECT_EQ(std::string(load_refusal), reason);
        before.expect_unchanged();
        remove(empty.c_str());
    }
    remove(good.c_str());
}

TEST(LoadPath, TheReasonOfARefusalShowsInThePanelAndAGoodLoadClearsIt)
{
    start_fresh();
    std::string good = write_dat("good5.dat", 3, 3, 3, make_samples(3, 3, 3, [](int, int, int) { return 900; }));
    ASSERT_TRUE(load_volume_file(good.c_str()));
    EXPECT_STREQ(null_load_message, "");
    VolumeSnapshot before;
    std::string cut = write_dat("cut5.dat", 5, 5, 5, make_samples(5, 5, 5, [](int, int, int) { return 900; }), 236);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_volume_file(cut.c_str()));
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::string(null_load_message), "file " + cut + " is too short: 5 x 5 x 5 needs 256 bytes, it has 20");
    EXPECT_STREQ(last_volume_path, good.c_str());
    before.expect_unchanged();
    // Anything but a regular file is refused before a loader opens it: a named pipe would
    // block the open until a writer came.
    std::string pipe = temp_path("pipe.dat");
    remove(pipe.c_str());
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_volume_file(pipe.c_str()));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("can't read " + pipe + ": it is not a regular file\n"), std::string::npos) << out;
    EXPECT_EQ(std::string(null_load_message), "can't read " + pipe + ": it is not a regular file");
    // A folder is a DICOM series for the importer; one without any refuses all the same, and
    // the panel still gets a line.
    std::string folder = temp_path("empty-folder");
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(load_volume_file(folder.c_str()));
    testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string(null_load_message), "");
    before.expect_unchanged();
    rmdir(folder.c_str());
    testing::internal::CaptureStdout();
    ASSERT_TRUE(load_volume_file(good.c_str()));
    testing::internal::GetCapturedStdout();
    EXPECT_STREQ(null_load_message, "");
    remove(pipe.c_str());
    remove(cut.c_str());
    remove(good.c_str());
}
