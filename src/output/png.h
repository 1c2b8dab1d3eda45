// png.h — the program's own streaming PNG writer: 8-bit RGBA, one IDAT chunk, one stored
// deflate block per row, no compression library. One file at a time (global state).
#pragma once
#include <cstdint>

// Opens the file and writes everything up to the zlib header.
void png_open(const char* path, int width, int height);
// Takes the next pixel, 0x00RRGGBB, rows from the top; the last pixel finishes the file.
void png_put_pixel(uint32_t color);
