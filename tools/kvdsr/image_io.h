// PNG and JPEG files in and out of the kvdsr tool.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvdsrtool {

// 8-bit RGB, rows packed (3 * width bytes).
struct RgbImage {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;
};

// One-channel map as stored: 8 or 16 bits a sample.
struct GrayImage {
    int width = 0;
    int height = 0;
    int bitDepth = 8;
    std::vector<uint16_t> values;
};

// All readers and writers throw std::runtime_error with the file name and
// the reason; a damaged file is an error, never a crash.
RgbImage readRgb(const std::string& path);      // PNG or JPEG, by content
GrayImage readGrayPng(const std::string& path);  // 8- or 16-bit grey PNG
void writeRgbPng(const std::string& path, const RgbImage& img);
void writeGrayPng(const std::string& path, const GrayImage& img);  // 8 or 16 bit

std::vector<uint8_t> readFile(const std::string& path);
void writeFile(const std::string& path, const uint8_t* data, size_t size);

bool isPngOrJpeg(const std::string& path);

}  // namespace kvdsrtool
