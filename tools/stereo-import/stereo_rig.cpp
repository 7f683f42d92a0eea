// kvdsr-stereo-rig: the library side of the real-rig check.
//
//   fill-scale <container> <w> <h>    fill scale of cameras 1 and 2 at w x h
//   rectify <container> <w> <h> (<in1> <in2> <out1> <out2>)...
//                                     grey w x h frames of camera 1 and 2,
//                                     rectified by kvDSR_StereoView_Run (0xF01)
//
// The importer needs the fill scale because the maps zoom the undistorted
// image about the principal point to fill the frame; the rectifying
// homography it writes has to undo that zoom.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "calibration/camera_model.h"
#include "kvDSR.h"
#include "remap/remap.h"
#include "stereoview/stereo_params.h"

namespace {

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    if (!f) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const uint8_t* data, size_t n) {
    std::ofstream f(path, std::ios::binary);
    f.write(reinterpret_cast<const char*>(data), std::streamsize(n));
    if (!f) throw std::runtime_error("cannot write " + path);
}

int fillScale(const std::string& container, uint16_t w, uint16_t h) {
    const auto data = readFile(container);
    alignas(8) uint8_t block[512];
    const uint32_t rc = kvdsr::stereoview::parseStereoCalibration(block, data.data(), uint32_t(data.size()),
                                                                  nullptr, 0);
    if (rc) {
        std::fprintf(stderr, "parse failed: 0x%X\n", rc);
        return 1;
    }
    kvdsr::stereoview::rescaleBothCameras(block, w, h);
    const kvdsr::remap::RemapLayout layout{w, h, w, h};
    for (int camera = 1; camera <= 2; ++camera) {
        const kvdsr::calib::CameraModel cam = kvdsr::calib::readCamera(block, camera);
        const kvdsr::remap::RemapModel model = kvdsr::remap::Remap_BuildModel(cam, layout);
        const kvdsr::remap::DistortionTable table = kvdsr::remap::DistortionTable_FromModel(cam, 0);
        double sx = 0, sy = 0;
        std::vector<double> map(size_t(2) * model.gridWidth * model.gridHeight);
        const uint32_t r = kvdsr::remap::DistortionMap_Build(map.data(), model, table.radius, table.distortion,
                                                             table.calibrationEntries, 0, &sx, &sy, 1);
        if (r != kvdsr::remap::kMapOk) {  // 0xD114 too: the engine would build no table
            std::fprintf(stderr, "fill scale of camera %d failed: 0x%X\n", camera, r);
            return 1;
        }
        std::printf("%s%.17g", camera == 1 ? "" : " ", sx);
    }
    std::printf("\n");
    return 0;
}

int rectify(const std::string& container, uint16_t w, uint16_t h, char** files, int count) {
    const auto data = readFile(container);
    uint32_t rc = kvDSR_StereoView_Init(data.data(), uint32_t(data.size()), nullptr, 0, w, h);
    if (rc) {
        std::fprintf(stderr, "kvDSR_StereoView_Init: 0x%X\n", rc);
        return 1;
    }
    const size_t luma = size_t(w) * h, frame = luma + luma / 2;
    std::vector<uint8_t> in1(frame, 128), in2(frame, 128), out1(frame), out2(frame);
    for (int i = 0; i + 3 < count; i += 4) {
        const auto a = readFile(files[i]), b = readFile(files[i + 1]);
        if (a.size() != luma || b.size() != luma) throw std::runtime_error("frame size differs from w x h");
        std::memcpy(in1.data(), a.data(), luma);
        std::memcpy(in2.data(), b.data(), luma);
        kvDSR_ImageDesc d1{kvDSR_FMT_YUV420SP, {0, 0, 0}, {in1.data(), in1.data() + luma, nullptr}};
        kvDSR_ImageDesc d2{kvDSR_FMT_YUV420SP, {0, 0, 0}, {in2.data(), in2.data() + luma, nullptr}};
        // The first output and descriptor belong to camera 2.
        rc = kvDSR_StereoView_Run(out2.data(), out1.data(), &d2, &d1, w, h);
        if (rc) {
            std::fprintf(stderr, "kvDSR_StereoView_Run: 0x%X\n", rc);
            return 1;
        }
        writeFile(files[i + 2], out1.data(), luma);
        writeFile(files[i + 3], out2.data(), luma);
    }
    kvDSR_StereoView_Close();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const std::string cmd = argc > 1 ? argv[1] : "";
        if (cmd == "fill-scale" && argc == 5)
            return fillScale(argv[2], uint16_t(std::stoi(argv[3])), uint16_t(std::stoi(argv[4])));
        if (cmd == "rectify" && argc >= 9 && (argc - 5) % 4 == 0)
            return rectify(argv[2], uint16_t(std::stoi(argv[3])), uint16_t(std::stoi(argv[4])), argv + 5, argc - 5);
        std::cerr << "usage: kvdsr-stereo-rig fill-scale <container> <w> <h>\n"
                     "       kvdsr-stereo-rig rectify <container> <w> <h> (<in1> <in2> <out1> <out2>)...\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "kvdsr-stereo-rig: " << e.what() << "\n";
        return 1;
    }
}
