// The importer's steps on hand-made volumes: the three mappings and their log lines, the turn
// of the axes, box reduction, trilinear resampling, the sizes of the grid, the options and
// which files the importer takes.
#include <gtest/gtest.h>

#include <cmath>
#include <sys/stat.h>

#include "import_helpers.h"

static std::vector<uint16_t> map_source(const SourceVolume& src, AxisTurn turn, uint32_t n[3])
{
    Mapping m = choose_mapping(src);
    Grid16 g;
    map_and_turn(src, m, turn, g);
    for (int a = 0; a < 3; ++a) n[a] = g.n[a];
    return g.v;
}

TEST(ImportMapping, HounsfieldUnitsPlus1024ClampedTo12Bits)
{
    reset_import_options();
    SourceVolume src;
    make_source<int16_t>(src, SampleType::i16, 4, 1, 1, {-2000, -1024, 0, 3100});
    src.hounsfield = true;
    uint32_t n[3];
    std::vector<uint16_t> d;
    std::string log = captured_stdout([&] { d = map_source(src, AxisTurn(), n); });
    EXPECT_TRUE(has_line(log, "mapped hounsfield units -1024..3071 to 0..4095")) << log;
    EXPECT_EQ(d, (std::vector<uint16_t>{0, 0, 1024, 4095}));

    // Rescale slope and intercept come first: value = stored * 2 - 1024.
    SourceVolume scaled;
    make_source<uint16_t>(scaled, SampleType::u16, 4, 1, 1, {0, 512, 1000, 3000});
    scaled.hounsfield = true;
    scaled.slope = 2.0;
    scaled.intercept = -1024.0;
    captured_stdout([&] { d = map_source(scaled, AxisTurn(), n); });
    EXPECT_EQ(d, (std::vector<uint16_t>{0, 1024, 2000, 4095}));
}

TEST(ImportMapping, PercentileRangeRoundsHalfUp)
{
    reset_import_options();
    // 1000 samples, each of 0..199 five times: rank 5 is value 1, rank 995 is value 199.
    std::vector<uint8_t> v;
    for (int i = 0; i < 1000; ++i) v.push_back(uint8_t(i / 5));
    SourceVolume src;
    make_source(src, SampleType::u8, 10, 10, 10, v);
    Mapping m;
    std::string log = captured_stdout([&] { m = choose_mapping(src); });
    EXPECT_TRUE(has_line(log, "mapped values 1..199 (0.5 % to 99.5 % of the samples) to 0..4095")) << log;
    // (100 - 1) * 4095 / 198 = 2047.5: half up to 2048. Below 1 clamps to 0, 199 is 4095.
    SourceVolume probe;
    make_source<uint8_t>(probe, SampleType::u8, 4, 1, 1, {0, 1, 100, 199});
    Grid16 g;
    map_and_turn(probe, m, AxisTurn(), g);
    EXPECT_EQ(g.v, (std::vector<uint16_t>{0, 0, 2048, 4095}));

    // The same values as floats rank the same way (every sample is ranked: fewer than 2^22).
    std::vector<float> f(v.begin(), v.end());
    f[3] = NAN;  // left out of the ranking, and mapped to 0
    SourceVolume fsrc;
    make_source(fsrc, SampleType::f32, 10, 10, 10, f);
    log = captured_stdout([&] { m = choose_mapping(fsrc); });
    EXPECT_TRUE(has_line(log, "mapped values 1..199 (0.5 % to 99.5 % of the samples) to 0..4095")) << log;
    Grid16 fg;
    map_and_turn(fsrc, m, AxisTurn(), fg);
    EXPECT_EQ(fg.v[3], 0u);
    EXPECT_EQ(fg.v[500], 2048u);  // value 100
}

