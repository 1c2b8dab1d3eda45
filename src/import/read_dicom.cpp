// read_dicom.cpp — DICOM through GDCM: a directory, or any file of a series, becomes one
// volume. The series is found by its series instance UID, sorted by image position along the
// slice normal (never by file name), and checked: every slice the same size, type and
// orientation, no two at one position, no gap. Rescale slope and intercept are applied (per
// slice when they differ), every transfer syntax GDCM decodes is read, and a CT (modality CT,
// or a rescale type of HU) is marked as Hounsfield units.
//
// Called by import.cpp through read_dicom; GDCM's own warnings are silenced, its failures
// become one message of ours naming the file.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <strings.h>
#include <sys/stat.h>
#include <vector>

#include <gdcmDirectory.h>
#include <gdcmExplicitDataElement.h>
#include <gdcmImage.h>
#include <gdcmImageReader.h>
#include <gdcmImplicitDataElement.h>
#include <gdcmScanner.h>
#include <gdcmStringFilter.h>
#include <gdcmTrace.h>

#include "import/import_local.h"

static const gdcm::Tag tag_series_uid(0x0020, 0x000e);
static const gdcm::Tag tag_position(0x0020, 0x0032);
static const gdcm::Tag tag_orientation(0x0020, 0x0037);
static const gdcm::Tag tag_modality(0x0008, 0x0060);
static const gdcm::Tag tag_rescale_type(0x0028, 0x1054);
static const gdcm::Tag tag_instance_uid(0x0008, 0x0018);

