// read_nrrd.cpp — NRRD (.nrrd, and .nhdr with its detached data) through teem, which reads
// every encoding it was built with and swaps bytes to the host's order. The first three
// domain axes are the volume; every other axis (components, time) is sliced at its first
// index, and the log says so. Space directions give spacing and orientation, turned from
// DICOM's or Analyze's space into x right, y front, z up.
//
// Called by import.cpp through read_nrrd; teem's errors become one message of ours.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include <teem/biff.h>
#include <teem/nrrd.h>

#include "import/import_local.h"

static bool sample_type_of(int type, SampleType& out)
{
    switch (type) {
    case nrrdTypeUChar: out = SampleType::u8; return true;
    case nrrdTypeChar: out = SampleType::i8; return true;
    case nrrdTypeUShort: out = SampleType::u16; return true;
    case nrrdTypeShort: out = SampleType::i16; return true;
    case nrrdTypeUInt: out = SampleType::u32; return true;
    case nrrdTypeInt: out = SampleType::i32; return true;
    case nrrdTypeFloat: out = SampleType::f32; return true;
    case nrrdTypeDouble: out = SampleType::f64; return true;
    default: return false;
    }
}

// teem's error text, last line first: the innermost reason is the clearest.
static std::string teem_error()
{
    char* text = biffGetDone(NRRD);
    std::string s = text ? text : "unknown error";
    free(text);
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
    size_t last = s.find_last_of('\n');
    std::string line = last == std::string::npos ? s : s.substr(last + 1);
    size_t colon = line.find("] ");
    if (colon != std::string::npos) line = line.substr(colon + 2);
    size_t start = line.find_first_not_of(' ');
    return start == std::string::npos ? line : line.substr(start);
}

bool read_nrrd(const char* path, SourceVolume& src)
{
    Nrrd* nrrd = nrrdNew();
    struct Closer {
        Nrrd* n;
        ~Closer() { nrrdNuke(n); }
    } closer{nrrd};
    if (nrrdLoad(nrrd, path, nullptr)) {
        std::string why = teem_error();
        if (why.find("read") != std::string::npos || why.find("short") != std::string::npos ||
            why.find("EOF") != std::string::npos)
            refuse_import("can't read %s: the data end early or can't be read (%s)", path, why.c_str());
        else
            refuse_import("can't read %s: not an NRRD file that teem can read (%s)", path, why.c_str());
        return false;
    }
    if (!sample_type_of(nrrd->type, src.type)) {
        refuse_import("can't read %s: samples of NRRD type %d are not supported (grey-scale integers "
               "and floats are)", path, nrrd->type);
        return false;
    }

    // The volume's axes: the first three domain axes (of a file that marks none, the first
    // three). Every other axis is sliced at index 0, from the last down.
    unsigned domain[NRRD_DIM_MAX];
    unsigned n_domain = nrrdDomainAxesGet(nrrd, domain);
    if (n_domain == 0) {
        n_domain = nrrd->dim;
        for (unsigned a = 0; a < nrrd->dim; ++a) domain[a] = a;
    }
    if (n_domain > 3) n_domain = 3;
    bool keep[NRRD_DIM_MAX] = {};
    for (unsigned a = 0; a < n_domain; ++a) keep[domain[a]] = true;
    if (nrrd->dim > n_domain)
        printf("%s has %u dimensions: using the first volume\n", path, nrrd->dim);
    for (int a = (int)nrrd->dim - 1; a >= 0; --a) {
        if (keep[a] || nrrd->dim <= 1) continue;
        Nrrd* sliced = nrrdNew();
        if (nrrdSlice(sliced, nrrd, (unsigned)a, 0)) {
            refuse_import("can't read %s: %s", path, teem_error().c_str());
            nrrdNuke(sliced);
            return false;
        }
        nrrdNuke(nrrd);
        nrrd = closer.n = sliced;
        for (unsigned b = (unsigned)a; b + 1 < NRRD_DIM_MAX; ++b) keep[b] = keep[b + 1];
    }

    // Space directions are given in the file's space; turn them into x right, y front, z up.
    double sign[3] = {1, 1, 1};
    switch (nrrd->space) {
    case nrrdSpaceLeftPosteriorSuperior:
    case nrrdSpaceLeftPosteriorSuperiorTime:
    case nrrdSpaceScannerXYZ: sign[0] = sign[1] = -1; break;
    case nrrdSpaceLeftAnteriorSuperior:
    case nrrdSpaceLeftAnteriorSuperiorTime: sign[0] = -1; break;
    default: break;
    }
    for (unsigned a = 0; a < 3; ++a) {
        if (a >= nrrd->dim) {
            src.size[a] = 1;
            continue;
        }
        const NrrdAxisInfo& axis = nrrd->axis[a];
        if (axis.size < 1 || axis.size > 65535) {
            refuse_import("can't read %s: a size of %zu along axis %u", path, axis.size, a + 1);
            return false;
        }
        src.size[a] = (uint32_t)axis.size;
        double spacing = 1.0, vec[NRRD_SPACE_DIM_MAX];
        int status = nrrdSpacingCalculate(nrrd, a, &spacing, vec);
        if (status == nrrdSpacingStatusDirection && nrrd->spaceDim >= 3) {
            for (int r = 0; r < 3; ++r) src.axis[a][r] = vec[r] * sign[r];
        }
        src.spacing[a] = std::isfinite(spacing) && spacing > 0.0 ? spacing : 1.0;
    }
    src.format = "NRRD";
    src.data = nrrd->data;
    nrrd->data = nullptr;
    return true;
}
