"""make_dat_seeds.py DATA_DIR OUT_DIR — seeds for fuzz-dat from the real volumes: from each
.dat file of DATA_DIR a small block of its real samples (11 x 9 x 7 from the middle of the
volume), written as a .dat file of its own, plus the file's header with no samples. The real
files themselves are too large to mutate quickly; their blocks keep their values, noise and
edges. Nothing is written into the project: OUT_DIR is in the build folder.
"""
import os
import struct
import sys


def main():
    data, out = sys.argv[1], sys.argv[2]
    os.makedirs(out, exist_ok=True)
    bx, by, bz = 11, 9, 7
    for name in sorted(os.listdir(data)):
        if not name.endswith(".dat"):
            continue
        with open(os.path.join(data, name), "rb") as f:
            header = f.read(6)
            X, Y, Z = struct.unpack("<3H", header)
            x0, y0, z0 = max(0, X // 2 - bx // 2), max(0, Y // 2 - by // 2), max(0, Z // 2 - bz // 2)
            sx, sy, sz = min(bx, X), min(by, Y), min(bz, Z)
            block = bytearray(struct.pack("<3H", sx, sy, sz))
            for z in range(z0, z0 + sz):
                for y in range(y0, y0 + sy):
                    f.seek(6 + 2 * (x0 + X * (y + Y * z)))
                    block += f.read(2 * sx)
        base = os.path.splitext(name)[0]
        with open(os.path.join(out, base + "-block.dat"), "wb") as f:
            f.write(block)
        with open(os.path.join(out, base + "-header.dat"), "wb") as f:
            f.write(header)


if __name__ == "__main__":
    main()
