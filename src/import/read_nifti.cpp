// read_nifti.cpp — NIfTI-1 and NIfTI-2 (.nii, .nii.gz, .hdr/.img pairs) through niftilib's
// nifti2 library, which reads both versions and swaps bytes to the host's order. The first
// three dimensions are the volume; of a file with more only the first volume is read, and the
// log says so. Orientation comes from the sform when it is set, else from the qform, else the
// axes are taken as they stand; the scale slope and intercept are applied.
//
// Called by import.cpp through read_nifti; niftilib's own messages are silenced.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

#include <nifti2_io.h>

#include "import/import_local.h"

static bool sample_type_of(int datatype, SampleType& type)
{
    switch (datatype) {
    case DT_UINT8: type = SampleType::u8; return true;
    case DT_INT8: type = SampleType::i8; return true;
    case DT_UINT16: type = SampleType::u16; return true;
    case DT_INT16: type = SampleType::i16; return true;
    case DT_UINT32: type = SampleType::u32; return true;
    case DT_INT32: type = SampleType::i32; return true;
    case DT_FLOAT32: type = SampleType::f32; return true;
    case DT_FLOAT64: type = SampleType::f64; return true;
    default: return false;
    }
}

// The file that holds the samples, and its length when it is not compressed (-1 otherwise).
static long long uncompressed_length(const nifti_image* nim)
{
    struct stat st;
    if (!nim->iname || nifti_is_gzfile(nim->iname) || stat(nim->iname, &st) != 0) return -1;
    return (long long)st.st_size;
}

bool read_nifti(const char* path, SourceVolume& src)
{
    nifti_set_debug_level(0);
    nifti_image* nim = nifti_image_read(path, 0);
    if (!nim) {
        refuse_import("can't read %s: not a NIfTI file that niftilib can read", path);
        return false;
    }
    struct Closer {
        nifti_image* nim;
        ~Closer() { nifti_image_free(nim); }
    } closer{nim};

    if (!sample_type_of(nim->datatype, src.type)) {
        refuse_import("can't read %s: samples of type %s are not supported (grey-scale integers and "
               "floats are)", path, nifti_datatype_string(nim->datatype));
        return false;
    }
    int64_t n[3] = {nim->nx, nim->ny, nim->nz};
    for (int a = 0; a < 3; ++a) {
        if (nim->ndim < a + 1) n[a] = 1;
        if (n[a] < 1 || n[a] > 65535) {
            refuse_import("can't read %s: a size of %lld along axis %d", path, (long long)n[a], a + 1);
            return false;
        }
        src.size[a] = (uint32_t)n[a];
    }
    int64_t volumes = nim->nvox / (n[0] * n[1] * n[2]);
    if (volumes > 1)
        printf("%s has %lld dimensions (%lld volumes of %lld x %lld x %lld): using the first volume\n",
               path, (long long)nim->ndim, (long long)volumes, (long long)n[0], (long long)n[1],
               (long long)n[2]);

    // niftilib reads short files without complaint in some paths: check the length of an
    // uncompressed one first.
    long long needed = (long long)nim->iname_offset + (long long)nim->nbyper * n[0] * n[1] * n[2];
    long long have = uncompressed_length(nim);
    if (have >= 0 && have < needed) {
        refuse_import("can't read %s: the file ends early (%lld bytes, the first volume needs %lld)",
               nim->iname, have, needed);
        return false;
    }
    // Index 0 of every dimension above the third: the first volume only.
    const int64_t dims[8] = {0, -1, -1, -1, 0, 0, 0, 0};
    void* data = nullptr;
    int64_t got = nifti_read_collapsed_image(nim, dims, &data);
    if (got < 0 || data == nullptr) {
        free(data);
        refuse_import("can't read %s: its samples end early or are damaged", path);
        return false;
    }
    src.data = data;
    // The image record says NIfTI-1 for either version: the header itself tells.
    int version = 0;
    free(nifti_read_header(path, &version, 0));
    src.format = nim->nifti_type == NIFTI_FTYPE_ANALYZE ? "Analyze" : version == 2 ? "NIfTI-2" : "NIfTI-1";
    if (nim->scl_slope != 0.0 && std::isfinite(nim->scl_slope) && std::isfinite(nim->scl_inter)) {
        src.slope = nim->scl_slope;
        src.intercept = nim->scl_inter;
    }

    // Columns of the matrix from voxel to world (x to the right, y to the front, z up): their
    // lengths are the spacings, their directions the axes.
    const nifti_dmat44* m = nim->sform_code > 0 ? &nim->sto_xyz : nim->qform_code > 0 ? &nim->qto_xyz : nullptr;
    const double pixdim[3] = {nim->dx, nim->dy, nim->dz};
    for (int a = 0; a < 3; ++a) {
        double col[3] = {a == 0 ? 1.0 : 0.0, a == 1 ? 1.0 : 0.0, a == 2 ? 1.0 : 0.0};
        if (m)
            for (int r = 0; r < 3; ++r) col[r] = m->m[r][a];
        double len = sqrt(col[0] * col[0] + col[1] * col[1] + col[2] * col[2]);
        if (!(len > 0.0)) {
            col[0] = a == 0;
            col[1] = a == 1;
            col[2] = a == 2;
            len = 1.0;
        }
        for (int r = 0; r < 3; ++r) src.axis[a][r] = col[r] / len;
        src.spacing[a] = m ? len : fabs(pixdim[a]);
    }
    return true;
}
