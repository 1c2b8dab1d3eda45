// png.h — the program's own streaming PNG writer: 8-bit RGBA, one IDAT chunk, one stored
// deflate block per row, no compression library. One file at a time (global state).
//
// Callers: the screenshot and render-to-file handlers of the panel, tavok-render. The writer
// never holds the image: it takes one pixel at a time and keeps the running CRC-32 and
// Adler-32 as the bytes leave.
#pragma once
#include <cstdint>
#include <cstdio>

// Writer state. Written only by png.cpp; others may read it (a test flushes png_file to look
// at a half-written file).
extern FILE* png_file;           // the open file; null when it could not be opened
extern int png_width, png_height;
extern int png_row, png_col;     // place of the next pixel
extern uint32_t png_crc;         // running CRC of the IDAT chunk, from 0xffffffff
extern uint32_t png_adler;       // running Adler-32: a in the low half, b in the high half
extern uint32_t png_crc_table[256];  // reflected CRC-32 table, polynomial 0xedb88320

// Opens the file and writes everything up to the zlib header. A width of at most 16383 keeps
// a row inside one stored block (4 * width + 1 must fit 16 bits); the caller sees to that.
void png_open(const char* path, int width, int height);
// Takes the next pixel, 0x00RRGGBB (the top byte is ignored), rows from the top, left to
// right. The last of width * height pixels finishes and closes the file; there is no close.
void png_put_pixel(uint32_t color);
// The size of the finished file in bytes: 63 + height * (4 * width + 6).
inline uint64_t png_file_size(int width, int height)
{
    return 63 + (uint64_t)height * (4 * (uint64_t)width + 6);
}

// ---------------------------------------------------------------------------------------------
// Image files (image_file.cpp).

// The file name rule of "Take Screenshot" and "Render to File": a malloc'ed copy of name with
// ".png" added unless name is at least 6 characters long and ends in ".png" in any case. Prints
// what it decides and "saving to file %s". Lowers the case of name's last four characters in
// place (name only, the path keeps its case). Out of memory is fatal ("out of mem - filesaving").
char* screenshot_path(char* name);
// Writes width * height pixels, 0x00RRGGBB, rows from the top, as the PNG file path.
void png_write_image(const char* path, const uint32_t* pixels, int width, int height);
