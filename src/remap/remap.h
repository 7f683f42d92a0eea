// Rectification maps, fixed-point lookup tables and the bilinear warp.
//
// Result codes: 0xD000 map built, 0xD114 some pixel beyond the distortion
// table (map complete), 0xD115 fill-scale search failed, 0xC115 null buffer,
// 0xC117 zero size.
//
// Typical use by an engine (see docs/remap.md):
//   Init:  Remap_Reset(); Remap_QuerySize(&ws, &mb, w1, h1, w2, h2, ow, oh, 0, 1, 1);
//          allocate ws bytes (8-byte aligned) and mb bytes; Remap_SetWorkspace(ws);
//          Remap_SetBuffers(maps, luts);
//          Remap_BuildCamera(nullptr, block, nullptr, w, h, 1, -1, 1, 1, 3);  // and camera 2
//   Run:   RemapTables t = Remap_WorkspaceTables(ws, camera);
//          Remap_ApplyPlane(dst, src, t.offset, t.columnWeight, t.rowWeight, w, t.stride, rect);
//          (or Remap_BuildCamera(dst, block, src, w, h, camera, -1, 0, 0, 0) per plane)
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
    uint16_t mapValues[2] = {};  // copied unchanged from the section
    uint16_t gridWidth = 0;      // current model width: map grid columns
    uint16_t gridHeight = 0;     // current model height: map grid rows
    uint16_t calibWidth = 0;     // Wc
    uint16_t calibHeight = 0;    // Hc
    uint16_t srcWidth = 0;       // source image the map points into (grid of cx, cy)
    uint16_t srcHeight = 0;
    double pixelPitch = 0;       // p * 1000 (the map build multiplies by 0.001)
    double cx = 0, cy = 0;       // principal point in source pixels
    uint16_t rect[4] = {};       // first col, first row, last col, last row
    double homography[9] = {};   // rectifying homography, row-major
    int camera = 0;              // 0, 1 or 2
};

// Process-wide remap context (one instance; written only by set-up calls).
struct RemapContext {
    uint8_t* workspace = nullptr;
    uint8_t* mapStore = nullptr;
    uint8_t* lutStore = nullptr;
    uint16_t srcWidth1 = 0, srcHeight1 = 0;
    uint16_t srcWidth2 = 0, srcHeight2 = 0;
    uint16_t outWidth = 0, outHeight = 0;
    uint32_t extraColumns = 0;
    uint32_t mapCount = 0;
    uint32_t workspaceSize = 0;
    uint32_t columnShiftFlag = 0;
    double fillScaleX = 0, fillScaleY = 0;            // last build of camera 1 or 2
    double fillScaleCamera0X = 0, fillScaleCamera0Y = 0;  // last build with camera 0
};

// A camera's block inside the workspace. Row stride of the tables (and of
// destination planes) is outWidth + extraColumns entries.
struct RemapTables {
    double* map = nullptr;        // room for mapRecords (X, Y) records
    uint32_t mapRecords = 0;
    uint32_t* offset = nullptr;
    uint16_t* columnWeight = nullptr;
    uint16_t* rowWeight = nullptr;
    uint32_t stride = 0;
};

// Working form of a distortion table: the calibration's n entries (at most
// 22) followed by 25 extrapolated ones. Fixed storage, no allocation.
struct DistortionTable {
    static constexpr int kMaxCalibrationEntries = 22;
    static constexpr int kExtension = 25;
    static constexpr int kCapacity = kMaxCalibrationEntries + kExtension;
    double radius[kCapacity] = {};
    double distortion[kCapacity] = {};  // percent
    int count = 0;                      // n + 25
    int calibrationEntries = 0;         // n
    double largestRadius = 0;
};

