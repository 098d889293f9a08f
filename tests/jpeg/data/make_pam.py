# Makes the PAM fixtures from golden.ppm: the same pixels as RGB, with an
# alpha channel, as grey (the integer luma zjpeg uses), and a CMYK image.
with open("golden.ppm", "rb") as f:
    data = f.read()
w, h = 45, 29
rgb = data[-w * h * 3:]

def pam(name, depth, tuple_type, pixels):
    with open(name, "wb") as f:
        f.write(b"P7\nWIDTH %d\nHEIGHT %d\nDEPTH %d\nMAXVAL 255\nTUPLTYPE %s\nENDHDR\n"
                % (w, h, depth, tuple_type.encode()))
        f.write(bytes(pixels))

pam("golden_rgb.pam", 3, "RGB", rgb)
rgba = []
for i in range(w * h):
    rgba += list(rgb[i * 3:i * 3 + 3]) + [(i * 37) & 0xFF]
pam("golden_rgba.pam", 4, "RGB_ALPHA", rgba)
grey = [(77 * rgb[i * 3] + 150 * rgb[i * 3 + 1] + 29 * rgb[i * 3 + 2] + 128) >> 8
        for i in range(w * h)]
pam("golden_grey.pam", 1, "GRAYSCALE", grey)
# CMYK: naive complement with black taken out, so all four planes vary.
cmyk = []
for i in range(w * h):
    c, m, y = (255 - v for v in rgb[i * 3:i * 3 + 3])
    k = min(c, m, y) // 2
    cmyk += [c - k, m - k, y - k, k]
pam("golden_cmyk.pam", 4, "CMYK", cmyk)
