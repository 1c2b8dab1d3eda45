// import.h — opens the scans people have, DICOM series, NIfTI-1 and -2, NRRD and raw sample
// dumps, and turns them into the same 12-bit grid that a .dat file gives: values mapped to
// densities 0..4095, axes turned so that x runs to the patient's right, y to the face and z to
// the crown, voxels resampled to cubes, and the grid reduced when it would not fit.
//
// The readers are the well-kept libraries of each format (GDCM, niftilib, teem); this room
// only chooses, checks, maps and resamples. It depends on core and volume; only the program's
// top (the load path), tavok-render and tavok-import call it. Everything is read and
// converted before the old volume is touched: a file that fails leaves the grid as it was.
// It calls none of the rooms; volume.h gives it only the grid's size limit.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

// The sample types of the files read. Raw input takes u8, i16, u16 and f32.
enum class SampleType : uint8_t { u8, i8, u16, i16, u32, i32, f32, f64 };

// The command-line options of the importer, the same for tavok, tavok-render and
// tavok-import. Set once from the command line; every later load (the file chooser too) uses
// them.
struct ImportOptions {
    // --raw X,Y,Z,TYPE[,le|be]: a file that is no .dat and no known format holds X * Y * Z
    // samples of TYPE (u8, i16, u16, f32), x fastest, little-endian unless be is given.
    bool raw = false;
    uint32_t raw_size[3] = {0, 0, 0};
    SampleType raw_type = SampleType::u8;
    bool raw_big_endian = false;
    // --window LO,HI: values LO..HI map linearly to 0..4095, overriding the automatic choice.
    bool window = false;
    double window_lo = 0.0, window_hi = 0.0;
    // --keep-grid: no resampling to cubic voxels.
    bool keep_grid = false;
    // --max-size N: the longest side of the grid is at most N voxels (0: only the limits of
    // the grid itself).
    uint32_t max_size = 0;
};
extern ImportOptions import_options;

// The options' lines for a usage text, and the parser: an import option at argv[k] (with its
// value in argv[k + 1]) is taken into import_options and the number of arguments it used is
// returned; 0 means argv[k] is no import option; -1 means it is one with a bad value, and
// error says what is wrong.
extern const char import_usage_text[];
int parse_import_option(int argc, char** argv, int k, std::string& error);

// A converted volume: 12-bit densities in the order of a .dat file's samples.
struct ImportedVolume {
    uint32_t size[3] = {0, 0, 0};   // samples along x, y, z (no margin)
    double spacing[3] = {1, 1, 1};  // millimetres per voxel along x, y, z
    std::vector<uint16_t> samples;  // 0..4095, x fastest, then y, then z
};

// Whether the load path gives this file to the importer rather than to the .dat loader: a
// directory, a name ending in a known extension (any case: .dcm, .nii, .nii.gz, .hdr, .img,
// .nrrd, .nhdr), a file whose first bytes say DICOM, NIfTI or NRRD, and with --raw any other
// file whose name does not end in .dat. A .dat, .kvx or .vox file never is.
bool is_import_path(const char* path);

// Reads, maps, turns and resamples the file into out. On failure prints one message naming the
// file and what is wrong and returns false; nothing else changes. The load path builds the grid
// from out with replace_grid and store_samples, as the .dat loader does.
// memory_budget, when not 0, is the most bytes the grid may take with its gradients (20 a
// voxel, margin included): a larger grid is reduced like one beyond --max-size.
bool import_volume(const char* path, ImportedVolume& out, uint64_t memory_budget = 0);

// Why the latest import failed: its message, without the newline (empty after a good one). The
// load path shows it in the panel.
extern char import_refusal[4096];

// Called with the fraction done, 0..1, while slices are read and the grid is resampled; null
// by default. tavok-import draws a bar on the terminal with it; tavok shows GUIprogressBar.
extern void (*import_progress)(double fraction);
