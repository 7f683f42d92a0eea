// Rectification maps, fixed-point lookup tables and the bilinear warp.
//
// Result codes: 0xD000 map built, 0xD114 some pixel beyond the distortion
// table (map complete), 0xD115 fill-scale search failed, 0xC115 null buffer,
// 0xC117 zero size.
#pragma once

#include <cstdint>

namespace kvdsr::remap {

constexpr uint32_t kMapOk = 0xD000;
constexpr uint32_t kMapBeyondTable = 0xD114;
constexpr uint32_t kMapFillScaleFailed = 0xD115;
constexpr uint32_t kFillScaleEdgeBeyondTable = 0xD119;
constexpr uint32_t kNullBuffer = 0xC115;
constexpr uint32_t kZeroSize = 0xC117;

// One camera's model, built from its calibration section.
struct RemapModel {
    uint16_t mapValues[2];      // copied unchanged from the section
    uint16_t gridWidth;         // current model width: map grid columns
    uint16_t gridHeight;        // current model height: map grid rows
    uint16_t calibWidth;        // Wc
    uint16_t calibHeight;       // Hc
    double pixelPitch;          // p * 1000 (the map build multiplies by 0.001)
    double cx, cy;              // principal point in the call's source grid
    uint16_t rect[4];           // first col, first row, last col, last row
    double homography[9];       // rectifying homography, row-major
    int camera;                 // 0, 1 or 2
};

// Lookup tables of one camera: row stride = outWidth + extraColumns entries.
struct RemapTables {
    uint32_t* offset = nullptr;
    uint16_t* columnWeight = nullptr;
    uint16_t* rowWeight = nullptr;
    uint32_t stride = 0;
};

uint32_t Remap_Reset();
uint32_t Remap_QuerySize(uint32_t* outWorkspaceBytes, uint32_t* outMapBytes, uint16_t srcWidth1,
                         uint16_t srcHeight1, uint16_t srcWidth2, uint16_t srcHeight2, uint16_t outWidth,
                         uint16_t outHeight, uint32_t extraColumns, uint32_t mapCount, uint32_t withMapStore);
uint32_t Remap_SetWorkspace(void* buffer);
uint32_t Remap_SetBuffers(void* mapStore, void* lutStore);

// Tables of camera 1 or 2 inside a workspace laid out for the sizes last
// given to Remap_QuerySize.
RemapTables Remap_WorkspaceTables(uint8_t* workspace, int camera);

uint32_t Remap_BuildCamera(uint8_t* dst, const uint8_t* calibrationBody, const uint8_t* src, uint16_t width,
                           uint16_t height, int camera, int mapSlot, int buildMap, int buildLut, uint32_t planes);

uint32_t Remap_BuildAndApply(uint8_t* dst, const uint8_t* calibrationBody, const RemapModel& model,
                             const uint8_t* src, uint16_t srcWidth, uint16_t srcHeight, uint16_t outWidth,
                             uint16_t outHeight, int camera, int mapSlot, int mode, uint32_t extraColumns,
                             const uint16_t rect[4], int buildMap, int buildLut, uint32_t planes);

uint32_t DistortionMap_Build(double* map, const RemapModel& model, const double* radii, const double* distortions,
                             int n, int inverse, double* outScaleX, double* outScaleY, int fitToFrame);

void RemapLut_Build(uint32_t* offsetTable, uint16_t* columnWeightTable, uint16_t* rowWeightTable, uint16_t srcWidth,
                    uint16_t srcHeight, uint16_t mapWidth, uint16_t mapHeight, uint16_t outWidth, int mode,
                    uint32_t extraColumns, const double warpMatrix[9], const double* coordinateMap,
                    const uint16_t rect[4]);

// Warps one 8-bit plane through a table (tables and dst share dstStride).
void Remap_ApplyPlane(uint8_t* dst, const uint8_t* src, const uint32_t* offsetTable,
                      const uint16_t* columnWeightTable, const uint16_t* rowWeightTable, uint32_t srcStride,
                      uint32_t dstStride, const uint16_t rect[4]);

}  // namespace kvdsr::remap
