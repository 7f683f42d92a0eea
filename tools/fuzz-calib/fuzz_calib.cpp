// libFuzzer target: the calibration parser, then what the engines do with
// its block (summary, baseline, rescaling), on arbitrary input.
#include <cstdint>
#include <vector>

#include "calibration/calib_block.h"
#include "calibration/calib_parser.h"
#include "calibration/geometry.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* in, size_t size) {
    kvdsr::fuzz::FuzzInput f;
    if (!kvdsr::fuzz::splitInput(in, size, f)) return 0;

    // Exact-size copies, so that any over-read of the caller's buffers is seen.
    std::vector<uint8_t> data(f.data, f.data + f.dataSize);
    std::vector<uint32_t> blobWords((f.blobSize + 3) / 4);
    if (f.blobSize) std::memcpy(blobWords.data(), f.blob, f.blobSize);
    const bool passBlob = f.mode & 1;
    const bool passData = !(f.mode & 2);

    uint8_t block[512] = {};
    uint32_t calibSize = 0, calibType = 0, calibIndex = 0;
    const uint32_t rc = kvdsr::calib::parseCalibration(
        block, &calibSize, &calibType, &calibIndex, passData && !data.empty() ? data.data() : nullptr,
        passData ? f.dataSize : 0, passBlob && f.blobSize ? blobWords.data() : nullptr, passBlob ? f.blobSize : 0, 0,
        f.layout, f.focus, f.index == 0xFF ? kvdsr::calib::kChooseByFocus : f.index);
    if (rc != 0) return 0;

    kvdsr::calib::CalibSummary summary;
    if (kvdsr::calib::readSummary(block, calibType, summary)) {
        double P1[12], P2[12];
        for (int i = 0; i < 12; ++i) {
            P1[i] = summary.projection1[i];
            P2[i] = summary.projection2[i];
        }
        volatile double baseline = kvdsr::geom::cameraBaseline(P1, P2);
        (void)baseline;
    }
    const uint16_t width = static_cast<uint16_t>(1 + (f.focus & 0x1FFF));
    const uint16_t height = static_cast<uint16_t>(1 + ((f.focus >> 13) & 0x1FFF));
    kvdsr::geom::rescaleCameraSection(block, width, height, 1);
    kvdsr::geom::rescaleCameraSection(block, width, height, 2);
    return 0;
}
