// The importer's readers on files written here (raw, NRRD by hand, NIfTI-1 and -2 through
// niftilib) and on real files from Debian packages (the T1 head of mricron-data, the DICOM
// test files of python3-pydicom), and the grid a load leaves: the same as its .dat's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sys/stat.h>
#include <unistd.h>

#include <nifti2_io.h>

#include "app/app.h"
#include "import_helpers.h"
#include "transfer/transfer.h"

static const char* const mricron = "/usr/share/mricron/templates";
static const char* const pydicom_files = "/usr/lib/python3/dist-packages/pydicom/data/test_files";

static void identity_window()
{
    reset_import_options();
    import_options.window = true;
    import_options.window_lo = 0;
    import_options.window_hi = 4095;
}

// The sample at grid (x, y, z) of an imported volume.
static uint16_t at(const ImportedVolume& v, uint32_t x, uint32_t y, uint32_t z)
{
    return v.samples[((size_t)z * v.size[1] + y) * v.size[0] + x];
}

static std::string import_log(const std::string& path, ImportedVolume& v, bool& ok)
{
    return captured_stdout([&] { ok = import_volume(path.c_str(), v); });
}

// ---------------------------------------------------------------------------------------------
// Raw.

TEST(ImportRaw, TypesAndByteOrders)
{
    identity_window();
    import_options.raw = true;
    import_options.raw_size[0] = 3;
    import_options.raw_size[1] = 2;
    import_options.raw_size[2] = 1;

    std::string path = temp_path("samples.bin");
    const uint8_t be16[] = {0x01, 0x02, 0x00, 0x10, 0x0f, 0xff, 0x00, 0x00, 0x00, 0x01, 0x00, 0x02};
    write_bytes(path, be16, sizeof be16);
    import_options.raw_type = SampleType::u16;
    import_options.raw_big_endian = true;
    ImportedVolume v;
    bool ok;
    std::string log = import_log(path, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_TRUE(has_line(log, "raw " + path + ": 3 x 2 x 1 samples of u16, 1 x 1 x 1 mm")) << log;
    EXPECT_EQ(v.samples, (std::vector<uint16_t>{0x0102, 0x0010, 0x0fff, 0, 1, 2}));

    import_options.raw_big_endian = false;  // the same bytes, little-endian
    log = import_log(path, v, ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(v.samples, (std::vector<uint16_t>{0x0201, 4095, 4095, 0, 256, 512}));  // 0x1000 and 0xff0f clamp

    import_options.raw_type = SampleType::i16;
    import_options.window_lo = -32768;
    import_options.window_hi = -32768 + 4095;  // density = value + 32768
    const int16_t i16[] = {-32768, -32767, -32000, 0, -30000, -28673};
    write_bytes(path, i16, sizeof i16);
    log = import_log(path, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_EQ(v.samples, (std::vector<uint16_t>{0, 1, 768, 4095, 2768, 4095}));

    import_options.raw_type = SampleType::f32;
    import_options.window_lo = 0;
    import_options.window_hi = 1;  // 0..1 spread over 0..4095
    const float f32[] = {0.0f, 0.5f, 1.0f, -3.0f, 0.25f, NAN};
    write_bytes(path, f32, sizeof f32);
    log = import_log(path, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_EQ(v.samples, (std::vector<uint16_t>{0, 2048, 4095, 0, 1024, 0}));  // 2047.5 and 1023.75 round

    import_options.raw_type = SampleType::u8;
    import_options.window_lo = 0;
    import_options.window_hi = 4095;
    const uint8_t u8[] = {0, 1, 2, 3, 250, 255, 77, 78};  // two bytes more than 3 x 2 x 1
    write_bytes(path, u8, sizeof u8);
    log = import_log(path, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_TRUE(has_line(log, path + " has 2 bytes beyond its 3 x 2 x 1 samples: they are left out")) << log;
    EXPECT_EQ(v.samples, (std::vector<uint16_t>{0, 1, 2, 3, 250, 255}));
    remove(path.c_str());
    reset_import_options();
}

TEST(ImportRaw, AFileThatEndsEarlyIsRefused)
{
    identity_window();
    import_options.raw = true;
    import_options.raw_size[0] = 3;
    import_options.raw_size[1] = 2;
    import_options.raw_size[2] = 1;
    import_options.raw_type = SampleType::i16;
    std::string path = temp_path("short.bin");
    write_bytes(path, "12345", 5);
    ImportedVolume v;
    bool ok;
    std::string log = import_log(path, v, ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(has_line(log, "can't read " + path + ": the file ends early (5 bytes, 3 x 2 x 1 samples of i16 need 12)")) << log;
    remove(path.c_str());
    reset_import_options();
}

// ---------------------------------------------------------------------------------------------
// NRRD, written by hand.

// Values i + 10 j + 100 k over 3 x 2 x 2 samples of uchar.
static std::string ijk_bytes()
{
    std::string b;
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j < 2; ++j)
            for (int i = 0; i < 3; ++i) b += char(i + 10 * j + 100 * k);
    return b;
}

static void expect_lps_turned(const ImportedVolume& v)
{
    // Left-posterior-superior axes: x and y run backwards on the grid.
    ASSERT_EQ(v.size[0], 3u);
    ASSERT_EQ(v.size[1], 2u);
    ASSERT_EQ(v.size[2], 2u);
    for (uint32_t k = 0; k < 2; ++k)
        for (uint32_t j = 0; j < 2; ++j)
            for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(at(v, 2 - i, 1 - j, k), i + 10 * j + 100 * k);
}

TEST(ImportNrrd, AttachedAndDetachedDataWithDicomSpace)
{
    identity_window();
    const std::string header = "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 3 2 2\n"
                               "space: left-posterior-superior\n"
                               "space directions: (1,0,0) (0,1,0) (0,0,1)\nencoding: raw\n";
    std::string attached = temp_path("vol.nrrd");
    write_text(attached, header + "\n" + ijk_bytes());
    ImportedVolume v;
    bool ok;
    std::string log = import_log(attached, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_TRUE(has_line(log, "turned the file's axes: x = -i, y = -j, z = +k")) << log;
    expect_lps_turned(v);

    std::string data = temp_path("vol.raw");
    std::string detached = temp_path("vol.nhdr");
    write_text(data, ijk_bytes());
    write_text(detached, header + "data file: " + data.substr(data.find_last_of('/') + 1) + "\n");
    ImportedVolume w;
    log = import_log(detached, w, ok);
    ASSERT_TRUE(ok) << log;
    expect_lps_turned(w);
    remove(attached.c_str());
    remove(detached.c_str());
    remove(data.c_str());
    reset_import_options();
}

TEST(ImportNrrd, MoreThanThreeDimensionsUseTheFirstVolume)
{
    identity_window();
    // A component axis first (kinds mark it), then a time axis last (the fourth of four
    // unmarked axes): both are sliced at index 0.
    std::string vec = temp_path("vec.nrrd");
    std::string bytes;
    for (int s = 0; s < 8; ++s)
        for (int c = 0; c < 3; ++c) bytes += char(c * 100 + s);
    write_text(vec, "NRRD0004\ntype: uchar\ndimension: 4\nsizes: 3 2 2 2\n"
                    "kinds: vector domain domain domain\nencoding: raw\n\n" + bytes);
    ImportedVolume v;
    bool ok;
    std::string log = import_log(vec, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_TRUE(has_line(log, vec + " has 4 dimensions: using the first volume")) << log;
    EXPECT_EQ(v.samples, (std::vector<uint16_t>{0, 1, 2, 3, 4, 5, 6, 7}));

    std::string time = temp_path("time.nrrd");
    bytes.clear();
    for (int t = 0; t < 3; ++t)
        for (int s = 0; s < 8; ++s) bytes += char(t * 50 + s);
    write_text(time, "NRRD0004\ntype: uchar\ndimension: 4\nsizes: 2 2 2 3\nencoding: raw\n\n" + bytes);
    log = import_log(time, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_TRUE(has_line(log, time + " has 4 dimensions: using the first volume")) << log;
    EXPECT_EQ(v.samples, (std::vector<uint16_t>{0, 1, 2, 3, 4, 5, 6, 7}));
    remove(vec.c_str());
    remove(time.c_str());
    reset_import_options();
}

TEST(ImportNrrd, ShortDataAndUnknownTypesAreRefused)
{
    identity_window();
    std::string path = temp_path("short.nrrd");
    write_text(path, "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 4 4 4\nencoding: raw\n\n0123456789");
    ImportedVolume v;
    bool ok;
    std::string log = import_log(path, v, ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(log.rfind("can't read " + path + ": the data end early or can't be read (", 0), 0u) << log;

    write_text(path, "NRRD0004\ntype: block\nblock size: 2\nendian: little\ndimension: 3\nsizes: 1 1 1\nencoding: raw\n\nab");
    log = import_log(path, v, ok);
    EXPECT_FALSE(ok);
    EXPECT_NE(log.find("can't read " + path + ": samples of NRRD type"), std::string::npos) << log;
    remove(path.c_str());
    reset_import_options();
}

// ---------------------------------------------------------------------------------------------
// NIfTI, written through niftilib.

// A 3 x 2 x 2 x nt int16 image with value i + 10 j + 100 k + 1000 t, written as the given
// NIfTI type; the caller sets the orientation before it is written.
static nifti_image* small_nifti(int64_t nt)
{
    const int64_t dims[8] = {nt > 1 ? 4 : 3, 3, 2, 2, nt, 1, 1, 1};
    nifti_image* nim = nifti_make_new_nim(dims, DT_INT16, 1);
    int16_t* d = (int16_t*)nim->data;
    for (int64_t t = 0; t < nt; ++t)
        for (int k = 0; k < 2; ++k)
            for (int j = 0; j < 2; ++j)
                for (int i = 0; i < 3; ++i) *d++ = int16_t(i + 10 * j + 100 * k + 1000 * t);
    return nim;
}

static void write_nifti(nifti_image* nim, const std::string& path, int type)
{
    nifti_set_filenames(nim, path.c_str(), 0, 1);
    nim->nifti_type = type;
    if (type == NIFTI_FTYPE_NIFTI1_1) {
        nifti_image_write(nim);
    } else {
        // This niftilib writes a single-file NIfTI-2 without its header: niftilib makes the
        // header, the test writes the file (header, four bytes of no extension, samples).
        nifti_2_header hdr;
        ASSERT_EQ(nifti_convert_nim2n2hdr(nim, &hdr), 0);
        hdr.vox_offset = 544;
        std::vector<uint8_t> bytes((const uint8_t*)&hdr, (const uint8_t*)&hdr + sizeof hdr);
        bytes.resize(544, 0);
        const uint8_t* d = (const uint8_t*)nim->data;
        bytes.insert(bytes.end(), d, d + nim->nvox * nim->nbyper);
        write_bytes(path, bytes.data(), bytes.size());
    }
    nifti_image_free(nim);
}

TEST(ImportNifti, Versions1And2ScalingAndSform)
{
    identity_window();
    import_options.keep_grid = true;
    nifti_set_debug_level(0);
    for (int type : {NIFTI_FTYPE_NIFTI1_1, NIFTI_FTYPE_NIFTI2_1}) {
        nifti_image* nim = small_nifti(1);
        nim->scl_slope = 2.0;
        nim->scl_inter = 10.0;
        // sform: i runs to the left (x flipped) at 1.5 mm, j forward at 2 mm, k up at 3 mm.
        nim->sform_code = NIFTI_XFORM_SCANNER_ANAT;
        nim->sto_xyz.m[0][0] = -1.5;
        nim->sto_xyz.m[1][1] = 2.0;
        nim->sto_xyz.m[2][2] = 3.0;
        std::string path = temp_path(type == NIFTI_FTYPE_NIFTI1_1 ? "v1.nii" : "v2.nii");
        write_nifti(nim, path, type);
        ImportedVolume v;
        bool ok;
        std::string log = import_log(path, v, ok);
        ASSERT_TRUE(ok) << log;
        EXPECT_TRUE(has_line(log, std::string(type == NIFTI_FTYPE_NIFTI1_1 ? "NIfTI-1 " : "NIfTI-2 ") +
                                      path + ": 3 x 2 x 2 samples of i16, 1.5 x 2 x 3 mm")) << log;
        EXPECT_TRUE(has_line(log, "turned the file's axes: x = -i, y = +j, z = +k")) << log;
        for (uint32_t k = 0; k < 2; ++k)
            for (uint32_t j = 0; j < 2; ++j)
                for (uint32_t i = 0; i < 3; ++i)
                    EXPECT_EQ(at(v, 2 - i, j, k), 2 * (i + 10 * j + 100 * k) + 10);
        EXPECT_EQ(v.spacing[0], 1.5);
        remove(path.c_str());
    }
    reset_import_options();
}

TEST(ImportNifti, QformWhenNoSformAndResampledProportions)
{
    identity_window();
    nifti_image* nim = small_nifti(1);
    // Half a turn about z: i runs to the left, j to the back; 1 x 1 x 2 mm voxels.
    nim->qform_code = NIFTI_XFORM_SCANNER_ANAT;
    nim->sform_code = 0;
    nim->quatern_b = 0;
    nim->quatern_c = 0;
    nim->quatern_d = 1;
    nim->qfac = 1;
    nim->pixdim[3] = nim->dz = 2.0;
    std::string path = temp_path("q.nii.gz");
    write_nifti(nim, path, NIFTI_FTYPE_NIFTI1_1);
    ImportedVolume v;
    bool ok;
    std::string log = import_log(path, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_TRUE(has_line(log, "turned the file's axes: x = -i, y = -j, z = +k")) << log;
    // k at 2 mm becomes 3 slices at 1 mm: the middle one halfway.
    ASSERT_EQ(v.size[2], 3u);
    EXPECT_EQ(at(v, 2, 1, 0), 0u);
    EXPECT_EQ(at(v, 2, 1, 1), 50u);
    EXPECT_EQ(at(v, 2, 1, 2), 100u);
    EXPECT_EQ(at(v, 0, 0, 2), 2u + 10 + 100);
    remove(path.c_str());
    reset_import_options();
}

TEST(ImportNifti, FourDimensionsUseTheFirstVolumeAndSaySo)
{
    identity_window();
    std::string path = temp_path("four.nii");
    write_nifti(small_nifti(3), path, NIFTI_FTYPE_NIFTI1_1);
    ImportedVolume v;
    bool ok;
    std::string log = import_log(path, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_TRUE(has_line(log, path + " has 4 dimensions (3 volumes of 3 x 2 x 2): using the first volume")) << log;
    EXPECT_EQ(at(v, 2, 1, 1), 2u + 10 + 100);  // t = 0 adds nothing
    remove(path.c_str());
    reset_import_options();
}

TEST(ImportNifti, FilesThatEndEarlyAreRefused)
{
    identity_window();
    std::string path = temp_path("cut.nii");
    write_nifti(small_nifti(1), path, NIFTI_FTYPE_NIFTI1_1);
    std::vector<uint8_t> bytes = read_file(path);
    ASSERT_GT(bytes.size(), 20u);
    write_bytes(path, bytes.data(), bytes.size() - 7);
    ImportedVolume v;
    bool ok;
    std::string log = import_log(path, v, ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(has_line(log, "can't read " + path + ": the file ends early (" +
                                  std::to_string(bytes.size() - 7) + " bytes, the first volume needs " +
                                  std::to_string(bytes.size()) + ")")) << log;

    // Compressed, the length is known only by reading: niftilib's read fails.
    std::string gz = temp_path("cut.nii.gz");
    nifti_image* nim = small_nifti(1);
    write_nifti(nim, gz, NIFTI_FTYPE_NIFTI1_1);
    bytes = read_file(gz);
    write_bytes(gz, bytes.data(), bytes.size() - 20);
    log = import_log(gz, v, ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(has_line(log, "can't read " + gz + ": its samples end early or are damaged")) << log;

    // Not a NIfTI file at all, though named like one.
    write_text(path, "hello");
    log = import_log(path, v, ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(has_line(log, "can't read " + path + ": not a NIfTI file that niftilib can read")) << log;
    remove(path.c_str());
    remove(gz.c_str());
    reset_import_options();
}

// ---------------------------------------------------------------------------------------------
// Real files.

static std::string shared_file(const char* name)
{
    return std::string(TAVOK_SHARED_DATA) + "/" + name;
}

// The T1 head of mricron-data is the source of the shared MRI .dat (its 8-bit values times 16):
// with the window 0..255.9375 the import is that .dat, sample for sample.
TEST(ImportReal, NiftiHeadEqualsItsSharedDat)
{
    std::string nii = std::string(mricron) + "/ch2.nii.gz";
    std::string dat = shared_file("mri-head-181x217x181.dat");
    if (!file_exists(nii) || !file_exists(dat)) GTEST_SKIP() << "needs mricron-data and ../shared/data";
    reset_import_options();
    import_options.window = true;
    import_options.window_lo = 0;
    import_options.window_hi = 255.9375;
    ImportedVolume v;
    bool ok;
    std::string log = import_log(nii, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_EQ(log.find("turned"), std::string::npos) << log;  // already x right, y front, z up
    DatFile d;
    ASSERT_TRUE(read_dat(dat, d));
    ASSERT_EQ(v.size[0], d.size[0]);
    ASSERT_EQ(v.size[1], d.size[1]);
    ASSERT_EQ(v.size[2], d.size[2]);
    EXPECT_TRUE(v.samples == d.samples);

    // Without a window the 0.5 % to 99.5 % range is spread: air stays empty, the brightest
    // tissue reaches the top.
    reset_import_options();
    log = import_log(nii, v, ok);
    ASSERT_TRUE(ok);
    EXPECT_TRUE(has_line(log, "mapped values 0..178 (0.5 % to 99.5 % of the samples) to 0..4095")) << log;
    reset_import_options();
}

// The head written again with its axes permuted and two of them reversed, and an sform that
// says so: the import lands on the same grid. So the face is at the high end of y, the crown at
// the high end of z, the right ear at the high end of x, whatever order the file keeps.
TEST(ImportReal, TurnedNiftiHeadLandsTheSameWay)
{
    std::string nii = std::string(mricron) + "/ch2.nii.gz";
    std::string dat = shared_file("mri-head-181x217x181.dat");
    if (!file_exists(nii) || !file_exists(dat)) GTEST_SKIP() << "needs mricron-data and ../shared/data";
    nifti_set_debug_level(0);
    nifti_image* src = nifti_image_read(nii.c_str(), 1);
    ASSERT_NE(src, nullptr);
    const int64_t X = src->nx, Y = src->ny, Z = src->nz;
    // New file axes: i = z running down, j = x, k = y running backwards.
    const int64_t dims[8] = {3, Z, X, Y, 1, 1, 1, 1};
    nifti_image* out = nifti_make_new_nim(dims, DT_UINT8, 1);
    const uint8_t* in = (const uint8_t*)src->data;
    uint8_t* o = (uint8_t*)out->data;
    for (int64_t k = 0; k < Y; ++k)
        for (int64_t j = 0; j < X; ++j)
            for (int64_t i = 0; i < Z; ++i) {
                int64_t x = j, y = Y - 1 - k, z = Z - 1 - i;
                o[(k * X + j) * Z + i] = in[(z * Y + y) * X + x];
            }
    out->sform_code = NIFTI_XFORM_MNI_152;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) out->sto_xyz.m[r][c] = 0.0;
    out->sto_xyz.m[2][0] = -1.0;  // i: down
    out->sto_xyz.m[0][1] = 1.0;   // j: to the right
    out->sto_xyz.m[1][2] = -1.0;  // k: to the back
    out->sto_xyz.m[3][3] = 1.0;
    nifti_image_free(src);
    std::string path = temp_path("turned.nii.gz");
    write_nifti(out, path, NIFTI_FTYPE_NIFTI1_1);

    reset_import_options();
    import_options.window = true;
    import_options.window_lo = 0;
    import_options.window_hi = 255.9375;
    ImportedVolume v;
    bool ok;
    std::string log = import_log(path, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_TRUE(has_line(log, "turned the file's axes: x = +j, y = -k, z = -i")) << log;
    DatFile d;
    ASSERT_TRUE(read_dat(dat, d));
    ASSERT_EQ(v.size[0], d.size[0]);
    ASSERT_EQ(v.size[1], d.size[1]);
    ASSERT_EQ(v.size[2], d.size[2]);
    EXPECT_TRUE(v.samples == d.samples);
    remove(path.c_str());
    reset_import_options();
}

static std::string pydicom_file(const char* name)
{
    return std::string(pydicom_files) + "/" + name;
}

// A folder of the test's own with copies of some of pydicom's test files: the whole folder of
// them holds many series, and GDCM takes seconds over a few of its odd files.
static std::string folder_with(const char* folder, std::vector<const char*> names)
{
    std::string dir = temp_path(folder);
    mkdir(dir.c_str(), 0700);
    for (const char* name : names) {
        std::vector<uint8_t> bytes = read_file(pydicom_file(name));
        write_bytes(dir + "/" + name, bytes.data(), bytes.size());
    }
    return dir;
}

static void remove_folder(const std::string& dir, std::vector<const char*> names)
{
    for (const char* name : names) remove((dir + "/" + name).c_str());
    rmdir(dir.c_str());
}

// CT_small.dcm is uncompressed and little-endian: its 32768 bytes of pixel data stand behind
// the one pixel data element of the file, and the expected densities are read from there, not
// through GDCM.
TEST(ImportReal, DicomCtInHounsfieldUnits)
{
    if (!file_exists(pydicom_file("CT_small.dcm"))) GTEST_SKIP() << "needs python3-pydicom";
    reset_import_options();
    std::string dir = folder_with("ct_small", {"CT_small.dcm"});
    std::string path = dir + "/CT_small.dcm";
    std::vector<uint8_t> bytes = read_file(path);
    const uint8_t element[12] = {0xe0, 0x7f, 0x10, 0x00, 'O', 'W', 0, 0, 0x00, 0x80, 0x00, 0x00};
    auto found = std::search(bytes.begin(), bytes.end(), element, element + 12);
    ASSERT_NE(found, bytes.end());
    ASSERT_EQ(std::search(found + 1, bytes.end(), element, element + 12), bytes.end());
    const size_t data = (size_t)(found - bytes.begin()) + 12;
    ASSERT_LE(data + 32768, bytes.size());
    ImportedVolume v;
    bool ok;
    std::string log = import_log(path, v, ok);
    ASSERT_TRUE(ok) << log;
    EXPECT_TRUE(has_line(log, "DICOM " + path + ": 128 x 128 x 1 samples of i16, 0.661468 x 0.661468 x 1 mm")) << log;
    EXPECT_TRUE(has_line(log, "mapped hounsfield units -1024..3071 to 0..4095")) << log;
    EXPECT_TRUE(has_line(log, "turned the file's axes: x = -i, y = -j, z = +k")) << log;
    ASSERT_EQ(v.size[0], 128u);
    ASSERT_EQ(v.size[1], 128u);
    ASSERT_EQ(v.size[2], 1u);
    // Column c, row r of the image lands at x = 127 - c, y = 127 - r. Rescale intercept -1024:
    // density = stored - 1024 + 1024.
    int checked = 0;
    for (uint32_t r = 0; r < 128; r += 9)
        for (uint32_t c = 0; c < 128; c += 7) {
            int stored = (int16_t)(bytes[data + 2 * (r * 128 + c)] | bytes[data + 2 * (r * 128 + c) + 1] << 8);
            int expected = std::min(4095, std::max(0, stored));
            EXPECT_EQ(at(v, 127 - c, 127 - r, 0), expected) << c << "," << r;
            checked += expected > 0;
        }
    EXPECT_GT(checked, 100);
    // The folder opens the same series.
    ImportedVolume w;
    import_log(dir, w, ok);
    ASSERT_TRUE(ok);
    EXPECT_TRUE(w.samples == v.samples);
    remove_folder(dir, {"CT_small.dcm"});
}

TEST(ImportReal, CompressedDicomDecodesToTheSameVolume)
{
    if (!file_exists(pydicom_file("MR_small.dcm"))) GTEST_SKIP() << "needs python3-pydicom";
    reset_import_options();
    const std::vector<const char*> names = {"MR_small.dcm", "MR_small_RLE.dcm",
                                            "MR_small_jpeg_ls_lossless.dcm", "MR_small_jp2klossless.dcm",
                                            "MR_small_bigendian.dcm", "MR_small_implicit.dcm"};
    std::string dir = folder_with("mr_small", names);
    ImportedVolume reference;
    bool ok;
    std::string plain = dir + "/MR_small.dcm";
    std::string log = import_log(plain, reference, ok);
    ASSERT_TRUE(ok) << log;
    // The same image in other transfer syntaxes, with the same instance UID, counts once.
    EXPECT_TRUE(has_line(log, plain + ": left out 5 copies of images already in the series")) << log;
    EXPECT_TRUE(has_line(log, "mapped values 148..1844 (0.5 % to 99.5 % of the samples) to 0..4095")) << log;
    for (const char* name : names) {
        ImportedVolume v;
        log = import_log(dir + "/" + name, v, ok);
        ASSERT_TRUE(ok) << name << "\n" << log;
        EXPECT_TRUE(v.samples == reference.samples) << name;
    }
    remove_folder(dir, names);
}

TEST(ImportReal, DamagedDicomFilesAreRefusedWithTheirReason)
{
    if (!file_exists(pydicom_file("MR_truncated.dcm"))) GTEST_SKIP() << "needs python3-pydicom";
    reset_import_options();
    const std::vector<const char*> names = {"MR_small.dcm", "MR_truncated.dcm"};
    std::string dir = folder_with("damaged", names);
    ImportedVolume v;
    bool ok;
    std::string truncated = dir + "/MR_truncated.dcm";
    std::string log = import_log(truncated, v, ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(has_line(log, "can't read " + truncated + ": the file ends early, its pixel data are cut short")) << log;
    remove_folder(dir, names);

    dir = folder_with("colour", {"SC_rgb_rle.dcm"});
    std::string colour = dir + "/SC_rgb_rle.dcm";
    log = import_log(colour, v, ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(has_line(log, "can't read " + colour + ": a colour image (RGB); tavok reads grey-scale scans")) << log;
    remove_folder(dir, {"SC_rgb_rle.dcm"});

    // A damaged DICOMDIR makes GDCM abort: the reader's process dies, this one says why.
    std::string broken = pydicom_file("dicomdirtests/DICOMDIR-nooffset");
    std::string copy = temp_path("broken.dcm");
    std::vector<uint8_t> bytes = read_file(broken);
    write_bytes(copy, bytes.data(), bytes.size());
    log = import_log(copy, v, ok);
    EXPECT_FALSE(ok);
    EXPECT_NE(log.find("can't read " + copy + ": GDCM failed on it (signal "), std::string::npos) << log;
    remove(copy.c_str());
}

// ---------------------------------------------------------------------------------------------
// The load.

static std::string write_imported_dat(const ImportedVolume& v, const char* name)
{
    return write_dat(name, (int)v.size[0], (int)v.size[1], (int)v.size[2], v.samples);
}

// Through the load path: a scan and the .dat written from its import give the same grid,
// histogram, gradients and panel entry.
TEST(ImportLoad, TheGridIsTheOneItsDatGives)
{
    start_fresh();
    identity_window();
    import_options.keep_grid = true;
    // Odd sizes, values across the noise threshold.
    nifti_image* nim = small_nifti(1);
    int16_t* d = (int16_t*)nim->data;
    for (int i = 0; i < 12; ++i) d[i] = int16_t(i * 371);
    std::string path = temp_path("load.nii");
    write_nifti(nim, path, NIFTI_FTYPE_NIFTI1_1);
    ImportedVolume v;
    bool ok;
    import_log(path, v, ok);
    ASSERT_TRUE(ok);
    std::string dat = write_imported_dat(v, "load.dat");

    captured_stdout([&] { ASSERT_TRUE(load_volume_file(dat.c_str())); });
    std::vector<uint32_t> dat_grid(voxels, voxels + (size_t)vol_x * vol_y * vol_z);
    std::vector<uint32_t> dat_histo(histo, histo + 4096);
    std::string dat_dims = null_vol_dim;
    uint32_t dat_size[3] = {vol_x, vol_y, vol_z};

    std::vector<GradientRecord> dat_gradients(gradients, gradients + (size_t)vol_x * vol_y * vol_z);
    uint32_t dat_max_histo = max_histo;

    start_fresh();
    std::string log = captured_stdout([&] { ASSERT_TRUE(load_volume_file(path.c_str())); });
    EXPECT_EQ(log.find("Orlen-data"), std::string::npos) << log;  // the .dat loader's line only
    EXPECT_EQ(vol_x, dat_size[0]);
    EXPECT_EQ(vol_y, dat_size[1]);
    EXPECT_EQ(vol_z, dat_size[2]);
    EXPECT_EQ(vol_x, 3u + 4);
    EXPECT_TRUE(std::vector<uint32_t>(voxels, voxels + (size_t)vol_x * vol_y * vol_z) == dat_grid);
    EXPECT_TRUE(std::vector<uint32_t>(histo, histo + 4096) == dat_histo);
    EXPECT_EQ(histo[371], 1u);               // counted, though below the noise threshold
    EXPECT_EQ(voxels[voxel_index(3, 2, 2)] & density_mask, 0u);  // and stored as 0
    EXPECT_EQ(std::string(null_vol_dim), dat_dims);
    EXPECT_EQ(max_histo, dat_max_histo);
    EXPECT_EQ(memcmp(gradients, dat_gradients.data(), dat_gradients.size() * sizeof(GradientRecord)), 0);
    EXPECT_EQ(std::string(last_volume_path), path);
    remove(path.c_str());
    remove(dat.c_str());
    reset_import_options();
}

TEST(ImportLoad, AFailedImportLeavesTheOldVolume)
{
    start_fresh();
    reset_import_options();
    auto samples = make_samples(5, 3, 7, [](int x, int y, int z) { return 600 + x + 10 * y + 100 * z; });
    std::string dat = write_dat("old.dat", 5, 3, 7, samples);
    captured_stdout([&] { ASSERT_TRUE(load_volume_file(dat.c_str())); });
    const uint32_t* old_voxels = voxels;
    std::vector<uint32_t> old_grid(voxels, voxels + (size_t)vol_x * vol_y * vol_z);
    std::vector<uint32_t> old_histo(histo, histo + 4096);
    std::string old_dims = null_vol_dim;

    std::string bad = temp_path("bad.nii");
    write_text(bad, "not a scan");
    std::string log = captured_stdout([&] { EXPECT_FALSE(load_volume_file(bad.c_str())); });
    EXPECT_TRUE(has_line(log, "can't read " + bad + ": not a NIfTI file that niftilib can read")) << log;
    EXPECT_EQ(voxels, old_voxels);
    EXPECT_EQ(vol_x, 9u);
    EXPECT_TRUE(std::vector<uint32_t>(voxels, voxels + (size_t)vol_x * vol_y * vol_z) == old_grid);
    EXPECT_TRUE(std::vector<uint32_t>(histo, histo + 4096) == old_histo);
    EXPECT_EQ(std::string(null_vol_dim), old_dims);
    EXPECT_EQ(std::string(last_volume_path), dat);
    // The reason, from the reader's process, is the one the panel shows.
    EXPECT_EQ(std::string(load_refusal), "can't read " + bad + ": not a NIfTI file that niftilib can read");
    EXPECT_EQ(std::string(import_refusal), std::string(load_refusal));
    remove(bad.c_str());
    remove(dat.c_str());
}
