// read_raw.cpp — raw sample dumps described by --raw X,Y,Z,TYPE[,le|be]: X * Y * Z samples of
// u8, i16, u16 or f32 from the start of the file, x fastest, then y, then z. Nothing in such a
// file says where the patient lies, so the axes stay as they are, with 1 mm spacing.
//
// Called by import.cpp through read_raw; reads import_options.
#include <bit>
#include <cstdio>
#include <cstring>
#include <utility>

#include "import/import_local.h"

bool read_raw(const char* path, SourceVolume& src)
{
    const ImportOptions& o = import_options;
    FILE* file = fopen(path, "rb");
    if (!file) {
        refuse_import("can't open file %s", path);
        return false;
    }
    fseek(file, 0, SEEK_END);
    long long have = ftell(file);
    fseek(file, 0, SEEK_SET);
    size_t bytes = sample_bytes(o.raw_type);
    size_t slice = (size_t)o.raw_size[0] * o.raw_size[1] * bytes;
    long long needed = (long long)slice * o.raw_size[2];
    if (have < needed) {
        refuse_import("can't read %s: the file ends early (%lld bytes, %u x %u x %u samples of %s need %lld)",
               path, have, o.raw_size[0], o.raw_size[1], o.raw_size[2], sample_type_name(o.raw_type),
               needed);
        fclose(file);
        return false;
    }
    if (have > needed)
        printf("%s has %lld bytes beyond its %u x %u x %u samples: they are left out\n", path,
               have - needed, o.raw_size[0], o.raw_size[1], o.raw_size[2]);
    src.data = malloc((size_t)needed);
    if (!src.data) {
        refuse_import("can't read %s: not enough memory for %lld bytes", path, needed);
        fclose(file);
        return false;
    }
    // Slice by slice, so that a long read shows its progress.
    for (uint32_t z = 0; z < o.raw_size[2]; ++z) {
        if (fread((char*)src.data + z * slice, 1, slice, file) != slice) {
            refuse_import("can't read %s: reading slice %u failed", path, z);
            fclose(file);
            return false;
        }
        report_progress((z + 1.0) / o.raw_size[2]);
    }
    fclose(file);

    bool swap = o.raw_big_endian == (std::endian::native == std::endian::little) && bytes > 1;
    if (swap) {
        uint8_t* b = (uint8_t*)src.data;
        for (long long i = 0; i < needed; i += bytes)
            for (size_t k = 0; k < bytes / 2; ++k) std::swap(b[i + k], b[i + bytes - 1 - k]);
    }
    src.format = "raw";
    src.type = o.raw_type;
    for (int a = 0; a < 3; ++a) src.size[a] = o.raw_size[a];
    return true;
}