TEST(ImportMapping, WindowOverridesHounsfieldAndSaysSo)
{
    reset_import_options();
    import_options.window = true;
    import_options.window_lo = 100;
    import_options.window_hi = 300;
    SourceVolume src;
    make_source<uint16_t>(src, SampleType::u16, 5, 1, 1, {100, 200, 300, 50, 400});
    src.hounsfield = true;
    uint32_t n[3];
    std::vector<uint16_t> d;
    std::string log = captured_stdout([&] { d = map_source(src, AxisTurn(), n); });
    EXPECT_TRUE(has_line(log, "mapped values 100..300 to 0..4095 (--window)")) << log;
    // (200 - 100) * 4095 / 200 = 2047.5, half up.
    EXPECT_EQ(d, (std::vector<uint16_t>{0, 2048, 4095, 0, 4095}));
    reset_import_options();
}

TEST(ImportMapping, ConstantVolumeSaysSo)
{
    reset_import_options();
    SourceVolume src;
    make_source<int16_t>(src, SampleType::i16, 2, 2, 1, {7, 7, 7, 7});
    std::string log = captured_stdout([&] { choose_mapping(src); });
    EXPECT_TRUE(has_line(log, "mapped values 7..8 to 0..4095: every sample is 7")) << log;
}

TEST(ImportTurn, AxesGoToTheirClosestPatientAxes)
{
    reset_import_options();
    // i runs to the back (-y), j to the right (+x), k up: grid x = j, y = -i.
    const double axis[3][3] = {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}};
    AxisTurn turn = choose_turn(axis);
    EXPECT_EQ(turn.axis_of[0], 1);
    EXPECT_EQ(turn.axis_of[1], 0);
    EXPECT_EQ(turn.axis_of[2], 2);
    EXPECT_TRUE(turn.flipped[0]);
    EXPECT_FALSE(turn.flipped[1]);
    EXPECT_FALSE(turn.flipped[2]);

    SourceVolume src;
    std::vector<uint16_t> v;
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 2; ++i) v.push_back(uint16_t(i + 10 * j));
    make_source(src, SampleType::u16, 2, 3, 1, v);
    src.hounsfield = true;
    src.intercept = -1024;  // density = stored
    uint32_t n[3];
    std::vector<uint16_t> d;
    captured_stdout([&] { d = map_source(src, turn, n); });
    EXPECT_EQ(n[0], 3u);
    EXPECT_EQ(n[1], 2u);
    EXPECT_EQ(n[2], 1u);
    // Row y = 0 holds i = 1, row y = 1 holds i = 0; x runs along j.
    EXPECT_EQ(d, (std::vector<uint16_t>{1, 11, 21, 0, 10, 20}));

    // An oblique axis set still gives each file axis its own grid axis.
    const double oblique[3][3] = {{0.8, 0.6, 0}, {-0.6, 0.8, 0}, {0, 0, -1}};
    turn = choose_turn(oblique);
    EXPECT_EQ(turn.axis_of[0], 0);
    EXPECT_EQ(turn.axis_of[1], 1);
    EXPECT_EQ(turn.axis_of[2], 2);
    EXPECT_TRUE(turn.flipped[2]);
}

TEST(ImportResample, BoxAveragesRoundHalfUpAndKeepPartialBoxes)
{
    Grid16 in;
    in.n[0] = 5;
    in.n[1] = 3;
    in.n[2] = 1;
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) in.v.push_back(uint16_t(x + 10 * y));
    const uint32_t k[3] = {2, 2, 1};
    Grid16 out;
    box_reduce(in, k, out);
    EXPECT_EQ(out.n[0], 3u);
    EXPECT_EQ(out.n[1], 2u);
    EXPECT_EQ(out.n[2], 1u);
    // (0+1+10+11)/4 = 5.5 -> 6; (2+3+12+13)/4 = 7.5 -> 8; (4+14)/2 = 9; (20+21)/2 = 20.5 -> 21;
    // (22+23)/2 = 22.5 -> 23; 24 alone.
    EXPECT_EQ(out.v, (std::vector<uint16_t>{6, 8, 9, 21, 23, 24}));
}

