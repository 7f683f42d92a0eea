#include "image_io.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>

// jpeglib.h needs FILE and size_t declared first.
#include <jpeglib.h>

namespace kvdsrtool {
namespace {

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw std::runtime_error(path + ": " + why);
}

struct FileCloser {
    void operator()(FILE* f) const {
        if (f) std::fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

FilePtr openRead(const std::string& path) {
    FilePtr f(std::fopen(path.c_str(), "rb"));
    if (!f) fail(path, std::string("cannot open: ") + std::strerror(errno));
    return f;
}

bool hasPngSignature(const uint8_t* b, size_t n) { return n >= 8 && png_sig_cmp(b, 0, 8) == 0; }
bool hasJpegSignature(const uint8_t* b, size_t n) { return n >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF; }

// ---- PNG (classic interface: we need the stored bit depth untouched) ----

struct PngRead {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::string error;
    ~PngRead() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

void pngError(png_structp png, png_const_charp msg) {
    auto* self = static_cast<PngRead*>(png_get_error_ptr(png));
    self->error = msg;
    png_longjmp(png, 1);
}
void pngWarning(png_structp, png_const_charp) {}

// Reads a PNG as 8-bit RGB (colour) or as stored grey samples (gray).
void readPng(const std::string& path, bool gray, RgbImage* rgbOut, GrayImage* grayOut) {
    FilePtr f = openRead(path);
    PngRead r;
    r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, pngError, pngWarning);
    if (!r.png) fail(path, "out of memory");
    r.info = png_create_info_struct(r.png);
    if (!r.info) fail(path, "out of memory");
    std::vector<uint8_t> pixels;
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(r.png))) fail(path, "not a readable PNG (" + r.error + ")");
    png_init_io(r.png, f.get());
    png_read_info(r.png, r.info);
    const png_uint_32 w = png_get_image_width(r.png, r.info), h = png_get_image_height(r.png, r.info);
    const int colour = png_get_color_type(r.png, r.info);
    const int depth = png_get_bit_depth(r.png, r.info);
    if (w == 0 || h == 0 || w > 65535 || h > 65535) fail(path, "image size out of range");
    if (gray) {
        if (colour != PNG_COLOR_TYPE_GRAY)
            fail(path, "a disparity map must be a one-channel grey PNG (8 or 16 bits)");
        if (depth < 8) png_set_expand_gray_1_2_4_to_8(r.png);
        if (depth == 16) png_set_swap(r.png);  // host order on little-endian hosts
    } else {
        if (depth == 16) png_set_strip_16(r.png);
        if (colour == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(r.png);
        if (colour == PNG_COLOR_TYPE_GRAY || colour == PNG_COLOR_TYPE_GRAY_ALPHA) {
            if (depth < 8) png_set_expand_gray_1_2_4_to_8(r.png);
            png_set_gray_to_rgb(r.png);
        }
        if (colour & PNG_COLOR_MASK_ALPHA) png_set_strip_alpha(r.png);
        if (png_get_valid(r.png, r.info, PNG_INFO_tRNS)) png_set_strip_alpha(r.png);
    }
    png_read_update_info(r.png, r.info);
    const size_t rowBytes = png_get_rowbytes(r.png, r.info);
    pixels.resize(rowBytes * h);
    rows.resize(h);
    for (png_uint_32 y = 0; y < h; ++y) rows[y] = pixels.data() + y * rowBytes;
    png_read_image(r.png, rows.data());
    png_read_end(r.png, nullptr);

    if (gray) {
        grayOut->width = static_cast<int>(w);
        grayOut->height = static_cast<int>(h);
        grayOut->bitDepth = depth == 16 ? 16 : 8;
        grayOut->values.resize(size_t{w} * h);
        for (size_t i = 0; i < grayOut->values.size(); ++i) {
            if (depth == 16) {
                uint16_t v;
                std::memcpy(&v, pixels.data() + 2 * i, 2);
                grayOut->values[i] = v;
            } else {
                grayOut->values[i] = pixels[i];
            }
        }
    } else {
        if (rowBytes != size_t{w} * 3) fail(path, "unexpected PNG layout");
        rgbOut->width = static_cast<int>(w);
        rgbOut->height = static_cast<int>(h);
        rgbOut->rgb = std::move(pixels);
    }
}

// ---- JPEG ----

struct JpegError {
    jpeg_error_mgr mgr;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void jpegErrorExit(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<JpegError*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

RgbImage readJpeg(const std::string& path) {
    FilePtr f = openRead(path);
    jpeg_decompress_struct cinfo;
    JpegError err;
    cinfo.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = jpegErrorExit;
    err.mgr.output_message = [](j_common_ptr) {};
    RgbImage img;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        fail(path, std::string("not a readable JPEG (") + err.message + ")");
    }
    jpeg_create_decompress(&cinfo);
    jpeg_stdio_src(&cinfo, f.get());
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = JCS_RGB;
    jpeg_start_decompress(&cinfo);
    if (cinfo.output_components != 3 || cinfo.output_width > 65535 || cinfo.output_height > 65535) {
        jpeg_destroy_decompress(&cinfo);
        fail(path, "unsupported JPEG (colour space or size)");
    }
    img.width = static_cast<int>(cinfo.output_width);
    img.height = static_cast<int>(cinfo.output_height);
    img.rgb.resize(size_t{cinfo.output_width} * cinfo.output_height * 3);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = img.rgb.data() + size_t{cinfo.output_scanline} * cinfo.output_width * 3;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    // libjpeg pads a truncated file with grey and only warns about it.
    if (err.mgr.num_warnings > 0) {
        (*err.mgr.format_message)(reinterpret_cast<j_common_ptr>(&cinfo), err.message);
        jpeg_destroy_decompress(&cinfo);
        fail(path, std::string("damaged or truncated JPEG (") + err.message + ")");
    }
    jpeg_destroy_decompress(&cinfo);
    return img;
}

void writePng(const std::string& path, int w, int h, uint32_t format, const void* data) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(w);
    image.height = static_cast<png_uint_32>(h);
    image.format = format;
    if (!png_image_write_to_file(&image, path.c_str(), 0, data, 0, nullptr))
        fail(path, std::string("cannot write PNG: ") + image.message);
}

}  // namespace

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail(path, std::string("cannot open: ") + std::strerror(errno));
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const uint8_t* data, size_t size) {
    std::ofstream out(path, std::ios::binary);
    if (!out) fail(path, std::string("cannot create: ") + std::strerror(errno));
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!out) fail(path, "write failed");
}