static std::string trimmed(const char* text)
{
    std::string s = text ? text : "";
    size_t a = s.find_first_not_of(" \t\r\n"), b = s.find_last_not_of(" \t\r\n");
    return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

static bool parse_numbers(const char* text, double* v, int count)
{
    if (!text) return false;
    const char* p = text;
    for (int i = 0; i < count; ++i) {
        char* end = nullptr;
        v[i] = strtod(p, &end);
        if (end == p) return false;
        p = end;
        while (*p == ' ') ++p;
        if (i + 1 < count) {
            if (*p != '\\') return false;
            ++p;
        }
    }
    return true;
}

static std::string parent_folder(const std::string& file)
{
    size_t slash = file.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return file.substr(0, slash);
}

static std::string file_name(const std::string& path)
{
    size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

static long long file_size(const char* path)
{
    struct stat st;
    return stat(path, &st) == 0 ? (long long)st.st_size : -1;
}

// One slice file of the series, in the order of its position along the normal.
struct SliceFile {
    std::string path;
    double position = 0.0;  // image position projected on the slice normal, mm
};

// The files of the series to open: all files of the directory (searched through its
// subfolders) or of the file's folder that share the chosen series UID. A directory's series
// is the one with the most files; a file's is its own.
static bool find_series(const char* path, bool is_folder, gdcm::Scanner& scanner,
                        std::vector<std::string>& files)
{
    gdcm::Directory dir;
    std::string folder = is_folder ? std::string(path) : parent_folder(path);
    dir.Load(folder, is_folder);
    // DICOMDIR files index a medium; they hold no image.
    gdcm::Directory::FilenamesType names;
    for (const std::string& name : dir.GetFilenames())
        if (strncasecmp(file_name(name).c_str(), "DICOMDIR", 8) != 0) names.push_back(name);
    if (!is_folder && std::find(names.begin(), names.end(), std::string(path)) == names.end())
        names.push_back(path);
    scanner.AddTag(tag_series_uid);
    scanner.AddTag(tag_position);
    scanner.AddTag(tag_orientation);
    scanner.AddTag(tag_modality);
    scanner.AddTag(tag_rescale_type);
    scanner.AddTag(tag_instance_uid);
    scanner.Scan(names);

    std::string uid;
    if (!is_folder) {
        if (!scanner.IsKey(path)) {
            refuse_import("can't read %s: not a DICOM file that GDCM can read", path);
            return false;
        }
        uid = trimmed(scanner.GetValue(path, tag_series_uid));
        if (uid.empty()) {
            files.push_back(path);
            return true;
        }
    }
    std::map<std::string, std::vector<std::string>> series;
    for (const std::string& name : names)
        if (scanner.IsKey(name.c_str()))
            series[trimmed(scanner.GetValue(name.c_str(), tag_series_uid))].push_back(name);
    if (series.empty()) {
        refuse_import("can't read %s: it holds no DICOM files", path);
        return false;
    }
    if (is_folder) {
        for (const auto& [id, members] : series)
            if (uid.empty() || members.size() > series[uid].size()) uid = id;
        if (series.size() > 1)
            printf("%s holds %zu series: opening the one of %zu files\n", path, series.size(),
                   series[uid].size());
    }
    // Copies of one image (the same instance UID, as an export in two transfer syntaxes
    // makes) count once: the named file, or else the first by name.
    std::sort(series[uid].begin(), series[uid].end());
    std::map<std::string, std::string> by_instance;
    size_t copies = 0;
    for (const std::string& name : series[uid]) {
        std::string instance = trimmed(scanner.GetValue(name.c_str(), tag_instance_uid));
        if (instance.empty()) {
            files.push_back(name);
            continue;
        }
        auto [it, fresh] = by_instance.emplace(instance, name);
        if (!fresh) {
            copies += 1;
            if (!is_folder && name == path) it->second = name;
        }
    }
    for (const auto& [instance, name] : by_instance) files.push_back(name);
    if (copies)
        printf("%s: left out %zu %s of images already in the series\n", path, copies,
               copies == 1 ? "copy" : "copies");
    return true;
}

// Sorts the files along the slice normal of the first and checks the steps between them.
// spacing receives the step (the median of them), or 0 for a single file.
static bool sort_slices(const char* path, const gdcm::Scanner& scanner,
                        const std::vector<std::string>& files, std::vector<SliceFile>& slices,
                        const double normal[3], double& spacing)
{
    spacing = 0.0;
    for (const std::string& f : files) {
        SliceFile s;
        s.path = f;
        double p[3] = {0, 0, 0};
        if (!parse_numbers(scanner.GetValue(f.c_str(), tag_position), p, 3) && files.size() > 1) {
            refuse_import("can't read series %s: slice %s has no image position, so the slices can't be "
                   "stacked", path, file_name(f).c_str());
            return false;
        }
        s.position = p[0] * normal[0] + p[1] * normal[1] + p[2] * normal[2];
        slices.push_back(s);
    }
    std::sort(slices.begin(), slices.end(), [](const SliceFile& a, const SliceFile& b) {
        return a.position < b.position || (a.position == b.position && a.path < b.path);
    });
    if (slices.size() < 2) return true;
    std::vector<double> steps;
    for (size_t i = 1; i < slices.size(); ++i) steps.push_back(slices[i].position - slices[i - 1].position);
    for (size_t i = 0; i < steps.size(); ++i)
        if (steps[i] < 0.001) {
            refuse_import("can't read series %s: slices %s and %s stand at the same position (%.4g mm)",
                   path, file_name(slices[i].path).c_str(), file_name(slices[i + 1].path).c_str(),
                   slices[i].position);
            return false;
        }
    std::vector<double> sorted = steps;
    std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
    spacing = sorted[sorted.size() / 2];
    // Positions are written with a few decimals: a tenth of the step is far above rounding.
    for (size_t i = 0; i < steps.size(); ++i) {
        if (fabs(steps[i] - spacing) <= 0.1 * spacing) continue;
        std::string a = file_name(slices[i].path), b = file_name(slices[i + 1].path);
        if (steps[i] > spacing)
            refuse_import("can't read series %s: a gap of %.4g mm between slices %s and %s, where the "
                   "others are %.4g mm apart (a slice is missing)", path, steps[i], a.c_str(),
                   b.c_str(), spacing);
        else
            refuse_import("can't read series %s: slices %s and %s are %.4g mm apart, the others %.4g mm "
                   "(uneven spacing)", path, a.c_str(), b.c_str(), steps[i], spacing);
        return false;
    }
    return true;
}

// GDCM fills pixel data cut short by the end of the file with zeros and goes on: compare the
// length of what it parsed with the file's (not possible for a deflated data set).
static bool ends_early(const gdcm::ImageReader& reader, const char* path)
{
    const gdcm::File& file = reader.GetFile();
    const gdcm::FileMetaInformation& header = file.GetHeader();
    gdcm::TransferSyntax ts = header.GetDataSetTransferSyntax();
    if (ts == gdcm::TransferSyntax::DeflatedExplicitVRLittleEndian) return false;
    long long parsed = header.IsEmpty() ? 0 : (long long)header.GetFullLength();
    if (ts.GetNegociatedType() == gdcm::TransferSyntax::Implicit)
        parsed += file.GetDataSet().GetLength<gdcm::ImplicitDataElement>();
    else
        parsed += file.GetDataSet().GetLength<gdcm::ExplicitDataElement>();
    return parsed > file_size(path);
}

static bool sample_type_of(const gdcm::PixelFormat& pf, SampleType& type)
{
    switch (pf.GetScalarType()) {
    case gdcm::PixelFormat::UINT8: type = SampleType::u8; return true;
    case gdcm::PixelFormat::INT8: type = SampleType::i8; return true;
    case gdcm::PixelFormat::UINT12:
    case gdcm::PixelFormat::UINT16: type = SampleType::u16; return true;
    case gdcm::PixelFormat::INT12:
    case gdcm::PixelFormat::INT16: type = SampleType::i16; return true;
    case gdcm::PixelFormat::UINT32: type = SampleType::u32; return true;
    case gdcm::PixelFormat::INT32: type = SampleType::i32; return true;
    case gdcm::PixelFormat::FLOAT32: type = SampleType::f32; return true;
    case gdcm::PixelFormat::FLOAT64: type = SampleType::f64; return true;
    default: return false;
    }
}

// Everything of one slice's image that the others must share.
struct SliceForm {
    unsigned dims[3] = {0, 0, 0};
    gdcm::PixelFormat::ScalarType scalar = gdcm::PixelFormat::UNKNOWN;
    double spacing[2] = {0, 0};
    double cosines[6] = {0, 0, 0, 0, 0, 0};
};

static SliceForm form_of(const gdcm::Image& image)
{
    SliceForm f;
    const unsigned* d = image.GetDimensions();
    f.dims[0] = d[0];
    f.dims[1] = d[1];
    f.dims[2] = image.GetNumberOfDimensions() > 2 ? d[2] : 1;
    f.scalar = image.GetPixelFormat().GetScalarType();
    f.spacing[0] = image.GetSpacing()[0];
    f.spacing[1] = image.GetSpacing()[1];
    for (int i = 0; i < 6; ++i) f.cosines[i] = image.GetDirectionCosines()[i];
    return f;
}

// Reads one file's image into the slot of the volume's samples. Checks it against the first
// slice (first is null for the first slice itself).
static bool read_slice(const char* series, const std::string& path, const SliceForm* first,
                       SliceForm& form, void* slot, size_t slot_bytes, double& slope,
                       double& intercept)
{
    std::string name = file_name(path);
    gdcm::ImageReader reader;
    reader.SetFileName(path.c_str());
    if (!reader.Read()) {
        refuse_import("can't read %s: not a DICOM image that GDCM can read", path.c_str());
        return false;
    }
    const gdcm::Image& image = reader.GetImage();
    form = form_of(image);
    const gdcm::PixelFormat& pf = image.GetPixelFormat();
    if (pf.GetSamplesPerPixel() != 1) {
        printf("can't read %s: a colour image (%s); tavok reads grey-scale scans\n", path.c_str(),
               trimmed(gdcm::PhotometricInterpretation::GetPIString(image.GetPhotometricInterpretation())).c_str());
        return false;
    }
    SampleType type;
    if (!sample_type_of(pf, type)) {
        refuse_import("can't read %s: samples of type %s are not supported", path.c_str(),
               pf.GetScalarTypeAsString());
        return false;
    }
    if (first) {
        if (form.dims[0] != first->dims[0] || form.dims[1] != first->dims[1] || form.dims[2] != 1) {
            refuse_import("can't read series %s: slice %s is %u x %u x %u, the first is %u x %u x %u",
                   series, name.c_str(), form.dims[0], form.dims[1], form.dims[2],
                   first->dims[0], first->dims[1], first->dims[2]);
            return false;
        }
        if (form.scalar != first->scalar) {
            refuse_import("can't read series %s: slice %s holds samples of another type than the first",
                   series, name.c_str());
            return false;
        }
        for (int i = 0; i < 6; ++i)
            if (fabs(form.cosines[i] - first->cosines[i]) > 1e-3) {
                refuse_import("can't read series %s: slice %s lies at another orientation than the first",
                       series, name.c_str());
                return false;
            }
        for (int i = 0; i < 2; ++i)
            if (fabs(form.spacing[i] - first->spacing[i]) > 1e-3 * first->spacing[i]) {
                refuse_import("can't read series %s: slice %s has pixels of %g x %g mm, the first %g x %g mm",
                       series, name.c_str(), form.spacing[0], form.spacing[1],
                       first->spacing[0], first->spacing[1]);
                return false;
            }
    }
    if (image.GetBufferLength() != slot_bytes) {
        refuse_import("can't read %s: its pixel data have %zu bytes where %zu were expected",
               path.c_str(), (size_t)image.GetBufferLength(), slot_bytes);
        return false;
    }
    if (ends_early(reader, path.c_str())) {
        refuse_import("can't read %s: the file ends early, its pixel data are cut short", path.c_str());
        return false;
    }
    if (!image.GetBuffer((char*)slot)) {
        refuse_import("can't read %s: GDCM can't decode its pixel data (%s): damaged, cut short or an "
               "unsupported compression", path.c_str(), image.GetTransferSyntax().GetString());
        return false;
    }
    slope = image.GetSlope();
    intercept = image.GetIntercept();
    // MONOCHROME1 shows high values dark: turn them round so that dense stays bright.
    if (image.GetPhotometricInterpretation() == gdcm::PhotometricInterpretation::MONOCHROME1) {
        slope = -slope;
        intercept = -intercept;
    }
    return true;
}

// Converts the stored samples to float values with each slice's own rescale.
template <class T>
static void rescale_slices(const T* in, float* out, size_t per_slice, const std::vector<double>& slopes,
                           const std::vector<double>& intercepts)
{
    for (size_t k = 0; k < slopes.size(); ++k)
        for (size_t i = 0; i < per_slice; ++i, ++in, ++out) *out = (float)(*in * slopes[k] + intercepts[k]);
}

bool read_dicom(const char* path, SourceVolume& src)
{
    gdcm::Trace::WarningOff();
    gdcm::Trace::ErrorOff();
    gdcm::Trace::DebugOff();
    struct stat st;
    if (stat(path, &st) != 0) {
        refuse_import("can't read %s: no such file or folder", path);
        return false;
    }
    bool is_folder = S_ISDIR(st.st_mode);
    gdcm::Scanner scanner;
    std::vector<std::string> files;
    if (!find_series(path, is_folder, scanner, files)) return false;

    // A named image without a position can't be stacked with the others: it opens alone.
    double position[3];
    if (!is_folder && files.size() > 1 && !parse_numbers(scanner.GetValue(path, tag_position), position, 3)) {
        printf("%s has no image position: opening it alone, not its series\n", path);
        files.assign(1, path);
    }
    // The first file in name order fixes the orientation by which all are sorted.
    std::sort(files.begin(), files.end());
    double cosines[6] = {1, 0, 0, 0, 1, 0};
    parse_numbers(scanner.GetValue(files[0].c_str(), tag_orientation), cosines, 6);
    const double* r = cosines;
    const double* c = cosines + 3;
    double normal[3] = {r[1] * c[2] - r[2] * c[1], r[2] * c[0] - r[0] * c[2], r[0] * c[1] - r[1] * c[0]};
    std::vector<SliceFile> slices;
    double slice_step = 0.0;
    if (!sort_slices(path, scanner, files, slices, normal, slice_step)) return false;

    // The first slice gives the form; the buffer holds all of them.
    SliceForm first;
    std::vector<double> slopes(slices.size()), intercepts(slices.size());
    {
        gdcm::ImageReader reader;
        reader.SetFileName(slices[0].path.c_str());
        if (!reader.Read()) {
            refuse_import("can't read %s: not a DICOM image that GDCM can read", slices[0].path.c_str());
            return false;
        }
        first = form_of(reader.GetImage());
        if (first.dims[2] > 1 && slices.size() > 1) {
            refuse_import("can't read series %s: it is made of multi-frame files", path);
            return false;
        }
        const gdcm::PixelFormat& pf = reader.GetImage().GetPixelFormat();
        if (pf.GetSamplesPerPixel() == 1 && !sample_type_of(pf, src.type)) src.type = SampleType::u8;
        if (first.dims[2] > 1) slice_step = reader.GetImage().GetSpacing()[2];
        gdcm::StringFilter sf;
        sf.SetFile(reader.GetFile());
        std::string modality = trimmed(sf.ToString(tag_modality).c_str());
        std::string rescale_type = trimmed(sf.ToString(tag_rescale_type).c_str());
        src.hounsfield = modality == "CT" || rescale_type == "HU";
    }
    size_t per_slice = (size_t)first.dims[0] * first.dims[1] * first.dims[2];
    size_t slot_bytes = per_slice * sample_bytes(src.type);
    src.data = malloc(slot_bytes * slices.size());
    if (!src.data) {
        refuse_import("can't read %s: not enough memory for %zu slices of %u x %u", path, slices.size(),
               first.dims[0], first.dims[1]);
        return false;
    }
    for (size_t k = 0; k < slices.size(); ++k) {
        SliceForm form;
        if (!read_slice(path, slices[k].path, k ? &first : nullptr, form,
                        (char*)src.data + k * slot_bytes, slot_bytes, slopes[k], intercepts[k]))
            return false;
        report_progress((k + 1.0) / slices.size());
    }

    bool one_rescale = true;
    for (size_t k = 1; k < slices.size(); ++k)
        one_rescale &= slopes[k] == slopes[0] && intercepts[k] == intercepts[0];
    if (one_rescale) {
        src.slope = slopes[0];
        src.intercept = intercepts[0];
    } else {
        float* values = (float*)malloc(per_slice * slices.size() * sizeof(float));
        if (!values) {
            refuse_import("can't read %s: not enough memory to rescale its slices", path);
            return false;
        }
        switch (src.type) {
        case SampleType::u8: rescale_slices((const uint8_t*)src.data, values, per_slice, slopes, intercepts); break;
        case SampleType::i8: rescale_slices((const int8_t*)src.data, values, per_slice, slopes, intercepts); break;
        case SampleType::u16: rescale_slices((const uint16_t*)src.data, values, per_slice, slopes, intercepts); break;
        case SampleType::i16: rescale_slices((const int16_t*)src.data, values, per_slice, slopes, intercepts); break;
        case SampleType::u32: rescale_slices((const uint32_t*)src.data, values, per_slice, slopes, intercepts); break;
        case SampleType::i32: rescale_slices((const int32_t*)src.data, values, per_slice, slopes, intercepts); break;
        case SampleType::f32: rescale_slices((const float*)src.data, values, per_slice, slopes, intercepts); break;
        case SampleType::f64: rescale_slices((const double*)src.data, values, per_slice, slopes, intercepts); break;
        }
        free(src.data);
        src.data = values;
        src.type = SampleType::f32;
    }

    src.format = slices.size() > 1 ? "DICOM series" : "DICOM";
    src.size[0] = first.dims[0];
    src.size[1] = first.dims[1];
    src.size[2] = first.dims[2] > 1 ? first.dims[2] : (uint32_t)slices.size();
    src.spacing[0] = first.spacing[0];
    src.spacing[1] = first.spacing[1];
    src.spacing[2] = slice_step > 0.0 ? slice_step : 1.0;
    // DICOM's patient axes run to the left, to the back and up: x and y turn round.
    const double* dirs[3] = {r, c, normal};
    for (int a = 0; a < 3; ++a) {
        src.axis[a][0] = -dirs[a][0];
        src.axis[a][1] = -dirs[a][1];
        src.axis[a][2] = dirs[a][2];
    }
    return true;
}