TEST(ImportResample, TrilinearByHand)
{
    Grid16 in;
    in.n[0] = 3;
    in.n[1] = 2;
    in.n[2] = 2;
    in.v = {0, 100, 400, 1000, 1100, 1300, 2000, 2200, 2600, 3000, 3000, 3001};
    const double step[3] = {0.5, 1.0, 0.75};
    const uint32_t n[3] = {5, 2, 2};
    Grid16 out;
    resample_trilinear(in, step, n, out);
    auto at = [&](int x, int y, int z) { return out.v[(z * 2 + y) * 5 + x]; };
    // (1, 0, 1): x halfway between 0 and 100 (50) and between 2000 and 2200 (2100), then z at
    // 0.75: 50 + 2050 * 0.75 = 1587.5 -> 1588.
    EXPECT_EQ(at(1, 0, 1), 1588u);
    // (3, 1, 1): 1200 and 3000.5, then 1200 + 1800.5 * 0.75 = 2550.375 -> 2550.
    EXPECT_EQ(at(3, 1, 1), 2550u);
    // x = 2.0 is the last voxel: no neighbour beyond it.
    EXPECT_EQ(at(4, 0, 0), 400u);
    EXPECT_EQ(at(2, 1, 0), 1100u);
    EXPECT_EQ(at(0, 0, 0), 0u);
}

// A small NRRD volume with spacings and no space: the grid's sizes come from the spacings.
static std::string nrrd_with_spacing(const char* name, uint32_t nx, uint32_t ny, uint32_t nz,
                                     const char* spacings, const std::vector<uint8_t>& v)
{
    std::string path = temp_path(name);
    std::string header = "NRRD0004\ntype: uchar\ndimension: 3\nsizes: " + std::to_string(nx) +
                         " " + std::to_string(ny) + " " + std::to_string(nz) +
                         "\nspacings: " + spacings + "\nencoding: raw\n\n";
    std::string bytes = header + std::string(v.begin(), v.end());
    write_text(path, bytes);
    return path;
}

static std::vector<uint8_t> slices_of(uint32_t nx, uint32_t ny, std::vector<uint8_t> per_slice)
{
    std::vector<uint8_t> v;
    for (uint8_t s : per_slice) v.insert(v.end(), (size_t)nx * ny, s);
    return v;
}

TEST(ImportGrid, NonCubicVoxelsBecomeCubesAtTheFinestSpacing)
{
    reset_import_options();
    import_options.window = true;
    import_options.window_lo = 0;
    import_options.window_hi = 4095;  // density = value
    std::string path = nrrd_with_spacing("aniso.nrrd", 4, 4, 3, "1 1 2.5", slices_of(4, 4, {0, 100, 200}));
    ImportedVolume v;
    std::string log = captured_stdout([&] { ASSERT_TRUE(import_volume(path.c_str(), v)); });
    EXPECT_TRUE(has_line(log, "resampled 4 x 4 x 3 voxels of 1 x 1 x 2.5 mm to 4 x 4 x 6 voxels of 1 mm")) << log;
    ASSERT_EQ(v.size[0], 4u);
    ASSERT_EQ(v.size[1], 4u);
    ASSERT_EQ(v.size[2], 6u);  // 2 * 2.5 / 1 + 1: the first and last slices stay where they were
    EXPECT_EQ(v.spacing[2], 1.0);
    const uint16_t column[6] = {0, 40, 80, 120, 160, 200};  // every 0.4 of a slice
    for (int z = 0; z < 6; ++z) EXPECT_EQ(v.samples[z * 16 + 5], column[z]) << z;

    // --keep-grid keeps the file's voxels.
    import_options.keep_grid = true;
    log = captured_stdout([&] { ASSERT_TRUE(import_volume(path.c_str(), v)); });
    EXPECT_EQ(log.find("resampled"), std::string::npos) << log;
    EXPECT_EQ(v.size[2], 3u);
    EXPECT_EQ(v.samples[2 * 16], 200u);

    // --max-size 3: target spacing 2 mm, boxes of 2 x 2 in x and y, z resampled from 2.5 mm.
    import_options.keep_grid = false;
    import_options.max_size = 3;
    log = captured_stdout([&] { ASSERT_TRUE(import_volume(path.c_str(), v)); });
    EXPECT_TRUE(has_line(log, "reduced 4 x 4 x 3 to 2 x 2 x 3 by averaging boxes of 2 x 2 x 1 voxels (--max-size)")) << log;
    EXPECT_TRUE(has_line(log, "resampled 2 x 2 x 3 voxels of 2 x 2 x 2.5 mm to 2 x 2 x 3 voxels of 2 mm")) << log;
    ASSERT_EQ(v.size[0], 2u);
    ASSERT_EQ(v.size[2], 3u);
    EXPECT_EQ(v.samples[0 * 4], 0u);
    EXPECT_EQ(v.samples[1 * 4], 80u);
    EXPECT_EQ(v.samples[2 * 4], 160u);
    remove(path.c_str());
    reset_import_options();
}