bool isPngOrJpeg(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    uint8_t head[8] = {};
    const size_t n = std::fread(head, 1, sizeof head, f);
    std::fclose(f);
    return hasPngSignature(head, n) || hasJpegSignature(head, n);
}

RgbImage readRgb(const std::string& path) {
    FilePtr f = openRead(path);
    uint8_t head[8] = {};
    const size_t n = std::fread(head, 1, sizeof head, f.get());
    f.reset();
    if (hasPngSignature(head, n)) {
        RgbImage img;
        readPng(path, false, &img, nullptr);
        return img;
    }
    if (hasJpegSignature(head, n)) return readJpeg(path);
    fail(path, "neither PNG nor JPEG (for raw YUV give --format and --size)");
}

GrayImage readGrayPng(const std::string& path) {
    FilePtr f = openRead(path);
    uint8_t head[8] = {};
    const size_t n = std::fread(head, 1, sizeof head, f.get());
    f.reset();
    if (!hasPngSignature(head, n)) fail(path, "not a PNG (for a raw map give --depth-format and --depth-size)");
    GrayImage img;
    readPng(path, true, nullptr, &img);
    return img;
}

void writeRgbPng(const std::string& path, const RgbImage& img) {
    writePng(path, img.width, img.height, PNG_FORMAT_RGB, img.rgb.data());
}

void writeGrayPng(const std::string& path, const GrayImage& img) {
    if (img.bitDepth == 16) {
        // The simplified writer treats 16-bit data as linear light and would
        // convert it; write stored values with the classic interface instead.
        FILE* f = std::fopen(path.c_str(), "wb");
        if (!f) fail(path, std::string("cannot create: ") + std::strerror(errno));
        FilePtr guard(f);
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png ? png_create_info_struct(png) : nullptr;
        if (!png || !info) {
            png_destroy_write_struct(&png, &info);
            fail(path, "out of memory");
        }
        std::vector<uint8_t> row(size_t(img.width) * 2);
        if (setjmp(png_jmpbuf(png))) {
            png_destroy_write_struct(&png, &info);
            fail(path, "cannot write PNG");
        }
        png_init_io(png, f);
        png_set_IHDR(png, info, img.width, img.height, 16, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        for (int y = 0; y < img.height; ++y) {
            for (int x = 0; x < img.width; ++x) {
                const uint16_t v = img.values[size_t(y) * img.width + x];
                row[2 * x] = static_cast<uint8_t>(v >> 8);
                row[2 * x + 1] = static_cast<uint8_t>(v & 0xFF);
            }
            png_write_row(png, row.data());
        }
        png_write_end(png, nullptr);
        png_destroy_write_struct(&png, &info);
        return;
    }
    std::vector<uint8_t> bytes(img.values.size());
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(img.values[i]);
    writePng(path, img.width, img.height, PNG_FORMAT_GRAY, bytes.data());
}

}  // namespace kvdsrtool
