// import_helpers.h — small tools for the importer's tests: files written byte by byte, a
// source volume made in memory, the log of a call, and a fresh set of import options.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "helpers.h"
#include "import/import_local.h"

inline void write_bytes(const std::string& path, const void* data, size_t n)
{
    FILE* f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr) << path;
    fwrite(data, 1, n, f);
    fclose(f);
}

inline void write_text(const std::string& path, const std::string& text)
{
    write_bytes(path, text.data(), text.size());
}

template <class T> std::vector<uint8_t> as_bytes(const std::vector<T>& v)
{
    std::vector<uint8_t> b(v.size() * sizeof(T));
    memcpy(b.data(), v.data(), b.size());
    return b;
}

// A source volume of the given type and samples, axes and spacing as given.
template <class T>
void make_source(SourceVolume& src, SampleType type, uint32_t ni, uint32_t nj, uint32_t nk,
                 const std::vector<T>& samples)
{
    src.type = type;
    src.size[0] = ni;
    src.size[1] = nj;
    src.size[2] = nk;
    src.data = malloc(samples.size() * sizeof(T));
    memcpy(src.data, samples.data(), samples.size() * sizeof(T));
}

// Everything the call prints on standard output (the child readers' lines too).
template <class F> std::string captured_stdout(F f)
{
    fflush(stdout);
    testing::internal::CaptureStdout();
    f();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

inline void reset_import_options()
{
    import_options = ImportOptions();
    import_progress = nullptr;
}

inline bool has_line(const std::string& log, const std::string& line)
{
    return log.find(line + "\n") != std::string::npos;
}

inline std::vector<uint8_t> read_file(const std::string& path)
{
    std::vector<uint8_t> b;
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return b;
    fseek(f, 0, SEEK_END);
    b.resize((size_t)ftell(f));
    fseek(f, 0, SEEK_SET);
    size_t got = fread(b.data(), 1, b.size(), f);
    b.resize(got);
    fclose(f);
    return b;
}

// A .dat file's sizes and samples.
struct DatFile {
    uint32_t size[3] = {0, 0, 0};
    std::vector<uint16_t> samples;
};

inline bool read_dat(const std::string& path, DatFile& dat)
{
    std::vector<uint8_t> b = read_file(path);
    if (b.size() < 6) return false;
    for (int a = 0; a < 3; ++a) dat.size[a] = b[2 * a] | b[2 * a + 1] << 8;
    size_t n = (size_t)dat.size[0] * dat.size[1] * dat.size[2];
    if (b.size() < 6 + 2 * n) return false;
    dat.samples.resize(n);
    for (size_t i = 0; i < n; ++i) dat.samples[i] = b[6 + 2 * i] | b[7 + 2 * i] << 8;
    return true;
}

inline bool file_exists(const std::string& path)
{
    FILE* f = fopen(path.c_str(), "rb");
    if (f) fclose(f);
    return f != nullptr;
}