TEST(ImportGrid, AGridBeyondTheVoxelIndexIsReduced)
{
    reset_import_options();
    // 1 x 1 x 3 voxels of 1 x 1 x 60000 mm would become 120001 slices at 1 mm, beyond a .dat
    // side: the target spacing doubles until it fits.
    std::string path = nrrd_with_spacing("tall.nrrd", 2, 2, 3, "1 1 60000", slices_of(2, 2, {0, 100, 200}));
    import_options.window = true;
    import_options.window_lo = 0;
    import_options.window_hi = 4095;
    ImportedVolume v;
    std::string log = captured_stdout([&] { ASSERT_TRUE(import_volume(path.c_str(), v)); });
    EXPECT_NE(log.find("(the largest grid the program takes)"), std::string::npos) << log;
    EXPECT_LE(v.size[2], 65535u);
    EXPECT_GT(v.size[2], 32767u);  // the smallest factor that fits: 2
    remove(path.c_str());
    reset_import_options();
}

TEST(ImportGrid, AGridBeyondTheMemoryBudgetIsReduced)
{
    reset_import_options();
    std::vector<uint8_t> v(8 * 8 * 8, 100);
    std::string path = nrrd_with_spacing("budget.nrrd", 8, 8, 8, "1 1 1", v);
    ImportedVolume out;
    // 12^3 words of 20 bytes with their gradients: 34560 bytes. Within 20000 only the half
    // fits: 8^3 * 20 = 10240.
    std::string log = captured_stdout([&] { ASSERT_TRUE(import_volume(path.c_str(), out, 20000)); });
    EXPECT_TRUE(has_line(log, "reduced 8 x 8 x 8 to 4 x 4 x 4 by averaging boxes of 2 x 2 x 2 voxels (the largest grid the program takes)")) << log;
    EXPECT_EQ(out.size[0], 4u);
    log = captured_stdout([&] { ASSERT_TRUE(import_volume(path.c_str(), out, 34560)); });
    EXPECT_EQ(out.size[0], 8u);
    remove(path.c_str());
}

