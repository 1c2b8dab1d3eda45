// png_zlib.h — tavok-render's compressed PNG writer: 8-bit RGB through zlib's deflate, each
// row with the PNG filter that suits it best. Linked into tavok-render only; the window's
// screenshots and the library keep their own writer of stored blocks (src/output/png.h).
#pragma once
#include <cstdint>

// Writes width x height pixels, 0x00RRGGBB in rows from the top (the top byte is ignored), to
// path. False when the file can't be opened or a write fails (errno tells why); the caller
// removes what was written.
bool write_png_zlib(const char* path, const uint32_t* pixels, int width, int height);