// ---- Context --------------------------------------------------------------
uint32_t Remap_Reset();
// workspace = 16*A + 33*ow*oh + 8*oh*(ow+extra) (withMapStore 1) or
// 16*A + 8*oh*(2*ow+extra), raised to the layout's need when extra columns
// would not fit, and saturated at 0xFFFFFFFF; mapBytes = 16*mapCount*A,
// A = w1*h1 + w2*h2. 0xC117 when either result is 0.
uint32_t Remap_QuerySize(uint32_t* outWorkspaceBytes, uint32_t* outMapBytes, uint16_t srcWidth1,
                         uint16_t srcHeight1, uint16_t srcWidth2, uint16_t srcHeight2, uint16_t outWidth,
                         uint16_t outHeight, uint32_t extraColumns, uint32_t mapCount, uint32_t withMapStore);
uint32_t Remap_SetWorkspace(void* buffer);
uint32_t Remap_SetBuffers(void* mapStore, void* lutStore);
void Remap_SetColumnShiftFlag(uint32_t flag);
const RemapContext& Remap_Context();

// Block of camera 1 or 2 inside a workspace laid out for the sizes last
// given to Remap_QuerySize; all null for any other camera or a null workspace.
RemapTables Remap_WorkspaceTables(uint8_t* workspace, int camera);

// ---- Model and distortion table ---------------------------------------------
// Model of camera 1 or 2 of a 512-byte block for a source of width x height;
// output rectangle from the context.
RemapModel Remap_BuildModel(const uint8_t* calibrationBody, int camera, uint16_t width, uint16_t height);
// Reads the section's table (n clamped to 22) and extends it; inverse
// re-expresses it on the distorted radius first.
DistortionTable DistortionTable_FromSection(const uint8_t* calibrationBody, int camera, int inverse);
DistortionTable DistortionTable_Make(const double* radii, const double* distortions, int n, int inverse);
// Radial factor 1 + D(r)/100; false when r is not below the largest radius
// or the table has no bracketing entry.
bool DistortionTable_Factor(const DistortionTable& table, double r, double* factor);

// ---- Build and apply --------------------------------------------------------
uint32_t Remap_BuildCamera(uint8_t* dst, const uint8_t* calibrationBody, const uint8_t* src, uint16_t width,
                           uint16_t height, int camera, int mapSlot, int buildMap, int buildLut, uint32_t planes);

uint32_t Remap_BuildAndApply(uint8_t* dst, const uint8_t* calibrationBody, const RemapModel& model,
                             const uint8_t* src, uint16_t srcWidth, uint16_t srcHeight, uint16_t outWidth,
                             uint16_t outHeight, int camera, int mapSlot, int mode, uint32_t extraColumns,
                             const uint16_t rect[4], int buildMap, int buildLut, uint32_t planes);

// Fills map (gridWidth x gridHeight records of X, Y) from the n calibration
// entries. 0xD000, 0xD114 (map complete) or 0xD115.
uint32_t DistortionMap_Build(double* map, const RemapModel& model, const double* radii, const double* distortions,
                             int n, int inverse, double* outScaleX, double* outScaleY, int fitToFrame);

// Fills the rows and columns of rect (table row stride outWidth +
// extraColumns); coordinateMap is mapWidth x mapHeight records.
void RemapLut_Build(uint32_t* offsetTable, uint16_t* columnWeightTable, uint16_t* rowWeightTable, uint16_t srcWidth,
                    uint16_t srcHeight, uint16_t mapWidth, uint16_t mapHeight, uint16_t outWidth, int mode,
                    uint32_t extraColumns, const double warpMatrix[9], const double* coordinateMap,
                    const uint16_t rect[4]);

// Warps one 8-bit plane through a table over rect (inclusive). Tables and
// dst share dstStride; the source needs at least 2 rows and 2 columns.
void Remap_ApplyPlane(uint8_t* dst, const uint8_t* src, const uint32_t* offsetTable,
                      const uint16_t* columnWeightTable, const uint16_t* rowWeightTable, uint32_t srcStride,
                      uint32_t dstStride, const uint16_t rect[4]);

}  // namespace kvdsr::remap
