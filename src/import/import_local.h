// import_local.h — what the importer's files share and nobody else sees: the volume as a
// reader leaves it, the readers, and the steps from there to 12-bit densities.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "import/import.h"

size_t sample_bytes(SampleType type);
const char* sample_type_name(SampleType type);

// A volume as its reader leaves it: the file's own axes i, j, k (i fastest), the stored
// samples in host byte order, and what they mean.
struct SourceVolume {
    const char* format = "";          // "DICOM", "NIfTI-1", "NRRD", ... for the log
    uint32_t size[3] = {0, 0, 0};     // samples along i, j, k
    SampleType type = SampleType::u8;
    void* data = nullptr;             // size[0] * size[1] * size[2] samples, malloc'ed, owned
    double slope = 1.0, intercept = 0.0;  // value = stored * slope + intercept
    double spacing[3] = {1, 1, 1};    // millimetres between samples along i, j, k
    // Unit direction of i, j and k in patient space: +x to the patient's right, +y to the
    // front (anterior), +z up (superior), the frame of NIfTI. Identity when the file says
    // nothing.
    double axis[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    bool hounsfield = false;          // the values are Hounsfield units: a CT
    SourceVolume() = default;
    SourceVolume(const SourceVolume&) = delete;
    SourceVolume& operator=(const SourceVolume&) = delete;
    ~SourceVolume() { free(data); }
};

// The readers. Each prints one message naming the file and what is wrong, and returns false,
// when it can't deliver a whole volume. path is a file, or for DICOM also a directory.
bool read_dicom(const char* path, SourceVolume& src);
bool read_nifti(const char* path, SourceVolume& src);
bool read_nrrd(const char* path, SourceVolume& src);
bool read_raw(const char* path, SourceVolume& src);
void report_progress(double fraction);
// A failure: prints the message as a log line, keeps it in import_refusal, returns false.
bool refuse_import(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A 16-bit grid, x fastest, then y, then z.
struct Grid16 {
    uint32_t n[3] = {0, 0, 0};
    std::vector<uint16_t> v;
};

// How values become densities: density = stored * scale + offset, rounded half up and clamped
// to 0..4095 (NaN gives 0). Chosen by choose_mapping, which prints the log line.
struct Mapping {
    double scale = 1.0, offset = 0.0;
};
Mapping choose_mapping(const SourceVolume& src);

// The file's axes turned onto the grid's: grid axis axis_of[a] holds file axis a, running
// backwards when flipped[a]. Chosen as the permutation whose axes lie closest to the patient
// axes.
struct AxisTurn {
    int axis_of[3] = {0, 1, 2};
    bool flipped[3] = {false, false, false};
};
AxisTurn choose_turn(const double axis[3][3]);

// Maps every sample and stores it where the turn puts it: one pass over the file's samples.
void map_and_turn(const SourceVolume& src, const Mapping& map, const AxisTurn& turn, Grid16& out);

// Box reduction: each output voxel is the mean, rounded half up, of the k[0] x k[1] x k[2]
// input voxels of its box; a box cut by the far face averages the voxels it has. Output sizes
// are ceil(n / k).
void box_reduce(const Grid16& in, const uint32_t k[3], Grid16& out);

// Trilinear resampling: output voxel (x, y, z) is the input at (x * step[0], y * step[1],
// z * step[2]), interpolated along x, then y, then z in double precision and rounded half up.
// A coordinate at or past the last input voxel takes the last voxel.
void resample_trilinear(const Grid16& in, const double step[3], const uint32_t n[3], Grid16& out);