TEST(ImportOptions, ParsedWithTheirErrors)
{
    reset_import_options();
    auto parse = [](std::vector<std::string> args, std::string& error) {
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        return parse_import_option((int)argv.size(), argv.data(), 0, error);
    };
    std::string error;
    EXPECT_EQ(parse({"--raw", "256,128,64,i16,be"}, error), 2);
    EXPECT_TRUE(import_options.raw);
    EXPECT_EQ(import_options.raw_size[1], 128u);
    EXPECT_EQ(import_options.raw_type, SampleType::i16);
    EXPECT_TRUE(import_options.raw_big_endian);
    EXPECT_EQ(parse({"--raw", "4,4,4,f32"}, error), 2);
    EXPECT_FALSE(import_options.raw_big_endian);
    EXPECT_EQ(parse({"--raw", "4,4,4,u32"}, error), -1);
    EXPECT_NE(error.find("TYPE one of u8, i16, u16, f32"), std::string::npos);
    EXPECT_EQ(parse({"--raw", "4,0,4,u8"}, error), -1);
    EXPECT_EQ(parse({"--raw", "4,4,4,u8,xe"}, error), -1);
    EXPECT_EQ(parse({"--raw"}, error), -1);
    EXPECT_EQ(error, "--raw needs a value");
    EXPECT_EQ(parse({"--window", "-1024,3071"}, error), 2);
    EXPECT_EQ(import_options.window_lo, -1024.0);
    EXPECT_EQ(parse({"--window", "5,5"}, error), -1);
    EXPECT_EQ(error, "--window takes LO,HI with LO below HI, not 5,5");
    EXPECT_EQ(parse({"--max-size", "256"}, error), 2);
    EXPECT_EQ(import_options.max_size, 256u);
    EXPECT_EQ(parse({"--max-size", "-3"}, error), -1);
    EXPECT_EQ(parse({"--keep-grid"}, error), 1);
    EXPECT_TRUE(import_options.keep_grid);
    EXPECT_EQ(parse({"--size", "3x3"}, error), 0);
    reset_import_options();
}

TEST(ImportChoice, WhichFilesTheImporterTakes)
{
    reset_import_options();
    std::string dir = temp_path("series_dir");
    mkdir(dir.c_str(), 0700);
    EXPECT_TRUE(is_import_path(dir.c_str()));
    EXPECT_TRUE(is_import_path("/nowhere/brain.nii.gz"));
    EXPECT_TRUE(is_import_path("/nowhere/BRAIN.NII"));
    EXPECT_TRUE(is_import_path("/nowhere/vol.nhdr"));
    EXPECT_TRUE(is_import_path("/nowhere/IM0001.dcm"));
    EXPECT_FALSE(is_import_path("/nowhere/head.dat"));
    EXPECT_FALSE(is_import_path("/nowhere/model.kvx"));
    EXPECT_FALSE(is_import_path("/nowhere/model.Vox"));
    EXPECT_FALSE(is_import_path("/nowhere/dump.raw"));

    // Without a telling name, the first bytes decide.
    std::vector<uint8_t> dicom(200, 0);
    memcpy(dicom.data() + 128, "DICM", 4);
    std::string dcm = temp_path("IM0001");
    write_bytes(dcm, dicom.data(), dicom.size());
    EXPECT_TRUE(is_import_path(dcm.c_str()));
    std::string nrrd = temp_path("volume");
    write_text(nrrd, "NRRD0004\n");
    EXPECT_TRUE(is_import_path(nrrd.c_str()));
    std::string plain = temp_path("plain.bin");
    write_text(plain, "just some bytes that are no scan at all");
    EXPECT_FALSE(is_import_path(plain.c_str()));

    // With --raw, any other file but a .dat is raw.
    import_options.raw = true;
    EXPECT_TRUE(is_import_path(plain.c_str()));
    EXPECT_FALSE(is_import_path("/nowhere/head.dat"));
    EXPECT_FALSE(is_import_path("/nowhere/model.vox"));
    reset_import_options();

    ImportedVolume v;
    std::string log = captured_stdout([&] { EXPECT_FALSE(import_volume(plain.c_str(), v)); });
    EXPECT_TRUE(has_line(log, "can't read " + plain + ": no reader recognises it (DICOM, NIfTI, NRRD; raw samples need --raw X,Y,Z,TYPE)")) << log;
    remove(dcm.c_str());
    remove(nrrd.c_str());
    remove(plain.c_str());
    rmdir(dir.c_str());
}
